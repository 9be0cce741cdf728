// The blocks that decide whether a certificate was valid at the validation
// time: the certification path with revocation verdicts, the freshness of
// the revocation data of every certificate of that path, and the key usage
// and qualified-statement (or trusted TSU list) conditions of the
// certificate itself.
#pragma once

#include <cstdint>
#include <memory>

#include "TesseraExport.h"
#include "ValidationBlock.h"
#include "ValidationBlockReport.h"
#include "X509Certificate.h"

namespace QorOcsp2Lib {
class OcspResponse;
}

namespace TesseraLib {

class LogChannel;
class X509Chain;
class X509ChainPolicyTL;
class X509Crl;
class X509CertificateValidationException;

// Whether the CRL or OCSP response used for a certificate was still fresh at
// the validation time: issued no earlier than the validation time minus the
// data's own update interval. An OCSP response takes precedence over a CRL;
// a self-signed certificate needs neither.
class TESSERA_API RevocationFreshnessCheckerBlock : public ValidationBlock {
public:
    RevocationFreshnessCheckerBlock();
    RevocationFreshnessCheckerBlock(const RevocationFreshnessCheckerBlock& other);
    RevocationFreshnessCheckerBlock& operator=(const RevocationFreshnessCheckerBlock& other);
    ~RevocationFreshnessCheckerBlock();

    void SetValidationTime(std::int64_t time) { m_validationTime = time; }
    void SetCertificate(const X509Certificate& certificate) { m_certificate = certificate; }
    void SetCrl(const X509Crl* crl) { m_crl = crl; }
    void SetOcspResponse(const QorOcsp2Lib::OcspResponse* response) { m_ocspResponse = response; }
    const RevocationFreshnessCheckerReport& GetRevocationFreshnessCheckerReport() const {
        return m_report;
    }

    void Process() override;

private:
    // Sets the report from the data's update interval.
    void JudgeFreshness(std::int64_t thisUpdate, std::int64_t nextUpdate, const wchar_t* kind);

    std::int64_t m_validationTime;
    X509Certificate m_certificate;
    const X509Crl* m_crl;
    const QorOcsp2Lib::OcspResponse* m_ocspResponse;
    RevocationFreshnessCheckerReport m_report;
    std::unique_ptr<LogChannel> m_log;
};

// Builds the path of a signing certificate (chain policy purpose 4) or of a
// time-stamping unit's certificate (purpose 9) at the validation time. The
// chain policy is borrowed and keeps this block's revocation verdicts after
// Process. The chain built, also the one that ended in a revoked verdict, is
// owned by the report; GetChain is a view of it.
class TESSERA_API X509CertificateValidationBlock : public ValidationBlock {
public:
    X509CertificateValidationBlock();
    X509CertificateValidationBlock(const X509CertificateValidationBlock& other);
    X509CertificateValidationBlock& operator=(const X509CertificateValidationBlock& other);
    ~X509CertificateValidationBlock();

    void SetValidationTime(std::int64_t time) { m_validationTime = time; }
    void SetCertificate(const X509Certificate& certificate) { m_certificate = certificate; }
    void SetChainPolicy(X509ChainPolicyTL* policy) { m_chainPolicy = policy; }
    const X509Chain* GetChain() const { return m_report.GetCertificateChain(); }
    X509Chain* GetChain() { return m_report.GetCertificateChain(); }
    const X509CertificateValidationReport& GetX509CertificateValidationReport() const {
        return m_report;
    }

    void Process() override;

private:
    // The path steps; false when the block has ended.
    bool BuildChain();
    bool CheckFreshness();
    void CheckKeyUsage(bool tsa);
    void RecordRevocation(const X509CertificateValidationException& e);
    void Refuse(const wchar_t* issue);

    std::int64_t m_validationTime;
    X509Certificate m_certificate;
    X509ChainPolicyTL* m_chainPolicy;
    X509CertificateValidationReport m_report;
    std::unique_ptr<LogChannel> m_log;
};

}  // namespace TesseraLib
