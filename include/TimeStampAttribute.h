// A signature time-stamp: the unsigned attribute that carries an RFC 3161
// token over a signature value.
#pragma once

#include <cstdint>
#include <memory>

#include "QorArray.h"
#include "QorVector.h"
#include "TesseraExport.h"
#include "TspTimeStamp.h"
#include "X509Attribute.h"

namespace TesseraLib {

class LogChannel;
class ValidationDataStore;
class VerifierCades;
class X509Chain;

class TESSERA_API TimeStampAttribute : public X509Attribute {
public:
    TimeStampAttribute();
    // Keeps a duplicate of `attr` and decodes it.
    explicit TimeStampAttribute(x509_attributes_st* attr);
    // DER of a whole attribute.
    explicit TimeStampAttribute(const qorstd::QorArray<unsigned char>& der);
    TimeStampAttribute(const TimeStampAttribute& other);
    TimeStampAttribute& operator=(const TimeStampAttribute& other);
    ~TimeStampAttribute() override;

    void Reset() override;
    // Empty → ErrInvalidParameter "TimeStampAttribude - attr is empty"; bad
    // DER → ErrAsn1Decoding.
    void Decode(const qorstd::QorArray<unsigned char>& der) override;
    int IsSigned() const override { return 0; }

    const QorTsp2Lib::TspTimeStamp& GetTimeStamp() const { return m_timeStamp; }
    // An id-aa-timeStampToken attribute holding the stamp's token.
    static TimeStampAttribute CreateFromTimeStamp(const QorTsp2Lib::TspTimeStamp& stamp);
    // The same for a token's DER (ErrAsn1Encoding when no attribute can be
    // made of it), decoded.
    static TimeStampAttribute CreateFromToken(const unsigned char* der, unsigned int length);
    static TimeStampAttribute CreateFromToken(const qorstd::QorArray<unsigned char>& der);
    // -1, 0 or 1 as a's token time is earlier than, equal to or later than
    // b's; null → ErrInvalidParameter.
    static int CompareByTime(const TimeStampAttribute* a, const TimeStampAttribute* b);

    // Checks the token against `msg` (see VerifierTimeStamp::Verify); an
    // attribute without value → ErrInvalidState.
    void Verify(const qorstd::QorArray<unsigned char>& msg, const VerifierCades& verifier,
                std::int64_t* time, X509Chain** chain) const;
    // The same with proofs of existence (see VerifierTimeStamp).
    void Verify(const qorstd::QorArray<unsigned char>& msg, const VerifierCades& verifier,
                const ValidationDataStore* store, X509Chain** chain) const;

protected:
    // The type must be id-aa-timeStampToken (1.2.840.113549.1.9.16.2.14) or
    // 0.4.0.1733.2.4, else ErrAsn1Decoding; the first value is the token.
    virtual void Decode(const x509_attributes_st* attr);

private:
    std::unique_ptr<LogChannel> m_log;
    QorTsp2Lib::TspTimeStamp m_timeStamp;
};

}  // namespace TesseraLib

namespace qorstd {
extern template class QorVector<TesseraLib::TimeStampAttribute>;
extern template class QorVectorIterator<TesseraLib::TimeStampAttribute>;
}  // namespace qorstd
