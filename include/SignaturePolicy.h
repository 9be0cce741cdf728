// A machine-readable signature policy (ETSI TR 102 272, DER): who issued it,
// when it may be used and the rules a signature under it must follow.
#pragma once

#include <cstdint>

#include "CryptHash.h"
#include "QorArray.h"
#include "QorString.h"
#include "QorVector.h"
#include "SignaturePolicyRules.h"
#include "TesseraExport.h"
#include "X509Name.h"

typedef struct ESI_SignaturePolicy_st ESI_SignaturePolicy;
typedef struct ESI_SignPolicyInfo_st ESI_SignPolicyInfo;
typedef struct ESI_SignatureValidationPolicy_st ESI_SignatureValidationPolicy;

namespace TesseraLib {

// The signing period and the rules.
class TESSERA_API SignatureValidationPolicy {
public:
    SignatureValidationPolicy();
    // Null → ErrInvalidParameter "pValidationPolicy = NULL"; no signing
    // period → ErrAsn1Decoding "pValidationPolicy->signingPeriod = NULL".
    explicit SignatureValidationPolicy(const ESI_SignatureValidationPolicy* policy);

    const std::int64_t& GetNotBefore() const { return m_notBefore; }
    // 0 when the policy sets no end.
    const std::int64_t& GetNotAfter() const { return m_notAfter; }
    const CommonRules& GetCommonRules() const { return m_commonRules; }
    const qorstd::QorVector<CommitmentRule>& GetCommitmentRules() const {
        return m_commitmentRules;
    }
    const SignaturePolicyExtensions& GetSignaturePolicyExtensions() const { return m_extensions; }

private:
    void ParseESISignatureValidationPolicy(const ESI_SignatureValidationPolicy* policy);

    std::int64_t m_notBefore;
    std::int64_t m_notAfter;
    CommonRules m_commonRules;
    qorstd::QorVector<CommitmentRule> m_commitmentRules;
    SignaturePolicyExtensions m_extensions;
};

class TESSERA_API SignaturePolicy {
public:
    // How a hash relates to the policy document. Policies store the digest
    // of their first two fields (the hash algorithm and the policy
    // information, as encoded); some signatures instead reference a policy
    // by the digest of the whole file.
    enum cptHashConvention {
        cptHashMatchNone = 0,      // neither
        cptHashMatchFields = 1,    // digest of signPolicyHashAlg and signPolicyInfo
        cptHashMatchWholeFile = 2  // digest of the whole document
    };

    // An empty policy: empty texts, NID 0, times 0.
    SignaturePolicy();
    // Decode(der).
    explicit SignaturePolicy(const qorstd::QorArray<unsigned char>& der);
    // Reads `policy` and keeps its DER encoding. Null → ErrInvalidParameter
    // "pPolicy=NULL"; no encoding → ErrAsn1Encoding
    // "i2d_ESI_SIGNATURE_POLICY() failed".
    explicit SignaturePolicy(const ESI_SignaturePolicy* policy);
    SignaturePolicy(const SignaturePolicy& other);
    SignaturePolicy& operator=(const SignaturePolicy& other);
    virtual ~SignaturePolicy();

    // Empty → ErrInvalidParameter "SignaturePolicy::Decode() - policy is
    // empty"; not a policy → ErrAsn1Decoding "pPolicy=NULL"; a hash
    // algorithm OpenSSL does not know → ErrAlgorithmNotSupported. Export()
    // returns exactly `der` afterwards. A failure leaves the fields the
    // parse reached and the previous encoding.
    void Decode(const qorstd::QorArray<unsigned char>& der);
    // The DER the policy was decoded from.
    const qorstd::QorArray<unsigned char>& Export() const { return m_encoded; }

    const qorstd::QorString& GetOID() const { return m_oid; }
    const std::int64_t& GetDateOfIssue() const { return m_dateOfIssue; }
    // The issuer's directory name and URI (the last of each kind the policy
    // names); empty when it names none.
    const X509Name& GetIssuerName() const { return m_issuerName; }
    const qorstd::QorString& GetURI() const { return m_uri; }
    const qorstd::QorStringW& GetFieldOfApplication() const { return m_fieldOfApplication; }
    const SignatureValidationPolicy& GetSignatureValidationPolicy() const {
        return m_validationPolicy;
    }
    const SignaturePolicyExtensions& GetSignaturePolicyExtensions() const { return m_extensions; }

    // The policy's hash algorithm (OpenSSL NID, 0 for an empty policy) and
    // stored hash (empty when the policy stores none).
    int GetHashAlgorithmNID() const { return m_hashAlgorithmNid; }
    const qorstd::QorArray<unsigned char>& GetHashValue() const { return m_hashValue; }
    // Dotted OID of the hash algorithm; empty when the NID has none.
    qorstd::QorString GetHashAlgorithmOID() const;
    // OpenSSL's long name ("sha256"), which CryptHash::GetHashAlgorithmByName takes.
    qorstd::QorString GetHashAlgorithmName() const;
    // The stored hash in lower-case hexadecimal; empty when there is none.
    qorstd::QorString GetHashValueHex() const;

    // The digest of this document under `convention` with the digest of
    // `hashAlgorithmNid`. An unknown digest → ErrAlgorithmNotSupported; no
    // document or cptHashMatchNone → ErrInvalidParameter.
    qorstd::QorArray<unsigned char> ComputeHash(int hashAlgorithmNid,
                                                cptHashConvention convention) const;
    // Which convention makes `hashValue`, computed with `hashAlgorithmNid`,
    // a digest of this document (fields first). cptHashMatchNone for an
    // empty hash, an unknown digest or no match.
    cptHashConvention MatchHash(int hashAlgorithmNid,
                                const qorstd::QorArray<unsigned char>& hashValue) const;
    // MatchHash of the policy's own stored hash with its own algorithm.
    cptHashConvention CheckHash() const;

private:
    void ParseESISignaturePolicy(const ESI_SignaturePolicy* policy);
    void ParseESISignPolicyInfo(const ESI_SignPolicyInfo* info);

    qorstd::QorArray<unsigned char> m_encoded;
    int m_hashAlgorithmNid;
    qorstd::QorArray<unsigned char> m_hashValue;
    qorstd::QorString m_oid;
    std::int64_t m_dateOfIssue;
    X509Name m_issuerName;
    qorstd::QorString m_uri;
    qorstd::QorStringW m_fieldOfApplication;
    SignatureValidationPolicy m_validationPolicy;
    SignaturePolicyExtensions m_extensions;
};

// What a caller relaxes when a signature is checked against a policy.
class TESSERA_API SignaturePolicyOverrides {
public:
    SignaturePolicyOverrides();

    // Signed attributes the policy mandates that the check skips; add OIDs
    // through the non-const reference.
    const qorstd::QorVector<qorstd::QorString>& GetIgnoredSignedAttributes() const {
        return m_ignoredSignedAttributes;
    }
    qorstd::QorVector<qorstd::QorString>& GetIgnoredSignedAttributes() {
        return m_ignoredSignedAttributes;
    }
    // 1 (the default) when the certificates the policy mandates are checked.
    int GetCheckMandatedCertificateInfo() const { return m_checkMandatedCertificateInfo; }
    void SetCheckMandatedCertificateInfo(int check) { m_checkMandatedCertificateInfo = check; }

private:
    qorstd::QorVector<qorstd::QorString> m_ignoredSignedAttributes;
    int m_checkMandatedCertificateInfo;
};

}  // namespace TesseraLib
