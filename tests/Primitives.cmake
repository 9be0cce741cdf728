# Byte buffers, Base64 and hashing, through libtessera.so as an application
# uses them.
tessera_add_gtest(tessera_primitives_tests CryptUtilsTest.cpp CryptHashTest.cpp)
target_link_libraries(tessera_primitives_tests PRIVATE tessera OpenSSL::Crypto)
tessera_discover_tests(tessera_primitives_tests)

# CryptArray's wiping. The program replaces the global allocation functions
# to look at blocks as they are freed, so it stands on its own.
tessera_add_gtest(tessera_cryptarray_tests CryptArrayTest.cpp)
target_link_libraries(tessera_cryptarray_tests PRIVATE tessera)
tessera_discover_tests(tessera_cryptarray_tests)

add_test(NAME cli.hash_base64
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/scripts/check_cli_hash.sh $<TARGET_FILE:tessera_cli>)
set_tests_properties(cli.hash_base64 PROPERTIES ENVIRONMENT "${TESSERA_TEST_ENVIRONMENT}")
