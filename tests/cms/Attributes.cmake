# CAdES signed attributes and the signer-certificate check; the check is
# internal, so the library's objects are linked in statically.
tessera_add_gtest(tessera_cms_attributes_tests AttributesTest.cpp)
target_link_libraries(tessera_cms_attributes_tests
    PRIVATE tessera_objects ${TESSERA_BUNDLED_LIBRARIES})
tessera_discover_tests(tessera_cms_attributes_tests)
