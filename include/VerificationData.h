// What one verification of a signer (or of a time-stamp token) leaves
// behind: the time it was checked at and the certification path built.
#pragma once

#include <cstdint>
#include <memory>

#include "QorException.h"
#include "QorVector.h"
#include "TesseraExport.h"
#include "TspTimeStamp.h"

namespace TesseraLib {

class SignaturePolicy;
class X509Chain;

// Deep copies throughout; setters store copies of what they are given and
// null clears.
class TESSERA_API VerificationData {
public:
    VerificationData();
    VerificationData(const VerificationData& other);
    VerificationData& operator=(const VerificationData& other);
    virtual ~VerificationData();

    virtual VerificationData* Clone() const;
    virtual void Reset();

    // Null when unset.
    const std::int64_t* GetVerifyTime() const { return m_verifyTime.get(); }
    void SetVerifyTime(const std::int64_t* time);
    const X509Chain* GetChain() const { return m_chain.get(); }
    // Stores a clone of `chain`.
    void SetChain(const X509Chain* chain);
    // The signature policy the check applied (a copy); null when none.
    const SignaturePolicy* GetSignaturePolicy() const { return m_signaturePolicy.get(); }
    void SetSignaturePolicy(const SignaturePolicy* policy);

private:
    std::unique_ptr<std::int64_t> m_verifyTime;
    std::unique_ptr<X509Chain> m_chain;
    std::unique_ptr<SignaturePolicy> m_signaturePolicy;
};

// The result of checking one time-stamp token: the base's time and path,
// the token, and the failure of its check when it failed.
class TESSERA_API TimeStampVerificationData : public VerificationData {
public:
    TimeStampVerificationData();
    TimeStampVerificationData(const TimeStampVerificationData& other);
    TimeStampVerificationData& operator=(const TimeStampVerificationData& other);
    ~TimeStampVerificationData() override;

    VerificationData* Clone() const override;
    void Reset() override;

    const QorTsp2Lib::TspTimeStamp* GetTimeStamp() const { return m_timeStamp.get(); }
    void SetTimeStamp(const QorTsp2Lib::TspTimeStamp* stamp);
    // Null when the check passed (or did not run).
    const qorstd::QorException* GetVerificationException() const { return m_exception.get(); }

protected:
    friend class SignedCades2;
    // Stores a clone.
    void SetException(const qorstd::QorException* exception);

private:
    std::unique_ptr<QorTsp2Lib::TspTimeStamp> m_timeStamp;
    std::unique_ptr<qorstd::QorException> m_exception;
};

}  // namespace TesseraLib

namespace qorstd {
extern template class QorVector<TesseraLib::TimeStampVerificationData>;
extern template class QorVectorIterator<TesseraLib::TimeStampVerificationData>;
}  // namespace qorstd
