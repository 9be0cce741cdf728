// The rules of a signature policy (ETSI TR 102 272): signer and verifier
// rules, trust conditions for signer and time-stamp certificates, revocation
// requirements, algorithm constraints and commitment rules. Every class is
// read-only once built: empty, by copy, or from OpenSSL's decoded structure
// of a policy (see SignaturePolicy.h). Optional parts are null pointers when
// the policy leaves them out; lists hold copies in document order.
//
// A structure pointer that is null fails with ErrInvalidParameter naming it
// ("pRules = NULL"); a DirectoryString that does not convert to text fails
// with ErrAsn1Decoding.
#pragma once

#include <cstdint>

#include "DeepPtr.h"
#include "QorArray.h"
#include "QorString.h"
#include "QorVector.h"
#include "TesseraExport.h"
#include "X509Certificate.h"

// OpenSSL structures of the policy language, defined inside the library.
typedef struct ESI_SignPolExtn_st ESI_SignPolExtn;
typedef struct ESI_DeltaTime_st ESI_DeltaTime;
typedef struct ESI_RevReq_st ESI_RevReq;
typedef struct ESI_CertRevReq_st ESI_CertRevReq;
typedef struct ESI_CertificateTrustPoint_st ESI_CertificateTrustPoint;
typedef struct ESI_SigningCertTrustCondition_st ESI_SigningCertTrustCondition;
typedef struct ESI_TimestampTrustCondition_st ESI_TimestampTrustCondition;
typedef struct ESI_AlgAndLength_st ESI_AlgAndLength;
typedef struct ESI_AlgorithmConstraintSet_st ESI_AlgorithmConstraintSet;
typedef struct ESI_SignerRules_st ESI_SignerRules;
typedef struct ESI_VerifierRules_st ESI_VerifierRules;
typedef struct ESI_CommitmentType_st ESI_CommitmentType;
typedef struct ESI_SelectedCommitmentType_st ESI_SelectedCommitmentType;
typedef struct ESI_CommonRules_st ESI_CommonRules;
typedef struct ESI_CommitmentRule_st ESI_CommitmentRule;
struct stack_st_ESI_SIGN_POL_EXTN;
struct stack_st_ESI_CERTIFICATE_TRUST_POINT;
struct stack_st_ESI_ALG_AND_LENGTH;

namespace TesseraLib {

namespace policy {
struct RuleFields;
}

// A policy extension: its OID and the octets of its value.
struct TESSERA_API SignaturePolicyExtension {
    SignaturePolicyExtension();
    explicit SignaturePolicyExtension(const ESI_SignPolExtn* extension);

    qorstd::QorString oid;
    qorstd::QorArray<unsigned char> value;

private:
    void ParseESISignPolExtn(const ESI_SignPolExtn* extension);
};

typedef qorstd::QorVector<SignaturePolicyExtension> SignaturePolicyExtensions;

// A span of time in four parts, each as the policy writes it.
struct TESSERA_API DeltaTime {
    DeltaTime();
    explicit DeltaTime(const ESI_DeltaTime* deltaTime);

    std::int32_t deltaSeconds;
    std::int32_t deltaMinutes;
    std::int32_t deltaHours;
    std::int32_t deltaDays;

private:
    void ParseESIDeltaTime(const ESI_DeltaTime* deltaTime);
};

// Which revocation data must be checked for a kind of certificate.
class TESSERA_API RevReq {
public:
    enum cptEnuRevReq {
        clrCheck = 0,
        ocspCheck = 1,
        bothCheck = 2,
        eitherCheck = 3,
        noCheck = 4,
        other = 5
    };

    RevReq();
    explicit RevReq(const ESI_RevReq* revReq);

    // The decoded number, kept as it is even outside the list above.
    cptEnuRevReq GetRevocationRequirements() const { return m_requirements; }
    const SignaturePolicyExtensions& GetSignaturePolicyExtensions() const { return m_extensions; }

private:
    void ParseESIRevReq(const ESI_RevReq* revReq);

    cptEnuRevReq m_requirements;
    SignaturePolicyExtensions m_extensions;
};

// Revocation requirements for end-entity and for CA certificates.
class TESSERA_API CertRevReq {
public:
    CertRevReq();
    explicit CertRevReq(const ESI_CertRevReq* certRevReq);

    const RevReq& GetEndCertRevocationRequirements() const { return m_endCert; }
    const RevReq& GetCACertstRevocationRequirements() const { return m_caCerts; }

private:
    void ParseESICertRevReq(const ESI_CertRevReq* certRevReq);

    RevReq m_endCert;
    RevReq m_caCerts;
};

// A trusted certificate with the path constraints that go with it.
class TESSERA_API CertificateTrustPoint {
public:
    CertificateTrustPoint();
    explicit CertificateTrustPoint(const ESI_CertificateTrustPoint* trustPoint);
    virtual ~CertificateTrustPoint();

    const X509Certificate& GetTrustPoint() const { return m_trustPoint; }
    const unsigned long* GetPathLenConstraint() const { return m_pathLenConstraint.get(); }
    const qorstd::QorVector<qorstd::QorString>& GetAcceptablePolicySet() const {
        return m_acceptablePolicySet;
    }
    const unsigned long* GetRequireExplicitPolicy() const { return m_requireExplicitPolicy.get(); }
    const unsigned long* GetInhibitPolicyMapping() const { return m_inhibitPolicyMapping.get(); }

private:
    void ParseESICertificateTrustPoint(const ESI_CertificateTrustPoint* trustPoint);

    X509Certificate m_trustPoint;
    DeepPtr<unsigned long> m_pathLenConstraint;
    qorstd::QorVector<qorstd::QorString> m_acceptablePolicySet;
    DeepPtr<unsigned long> m_requireExplicitPolicy;
    DeepPtr<unsigned long> m_inhibitPolicyMapping;
};

// What signer and time-stamp trust conditions share: trust points and the
// revocation requirements under them.
class TESSERA_API TrustCondition {
public:
    TrustCondition();
    virtual ~TrustCondition();

    const qorstd::QorVector<CertificateTrustPoint>& GetTrustTrees() const { return m_trustTrees; }
    const CertRevReq* GetRevocationRequirements() const { return m_revocationRequirements.get(); }

protected:
    void ParseCertificateTrustTrees(const stack_st_ESI_CERTIFICATE_TRUST_POINT* trustTrees);
    void ParseESICertRevReq(const ESI_CertRevReq* certRevReq);

private:
    qorstd::QorVector<CertificateTrustPoint> m_trustTrees;
    DeepPtr<CertRevReq> m_revocationRequirements;
};

// Whom to trust for signer certificates; the revocation requirements are
// always present.
class TESSERA_API SigningCertTrustCondition : public TrustCondition {
public:
    SigningCertTrustCondition();
    explicit SigningCertTrustCondition(const ESI_SigningCertTrustCondition* condition);

private:
    void ParseESISigningCertTrustCondition(const ESI_SigningCertTrustCondition* condition);
};

// Whom to trust for time-stamp certificates, and the time-stamp delays.
class TESSERA_API TimeStampTrustCondition : public TrustCondition {
public:
    TimeStampTrustCondition();
    explicit TimeStampTrustCondition(const ESI_TimestampTrustCondition* condition);

    const DeltaTime* GetCautionPeriod() const { return m_cautionPeriod.get(); }
    const DeltaTime* GetSignatureTimestampDelay() const { return m_signatureTimestampDelay.get(); }

private:
    void ParseESITimestampTrustCondition(const ESI_TimestampTrustCondition* condition);

    DeepPtr<DeltaTime> m_cautionPeriod;
    DeepPtr<DeltaTime> m_signatureTimestampDelay;
};

// An accepted algorithm with its minimum key length.
class TESSERA_API AlgAndLength {
public:
    AlgAndLength();
    explicit AlgAndLength(const ESI_AlgAndLength* algAndLength);
    virtual ~AlgAndLength();

    const qorstd::QorString& GetOID() const { return m_oid; }
    const unsigned long* GetMinKeyLength() const { return m_minKeyLength.get(); }
    const SignaturePolicyExtensions& GetSignaturePolicyExtensions() const { return m_extensions; }

private:
    void ParseESIAlgAndLength(const ESI_AlgAndLength* algAndLength);

    qorstd::QorString m_oid;
    DeepPtr<unsigned long> m_minKeyLength;
    SignaturePolicyExtensions m_extensions;
};

// Accepted algorithms for the signer and for each kind of certificate.
class TESSERA_API AlgorithmConstraintSet {
public:
    AlgorithmConstraintSet();
    explicit AlgorithmConstraintSet(const ESI_AlgorithmConstraintSet* constraints);

    const qorstd::QorVector<AlgAndLength>& GetSignerAlgorithmConstraints() const {
        return m_signer;
    }
    const qorstd::QorVector<AlgAndLength>& GetEndEntityCertsAlgorithmConstraints() const {
        return m_endEntity;
    }
    const qorstd::QorVector<AlgAndLength>& GetCACertsAlgorithmConstraints() const { return m_ca; }
    const qorstd::QorVector<AlgAndLength>& GetAttributeAuthorityCertsAlgorithmConstraints() const {
        return m_attributeAuthority;
    }
    const qorstd::QorVector<AlgAndLength>& GetTSACertsAlgorithmConstraints() const { return m_tsa; }

private:
    void ParseESIAlgorithmConstraintSet(const ESI_AlgorithmConstraintSet* constraints);
    void FillAlgorithmConstraintsVector(qorstd::QorVector<AlgAndLength>& target,
                                        const stack_st_ESI_ALG_AND_LENGTH* list);

    qorstd::QorVector<AlgAndLength> m_signer;
    qorstd::QorVector<AlgAndLength> m_endEntity;
    qorstd::QorVector<AlgAndLength> m_ca;
    qorstd::QorVector<AlgAndLength> m_attributeAuthority;
    qorstd::QorVector<AlgAndLength> m_tsa;
};

// What the signer must put into the signature.
class TESSERA_API SignerRules {
public:
    // Which certificates the signature must reference.
    enum cptCertRefReq { certRefSignerOnly = 1, certRefFullPath = 2 };
    // Which certificates the signature must carry.
    enum cptCertInfoReq { certInfoNone = 0, certInfoSignerOnly = 1, certInfoFullPath = 2 };

    SignerRules();
    explicit SignerRules(const ESI_SignerRules* rules);
    virtual ~SignerRules();

    // Null when the policy does not say; else 1 (content outside the
    // signature) or 0.
    const int* GetExternalSignedData() const { return m_externalSignedData.get(); }
    const qorstd::QorVector<qorstd::QorString>& GetMandatedSignedAttributes() const {
        return m_mandatedSignedAttributes;
    }
    const qorstd::QorVector<qorstd::QorString>& GetMandatedUnsignedAttributes() const {
        return m_mandatedUnsignedAttributes;
    }
    // certRefSignerOnly and certInfoNone when the policy does not say.
    cptCertRefReq GetMandatedCertificateReference() const { return m_certificateReference; }
    cptCertInfoReq GetMandatedCertificateInfo() const { return m_certificateInfo; }
    const SignaturePolicyExtensions& GetSignaturePolicyExtensions() const { return m_extensions; }

private:
    void ParseESISignerRules(const ESI_SignerRules* rules);

    DeepPtr<int> m_externalSignedData;
    qorstd::QorVector<qorstd::QorString> m_mandatedSignedAttributes;
    qorstd::QorVector<qorstd::QorString> m_mandatedUnsignedAttributes;
    cptCertRefReq m_certificateReference;
    cptCertInfoReq m_certificateInfo;
    SignaturePolicyExtensions m_extensions;
};

// What the verifier must add to the signature.
class TESSERA_API VerifierRules {
public:
    VerifierRules();
    explicit VerifierRules(const ESI_VerifierRules* rules);

    const qorstd::QorVector<qorstd::QorString>& GetMandatedUnsignedAttributes() const {
        return m_mandatedUnsignedAttributes;
    }
    const SignaturePolicyExtensions& GetSignaturePolicyExtensions() const { return m_extensions; }

private:
    void ParseESIVerifierRules(const ESI_VerifierRules* rules);

    qorstd::QorVector<qorstd::QorString> m_mandatedUnsignedAttributes;
    SignaturePolicyExtensions m_extensions;
};

// A commitment type a rule applies to.
class TESSERA_API CommitmentType {
public:
    CommitmentType();
    explicit CommitmentType(const ESI_CommitmentType* type);

    const qorstd::QorString& GetOID() const { return m_oid; }
    // Empty when absent.
    const qorstd::QorStringW& GetFieldOfApplication() const { return m_fieldOfApplication; }
    const qorstd::QorStringW& GetSemantics() const { return m_semantics; }

private:
    void ParseESICommitmentType(const ESI_CommitmentType* type);

    qorstd::QorString m_oid;
    qorstd::QorStringW m_fieldOfApplication;
    qorstd::QorStringW m_semantics;
};

// One selection of a commitment rule: "empty" (no commitment type in the
// signature) or a recognised commitment type.
class TESSERA_API SelectedCommitmentType {
public:
    // An empty selection.
    SelectedCommitmentType();
    explicit SelectedCommitmentType(const ESI_SelectedCommitmentType* type);

    int IsEmpty() const { return m_isEmpty; }
    // ErrInvalidState "Selected Commitment Type is empty" for an empty one.
    const CommitmentType& GetCommitmentType() const;

private:
    void ParseESISelectedCommitmentType(const ESI_SelectedCommitmentType* type);

    int m_isEmpty;
    CommitmentType m_commitmentType;
};

// Rules that hold for every signature under the policy.
class TESSERA_API CommonRules {
public:
    CommonRules();
    explicit CommonRules(const ESI_CommonRules* rules);
    virtual ~CommonRules();

    const SignerRules* GetSignerRules() const { return m_signerRules.get(); }
    const VerifierRules* GetVerifierRules() const { return m_verifierRules.get(); }
    const SigningCertTrustCondition* GetSigningCertTrustCondition() const {
        return m_signingCertTrustCondition.get();
    }
    const TimeStampTrustCondition* GetTimeStampTrustCondition() const {
        return m_timeStampTrustCondition.get();
    }
    const AlgorithmConstraintSet* GetAlgorithmConstraintSet() const {
        return m_algorithmConstraintSet.get();
    }
    const SignaturePolicyExtensions& GetSignaturePolicyExtensions() const { return m_extensions; }

protected:
    // The six fields common rules and commitment rules share.
    void ParseRuleFields(const policy::RuleFields& fields);

private:
    void ParseESICommonRules(const ESI_CommonRules* rules);

    DeepPtr<SignerRules> m_signerRules;
    DeepPtr<VerifierRules> m_verifierRules;
    DeepPtr<SigningCertTrustCondition> m_signingCertTrustCondition;
    DeepPtr<TimeStampTrustCondition> m_timeStampTrustCondition;
    DeepPtr<AlgorithmConstraintSet> m_algorithmConstraintSet;
    SignaturePolicyExtensions m_extensions;
};

// Rules for the signatures made with one of the selected commitment types.
class TESSERA_API CommitmentRule : public CommonRules {
public:
    CommitmentRule();
    explicit CommitmentRule(const ESI_CommitmentRule* rule);

    const qorstd::QorVector<SelectedCommitmentType>& GetSelectedCommitmentTypes() const {
        return m_selectedCommitmentTypes;
    }

private:
    void ParseESICommitmetRule(const ESI_CommitmentRule* rule);

    qorstd::QorVector<SelectedCommitmentType> m_selectedCommitmentTypes;
};

}  // namespace TesseraLib

namespace qorstd {
extern template class QorVector<TesseraLib::SignaturePolicyExtension>;
extern template class QorVectorIterator<TesseraLib::SignaturePolicyExtension>;
extern template class QorVector<TesseraLib::CertificateTrustPoint>;
extern template class QorVectorIterator<TesseraLib::CertificateTrustPoint>;
extern template class QorVector<TesseraLib::AlgAndLength>;
extern template class QorVectorIterator<TesseraLib::AlgAndLength>;
extern template class QorVector<TesseraLib::SelectedCommitmentType>;
extern template class QorVectorIterator<TesseraLib::SelectedCommitmentType>;
extern template class QorVector<TesseraLib::CommitmentRule>;
extern template class QorVectorIterator<TesseraLib::CommitmentRule>;
}  // namespace qorstd
