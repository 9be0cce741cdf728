// Certificate revocation lists (version 1 and 2) and the revoked entry of a
// certificate.
#pragma once

#include <cstdint>
#include <limits>
#include <memory>

#include "QorArray.h"
#include "QorString.h"
#include "QorVector.h"
#include "TesseraExport.h"
#include "X509Name.h"

struct X509_crl_st;
struct x509_revoked_st;
struct bignum_st;

namespace TesseraLib {

class X509Certificate;

// Revocation time and reason of one revoked entry.
class TESSERA_API X509CrlItem {
public:
    // Time 0, reason -1.
    X509CrlItem();
    // Reads the entry; null → ErrInvalidParameter "pRevoked=NULL", an
    // unreadable revocationDate → ErrAsn1Decoding.
    explicit X509CrlItem(const x509_revoked_st* revoked);
    X509CrlItem(const X509CrlItem& other) = default;
    X509CrlItem& operator=(const X509CrlItem& other) = default;

    // Seconds since 1970 UTC.
    std::int64_t GetRevocationTime() const { return m_revocationTime; }
    // The CRLReason code (0 unspecified ... 6 certificateHold, 8
    // removeFromCRL ... 10 aACompromise); -1 when the entry gives none.
    int GetRevocationReason() const { return m_revocationReason; }

private:
    std::int64_t m_revocationTime;
    int m_revocationReason;
};

// An OpenSSL CRL with the fields revocation checking asks for, decoded once
// on import. Copies share the OpenSSL CRL, which nothing changes once it is
// read. Signatures and times are not checked here.
//
// Import and the constructors decode in a fixed order (version, thisUpdate,
// nextUpdate, signature algorithm, issuer, authority key identifier, CRL
// number); the first failure throws and leaves the object partly filled, to
// be reset or discarded. Failures throw CryptException.
class TESSERA_API X509Crl {
public:
    // GetNextUpdate() of a CRL that carries no nextUpdate. Such an issuer
    // promises no newer list, so the CRL never becomes "older than its next
    // update": every check time lies before this value and nobody waits for
    // data that is not announced. Zero would say the opposite (every time
    // after it, so every check would wait for a newer CRL) and collides with
    // the epoch; compare with this constant to tell "no nextUpdate" apart.
    static constexpr std::int64_t kNoNextUpdate = std::numeric_limits<std::int64_t>::max();

    X509Crl();
    // Import of DER bytes.
    X509Crl(const unsigned char* der, long size);
    // Duplicates and decodes `crl`; null → ErrInvalidParameter "pCrl=NULL".
    explicit X509Crl(const X509_crl_st* crl);
    X509Crl(const X509Crl& other);
    X509Crl& operator=(const X509Crl& other);
    virtual ~X509Crl();

    // Releases the CRL and its number, zeroes the times, empties the rest.
    void Reset();
    // One DER CRL filling exactly `size` bytes. Null → ErrInvalidParameter
    // "pCrl=NULL", size <= 0 → "nSize<=0"; anything else that is not a CRL →
    // ErrAsn1Decoding; a signature algorithm OpenSSL does not know →
    // ErrAlgorithmNotSupported.
    void Import(const unsigned char* der, long size);
    // DER; empty for an empty object.
    qorstd::QorArray<unsigned char> Export() const;

    // The held CRL itself (not a copy); null when empty.
    X509_crl_st* GetX509Crl() const { return m_crl.get(); }
    // The version field as encoded: 0 for v1, 1 for v2.
    unsigned long GetVersion() const { return m_decoded.version; }
    // Seconds since 1970 UTC.
    std::int64_t GetThisUpdate() const { return m_decoded.thisUpdate; }
    // kNoNextUpdate when the CRL has none.
    std::int64_t GetNextUpdate() const { return m_decoded.nextUpdate; }
    // Not read from the CRL: always 0.
    std::int64_t GetExpiredCertOnCRL() const { return 0; }
    int GetSignatureAlgorithmNID() const { return m_decoded.signatureNid; }
    const X509Name& GetIssuerName() const { return m_decoded.issuerName; }
    // DER of the issuer name.
    const qorstd::QorArray<unsigned char>& GetIssuer() const { return m_decoded.issuer; }
    // keyIdentifier of the authority key identifier; empty when absent.
    const qorstd::QorArray<unsigned char>& GetAuthorityKeyId() const {
        return m_decoded.authorityKeyId;
    }
    // The CRL number; null when the CRL has none.
    const bignum_st* GetCRLNumber() const { return m_crlNumber.get(); }

    // OpenSSL's long name, e.g. "sha256WithRSAEncryption".
    qorstd::QorString GetSignatureAlgorithmName() const;
    // The long name without its last "With" and what follows ("sha256"); a
    // name without "With" ("ecdsa-with-SHA256") is returned whole.
    qorstd::QorString GetHashAlgorithmName() const;
    // SHA-1 of Export() (20 bytes) and as 40 lower-case hexadecimal digits;
    // both empty for an empty object.
    qorstd::QorArray<unsigned char> GetSHA1Hash() const;
    qorstd::QorString GetSHA1HashHex() const;
    // Lower-case hexadecimal without separators; empty when absent.
    qorstd::QorString GetAuthorityKeyIdStringHex() const;
    // Decimal, or upper-case hexadecimal without prefix; empty without a CRL
    // number.
    qorstd::QorString GetCRLNumberDec() const;
    qorstd::QorString GetCRLNumberHex() const;
    // The issuer on one line, "," between RDNs and "+" inside one, values
    // quoted where needed and unknown attribute types dumped; empty when
    // empty. A name that cannot be printed → ErrAsn1Decoding.
    qorstd::QorStringW GetIssuerStringX500() const;

    // 1 when both hold a CRL with the same encoding, else 0.
    int Equals(const X509Crl& other) const;
    // 1 when the CRL lists `cert` (serial number under the certificate's
    // issuer; entries of an indirect CRL name their own issuer), an entry
    // with reason removeFromCRL included; 0 otherwise or when empty. A
    // certificate object without certificate → ErrInvalidParameter
    // "cert.GetX509()=NULL".
    int IsPresent(const X509Certificate& cert) const;
    // As IsPresent, and fills `item` from the entry when there is one
    // (otherwise `item` is left as it was).
    int GetCrlItem(const X509Certificate& cert, X509CrlItem& item) const;

private:
    struct CrlDeleter {
        void operator()(X509_crl_st* crl) const;
    };
    struct BignumDeleter {
        void operator()(bignum_st* number) const;
    };

    void Parse();

    // What Parse reads from the CRL. Plain values only, so that copying,
    // assigning and clearing them is the struct's own.
    struct Decoded {
        unsigned long version = 0;
        std::int64_t thisUpdate = 0;
        std::int64_t nextUpdate = 0;
        int signatureNid = 0;
        X509Name issuerName;
        qorstd::QorArray<unsigned char> issuer;
        qorstd::QorArray<unsigned char> authorityKeyId;
    };

    std::unique_ptr<X509_crl_st, CrlDeleter> m_crl;  // shared with copies
    std::unique_ptr<bignum_st, BignumDeleter> m_crlNumber;
    Decoded m_decoded;
};

}  // namespace TesseraLib

namespace qorstd {
// Compiled once into the library.
extern template class QorVector<TesseraLib::X509Crl>;
extern template class QorVectorIterator<TesseraLib::X509Crl>;
}  // namespace qorstd
