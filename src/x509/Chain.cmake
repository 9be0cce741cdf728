# Certification path building, OpenSSL's verification of the path, the
# revocation search and verdicts, and building with proofs of existence.
target_sources(tessera_objects PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/ValidationDataStore.cpp
    ${CMAKE_CURRENT_LIST_DIR}/X509CertificateChain.cpp
    ${CMAKE_CURRENT_LIST_DIR}/X509Chain.cpp
    ${CMAKE_CURRENT_LIST_DIR}/X509ChainPoe.cpp
    ${CMAKE_CURRENT_LIST_DIR}/X509ChainRevocation.cpp)
