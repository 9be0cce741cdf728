// MimeTypeAttribute::Decode over arbitrary bytes: a decoded attribute must
// survive its own encoding unchanged, and its MIME type must make an
// attribute that reads back as the same text. Every refusal must be a
// CryptException with one of the codes the operations document — never a
// crash, leak, hang or another exception type.
#include <openssl/err.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cwchar>
#include <initializer_list>

#include "CryptException.h"
#include "MimeTypeAttribute.h"

using namespace TesseraLib;

namespace {

void ExpectCode(const CryptException& e, std::initializer_list<int> documented) {
    for (const int code : documented) {
        if (e.GetErrorCode() == code) {
            return;
        }
    }
    std::abort();  // a failure with a code the operation does not document
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 1u << 16) {
        return 0;
    }
    MimeTypeAttribute attr;
    try {
        attr.Decode(qorstd::QorArray<unsigned char>(data, static_cast<unsigned int>(size)));
    } catch (const CryptException& e) {
        ExpectCode(e, {ErrInvalidParameter, ErrAsn1Decoding});
        if (attr.GetX509Attr() != nullptr || !attr.GetMimeTypeString().empty()) {
            std::abort();  // a failed decode leaves the object empty
        }
        return 0;
    }
    const qorstd::QorStringW& text = attr.GetMimeTypeString();
    MimeTypeAttribute again;
    again.Decode(attr.Encode());
    if (again.GetMimeTypeString() != text) {
        std::abort();  // the encoding changed the attribute
    }
    try {
        (void)attr.GetValue();
    } catch (const CryptException& e) {
        ExpectCode(e, {ErrAsn1Decoding, ErrInternal});
    }
    // A text without NUL characters makes an attribute that reads back as it.
    if (!text.empty() && std::wcslen(text.c_str()) == text.length()) {
        MimeTypeAttribute built(text.c_str());
        again.Decode(built.Encode());
        if (again.GetMimeTypeString() != text) {
            std::abort();
        }
    }
    ERR_clear_error();
    return 0;
}
