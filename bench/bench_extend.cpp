// Extension of a CAdES-T signature to LTA, RSA-2048 and SHA-256 throughout,
// against a loopback OCSP responder (`openssl ocsp`) and TSA (the test
// servers' tsa_server.py over `openssl ts -reply`), both started here on
// free ports of 127.0.0.1, bounded to five minutes and stopped by PID:
//
//   Bench Extend Root (trusted) ── CRL about the CA (at hand)
//    └── Bench Extend CA ── the loopback responder, signing as the CA
//         └── Bench Extend Signer
//   Test TSA Root (trusted) ── CRL about the TSA (at hand)
//    └── Test TSA: the signature time-stamp (in-process) and the archive
//        time-stamp (loopback)
//
// "extend_lta": decode the CAdES-T as SignedCades2 and Extend it to LTA (the
// three paths built with the CRLs at hand and the signer's OCSP response,
// the validation data added, the ats-hash-index-v3 and imprint, the archive
// token asked for, the TSA's path once more) against the sum of its network
// parts done with OpenSSL directly: the OCSP request about the signer and
// its verified answer, and the time-stamp request and its answer, each an
// HTTP POST with OSSL_HTTP_transfer.
#include <benchmark/benchmark.h>
#include <openssl/http.h>
#include <openssl/ocsp.h>
#include <openssl/ts.h>
#include <spawn.h>
#include <sys/wait.h>

#include <unistd.h>

#include <fcntl.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "SignedCades2.h"
#include "TestCms.h"
#include "TestPki.h"
#include "TestServers.h"
#include "TestTsa.h"
#include "TspClient.h"
#include "X509ChainPolicy.h"
#include "X509CrlClient.h"
#include "X509OcspClient.h"
#include "X509Store.h"

extern char** environ;

namespace {

using namespace tessera_test;

const std::int64_t kNow = static_cast<std::int64_t>(std::time(nullptr));
const std::int64_t kFar = UtcTime(2040, 1, 1);

Issued Rsa(const char* name, long serial, int slot, const Issued* issuer, bool ca) {
    CertPlan plan = BasicProfile(name, serial, ca);
    const KeyPtr key = CachedKey(KeyKind::Rsa2048, slot);
    plan.key = key.get();
    return IssueCertificate(plan, issuer);
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// A server process with its output in `log`; stopped by its PID.
class Server {
public:
    Server(std::vector<std::string> argv, const std::string& log) {
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                         0600);
        posix_spawn_file_actions_adddup2(&actions, 1, 2);
        std::vector<char*> args;
        for (std::string& arg : argv) {
            args.push_back(&arg[0]);
        }
        args.push_back(nullptr);
        if (posix_spawnp(&m_pid, args[0], &actions, nullptr, args.data(), environ) != 0) {
            m_pid = 0;
        }
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Server() {
        if (m_pid > 0) {
            kill(m_pid, SIGTERM);
            waitpid(m_pid, nullptr, 0);
        }
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

private:
    pid_t m_pid = 0;
};

// Waits up to ten seconds for `ready` to hold.
template <class Ready>
bool WaitFor(Ready&& ready) {
    for (int i = 0; i < 200 && !ready(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return ready();
}

struct Setup {
    Issued root = Rsa("Bench Extend Root", 1, 60, nullptr, true);
    Issued ca = Rsa("Bench Extend CA", 2, 61, &root, true);
    Issued signer = Rsa("Bench Extend Signer", 3, 62, &ca, false);
    TestTsa tsa{KeyKind::Rsa2048, EVP_sha256(), KeyKind::Rsa2048, kFar, 63};
    std::string dir;
    std::string ocspPort = std::to_string(FreeLoopbackPort());
    std::string tsaPort;
    std::unique_ptr<Server> ocsp, tsaServer;
    Bytes t;  // the CAdES-T
    std::string error;

    Setup() {
        char name[] = "/tmp/bench_extend.XXXXXX";
        dir = mkdtemp(name) != nullptr ? name : "";
        StartOcsp();
        StartTsa();
        MakeT();
    }
    ~Setup() {
        ocsp.reset();
        tsaServer.reset();
        if (!dir.empty()) {
            std::system(("rm -rf '" + dir + "'").c_str());
        }
    }

    void StartOcsp() {
        WriteTextFile(dir + "/ca.pem", CertToPem(ca.cert.get()));
        WriteTextFile(dir + "/ca.key.pem", KeyToPem(ca.key.get()));
        WriteTextFile(dir + "/index.txt",
                      "V\t401231235959Z\t\t03\tunknown\t/O=Tessera Test/CN=Bench Extend Signer\n");
        const std::string log = dir + "/ocsp.log";
        ocsp = std::make_unique<Server>(
            std::vector<std::string>{"timeout", "300", "openssl", "ocsp", "-index",
                                     dir + "/index.txt", "-port", ocspPort, "-rsigner",
                                     dir + "/ca.pem", "-rkey", dir + "/ca.key.pem", "-CA",
                                     dir + "/ca.pem", "-nmin", "60", "-ignore_err"},
            log);
        // A bare connection would send `openssl ocsp` into a busy loop: its
        // own log line says when it listens.
        if (!WaitFor([&] {
                return ReadFile(log).find("waiting for OCSP client connections") !=
                       std::string::npos;
            })) {
            error = "the OCSP responder did not start";
        }
    }

    void StartTsa() {
        const std::string tsaDir = dir + "/tsa";
        std::system(("mkdir -p '" + tsaDir + "'").c_str());
        WriteTextFile(tsaDir + "/tsa.pem", CertToPem(tsa.Tsa().cert.get()));
        WriteTextFile(tsaDir + "/tsa.key.pem", KeyToPem(tsa.Tsa().key.get()));
        WriteTextFile(tsaDir + "/ca.pem", CertToPem(tsa.Ca().cert.get()));
        WriteTextFile(tsaDir + "/serial", "01\n");
        WriteTextFile(tsaDir + "/tsa.cnf",
                      "[ tsa ]\ndefault_tsa = tsa_config\n[ tsa_config ]\ndir = " + tsaDir +
                          "\nserial = $dir/serial\ncrypto_device = builtin\n"
                          "signer_digest = sha256\ndefault_policy = 1.2.3.4.1\n"
                          "digests = sha256\naccuracy = secs:1\nordering = no\ntsa_name = yes\n"
                          "ess_cert_id_chain = no\ness_cert_id_alg = sha256\n");
        const std::string portFile = tsaDir + "/port";
        tsaServer =
            std::make_unique<Server>(std::vector<std::string>{"/usr/bin/python3",
                                                              std::string(TESSERA_SOURCE_DIR) +
                                                                  "/tests/servers/tsa_server.py",
                                                              tsaDir, portFile, "300"},
                                     tsaDir + "/server.log");
        if (!WaitFor([&] { return !ReadFile(portFile).empty(); })) {
            error = "the TSA did not start";
        }
        tsaPort = ReadFile(portFile);
        while (!tsaPort.empty() && (tsaPort.back() == '\n' || tsaPort.back() == '\r')) {
            tsaPort.pop_back();
        }
    }

    void MakeT() {
        CmsSignPlan plan;
        plan.content = "extended for the long term\n";
        plan.signers = {&signer};
        plan.flags = CMS_CADES | CMS_NOSMIMECAP;
        plan.signingTime = kNow - 3600;
        plan.certificates = {ca.cert.get()};
        CmsPtr cms = SignCms(plan);
        CMS_SignerInfo* si = FirstSigner(cms.get());
        const ASN1_OCTET_STRING* value = CMS_SignerInfo_get0_signature(si);
        TsaReply reply;
        reply.genTime = kNow - 1800;
        const Bytes token = tsa.Token(
            EVP_sha256(),
            TestTsa::Digest(EVP_sha256(), std::string(value->data, value->data + value->length)),
            true, reply);
        CMS_unsigned_add1_attr_by_NID(si, NID_id_smime_aa_timeStampToken, V_ASN1_SEQUENCE,
                                      token.data(), static_cast<int>(token.size()));
        t = CmsDer(cms.get());
    }
};

Setup& S() {
    static Setup setup;
    return setup;
}

class NoCrlClient : public TesseraLib::X509CrlClient {
public:
    TesseraLib::X509Crl* GetCrl(const TesseraLib::X509Certificate&) override { return nullptr; }
    TesseraLib::X509Crl* GetCrlAfterTime(const TesseraLib::X509Certificate&, const std::int64_t&,
                                         const TesseraLib::X509Certificate*) override {
        return nullptr;
    }
};

void ExtendLtaTessera(benchmark::State& state) {
    Setup& s = S();
    if (!s.error.empty()) {
        state.SkipWithError(s.error.c_str());
        return;
    }
    using namespace TesseraLib;
    X509MemoryStore trust, extra;
    trust.AddCertificate(X509Certificate(s.root.cert.get()));
    trust.AddCertificate(X509Certificate(s.tsa.Ca().cert.get()));
    extra.AddCertificate(X509Certificate(s.ca.cert.get()));
    extra.AddCrl(X509Crl(IssueCrl(s.root, kNow - 86400, kFar).get()));
    extra.AddCrl(X509Crl(IssueCrl(s.tsa.Ca(), kNow - 86400, kFar).get()));
    X509OcspClientOnline responder;
    responder.SetUrl(qorstd::QorStringW(
        (L"http://127.0.0.1:" + std::wstring(s.ocspPort.begin(), s.ocspPort.end())).c_str()));
    NoCrlClient noCrls;
    X509ChainPolicy policy;
    policy.SetTrustStore(&trust);
    policy.SetExtraStore(&extra);
    policy.SetRevocationOption(X509ChainPolicy::revOptionChain);
    policy.SetRevocationMode(X509ChainPolicy::revOcspOrCrl);
    policy.SetPreferCrl(1);
    policy.SetOcspClient(&responder);
    policy.SetCrlClient(&noCrls);
    policy.SetChainBuildMode(static_cast<X509ChainPolicy::cptChainBuildMode>(
        X509ChainPolicy::cptChainBuildStores | X509ChainPolicy::cptChainBuildClients));
    const std::string url = "http://127.0.0.1:" + s.tsaPort + "/tsa";
    QorTsp2Lib::TspClient client(std::wstring(url.begin(), url.end()).c_str());
    const qorstd::QorArray<unsigned char> t(s.t.data(), static_cast<unsigned int>(s.t.size()));
    for (auto _ : state) {
        SignedCades2 cades;
        cades.Decode(t);
        try {
            cades.Extend(0, SignedCades2::cptCades2Lta, policy, &client, 0);
        } catch (const qorstd::QorException& e) {
            const std::wstring message = e.GetErrorMessage().c_str();
            state.SkipWithError(("the extension failed: " + std::to_string(e.GetErrorCode()) + " " +
                                 std::string(message.begin(), message.end()))
                                    .c_str());
            break;
        } catch (...) {
            state.SkipWithError("the extension failed");
            break;
        }
        benchmark::DoNotOptimize(cades.GetSignerInfo(0)->GetCadesType());
    }
}

// One POST of `body` and the answer's bytes (empty on failure).
Bytes Post(const std::string& port, const char* path, const char* type, const Bytes& body) {
    BIO* request = BIO_new_mem_buf(body.data(), static_cast<int>(body.size()));
    BIO* answer = OSSL_HTTP_transfer(nullptr, "127.0.0.1", port.c_str(), path, 0, nullptr, nullptr,
                                     nullptr, nullptr, nullptr, nullptr, 0, nullptr, type, request,
                                     nullptr, 1, 0, 30, 0);
    BIO_free(request);
    Bytes out;
    unsigned char buffer[4096];
    for (int n = 0; answer != nullptr && (n = BIO_read(answer, buffer, sizeof(buffer))) > 0;) {
        out.insert(out.end(), buffer, buffer + n);
    }
    BIO_free_all(answer);
    return out;
}

void ExtendLtaOpenssl(benchmark::State& state) {
    Setup& s = S();
    if (!s.error.empty()) {
        state.SkipWithError(s.error.c_str());
        return;
    }
    X509_STORE* anchors = X509_STORE_new();
    X509_STORE_add_cert(anchors, s.root.cert.get());
    STACK_OF(X509)* issuers = sk_X509_new_null();
    sk_X509_push(issuers, s.ca.cert.get());
    const Bytes imprint = TestTsa::Digest(EVP_sha256(), "an archive imprint");
    bool ok = true;
    for (auto _ : state) {
        // The signer's status, verified against its issuer.
        OCSP_REQUEST* request = OCSP_REQUEST_new();
        OCSP_request_add0_id(request,
                             OCSP_cert_to_id(EVP_sha1(), s.signer.cert.get(), s.ca.cert.get()));
        OCSP_request_add1_nonce(request, nullptr, -1);
        unsigned char* der = nullptr;
        const int length = i2d_OCSP_REQUEST(request, &der);
        const Bytes answer = Post(s.ocspPort, "/", "application/ocsp-request",
                                  Bytes(der, der + (length > 0 ? length : 0)));
        OPENSSL_free(der);
        const unsigned char* cursor = answer.data();
        OCSP_RESPONSE* response =
            d2i_OCSP_RESPONSE(nullptr, &cursor, static_cast<long>(answer.size()));
        OCSP_BASICRESP* basic = response != nullptr ? OCSP_response_get1_basic(response) : nullptr;
        ok = ok && basic != nullptr &&
             OCSP_basic_verify(basic, issuers, anchors, OCSP_TRUSTOTHER) == 1;
        OCSP_BASICRESP_free(basic);
        OCSP_RESPONSE_free(response);
        OCSP_REQUEST_free(request);

        // The archive token.
        const Bytes query =
            TestTsa::Request(EVP_sha256(), imprint, Bytes{1, 2, 3, 4, 5, 6, 7, 8}, true);
        const Bytes reply = Post(s.tsaPort, "/tsa", "application/timestamp-query", query);
        cursor = reply.data();
        TS_RESP* stamped = d2i_TS_RESP(nullptr, &cursor, static_cast<long>(reply.size()));
        ok = ok && stamped != nullptr &&
             ASN1_INTEGER_get(TS_STATUS_INFO_get0_status(TS_RESP_get_status_info(stamped))) ==
                 TS_STATUS_GRANTED;
        TS_RESP_free(stamped);
    }
    if (!ok) {
        state.SkipWithError("a request failed");
    }
    sk_X509_free(issuers);
    X509_STORE_free(anchors);
}

BENCHMARK(ExtendLtaTessera)->Name("extend_lta/tessera")->Unit(benchmark::kMillisecond);
BENCHMARK(ExtendLtaOpenssl)->Name("extend_lta/openssl")->Unit(benchmark::kMillisecond);

}  // namespace
