// OCSP responses made in-process with chosen times, signers and contents.
#pragma once

#include <openssl/ocsp.h>

#include <cstdint>
#include <vector>

#include "TestPki.h"

namespace tessera_test {

struct OcspAnswer {
    X509* certificate = nullptr;  // the certificate answered for (borrowed)
    int status = V_OCSP_CERTSTATUS_GOOD;
    int reason = -1;  // with status revoked; -1 leaves the reason out
    std::int64_t revocationTime = 0;
    std::int64_t thisUpdate = 0;
    std::int64_t nextUpdate = 0;  // 0 leaves nextUpdate out
};

struct OcspResponsePlan {
    const Issued* signer = nullptr;  // responder certificate and key
    X509* issuer = nullptr;          // issuer of the answered certificates (borrowed)
    std::vector<OcspAnswer> answers;
    std::int64_t producedAt = 0;
    bool includeSignerCertificate = true;
    bool responderByKeyHash = false;
    const EVP_MD* certIdDigest = EVP_sha1();
    std::vector<unsigned char> nonce;  // echoed nonce value, none when empty
    // Anything but successful gives a response without a basic response.
    int responseStatus = OCSP_RESPONSE_STATUS_SUCCESSFUL;
};

// A plan of a successful response: `signer` answers about certificates of
// `issuer`, produced at `producedAt`; the other settings as above.
OcspResponsePlan OcspPlan(const Issued* signer, X509* issuer, std::vector<OcspAnswer> answers,
                          std::int64_t producedAt);

// The DER of an OCSPResponse.
std::vector<unsigned char> MakeOcspResponse(const OcspResponsePlan& profile);

}  // namespace tessera_test
