// Readers shared by the classes of the signature policy model (internal):
// OIDs, texts, times, integers and extension lists out of the decoded
// OpenSSL structures.
#pragma once

#include <cstdint>

#include "QorString.h"
#include "QorVector.h"
#include "SignaturePolicyRules.h"
#include "policy/EsiAsn1.h"

namespace TesseraLib {
namespace policy {

// The six optional fields common rules and commitment rules share.
struct RuleFields {
    explicit RuleFields(const ESI_COMMON_RULES& rules);
    explicit RuleFields(const ESI_COMMITMENT_RULE& rule);

    const ESI_SIGNER_AND_VERIFIER_RULES* signerAndVerifierRules;
    const ESI_SIGNING_CERT_TRUST_CONDITION* signingCertTrustCondition;
    const ESI_TIMESTAMP_TRUST_CONDITION* timeStampTrustCondition;
    const ESI_ALGORITHM_CONSTRAINT_SET* algorithmConstraintSet;
    const STACK_OF(ESI_SIGN_POL_EXTN) * extensions;
};

// Dotted OID text; empty for null or an OID that cannot be printed.
qorstd::QorString OidText(const ASN1_OBJECT* object);
// Appends the dotted text of every OID that prints (none for a null list).
void AppendOids(qorstd::QorVector<qorstd::QorString>& target, const STACK_OF(ASN1_OBJECT) * oids);
// Appends every non-null extension (none for a null list).
void AppendExtensions(SignaturePolicyExtensions& target,
                      const STACK_OF(ESI_SIGN_POL_EXTN) * extensions);
// A DirectoryString as wide text; a string that does not convert fails
// with ErrAsn1Decoding and `failure` as the message.
qorstd::QorStringW DirectoryText(const ASN1_STRING* text, const wchar_t* failure);
// A GeneralizedTime as seconds since 1970; an unreadable time fails with
// ErrAsn1Decoding.
std::int64_t TimeSeconds(const ASN1_GENERALIZEDTIME* time);
// OpenSSL's INTEGER-to-long reading, as an unsigned value.
unsigned long* NewUnsigned(const ASN1_INTEGER* value);

}  // namespace policy
}  // namespace TesseraLib
