// The signature-policy-identifier signed attribute
// (1.2.840.113549.1.9.16.2.15): the OID and hash of the policy a signature
// was made under, with qualifiers that say where to fetch the policy.
#pragma once

#include "CryptHash.h"
#include "QorArray.h"
#include "QorString.h"
#include "QorVector.h"
#include "TesseraExport.h"
#include "X509Attribute.h"

struct ESI_SigPolicyQualifierInfo_st;
typedef struct ESI_SigPolicyQualifierInfo_st ESI_SigPolicyQualifierInfo;

namespace TesseraLib {

class SignaturePolicy;

// One qualifier of the attribute.
class TESSERA_API SignaturePolicyQualifier {
public:
    enum cptQualifierType {
        qualifierNone = 0,          // no qualifier OID
        qualifierSpUri = 1,         // 1.2.840.113549.1.9.16.5.1: where the policy is
        qualifierSpUserNotice = 2,  // 1.2.840.113549.1.9.16.5.2: a text for the user
        qualifierOther = 3
    };

    // Null → ErrInvalidParameter "SignaturePolicyAttribute - pQualifierInfo
    // is null"; no qualifier OID → ErrInternal.
    explicit SignaturePolicyQualifier(ESI_SigPolicyQualifierInfo* info);

    // Derived from the qualifier OID.
    cptQualifierType GetType() const;
    const qorstd::QorString& GetQualifierOID() const { return m_qualifierOid; }
    // SPuri: the URI.
    const qorstd::QorString& GetURI() const { return m_uri; }
    // SPUserNotice: the notice reference's organisation and the explicit
    // text, empty when absent.
    const qorstd::QorStringW& GetOrganization() const { return m_organization; }
    const qorstd::QorStringW& GetExplicitText() const { return m_explicitText; }

private:
    qorstd::QorString m_qualifierOid;
    qorstd::QorString m_uri;
    qorstd::QorStringW m_organization;
    qorstd::QorStringW m_explicitText;
};

class TESSERA_API SignaturePolicyAttribute : public X509Attribute {
public:
    SignaturePolicyAttribute();
    // Keeps a duplicate of `attr` and decodes it.
    explicit SignaturePolicyAttribute(x509_attributes_st* attr);
    // The attribute for signing under `policy`: its OID, its hash algorithm
    // and its stored hash (nothing is computed), its URI as SPuri and its
    // field of application as SPUserNotice. The fields read by the getters
    // stay empty until the attribute is decoded. A policy without a stored
    // hash → ErrInvalidParameter "CreateSignaturePolicy - aHashValue is
    // empty".
    explicit SignaturePolicyAttribute(const SignaturePolicy& policy);
    SignaturePolicyAttribute(const SignaturePolicyAttribute& other);
    SignaturePolicyAttribute& operator=(const SignaturePolicyAttribute& other);
    ~SignaturePolicyAttribute() override;

    void Reset() override;
    // DER of a whole attribute. Empty → ErrInvalidParameter
    // "SignaturePolicyAttribute - attr is empty"; not an attribute, another
    // attribute type or an implied policy → ErrAsn1Decoding, leaving the
    // object empty.
    void Decode(const qorstd::QorArray<unsigned char>& der) override;
    int IsSigned() const override { return 1; }

    const qorstd::QorString& GetPolicyOID() const { return m_policyOid; }
    // OpenSSL NID of the hash algorithm, 0 when not set.
    int GetHashAlgorithmNID() const { return m_hashAlgorithmNid; }
    const qorstd::QorArray<unsigned char>& GetHashValue() const { return m_hashValue; }
    const qorstd::QorVector<SignaturePolicyQualifier>& GetQualifiers() const {
        return m_qualifiers;
    }

protected:
    virtual void Decode(const x509_attributes_st* attr);

private:
    static x509_attributes_st* CreateSignaturePolicy(
        const qorstd::QorString& policyOid, CryptHash::cptHashAlgorithm hashAlgorithm,
        const qorstd::QorArray<unsigned char>& hashValue, const qorstd::QorString& uri,
        const qorstd::QorStringW& userNotice);

    qorstd::QorString m_policyOid;
    int m_hashAlgorithmNid;
    qorstd::QorArray<unsigned char> m_hashValue;
    qorstd::QorVector<SignaturePolicyQualifier> m_qualifiers;
};

}  // namespace TesseraLib

namespace qorstd {
extern template class QorVector<TesseraLib::SignaturePolicyQualifier>;
extern template class QorVectorIterator<TesseraLib::SignaturePolicyQualifier>;
}  // namespace qorstd
