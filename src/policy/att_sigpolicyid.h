// The value of the signature-policy-identifier attribute (internal):
//
//   SignaturePolicyIdentifier ::= CHOICE { signaturePolicyId SignaturePolicyId,
//                                          signaturePolicyImplied NULL }
//   SignaturePolicyId ::= SEQUENCE { sigPolicyId OBJECT IDENTIFIER,
//                                    sigPolicyHash OtherHashAlgAndValue,
//                                    sigPolicyQualifiers SEQUENCE OF SigPolicyQualifierInfo
//                                    OPTIONAL }
//   SigPolicyQualifierInfo ::= SEQUENCE { sigPolicyQualifierId OBJECT IDENTIFIER,
//                                         sigQualifier ANY DEFINED BY sigPolicyQualifierId }
//
// with an IA5String for SPuri and a UserNotice for SPUserNotice.
#pragma once

#include <openssl/asn1.h>
#include <openssl/asn1t.h>
#include <openssl/evp.h>
#include <openssl/safestack.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "OpenSslPtr.h"
#include "SignaturePolicyAttribute.h"

typedef struct ESI_OtherHashAlgAndValue_st {
    X509_ALGOR* hashAlgorithm;
    ASN1_OCTET_STRING* hashValue;
} ESI_OtherHashAlgAndValue;
typedef ESI_OtherHashAlgAndValue ESI_OTHER_HASH_ALG_AND_VALUE;

struct ESI_SigPolicyQualifierInfo_st {
    ASN1_OBJECT* sigPolicyQualifierId;
    union {
        ASN1_IA5STRING* spUri;
        USERNOTICE* spUserNotice;
        ASN1_TYPE* other;
    } sigQualifier;
};
typedef ESI_SigPolicyQualifierInfo ESI_SIG_POLICY_QUALIFIER_INFO;
DEFINE_STACK_OF(ESI_SIG_POLICY_QUALIFIER_INFO)

typedef struct ESI_SignaturePolicyId_st {
    ASN1_OBJECT* sigPolicyId;
    ESI_OTHER_HASH_ALG_AND_VALUE* sigPolicyHash;
    STACK_OF(ESI_SIG_POLICY_QUALIFIER_INFO) * sigPolicyQualifiers;
} ESI_SignaturePolicyId;
typedef ESI_SignaturePolicyId ESI_SIGNATURE_POLICY_ID;

typedef struct ESI_SignaturePolicyIdentifier_st {
    int type;  // 0: signaturePolicyId, 1: signaturePolicyImplied
    union {
        ESI_SIGNATURE_POLICY_ID* signaturePolicyId;
        ASN1_NULL* signaturePolicyImplied;
    } value;
} ESI_SignaturePolicyIdentifier;
typedef ESI_SignaturePolicyIdentifier ESI_SIGNATURE_POLICY_IDENTIFIER;

DECLARE_ASN1_FUNCTIONS(ESI_OTHER_HASH_ALG_AND_VALUE)
DECLARE_ASN1_FUNCTIONS(ESI_SIG_POLICY_QUALIFIER_INFO)
DECLARE_ASN1_FUNCTIONS(ESI_SIGNATURE_POLICY_ID)
DECLARE_ASN1_FUNCTIONS(ESI_SIGNATURE_POLICY_IDENTIFIER)

// A signature policy identifier naming the policy `policyOid` (dotted),
// with the first digest-size bytes of `hash` as the policy's hash under
// `digest`, and qualifiers for `uri` (SPuri) and `notice` (SPUserNotice, as
// UTF-8 explicit text) when they are not null, in that order. Null when an
// argument is missing or anything fails; the caller frees the result.
ESI_SIGNATURE_POLICY_IDENTIFIER* QOR_Attr_SignaturePolicyIdentifier_Create(
    const char* policyOid, const EVP_MD* digest, const unsigned char* hash, const char* uri,
    const char* notice);

namespace TesseraLib {
namespace policy {

using EsiSignaturePolicyIdentifierPtr =
    qorssl::OpenSslPtr<ESI_SIGNATURE_POLICY_IDENTIFIER, ESI_SIGNATURE_POLICY_IDENTIFIER_free>;
using EsiSignaturePolicyIdPtr =
    qorssl::OpenSslPtr<ESI_SIGNATURE_POLICY_ID, ESI_SIGNATURE_POLICY_ID_free>;

}  // namespace policy
}  // namespace TesseraLib
