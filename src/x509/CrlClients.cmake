# Sources of the CRL clients.
target_sources(tessera_objects PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/X509CrlClients.cpp
    ${CMAKE_CURRENT_LIST_DIR}/X509CrlClientOnline.cpp
    ${CMAKE_CURRENT_LIST_DIR}/X509GetOneCrlClient.cpp)
