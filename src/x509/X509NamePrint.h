// Printing and listing distinguished names (internal; shared by X509Name and
// the certificate class).
#pragma once

#include <openssl/x509.h>

#include <string>
#include <vector>

#include "QorString.h"

namespace TesseraLib {
namespace x509 {

// The flag set a caller's 0 stands for: "," between RDNs, "+" inside a
// multi-valued one, attribute types OpenSSL does not know dumped as "#" + DER.
constexpr unsigned long kNamePrintDefaultFlags = 0x1010000UL;
// Always added: RFC 2253 escaping, control characters and high bytes escaped,
// values converted to UTF-8 first, unknown string types dumped as DER.
constexpr unsigned long kNamePrintEscapeFlags = 0x317UL;
// X509Name::GetStringX500: the default set with quoting instead of escaping.
constexpr int kNamePrintX500Flags = 0x1010008;

// Prints `name` on one line with OpenSSL's name printer (indent 0, flag set
// `flags` or the default for 0, plus the escaping flags), undoes the escapes
// and widens the UTF-8 result. Returns false, leaving `out` untouched, when
// OpenSSL cannot print the name or the result is not valid UTF-8. An empty
// name prints as an empty text.
bool PrintName(const X509_NAME* name, int flags, qorstd::QorStringW& out);

// Undoes the escapes of the printer: backslash + two hexadecimal digits is
// that byte, backslash + any other character is that character.
std::string UnescapePrintedName(const std::string& printed);

struct NameEntry {
    std::string oid;    // dotted, never a short name
    std::string value;  // UTF-8
};

// The entries of `name` in encoded order. A value OpenSSL cannot convert to
// UTF-8 keeps its readable characters and has every one that does not convert
// replaced by a blank. Returns false when an entry or its type cannot be read.
bool ListNameEntries(const X509_NAME* name, std::vector<NameEntry>& entries);

// Whether every entry of `name` can be read: it has a type and a value, and
// a type OpenSSL does not know prints as a dotted OID. False for null.
bool NameEntriesReadable(const X509_NAME* name);

// One value as UTF-8 by the rule above.
std::string NameValueToUtf8(const ASN1_STRING* value);

}  // namespace x509
}  // namespace TesseraLib
