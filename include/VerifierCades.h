// The verifier settings of CAdES signatures: the CMS verifier's, plus how
// signature policies are found and applied.
#pragma once

#include "TesseraExport.h"
#include "VerifierCms.h"

namespace TesseraLib {

class SignaturePolicy;
class SignaturePolicyClient;
class SignaturePolicyOverrides;
class SignedCades;

// A value: copies share the policy, the client and the overrides (none is
// owned).
class TESSERA_API VerifierCades : public VerifierCms {
public:
    VerifierCades();
    // The CMS settings of `verifier`; the policy settings at their defaults.
    explicit VerifierCades(const VerifierCms& verifier);
    VerifierCades(const VerifierCades& other) = default;
    VerifierCades& operator=(const VerifierCades& other) = default;
    ~VerifierCades() override;

    // The CMS defaults; no policy checks, no policy, client or overrides.
    void Reset() override;
    // A new, empty container; the caller owns it.
    virtual SignedCades* CreateSignatureObject() const;

    // Nonzero: the policy a signer names is loaded and its rules applied.
    void SetCheckSignaturePolicy(int check) { m_checkSignaturePolicy = check; }
    int GetCheckSignaturePolicy() const { return m_checkSignaturePolicy; }
    // The policy to apply; without one, the client is asked for the
    // signer's policy OID.
    void SetSignaturePolicy(const SignaturePolicy* policy) { m_signaturePolicy = policy; }
    const SignaturePolicy* GetSignaturePolicy() const { return m_signaturePolicy; }
    void SetSignaturePolicyClient(SignaturePolicyClient* client) {
        m_signaturePolicyClient = client;
    }
    SignaturePolicyClient* GetSignaturePolicyClient() const { return m_signaturePolicyClient; }
    void SetSignaturePolicyOverrides(const SignaturePolicyOverrides* overrides) {
        m_signaturePolicyOverrides = overrides;
    }
    const SignaturePolicyOverrides* GetSignaturePolicyOverrides() const {
        return m_signaturePolicyOverrides;
    }

private:
    int m_checkSignaturePolicy = 0;
    const SignaturePolicy* m_signaturePolicy = nullptr;
    SignaturePolicyClient* m_signaturePolicyClient = nullptr;
    const SignaturePolicyOverrides* m_signaturePolicyOverrides = nullptr;
};

}  // namespace TesseraLib
