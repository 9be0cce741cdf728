// CAdES-BES over 1 KiB of embedded content, RSA-2048 and SHA-256, the signer
// certificate issued by a root that both sides trust:
//
//   Bench CAdES Root (trusted)
//    └── Bench CAdES Signer (RSA-2048, carried in the message)
//
// "cades_sign_1k": SignedCades::Sign with a BES signer against CMS_sign with
// CMS_CADES (OpenSSL adds the same signing-certificate v2 attribute), both
// with signing time and without S/MIME capabilities.
// "cades_verify_1k": both start from the DER that CMS_sign made each round:
// decode and SignedCades::Verify (path to the root, no revocation) against
// d2i_CMS_ContentInfo and CMS_verify with CMS_CADES, which checks the
// attribute and makes OpenSSL build the same path; both at the same time.

#include <benchmark/benchmark.h>
#include <openssl/cms.h>
#include <openssl/x509_vfy.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "CryptHash.h"
#include "CryptKey.h"
#include "OpenSslPtr.h"
#include "SignedCades.h"
#include "SignerCades.h"
#include "TestPki.h"
#include "VerifierCades.h"
#include "X509Certificate.h"
#include "X509ChainPolicy.h"
#include "X509Store.h"

namespace {

using namespace tessera_test;

const std::int64_t kCheckTime = UtcTime(2024, 7, 15, 12);
constexpr unsigned int kFlags = CMS_BINARY | CMS_NOSMIMECAP | CMS_CADES;

struct Pki {
    Issued root;
    Issued signer;
    std::vector<unsigned char> content = std::vector<unsigned char>(1024, 0x5a);
    std::vector<unsigned char> message;  // made by CMS_sign

    Pki() {
        CertPlan rootProfile = BasicProfile("Bench CAdES Root", 1, true);
        rootProfile.keyKind = KeyKind::Rsa2048;
        root = IssueCertificate(rootProfile, nullptr);
        CertPlan signerProfile = BasicProfile("Bench CAdES Signer", 2, false);
        signerProfile.keyKind = KeyKind::Rsa2048;
        signer = IssueCertificate(signerProfile, &root);

        qorssl::BioPtr in(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
        qorssl::CmsContentInfoPtr cms(
            CMS_sign(signer.cert.get(), signer.key.get(), nullptr, in.get(), kFlags));
        if (cms) {
            message.resize(static_cast<std::size_t>(i2d_CMS_ContentInfo(cms.get(), nullptr)));
            unsigned char* cursor = message.data();
            i2d_CMS_ContentInfo(cms.get(), &cursor);
        }
    }
};

const Pki& SharedPki() {
    static const Pki pki;
    return pki;
}

void BM_SignTessera(benchmark::State& state) {
    const Pki& pki = SharedPki();
    const std::vector<unsigned char> der = CertToDer(pki.signer.cert.get());
    TesseraLib::X509Certificate cert(der.data(), static_cast<long>(der.size()));
    const std::unique_ptr<TesseraLib::CryptKey> key(
        TesseraLib::CryptKey::CreateKey(pki.signer.key.get()));
    cert.SetPrivateKey(key.get());
    TesseraLib::SignerCades signer(cert);
    signer.SetHashAlgorithm(TesseraLib::CryptHash::cptHashSHA256);
    signer.SetIncludeOption(TesseraLib::SignerCms::cptIncludeSignerCertificate);
    signer.SetAttributeOption(TesseraLib::SignerCms::cptAttributeDefault);
    const qorstd::QorArray<unsigned char> content(pki.content.data(),
                                                  static_cast<unsigned int>(pki.content.size()));
    for (auto _ : state) {
        TesseraLib::SignedCades cades(content);
        cades.Sign(signer, TesseraLib::SignedCades::cptCadesBes, 0);
        benchmark::DoNotOptimize(cades.GetCms());
    }
}

void BM_SignOpenSsl(benchmark::State& state) {
    const Pki& pki = SharedPki();
    for (auto _ : state) {
        qorssl::BioPtr in(
            BIO_new_mem_buf(pki.content.data(), static_cast<int>(pki.content.size())));
        qorssl::CmsContentInfoPtr cms(
            CMS_sign(pki.signer.cert.get(), pki.signer.key.get(), nullptr, in.get(), kFlags));
        if (!cms) {
            state.SkipWithError("CMS_sign failed");
            break;
        }
        benchmark::DoNotOptimize(cms.get());
    }
}

void BM_VerifyTessera(benchmark::State& state) {
    const Pki& pki = SharedPki();
    const std::vector<unsigned char> rootDer = CertToDer(pki.root.cert.get());
    TesseraLib::X509MemoryStore trust;
    trust.AddCertificate(
        TesseraLib::X509Certificate(rootDer.data(), static_cast<long>(rootDer.size())));
    TesseraLib::X509ChainPolicy policy;
    policy.SetTrustStore(&trust);
    policy.SetChainBuildMode(TesseraLib::X509ChainPolicy::cptChainBuildStores);
    policy.SetRevocationOption(TesseraLib::X509ChainPolicy::revOptionNone);
    TesseraLib::VerifierCades verifier;
    verifier.SetVerifyOption(TesseraLib::VerifierCms::cptVerifyWholeChain);
    verifier.SetVerifyTime(kCheckTime);
    verifier.SetChainPolicy(&policy);
    const qorstd::QorArray<unsigned char> der(pki.message.data(),
                                              static_cast<unsigned int>(pki.message.size()));
    for (auto _ : state) {
        try {
            TesseraLib::SignedCades cades;
            cades.Decode(der);
            cades.Verify(verifier, TesseraLib::SignedCades::cptCadesBes);
        } catch (...) {
            state.SkipWithError("verification failed");
            break;
        }
    }
}

void BM_VerifyOpenSsl(benchmark::State& state) {
    const Pki& pki = SharedPki();
    qorssl::X509StorePtr store(X509_STORE_new());
    X509_STORE_add_cert(store.get(), pki.root.cert.get());
    X509_VERIFY_PARAM_set_time(X509_STORE_get0_param(store.get()), static_cast<time_t>(kCheckTime));
    for (auto _ : state) {
        const unsigned char* cursor = pki.message.data();
        qorssl::CmsContentInfoPtr cms(
            d2i_CMS_ContentInfo(nullptr, &cursor, static_cast<long>(pki.message.size())));
        if (!cms || CMS_verify(cms.get(), nullptr, store.get(), nullptr, nullptr,
                               CMS_BINARY | CMS_CADES) != 1) {
            state.SkipWithError("verification failed");
            break;
        }
    }
}

}  // namespace

BENCHMARK(BM_SignTessera)->Name("cades_sign_1k/tessera");
BENCHMARK(BM_SignOpenSsl)->Name("cades_sign_1k/openssl");
BENCHMARK(BM_VerifyTessera)->Name("cades_verify_1k/tessera");
BENCHMARK(BM_VerifyOpenSsl)->Name("cades_verify_1k/openssl");
