// Helpers shared by the CRL clients' sources (internal).
#pragma once

#include <cstdint>

#include "LogChannel.h"
#include "QorString.h"

namespace TesseraLib {

class X509Certificate;

namespace crlclients {

// The certificate's subject on one line, for log lines.
qorstd::QorStringW Describe(const X509Certificate& cert);
// Logs "<operation>: Bad parameter - cert.GetX509() is null" and throws
// ErrInvalidParameter "cert.GetX509()=NULL" when `cert` has no handle.
void RequireHandle(const LogChannel& log, const X509Certificate& cert, const wchar_t* operation);

}  // namespace crlclients
}  // namespace TesseraLib
