# Sources of the key classes, added to the library's objects.
target_sources(tessera_objects PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/CryptKey.cpp
    ${CMAKE_CURRENT_LIST_DIR}/CryptKeyEC.cpp
    ${CMAKE_CURRENT_LIST_DIR}/CryptKeyRSA.cpp
    ${CMAKE_CURRENT_LIST_DIR}/KeyInternals.cpp)
