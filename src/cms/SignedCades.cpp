// SignedCades: the CAdES container, its signer infos as parsed, signing
// with CAdES signers and upgrading signers with signature time-stamps.
#include "SignedCades.h"

#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <string>
#include <vector>

#include "CryptException.h"
#include "Failure.h"
#include "LogChannel.h"
#include "OpenSslPtr.h"
#include "SignaturePolicy.h"
#include "cms/CmsOid.h"
#include "cms/CmsSigning.h"

namespace qorstd {
template class QorVector<TesseraLib::SignedCades::SignerInfo>;
template class QorVectorIterator<TesseraLib::SignedCades::SignerInfo>;
template class QorVector<TesseraLib::SignedCades::cptCadesLevel>;
template class QorVectorIterator<TesseraLib::SignedCades::cptCadesLevel>;
}  // namespace qorstd

namespace TesseraLib {

namespace {

constexpr const wchar_t* kChannelName = L"SignedCades";
constexpr const wchar_t* kSignerChannelName = L"SignedCades.SignerInfo";
constexpr const char* kOidSigningCertificate = "1.2.840.113549.1.9.16.2.12";
constexpr const char* kOidSigningCertificateV2 = "1.2.840.113549.1.9.16.2.47";
constexpr const char* kOidSignaturePolicyId = "1.2.840.113549.1.9.16.2.15";
constexpr const char* kOidMimeType = "0.4.0.1733.2.1";

CMS_SignerInfo* Mutable(const CMS_SignerInfo* signer) {
    return const_cast<CMS_SignerInfo*>(signer);
}

// Adds a copy of `attr` to the signed attributes; `what` names it in the
// log lines.
void AddSignedAttribute(const LogChannel* log, CMS_SignerInfo* signer, const X509Attribute& attr,
                        const wchar_t* what) {
    if (attr.GetX509Attr() == nullptr) {
        const std::wstring text = std::wstring(L"AddSignerCades: Cannot create ") + what +
                                  L" attribute - GetX509Attr()=NULL";
        Fail(log, text.c_str(), ErrAsn1Encoding);
    }
    if (CMS_signed_add1_attr(signer, attr.GetX509Attr()) != 1) {
        const std::string text = std::string("AddSignerCades: Cannot add ") +
                                 std::string(what, what + std::wcslen(what)) +
                                 " attribute - CMS_signed_add1_attr() failed.";
        FailCrypto(log, text.c_str(), ErrAsn1Encoding);
    }
}

}  // namespace

// ================================================================ signer info

SignedCades::SignerInfo::SignerInfo()
    : m_cadesParent(nullptr),
      m_policyInUse(nullptr),
      m_cadesForm(cptCadesNone),
      m_hasPolicyId(0),
      m_cadesLog(std::make_unique<LogChannel>(kSignerChannelName)) {}

SignedCades::SignerInfo::SignerInfo(const SignedCades* parent, const CMS_SignerInfo* signer,
                                    const X509* certificate)
    : SignerInfo() {
    m_parent = parent;
    m_cadesParent = parent;
    m_pSigner = Mutable(signer);
    ParseSignerInfo(signer, certificate);
}

SignedCades::SignerInfo::SignerInfo(const SignedCades* parent, const SignedCms::SignerInfo& parsed)
    : SignedCms::SignerInfo(parsed),
      m_cadesParent(parent),
      m_policyInUse(nullptr),
      m_cadesForm(cptCadesNone),
      m_hasPolicyId(0),
      m_cadesLog(std::make_unique<LogChannel>(kSignerChannelName)) {
    m_parent = parent;
    if (m_pSigner == nullptr) {
        Fail(m_cadesLog, L"ParseSignerInfo: Bad parameter - pSigner is null", ErrInvalidParameter,
             L"SignedCades::SignerInfo - pSigner=NULL");
    }
    if (CMS_signed_get_attr_count(m_pSigner) <= 0) {
        Fail(m_cadesLog, L"ParseSignerInfo: No signed attributes.", ErrInvalidMessageFormat);
    }
    ParseCadesAttributes();
}

SignedCades::SignerInfo::SignerInfo(const SignerInfo& other)
    : SignedCms::SignerInfo(other),
      m_cadesParent(other.m_cadesParent),
      m_policyInUse(other.m_policyInUse),
      m_cadesForm(other.m_cadesForm),
      m_levelEstimate(other.m_levelEstimate),
      m_hasPolicyId(other.m_hasPolicyId),
      m_signingCertificate(other.m_signingCertificate),
      m_signaturePolicy(other.m_signaturePolicy),
      m_mimeType(other.m_mimeType),
      m_cadesLog(std::make_unique<LogChannel>(kSignerChannelName)) {}

SignedCades::SignerInfo& SignedCades::SignerInfo::operator=(const SignerInfo& other) {
    if (this != &other) {
        SignedCms::SignerInfo::operator=(other);
        m_cadesParent = other.m_cadesParent;
        m_policyInUse = other.m_policyInUse;
        m_cadesForm = other.m_cadesForm;
        m_levelEstimate = other.m_levelEstimate;
        m_hasPolicyId = other.m_hasPolicyId;
        m_signingCertificate = other.m_signingCertificate;
        m_signaturePolicy = other.m_signaturePolicy;
        m_mimeType = other.m_mimeType;
    }
    return *this;
}

SignedCades::SignerInfo::~SignerInfo() = default;

bool SignedCades::SignerInfo::Equals(const SignerInfo& other) const {
    return m_cadesParent == other.m_cadesParent && m_pSigner == other.m_pSigner;
}

const SignaturePolicyAttribute* SignedCades::SignerInfo::GetSignaturePolicy() const {
    return m_hasPolicyId != 0 ? &m_signaturePolicy : nullptr;
}

const MimeTypeAttribute* SignedCades::SignerInfo::GetMimeType() const {
    return m_mimeType.GetMimeTypeString().empty() ? nullptr : &m_mimeType;
}

void SignedCades::SignerInfo::ParseSignerInfo(const CMS_SignerInfo* signer,
                                              const X509* certificate) {
    if (signer == nullptr) {
        Fail(m_cadesLog, L"ParseSignerInfo: Bad parameter - pSigner is null", ErrInvalidParameter,
             L"SignedCades::SignerInfo - pSigner=NULL");
    }
    if (CMS_signed_get_attr_count(Mutable(signer)) <= 0) {
        Fail(m_cadesLog, L"ParseSignerInfo: No signed attributes.", ErrInvalidMessageFormat);
    }
    m_cadesForm = cptCadesNone;
    SignedCms::SignerInfo::ParseSignerInfo(signer, certificate);
    ParseCadesAttributes();
}

void SignedCades::SignerInfo::ParseCadesAttributes() {
    m_cadesForm = cptCadesNone;
    m_levelEstimate.RemoveAll();
    m_signingCertificate.Reset();
    m_signaturePolicy.Reset();
    m_mimeType.Reset();
    if (HasSignedAttribute(kOidSigningCertificate) != 0 ||
        HasSignedAttribute(kOidSigningCertificateV2) != 0) {
        m_signingCertificate = SigningCertificateAttribute(GetSigningCertAttr());
        m_cadesForm = cptCadesBes;
        m_levelEstimate.Add(cptCadesLevelBes);
        m_levelEstimate.Add(cptCadesLevelBaselineB);
    }
    m_hasPolicyId = HasSignedAttribute(kOidSignaturePolicyId) != 0 ? 1 : 0;
    if (m_hasPolicyId != 0) {
        x509_attributes_st* policy = GetSignaturePolicyAttr();
        if (policy == nullptr) {
            Fail(m_cadesLog, L"ParseSignerInfo: pSignaturePolicy=NULL", ErrAsn1Decoding);
        }
        m_signaturePolicy = SignaturePolicyAttribute(policy);
        m_cadesForm = cptCadesEpes;
    }
    if (HasSignedAttribute(kOidMimeType) != 0) {
        m_mimeType = MimeTypeAttribute(GetMimeTypeAttr());
    }
    if (!m_signatureTimeStamps.IsEmpty()) {
        m_cadesForm = cptCadesT;
        AddLevels(true);
    }
}

void SignedCades::SignerInfo::AddLevels(bool timeStamped) {
    if (!timeStamped) {
        return;
    }
    m_levelEstimate.Add(cptCadesLevelT);
    m_levelEstimate.Add(cptCadesLevelBaselineT);
    if (m_cadesParent != nullptr &&
        (!m_cadesParent->GetCrls().IsEmpty() || m_cadesParent->GetOcspResponses().GetSize() > 0)) {
        m_levelEstimate.Add(cptCadesLevelLt);
        m_levelEstimate.Add(cptCadesLevelBaselineLt);
    }
}

x509_attributes_st* SignedCades::SignerInfo::SingleAttribute(const char* oid,
                                                             const wchar_t* operation,
                                                             const wchar_t* what, int notFound,
                                                             int multiple) const {
    if (m_pSigner == nullptr) {
        Fail(ErrInternal, L"SignedCades::SignerInfo - m_pSigner = NULL");
    }
    const std::vector<unsigned char> type = cms::OidBytes(oid);
    if (type.empty()) {
        Fail(ErrInternal, L"SignedCades::SignerInfo - pAsn1Obj = NULL");
    }
    const int count = GetSignedAttrCount(oid);
    if (count == 0) {
        const std::wstring text =
            std::wstring(operation) + L": Signed attribute " + what + L" not found.";
        Fail(m_cadesLog, text.c_str(), notFound);
    }
    if (count > 1) {
        const std::wstring text =
            std::wstring(operation) + L": Signed attribute " + what + L" occurs more than once.";
        Fail(m_cadesLog, text.c_str(), multiple);
    }
    return CMS_signed_get_attr(m_pSigner, cms::SignedAttrByOid(m_pSigner, type, -1));
}

x509_attributes_st* SignedCades::SignerInfo::GetSigningCertAttr() const {
    // The v1 attribute counts first; v2 only without it.
    const char* oid = GetSignedAttrCount(kOidSigningCertificate) > 0 || m_pSigner == nullptr
                          ? kOidSigningCertificate
                          : kOidSigningCertificateV2;
    return SingleAttribute(oid, L"GetSigningCertAttr", L"signing certificate",
                           ErrSigningCertAttrNotFound, ErrSigningCertAttrMultiple);
}

x509_attributes_st* SignedCades::SignerInfo::GetSignaturePolicyAttr() const {
    return SingleAttribute(kOidSignaturePolicyId, L"GetSignaturePolicyAttr", L"signature policy",
                           ErrSigPolicyIdNotFound, ErrSigPolicyIdMultiple);
}

x509_attributes_st* SignedCades::SignerInfo::GetMimeTypeAttr() const {
    return SingleAttribute(kOidMimeType, L"GetMimeTypeAttr", L"mime type", ErrMimeTypeAttrNotFound,
                           ErrMimeTypeAttrMultiple);
}

void SignedCades::SignerInfo::Upgrade(cptCadesType type, const QorTsp2Lib::TspClient* client) {
    TLOG_INFO(m_cadesLog, L"Upgrade(Signer:%ls Type:%ld)",
              m_certificate.GetSubjectStringX500(0).c_str(), static_cast<long>(type));
    int count = GetSignedAttrCount(kOidSigningCertificate);
    if (count == 0) {
        count = GetSignedAttrCount(kOidSigningCertificateV2);
    }
    if (count == 0) {
        Fail(m_cadesLog, L"Upgrade: Missing signing certificate attribute.",
             ErrSigningCertAttrNotFound);
    }
    if (count > 1) {
        TLOG_ERROR(m_cadesLog, L"Upgrade: More signing certificate attributes (AttrCount=%d).",
                   count);
        Fail(ErrSigningCertAttrMultiple);
    }
    if (type < cptCadesT) {
        TLOG_DEBUG(m_cadesLog, L"Upgrade: CAdES-BES or CADES-EPES upgrade not necessary.");
        return;
    }
    if (type > cptCadesT && !m_signatureTimeStamps.IsEmpty()) {
        return;
    }
    if (GetUnsignedAttrCount(NID_id_smime_aa_ets_archiveTimeStamp) > 0) {
        Fail(m_cadesLog, L"Upgrade: Cannot add signature timestamp. Archive timestamp found.",
             ErrInvalidParameter);
    }
    AddTimeStamp(const_cast<QorTsp2Lib::TspClient*>(client));
    if (m_cadesParent != nullptr) {
        const_cast<SignedCades*>(m_cadesParent)->UpdateSignerCades(*this);
    }
}

void SignedCades::SignerInfo::AddTimeStamp(QorTsp2Lib::TspClient* client) {
    TLOG_DEBUG(m_cadesLog, L"Adding timestamp...");
    if (client == nullptr) {
        Fail(m_cadesLog, L"AddTimeStamp: Bad parameter - pTspClient is null", ErrInvalidParameter,
             L"SignedCades::SignerInfo - pTspClient=NULL");
    }
    SignedCms::SignerInfo::AddTimeStamp(client);
    if (!m_signatureTimeStamps.IsEmpty()) {
        m_cadesForm = cptCadesT;
        AddLevels(true);
    }
}

// ================================================================== container

SignedCades::SignedCades() : m_cadesLog(std::make_unique<LogChannel>(kChannelName)) {}

SignedCades::SignedCades(const qorstd::QorArray<unsigned char>& content) : SignedCades() {
    SetContent(content);
}

SignedCades::SignedCades(const SignedCades& other) : SignedCades() {
    *this = other;
}

SignedCades& SignedCades::operator=(const SignedCades& other) {
    if (this != &other) {
        SignedCms::operator=(other);
        // The policies the other's verifications applied, by position.
        const unsigned int count = GetSignerInfoCount() < other.GetSignerInfoCount()
                                       ? GetSignerInfoCount()
                                       : other.GetSignerInfoCount();
        for (unsigned int i = 0; i < count; ++i) {
            GetSignerInfo(i)->m_policyInUse = other.GetSignerInfo(i)->m_policyInUse;
        }
    }
    return *this;
}

SignedCades::~SignedCades() {
    m_pvCadesSigners.reset();
}

void SignedCades::FreeCms(int freeContent) {
    m_pvCadesSigners.reset();
    SignedCms::FreeCms(freeContent);
}

void SignedCades::ParseCms(CMS_ContentInfo* cms) {
    SignedCms::ParseCms(cms);
    const qorstd::QorVector<SignedCms::SignerInfo>* plain = SignedCms::GetSignerInfos();
    if (plain == nullptr) {
        return;
    }
    m_pvCadesSigners.reset();
    auto signers = std::make_unique<qorstd::QorVector<SignerInfo>>();
    for (unsigned int i = 0; i < plain->GetSize(); ++i) {
        const SignedCms::SignerInfo& info = plain->GetAt(i);
        if (info.GetSigner() == nullptr) {
            Fail(ErrInternal);
        }
        signers->Add(SignerInfo(this, info));
    }
    m_pvCadesSigners = std::move(signers);
}

unsigned int SignedCades::GetSignerInfoCount() const {
    return m_pvCadesSigners ? m_pvCadesSigners->GetSize() : 0;
}

const SignedCades::SignerInfo* SignedCades::GetSignerInfo(unsigned int index) const {
    return m_pvCadesSigners && index < m_pvCadesSigners->GetSize() ? &m_pvCadesSigners->GetAt(index)
                                                                   : nullptr;
}

SignedCades::SignerInfo* SignedCades::GetSignerInfo(unsigned int index) {
    return m_pvCadesSigners && index < m_pvCadesSigners->GetSize() ? &m_pvCadesSigners->GetAt(index)
                                                                   : nullptr;
}

void SignedCades::UpdateSignerCades(const SignerInfo& info) {
    if (!m_pvCadesSigners) {
        Fail(m_cadesLog, L"UpdateSignerCades: Signer is not present.", ErrInternal,
             L"SignedCades - m_pvSigners=NULL");
    }
    for (unsigned int i = 0; i < m_pvCadesSigners->GetSize(); ++i) {
        SignerInfo& entry = m_pvCadesSigners->GetAt(i);
        if (entry == info) {
            if (&entry != &info) {
                entry = info;
            }
            return;
        }
    }
    Fail(m_cadesLog, L"UpdateSignerCades: Bad parameter - signer not found", ErrInvalidParameter,
         L"SignedCades - signer not found");
}

// ==================================================================== signing

unsigned int SignedCades::SigningFlags(const SignerCms& signer, int detached) const {
    const unsigned int flags = SignedCms::SigningFlags(signer, detached);
    if ((flags & CMS_NOATTR) == 0) {
        return flags;
    }
    return (flags & ~static_cast<unsigned int>(CMS_NOATTR)) | cmssign::kNoSigningTime;
}

CMS_SignerInfo* SignedCades::AddSignerCades(CMS_ContentInfo* cms, const SignerCades& signer,
                                            cptCadesType type, unsigned int flags) {
    const LogChannel* log = m_cadesLog.get();
    CMS_SignerInfo* added = cmssign::AddCheckedSigner(
        log, L"AddSignerCades", L"SignedCades - pCms=NULL", cms, signer, flags,
        [log, &signer, type] {
            if (type == cptCadesEpes && signer.GetSignaturePolicy() == nullptr) {
                Fail(log, L"AddSignerCades: Signer signature policy is null.", ErrNoSignPolicy);
            }
        });
    const EVP_MD* md = cmssign::SignerDigest(signer);
    const CryptHash::cptHashAlgorithm algorithm =
        CryptHash::GetHashAlgorithmByNID(EVP_MD_get_type(md));
    AddSignedAttribute(log, added,
                       SigningCertificateAttribute(signer.GetCertificate(), nullptr, algorithm),
                       L"signing certificate");
    if (type != cptCadesBes && signer.GetSignaturePolicy() != nullptr) {
        AddSignedAttribute(log, added, SignaturePolicyAttribute(*signer.GetSignaturePolicy()),
                           L"signature policy");
    }
    if (!signer.GetMimeType().empty()) {
        AddSignedAttribute(log, added, MimeTypeAttribute(signer.GetMimeType().c_str()),
                           L"mime type");
    }
    return added;
}

void SignedCades::Sign(const SignerCades& signer, cptCadesType type, int detached) {
    const X509Certificate& certificate = signer.GetCertificate();
    TLOG_INFO(m_cadesLog, L"Sign(Signer:%ls CertSN:%ls CertIssuer:%ls Type:%ld Detached:%ls)",
              certificate.GetSubjectStringX500(0).c_str(), cmssign::SerialText(certificate).c_str(),
              certificate.GetIssuerStringX500(0).c_str(), static_cast<long>(type),
              detached != 0 ? L"TRUE" : L"FALSE");
    CMS_ContentInfo* cms = SignContent(
        signer, detached, [this, &signer, type](CMS_ContentInfo* message, unsigned int flags) {
            return AddSignerCades(message, signer, type, flags);
        });
    AdoptSignedMessage(cms, signer, cptCmsBasic);
    if (GetSignerInfoCount() == 0) {
        Fail(m_cadesLog, L"Sign: Signer is not present.", ErrNoSigner, L"SignedCades - no signer");
    }
    if (type > cptCadesEpes) {
        GetSignerInfo(0)->Upgrade(type, signer.GetTspClient());
    }
}

void SignedCades::SignDigest(const SignerCades& signer, cptCadesType type,
                             const qorstd::QorArray<unsigned char>& hash) {
    const X509Certificate& certificate = signer.GetCertificate();
    TLOG_INFO(m_cadesLog, L"SignDigest(Signer:%ls CertSN:%ls CertIssuer:%ls Type:%ld)",
              certificate.GetSubjectStringX500(0).c_str(), cmssign::SerialText(certificate).c_str(),
              certificate.GetIssuerStringX500(0).c_str(), static_cast<long>(type));
    CMS_ContentInfo* cms =
        SignHash(signer, hash, L"SignedCades - hash is empty.",
                 [this, &signer, type](CMS_ContentInfo* message, unsigned int flags) {
                     return AddSignerCades(message, signer, type, flags);
                 });
    AdoptSignedMessage(cms, signer, cptCmsBasic);
    if (GetSignerInfoCount() == 0) {
        Fail(m_cadesLog, L"SignDigest: Signer is not present.", ErrNoSigner,
             L"SignedCades - no signer");
    }
    if (type > cptCadesEpes) {
        GetSignerInfo(0)->Upgrade(type, signer.GetTspClient());
    }
}

void SignedCades::CoSign(const SignerCades& signer, cptCadesType type) {
    const X509Certificate& certificate = signer.GetCertificate();
    TLOG_INFO(m_cadesLog, L"CoSign(Signer:%ls CertSN:%ls CertIssuer:%ls Type:%ld)",
              certificate.GetSubjectStringX500(0).c_str(), cmssign::SerialText(certificate).c_str(),
              certificate.GetIssuerStringX500(0).c_str(), static_cast<long>(type));
    // The new signer is the one whose signature value none of the old has.
    qorstd::QorVector<qorstd::QorArray<unsigned char>> before;
    for (unsigned int i = 0; i < GetSignerInfoCount(); ++i) {
        before.Add(GetSignerInfo(i)->GetSignatureValue());
    }
    CoSignContent(signer, [this, &signer, type](CMS_ContentInfo* message, unsigned int flags) {
        return AddSignerCades(message, signer, type, flags);
    });
    if (GetSignerInfoCount() == 0) {
        Fail(m_cadesLog, L"CoSign: Signer is not present.", ErrNoSigner,
             L"SignedCades - no signer");
    }
    if (type <= cptCadesEpes) {
        return;
    }
    for (unsigned int i = 0; i < GetSignerInfoCount(); ++i) {
        bool old = false;
        for (unsigned int j = 0; j < before.GetSize() && !old; ++j) {
            old = before[j] == GetSignerInfo(i)->GetSignatureValue();
        }
        if (!old) {
            GetSignerInfo(i)->Upgrade(type, signer.GetTspClient());
            return;
        }
    }
}

unsigned long SignedCades::EstimateSize(const SignerCades& signer, cptCadesType type,
                                        int detached) const {
    const LogChannel* log = m_cadesLog.get();
    return EstimateSignedSize(
        signer, static_cast<long>(type), detached, type == cptCadesT ? 4000 : 0,
        [log, &signer, type]() -> stack_st_X509_ATTRIBUTE* {
            if (type == cptCadesEpes && signer.GetSignaturePolicy() == nullptr) {
                Fail(log, L"EstimateSize: Signer signature policy is null.", ErrNoSignPolicy);
            }
            const EVP_MD* md = cmssign::SignerDigest(signer);
            X509AttributeStackPtr attributes(sk_X509_ATTRIBUTE_new_null());
            if (!attributes) {
                Fail(ErrOutOfMemory);
            }
            const auto push = [&](const X509Attribute& attr, const wchar_t* missing,
                                  const wchar_t* copyFailed) {
                if (attr.GetX509Attr() == nullptr) {
                    Fail(log, missing, ErrAsn1Encoding);
                }
                X509AttributePtr copy(X509_ATTRIBUTE_dup(attr.GetX509Attr()));
                if (!copy) {
                    Fail(log, copyFailed, ErrInternal);
                }
                if (sk_X509_ATTRIBUTE_push(attributes.get(), copy.get()) <= 0) {
                    Fail(ErrOutOfMemory);
                }
                copy.release();
            };
            push(SigningCertificateAttribute(signer.GetCertificate(), nullptr,
                                             CryptHash::GetHashAlgorithmByNID(EVP_MD_get_type(md))),
                 L"EstimateSize: Signing certificate attribute - GetX509Attr()=NULL",
                 L"EstimateSize: X509_ATTRIBUTE_dup() failed - pCertAttr=NULL");
            // The MIME type is left out of the estimate.
            if (type != cptCadesBes && signer.GetSignaturePolicy() != nullptr) {
                push(SignaturePolicyAttribute(*signer.GetSignaturePolicy()),
                     L"EstimateSize: Signature policy attribute - GetX509Attr()=NULL",
                     L"EstimateSize: X509_ATTRIBUTE_dup() failed - pPolicyAttr=NULL");
            }
            return attributes.release();
        });
}

void SignedCades::Upgrade(cptCadesType type, const QorTsp2Lib::TspClient* client) {
    TLOG_INFO(m_cadesLog, L"Upgrade(Type:%ld)", static_cast<long>(type));
    if (m_pCms == nullptr) {
        Fail(m_cadesLog, L"Upgrade: CMS not present - m_pCms is null", ErrNoMessage);
    }
    if (GetSignerInfoCount() == 0) {
        Fail(m_cadesLog, L"Upgrade: Signer is not present.", ErrNoSigner);
    }
    for (unsigned int i = 0; i < GetSignerInfoCount(); ++i) {
        SignerInfo copy(*GetSignerInfo(i));
        copy.Upgrade(type, client);
    }
}

}  // namespace TesseraLib
