# Container tests: the signed-data container, its signer infos, the
# time-stamp attribute and the verification results, linked against
# libtessera.so like an application.
tessera_add_gtest(tessera_cms_container_tests SignedCmsTest.cpp)
target_link_libraries(tessera_cms_container_tests PRIVATE tessera OpenSSL::Crypto)
tessera_discover_tests(tessera_cms_container_tests)

# The DER walker behind the container and the archive time-stamps of the
# public samples: the library's objects linked in statically.
tessera_add_gtest(tessera_cms_container_internal_tests CmsRevocationInfoTest.cpp
    ArchiveTimeStampTest.cpp)
target_link_libraries(tessera_cms_container_internal_tests
    PRIVATE tessera_objects ${TESSERA_BUNDLED_LIBRARIES})
target_compile_definitions(tessera_cms_container_internal_tests PRIVATE
    TESSERA_VECTORS_DIR="${CMAKE_SOURCE_DIR}/tests/vectors")
tessera_discover_tests(tessera_cms_container_internal_tests)

# `tessera info` over messages written by the openssl command.
add_test(NAME cli.cms_info
    COMMAND ${CMAKE_SOURCE_DIR}/tests/scripts/check_cli_cms_info.sh $<TARGET_FILE:tessera_cli>)
set_tests_properties(cli.cms_info PROPERTIES ENVIRONMENT "${TESSERA_TEST_ENVIRONMENT}" TIMEOUT 60)

# CAdES signatures: signing, OpenSSL interop, the public samples and the
# policy rules during verification.
tessera_add_gtest(tessera_cades_tests SignedCadesTest.cpp)
target_link_libraries(tessera_cades_tests PRIVATE tessera OpenSSL::Crypto)
target_compile_definitions(tessera_cades_tests PRIVATE
    TESSERA_VECTORS_DIR="${CMAKE_SOURCE_DIR}/tests/vectors")
tessera_discover_tests(tessera_cades_tests)

# Signature time-stamps against the loopback TSA and in-process tokens; the
# failing TSAs are the http fixture's. The two fixtures are one list value,
# whose separator survives the rounds of list splitting on its way to the
# generated test files only escaped this often.
tessera_add_gtest(tessera_timestamp_tests TimeStampTest.cpp)
target_link_libraries(tessera_timestamp_tests PRIVATE tessera OpenSSL::Crypto)
target_compile_definitions(tessera_timestamp_tests PRIVATE
    TESSERA_VECTORS_DIR="${CMAKE_SOURCE_DIR}/tests/vectors")
tessera_discover_tests(tessera_timestamp_tests FIXTURES_REQUIRED "tsa\\\\\\\\\\\\\\\\\\;http")
