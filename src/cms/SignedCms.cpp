#include "SignedCms.h"

#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstring>
#include <utility>
#include <vector>

#include "CryptException.h"
#include "Failure.h"
#include "LogChannel.h"
#include "OcspException.h"
#include "OpenSslPtr.h"
#include "QorDer.h"
#include "cms/ArchiveImprint.h"
#include "cms/CmsOid.h"
#include "cms/CmsRevocationInfo.h"

namespace qorstd {
template class QorVector<TesseraLib::SignedCms::SignerInfo>;
template class QorVectorIterator<TesseraLib::SignedCms::SignerInfo>;
template class QorVector<QorArray<unsigned char>>;
template class QorVectorIterator<QorArray<unsigned char>>;
}  // namespace qorstd

namespace TesseraLib {

namespace {

constexpr const wchar_t* kChannelName = L"SignedCms";
constexpr const char* kOidData = "1.2.840.113549.1.7.1";
constexpr const char* kOidTstInfo = "1.2.840.113549.1.9.16.1.4";

qorstd::QorArray<unsigned char> ToArray(const std::vector<unsigned char>& bytes) {
    return qorstd::QorArray<unsigned char>(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

// 0 when `cert` is the certificate `signer` names: issuer and serial number,
// or subject key identifier; -1 otherwise.
int CompareSignerCertificate(CMS_SignerInfo* signer, X509* cert) {
    if (signer == nullptr) {
        Fail(ErrInvalidParameter, L"pSignerId==NULL");
    }
    if (cert == nullptr) {
        Fail(ErrInvalidParameter, L"pCert==NULL");
    }
    ASN1_OCTET_STRING* keyId = nullptr;
    X509_NAME* issuer = nullptr;
    ASN1_INTEGER* serial = nullptr;
    if (CMS_SignerInfo_get0_signer_id(signer, &keyId, &issuer, &serial) != 1) {
        ERR_clear_error();
        return -1;
    }
    if (issuer != nullptr && serial != nullptr) {
        return X509_NAME_cmp(issuer, X509_get_issuer_name(cert)) == 0 &&
                       ASN1_INTEGER_cmp(serial, X509_get0_serialNumber(cert)) == 0
                   ? 0
                   : -1;
    }
    if (keyId != nullptr) {
        // Caches the extensions, the subject key identifier among them.
        X509_check_purpose(cert, -1, -1);
        ERR_clear_error();
        const ASN1_OCTET_STRING* certKeyId = X509_get0_subject_key_id(cert);
        if (certKeyId == nullptr) {
            return -1;
        }
        return ASN1_OCTET_STRING_cmp(keyId, certKeyId) == 0 ? 0 : -1;
    }
    return -1;
}

// One signer info per entry of `signers`, its certificate taken from what
// OpenSSL attached or found among `candidates`.
std::unique_ptr<qorstd::QorVector<SignedCms::SignerInfo>> CreateSignerInfos(
    const SignedCms* parent, STACK_OF(CMS_SignerInfo) * signers, STACK_OF(X509) * candidates) {
    if (parent == nullptr) {
        Fail(ErrInvalidParameter, L"SignedCms - pSignedCms=NULL");
    }
    if (signers == nullptr) {
        Fail(ErrInvalidParameter, L"SignedCms - pSigners=NULL");
    }
    auto infos = std::make_unique<qorstd::QorVector<SignedCms::SignerInfo>>();
    const int count = sk_CMS_SignerInfo_num(signers);
    for (int i = 0; i < count; ++i) {
        CMS_SignerInfo* signer = sk_CMS_SignerInfo_value(signers, i);
        X509* cert = nullptr;
        CMS_SignerInfo_get0_algs(signer, nullptr, &cert, nullptr, nullptr);
        const int candidateCount = candidates != nullptr ? sk_X509_num(candidates) : 0;
        for (int c = 0; cert == nullptr && c < candidateCount; ++c) {
            X509* candidate = sk_X509_value(candidates, c);
            if (candidate == nullptr) {
                Fail(ErrInternal);
            }
            if (CompareSignerCertificate(signer, candidate) == 0) {
                cert = candidate;
            }
        }
        infos->Add(SignedCms::SignerInfo(parent, signer, cert));
    }
    return infos;
}

}  // namespace

// ------------------------------------------------------------------ lifecycle

SignedCms::SignedCms()
    : m_pCms(nullptr),
      m_version(0),
      m_detached(0),
      m_log(std::make_unique<LogChannel>(kChannelName)) {}

SignedCms::SignedCms(const qorstd::QorArray<unsigned char>& content) : SignedCms() {
    m_aContent = content;
}

SignedCms::SignedCms(const SignedCms& other) : SignedCms() {
    *this = other;
}

SignedCms& SignedCms::operator=(const SignedCms& other) {
    if (this == &other) {
        return *this;
    }
    // Encode first: a failure leaves this object as it was.
    const qorstd::QorArray<unsigned char> der = other.Encode();
    FreeCms(1);
    m_aContent = other.m_aContent;
    if (der.GetSize() == 0) {
        m_version = other.m_version;
        m_detached = other.m_detached;
        m_contentType = other.m_contentType;
        m_certificates = other.m_certificates;
        m_crls = other.m_crls;
        m_attributeCerts = other.m_attributeCerts;
        m_ocspResponses = other.m_ocspResponses;
        m_revocationChoices = other.m_revocationChoices;
        m_ocspChoices = other.m_ocspChoices;
        m_eContentTypeDer = other.m_eContentTypeDer;
        return *this;
    }
    Decode(der);
    // What the other's verifications found belongs to the same positions.
    const unsigned int count = GetSignerInfoCount() < other.GetSignerInfoCount()
                                   ? GetSignerInfoCount()
                                   : other.GetSignerInfoCount();
    for (unsigned int i = 0; i < count; ++i) {
        SignerInfo* mine = GetSignerInfo(i);
        const SignerInfo* theirs = other.GetSignerInfo(i);
        mine->m_verifyInfo = theirs->m_verifyInfo;
        if (mine->m_certificate.GetX509() == nullptr) {
            mine->m_certificate = theirs->m_certificate;
        }
        mine->m_verificationData.reset(
            theirs->m_verificationData ? theirs->m_verificationData->Clone() : nullptr);
        mine->m_timeStampVerificationData.reset(
            theirs->m_timeStampVerificationData ? static_cast<TimeStampVerificationData*>(
                                                      theirs->m_timeStampVerificationData->Clone())
                                                : nullptr);
    }
    return *this;
}

SignedCms::~SignedCms() {
    m_log.reset();
    SignedCms::FreeCms(1);
}

void SignedCms::SetContent(const qorstd::QorArray<unsigned char>& content) {
    m_aContent = content;
}

void SignedCms::FreeCms(int freeContent) {
    // The signer infos point into the message: they go first.
    m_pvSigners.reset();
    if (m_pCms != nullptr) {
        CMS_ContentInfo_free(m_pCms);
        m_pCms = nullptr;
    }
    m_version = 0;
    m_detached = 0;
    m_contentType.clear();
    m_certificates.RemoveAll();
    m_crls.RemoveAll();
    m_ocspResponses.RemoveAll();
    m_revocationChoices.RemoveAll();
    m_ocspChoices.RemoveAll();
    m_attributeCerts.RemoveAll();
    m_eContentTypeDer.RemoveAll();
    if (freeContent != 0) {
        m_aContent.RemoveAll();
    }
}

// ------------------------------------------------------------ decode, encode

void SignedCms::Decode(const unsigned char* message, long size) {
    if (message == nullptr) {
        Fail(m_log, L"Decode: pMsg is NULL", ErrInvalidParameter, L"pMsg=NULL");
    }
    if (size <= 0) {
        Fail(m_log, L"Decode: Invalid nSize", ErrInvalidParameter, L"nSize<=0");
    }
    Decode(qorstd::QorArray<unsigned char>(message, static_cast<unsigned int>(size)));
}

void SignedCms::Decode(const qorstd::QorArray<unsigned char>& message) {
    DecodeAdopting(message, nullptr);
}

void SignedCms::DecodeAdopting(const qorstd::QorArray<unsigned char>& message,
                               CMS_ContentInfo* decoded) {
    CmsContentInfoPtr cms(decoded);
    TLOG_DEBUG(m_log, L"Decoding...");
    if (message.GetSize() == 0) {
        Fail(m_log, L"Decode: Bad parameter - msg is empty.", ErrInvalidParameter,
             L"SignedCms - Crypto message is empty.");
    }
    FreeCms(0);
    if (!cms) {
        // Signatures embedded in other formats come padded to a reserved
        // size (PDF signature fields are the common case): the message is
        // the first DER object, and what follows it is not part of it.
        std::size_t consumed = 0;
        cms = DecodeFirst<CmsContentInfoPtr>(d2i_CMS_ContentInfo, message.GetData(),
                                             message.GetSize(), &consumed);
        if (!cms) {
            FailCrypto(m_log, "Decode: d2i_CMS_ContentInfo() failed.", ErrInvalidMessageFormat);
        }
        if (consumed < message.GetSize()) {
            TLOG_DEBUG(m_log, L"Decode: %u bytes after the message ignored.",
                       static_cast<unsigned>(message.GetSize() - consumed));
        }
    }
    m_pCms = cms.release();
    try {
        m_decodingDer = &message;
        ParseCms(m_pCms);
        m_decodingDer = nullptr;
    } catch (...) {
        m_decodingDer = nullptr;
        // Half-read values must not outlive a failed decode.
        FreeCms(0);
        throw;
    }
}

qorstd::QorArray<unsigned char> SignedCms::Encode() const {
    TLOG_DEBUG(m_log, L"Encoding...");
    if (m_pCms == nullptr) {
        return qorstd::QorArray<unsigned char>();
    }
    const int size = i2d_CMS_ContentInfo(m_pCms, nullptr);
    if (size < 1) {
        FailCrypto(m_log, "Encode: i2d_CMS_ContentInfo() failed.", ErrAsn1Encoding);
    }
    qorstd::QorArray<unsigned char> der;
    der.SetSize(static_cast<unsigned int>(size));
    unsigned char* cursor = der.GetData();
    if (i2d_CMS_ContentInfo(m_pCms, &cursor) != size) {
        FailCrypto(m_log, "Encode: i2d_CMS_ContentInfo() failed.", ErrAsn1Encoding);
    }
    return der;
}

// ------------------------------------------------------------------ parsing

namespace {

// The SignedData version of a message with X.509 certificates, CRLs and
// signer infos only (RFC 5652): 3 when a signer is identified by its key
// identifier or the content is not id-data, else 1.
unsigned long OwnMessageVersion(CMS_ContentInfo* cms) {
    if (OBJ_obj2nid(CMS_get0_eContentType(cms)) != NID_pkcs7_data) {
        return 3;
    }
    STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(cms);
    for (int i = 0; i < sk_CMS_SignerInfo_num(signers); ++i) {
        ASN1_OCTET_STRING* keyId = nullptr;
        X509_NAME* issuer = nullptr;
        ASN1_INTEGER* serial = nullptr;
        if (CMS_SignerInfo_get0_signer_id(sk_CMS_SignerInfo_value(signers, i), &keyId, &issuer,
                                          &serial) == 1 &&
            keyId != nullptr) {
            return 3;
        }
    }
    return 1;
}

}  // namespace

void SignedCms::ParseCms(CMS_ContentInfo* cms) {
    TLOG_DEBUG(m_log, L"Parsing...");
    if (cms == nullptr) {
        Fail(m_log, L"ParseCms: Bad parameter - pCms is null", ErrInvalidParameter,
             L"SignedCms - pCms=NULL");
    }
    if (OBJ_obj2nid(CMS_get0_type(cms)) != NID_pkcs7_signed) {
        Fail(m_log, L"ParseCms: pSignedData=NULL", ErrInvalidMessageFormat);
    }

    // OpenSSL hands out neither the versions nor the "other" certificate and
    // revocation choices: they are read from the encoding — the bytes being
    // decoded when they are DER, else the message encoded again.
    cms::SignedDataLayout layout;
    std::vector<unsigned char> der;
    if (m_parsingOwnMessage) {
        layout.version = OwnMessageVersion(cms);
    } else if (m_decodingDer == nullptr ||
               !cms::ReadSignedDataLayout(m_decodingDer->GetData(), m_decodingDer->GetSize(),
                                          &layout)) {
        const int size = i2d_CMS_ContentInfo(cms, nullptr);
        der.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
        unsigned char* write = der.data();
        if (size < 1 || i2d_CMS_ContentInfo(cms, &write) != size) {
            FailCrypto(m_log, "ParseCms: i2d_CMS_ContentInfo() failed.", ErrAsn1Encoding);
        }
        layout = cms::SignedDataLayout();
        if (!cms::ReadSignedDataLayout(der.data(), der.size(), &layout)) {
            Fail(m_log, L"ParseCms: pSignedData=NULL", ErrInvalidMessageFormat);
        }
    }
    m_version = layout.version;
    m_detached = CMS_is_detached(cms);

    ASN1_OCTET_STRING** contentPos = CMS_get0_content(cms);
    if (contentPos == nullptr) {
        Fail(m_log, L"ParseCms: pContentPos=NULL", ErrInternal);
    }
    if (*contentPos != nullptr) {
        m_aContent.RemoveAll();
        const int length = ASN1_STRING_length(*contentPos);
        if (length > 0) {
            m_aContent.Assign(ASN1_STRING_get0_data(*contentPos),
                              static_cast<unsigned int>(length));
        }
    } else if (m_detached == 0) {
        Fail(m_log, L"ParseCms: *pContentPos=NULL", ErrInvalidMessageFormat);
    }

    const ASN1_OBJECT* contentType = CMS_get0_eContentType(cms);
    if (contentType == nullptr) {
        Fail(m_log, L"ParseCms: pContentType=NULL", ErrAsn1Decoding);
    }
    m_contentType = cms::OidText(contentType);
    if (m_contentType.length() == 0) {
        Fail(m_log, L"ParseCms: pContentType=NULL", ErrAsn1Decoding);
    }
    if (std::strcmp(m_contentType.c_str(), kOidData) != 0 &&
        std::strcmp(m_contentType.c_str(), kOidTstInfo) != 0) {
        Fail(m_log, L"ParseCms: Unsupported content type.", ErrInvalidMessageFormat);
    }

    X509StackPtr certs(CMS_get1_certs(cms));
    if (certs) {
        qorstd::QorVector<X509Certificate> parsed;
        for (int i = 0; i < sk_X509_num(certs.get()); ++i) {
            parsed.Add(X509Certificate(sk_X509_value(certs.get(), i)));
        }
        m_certificates = parsed;
    }
    X509CrlStackPtr crls(CMS_get1_crls(cms));
    if (crls) {
        qorstd::QorVector<X509Crl> parsed;
        for (int i = 0; i < sk_X509_CRL_num(crls.get()); ++i) {
            parsed.Add(X509Crl(sk_X509_CRL_value(crls.get(), i)));
        }
        m_crls = parsed;
    }
    ERR_clear_error();

    QorOcsp2Lib::OcspVector<QorOcsp2Lib::OcspResponse> responses;
    qorstd::QorVector<qorstd::QorArray<unsigned char>> ocspChoices;
    for (const cms::OcspChoice& carried : cms::OcspChoicesOf(layout)) {
        QorOcsp2Lib::OcspResponse decoded;
        try {
            decoded.Decode(carried.response.data(),
                           static_cast<unsigned long>(carried.response.size()));
        } catch (const QorOcsp2Lib::OcspException&) {
            Fail(m_log, L"ParseCms: OCSP response is not readable.", ErrInvalidMessageFormat);
        }
        responses.Add(decoded);
        ocspChoices.Add(qorstd::QorArray<unsigned char>(
            carried.choice.data, static_cast<unsigned int>(carried.choice.length)));
    }
    m_ocspResponses = responses;
    m_ocspChoices = ocspChoices;
    qorstd::QorVector<qorstd::QorArray<unsigned char>> revocationChoices;
    for (const cms::DerSpan& choice : layout.revocationInfos) {
        revocationChoices.Add(
            qorstd::QorArray<unsigned char>(choice.data, static_cast<unsigned int>(choice.length)));
    }
    m_revocationChoices = revocationChoices;

    qorstd::QorVector<qorstd::QorArray<unsigned char>> attributeCerts;
    for (const std::vector<unsigned char>& cert : cms::AttributeCertsOf(layout)) {
        attributeCerts.Add(ToArray(cert));
    }
    m_attributeCerts = attributeCerts;
    if (layout.eContentType.length > 0) {
        m_eContentTypeDer.Assign(layout.eContentType.data,
                                 static_cast<unsigned int>(layout.eContentType.length));
    }

    STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(cms);
    ERR_clear_error();
    if (signers != nullptr) {
        auto infos = CreateSignerInfos(this, signers, certs.get());
        // The versions as encoded, which the OpenSSL signer info does not
        // tell. The encoding sorts the signer infos (DER SET OF), so each is
        // found by its signature octets rather than by position.
        std::vector<bool> taken(layout.signerSignatures.size(), false);
        for (unsigned int i = 0; i < infos->GetSize(); ++i) {
            SignerInfo& info = infos->GetAt(i);
            const qorstd::QorArray<unsigned char>& signature = info.GetSignatureValue();
            for (std::size_t j = 0; j < layout.signerSignatures.size(); ++j) {
                const cms::DerSpan& encoded = layout.signerSignatures[j];
                if (!taken[j] && encoded.length == signature.GetSize() &&
                    std::memcmp(encoded.data, signature.GetData(), encoded.length) == 0) {
                    info.m_version = layout.signerVersions[j];
                    info.m_archivedFields = cms::ArchivedFields(layout.signerFields[j]);
                    taken[j] = true;
                    break;
                }
            }
        }
        m_pvSigners = std::move(infos);
    }
}

// ------------------------------------------------------------------ signers

unsigned int SignedCms::GetSignerInfoCount() const {
    return m_pvSigners ? m_pvSigners->GetSize() : 0;
}

const SignedCms::SignerInfo* SignedCms::GetSignerInfo(unsigned int index) const {
    return index < GetSignerInfoCount() ? &m_pvSigners->GetAt(index) : nullptr;
}

SignedCms::SignerInfo* SignedCms::GetSignerInfo(unsigned int index) {
    return index < GetSignerInfoCount() ? &m_pvSigners->GetAt(index) : nullptr;
}

void SignedCms::UpdateSignerCms(const SignerInfo& info) {
    if (!m_pvSigners || m_pvSigners->GetSize() == 0) {
        Fail(m_log, L"UpdateSignerCms: No signer infos.", ErrInternal);
    }
    for (unsigned int i = 0; i < m_pvSigners->GetSize(); ++i) {
        SignerInfo& entry = m_pvSigners->GetAt(i);
        if (entry == info) {
            if (&entry != &info) {
                entry = info;
            }
            return;
        }
    }
    Fail(m_log, L"UpdateSignerCms: Signer info not found.", ErrInvalidParameter);
}

// ---------------------------------------------------------------- detaching

void SignedCms::SetDetached(int detached) {
    TLOG_INFO(m_log, L"SetDetached(Detached:%ls)", detached != 0 ? L"TRUE" : L"FALSE");
    const int wanted = detached != 0 ? 1 : 0;
    if (wanted == (m_detached != 0 ? 1 : 0)) {
        return;
    }
    if (m_pCms == nullptr) {
        Fail(m_log, L"SetDetached: CMS not present - m_pCms is null", ErrNoMessage);
    }
    // Checked before the message changes, so that a refusal leaves it intact.
    if (wanted == 0 && m_aContent.GetSize() == 0) {
        Fail(m_log, L"SetDetached: Signed content not set - m_aContent is empty", ErrNoContent);
    }
    if (CMS_set_detached(m_pCms, wanted) != 1) {
        FailCrypto(m_log, "SetDetached: CMS_set_detached() failed.", ErrInternal);
    }
    if (wanted == 0) {
        ASN1_OCTET_STRING** contentPos = CMS_get0_content(m_pCms);
        if (contentPos == nullptr || *contentPos == nullptr) {
            Fail(m_log, L"SetDetached: CMS_get0_content() is null or empty", ErrInternal);
        }
        if (ASN1_OCTET_STRING_set(*contentPos, m_aContent.GetData(),
                                  static_cast<int>(m_aContent.GetSize())) != 1) {
            FailCrypto(m_log, "SetDetached: ASN1_OCTET_STRING_set() failed.", ErrInternal);
        }
    }
    m_detached = wanted;
}

}  // namespace TesseraLib
