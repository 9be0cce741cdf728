#include "X509Store.h"

#include <openssl/err.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include "CryptException.h"
#include "Failure.h"
#include "OpenSslPtr.h"
#include "x509/X509Bytes.h"

namespace TesseraLib {

X509Store::X509Store() : m_x509Store(nullptr) {}

X509Store::X509Store(const X509Store& /*other*/) : m_x509Store(nullptr) {}

X509Store& X509Store::operator=(const X509Store& other) {
    if (this != &other) {
        X509Store::FreeStore();
    }
    return *this;
}

X509Store::~X509Store() {
    X509Store::FreeStore();
}

void X509Store::FreeStore() {
    X509_STORE_free(m_x509Store);
    m_x509Store = nullptr;
}

int X509Store::FindCertificate(const X509Name& subject, X509Certificate& found) const {
    if (subject.GetX509Name() == nullptr) {
        return 0;
    }
    const qorstd::QorVector<X509Certificate> certificates = GetCertificates();
    for (unsigned i = 0; i < certificates.GetSize(); ++i) {
        if (certificates.GetAt(i).GetSubjectName().Equals(subject) == 1) {
            found = certificates.GetAt(i);
            return 1;
        }
    }
    return 0;
}

int X509Store::FindIssuer(const X509Certificate& cert, X509Certificate& issuer) const {
    if (cert.GetX509() == nullptr) {
        return 0;
    }
    const qorstd::QorVector<X509Certificate> certificates = GetCertificates();
    const X509Certificate* found = x509::FindIssuerIn(certificates, cert.GetX509());
    if (found == nullptr) {
        return 0;
    }
    issuer = *found;
    return 1;
}

qorstd::QorVector<X509Crl> X509Store::GetCrls() const {
    return qorstd::QorVector<X509Crl>();
}

QorOcsp2Lib::OcspVector<QorOcsp2Lib::OcspResponse> X509Store::GetOcspResponses() const {
    return QorOcsp2Lib::OcspVector<QorOcsp2Lib::OcspResponse>();
}

X509_STORE* X509Store::GetX509Store() {
    // Only the handle goes: a derived FreeStore may drop content as well.
    X509Store::FreeStore();
    X509StorePtr store(X509_STORE_new());
    if (!store) {
        Fail(ErrInternal, L"m_pX509Store=NULL");
    }
    const qorstd::QorVector<X509Certificate> certificates = GetCertificates();
    for (unsigned i = 0; i < certificates.GetSize(); ++i) {
        X509* certificate = certificates.GetAt(i).GetX509();
        if (certificate == nullptr) {
            Fail(ErrInternal, L"cert.GetX509()=NULL");
        }
        // A certificate already in the store is refused; the store then holds
        // it once, which is all path building needs.
        X509_STORE_add_cert(store.get(), certificate);
    }
    ERR_clear_error();
    m_x509Store = store.release();
    return m_x509Store;
}

}  // namespace TesseraLib
