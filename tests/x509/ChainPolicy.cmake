# The chain policy, its trust-list variant, caution periods and the revocation
# verdicts of certificate validation, as an application sees them: linked
# against libtessera.so.
tessera_add_gtest(tessera_chain_policy_tests X509ChainPolicyTest.cpp)
target_link_libraries(tessera_chain_policy_tests PRIVATE tessera OpenSSL::Crypto)
tessera_discover_tests(tessera_chain_policy_tests)
