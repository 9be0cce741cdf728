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
// "cades_t_verify_1k": the same signature with one signature time-stamp
// (SHA-256 over the signature value, token of the in-process TSA with its
// certificate, P-256): decode and SignedCades::Verify, which checks the
// token too, against CMS_verify with CMS_CADES plus TS_RESP_verify_token
// with the signature value's digest as imprint. Both trust the root and the
// TSA's CA, check no revocation and use the same time.
//
//   Bench TestTsa CA (trusted)
//    └── TestTsa TSA (timeStamping, carried in the token)

#include <benchmark/benchmark.h>
#include <openssl/cms.h>
#include <openssl/ts.h>
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
#include "TestTsa.h"
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
    TestTsa tsa;
    std::vector<unsigned char> stamped;  // message with a signature time-stamp

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
            stamped = Stamped(cms.get());
        }
    }

    // The DER of `cms` after its signer got a token over its signature value.
    std::vector<unsigned char> Stamped(CMS_ContentInfo* cms) const {
        CMS_SignerInfo* si = sk_CMS_SignerInfo_value(CMS_get0_SignerInfos(cms), 0);
        const ASN1_OCTET_STRING* value = CMS_SignerInfo_get0_signature(si);
        const std::string signature(reinterpret_cast<const char*>(value->data),
                                    static_cast<std::size_t>(value->length));
        const Bytes token = tsa.Token(EVP_sha256(), TestTsa::Digest(EVP_sha256(), signature), true);
        if (CMS_unsigned_add1_attr_by_NID(si, NID_id_smime_aa_timeStampToken, V_ASN1_SEQUENCE,
                                          token.data(), static_cast<int>(token.size())) != 1) {
            return {};
        }
        std::vector<unsigned char> der(static_cast<std::size_t>(i2d_CMS_ContentInfo(cms, nullptr)));
        unsigned char* cursor = der.data();
        i2d_CMS_ContentInfo(cms, &cursor);
        return der;
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

// Whole-chain verification at kCheckTime from `anchors`, no revocation.
struct TesseraTrust {
    TesseraLib::X509MemoryStore trust;
    TesseraLib::X509ChainPolicy policy;
    TesseraLib::VerifierCades verifier;
    explicit TesseraTrust(const std::vector<const Issued*>& anchors) {
        for (const Issued* anchor : anchors) {
            const std::vector<unsigned char> der = CertToDer(anchor->cert.get());
            trust.AddCertificate(
                TesseraLib::X509Certificate(der.data(), static_cast<long>(der.size())));
        }
        policy.SetTrustStore(&trust);
        policy.SetChainBuildMode(TesseraLib::X509ChainPolicy::cptChainBuildStores);
        policy.SetRevocationOption(TesseraLib::X509ChainPolicy::revOptionNone);
        verifier.SetVerifyOption(TesseraLib::VerifierCms::cptVerifyWholeChain);
        verifier.SetVerifyTime(kCheckTime);
        verifier.SetChainPolicy(&policy);
    }
    TesseraTrust(const TesseraTrust&) = delete;
    TesseraTrust& operator=(const TesseraTrust&) = delete;
};

void BM_VerifyTessera(benchmark::State& state) {
    const Pki& pki = SharedPki();
    const TesseraTrust setup({&pki.root});
    const TesseraLib::VerifierCades& verifier = setup.verifier;
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

void BM_VerifyTTessera(benchmark::State& state) {
    const Pki& pki = SharedPki();
    const TesseraTrust setup({&pki.root, &pki.tsa.Ca()});
    const TesseraLib::VerifierCades& verifier = setup.verifier;
    const qorstd::QorArray<unsigned char> der(pki.stamped.data(),
                                              static_cast<unsigned int>(pki.stamped.size()));
    for (auto _ : state) {
        try {
            TesseraLib::SignedCades cades;
            cades.Decode(der);
            cades.Verify(verifier, TesseraLib::SignedCades::cptCadesT);
            if (cades.GetSignerInfo(0)->GetTimeStamp() == nullptr) {
                state.SkipWithError("the time-stamp was not checked");
                break;
            }
        } catch (...) {
            state.SkipWithError("verification failed");
            break;
        }
    }
}

// The token of the signer's first signature time-stamp, decoded.
qorssl::Pkcs7Ptr FirstToken(CMS_SignerInfo* si) {
    const int at = CMS_unsigned_get_attr_by_NID(si, NID_id_smime_aa_timeStampToken, -1);
    const ASN1_TYPE* value =
        at < 0 ? nullptr : X509_ATTRIBUTE_get0_type(CMS_unsigned_get_attr(si, at), 0);
    if (value == nullptr || value->type != V_ASN1_SEQUENCE) {
        return nullptr;
    }
    const unsigned char* cursor = value->value.sequence->data;
    return qorssl::Pkcs7Ptr(d2i_PKCS7(nullptr, &cursor, value->value.sequence->length));
}

// The token's check as `openssl ts -verify` does it: signature with the
// TSA's path, version and imprint.
bool VerifyTokenOpenSsl(CMS_SignerInfo* si, X509_STORE* tsaStore) {
    const qorssl::Pkcs7Ptr token = FirstToken(si);
    const ASN1_OCTET_STRING* value = CMS_SignerInfo_get0_signature(si);
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (!token || EVP_Digest(value->data, static_cast<std::size_t>(value->length), digest, &length,
                             EVP_sha256(), nullptr) != 1) {
        return false;
    }
    qorssl::TsVerifyCtxPtr ctx(TS_VERIFY_CTX_new());
    qorssl::OpenSslBytesPtr imprint(static_cast<unsigned char*>(OPENSSL_memdup(digest, length)));
    if (!ctx || !imprint || X509_STORE_up_ref(tsaStore) != 1) {
        return false;
    }
    TS_VERIFY_CTX_set_store(ctx.get(), tsaStore);  // owns the reference taken
    TS_VERIFY_CTX_set_imprint(ctx.get(), imprint.release(), static_cast<long>(length));
    TS_VERIFY_CTX_set_flags(ctx.get(), TS_VFY_VERSION | TS_VFY_SIGNATURE | TS_VFY_IMPRINT);
    return TS_RESP_verify_token(ctx.get(), token.get()) == 1;
}

void BM_VerifyTOpenSsl(benchmark::State& state) {
    const Pki& pki = SharedPki();
    qorssl::X509StorePtr store(X509_STORE_new());
    X509_STORE_add_cert(store.get(), pki.root.cert.get());
    X509_VERIFY_PARAM_set_time(X509_STORE_get0_param(store.get()), static_cast<time_t>(kCheckTime));
    qorssl::X509StorePtr tsaStore(X509_STORE_new());
    X509_STORE_add_cert(tsaStore.get(), pki.tsa.Ca().cert.get());
    X509_VERIFY_PARAM_set_time(X509_STORE_get0_param(tsaStore.get()),
                               static_cast<time_t>(kCheckTime));
    for (auto _ : state) {
        const unsigned char* cursor = pki.stamped.data();
        qorssl::CmsContentInfoPtr cms(
            d2i_CMS_ContentInfo(nullptr, &cursor, static_cast<long>(pki.stamped.size())));
        if (!cms ||
            CMS_verify(cms.get(), nullptr, store.get(), nullptr, nullptr, CMS_BINARY | CMS_CADES) !=
                1 ||
            !VerifyTokenOpenSsl(sk_CMS_SignerInfo_value(CMS_get0_SignerInfos(cms.get()), 0),
                                tsaStore.get())) {
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
BENCHMARK(BM_VerifyTTessera)->Name("cades_t_verify_1k/tessera");
BENCHMARK(BM_VerifyTOpenSsl)->Name("cades_t_verify_1k/openssl");
