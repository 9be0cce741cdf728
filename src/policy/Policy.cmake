# Signature policies: the policy language's ASN.1, the policy model and the
# signature-policy-identifier attribute, the verifier that applies a policy's
# rules and the clients that download policies.
target_sources(tessera_objects PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/EsiAsn1.cpp
    ${CMAKE_CURRENT_LIST_DIR}/PolicyParse.cpp
    ${CMAKE_CURRENT_LIST_DIR}/PolicyRules.cpp
    ${CMAKE_CURRENT_LIST_DIR}/PolicyTrust.cpp
    ${CMAKE_CURRENT_LIST_DIR}/SignaturePolicy.cpp
    ${CMAKE_CURRENT_LIST_DIR}/att_sigpolicyid.cpp
    ${CMAKE_CURRENT_LIST_DIR}/SignaturePolicyAttribute.cpp
    ${CMAKE_CURRENT_LIST_DIR}/SignaturePolicyVerifier.cpp
    ${CMAKE_CURRENT_LIST_DIR}/SignaturePolicyClient.cpp)
