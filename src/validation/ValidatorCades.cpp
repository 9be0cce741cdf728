// The validator facade: picks the signer, creates the process of the
// requested type, runs it and exposes its report.
#include "Validator.h"

#include "CryptException.h"
#include "Failure.h"
#include "LogChannel.h"
#include "ValidationBlock.h"
#include "ValidationReport.h"
#include "X509Certificate.h"

namespace TesseraLib {

Validator::Validator()
    : m_processType(ValidationProcess::vptBasicSignatureValidation),
      m_validationTime(0),
      m_validationPolicyOid(CadesValidationContextInitializationBlock::kDefaultValidationPolicyOid),
      m_signatureIndex(0),
      m_signatureStandard(ValidationProcess::vptNotSet) {}

Validator::~Validator() = default;

ValidatorCades::ValidatorCades()
    : m_signedCades(nullptr),
      m_identifiedCertificate(nullptr),
      m_chainPolicy(nullptr),
      m_log(std::make_unique<LogChannel>(L"ValidatorCades")) {}

ValidatorCades::~ValidatorCades() = default;

void ValidatorCades::SetSignatureStandard(ValidationProcess::cptSignatureStandard standard) {
    if (standard != ValidationProcess::vptTS103173 &&
        standard != ValidationProcess::vptEN319122_1) {
        Fail(m_log,
             L"SetSignatureStandard: Bad parameter - Only CAdES standards vptTS103173 and "
             L"vptEN319122_1 can be used.",
             ErrInvalidParameter,
             L"SetSignatureStandard - Only CAdES standards vptTS103173 and vptEN319122_1 can be "
             L"used");
    }
    m_signatureStandard = standard;
}

void ValidatorCades::SetSigningCertificate(const X509Certificate* certificate) {
    m_callerCertificate.reset(certificate != nullptr ? new X509Certificate(*certificate) : nullptr);
}

const ValidationReport* ValidatorCades::GetValidationReport() const {
    return m_process ? m_process->GetValidationReport() : nullptr;
}

ValidationReport* ValidatorCades::GetValidationReport() {
    return m_process ? m_process->GetValidationReport() : nullptr;
}

void ValidatorCades::Validate() {
    Run(L"Validate", nullptr);
}

void ValidatorCades::ValidateDigest(const qorstd::QorArray<unsigned char>& digest) {
    Run(L"ValidateDigest", &digest);
}

void ValidatorCades::Run(const wchar_t* operation, const qorstd::QorArray<unsigned char>* digest) {
    TLOG_INFO(m_log, L"%ls()", operation);
    if (m_signedCades == nullptr) {
        TLOG_ERROR(m_log, L"%ls: SignedCades is not present.", operation);
        Fail(ErrNoMessage, L"");
    }
    if (m_signatureStandard == ValidationProcess::vptNotSet) {
        TLOG_ERROR(m_log, L"%ls: Bad parameter - Signature Standard not set", operation);
        Fail(ErrInvalidParameter, L"Signature Standard not set");
    }
    m_identifiedCertificate = nullptr;
    m_process.reset();
    m_process.reset(CreateValidationProcess(m_processType));
    m_process->SetSignatureStandard(m_signatureStandard);
    auto* inputs = dynamic_cast<CadesSignerInputs*>(m_process.get());
    if (digest != nullptr && inputs != nullptr) {
        inputs->SetSignerDocumentDigest(*digest);
    }
    m_process->Execute();
    if (inputs != nullptr && inputs->GetSigningCertificate().GetX509() != nullptr) {
        m_identifiedCertificate = &inputs->GetSigningCertificate();
    }
}

SignedCades::SignerInfo& ValidatorCades::GetSignature(unsigned int index) {
    if (m_signedCades == nullptr) {
        Fail(m_log, L"GetSignature: SignedCades is not present.", ErrNoMessage, L"");
    }
    const unsigned int count = m_signedCades->GetSignerInfoCount();
    if (count == 0) {
        Fail(m_log, L"GetSignature: SignerInfos is not present.", ErrNoSigner, L"");
    }
    if (index >= count) {
        TLOG_ERROR(m_log, L"GetSignature: SignerIndex = %d is out of bound.",
                   static_cast<int>(index));
        Fail(ErrOutOfBounds, L"");
    }
    return *m_signedCades->GetSignerInfo(index);
}

ValidationProcess* ValidatorCades::CreateValidationProcess(
    ValidationProcess::cptValidationProcessType type) {
    if (type != ValidationProcess::vptBasicSignatureValidation &&
        type != ValidationProcess::vptSignatureWithTimeValidation) {
        TLOG_ERROR(m_log, L"CreateValidationProcess: Validation Process %d is unsupported.",
                   static_cast<int>(type));
        Fail(ErrInvalidParameter, L"");
    }
    // An index out of range keeps its own code rather than the generic
    // creation failure, so the caller learns what was wrong.
    SignedCades::SignerInfo& signature = GetSignature(m_signatureIndex);
    try {
        std::unique_ptr<ValidationProcess> process;
        CadesSignerInputs* inputs = nullptr;
        if (type == ValidationProcess::vptBasicSignatureValidation) {
            auto basic = std::make_unique<CadesBasicSignatureValidationProcess>();
            inputs = basic.get();
            process = std::move(basic);
        } else {
            auto withTime = std::make_unique<CadesSignatureWithTimeValidationProcess>();
            inputs = withTime.get();
            process = std::move(withTime);
        }
        inputs->SetSignature(&signature);
        process->SetSignatureExistenceTime(m_validationTime);
        process->SetValidationPolicyOID(m_validationPolicyOid);
        process->SetChainPolicy(m_chainPolicy);
        if (m_callerCertificate) {
            inputs->SetSigningCertificate(*m_callerCertificate);
        }
        return process.release();
    } catch (...) {
        Fail(m_log, L"CreateValidationProcess: Error during creation of validation process.",
             ErrNoValidationProcess, L"");
    }
}

}  // namespace TesseraLib
