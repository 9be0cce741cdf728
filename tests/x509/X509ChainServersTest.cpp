// X509Chain with real revocation sources on 127.0.0.1, and its verdicts next
// to those of `openssl verify`.
//
//   ocsp fixture (tests/servers/ocsp_start.sh), answered by `openssl ocsp`:
//     Tessera Test CA
//      ├── Good Signer      1001, good
//      ├── Revoked Signer   1002, revoked 2024-06-01 12:00:00 UTC
//      ├── Unknown Signer   1003, not in the responder's index
//      └── OCSP Responder   delegated by the CA
//
//   made here, named after the test so that parallel tests never share a CA:
//     <test> Root
//      ├── Signer           serial 0x61
//      └── Revoked Signer   serial 0x62, revoked 2024-05-15
//   with their CRLs at the crlservice fixture, behind an http fixture
//   distribution point, or in files for `openssl verify` (there with a Sub CA
//   between root and signers).
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "CrlClient.h"
#include "CryptException.h"
#include "CryptUtils.h"
#include "OcspResponse.h"
#include "TestPki.h"
#include "TestServers.h"
#include "X509Certificate.h"
#include "X509Chain.h"
#include "X509ChainPolicy.h"
#include "X509Crl.h"
#include "X509CrlClient.h"
#include "X509OcspClient.h"
#include "X509Store.h"

using namespace TesseraLib;
using namespace tessera_test;
using Policy = X509ChainPolicy;

namespace {

const std::int64_t kVerifyTime = UtcTime(2024, 6, 1);
const std::int64_t kRevokedAt = UtcTime(2024, 5, 15);

std::string TestName() {
    return ::testing::UnitTest::GetInstance()->current_test_info()->name();
}

std::wstring Wide(const std::string& text) {
    return std::wstring(text.begin(), text.end());
}

X509Certificate Cert(const Issued& issued) {
    return X509Certificate(issued.cert.get());
}

X509Certificate FixtureCert(const std::string& name) {
    const CertPtr cert = ReadPemCertificate(ServerDir("ocsp") + "/pki/" + name + ".pem");
    EXPECT_TRUE(cert) << name << ".pem from the ocsp fixture";
    return cert ? X509Certificate(cert.get()) : X509Certificate();
}

// The code a build threw, 0 when it passed.
int BuildCode(X509Chain& chain, const X509Certificate& cert, std::int64_t time) {
    try {
        chain.Build(&cert, time);
    } catch (const CryptException& e) {
        return e.GetErrorCode();
    }
    return 0;
}

struct MiniPki {
    Issued root, sub, signer, revoked;
};

// Root and signers; with `withSub` a Sub CA issues the signers. Signers carry
// `distributionPoint` as CRL distribution point when it is not empty.
MiniPki MakePki(bool withSub, const std::string& distributionPoint = "") {
    MiniPki p;
    CertSpec profile;
    profile.commonName = TestName() + " Root";
    profile.extensions = CaExtensions();
    p.root = IssueCertificate(profile, nullptr);
    if (withSub) {
        profile.commonName = TestName() + " Sub CA";
        profile.serial = 2;
        p.sub = IssueCertificate(profile, &p.root);
    }
    const Issued& issuer = withSub ? p.sub : p.root;
    profile.extensions = {{"keyUsage", "critical,digitalSignature,nonRepudiation"}};
    if (!distributionPoint.empty()) {
        profile.rawExtensions = {{"2.5.29.31", CrlDistributionPointsDer({{distributionPoint}})}};
    }
    profile.commonName = "Signer";
    profile.serial = 0x61;
    p.signer = IssueCertificate(profile, &issuer);
    profile.commonName = "Revoked Signer";
    profile.serial = 0x62;
    p.revoked = IssueCertificate(profile, &issuer);
    return p;
}

CrlPtr MakeCrl(const Issued& ca, std::int64_t thisUpdate, bool listsRevoked) {
    CrlSpec profile;
    profile.thisUpdate = thisUpdate;
    profile.nextUpdate = UtcTime(2024, 7, 1);
    if (listsRevoked) {
        profile.revoked = {RevokedEntry{0x62, kRevokedAt, -1, nullptr}};
    }
    return IssueCrl(profile, ca);
}

std::string Bytes(const std::vector<unsigned char>& der) {
    return std::string(der.begin(), der.end());
}

}  // namespace

TEST(X509ChainServers, OcspResponderDecidesForTheFixtureCertificates) {
    ASSERT_FALSE(ServerFile("ocsp", "url").empty()) << "the ocsp fixture must be running";
    X509MemoryStore trust;
    trust.AddCertificate(FixtureCert("ca"));
    X509OcspClientOnline client;  // the responder URL comes from each certificate
    Policy policy;
    policy.SetTrustStore(&trust);
    policy.SetOcspClient(&client);
    policy.SetRevocationMode(Policy::revOcsp);
    const std::int64_t revocation = UtcTime(2024, 6, 1, 12);
    struct Case {
        const char* cert;
        std::int64_t time;
        int code;
        const char* why;
    };
    const Case cases[] = {
        {"good", UtcTime(2024, 7, 1), 0, "good is good"},
        {"revoked", revocation - 1, 0, "one second before the revocation"},
        {"revoked", revocation, ErrCertRevoked, "revoked at the verification time"},
        {"unknown", UtcTime(2024, 7, 1), ErrRevocationUnknown, "the responder does not know it"},
    };
    for (const Case& c : cases) {
        X509Chain chain(&policy);
        EXPECT_EQ(BuildCode(chain, FixtureCert(c.cert), c.time), c.code) << c.cert << ": " << c.why;
        ASSERT_GE(chain.GetElements().GetSize(), 1u) << c.cert << ": the path was built";
        EXPECT_NE(chain.GetElements().GetAt(0).GetOcspResponse(), nullptr)
            << c.cert << ": the responder's answer is attached to the end entity";
    }
    EXPECT_EQ(client.GetTrustStore(), nullptr) << "the lent trust store was taken back";
}

TEST(X509ChainServers, CrlServiceDeliversTheCrlIssuedAfterTheTime) {
    const std::string url = ServerFile("crlservice", "url");
    ASSERT_FALSE(url.empty()) << "the crlservice fixture must be running";
    const MiniPki pki = MakePki(false);
    const X509Certificate root = Cert(pki.root);
    // The service's file names: Base64url of the issuer's subject DER (no
    // padding), then thisUpdate. The older CRL does not list the revocation yet.
    qorstd::QorString base64;
    CryptUtils::Base64Encode(root.GetSubject(), base64, CryptUtils::cptLineBreakNone);
    std::string key = base64.c_str();
    for (char& c : key) {
        c = c == '+' ? '-' : c == '/' ? '_' : c;
    }
    key = key.substr(0, key.find('='));
    const std::int64_t newer = kVerifyTime + 86400;
    for (const std::int64_t thisUpdate : {UtcTime(2024, 5, 1), newer}) {
        WriteTextFile(
            ServerDir("crlservice") + "/root/" + key + "." + std::to_string(thisUpdate) + ".der",
            Bytes(CrlToDer(MakeCrl(pki.root, thisUpdate, thisUpdate == newer).get())));
    }
    QorGetOneCrlLib::CrlClient service;
    service.SetUrl(Wide(url).c_str());
    X509GetOneCrlParameters entry;
    entry.SetIssuer(root.GetSHA1HashHex());
    entry.SetCrlClient(&service);
    qorstd::QorVector<X509GetOneCrlParameters> parameters;
    parameters.Add(entry);
    X509GetOneCrlClient client;
    client.SetCrlParameters(parameters);

    X509MemoryStore trust;
    trust.AddCertificate(root);
    Policy policy;
    policy.SetTrustStore(&trust);
    policy.SetCrlClient(&client);
    X509Chain chain(&policy);
    EXPECT_EQ(BuildCode(chain, Cert(pki.signer), kVerifyTime), ErrRevocationUnknown)
        << "the service answers only requests for CRLs issued after a time";
    policy.SetForceGetCrlAfterTimeUsage(1);
    EXPECT_EQ(BuildCode(chain, Cert(pki.signer), kVerifyTime), 0) << "the signer is good";
    ASSERT_EQ(chain.EnumCrls().GetSize(), 1u) << "the end entity carries the service's CRL";
    EXPECT_EQ(chain.EnumCrls().GetAt(0).GetThisUpdate(), newer)
        << "the CRL issued after the verification time was fetched";
    EXPECT_EQ(service.GetRequestTime(), kVerifyTime) << "the time reached the service";
    EXPECT_EQ(BuildCode(chain, Cert(pki.revoked), kVerifyTime), ErrCertRevoked)
        << "the newer CRL lists the revocation";
}

TEST(X509ChainServers, CrlFromTheHttpDistributionPoint) {
    const std::string base = ServerFile("http", "url");
    ASSERT_FALSE(base.empty()) << "the http fixture must be running";
    const std::string file = TestName() + ".crl";
    const MiniPki pki = MakePki(false, base + "/file/" + file);
    const CrlPtr crl = MakeCrl(pki.root, UtcTime(2024, 5, 1), true);
    WriteTextFile(ServerDir("http") + "/root/" + file, Bytes(CrlToDer(crl.get())));
    X509MemoryStore trust;
    trust.AddCertificate(Cert(pki.root));
    X509CurlCrlClientOnline client;
    Policy policy;
    policy.SetTrustStore(&trust);
    policy.SetCrlClient(&client);
    X509Chain chain(&policy);
    EXPECT_EQ(BuildCode(chain, Cert(pki.signer), kVerifyTime), 0) << "the signer is good";
    ASSERT_EQ(chain.EnumCrls().GetSize(), 1u) << "the downloaded CRL is attached";
    EXPECT_TRUE(chain.EnumCrls().GetAt(0).Equals(X509Crl(crl.get()))) << "the published one";
    EXPECT_EQ(BuildCode(chain, Cert(pki.revoked), kVerifyTime), ErrCertRevoked)
        << "the downloaded CRL lists the revocation";
}

namespace {

// Runs a command (bounded by `timeout`), returns its exit status and output.
int RunCommand(const std::string& command, std::string* output) {
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(
        popen(("timeout 30 " + command + " 2>&1").c_str(), "r"), pclose);
    if (!pipe) {
        return -1;
    }
    char buffer[512];
    for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe.get())) > 0;) {
        output->append(buffer, n);
    }
    const int status = pclose(pipe.release());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

TEST(X509ChainServers, VerdictsAgreeWithOpenSslVerify) {
    const MiniPki pki = MakePki(true);
    const CrlPtr rootCrl = MakeCrl(pki.root, UtcTime(2024, 5, 1), false);
    const CrlPtr subCrl = MakeCrl(pki.sub, UtcTime(2024, 5, 1), true);
    std::string dirTemplate = ::testing::TempDir() + "chain-interop-XXXXXX";
    ASSERT_NE(mkdtemp(dirTemplate.data()), nullptr) << "a private folder for the files";
    const std::string dir = dirTemplate;
    const std::unique_ptr<const std::string, void (*)(const std::string*)> removeDir(
        &dir, [](const std::string* path) {
            std::error_code ignored;
            std::filesystem::remove_all(*path, ignored);
        });
    WriteTextFile(dir + "/root.pem", CertToPem(pki.root.cert.get()));
    WriteTextFile(dir + "/sub.pem", CertToPem(pki.sub.cert.get()));
    WriteTextFile(dir + "/crls.pem", CrlToPem(rootCrl.get()) + CrlToPem(subCrl.get()));

    X509MemoryStore trust;
    trust.AddCertificate(Cert(pki.root));
    X509MemoryStore extra;
    extra.AddCertificate(Cert(pki.sub));
    extra.AddCrl(X509Crl(rootCrl.get()));
    extra.AddCrl(X509Crl(subCrl.get()));
    Policy policy;  // every CA below the root checked, CRLs from the extra store only
    policy.SetChainBuildMode(Policy::cptChainBuildSuppliedValData);
    policy.SetTrustStore(&trust);
    policy.SetExtraStore(&extra);
    struct Signer {
        const Issued* issued;
        const char* name;
        int code;
    };
    const Signer signers[] = {{&pki.signer, "signer", 0},
                              {&pki.revoked, "revoked", ErrCertRevoked}};
    for (const Signer& s : signers) {
        WriteTextFile(dir + "/" + s.name + ".pem", CertToPem(s.issued->cert.get()));
        std::string output;
        const int status =
            RunCommand("openssl verify -crl_check_all -attime " + std::to_string(kVerifyTime) +
                           " -CAfile " + dir + "/root.pem -untrusted " + dir +
                           "/sub.pem -CRLfile " + dir + "/crls.pem " + dir + "/" + s.name + ".pem",
                       &output);
        X509Chain chain(&policy);
        EXPECT_EQ(BuildCode(chain, Cert(*s.issued), kVerifyTime), s.code)
            << s.name << ": our verdict";
        EXPECT_EQ(status == 0, s.code == 0) << s.name << ": openssl agrees (" << output << ")";
        if (s.code == ErrCertRevoked) {
            EXPECT_NE(output.find("certificate revoked"), std::string::npos)
                << "openssl names the revocation: " << output;
        }
    }
}
