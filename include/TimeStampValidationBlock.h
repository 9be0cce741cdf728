// Validates one time-stamp token as a signature in its own right: the
// token's only signer runs through the basic signature validation under the
// time-stamp stores and purpose of the chain policy.
#pragma once

#include <memory>

#include "QorString.h"
#include "TesseraExport.h"
#include "ValidationBlock.h"
#include "ValidationBlockReport.h"

namespace QorTsp2Lib {
class TspTimeStamp;
}

namespace TesseraLib {

class CadesBasicSignatureValidationProcess;
class LogChannel;
class SignedCades;
class X509Certificate;
class X509ChainPolicyTL;

class TESSERA_API TimeStampValidationBlock : public ValidationBlock {
public:
    TimeStampValidationBlock();
    // The copy has no process of its own until it runs.
    TimeStampValidationBlock(const TimeStampValidationBlock& other);
    TimeStampValidationBlock& operator=(const TimeStampValidationBlock& other);
    ~TimeStampValidationBlock();

    // Borrowed: the TSA's certificate when the token does not carry it.
    void SetTimeStampCertificate(X509Certificate* certificate) {
        m_timeStampCertificate = certificate;
    }
    X509Certificate* GetTimeStampCertificate() { return m_timeStampCertificate; }
    const X509Certificate* GetTimeStampCertificate() const { return m_timeStampCertificate; }
    void SetChainPolicy(X509ChainPolicyTL* policy) { m_chainPolicy = policy; }
    void SetTimeStamp(const QorTsp2Lib::TspTimeStamp* timeStamp) { m_timeStamp = timeStamp; }
    void SetValidationPolicyOID(const qorstd::QorString& oid) { m_validationPolicyOid = oid; }
    // The time at which the token is validated: 0 (now) unless the token is
    // proven to have existed earlier (by an archive time-stamp).
    void SetValidationTime(std::int64_t time) { m_validationTime = time; }
    const TimeStampValidationReport& GetTimeStampValidationReport() const { return m_report; }

    void Process() override;

private:
    X509Certificate* m_timeStampCertificate;
    X509ChainPolicyTL* m_chainPolicy;
    const QorTsp2Lib::TspTimeStamp* m_timeStamp;
    qorstd::QorString m_validationPolicyOid;
    std::int64_t m_validationTime = 0;
    // The last run's token message, its policy and its process: the
    // process's report points into them.
    std::unique_ptr<SignedCades> m_token;
    std::unique_ptr<X509ChainPolicyTL> m_tokenPolicy;
    std::unique_ptr<CadesBasicSignatureValidationProcess> m_process;
    TimeStampValidationReport m_report;
    std::unique_ptr<LogChannel> m_log;
};

}  // namespace TesseraLib
