// Argument checks and log helpers shared by the OCSP clients (internal).
#pragma once

#include "CryptException.h"
#include "LogChannel.h"
#include "X509Certificate.h"

namespace TesseraLib {
namespace ocspclient {

// Both certificates of a request must carry a certificate: Error
// "<operation>: Bad parameter - cert.GetX509() is null" and
// ErrInvalidParameter "cert.GetX509()=NULL" (the same for the issuer).
inline void CheckHandles(const LogChannel& log, const wchar_t* operation,
                         const X509Certificate& cert, const X509Certificate& issuer) {
    if (cert.GetX509() == nullptr) {
        if (log.IsErrorEnabled()) {
            log.WriteFormat(LogLevel::Error, L"%ls: Bad parameter - cert.GetX509() is null",
                            operation);
        }
        CryptException::Throw(ErrInvalidParameter, L"cert.GetX509()=NULL");
    }
    if (issuer.GetX509() == nullptr) {
        if (log.IsErrorEnabled()) {
            log.WriteFormat(LogLevel::Error, L"%ls: Bad parameter - issuer.GetX509() is null",
                            operation);
        }
        CryptException::Throw(ErrInvalidParameter, L"issuer.GetX509()=NULL");
    }
}

}  // namespace ocspclient
}  // namespace TesseraLib
