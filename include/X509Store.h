// Certificate stores: the abstract source of certificates, CRLs and OCSP
// responses that path building reads, and its in-memory kind.
#pragma once

#include "OcspResponse.h"
#include "QorArray.h"
#include "QorVector.h"
#include "TesseraExport.h"
#include "X509Certificate.h"
#include "X509Crl.h"
#include "X509Name.h"

struct x509_store_st;

namespace TesseraLib {

// Path building and revocation checking read a store only through the
// virtual operations below. Lookups never throw for "not found": they return
// 0. Failures throw CryptException.
class TESSERA_API X509Store {
public:
    X509Store();
    // A copy starts without an OpenSSL store of its own.
    X509Store(const X509Store& other);
    // Drops the OpenSSL store built before, which no longer matches.
    X509Store& operator=(const X509Store& other);
    virtual ~X509Store();

    // Copies into `found` the first certificate (in GetCertificates() order)
    // whose subject equals `subject`; 0 when none does or `subject` is empty.
    virtual int FindCertificate(const X509Name& subject, X509Certificate& found) const;
    // Looks `cert` up among the store's own certificates and hands back the
    // stored one, with its private key only when `withPrivateKey` is not 0.
    virtual int FindCertificate(X509Certificate& cert, int withPrivateKey) = 0;
    // Copies into `issuer` the first certificate that OpenSSL accepts as the
    // issuer of `cert` (names, authority key identifier, key usage); 0 when
    // none does or `cert` is empty.
    virtual int FindIssuer(const X509Certificate& cert, X509Certificate& issuer) const;
    virtual qorstd::QorVector<X509Certificate> GetCertificates() const = 0;
    // No CRLs and no OCSP responses unless a store overrides these.
    virtual qorstd::QorVector<X509Crl> GetCrls() const;
    virtual QorOcsp2Lib::OcspVector<QorOcsp2Lib::OcspResponse> GetOcspResponses() const;
    // An OpenSSL store holding every certificate (no CRLs), built anew on
    // each call: the handle returned by an earlier call is freed and must not
    // be used any more. Owned by this object. A certificate object without
    // certificate → ErrInternal "cert.GetX509()=NULL".
    virtual x509_store_st* GetX509Store();

protected:
    // Frees the OpenSSL store.
    virtual void FreeStore();

private:
    x509_store_st* m_x509Store;  // owned, null until built
};

// Certificates (with their private keys, if any), CRLs and OCSP responses
// held in memory, each list in insertion order. Nothing is ever
// de-duplicated: adding an object twice stores it twice.
class TESSERA_API X509MemoryStore : public X509Store {
public:
    X509MemoryStore();
    X509MemoryStore(const X509MemoryStore& other);
    X509MemoryStore& operator=(const X509MemoryStore& other);
    // ImportPEM.
    explicit X509MemoryStore(const char* pem);
    // ImportPKCS12.
    X509MemoryStore(const unsigned char* data, long size, const char* password);
    X509MemoryStore(const unsigned char* data, long size, const wchar_t* password);
    ~X509MemoryStore() override;

    // Append copies, in the given order.
    void AddCertificate(const X509Certificate& cert);
    void AddCertificateRange(const qorstd::QorVector<X509Certificate>& certs);
    void AddCrl(const X509Crl& crl);
    void AddCrlRange(const qorstd::QorVector<X509Crl>& crls);
    void AddOcspResponse(const QorOcsp2Lib::OcspResponse& response);
    void AddOcspResponseRange(const QorOcsp2Lib::OcspVector<QorOcsp2Lib::OcspResponse>& responses);

    // Remove the first stored element equal to the argument (nothing when
    // none is); the range forms remove at most one element per argument.
    void RemoveCertificate(const X509Certificate& cert);
    void RemoveCertificateRange(const qorstd::QorVector<X509Certificate>& certs);
    void RemoveCrl(const X509Crl& crl);
    void RemoveCrlRange(const qorstd::QorVector<X509Crl>& crls);
    void RemoveOcspResponse(const QorOcsp2Lib::OcspResponse& response);
    void RemoveOcspResponseRange(
        const QorOcsp2Lib::OcspVector<QorOcsp2Lib::OcspResponse>& responses);

    int FindCertificate(const X509Name& subject, X509Certificate& found) const override;
    // The first stored certificate equal to `cert` replaces `cert`; without
    // `withPrivateKey` the copy handed back loses its key (the stored one
    // keeps it). 0 when none is equal.
    int FindCertificate(X509Certificate& cert, int withPrivateKey) override;
    int FindIssuer(const X509Certificate& cert, X509Certificate& issuer) const override;
    qorstd::QorVector<X509Certificate> GetCertificates() const override;
    // The held certificates themselves, without copying them; valid until
    // the store changes.
    const qorstd::QorVector<X509Certificate>& GetCertificateList() const { return m_certificates; }
    qorstd::QorVector<X509Crl> GetCrls() const override;
    QorOcsp2Lib::OcspVector<QorOcsp2Lib::OcspResponse> GetOcspResponses() const override;

    // Replaces the certificates (CRLs and OCSP responses stay) with the
    // PEM certificate blocks of the text, read in order up to its end or up
    // to the first block that is not a readable certificate, where reading
    // stops without error. Null → ErrInvalidParameter "pData=NULL", "" →
    // "nDataLength<=0".
    void ImportPEM(const char* pem);
    // Replaces the certificates with those of a DER PKCS#12 structure: the
    // end-entity certificate first, with its private key, then the others in
    // file order, without keys. Null → ErrInvalidParameter "pData=NULL",
    // size <= 0 → "nSize<=0"; not PKCS#12 → ErrPkcs12Decoding; wrong
    // password → ErrIncorrectPassword; otherwise unreadable →
    // ErrPkcs12Parsing; a key that is neither RSA nor EC → ErrPrivateKeyRead.
    // Past the decoding step a failure leaves the store without certificates.
    void ImportPKCS12(const unsigned char* data, long size, const char* password);
    // The password must be ASCII, else ErrPasswordInvalidChars.
    void ImportPKCS12(const unsigned char* data, long size, const wchar_t* password);

protected:
    // Frees the OpenSSL store and drops every certificate.
    void FreeStore() override;

private:
    qorstd::QorVector<X509Certificate> m_certificates;
    qorstd::QorVector<X509Crl> m_crls;
    QorOcsp2Lib::OcspVector<QorOcsp2Lib::OcspResponse> m_ocspResponses;
};

}  // namespace TesseraLib
