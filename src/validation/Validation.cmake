# Signature validation: the block and process reports with their text and
# JSON forms, the building blocks, the validation processes and the
# validator.
target_sources(tessera_objects PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/ValidationBlockReport.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ValidationReport.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ReportJson.cpp
    ${CMAKE_CURRENT_LIST_DIR}/CadesValidationBlocks.cpp
    ${CMAKE_CURRENT_LIST_DIR}/X509CertificateValidationBlock.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ValidationProcess.cpp
    ${CMAKE_CURRENT_LIST_DIR}/TimeStampValidationBlock.cpp
    ${CMAKE_CURRENT_LIST_DIR}/CadesSignatureWithTimeValidationProcess.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ValidatorCades.cpp)
