// Block reports of signature validation: each building block records its
// outcome as an indication, a sub-indication, an issue text and the data of
// its own kind. Reports are plain values; they own what they point to
// (except a time-stamp token), copy deeply and print as indented text.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <utility>

#include "OcspResponse.h"
#include "QorString.h"
#include "QorVector.h"
#include "TesseraExport.h"

namespace QorTsp2Lib {
class TspTimeStamp;
}

namespace TesseraLib {

class BasicSignatureValidationProcessReport;
class LogChannel;
class X509Certificate;
class X509Chain;

// A piece of cryptographic material refused by signature acceptance
// validation, with what made it unacceptable.
class TESSERA_API CryptoMaterialIdentification {
public:
    enum cptMaterialType {
        cptMaterialSignature = 0,
        cptMaterialCertificate = 1,
        cptMaterialCrl = 2,
        cptMaterialOcspResponse = 3
    };

    CryptoMaterialIdentification(const qorstd::QorString& id, cptMaterialType type);
    CryptoMaterialIdentification(const CryptoMaterialIdentification& other);
    CryptoMaterialIdentification& operator=(const CryptoMaterialIdentification& other);
    ~CryptoMaterialIdentification();

    const qorstd::QorString& GetID() const { return m_id; }
    cptMaterialType GetType() const { return m_type; }
    const qorstd::QorString& GetAlgorithmName() const { return m_algorithmName; }
    int GetKeyLength() const { return m_keyLength; }
    // Seconds since 1970 UTC; 0 when unknown.
    std::int64_t GetSecureNotAfter() const { return m_secureNotAfter; }

    void SetAlgorithmName(const qorstd::QorString& name) { m_algorithmName = name; }
    void SetKeyLength(int bits) { m_keyLength = bits; }
    void SetSecureNotAfter(std::int64_t time) { m_secureNotAfter = time; }

private:
    qorstd::QorString m_id;
    cptMaterialType m_type;
    qorstd::QorString m_algorithmName;
    int m_keyLength;
    std::int64_t m_secureNotAfter;
};

}  // namespace TesseraLib

namespace qorstd {
// Compiled once into the library.
extern template class QorVector<TesseraLib::CryptoMaterialIdentification>;
extern template class QorVectorIterator<TesseraLib::CryptoMaterialIdentification>;
}  // namespace qorstd

namespace TesseraLib {

// The outcome of one building block. Every object opens a log channel named
// after its own class.
class TESSERA_API ValidationBlockReport {
public:
    enum cptReportStatus { repIndeterminate = 0, repPassed = 1, repFailed = 2 };

    enum cptReportSubStatus {
        repNoSubStatusIndication = 0,
        repFormatFailure = 1,
        repHashFailure = 2,
        repSigCryptoFailure = 3,
        repRevoked = 4,
        repSigConstraintsFailure = 5,
        repChainConstraintsFailure = 6,
        repCertificateChainGeneralFailure = 7,
        repCryptoConstraintsFailure = 8,
        repExpired = 9,
        repNotYetValid = 10,
        repPolicyProcessingError = 11,
        repSignaturePolicyNotAvailable = 12,
        repTimestampOrderFailure = 13,
        repNoSigningCertificateFound = 14,
        repNoCertificateChainFound = 15,
        repRevokedNoPOE = 16,
        repRevokedCANoPOE = 17,
        repOutOfBoundsNoPOE = 18,
        repCryptoConstraintsFailureNoPOE = 19,
        repNoPOE = 20,
        repTryLater = 21,
        repSignedDataNotFound = 22,
        repGeneric = 23
    };

    // Names indexed by the enumerations, without a range check.
    static const wchar_t* const cptReportStatusStrings[3];
    static const wchar_t* const cptReportSubStatusStrings[24];

    ValidationBlockReport();
    ValidationBlockReport(const ValidationBlockReport& other);
    ValidationBlockReport& operator=(const ValidationBlockReport& other);
    virtual ~ValidationBlockReport();

    virtual cptReportStatus GetStatusIndication() const { return m_status; }
    virtual cptReportSubStatus GetSubStatusIndication() const { return m_subStatus; }
    // A new copy of the same class; the caller owns it.
    virtual ValidationBlockReport* Clone() const;
    // The title of the block, its own lines, then indication,
    // sub-indication (unless passed) and issue (when there is one).
    virtual std::basic_ostream<wchar_t>& Print(std::basic_ostream<wchar_t>& os) const;
    // One JSON object (UTF-8): indication, subIndication, issue, then the
    // block's own fields.
    virtual std::string ToJson() const;

    void SetStatusIndication(cptReportStatus status) { m_status = status; }
    void SetSubStatusIndication(cptReportSubStatus subStatus) { m_subStatus = subStatus; }
    qorstd::QorStringW& GetIssue() { return m_issue; }
    const qorstd::QorStringW& GetIssue() const { return m_issue; }
    void SetIssue(const qorstd::QorStringW& issue) { m_issue = issue; }
    // Indeterminate with repGeneric: the block could not run as it should.
    void SetGenericIssue(const qorstd::QorStringW& text);
    // 1 when the stored status is repIndeterminate and the stored
    // sub-status repGeneric.
    static int IsGeneric(const ValidationBlockReport& report);

protected:
    // For derived reports: the channel takes the derived class's name.
    explicit ValidationBlockReport(const wchar_t* channelName);
    ValidationBlockReport(const ValidationBlockReport& other, const wchar_t* channelName);

private:
    cptReportStatus m_status;
    cptReportSubStatus m_subStatus;
    qorstd::QorStringW m_issue;
    std::unique_ptr<LogChannel> m_log;
};

class TESSERA_API FormatCheckingReport : public ValidationBlockReport {
public:
    FormatCheckingReport();
    FormatCheckingReport(const FormatCheckingReport& other);
    FormatCheckingReport& operator=(const FormatCheckingReport& other);
    ~FormatCheckingReport() override;

    FormatCheckingReport* Clone() const override;
    std::basic_ostream<wchar_t>& Print(std::basic_ostream<wchar_t>& os) const override;
    std::string ToJson() const override;

    qorstd::QorString& GetFailureReason() { return m_failureReason; }
    const qorstd::QorString& GetFailureReason() const { return m_failureReason; }
    void SetFailureReason(const qorstd::QorString& reason) { m_failureReason = reason; }

private:
    qorstd::QorString m_failureReason;
};

class TESSERA_API SigningCertificateIdentificationReport : public ValidationBlockReport {
public:
    SigningCertificateIdentificationReport();
    SigningCertificateIdentificationReport(const SigningCertificateIdentificationReport& other);
    SigningCertificateIdentificationReport& operator=(
        const SigningCertificateIdentificationReport& other);
    ~SigningCertificateIdentificationReport() override;

    SigningCertificateIdentificationReport* Clone() const override;
    std::basic_ostream<wchar_t>& Print(std::basic_ostream<wchar_t>& os) const override;
    std::string ToJson() const override;

    qorstd::QorVector<qorstd::QorStringW>& GetWarnings() { return m_warnings; }
    const qorstd::QorVector<qorstd::QorStringW>& GetWarnings() const { return m_warnings; }
    void AddWarning(const qorstd::QorStringW& warning) { m_warnings.Add(warning); }

private:
    qorstd::QorVector<qorstd::QorStringW> m_warnings;
};

class TESSERA_API ValidationContextInitializationReport : public ValidationBlockReport {
public:
    ValidationContextInitializationReport();
    ValidationContextInitializationReport(const ValidationContextInitializationReport& other);
    ValidationContextInitializationReport& operator=(
        const ValidationContextInitializationReport& other);
    ~ValidationContextInitializationReport() override;

    ValidationContextInitializationReport* Clone() const override;
    std::basic_ostream<wchar_t>& Print(std::basic_ostream<wchar_t>& os) const override;
    std::string ToJson() const override;

    const qorstd::QorString& GetValidationPolicyOID() const { return m_validationPolicyOid; }
    void SetValidationPolicyOID(qorstd::QorString oid) { m_validationPolicyOid = std::move(oid); }
    const qorstd::QorString& GetAdditionalInfo() const { return m_additionalInfo; }
    void SetAdditionalInfo(const qorstd::QorString& info) { m_additionalInfo = info; }

private:
    qorstd::QorString m_validationPolicyOid;
    qorstd::QorString m_additionalInfo;
};

// Its sub-indication always reads repNoSubStatusIndication, whatever was set.
class TESSERA_API RevocationFreshnessCheckerReport : public ValidationBlockReport {
public:
    RevocationFreshnessCheckerReport();
    RevocationFreshnessCheckerReport(const RevocationFreshnessCheckerReport& other);
    RevocationFreshnessCheckerReport& operator=(const RevocationFreshnessCheckerReport& other);
    ~RevocationFreshnessCheckerReport() override;

    cptReportSubStatus GetSubStatusIndication() const override { return repNoSubStatusIndication; }
    RevocationFreshnessCheckerReport* Clone() const override;
    std::basic_ostream<wchar_t>& Print(std::basic_ostream<wchar_t>& os) const override;
    std::string ToJson() const override;
};

class TESSERA_API X509CertificateValidationReport : public ValidationBlockReport {
public:
    using RevocationReason = QorOcsp2Lib::OcspSingleResponse::ocspRevocationReason;

    // No chain, reason ocspReasonNone, times 0, no freshness report.
    X509CertificateValidationReport();
    X509CertificateValidationReport(const X509CertificateValidationReport& other);
    X509CertificateValidationReport& operator=(const X509CertificateValidationReport& other);
    ~X509CertificateValidationReport() override;

    X509CertificateValidationReport* Clone() const override;
    std::basic_ostream<wchar_t>& Print(std::basic_ostream<wchar_t>& os) const override;
    std::string ToJson() const override;

    // Owned by the report; null when none.
    X509Chain* GetCertificateChain() const { return m_certificateChain.get(); }
    // Takes ownership; the chain held before is deleted unless it is the same.
    void SetCertificateChain(X509Chain* chain);
    RevocationReason GetCertificateRevocationReason() const { return m_revocationReason; }
    void SetCertificateRevocationReason(RevocationReason reason) { m_revocationReason = reason; }
    std::int64_t GetCertificateRevocationTime() const { return m_revocationTime; }
    void SetCertificateRevocationTime(std::int64_t time) { m_revocationTime = time; }
    std::int64_t GetNextUpdate() const { return m_nextUpdate; }
    void SetNextUpdate(std::int64_t time) { m_nextUpdate = time; }
    RevocationFreshnessCheckerReport* GetRevocationFreshnessCheckerReport() {
        return m_revocationFreshnessCheckerReport.get();
    }
    const RevocationFreshnessCheckerReport* GetRevocationFreshnessCheckerReport() const {
        return m_revocationFreshnessCheckerReport.get();
    }
    // Takes ownership as SetCertificateChain.
    void SetRevocationFreshnessCheckerReport(RevocationFreshnessCheckerReport* report);

private:
    std::unique_ptr<X509Chain> m_certificateChain;
    RevocationReason m_revocationReason;
    std::int64_t m_revocationTime;
    std::int64_t m_nextUpdate;
    std::unique_ptr<RevocationFreshnessCheckerReport> m_revocationFreshnessCheckerReport;
};

class TESSERA_API CryptographicVerificationReport : public ValidationBlockReport {
public:
    CryptographicVerificationReport();
    CryptographicVerificationReport(const CryptographicVerificationReport& other);
    CryptographicVerificationReport& operator=(const CryptographicVerificationReport& other);
    ~CryptographicVerificationReport() override;

    CryptographicVerificationReport* Clone() const override;
    std::basic_ostream<wchar_t>& Print(std::basic_ostream<wchar_t>& os) const override;
    std::string ToJson() const override;

    // Owned by the report; null when none.
    X509Certificate* GetSigningCertificate() const { return m_signingCertificate.get(); }
    // Takes ownership; the certificate held before is deleted unless it is
    // the same.
    void SetSigningCertificate(X509Certificate* certificate);
    const qorstd::QorVector<qorstd::QorString>& GetInvalidObjectURIs() const {
        return m_invalidObjectUris;
    }
    void AddInvalidObjectURI(const qorstd::QorString& uri) { m_invalidObjectUris.Add(uri); }

private:
    std::unique_ptr<X509Certificate> m_signingCertificate;
    qorstd::QorVector<qorstd::QorString> m_invalidObjectUris;
};

class TESSERA_API SignatureAcceptanceValidationReport : public ValidationBlockReport {
public:
    SignatureAcceptanceValidationReport();
    SignatureAcceptanceValidationReport(const SignatureAcceptanceValidationReport& other);
    SignatureAcceptanceValidationReport& operator=(
        const SignatureAcceptanceValidationReport& other);
    ~SignatureAcceptanceValidationReport() override;

    SignatureAcceptanceValidationReport* Clone() const override;
    std::basic_ostream<wchar_t>& Print(std::basic_ostream<wchar_t>& os) const override;
    std::string ToJson() const override;

    const qorstd::QorVector<qorstd::QorString>& GetFailedConstraints() const {
        return m_failedConstraints;
    }
    void AddFailedConstraint(const qorstd::QorString& name) { m_failedConstraints.Add(name); }
    const qorstd::QorVector<CryptoMaterialIdentification>& GetFailedCryptoMaterialIds() const {
        return m_failedCryptoMaterialIds;
    }
    // Appends a copy.
    void AddFailedCryptoMaterialId(const CryptoMaterialIdentification& id) {
        m_failedCryptoMaterialIds.Add(id);
    }

private:
    qorstd::QorVector<qorstd::QorString> m_failedConstraints;
    qorstd::QorVector<CryptoMaterialIdentification> m_failedCryptoMaterialIds;
};

// The time-stamp token is not owned: it must outlive the report's use.
class TESSERA_API TimeStampValidationReport : public ValidationBlockReport {
public:
    TimeStampValidationReport();
    TimeStampValidationReport(const TimeStampValidationReport& other);
    TimeStampValidationReport& operator=(const TimeStampValidationReport& other);
    ~TimeStampValidationReport() override;

    TimeStampValidationReport* Clone() const override;
    std::basic_ostream<wchar_t>& Print(std::basic_ostream<wchar_t>& os) const override;
    std::string ToJson() const override;

    BasicSignatureValidationProcessReport* GetBasicSignatureValidationProcessReport() {
        return m_basicReport.get();
    }
    const BasicSignatureValidationProcessReport* GetBasicSignatureValidationProcessReport() const {
        return m_basicReport.get();
    }
    // Takes ownership; the report held before is deleted unless it is the same.
    void SetBasicSignatureValidationProcessReport(BasicSignatureValidationProcessReport* report);
    const QorTsp2Lib::TspTimeStamp* GetTimeStamp() const { return m_timeStamp; }
    void SetTimeStamp(const QorTsp2Lib::TspTimeStamp* timeStamp) { m_timeStamp = timeStamp; }

private:
    std::unique_ptr<BasicSignatureValidationProcessReport> m_basicReport;
    const QorTsp2Lib::TspTimeStamp* m_timeStamp;
};

}  // namespace TesseraLib
