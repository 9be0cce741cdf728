// The long-term CAdES container: signers classified B, T, LT or LTA, their
// archive time-stamps v3, and the hash indexes the archive tokens carry.
#include "SignedCades2.h"

#include <openssl/cms.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

#include "CryptException.h"
#include "Failure.h"
#include "LogChannel.h"
#include "OpenSslPtr.h"

namespace qorstd {
template class QorVector<TesseraLib::SignedCades2::SignerInfo>;
template class QorVectorIterator<TesseraLib::SignedCades2::SignerInfo>;
}  // namespace qorstd

namespace TesseraLib {

namespace {

constexpr const wchar_t* kChannelName = L"SignedCades2";
constexpr const wchar_t* kSignerChannelName = L"SignedCades2.SignerInfo";
constexpr const char* kOidArchiveTimeStampV3 = "0.4.0.1733.2.4";

std::wstring Wide(const char* text) {
    return std::wstring(text, text + std::char_traits<char>::length(text));
}

}  // namespace

// ================================================================ signer info

SignedCades2::SignerInfo::SignerInfo()
    : m_cades2Parent(nullptr),
      m_cades2Type(cptCades2None),
      m_cades2Log(std::make_unique<LogChannel>(kSignerChannelName)) {}

SignedCades2::SignerInfo::SignerInfo(const SignedCades2* parent,
                                     const SignedCades::SignerInfo& parsed)
    : SignedCades::SignerInfo(parsed),
      m_cades2Parent(parent),
      m_cades2Type(cptCades2None),
      m_cades2Log(std::make_unique<LogChannel>(kSignerChannelName)) {
    m_parent = parent;
    m_cadesParent = parent;
    if (m_pSigner == nullptr) {
        Fail(m_cades2Log, L"ParseSignerInfo: Bad parameter - pSigner is null", ErrInvalidParameter,
             L"SignedCades2::SignerInfo - pSigner=NULL");
    }
    ParseArchiveTimeStamps();
}

SignedCades2::SignerInfo::SignerInfo(const SignerInfo& other)
    : SignedCades::SignerInfo(other),
      m_cades2Parent(other.m_cades2Parent),
      m_cades2Type(other.m_cades2Type),
      m_archiveTimeStampsV3(other.m_archiveTimeStampsV3),
      m_archiveVerificationData(
          other.m_archiveVerificationData
              ? std::make_unique<qorstd::QorVector<TimeStampVerificationData>>(
                    *other.m_archiveVerificationData)
              : nullptr),
      m_cades2Log(std::make_unique<LogChannel>(kSignerChannelName)) {}

SignedCades2::SignerInfo& SignedCades2::SignerInfo::operator=(const SignerInfo& other) {
    if (this != &other) {
        std::unique_ptr<qorstd::QorVector<TimeStampVerificationData>> data(
            other.m_archiveVerificationData
                ? std::make_unique<qorstd::QorVector<TimeStampVerificationData>>(
                      *other.m_archiveVerificationData)
                : nullptr);
        SignedCades::SignerInfo::operator=(other);
        m_cades2Parent = other.m_cades2Parent;
        m_cades2Type = other.m_cades2Type;
        m_archiveTimeStampsV3 = other.m_archiveTimeStampsV3;
        m_archiveVerificationData = std::move(data);
    }
    return *this;
}

SignedCades2::SignerInfo::~SignerInfo() = default;

void SignedCades2::SignerInfo::ParseArchiveTimeStamps() {
    qorstd::QorVector<TimeStampAttribute> archives;
    const Asn1ObjectPtr type(OBJ_txt2obj(kOidArchiveTimeStampV3, 1));
    for (int at = CMS_unsigned_get_attr_by_OBJ(m_pSigner, type.get(), -1); at >= 0;
         at = CMS_unsigned_get_attr_by_OBJ(m_pSigner, type.get(), at)) {
        archives.Add(TimeStampAttribute(CMS_unsigned_get_attr(m_pSigner, at)));
    }
    m_archiveTimeStampsV3 = archives;
    // An EPES signer without time-stamps has no form of its own here.
    m_cades2Type = m_cadesForm == SignedCades::cptCadesBes ? cptCades2B : cptCades2None;
    if (!m_signatureTimeStamps.IsEmpty()) {
        m_cades2Type = cptCades2T;
        if (m_cades2Parent != nullptr && (!m_cades2Parent->GetCrls().IsEmpty() ||
                                          m_cades2Parent->GetOcspResponses().GetSize() > 0)) {
            m_cades2Type = cptCades2Lt;
        }
    }
    if (!m_archiveTimeStampsV3.IsEmpty()) {
        m_cades2Type = cptCades2Lta;
    }
}

x509_attributes_st* SignedCades2::SignerInfo::GetATSHashIndex(const char* oid) const {
    if (m_pSigner == nullptr || oid == nullptr) {
        Fail(m_cades2Log, L"GetATSHashIndex: Bad parameter", ErrInvalidParameter);
    }
    const Asn1ObjectPtr type(OBJ_txt2obj(oid, 1));
    const int first = CMS_unsigned_get_attr_by_OBJ(m_pSigner, type.get(), -1);
    if (first < 0) {
        TLOG_ERROR(m_cades2Log,
                   L"GetATSHashIndex: Unsigned attribute ats-hash-index (%ls) not found.",
                   Wide(oid).c_str());
        Fail(ErrAtsHashIndexV3NotFound);
    }
    if (CMS_unsigned_get_attr_by_OBJ(m_pSigner, type.get(), first) >= 0) {
        TLOG_ERROR(m_cades2Log,
                   L"GetATSHashIndex: Unsigned attribute ats-hash-index (%ls) occurs more than "
                   L"once.",
                   Wide(oid).c_str());
        Fail(ErrAtsHashIndexV3Multiple);
    }
    return CMS_unsigned_get_attr(m_pSigner, first);
}

x509_attributes_st* SignedCades2::SignerInfo::GetATSHashIndex() const {
    return GetATSHashIndex(ATSHashIndexAttributeBase::kOidV1);
}

x509_attributes_st* SignedCades2::SignerInfo::GetATSHashIndexV2() const {
    return GetATSHashIndex(ATSHashIndexAttributeBase::kOidV2);
}

x509_attributes_st* SignedCades2::SignerInfo::GetATSHashIndexV3() const {
    return GetATSHashIndex(ATSHashIndexAttributeBase::kOidV3);
}

namespace {

template <class Index>
std::unique_ptr<ATSHashIndexAttributeBase> ParseIndex(const LogChannel* log,
                                                      const x509_attributes_st* attr) {
    if (attr == nullptr) {
        Fail(log, L"ParseATSHashIndex: Bad parameter - pAttr is null", ErrInvalidParameter,
             L"SignedCades2::SignerInfo - pAttr = NULL");
    }
    return std::make_unique<Index>(attr);
}

}  // namespace

std::unique_ptr<ATSHashIndexAttributeBase> SignedCades2::SignerInfo::ParseATSHashIndex(
    const x509_attributes_st* attr) const {
    return ParseIndex<ATSHashIndexAttribute>(m_cades2Log.get(), attr);
}

std::unique_ptr<ATSHashIndexAttributeBase> SignedCades2::SignerInfo::ParseATSHashIndexV2(
    const x509_attributes_st* attr) const {
    return ParseIndex<ATSHashIndexV2Attribute>(m_cades2Log.get(), attr);
}

std::unique_ptr<ATSHashIndexAttributeBase> SignedCades2::SignerInfo::ParseATSHashIndexV3(
    const x509_attributes_st* attr) const {
    return ParseIndex<ATSHashIndexV3Attribute>(m_cades2Log.get(), attr);
}

// ================================================================== container

SignedCades2::SignedCades2() : m_cades2Log(std::make_unique<LogChannel>(kChannelName)) {}

SignedCades2::SignedCades2(const qorstd::QorArray<unsigned char>& content) : SignedCades2() {
    SetContent(content);
}

SignedCades2::SignedCades2(const SignedCades2& other) : SignedCades2() {
    *this = other;
}

SignedCades2& SignedCades2::operator=(const SignedCades2& other) {
    if (this != &other) {
        SignedCades::operator=(other);
    }
    return *this;
}

SignedCades2::~SignedCades2() {
    m_pvCades2Signers.reset();
}

void SignedCades2::FreeCms(int freeContent) {
    m_pvCades2Signers.reset();
    SignedCades::FreeCms(freeContent);
}

void SignedCades2::ParseCms(CMS_ContentInfo* cms) {
    SignedCades::ParseCms(cms);
    m_pvCades2Signers.reset();
    auto signers = std::make_unique<qorstd::QorVector<SignerInfo>>();
    for (unsigned int i = 0; i < SignedCades::GetSignerInfoCount(); ++i) {
        signers->Add(SignerInfo(this, *SignedCades::GetSignerInfo(i)));
    }
    m_pvCades2Signers = std::move(signers);
}

unsigned int SignedCades2::GetSignerInfoCount() const {
    return m_pvCades2Signers ? m_pvCades2Signers->GetSize() : 0;
}

const SignedCades2::SignerInfo* SignedCades2::GetSignerInfo(unsigned int index) const {
    return index < GetSignerInfoCount() ? &m_pvCades2Signers->GetAt(index) : nullptr;
}

SignedCades2::SignerInfo* SignedCades2::GetSignerInfo(unsigned int index) {
    return index < GetSignerInfoCount() ? &m_pvCades2Signers->GetAt(index) : nullptr;
}

CMS_SignerInfo* SignedCades2::AddSignerCades(CMS_ContentInfo* cms, const SignerCades& signer,
                                             SignedCades::cptCadesType type, unsigned int flags) {
    if (cms == nullptr) {
        Fail(m_cades2Log, L"AddSignerCades: Bad parameter - pCms is null", ErrInvalidParameter,
             L"SignedCades2 - pCms=NULL");
    }
    return SignedCades::AddSignerCades(cms, signer, type, flags);
}

void SignedCades2::UpdateSignerCades(const SignedCades::SignerInfo& info) {
    SignedCades::UpdateSignerCades(info);
    if (!m_pvCades2Signers) {
        return;
    }
    for (unsigned int i = 0; i < m_pvCades2Signers->GetSize(); ++i) {
        SignerInfo& entry = m_pvCades2Signers->GetAt(i);
        if (entry.GetSigner() == info.GetSigner()) {
            if (static_cast<const SignedCades::SignerInfo*>(&entry) != &info) {
                static_cast<SignedCades::SignerInfo&>(entry) = info;
            }
            entry.ParseArchiveTimeStamps();
            return;
        }
    }
}

}  // namespace TesseraLib
