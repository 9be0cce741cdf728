#include "SignaturePolicyAttribute.h"

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <cstring>

#include "CryptException.h"
#include "Failure.h"
#include "OpenSslPtr.h"
#include "QorDer.h"
#include "QorTextConv.h"
#include "SignaturePolicy.h"
#include "cms/AttributeDer.h"
#include "policy/PolicyParse.h"
#include "policy/att_sigpolicyid.h"

namespace qorstd {
template class QorVector<TesseraLib::SignaturePolicyQualifier>;
template class QorVectorIterator<TesseraLib::SignaturePolicyQualifier>;
}  // namespace qorstd

namespace TesseraLib {

namespace {

constexpr const char* kOidSignaturePolicyId = "1.2.840.113549.1.9.16.2.15";
constexpr const char* kOidSpUri = "1.2.840.113549.1.9.16.5.1";
constexpr const char* kOidSpUserNotice = "1.2.840.113549.1.9.16.5.2";

// Text of any string type as wide text (UTF-8 in between, so that the
// string types of a notice all read the same); empty when it does not convert.
qorstd::QorStringW StringText(const ASN1_STRING* text) {
    unsigned char* utf8 = nullptr;
    const int length = text != nullptr ? ASN1_STRING_to_UTF8(&utf8, text) : -1;
    qorstd::QorStringW wide;
    if (length > 0) {
        wide = qorstd::text::NarrowToWide(reinterpret_cast<const char*>(utf8),
                                          static_cast<unsigned int>(length),
                                          qorstd::text::kCharsetUtf8);
    }
    OPENSSL_free(utf8);
    ERR_clear_error();
    return wide;
}

}  // namespace

// ---- qualifiers ------------------------------------------------------------

SignaturePolicyQualifier::SignaturePolicyQualifier(ESI_SigPolicyQualifierInfo* info) {
    if (info == nullptr) {
        Fail(ErrInvalidParameter, L"SignaturePolicyAttribute - pQualifierInfo is null");
    }
    if (info->sigPolicyQualifierId == nullptr) {
        Fail(ErrInternal);
    }
    m_qualifierOid = policy::OidText(info->sigPolicyQualifierId);
    switch (GetType()) {
        case qualifierSpUri:
            if (info->sigQualifier.spUri != nullptr) {
                m_uri.assign(
                    reinterpret_cast<const char*>(ASN1_STRING_get0_data(info->sigQualifier.spUri)),
                    static_cast<unsigned int>(ASN1_STRING_length(info->sigQualifier.spUri)));
            }
            break;
        case qualifierSpUserNotice: {
            const USERNOTICE* notice = info->sigQualifier.spUserNotice;
            if (notice != nullptr && notice->exptext != nullptr) {
                m_explicitText = StringText(notice->exptext);
            }
            if (notice != nullptr && notice->noticeref != nullptr &&
                notice->noticeref->organization != nullptr) {
                m_organization = StringText(notice->noticeref->organization);
            }
            break;
        }
        default:
            break;
    }
}

SignaturePolicyQualifier::cptQualifierType SignaturePolicyQualifier::GetType() const {
    if (m_qualifierOid.empty()) {
        return qualifierNone;
    }
    if (m_qualifierOid.compare(kOidSpUri) == 0) {
        return qualifierSpUri;
    }
    if (m_qualifierOid.compare(kOidSpUserNotice) == 0) {
        return qualifierSpUserNotice;
    }
    return qualifierOther;
}

// ---- the attribute -----------------------------------------------------------

SignaturePolicyAttribute::SignaturePolicyAttribute() : m_hashAlgorithmNid(0) {}

SignaturePolicyAttribute::SignaturePolicyAttribute(x509_attributes_st* attr)
    : SignaturePolicyAttribute() {
    Decode(static_cast<const x509_attributes_st*>(attr));
}

SignaturePolicyAttribute::SignaturePolicyAttribute(const SignaturePolicy& policy)
    : SignaturePolicyAttribute() {
    m_attr = CreateSignaturePolicy(
        policy.GetOID(), CryptHash::GetHashAlgorithmByName(policy.GetHashAlgorithmName().c_str()),
        policy.GetHashValue(), policy.GetURI(), policy.GetFieldOfApplication());
}

SignaturePolicyAttribute::SignaturePolicyAttribute(const SignaturePolicyAttribute& other) = default;

SignaturePolicyAttribute& SignaturePolicyAttribute::operator=(
    const SignaturePolicyAttribute& other) = default;

SignaturePolicyAttribute::~SignaturePolicyAttribute() {
    SignaturePolicyAttribute::FreeAttribute();
}

void SignaturePolicyAttribute::Reset() {
    X509Attribute::Reset();
    m_policyOid.clear();
    m_hashAlgorithmNid = 0;
    m_hashValue.RemoveAll();
    m_qualifiers.RemoveAll();
}

void SignaturePolicyAttribute::Decode(const qorstd::QorArray<unsigned char>& der) {
    cms::DecodeAttributeDer(
        nullptr, der, L"SignaturePolicyAttribute - attr is empty", [this] { Reset(); },
        [this](const x509_attributes_st* attr) { Decode(attr); });
}

void SignaturePolicyAttribute::Decode(const x509_attributes_st* attr) {
    if (attr == nullptr) {
        Fail(ErrInvalidParameter, L"SignaturePolicyAttribute - pAttr is null");
    }
    Reset();
    m_attr = CloneAttribute(const_cast<x509_attributes_st*>(attr));
    try {
        if (GetOID().compare(kOidSignaturePolicyId) != 0) {
            Fail(ErrAsn1Decoding);
        }
        // An implied policy (NULL) is no SEQUENCE and is refused here.
        const ASN1_TYPE* value =
            X509_ATTRIBUTE_count(m_attr) > 0 ? X509_ATTRIBUTE_get0_type(m_attr, 0) : nullptr;
        if (value == nullptr || value->type != V_ASN1_SEQUENCE ||
            value->value.sequence == nullptr) {
            Fail(ErrAsn1Decoding);
        }
        const policy::EsiSignaturePolicyIdPtr id =
            qorssl::DecodeWhole<policy::EsiSignaturePolicyIdPtr>(
                d2i_ESI_SIGNATURE_POLICY_ID, ASN1_STRING_get0_data(value->value.sequence),
                static_cast<std::size_t>(ASN1_STRING_length(value->value.sequence)));
        if (!id) {
            Fail(ErrAsn1Decoding);
        }
        m_policyOid = policy::OidText(id->sigPolicyId);
        if (id->sigPolicyHash != nullptr) {
            if (id->sigPolicyHash->hashAlgorithm != nullptr &&
                id->sigPolicyHash->hashAlgorithm->algorithm != nullptr) {
                m_hashAlgorithmNid = OBJ_obj2nid(id->sigPolicyHash->hashAlgorithm->algorithm);
            }
            const ASN1_OCTET_STRING* hash = id->sigPolicyHash->hashValue;
            if (hash != nullptr && ASN1_STRING_length(hash) > 0) {
                m_hashValue.Append(ASN1_STRING_get0_data(hash),
                                   static_cast<unsigned int>(ASN1_STRING_length(hash)));
            }
        }
        for (int i = 0; i < sk_ESI_SIG_POLICY_QUALIFIER_INFO_num(id->sigPolicyQualifiers); ++i) {
            ESI_SIG_POLICY_QUALIFIER_INFO* info =
                sk_ESI_SIG_POLICY_QUALIFIER_INFO_value(id->sigPolicyQualifiers, i);
            if (info != nullptr) {
                m_qualifiers.Add(SignaturePolicyQualifier(info));
            }
        }
    } catch (...) {
        // The object stays empty but keeps the attribute it was given.
        x509_attributes_st* kept = m_attr;
        m_attr = nullptr;
        Reset();
        m_attr = kept;
        throw;
    }
}

x509_attributes_st* SignaturePolicyAttribute::CreateSignaturePolicy(
    const qorstd::QorString& policyOid, CryptHash::cptHashAlgorithm hashAlgorithm,
    const qorstd::QorArray<unsigned char>& hashValue, const qorstd::QorString& uri,
    const qorstd::QorStringW& userNotice) {
    if (policyOid.empty()) {
        Fail(ErrInvalidParameter, L"CreateSignaturePolicy - szPolicyId is empty");
    }
    if (hashValue.GetSize() == 0) {
        Fail(ErrInvalidParameter, L"CreateSignaturePolicy - aHashValue is empty");
    }
    const EVP_MD* digest = CryptHash::GetHashEVP(hashAlgorithm);
    if (digest == nullptr) {
        Fail(ErrAlgorithmNotSupported);
    }
    // The identifier takes digest-size bytes; a hash of another size would
    // be cut or read past its end.
    if (hashValue.GetSize() != static_cast<unsigned int>(EVP_MD_get_size(digest))) {
        Fail(ErrInvalidParameter, L"CreateSignaturePolicy - aHashValue has the wrong size");
    }
    qorstd::QorString notice;
    if (!userNotice.empty()) {
        notice = qorstd::text::WideToCharset(userNotice.c_str(), qorstd::text::kCharsetUtf8);
    }
    const policy::EsiSignaturePolicyIdentifierPtr identifier(
        QOR_Attr_SignaturePolicyIdentifier_Create(policyOid.c_str(), digest, hashValue.GetData(),
                                                  uri.empty() ? nullptr : uri.c_str(),
                                                  notice.empty() ? nullptr : notice.c_str()));
    if (!identifier) {
        Fail(ErrAsn1Encoding);
    }
    const std::vector<unsigned char> der =
        qorssl::Encode(i2d_ESI_SIGNATURE_POLICY_IDENTIFIER, identifier.get());
    if (der.empty()) {
        Fail(ErrAsn1Encoding);
    }
    const qorssl::Asn1ObjectPtr type(OBJ_txt2obj(kOidSignaturePolicyId, 1));
    if (!type) {
        Fail(ErrInternal);
    }
    X509_ATTRIBUTE* attr = X509_ATTRIBUTE_create_by_OBJ(nullptr, type.get(), V_ASN1_SEQUENCE,
                                                        der.data(), static_cast<int>(der.size()));
    if (attr == nullptr) {
        Fail(ErrAsn1Encoding);
    }
    return attr;
}

}  // namespace TesseraLib
