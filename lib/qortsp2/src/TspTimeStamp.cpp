#include "TspTimeStamp.h"

#include <openssl/asn1.h>
#include <openssl/bn.h>
#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/ts.h>
#include <openssl/x509.h>

#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "OpenSslPtr.h"
#include "QorAsn1Time.h"
#include "QorDer.h"
#include "TspException.h"
#include "TspProtocol.h"

namespace QorTsp2Lib {

using qorssl::Asn1IntegerPtr;
using qorssl::BignumPtr;
using qorssl::CmsContentInfoPtr;
using qorssl::TsTstInfoPtr;
using qorssl::X509Ptr;
using qorssl::X509StackPtr;

namespace {

struct OpenSslTextFree {
    void operator()(char* text) const { OPENSSL_free(text); }
};
using OpenSslText = std::unique_ptr<char, OpenSslTextFree>;

// Accuracy seconds beyond this would overflow the microsecond count.
constexpr std::int64_t kMaxAccuracySeconds = 9000000000000LL;

[[noreturn]] void DecodeFailure(const std::string& what) {
    protocol::Fail(TspErrDecode, "TspTimeStamp::Decode: " + what);
}

std::string ObjectText(const ASN1_OBJECT* object) {
    char buffer[128];
    const int length = OBJ_obj2txt(buffer, sizeof(buffer), object, 1);
    if (length <= 0) {
        return std::string();
    }
    if (static_cast<std::size_t>(length) < sizeof(buffer)) {
        return std::string(buffer, static_cast<std::size_t>(length));
    }
    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    OBJ_obj2txt(&text[0], length + 1, object, 1);
    text.resize(static_cast<std::size_t>(length));
    return text;
}

// Hex and decimal text of an integer; false when it cannot be converted.
bool IntegerText(const ASN1_INTEGER* value, std::string* hex, std::string* dec) {
    BignumPtr number(ASN1_INTEGER_to_BN(value, nullptr));
    if (!number) {
        return false;
    }
    OpenSslText hexText(BN_bn2hex(number.get()));
    OpenSslText decText(BN_bn2dec(number.get()));
    if (!hexText || !decText) {
        return false;
    }
    *hex = hexText.get();
    *dec = decText.get();
    return true;
}

bool AccuracyPart(const ASN1_INTEGER* value, std::int64_t* out) {
    *out = 0;
    if (value == nullptr) {
        return true;
    }
    return ASN1_INTEGER_get_int64(out, value) == 1 && *out >= 0;
}

}  // namespace

// ---------------------------------------------------------------- certificate

TspCertificate::TspCertificate() : m_cert(nullptr) {}

TspCertificate::TspCertificate(const unsigned char* der, unsigned int length) : m_cert(nullptr) {
    X509Ptr cert = qorssl::DecodeWhole<X509Ptr>(d2i_X509, der, length);
    if (!cert) {
        protocol::Fail(TspErrDecode, "TspCertificate: not a DER certificate");
    }
    m_cert = cert.release();
}

TspCertificate::TspCertificate(x509_st* cert) : m_cert(qorssl::UpRef(cert).release()) {}

TspCertificate::TspCertificate(const TspCertificate& other) : TspCertificate(other.m_cert) {}

TspCertificate& TspCertificate::operator=(const TspCertificate& other) {
    if (this != &other) {
        TspCertificate copy(other);
        std::swap(m_cert, copy.m_cert);
    }
    return *this;
}

TspCertificate::~TspCertificate() {
    Reset();
}

void TspCertificate::Reset() {
    X509_free(m_cert);  // null is fine; drops this object's reference only
    m_cert = nullptr;
}

TspArray<unsigned char> TspCertificate::Encode() const {
    if (m_cert == nullptr) {
        return TspArray<unsigned char>();
    }
    const std::vector<unsigned char> bytes = qorssl::Encode<X509>(i2d_X509, m_cert);
    if (bytes.empty()) {
        protocol::Fail(TspErrInternal, "TspCertificate::Encode: i2d_X509 failed");
    }
    return TspArray<unsigned char>(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

StlString TspCertificate::GetHashAlgorithmName() const {
    if (m_cert == nullptr) {
        return StlString();
    }
    int digestNid = NID_undef;
    int keyNid = NID_undef;
    if (OBJ_find_sigid_algs(X509_get_signature_nid(m_cert), &digestNid, &keyNid) != 1 ||
        digestNid == NID_undef) {
        return StlString();
    }
    const char* name = OBJ_nid2ln(digestNid);
    return StlString(name != nullptr ? name : "");
}

StlString TspCertificate::GetSubjectText() const {
    if (m_cert == nullptr) {
        return StlString();
    }
    OpenSslText text(X509_NAME_oneline(X509_get_subject_name(m_cert), nullptr, 0));
    return StlString(text ? text.get() : "");
}

bool TspCertificate::operator==(const TspCertificate& other) const {
    if (m_cert == nullptr || other.m_cert == nullptr) {
        return m_cert == other.m_cert;
    }
    return X509_cmp(m_cert, other.m_cert) == 0;
}

// ---------------------------------------------------------------- time-stamp

struct TspTimeStamp::DecodedToken {
    std::mutex lock;
    CmsContentInfoPtr cms;  // null once handed over
};

TspTimeStamp::TspTimeStamp() : m_time(0), m_accuracyMicros(-1) {}

TspTimeStamp::TspTimeStamp(const TspTimeStamp& other) = default;

TspTimeStamp& TspTimeStamp::operator=(const TspTimeStamp& other) = default;

TspTimeStamp::~TspTimeStamp() = default;

void TspTimeStamp::Reset() {
    *this = TspTimeStamp();
}

CMS_ContentInfo_st* TspTimeStamp::TakeDecodedToken() const {
    if (!m_decodedToken) {
        return nullptr;
    }
    const std::lock_guard<std::mutex> guard(m_decodedToken->lock);
    return m_decodedToken->cms.release();
}

const TspCertificate* TspTimeStamp::GetTsaCertificate() const {
    return m_tsaCertificate.IsEmpty() ? nullptr : &m_tsaCertificate;
}

TspArray<unsigned char> TspTimeStamp::Encode(int /*form*/) const {
    return m_der;
}

void TspTimeStamp::Decode(const unsigned char* der, unsigned int length) {
    if (der == nullptr && length != 0) {
        protocol::Fail(TspErrInvalidParameter, "TspTimeStamp::Decode: data is null");
    }
    CmsContentInfoPtr cms =
        qorssl::DecodeWhole<CmsContentInfoPtr>(d2i_CMS_ContentInfo, der, length);
    if (!cms) {
        DecodeFailure("not exactly one CMS ContentInfo");
    }
    if (OBJ_obj2nid(CMS_get0_type(cms.get())) != NID_pkcs7_signed) {
        DecodeFailure("the ContentInfo is not SignedData");
    }
    if (OBJ_obj2nid(CMS_get0_eContentType(cms.get())) != NID_id_smime_ct_TSTInfo) {
        DecodeFailure("the signed content is not a TSTInfo");
    }
    ASN1_OCTET_STRING** content = CMS_get0_content(cms.get());
    if (content == nullptr || *content == nullptr) {
        DecodeFailure("the TSTInfo is missing (detached content)");
    }
    TsTstInfoPtr info =
        qorssl::DecodeWhole<TsTstInfoPtr>(d2i_TS_TST_INFO, ASN1_STRING_get0_data(*content),
                                          static_cast<std::size_t>(ASN1_STRING_length(*content)));
    if (!info) {
        DecodeFailure("the TSTInfo does not decode");
    }
    if (TS_TST_INFO_get_version(info.get()) != 1) {
        DecodeFailure("unsupported TSTInfo version");
    }

    TspTimeStamp decoded;
    decoded.m_der = TspArray<unsigned char>(der, length);

    // genTime: kept as spelt; the conversion checks its form (fractions and
    // offsets included) and drops the fractions.
    const ASN1_GENERALIZEDTIME* genTime = TS_TST_INFO_get_time(info.get());
    if (!qortime::Asn1TimeToSeconds(genTime, &decoded.m_time)) {
        DecodeFailure("genTime is not a valid GeneralizedTime");
    }
    decoded.m_generalizedTime =
        StlString(reinterpret_cast<const char*>(ASN1_STRING_get0_data(genTime)),
                  static_cast<unsigned int>(ASN1_STRING_length(genTime)));

    // Message imprint: an algorithm this library does not number keeps its
    // value under tspHashNone; a known one must have its digest's size.
    TS_MSG_IMPRINT* imprint = TS_TST_INFO_get_msg_imprint(info.get());
    const X509_ALGOR* algorithm = TS_MSG_IMPRINT_get_algo(imprint);
    const ASN1_OCTET_STRING* hashed = TS_MSG_IMPRINT_get_msg(imprint);
    const ASN1_OBJECT* algorithmOid = nullptr;
    X509_ALGOR_get0(&algorithmOid, nullptr, nullptr, algorithm);
    const tspHashAlgorithm hash = protocol::HashOfNid(OBJ_obj2nid(algorithmOid));
    const unsigned int hashedLength = static_cast<unsigned int>(ASN1_STRING_length(hashed));
    if (hash != tspHashNone && hashedLength != GetHashSize(hash)) {
        DecodeFailure("the message imprint does not have its algorithm's size");
    }
    decoded.m_imprint = TspMessageImprint(
        hash, TspArray<unsigned char>(ASN1_STRING_get0_data(hashed), hashedLength));

    std::string hex;
    std::string dec;
    if (!IntegerText(TS_TST_INFO_get_serial(info.get()), &hex, &dec)) {
        DecodeFailure("the serial number cannot be read");
    }
    decoded.m_serialHex = hex.c_str();
    decoded.m_serialDec = dec.c_str();

    const std::string policy = ObjectText(TS_TST_INFO_get_policy_id(info.get()));
    if (policy.empty()) {
        DecodeFailure("the policy OID cannot be read");
    }
    decoded.m_policyId = policy.c_str();

    const ASN1_INTEGER* nonce = TS_TST_INFO_get_nonce(info.get());
    if (nonce != nullptr) {
        if (!IntegerText(nonce, &hex, &dec)) {
            DecodeFailure("the nonce cannot be read");
        }
        decoded.m_nonceHex = hex.c_str();
    }

    const TS_ACCURACY* accuracy = TS_TST_INFO_get_accuracy(info.get());
    if (accuracy != nullptr) {
        std::int64_t seconds = 0;
        std::int64_t millis = 0;
        std::int64_t micros = 0;
        if (!AccuracyPart(TS_ACCURACY_get_seconds(accuracy), &seconds) ||
            !AccuracyPart(TS_ACCURACY_get_millis(accuracy), &millis) ||
            !AccuracyPart(TS_ACCURACY_get_micros(accuracy), &micros) ||
            seconds > kMaxAccuracySeconds || millis > 999 || micros > 999) {
            DecodeFailure("the accuracy is out of range");
        }
        decoded.m_accuracyMicros = seconds * 1000000 + millis * 1000 + micros;
    }

    // The TSA's certificate: the one the first signer identifies, when the
    // token carries it. How many signers there are is the verifier's affair.
    STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(cms.get());
    if (signers != nullptr && sk_CMS_SignerInfo_num(signers) > 0) {
        CMS_SignerInfo* signer = sk_CMS_SignerInfo_value(signers, 0);
        X509StackPtr certs(CMS_get1_certs(cms.get()));
        for (int i = 0; certs && i < sk_X509_num(certs.get()); ++i) {
            X509* cert = sk_X509_value(certs.get(), i);
            if (CMS_SignerInfo_cert_cmp(signer, cert) == 0) {
                decoded.m_tsaCertificate = TspCertificate(cert);
                break;
            }
        }
    }
    ERR_clear_error();
    // Only read above: the message is still as d2i made it.
    decoded.m_decodedToken = std::make_shared<DecodedToken>();
    decoded.m_decodedToken->cms = std::move(cms);
    *this = decoded;
}

}  // namespace QorTsp2Lib
