// Byte helpers shared by the X.509 classes (internal).
#pragma once

#include "QorArray.h"
#include "QorString.h"

namespace TesseraLib {
namespace x509 {

// Two lower-case hexadecimal digits per byte, no separators; empty for no bytes.
qorstd::QorString LowerHex(const qorstd::QorArray<unsigned char>& bytes);

// SHA-1 of `bytes`; empty for no bytes.
qorstd::QorArray<unsigned char> Sha1(const qorstd::QorArray<unsigned char>& bytes);

}  // namespace x509
}  // namespace TesseraLib
