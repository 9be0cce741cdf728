// Path check of an end certificate whose issuer publishes a large CRL:
//
//   root (trust store)
//    └── intermediate (extra store)   its CRL lists 100,000 or 900,000 others
//         └── end entity (checked)    not listed
//
// Every run starts from the CRL's DER bytes, as a CRL read from a file does.
// Tessera imports it into the extra store and X509Chain::Build checks the end
// entity against it (CRL mode, end entity only); OpenSSL decodes it with
// d2i_X509_CRL and X509_verify_cert checks with X509_V_FLAG_CRL_CHECK. Both
// use the same certificates, check time and purpose.
//
// Besides the time, every case reports "peak_MiB": how far one run lifts the
// resident set above where it started. It is measured once per case in a
// child process, after the parent has handed its free heap pages back, so
// that memory left over from earlier runs can neither hide nor inflate it.

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <utility>
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
// The listed serial numbers start far above the end entity's.
const long kFirstListedSerial = 1000000;

struct Pki {
    Issued root;
    Issued intermediate;
    Issued leaf;

    Pki() {
        root = IssueCertificate(BasicProfile("Bench Root CA", 1, true), nullptr);
        intermediate = IssueCertificate(BasicProfile("Bench Intermediate CA", 2, true), &root);
        leaf = IssueCertificate(BasicProfile("Bench Signer", 0x1001, false), &intermediate);
    }
};

const Pki& SharedPki() {
    static const Pki pki;
    return pki;
}

// The DER of the intermediate's CRL with `entries` entries (without reason
// codes, about 22 bytes each), made on first use.
const std::vector<unsigned char>& CrlDer(int entries) {
    static std::map<int, std::vector<unsigned char>> made;
    std::vector<unsigned char>& der = made[entries];
    if (der.empty()) {
        CrlPlan plan;
        plan.revoked.reserve(static_cast<std::size_t>(entries));
        for (int i = 0; i < entries; ++i) {
            plan.revoked.push_back(RevokedEntry{kFirstListedSerial + i, UtcTime(2024, 6, 1, 12)});
        }
        der = CrlToDer(IssueCrl(plan, SharedPki().intermediate).get());
    }
    return der;
}

// One check with Tessera; an empty text when the path and its CRL are the
// expected ones, else what went wrong.
std::string TesseraCheck(const std::vector<unsigned char>& der) {
    using TesseraLib::X509ChainPolicy;
    const Pki& pki = SharedPki();
    try {
        TesseraLib::X509MemoryStore trustStore;
        trustStore.AddCertificate(TesseraLib::X509Certificate(pki.root.cert.get()));
        TesseraLib::X509MemoryStore extraStore;
        extraStore.AddCertificate(TesseraLib::X509Certificate(pki.intermediate.cert.get()));
        extraStore.AddCrl(TesseraLib::X509Crl(der.data(), static_cast<long>(der.size())));

        X509ChainPolicy policy;
        policy.SetTrustStore(&trustStore);
        policy.SetExtraStore(&extraStore);
        policy.SetChainBuildMode(X509ChainPolicy::cptChainBuildStores);
        policy.SetRevocationMode(X509ChainPolicy::revCrl);
        policy.SetRevocationOption(X509ChainPolicy::revOptionEndEntity);
        policy.SetPurpose(X509ChainPolicy::kPurposeSmimeSign);
        const TesseraLib::X509Certificate leaf(pki.leaf.cert.get());
        TesseraLib::X509Chain chain(&policy);
        chain.Build(&leaf, kCheckTime);
        const auto& elements = chain.GetElements();
        if (elements.GetSize() != 3 || elements[0].GetCrl() == nullptr) {
            return "the path or its CRL is not the expected one";
        }
    } catch (const TesseraLib::CryptException& e) {
        return "Build failed with error " + std::to_string(e.GetErrorCode());
    }
    return std::string();
}

// The same check with OpenSSL alone.
std::string OpenSslCheck(const std::vector<unsigned char>& der) {
    using namespace qorssl;
    const Pki& pki = SharedPki();
    const unsigned char* cursor = der.data();
    X509CrlPtr crl(d2i_X509_CRL(nullptr, &cursor, static_cast<long>(der.size())));
    X509CrlStackPtr crls(sk_X509_CRL_new_null());
    X509StorePtr store(X509_STORE_new());
    X509StackPtr untrusted(sk_X509_new_null());
    X509StoreCtxPtr ctx(X509_STORE_CTX_new());
    if (!crl || !crls || !store || !untrusted || !ctx ||
        X509_STORE_add_cert(store.get(), pki.root.cert.get()) != 1 ||
        sk_X509_CRL_push(crls.get(), crl.get()) <= 0) {
        return "set-up failed";
    }
    crl.release();  // now the stack's
    // The stack owns a reference of its own.
    X509Ptr intermediate = UpRef(pki.intermediate.cert.get());
    if (!intermediate || sk_X509_push(untrusted.get(), intermediate.get()) <= 0) {
        return "set-up failed";
    }
    intermediate.release();
    if (X509_STORE_CTX_init(ctx.get(), store.get(), pki.leaf.cert.get(), untrusted.get()) != 1) {
        return "X509_STORE_CTX_init failed";
    }
    // The context borrows the CRL stack; it does not free it.
    X509_STORE_CTX_set0_crls(ctx.get(), crls.get());
    X509_VERIFY_PARAM* param = X509_STORE_CTX_get0_param(ctx.get());
    X509_VERIFY_PARAM_set_time(param, static_cast<time_t>(kCheckTime));
    X509_VERIFY_PARAM_set_flags(param, X509_V_FLAG_CRL_CHECK);
    X509_STORE_CTX_set_purpose(ctx.get(), X509_PURPOSE_SMIME_SIGN);
    if (X509_verify_cert(ctx.get()) != 1) {
        return X509_verify_cert_error_string(X509_STORE_CTX_get_error(ctx.get()));
    }
    return std::string();
}

// A "VmRSS:"-style field of /proc/self/status in KiB, or -1.
long StatusKiB(const char* field) {
    std::FILE* status = std::fopen("/proc/self/status", "r");
    if (status == nullptr) {
        return -1;
    }
    long value = -1;
    char line[256];
    const std::size_t length = std::strlen(field);
    while (std::fgets(line, sizeof(line), status) != nullptr) {
        if (std::strncmp(line, field, length) == 0) {
            value = std::strtol(line + length, nullptr, 10);
            break;
        }
    }
    std::fclose(status);
    return value;
}

// MiB by which one check lifts the resident high-water mark above the
// resident set it starts from, or -1 when it cannot be measured or fails.
// A child process runs it: the parent's high-water mark only grows, and the
// child starts from the parent's heap with its free pages handed back, so
// every page the check needs has to be fetched anew.
template <class Check>
double PeakGrowthMiB(Check check, const std::vector<unsigned char>& der) {
    malloc_trim(0);
    int channel[2];
    if (pipe(channel) != 0) {
        return -1;
    }
    const pid_t child = fork();
    if (child == 0) {
        close(channel[0]);
        // The high-water mark starts at the parent's resident set; bring it
        // down to the child's own.
        if (std::FILE* clear = std::fopen("/proc/self/clear_refs", "w")) {
            std::fputs("5", clear);
            std::fclose(clear);
        }
        const long before = StatusKiB("VmRSS:");
        long growth = -1;
        if (before >= 0 && check(der).empty()) {
            const long peak = StatusKiB("VmHWM:");
            growth = peak >= before ? peak - before : -1;
        }
        const bool sent = write(channel[1], &growth, sizeof(growth)) == sizeof(growth);
        _exit(sent ? 0 : 1);
    }
    close(channel[1]);
    long growth = -1;
    if (child < 0 || read(channel[0], &growth, sizeof(growth)) != sizeof(growth)) {
        growth = -1;
    }
    close(channel[0]);
    if (child > 0) {
        waitpid(child, nullptr, 0);
    }
    return growth < 0 ? -1 : static_cast<double>(growth) / 1024.0;
}

template <class Check>
void Run(benchmark::State& state, const char* side, Check check) {
    const int entries = static_cast<int>(state.range(0));
    const std::vector<unsigned char>& der = CrlDer(entries);
    const std::string failure = check(der);
    if (!failure.empty()) {
        state.SkipWithError(failure.c_str());
        return;
    }
    // Benchmark runs the function more than once per case; one measurement
    // of the peak is enough.
    static std::map<std::pair<std::string, int>, double> peaks;
    const auto key = std::make_pair(std::string(side), entries);
    if (peaks.count(key) == 0) {
        peaks[key] = PeakGrowthMiB(check, der);
    }
    for (auto _ : state) {
        const std::string error = check(der);
        if (!error.empty()) {
            state.SkipWithError(error.c_str());
            break;
        }
    }
    state.counters["peak_MiB"] = peaks[key];
}

void BM_Tessera(benchmark::State& state) {
    Run(state, "tessera", TesseraCheck);
}

void BM_OpenSsl(benchmark::State& state) {
    Run(state, "openssl", OpenSslCheck);
}

}  // namespace

BENCHMARK(BM_Tessera)
    ->Name("chain_bigcrl/tessera")
    ->Arg(100000)
    ->Arg(900000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenSsl)
    ->Name("chain_bigcrl/openssl")
    ->Arg(100000)
    ->Arg(900000)
    ->Unit(benchmark::kMillisecond);
