// OID texts of OpenSSL objects, shared by the CMS classes (internal).
#pragma once

#include <openssl/err.h>
#include <openssl/objects.h>

#include <vector>

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
    return ObjectText(object, 1);
}

// The long name ("sha384"), or the numeric form for an object OpenSSL does
// not know.
inline qorstd::QorString OidName(const ASN1_OBJECT* object) {
    return ObjectText(object, 0);
}

}  // namespace cms
}  // namespace TesseraLib
