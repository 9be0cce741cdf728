#include "SigningCertificateAttribute.h"

#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <cstring>
#include <utility>
#include <vector>

#include "CryptException.h"
#include "Failure.h"
#include "LogChannel.h"
#include "OpenSslPtr.h"
#include "QorDer.h"
#include "X509Certificate.h"
#include "cms/AttributeDer.h"
#include "cms/CmsOid.h"
#include "cms/att_signcertv2.h"

namespace qorstd {
template class QorVector<TesseraLib::SigningCertificate>;
template class QorVectorIterator<TesseraLib::SigningCertificate>;
}  // namespace qorstd

namespace TesseraLib {

namespace {

constexpr const wchar_t* kChannelName = L"SigningCertificateAttribute";

// The attribute of type `type` whose one value is the SEQUENCE `der`.
X509AttributePtr SequenceAttribute(const LogChannel& log, const ASN1_OBJECT* type,
                                   const std::vector<unsigned char>& der) {
    if (der.empty()) {
        FailCrypto(log, "SigningCertificateAttribute: Encoding the value failed.", ErrAsn1Encoding);
    }
    X509AttributePtr attr(X509_ATTRIBUTE_create_by_OBJ(nullptr, type, V_ASN1_SEQUENCE, der.data(),
                                                       static_cast<int>(der.size())));
    if (!attr) {
        FailCrypto(log, "SigningCertificateAttribute: X509_ATTRIBUTE_create_by_OBJ() failed.",
                   ErrAsn1Encoding);
    }
    return attr;
}

// A v1 attribute: one ESSCertID with the SHA-1 of the certificate.
X509AttributePtr CreateSigningCertificate(const LogChannel& log, const X509Certificate& cert) {
    if (cert.GetX509() == nullptr) {
        Fail(ErrInvalidParameter, L"SigningCertificateAttribute - cert.GetX509() == NULL");
    }
    const cms::EssSigningCertPtr value(QOR_Attr_SigningCertificate_Create(cert.GetX509(), nullptr));
    const ASN1_OBJECT* type = OBJ_nid2obj(NID_id_smime_aa_signingCertificate);  // static
    if (!value || type == nullptr) {
        FailCrypto(log, "SigningCertificateAttribute: Creating the ESSCertID failed.",
                   ErrAsn1Encoding);
    }
    return SequenceAttribute(log, type, qorssl::Encode(i2d_QOR_ESS_SIGNING_CERT, value.get()));
}

// A v2 attribute: one ESSCertIDv2 with the `alg` digest of the certificate.
X509AttributePtr CreateSigningCertificateV2(const LogChannel& log, const X509Certificate& cert,
                                            CryptHash::cptHashAlgorithm alg) {
    if (cert.GetX509() == nullptr) {
        Fail(ErrInvalidParameter, L"SigningCertificateAttribute - cert.GetX509() == NULL");
    }
    const EVP_MD* md = CryptHash::GetHashEVP(alg);
    if (md == nullptr) {
        Fail(log, L"SigningCertificateAttribute: Unsupported hash algorithm.",
             ErrAlgorithmNotSupported);
    }
    const cms::EssSigningCertV2Ptr value(
        QOR_Attr_SigningCertificateV2_Create(md, cert.GetX509(), nullptr));
    if (!value) {
        FailCrypto(log, "SigningCertificateAttribute: Creating the ESSCertIDv2 failed.",
                   ErrAsn1Encoding);
    }
    const Asn1ObjectPtr type(OBJ_txt2obj(cms::kOidSigningCertificateV2, 1));
    if (!type) {
        FailCrypto(log, "SigningCertificateAttribute: OBJ_txt2obj() failed.", ErrInternal);
    }
    return SequenceAttribute(log, type.get(),
                             qorssl::Encode(i2d_QOR_ESS_SIGNING_CERT_V2, value.get()));
}

// The entry read from one ESSCertID(v2).
SigningCertificate Entry(const qorstd::QorString& algorithm, const ASN1_OCTET_STRING* hash,
                         const QOR_ESS_ISSUER_SERIAL* issuerSerial) {
    SigningCertificate entry;
    entry.SetHashAlg(algorithm);
    if (hash != nullptr && ASN1_STRING_length(hash) > 0) {
        entry.SetHash(qorstd::QorArray<unsigned char>(
            ASN1_STRING_get0_data(hash), static_cast<unsigned int>(ASN1_STRING_length(hash))));
    }
    if (issuerSerial != nullptr && issuerSerial->serial != nullptr) {
        // ASN1_INTEGER_get answers -1 for what does not fit a long and
        // queues a complaint that is no failure here.
        entry.SetSerial(static_cast<unsigned long>(ASN1_INTEGER_get(issuerSerial->serial)));
        ERR_clear_error();
    }
    return entry;
}

void AppendEntries(const QOR_ESS_SIGNING_CERT& value,
                   qorstd::QorVector<SigningCertificate>& entries) {
    const qorstd::QorString sha1(OBJ_nid2sn(NID_sha1));
    for (int i = 0; i < sk_QOR_ESS_CERT_ID_num(value.cert_ids); ++i) {
        const QOR_ESS_CERT_ID* id = sk_QOR_ESS_CERT_ID_value(value.cert_ids, i);
        entries.Add(Entry(sha1, id->hash, id->issuer_serial));
    }
}

void AppendEntries(const QOR_ESS_SIGNING_CERT_V2& value,
                   qorstd::QorVector<SigningCertificate>& entries) {
    const qorstd::QorString sha256(OBJ_nid2sn(NID_sha256));
    for (int i = 0; i < sk_QOR_ESS_CERT_ID_V2_num(value.certs); ++i) {
        const QOR_ESS_CERT_ID_V2* id = sk_QOR_ESS_CERT_ID_V2_value(value.certs, i);
        const qorstd::QorString algorithm =
            id->hash_alg == nullptr ? sha256 : cms::OidName(id->hash_alg->algorithm);
        entries.Add(Entry(algorithm, id->hash, id->issuer_serial));
    }
}

}  // namespace

// ---------------------------------------------------------------- SigningCertificate

SigningCertificate::SigningCertificate() = default;

SigningCertificate::SigningCertificate(unsigned long serial) {
    SetSerial(serial);
}

void SigningCertificate::SetSerial(const unsigned long& serial) {
    if (serial == 0) {
        m_serial.reset();
    } else {
        m_serial = serial;
    }
}

bool SigningCertificate::operator==(const SigningCertificate& other) const {
    return m_serial && other.m_serial && *m_serial == *other.m_serial;
}

// ---------------------------------------------------------------- SigningCertificateAttribute

SigningCertificateAttribute::SigningCertificateAttribute()
    : m_log(std::make_unique<LogChannel>(kChannelName)) {}

SigningCertificateAttribute::SigningCertificateAttribute(x509_attributes_st* attr)
    : SigningCertificateAttribute() {
    Decode(static_cast<const x509_attributes_st*>(attr));
}

SigningCertificateAttribute::SigningCertificateAttribute(
    const X509Certificate& cert, const qorstd::QorVector<X509Certificate>* /*certs*/,
    CryptHash::cptHashAlgorithm alg)
    : SigningCertificateAttribute() {
    if (alg == CryptHash::cptHashNone) {
        // The digest the certificate's issuer chose for its signature.
        const qorstd::QorString name = cert.GetHashAlgorithmName();
        if (!name.empty()) {
            alg = CryptHash::GetHashAlgorithmByName(name.c_str());
        }
    }
    if (alg == CryptHash::cptHashNone) {
        Fail(ErrInvalidParameter,
             L"SigningCertificateAttribute - eHashAlg == CryptHash::cptHashNone");
    }
    X509AttributePtr attr = alg == CryptHash::cptHashSHA1
                                ? CreateSigningCertificate(*m_log, cert)
                                : CreateSigningCertificateV2(*m_log, cert, alg);
    m_attr = attr.release();
}

SigningCertificateAttribute::SigningCertificateAttribute(const SigningCertificateAttribute& other)
    : X509Attribute(other),
      m_log(std::make_unique<LogChannel>(kChannelName)),
      m_certificateIds(other.m_certificateIds),
      m_value(other.m_value) {}

SigningCertificateAttribute& SigningCertificateAttribute::operator=(
    const SigningCertificateAttribute& other) {
    if (this != &other) {
        X509Attribute::operator=(other);
        m_certificateIds = other.m_certificateIds;
        m_value = other.m_value;
    }
    return *this;
}

SigningCertificateAttribute::SigningCertificateAttribute(SigningCertificateAttribute&& other)
    : X509Attribute(std::move(other)),
      m_log(std::make_unique<LogChannel>(kChannelName)),
      m_certificateIds(other.m_certificateIds),
      m_value(std::move(other.m_value)) {
    // The entries are few and plain: they are copied, then dropped.
    other.m_certificateIds.RemoveAll();
}

SigningCertificateAttribute& SigningCertificateAttribute::operator=(
    SigningCertificateAttribute&& other) {
    if (this != &other) {
        X509Attribute::operator=(std::move(other));
        m_certificateIds = other.m_certificateIds;
        other.m_certificateIds.RemoveAll();
        m_value = std::move(other.m_value);
    }
    return *this;
}

SigningCertificateAttribute::~SigningCertificateAttribute() {
    m_log.reset();
    SigningCertificateAttribute::FreeAttribute();
}

void SigningCertificateAttribute::Reset() {
    FreeAttribute();
    m_certificateIds.RemoveAll();
    m_value.reset();
}

void SigningCertificateAttribute::Decode(const qorstd::QorArray<unsigned char>& der) {
    cms::DecodeAttributeDer(
        m_log.get(), der, L"SigningCertificateAttribute - attr is empty", [this] { Reset(); },
        [this](const x509_attributes_st* attr) { Decode(attr); });
}

void SigningCertificateAttribute::Decode(const x509_attributes_st* attr) {
    if (attr == nullptr) {
        Fail(m_log, L"Decode: Bad parameter - pAttr is null", ErrInvalidParameter,
             L"SigningCertificateAttribute - pAttr is null");
    }
    Reset();
    m_attr = CloneAttribute(const_cast<x509_attributes_st*>(attr));
    try {
        // The two types by number: the same test as their dotted texts.
        const int nid = OBJ_obj2nid(X509_ATTRIBUTE_get0_object(m_attr));
        const bool v1 = nid == NID_id_smime_aa_signingCertificate;
        if (!v1 && nid != NID_id_smime_aa_signingCertificateV2) {
            Fail(m_log, L"Decode: Attribute is no signing-certificate attribute.", ErrAsn1Decoding);
        }
        // A value that is no readable SEQUENCE of the type leaves no entries;
        // the signer-certificate check refuses such an attribute itself.
        const ASN1_TYPE* value =
            X509_ATTRIBUTE_count(m_attr) > 0 ? X509_ATTRIBUTE_get0_type(m_attr, 0) : nullptr;
        if (value == nullptr || value->type != V_ASN1_SEQUENCE ||
            value->value.sequence == nullptr) {
            return;
        }
        const unsigned char* der = ASN1_STRING_get0_data(value->value.sequence);
        const auto length = static_cast<std::size_t>(ASN1_STRING_length(value->value.sequence));
        auto decoded = std::make_shared<cms::SigningCertValue>();
        if (v1) {
            decoded->v1 =
                qorssl::DecodeWhole<cms::EssSigningCertPtr>(d2i_QOR_ESS_SIGNING_CERT, der, length);
            if (!decoded->v1) {
                return;
            }
            AppendEntries(*decoded->v1, m_certificateIds);
        } else {
            decoded->v2 = qorssl::DecodeWhole<cms::EssSigningCertV2Ptr>(d2i_QOR_ESS_SIGNING_CERT_V2,
                                                                        der, length);
            if (!decoded->v2) {
                return;
            }
            AppendEntries(*decoded->v2, m_certificateIds);
        }
        m_value = std::move(decoded);
    } catch (...) {
        Reset();
        throw;
    }
}

}  // namespace TesseraLib
