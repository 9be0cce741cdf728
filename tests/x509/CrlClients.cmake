# CRL clients as an application sees them (linked against libtessera.so),
# against the loopback http fixture (CRLs, error statuses, slow answers) and
# the CRL service.
tessera_add_gtest(tessera_crl_client_tests X509CrlClientTest.cpp)
target_link_libraries(tessera_crl_client_tests PRIVATE tessera OpenSSL::Crypto)
tessera_discover_tests(tessera_crl_client_tests FIXTURES_REQUIRED http)

tessera_add_gtest(tessera_getonecrl_tests X509GetOneCrlClientTest.cpp)
target_link_libraries(tessera_getonecrl_tests PRIVATE tessera OpenSSL::Crypto)
tessera_discover_tests(tessera_getonecrl_tests FIXTURES_REQUIRED crlservice)

# `tessera fetch-crl` over a certificate whose distribution point is the http fixture.
add_test(NAME cli.fetch_crl
    COMMAND ${CMAKE_SOURCE_DIR}/tests/scripts/check_cli_fetch_crl.sh $<TARGET_FILE:tessera_cli>)
set_tests_properties(cli.fetch_crl PROPERTIES
    ENVIRONMENT "${TESSERA_TEST_ENVIRONMENT}" FIXTURES_REQUIRED http TIMEOUT 60)

# The own HTTP/HTTPS client (its C layer linked in statically) and the CRL
# client over it, against recording servers and tinyproxy.
tessera_add_gtest(tessera_qor_crl_client_tests X509QorCrlClientTest.cpp)
target_link_libraries(tessera_qor_crl_client_tests
    PRIVATE tessera_objects ${TESSERA_BUNDLED_LIBRARIES})
target_include_directories(tessera_qor_crl_client_tests
    PRIVATE ${CMAKE_SOURCE_DIR}/lib/qorstl/internal)
tessera_discover_tests(tessera_qor_crl_client_tests FIXTURES_REQUIRED rawhttp)

# `tessera fetch-crl --own-http`, also through tinyproxy.
add_test(NAME cli.fetch_crl_own_http
    COMMAND ${CMAKE_SOURCE_DIR}/tests/scripts/check_cli_fetch_crl_own_http.sh
            $<TARGET_FILE:tessera_cli>)
set_tests_properties(cli.fetch_crl_own_http PROPERTIES
    ENVIRONMENT "${TESSERA_TEST_ENVIRONMENT}" FIXTURES_REQUIRED rawhttp TIMEOUT 60)
