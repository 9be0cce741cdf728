// X509OcspClientOnline over a canned transport, where the response's
// producedAt can be pinned. Against the ocsp fixture's responders it is run by
// X509ChainServersTest (the URL from each certificate's AIA) and by
// check_cli_ocsp.sh (a set URL and the trust store's responder certificates).
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "TestTessera.h"

using namespace TesseraLib;
using namespace tessera_test;
using QorOcsp2Lib::OcspResponse;

namespace {

// Hands back a fixed answer and notes where it was sent.
class CannedTransport : public QorOcsp2Lib::HttpClient {
public:
    std::vector<unsigned char> answer;
    std::string url;
    int posts = 0;
    void Post(const QorOcsp2Lib::StlString& to, const char*, const qorstd::QorArray<unsigned char>&,
              qorstd::QorArray<unsigned char>& response) override {
        ++posts;
        url = to.c_str();
        response.Assign(answer.data(), static_cast<unsigned int>(answer.size()));
    }
};

// A CA answering for its end entity, producedAt 2024-03-01 12:00:00 UTC.
class CannedOcsp : public ::testing::Test {
protected:
    void SetUp() override {
        CertPlan certProfile;
        certProfile.commonName = "Canned OCSP CA";
        certProfile.extensions = CaExtensions();
        ca = IssueCertificate(certProfile, nullptr);
        certProfile.commonName = "Canned Signer";
        certProfile.serial = 77;
        certProfile.extensions = {{"authorityInfoAccess", "OCSP;URI:http://127.0.0.1:9/aia"}};
        ee = IssueCertificate(certProfile, &ca);
        transport.answer = MakeOcspResponse(
            OcspPlan(&ca, ca.cert.get(),
                     {{ee.cert.get(), V_OCSP_CERTSTATUS_GOOD, -1, 0, producedAt, 0}}, producedAt));
        client.SetHttpClient(&transport);
    }
    X509Certificate Ca() const { return Cert(ca); }
    X509Certificate Ee() const { return Cert(ee); }

    const std::int64_t producedAt = UtcTime(2024, 3, 1, 12);
    Issued ca;
    Issued ee;
    CannedTransport transport;
    X509OcspClientOnline client;
};

}  // namespace

TEST_F(CannedOcsp, AfterTimeKeepsOnlyResponsesProducedAtOrAfterTheTime) {
    const OcspResponse* response = client.GetOcspResponseAfterTime(Ee(), Ca(), producedAt);
    ASSERT_NE(response, nullptr) << "producedAt equal to the time is recent enough";
    EXPECT_EQ(response->GetProducedAt(), producedAt) << "the canned response";
    EXPECT_EQ(client.GetOcspResponseAfterTime(Ee(), Ca(), producedAt + 1), nullptr)
        << "a response one second older than asked for is dropped";
}

TEST_F(CannedOcsp, RefusesRequestsWithoutCertificateOrUrl) {
    const Issued noAia = IssueCertificate(BasicProfile("No AIA", 2, false), &ca);
    const Thrown noUrl = Catch([&] { client.GetOcspResponse(Cert(noAia), Ca()); });
    EXPECT_TRUE(noUrl.code == ErrChainVerification &&
                noUrl.message == "cert.GetOcspResponderUrl() is empty")
        << "no URL set and none in the certificate";
    const Thrown noCert = Catch([&] { client.GetOcspResponse(X509Certificate(), Ca()); });
    EXPECT_TRUE(noCert.code == ErrInvalidParameter && noCert.message == "cert.GetX509()=NULL")
        << "an empty certificate: 102";
    const Thrown noIssuer =
        Catch([&] { client.GetOcspResponseAfterTime(Ee(), X509Certificate(), 0); });
    EXPECT_TRUE(noIssuer.code == ErrInvalidParameter && noIssuer.message == "issuer.GetX509()=NULL")
        << "an empty issuer: 102";
    EXPECT_EQ(transport.posts, 0) << "nothing is sent for a refused request";
}

TEST_F(CannedOcsp, LogsTheRequestAndACopyOpensItsOwnChannel) {
    const RecordingLog& log = RecordingLog::Instance();
    {
        LogCapture capture;
        ASSERT_TRUE(capture.Active()) << "logging set up";
        X509OcspClientOnline logged;
        logged.SetHttpClient(&transport);
        logged.SetUrl(L"http://127.0.0.1:9/set");
        logged.GetOcspResponse(Ee(), Ca());
        const X509OcspClientOnline copy(logged);
        EXPECT_EQ(copy.GetHttpClient(), &transport) << "a copy keeps the settings";
    }
    EXPECT_EQ(transport.url, "http://127.0.0.1:9/set") << "a set URL wins over the AIA";
    EXPECT_EQ(std::count(log.Opened().begin(), log.Opened().end(), L"Tessera.X509OcspClientOnline"),
              2)
        << "the client and its copy each open a channel";
    const std::vector<LogLine> lines = log.LinesOf(L"Tessera.X509OcspClientOnline");
    ASSERT_GE(lines.size(), 2u) << "entry and URL lines";
    EXPECT_EQ(lines[0].level, Level::Debug) << "entries are Debug lines";
    EXPECT_EQ(lines[0].text, L"GetOcspResponse(Cert:" +
                                 std::wstring(Ee().GetSubjectName().GetStringX500().c_str()) + L")")
        << "the entry line names the certificate";
    EXPECT_EQ(lines[1].text, L"GetOcspResponse: URL=http://127.0.0.1:9/set") << "the URL line";
}
