# Certification paths and revocation checking.

# The revocation verdicts, the CRL suitability test and the extra-store
# searches, through a chain that opens up its protected steps.
tessera_add_gtest(tessera_chain_revocation_tests X509ChainRevocationTest.cpp)
target_link_libraries(tessera_chain_revocation_tests PRIVATE tessera OpenSSL::Crypto)
tessera_discover_tests(tessera_chain_revocation_tests)

# `tessera chain` over the ocsp fixture's PKI: CRLs from files, OCSP from its responder.
add_test(NAME cli.chain
    COMMAND ${CMAKE_SOURCE_DIR}/tests/scripts/check_cli_chain.sh $<TARGET_FILE:tessera_cli>)
set_tests_properties(cli.chain PROPERTIES
    ENVIRONMENT "${TESSERA_TEST_ENVIRONMENT}" FIXTURES_REQUIRED ocsp TIMEOUT 60)

# Whole-path scenarios over in-process data (memory stores, recording fake
# clients), as an application sees them: linked against libtessera.so.
tessera_add_gtest(tessera_chain_scenario_tests X509ChainTest.cpp)
target_link_libraries(tessera_chain_scenario_tests PRIVATE tessera OpenSSL::Crypto)
tessera_discover_tests(tessera_chain_scenario_tests)

# Proofs of existence: the store and path building with it.
tessera_add_gtest(tessera_chain_poe_tests X509ChainPoeTest.cpp)
target_link_libraries(tessera_chain_poe_tests PRIVATE tessera OpenSSL::Crypto)
tessera_discover_tests(tessera_chain_poe_tests)

# The same engine against the loopback servers (OCSP responder, CRL service,
# http distribution point) and next to `openssl verify`.
tessera_add_gtest(tessera_chain_server_tests X509ChainServersTest.cpp)
target_link_libraries(tessera_chain_server_tests PRIVATE tessera OpenSSL::Crypto)
# The fixture list passes through the rounds of list splitting that the test
# environment does (see tessera_discover_tests) and one more as part of ARGN:
# nine backslashes leave a plain ";" in the generated test properties.
string(REPLACE ";" "\\\\\\\\\\\\\\\\\\;" chain_server_fixtures "ocsp;crlservice;http")
tessera_discover_tests(tessera_chain_server_tests FIXTURES_REQUIRED "${chain_server_fixtures}")
