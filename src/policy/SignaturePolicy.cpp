// The signature policy document: decoding, the validation policy and the
// hash of the document.
#include "SignaturePolicy.h"

#include <openssl/evp.h>
#include <openssl/objects.h>

#include "CryptException.h"
#include "Failure.h"
#include "QorDer.h"
#include "policy/EsiAsn1.h"
#include "policy/PolicyParse.h"

namespace TesseraLib {

namespace {

// The bytes of the first `count` elements inside the outer SEQUENCE of
// `der`, as they are encoded. False when the encoding does not have them in
// definite-length form.
bool LeadingElements(const qorstd::QorArray<unsigned char>& der, int count,
                     const unsigned char** start, std::size_t* length) {
    const unsigned char* cursor = der.GetData();
    const unsigned char* const end = cursor + der.GetSize();
    long contentLength = 0;
    int tag = 0;
    int tagClass = 0;
    if (der.GetSize() == 0 ||
        ASN1_get_object(&cursor, &contentLength, &tag, &tagClass, end - cursor) != 0x20) {
        ERR_clear_error();
        return false;
    }
    *start = cursor;
    for (int i = 0; i < count; ++i) {
        const int flags = ASN1_get_object(&cursor, &contentLength, &tag, &tagClass, end - cursor);
        if ((flags & 0x80) != 0 || flags == 0x21 || contentLength > end - cursor) {
            ERR_clear_error();
            return false;
        }
        cursor += contentLength;
    }
    *length = static_cast<std::size_t>(cursor - *start);
    return true;
}

// The digest of `length` bytes at `start`; empty when OpenSSL cannot make
// it, as for a digest it names but no loaded provider implements (MD4).
qorstd::QorArray<unsigned char> DigestOf(const EVP_MD* digest, const unsigned char* start,
                                         std::size_t length) {
    unsigned char value[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    if (EVP_Digest(start, length, value, &size, digest, nullptr) != 1) {
        ERR_clear_error();
        return qorstd::QorArray<unsigned char>();
    }
    return qorstd::QorArray<unsigned char>(value, size);
}

}  // namespace

// ---- validation policy -----------------------------------------------------

SignatureValidationPolicy::SignatureValidationPolicy() : m_notBefore(0), m_notAfter(0) {}

SignatureValidationPolicy::SignatureValidationPolicy(const ESI_SignatureValidationPolicy* policy)
    : SignatureValidationPolicy() {
    ParseESISignatureValidationPolicy(policy);
}

void SignatureValidationPolicy::ParseESISignatureValidationPolicy(
    const ESI_SignatureValidationPolicy* policy) {
    if (policy == nullptr) {
        Fail(ErrInvalidParameter, L"pValidationPolicy = NULL");
    }
    if (policy->signingPeriod == nullptr) {
        Fail(ErrAsn1Decoding, L"pValidationPolicy->signingPeriod = NULL");
    }
    m_notBefore = policy::TimeSeconds(policy->signingPeriod->notBefore);
    if (policy->signingPeriod->notAfter != nullptr) {
        m_notAfter = policy::TimeSeconds(policy->signingPeriod->notAfter);
    }
    m_commonRules = CommonRules(policy->commonRules);
    for (int i = 0; i < sk_ESI_COMMITMENT_RULE_num(policy->commitmentRules); ++i) {
        const ESI_COMMITMENT_RULE* rule = sk_ESI_COMMITMENT_RULE_value(policy->commitmentRules, i);
        if (rule != nullptr) {
            m_commitmentRules.Add(CommitmentRule(rule));
        }
    }
    policy::AppendExtensions(m_extensions, policy->signPolExtensions);
}

// ---- the policy ------------------------------------------------------------

SignaturePolicy::SignaturePolicy() : m_hashAlgorithmNid(0), m_dateOfIssue(0) {}

SignaturePolicy::SignaturePolicy(const qorstd::QorArray<unsigned char>& der) : SignaturePolicy() {
    Decode(der);
}

SignaturePolicy::SignaturePolicy(const ESI_SignaturePolicy* policy) : SignaturePolicy() {
    if (policy == nullptr) {
        Fail(ErrInvalidParameter, L"pPolicy=NULL");
    }
    ParseESISignaturePolicy(policy);
    const std::vector<unsigned char> der = qorssl::Encode(i2d_ESI_SIGNATURE_POLICY, policy);
    if (der.empty()) {
        Fail(ErrAsn1Encoding, L"i2d_ESI_SIGNATURE_POLICY() failed");
    }
    m_encoded.Assign(der.data(), static_cast<unsigned int>(der.size()));
}

SignaturePolicy::SignaturePolicy(const SignaturePolicy& other) = default;
SignaturePolicy& SignaturePolicy::operator=(const SignaturePolicy& other) = default;
SignaturePolicy::~SignaturePolicy() = default;

void SignaturePolicy::Decode(const qorstd::QorArray<unsigned char>& der) {
    if (der.GetSize() == 0) {
        Fail(ErrInvalidParameter, L"SignaturePolicy::Decode() - policy is empty");
    }
    const policy::EsiSignaturePolicyPtr decoded =
        qorssl::DecodeWhole<policy::EsiSignaturePolicyPtr>(d2i_ESI_SIGNATURE_POLICY, der.GetData(),
                                                           der.GetSize());
    if (!decoded) {
        Fail(ErrAsn1Decoding, L"pPolicy=NULL");
    }
    ParseESISignaturePolicy(decoded.get());
    m_encoded = der;
}

void SignaturePolicy::ParseESISignaturePolicy(const ESI_SignaturePolicy* policy) {
    m_hashValue.RemoveAll();
    m_issuerName.Reset();
    m_uri.clear();
    m_extensions.RemoveAll();
    m_validationPolicy = SignatureValidationPolicy();

    m_hashAlgorithmNid = OBJ_obj2nid(policy->signPolicyHashAlg->algorithm);
    if (m_hashAlgorithmNid == NID_undef) {
        Fail(ErrAlgorithmNotSupported,
             L"SignaturePolicy::ParseESISignaturePolicy() - parsing signature policy hash "
             L"algorithm failed.");
    }
    if (policy->signPolicyHash != nullptr && ASN1_STRING_length(policy->signPolicyHash) > 0) {
        m_hashValue.Assign(ASN1_STRING_get0_data(policy->signPolicyHash),
                           static_cast<unsigned int>(ASN1_STRING_length(policy->signPolicyHash)));
    }
    ParseESISignPolicyInfo(policy->signPolicyInfo);
}

void SignaturePolicy::ParseESISignPolicyInfo(const ESI_SignPolicyInfo* info) {
    if (info == nullptr) {
        Fail(ErrInvalidParameter, L"pPolicyInfo=NULL");
    }
    m_oid = policy::OidText(info->signPolicyIdentifier);
    m_dateOfIssue = policy::TimeSeconds(info->dateOfIssue);
    // Of several names of one kind the last counts.
    for (int i = 0; i < sk_GENERAL_NAME_num(info->policyIssuerName); ++i) {
        const GENERAL_NAME* name = sk_GENERAL_NAME_value(info->policyIssuerName, i);
        if (name == nullptr) {
            continue;
        }
        if (name->type == GEN_DIRNAME) {
            m_issuerName = X509Name(name->d.directoryName);
        } else if (name->type == GEN_URI) {
            const ASN1_IA5STRING* uri = name->d.uniformResourceIdentifier;
            m_uri.assign(reinterpret_cast<const char*>(ASN1_STRING_get0_data(uri)),
                         static_cast<unsigned int>(ASN1_STRING_length(uri)));
        }
    }
    m_fieldOfApplication = policy::DirectoryText(
        info->fieldOfApplication, L"Failed to convert Field of Application to UTF8.");
    m_validationPolicy = SignatureValidationPolicy(info->signatureValidationPolicy);
    policy::AppendExtensions(m_extensions, info->signPolExtensions);
}

qorstd::QorString SignaturePolicy::GetHashAlgorithmOID() const {
    const ASN1_OBJECT* object = OBJ_nid2obj(m_hashAlgorithmNid);
    ERR_clear_error();
    return policy::OidText(object);
}

qorstd::QorString SignaturePolicy::GetHashAlgorithmName() const {
    const char* name = OBJ_nid2ln(m_hashAlgorithmNid);
    ERR_clear_error();
    return qorstd::QorString(name != nullptr ? name : "");
}

qorstd::QorString SignaturePolicy::GetHashValueHex() const {
    static const char kDigits[] = "0123456789abcdef";
    qorstd::QorString hex;
    for (unsigned int i = 0; i < m_hashValue.GetSize(); ++i) {
        const char pair[3] = {kDigits[m_hashValue[i] >> 4], kDigits[m_hashValue[i] & 0x0f], '\0'};
        hex.append(pair, 2);
    }
    return hex;
}

// ---- the hash of the document ------------------------------------------------

qorstd::QorArray<unsigned char> SignaturePolicy::ComputeHash(int hashAlgorithmNid,
                                                             cptHashConvention convention) const {
    if (m_encoded.GetSize() == 0) {
        Fail(ErrInvalidState, L"SignaturePolicy::ComputeHash() - policy is empty");
    }
    const EVP_MD* digest = EVP_get_digestbynid(hashAlgorithmNid);
    if (digest == nullptr) {
        Fail(ErrAlgorithmNotSupported);
    }
    const unsigned char* start = m_encoded.GetData();
    std::size_t length = m_encoded.GetSize();
    if (convention == cptHashMatchFields) {
        if (!LeadingElements(m_encoded, 2, &start, &length)) {
            Fail(ErrAsn1Decoding);
        }
    } else if (convention != cptHashMatchWholeFile) {
        Fail(ErrInvalidParameter, L"eConvention");
    }
    const qorstd::QorArray<unsigned char> value = DigestOf(digest, start, length);
    if (value.GetSize() == 0) {
        Fail(ErrHashGeneration);
    }
    return value;
}

SignaturePolicy::cptHashConvention SignaturePolicy::MatchHash(
    int hashAlgorithmNid, const qorstd::QorArray<unsigned char>& hashValue) const {
    const EVP_MD* digest = EVP_get_digestbynid(hashAlgorithmNid);
    if (hashValue.GetSize() == 0 || m_encoded.GetSize() == 0 || digest == nullptr) {
        return cptHashMatchNone;
    }
    // A decodable document may still have no fields digest (fields in
    // indefinite-length form) or no digest at all (a digest no provider
    // implements): that is no match, not a failure.
    const unsigned char* start = nullptr;
    std::size_t length = 0;
    if (LeadingElements(m_encoded, 2, &start, &length) &&
        DigestOf(digest, start, length) == hashValue) {
        return cptHashMatchFields;
    }
    if (DigestOf(digest, m_encoded.GetData(), m_encoded.GetSize()) == hashValue) {
        return cptHashMatchWholeFile;
    }
    return cptHashMatchNone;
}

SignaturePolicy::cptHashConvention SignaturePolicy::CheckHash() const {
    return MatchHash(m_hashAlgorithmNid, m_hashValue);
}

// ---- overrides ---------------------------------------------------------------

SignaturePolicyOverrides::SignaturePolicyOverrides() : m_checkMandatedCertificateInfo(1) {}

}  // namespace TesseraLib
