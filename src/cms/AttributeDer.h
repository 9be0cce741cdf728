// The DER form of the attribute classes' Decode (internal): one attribute,
// nothing after it, handed to the class's own attribute form.
#pragma once

#include <functional>

#include "QorArray.h"

struct x509_attributes_st;

namespace TesseraLib {

class LogChannel;

namespace cms {

// An empty `der` → ErrInvalidParameter `emptyMessage` ("Decode: Bad
// parameter - attr is empty" on `log`, which may be null); bytes that are
// no attribute → `reset`, then ErrAsn1Decoding; otherwise `decode` with the
// attribute, which is freed afterwards either way.
void DecodeAttributeDer(const LogChannel* log, const qorstd::QorArray<unsigned char>& der,
                        const wchar_t* emptyMessage, const std::function<void()>& reset,
                        const std::function<void(const x509_attributes_st*)>& decode);

}  // namespace cms
}  // namespace TesseraLib
