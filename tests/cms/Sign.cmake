# Signing: message contents, OpenSSL's verdict on them (`openssl cms
# -verify`), co-signing, the size estimate and failure codes, through the
# public interface.
tessera_add_gtest(tessera_cms_sign_tests SignedCmsSignTest.cpp)
target_link_libraries(tessera_cms_sign_tests PRIVATE tessera OpenSSL::Crypto)
tessera_discover_tests(tessera_cms_sign_tests)

# A key of the softhsm fixture's token signs through the engine "pkcs11"; the
# tests take turns with the token.
tessera_add_gtest(tessera_cms_token_tests SignedCmsTokenTest.cpp ../qorpkcs11/SoftHsmFixture.cpp)
target_include_directories(tessera_cms_token_tests PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/../qorpkcs11)
target_link_libraries(tessera_cms_token_tests PRIVATE tessera OpenSSL::Crypto ${CMAKE_DL_LIBS})
tessera_discover_tests(tessera_cms_token_tests FIXTURES_REQUIRED softhsm RESOURCE_LOCK softhsm)

# `tessera sign`, `sign-digest`, `cosign` and `estimate`, judged by the openssl
# command; the token key of the softhsm fixture for --pkcs11.
add_test(NAME cli.sign
    COMMAND ${CMAKE_SOURCE_DIR}/tests/scripts/check_cli_sign.sh $<TARGET_FILE:tessera_cli>)
set_tests_properties(cli.sign PROPERTIES ENVIRONMENT "${TESSERA_TEST_ENVIRONMENT}"
    FIXTURES_REQUIRED softhsm RESOURCE_LOCK softhsm TIMEOUT 120)
