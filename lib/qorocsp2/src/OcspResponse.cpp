#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/ocsp.h>
#include <openssl/x509.h>

#include <climits>
#include <string>

#include "OcspInternal.h"
#include "OcspResponse.h"
#include "OpenSslPtr.h"
#include "QorAsn1Time.h"
#include "QorHex.h"
#include "QorTextConv.h"

namespace QorOcsp2Lib {

using qorssl::BioPtr;
using qorssl::OcspBasicRespPtr;
using qorssl::OcspResponsePtr;
using qorssl::X509StackPtr;
using qorssl::X509StorePtr;

template class OcspVector<OcspCertificate>;
template class OcspVector<OcspSingleResponse>;
template class OcspVector<OcspResponse>;

namespace {

[[noreturn]] void ThrowDecoding(const wchar_t* message) {
    ERR_clear_error();
    OcspException::Throw(OcspException::ocspErrDecoding, message);
}

std::int64_t SecondsOf(const ASN1_GENERALIZEDTIME* time, const wchar_t* what) {
    std::int64_t seconds = 0;
    if (!qortime::Asn1TimeToSeconds(time, &seconds)) {
        ThrowDecoding(what);
    }
    return seconds;
}

// The whole OCSPResponse from DER that must be used up completely.
OcspResponsePtr ParseResponse(const unsigned char* der, std::size_t length) {
    if (der == nullptr || length == 0 || length > static_cast<std::size_t>(LONG_MAX)) {
        ThrowDecoding(L"empty input");
    }
    const unsigned char* cursor = der;
    OcspResponsePtr response(d2i_OCSP_RESPONSE(nullptr, &cursor, static_cast<long>(length)));
    if (!response) {
        ThrowDecoding(L"d2i_OCSP_RESPONSE failed");
    }
    if (cursor != der + length) {
        ThrowDecoding(L"trailing bytes after the response");
    }
    return response;
}

StlStringW ResponderName(const OCSP_BASICRESP* basic) {
    const ASN1_OCTET_STRING* keyHash = nullptr;
    const X509_NAME* name = nullptr;
    if (OCSP_resp_get0_id(basic, &keyHash, &name) != 1) {
        ThrowDecoding(L"responder id");
    }
    if (name == nullptr) {
        const std::string text =
            "KeyHash:" + qortext::LowerHex(ASN1_STRING_get0_data(keyHash),
                                           static_cast<std::size_t>(ASN1_STRING_length(keyHash)));
        return StlStringW(qorstd::text::NarrowToWide(text.c_str(), 0, qorstd::text::kCharsetUtf8));
    }
    BioPtr bio(BIO_new(BIO_s_mem()));
    if (!bio ||
        X509_NAME_print_ex(bio.get(), name, 0, XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB) < 0) {
        ThrowDecoding(L"responder name");
    }
    char* data = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &data);
    const std::string text(data != nullptr ? data : "", static_cast<std::size_t>(length));
    return StlStringW(qorstd::text::NarrowToWide(text.c_str(), 0, qorstd::text::kCharsetUtf8));
}

StlString AlgorithmName(const ASN1_OBJECT* object) {
    const int nid = OBJ_obj2nid(object);
    if (nid != NID_undef) {
        return StlString(OBJ_nid2ln(nid));
    }
    char text[128] = {0};
    OBJ_obj2txt(text, sizeof(text), object, 1);
    return StlString(text);
}

}  // namespace

// ---- OcspHash -----------------------------------------------------------

StlString OcspHash::GetName(ocspHashAlgorithm algorithm) {
    switch (algorithm) {
        case ocspHashDefault:
        case ocspHashSHA1:
            return StlString("SHA1");
        case ocspHashSHA224:
            return StlString("SHA224");
        case ocspHashSHA256:
            return StlString("SHA256");
        case ocspHashSHA384:
            return StlString("SHA384");
        case ocspHashSHA512:
            return StlString("SHA512");
    }
    return StlString();
}

namespace internal {

const EVP_MD* DigestOf(OcspHash::ocspHashAlgorithm algorithm) {
    const StlString name = OcspHash::GetName(algorithm);
    return name.empty() ? nullptr : EVP_get_digestbyname(name.c_str());
}

}  // namespace internal

// ---- OcspCertificate ----------------------------------------------------

OcspCertificate::OcspCertificate() : m_certificate(nullptr) {}

OcspCertificate::OcspCertificate(const x509_st* certificate)
    : m_certificate(certificate != nullptr ? X509_dup(certificate) : nullptr) {}

OcspCertificate::OcspCertificate(const OcspCertificate& other)
    : OcspCertificate(other.m_certificate) {}

OcspCertificate& OcspCertificate::operator=(const OcspCertificate& other) {
    if (this != &other) {
        X509* copy = other.m_certificate != nullptr ? X509_dup(other.m_certificate) : nullptr;
        X509_free(m_certificate);
        m_certificate = copy;
    }
    return *this;
}

OcspCertificate::~OcspCertificate() {
    X509_free(m_certificate);
}

// ---- OcspSingleResponse -------------------------------------------------

OcspSingleResponse::OcspSingleResponse()
    : m_certStatus(ocspStatusUnknown),
      m_thisUpdate(0),
      m_nextUpdate(0),
      m_revocationTime(0),
      m_revocationReason(ocspReasonNone) {}

OcspSingleResponse::~OcspSingleResponse() = default;

StlString OcspSingleResponse::GetCertStatusString() const {
    switch (m_certStatus) {
        case ocspStatusGood:
            return StlString("good");
        case ocspStatusRevoked:
            return StlString("revoked");
        default:
            return StlString("unknown");
    }
}

// ---- OcspResponse -------------------------------------------------------

OcspResponse::OcspResponse() : m_responseStatus(-1), m_producedAt(0) {}
OcspResponse::OcspResponse(const OcspResponse& other) = default;
OcspResponse& OcspResponse::operator=(const OcspResponse& other) = default;
OcspResponse::~OcspResponse() = default;

bool OcspResponse::operator==(const OcspResponse& other) const {
    return m_der == other.m_der;
}

void OcspResponse::Reset() {
    *this = OcspResponse();
}

void OcspResponse::Decode(const unsigned char* der, unsigned long length) {
    Reset();
    OcspResponsePtr response = ParseResponse(der, length);
    OcspResponse parsed;
    parsed.m_responseStatus = OCSP_response_status(response.get());
    if (parsed.m_responseStatus == OCSP_RESPONSE_STATUS_SUCCESSFUL) {
        OcspBasicRespPtr basic(OCSP_response_get1_basic(response.get()));
        if (!basic) {
            ThrowDecoding(L"successful response without a basic response");
        }
        parsed.m_producedAt = SecondsOf(OCSP_resp_get0_produced_at(basic.get()), L"producedAt");
        parsed.m_responderName = ResponderName(basic.get());
        const X509_ALGOR* algorithm = OCSP_resp_get0_tbs_sigalg(basic.get());
        const ASN1_OBJECT* algorithmObject = nullptr;
        X509_ALGOR_get0(&algorithmObject, nullptr, nullptr, algorithm);
        parsed.m_signatureAlgorithm = AlgorithmName(algorithmObject);

        const int count = OCSP_resp_count(basic.get());
        for (int i = 0; i < count; ++i) {
            OCSP_SINGLERESP* single = OCSP_resp_get0(basic.get(), i);
            int reason = -1;
            ASN1_GENERALIZEDTIME* revoked = nullptr;
            ASN1_GENERALIZEDTIME* thisUpdate = nullptr;
            ASN1_GENERALIZEDTIME* nextUpdate = nullptr;
            OcspSingleResponse answer;
            answer.m_certStatus =
                OCSP_single_get0_status(single, &reason, &revoked, &thisUpdate, &nextUpdate);
            if (answer.m_certStatus < 0) {
                ThrowDecoding(L"single response status");
            }
            answer.m_thisUpdate = SecondsOf(thisUpdate, L"thisUpdate");
            answer.m_nextUpdate = nextUpdate != nullptr ? SecondsOf(nextUpdate, L"nextUpdate") : 0;
            if (answer.m_certStatus == V_OCSP_CERTSTATUS_REVOKED) {
                answer.m_revocationTime = SecondsOf(revoked, L"revocationTime");
                answer.m_revocationReason =
                    static_cast<OcspSingleResponse::ocspRevocationReason>(reason);
            }
            ASN1_OBJECT* digest = nullptr;
            ASN1_INTEGER* serial = nullptr;
            const OCSP_CERTID* id = OCSP_SINGLERESP_get0_id(single);
            if (id == nullptr || OCSP_id_get0_info(nullptr, &digest, nullptr, &serial,
                                                   const_cast<OCSP_CERTID*>(id)) != 1) {
                ThrowDecoding(L"certificate identifier");
            }
            const int digestNid = OBJ_obj2nid(digest);
            answer.m_certIdHash = StlString(digestNid != NID_undef ? OBJ_nid2sn(digestNid) : "");
            qorssl::OpenSslPtr<BIGNUM, BN_free> number(ASN1_INTEGER_to_BN(serial, nullptr));
            char* hex = number ? BN_bn2hex(number.get()) : nullptr;
            if (hex == nullptr) {
                ThrowDecoding(L"serial number");
            }
            answer.m_serialHex = StlString(hex);
            OPENSSL_free(hex);
            parsed.m_singles.Add(answer);
        }
        const STACK_OF(X509)* certificates = OCSP_resp_get0_certs(basic.get());
        for (int i = 0; i < sk_X509_num(certificates); ++i) {
            parsed.m_certificates.Add(OcspCertificate(sk_X509_value(certificates, i)));
        }
    }
    parsed.m_der.Assign(der, static_cast<unsigned int>(length));
    *this = parsed;
}

qorstd::QorArray<unsigned char> OcspResponse::Encode() const {
    return m_der;
}

qorstd::QorArray<unsigned char> OcspResponse::GetBasicResponse() const {
    qorstd::QorArray<unsigned char> out;
    if (IsEmpty()) {
        return out;
    }
    OcspResponsePtr response = ParseResponse(m_der.GetData(), m_der.GetSize());
    OcspBasicRespPtr basic(OCSP_response_get1_basic(response.get()));
    if (!basic) {
        ERR_clear_error();
        return out;
    }
    unsigned char* der = nullptr;
    const int length = i2d_OCSP_BASICRESP(basic.get(), &der);
    if (length <= 0) {
        ERR_clear_error();
        OcspException::Throw(OcspException::ocspErrEncoding, L"i2d_OCSP_BASICRESP failed");
    }
    out.Assign(der, static_cast<unsigned int>(length));
    OPENSSL_free(der);
    return out;
}

void OcspResponse::Verify(OcspVector<OcspCertificate>* trusted) const {
    if (IsEmpty()) {
        OcspException::Throw(OcspException::ocspErrNoBasicResponse, L"the response is empty");
    }
    OcspResponsePtr response = ParseResponse(m_der.GetData(), m_der.GetSize());
    OcspBasicRespPtr basic(OCSP_response_get1_basic(response.get()));
    if (!basic) {
        ERR_clear_error();
        OcspException::Throw(OcspException::ocspErrNoBasicResponse, nullptr);
    }
    X509StorePtr store(X509_STORE_new());
    X509StackPtr certificates(sk_X509_new_null());
    if (!store || !certificates) {
        OcspException::Throw(OcspException::ocspErrSignature, L"out of memory");
    }
    for (unsigned int i = 0; trusted != nullptr && i < trusted->GetSize(); ++i) {
        X509* certificate = trusted->GetAt(i).GetX509();
        if (certificate == nullptr) {
            continue;
        }
        // Trusted certificates are anchors (an issuing CA need not be a root)
        // and, when they signed the response themselves, trusted signers.
        X509_STORE_add_cert(store.get(), certificate);
        qorssl::X509Ptr reference = qorssl::UpRef(certificate);
        if (reference && sk_X509_push(certificates.get(), reference.get()) > 0) {
            reference.release();  // the stack owns it now
        }
    }
    ERR_clear_error();
    X509_VERIFY_PARAM* param = X509_STORE_get0_param(store.get());
    X509_VERIFY_PARAM_set_flags(param, X509_V_FLAG_PARTIAL_CHAIN);
    // The responder's certificates are judged when the response was made.
    X509_VERIFY_PARAM_set_time(param, static_cast<time_t>(m_producedAt));
    if (OCSP_basic_verify(basic.get(), certificates.get(), store.get(), OCSP_TRUSTOTHER) <= 0) {
        const unsigned long error = ERR_peek_last_error();
        const char* reason = error != 0 ? ERR_reason_error_string(error) : nullptr;
        const qorstd::QorStringW message = qorstd::text::NarrowToWide(
            reason != nullptr ? reason : "OCSP_basic_verify failed", 0, qorstd::text::kCharsetUtf8);
        ERR_clear_error();
        OcspException::Throw(OcspException::ocspErrSignature, message.c_str());
    }
}

StlString OcspResponse::GetStatusString() const {
    if (m_responseStatus == OCSP_RESPONSE_STATUS_SUCCESSFUL && m_singles.GetSize() > 0) {
        return m_singles.GetAt(0).GetCertStatusString();
    }
    if (m_responseStatus < 0) {
        return StlString();
    }
    return StlString(OCSP_response_status_str(m_responseStatus));
}

StlString OcspResponse::GetSHA1HashHex() const {
    if (IsEmpty()) {
        return StlString();
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_Digest(m_der.GetData(), m_der.GetSize(), digest, &length, EVP_sha1(), nullptr) != 1) {
        ERR_clear_error();
        return StlString();
    }
    return StlString(qortext::LowerHex(digest, length).c_str());
}

}  // namespace QorOcsp2Lib
