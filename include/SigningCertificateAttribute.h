// The ESS signing-certificate attribute in both forms (v1 with SHA-1
// certificate hashes, v2 with any digest), which binds a signature to its
// signer's certificate, and its entries.
#pragma once

#include <memory>
#include <optional>

#include "CryptHash.h"
#include "QorArray.h"
#include "QorString.h"
#include "QorVector.h"
#include "TesseraExport.h"
#include "X509Attribute.h"

namespace TesseraLib {

class LogChannel;
class X509Certificate;

namespace cms {
struct SigningCertValue;
class SigningCertAccess;
}  // namespace cms

// One ESSCertID(v2) entry as read from an attribute.
class TESSERA_API SigningCertificate {
public:
    SigningCertificate();
    // Stores `serial` unless it is 0.
    explicit SigningCertificate(unsigned long serial);

    // Replaces the serial; 0 clears it.
    void SetSerial(const unsigned long& serial);
    void SetHash(const qorstd::QorArray<unsigned char>& hash) { m_hash = hash; }
    void SetHashAlg(const qorstd::QorString& algorithm) { m_hashAlgorithm = algorithm; }

    // The certHash octets.
    const qorstd::QorArray<unsigned char>& GetHash() const { return m_hash; }
    // "SHA1" for a v1 entry, "SHA256" for a v2 entry without algorithm,
    // otherwise OpenSSL's name of the entry's algorithm ("sha384").
    const qorstd::QorString& GetHashAlgorithm() const { return m_hashAlgorithm; }
    // The issuerSerial's serial as OpenSSL's ASN1_INTEGER_get reads it (a
    // value too wide for a long reads as ULONG_MAX); null when the entry has
    // no issuerSerial or the serial reads as 0.
    const unsigned long* GetSerial() const { return m_serial ? &*m_serial : nullptr; }

    // True only when both entries have a serial and the serials are equal.
    bool operator==(const SigningCertificate& other) const;
    bool operator!=(const SigningCertificate& other) const { return !(*this == other); }

private:
    qorstd::QorString m_hashAlgorithm;
    qorstd::QorArray<unsigned char> m_hash;
    std::optional<unsigned long> m_serial;
};

class TESSERA_API SigningCertificateAttribute : public X509Attribute {
public:
    SigningCertificateAttribute();
    // Keeps a duplicate of `attr` and decodes it (see the attribute form of
    // Decode).
    explicit SigningCertificateAttribute(x509_attributes_st* attr);
    // The attribute for `cert`: v1 for cptHashSHA1, v2 for the other digests;
    // cptHashNone takes the digest of the certificate's own signature. `certs`
    // is not used. Failures: cptHashNone and no usable digest →
    // ErrInvalidParameter "SigningCertificateAttribute - eHashAlg ==
    // CryptHash::cptHashNone" (a signature digest CryptHash does not name →
    // ErrAlgorithmNotSupported); no certificate → ErrInvalidParameter
    // "SigningCertificateAttribute - cert.GetX509() == NULL"; an unknown
    // digest → ErrAlgorithmNotSupported; encoding → ErrAsn1Encoding; the v2
    // type's OID → ErrInternal.
    SigningCertificateAttribute(const X509Certificate& cert,
                                const qorstd::QorVector<X509Certificate>* certs,
                                CryptHash::cptHashAlgorithm alg);
    SigningCertificateAttribute(const SigningCertificateAttribute& other);
    SigningCertificateAttribute& operator=(const SigningCertificateAttribute& other);
    // Moves take the other's attribute and entries and leave it empty.
    SigningCertificateAttribute(SigningCertificateAttribute&& other);
    SigningCertificateAttribute& operator=(SigningCertificateAttribute&& other);
    ~SigningCertificateAttribute() override;

    // Releases the attribute and clears the entries.
    void Reset() override;
    // DER of a whole attribute. Empty → ErrInvalidParameter
    // "SigningCertificateAttribute - attr is empty"; not one attribute →
    // ErrAsn1Decoding; then as the attribute form.
    void Decode(const qorstd::QorArray<unsigned char>& der) override;
    int IsSigned() const override { return 1; }

    // The entries read by Decode, in attribute order; empty for an attribute
    // built from a certificate.
    const qorstd::QorVector<SigningCertificate>& GetCertificateIdentifiers() const {
        return m_certificateIds;
    }
    qorstd::QorVector<SigningCertificate>& GetCertificateIdentifiers() { return m_certificateIds; }

protected:
    // Null → ErrInvalidParameter "SigningCertificateAttribute - pAttr is
    // null"; a type other than signing certificate v1 or v2 → ErrAsn1Decoding
    // (the object is left empty). A value that does not decode as the type's
    // SEQUENCE leaves the entries empty without an error.
    virtual void Decode(const x509_attributes_st* attr);

private:
    friend class cms::SigningCertAccess;

    std::unique_ptr<LogChannel> m_log;
    qorstd::QorVector<SigningCertificate> m_certificateIds;
    // The value the attribute form of Decode read, for the signer-certificate
    // check; null when it read none. Shared by copies, never changed.
    std::shared_ptr<const cms::SigningCertValue> m_value;
};

}  // namespace TesseraLib

namespace qorstd {
extern template class QorVector<TesseraLib::SigningCertificate>;
extern template class QorVectorIterator<TesseraLib::SigningCertificate>;
}  // namespace qorstd
