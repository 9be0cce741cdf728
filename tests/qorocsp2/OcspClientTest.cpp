// The OCSP client against `openssl ocsp` responders on 127.0.0.1 (the ocsp
// fixture, tests/servers/ocsp_start.sh):
//
//   ca ─┬─ ocsp (delegated responder)        untrusted-ca ── untrusted-ocsp
//       ├─ good     1001  good
//       ├─ revoked  1002  revoked 2024-06-01 12:00:00 UTC, keyCompromise
//       └─ unknown  1003  not in the responder's index
#include <gtest/gtest.h>

#include "OcspTestUtil.h"
#include "RecordingLog.h"
#include "TestServers.h"

using namespace QorOcsp2Lib;
using namespace ocsp_test;
using tessera_test::CertPtr;
using tessera_test::ReadPemCertificate;
using tessera_test::ServerDir;
using tessera_test::ServerFile;

namespace {

class OcspClientTest : public ::testing::Test {
protected:
    void SetUp() override {
        url = ServerFile("ocsp", "url");
        ASSERT_FALSE(url.empty()) << "the ocsp fixture must be running";
        ca = Load("ca");
        client.SetUrl(Wide(url).c_str());
        client.SetIssuerCertificates(One(ca.get()));
    }
    static CertPtr Load(const std::string& name) {
        CertPtr cert = ReadPemCertificate(ServerDir("ocsp") + "/pki/" + name + ".pem");
        EXPECT_TRUE(cert) << name << ".pem from the fixture";
        return cert;
    }
    OcspResponse Ask(const std::string& name) {
        const CertPtr subject = Load(name);
        OcspResponse response;
        client.SendRequest(OcspCertificate(subject.get()), response, 1);
        return response;
    }

    std::string url;
    CertPtr ca;
    OcspClient client;
};

}  // namespace

// The fields of a response are read in OcspResponseTest; here the answers
// must be the responder's about the certificate asked for.
TEST_F(OcspClientTest, GoodRevokedAndUnknownAnswers) {
    const OcspResponse good = Ask("good");
    ASSERT_EQ(good.GetSingleResponses().GetSize(), 1u) << "one answer";
    EXPECT_EQ(good.GetSingleResponses().GetAt(0).GetCertStatus(), 0) << "good";
    EXPECT_STREQ(good.GetSingleResponses().GetAt(0).GetSerialNumberHex().c_str(), "1001")
        << "about the certificate asked for";

    const OcspResponse revoked = Ask("revoked");
    const OcspSingleResponse& r = revoked.GetSingleResponses().GetAt(0);
    EXPECT_EQ(r.GetCertStatus(), 1) << "revoked";
    EXPECT_EQ(r.GetRevocationTime(), tessera_test::UtcTime(2024, 6, 1, 12, 0, 0));
    EXPECT_EQ(r.GetRevocationReason(), OcspSingleResponse::ocspReasonKeyCompromise);

    const OcspResponse unknown = Ask("unknown");
    EXPECT_EQ(unknown.GetSingleResponses().GetAt(0).GetCertStatus(), 2) << "unknown";
}

TEST_F(OcspClientTest, Sha256CertificateIdentifiers) {
    client.SetHashAlgorithm(OcspHash::ocspHashSHA256);
    const OcspResponse good = Ask("good");
    EXPECT_STREQ(good.GetSingleResponses().GetAt(0).GetCertIdHashName().c_str(), "SHA256")
        << "the responder answers with the identifier it was asked with";
}

TEST_F(OcspClientTest, UntrustedResponderIsRefusedUnlessVerificationIsOff) {
    client.SetUrl(Wide(ServerFile("ocsp", "untrusted-url")).c_str());
    EXPECT_EQ(CodeOf([&] { Ask("good"); }), 141) << "signed by a responder of another CA";
    client.SetCACertificates(One(Load("untrusted-ca").get()));
    EXPECT_EQ(CodeOf([&] { Ask("good"); }), 141)
        << "trusting the other CA does not make it an authority for this CA's certificates";
    client.SetVerifyResponse(0);
    EXPECT_EQ(CodeOf([&] { Ask("good"); }), 0) << "without verification the answer is taken";
}

TEST_F(OcspClientTest, RequestNeedsUrlAndIssuer) {
    client.SetUrl(L"");
    EXPECT_EQ(CodeOf([&] { Ask("good"); }), 144) << "no URL";
    client.SetUrl(Wide(url).c_str());
    client.SetIssuerCertificates(One(Load("untrusted-ca").get()));
    EXPECT_EQ(CodeOf([&] { Ask("good"); }), 130) << "no issuer of the certificate among the given";
    EXPECT_EQ(CodeOf([&] {
                  OcspResponse response;
                  client.SendRequest(OcspCertificate(), response, 1);
              }),
              130)
        << "an empty certificate";
}

TEST_F(OcspClientTest, LogsThroughItsOwnChannel) {
    tessera_test::RecordingLog& log = tessera_test::RecordingLog::Instance();
    log.Reset();
    const LoggingCallbacks table = log.Table();
    ASSERT_EQ(QorOcsp2_InitializeLogging(&table), 1);
    Ask("good");
    QorOcsp2_InitializeLogging(nullptr);
    EXPECT_TRUE(log.WasOpened(L"QorOcsp2.OcspClient"));
    const auto lines = log.LinesOf(L"QorOcsp2.OcspClient");
    ASSERT_FALSE(lines.empty());
    EXPECT_NE(lines[0].text.find(Wide(url)), std::wstring::npos) << "the entry line names the URL";
    EXPECT_EQ(log.Closed().size(), log.Opened().size()) << "the channel is closed after the call";
}
