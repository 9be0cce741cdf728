#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/x509.h>

#include <cstring>
#include <memory>

#include "CryptException.h"
#include "CryptKey.h"
#include "CryptKey/KeyInternals.h"
#include "Failure.h"
#include "OpenSslPtr.h"
#include "QorDer.h"
#include "QorTextConv.h"
#include "X509Store.h"
#include "x509/X509Bytes.h"

namespace TesseraLib {

namespace {

// Index of the first element equal to `item`, or -1.
template <class T, class Equal>
long FirstEqual(const qorstd::QorVector<T>& items, const T& item, Equal equal) {
    for (unsigned i = 0; i < items.GetSize(); ++i) {
        if (equal(items.GetAt(i), item)) {
            return static_cast<long>(i);
        }
    }
    return -1;
}

bool SameCertificate(const X509Certificate& a, const X509Certificate& b) {
    return a.Equals(b) == 1;
}

bool SameCrl(const X509Crl& a, const X509Crl& b) {
    return a.Equals(b) == 1;
}

bool SameResponse(const QorOcsp2Lib::OcspResponse& a, const QorOcsp2Lib::OcspResponse& b) {
    return a == b;
}

template <class T, class Equal>
void RemoveFirstEqual(qorstd::QorVector<T>& items, const T& item, Equal equal) {
    const long index = FirstEqual(items, item, equal);
    if (index >= 0) {
        items.RemoveAt(static_cast<unsigned>(index));
    }
}

// The next PEM block of `bio` when it is a certificate; null at the end of
// the text or at any other block.
X509Ptr ReadCertificateBlock(BIO* bio) {
    char* name = nullptr;
    char* header = nullptr;
    unsigned char* data = nullptr;
    long length = 0;
    const int read = PEM_read_bio(bio, &name, &header, &data, &length);
    OpenSslTextPtr nameOwner(name);
    OpenSslTextPtr headerOwner(header);
    OpenSslBytesPtr dataOwner(data);
    if (read != 1 || length <= 0) {
        return X509Ptr();
    }
    if (std::strcmp(name, PEM_STRING_X509) != 0 && std::strcmp(name, PEM_STRING_X509_OLD) != 0) {
        return X509Ptr();
    }
    return qorssl::DecodeWhole<X509Ptr>(d2i_X509, data, length);
}

}  // namespace

X509MemoryStore::X509MemoryStore() = default;

X509MemoryStore::X509MemoryStore(const X509MemoryStore& other)
    : X509Store(other),
      m_certificates(other.m_certificates),
      m_crls(other.m_crls),
      m_ocspResponses(other.m_ocspResponses) {}

X509MemoryStore& X509MemoryStore::operator=(const X509MemoryStore& other) {
    if (this != &other) {
        X509Store::operator=(other);
        m_certificates = other.m_certificates;
        m_crls = other.m_crls;
        m_ocspResponses = other.m_ocspResponses;
    }
    return *this;
}

X509MemoryStore::X509MemoryStore(const char* pem) {
    ImportPEM(pem);
}

X509MemoryStore::X509MemoryStore(const unsigned char* data, long size, const char* password) {
    ImportPKCS12(data, size, password);
}

X509MemoryStore::X509MemoryStore(const unsigned char* data, long size, const wchar_t* password) {
    ImportPKCS12(data, size, password);
}

X509MemoryStore::~X509MemoryStore() {
    X509Store::FreeStore();
}

void X509MemoryStore::FreeStore() {
    X509Store::FreeStore();
    m_certificates.RemoveAll();
}

void X509MemoryStore::AddCertificate(const X509Certificate& cert) {
    m_certificates.Add(cert);
}

void X509MemoryStore::AddCertificateRange(const qorstd::QorVector<X509Certificate>& certs) {
    for (unsigned i = 0; i < certs.GetSize(); ++i) {
        m_certificates.Add(certs.GetAt(i));
    }
}

void X509MemoryStore::AddCrl(const X509Crl& crl) {
    m_crls.Add(crl);
}

void X509MemoryStore::AddCrlRange(const qorstd::QorVector<X509Crl>& crls) {
    for (unsigned i = 0; i < crls.GetSize(); ++i) {
        m_crls.Add(crls.GetAt(i));
    }
}

void X509MemoryStore::AddOcspResponse(const QorOcsp2Lib::OcspResponse& response) {
    m_ocspResponses.Add(response);
}

void X509MemoryStore::AddOcspResponseRange(
    const QorOcsp2Lib::OcspVector<QorOcsp2Lib::OcspResponse>& responses) {
    for (unsigned i = 0; i < responses.GetSize(); ++i) {
        m_ocspResponses.Add(responses.GetAt(i));
    }
}

void X509MemoryStore::RemoveCertificate(const X509Certificate& cert) {
    RemoveFirstEqual(m_certificates, cert, SameCertificate);
}

void X509MemoryStore::RemoveCertificateRange(const qorstd::QorVector<X509Certificate>& certs) {
    for (unsigned i = 0; i < certs.GetSize(); ++i) {
        RemoveFirstEqual(m_certificates, certs.GetAt(i), SameCertificate);
    }
}

void X509MemoryStore::RemoveCrl(const X509Crl& crl) {
    RemoveFirstEqual(m_crls, crl, SameCrl);
}

void X509MemoryStore::RemoveCrlRange(const qorstd::QorVector<X509Crl>& crls) {
    for (unsigned i = 0; i < crls.GetSize(); ++i) {
        RemoveFirstEqual(m_crls, crls.GetAt(i), SameCrl);
    }
}

void X509MemoryStore::RemoveOcspResponse(const QorOcsp2Lib::OcspResponse& response) {
    RemoveFirstEqual<QorOcsp2Lib::OcspResponse>(m_ocspResponses, response, SameResponse);
}

void X509MemoryStore::RemoveOcspResponseRange(
    const QorOcsp2Lib::OcspVector<QorOcsp2Lib::OcspResponse>& responses) {
    for (unsigned i = 0; i < responses.GetSize(); ++i) {
        RemoveFirstEqual<QorOcsp2Lib::OcspResponse>(m_ocspResponses, responses.GetAt(i),
                                                    SameResponse);
    }
}

int X509MemoryStore::FindCertificate(const X509Name& subject, X509Certificate& found) const {
    if (subject.GetX509Name() == nullptr) {
        return 0;
    }
    for (unsigned i = 0; i < m_certificates.GetSize(); ++i) {
        if (m_certificates.GetAt(i).GetSubjectName().Equals(subject) == 1) {
            found = m_certificates.GetAt(i);
            return 1;
        }
    }
    return 0;
}

int X509MemoryStore::FindCertificate(X509Certificate& cert, int withPrivateKey) {
    const long index = FirstEqual(m_certificates, cert, SameCertificate);
    if (index < 0) {
        return 0;
    }
    cert = m_certificates.GetAt(static_cast<unsigned>(index));
    if (withPrivateKey == 0) {
        cert.SetPrivateKey(nullptr);
    }
    return 1;
}

int X509MemoryStore::FindIssuer(const X509Certificate& cert, X509Certificate& issuer) const {
    if (cert.GetX509() == nullptr) {
        return 0;
    }
    // The base would copy the list first.
    const X509Certificate* found = x509::FindIssuerIn(m_certificates, cert.GetX509());
    if (found == nullptr) {
        return 0;
    }
    issuer = *found;
    return 1;
}

qorstd::QorVector<X509Certificate> X509MemoryStore::GetCertificates() const {
    return m_certificates;
}

qorstd::QorVector<X509Crl> X509MemoryStore::GetCrls() const {
    return m_crls;
}

QorOcsp2Lib::OcspVector<QorOcsp2Lib::OcspResponse> X509MemoryStore::GetOcspResponses() const {
    return m_ocspResponses;
}

void X509MemoryStore::ImportPEM(const char* pem) {
    if (pem == nullptr) {
        Fail(ErrInvalidParameter, L"pData=NULL");
    }
    if (pem[0] == '\0') {
        Fail(ErrInvalidParameter, L"nDataLength<=0");
    }
    // -1: OpenSSL measures the text itself, whatever its length.
    BioPtr bio(BIO_new_mem_buf(pem, -1));
    if (!bio) {
        Fail(ErrOutOfMemory, L"pBioKey=NULL");
    }
    FreeStore();
    for (X509Ptr certificate = ReadCertificateBlock(bio.get()); certificate;
         certificate = ReadCertificateBlock(bio.get())) {
        m_certificates.Add(X509Certificate(certificate.get()));
    }
    // The end of the text, or a block that is no certificate, ends the list.
    ERR_clear_error();
}

void X509MemoryStore::ImportPKCS12(const unsigned char* data, long size, const char* password) {
    if (data == nullptr) {
        Fail(ErrInvalidParameter, L"pData=NULL");
    }
    if (size <= 0) {
        Fail(ErrInvalidParameter, L"nSize<=0");
    }
    Pkcs12Ptr pkcs12 = keys::DecodePkcs12(data, size);
    if (!pkcs12) {
        Fail(ErrPkcs12Decoding);
    }
    FreeStore();
    ERR_clear_error();
    EVP_PKEY* key = nullptr;
    X509* certificate = nullptr;
    STACK_OF(X509)* others = nullptr;
    const int parsed = PKCS12_parse(pkcs12.get(), password, &key, &certificate, &others);
    EvpPkeyPtr keyOwner(key);
    X509Ptr certificateOwner(certificate);
    X509StackPtr othersOwner(others);
    if (parsed != 1) {
        Fail(keys::TakePkcs12MacError() ? ErrIncorrectPassword : ErrPkcs12Parsing);
    }
    if (certificateOwner) {
        X509Certificate endEntity(certificateOwner.get());
        if (keyOwner) {
            const std::unique_ptr<CryptKey> wrapped(CryptKey::CreateKey(keyOwner.get()));
            if (!wrapped) {
                Fail(ErrPrivateKeyRead);
            }
            endEntity.SetPrivateKey(wrapped.get());
        }
        m_certificates.Add(endEntity);
    }
    for (int i = 0; i < sk_X509_num(othersOwner.get()); ++i) {
        m_certificates.Add(X509Certificate(sk_X509_value(othersOwner.get(), i)));
    }
}

void X509MemoryStore::ImportPKCS12(const unsigned char* data, long size, const wchar_t* password) {
    qorstd::QorString ascii;
    if (password != nullptr) {
        ascii = qorstd::text::WideToNarrow(password, true);
        if (password[0] != L'\0' && ascii.empty()) {
            Fail(ErrPasswordInvalidChars);
        }
    }
    ImportPKCS12(data, size, password != nullptr ? ascii.c_str() : nullptr);
}

}  // namespace TesseraLib
