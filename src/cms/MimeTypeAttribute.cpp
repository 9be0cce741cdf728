#include "MimeTypeAttribute.h"

#include <openssl/asn1.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <cstring>

#include "CryptException.h"
#include "Failure.h"
#include "LogChannel.h"
#include "OpenSslPtr.h"
#include "QorDer.h"
#include "QorTextConv.h"
#include "cms/AttributeDer.h"

namespace TesseraLib {

namespace {

constexpr const wchar_t* kChannelName = L"MimeTypeAttribute";
constexpr const char* kOidMimeType = "0.4.0.1733.2.1";

// The attribute whose one value is the UTF8String of `mimeType`.
X509AttributePtr CreateMimeType(const LogChannel& log, const wchar_t* mimeType) {
    if (mimeType == nullptr) {
        Fail(ErrInvalidParameter, L"MimeTypeAttribute - pwszMimeType == NULL");
    }
    const qorstd::QorString utf8 =
        qorstd::text::WideToCharset(mimeType, qorstd::text::kCharsetUtf8);
    if (utf8.empty()) {
        Fail(log, L"CreateMimeType: The MIME type has no UTF-8 form.", ErrAsn1Encoding);
    }
    const Asn1ObjectPtr type(OBJ_txt2obj(kOidMimeType, 1));
    if (!type) {
        FailCrypto(log, "CreateMimeType: OBJ_txt2obj() failed.", ErrInternal);
    }
    X509AttributePtr attr(X509_ATTRIBUTE_create_by_OBJ(
        nullptr, type.get(), V_ASN1_UTF8STRING,
        reinterpret_cast<const unsigned char*>(utf8.c_str()), static_cast<int>(utf8.length())));
    if (!attr) {
        FailCrypto(log, "CreateMimeType: X509_ATTRIBUTE_create_by_OBJ() failed.", ErrAsn1Encoding);
    }
    return attr;
}

}  // namespace

MimeTypeAttribute::MimeTypeAttribute() : m_log(std::make_unique<LogChannel>(kChannelName)) {}

MimeTypeAttribute::MimeTypeAttribute(x509_attributes_st* attr) : MimeTypeAttribute() {
    Decode(static_cast<const x509_attributes_st*>(attr));
}

MimeTypeAttribute::MimeTypeAttribute(const wchar_t* mimeType) : MimeTypeAttribute() {
    if (mimeType == nullptr) {
        Fail(m_log, L"MimeTypeAttribute: Bad parameter - pwszMimeType is null", ErrInvalidParameter,
             L"MimeTypeAttribute - pwszMimeType is null");
    }
    m_attr = CreateMimeType(*m_log, mimeType).release();
}

MimeTypeAttribute::MimeTypeAttribute(const MimeTypeAttribute& other)
    : X509Attribute(other),
      m_log(std::make_unique<LogChannel>(kChannelName)),
      m_mimeType(other.m_mimeType) {}

MimeTypeAttribute& MimeTypeAttribute::operator=(const MimeTypeAttribute& other) {
    if (this != &other) {
        X509Attribute::operator=(other);
        m_mimeType = other.m_mimeType;
    }
    return *this;
}

MimeTypeAttribute::~MimeTypeAttribute() {
    m_log.reset();
    MimeTypeAttribute::FreeAttribute();
}

void MimeTypeAttribute::Reset() {
    FreeAttribute();
    m_mimeType.clear();
}

void MimeTypeAttribute::Decode(const qorstd::QorArray<unsigned char>& der) {
    cms::DecodeAttributeDer(
        m_log.get(), der, L"MimeTypeAttribute - attr is empty", [this] { Reset(); },
        [this](const x509_attributes_st* attr) { Decode(attr); });
}

void MimeTypeAttribute::Decode(const x509_attributes_st* attr) {
    if (attr == nullptr) {
        Fail(m_log, L"Decode: Bad parameter - pAttr is null", ErrInvalidParameter,
             L"MimeTypeAttribute - pAttr is null");
    }
    Reset();
    m_attr = CloneAttribute(const_cast<x509_attributes_st*>(attr));
    if (std::strcmp(GetOID().c_str(), kOidMimeType) != 0) {
        Reset();
        Fail(m_log, L"Decode: Attribute is no MIME-type attribute.", ErrAsn1Decoding);
    }
    const ASN1_TYPE* value =
        X509_ATTRIBUTE_count(m_attr) > 0 ? X509_ATTRIBUTE_get0_type(m_attr, 0) : nullptr;
    if (value == nullptr || value->type != V_ASN1_UTF8STRING ||
        value->value.utf8string == nullptr || ASN1_STRING_length(value->value.utf8string) <= 0) {
        return;
    }
    const ASN1_UTF8STRING* text = value->value.utf8string;
    m_mimeType = qorstd::text::NarrowToWide(
        reinterpret_cast<const char*>(ASN1_STRING_get0_data(text)),
        static_cast<unsigned int>(ASN1_STRING_length(text)), qorstd::text::kCharsetUtf8);
}

}  // namespace TesseraLib
