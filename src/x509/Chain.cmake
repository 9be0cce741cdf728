# Certification path building, OpenSSL's verification of the path, and the
# revocation search and verdicts.
target_sources(tessera_objects PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/X509CertificateChain.cpp
    ${CMAKE_CURRENT_LIST_DIR}/X509Chain.cpp
    ${CMAKE_CURRENT_LIST_DIR}/X509ChainRevocation.cpp)
