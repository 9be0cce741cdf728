# The OCSP clients: the abstract client, the online client over the OCSP
# library, and the map and stack that forward requests.
target_sources(tessera_objects PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/X509OcspClientOnline.cpp
    ${CMAKE_CURRENT_LIST_DIR}/X509OcspClientRouting.cpp)
