// Dotted OID text of an OpenSSL object, shared by the CMS classes (internal).
#pragma once

#include <openssl/err.h>
#include <openssl/objects.h>

#include <vector>

#include "QorString.h"

namespace TesseraLib {
namespace cms {

// Numeric form only ("1.2.840.113549.1.7.1"), any length; empty for null or
// an object OpenSSL cannot print.
inline qorstd::QorString OidText(const ASN1_OBJECT* object) {
    const int length = object != nullptr ? OBJ_obj2txt(nullptr, 0, object, 1) : 0;
    if (length <= 0) {
        ERR_clear_error();
        return qorstd::QorString();
    }
    std::vector<char> text(static_cast<std::size_t>(length) + 1, '\0');
    if (OBJ_obj2txt(text.data(), length + 1, object, 1) != length) {
        ERR_clear_error();
        return qorstd::QorString();
    }
    return qorstd::QorString(text.data());
}

}  // namespace cms
}  // namespace TesseraLib
