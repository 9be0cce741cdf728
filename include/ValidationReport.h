// Process reports of signature validation: the overall indication of a
// validation process with the block reports it collected, and the stream
// that indents nested reports when they are printed.
#pragma once

#include <cstdint>
#include <memory>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>

#include "QorVector.h"
#include "TesseraExport.h"
#include "ValidationBlockReport.h"
#include "ValidationProcess.h"

namespace TesseraLib {

class LogChannel;

// What every process report carries. Every object opens a log channel
// named after its own class.
class TESSERA_API ValidationReport {
public:
    enum cptReportTotalStatus { repIndeterminate = 0, repTotalPassed = 1, repTotalFailed = 2 };

    // Names indexed by the enumeration, without a range check.
    static const wchar_t* const cptReportTotalStatusStrings[3];

    ValidationReport();
    ValidationReport(const ValidationReport& other);
    ValidationReport& operator=(const ValidationReport& other);
    virtual ~ValidationReport();

    // A new copy of the same class; the caller owns it.
    virtual ValidationReport* Clone() const;
    // The summary lines: signature standard, validation time (asctime of
    // local time), indication and sub-indication.
    virtual std::basic_ostream<wchar_t>& Print(std::basic_ostream<wchar_t>& os) const;
    // One JSON object (UTF-8): totalIndication, subIndication,
    // signatureStandard, validationTime, processType, then the process's
    // own fields.
    virtual std::string ToJson() const;

    cptReportTotalStatus GetTotalStatusIndication() const { return m_totalStatus; }
    void SetTotalStatusIndication(cptReportTotalStatus status) { m_totalStatus = status; }
    ValidationBlockReport::cptReportSubStatus GetSubStatusIndication() const { return m_subStatus; }
    void SetSubStatusIndication(ValidationBlockReport::cptReportSubStatus subStatus) {
        m_subStatus = subStatus;
    }
    // Seconds since 1970 UTC.
    std::int64_t GetValidationTime() const { return m_validationTime; }
    void SetValidationTime(std::int64_t time) { m_validationTime = time; }
    ValidationProcess::cptValidationProcessType GetValidationProcessType() const {
        return m_processType;
    }
    void SetValidationProcessType(ValidationProcess::cptValidationProcessType type) {
        m_processType = type;
    }
    ValidationProcess::cptSignatureStandard GetSignatureStandard() const {
        return m_signatureStandard;
    }
    void SetSignatureStandard(ValidationProcess::cptSignatureStandard standard) {
        m_signatureStandard = standard;
    }

protected:
    // For derived reports: the channel takes the derived class's name.
    explicit ValidationReport(const wchar_t* channelName);
    ValidationReport(const ValidationReport& other, const wchar_t* channelName);

private:
    cptReportTotalStatus m_totalStatus;
    ValidationBlockReport::cptReportSubStatus m_subStatus;
    std::int64_t m_validationTime;
    ValidationProcess::cptValidationProcessType m_processType;
    ValidationProcess::cptSignatureStandard m_signatureStandard;
    std::unique_ptr<LogChannel> m_log;
};

// The reports of the six blocks of the basic signature validation, each
// owned and null until set.
class TESSERA_API BasicSignatureValidationProcessReport : public ValidationReport {
public:
    BasicSignatureValidationProcessReport();
    BasicSignatureValidationProcessReport(const BasicSignatureValidationProcessReport& other);
    BasicSignatureValidationProcessReport& operator=(
        const BasicSignatureValidationProcessReport& other);
    ~BasicSignatureValidationProcessReport() override;

    BasicSignatureValidationProcessReport* Clone() const override;
    std::basic_ostream<wchar_t>& Print(std::basic_ostream<wchar_t>& os) const override;
    std::string ToJson() const override;

    // Every setter takes ownership; the report held before is deleted unless
    // it is the same.
    FormatCheckingReport* GetFormatCheckingReport() { return m_formatChecking.get(); }
    const FormatCheckingReport* GetFormatCheckingReport() const { return m_formatChecking.get(); }
    void SetFormatCheckingReport(FormatCheckingReport* report);

    SigningCertificateIdentificationReport* GetSigningCertificateIdentificationReport() {
        return m_signingCertificateIdentification.get();
    }
    const SigningCertificateIdentificationReport* GetSigningCertificateIdentificationReport()
        const {
        return m_signingCertificateIdentification.get();
    }
    void SetSigningCertificateIdentificationReport(SigningCertificateIdentificationReport* report);

    ValidationContextInitializationReport* GetValidationContextInitializationReport() {
        return m_validationContextInitialization.get();
    }
    const ValidationContextInitializationReport* GetValidationContextInitializationReport() const {
        return m_validationContextInitialization.get();
    }
    void SetValidationContextInitializationReport(ValidationContextInitializationReport* report);

    X509CertificateValidationReport* GetX509CertificateValidationReport() {
        return m_x509CertificateValidation.get();
    }
    const X509CertificateValidationReport* GetX509CertificateValidationReport() const {
        return m_x509CertificateValidation.get();
    }
    void SetX509CertificateValidationReport(X509CertificateValidationReport* report);

    CryptographicVerificationReport* GetCryptographicVerificationReport() {
        return m_cryptographicVerification.get();
    }
    const CryptographicVerificationReport* GetCryptographicVerificationReport() const {
        return m_cryptographicVerification.get();
    }
    void SetCryptographicVerificationReport(CryptographicVerificationReport* report);

    SignatureAcceptanceValidationReport* GetSignatureAcceptanceValidationReport() {
        return m_signatureAcceptanceValidation.get();
    }
    const SignatureAcceptanceValidationReport* GetSignatureAcceptanceValidationReport() const {
        return m_signatureAcceptanceValidation.get();
    }
    void SetSignatureAcceptanceValidationReport(SignatureAcceptanceValidationReport* report);

private:
    std::unique_ptr<FormatCheckingReport> m_formatChecking;
    std::unique_ptr<SigningCertificateIdentificationReport> m_signingCertificateIdentification;
    std::unique_ptr<ValidationContextInitializationReport> m_validationContextInitialization;
    std::unique_ptr<X509CertificateValidationReport> m_x509CertificateValidation;
    std::unique_ptr<CryptographicVerificationReport> m_cryptographicVerification;
    std::unique_ptr<SignatureAcceptanceValidationReport> m_signatureAcceptanceValidation;
};

}  // namespace TesseraLib

namespace qorstd {
// Compiled once into the library.
extern template class QorVector<TesseraLib::TimeStampValidationReport*>;
extern template class QorVectorIterator<TesseraLib::TimeStampValidationReport*>;
}  // namespace qorstd

namespace TesseraLib {

// The validation of a signature with time: the basic process's report, one
// report per signature time-stamp and the re-examined results. Everything
// it points to is owned, the time-stamp reports included.
class TESSERA_API SignatureWithTimeValidationProcessReport : public ValidationReport {
public:
    SignatureWithTimeValidationProcessReport();
    SignatureWithTimeValidationProcessReport(const SignatureWithTimeValidationProcessReport& other);
    SignatureWithTimeValidationProcessReport& operator=(
        const SignatureWithTimeValidationProcessReport& other);
    ~SignatureWithTimeValidationProcessReport() override;

    SignatureWithTimeValidationProcessReport* Clone() const override;
    std::basic_ostream<wchar_t>& Print(std::basic_ostream<wchar_t>& os) const override;
    std::string ToJson() const override;

    // Every setter takes ownership; the report held before is deleted unless
    // it is the same.
    BasicSignatureValidationProcessReport* GetBasicSignatureValidationProcessReport() {
        return m_basicReport.get();
    }
    const BasicSignatureValidationProcessReport* GetBasicSignatureValidationProcessReport() const {
        return m_basicReport.get();
    }
    void SetBasicSignatureValidationProcessReport(BasicSignatureValidationProcessReport* report);

    RevocationFreshnessCheckerReport* GetRevocationFreshnessCheckerReport() {
        return m_revocationFreshnessCheckerReport.get();
    }
    const RevocationFreshnessCheckerReport* GetRevocationFreshnessCheckerReport() const {
        return m_revocationFreshnessCheckerReport.get();
    }
    void SetRevocationFreshnessCheckerReport(RevocationFreshnessCheckerReport* report);

    SignatureAcceptanceValidationReport* GetSignatureAcceptanceValidationReport() {
        return m_signatureAcceptanceValidationReport.get();
    }
    const SignatureAcceptanceValidationReport* GetSignatureAcceptanceValidationReport() const {
        return m_signatureAcceptanceValidationReport.get();
    }
    void SetSignatureAcceptanceValidationReport(SignatureAcceptanceValidationReport* report);

    // The elements are owned by this report; a pointer added through the
    // non-const form becomes this report's too.
    qorstd::QorVector<TimeStampValidationReport*>& GetSignatureTimeStampReports() {
        return m_signatureTimeStampReports;
    }
    const qorstd::QorVector<TimeStampValidationReport*>& GetSignatureTimeStampReports() const {
        return m_signatureTimeStampReports;
    }
    // Appends a clone of `report`, which stays the caller's. Null adds nothing.
    void AddSignatureTimeStampReport(const TimeStampValidationReport* report);

    // Seconds since 1970 UTC.
    std::int64_t GetBestSignatureTime() const { return m_bestSignatureTime; }
    void SetBestSignatureTime(std::int64_t time) { m_bestSignatureTime = time; }

private:
    void DeleteTimeStampReports();

    std::unique_ptr<BasicSignatureValidationProcessReport> m_basicReport;
    qorstd::QorVector<TimeStampValidationReport*> m_signatureTimeStampReports;
    std::unique_ptr<RevocationFreshnessCheckerReport> m_revocationFreshnessCheckerReport;
    std::unique_ptr<SignatureAcceptanceValidationReport> m_signatureAcceptanceValidationReport;
    std::int64_t m_bestSignatureTime;
};

// A wide output stream that is its own stream buffer: everything written
// is kept, with two spaces put in front of every line, until it is moved
// into another stream. Printing a report into one and moving the text into
// the parent's stream indents the report by one level.
struct TESSERA_API IndentStream : private std::basic_streambuf<wchar_t>,
                                  public std::basic_ostream<wchar_t> {
public:
    IndentStream();
    IndentStream(const IndentStream&) = delete;
    IndentStream& operator=(const IndentStream&) = delete;
    ~IndentStream() override;

    // Writes the text kept so far to `target`, then forgets it.
    std::basic_ostream<wchar_t>& MoveTo(std::basic_ostream<wchar_t>& target);

protected:
    std::basic_streambuf<wchar_t>::int_type overflow(
        std::basic_streambuf<wchar_t>::int_type c) override;

private:
    std::basic_ostringstream<wchar_t> m_text;
    bool m_lineStart;
};

}  // namespace TesseraLib
