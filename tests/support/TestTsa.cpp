#include "TestTsa.h"

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/objects.h>
#include <openssl/pkcs7.h>
#include <openssl/ts.h>
#include <openssl/x509.h>

#include <memory>
#include <stdexcept>
#include <utility>

namespace tessera_test {

namespace {

template <class T, void (*Free)(T*)>
struct Deleter {
    void operator()(T* handle) const { Free(handle); }
};
template <class T, void (*Free)(T*)>
using Owned = std::unique_ptr<T, Deleter<T, Free>>;

using BioPtr = Owned<BIO, BIO_free_all>;
using TsReqPtr = Owned<TS_REQ, TS_REQ_free>;
using TsRespPtr = Owned<TS_RESP, TS_RESP_free>;
using TsRespCtxPtr = Owned<TS_RESP_CTX, TS_RESP_CTX_free>;
using TsMsgImprintPtr = Owned<TS_MSG_IMPRINT, TS_MSG_IMPRINT_free>;
using X509AlgorPtr = Owned<X509_ALGOR, X509_ALGOR_free>;
using Asn1ObjectPtr = Owned<ASN1_OBJECT, ASN1_OBJECT_free>;
using Asn1IntegerPtr = Owned<ASN1_INTEGER, ASN1_INTEGER_free>;
using BignumPtr = Owned<BIGNUM, BN_free>;

void FreeX509Stack(STACK_OF(X509) * stack) {
    sk_X509_pop_free(stack, X509_free);
}
using X509StackPtr = Owned<STACK_OF(X509), FreeX509Stack>;

[[noreturn]] void Fail(const std::string& what) {
    throw std::runtime_error("test TSA: " + what + " failed");
}

void Check(int result, const char* what) {
    if (result != 1) {
        Fail(what);
    }
}

template <class T>
Bytes Encode(int (*i2d)(const T*, unsigned char**), const T* value) {
    const int length = i2d(value, nullptr);
    if (length <= 0) {
        Fail("encoding");
    }
    Bytes out(static_cast<std::size_t>(length));
    unsigned char* cursor = out.data();
    i2d(value, &cursor);
    return out;
}

int PinnedTime(TS_RESP_CTX* /*ctx*/, void* data, long* seconds, long* micros) {
    const TsaReply* reply = static_cast<const TsaReply*>(data);
    *seconds = static_cast<long>(reply->genTime);
    *micros = reply->genTimeMicros;
    return 1;
}

// Serial callback that refuses instead: the status it sets survives because
// OpenSSL only overwrites a status that is still "granted".
ASN1_INTEGER* Refuse(TS_RESP_CTX* ctx, void* data) {
    const TsaReply* reply = static_cast<const TsaReply*>(data);
    TS_RESP_CTX_set_status_info(ctx, reply->refuseStatus,
                                reply->statusText.empty() ? nullptr : reply->statusText.c_str());
    if (reply->failureInfo >= 0) {
        TS_RESP_CTX_add_failure_info(ctx, reply->failureInfo);
    }
    return nullptr;
}

ASN1_INTEGER* FixedSerial(TS_RESP_CTX* ctx, void* data) {
    const TsaReply* reply = static_cast<const TsaReply*>(data);
    if (reply->grantedWithMods &&
        TS_RESP_CTX_set_status_info(ctx, TS_STATUS_GRANTED_WITH_MODS, "modified") != 1) {
        return nullptr;
    }
    ASN1_INTEGER* serial = ASN1_INTEGER_new();
    if (serial != nullptr && ASN1_INTEGER_set(serial, reply->serial) != 1) {
        ASN1_INTEGER_free(serial);
        return nullptr;
    }
    return serial;
}

Bytes Alter(const Bytes& request, const TsaReply& reply) {
    const unsigned char* cursor = request.data();
    TsReqPtr parsed(d2i_TS_REQ(nullptr, &cursor, static_cast<long>(request.size())));
    if (!parsed) {
        Fail("decoding the request");
    }
    if (reply.dropNonce) {
        // OpenSSL cannot unset a nonce: copy everything else into a fresh request.
        TsReqPtr plain(TS_REQ_new());
        if (!plain) {
            Fail("allocating a request");
        }
        Check(TS_REQ_set_version(plain.get(), 1), "version");
        Check(TS_REQ_set_msg_imprint(plain.get(), TS_REQ_get_msg_imprint(parsed.get())), "imprint");
        Check(TS_REQ_set_cert_req(plain.get(), TS_REQ_get_cert_req(parsed.get())), "certReq");
        if (TS_REQ_get_policy_id(parsed.get()) != nullptr) {
            Check(TS_REQ_set_policy_id(plain.get(), TS_REQ_get_policy_id(parsed.get())), "policy");
        }
        parsed = std::move(plain);
    } else if (reply.alterNonce) {
        const ASN1_INTEGER* nonce = TS_REQ_get_nonce(parsed.get());
        BignumPtr number(nonce != nullptr ? ASN1_INTEGER_to_BN(nonce, nullptr) : BN_new());
        Asn1IntegerPtr other;
        if (number && BN_add_word(number.get(), 1) == 1) {
            other.reset(BN_to_ASN1_INTEGER(number.get(), nullptr));
        }
        if (!other) {
            Fail("altering the nonce");
        }
        Check(TS_REQ_set_nonce(parsed.get(), other.get()), "setting the nonce");
    }
    TS_MSG_IMPRINT* imprint = TS_REQ_get_msg_imprint(parsed.get());
    if (reply.alterImprint) {
        ASN1_OCTET_STRING* hashed = TS_MSG_IMPRINT_get_msg(imprint);
        Bytes bytes(ASN1_STRING_get0_data(hashed),
                    ASN1_STRING_get0_data(hashed) + ASN1_STRING_length(hashed));
        bytes[0] ^= 0x01;
        Check(ASN1_OCTET_STRING_set(hashed, bytes.data(), static_cast<int>(bytes.size())),
              "altering the imprint");
    }
    if (reply.sha3Imprint) {
        X509AlgorPtr algorithm(X509_ALGOR_new());
        if (!algorithm) {
            Fail("allocating an algorithm");
        }
        Check(X509_ALGOR_set0(algorithm.get(), OBJ_nid2obj(NID_sha3_256), V_ASN1_NULL, nullptr),
              "setting SHA3-256");
        Check(TS_MSG_IMPRINT_set_algo(imprint, algorithm.get()), "replacing the algorithm");
    }
    return Encode<TS_REQ>(i2d_TS_REQ, parsed.get());
}

}  // namespace

TestTsa::TestTsa(KeyKind tsaKey, const EVP_MD* certificateDigest, KeyKind caKey,
                 std::int64_t tsaNotAfter, int poolSlot) {
    // Pool slots of their own, apart from the low ones tests use for signers.
    const KeyPtr caPooled = caKey == KeyKind::EcP256 ? nullptr : CachedKey(caKey, poolSlot);
    const KeyPtr tsaPooled = tsaKey == KeyKind::EcP256 ? nullptr : CachedKey(tsaKey, poolSlot + 1);
    CertPlan ca = BasicProfile("Test TSA Root", 1, true);
    ca.keyKind = caKey;
    ca.key = caPooled.get();
    m_ca = IssueCertificate(ca, nullptr);
    CertPlan tsa = BasicProfile("Test TSA", 7, false);
    tsa.keyKind = tsaKey;
    tsa.key = tsaPooled.get();
    tsa.digest = certificateDigest;
    tsa.notAfter = tsaNotAfter;
    tsa.extensions.push_back({"extendedKeyUsage", "critical,timeStamping"});
    m_tsa = IssueCertificate(tsa, &m_ca);
}

Bytes TestTsa::Request(const EVP_MD* md, const Bytes& imprint, const Bytes& nonce, bool certReq,
                       const std::string& policy) {
    TsReqPtr request(TS_REQ_new());
    TsMsgImprintPtr messageImprint(TS_MSG_IMPRINT_new());
    X509AlgorPtr algorithm(X509_ALGOR_new());
    if (!request || !messageImprint || !algorithm) {
        Fail("allocating a request");
    }
    Check(X509_ALGOR_set0(algorithm.get(), OBJ_nid2obj(EVP_MD_get_type(md)), V_ASN1_NULL, nullptr),
          "setting the algorithm");
    Check(TS_MSG_IMPRINT_set_algo(messageImprint.get(), algorithm.get()), "imprint algorithm");
    Check(TS_MSG_IMPRINT_set_msg(messageImprint.get(), const_cast<unsigned char*>(imprint.data()),
                                 static_cast<int>(imprint.size())),
          "imprint bytes");
    Check(TS_REQ_set_version(request.get(), 1), "version");
    Check(TS_REQ_set_msg_imprint(request.get(), messageImprint.get()), "imprint");
    Check(TS_REQ_set_cert_req(request.get(), certReq ? 1 : 0), "certReq");
    if (!nonce.empty()) {
        BignumPtr number(BN_bin2bn(nonce.data(), static_cast<int>(nonce.size()), nullptr));
        Asn1IntegerPtr value(number ? BN_to_ASN1_INTEGER(number.get(), nullptr) : nullptr);
        if (!value) {
            Fail("nonce");
        }
        Check(TS_REQ_set_nonce(request.get(), value.get()), "setting the nonce");
    }
    if (!policy.empty()) {
        Asn1ObjectPtr oid(OBJ_txt2obj(policy.c_str(), 1));
        if (!oid) {
            Fail("policy OID");
        }
        Check(TS_REQ_set_policy_id(request.get(), oid.get()), "setting the policy");
    }
    return Encode<TS_REQ>(i2d_TS_REQ, request.get());
}

Bytes TestTsa::Respond(const Bytes& request, const TsaReply& reply) const {
    TsRespCtxPtr ctx(TS_RESP_CTX_new());
    Asn1ObjectPtr policy(OBJ_txt2obj(DefaultPolicy(), 1));
    Asn1ObjectPtr other(OBJ_txt2obj(OtherPolicy(), 1));
    if (!ctx || !policy || !other) {
        Fail("allocating the response context");
    }
    Check(TS_RESP_CTX_set_signer_cert(ctx.get(), m_tsa.cert.get()), "signer certificate");
    Check(TS_RESP_CTX_set_signer_key(ctx.get(), m_tsa.key.get()), "signer key");
    Check(TS_RESP_CTX_set_signer_digest(ctx.get(), EVP_sha256()), "signer digest");
    Check(TS_RESP_CTX_set_ess_cert_id_digest(ctx.get(), EVP_sha256()), "ESS digest");
    Check(TS_RESP_CTX_set_def_policy(ctx.get(), policy.get()), "default policy");
    Check(TS_RESP_CTX_add_policy(ctx.get(), other.get()), "other policy");
    for (const EVP_MD* md :
         {EVP_sha1(), EVP_sha224(), EVP_sha256(), EVP_sha384(), EVP_sha512(), EVP_sha3_256()}) {
        Check(TS_RESP_CTX_add_md(ctx.get(), md), "accepted digest");
    }
    if (reply.accuracySeconds != 0 || reply.accuracyMillis != 0 || reply.accuracyMicros != 0) {
        Check(TS_RESP_CTX_set_accuracy(ctx.get(), reply.accuracySeconds, reply.accuracyMillis,
                                       reply.accuracyMicros),
              "accuracy");
    }
    Check(TS_RESP_CTX_set_clock_precision_digits(ctx.get(), reply.precisionDigits), "precision");
    if (reply.includeChain) {
        X509StackPtr chain(sk_X509_new_null());
        if (!chain || sk_X509_push(chain.get(), m_ca.cert.get()) <= 0) {
            Fail("chain");
        }
        X509_up_ref(m_ca.cert.get());
        Check(TS_RESP_CTX_set_certs(ctx.get(), chain.get()), "chain certificates");
    }
    // The callbacks read `reply`, which outlives the context.
    void* data = const_cast<TsaReply*>(&reply);
    TS_RESP_CTX_set_time_cb(ctx.get(), PinnedTime, data);
    TS_RESP_CTX_set_serial_cb(ctx.get(), reply.refuseStatus >= 0 ? Refuse : FixedSerial, data);

    const bool altered =
        reply.alterNonce || reply.dropNonce || reply.alterImprint || reply.sha3Imprint;
    const Bytes answered = altered ? Alter(request, reply) : request;
    BioPtr input(BIO_new_mem_buf(answered.data(), static_cast<int>(answered.size())));
    if (!input) {
        Fail("request buffer");
    }
    TsRespPtr response(TS_RESP_create_response(ctx.get(), input.get()));
    if (!response) {
        Fail("TS_RESP_create_response");
    }
    return Encode<TS_RESP>(i2d_TS_RESP, response.get());
}

Bytes TestTsa::TokenOf(const Bytes& response) {
    const unsigned char* cursor = response.data();
    TsRespPtr parsed(d2i_TS_RESP(nullptr, &cursor, static_cast<long>(response.size())));
    if (!parsed || TS_RESP_get_token(parsed.get()) == nullptr) {
        Fail("taking the token of a reply");
    }
    return Encode<PKCS7>(i2d_PKCS7, TS_RESP_get_token(parsed.get()));
}

Bytes TestTsa::Token(const EVP_MD* md, const Bytes& imprint, bool withCertificate,
                     const TsaReply& reply) const {
    return TokenOf(Respond(Request(md, imprint, Bytes(), withCertificate), reply));
}

Bytes TestTsa::Digest(const EVP_MD* md, const std::string& data) {
    Bytes out(EVP_MAX_MD_SIZE);
    unsigned int length = 0;
    Check(EVP_Digest(data.data(), data.size(), out.data(), &length, md, nullptr), "digest");
    out.resize(length);
    return out;
}

}  // namespace tessera_test
