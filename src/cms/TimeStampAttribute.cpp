#include "TimeStampAttribute.h"

#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <cstring>

#include "CryptException.h"
#include "Failure.h"
#include "LogChannel.h"
#include "OpenSslPtr.h"
#include "QorDer.h"
#include "TspException.h"
#include "VerifierTimeStamp.h"
#include "cms/AttributeDer.h"

namespace qorstd {
template class QorVector<TesseraLib::TimeStampAttribute>;
template class QorVectorIterator<TesseraLib::TimeStampAttribute>;
}  // namespace qorstd

namespace TesseraLib {

namespace {

constexpr const wchar_t* kChannelName = L"TimeStampAttribute";
constexpr const char* kOidSignatureTimeStamp = "1.2.840.113549.1.9.16.2.14";
constexpr const char* kOidArchiveTimeStampV3 = "0.4.0.1733.2.4";

// A signature time-stamp attribute whose one value is the token DER.
X509_ATTRIBUTE* CreateTokenAttribute(const unsigned char* der, unsigned int length) {
    if (der == nullptr || length == 0 || length > 0x7FFFFFFFu) {
        Fail(ErrInvalidParameter, L"token is empty");
    }
    X509_ATTRIBUTE* attr = X509_ATTRIBUTE_create_by_NID(
        nullptr, NID_id_smime_aa_timeStampToken, V_ASN1_SEQUENCE, der, static_cast<int>(length));
    if (attr == nullptr) {
        Fail(ErrAsn1Encoding);
    }
    return attr;
}

}  // namespace

TimeStampAttribute::TimeStampAttribute() : m_log(std::make_unique<LogChannel>(kChannelName)) {}

TimeStampAttribute::TimeStampAttribute(x509_attributes_st* attr) : TimeStampAttribute() {
    Decode(static_cast<const x509_attributes_st*>(attr));
}

TimeStampAttribute::TimeStampAttribute(const qorstd::QorArray<unsigned char>& der)
    : TimeStampAttribute() {
    Decode(der);
}

TimeStampAttribute::TimeStampAttribute(const TimeStampAttribute& other)
    : X509Attribute(other),
      m_log(std::make_unique<LogChannel>(kChannelName)),
      m_timeStamp(other.m_timeStamp) {}

TimeStampAttribute& TimeStampAttribute::operator=(const TimeStampAttribute& other) {
    if (this != &other) {
        X509Attribute::operator=(other);
        m_timeStamp = other.m_timeStamp;
    }
    return *this;
}

TimeStampAttribute::~TimeStampAttribute() {
    m_log.reset();
    TimeStampAttribute::FreeAttribute();
}

void TimeStampAttribute::Reset() {
    FreeAttribute();
    m_timeStamp.Reset();
}

void TimeStampAttribute::Decode(const qorstd::QorArray<unsigned char>& der) {
    cms::DecodeAttributeDer(
        m_log.get(), der, L"TimeStampAttribude - attr is empty", [this] { Reset(); },
        [this](const x509_attributes_st* attr) { Decode(attr); });
}

void TimeStampAttribute::Decode(const x509_attributes_st* attr) {
    if (attr == nullptr) {
        Fail(m_log, L"Decode: Bad parameter - pAttr is null", ErrInvalidParameter,
             L"TimeStampAttribude - pAttr is null");
    }
    Reset();
    m_attr = CloneAttribute(const_cast<x509_attributes_st*>(attr));
    try {
        const qorstd::QorString oid = GetOID();
        if (std::strcmp(oid.c_str(), kOidSignatureTimeStamp) != 0 &&
            std::strcmp(oid.c_str(), kOidArchiveTimeStampV3) != 0) {
            Fail(m_log, L"Decode: Attribute is no time-stamp attribute.", ErrAsn1Decoding);
        }
        const qorstd::QorArray<unsigned char> token = GetValue();
        try {
            m_timeStamp.Decode(token.GetData(), token.GetSize());
        } catch (const QorTsp2Lib::TspException& e) {
            // A token that does not decode is a malformed attribute value.
            Fail(m_log, L"Decode: Time-stamp token is not readable.", ErrAsn1Decoding,
                 e.GetErrorMessage().c_str());
        }
    } catch (...) {
        Reset();
        throw;
    }
}

TimeStampAttribute TimeStampAttribute::CreateFromTimeStamp(const QorTsp2Lib::TspTimeStamp& stamp) {
    const QorTsp2Lib::TspArray<unsigned char> token = stamp.Encode(0);
    if (token.GetSize() == 0) {
        Fail(ErrInvalidParameter, L"token is empty");
    }
    TimeStampAttribute created;
    created.m_attr = CreateTokenAttribute(token.GetData(), token.GetSize());
    created.m_timeStamp = stamp;
    return created;
}

TimeStampAttribute TimeStampAttribute::CreateFromToken(const unsigned char* der,
                                                       unsigned int length) {
    if (der == nullptr || length == 0 || length > 0x7FFFFFFFu) {
        Fail(ErrAsn1Encoding);
    }
    const X509AttributePtr attr(X509_ATTRIBUTE_create_by_NID(
        nullptr, NID_id_smime_aa_timeStampToken, V_ASN1_SEQUENCE, der, static_cast<int>(length)));
    if (!attr) {
        Fail(ErrAsn1Encoding);
    }
    return TimeStampAttribute(attr.get());
}

TimeStampAttribute TimeStampAttribute::CreateFromToken(const qorstd::QorArray<unsigned char>& der) {
    return CreateFromToken(der.GetData(), der.GetSize());
}

int TimeStampAttribute::CompareByTime(const TimeStampAttribute* a, const TimeStampAttribute* b) {
    if (a == nullptr) {
        Fail(ErrInvalidParameter, L"pAttr1 is null");
    }
    if (b == nullptr) {
        Fail(ErrInvalidParameter, L"pAttr2 is null");
    }
    const std::int64_t first = a->m_timeStamp.GetTime();
    const std::int64_t second = b->m_timeStamp.GetTime();
    return first < second ? -1 : (first > second ? 1 : 0);
}

void TimeStampAttribute::Verify(const qorstd::QorArray<unsigned char>& msg,
                                const VerifierCades& verifier, std::int64_t* time,
                                X509Chain** chain) const {
    TLOG_DEBUG(m_log, L"Verify()");
    if (GetValue().IsEmpty()) {
        Fail(m_log, L"Verify: Invalid operation - attribute is empty", ErrInvalidState,
             L"TimeStampAttribute - GetValue().IsEmpty()");
    }
    VerifierTimeStamp(&m_timeStamp).Verify(msg, verifier, time, chain);
}

void TimeStampAttribute::Verify(const qorstd::QorArray<unsigned char>& msg,
                                const VerifierCades& verifier, const ValidationDataStore* store,
                                X509Chain** chain) const {
    TLOG_DEBUG(m_log, L"Verify()");
    if (GetValue().IsEmpty()) {
        Fail(m_log, L"Verify: Invalid operation - attribute is empty", ErrInvalidState,
             L"TimeStampAttribute - GetValue().IsEmpty()");
    }
    VerifierTimeStamp(&m_timeStamp).Verify(msg, verifier, store, chain);
}

}  // namespace TesseraLib
