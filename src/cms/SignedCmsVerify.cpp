// Verification of CMS signers: the signature and the content (or a digest of
// it), the content-type attribute, the signer certificate, and the order in
// which these checks run and report.
#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
#include <vector>

#include "CryptException.h"
#include "CryptUtils.h"
#include "ExceptionRecording.h"
#include "Failure.h"
#include "LogChannel.h"
#include "OcspException.h"
#include "OpenSslPtr.h"
#include "QorExceptionStore.h"
#include "QorTextConv.h"
#include "SignedCms.h"
#include "TspException.h"
#include "VerificationData.h"
#include "VerifierCades.h"
#include "VerifierCms.h"
#include "VerifierTimeStamp.h"
#include "X509Chain.h"
#include "cms/TimeStampChoice.h"
#include "x509/X509Bytes.h"

namespace TesseraLib {

namespace {

const wchar_t kNullSigner[] = L"SignedCms::SignerInfo - pSigner = NULL";
const wchar_t kNullDigest[] = L"SignedCms::SignerInfo - pContentDigest = NULL";

// Lends the verifier's candidate certificates to the certificate check for
// the length of one verification.
class IssuerCandidatesScope {
public:
    IssuerCandidatesScope(const qorstd::QorVector<X509Certificate>*& slot,
                          const qorstd::QorVector<X509Certificate>* candidates)
        : m_slot(slot), m_previous(slot) {
        m_slot = candidates;
    }
    ~IssuerCandidatesScope() { m_slot = m_previous; }
    IssuerCandidatesScope(const IssuerCandidatesScope&) = delete;
    IssuerCandidatesScope& operator=(const IssuerCandidatesScope&) = delete;

private:
    const qorstd::QorVector<X509Certificate>*& m_slot;
    const qorstd::QorVector<X509Certificate>* m_previous;
};

// Releases the content-processing chain down to (not including) the
// caller's content stream, which has an owner of its own.
class ContentChain {
public:
    ContentChain(BIO* chain, BIO* content) : m_chain(chain), m_content(content) {}
    ~ContentChain() {
        BIO* bio = m_chain;
        while (bio != nullptr && bio != m_content) {
            BIO* next = BIO_pop(bio);
            BIO_free(bio);
            bio = next;
        }
    }
    ContentChain(const ContentChain&) = delete;
    ContentChain& operator=(const ContentChain&) = delete;
    BIO* get() const { return m_chain; }

private:
    BIO* m_chain;
    BIO* m_content;
};

// Reads the chain to its end, so that its digest stages see every byte; the
// bytes themselves are not needed.
bool CmsCopyContent(BIO* chain) {
    unsigned char buffer[16384];
    for (;;) {
        const int got = BIO_read(chain, buffer, sizeof buffer);
        if (got == 0) {
            return true;
        }
        if (got < 0) {
            return false;
        }
    }
}

// The code for a failed content check, from the earliest error OpenSSL
// queued: RSA's bad signature and CMS's verification failure mean the
// signature does not match the content; RSA's digest size errors mean the
// digest cannot belong to this key and algorithm.
int ContentFailureCode(unsigned long error) {
    const int library = ERR_GET_LIB(error);
    const int reason = ERR_GET_REASON(error);
    if (library == ERR_LIB_RSA && reason == RSA_R_BAD_SIGNATURE) {
        return ErrInvalidSignature;
    }
    if (library == ERR_LIB_RSA &&
        (reason == RSA_R_DIGEST_TOO_BIG_FOR_RSA_KEY || reason == RSA_R_INVALID_DIGEST_LENGTH)) {
        return ErrHashMismatch;
    }
    if (library == ERR_LIB_CMS && reason == CMS_R_VERIFICATION_FAILURE) {
        return ErrInvalidSignature;
    }
    return ErrSignatureVerification;
}

// Checks a token against `source`; the TSA's path it built is kept in
// `data`, also when the check fails.
void CheckTokenKeepingPath(VerifierTimeStamp checker, const qorstd::QorArray<unsigned char>& source,
                           const VerifierCades& verifier, std::int64_t* time,
                           VerificationData* data) {
    X509Chain* built = nullptr;
    try {
        checker.Verify(source, verifier, time, &built);
    } catch (...) {
        const std::unique_ptr<X509Chain> chain(built);
        data->SetChain(chain.get());
        throw;
    }
    const std::unique_ptr<X509Chain> chain(built);
    data->SetChain(chain.get());
}

// The signer certificate found is kept on the signer info unless it holds
// that certificate already.
void KeepCertificate(X509Certificate& kept, const x509_st* certificate) {
    if (kept.GetX509() == nullptr || X509_cmp(kept.GetX509(), certificate) != 0) {
        kept = X509Certificate(certificate);
    }
}

X509* AttachedSignerCertificate(const CMS_SignerInfo* signer) {
    X509* certificate = nullptr;
    CMS_SignerInfo_get0_algs(const_cast<CMS_SignerInfo*>(signer), nullptr, &certificate, nullptr,
                             nullptr);
    return certificate;
}

// The signer's signature over its signed attributes, when it has any: what
// VerifySignature checks before the content (or its digest).
void VerifySignedAttributes(const LogChannel* log, const CMS_SignerInfo* signer) {
    TLOG_DEBUG(log, L"VerifySignature()");
    ERR_clear_error();
    CMS_SignerInfo* si = const_cast<CMS_SignerInfo*>(signer);
    if (CMS_signed_get_attr_count(si) > 0 && CMS_SignerInfo_verify(si) <= 0) {
        FailCrypto(log, "VerifySignature: CMS_SignerInfo_verify failed.", ErrSignatureVerification);
    }
}

// Logs "<operation>: <text>" as an error.
void LogOperationError(const LogChannel* log, const wchar_t* operation, const wchar_t* text) {
    qorstd::QorStringW line(operation);
    line.append(L": ");
    line.append(text);
    TLOG_ERROR(log, line.c_str());
}

// The signers a whole-message check goes through, after its log line:
// `operation` names the check in the log. A message that is not there or has
// no signer fails.
qorstd::QorVector<SignedCms::SignerInfo>& MessageSigners(
    const LogChannel* log, const wchar_t* operation, const VerifierCms& verifier,
    const CMS_ContentInfo* cms, qorstd::QorVector<SignedCms::SignerInfo>* signers) {
    TLOG_INFO(log, L"%ls(VerifyOption:%d)", operation,
              static_cast<int>(verifier.GetVerifyOption()));
    if (cms == nullptr) {
        LogOperationError(log, operation, L"CMS not present - m_pCms is null");
        Fail(ErrNoMessage);
    }
    if (signers == nullptr || signers->IsEmpty()) {
        LogOperationError(log, operation, L"Signer is not present.");
        Fail(ErrNoSigner);
    }
    return *signers;
}

}  // namespace

// ------------------------------------------------------------ whole message

void SignedCms::Verify(const VerifierCms& verifier, cptCmsType type) {
    qorstd::QorVector<SignerInfo>& signers =
        MessageSigners(m_log.get(), L"Verify", verifier, m_pCms, m_pvSigners.get());
    for (unsigned int i = 0; i < signers.GetSize(); ++i) {
        signers[i].Verify(verifier, type);
    }
}

void SignedCms::VerifyDigest(const VerifierCms& verifier,
                             const qorstd::QorArray<unsigned char>& hash, cptCmsType type) {
    qorstd::QorVector<SignerInfo>& signers =
        MessageSigners(m_log.get(), L"VerifyDigest", verifier, m_pCms, m_pvSigners.get());
    for (unsigned int i = 0; i < signers.GetSize(); ++i) {
        signers[i].VerifyDigest(verifier, hash, type);
    }
}

void SignedCms::VerifySignerCertificate(const VerifierCms& verifier) {
    qorstd::QorVector<SignerInfo>& signers = MessageSigners(m_log.get(), L"VerifySignerCertificate",
                                                            verifier, m_pCms, m_pvSigners.get());
    for (unsigned int i = 0; i < signers.GetSize(); ++i) {
        signers[i].VerifySignerCertificate(verifier);
    }
}

// --------------------------------------------------------------- one signer

void SignedCms::SignerInfo::Verify(const VerifierCms& verifier, cptCmsType type) {
    VerifySigner(L"Verify", verifier, nullptr, type);
}

void SignedCms::SignerInfo::VerifyDigest(const VerifierCms& verifier,
                                         const qorstd::QorArray<unsigned char>& hash,
                                         cptCmsType type) {
    VerifySigner(L"VerifyDigest", verifier, &hash, type);
}

void SignedCms::SignerInfo::VerifySigner(const wchar_t* operation, const VerifierCms& verifier,
                                         const qorstd::QorArray<unsigned char>* hash,
                                         cptCmsType type) {
    const LogChannel* log = m_log.get();
    const VerifierCms::cptVerifyOption option = verifier.GetVerifyOption();
    TLOG_INFO(log, L"%ls(Signer:%ls VerifyOption:%d)", operation,
              m_certificate.GetSubjectStringX500(0).c_str(), static_cast<int>(option));
    const auto logError = [log, operation](const wchar_t* text) {
        LogOperationError(log, operation, text);
    };

    m_verifyInfo = 0;
    if (type == cptCmsNone) {
        type = m_cadesType;
    }
    m_verificationData.reset(new VerificationData());
    m_timeStampVerificationData.reset();
    const bool checkTimeStamps = type == cptCmsTimeStamp && !m_signatureTimeStamps.IsEmpty();
    if (checkTimeStamps) {
        m_timeStampVerificationData.reset(new TimeStampVerificationData());
    }
    if (m_pSigner == nullptr) {
        logError(L"Signer is not present.");
        Fail(ErrNoSigner);
    }

    // The signer certificate comes first: without it nothing can be checked.
    const x509_st* certificate = LocateSignerCertificate(operation, verifier);

    if (hash == nullptr) {
        if (m_parent->IsDetached() && m_parent->GetContent().IsEmpty()) {
            logError(L"Signed content not set - m_aContent is empty");
            Fail(ErrNoContent);
        }
        VerifySignature(m_pSigner);
    } else {
        if (hash->IsEmpty()) {
            logError(L"Content hash is empty");
            Fail(ErrNoContent);
        }
        VerifySignature(m_pSigner, hash->GetData(), hash->GetSize());
    }
    m_verifyInfo |= kVerifiedSignature;

    if (GetSignedAttrCount(NID_pkcs9_contentType) > 0) {
        VerifyContentType(m_contentType);
        m_verifyInfo |= kVerifiedContentType;
    }

    // A failed time-stamp check is held back until the signer certificate
    // has been checked as well, and is the failure reported when both fail.
    QorExceptionStore kept;
    if (checkTimeStamps) {
        RunKeepingFailure(kept, [&] {
            // Under a CAdES verifier with the CMS settings, at the verify
            // time (now when it is 0).
            std::int64_t time = verifier.GetVerifyTime() != 0 ? verifier.GetVerifyTime()
                                                              : CryptUtils::GetCurrentTimeUTC();
            VerifySignatureTimeStamps(m_signatureTimeStamps, VerifierCades(verifier), time);
            m_verifyInfo |= kVerifiedSignatureTimeStamps;
        });
    }

    if (option == VerifierCms::cptVerifySignerCertificate ||
        option == VerifierCms::cptVerifyWholeChain) {
        try {
            VerifyCertificateFor(certificate, verifier, verifier.GetVerifyTime(),
                                 verifier.GetChainPolicy());
        } catch (...) {
            kept.ReThrow();
            throw;
        }
        m_verifyInfo |= kVerifiedCertificate;
    }
    kept.ReThrow();
}

const x509_st* SignedCms::SignerInfo::LocateSignerCertificate(const wchar_t* operation,
                                                              const VerifierCms& verifier) {
    const x509_st* certificate = AttachedSignerCertificate(m_pSigner);
    if (certificate == nullptr) {
        certificate = FindSignerCertificate(m_pSigner, &verifier.GetSignerCertificates());
        if (certificate == nullptr) {
            LogOperationError(m_log.get(), operation, L"Signer's certificate not found.");
            Fail(ErrSignerCertNotFound);
        }
    }
    // Also for an attached certificate: a signer info this container has
    // just signed still holds the signing key, whose key object need not
    // verify (a token key, a replaced private operation); the certificate's
    // public key always does.
    CMS_SignerInfo_set1_signer_cert(m_pSigner, const_cast<X509*>(certificate));
    KeepCertificate(m_certificate, certificate);
    return certificate;
}

void SignedCms::SignerInfo::VerifyCertificateFor(const x509_st* certificate,
                                                 const VerifierCms& verifier,
                                                 const std::int64_t& time,
                                                 X509ChainPolicy* policy) {
    const IssuerCandidatesScope scope(m_issuerCandidates, &verifier.GetSignerCertificates());
    VerifyCertificate(certificate, verifier.GetVerifyOption(), time, policy);
}

void SignedCms::SignerInfo::VerifySignerCertificate(const VerifierCms& verifier) {
    const VerifierCms::cptVerifyOption option = verifier.GetVerifyOption();
    TLOG_INFO(m_log, L"VerifySignerCertificate(Signer:%ls VerifyOption:%d)",
              m_certificate.GetSubjectStringX500(0).c_str(), static_cast<int>(option));
    m_verificationData.reset(new VerificationData());
    if (m_pSigner == nullptr) {
        Fail(m_log, L"VerifySignerCertificate: Signer is not present.", ErrNoSigner);
    }
    const x509_st* certificate = LocateSignerCertificate(L"VerifySignerCertificate", verifier);
    if (option == VerifierCms::cptVerifySignerCertificate ||
        option == VerifierCms::cptVerifyWholeChain) {
        VerifyCertificateFor(certificate, verifier, verifier.GetVerifyTime(),
                             verifier.GetChainPolicy());
    }
}

// ------------------------------------------------------------------- steps

void SignedCms::SignerInfo::VerifySignature(const CMS_SignerInfo* signer) const {
    if (signer == nullptr) {
        Fail(m_log, L"VerifySignature: pSigner is null", ErrInternal, kNullSigner);
    }
    VerifySignedAttributes(m_log.get(), signer);
    VerifyContent(signer);
}

void SignedCms::SignerInfo::VerifySignature(const CMS_SignerInfo* signer,
                                            const unsigned char* digest,
                                            unsigned int length) const {
    if (signer == nullptr) {
        Fail(m_log, L"VerifySignature: pSigner is null", ErrInternal, kNullSigner);
    }
    if (digest == nullptr) {
        Fail(m_log, L"VerifySignature: pContentDigest is null", ErrInternal, kNullDigest);
    }
    VerifySignedAttributes(m_log.get(), signer);
    VerifyContent(signer, digest, length);
}

void SignedCms::SignerInfo::VerifyContent(const CMS_SignerInfo* signer) const {
    TLOG_DEBUG(m_log, L"VerifyContent()");
    if (signer == nullptr) {
        Fail(m_log, L"VerifyContent: pSigner is null", ErrInternal, kNullSigner);
    }
    CMS_ContentInfo* cms = m_parent != nullptr ? m_parent->GetCms() : nullptr;
    if (cms == nullptr) {
        Fail(m_log, L"VerifyContent: CMS not present - m_pCms is null", ErrNoMessage);
    }
    BioPtr content;
    if (m_parent->IsDetached()) {
        static const unsigned char kNothing = 0;
        const qorstd::QorArray<unsigned char>& bytes = m_parent->GetContent();
        content.reset(BIO_new_mem_buf(bytes.IsEmpty() ? &kNothing : bytes.GetData(),
                                      static_cast<int>(bytes.GetSize())));
        if (!content) {
            Fail(m_log, L"VerifyContent: pBioContent=NULL", ErrOutOfMemory);
        }
    } else {
        ASN1_OCTET_STRING** embedded = CMS_get0_content(cms);
        if (embedded == nullptr || *embedded == nullptr || ASN1_STRING_length(*embedded) <= 0) {
            Fail(m_log, L"VerifyContent: CMS_get0_content() is null or empty", ErrNoContent);
        }
    }
    ERR_clear_error();
    const ContentChain chain(CMS_dataInit(cms, content.get()), content.get());
    if (chain.get() == nullptr) {
        FailCrypto(m_log, "VerifyContent: CMS_dataInit() failed.", ErrInternal);
    }
    if (!CmsCopyContent(chain.get())) {
        FailCrypto(m_log, "VerifyContent: CmsCopyContent() failed.", ErrInternal);
    }
    if (CMS_SignerInfo_verify_content(const_cast<CMS_SignerInfo*>(signer), chain.get()) <= 0) {
        const int code = ContentFailureCode(ERR_peek_error());
        FailCrypto(m_log, "VerifyContent: CMS_SignerInfo_verify_content() failed.", code);
    }
}

void SignedCms::SignerInfo::VerifyContent(const CMS_SignerInfo* signer, const unsigned char* digest,
                                          unsigned int length) const {
    TLOG_DEBUG(m_log, L"VerifyContent()");
    if (signer == nullptr) {
        Fail(m_log, L"VerifyContent: pSigner is null", ErrInternal, kNullSigner);
    }
    if (digest == nullptr) {
        Fail(m_log, L"VerifyContent: pContentDigest is null", ErrInternal, kNullDigest);
    }
    CMS_SignerInfo* si = const_cast<CMS_SignerInfo*>(signer);
    if (CMS_signed_get_attr_count(si) > 0) {
        // Exactly one message-digest attribute with exactly one value.
        const ASN1_OCTET_STRING* attribute =
            static_cast<const ASN1_OCTET_STRING*>(CMS_signed_get0_data_by_OBJ(
                si, OBJ_nid2obj(NID_pkcs9_messageDigest), -3, V_ASN1_OCTET_STRING));
        if (attribute == nullptr) {
            Fail(m_log, L"VerifyContent: Error reading message digest attribute.",
                 ErrInvalidMessageFormat);
        }
        if (static_cast<unsigned int>(ASN1_STRING_length(attribute)) != length) {
            Fail(m_log, L"VerifyContent: Message digest attribute wrong length.", ErrHashMismatch);
        }
        if (std::memcmp(ASN1_STRING_get0_data(attribute), digest, length) != 0) {
            Fail(m_log, L"VerifyContent: Message digest compare failed.", ErrHashMismatch);
        }
        return;
    }

    // Without signed attributes the signature is made over the digest itself.
    X509_ALGOR* digestAlgorithm = nullptr;
    EVP_PKEY* key = nullptr;
    CMS_SignerInfo_get0_algs(si, &key, nullptr, &digestAlgorithm, nullptr);
    if (digestAlgorithm == nullptr) {
        Fail(m_log, L"VerifyContent: Digest algorithm is null.", ErrInvalidMessageFormat);
    }
    const ASN1_OBJECT* digestObject = nullptr;
    X509_ALGOR_get0(&digestObject, nullptr, nullptr, digestAlgorithm);
    const EVP_MD* md = digestObject != nullptr ? EVP_get_digestbyobj(digestObject) : nullptr;
    if (md == nullptr) {
        Fail(m_log, L"VerifyContent: Unknown digest algorithm.", ErrAlgorithmNotSupported);
    }
    if (key == nullptr && m_certificate.GetX509() != nullptr) {
        key = X509_get0_pubkey(m_certificate.GetX509());
    }
    if (key == nullptr) {
        Fail(m_log, L"VerifyContent: Signer's certificate not found.", ErrSignerCertNotFound);
    }
    ERR_clear_error();
    EvpPkeyCtxPtr context(EVP_PKEY_CTX_new(key, nullptr));
    if (!context || EVP_PKEY_verify_init(context.get()) <= 0) {
        FailCrypto(m_log, "VerifyContent: EVP_PKEY_verify_init failed.", ErrInternal);
    }
    if (EVP_PKEY_CTX_set_signature_md(context.get(), md) <= 0) {
        FailCrypto(m_log, "VerifyContent: EVP_PKEY_CTX_set_signature_md() failed.", ErrInternal);
    }
    const ASN1_OCTET_STRING* signature = CMS_SignerInfo_get0_signature(si);
    if (signature == nullptr ||
        EVP_PKEY_verify(context.get(), ASN1_STRING_get0_data(signature),
                        static_cast<size_t>(ASN1_STRING_length(signature)), digest, length) != 1) {
        FailCrypto(m_log, "VerifyContent: EVP_PKEY_verify() failed.", ErrInvalidSignature);
    }
}

void SignedCms::SignerInfo::VerifyContentType(const qorstd::QorString& oid) const {
    TLOG_DEBUG(m_log, L"VerifyContentType(OID:%ls)", x509::Widen(oid).c_str());
    if (oid.empty()) {
        Fail(m_log, L"VerifyContentType: SignerInfo.contentType is empty",
             ErrContentTypeAttrNotFound);
    }
    if (m_parent == nullptr || oid.compare(m_parent->GetContentType().c_str()) != 0) {
        Fail(m_log, L"VerifyContentType: SignerInfo.contentType not equals CMS contentType",
             ErrContentTypeMismatch);
    }
}

const x509_st* SignedCms::SignerInfo::FindSignerCertificate(
    const CMS_SignerInfo* signer, const qorstd::QorVector<X509Certificate>* candidates) {
    if (signer == nullptr) {
        Fail(m_log, L"FindSignerCertificate: Signer is not present.", ErrNoSigner);
    }
    if (m_certificate.GetX509() != nullptr) {
        return m_certificate.GetX509();
    }
    const x509_st* found = nullptr;
    if (candidates == nullptr) {
        return found;
    }
    CMS_SignerInfo* si = const_cast<CMS_SignerInfo*>(signer);
    for (unsigned int i = 0; i < candidates->GetSize(); ++i) {
        X509* candidate = (*candidates)[i].GetX509();
        if (candidate == nullptr) {
            Fail(m_log, L"FindSignerCertificate: cert.GetX509()=NULL", ErrInvalidParameter,
                 L"verifier.GetSignerCertificates().GetX509()==NULL");
        }
        // The last match wins.
        if (CMS_SignerInfo_cert_cmp(si, candidate) == 0) {
            found = candidate;
        }
    }
    return found;
}

void SignedCms::SignerInfo::VerifyCertificate(const x509_st* certificate,
                                              VerifierCms::cptVerifyOption option,
                                              const std::int64_t& time, X509ChainPolicy* policy) {
    // The signer certificate is usually the one already read.
    const X509Certificate cert =
        m_certificate.GetX509() == certificate ? m_certificate : X509Certificate(certificate);
    X509Certificate::cptVerifyOption certOption = X509Certificate::cptVerifyTimeValidity;
    std::unique_ptr<X509Certificate> issuer;
    if (option == VerifierCms::cptVerifyWholeChain) {
        certOption = X509Certificate::cptVerifyWholeChain;
    } else if (option == VerifierCms::cptVerifySignerCertificate) {
        // No path: the time validity, and the issuer's signature when the
        // message or the verifier holds the issuer.
        const X509Certificate* found =
            m_parent != nullptr ? x509::FindIssuerIn(m_parent->GetCertificates(), cert.GetX509())
                                : nullptr;
        if (found == nullptr && m_issuerCandidates != nullptr) {
            found = x509::FindIssuerIn(*m_issuerCandidates, cert.GetX509());
        }
        if (found != nullptr) {
            issuer.reset(new X509Certificate(*found));
            certOption = X509Certificate::cptVerifyIssuerSignature;
        } else {
            TLOG_DEBUG(m_log, L"VerifyCertificate: Issuer not found - time validity only.");
        }
    }
    if (!m_verificationData) {
        m_verificationData.reset(new VerificationData());
    }
    const std::int64_t verifyTime = time != 0 ? time : CryptUtils::GetCurrentTimeUTC();
    m_verificationData->SetVerifyTime(&verifyTime);

    X509Chain* built = nullptr;
    cert.Verify(certOption, time, issuer.get(), policy, &built);
    const std::unique_ptr<X509Chain> chain(built);
    m_verificationData->SetChain(chain.get());
}

// ------------------------------------------------- signature time-stamps

void SignedCms::SignerInfo::VerifyTimeStamp(const TimeStampAttribute& timeStamp,
                                            const qorstd::QorArray<unsigned char>& source,
                                            const VerifierCades& verifier, std::int64_t* time) {
    TLOG_DEBUG(m_log, L"VerifyTimeStamp()");
    if (timeStamp.GetValue().IsEmpty()) {
        Fail(m_log, L"VerifyTimeStamp: Bad parameter - attr.GetValue() is empty",
             ErrInvalidParameter, L"SignedCades::SignerInfo - attr.GetValue().IsEmpty()");
    }
    m_timeStampVerificationData.reset(new TimeStampVerificationData());
    const std::int64_t verifyTime = verifier.GetVerifyTime();
    m_timeStampVerificationData->SetVerifyTime(&verifyTime);
    m_timeStampVerificationData->SetTimeStamp(&timeStamp.GetTimeStamp());
    CheckTokenKeepingPath(VerifierTimeStamp(&timeStamp.GetTimeStamp()), source, verifier, time,
                          m_timeStampVerificationData.get());
}

void SignedCms::SignerInfo::VerifySignatureTimeStamp(TimeStampVerificationData* data,
                                                     const qorstd::QorArray<unsigned char>& source,
                                                     const VerifierCades& verifier) {
    TLOG_DEBUG(m_log, L"VerifySignatureTimeStamp()");
    if (data == nullptr) {
        Fail(m_log, L"VerifySignatureTimeStamp: Bad parameter - data == NULL", ErrInvalidParameter);
    }
    const std::int64_t* verifyTime = data->GetVerifyTime();
    TLOG_DEBUG(m_log, L"VerifySignatureTimeStamp(VerifyTime: %ls)",
               x509::FormatLogTime(verifyTime != nullptr ? *verifyTime : 0).c_str());
    if (data->GetTimeStamp() == nullptr) {
        Fail(m_log, L"VerifySignatureTimeStamp: Bad parameter - data->timestamp == NULL",
             ErrInvalidParameter, L"VerifySignatureTimeStamp - data->timestamp == NULL");
    }
    data->SetChain(nullptr);
    std::int64_t time = verifyTime != nullptr ? *verifyTime : 0;
    CheckTokenKeepingPath(VerifierTimeStamp(data->GetTimeStamp()), source, verifier, &time, data);
}

void SignedCms::SignerInfo::VerifySignatureTimeStamps(
    qorstd::QorVector<TimeStampAttribute>& timeStamps, const VerifierCades& verifier,
    std::int64_t& time) {
    TLOG_DEBUG(m_log, L"VerifySignatureTimeStamps()");
    if (timeStamps.IsEmpty()) {
        Fail(m_log, L"VerifySignatureTimeStamps: Bad parameter - attrs is empty",
             ErrInvalidParameter, L"SignedCades::SignerInfo - attrs.IsEmpty()");
    }
    if (m_signatureValue.IsEmpty()) {
        Fail(m_log, L"VerifySignatureTimeStamps: No signature data.", ErrInvalidSignature);
    }
    if (!m_timeStampVerificationData) {
        m_timeStampVerificationData.reset(new TimeStampVerificationData());
    }
    m_timeStampVerificationData->SetVerifyTime(&time);
    // The latest time-stamp with a value is the one checked.
    const TimeStampAttribute* chosen = cms::LatestTimeStamp(timeStamps);
    if (chosen != nullptr) {
        cms::CheckAsTimeStamp(chosen, [&] {
            m_timeStampVerificationData->SetTimeStamp(&chosen->GetTimeStamp());
            VerifySignatureTimeStamp(m_timeStampVerificationData.get(), m_signatureValue, verifier);
        });
    }
    if (m_timeStampVerificationData->GetTimeStamp() != nullptr) {
        time = m_timeStampVerificationData->GetTimeStamp()->GetTime();
    }
}

}  // namespace TesseraLib
