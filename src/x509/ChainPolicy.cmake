# The chain policy, its trust-list variant, caution periods and the revocation
# verdicts of certificate validation.
target_sources(tessera_objects PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/X509ChainPolicy.cpp
    ${CMAKE_CURRENT_LIST_DIR}/X509ChainPolicyCallbacks.cpp)
