# The OCSP clients, linked against libtessera.so like an application.

# The online client with a canned transport where times must be pinned.
tessera_add_gtest(tessera_ocsp_online_tests X509OcspClientOnlineTest.cpp)
target_link_libraries(tessera_ocsp_online_tests PRIVATE tessera OpenSSL::Crypto)
tessera_discover_tests(tessera_ocsp_online_tests)

# The map and the stack over fake clients.
tessera_add_gtest(tessera_ocsp_routing_tests X509OcspClientRoutingTest.cpp)
target_link_libraries(tessera_ocsp_routing_tests PRIVATE tessera OpenSSL::Crypto)
tessera_discover_tests(tessera_ocsp_routing_tests)
