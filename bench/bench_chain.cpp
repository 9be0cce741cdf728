// Path building with CRL checks of every certificate but the root:
//
//   root (trust store)
//    └── intermediate (extra store)      covered by the root's CRL
//         └── end entity (checked)        covered by the intermediate's CRL
//
// X509Chain::Build against X509_verify_cert with the same certificates, CRLs,
// check time and purpose (CRL_CHECK | CRL_CHECK_ALL). The "_extra" cases add
// 10, 100 and 1,000 unrelated certificates to the extra store (OpenSSL: to
// the untrusted certificates), ahead of the intermediate, to show how the
// cost grows with the store.

#include <benchmark/benchmark.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include <cstdint>
#include <string>
#include <vector>

#include "CryptException.h"
#include "OpenSslPtr.h"
#include "TestPki.h"
#include "X509Certificate.h"
#include "X509Chain.h"
#include "X509ChainPolicy.h"
#include "X509Crl.h"
#include "X509Store.h"

namespace {

using namespace tessera_test;

const std::int64_t kCheckTime = UtcTime(2024, 7, 15, 12);
const int kMaxUnrelated = 1000;

struct Pki {
    Issued root;
    Issued intermediate;
    Issued leaf;
    CrlPtr rootCrl;
    CrlPtr intermediateCrl;
    std::vector<CertPtr> unrelated;

    Pki() {
        CertPlan rootProfile;
        rootProfile.commonName = "Bench Root CA";
        rootProfile.extensions = CaExtensions();
        root = IssueCertificate(rootProfile, nullptr);

        CertPlan intermediateProfile;
        intermediateProfile.commonName = "Bench Intermediate CA";
        intermediateProfile.serial = 2;
        intermediateProfile.extensions = CaExtensions();
        intermediate = IssueCertificate(intermediateProfile, &root);

        CertPlan leafProfile;
        leafProfile.commonName = "Bench Signer";
        leafProfile.serial = 0x1001;
        leafProfile.extensions = {{"keyUsage", "critical,digitalSignature,nonRepudiation"}};
        leaf = IssueCertificate(leafProfile, &intermediate);

        // Each CRL lists someone else, so that the lookup has an entry to pass.
        CrlPlan crlProfile;
        crlProfile.revoked = {RevokedEntry{77, UtcTime(2024, 6, 1, 12), CRL_REASON_KEY_COMPROMISE}};
        rootCrl = IssueCrl(crlProfile, root);
        intermediateCrl = IssueCrl(crlProfile, intermediate);

        const KeyPtr sharedKey = CachedKey(KeyKind::EcP256, 1);
        for (int i = 0; i < kMaxUnrelated; ++i) {
            CertPlan profile;
            profile.commonName = "Unrelated " + std::to_string(i);
            profile.serial = 10000 + i;
            profile.key = sharedKey.get();
            unrelated.push_back(IssueCertificate(profile, nullptr).cert);
        }
    }
};

const Pki& SharedPki() {
    static const Pki pki;
    return pki;
}

void TesseraBuild(benchmark::State& state, int unrelatedCount) {
    using TesseraLib::X509ChainPolicy;
    const Pki& pki = SharedPki();
    TesseraLib::X509MemoryStore trustStore;
    trustStore.AddCertificate(TesseraLib::X509Certificate(pki.root.cert.get()));
    TesseraLib::X509MemoryStore extraStore;
    for (int i = 0; i < unrelatedCount; ++i) {
        extraStore.AddCertificate(TesseraLib::X509Certificate(pki.unrelated[i].get()));
    }
    extraStore.AddCertificate(TesseraLib::X509Certificate(pki.intermediate.cert.get()));
    extraStore.AddCrl(TesseraLib::X509Crl(pki.rootCrl.get()));
    extraStore.AddCrl(TesseraLib::X509Crl(pki.intermediateCrl.get()));

    X509ChainPolicy policy;
    policy.SetTrustStore(&trustStore);
    policy.SetExtraStore(&extraStore);
    policy.SetChainBuildMode(X509ChainPolicy::cptChainBuildStores);
    policy.SetRevocationMode(X509ChainPolicy::revCrl);
    policy.SetRevocationOption(X509ChainPolicy::revOptionChain);
    const TesseraLib::X509Certificate leaf(pki.leaf.cert.get());
    TesseraLib::X509Chain chain(&policy);
    try {
        chain.Build(&leaf, kCheckTime);
        const auto& elements = chain.GetElements();
        if (elements.GetSize() != 3 || elements[0].GetCrl() == nullptr ||
            elements[1].GetCrl() == nullptr) {
            state.SkipWithError("the path or its CRLs are not the expected ones");
            return;
        }
        for (auto _ : state) {
            chain.Build(&leaf, kCheckTime);
        }
    } catch (const TesseraLib::CryptException& e) {
        state.SkipWithError(
            ("Build failed with error " + std::to_string(e.GetErrorCode())).c_str());
    }
}

void OpenSslVerify(benchmark::State& state, int unrelatedCount) {
    using namespace qorssl;
    const Pki& pki = SharedPki();
    X509StorePtr store(X509_STORE_new());
    X509StackPtr untrusted(sk_X509_new_null());
    X509CrlStackPtr crls(sk_X509_CRL_new_null());
    if (!store || !untrusted || !crls ||
        X509_STORE_add_cert(store.get(), pki.root.cert.get()) != 1) {
        state.SkipWithError("set-up failed");
        return;
    }
    // The stacks own a reference of their own to every entry.
    for (int i = 0; i <= unrelatedCount; ++i) {
        X509Ptr cert(
            X509_dup(i < unrelatedCount ? pki.unrelated[i].get() : pki.intermediate.cert.get()));
        if (!cert || sk_X509_push(untrusted.get(), cert.get()) <= 0) {
            state.SkipWithError("set-up failed");
            return;
        }
        cert.release();
    }
    for (X509_CRL* source : {pki.rootCrl.get(), pki.intermediateCrl.get()}) {
        X509CrlPtr crl(X509_CRL_dup(source));
        if (!crl || sk_X509_CRL_push(crls.get(), crl.get()) <= 0) {
            state.SkipWithError("set-up failed");
            return;
        }
        crl.release();
    }
    for (auto _ : state) {
        X509StoreCtxPtr ctx(X509_STORE_CTX_new());
        if (!ctx || X509_STORE_CTX_init(ctx.get(), store.get(), pki.leaf.cert.get(),
                                        untrusted.get()) != 1) {
            state.SkipWithError("X509_STORE_CTX_init failed");
            break;
        }
        // The context borrows the CRL stack; it does not free it.
        X509_STORE_CTX_set0_crls(ctx.get(), crls.get());
        X509_VERIFY_PARAM* param = X509_STORE_CTX_get0_param(ctx.get());
        X509_VERIFY_PARAM_set_time(param, static_cast<time_t>(kCheckTime));
        X509_VERIFY_PARAM_set_flags(param, X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL);
        X509_STORE_CTX_set_purpose(ctx.get(), X509_PURPOSE_SMIME_SIGN);
        if (X509_verify_cert(ctx.get()) != 1) {
            state.SkipWithError(X509_verify_cert_error_string(X509_STORE_CTX_get_error(ctx.get())));
            break;
        }
    }
}

void BM_Tessera(benchmark::State& state) {
    TesseraBuild(state, 0);
}
void BM_OpenSsl(benchmark::State& state) {
    OpenSslVerify(state, 0);
}
void BM_TesseraExtra(benchmark::State& state) {
    TesseraBuild(state, static_cast<int>(state.range(0)));
}
void BM_OpenSslExtra(benchmark::State& state) {
    OpenSslVerify(state, static_cast<int>(state.range(0)));
}

}  // namespace

BENCHMARK(BM_Tessera)->Name("chain_build_3level/tessera");
BENCHMARK(BM_OpenSsl)->Name("chain_build_3level/openssl");
BENCHMARK(BM_TesseraExtra)->Name("chain_build_3level_extra/tessera")->Arg(10)->Arg(100)->Arg(1000);
BENCHMARK(BM_OpenSslExtra)->Name("chain_build_3level_extra/openssl")->Arg(10)->Arg(100)->Arg(1000);
