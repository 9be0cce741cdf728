# Certificates and the keys taken from them, as an application sees them:
# linked against libtessera.so; certificates and PKCS#12 files of the openssl
# tool among the inputs.
tessera_add_gtest(tessera_certificate_tests X509CertificateTest.cpp CertificateKeyTest.cpp)
target_link_libraries(tessera_certificate_tests PRIVATE tessera OpenSSL::Crypto)
tessera_discover_tests(tessera_certificate_tests)

# `tessera cert` over certificates written by `openssl req -x509`.
add_test(NAME cli.cert
    COMMAND ${CMAKE_SOURCE_DIR}/tests/scripts/check_cli_cert.sh $<TARGET_FILE:tessera_cli>)
set_tests_properties(cli.cert PROPERTIES ENVIRONMENT "${TESSERA_TEST_ENVIRONMENT}" TIMEOUT 60)
