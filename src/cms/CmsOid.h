// OID texts of OpenSSL objects, shared by the CMS classes (internal).
#pragma once

#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/objects.h>

#include <cstring>
#include <string>
#include <vector>

#include "QorOid.h"
#include "QorString.h"

namespace TesseraLib {
namespace cms {

// OpenSSL's text of an object, any length: numeric only, or its long name
// when OpenSSL knows one. Empty for null or an object OpenSSL cannot print.
inline qorstd::QorString ObjectText(const ASN1_OBJECT* object, int numericOnly) {
    const int length = object != nullptr ? OBJ_obj2txt(nullptr, 0, object, numericOnly) : 0;
    if (length <= 0) {
        ERR_clear_error();
        return qorstd::QorString();
    }
    std::vector<char> text(static_cast<std::size_t>(length) + 1, '\0');
    if (OBJ_obj2txt(text.data(), length + 1, object, numericOnly) != length) {
        ERR_clear_error();
        return qorstd::QorString();
    }
    return qorstd::QorString(text.data());
}

// Numeric form only ("1.2.840.113549.1.7.1").
inline qorstd::QorString OidText(const ASN1_OBJECT* object) {
    std::string text;
    const int length = object != nullptr ? OBJ_length(object) : 0;
    if (length > 0 &&
        qoroid::DerToText(OBJ_get0_data(object), static_cast<std::size_t>(length), &text)) {
        return qorstd::QorString(text.c_str());
    }
    return ObjectText(object, 1);
}

// The long name ("sha384"), or the numeric form for an object OpenSSL does
// not know.
inline qorstd::QorString OidName(const ASN1_OBJECT* object) {
    return ObjectText(object, 0);
}

// The content octets of a dotted OID text, to look attributes up by bytes
// instead of building an object per look-up. Empty when neither the plain
// reader nor OpenSSL reads the text.
inline std::vector<unsigned char> OidBytes(const char* oid) {
    std::vector<unsigned char> der;
    if (qoroid::TextToDer(oid, &der)) {
        return der;
    }
    // What the plain reader refuses goes to OpenSSL, which decides.
    der.clear();
    ASN1_OBJECT* object = oid != nullptr ? OBJ_txt2obj(oid, 1) : nullptr;
    if (object == nullptr) {
        ERR_clear_error();
        return der;
    }
    const unsigned char* data = OBJ_get0_data(object);
    der.assign(data, data + OBJ_length(object));
    ASN1_OBJECT_free(object);
    return der;
}

inline bool IsOid(const ASN1_OBJECT* object, const std::vector<unsigned char>& der) {
    return object != nullptr && OBJ_length(object) == der.size() &&
           (der.empty() || std::memcmp(OBJ_get0_data(object), der.data(), der.size()) == 0);
}

// The position of the next attribute of type `der` after `last` (-1 to
// start), or -1: CMS_signed_get_attr_by_OBJ and its unsigned twin on bytes.
inline int SignedAttrByOid(const CMS_SignerInfo* signer, const std::vector<unsigned char>& der,
                           int last) {
    CMS_SignerInfo* si = const_cast<CMS_SignerInfo*>(signer);
    const int count = CMS_signed_get_attr_count(si);
    for (int i = last < 0 ? 0 : last + 1; i < count; ++i) {
        if (IsOid(X509_ATTRIBUTE_get0_object(CMS_signed_get_attr(si, i)), der)) {
            return i;
        }
    }
    return -1;
}

inline int UnsignedAttrByOid(const CMS_SignerInfo* signer, const std::vector<unsigned char>& der,
                             int last) {
    CMS_SignerInfo* si = const_cast<CMS_SignerInfo*>(signer);
    const int count = CMS_unsigned_get_attr_count(si);
    for (int i = last < 0 ? 0 : last + 1; i < count; ++i) {
        if (IsOid(X509_ATTRIBUTE_get0_object(CMS_unsigned_get_attr(si, i)), der)) {
            return i;
        }
    }
    return -1;
}

}  // namespace cms
}  // namespace TesseraLib
