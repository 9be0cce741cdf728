# The smart-card store: readers, card database and providers in memory (the
# reader layer is internal, hence the library's objects linked in), and
# pcsc-lite with and without a daemon of the test's own.
tessera_add_gtest(tessera_card_store_tests X509WinCardStoreTest.cpp)
target_link_libraries(tessera_card_store_tests
    PRIVATE tessera_objects ${TESSERA_BUNDLED_LIBRARIES})
target_include_directories(tessera_card_store_tests
    PRIVATE ${CMAKE_SOURCE_DIR}/lib/qorstl/internal)
tessera_discover_tests(tessera_card_store_tests)
