// Argument checks and log helpers shared by the OCSP clients (internal).
#pragma once

#include "CryptException.h"
#include "Failure.h"
#include "LogChannel.h"
#include "OcspResponse.h"
#include "X509Certificate.h"
#include "X509Store.h"

namespace TesseraLib {
namespace ocspclient {

// Both certificates of a request must carry a certificate: Error
// "<operation>: Bad parameter - cert.GetX509() is null" and
// ErrInvalidParameter "cert.GetX509()=NULL" (the same for the issuer).
inline void CheckHandles(const LogChannel& log, const wchar_t* operation,
                         const X509Certificate& cert, const X509Certificate& issuer) {
    if (cert.GetX509() == nullptr) {
        TLOG_ERROR(log, L"%ls: Bad parameter - cert.GetX509() is null", operation);
        Fail(ErrInvalidParameter, L"cert.GetX509()=NULL");
    }
    if (issuer.GetX509() == nullptr) {
        TLOG_ERROR(log, L"%ls: Bad parameter - issuer.GetX509() is null", operation);
        Fail(ErrInvalidParameter, L"issuer.GetX509()=NULL");
    }
}

// Appends the store's certificates to `out`: the certificates the OCSP
// library trusts for response signatures. Nothing without a store. A
// certificate object without certificate: Error "<operation>: px509 is null"
// and ErrInternal "px509=NULL".
inline void AppendTrustedCertificates(const LogChannel& log, const wchar_t* operation,
                                      const X509Store* store,
                                      QorOcsp2Lib::OcspVector<QorOcsp2Lib::OcspCertificate>& out) {
    if (store == nullptr) {
        return;
    }
    const qorstd::QorVector<X509Certificate> certificates = store->GetCertificates();
    for (unsigned int i = 0; i < certificates.GetSize(); ++i) {
        const X509Certificate& cert = certificates.GetAt(i);
        if (cert.GetX509() == nullptr) {
            TLOG_ERROR(log, L"%ls: px509 is null", operation);
            Fail(ErrInternal, L"px509=NULL");
        }
        out.Add(QorOcsp2Lib::OcspCertificate(cert.GetX509()));
    }
}

}  // namespace ocspclient
}  // namespace TesseraLib
