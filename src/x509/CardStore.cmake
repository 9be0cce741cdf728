# The smart-card store: card discovery over pcsc-lite, card types and
# providers from the application's registrations.
pkg_check_modules(PCSCLITE REQUIRED libpcsclite)
target_sources(tessera_objects PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/PcscReaders.cpp
    ${CMAKE_CURRENT_LIST_DIR}/SmartCardServices.cpp
    ${CMAKE_CURRENT_LIST_DIR}/X509WinCardStore.cpp)
# pcsc-lite's headers include each other without their folder; only the
# source that talks to pcsc-lite sees that folder.
set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/PcscReaders.cpp
    PROPERTIES INCLUDE_DIRECTORIES "${PCSCLITE_INCLUDE_DIRS}")
target_link_libraries(tessera_objects PUBLIC ${PCSCLITE_LINK_LIBRARIES})
