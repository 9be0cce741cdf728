# Verify tests

# Verification through the public interface: messages of the openssl tool and
# crafted ones, certificate options, the CRL-checked path and the order of the
# checks.
tessera_add_gtest(tessera_cms_verify_tests SignedCmsVerifyTest.cpp)
target_link_libraries(tessera_cms_verify_tests PRIVATE tessera OpenSSL::Crypto)
tessera_discover_tests(tessera_cms_verify_tests)

# `tessera verify` over signatures of the openssl tool with the ocsp fixture's PKI.
add_test(NAME cli.verify
    COMMAND ${CMAKE_SOURCE_DIR}/tests/scripts/check_cli_verify.sh $<TARGET_FILE:tessera_cli>)
set_tests_properties(cli.verify PROPERTIES
    ENVIRONMENT "${TESSERA_TEST_ENVIRONMENT}" FIXTURES_REQUIRED ocsp TIMEOUT 60)

# `tessera sign --cades` and `tessera verify` over CAdES signatures, judged by
# `openssl cms -verify -cades`; the http fixture serves the policy.
add_test(NAME cli.cades
    COMMAND ${CMAKE_SOURCE_DIR}/tests/scripts/check_cli_cades.sh $<TARGET_FILE:tessera_cli>)
set_tests_properties(cli.cades PROPERTIES
    ENVIRONMENT "${TESSERA_TEST_ENVIRONMENT}" FIXTURES_REQUIRED http TIMEOUT 120)

# `tessera sign --tsa`, `tessera upgrade` and the time-stamps `tessera verify`
# shows, against the loopback TSA; the http fixture is a failing one.
add_test(NAME cli.cades_t
    COMMAND ${CMAKE_SOURCE_DIR}/tests/scripts/check_cli_cades_t.sh $<TARGET_FILE:tessera_cli>)
set_tests_properties(cli.cades_t PROPERTIES
    ENVIRONMENT "${TESSERA_TEST_ENVIRONMENT}" FIXTURES_REQUIRED "tsa;http" TIMEOUT 120)

# `tessera validate` over CAdES signatures of the tool and the openssl tool;
# the http fixture serves the root's CRL for --fetch.
add_test(NAME cli.validate
    COMMAND ${CMAKE_SOURCE_DIR}/tests/scripts/check_cli_validate.sh $<TARGET_FILE:tessera_cli>)
set_tests_properties(cli.validate PROPERTIES
    ENVIRONMENT "${TESSERA_TEST_ENVIRONMENT}" FIXTURES_REQUIRED http TIMEOUT 120)

# `tessera validate` over the public CAdES signatures of tests/vectors/cades,
# anchored in their own certificates, through both processes; no network.
add_test(NAME cli.validate.samples
    COMMAND ${CMAKE_SOURCE_DIR}/tests/scripts/check_cli_validate_samples.sh
            $<TARGET_FILE:tessera_cli>)
set_tests_properties(cli.validate.samples PROPERTIES TIMEOUT 120)

# Extension of CAdES-T signatures to LT and LTA with the long-term PKI of
# TestArchive.h, in-process revocation sources and archive tokens; the
# unreachable TSA is a refused loopback port.
tessera_add_gtest(tessera_extend_tests SignedCades2ExtendTest.cpp)
target_link_libraries(tessera_extend_tests PRIVATE tessera OpenSSL::Crypto)
tessera_discover_tests(tessera_extend_tests)

# `tessera extend` to LT and LTA against the loopback TSA and OCSP responder,
# checked by `openssl cms -verify` and `tessera validate --poe`; the http
# fixture is a failing authority.
add_test(NAME cli.extend
    COMMAND ${CMAKE_SOURCE_DIR}/tests/scripts/check_cli_extend.sh $<TARGET_FILE:tessera_cli>)
set_tests_properties(cli.extend PROPERTIES
    ENVIRONMENT "${TESSERA_TEST_ENVIRONMENT}" FIXTURES_REQUIRED "tsa;ocsp;http" TIMEOUT 120)
