// The building blocks that examine one CAdES signer: format checking,
// identification of the signing certificate, validation context
// initialisation, cryptographic verification and signature acceptance.
// A block takes its inputs through setters (pointers are borrowed), runs
// once per Process() and leaves every outcome, missing inputs included, in
// its report: results are values, never exceptions.
#pragma once

#include <memory>

#include "QorArray.h"
#include "QorString.h"
#include "QorVector.h"
#include "SignedCades.h"
#include "SigningCertificateAttribute.h"
#include "TesseraExport.h"
#include "ValidationBlockReport.h"
#include "X509Certificate.h"

namespace TesseraLib {

class LogChannel;
class X509Chain;

class TESSERA_API ValidationBlock {
public:
    virtual void Process() = 0;

protected:
    ValidationBlock() = default;
    ValidationBlock(const ValidationBlock&) = default;
    ValidationBlock& operator=(const ValidationBlock&) = default;
    ~ValidationBlock() = default;
};

class TESSERA_API CadesFormatCheckingBlock : public ValidationBlock {
public:
    CadesFormatCheckingBlock();
    CadesFormatCheckingBlock(const CadesFormatCheckingBlock& other);
    CadesFormatCheckingBlock& operator=(const CadesFormatCheckingBlock& other);
    ~CadesFormatCheckingBlock();

    void SetSignedCades(const SignedCades* signedCades) { m_signedCades = signedCades; }
    const FormatCheckingReport& GetFormatCheckingReport() const { return m_report; }

    void Process() override;

private:
    const SignedCades* m_signedCades;
    FormatCheckingReport m_report;
    std::unique_ptr<LogChannel> m_log;
};

// Finds the signer's certificate and matches it against the signer's
// signing-certificate attribute; the certificate found is the block's
// result.
class TESSERA_API CadesSigningCertificateIdentificationBlock : public ValidationBlock {
public:
    CadesSigningCertificateIdentificationBlock();
    CadesSigningCertificateIdentificationBlock(
        const CadesSigningCertificateIdentificationBlock& other);
    CadesSigningCertificateIdentificationBlock& operator=(
        const CadesSigningCertificateIdentificationBlock& other);
    ~CadesSigningCertificateIdentificationBlock();

    void SetSignature(SignedCades::SignerInfo* signature) { m_signature = signature; }
    // A certificate to look for when the message carries none for the signer.
    void SetSigningCertificate(const X509Certificate& certificate) {
        m_signingCertificate = certificate;
    }
    const X509Certificate& GetSigningCertificate() const { return m_signingCertificate; }
    const SigningCertificateIdentificationReport& GetSigningCertificateIdentificationReport()
        const {
        return m_report;
    }

    void Process() override;

private:
    SignedCades::SignerInfo* m_signature;
    X509Certificate m_signingCertificate;
    SigningCertificateIdentificationReport m_report;
    std::unique_ptr<LogChannel> m_log;
};

class TESSERA_API CadesValidationContextInitializationBlock : public ValidationBlock {
public:
    // The one signature validation policy the blocks implement.
    static const char kDefaultValidationPolicyOid[];

    CadesValidationContextInitializationBlock();
    CadesValidationContextInitializationBlock(
        const CadesValidationContextInitializationBlock& other);
    CadesValidationContextInitializationBlock& operator=(
        const CadesValidationContextInitializationBlock& other);
    ~CadesValidationContextInitializationBlock();

    void SetSignature(SignedCades::SignerInfo* signature) { m_signature = signature; }
    void SetValidationPolicyOID(const qorstd::QorString& oid) { m_validationPolicyOid = oid; }
    const ValidationContextInitializationReport& GetValidationContextInitializationReport() const {
        return m_report;
    }

    void Process() override;

private:
    SignedCades::SignerInfo* m_signature;
    qorstd::QorString m_validationPolicyOid;
    ValidationContextInitializationReport m_report;
    std::unique_ptr<LogChannel> m_log;
};

// Verifies the signature value with the given certificate, over the content
// or over the caller's digest of it.
class TESSERA_API CadesCryptographicVerificationBlock : public ValidationBlock {
public:
    CadesCryptographicVerificationBlock();
    CadesCryptographicVerificationBlock(const CadesCryptographicVerificationBlock& other);
    CadesCryptographicVerificationBlock& operator=(
        const CadesCryptographicVerificationBlock& other);
    ~CadesCryptographicVerificationBlock();

    void SetSignature(SignedCades::SignerInfo* signature) { m_signature = signature; }
    void SetSigningCertificate(const X509Certificate& certificate) {
        m_signingCertificate = certificate;
    }
    void SetSignerDocumentDigest(const qorstd::QorArray<unsigned char>& digest) {
        m_signerDocumentDigest = digest;
    }
    const CryptographicVerificationReport& GetCryptographicVerificationReport() const {
        return m_report;
    }

    void Process() override;

private:
    SignedCades::SignerInfo* m_signature;
    X509Certificate m_signingCertificate;
    qorstd::QorArray<unsigned char> m_signerDocumentDigest;
    CryptographicVerificationReport m_report;
    std::unique_ptr<LogChannel> m_log;
};

// The signer's attribute constraints first; only when they hold, the
// algorithms of the signer and of every certificate, CRL and OCSP response
// of its path.
class TESSERA_API CadesSignatureAcceptanceValidationBlock : public ValidationBlock {
public:
    CadesSignatureAcceptanceValidationBlock();
    CadesSignatureAcceptanceValidationBlock(const CadesSignatureAcceptanceValidationBlock& other);
    CadesSignatureAcceptanceValidationBlock& operator=(
        const CadesSignatureAcceptanceValidationBlock& other);
    ~CadesSignatureAcceptanceValidationBlock();

    void SetSignature(SignedCades::SignerInfo* signature) { m_signature = signature; }
    void SetChain(X509Chain* chain) { m_chain = chain; }
    // 1 (the default): a signer without a signing-time attribute fails.
    void SetRequireAttrSigningTime(int require) { m_requireAttrSigningTime = require; }
    const SignatureAcceptanceValidationReport& GetSignatureAcceptanceValidationReport() const {
        return m_report;
    }

    void Process() override;

    // 1 when every identifier names a certificate of `chain` or one of
    // `attributeCerts` (DER), hashed with the identifier's own algorithm;
    // 0 at the first one that names none, and for an empty list.
    static int IsValidChain(
        qorstd::QorVector<SigningCertificate>& identifiers,
        const qorstd::QorVector<qorstd::QorArray<unsigned char>>& attributeCerts, X509Chain* chain);
    // SHA-224 to SHA-512.
    static int IsValidHashAlgorithm(const int& nid);
    // RSA, alone or with SHA-224 to SHA-512.
    static int IsValidSignatureAlgorithm(const int& nid);
    // 2048 bits or more.
    static int IsValidSignatureKeyLength(const int& bits);

private:
    void CheckConstraints();
    void CheckAlgorithms();
    void RefuseConstraint(const wchar_t* issue, const char* constraint);
    void RefuseMaterial(const wchar_t* issue, const CryptoMaterialIdentification& material);

    SignedCades::SignerInfo* m_signature;
    X509Chain* m_chain;
    int m_requireAttrSigningTime;
    SignatureAcceptanceValidationReport m_report;
    std::unique_ptr<LogChannel> m_log;
};

}  // namespace TesseraLib
