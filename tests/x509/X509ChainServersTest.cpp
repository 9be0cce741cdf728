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

#include <string>

#include "TestServers.h"
#include "TestTessera.h"

using namespace TesseraLib;
using namespace tessera_test;
using Policy = X509ChainPolicy;

namespace {

const std::int64_t kVerifyTime = UtcTime(2024, 6, 1);

std::string TestName() {
    return ::testing::UnitTest::GetInstance()->current_test_info()->name();
}

X509Certificate FixtureCert(const std::string& name) {
    const CertPtr cert = ReadPemCertificate(ServerDir("ocsp") + "/pki/" + name + ".pem");
    EXPECT_TRUE(cert) << name << ".pem from the ocsp fixture";
    return cert ? X509Certificate(cert.get()) : X509Certificate();
}

int BuildCode(X509Chain& chain, const X509Certificate& cert, std::int64_t time) {
    return CodeOf([&] { chain.Build(&cert, time); });
}

// Root and signers; with `withSub` a Sub CA issues the signers. Signers carry
// `distributionPoint` as CRL distribution point when it is not empty.
struct MiniPki {
    Issued root, sub, signer, revoked;

    explicit MiniPki(bool withSub, const std::string& distributionPoint = "") {
        root = IssueCertificate(BasicProfile(TestName() + " Root", 1, true), nullptr);
        if (withSub) {
            sub = IssueCertificate(BasicProfile(TestName() + " Sub CA", 2, true), &root);
        }
        CertPlan profile = BasicProfile("Signer", 0x61, false);
        if (!distributionPoint.empty()) {
            profile.rawExtensions = {
                {"2.5.29.31", CrlDistributionPointsDer({{distributionPoint}})}};
        }
        signer = IssueCertificate(profile, withSub ? &sub : &root);
        profile.commonName = "Revoked Signer";
        profile.serial = 0x62;
        revoked = IssueCertificate(profile, withSub ? &sub : &root);
    }
};

CrlPtr MakeCrl(const Issued& ca, std::int64_t thisUpdate, bool listsRevoked) {
    return IssueCrl(ca, thisUpdate, UtcTime(2024, 7, 1),
                    listsRevoked ? std::vector<RevokedEntry>{{0x62, UtcTime(2024, 5, 15)}}
                                 : std::vector<RevokedEntry>{});
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
    const struct {
        const char* cert;
        std::int64_t time;
        int code;
        const char* why;
    } cases[] = {
        {"good", UtcTime(2024, 7, 1), 0, "good is good"},
        {"revoked", revocation - 1, 0, "one second before the revocation"},
        {"revoked", revocation, ErrCertRevoked, "revoked at the verification time"},
        {"unknown", UtcTime(2024, 7, 1), ErrRevocationUnknown, "the responder does not know it"},
    };
    for (const auto& c : cases) {
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
    const MiniPki pki(false);
    const X509Certificate root = Cert(pki.root);
    // The older CRL does not list the revocation yet.
    const std::int64_t newer = kVerifyTime + 86400;
    for (const std::int64_t thisUpdate : {UtcTime(2024, 5, 1), newer}) {
        PublishToCrlService(MakeCrl(pki.root, thisUpdate, thisUpdate == newer).get(), thisUpdate);
    }
    QorGetOneCrlLib::CrlClient service;
    service.SetUrl(std::wstring(url.begin(), url.end()).c_str());
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
    const MiniPki pki(false, base + "/file/" + file);
    const CrlPtr crl = MakeCrl(pki.root, UtcTime(2024, 5, 1), true);
    const Bytes der = CrlToDer(crl.get());
    WriteTextFile(ServerDir("http") + "/root/" + file, std::string(der.begin(), der.end()));
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

TEST(X509ChainServers, VerdictsAgreeWithOpenSslVerify) {
    const MiniPki pki(true);
    const CrlPtr rootCrl = MakeCrl(pki.root, UtcTime(2024, 5, 1), false);
    const CrlPtr subCrl = MakeCrl(pki.sub, UtcTime(2024, 5, 1), true);
    ScratchDir dir;
    dir.Write("root.pem", CertToPem(pki.root.cert.get()));
    dir.Write("sub.pem", CertToPem(pki.sub.cert.get()));
    dir.Write("crls.pem", CrlToPem(rootCrl.get()) + CrlToPem(subCrl.get()));

    X509MemoryStore trust, extra;
    trust.AddCertificate(Cert(pki.root));
    extra.AddCertificate(Cert(pki.sub));
    extra.AddCrl(X509Crl(rootCrl.get()));
    extra.AddCrl(X509Crl(subCrl.get()));
    Policy policy;  // every CA below the root checked, CRLs from the extra store only
    policy.SetChainBuildMode(Policy::cptChainBuildSuppliedValData);
    policy.SetTrustStore(&trust);
    policy.SetExtraStore(&extra);
    const struct {
        const Issued* issued;
        const char* name;
        int code;
    } signers[] = {{&pki.signer, "signer", 0}, {&pki.revoked, "revoked", ErrCertRevoked}};
    for (const auto& s : signers) {
        dir.Write(std::string(s.name) + ".pem", CertToPem(s.issued->cert.get()));
        const bool accepted = dir.Openssl(
            "verify -crl_check_all -attime " + std::to_string(kVerifyTime) +
            " -CAfile root.pem -untrusted sub.pem -CRLfile crls.pem " + s.name + ".pem");
        X509Chain chain(&policy);
        EXPECT_EQ(BuildCode(chain, Cert(*s.issued), kVerifyTime), s.code)
            << s.name << ": our verdict";
        EXPECT_EQ(accepted, s.code == 0) << s.name << ": openssl agrees (" << dir.Output() << ")";
        if (s.code == ErrCertRevoked) {
            EXPECT_NE(dir.Output().find("certificate revoked"), std::string::npos)
                << "openssl names the revocation: " << dir.Output();
        }
    }
}
