# CRLs and certificate stores as an application sees them: linked against
# libtessera.so; CRLs and PKCS#12 files of the openssl tool among the inputs.
tessera_add_gtest(tessera_crl_store_tests X509CrlTest.cpp X509MemoryStoreTest.cpp)
target_link_libraries(tessera_crl_store_tests PRIVATE tessera OpenSSL::Crypto)
tessera_discover_tests(tessera_crl_store_tests)

# `tessera crl` over a CRL written by `openssl ca -gencrl`.
add_test(NAME cli.crl
    COMMAND ${CMAKE_SOURCE_DIR}/tests/scripts/check_cli_crl.sh $<TARGET_FILE:tessera_cli>)
set_tests_properties(cli.crl PROPERTIES ENVIRONMENT "${TESSERA_TEST_ENVIRONMENT}" TIMEOUT 60)

# The system store over a directory the tests fill with certificate and key
# files; its keys sign a CAdES signature the openssl tool verifies.
tessera_add_gtest(tessera_win_store_tests X509WinStoreTest.cpp)
target_link_libraries(tessera_win_store_tests PRIVATE tessera OpenSSL::Crypto)
tessera_discover_tests(tessera_win_store_tests)

# The PKCS#11 store over two SoftHSM2 tokens each test writes in a folder of
# its own (the fixture's token is not used); its key signs a CAdES signature
# the openssl tool verifies.
tessera_add_gtest(tessera_pkcs11_store_tests X509Pkcs11StoreTest.cpp
    ${CMAKE_SOURCE_DIR}/tests/qorpkcs11/SoftHsmFixture.cpp)
target_include_directories(tessera_pkcs11_store_tests
    PRIVATE ${CMAKE_SOURCE_DIR}/tests/qorpkcs11)
target_link_libraries(tessera_pkcs11_store_tests PRIVATE tessera OpenSSL::Crypto ${CMAKE_DL_LIBS})
# SoftHSM2 behind a module that can take a token away while a store holds its slot.
add_library(tessera_test_removed_token MODULE ${CMAKE_SOURCE_DIR}/tests/qorpkcs11/RemovedTokenModule.cpp)
target_compile_options(tessera_test_removed_token PRIVATE -Wall -Wextra -Werror)
pkg_check_modules(REMOVED_TOKEN_P11KIT REQUIRED p11-kit-1)
target_include_directories(tessera_test_removed_token PRIVATE ${REMOVED_TOKEN_P11KIT_INCLUDE_DIRS})
target_link_libraries(tessera_test_removed_token PRIVATE ${CMAKE_DL_LIBS})
add_dependencies(tessera_pkcs11_store_tests tessera_test_removed_token)
target_compile_definitions(tessera_pkcs11_store_tests PRIVATE
    TESSERA_REMOVED_TOKEN_MODULE=L"$<TARGET_FILE:tessera_test_removed_token>")
tessera_discover_tests(tessera_pkcs11_store_tests TIMEOUT 120)

# `tessera store list` and signing with a signer picked from a directory
# store and from SoftHSM2 tokens the script writes itself, judged by the
# openssl command.
add_test(NAME cli.store
    COMMAND ${CMAKE_SOURCE_DIR}/tests/scripts/check_cli_store.sh $<TARGET_FILE:tessera_cli>)
set_tests_properties(cli.store PROPERTIES ENVIRONMENT "${TESSERA_TEST_ENVIRONMENT}" TIMEOUT 120)
