// One X.509 certificate, decoded once on import, optionally with the matching
// private key.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "CryptKey.h"
#include "QcStatement.h"
#include "QorArray.h"
#include "QorString.h"
#include "QorVector.h"
#include "TesseraExport.h"
#include "X509Name.h"

struct x509_st;
struct evp_pkey_st;
struct bignum_st;

namespace TesseraLib {

class LogChannel;
class X509ChainPolicy;
class X509Chain;
class X509Store;
class ValidationDataStore;

// An OpenSSL certificate (a reference of its own) plus the fields the rest of the
// library asks for: validity, serial number, algorithms, subject and issuer,
// key identifiers, key usages, policies, the OCSP responder, qualified
// statements and the maker's Braddle identifier.
//
// Empty after construction or Reset; filled by a successful import. Import
// (DER) resets before decoding, so a failed DER import leaves the object
// empty. ImportPEM keeps the previous content when its argument or the PEM
// text is bad; ImportPKCS12 keeps it when the bytes are not PKCS#12 at all.
// Empty objects answer accessors with empty or zero values and the tests
// with 0. Failures throw CryptException. Each object, copies included, logs
// on a channel "X509Certificate" of its own.
class TESSERA_API X509Certificate {
public:
    enum cptVerifyOption {
        cptVerifyTimeValidity = 0,     // the time only
        cptVerifyIssuerSignature = 1,  // the time and the issuer's signature
        cptVerifyWholeChain = 2        // the time and a chain built from a policy
    };

    enum cptCompareOption {
        cptCompareSubject = 0,
        cptCompareIssuer = 1,
        cptCompareIssuerAndSerial = 2,
        cptCompareCertificateKind = 3,  // qualified / Braddle / Q.OR standard alike
        cptCompareBraddleId = 4
    };

    enum DNSource { DNSourceIssuer = 0, DNSourceSubject = 1 };

    // Key-usage bits of GetKeyUsage().
    enum KeyUsageBits : unsigned long {
        kuDigitalSignature = 0x80,
        kuNonRepudiation = 0x40,
        kuKeyEncipherment = 0x20,
        kuDataEncipherment = 0x10,
        kuKeyAgreement = 0x08,
        kuKeyCertSign = 0x04,
        kuCrlSign = 0x02,
        kuEncipherOnly = 0x01,
        kuDecipherOnly = 0x8000
    };

    X509Certificate();
    // Takes a reference of its own to `certificate` and reads it; null →
    // ErrInvalidParameter "pCert=NULL". The caller must not change the
    // certificate afterwards (see the copy constructor).
    explicit X509Certificate(const x509_st* certificate);
    // ImportPEM of the NUL-terminated text.
    explicit X509Certificate(const char* pem);
    // Import of DER bytes.
    X509Certificate(const unsigned char* data, long size);
    // Copies take a reference of their own to the same OpenSSL certificate
    // (nothing changes a certificate once it is decoded, and duplicating one
    // means decoding its public key again, which dominates path building)
    // and share the private key through a CryptKey of their own.
    X509Certificate(const X509Certificate& other);
    X509Certificate& operator=(const X509Certificate& other);
    // Moves take the other's certificate, key and decoded fields and leave
    // it empty (with a channel of its own, as after construction).
    X509Certificate(X509Certificate&& other);
    X509Certificate& operator=(X509Certificate&& other);
    virtual ~X509Certificate();

    // Releases certificate, key and serial number; clears every field.
    virtual void Reset();
    // DER. Null → ErrInvalidParameter "pCert=NULL", size < 1 → "nSize<=0";
    // bytes that are not one certificate → ErrAsn1Decoding.
    virtual void Import(const unsigned char* data, long size);
    // The first PEM certificate of the text. Null → ErrInvalidParameter
    // "pszCert=NULL", "" → "nCertSize=0"; no readable certificate →
    // ErrBase64Decoding (the previous content stays in these cases).
    void ImportPEM(const char* pem);
    // The certificate and private key of a DER PKCS#12 structure (further
    // certificates are ignored). Not PKCS#12: ErrPkcs12Decoding (content
    // kept); wrong password: ErrIncorrectPassword; otherwise unparsable or no
    // certificate: ErrPkcs12Parsing; a key that is neither RSA nor EC:
    // ErrPrivateKeyRead (all with the object left empty).
    void ImportPKCS12(const unsigned char* data, long size, const char* password);
    // The password must be ASCII, else ErrPasswordInvalidChars.
    void ImportPKCS12(const unsigned char* data, long size, const wchar_t* password);

    // DER; empty for an empty object.
    qorstd::QorArray<unsigned char> Export() const;
    // "-----BEGIN CERTIFICATE-----" text; empty for an empty object.
    qorstd::QorString ExportPEM() const;
    // The private key as DER; empty without certificate or key, or when the
    // key does not match the certificate.
    qorstd::QorArray<unsigned char> ExportPrivateKey() const;

    // The held certificate itself (not a copy); null when empty.
    x509_st* GetX509() const { return m_x509.get(); }
    // The version field's value: 2 means version 3.
    unsigned long GetVersion() const { return m_decoded->version; }
    // Seconds since 1970 UTC.
    const std::int64_t& GetNotBefore() const { return m_decoded->notBefore; }
    const std::int64_t& GetNotAfter() const { return m_decoded->notAfter; }
    // The serial number as OpenSSL's big number; null when empty.
    const bignum_st* GetSerialNumber() const { return m_serial.get(); }
    // OpenSSL's NID of the outer signature algorithm; 0 when empty.
    int GetSignatureAlgorithmNID() const { return m_decoded->signatureNid; }
    // Modulus length in bits for RSA keys; 0 for every other key.
    int GetKeyLength() const { return m_decoded->keyLength; }
    // Read from the certificate on first use (by any copy).
    const X509Name& GetSubjectName() const;
    const X509Name& GetIssuerName() const;
    // DER of the subject and issuer names.
    const qorstd::QorArray<unsigned char>& GetSubject() const { return m_decoded->subject; }
    const qorstd::QorArray<unsigned char>& GetIssuer() const { return m_decoded->issuer; }
    const qorstd::QorArray<unsigned char>& GetSubjectKeyId() const {
        return m_decoded->subjectKeyId;
    }
    // The keyIdentifier part of the authority key identifier.
    const qorstd::QorArray<unsigned char>& GetAuthorityKeyId() const {
        return m_decoded->authorityKeyId;
    }
    // KeyUsageBits OR-ed together.
    unsigned long GetKeyUsage() const { return m_decoded->keyUsage; }
    // Dotted OIDs, in extension order.
    const qorstd::QorVector<qorstd::QorString>& GetExtendedKeyUsages() const {
        return m_decoded->extendedKeyUsages;
    }
    const qorstd::QorVector<QcStatement>& GetQCStatements() const {
        return m_decoded->qcStatements;
    }
    const qorstd::QorVector<qorstd::QorString>& GetCertificatePolicies() const {
        return m_decoded->certificatePolicies;
    }
    // The URI of the last OCSP access description; empty when none.
    const qorstd::QorString& GetOcspResponderUrl() const { return m_decoded->ocspUrl; }
    // Owned by the certificate; null when none.
    CryptKey* GetPrivateKey() const { return m_privateKey.get(); }

    // Decimal, or upper-case hexadecimal without prefix ("-" for negative);
    // empty when empty.
    qorstd::QorString GetSerialNumberStringDec() const;
    qorstd::QorString GetSerialNumberStringHex() const;
    // Lower-case hexadecimal without separators; empty when absent.
    qorstd::QorString GetSubjectKeyIdStringHex() const;
    qorstd::QorString GetAuthorityKeyIdStringHex() const;
    // SHA-1 of Export() (20 bytes) and as 40 lower-case hexadecimal digits.
    qorstd::QorArray<unsigned char> GetSHA1Hash() const;
    qorstd::QorString GetSHA1HashHex() const;
    // OpenSSL's long name, e.g. "sha256WithRSAEncryption", and dotted OID
    // (empty when the algorithm is 0).
    qorstd::QorString GetSignatureAlgorithmName() const;
    qorstd::QorString GetSignatureAlgorithmOID() const;
    // The long name before its last "With" ("sha256"), and after its first
    // "With" ("RSAEncryption"); a name without "With" is returned whole.
    qorstd::QorString GetHashAlgorithmName() const;
    qorstd::QorString GetKeyAlgorithmName() const;
    // notAfter minus now, in seconds; negative once expired; 0 when empty.
    double GetTimeToExpiration() const;
    // The name printed on one line with `flags` (0: "," between RDNs);
    // 0x1010008 quotes values instead of escaping them. Empty when empty.
    qorstd::QorStringW GetSubjectStringX500(int flags) const;
    qorstd::QorStringW GetIssuerStringX500(int flags) const;
    // The Braddle identifier as 8-bit text; empty when absent.
    qorstd::QorString GetQorBraddleId() const;

    // 1 when both hold a certificate and OpenSSL finds them identical.
    int Equals(const X509Certificate& other) const;
    int IsCA() const;
    // 1 when the certificate names itself as issuer and its key identifiers agree.
    int IsSelfSigned() const;
    // 1 when a key is held and it matches the certificate.
    int HasPrivateKey() const;
    // Drops the held key object; for a non-null `key` holds a new CryptKey
    // sharing the same OpenSSL key (the caller keeps its own object).
    void SetPrivateKey(CryptKey* key);
    // The issuer contains "Q.OR".
    int IsQor() const;
    // IsQor() and the issuer contains "tandard" or "Public".
    int IsQorStandard() const;
    int IsQorBraddles() const;
    // The subject CN contains "pseudonym" (any case) or a pseudonym attribute is set.
    int IsPseudonymous() const;
    // The statement list contains QcCompliance (0.4.0.1862.1.1).
    int HasQualifiedQcStatement() const;

    // 1 (same) or 0; 0 whenever either side is empty or for unknown options.
    int Compare(cptCompareOption option, const X509Certificate& other) const;

    // True when every (dotted OID, UTF-8 value) pair occurs in the chosen
    // name, exactly and case-sensitively; an empty list gives true. A name
    // that cannot be read → ErrInternal.
    bool VerifyDN(const std::vector<std::pair<std::string, std::string>>& expected,
                  DNSource source) const;

    // -1 not yet valid, 1 expired, 0 valid: notBefore <= time < notAfter
    // (a time equal to notAfter is expired). A null certificate gives 1.
    static int CheckTimeValidity(x509_st* certificate, const std::int64_t& time);

    // Each finds the first extension of its kind and decodes it like the
    // import, adding to the output: 1 when decoded; 0 for a null certificate,
    // without the extension, or when its value does not decode (the import
    // skips such extensions too). An OID that cannot be printed →
    // ErrAsn1Decoding.
    static int ParseKeyUsage(x509_st* certificate, unsigned long& keyUsage);
    static int ParseExtendedKeyUsage(x509_st* certificate,
                                     qorstd::QorVector<qorstd::QorString>& usages);
    static int ParseCertificatePolicies(x509_st* certificate,
                                        qorstd::QorVector<qorstd::QorString>& policies);
    static int ParseQCStatements(x509_st* certificate, qorstd::QorVector<QcStatement>& statements);

    // Checks the certificate's signature with `issuerKey`; releases one
    // reference of the key afterwards when `releaseKey` is 1. Null key →
    // ErrAsn1Decoding; an empty object → ErrInternal "GetX509()=NULL"; a bad
    // signature → ErrCertBadSignature.
    void VerifySignature(evp_pkey_st* issuerKey, int releaseKey) const;

    // Checks the time (0 means now; not time valid → ErrCertNotTimeValid),
    // then for cptVerifyIssuerSignature the signature with `issuer`'s key
    // (null issuer → ErrInvalidParameter "pIssuer=NULL"). An empty object
    // returns without checking anything. `*chain`, when given, is set to
    // null. cptVerifyWholeChain: a null policy throws ErrInvalidParameter
    // "pChainPolicy=NULL"; otherwise an X509Chain over the policy builds the
    // path at the time and, on success, goes to `*chain` (the caller owns
    // it) or is deleted when `chain` is null.
    void Verify(cptVerifyOption option, const std::int64_t& time, X509Certificate* issuer,
                X509ChainPolicy* policy, X509Chain** chain) const;
    // The same with proofs of existence: `time` is taken as it is (0 is not
    // replaced by now), and cptVerifyWholeChain builds with BuildWithPOE.
    // When the policy builds from supplied validation data (chain build mode
    // 2 or 4), `store` is required (else ErrInvalidParameter), this
    // certificate is recorded in it with `time`, and the certificates, CRLs
    // and OCSP responses of `store` replace the policy's extra store for the
    // build. The caller's policy is not changed; a chain handed out in
    // `*chain` points to it.
    void Verify(cptVerifyOption option, const std::int64_t& time, const X509ChainPolicy* policy,
                ValidationDataStore* store, const X509Certificate* issuer, X509Chain** chain) const;

    // 1 when `candidate`, taken as the only trust anchor, completes a path of
    // this certificate at `time` (0: now) under the default chain policy.
    // No certificate held → ErrInternal; a candidate without one →
    // ErrInvalidParameter.
    int IsIssuerCert(const X509Certificate& candidate, const std::int64_t& time) const;
    // 1 when the certificate claims QC compliance and a path to an anchor of
    // `trustStore` (with intermediates from `extraStore`, which may be null)
    // exists at `time` (0: now) under the default chain policy.
    int IsQualified(const std::int64_t& time, X509Store* trustStore, X509Store* extraStore) const;

protected:
    // CheckTimeValidity that throws: null → ErrInvalidParameter "cert=NULL",
    // otherwise ErrCertNotTimeValid when not valid at `time`.
    void CheckTimeValidityThrow(const std::int64_t& time) const;

private:
    struct X509Deleter {
        void operator()(x509_st* certificate) const;
    };
    struct BignumDeleter {
        void operator()(bignum_st* number) const;
    };

    void CopyFrom(const X509Certificate& other);
    void MoveFrom(X509Certificate& other);
    void ParseX509();
    qorstd::QorStringW PrintName(const struct X509_name_st* name, int flags,
                                 const wchar_t* logLine) const;

    // What ParseX509 reads from the certificate. Read once and never changed
    // afterwards, so that copies share one of them (an empty object shares
    // the one empty instance); only the names are filled on first use.
    struct Decoded {
        unsigned long version = 0;
        std::int64_t notBefore = 0;
        std::int64_t notAfter = 0;
        int signatureNid = 0;
        // The names inside the certificate, which `owner` keeps alive; their
        // entries are checked on import, their attributes read on first use.
        const X509_name_st* subjectSource = nullptr;
        const X509_name_st* issuerSource = nullptr;
        std::shared_ptr<const void> owner;
        mutable std::once_flag namesRead;
        mutable X509Name subjectName;
        mutable X509Name issuerName;
        qorstd::QorArray<unsigned char> subject;
        qorstd::QorArray<unsigned char> issuer;
        qorstd::QorArray<unsigned char> subjectKeyId;
        qorstd::QorArray<unsigned char> authorityKeyId;
        qorstd::QorArray<unsigned char> braddleId;
        unsigned long keyUsage = 0;
        qorstd::QorVector<qorstd::QorString> extendedKeyUsages;
        qorstd::QorVector<QcStatement> qcStatements;
        qorstd::QorVector<qorstd::QorString> certificatePolicies;
        qorstd::QorString ocspUrl;
        int keyLength = 0;
    };

    static void ParseExtensions(const x509_st* certificate, Decoded& decoded);
    static void ReadNames(const Decoded& decoded);
    static const std::shared_ptr<const Decoded>& EmptyDecoded();

    std::unique_ptr<x509_st, X509Deleter> m_x509;  // shared with copies
    std::unique_ptr<LogChannel> m_log;
    std::unique_ptr<CryptKey> m_privateKey;
    std::shared_ptr<const bignum_st> m_serial;  // shared with copies, never changed
    std::shared_ptr<const Decoded> m_decoded;   // never null
};

}  // namespace TesseraLib

namespace qorstd {
// Compiled once into the library.
extern template class QorVector<TesseraLib::X509Certificate>;
extern template class QorVectorIterator<TesseraLib::X509Certificate>;
}  // namespace qorstd
