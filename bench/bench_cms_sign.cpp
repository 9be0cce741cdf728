// Signing 1 KiB into an attached CMS message with signed attributes, RSA-2048
// and SHA-256: SignedCms::Sign (which checks the signer certificate's time,
// signs through its own completion step and parses the result) against
// OpenSSL's CMS_sign with the same key, certificate, content and flags
// (CMS_BINARY | CMS_NOSMIMECAP).

#include <benchmark/benchmark.h>
#include <openssl/cms.h>

#include <memory>
#include <vector>

#include "CryptHash.h"
#include "CryptKey.h"
#include "OpenSslPtr.h"
#include "SignedCms.h"
#include "SignerCms.h"
#include "TestPki.h"
#include "X509Certificate.h"

namespace {

using namespace tessera_test;

struct Signer {
    Issued issued;
    std::vector<unsigned char> content = std::vector<unsigned char>(1024, 0x5a);

    Signer() {
        CertPlan profile;
        profile.commonName = "Bench CMS Signer";
        profile.keyKind = KeyKind::Rsa2048;
        profile.notAfter = UtcTime(2049, 12, 31);
        profile.extensions = {{"keyUsage", "critical,digitalSignature,nonRepudiation"}};
        issued = IssueCertificate(profile, nullptr);
    }
};

const Signer& SharedSigner() {
    static const Signer signer;
    return signer;
}

void BM_Tessera(benchmark::State& state) {
    const Signer& shared = SharedSigner();
    const std::vector<unsigned char> der = CertToDer(shared.issued.cert.get());
    TesseraLib::X509Certificate cert(der.data(), static_cast<long>(der.size()));
    const std::unique_ptr<TesseraLib::CryptKey> key(
        TesseraLib::CryptKey::CreateKey(shared.issued.key.get()));
    cert.SetPrivateKey(key.get());
    TesseraLib::SignerCms signer(cert);
    signer.SetHashAlgorithm(TesseraLib::CryptHash::cptHashSHA256);
    signer.SetIncludeOption(TesseraLib::SignerCms::cptIncludeSignerCertificate);
    signer.SetAttributeOption(TesseraLib::SignerCms::cptAttributeDefault);
    const qorstd::QorArray<unsigned char> content(shared.content.data(),
                                                  static_cast<unsigned int>(shared.content.size()));
    for (auto _ : state) {
        TesseraLib::SignedCms cms(content);
        cms.Sign(signer, TesseraLib::SignedCms::cptCmsBasic, 0);
        benchmark::DoNotOptimize(cms.GetCms());
    }
}

void BM_OpenSsl(benchmark::State& state) {
    const Signer& shared = SharedSigner();
    for (auto _ : state) {
        qorssl::BioPtr content(
            BIO_new_mem_buf(shared.content.data(), static_cast<int>(shared.content.size())));
        qorssl::CmsContentInfoPtr cms(CMS_sign(shared.issued.cert.get(), shared.issued.key.get(),
                                               nullptr, content.get(),
                                               CMS_BINARY | CMS_NOSMIMECAP));
        if (!cms) {
            state.SkipWithError("CMS_sign failed");
            break;
        }
        benchmark::DoNotOptimize(cms.get());
    }
}

}  // namespace

BENCHMARK(BM_Tessera)->Name("cms_sign_1k/tessera");
BENCHMARK(BM_OpenSsl)->Name("cms_sign_1k/openssl");
