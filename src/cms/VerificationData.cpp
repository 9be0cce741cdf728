#include "VerificationData.h"

#include "SignaturePolicy.h"
#include "X509Chain.h"

namespace qorstd {
template class QorVector<TesseraLib::TimeStampVerificationData>;
template class QorVectorIterator<TesseraLib::TimeStampVerificationData>;
}  // namespace qorstd

namespace TesseraLib {

namespace {

template <class T>
std::unique_ptr<T> CopyOf(const T* value) {
    return value != nullptr ? std::make_unique<T>(*value) : nullptr;
}

std::unique_ptr<X509Chain> CloneOf(const X509Chain* chain) {
    return std::unique_ptr<X509Chain>(chain != nullptr ? chain->Clone() : nullptr);
}

std::unique_ptr<qorstd::QorException> CloneOf(const qorstd::QorException* exception) {
    return std::unique_ptr<qorstd::QorException>(exception != nullptr ? exception->Clone()
                                                                      : nullptr);
}

}  // namespace

// --------------------------------------------------------- VerificationData

VerificationData::VerificationData() = default;

VerificationData::VerificationData(const VerificationData& other)
    : m_verifyTime(CopyOf(other.m_verifyTime.get())),
      m_chain(CloneOf(other.m_chain.get())),
      m_signaturePolicy(CopyOf(other.m_signaturePolicy.get())) {}

VerificationData& VerificationData::operator=(const VerificationData& other) {
    if (this != &other) {
        // Copy first: a failure leaves this object as it was.
        std::unique_ptr<std::int64_t> time = CopyOf(other.m_verifyTime.get());
        std::unique_ptr<X509Chain> chain = CloneOf(other.m_chain.get());
        std::unique_ptr<SignaturePolicy> policy = CopyOf(other.m_signaturePolicy.get());
        m_verifyTime = std::move(time);
        m_chain = std::move(chain);
        m_signaturePolicy = std::move(policy);
    }
    return *this;
}

VerificationData::~VerificationData() = default;

VerificationData* VerificationData::Clone() const {
    return new VerificationData(*this);
}

void VerificationData::Reset() {
    m_verifyTime.reset();
    m_chain.reset();
    m_signaturePolicy.reset();
}

void VerificationData::SetSignaturePolicy(const SignaturePolicy* policy) {
    m_signaturePolicy = CopyOf(policy);
}

void VerificationData::SetVerifyTime(const std::int64_t* time) {
    m_verifyTime = CopyOf(time);
}

void VerificationData::SetChain(const X509Chain* chain) {
    if (chain != m_chain.get()) {
        m_chain = CloneOf(chain);
    }
}

// ------------------------------------------------ TimeStampVerificationData

TimeStampVerificationData::TimeStampVerificationData() = default;

TimeStampVerificationData::TimeStampVerificationData(const TimeStampVerificationData& other)
    : VerificationData(other),
      m_timeStamp(CopyOf(other.m_timeStamp.get())),
      m_exception(CloneOf(other.m_exception.get())) {}

TimeStampVerificationData& TimeStampVerificationData::operator=(
    const TimeStampVerificationData& other) {
    if (this != &other) {
        std::unique_ptr<QorTsp2Lib::TspTimeStamp> stamp = CopyOf(other.m_timeStamp.get());
        std::unique_ptr<qorstd::QorException> exception = CloneOf(other.m_exception.get());
        VerificationData::operator=(other);
        m_timeStamp = std::move(stamp);
        m_exception = std::move(exception);
    }
    return *this;
}

TimeStampVerificationData::~TimeStampVerificationData() = default;

VerificationData* TimeStampVerificationData::Clone() const {
    return new TimeStampVerificationData(*this);
}

void TimeStampVerificationData::Reset() {
    VerificationData::Reset();
    m_timeStamp.reset();
    m_exception.reset();
}

void TimeStampVerificationData::SetTimeStamp(const QorTsp2Lib::TspTimeStamp* stamp) {
    if (stamp != m_timeStamp.get()) {
        m_timeStamp = CopyOf(stamp);
    }
}

void TimeStampVerificationData::SetException(const qorstd::QorException* exception) {
    if (exception != m_exception.get()) {
        m_exception = CloneOf(exception);
    }
}

}  // namespace TesseraLib
