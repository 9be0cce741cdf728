#include "TspProtocol.h"

#include <openssl/asn1.h>
#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/pkcs7.h>
#include <openssl/rand.h>
#include <openssl/ts.h>
#include <openssl/x509.h>

#include <cstring>
#include <memory>

#include "OpenSslPtr.h"
#include "QorDer.h"
#include "QorFail.h"
#include "QorTextConv.h"
#include "TspException.h"

namespace QorTsp2Lib {
namespace protocol {

using qorssl::Asn1IntegerPtr;
using qorssl::Asn1ObjectPtr;
using qorssl::BignumPtr;
using qorssl::TsMsgImprintPtr;
using qorssl::TsReqPtr;
using qorssl::TsRespPtr;
using qorssl::X509AlgorPtr;

namespace {

constexpr std::size_t kNonceBytes = 8;

struct NidEntry {
    tspHashAlgorithm algorithm;
    int nid;
};

constexpr NidEntry kNids[] = {
    {tspHashSHA1, NID_sha1},     {tspHashSHA224, NID_sha224}, {tspHashSHA256, NID_sha256},
    {tspHashSHA384, NID_sha384}, {tspHashSHA512, NID_sha512},
};

struct OpenSslTextFree {
    void operator()(char* text) const { OPENSSL_free(text); }
};

Asn1IntegerPtr NonceInteger(const std::vector<unsigned char>& nonce) {
    BignumPtr number(BN_bin2bn(nonce.data(), static_cast<int>(nonce.size()), nullptr));
    if (!number) {
        return Asn1IntegerPtr();
    }
    return Asn1IntegerPtr(BN_to_ASN1_INTEGER(number.get(), nullptr));
}

const char* StatusName(long status) {
    switch (status) {
        case TS_STATUS_GRANTED:
            return "granted";
        case TS_STATUS_GRANTED_WITH_MODS:
            return "grantedWithMods";
        case TS_STATUS_REJECTION:
            return "rejection";
        case TS_STATUS_WAITING:
            return "waiting";
        case TS_STATUS_REVOCATION_WARNING:
            return "revocationWarning";
        case TS_STATUS_REVOCATION_NOTIFICATION:
            return "revocationNotification";
        default:
            return "unknown status";
    }
}

// "status rejection (2), failure badAlg, text "...""
std::string DescribeStatus(const TS_STATUS_INFO* info, long status) {
    static const struct {
        int bit;
        const char* name;
    } kFailures[] = {
        {TS_INFO_BAD_ALG, "badAlg"},
        {TS_INFO_BAD_REQUEST, "badRequest"},
        {TS_INFO_BAD_DATA_FORMAT, "badDataFormat"},
        {TS_INFO_TIME_NOT_AVAILABLE, "timeNotAvailable"},
        {TS_INFO_UNACCEPTED_POLICY, "unacceptedPolicy"},
        {TS_INFO_UNACCEPTED_EXTENSION, "unacceptedExtension"},
        {TS_INFO_ADD_INFO_NOT_AVAILABLE, "addInfoNotAvailable"},
        {TS_INFO_SYSTEM_FAILURE, "systemFailure"},
    };
    std::string text =
        "status " + std::string(StatusName(status)) + " (" + std::to_string(status) + ")";
    const ASN1_BIT_STRING* failure = TS_STATUS_INFO_get0_failure_info(info);
    if (failure != nullptr) {
        std::string names;
        for (const auto& entry : kFailures) {
            if (ASN1_BIT_STRING_get_bit(failure, entry.bit) == 1) {
                names += (names.empty() ? "" : " ") + std::string(entry.name);
            }
        }
        text += ", failure " + (names.empty() ? std::string("unnamed") : names);
    }
    const STACK_OF(ASN1_UTF8STRING)* lines = TS_STATUS_INFO_get0_text(info);
    for (int i = 0; lines != nullptr && i < sk_ASN1_UTF8STRING_num(lines); ++i) {
        const ASN1_UTF8STRING* line = sk_ASN1_UTF8STRING_value(lines, i);
        text += ", text \"" +
                std::string(reinterpret_cast<const char*>(ASN1_STRING_get0_data(line)),
                            static_cast<std::size_t>(ASN1_STRING_length(line))) +
                "\"";
    }
    return text;
}

// The token's own bytes inside the response: the SEQUENCE's content after
// the status. Taking them as received (instead of re-encoding OpenSSL's
// parse) keeps them exactly as the TSA signed them. False for indefinite
// lengths, which only a BER encoder produces.
bool TokenBytes(const unsigned char* der, std::size_t length, const unsigned char** token,
                std::size_t* tokenLength) {
    const unsigned char* cursor = der;
    long contentLength = 0;
    int tag = 0;
    int tagClass = 0;
    int flags =
        ASN1_get_object(&cursor, &contentLength, &tag, &tagClass, static_cast<long>(length));
    if (flags != V_ASN1_CONSTRUCTED || tag != V_ASN1_SEQUENCE) {
        return false;
    }
    const unsigned char* end = cursor + contentLength;
    const unsigned char* status = cursor;
    flags = ASN1_get_object(&status, &contentLength, &tag, &tagClass, end - cursor);
    if ((flags & 0x80) != 0 || (flags & 0x01) != 0) {
        return false;
    }
    status += contentLength;
    if (status >= end) {
        return false;
    }
    *token = status;
    *tokenLength = static_cast<std::size_t>(end - status);
    return true;
}

}  // namespace

int HashNid(tspHashAlgorithm algorithm) {
    for (const NidEntry& entry : kNids) {
        if (entry.algorithm == algorithm) {
            return entry.nid;
        }
    }
    return NID_undef;
}

tspHashAlgorithm HashOfNid(int nid) {
    for (const NidEntry& entry : kNids) {
        if (entry.nid == nid) {
            return entry.algorithm;
        }
    }
    return tspHashNone;
}

std::wstring Widen(const std::string& utf8) {
    if (utf8.empty()) {
        return std::wstring();
    }
    const qorstd::QorStringW wide = qorstd::text::NarrowToWide(
        utf8.c_str(), static_cast<unsigned int>(utf8.size()), qorstd::text::kCharsetUtf8);
    if (!wide.empty()) {
        return wide.c_str();
    }
    std::wstring ascii;
    for (const char c : utf8) {
        ascii.push_back(static_cast<unsigned char>(c) < 0x80 && c != '\0' ? c : L'?');
    }
    return ascii;
}

void Fail(int code, const std::string& message) {
    qorlog::Fail<TspException>(code, Widen(message).c_str());
}

std::vector<unsigned char> NewNonce() {
    std::vector<unsigned char> nonce(kNonceBytes);
    if (RAND_bytes(nonce.data(), static_cast<int>(nonce.size())) != 1) {
        Fail(TspErrInternal, "NewNonce: RAND_bytes failed");
    }
    return nonce;
}

std::string NonceHex(const std::vector<unsigned char>& nonce) {
    BignumPtr number(BN_bin2bn(nonce.data(), static_cast<int>(nonce.size()), nullptr));
    if (!number) {
        Fail(TspErrInternal, "NonceHex: BN_bin2bn failed");
    }
    std::unique_ptr<char, OpenSslTextFree> text(BN_bn2hex(number.get()));
    if (!text) {
        Fail(TspErrInternal, "NonceHex: BN_bn2hex failed");
    }
    return text.get();
}

std::vector<unsigned char> EncodeRequest(const RequestFacts& facts) {
    const int nid = HashNid(facts.algorithm);
    if (nid == NID_undef) {
        Fail(TspErrInvalidParameter, "EncodeRequest: the hash algorithm is not set");
    }
    if (facts.imprint.size() != GetHashSize(facts.algorithm)) {
        Fail(TspErrInvalidParameter, "EncodeRequest: the imprint has " +
                                         std::to_string(facts.imprint.size()) + " bytes, " +
                                         GetHashName(facts.algorithm) + " gives " +
                                         std::to_string(GetHashSize(facts.algorithm)));
    }
    TsReqPtr request(TS_REQ_new());
    TsMsgImprintPtr imprint(TS_MSG_IMPRINT_new());
    X509AlgorPtr algorithm(X509_ALGOR_new());
    if (!request || !imprint || !algorithm) {
        Fail(TspErrInternal, "EncodeRequest: out of memory");
    }
    // The digest OID with NULL parameters, as TSAs commonly expect.
    if (X509_ALGOR_set0(algorithm.get(), OBJ_nid2obj(nid), V_ASN1_NULL, nullptr) != 1 ||
        TS_MSG_IMPRINT_set_algo(imprint.get(), algorithm.get()) != 1 ||
        TS_MSG_IMPRINT_set_msg(imprint.get(), const_cast<unsigned char*>(facts.imprint.data()),
                               static_cast<int>(facts.imprint.size())) != 1 ||
        TS_REQ_set_version(request.get(), 1) != 1 ||
        TS_REQ_set_msg_imprint(request.get(), imprint.get()) != 1 ||
        TS_REQ_set_cert_req(request.get(), 1) != 1) {
        Fail(TspErrInternal, "EncodeRequest: building the request failed");
    }
    if (!facts.policyId.empty()) {
        Asn1ObjectPtr policy(OBJ_txt2obj(facts.policyId.c_str(), 1));
        if (!policy) {
            Fail(TspErrInvalidParameter,
                 "EncodeRequest: the policy '" + facts.policyId + "' is not a dotted OID");
        }
        if (TS_REQ_set_policy_id(request.get(), policy.get()) != 1) {
            Fail(TspErrInternal, "EncodeRequest: setting the policy failed");
        }
    }
    if (!facts.nonce.empty()) {
        Asn1IntegerPtr nonce = NonceInteger(facts.nonce);
        if (!nonce || TS_REQ_set_nonce(request.get(), nonce.get()) != 1) {
            Fail(TspErrInternal, "EncodeRequest: setting the nonce failed");
        }
    }
    std::vector<unsigned char> out = qorssl::Encode<TS_REQ>(i2d_TS_REQ, request.get());
    if (out.empty()) {
        Fail(TspErrInternal, "EncodeRequest: i2d_TS_REQ failed");
    }
    return out;
}

TspTimeStamp CheckResponse(const unsigned char* der, std::size_t length,
                           const RequestFacts& facts) {
    TsRespPtr response = qorssl::DecodeWhole<TsRespPtr>(d2i_TS_RESP, der, length);
    if (!response) {
        Fail(TspErrBadResponse, "CheckResponse: the answer (" + std::to_string(length) +
                                    " bytes) is not a TimeStampResp");
    }
    TS_STATUS_INFO* info = TS_RESP_get_status_info(response.get());
    const long status = ASN1_INTEGER_get(TS_STATUS_INFO_get0_status(info));
    if (status != TS_STATUS_GRANTED && status != TS_STATUS_GRANTED_WITH_MODS) {
        Fail(TspErrRejected, "CheckResponse: the TSA refused: " + DescribeStatus(info, status));
    }

    const unsigned char* tokenDer = nullptr;
    std::size_t tokenLength = 0;
    std::vector<unsigned char> reencoded;
    if (!TokenBytes(der, length, &tokenDer, &tokenLength)) {
        reencoded = qorssl::Encode<PKCS7>(i2d_PKCS7, TS_RESP_get_token(response.get()));
        tokenDer = reencoded.data();
        tokenLength = reencoded.size();
    }
    TspTimeStamp stamp;
    try {
        stamp.Decode(tokenDer, static_cast<unsigned int>(tokenLength));
    } catch (const TspException& e) {
        Fail(TspErrBadResponse, "CheckResponse: " + std::string(qorstd::text::WideToCharset(
                                                                    e.GetErrorMessage().c_str(),
                                                                    qorstd::text::kCharsetUtf8)
                                                                    .c_str()));
    }

    const std::string expectedNonce = facts.nonce.empty() ? "" : NonceHex(facts.nonce);
    if (expectedNonce != stamp.GetNonceHex().c_str()) {
        Fail(
            TspErrNonceMismatch,
            "CheckResponse: nonce " +
                std::string(stamp.GetNonceHex().empty() ? "missing" : stamp.GetNonceHex().c_str()) +
                ", expected " + expectedNonce);
    }
    const TspMessageImprint& imprint = stamp.GetMessageImprint();
    if (imprint.GetHashAlgorithm() != facts.algorithm) {
        Fail(TspErrImprintMismatch, "CheckResponse: the token's imprint algorithm is not " +
                                        std::string(GetHashName(facts.algorithm)));
    }
    const TspArray<unsigned char>& hashed = imprint.GetHashedMessage();
    if (hashed.GetSize() != facts.imprint.size() ||
        (!facts.imprint.empty() &&
         std::memcmp(hashed.GetData(), facts.imprint.data(), facts.imprint.size()) != 0)) {
        Fail(TspErrImprintMismatch, "CheckResponse: the token's imprint bytes differ");
    }
    if (!facts.policyId.empty() && facts.policyId != stamp.GetPolicyId().c_str()) {
        Fail(TspErrPolicyMismatch, "CheckResponse: policy " +
                                       std::string(stamp.GetPolicyId().c_str()) + ", requested " +
                                       facts.policyId);
    }
    return stamp;
}

}  // namespace protocol
}  // namespace QorTsp2Lib
