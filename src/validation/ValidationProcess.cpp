// The process base and the basic signature validation: the blocks in their
// order, each deciding whether the process goes on.
#include "CadesValidationProcess.h"

#include "CryptException.h"
#include "CryptUtils.h"
#include "Failure.h"
#include "LogChannel.h"
#include "ProcessStart.h"
#include "ValidationBlock.h"
#include "ValidationReport.h"
#include "X509CertificateValidationBlock.h"
#include "X509ChainPolicy.h"

namespace TesseraLib {

const wchar_t* const ValidationProcess::cptSignatureStandardStrings[8] = {
    L"vptNotSet",     L"vptTS103171",   L"vptTS103172",   L"vptTS103173",
    L"vptEN319122_1", L"vptEN319132_1", L"vptEN319142_1", L"vptRFC3161"};

namespace {

constexpr const wchar_t* kBasicChannel = L"CadesBasicSignatureValidationProcess";

// Block and total indications share their values: indeterminate, passed,
// failed.
ValidationReport::cptReportTotalStatus Total(ValidationBlockReport::cptReportStatus status) {
    return static_cast<ValidationReport::cptReportTotalStatus>(status);
}

}  // namespace

// -------------------------------------------------------------------- base

ValidationProcess::ValidationProcess()
    : m_validationPolicyOid(CadesValidationContextInitializationBlock::kDefaultValidationPolicyOid),
      m_chainPolicy(nullptr),
      m_signatureStandard(vptNotSet),
      m_signatureExistenceTime(0) {}

ValidationProcess::ValidationProcess(const ValidationProcess& other) = default;
ValidationProcess& ValidationProcess::operator=(const ValidationProcess& other) = default;
ValidationProcess::~ValidationProcess() = default;

void ValidationProcess::SetSignatureStandard(cptSignatureStandard standard) {
    m_signatureStandard = standard;
}

void BeginExecute(ValidationProcess& process, const LogChannel* log) {
    if (process.GetSignatureStandard() == ValidationProcess::vptNotSet) {
        Fail(log, L"Execute: Bad parameter - Signature Standard not set", ErrInvalidParameter,
             L"Signature Standard not set");
    }
    if (process.GetSignatureExistenceTime() == 0) {
        process.SetSignatureExistenceTime(CryptUtils::GetCurrentTimeUTC());
    }
}

// ------------------------------------------------------------------- basic

CadesBasicSignatureValidationProcess::CadesBasicSignatureValidationProcess()
    : m_log(std::make_unique<LogChannel>(kBasicChannel)) {}

CadesBasicSignatureValidationProcess::CadesBasicSignatureValidationProcess(
    const CadesBasicSignatureValidationProcess& other)
    : ValidationProcess(other),
      CadesSignerInputs(other),
      m_report(other.m_report ? other.m_report->Clone() : nullptr),
      m_log(std::make_unique<LogChannel>(kBasicChannel)) {}

CadesBasicSignatureValidationProcess& CadesBasicSignatureValidationProcess::operator=(
    const CadesBasicSignatureValidationProcess& other) {
    if (this != &other) {
        ValidationProcess::operator=(other);
        CadesSignerInputs::operator=(other);
        m_report.reset(other.m_report ? other.m_report->Clone() : nullptr);
    }
    return *this;
}

CadesBasicSignatureValidationProcess::~CadesBasicSignatureValidationProcess() = default;

BasicSignatureValidationProcessReport* CadesBasicSignatureValidationProcess::GetValidationReport() {
    return m_report.get();
}

const BasicSignatureValidationProcessReport*
CadesBasicSignatureValidationProcess::GetValidationReport() const {
    return m_report.get();
}

void CadesBasicSignatureValidationProcess::Release() {
    m_report.reset();
}

void CadesBasicSignatureValidationProcess::SetSignatureStandard(cptSignatureStandard standard) {
    if (standard != vptTS103173 && standard != vptEN319122_1 && standard != vptRFC3161) {
        Fail(m_log,
             L"SetSignatureStandard: Bad parameter - Only CAdES standards vptTS103173, "
             L"vptEN319122_1 and RFC3161 can be used.",
             ErrInvalidParameter,
             L"CadesBasicSignatureValidationProcess::SetSignatureStandard - Only CAdES standards "
             L"vptTS103173, vptEN319122_1 and RFC3161 can be used");
    }
    ValidationProcess::SetSignatureStandard(standard);
}

void CadesBasicSignatureValidationProcess::Execute() {
    Release();
    BeginExecute(*this, m_log.get());
    m_report = std::make_unique<BasicSignatureValidationProcessReport>();
    m_report->SetSignatureStandard(m_signatureStandard);
    m_report->SetValidationProcessType(vptBasicSignatureValidation);
    m_report->SetValidationTime(m_signatureExistenceTime);

    X509Certificate certificate = m_signingCertificate;
    if (!ExecuteFormatChecking()) {
        return;
    }
    const int identified = ExecuteSigningCertificateIdentification(certificate);
    // From here on the certificate is the one identified, or none.
    m_signingCertificate = identified ? certificate : X509Certificate();
    if (!identified) {
        return;
    }
    if (!ExecuteValidationContextInitialization() ||
        !ExecuteX509CertificateValidation(certificate) ||
        !ExecuteCryptographicVerification(certificate) || !ExecuteSignatureAcceptanceValidation()) {
        return;
    }
    m_report->SetTotalStatusIndication(ValidationReport::repTotalPassed);
    m_report->SetSubStatusIndication(ValidationBlockReport::repNoSubStatusIndication);
}

int CadesBasicSignatureValidationProcess::ExecuteFormatChecking() {
    CadesFormatCheckingBlock block;
    block.SetSignedCades(m_signature != nullptr
                             ? dynamic_cast<const SignedCades*>(m_signature->GetParent())
                             : nullptr);
    block.Process();
    const FormatCheckingReport& report = block.GetFormatCheckingReport();
    m_report->SetFormatCheckingReport(report.Clone());
    if (report.GetStatusIndication() == ValidationBlockReport::repFailed) {
        m_report->SetTotalStatusIndication(ValidationReport::repTotalFailed);
        m_report->SetSubStatusIndication(ValidationBlockReport::repFormatFailure);
        return 0;
    }
    return 1;
}

int CadesBasicSignatureValidationProcess::ExecuteSigningCertificateIdentification(
    X509Certificate& certificate) {
    CadesSigningCertificateIdentificationBlock block;
    block.SetSignature(m_signature);
    if (certificate.GetX509() != nullptr) {
        block.SetSigningCertificate(certificate);
    }
    block.Process();
    const SigningCertificateIdentificationReport& report =
        block.GetSigningCertificateIdentificationReport();
    m_report->SetSigningCertificateIdentificationReport(report.Clone());
    if (report.GetStatusIndication() == ValidationBlockReport::repIndeterminate &&
        report.GetSubStatusIndication() == ValidationBlockReport::repNoSigningCertificateFound) {
        m_report->SetTotalStatusIndication(ValidationReport::repIndeterminate);
        m_report->SetSubStatusIndication(ValidationBlockReport::repNoSigningCertificateFound);
        return 0;
    }
    certificate = block.GetSigningCertificate();
    return 1;
}

int CadesBasicSignatureValidationProcess::ExecuteValidationContextInitialization() {
    CadesValidationContextInitializationBlock block;
    block.SetSignature(m_signature);
    block.SetValidationPolicyOID(m_validationPolicyOid);
    block.Process();
    const ValidationContextInitializationReport& report =
        block.GetValidationContextInitializationReport();
    m_report->SetValidationContextInitializationReport(report.Clone());
    const ValidationBlockReport::cptReportSubStatus sub = report.GetSubStatusIndication();
    if (report.GetStatusIndication() == ValidationBlockReport::repIndeterminate &&
        (sub == ValidationBlockReport::repPolicyProcessingError ||
         sub == ValidationBlockReport::repSignaturePolicyNotAvailable)) {
        m_report->SetTotalStatusIndication(ValidationReport::repIndeterminate);
        m_report->SetSubStatusIndication(sub);
        return 0;
    }
    return 1;
}

int CadesBasicSignatureValidationProcess::ExecuteX509CertificateValidation(
    const X509Certificate& certificate) {
    X509CertificateValidationBlock block;
    block.SetValidationTime(m_report->GetValidationTime());
    block.SetCertificate(certificate);
    if (m_chainPolicy != nullptr) {
        block.SetChainPolicy(m_chainPolicy);
    }
    block.Process();
    const X509CertificateValidationReport& report = block.GetX509CertificateValidationReport();
    m_report->SetX509CertificateValidationReport(report.Clone());
    const ValidationBlockReport::cptReportSubStatus sub = report.GetSubStatusIndication();
    if (report.GetStatusIndication() == ValidationBlockReport::repFailed) {
        m_report->SetTotalStatusIndication(ValidationReport::repTotalFailed);
        m_report->SetSubStatusIndication(sub);
        return 0;
    }
    // The cryptographic verification still runs: a broken signature
    // outweighs any certificate finding.
    if (report.GetStatusIndication() == ValidationBlockReport::repIndeterminate &&
        (sub == ValidationBlockReport::repRevokedNoPOE ||
         sub == ValidationBlockReport::repOutOfBoundsNoPOE)) {
        m_report->SetTotalStatusIndication(ValidationReport::repIndeterminate);
        m_report->SetSubStatusIndication(sub);
    }
    return 1;
}

int CadesBasicSignatureValidationProcess::ExecuteCryptographicVerification(
    const X509Certificate& certificate) {
    CadesCryptographicVerificationBlock block;
    block.SetSignature(m_signature);
    block.SetSignerDocumentDigest(m_signerDocumentDigest);
    block.SetSigningCertificate(certificate);
    block.Process();
    const CryptographicVerificationReport& report = block.GetCryptographicVerificationReport();
    m_report->SetCryptographicVerificationReport(report.Clone());
    if (report.GetStatusIndication() != ValidationBlockReport::repPassed) {
        m_report->SetTotalStatusIndication(Total(report.GetStatusIndication()));
        m_report->SetSubStatusIndication(report.GetSubStatusIndication());
        return 0;
    }
    const X509CertificateValidationReport* x509 = m_report->GetX509CertificateValidationReport();
    if (x509->GetStatusIndication() != ValidationBlockReport::repPassed) {
        m_report->SetTotalStatusIndication(Total(x509->GetStatusIndication()));
        m_report->SetSubStatusIndication(x509->GetSubStatusIndication());
        return 0;
    }
    return 1;
}

int CadesBasicSignatureValidationProcess::ExecuteSignatureAcceptanceValidation() {
    CadesSignatureAcceptanceValidationBlock block;
    block.SetSignature(m_signature);
    block.SetChain(m_report->GetX509CertificateValidationReport()->GetCertificateChain());
    // A time-stamp token's signer carries no signing time of its own.
    if (m_chainPolicy != nullptr &&
        m_chainPolicy->GetPurpose() == X509ChainPolicy::kPurposeTimestampSign) {
        block.SetRequireAttrSigningTime(0);
    }
    block.Process();
    const SignatureAcceptanceValidationReport& report =
        block.GetSignatureAcceptanceValidationReport();
    m_report->SetSignatureAcceptanceValidationReport(report.Clone());
    if (report.GetStatusIndication() != ValidationBlockReport::repPassed) {
        m_report->SetTotalStatusIndication(Total(report.GetStatusIndication()));
        m_report->SetSubStatusIndication(report.GetSubStatusIndication());
        return 0;
    }
    return 1;
}

}  // namespace TesseraLib
