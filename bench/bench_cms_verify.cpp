// Verifying a CMS signature: 1 KiB of embedded content signed with RSA-2048
// and SHA-256, with signed attributes, the signer certificate in the message.
//
// "cms_verify_1k": both sides start from the DER each round, SignedCms::Decode
// and Verify without a certificate check against d2i_CMS_ContentInfo and
// CMS_verify with CMS_NO_SIGNER_CERT_VERIFY | CMS_BINARY (no output stream).
// "cms_verify_1k_decoded": the same checks again and again on a message
// decoded once, which leaves out what decoding costs on either side.

#include <benchmark/benchmark.h>
#include <openssl/cms.h>

#include <vector>

#include "OpenSslPtr.h"
#include "SignedCms.h"
#include "TestPki.h"
#include "VerifierCms.h"

namespace {

using namespace tessera_test;

std::vector<unsigned char> SignedMessage() {
    CertPlan plan;
    plan.commonName = "Bench Signer";
    plan.keyKind = KeyKind::Rsa2048;
    plan.extensions = {{"keyUsage", "critical,digitalSignature,nonRepudiation"}};
    const Issued signer = IssueCertificate(plan, nullptr);
    const std::vector<unsigned char> content(1024, 0x5a);
    qorssl::BioPtr in(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
    qorssl::CmsContentInfoPtr cms(CMS_sign(signer.cert.get(), signer.key.get(), nullptr, in.get(),
                                           CMS_BINARY | CMS_NOSMIMECAP));
    std::vector<unsigned char> der;
    if (cms) {
        der.resize(static_cast<std::size_t>(i2d_CMS_ContentInfo(cms.get(), nullptr)));
        unsigned char* cursor = der.data();
        i2d_CMS_ContentInfo(cms.get(), &cursor);
    }
    return der;
}

const std::vector<unsigned char>& Message() {
    static const std::vector<unsigned char> der = SignedMessage();
    return der;
}

void BM_Tessera(benchmark::State& state) {
    const qorstd::QorArray<unsigned char> der(Message().data(),
                                              static_cast<unsigned int>(Message().size()));
    TesseraLib::VerifierCms verifier;
    verifier.SetVerifyOption(TesseraLib::VerifierCms::cptVerifyNone);
    for (auto _ : state) {
        try {
            TesseraLib::SignedCms cms;
            cms.Decode(der);
            cms.Verify(verifier, TesseraLib::SignedCms::cptCmsBasic);
        } catch (...) {
            state.SkipWithError("verification failed");
            break;
        }
    }
}

void BM_OpenSsl(benchmark::State& state) {
    for (auto _ : state) {
        const unsigned char* cursor = Message().data();
        qorssl::CmsContentInfoPtr cms(
            d2i_CMS_ContentInfo(nullptr, &cursor, static_cast<long>(Message().size())));
        if (!cms || CMS_verify(cms.get(), nullptr, nullptr, nullptr, nullptr,
                               CMS_NO_SIGNER_CERT_VERIFY | CMS_BINARY) != 1) {
            state.SkipWithError("verification failed");
            break;
        }
    }
}

void BM_TesseraDecoded(benchmark::State& state) {
    TesseraLib::SignedCms cms;
    cms.Decode(qorstd::QorArray<unsigned char>(Message().data(),
                                               static_cast<unsigned int>(Message().size())));
    TesseraLib::VerifierCms verifier;
    verifier.SetVerifyOption(TesseraLib::VerifierCms::cptVerifyNone);
    for (auto _ : state) {
        try {
            cms.Verify(verifier, TesseraLib::SignedCms::cptCmsBasic);
        } catch (...) {
            state.SkipWithError("verification failed");
            break;
        }
    }
}

void BM_OpenSslDecoded(benchmark::State& state) {
    const unsigned char* cursor = Message().data();
    qorssl::CmsContentInfoPtr cms(
        d2i_CMS_ContentInfo(nullptr, &cursor, static_cast<long>(Message().size())));
    for (auto _ : state) {
        if (!cms || CMS_verify(cms.get(), nullptr, nullptr, nullptr, nullptr,
                               CMS_NO_SIGNER_CERT_VERIFY | CMS_BINARY) != 1) {
            state.SkipWithError("verification failed");
            break;
        }
    }
}

}  // namespace

BENCHMARK(BM_Tessera)->Name("cms_verify_1k/tessera");
BENCHMARK(BM_OpenSsl)->Name("cms_verify_1k/openssl");
BENCHMARK(BM_TesseraDecoded)->Name("cms_verify_1k_decoded/tessera");
BENCHMARK(BM_OpenSslDecoded)->Name("cms_verify_1k_decoded/openssl");
