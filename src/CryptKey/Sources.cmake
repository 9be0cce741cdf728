# Sources of the key classes, added to the library's objects.
target_sources(tessera_objects PRIVATE ${CMAKE_CURRENT_LIST_DIR}/CryptKey.cpp)
