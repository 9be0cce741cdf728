// SignedCms::SignerInfo: what one signer info of a message says, read once.
#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <string>
#include <vector>

#include "CryptException.h"
#include "CryptHash.h"
#include "Failure.h"
#include "LogChannel.h"
#include "OpenSslPtr.h"
#include "QorAsn1Time.h"
#include "SignedCms.h"
#include "X509Attribute.h"
#include "X509Chain.h"
#include "cms/CmsOid.h"
#include "x509/X509Bytes.h"

namespace TesseraLib {

namespace {

constexpr const wchar_t* kChannelName = L"SignedCms.SignerInfo";
constexpr const wchar_t* kNoSigner = L"SignedCms::SignerInfo - m_pSigner = NULL";

// The signer handle OpenSSL's getters want; they only read it.
CMS_SignerInfo* Mutable(const CMS_SignerInfo* signer) {
    return const_cast<CMS_SignerInfo*>(signer);
}

void RequireSigner(const LogChannel* log, const CMS_SignerInfo* signer, const wchar_t* operation) {
    if (signer == nullptr) {
        const std::wstring text = std::wstring(operation) + L": m_pSigner is null";
        Fail(log, text.c_str(), ErrInternal, kNoSigner);
    }
}

// The object of a dotted OID text (numbers only).
// The OID's content octets; an OID text nobody reads fails.
std::vector<unsigned char> OidOf(const LogChannel* log, const char* oid, const wchar_t* operation) {
    std::vector<unsigned char> der = cms::OidBytes(oid);
    if (der.empty()) {
        const std::wstring text = std::wstring(operation) + L": pAsn1Obj is null";
        Fail(log, text.c_str(), ErrInternal, L"SignedCms::SignerInfo - pAsn1Obj = NULL");
    }
    return der;
}

// How often an attribute occurs; `next(lastpos)` gives the next index or a
// negative value.
template <class Next>
int CountOccurrences(Next next) {
    int count = 0;
    for (int position = next(-1); position >= 0; position = next(position)) {
        ++count;
    }
    return count;
}

int CountSigned(const CMS_SignerInfo* signer, const std::vector<unsigned char>& oid) {
    return CountOccurrences([&](int last) { return cms::SignedAttrByOid(signer, oid, last); });
}

int CountSigned(const CMS_SignerInfo* signer, int nid) {
    return CountOccurrences(
        [&](int last) { return CMS_signed_get_attr_by_NID(Mutable(signer), nid, last); });
}

int CountUnsigned(const CMS_SignerInfo* signer, const std::vector<unsigned char>& oid) {
    return CountOccurrences([&](int last) { return cms::UnsignedAttrByOid(signer, oid, last); });
}

int CountUnsigned(const CMS_SignerInfo* signer, int nid) {
    return CountOccurrences(
        [&](int last) { return CMS_unsigned_get_attr_by_NID(Mutable(signer), nid, last); });
}

// The dotted text of the first value of a content-type attribute; empty
// when that value is no OBJECT IDENTIFIER.
qorstd::QorString ParseContentType(const X509_ATTRIBUTE* attr) {
    if (attr == nullptr) {
        Fail(ErrInvalidParameter, L"SignedCms.SignerInfo - pContentType = NULL");
    }
    const ASN1_TYPE* value = X509_ATTRIBUTE_get0_type(const_cast<X509_ATTRIBUTE*>(attr), 0);
    if (value == nullptr || value->type != V_ASN1_OBJECT) {
        return qorstd::QorString();
    }
    return cms::OidText(value->value.object);
}

// The first value of a signing-time attribute in seconds since 1970; 0 for
// a value that is no time.
std::int64_t ParseSigningTime(const LogChannel* log, const X509_ATTRIBUTE* attr) {
    if (attr == nullptr) {
        Fail(log, L"ParseSigningTime: Bad parameter - pTime is null", ErrInvalidParameter,
             L"SignedCms.SignerInfo - pTime = NULL");
    }
    const ASN1_TYPE* value = X509_ATTRIBUTE_get0_type(const_cast<X509_ATTRIBUTE*>(attr), 0);
    if (value == nullptr ||
        (value->type != V_ASN1_UTCTIME && value->type != V_ASN1_GENERALIZEDTIME)) {
        return 0;
    }
    std::int64_t seconds = 0;
    if (!qortime::Asn1TimeToSeconds(value->value.asn1_string, &seconds)) {
        ERR_clear_error();
        return 0;
    }
    return seconds;
}

// The container's certificate object for `certificate` when it has one (the
// same OpenSSL handle: a cheap copy), else a newly read one.
X509Certificate KnownCertificate(const SignedCms* parent, const X509* certificate) {
    if (parent != nullptr) {
        const qorstd::QorVector<X509Certificate>& known = parent->GetCertificates();
        for (unsigned int i = 0; i < known.GetSize(); ++i) {
            if (known[i].GetX509() == certificate) {
                return known[i];
            }
        }
    }
    return X509Certificate(certificate);
}

}  // namespace

// ------------------------------------------------------------------ lifecycle

SignedCms::SignerInfo::SignerInfo()
    : m_parent(nullptr),
      m_pSigner(nullptr),
      m_version(0),
      m_verifyInfo(0),
      m_cadesType(cptCmsNone),
      m_signingTime(0),
      m_nHashAlgorithm(0),
      m_nSignatureAlgorithm(0),
      m_log(std::make_unique<LogChannel>(kChannelName)),
      m_issuerCandidates(nullptr) {}

SignedCms::SignerInfo::SignerInfo(const SignedCms* parent, const CMS_SignerInfo* signer,
                                  const X509* certificate)
    : SignerInfo() {
    m_parent = parent;
    m_pSigner = Mutable(signer);
    ParseSignerInfo(signer, certificate);
}

SignedCms::SignerInfo::SignerInfo(const SignerInfo& other)
    : m_parent(other.m_parent),
      m_pSigner(other.m_pSigner),
      m_version(other.m_version),
      m_verifyInfo(other.m_verifyInfo),
      m_cadesType(other.m_cadesType),
      m_contentType(other.m_contentType),
      m_signingTime(other.m_signingTime),
      m_nHashAlgorithm(other.m_nHashAlgorithm),
      m_nSignatureAlgorithm(other.m_nSignatureAlgorithm),
      m_hashValue(other.m_hashValue),
      m_signatureValue(other.m_signatureValue),
      m_certificate(other.m_certificate),
      m_verificationData(other.m_verificationData ? other.m_verificationData->Clone() : nullptr),
      m_signatureTimeStamps(other.m_signatureTimeStamps),
      m_timeStampVerificationData(
          other.m_timeStampVerificationData
              ? static_cast<TimeStampVerificationData*>(other.m_timeStampVerificationData->Clone())
              : nullptr),
      m_log(std::make_unique<LogChannel>(kChannelName)),
      m_issuerCandidates(nullptr),
      m_archivedFields(other.m_archivedFields) {}

SignedCms::SignerInfo& SignedCms::SignerInfo::operator=(const SignerInfo& other) {
    if (this == &other) {
        return *this;
    }
    // Copy what can fail first, so that a failure leaves this object intact.
    std::unique_ptr<VerificationData> verification(
        other.m_verificationData ? other.m_verificationData->Clone() : nullptr);
    std::unique_ptr<TimeStampVerificationData> timeStampVerification(
        other.m_timeStampVerificationData
            ? static_cast<TimeStampVerificationData*>(other.m_timeStampVerificationData->Clone())
            : nullptr);
    X509Certificate certificate(other.m_certificate);
    qorstd::QorVector<TimeStampAttribute> timeStamps(other.m_signatureTimeStamps);
    m_parent = other.m_parent;
    m_pSigner = other.m_pSigner;
    m_version = other.m_version;
    m_verifyInfo = other.m_verifyInfo;
    m_cadesType = other.m_cadesType;
    m_contentType = other.m_contentType;
    m_signingTime = other.m_signingTime;
    m_nHashAlgorithm = other.m_nHashAlgorithm;
    m_nSignatureAlgorithm = other.m_nSignatureAlgorithm;
    m_hashValue = other.m_hashValue;
    m_signatureValue = other.m_signatureValue;
    m_certificate = certificate;
    m_verificationData = std::move(verification);
    m_signatureTimeStamps = timeStamps;
    m_timeStampVerificationData = std::move(timeStampVerification);
    m_archivedFields = other.m_archivedFields;
    return *this;
}

SignedCms::SignerInfo::~SignerInfo() = default;

bool SignedCms::SignerInfo::Equals(const SignerInfo& other) const {
    return m_parent == other.m_parent && m_pSigner == other.m_pSigner;
}

// ------------------------------------------------------------------ parsing

void SignedCms::SignerInfo::ParseSignerInfo(const CMS_SignerInfo* signer, const X509* certificate) {
    if (signer == nullptr) {
        Fail(m_log, L"ParseSignerInfo: Bad parameter - pSigner is null", ErrInvalidParameter,
             L"SignedCms.SignerInfo - pSigner=NULL");
    }
    m_cadesType = cptCmsNone;
    // The version follows from the identifier (RFC 5652: 1 for issuer and
    // serial number, 3 for a key identifier); the container overwrites it
    // with the value encoded in the message.
    ASN1_OCTET_STRING* keyId = nullptr;
    X509_NAME* issuer = nullptr;
    ASN1_INTEGER* serial = nullptr;
    m_version = CMS_SignerInfo_get0_signer_id(Mutable(signer), &keyId, &issuer, &serial) == 1 &&
                        keyId != nullptr
                    ? 3
                    : 1;
    ERR_clear_error();

    X509* attached = nullptr;
    X509_ALGOR* digest = nullptr;
    X509_ALGOR* signature = nullptr;
    CMS_SignerInfo_get0_algs(Mutable(signer), nullptr, &attached, &digest, &signature);
    if (digest == nullptr) {
        Fail(m_log, L"ParseSignerInfo: Digest algorithm not present.", ErrInvalidMessageFormat);
    }
    const ASN1_OBJECT* object = nullptr;
    X509_ALGOR_get0(&object, nullptr, nullptr, digest);
    m_nHashAlgorithm = object != nullptr ? OBJ_obj2nid(object) : NID_undef;
    if (m_nHashAlgorithm == NID_undef) {
        Fail(m_log, L"ParseSignerInfo: m_nHashAlgorithm == NID_undef", ErrAlgorithmNotSupported);
    }
    if (signature == nullptr) {
        Fail(m_log, L"ParseSignerInfo: Signature algorithm not present.", ErrInvalidMessageFormat);
    }
    object = nullptr;
    X509_ALGOR_get0(&object, nullptr, nullptr, signature);
    m_nSignatureAlgorithm = object != nullptr ? OBJ_obj2nid(object) : NID_undef;
    if (m_nSignatureAlgorithm == NID_undef) {
        Fail(m_log, L"ParseSignerInfo: m_nSignatureAlgorithm == NID_undef",
             ErrAlgorithmNotSupported);
    }

    const ASN1_OCTET_STRING* octets = CMS_SignerInfo_get0_signature(Mutable(signer));
    if (octets == nullptr || ASN1_STRING_get0_data(octets) == nullptr ||
        ASN1_STRING_length(octets) < 1) {
        Fail(m_log, L"ParseSignerInfo: No signature data.", ErrInvalidMessageFormat);
    }
    m_signatureValue.Assign(ASN1_STRING_get0_data(octets),
                            static_cast<unsigned int>(ASN1_STRING_length(octets)));

    if (certificate == nullptr) {
        certificate = attached;
    }
    if (certificate != nullptr) {
        m_certificate = KnownCertificate(m_parent, certificate);
    }

    m_contentType.clear();
    m_signingTime = 0;
    if (HasSignedAttributes() != 0) {
        if (GetSignedAttrCount(NID_pkcs9_contentType) > 0) {
            const X509_ATTRIBUTE* contentType = GetContentTypeAttr();
            if (contentType == nullptr) {
                Fail(m_log, L"ParseSignerInfo: pContentType=NULL", ErrAsn1Decoding);
            }
            m_contentType = ParseContentType(contentType);
        }
        if (GetSignedAttrCount(NID_pkcs9_signingTime) > 0) {
            const X509_ATTRIBUTE* signingTime = GetSigningTimeAttr();
            if (signingTime == nullptr) {
                Fail(m_log, L"ParseSignerInfo: pSigningTime=NULL", ErrAsn1Decoding);
            }
            m_signingTime = ParseSigningTime(m_log.get(), signingTime);
        }
    }

    m_cadesType = cptCmsBasic;
    ParseSignatureTimeStamps();
}

void SignedCms::SignerInfo::ParseSignatureTimeStamps() {
    RequireSigner(m_log.get(), m_pSigner, L"ParseSignatureTimeStamps");
    qorstd::QorVector<TimeStampAttribute> timeStamps;
    for (int position = CMS_unsigned_get_attr_by_NID(m_pSigner, NID_id_smime_aa_timeStampToken, -1);
         position >= 0; position = CMS_unsigned_get_attr_by_NID(
                            m_pSigner, NID_id_smime_aa_timeStampToken, position)) {
        timeStamps.Add(TimeStampAttribute(CMS_unsigned_get_attr(m_pSigner, position)));
    }
    m_signatureTimeStamps = timeStamps;
    if (m_signatureTimeStamps.GetSize() > 0) {
        m_cadesType = cptCmsTimeStamp;
    }
}

X509_ATTRIBUTE* SignedCms::SignerInfo::GetContentTypeAttr() const {
    const int count = GetSignedAttrCount(NID_pkcs9_contentType);
    if (count == 0) {
        Fail(m_log, L"GetContentTypeAttr: Signed attribute pkcs9_contentType not found.",
             ErrContentTypeAttrNotFound);
    }
    if (count > 1) {
        Fail(m_log,
             L"GetContentTypeAttr: Signed attribute pkcs9_contentType occurs more than once.",
             ErrContentTypeAttrMultiple);
    }
    return CMS_signed_get_attr(m_pSigner,
                               CMS_signed_get_attr_by_NID(m_pSigner, NID_pkcs9_contentType, -1));
}

X509_ATTRIBUTE* SignedCms::SignerInfo::GetSigningTimeAttr() const {
    const int count = GetSignedAttrCount(NID_pkcs9_signingTime);
    if (count == 0) {
        Fail(m_log, L"GetSigningTimeAttr: Signed attribute pkcs9_signingTime not found.",
             ErrSigningTimeNotFound);
    }
    if (count > 1) {
        Fail(m_log,
             L"GetSigningTimeAttr: Signed attribute pkcs9_signingTime occurs more than once.",
             ErrSigningTimeMultiple);
    }
    return CMS_signed_get_attr(m_pSigner,
                               CMS_signed_get_attr_by_NID(m_pSigner, NID_pkcs9_signingTime, -1));
}

// ---------------------------------------------------------------- attributes

int SignedCms::SignerInfo::HasSignedAttributes() const {
    RequireSigner(m_log.get(), m_pSigner, L"HasSignedAttributes");
    return CMS_signed_get_attr_count(m_pSigner) > 0 ? 1 : 0;
}

int SignedCms::SignerInfo::HasSignedAttribute(const char* oid) const {
    RequireSigner(m_log.get(), m_pSigner, L"HasSignedAttribute");
    return cms::SignedAttrByOid(m_pSigner, OidOf(m_log.get(), oid, L"HasSignedAttribute"), -1) >= 0
               ? 1
               : 0;
}

int SignedCms::SignerInfo::GetSignedAttrCount(const char* oid) const {
    RequireSigner(m_log.get(), m_pSigner, L"GetSignedAttrCount");
    return CountSigned(m_pSigner, OidOf(m_log.get(), oid, L"GetSignedAttrCount"));
}

int SignedCms::SignerInfo::GetSignedAttrCount(int nid) const {
    RequireSigner(m_log.get(), m_pSigner, L"GetSignedAttrCount");
    return CountSigned(m_pSigner, nid);
}

int SignedCms::SignerInfo::HasUnsignedAttribute(const char* oid) const {
    RequireSigner(m_log.get(), m_pSigner, L"HasUnsignedAttribute");
    return cms::UnsignedAttrByOid(m_pSigner, OidOf(m_log.get(), oid, L"HasUnsignedAttribute"),
                                  -1) >= 0
               ? 1
               : 0;
}

int SignedCms::SignerInfo::GetUnsignedAttrCount(const char* oid) const {
    RequireSigner(m_log.get(), m_pSigner, L"GetUnsignedAttrCount");
    return CountUnsigned(m_pSigner, OidOf(m_log.get(), oid, L"GetUnsignedAttrCount"));
}

int SignedCms::SignerInfo::GetUnsignedAttrCount(int nid) const {
    RequireSigner(m_log.get(), m_pSigner, L"GetUnsignedAttrCount");
    return CountUnsigned(m_pSigner, nid);
}

void SignedCms::SignerInfo::AddUnsignedAttribute(const X509Attribute& attr) {
    RequireSigner(m_log.get(), m_pSigner, L"AddUnsignedAttribute");
    if (attr.GetX509Attr() == nullptr ||
        CMS_unsigned_add1_attr(m_pSigner, attr.GetX509Attr()) != 1) {
        FailCrypto(m_log, "AddUnsignedAttribute: CMS_unsigned_add1_attr() failed.",
                   ErrAddSignedAttribute);
    }
}

qorstd::QorArray<unsigned char> SignedCms::SignerInfo::ComputeSignatureHash(
    const CMS_SignerInfo* signer, CryptHash::cptHashAlgorithm algorithm) const {
    if (signer == nullptr) {
        Fail(m_log, L"ComputeSignatureHash: Bad parameter - pSigner is null", ErrInvalidParameter,
             L"SignedCades::SignerInfo - pSigner=NULL");
    }
    const ASN1_OCTET_STRING* octets = CMS_SignerInfo_get0_signature(Mutable(signer));
    if (octets == nullptr || ASN1_STRING_get0_data(octets) == nullptr ||
        ASN1_STRING_length(octets) < 1) {
        Fail(m_log, L"ComputeSignatureHash: No signature data.", ErrInvalidSignature);
    }
    CryptHash hash(algorithm);
    hash.Update(ASN1_STRING_get0_data(octets),
                static_cast<unsigned int>(ASN1_STRING_length(octets)));
    qorstd::QorArray<unsigned char> digest;
    hash.Finish(digest);
    return digest;
}

// ------------------------------------------------------------------- getters

std::int64_t SignedCms::SignerInfo::GetVerifyTime() const {
    const std::int64_t* time = m_verificationData ? m_verificationData->GetVerifyTime() : nullptr;
    return time != nullptr ? *time : 0;
}

const X509Chain* SignedCms::SignerInfo::GetX509Chain() const {
    return m_verificationData ? m_verificationData->GetChain() : nullptr;
}

const QorTsp2Lib::TspTimeStamp* SignedCms::SignerInfo::GetTimeStamp() const {
    return m_timeStampVerificationData ? m_timeStampVerificationData->GetTimeStamp() : nullptr;
}

const X509Chain* SignedCms::SignerInfo::GetTimeStampChain() const {
    return m_timeStampVerificationData ? m_timeStampVerificationData->GetChain() : nullptr;
}

std::int64_t SignedCms::SignerInfo::GetTimeStampVerifyTime() const {
    const std::int64_t* time =
        m_timeStampVerificationData ? m_timeStampVerificationData->GetVerifyTime() : nullptr;
    return time != nullptr ? *time : 0;
}

qorstd::QorString SignedCms::SignerInfo::GetHashAlgorithmName() const {
    const char* name = OBJ_nid2ln(m_nHashAlgorithm);
    return qorstd::QorString(name != nullptr ? name : "");
}

qorstd::QorString SignedCms::SignerInfo::GetSignatureAlgorithmName() const {
    const char* name = OBJ_nid2ln(m_nSignatureAlgorithm);
    return qorstd::QorString(name != nullptr ? name : "");
}

qorstd::QorString SignedCms::SignerInfo::GetHashAlgorithmOID() const {
    if (m_nHashAlgorithm == NID_undef) {
        return qorstd::QorString();
    }
    const qorstd::QorString text = cms::OidText(OBJ_nid2obj(m_nHashAlgorithm));
    ERR_clear_error();
    return text;
}

qorstd::QorArray<unsigned char> SignedCms::SignerInfo::GetSignatureValueSHA1Hash() const {
    return x509::Sha1(m_signatureValue);
}

qorstd::QorString SignedCms::SignerInfo::GetSignatureValueSHA1HashHex() const {
    return x509::LowerHex(GetSignatureValueSHA1Hash());
}

}  // namespace TesseraLib
