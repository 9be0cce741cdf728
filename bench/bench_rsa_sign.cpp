// RSA-2048 signing with SHA-256 through EVP_DigestSign: a public-only key
// whose private operation is replaced by a callback (which signs with a
// private copy held elsewhere), against the same signature made with a plain
// private key.

#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <memory>
#include <vector>

#include "CryptKey.h"

namespace {

struct PkeyFree {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
using PkeyPtr = std::unique_ptr<EVP_PKEY, PkeyFree>;

RSA* g_privateCopy = nullptr;

int SignWithCopy(int length, const unsigned char* from, unsigned char* to, RSA*, int padding) {
    return RSA_private_encrypt(length, from, to, g_privateCopy, padding);
}

struct Keys {
    PkeyPtr privateKey{EVP_RSA_gen(2048)};
    PkeyPtr publicOnly;
    Keys() {
        unsigned char* der = nullptr;
        const int length = i2d_PUBKEY(privateKey.get(), &der);
        const unsigned char* cursor = der;
        publicOnly.reset(d2i_PUBKEY(nullptr, &cursor, length));
        OPENSSL_free(der);
        g_privateCopy = EVP_PKEY_get1_RSA(privateKey.get());
    }
};

const Keys& SharedKeys() {
    static const Keys keys;
    return keys;
}

void SignLoop(benchmark::State& state, EVP_PKEY* key) {
    const std::vector<unsigned char> data(1024, 0x5a);
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> md(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    std::vector<unsigned char> signature(256);
    for (auto _ : state) {
        size_t length = signature.size();
        if (EVP_DigestSignInit(md.get(), nullptr, EVP_sha256(), nullptr, key) != 1 ||
            EVP_DigestSign(md.get(), signature.data(), &length, data.data(), data.size()) != 1) {
            state.SkipWithError("signing failed");
            break;
        }
        benchmark::DoNotOptimize(signature.data());
    }
}

void BM_Tessera(benchmark::State& state) {
    TesseraLib::CryptKeyRSA key(SharedKeys().publicOnly.get());
    key.SetPrivateEncryptCallback(SignWithCopy);
    SignLoop(state, key.GetKeyEVP());
}

void BM_OpenSsl(benchmark::State& state) {
    SignLoop(state, SharedKeys().privateKey.get());
}

}  // namespace

BENCHMARK(BM_Tessera)->Name("RSA2048_Sign/tessera");
BENCHMARK(BM_OpenSsl)->Name("RSA2048_Sign/openssl");
