// Signing: new messages over content or over a caller's digest, further
// signers on a held message, and the completion step that digests the
// content, adds the signed attributes and signs. OpenSSL's own completion
// (CMS_final) signs every signer of the message and adds a signing time to
// each; this one signs just the new signer, through the key's own signing
// context, so that engine keys (PKCS #11 tokens) sign the same way as keys
// in memory.
#include <openssl/asn1t.h>
#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "CryptException.h"
#include "CryptUtils.h"
#include "Failure.h"
#include "LogChannel.h"
#include "OpenSslPtr.h"
#include "QorTextConv.h"
#include "SignedCms.h"
#include "SignerCms.h"
#include "TspClient.h"
#include "X509Chain.h"
#include "X509ChainPolicy.h"
#include "X509Store.h"
#include "cms/CmsSigning.h"
#include "x509/X509Bytes.h"

namespace TesseraLib {

namespace {

// Marks the parse of a message this object has just made, for one parse.
class OwnMessageScope {
public:
    explicit OwnMessageScope(bool& flag) : m_flag(flag) { m_flag = true; }
    ~OwnMessageScope() { m_flag = false; }
    OwnMessageScope(const OwnMessageScope&) = delete;
    OwnMessageScope& operator=(const OwnMessageScope&) = delete;

private:
    bool& m_flag;
};

// PKCS #11 return values that a token key's engine queues as error reasons.
constexpr int kCkrFunctionCanceled = 0x50;
constexpr int kCkrMechanismInvalid = 0x70;
constexpr int kCkrPinIncorrect = 0xA0;
constexpr int kCkrPinLocked = 0xA4;

// The code a failed completion stands for. A token key's engine queues the
// PKCS #11 return value as the reason of an error of its own library, whose
// number is handed out at run time: only libraries numbered that way are
// looked at, and only their reasons are compared. The queue is put back as
// it was, for the log.
int SigningFailureCode() {
    struct Queued {
        unsigned long error;
        const char* file;
        int line;
        const char* function;
        std::string data;
        bool hasData;
    };
    std::vector<Queued> queued;
    const char* file = nullptr;
    const char* function = nullptr;
    const char* data = nullptr;
    int line = 0;
    int flags = 0;
    for (unsigned long error = ERR_get_error_all(&file, &line, &function, &data, &flags);
         error != 0; error = ERR_get_error_all(&file, &line, &function, &data, &flags)) {
        const bool hasData = (flags & ERR_TXT_STRING) != 0 && data != nullptr;
        queued.push_back({error, file, line, function, hasData ? data : "", hasData});
    }
    int code = ErrSigning;
    for (const Queued& entry : queued) {
        if (code == ErrSigning && ERR_GET_LIB(entry.error) >= ERR_LIB_USER) {
            switch (ERR_GET_REASON(entry.error)) {
                case kCkrPinIncorrect:
                    code = ErrWrongPin;
                    break;
                case kCkrPinLocked:
                    code = ErrPinBlocked;
                    break;
                case kCkrFunctionCanceled:
                    code = ErrUserAborted;
                    break;
                case kCkrMechanismInvalid:
                    code = ErrAlgorithmNotSupported;
                    break;
                default:
                    break;
            }
        }
        ERR_new();
        ERR_set_debug(entry.file, entry.line, entry.function);
        if (entry.hasData) {
            ERR_set_error(ERR_GET_LIB(entry.error), ERR_GET_REASON(entry.error), "%s",
                          entry.data.c_str());
        } else {
            ERR_set_error(ERR_GET_LIB(entry.error), ERR_GET_REASON(entry.error), nullptr);
        }
    }
    return code;
}

// Logs the failed completion with OpenSSL's errors and throws its code.
[[noreturn]] void FailSigning(const LogChannel* log, const char* text) {
    FailCrypto(log, text, SigningFailureCode());
}

// Whether `certs` holds a certificate equal to `cert`.
bool Contains(STACK_OF(X509) * certs, const X509* cert) {
    for (int i = 0; i < sk_X509_num(certs); ++i) {
        if (X509_cmp(sk_X509_value(certs, i), cert) == 0) {
            return true;
        }
    }
    return false;
}

// Appends `cert` unless it is there already or equals `left` (OpenSSL
// refuses to put one certificate into a message twice).
void PushUnique(STACK_OF(X509) * certs, X509Ptr cert, const X509* left) {
    if ((left != nullptr && X509_cmp(cert.get(), left) == 0) || Contains(certs, cert.get())) {
        return;
    }
    if (sk_X509_push(certs, cert.get()) <= 0) {
        Fail(ErrOutOfMemory);
    }
    cert.release();
}

// The signer info's digest and private key.
const EVP_MD* SignerInfoDigest(CMS_SignerInfo* signer) {
    X509_ALGOR* digest = nullptr;
    CMS_SignerInfo_get0_algs(signer, nullptr, nullptr, &digest, nullptr);
    const ASN1_OBJECT* object = nullptr;
    if (digest != nullptr) {
        X509_ALGOR_get0(&object, nullptr, nullptr, digest);
    }
    const EVP_MD* md = object != nullptr ? EVP_get_digestbyobj(object) : nullptr;
    if (md == nullptr) {
        ERR_raise(ERR_LIB_CMS, CMS_R_UNKNOWN_DIGEST_ALGORITHM);
    }
    return md;
}

EVP_PKEY* SignerInfoKey(CMS_SignerInfo* signer) {
    EVP_PKEY* key = nullptr;
    CMS_SignerInfo_get0_algs(signer, &key, nullptr, nullptr, nullptr);
    if (key == nullptr) {
        ERR_raise(ERR_LIB_CMS, CMS_R_NO_PRIVATE_KEY);
    }
    return key;
}

// Takes `length` bytes of a signature allocated by OpenSSL into the signer info.
void StoreSignature(CMS_SignerInfo* signer, OpenSslBytesPtr signature, size_t length) {
    ASN1_STRING_set0(CMS_SignerInfo_get0_signature(signer), signature.release(),
                     static_cast<int>(length));
}

// Signs a finished digest as it is (for RSA a PKCS #1 v1.5 signature over
// the DigestInfo of `md`) and stores the signature in the signer info.
bool SignDigestValue(CMS_SignerInfo* signer, EVP_PKEY* key, const EVP_MD* md,
                     const unsigned char* digest, size_t length) {
    EvpPkeyCtxPtr context(EVP_PKEY_CTX_new(key, nullptr));
    if (!context || EVP_PKEY_sign_init(context.get()) <= 0 ||
        EVP_PKEY_CTX_set_signature_md(context.get(), md) <= 0) {
        return false;
    }
    size_t signatureLength = static_cast<size_t>(EVP_PKEY_get_size(key));
    OpenSslBytesPtr signature(static_cast<unsigned char*>(OPENSSL_malloc(signatureLength)));
    if (!signature ||
        EVP_PKEY_sign(context.get(), signature.get(), &signatureLength, digest, length) <= 0) {
        return false;
    }
    StoreSignature(signer, std::move(signature), signatureLength);
    return true;
}

// Calls the key's CMS signing hook (before: 0, after: 1). Keys of OpenSSL's
// providers have none and answer "not supported", which is no failure.
bool CallSignHook(EVP_PKEY_CTX* context, int stage, CMS_SignerInfo* signer) {
    ERR_set_mark();
    const int result = EVP_PKEY_CTX_ctrl(context, -1, EVP_PKEY_OP_SIGN | EVP_PKEY_OP_SIGNCTX,
                                         EVP_PKEY_CTRL_CMS_SIGN, stage, signer);
    if (result == -2) {
        ERR_pop_to_mark();
        return true;
    }
    ERR_clear_last_mark();
    if (result <= 0) {
        ERR_raise(ERR_LIB_CMS, CMS_R_CTRL_ERROR);
        return false;
    }
    return true;
}

// The signed attributes as they are signed: a DER SET OF, sorted the way the
// signer info encodes them, so that signature and message agree.
// clang-format off
ASN1_ITEM_TEMPLATE(SignedAttributesSet) =
    ASN1_EX_TEMPLATE_TYPE(ASN1_TFLG_SET_OF, 0, SignedAttributes, X509_ATTRIBUTE)
static_ASN1_ITEM_TEMPLATE_END(SignedAttributesSet);
// clang-format on

// A stack that lends the signer's attributes to an encoding: it frees only
// itself.
void FreeAttributeView(STACK_OF(X509_ATTRIBUTE) * view) {
    sk_X509_ATTRIBUTE_free(view);
}
using AttributeView = OpenSslPtr<STACK_OF(X509_ATTRIBUTE), FreeAttributeView>;

// Puts the signer's signed attributes into DER SET OF order. The message
// encodes them sorted anyway, but OpenSSL checks a signer info in memory in
// the order it holds them: a message verified right after it was signed
// must hold them as they were signed.
bool SortSignedAttributes(CMS_SignerInfo* signer) {
    std::vector<std::pair<std::vector<unsigned char>, X509AttributePtr>> sorted;
    while (CMS_signed_get_attr_count(signer) > 0) {
        X509AttributePtr attr(CMS_signed_delete_attr(signer, 0));
        unsigned char* der = nullptr;
        const int length = attr ? i2d_X509_ATTRIBUTE(attr.get(), &der) : -1;
        const OpenSslBytesPtr owned(der);
        if (length <= 0) {
            return false;
        }
        sorted.emplace_back(std::vector<unsigned char>(der, der + length), std::move(attr));
    }
    std::stable_sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) {
        // DER orders SET OF elements as octet strings, the shorter padded with zeros.
        const std::size_t common = std::min(a.first.size(), b.first.size());
        const int compared = std::memcmp(a.first.data(), b.first.data(), common);
        return compared != 0 ? compared < 0 : a.first.size() < b.first.size();
    });
    for (auto& entry : sorted) {
        if (CMS_signed_add1_attr(signer, entry.second.get()) != 1) {
            return false;
        }
    }
    return true;
}

// Copies the state of the chain's digest for `nid` into `out`.
bool CopyChainDigest(BIO* chain, int nid, EVP_MD_CTX* out) {
    for (BIO* bio = BIO_find_type(chain, BIO_TYPE_MD); bio != nullptr;
         bio = BIO_next(bio) != nullptr ? BIO_find_type(BIO_next(bio), BIO_TYPE_MD) : nullptr) {
        EVP_MD_CTX* context = nullptr;
        BIO_get_md_ctx(bio, &context);
        const EVP_MD* md = context != nullptr ? EVP_MD_CTX_get0_md(context) : nullptr;
        if (md != nullptr && (EVP_MD_get_type(md) == nid || EVP_MD_get_pkey_type(md) == nid)) {
            return EVP_MD_CTX_copy_ex(out, context) == 1;
        }
    }
    ERR_raise(ERR_LIB_CMS, CMS_R_NO_MATCHING_DIGEST);
    return false;
}

// Adds the message-digest and content-type attributes for `digest`.
bool AddDigestAttributes(CMS_ContentInfo* cms, CMS_SignerInfo* signer, const unsigned char* digest,
                         int length) {
    return CMS_signed_add1_attr_by_NID(signer, NID_pkcs9_messageDigest, V_ASN1_OCTET_STRING, digest,
                                       length) == 1 &&
           CMS_signed_add1_attr_by_NID(signer, NID_pkcs9_contentType, V_ASN1_OBJECT,
                                       CMS_get0_eContentType(cms), -1) == 1;
}

// A copy of the message, decoded from its encoding: co-signing works on it
// so that a failure leaves the held message untouched.
CmsContentInfoPtr CopyMessage(CMS_ContentInfo* cms) {
    unsigned char* der = nullptr;
    const int length = i2d_CMS_ContentInfo(cms, &der);
    const OpenSslBytesPtr owned(der);
    if (length <= 0) {
        return CmsContentInfoPtr();
    }
    const unsigned char* cursor = der;
    return CmsContentInfoPtr(d2i_CMS_ContentInfo(nullptr, &cursor, length));
}

// The issuer of `cert` among the signer's stores and extra certificates.
bool FindIssuer(const SignerCms& signer, const X509Certificate& cert, X509Certificate& issuer) {
    for (X509Store* store : {signer.GetTrustStore(), signer.GetExtraStore()}) {
        if (store != nullptr && store->FindIssuer(cert, issuer) == 1) {
            return true;
        }
    }
    const X509Certificate* found = x509::FindIssuerIn(signer.GetCertificates(), cert.GetX509());
    if (found == nullptr) {
        return false;
    }
    issuer = *found;
    return true;
}

// Paths of the signer certificate: from the signer's trust store, through
// its extra store, without revocation checks. Without a trust store, fails
// with `text` logged.
void SetSignerPathPolicy(const LogChannel* log, const wchar_t* text, const SignerCms& signer,
                         X509ChainPolicy* policy) {
    if (signer.GetTrustStore() == nullptr) {
        Fail(log, text, ErrInvalidParameter, L"signer.GetTrustStore()==NULL");
    }
    policy->SetTrustStore(signer.GetTrustStore());
    if (signer.GetExtraStore() != nullptr) {
        policy->SetExtraStore(signer.GetExtraStore());
    }
    policy->SetRevocationOption(X509ChainPolicy::revOptionNone);
}

// The check of the signer certificate before it signs, at the current time:
// option 0 its time validity; 1 also the issuer's signature when the issuer
// is at hand; 2 a path to an anchor of the signer's trust store (no
// revocation checks).
void CheckSignerCertificate(const LogChannel* log, const SignerCms& signer) {
    const X509Certificate& cert = signer.GetCertificate();
    const std::int64_t now = 0;
    switch (signer.GetVerifyOption()) {
        case X509Certificate::cptVerifyIssuerSignature: {
            X509Certificate issuer;
            if (FindIssuer(signer, cert, issuer)) {
                cert.Verify(X509Certificate::cptVerifyIssuerSignature, now, &issuer, nullptr,
                            nullptr);
                return;
            }
            break;
        }
        case X509Certificate::cptVerifyWholeChain: {
            X509ChainPolicy policy;
            SetSignerPathPolicy(log,
                                L"AddSignerCms: Trust store not set - signer.GetTrustStore()=NULL",
                                signer, &policy);
            cert.Verify(X509Certificate::cptVerifyWholeChain, now, nullptr, &policy, nullptr);
            return;
        }
        default:
            break;
    }
    cert.Verify(X509Certificate::cptVerifyTimeValidity, now, nullptr, nullptr, nullptr);
}

}  // namespace

// ------------------------------------------------------- shared with the estimate

namespace cmssign {

const EVP_MD* SignerDigest(const SignerCms& signer) {
    if (signer.GetHashAlgorithm() != CryptHash::cptHashNone) {
        return CryptHash::GetHashEVP(signer.GetHashAlgorithm());
    }
    const X509Certificate& cert = signer.GetCertificate();
    if (cert.GetX509() == nullptr) {
        return nullptr;
    }
    const EVP_MD* md = EVP_get_digestbyname(cert.GetHashAlgorithmName().c_str());
    if (md == nullptr) {
        // Names without "With" ("ecdsa-with-SHA256") say it through the OID table.
        int digestNid = NID_undef;
        if (OBJ_find_sigid_algs(cert.GetSignatureAlgorithmNID(), &digestNid, nullptr) == 1) {
            md = EVP_get_digestbynid(digestNid);
        }
    }
    return md;
}

unsigned int SignFlags(const SignerCms& signer, int detached) {
    unsigned int flags = CMS_BINARY | CMS_NOSMIMECAP;
    if (signer.GetAttributeOption() == SignerCms::cptAttributeNone) {
        flags |= CMS_NOATTR;
    }
    if (signer.GetIncludeOption() == SignerCms::cptIncludeNone) {
        flags |= CMS_NOCERTS;
    }
    if (detached != 0) {
        flags |= CMS_DETACHED;
    }
    return flags;
}

qorstd::QorStringW SerialText(const X509Certificate& certificate) {
    return x509::Widen(certificate.GetSerialNumberStringDec());
}

}  // namespace cmssign

// ---------------------------------------------------------------- operations

void SignedCms::Sign(const SignerCms& signer, cptCmsType type, int detached) {
    const X509Certificate& certificate = signer.GetCertificate();
    TLOG_INFO(m_log, L"Sign(Signer:%ls CertSN:%ls CertIssuer:%ls Detached:%ls)",
              certificate.GetSubjectStringX500(0).c_str(), cmssign::SerialText(certificate).c_str(),
              certificate.GetIssuerStringX500(0).c_str(), detached != 0 ? L"TRUE" : L"FALSE");
    CMS_ContentInfo* cms = SignContent(
        signer, detached, [this, &signer](CMS_ContentInfo* message, unsigned int flags) {
            return AddSignerCms(message, signer, flags);
        });
    AdoptSignedMessage(cms, signer, type);
}

CMS_ContentInfo* SignedCms::SignContent(const SignerCms& signer, int detached,
                                        const AddSignerStep& addSigner) {
    if (m_aContent.GetSize() == 0) {
        Fail(m_log, L"Sign: Signed content not set - m_aContent is empty", ErrNoContent);
    }
    BioPtr content(BIO_new_mem_buf(m_aContent.GetData(), static_cast<int>(m_aContent.GetSize())));
    if (!content) {
        Fail(m_log, L"Sign: pBioContent=NULL", ErrOutOfMemory);
    }
    // The signer's own certificate is put in by the signer step.
    X509StackPtr certs(EnumSignerCertificates(signer, 1));
    const unsigned int flags = SigningFlags(signer, detached);
    const unsigned int openSslFlags = flags & ~cmssign::kNoSigningTime;

    // Built aside and taken over once signed: a failure keeps what was held.
    CmsContentInfoPtr cms(
        CMS_sign(nullptr, nullptr, certs.get(), content.get(), openSslFlags | CMS_PARTIAL));
    if (!cms) {
        FailCrypto(m_log, "Sign: CMS_sign() failed.", ErrAsn1Encoding);
    }
    CMS_SignerInfo* signerInfo = addSigner(cms.get(), openSslFlags | CMS_PARTIAL);
    if (FinalizeSigner(cms.get(), signerInfo, content.get(), flags) != 1) {
        FailSigning(m_log.get(), "Sign: FinalizeSigner() failed.");
    }
    return cms.release();
}

void SignedCms::SignDigest(const SignerCms& signer, cptCmsType type,
                           const qorstd::QorArray<unsigned char>& hash) {
    const X509Certificate& certificate = signer.GetCertificate();
    TLOG_INFO(m_log, L"SignDigest(Signer:%ls CertSN:%ls CertIssuer:%ls)",
              certificate.GetSubjectStringX500(0).c_str(), cmssign::SerialText(certificate).c_str(),
              certificate.GetIssuerStringX500(0).c_str());
    CMS_ContentInfo* cms = SignHash(signer, hash, L"SignedCms - hash is empty.",
                                    [this, &signer](CMS_ContentInfo* message, unsigned int flags) {
                                        return AddSignerCms(message, signer, flags);
                                    });
    AdoptSignedMessage(cms, signer, type);
}

CMS_ContentInfo* SignedCms::SignHash(const SignerCms& signer,
                                     const qorstd::QorArray<unsigned char>& hash,
                                     const wchar_t* emptyHashMessage,
                                     const AddSignerStep& addSigner) {
    if (hash.GetSize() == 0) {
        Fail(m_log, L"SignDigest: Bad parameter - hash is empty", ErrInvalidParameter,
             emptyHashMessage);
    }
    const EVP_MD* md = cmssign::SignerDigest(signer);
    if (md == nullptr) {
        Fail(m_log, L"SignDigest: pDigest is null", ErrAlgorithmNotSupported);
    }
    if (hash.GetSize() != static_cast<unsigned int>(EVP_MD_get_size(md))) {
        Fail(m_log, L"SignDigest: Bad hash size", ErrHashMismatch);
    }
    X509StackPtr certs(EnumSignerCertificates(signer, 1));
    const unsigned int flags = SigningFlags(signer, 1);
    const unsigned int openSslFlags = flags & ~cmssign::kNoSigningTime;
    CmsContentInfoPtr cms(
        CMS_sign(nullptr, nullptr, certs.get(), nullptr, openSslFlags | CMS_PARTIAL));
    if (!cms) {
        FailCrypto(m_log, "SignDigest: CMS_sign() failed.", ErrAsn1Encoding);
    }
    CMS_SignerInfo* signerInfo = addSigner(cms.get(), openSslFlags | CMS_PARTIAL);
    std::vector<unsigned char> digest(hash.GetData(), hash.GetData() + hash.GetSize());
    if (FinalizeDigestSigner(cms.get(), signerInfo, digest.data(),
                             static_cast<unsigned int>(digest.size()), flags) != 1) {
        FailSigning(m_log.get(), "SignDigest: FinalizeDigestSigner() failed.");
    }
    return cms.release();
}

void SignedCms::CoSign(const SignerCms& signer) {
    const X509Certificate& certificate = signer.GetCertificate();
    TLOG_INFO(m_log, L"CoSign(Signer:%ls CertSN:%ls CertIssuer:%ls)",
              certificate.GetSubjectStringX500(0).c_str(), cmssign::SerialText(certificate).c_str(),
              certificate.GetIssuerStringX500(0).c_str());
    CoSignContent(signer, [this, &signer](CMS_ContentInfo* message, unsigned int flags) {
        return AddSignerCms(message, signer, flags);
    });
}

void SignedCms::CoSignContent(const SignerCms& signer, const AddSignerStep& addSigner) {
    if (m_pCms == nullptr) {
        Fail(m_log, L"CoSign: CMS not present - m_pCms is null", ErrNoMessage);
    }
    if (m_aContent.GetSize() == 0) {
        Fail(m_log, L"CoSign: Signed content not set - m_aContent is empty", ErrNoContent);
    }
    BioPtr content(BIO_new_mem_buf(m_aContent.GetData(), static_cast<int>(m_aContent.GetSize())));
    if (!content) {
        Fail(m_log, L"CoSign: pBioContent=NULL", ErrOutOfMemory);
    }
    CmsContentInfoPtr cms = CopyMessage(m_pCms);
    if (!cms) {
        FailCrypto(m_log, "CoSign: i2d_CMS_ContentInfo() failed.", ErrAsn1Encoding);
    }
    AddSignerCertificates(cms.get(), signer);
    // The signer's certificates are in already.
    const unsigned int flags = SigningFlags(signer, m_detached) | CMS_NOCERTS;
    CMS_SignerInfo* signerInfo =
        addSigner(cms.get(), (flags & ~cmssign::kNoSigningTime) | CMS_PARTIAL);
    if (FinalizeSigner(cms.get(), signerInfo, content.get(), flags) != 1) {
        FailSigning(m_log.get(), "CoSign: FinalizeSigner() failed.");
    }
    content.reset();
    FreeCms(0);
    m_pCms = cms.release();
    ParseCms(m_pCms);
}

// ----------------------------------------------------------- building blocks

unsigned int SignedCms::SigningFlags(const SignerCms& signer, int detached) const {
    return cmssign::SignFlags(signer, detached);
}

void SignedCms::AdoptSignedMessage(CMS_ContentInfo* cms, const SignerCms& signer, cptCmsType type) {
    CmsContentInfoPtr owned(cms);
    FreeCms(0);
    m_pCms = owned.release();
    {
        const OwnMessageScope parsing(m_parsingOwnMessage);
        ParseCms(m_pCms);
    }
    if (type == cptCmsTimeStamp) {
        GetSignerInfo(0)->Upgrade(cptCmsTimeStamp, signer.GetTspClient());
    }
}

CMS_SignerInfo* SignedCms::AddSignerCms(CMS_ContentInfo* cms, const SignerCms& signer,
                                        unsigned int flags) {
    return cmssign::AddCheckedSigner(m_log.get(), L"AddSignerCms", L"SignedCms - pCms=NULL", cms,
                                     signer, flags, nullptr);
}

CMS_SignerInfo* cmssign::AddCheckedSigner(const LogChannel* log, const wchar_t* operation,
                                          const wchar_t* nullMessage, CMS_ContentInfo* cms,
                                          const SignerCms& signer, unsigned int flags,
                                          const std::function<void()>& extraChecks) {
    const auto text = [operation](const wchar_t* what) {
        return std::wstring(operation) + L": " + what;
    };
    if (cms == nullptr) {
        Fail(log, text(L"Bad parameter - pCms is null").c_str(), ErrInvalidParameter, nullMessage);
    }
    const X509Certificate& certificate = signer.GetCertificate();
    if (certificate.GetX509() == nullptr) {
        Fail(log, text(L"Signer certificate is null.").c_str(), ErrSignerCertNotSet);
    }
    CryptKey* key = certificate.GetPrivateKey();
    if (key == nullptr || key->GetKeyEVP() == nullptr) {
        Fail(log, text(L"Signer private key is not set.").c_str(), ErrSignerKeyUnusable);
    }
    if (extraChecks) {
        extraChecks();
    }
    CheckSignerCertificate(log, signer);
    const EVP_MD* md = cmssign::SignerDigest(signer);
    if (md == nullptr) {
        Fail(log, text(L"pDigest is null").c_str(), ErrAlgorithmNotSupported);
    }
    CMS_SignerInfo* signerInfo =
        CMS_add1_signer(cms, certificate.GetX509(), key->GetKeyEVP(), md, flags);
    if (signerInfo == nullptr) {
        const std::string failed = std::string(operation, operation + std::wcslen(operation)) +
                                   ": CMS_add1_signer() failed.";
        FailCrypto(log, failed.c_str(), ErrAddSigner);
    }
    return signerInfo;
}

stack_st_X509* SignedCms::EnumSignerCertificates(const SignerCms& signer, int skipSigner) const {
    const SignerCms::cptIncludeOption option = signer.GetIncludeOption();
    const X509Certificate& certificate = signer.GetCertificate();
    if (option != SignerCms::cptIncludeNone && certificate.GetX509() == nullptr) {
        Fail(m_log, L"EnumSignerCertificates: Signer certificate is null.", ErrSignerCertNotSet);
    }
    X509StackPtr certs(sk_X509_new_null());
    if (!certs) {
        Fail(ErrOutOfMemory);
    }
    // A signer left out here is added by the signer step: a copy in the list
    // (from the extra list, say) would make OpenSSL refuse the message.
    const X509* left =
        skipSigner != 0 && option != SignerCms::cptIncludeNone ? certificate.GetX509() : nullptr;
    if (option == SignerCms::cptIncludeSignerCertificate && skipSigner == 0) {
        X509Ptr copy(X509_dup(certificate.GetX509()));
        if (!copy) {
            Fail(m_log, L"EnumSignerCertificates: X509_dup() failed - pSignerCert=NULL",
                 ErrInternal, L"pSignerCert==NULL");
        }
        PushUnique(certs.get(), std::move(copy), left);
    }
    if (option == SignerCms::cptIncludeChainWithoutRoot ||
        option == SignerCms::cptIncludeWholeChain) {
        X509ChainPolicy policy;
        SetSignerPathPolicy(
            m_log.get(),
            L"EnumSignerCertificates: Trust store not set - signer.GetTrustStore()=NULL", signer,
            &policy);
        X509Chain chain(&policy);
        chain.Build(&certificate, 0);
        const qorstd::QorVector<X509ChainElement>& elements = chain.GetElements();
        unsigned int end = elements.GetSize();
        if (option == SignerCms::cptIncludeChainWithoutRoot && end > 0) {
            --end;
        }
        for (unsigned int i = skipSigner != 0 ? 1 : 0; i < end; ++i) {
            X509* element = elements.GetAt(i).GetCertificate()->GetX509();
            if (element == nullptr) {
                Fail(m_log, L"EnumSignerCertificates: element.GetCertificate().GetX509()=NULL",
                     ErrInternal);
            }
            X509Ptr copy(X509_dup(element));
            if (!copy) {
                Fail(m_log, L"EnumSignerCertificates: X509_dup() failed - pElementCert=NULL",
                     ErrInternal, L"pCert==NULL");
            }
            PushUnique(certs.get(), std::move(copy), left);
        }
    }
    const qorstd::QorVector<X509Certificate>& extra = signer.GetCertificates();
    for (unsigned int i = 0; i < extra.GetSize(); ++i) {
        if (extra.GetAt(i).GetX509() == nullptr) {
            Fail(m_log, L"EnumSignerCertificates: cert.GetX509()=NULL", ErrInvalidParameter,
                 L"signer.GetCertificates().GetX509()==NULL");
        }
        X509Ptr copy(X509_dup(extra.GetAt(i).GetX509()));
        if (!copy) {
            Fail(m_log, L"EnumSignerCertificates: X509_dup() failed - pCert=NULL", ErrInternal,
                 L"pCert==NULL");
        }
        PushUnique(certs.get(), std::move(copy), left);
    }
    return certs.release();
}

void SignedCms::AddSignerCertificates(CMS_ContentInfo* cms, const SignerCms& signer) {
    if (cms == nullptr) {
        Fail(m_log, L"AddSignerCertificates: Bad parameter - pCms is null", ErrInvalidParameter,
             L"SignedCms - pCms=NULL");
    }
    X509StackPtr certs(EnumSignerCertificates(signer, 0));
    if (sk_X509_num(certs.get()) <= 0) {
        TLOG_DEBUG(m_log, L"AddSignerCertificates: No certificates added.");
        return;
    }
    X509StackPtr present(CMS_get1_certs(cms));
    for (int i = 0; i < sk_X509_num(certs.get()); ++i) {
        X509* cert = sk_X509_value(certs.get(), i);
        if (cert == nullptr) {
            Fail(m_log, L"AddSignerCertificates: pSignerCert is null", ErrInternal);
        }
        if (Contains(present.get(), cert)) {
            continue;
        }
        if (CMS_add1_cert(cms, cert) != 1) {
            FailCrypto(m_log, "AddSignerCertificates: CMS_add1_cert() failed.", ErrInternal);
        }
    }
}

int SignedCms::FinalizeSigner(CMS_ContentInfo* cms, CMS_SignerInfo* signer, BIO* content,
                              unsigned int flags) {
    if (cms == nullptr || signer == nullptr || content == nullptr) {
        ERR_raise(ERR_LIB_CMS, ERR_R_PASSED_NULL_PARAMETER);
        return 0;
    }
    BioPtr chain(CMS_dataInit(cms, nullptr));
    ASN1_OCTET_STRING** slot = CMS_get0_content(cms);
    if (!chain || slot == nullptr) {
        return 0;
    }
    const bool placeholder = *slot != nullptr && ((*slot)->flags & ASN1_STRING_FLAG_CONT) != 0;
    const ASN1_OCTET_STRING* embedded = placeholder ? nullptr : *slot;
    if (embedded != nullptr) {
        // The chain ends in a read-only view of the embedded content, which
        // takes no writes: the digests get a sink that drops what passes.
        BIO* view = BIO_find_type(chain.get(), BIO_TYPE_MEM);
        BioPtr sink(BIO_new(BIO_s_null()));
        if (view == nullptr || !sink) {
            return 0;
        }
        BIO_pop(view);
        const BioPtr dropped(view);
        BIO_push(chain.get(), sink.release());
    }

    // The content in binary form, compared on the way with what the message
    // embeds when co-signing.
    unsigned char buffer[4096];
    long offset = 0;
    int got = 0;
    while ((got = BIO_read(content, buffer, sizeof(buffer))) > 0) {
        if (embedded != nullptr &&
            (offset + got > embedded->length ||
             std::memcmp(embedded->data + offset, buffer, static_cast<size_t>(got)) != 0)) {
            ERR_raise(ERR_LIB_CMS, CMS_R_CONTENT_VERIFY_ERROR);
            return 0;
        }
        if (BIO_write(chain.get(), buffer, got) != got) {
            return 0;
        }
        offset += got;
    }
    if (embedded != nullptr && offset != embedded->length) {
        ERR_raise(ERR_LIB_CMS, CMS_R_CONTENT_VERIFY_ERROR);
        return 0;
    }
    if (BIO_flush(chain.get()) <= 0) {
        return 0;
    }

    if (placeholder) {
        // The new message's content: the memory sink's bytes move into it.
        BIO* sink = BIO_find_type(chain.get(), BIO_TYPE_MEM);
        if (sink == nullptr) {
            ERR_raise(ERR_LIB_CMS, CMS_R_CONTENT_NOT_FOUND);
            return 0;
        }
        char* data = nullptr;
        const long length = BIO_get_mem_data(sink, &data);
        BIO_set_flags(sink, BIO_FLAGS_MEM_RDONLY);
        BIO_set_mem_eof_return(sink, 0);
        ASN1_STRING_set0(*slot, data, static_cast<int>(length));
        (*slot)->flags &= ~ASN1_STRING_FLAG_CONT;
    }

    EVP_PKEY* key = SignerInfoKey(signer);
    const EVP_MD* md = key != nullptr ? SignerInfoDigest(signer) : nullptr;
    EvpMdCtxPtr digestContext(EVP_MD_CTX_new());
    if (md == nullptr || !digestContext ||
        !CopyChainDigest(chain.get(), EVP_MD_get_type(md), digestContext.get())) {
        return 0;
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int digestLength = 0;
    if (EVP_DigestFinal_ex(digestContext.get(), digest, &digestLength) != 1) {
        return 0;
    }
    if ((flags & CMS_NOATTR) != 0) {
        return SignDigestValue(signer, key, md, digest, digestLength) ? 1 : 0;
    }
    if (!AddDigestAttributes(cms, signer, digest, static_cast<int>(digestLength))) {
        return 0;
    }
    return SignSigner(signer, flags);
}

int SignedCms::FinalizeDigestSigner(CMS_ContentInfo* cms, CMS_SignerInfo* signer,
                                    unsigned char* digest, unsigned int length,
                                    unsigned int flags) {
    if (cms == nullptr || signer == nullptr || digest == nullptr) {
        ERR_raise(ERR_LIB_CMS, ERR_R_PASSED_NULL_PARAMETER);
        return 0;
    }
    EVP_PKEY* key = SignerInfoKey(signer);
    if (key == nullptr) {
        return 0;
    }
    if ((flags & CMS_NOATTR) != 0) {
        const EVP_MD* md = SignerInfoDigest(signer);
        return md != nullptr && SignDigestValue(signer, key, md, digest, length) ? 1 : 0;
    }
    if (!AddDigestAttributes(cms, signer, digest, static_cast<int>(length))) {
        return 0;
    }
    return SignSigner(signer, flags);
}

int SignedCms::SignSigner(CMS_SignerInfo* signer, unsigned int flags) {
    const EVP_MD* md = signer != nullptr ? SignerInfoDigest(signer) : nullptr;
    EVP_PKEY* key = md != nullptr ? SignerInfoKey(signer) : nullptr;
    if (key == nullptr) {
        return 0;
    }
    if ((flags & (CMS_NOATTR | cmssign::kNoSigningTime)) == 0 &&
        CMS_signed_get_attr_by_NID(signer, NID_pkcs9_signingTime, -1) < 0 &&
        AddSigningTime(signer, nullptr) != 1) {
        return 0;
    }

    if (!SortSignedAttributes(signer)) {
        return 0;
    }
    AttributeView attributes(sk_X509_ATTRIBUTE_new_null());
    if (!attributes) {
        return 0;
    }
    for (int i = 0; i < CMS_signed_get_attr_count(signer); ++i) {
        if (sk_X509_ATTRIBUTE_push(attributes.get(), CMS_signed_get_attr(signer, i)) <= 0) {
            return 0;
        }
    }
    unsigned char* der = nullptr;
    const int derLength = ASN1_item_i2d(reinterpret_cast<ASN1_VALUE*>(attributes.get()), &der,
                                        ASN1_ITEM_rptr(SignedAttributesSet));
    const OpenSslBytesPtr encoded(der);
    if (derLength <= 0) {
        return 0;
    }

    // A null engine: an engine key brings its own.
    EvpMdCtxPtr context(EVP_MD_CTX_new());
    EVP_PKEY_CTX* keyContext = nullptr;
    if (!context || EVP_DigestSignInit(context.get(), &keyContext, md, nullptr, key) != 1 ||
        !CallSignHook(keyContext, 0, signer)) {
        return 0;
    }
    size_t signatureLength = static_cast<size_t>(EVP_PKEY_get_size(key));
    OpenSslBytesPtr signature(static_cast<unsigned char*>(OPENSSL_malloc(signatureLength)));
    if (!signature ||
        EVP_DigestSign(context.get(), signature.get(), &signatureLength, encoded.get(),
                       static_cast<size_t>(derLength)) != 1 ||
        !CallSignHook(keyContext, 1, signer)) {
        return 0;
    }
    StoreSignature(signer, std::move(signature), signatureLength);
    return 1;
}

int SignedCms::AddSigningTime(CMS_SignerInfo* signer, ASN1_STRING* time) {
    Asn1UtcTimePtr now;
    if (time == nullptr) {
        now.reset(ASN1_UTCTIME_set(nullptr, static_cast<time_t>(CryptUtils::GetCurrentTimeUTC())));
        time = now.get();
    }
    if (signer == nullptr || time == nullptr ||
        CMS_signed_add1_attr_by_NID(signer, NID_pkcs9_signingTime, time->type, time, -1) != 1) {
        ERR_raise(ERR_LIB_CMS, ERR_R_MALLOC_FAILURE);
        return 0;
    }
    return 1;
}

// ------------------------------------------------------ signature time-stamps

void SignedCms::SignerInfo::Upgrade(cptCmsType type, const QorTsp2Lib::TspClient* client) {
    TLOG_INFO(m_log, L"Upgrade(Signer:%ls Type:%ld)", m_certificate.GetSubjectStringX500(0).c_str(),
              static_cast<long>(type));
    if (type < cptCmsBasic) {
        TLOG_DEBUG(m_log, L"Upgrade: Invalid requested level.");
        return;
    }
    if (type == cptCmsTimeStamp) {
        // The client learns the signer's digest when it has none of its own.
        AddTimeStamp(const_cast<QorTsp2Lib::TspClient*>(client));
    }
    if (m_parent != nullptr) {
        const_cast<SignedCms*>(m_parent)->UpdateSignerCms(*this);
    }
}

void SignedCms::SignerInfo::AddTimeStamp(QorTsp2Lib::TspClient* client) {
    TLOG_DEBUG(m_log, L"Adding timestamp...");
    if (client == nullptr) {
        Fail(m_log, L"AddTimeStamp: Bad parameter - pTspClient is null", ErrInvalidParameter,
             L"SignedCades::SignerInfo - pTspClient=NULL");
    }
    if (client->GetHashAlgorithm() == QorTsp2Lib::tspHashNone) {
        CryptHash::cptHashAlgorithm algorithm = CryptHash::cptHashNone;
        try {
            algorithm = CryptHash::GetHashAlgorithmByNID(m_nHashAlgorithm);
        } catch (const CryptException&) {
            algorithm = CryptHash::cptHashNone;
        }
        if (algorithm == CryptHash::cptHashNone) {
            Fail(m_log, L"AddTimeStamp: Bad parameter - Hash algorithm not set",
                 ErrInvalidParameter,
                 L"SignedCades::SignerInfo - pTspClient->GetHashAlgorithm()=tspHashNone");
        }
        // One numbering for both: SHA-1 1 ... SHA-512 5.
        client->SetHashAlgorithm(static_cast<QorTsp2Lib::tspHashAlgorithm>(algorithm));
    }
    const qorstd::QorArray<unsigned char> imprint = ComputeSignatureHash(
        m_pSigner, static_cast<CryptHash::cptHashAlgorithm>(client->GetHashAlgorithm()));
    const QorTsp2Lib::TspTimeStamp stamp =
        client->TimeStamp(imprint.GetData(), imprint.GetSize(), 0);
    AddUnsignedAttribute(TimeStampAttribute::CreateFromTimeStamp(stamp));
    ParseSignatureTimeStamps();
}

void SignedCms::Upgrade(cptCmsType type, const QorTsp2Lib::TspClient* client) {
    TLOG_INFO(m_log, L"Upgrade(Type:%ld)", static_cast<long>(type));
    if (m_pCms == nullptr) {
        Fail(m_log, L"Upgrade: CMS not present - m_pCms is null", ErrNoMessage);
    }
    if (GetSignerInfoCount() == 0) {
        Fail(m_log, L"Upgrade: Signer is not present.", ErrNoSigner);
    }
    for (unsigned int i = 0; i < GetSignerInfoCount(); ++i) {
        SignerInfo copy(*GetSignerInfo(i));
        copy.Upgrade(type, client);
    }
}

}  // namespace TesseraLib
