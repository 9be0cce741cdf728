# Sources of the CRL clients.
target_sources(tessera_objects PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/X509CrlClients.cpp
    ${CMAKE_CURRENT_LIST_DIR}/X509CrlClientOnline.cpp
    ${CMAKE_CURRENT_LIST_DIR}/X509GetOneCrlClient.cpp)
# The online client over the library's own HTTP/HTTPS client, and that client.
target_sources(tessera_objects PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/X509QorCrlClientOnline.cpp
    ${CMAKE_CURRENT_LIST_DIR}/http/httpint.cpp
    ${CMAKE_CURRENT_LIST_DIR}/http/qor_http.cpp
    ${CMAKE_CURRENT_LIST_DIR}/http/qor_http_connect.cpp
    ${CMAKE_CURRENT_LIST_DIR}/http/qor_https_connect.cpp)
