// Small helpers shared by the X.509 and CMS classes (internal).
#pragma once

#include <cstdint>

#include "QorArray.h"
#include "QorString.h"
#include "QorVector.h"
#include "X509Certificate.h"

struct x509_st;

namespace TesseraLib {
namespace x509 {

// Two lower-case hexadecimal digits per byte, no separators; empty for no bytes.
qorstd::QorString LowerHex(const qorstd::QorArray<unsigned char>& bytes);

// SHA-1 of `bytes`; empty for no bytes.
qorstd::QorArray<unsigned char> Sha1(const qorstd::QorArray<unsigned char>& bytes);

// Text of the process code set (serial numbers, OIDs, statuses) as wide text.
qorstd::QorStringW Widen(const qorstd::QorString& text);

// Seconds since 1970 as "%d.%m.%Y %H:%M:%S" (UTC), the form of times in log lines.
qorstd::QorStringW FormatLogTime(std::int64_t time);

// True when `issuer` issued `subject` by name, key identifier and key usage
// (OpenSSL's issuer check); a self-signed certificate issued itself.
bool IsIssuedBy(const x509_st* issuer, const x509_st* subject);

// The first of `certificates` that issued `subject`; null when none did.
const X509Certificate* FindIssuerIn(const qorstd::QorVector<X509Certificate>& certificates,
                                    const x509_st* subject);

}  // namespace x509
}  // namespace TesseraLib
