# CMS signed data: the container, its signer infos, signing and verification,
# and the attribute classes they read and write.
target_sources(tessera_objects PRIVATE
    # the container and its signer infos
    ${CMAKE_CURRENT_LIST_DIR}/SignedCms.cpp
    ${CMAKE_CURRENT_LIST_DIR}/SignerInfo.cpp
    ${CMAKE_CURRENT_LIST_DIR}/CmsRevocationInfo.cpp
    ${CMAKE_CURRENT_LIST_DIR}/X509Attribute.cpp
    ${CMAKE_CURRENT_LIST_DIR}/TimeStampAttribute.cpp
    ${CMAKE_CURRENT_LIST_DIR}/VerificationData.cpp
    # CAdES signed attributes and the signer-certificate check
    ${CMAKE_CURRENT_LIST_DIR}/att_signcertv2.cpp
    ${CMAKE_CURRENT_LIST_DIR}/SigningCertificateAttribute.cpp
    ${CMAKE_CURRENT_LIST_DIR}/MimeTypeAttribute.cpp
    ${CMAKE_CURRENT_LIST_DIR}/SigningCertCheck.cpp
    # CAdES signatures
    ${CMAKE_CURRENT_LIST_DIR}/SignedCades.cpp
    ${CMAKE_CURRENT_LIST_DIR}/SignedCadesVerify.cpp
    ${CMAKE_CURRENT_LIST_DIR}/SignerCades.cpp
    ${CMAKE_CURRENT_LIST_DIR}/VerifierCades.cpp
    # signing
    ${CMAKE_CURRENT_LIST_DIR}/SignerCms.cpp
    ${CMAKE_CURRENT_LIST_DIR}/SignedCmsSign.cpp
    ${CMAKE_CURRENT_LIST_DIR}/CmsSignSize.cpp
    # verification
    ${CMAKE_CURRENT_LIST_DIR}/VerifierCms.cpp
    ${CMAKE_CURRENT_LIST_DIR}/VerifierTimeStamp.cpp
    ${CMAKE_CURRENT_LIST_DIR}/SignedCmsVerify.cpp
    # archive time-stamps
    ${CMAKE_CURRENT_LIST_DIR}/ATSHashIndexAttribute.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ATSHashIndexProofs.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ArchiveImprint.cpp
    ${CMAKE_CURRENT_LIST_DIR}/SignedCades2.cpp
    ${CMAKE_CURRENT_LIST_DIR}/SignedCades2Verify.cpp
    ${CMAKE_CURRENT_LIST_DIR}/SignedCades2Extend.cpp)
