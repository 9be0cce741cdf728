// ASN.1 of machine-readable signature policies (ETSI TR 102 272), as OpenSSL
// templates (internal). Each type has a template named in capitals
// (ESI_SIGNATURE_POLICY) and a C structure named in camel case
// (ESI_SignaturePolicy); the public headers forward-declare the structures.
// Absent OPTIONAL fields leave their member null; an absent BOOLEAN is -1.
//
// The two texts of CommitmentType are [0] and [1] IMPLICIT around a
// DirectoryString. A CHOICE cannot carry an implicit tag, so they are read as
// implicitly tagged UTF8Strings; OpenSSL takes a constructed [0] as a
// segmented string whatever the inner tag, so a policy that wraps the
// string explicitly reads the same.
#pragma once

#include <openssl/asn1.h>
#include <openssl/asn1t.h>
#include <openssl/safestack.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "OpenSslPtr.h"
#include "SignaturePolicy.h"

struct ESI_SignPolExtn_st {
    ASN1_OBJECT* extnID;
    ASN1_OCTET_STRING* extnValue;
};
typedef ESI_SignPolExtn ESI_SIGN_POL_EXTN;
DEFINE_STACK_OF(ESI_SIGN_POL_EXTN)

struct ESI_DeltaTime_st {
    ASN1_INTEGER* deltaSeconds;
    ASN1_INTEGER* deltaMinutes;
    ASN1_INTEGER* deltaHours;
    ASN1_INTEGER* deltaDays;
};
typedef ESI_DeltaTime ESI_DELTA_TIME;

struct ESI_AlgAndLength_st {
    ASN1_OBJECT* algID;
    ASN1_INTEGER* minKeyLength;
    STACK_OF(ESI_SIGN_POL_EXTN) * other;
};
typedef ESI_AlgAndLength ESI_ALG_AND_LENGTH;
DEFINE_STACK_OF(ESI_ALG_AND_LENGTH)

struct ESI_AlgorithmConstraintSet_st {
    STACK_OF(ESI_ALG_AND_LENGTH) * signerAlgorithmConstraints;
    STACK_OF(ESI_ALG_AND_LENGTH) * eeCertAlgorithmConstraints;
    STACK_OF(ESI_ALG_AND_LENGTH) * caCertAlgorithmConstraints;
    STACK_OF(ESI_ALG_AND_LENGTH) * aaCertAlgorithmConstraints;
    STACK_OF(ESI_ALG_AND_LENGTH) * tsaCertAlgorithmConstraints;
};
typedef ESI_AlgorithmConstraintSet ESI_ALGORITHM_CONSTRAINT_SET;

struct ESI_RevReq_st {
    ASN1_ENUMERATED* enuRevReq;
    STACK_OF(ESI_SIGN_POL_EXTN) * exRevReq;
};
typedef ESI_RevReq ESI_REV_REQ;

struct ESI_CertRevReq_st {
    ESI_REV_REQ* endCertRevReq;
    ESI_REV_REQ* caCerts;
};
typedef ESI_CertRevReq ESI_CERT_REV_REQ;

typedef struct ESI_GeneralSubtree_st {
    GENERAL_NAME* base;
    ASN1_INTEGER* minimum;
    ASN1_INTEGER* maximum;
} ESI_GeneralSubtree;
typedef ESI_GeneralSubtree ESI_GENERAL_SUBTREE;
DEFINE_STACK_OF(ESI_GENERAL_SUBTREE)

typedef struct ESI_NameConstraints_st {
    STACK_OF(ESI_GENERAL_SUBTREE) * permittedSubtrees;
    STACK_OF(ESI_GENERAL_SUBTREE) * excludedSubtrees;
} ESI_NameConstraints;
typedef ESI_NameConstraints ESI_NAME_CONSTRAINTS;

typedef struct ESI_PolicyConstraints_st {
    ASN1_INTEGER* requireExplicitPolicy;
    ASN1_INTEGER* inhibitPolicyMapping;
} ESI_PolicyConstraints;
typedef ESI_PolicyConstraints ESI_POLICY_CONSTRAINTS;

struct ESI_CertificateTrustPoint_st {
    X509* trustpoint;
    ASN1_INTEGER* pathLenConstraint;
    STACK_OF(ASN1_OBJECT) * acceptablePolicySet;
    ESI_NAME_CONSTRAINTS* nameConstraints;
    ESI_POLICY_CONSTRAINTS* policyConstraints;
};
typedef ESI_CertificateTrustPoint ESI_CERTIFICATE_TRUST_POINT;
DEFINE_STACK_OF(ESI_CERTIFICATE_TRUST_POINT)

struct ESI_SigningCertTrustCondition_st {
    STACK_OF(ESI_CERTIFICATE_TRUST_POINT) * signerTrustTrees;
    ESI_CERT_REV_REQ* signerRevReq;
};
typedef ESI_SigningCertTrustCondition ESI_SIGNING_CERT_TRUST_CONDITION;

struct ESI_TimestampTrustCondition_st {
    STACK_OF(ESI_CERTIFICATE_TRUST_POINT) * ttsCertificateTrustTrees;
    ESI_CERT_REV_REQ* ttsRevReq;
    ESI_NAME_CONSTRAINTS* ttsNameConstraints;
    ESI_DELTA_TIME* cautionPeriod;
    ESI_DELTA_TIME* signatureTimestampDelay;
};
typedef ESI_TimestampTrustCondition ESI_TIMESTAMP_TRUST_CONDITION;

// AttributeTypeAndValue: the value stays undecoded.
typedef struct ESI_AttributeTypeAndValue_st {
    ASN1_OBJECT* type;
    ASN1_TYPE* value;
} ESI_AttributeTypeAndValue;
typedef ESI_AttributeTypeAndValue ESI_ATTRIBUTE_TYPE_AND_VALUE;
DEFINE_STACK_OF(ESI_ATTRIBUTE_TYPE_AND_VALUE)

typedef struct ESI_AttributeConstraints_st {
    STACK_OF(ASN1_OBJECT) * attributeTypeConstraints;
    STACK_OF(ESI_ATTRIBUTE_TYPE_AND_VALUE) * attributeValueConstraints;
} ESI_AttributeConstraints;
typedef ESI_AttributeConstraints ESI_ATTRIBUTE_CONSTRAINTS;

typedef struct ESI_AttributeTrustCondition_st {
    ASN1_BOOLEAN attributeMandated;
    ASN1_ENUMERATED* howCertAttribute;
    STACK_OF(ESI_CERTIFICATE_TRUST_POINT) * attrCertificateTrustTrees;
    ESI_CERT_REV_REQ* attrRevReq;
    ESI_ATTRIBUTE_CONSTRAINTS* attributeConstraints;
} ESI_AttributeTrustCondition;
typedef ESI_AttributeTrustCondition ESI_ATTRIBUTE_TRUST_CONDITION;

struct ESI_SignerRules_st {
    ASN1_BOOLEAN externalSignedData;  // -1 when absent
    STACK_OF(ASN1_OBJECT) * mandatedSignedAttr;
    STACK_OF(ASN1_OBJECT) * mandatedUnsignedAttr;
    ASN1_ENUMERATED* mandatedCertificateRef;
    ASN1_ENUMERATED* mandatedCertificateInfo;
    STACK_OF(ESI_SIGN_POL_EXTN) * signPolExtensions;
};
typedef ESI_SignerRules ESI_SIGNER_RULES;

struct ESI_VerifierRules_st {
    STACK_OF(ASN1_OBJECT) * mandatedUnsignedAttr;
    STACK_OF(ESI_SIGN_POL_EXTN) * signPolExtensions;
};
typedef ESI_VerifierRules ESI_VERIFIER_RULES;

typedef struct ESI_SignerAndVerifierRules_st {
    ESI_SIGNER_RULES* signerRules;
    ESI_VERIFIER_RULES* verifierRules;
} ESI_SignerAndVerifierRules;
typedef ESI_SignerAndVerifierRules ESI_SIGNER_AND_VERIFIER_RULES;

struct ESI_CommitmentType_st {
    ASN1_OBJECT* identifier;
    ASN1_STRING* fieldOfApplication;
    ASN1_STRING* semantics;
};
typedef ESI_CommitmentType ESI_COMMITMENT_TYPE;

struct ESI_SelectedCommitmentType_st {
    int type;  // 0: empty, 1: recognizedCommitmentType
    union {
        ASN1_NULL* empty;
        ESI_COMMITMENT_TYPE* recognizedCommitmentType;
    } value;
};
typedef ESI_SelectedCommitmentType ESI_SELECTED_COMMITMENT_TYPE;
DEFINE_STACK_OF(ESI_SELECTED_COMMITMENT_TYPE)

struct ESI_CommonRules_st {
    ESI_SIGNER_AND_VERIFIER_RULES* signerAndVeriferRules;
    ESI_SIGNING_CERT_TRUST_CONDITION* signingCertTrustCondition;
    ESI_TIMESTAMP_TRUST_CONDITION* timeStampTrustCondition;
    ESI_ATTRIBUTE_TRUST_CONDITION* attributeTrustCondition;
    ESI_ALGORITHM_CONSTRAINT_SET* algorithmConstraintSet;
    STACK_OF(ESI_SIGN_POL_EXTN) * signPolExtensions;
};
typedef ESI_CommonRules ESI_COMMON_RULES;

struct ESI_CommitmentRule_st {
    STACK_OF(ESI_SELECTED_COMMITMENT_TYPE) * selCommitmentTypes;
    ESI_SIGNER_AND_VERIFIER_RULES* signerAndVeriferRules;
    ESI_SIGNING_CERT_TRUST_CONDITION* signingCertTrustCondition;
    ESI_TIMESTAMP_TRUST_CONDITION* timeStampTrustCondition;
    ESI_ATTRIBUTE_TRUST_CONDITION* attributeTrustCondition;
    ESI_ALGORITHM_CONSTRAINT_SET* algorithmConstraintSet;
    STACK_OF(ESI_SIGN_POL_EXTN) * signPolExtensions;
};
typedef ESI_CommitmentRule ESI_COMMITMENT_RULE;
DEFINE_STACK_OF(ESI_COMMITMENT_RULE)

typedef struct ESI_SigningPeriod_st {
    ASN1_GENERALIZEDTIME* notBefore;
    ASN1_GENERALIZEDTIME* notAfter;
} ESI_SigningPeriod;
typedef ESI_SigningPeriod ESI_SIGNING_PERIOD;

struct ESI_SignatureValidationPolicy_st {
    ESI_SIGNING_PERIOD* signingPeriod;
    ESI_COMMON_RULES* commonRules;
    STACK_OF(ESI_COMMITMENT_RULE) * commitmentRules;
    STACK_OF(ESI_SIGN_POL_EXTN) * signPolExtensions;
};
typedef ESI_SignatureValidationPolicy ESI_SIGNATURE_VALIDATION_POLICY;

struct ESI_SignPolicyInfo_st {
    ASN1_OBJECT* signPolicyIdentifier;
    ASN1_GENERALIZEDTIME* dateOfIssue;
    GENERAL_NAMES* policyIssuerName;
    ASN1_STRING* fieldOfApplication;
    ESI_SIGNATURE_VALIDATION_POLICY* signatureValidationPolicy;
    STACK_OF(ESI_SIGN_POL_EXTN) * signPolExtensions;
};
typedef ESI_SignPolicyInfo ESI_SIGN_POLICY_INFO;

struct ESI_SignaturePolicy_st {
    X509_ALGOR* signPolicyHashAlg;
    ESI_SIGN_POLICY_INFO* signPolicyInfo;
    ASN1_OCTET_STRING* signPolicyHash;
};
typedef ESI_SignaturePolicy ESI_SIGNATURE_POLICY;

DECLARE_ASN1_FUNCTIONS(ESI_SIGN_POL_EXTN)
DECLARE_ASN1_FUNCTIONS(ESI_DELTA_TIME)
DECLARE_ASN1_FUNCTIONS(ESI_ALG_AND_LENGTH)
DECLARE_ASN1_FUNCTIONS(ESI_ALGORITHM_CONSTRAINT_SET)
DECLARE_ASN1_FUNCTIONS(ESI_REV_REQ)
DECLARE_ASN1_FUNCTIONS(ESI_CERT_REV_REQ)
DECLARE_ASN1_FUNCTIONS(ESI_GENERAL_SUBTREE)
DECLARE_ASN1_FUNCTIONS(ESI_NAME_CONSTRAINTS)
DECLARE_ASN1_FUNCTIONS(ESI_POLICY_CONSTRAINTS)
DECLARE_ASN1_FUNCTIONS(ESI_CERTIFICATE_TRUST_POINT)
DECLARE_ASN1_FUNCTIONS(ESI_SIGNING_CERT_TRUST_CONDITION)
DECLARE_ASN1_FUNCTIONS(ESI_TIMESTAMP_TRUST_CONDITION)
DECLARE_ASN1_FUNCTIONS(ESI_ATTRIBUTE_TYPE_AND_VALUE)
DECLARE_ASN1_FUNCTIONS(ESI_ATTRIBUTE_CONSTRAINTS)
DECLARE_ASN1_FUNCTIONS(ESI_ATTRIBUTE_TRUST_CONDITION)
DECLARE_ASN1_FUNCTIONS(ESI_SIGNER_RULES)
DECLARE_ASN1_FUNCTIONS(ESI_VERIFIER_RULES)
DECLARE_ASN1_FUNCTIONS(ESI_SIGNER_AND_VERIFIER_RULES)
DECLARE_ASN1_FUNCTIONS(ESI_COMMITMENT_TYPE)
DECLARE_ASN1_FUNCTIONS(ESI_SELECTED_COMMITMENT_TYPE)
DECLARE_ASN1_FUNCTIONS(ESI_COMMON_RULES)
DECLARE_ASN1_FUNCTIONS(ESI_COMMITMENT_RULE)
DECLARE_ASN1_FUNCTIONS(ESI_SIGNING_PERIOD)
DECLARE_ASN1_FUNCTIONS(ESI_SIGNATURE_VALIDATION_POLICY)
DECLARE_ASN1_FUNCTIONS(ESI_SIGN_POLICY_INFO)
DECLARE_ASN1_FUNCTIONS(ESI_SIGNATURE_POLICY)

namespace TesseraLib {
namespace policy {

using EsiSignaturePolicyPtr = qorssl::OpenSslPtr<ESI_SIGNATURE_POLICY, ESI_SIGNATURE_POLICY_free>;

}  // namespace policy
}  // namespace TesseraLib
