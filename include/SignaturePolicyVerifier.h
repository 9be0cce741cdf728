// Applies the rules of a signature policy to one CAdES signer: checks that
// pass silently or throw, and loaders that copy the policy's trust
// conditions into a chain policy before the signer's path is built.
#pragma once

#include <cstdint>
#include <memory>

#include "QorString.h"
#include "QorVector.h"
#include "SignedCades.h"
#include "TesseraExport.h"

namespace TesseraLib {

class AlgAndLength;
class CommitmentRule;
class CommonRules;
class LogChannel;
class SignaturePolicy;
class SignaturePolicyOverrides;
class SignatureValidationPolicy;
class X509Chain;
class X509ChainPolicy;
class X509MemoryStore;

// Lives for one pass over one signer; not copied. Nothing is owned but the
// log channel.
class TESSERA_API SignaturePolicyVerifier {
public:
    SignaturePolicyVerifier(const SignedCades::SignerInfo* sign,
                            const SignatureValidationPolicy* validator,
                            const SignaturePolicyOverrides* overrides);
    ~SignaturePolicyVerifier();
    SignaturePolicyVerifier(const SignaturePolicyVerifier&) = delete;
    SignaturePolicyVerifier& operator=(const SignaturePolicyVerifier&) = delete;

    void SetPolicyValidator(const SignatureValidationPolicy* validator) { m_validator = validator; }

    // The checks, in the order a verification runs them.
    void VerifyFormat(const SignaturePolicy* policy) const;
    void VerifyTimeValidity(const std::int64_t& time) const;
    void VerifySignerRules(const SignedCades* signature) const;
    void VerifyVerifierRules() const;
    void VerifyAlgorithmConstraints(const X509Chain* chain) const;
    void VerifyCommitmentRules() const;

    // The loaders, before the signer's path is built.
    void LoadChainConditionExtension(X509ChainPolicy* chainPolicy, X509MemoryStore* trustStore);
    void LoadRevocationConditionExtension(X509ChainPolicy* chainPolicy);
    void LoadTimestampConditionExtension(X509ChainPolicy* chainPolicy);

private:
    [[noreturn]] void VerifyError(const wchar_t* text, int code, const wchar_t* message) const;
    const CommonRules& GetCommonRules() const;
    const qorstd::QorVector<CommitmentRule>& GetCommitmentRules() const;
    void CheckAlgorithmConstraints(const qorstd::QorVector<AlgAndLength>& constraints,
                                   const qorstd::QorString& oid) const;
    qorstd::QorString HashAlgorithmNameToOID(const qorstd::QorString& name, int longName) const;

    const SignatureValidationPolicy* m_validator;
    const SignedCades::SignerInfo* m_sign;
    const SignaturePolicyOverrides* m_overrides;
    std::unique_ptr<LogChannel> m_log;
};

}  // namespace TesseraLib
