#include "X509Attribute.h"

#include <openssl/asn1.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include "CryptException.h"
#include "Failure.h"
#include "LogChannel.h"
#include "OpenSslPtr.h"
#include "QorDer.h"
#include "cms/AttributeDer.h"
#include "cms/CmsOid.h"

namespace TesseraLib {

namespace {

X509_ATTRIBUTE* Duplicate(const X509_ATTRIBUTE* attr) {
    if (attr == nullptr) {
        return nullptr;
    }
    X509_ATTRIBUTE* copy = X509_ATTRIBUTE_dup(attr);
    if (copy == nullptr) {
        // OpenSSL duplicates by encoding and decoding again: an attribute it
        // read leniently from malformed DER may not read back from its own
        // encoding, which is a decoding failure, not a lack of memory.
        const bool outOfMemory = ERR_GET_REASON(ERR_peek_last_error()) == ERR_R_MALLOC_FAILURE;
        Fail(outOfMemory ? ErrOutOfMemory : ErrAsn1Decoding, L"X509_ATTRIBUTE_dup() failed");
    }
    return copy;
}

}  // namespace

X509Attribute::X509Attribute() : m_attr(nullptr) {}

X509Attribute::X509Attribute(x509_attributes_st* attr) : m_attr(attr) {}

X509Attribute::X509Attribute(const X509Attribute& other) : m_attr(Duplicate(other.m_attr)) {}

X509Attribute& X509Attribute::operator=(const X509Attribute& other) {
    if (this != &other) {
        X509_ATTRIBUTE* copy = Duplicate(other.m_attr);
        X509_ATTRIBUTE_free(m_attr);
        m_attr = copy;
    }
    return *this;
}

X509Attribute::X509Attribute(X509Attribute&& other) noexcept : m_attr(other.m_attr) {
    other.m_attr = nullptr;
}

X509Attribute& X509Attribute::operator=(X509Attribute&& other) noexcept {
    if (this != &other) {
        X509_ATTRIBUTE_free(m_attr);
        m_attr = other.m_attr;
        other.m_attr = nullptr;
    }
    return *this;
}

X509Attribute::~X509Attribute() {
    // The subclasses release the attribute through FreeAttribute; this
    // catches what a subclass left behind.
    X509_ATTRIBUTE_free(m_attr);
    m_attr = nullptr;
}

void X509Attribute::Reset() {
    FreeAttribute();
}

void X509Attribute::FreeAttribute() {
    X509_ATTRIBUTE_free(m_attr);
    m_attr = nullptr;
}

x509_attributes_st* X509Attribute::CloneAttribute(x509_attributes_st* attr) {
    return Duplicate(attr);
}

qorstd::QorString X509Attribute::GetOID() const {
    return GetOID(m_attr);
}

qorstd::QorString X509Attribute::GetOID(x509_attributes_st* attr) {
    if (attr == nullptr) {
        return qorstd::QorString();
    }
    return cms::OidText(X509_ATTRIBUTE_get0_object(attr));
}

qorstd::QorArray<unsigned char> X509Attribute::GetValue() const {
    return GetValue(m_attr);
}

qorstd::QorArray<unsigned char> X509Attribute::GetValue(x509_attributes_st* attr) {
    if (attr == nullptr) {
        return qorstd::QorArray<unsigned char>();
    }
    // OpenSSL keeps every attribute in set form; an empty set has no value.
    if (X509_ATTRIBUTE_count(attr) < 1) {
        Fail(ErrAsn1Decoding);
    }
    const ASN1_TYPE* value = X509_ATTRIBUTE_get0_type(attr, 0);
    if (value == nullptr || value->type != V_ASN1_SEQUENCE) {
        Fail(ErrAsn1Decoding);
    }
    // An ASN1_TYPE SEQUENCE holds its whole encoding, tag and length included.
    const ASN1_STRING* sequence = value->value.sequence;
    if (sequence == nullptr || ASN1_STRING_get0_data(sequence) == nullptr ||
        ASN1_STRING_length(sequence) < 1) {
        Fail(ErrInternal);
    }
    return qorstd::QorArray<unsigned char>(ASN1_STRING_get0_data(sequence),
                                           static_cast<unsigned int>(ASN1_STRING_length(sequence)));
}

qorstd::QorArray<unsigned char> X509Attribute::Encode() const {
    if (m_attr == nullptr) {
        return qorstd::QorArray<unsigned char>();
    }
    const int size = i2d_X509_ATTRIBUTE(m_attr, nullptr);
    if (size < 1) {
        Fail(ErrAsn1Encoding);
    }
    qorstd::QorArray<unsigned char> der;
    der.SetSize(static_cast<unsigned int>(size));
    unsigned char* cursor = der.GetData();
    if (i2d_X509_ATTRIBUTE(m_attr, &cursor) != size) {
        Fail(ErrAsn1Encoding);
    }
    return der;
}

namespace cms {

void DecodeAttributeDer(const LogChannel* log, const qorstd::QorArray<unsigned char>& der,
                        const wchar_t* emptyMessage, const std::function<void()>& reset,
                        const std::function<void(const x509_attributes_st*)>& decode) {
    if (der.GetSize() == 0) {
        Fail(log, L"Decode: Bad parameter - attr is empty", ErrInvalidParameter, emptyMessage);
    }
    const X509AttributePtr attr =
        qorssl::DecodeWhole<X509AttributePtr>(d2i_X509_ATTRIBUTE, der.GetData(), der.GetSize());
    if (!attr) {
        reset();
        Fail(log, L"Decode: d2i_X509_ATTRIBUTE() failed.", ErrAsn1Decoding);
    }
    decode(attr.get());
}

}  // namespace cms
}  // namespace TesseraLib
