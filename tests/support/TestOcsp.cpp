#include "TestOcsp.h"

#include <openssl/asn1t.h>
#include <openssl/err.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace tessera_test {

namespace {

[[noreturn]] void Fail(const std::string& what) {
    ERR_print_errors_fp(stderr);
    throw std::runtime_error("test OCSP: " + what + " failed");
}

struct BasicFree {
    void operator()(OCSP_BASICRESP* b) const { OCSP_BASICRESP_free(b); }
};
struct ResponseFree {
    void operator()(OCSP_RESPONSE* r) const { OCSP_RESPONSE_free(r); }
};
struct CertIdFree {
    void operator()(OCSP_CERTID* c) const { OCSP_CERTID_free(c); }
};
struct TimeFree {
    void operator()(ASN1_TIME* t) const { ASN1_TIME_free(t); }
};
using TimePtr = std::unique_ptr<ASN1_TIME, TimeFree>;

TimePtr GeneralizedTime(std::int64_t seconds) {
    TimePtr time(ASN1_GENERALIZEDTIME_set(nullptr, static_cast<time_t>(seconds)));
    if (!time) {
        Fail("time");
    }
    return time;
}

// OCSP_basic_sign stamps producedAt with the current time; put the chosen
// one in and sign the response data again.
void PinProducedAt(OCSP_BASICRESP* basic, const OcspResponsePlan& profile) {
    auto* producedAt = const_cast<ASN1_GENERALIZEDTIME*>(OCSP_resp_get0_produced_at(basic));
    if (ASN1_GENERALIZEDTIME_set(producedAt, static_cast<time_t>(profile.producedAt)) == nullptr) {
        Fail("producedAt");
    }
    auto* data = const_cast<OCSP_RESPDATA*>(OCSP_resp_get0_respdata(basic));
    auto* algorithm = const_cast<X509_ALGOR*>(OCSP_resp_get0_tbs_sigalg(basic));
    auto* signature = reinterpret_cast<ASN1_BIT_STRING*>(
        const_cast<ASN1_OCTET_STRING*>(OCSP_resp_get0_signature(basic)));
    if (ASN1_item_sign(ASN1_ITEM_rptr(OCSP_RESPDATA), algorithm, nullptr, signature, data,
                       profile.signer->key.get(), EVP_sha256()) <= 0) {
        Fail("re-signing");
    }
}

}  // namespace

OcspResponsePlan OcspPlan(const Issued* signer, X509* issuer, std::vector<OcspAnswer> answers,
                          std::int64_t producedAt) {
    OcspResponsePlan plan;
    plan.signer = signer;
    plan.issuer = issuer;
    plan.answers = std::move(answers);
    plan.producedAt = producedAt;
    return plan;
}

std::vector<unsigned char> MakeOcspResponse(const OcspResponsePlan& profile) {
    std::unique_ptr<OCSP_RESPONSE, ResponseFree> response;
    if (profile.responseStatus != OCSP_RESPONSE_STATUS_SUCCESSFUL) {
        response.reset(OCSP_response_create(profile.responseStatus, nullptr));
    } else {
        if (profile.signer == nullptr) {
            Fail("a signer is needed");
        }
        std::unique_ptr<OCSP_BASICRESP, BasicFree> basic(OCSP_BASICRESP_new());
        for (const OcspAnswer& answer : profile.answers) {
            std::unique_ptr<OCSP_CERTID, CertIdFree> id(
                OCSP_cert_to_id(profile.certIdDigest, answer.certificate, profile.issuer));
            TimePtr revoked = answer.status == V_OCSP_CERTSTATUS_REVOKED
                                  ? GeneralizedTime(answer.revocationTime)
                                  : TimePtr();
            TimePtr thisUpdate = GeneralizedTime(answer.thisUpdate);
            TimePtr nextUpdate =
                answer.nextUpdate != 0 ? GeneralizedTime(answer.nextUpdate) : TimePtr();
            if (!id || OCSP_basic_add1_status(basic.get(), id.get(), answer.status, answer.reason,
                                              revoked.get(), thisUpdate.get(),
                                              nextUpdate.get()) == nullptr) {
                Fail("adding an answer");
            }
        }
        if (!profile.nonce.empty()) {
            std::vector<unsigned char> nonce(profile.nonce);
            if (OCSP_basic_add1_nonce(basic.get(), nonce.data(), static_cast<int>(nonce.size())) !=
                1) {
                Fail("nonce");
            }
        }
        unsigned long flags = 0;
        if (!profile.includeSignerCertificate) {
            flags |= OCSP_NOCERTS;
        }
        if (profile.responderByKeyHash) {
            flags |= OCSP_RESPID_KEY;
        }
        if (OCSP_basic_sign(basic.get(), profile.signer->cert.get(), profile.signer->key.get(),
                            EVP_sha256(), nullptr, flags) != 1) {
            Fail("signing");
        }
        PinProducedAt(basic.get(), profile);
        response.reset(OCSP_response_create(OCSP_RESPONSE_STATUS_SUCCESSFUL, basic.get()));
    }
    if (!response) {
        Fail("response");
    }
    unsigned char* der = nullptr;
    const int length = i2d_OCSP_RESPONSE(response.get(), &der);
    if (length <= 0) {
        Fail("encoding");
    }
    std::vector<unsigned char> out(der, der + length);
    OPENSSL_free(der);
    return out;
}

}  // namespace tessera_test
