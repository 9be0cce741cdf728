// Verification of CAdES signers: the checks whose first failure is held
// back (signature, content type, signing certificate, policy loading,
// signature time-stamps), then the certificate path and the policy rules,
// which always run.
#include <openssl/evp.h>

#include <exception>
#include <memory>

#include "CryptException.h"
#include "CryptUtils.h"
#include "ExceptionRecording.h"
#include "Failure.h"
#include "LogChannel.h"
#include "OcspException.h"
#include "QorExceptionStore.h"
#include "SignaturePolicy.h"
#include "SignaturePolicyClient.h"
#include "SignaturePolicyVerifier.h"
#include "SignedCades.h"
#include "TspException.h"
#include "X509ChainPolicy.h"
#include "X509Store.h"
#include "cms/SigningCertCheck.h"

namespace TesseraLib {

namespace {

constexpr const char* kOidTstInfo = "1.2.840.113549.1.9.16.1.4";

}  // namespace

void SignedCades::SignerInfo::VerifySigningCert(const SigningCertificateAttribute& attr,
                                                const x509_st* signerCert) const {
    cms::VerifySigningCert(*m_cadesLog, attr, signerCert);
}

const SignaturePolicy* SignedCades::SignerInfo::LoadSignaturePolicy(
    const VerifierCades& verifier, X509MemoryStore* store, X509ChainPolicy* chainPolicy) const {
    if (m_hasPolicyId == 0) {
        Fail(m_cadesLog, L"LoadSignaturePolicy: Signature policy attribute is not set",
             ErrSigPolicyIdNotFound, L"GetSignaturePolicy() = NULL");
    }
    const SignaturePolicy* policy = verifier.GetSignaturePolicy();
    if (policy == nullptr && verifier.GetSignaturePolicyClient() != nullptr) {
        policy = verifier.GetSignaturePolicyClient()->GetSignaturePolicy(
            m_signaturePolicy.GetPolicyOID());
    }
    if (policy == nullptr) {
        Fail(m_cadesLog, L"LoadSignaturePolicy: Signature policy not set", ErrNoSignPolicy,
             L"pSignPolicy = NULL");
    }
    if (policy->GetOID() != m_signaturePolicy.GetPolicyOID()) {
        Fail(m_cadesLog, L"LoadSignaturePolicy: Signature policy OID mismatch",
             ErrPolicyOidMismatch);
    }
    SignaturePolicyVerifier loader(this, &policy->GetSignatureValidationPolicy(), nullptr);
    loader.LoadChainConditionExtension(chainPolicy, store);
    loader.LoadRevocationConditionExtension(chainPolicy);
    loader.LoadTimestampConditionExtension(chainPolicy);
    return policy;
}

qorstd::QorArray<unsigned char> SignedCades::SignerInfo::ContentDigest(int nid) const {
    if (m_pSigner == nullptr || m_cadesParent == nullptr) {
        Fail(m_cadesLog, L"Verify: Signer is not present.", ErrNoSigner);
    }
    const qorstd::QorArray<unsigned char>& content = m_cadesParent->GetContent();
    if (m_cadesParent->IsDetached() != 0 && content.IsEmpty()) {
        Fail(m_cadesLog, L"Verify: Signed content not set - m_aContent is empty", ErrNoContent);
    }
    const EVP_MD* md = EVP_get_digestbynid(nid);
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (md == nullptr ||
        EVP_Digest(content.GetData(), content.GetSize(), digest, &length, md, nullptr) != 1) {
        FailCrypto(m_cadesLog, "Verify: EVP_Digest() failed.", ErrHashGeneration);
    }
    return qorstd::QorArray<unsigned char>(digest, length);
}

void SignedCades::SignerInfo::VerifySignedParts(const qorstd::QorArray<unsigned char>& hash,
                                                const x509_st* certificate,
                                                const VerifierCades& verifier,
                                                bool isTimeStampToken, X509MemoryStore* policyStore,
                                                X509ChainPolicy* chainPolicy) {
    VerifySignature(m_pSigner, hash.GetData(), hash.GetSize());
    m_verifyInfo |= kVerifiedSignature;
    VerifyContentType(m_contentType);
    m_verifyInfo |= kVerifiedContentType;
    VerifySigningCert(m_signingCertificate, certificate);
    m_verifyInfo |= kVerifiedSigningCertificate;
    if (m_hasPolicyId != 0 && verifier.GetCheckSignaturePolicy() != 0 && !isTimeStampToken) {
        m_policyInUse = LoadSignaturePolicy(verifier, policyStore, chainPolicy);
        m_verificationData->SetSignaturePolicy(m_policyInUse);
    }
}

void SignedCades::SignerInfo::VerifyPolicyRules(const VerifierCades& verifier,
                                                std::int64_t time) const {
    if (m_policyInUse == nullptr) {
        return;
    }
    SignaturePolicyVerifier rules(this, &m_policyInUse->GetSignatureValidationPolicy(),
                                  verifier.GetSignaturePolicyOverrides());
    rules.VerifyFormat(m_policyInUse);
    rules.VerifyTimeValidity(time);
    rules.VerifySignerRules(m_cadesParent);
    rules.VerifyVerifierRules();
    rules.VerifyAlgorithmConstraints(m_verificationData->GetChain());
    rules.VerifyCommitmentRules();
}

void SignedCades::SignerInfo::Verify(const VerifierCades& verifier, cptCadesType type) {
    TLOG_INFO(m_cadesLog, L"Verify()");
    VerifyDigest(verifier, ContentDigest(m_nHashAlgorithm), type);
}

void SignedCades::SignerInfo::VerifyDigest(const VerifierCades& verifier,
                                           const qorstd::QorArray<unsigned char>& hash,
                                           cptCadesType type) {
    const VerifierCms::cptVerifyOption option = verifier.GetVerifyOption();
    TLOG_INFO(m_cadesLog, L"VerifyDigest(Signer:%ls VerifyOption:%d)",
              m_certificate.GetSubjectStringX500(0).c_str(), static_cast<int>(option));
    m_verifyInfo = 0;
    std::int64_t time =
        verifier.GetVerifyTime() != 0 ? verifier.GetVerifyTime() : CryptUtils::GetCurrentTimeUTC();
    if (type == cptCadesNone) {
        type = m_cadesForm;
    }
    if (m_pSigner == nullptr) {
        Fail(m_cadesLog, L"VerifyDigest: Signer is not present.", ErrNoSigner);
    }
    if (hash.IsEmpty()) {
        Fail(m_cadesLog, L"VerifyDigest: Content hash is empty", ErrNoContent);
    }
    m_verificationData.reset(new VerificationData());
    const bool checkTimeStamps = type > cptCadesEpes && !m_signatureTimeStamps.IsEmpty();
    if (checkTimeStamps) {
        m_timeStampVerificationData.reset(new TimeStampVerificationData());
    }
    const x509_st* certificate = LocateSignerCertificate(L"VerifyDigest", verifier);

    // The policy's trust conditions go into this verification's own copy
    // of the chain policy, never into the caller's.
    X509MemoryStore policyStore;
    X509ChainPolicy chainPolicy = verifier.GetChainPolicy() != nullptr
                                      ? X509ChainPolicy(*verifier.GetChainPolicy())
                                      : X509ChainPolicy();
    const bool isTimeStampToken =
        m_cadesParent != nullptr && m_cadesParent->GetContentType().compare(kOidTstInfo) == 0;
    m_policyInUse = nullptr;

    QorExceptionStore kept;
    RunKeepingFailure(kept, [&] {
        VerifySignedParts(hash, certificate, verifier, isTimeStampToken, &policyStore,
                          &chainPolicy);
        if (checkTimeStamps) {
            // A verified time-stamp moves the time of the path and policy checks to its own.
            VerifySignatureTimeStamps(m_signatureTimeStamps, verifier, time);
            m_verifyInfo |= kVerifiedSignatureTimeStamps;
        }
    });

    if (isTimeStampToken) {
        chainPolicy.SetPurpose(X509ChainPolicy::kPurposeTimestampSign);
    }
    try {
        if (option == VerifierCms::cptVerifySignerCertificate ||
            option == VerifierCms::cptVerifyWholeChain) {
            VerifyCertificateFor(certificate, verifier, time, &chainPolicy);
            m_verifyInfo |= kVerifiedCertificate;
        }
        VerifyPolicyRules(verifier, time);
    } catch (...) {
        kept.ReThrow();
        throw;
    }
    kept.ReThrow();
}

// ================================================================ the message

void SignedCades::Verify(const VerifierCades& verifier, cptCadesType type) {
    TLOG_INFO(m_cadesLog, L"Verify(VerifyOption:%d)", static_cast<int>(verifier.GetVerifyOption()));
    if (m_pCms == nullptr) {
        Fail(m_cadesLog, L"Verify: CMS not present - m_pCms is null", ErrNoMessage);
    }
    if (GetSignerInfoCount() == 0) {
        Fail(m_cadesLog, L"Verify: Signer is not present.", ErrNoSigner);
    }
    for (unsigned int i = 0; i < GetSignerInfoCount(); ++i) {
        GetSignerInfo(i)->Verify(verifier, type);
    }
}

void SignedCades::VerifyDigest(const VerifierCades& verifier,
                               const qorstd::QorArray<unsigned char>& hash, cptCadesType type) {
    TLOG_INFO(m_cadesLog, L"VerifyDigest(VerifyOption:%d)",
              static_cast<int>(verifier.GetVerifyOption()));
    if (m_pCms == nullptr) {
        Fail(m_cadesLog, L"VerifyDigest: CMS not present - m_pCms is null", ErrNoMessage);
    }
    if (GetSignerInfoCount() == 0) {
        Fail(m_cadesLog, L"VerifyDigest: Signer is not present.", ErrNoSigner);
    }
    for (unsigned int i = 0; i < GetSignerInfoCount(); ++i) {
        GetSignerInfo(i)->VerifyDigest(verifier, hash, type);
    }
}

}  // namespace TesseraLib
