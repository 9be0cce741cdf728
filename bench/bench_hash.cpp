// SHA-256 over 1 MiB: CryptHash (Update + Finish on a fresh object) against
// OpenSSL's one-shot EVP_Digest in the same run.
#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <cstdint>
#include <vector>

#include "CryptHash.h"

namespace {

constexpr unsigned int kSize = 1u << 20;

const std::vector<unsigned char>& Data() {
    static const std::vector<unsigned char> data = [] {
        std::vector<unsigned char> bytes(kSize);
        std::uint32_t state = 0x12345678u;
        for (unsigned char& byte : bytes) {
            state = state * 1664525u + 1013904223u;
            byte = static_cast<unsigned char>(state >> 24);
        }
        return bytes;
    }();
    return data;
}

void Sha256Tessera(benchmark::State& state) {
    const std::vector<unsigned char>& data = Data();
    qorstd::QorArray<unsigned char> digest;
    for (auto _ : state) {
        TesseraLib::CryptHash hash(TesseraLib::CryptHash::cptHashSHA256);
        hash.Update(data.data(), kSize);
        hash.Finish(digest);
        benchmark::DoNotOptimize(digest.GetData());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * kSize);
}

void Sha256OpenSsl(benchmark::State& state) {
    const std::vector<unsigned char>& data = Data();
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    for (auto _ : state) {
        if (EVP_Digest(data.data(), kSize, digest, &length, EVP_sha256(), nullptr) != 1) {
            state.SkipWithError("EVP_Digest failed");
            break;
        }
        benchmark::DoNotOptimize(digest);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * kSize);
}

}  // namespace

BENCHMARK(Sha256Tessera)->Name("SHA256_1MiB/tessera");
BENCHMARK(Sha256OpenSsl)->Name("SHA256_1MiB/openssl");
