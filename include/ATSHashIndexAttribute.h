// The ats-hash-index attributes an archive time-stamp token's signer
// carries: the digests of the message's certificates, revocation data and
// the signer's unsigned attributes at the time of the archive time-stamp.
// Three versions exist; they differ in the attribute type, whether the
// digest algorithm is named, and what is hashed for an unsigned attribute.
#pragma once

#include <cstdint>

#include "ByteArrayVector.h"
#include "CryptHash.h"
#include "OcspResponse.h"
#include "QorArray.h"
#include "QorVector.h"
#include "TesseraExport.h"
#include "X509Attribute.h"

struct stack_st_X509_ATTRIBUTE;

namespace TesseraLib {

class TimeStampAttribute;
class ValidationDataStore;
class X509Certificate;
class X509Crl;

class TESSERA_API ATSHashIndexAttributeBase : public X509Attribute {
public:
    using HashList = qorstd::QorVector<qorstd::QorArray<unsigned char>>;

    ATSHashIndexAttributeBase();
    ATSHashIndexAttributeBase(const ATSHashIndexAttributeBase& other);
    ATSHashIndexAttributeBase& operator=(const ATSHashIndexAttributeBase& other);
    ~ATSHashIndexAttributeBase() override;

    void Reset() override;
    // One whole attribute (DER).
    void Decode(const qorstd::QorArray<unsigned char>& der) override;
    int IsSigned() const override { return 0; }
    // Replaces the content with a copy of `attr`; the type must be the
    // class's own.
    virtual void Decode(const x509_attributes_st* attr) = 0;

    // Every entry of each list must be the digest of one item of the
    // message: a certificate's DER (ErrAtsHashIndexCertMismatch), a
    // revocation choice's encoding as it stands in `crls` — a CRL, or the
    // whole other-format element of an OCSP response —
    // (ErrAtsHashIndexCrlMismatch), or an unsigned attribute's hash input
    // (ErrAtsHashIndexAttrMismatch). Items the index does not list are
    // allowed: they were added after the archive time-stamp.
    virtual void Verify(const qorstd::QorVector<X509Certificate>& certificates,
                        const HashList& revocationChoices,
                        const stack_st_X509_ATTRIBUTE* unsignedAttrs) const;
    virtual void VerifyUnsignedAttrs(const stack_st_X509_ATTRIBUTE* unsignedAttrs) const;

    // After the archive time-stamp was verified: every item the index lists
    // is proven to exist at `time`. `ocspChoices` holds, for each OCSP
    // response, its revocation choice as it stands in the message.
    void UpdatePOEInfo(const qorstd::QorVector<X509Certificate>& certificates,
                       const qorstd::QorVector<X509Crl>& crls,
                       const QorOcsp2Lib::OcspVector<QorOcsp2Lib::OcspResponse>& ocsps,
                       const HashList& ocspChoices,
                       const qorstd::QorVector<TimeStampAttribute>& signatureTimeStamps,
                       const qorstd::QorVector<TimeStampAttribute>& archiveTimeStamps,
                       const std::int64_t& time, ValidationDataStore* store) const;
    virtual void UpdatePOEInfoUnsignedAttrs(
        const qorstd::QorVector<TimeStampAttribute>& signatureTimeStamps,
        const qorstd::QorVector<TimeStampAttribute>& archiveTimeStamps, const std::int64_t& time,
        ValidationDataStore* store) const;

    CryptHash::cptHashAlgorithm GetHashAlgorithm() const { return m_hashAlgorithm; }
    const HashList& GetCertificatesHashIndex() const { return m_certificatesHashIndex; }
    const HashList& GetCrlsHashIndex() const { return m_crlsHashIndex; }
    const HashList& GetUnsignedAttrValuesHashIndex() const { return m_unsignedAttrValuesHashIndex; }

    // The attribute types of the three versions.
    static const char kOidV1[];
    static const char kOidV2[];
    static const char kOidV3[];

protected:
    void FreeAttribute() override;
    x509_attributes_st* CloneAttribute(x509_attributes_st* attr) override;
    // What one unsigned attribute contributes to the index: one or more
    // byte strings to hash.
    virtual HashList UnsignedAttrHashInputs(const x509_attributes_st* attr) const = 0;
    // Whether the digest of `input` under the index's algorithm is an entry
    // of `index` (same length, same bytes).
    bool Lists(const HashList& index, const qorstd::QorArray<unsigned char>& input) const;
    // The common part of the versions' Decode: `attr` duplicated, the type
    // checked, the value read by `readValue`.
    void DecodeAs(const x509_attributes_st* attr, const char* oid, const wchar_t* className,
                  bool namedAlgorithm);

    CryptHash::cptHashAlgorithm m_hashAlgorithm;
    HashList m_certificatesHashIndex;
    HashList m_crlsHashIndex;
    HashList m_unsignedAttrValuesHashIndex;
};

// ats-hash-index (0.4.0.1733.2.5): SHA-256, an unsigned attribute hashed as
// its whole DER.
class TESSERA_API ATSHashIndexAttribute : public ATSHashIndexAttributeBase {
public:
    ATSHashIndexAttribute() = default;
    explicit ATSHashIndexAttribute(const x509_attributes_st* attr);
    using ATSHashIndexAttributeBase::Decode;
    void Decode(const x509_attributes_st* attr) override;

protected:
    HashList UnsignedAttrHashInputs(const x509_attributes_st* attr) const override;
};

// ats-hash-index-v2 (0.4.0.19122.1.4): the algorithm named; an unsigned
// attribute hashed as its type followed by all its values.
class TESSERA_API ATSHashIndexV2Attribute : public ATSHashIndexAttributeBase {
public:
    ATSHashIndexV2Attribute() = default;
    explicit ATSHashIndexV2Attribute(const x509_attributes_st* attr);
    using ATSHashIndexAttributeBase::Decode;
    void Decode(const x509_attributes_st* attr) override;

protected:
    HashList UnsignedAttrHashInputs(const x509_attributes_st* attr) const override;
};

// ats-hash-index-v3 (0.4.0.19122.1.5): the algorithm named; one entry per
// value of an unsigned attribute, its type followed by that value.
class TESSERA_API ATSHashIndexV3Attribute : public ATSHashIndexAttributeBase {
public:
    ATSHashIndexV3Attribute() = default;
    explicit ATSHashIndexV3Attribute(const x509_attributes_st* attr);
    // A new index listing, hashed with `algorithm`, every certificate of
    // `certificates` (DER), every revocation choice of `revocationChoices`
    // (as it stands in the message) and every value of `unsignedAttrs`,
    // hashed the way Verify reads them back. An unknown algorithm fails
    // with ErrAlgorithmNotSupported.
    static ATSHashIndexV3Attribute Create(CryptHash::cptHashAlgorithm algorithm,
                                          const HashList& certificates,
                                          const HashList& revocationChoices,
                                          const stack_st_X509_ATTRIBUTE* unsignedAttrs);
    using ATSHashIndexAttributeBase::Decode;
    void Decode(const x509_attributes_st* attr) override;

protected:
    HashList UnsignedAttrHashInputs(const x509_attributes_st* attr) const override;
};

}  // namespace TesseraLib
