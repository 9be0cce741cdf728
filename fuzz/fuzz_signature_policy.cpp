// SignaturePolicy::Decode over arbitrary bytes: it must either decode a
// policy, whose every getter and rule then answers, whose copy agrees with
// it and whose hash check answers without failing, naming a convention only
// when the digest under it is the stored hash, or throw CryptException —
// never crash, leak, hang or let another exception type escape. A decoded
// policy with a hash also yields a signature-policy attribute that decodes
// to the same policy OID and hash.
#include <openssl/err.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "CryptException.h"
#include "SignaturePolicy.h"
#include "SignaturePolicyAttribute.h"

using namespace TesseraLib;

namespace {

void Touch(const SignaturePolicyExtensions& extensions) {
    for (unsigned int i = 0; i < extensions.GetSize(); ++i) {
        (void)extensions[i].oid.length();
        (void)extensions[i].value.GetSize();
    }
}

void Touch(const RevReq& requirement) {
    (void)requirement.GetRevocationRequirements();
    Touch(requirement.GetSignaturePolicyExtensions());
}

void Touch(const TrustCondition& condition) {
    for (unsigned int i = 0; i < condition.GetTrustTrees().GetSize(); ++i) {
        const CertificateTrustPoint& point = condition.GetTrustTrees()[i];
        (void)point.GetTrustPoint().GetSubjectStringX500(0);
        (void)point.GetTrustPoint().GetSerialNumberStringHex();
        (void)point.GetPathLenConstraint();
        (void)point.GetAcceptablePolicySet().GetSize();
        (void)point.GetRequireExplicitPolicy();
        (void)point.GetInhibitPolicyMapping();
    }
    if (const CertRevReq* requirements = condition.GetRevocationRequirements()) {
        Touch(requirements->GetEndCertRevocationRequirements());
        Touch(requirements->GetCACertstRevocationRequirements());
    }
}

void Touch(const qorstd::QorVector<AlgAndLength>& algorithms) {
    for (unsigned int i = 0; i < algorithms.GetSize(); ++i) {
        (void)algorithms[i].GetOID().length();
        (void)algorithms[i].GetMinKeyLength();
        Touch(algorithms[i].GetSignaturePolicyExtensions());
    }
}

void Touch(const CommonRules& rules) {
    if (const SignerRules* signer = rules.GetSignerRules()) {
        (void)signer->GetExternalSignedData();
        (void)signer->GetMandatedSignedAttributes().GetSize();
        (void)signer->GetMandatedUnsignedAttributes().GetSize();
        (void)signer->GetMandatedCertificateReference();
        (void)signer->GetMandatedCertificateInfo();
        Touch(signer->GetSignaturePolicyExtensions());
    }
    if (const VerifierRules* verifier = rules.GetVerifierRules()) {
        (void)verifier->GetMandatedUnsignedAttributes().GetSize();
        Touch(verifier->GetSignaturePolicyExtensions());
    }
    if (const SigningCertTrustCondition* signing = rules.GetSigningCertTrustCondition()) {
        Touch(*signing);
    }
    if (const TimeStampTrustCondition* stamp = rules.GetTimeStampTrustCondition()) {
        Touch(*stamp);
        (void)stamp->GetCautionPeriod();
        (void)stamp->GetSignatureTimestampDelay();
    }
    if (const AlgorithmConstraintSet* set = rules.GetAlgorithmConstraintSet()) {
        Touch(set->GetSignerAlgorithmConstraints());
        Touch(set->GetEndEntityCertsAlgorithmConstraints());
        Touch(set->GetCACertsAlgorithmConstraints());
        Touch(set->GetAttributeAuthorityCertsAlgorithmConstraints());
        Touch(set->GetTSACertsAlgorithmConstraints());
    }
    Touch(rules.GetSignaturePolicyExtensions());
}

void Touch(const SignaturePolicy& policy) {
    (void)policy.GetOID().length();
    (void)policy.GetDateOfIssue();
    (void)policy.GetIssuerName().GetStringX500();
    (void)policy.GetURI().length();
    (void)policy.GetFieldOfApplication().length();
    (void)policy.GetHashAlgorithmOID();
    (void)policy.GetHashAlgorithmName();
    (void)policy.GetHashValueHex();
    const SignatureValidationPolicy& validation = policy.GetSignatureValidationPolicy();
    (void)validation.GetNotBefore();
    (void)validation.GetNotAfter();
    Touch(validation.GetCommonRules());
    for (unsigned int i = 0; i < validation.GetCommitmentRules().GetSize(); ++i) {
        const CommitmentRule& rule = validation.GetCommitmentRules()[i];
        for (unsigned int t = 0; t < rule.GetSelectedCommitmentTypes().GetSize(); ++t) {
            const SelectedCommitmentType& selected = rule.GetSelectedCommitmentTypes()[t];
            if (selected.IsEmpty() == 0) {
                (void)selected.GetCommitmentType().GetOID().length();
                (void)selected.GetCommitmentType().GetFieldOfApplication().length();
                (void)selected.GetCommitmentType().GetSemantics().length();
            }
        }
        Touch(rule);
    }
    Touch(validation.GetSignaturePolicyExtensions());
    Touch(policy.GetSignaturePolicyExtensions());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 1u << 20) {
        return 0;
    }
    const qorstd::QorArray<unsigned char> der(data, static_cast<unsigned int>(size));
    SignaturePolicy policy;
    try {
        policy.Decode(der);
    } catch (const CryptException&) {
        ERR_clear_error();
        return 0;
    }
    if (policy.Export() != der) {
        std::abort();  // Export gives the decoded bytes back
    }
    Touch(policy);
    const SignaturePolicy copy(policy);
    Touch(copy);
    if (copy.Export() != der || copy.GetOID() != policy.GetOID()) {
        std::abort();  // a copy is the same policy
    }
    // The hash check never fails on a decoded policy: what it cannot compute
    // matches nothing.
    const SignaturePolicy::cptHashConvention match = policy.CheckHash();
    if (match != SignaturePolicy::cptHashMatchNone &&
        policy.ComputeHash(policy.GetHashAlgorithmNID(), match) != policy.GetHashValue()) {
        std::abort();  // the convention named must reproduce the stored hash
    }
    if (policy.GetHashValue().GetSize() != 0) {
        try {
            const SignaturePolicyAttribute attribute(policy);
            SignaturePolicyAttribute decoded;
            decoded.Decode(attribute.Encode());
            if (decoded.GetPolicyOID() != policy.GetOID() ||
                decoded.GetHashValue() != policy.GetHashValue()) {
                std::abort();  // the attribute names the policy it was built from
            }
        } catch (const CryptException&) {
        }
    }
    ERR_clear_error();
    return 0;
}
