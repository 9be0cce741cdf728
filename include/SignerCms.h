// Everything a signing operation needs to know about one signer.
#pragma once

#include "CryptHash.h"
#include "QorVector.h"
#include "TesseraExport.h"
#include "X509Certificate.h"

namespace QorTsp2Lib {
class TspClient;
}

namespace TesseraLib {

class X509Store;

// A value: copies share the stores and the client (none is owned), which
// must outlive every signing that uses them.
class TESSERA_API SignerCms {
public:
    // Which of the signer's certificates go into the message; the extra list
    // (SetCertificates) is added in every case, after them.
    enum cptIncludeOption {
        cptIncludeNone = 0,               // none of the signer's
        cptIncludeSignerCertificate = 1,  // the signer certificate
        cptIncludeChainWithoutRoot = 2,   // the signer's path without its anchor
        cptIncludeWholeChain = 3          // the whole path
    };
    enum cptAttributeOption {
        cptAttributeNone = 0,    // no signed attributes: the content digest is signed
        cptAttributeDefault = 1  // message digest, content type and signing time
    };

    SignerCms();
    explicit SignerCms(const X509Certificate& certificate);
    SignerCms(const SignerCms& other) = default;
    SignerCms& operator=(const SignerCms& other) = default;
    virtual ~SignerCms();

    // Back to a new signer: no certificate, no stores or client, options 0.
    virtual void Reset();

    // The certificate must hold its private key when it signs.
    void SetCertificate(const X509Certificate& certificate) { m_certificate = certificate; }
    const X509Certificate& GetCertificate() const { return m_certificate; }
    void SetCertificates(const qorstd::QorVector<X509Certificate>& certificates) {
        m_certificates = certificates;
    }
    const qorstd::QorVector<X509Certificate>& GetCertificates() const { return m_certificates; }
    // Anchors and intermediates for the signer's path (include options 2
    // and 3, verify option 2).
    void SetTrustStore(X509Store* store) { m_trustStore = store; }
    X509Store* GetTrustStore() const { return m_trustStore; }
    void SetExtraStore(X509Store* store) { m_extraStore = store; }
    X509Store* GetExtraStore() const { return m_extraStore; }
    // cptHashNone: the digest of the certificate's own signature algorithm.
    void SetHashAlgorithm(CryptHash::cptHashAlgorithm algorithm) { m_hashAlgorithm = algorithm; }
    CryptHash::cptHashAlgorithm GetHashAlgorithm() const { return m_hashAlgorithm; }
    void SetIncludeOption(cptIncludeOption option) { m_includeOption = option; }
    cptIncludeOption GetIncludeOption() const { return m_includeOption; }
    void SetAttributeOption(cptAttributeOption option) { m_attributeOption = option; }
    cptAttributeOption GetAttributeOption() const { return m_attributeOption; }
    // How the signer certificate is checked before it signs, at the current
    // time: see SignedCms::AddSignerCms.
    void SetVerifyOption(X509Certificate::cptVerifyOption option) { m_verifyOption = option; }
    X509Certificate::cptVerifyOption GetVerifyOption() const { return m_verifyOption; }
    void SetTspClient(QorTsp2Lib::TspClient* client) { m_tspClient = client; }
    QorTsp2Lib::TspClient* GetTspClient() const { return m_tspClient; }

private:
    X509Certificate m_certificate;
    qorstd::QorVector<X509Certificate> m_certificates;
    // The defaults live here only: the constructor and Reset take them.
    X509Store* m_trustStore = nullptr;
    X509Store* m_extraStore = nullptr;
    CryptHash::cptHashAlgorithm m_hashAlgorithm = CryptHash::cptHashNone;
    cptIncludeOption m_includeOption = cptIncludeNone;
    cptAttributeOption m_attributeOption = cptAttributeNone;
    X509Certificate::cptVerifyOption m_verifyOption = X509Certificate::cptVerifyTimeValidity;
    QorTsp2Lib::TspClient* m_tspClient = nullptr;
};

}  // namespace TesseraLib
