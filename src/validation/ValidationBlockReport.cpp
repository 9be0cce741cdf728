// Block reports: values, deep copies of what they own, and their text form.
#include "ValidationBlockReport.h"

#include <ostream>
#include <utility>

#include "LogChannel.h"
#include "QorTextConv.h"
#include "ReportSupport.h"
#include "TspTimeStamp.h"
#include "ValidationReport.h"
#include "X509Certificate.h"
#include "X509Chain.h"

namespace qorstd {
template class QorVector<TesseraLib::CryptoMaterialIdentification>;
template class QorVectorIterator<TesseraLib::CryptoMaterialIdentification>;
}  // namespace qorstd

namespace TesseraLib {

using reports::Adopt;
using reports::CloneOf;
using reports::WriteNarrow;

namespace {

constexpr const wchar_t* kBlockChannel = L"ValidationBlockReport";
constexpr const wchar_t* kFormatChannel = L"FormatCheckingReport";
constexpr const wchar_t* kIdentificationChannel = L"SigningCertificateIdentificationReport";
// The channel's established name carries "Report" twice; log filters rely on it.
constexpr const wchar_t* kContextChannel = L"ValidationContextInitializationReportReport";
constexpr const wchar_t* kFreshnessChannel = L"RevocationFreshnessCheckerReport";
constexpr const wchar_t* kX509Channel = L"X509CertificateValidationReport";
constexpr const wchar_t* kCryptoChannel = L"CryptographicVerificationReport";
constexpr const wchar_t* kAcceptanceChannel = L"SignatureAcceptanceValidationReport";
constexpr const wchar_t* kTimeStampChannel = L"TimeStampValidationReport";

}  // namespace

// ---------------------------------------------------------------------------
// CryptoMaterialIdentification

CryptoMaterialIdentification::CryptoMaterialIdentification(const qorstd::QorString& id,
                                                           cptMaterialType type)
    : m_id(id), m_type(type), m_keyLength(0), m_secureNotAfter(0) {}

CryptoMaterialIdentification::CryptoMaterialIdentification(
    const CryptoMaterialIdentification& other) = default;

CryptoMaterialIdentification& CryptoMaterialIdentification::operator=(
    const CryptoMaterialIdentification& other) = default;

CryptoMaterialIdentification::~CryptoMaterialIdentification() = default;

// ---------------------------------------------------------------------------
// ValidationBlockReport

const wchar_t* const ValidationBlockReport::cptReportStatusStrings[3] = {
    L"repIndeterminate", L"repPassed", L"repFailed"};

const wchar_t* const ValidationBlockReport::cptReportSubStatusStrings[24] = {
    L"repNoSubStatusIndication",
    L"repFormatFailure",
    L"repHashFailure",
    L"repSigCryptoFailure",
    L"repRevoked",
    L"repSigConstraintsFailure",
    L"repChainConstraintsFailure",
    L"repCertificateChainGeneralFailure",
    L"repCryptoConstraintsFailure",
    L"repExpired",
    L"repNotYetValid",
    L"repPolicyProcessingError",
    L"repSignaturePolicyNotAvailable",
    L"repTimestampOrderFailure",
    L"repNoSigningCertificateFound",
    L"repNoCertificateChainFound",
    L"repRevokedNoPOE",
    L"repRevokedCANoPOE",
    L"repOutOfBoundsNoPOE",
    L"repCryptoConstraintsFailureNoPOE",
    L"repNoPOE",
    L"repTryLater",
    L"repSignedDataNotFound",
    L"repGeneric"};

ValidationBlockReport::ValidationBlockReport() : ValidationBlockReport(kBlockChannel) {}

ValidationBlockReport::ValidationBlockReport(const wchar_t* channelName)
    : m_status(repIndeterminate),
      m_subStatus(repNoSubStatusIndication),
      m_log(std::make_unique<LogChannel>(channelName)) {}

ValidationBlockReport::ValidationBlockReport(const ValidationBlockReport& other)
    : ValidationBlockReport(other, kBlockChannel) {}

ValidationBlockReport::ValidationBlockReport(const ValidationBlockReport& other,
                                             const wchar_t* channelName)
    : m_status(other.m_status),
      m_subStatus(other.m_subStatus),
      m_issue(other.m_issue),
      m_log(std::make_unique<LogChannel>(channelName)) {}

// The channel stays the object's own.
ValidationBlockReport& ValidationBlockReport::operator=(const ValidationBlockReport& other) {
    m_status = other.m_status;
    m_subStatus = other.m_subStatus;
    m_issue = other.m_issue;
    return *this;
}

ValidationBlockReport::~ValidationBlockReport() = default;

ValidationBlockReport* ValidationBlockReport::Clone() const {
    return new ValidationBlockReport(*this);
}

std::basic_ostream<wchar_t>& ValidationBlockReport::Print(std::basic_ostream<wchar_t>& os) const {
    const cptReportStatus status = GetStatusIndication();
    os << L"  Indication: " << cptReportStatusStrings[status] << std::endl;
    if (status != repPassed) {
        os << L"  SubIndication: " << cptReportSubStatusStrings[GetSubStatusIndication()]
           << std::endl;
        if (!m_issue.empty()) {
            os << L"  Issue: " << m_issue.c_str() << std::endl;
        }
    }
    return os;
}

void ValidationBlockReport::SetGenericIssue(const qorstd::QorStringW& text) {
    m_status = repIndeterminate;
    m_subStatus = repGeneric;
    m_issue = text;
}

int ValidationBlockReport::IsGeneric(const ValidationBlockReport& report) {
    return report.m_status == repIndeterminate && report.m_subStatus == repGeneric ? 1 : 0;
}

// ---------------------------------------------------------------------------
// FormatCheckingReport

FormatCheckingReport::FormatCheckingReport() : ValidationBlockReport(kFormatChannel) {}

FormatCheckingReport::FormatCheckingReport(const FormatCheckingReport& other)
    : ValidationBlockReport(other, kFormatChannel), m_failureReason(other.m_failureReason) {}

FormatCheckingReport& FormatCheckingReport::operator=(const FormatCheckingReport& other) {
    ValidationBlockReport::operator=(other);
    m_failureReason = other.m_failureReason;
    return *this;
}

FormatCheckingReport::~FormatCheckingReport() = default;

FormatCheckingReport* FormatCheckingReport::Clone() const {
    return new FormatCheckingReport(*this);
}

std::basic_ostream<wchar_t>& FormatCheckingReport::Print(std::basic_ostream<wchar_t>& os) const {
    os << L"> Format checking" << std::endl;
    if (GetStatusIndication() == repFailed) {
        os << L"  FailureReason: ";
        WriteNarrow(os, m_failureReason.c_str());
        os << std::endl;
    }
    return ValidationBlockReport::Print(os);
}

// ---------------------------------------------------------------------------
// SigningCertificateIdentificationReport

SigningCertificateIdentificationReport::SigningCertificateIdentificationReport()
    : ValidationBlockReport(kIdentificationChannel) {}

SigningCertificateIdentificationReport::SigningCertificateIdentificationReport(
    const SigningCertificateIdentificationReport& other)
    : ValidationBlockReport(other, kIdentificationChannel), m_warnings(other.m_warnings) {}

SigningCertificateIdentificationReport& SigningCertificateIdentificationReport::operator=(
    const SigningCertificateIdentificationReport& other) {
    ValidationBlockReport::operator=(other);
    m_warnings = other.m_warnings;
    return *this;
}

SigningCertificateIdentificationReport::~SigningCertificateIdentificationReport() = default;

SigningCertificateIdentificationReport* SigningCertificateIdentificationReport::Clone() const {
    return new SigningCertificateIdentificationReport(*this);
}

std::basic_ostream<wchar_t>& SigningCertificateIdentificationReport::Print(
    std::basic_ostream<wchar_t>& os) const {
    os << L"> Identification of the signing certificate" << std::endl;
    return ValidationBlockReport::Print(os);
}

// ---------------------------------------------------------------------------
// ValidationContextInitializationReport

ValidationContextInitializationReport::ValidationContextInitializationReport()
    : ValidationBlockReport(kContextChannel) {}

ValidationContextInitializationReport::ValidationContextInitializationReport(
    const ValidationContextInitializationReport& other)
    : ValidationBlockReport(other, kContextChannel),
      m_validationPolicyOid(other.m_validationPolicyOid),
      m_additionalInfo(other.m_additionalInfo) {}

ValidationContextInitializationReport& ValidationContextInitializationReport::operator=(
    const ValidationContextInitializationReport& other) {
    ValidationBlockReport::operator=(other);
    m_validationPolicyOid = other.m_validationPolicyOid;
    m_additionalInfo = other.m_additionalInfo;
    return *this;
}

ValidationContextInitializationReport::~ValidationContextInitializationReport() = default;

ValidationContextInitializationReport* ValidationContextInitializationReport::Clone() const {
    return new ValidationContextInitializationReport(*this);
}

std::basic_ostream<wchar_t>& ValidationContextInitializationReport::Print(
    std::basic_ostream<wchar_t>& os) const {
    os << L"> Validation context initialization" << std::endl;
    os << L"  ValidationPolicyOID: ";
    WriteNarrow(os, m_validationPolicyOid.c_str());
    os << std::endl;
    return ValidationBlockReport::Print(os);
}

// ---------------------------------------------------------------------------
// RevocationFreshnessCheckerReport

RevocationFreshnessCheckerReport::RevocationFreshnessCheckerReport()
    : ValidationBlockReport(kFreshnessChannel) {}

RevocationFreshnessCheckerReport::RevocationFreshnessCheckerReport(
    const RevocationFreshnessCheckerReport& other)
    : ValidationBlockReport(other, kFreshnessChannel) {}

RevocationFreshnessCheckerReport& RevocationFreshnessCheckerReport::operator=(
    const RevocationFreshnessCheckerReport& other) {
    ValidationBlockReport::operator=(other);
    return *this;
}

RevocationFreshnessCheckerReport::~RevocationFreshnessCheckerReport() = default;

RevocationFreshnessCheckerReport* RevocationFreshnessCheckerReport::Clone() const {
    return new RevocationFreshnessCheckerReport(*this);
}

std::basic_ostream<wchar_t>& RevocationFreshnessCheckerReport::Print(
    std::basic_ostream<wchar_t>& os) const {
    os << L"> Revocation freshness checker" << std::endl;
    return ValidationBlockReport::Print(os);
}

// ---------------------------------------------------------------------------
// X509CertificateValidationReport

X509CertificateValidationReport::X509CertificateValidationReport()
    : ValidationBlockReport(kX509Channel),
      m_revocationReason(QorOcsp2Lib::OcspSingleResponse::ocspReasonNone),
      m_revocationTime(0),
      m_nextUpdate(0) {}

X509CertificateValidationReport::X509CertificateValidationReport(
    const X509CertificateValidationReport& other)
    : ValidationBlockReport(other, kX509Channel),
      m_certificateChain(CloneOf(other.m_certificateChain)),
      m_revocationReason(other.m_revocationReason),
      m_revocationTime(other.m_revocationTime),
      m_nextUpdate(other.m_nextUpdate),
      m_revocationFreshnessCheckerReport(CloneOf(other.m_revocationFreshnessCheckerReport)) {}

X509CertificateValidationReport& X509CertificateValidationReport::operator=(
    const X509CertificateValidationReport& other) {
    if (this != &other) {
        // Copy first: a failed copy leaves this report as it was.
        std::unique_ptr<X509Chain> chain = CloneOf(other.m_certificateChain);
        std::unique_ptr<RevocationFreshnessCheckerReport> freshness =
            CloneOf(other.m_revocationFreshnessCheckerReport);
        ValidationBlockReport::operator=(other);
        m_certificateChain = std::move(chain);
        m_revocationReason = other.m_revocationReason;
        m_revocationTime = other.m_revocationTime;
        m_nextUpdate = other.m_nextUpdate;
        m_revocationFreshnessCheckerReport = std::move(freshness);
    }
    return *this;
}

X509CertificateValidationReport::~X509CertificateValidationReport() = default;

X509CertificateValidationReport* X509CertificateValidationReport::Clone() const {
    return new X509CertificateValidationReport(*this);
}

std::basic_ostream<wchar_t>& X509CertificateValidationReport::Print(
    std::basic_ostream<wchar_t>& os) const {
    os << L"> X.509 certificate validation" << std::endl;
    return ValidationBlockReport::Print(os);
}

void X509CertificateValidationReport::SetCertificateChain(X509Chain* chain) {
    Adopt(m_certificateChain, chain);
}

void X509CertificateValidationReport::SetRevocationFreshnessCheckerReport(
    RevocationFreshnessCheckerReport* report) {
    Adopt(m_revocationFreshnessCheckerReport, report);
}

// ---------------------------------------------------------------------------
// CryptographicVerificationReport

CryptographicVerificationReport::CryptographicVerificationReport()
    : ValidationBlockReport(kCryptoChannel) {}

CryptographicVerificationReport::CryptographicVerificationReport(
    const CryptographicVerificationReport& other)
    : ValidationBlockReport(other, kCryptoChannel),
      m_signingCertificate(other.m_signingCertificate
                               ? std::make_unique<X509Certificate>(*other.m_signingCertificate)
                               : nullptr),
      m_invalidObjectUris(other.m_invalidObjectUris) {}

CryptographicVerificationReport& CryptographicVerificationReport::operator=(
    const CryptographicVerificationReport& other) {
    if (this != &other) {
        std::unique_ptr<X509Certificate> certificate =
            other.m_signingCertificate
                ? std::make_unique<X509Certificate>(*other.m_signingCertificate)
                : nullptr;
        ValidationBlockReport::operator=(other);
        m_signingCertificate = std::move(certificate);
        m_invalidObjectUris = other.m_invalidObjectUris;
    }
    return *this;
}

CryptographicVerificationReport::~CryptographicVerificationReport() = default;

CryptographicVerificationReport* CryptographicVerificationReport::Clone() const {
    return new CryptographicVerificationReport(*this);
}

std::basic_ostream<wchar_t>& CryptographicVerificationReport::Print(
    std::basic_ostream<wchar_t>& os) const {
    os << L"> Cryptographic verification" << std::endl;
    return ValidationBlockReport::Print(os);
}

void CryptographicVerificationReport::SetSigningCertificate(X509Certificate* certificate) {
    Adopt(m_signingCertificate, certificate);
}

// ---------------------------------------------------------------------------
// SignatureAcceptanceValidationReport

SignatureAcceptanceValidationReport::SignatureAcceptanceValidationReport()
    : ValidationBlockReport(kAcceptanceChannel) {}

SignatureAcceptanceValidationReport::SignatureAcceptanceValidationReport(
    const SignatureAcceptanceValidationReport& other)
    : ValidationBlockReport(other, kAcceptanceChannel),
      m_failedConstraints(other.m_failedConstraints),
      m_failedCryptoMaterialIds(other.m_failedCryptoMaterialIds) {}

SignatureAcceptanceValidationReport& SignatureAcceptanceValidationReport::operator=(
    const SignatureAcceptanceValidationReport& other) {
    ValidationBlockReport::operator=(other);
    m_failedConstraints = other.m_failedConstraints;
    m_failedCryptoMaterialIds = other.m_failedCryptoMaterialIds;
    return *this;
}

SignatureAcceptanceValidationReport::~SignatureAcceptanceValidationReport() = default;

SignatureAcceptanceValidationReport* SignatureAcceptanceValidationReport::Clone() const {
    return new SignatureAcceptanceValidationReport(*this);
}

std::basic_ostream<wchar_t>& SignatureAcceptanceValidationReport::Print(
    std::basic_ostream<wchar_t>& os) const {
    os << L"> Signature acceptance validation" << std::endl;
    return ValidationBlockReport::Print(os);
}

// ---------------------------------------------------------------------------
// TimeStampValidationReport

TimeStampValidationReport::TimeStampValidationReport()
    : ValidationBlockReport(kTimeStampChannel), m_timeStamp(nullptr) {}

TimeStampValidationReport::TimeStampValidationReport(const TimeStampValidationReport& other)
    : ValidationBlockReport(other, kTimeStampChannel),
      m_basicReport(CloneOf(other.m_basicReport)),
      m_timeStamp(other.m_timeStamp) {}

TimeStampValidationReport& TimeStampValidationReport::operator=(
    const TimeStampValidationReport& other) {
    if (this != &other) {
        std::unique_ptr<BasicSignatureValidationProcessReport> basic = CloneOf(other.m_basicReport);
        ValidationBlockReport::operator=(other);
        m_basicReport = std::move(basic);
        m_timeStamp = other.m_timeStamp;
    }
    return *this;
}

TimeStampValidationReport::~TimeStampValidationReport() = default;

TimeStampValidationReport* TimeStampValidationReport::Clone() const {
    return new TimeStampValidationReport(*this);
}

std::basic_ostream<wchar_t>& TimeStampValidationReport::Print(
    std::basic_ostream<wchar_t>& os) const {
    os << L"> TimeStamp validation" << std::endl;
    if (m_basicReport) {
        IndentStream nested;
        m_basicReport->Print(nested);
        nested.MoveTo(os);
    }
    if (GetStatusIndication() == repPassed && m_timeStamp != nullptr) {
        const qorstd::QorStringW time = qorstd::text::NarrowToWide(
            m_timeStamp->GetGeneralizedTime().c_str(), 0, qorstd::text::kCharsetProcess);
        os << L"  TimeStamp time: " << time.c_str() << std::endl;
    }
    return ValidationBlockReport::Print(os);
}

void TimeStampValidationReport::SetBasicSignatureValidationProcessReport(
    BasicSignatureValidationProcessReport* report) {
    Adopt(m_basicReport, report);
}

}  // namespace TesseraLib
