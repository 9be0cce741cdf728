// An in-process time-stamp authority over OpenSSL's TS_RESP_CTX: replies with
// a pinned genTime, with or without the TSA certificate, refusals, and
// replies that deliberately miss the request's nonce or imprint.
#pragma once

#include <openssl/evp.h>

#include <cstdint>
#include <string>
#include <vector>

#include "TestPki.h"

namespace tessera_test {

using Bytes = std::vector<unsigned char>;

// How the next reply differs from a plain, granted one.
struct TsaReply {
    std::int64_t genTime = UtcTime(2024, 6, 1, 12, 0, 0);
    long genTimeMicros = 0;
    // Digits of fractional seconds in genTime (0 = whole seconds).
    unsigned precisionDigits = 0;
    long serial = 42;
    // Accuracy; all zero = none in the token.
    int accuracySeconds = 0;
    int accuracyMillis = 0;
    int accuracyMicros = 0;
    // Put the CA certificate beside the TSA's when the request asks for certificates.
    bool includeChain = false;
    // A status other than granted (e.g. TS_STATUS_REJECTION), with an
    // optional failure bit (TS_INFO_*) and text. -1 grants.
    int refuseStatus = -1;
    // Grant with status grantedWithMods instead of granted.
    bool grantedWithMods = false;
    int failureInfo = -1;
    std::string statusText;
    // Answer a request that differs from the one received.
    bool alterNonce = false;
    bool dropNonce = false;
    bool alterImprint = false;
    // Replace the imprint's algorithm by SHA3-256 (same size as SHA-256).
    bool sha3Imprint = false;
};

class TestTsa {
public:
    // A CA and a TSA certificate (critical EKU timeStamping) issued by it;
    // `certificateDigest` signs the TSA certificate. RSA keys come from the
    // process-wide pool (slots `poolSlot` and `poolSlot` + 1). The TSA
    // certificate ends at `tsaNotAfter`.
    explicit TestTsa(KeyKind tsaKey = KeyKind::EcP256,
                     const EVP_MD* certificateDigest = EVP_sha256(),
                     KeyKind caKey = KeyKind::EcP256,
                     std::int64_t tsaNotAfter = UtcTime(2040, 1, 1), int poolSlot = 30);

    const Issued& Ca() const { return m_ca; }
    const Issued& Tsa() const { return m_tsa; }
    // The policy of every token; "1.2.3.4.5" is accepted on request too.
    static const char* DefaultPolicy() { return "1.2.3.4.1"; }
    static const char* OtherPolicy() { return "1.2.3.4.5"; }

    // DER TimeStampReq. An empty nonce leaves it out; `policy` empty leaves
    // the choice to the TSA.
    static Bytes Request(const EVP_MD* md, const Bytes& imprint, const Bytes& nonce, bool certReq,
                         const std::string& policy = "");
    // DER TimeStampResp answering `request` as `reply` says.
    Bytes Respond(const Bytes& request, const TsaReply& reply = TsaReply()) const;
    // The token (ContentInfo DER) of a granted reply; throws when there is none.
    static Bytes TokenOf(const Bytes& response);
    // Shortcut: a token over `imprint` without nonce.
    Bytes Token(const EVP_MD* md, const Bytes& imprint, bool withCertificate,
                const TsaReply& reply = TsaReply()) const;

    static Bytes Digest(const EVP_MD* md, const std::string& data);

private:
    Issued m_ca;
    Issued m_tsa;
};

}  // namespace tessera_test
