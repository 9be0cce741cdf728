// The verifier's settings for checking CMS signatures.
#pragma once

#include <cstdint>

#include "QorVector.h"
#include "TesseraExport.h"
#include "X509Certificate.h"

namespace TesseraLib {

class X509ChainPolicy;

// A value: copies share the chain policy (not owned).
class TESSERA_API VerifierCms {
public:
    // How far the signer certificate is checked.
    enum cptVerifyOption {
        cptVerifyNone = 0,
        // The certificate by itself, without a path: see
        // SignedCms::SignerInfo::VerifyCertificate.
        cptVerifySignerCertificate = 1,
        // Path building and revocation under the chain policy.
        cptVerifyWholeChain = 2
    };

    VerifierCms();
    VerifierCms(const VerifierCms& other) = default;
    VerifierCms& operator=(const VerifierCms& other) = default;
    virtual ~VerifierCms();

    // Option cptVerifyWholeChain, time 0, no candidates, no policy,
    // time-stamp times compared with the verify time.
    virtual void Reset();

    void SetVerifyOption(cptVerifyOption option) { m_verifyOption = option; }
    cptVerifyOption GetVerifyOption() const { return m_verifyOption; }
    // 0: the current time where a time is needed.
    void SetVerifyTime(std::int64_t time) { m_verifyTime = time; }
    std::int64_t GetVerifyTime() const { return m_verifyTime; }
    // Candidates for the signer certificate when the message lacks it.
    void SetSignerCertificates(const qorstd::QorVector<X509Certificate>& certificates) {
        m_signerCertificates = certificates;
    }
    const qorstd::QorVector<X509Certificate>& GetSignerCertificates() const {
        return m_signerCertificates;
    }
    void SetChainPolicy(X509ChainPolicy* policy) { m_chainPolicy = policy; }
    X509ChainPolicy* GetChainPolicy() const { return m_chainPolicy; }
    // Whether a time-stamp time later than the verify time is an error.
    void SetCompareTsTimeVerifyTime(int value) { m_compareTsTimeVerifyTime = value; }
    int GetCompareTsTimeVerifyTime() const { return m_compareTsTimeVerifyTime; }

private:
    // The defaults live here only: the constructor and Reset take them.
    cptVerifyOption m_verifyOption = cptVerifyWholeChain;
    std::int64_t m_verifyTime = 0;
    qorstd::QorVector<X509Certificate> m_signerCertificates;
    X509ChainPolicy* m_chainPolicy = nullptr;
    int m_compareTsTimeVerifyTime = 1;
};

}  // namespace TesseraLib
