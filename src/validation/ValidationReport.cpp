// Process reports: values owning their block reports, deep copies, and the
// indented text form built with IndentStream.
#include "ValidationReport.h"

#include <ctime>
#include <utility>

#include "LogChannel.h"
#include "ReportSupport.h"

namespace qorstd {
template class QorVector<TesseraLib::TimeStampValidationReport*>;
template class QorVectorIterator<TesseraLib::TimeStampValidationReport*>;
}  // namespace qorstd

namespace TesseraLib {

using reports::Adopt;
using reports::CloneOf;
using reports::WriteNarrow;

namespace {

constexpr const wchar_t* kReportChannel = L"ValidationReport";
constexpr const wchar_t* kBasicChannel = L"BasicSignatureValidationProcessReport";
constexpr const wchar_t* kWithTimeChannel = L"SignatureWithTimeValidationProcessReport";

// asctime's text of the local time, which ends with its own newline. A
// time the C library cannot break down still ends the line.
void WriteLocalTime(std::basic_ostream<wchar_t>& os, std::int64_t time) {
    const std::time_t seconds = static_cast<std::time_t>(time);
    std::tm parts{};
    char text[64];
    if (localtime_r(&seconds, &parts) != nullptr && asctime_r(&parts, text) != nullptr) {
        WriteNarrow(os, text);
    } else {
        os << std::endl;
    }
}

}  // namespace

// ---------------------------------------------------------------------------
// ValidationReport

const wchar_t* const ValidationReport::cptReportTotalStatusStrings[3] = {
    L"repIndeterminate", L"repTotalPassed", L"repTotalFailed"};

ValidationReport::ValidationReport() : ValidationReport(kReportChannel) {}

ValidationReport::ValidationReport(const wchar_t* channelName)
    : m_totalStatus(repIndeterminate),
      m_subStatus(ValidationBlockReport::repNoSubStatusIndication),
      m_validationTime(0),
      m_processType(ValidationProcess::vptBasicSignatureValidation),
      m_signatureStandard(ValidationProcess::vptNotSet),
      m_log(std::make_unique<LogChannel>(channelName)) {}

ValidationReport::ValidationReport(const ValidationReport& other)
    : ValidationReport(other, kReportChannel) {}

ValidationReport::ValidationReport(const ValidationReport& other, const wchar_t* channelName)
    : m_totalStatus(other.m_totalStatus),
      m_subStatus(other.m_subStatus),
      m_validationTime(other.m_validationTime),
      m_processType(other.m_processType),
      m_signatureStandard(other.m_signatureStandard),
      m_log(std::make_unique<LogChannel>(channelName)) {}

// The channel stays the object's own.
ValidationReport& ValidationReport::operator=(const ValidationReport& other) {
    m_totalStatus = other.m_totalStatus;
    m_subStatus = other.m_subStatus;
    m_validationTime = other.m_validationTime;
    m_processType = other.m_processType;
    m_signatureStandard = other.m_signatureStandard;
    return *this;
}

ValidationReport::~ValidationReport() = default;

ValidationReport* ValidationReport::Clone() const {
    return new ValidationReport(*this);
}

std::basic_ostream<wchar_t>& ValidationReport::Print(std::basic_ostream<wchar_t>& os) const {
    os << L"  Signature standard: "
       << ValidationProcess::cptSignatureStandardStrings[m_signatureStandard] << std::endl;
    os << L"  ValidationTime: ";
    WriteLocalTime(os, m_validationTime);
    os << L"  Indication: " << cptReportTotalStatusStrings[m_totalStatus] << std::endl;
    os << L"  SubIndication: " << ValidationBlockReport::cptReportSubStatusStrings[m_subStatus]
       << std::endl;
    return os;
}

// ---------------------------------------------------------------------------
// BasicSignatureValidationProcessReport

BasicSignatureValidationProcessReport::BasicSignatureValidationProcessReport()
    : ValidationReport(kBasicChannel) {}

BasicSignatureValidationProcessReport::BasicSignatureValidationProcessReport(
    const BasicSignatureValidationProcessReport& other)
    : ValidationReport(other, kBasicChannel),
      m_formatChecking(CloneOf(other.m_formatChecking)),
      m_signingCertificateIdentification(CloneOf(other.m_signingCertificateIdentification)),
      m_validationContextInitialization(CloneOf(other.m_validationContextInitialization)),
      m_x509CertificateValidation(CloneOf(other.m_x509CertificateValidation)),
      m_cryptographicVerification(CloneOf(other.m_cryptographicVerification)),
      m_signatureAcceptanceValidation(CloneOf(other.m_signatureAcceptanceValidation)) {}

BasicSignatureValidationProcessReport& BasicSignatureValidationProcessReport::operator=(
    const BasicSignatureValidationProcessReport& other) {
    if (this != &other) {
        // Copy into a temporary first: a failed copy leaves this report as it was.
        BasicSignatureValidationProcessReport copy(other);
        ValidationReport::operator=(other);
        m_formatChecking = std::move(copy.m_formatChecking);
        m_signingCertificateIdentification = std::move(copy.m_signingCertificateIdentification);
        m_validationContextInitialization = std::move(copy.m_validationContextInitialization);
        m_x509CertificateValidation = std::move(copy.m_x509CertificateValidation);
        m_cryptographicVerification = std::move(copy.m_cryptographicVerification);
        m_signatureAcceptanceValidation = std::move(copy.m_signatureAcceptanceValidation);
    }
    return *this;
}

BasicSignatureValidationProcessReport::~BasicSignatureValidationProcessReport() = default;

BasicSignatureValidationProcessReport* BasicSignatureValidationProcessReport::Clone() const {
    return new BasicSignatureValidationProcessReport(*this);
}

std::basic_ostream<wchar_t>& BasicSignatureValidationProcessReport::Print(
    std::basic_ostream<wchar_t>& os) const {
    os << L"> Basic Signature Validation Process" << std::endl;
    IndentStream blocks;
    const ValidationBlockReport* const ordered[] = {m_formatChecking.get(),
                                                    m_signingCertificateIdentification.get(),
                                                    m_validationContextInitialization.get(),
                                                    m_x509CertificateValidation.get(),
                                                    m_cryptographicVerification.get(),
                                                    m_signatureAcceptanceValidation.get()};
    for (const ValidationBlockReport* block : ordered) {
        if (block != nullptr) {
            block->Print(blocks);
        }
    }
    blocks.MoveTo(os);
    return ValidationReport::Print(os);
}

void BasicSignatureValidationProcessReport::SetFormatCheckingReport(FormatCheckingReport* report) {
    Adopt(m_formatChecking, report);
}

void BasicSignatureValidationProcessReport::SetSigningCertificateIdentificationReport(
    SigningCertificateIdentificationReport* report) {
    Adopt(m_signingCertificateIdentification, report);
}

void BasicSignatureValidationProcessReport::SetValidationContextInitializationReport(
    ValidationContextInitializationReport* report) {
    Adopt(m_validationContextInitialization, report);
}

void BasicSignatureValidationProcessReport::SetX509CertificateValidationReport(
    X509CertificateValidationReport* report) {
    Adopt(m_x509CertificateValidation, report);
}

void BasicSignatureValidationProcessReport::SetCryptographicVerificationReport(
    CryptographicVerificationReport* report) {
    Adopt(m_cryptographicVerification, report);
}

void BasicSignatureValidationProcessReport::SetSignatureAcceptanceValidationReport(
    SignatureAcceptanceValidationReport* report) {
    Adopt(m_signatureAcceptanceValidation, report);
}

// ---------------------------------------------------------------------------
// SignatureWithTimeValidationProcessReport

SignatureWithTimeValidationProcessReport::SignatureWithTimeValidationProcessReport()
    : ValidationReport(kWithTimeChannel), m_bestSignatureTime(0) {}

SignatureWithTimeValidationProcessReport::SignatureWithTimeValidationProcessReport(
    const SignatureWithTimeValidationProcessReport& other)
    : ValidationReport(other, kWithTimeChannel),
      m_basicReport(CloneOf(other.m_basicReport)),
      m_revocationFreshnessCheckerReport(CloneOf(other.m_revocationFreshnessCheckerReport)),
      m_signatureAcceptanceValidationReport(CloneOf(other.m_signatureAcceptanceValidationReport)),
      m_bestSignatureTime(other.m_bestSignatureTime) {
    try {
        const qorstd::QorVector<TimeStampValidationReport*>& source =
            other.m_signatureTimeStampReports;
        for (unsigned int i = 0; i < source.GetSize(); ++i) {
            std::unique_ptr<TimeStampValidationReport> clone(
                source[i] != nullptr ? source[i]->Clone() : nullptr);
            m_signatureTimeStampReports.Add(clone.get());
            clone.release();
        }
    } catch (...) {
        // The destructor does not run for a constructor that throws.
        DeleteTimeStampReports();
        throw;
    }
}

SignatureWithTimeValidationProcessReport& SignatureWithTimeValidationProcessReport::operator=(
    const SignatureWithTimeValidationProcessReport& other) {
    if (this != &other) {
        // Copies and room first: nothing that can fail comes after a change.
        SignatureWithTimeValidationProcessReport copy(other);
        qorstd::QorVector<TimeStampValidationReport*>& copies = copy.m_signatureTimeStampReports;
        m_signatureTimeStampReports.Reserve(copies.GetSize());
        ValidationReport::operator=(other);
        m_basicReport = std::move(copy.m_basicReport);
        m_revocationFreshnessCheckerReport = std::move(copy.m_revocationFreshnessCheckerReport);
        m_signatureAcceptanceValidationReport =
            std::move(copy.m_signatureAcceptanceValidationReport);
        m_bestSignatureTime = other.m_bestSignatureTime;
        DeleteTimeStampReports();
        for (unsigned int i = 0; i < copies.GetSize(); ++i) {
            m_signatureTimeStampReports.Add(copies[i]);
        }
        copies.RemoveAll();
    }
    return *this;
}

SignatureWithTimeValidationProcessReport::~SignatureWithTimeValidationProcessReport() {
    DeleteTimeStampReports();
}

void SignatureWithTimeValidationProcessReport::DeleteTimeStampReports() {
    for (unsigned int i = 0; i < m_signatureTimeStampReports.GetSize(); ++i) {
        delete m_signatureTimeStampReports[i];
    }
    m_signatureTimeStampReports.RemoveAll();
}

SignatureWithTimeValidationProcessReport* SignatureWithTimeValidationProcessReport::Clone() const {
    return new SignatureWithTimeValidationProcessReport(*this);
}

std::basic_ostream<wchar_t>& SignatureWithTimeValidationProcessReport::Print(
    std::basic_ostream<wchar_t>& os) const {
    os << L"> Signature With Time Validation Process" << std::endl;
    IndentStream reports;
    if (m_basicReport) {
        m_basicReport->Print(reports);
    }
    IndentStream timeStamps;
    for (unsigned int i = 0; i < m_signatureTimeStampReports.GetSize(); ++i) {
        if (m_signatureTimeStampReports[i] != nullptr) {
            m_signatureTimeStampReports[i]->Print(timeStamps);
        }
    }
    if (m_signatureTimeStampReports.GetSize() == 0) {
        timeStamps << L"  No Time Stamp Report" << std::endl;
    }
    reports << L"> Time Stamp Validation Reports" << std::endl;
    timeStamps.MoveTo(reports);
    if (m_revocationFreshnessCheckerReport) {
        m_revocationFreshnessCheckerReport->Print(reports);
    }
    if (m_signatureAcceptanceValidationReport) {
        m_signatureAcceptanceValidationReport->Print(reports);
    }
    reports.MoveTo(os);
    os << L"  Best Signature Time: ";
    WriteLocalTime(os, m_bestSignatureTime);
    return ValidationReport::Print(os);
}

void SignatureWithTimeValidationProcessReport::SetBasicSignatureValidationProcessReport(
    BasicSignatureValidationProcessReport* report) {
    Adopt(m_basicReport, report);
}

void SignatureWithTimeValidationProcessReport::SetRevocationFreshnessCheckerReport(
    RevocationFreshnessCheckerReport* report) {
    Adopt(m_revocationFreshnessCheckerReport, report);
}

void SignatureWithTimeValidationProcessReport::SetSignatureAcceptanceValidationReport(
    SignatureAcceptanceValidationReport* report) {
    Adopt(m_signatureAcceptanceValidationReport, report);
}

void SignatureWithTimeValidationProcessReport::AddSignatureTimeStampReport(
    const TimeStampValidationReport* report) {
    if (report == nullptr) {
        return;
    }
    std::unique_ptr<TimeStampValidationReport> clone(report->Clone());
    m_signatureTimeStampReports.Add(clone.get());
    clone.release();
}

// ---------------------------------------------------------------------------
// IndentStream

IndentStream::IndentStream() : std::basic_ostream<wchar_t>(this), m_lineStart(true) {}

IndentStream::~IndentStream() = default;

std::basic_streambuf<wchar_t>::int_type IndentStream::overflow(
    std::basic_streambuf<wchar_t>::int_type c) {
    using Traits = std::char_traits<wchar_t>;
    if (Traits::eq_int_type(c, Traits::eof())) {
        return Traits::not_eof(c);
    }
    if (m_lineStart) {
        m_text << L"  ";
    }
    const wchar_t character = Traits::to_char_type(c);
    m_text.put(character);
    m_lineStart = character == L'\n';
    return c;
}

std::basic_ostream<wchar_t>& IndentStream::MoveTo(std::basic_ostream<wchar_t>& target) {
    target << m_text.str();
    m_text.str(std::wstring());
    m_text.clear();
    return target;
}

}  // namespace TesseraLib
