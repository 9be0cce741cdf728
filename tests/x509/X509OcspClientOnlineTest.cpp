// X509OcspClientOnline against the ocsp fixture's `openssl ocsp` responders
// (tests/servers/ocsp_start.sh: good, revoked and unknown end entities whose
// AIA names the trusted responder), and over a canned transport where the
// response's producedAt must be pinned.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "RecordingLog.h"
#include "Tessera.h"
#include "TestOcsp.h"
#include "TestServers.h"

using namespace TesseraLib;
using namespace tessera_test;
using QorOcsp2Lib::OcspException;
using QorOcsp2Lib::OcspResponse;

namespace {

X509Certificate FixtureCert(const std::string& name) {
    const CertPtr cert = ReadPemCertificate(ServerDir("ocsp") + "/pki/" + name + ".pem");
    EXPECT_TRUE(cert) << name << ".pem from the ocsp fixture";
    return cert ? X509Certificate(cert.get()) : X509Certificate();
}

}  // namespace

TEST(X509OcspClientOnlineServer, UrlFromTheCertificateAnswersEveryStatus) {
    const X509Certificate ca = FixtureCert("ca");
    X509OcspClientOnline client;
    const char* const names[] = {"good", "revoked", "unknown"};
    for (int status = 0; status < 3; ++status) {
        OcspResponse* response = client.GetOcspResponse(FixtureCert(names[status]), ca);
        ASSERT_NE(response, nullptr) << names[status];
        EXPECT_EQ(response->GetSingleResponses().GetAt(0).GetCertStatus(), status)
            << "status of " << names[status] << " (URL from AIA)";
    }
}

TEST(X509OcspClientOnlineServer, ConfiguredUrlWinsAndTrustStoreCertificatesAreTrusted) {
    const X509Certificate ca = FixtureCert("ca");
    const X509Certificate good = FixtureCert("good");
    X509OcspClientOnline client;
    const std::string url = ServerFile("ocsp", "untrusted-url");
    client.SetUrl(std::wstring(url.begin(), url.end()).c_str());
    try {
        client.GetOcspResponse(good, ca);
        ADD_FAILURE() << "the responder of another CA must be refused";
    } catch (const OcspException& e) {
        EXPECT_EQ(e.GetErrorCode(), 141)
            << "the set URL is asked, and the library's code propagates";
    }
    X509MemoryStore trust;
    trust.AddCertificate(FixtureCert("untrusted-ocsp"));
    client.SetTrustStore(&trust);
    const OcspResponse* response = client.GetOcspResponse(good, ca);
    ASSERT_NE(response, nullptr) << "a responder certificate of the trust store is trusted";
    EXPECT_STREQ(response->GetResponderName().c_str(),
                 L"CN=Untrusted OCSP Responder,O=Tessera Test")
        << "answered by the untrusted responder";
}

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
        CertSpec certProfile;
        certProfile.commonName = "Canned OCSP CA";
        certProfile.extensions = CaExtensions();
        ca = IssueCertificate(certProfile, nullptr);
        certProfile.commonName = "Canned Signer";
        certProfile.serial = 77;
        certProfile.extensions = {{"authorityInfoAccess", "OCSP;URI:http://127.0.0.1:9/aia"}};
        ee = IssueCertificate(certProfile, &ca);
        OcspResponseSpec profile;
        profile.signer = &ca;
        profile.issuer = ca.cert.get();
        profile.answers = {OcspAnswer{ee.cert.get(), V_OCSP_CERTSTATUS_GOOD, -1, 0, producedAt, 0}};
        profile.producedAt = producedAt;
        transport.answer = MakeOcspResponse(profile);
        client.SetHttpClient(&transport);
    }
    X509Certificate Ca() const { return X509Certificate(ca.cert.get()); }
    X509Certificate Ee() const { return X509Certificate(ee.cert.get()); }

    const std::int64_t producedAt = UtcTime(2024, 3, 1, 12);
    Issued ca;
    Issued ee;
    CannedTransport transport;
    X509OcspClientOnline client;
};

// The CryptException code of an action and its message; 0 when none is thrown.
int CodeOf(const std::function<void()>& action, std::wstring* message) {
    try {
        action();
    } catch (const CryptException& e) {
        *message = e.GetErrorMessage().c_str();
        return e.GetErrorCode();
    }
    return 0;
}

}  // namespace

TEST_F(CannedOcsp, AfterTimeKeepsOnlyResponsesProducedAtOrAfterTheTime) {
    const OcspResponse* response = client.GetOcspResponseAfterTime(Ee(), Ca(), producedAt);
    ASSERT_NE(response, nullptr) << "producedAt equal to the time is recent enough";
    EXPECT_EQ(response->GetProducedAt(), producedAt) << "the canned response";
    EXPECT_EQ(client.GetOcspResponseAfterTime(Ee(), Ca(), producedAt + 1), nullptr)
        << "a response one second older than asked for is dropped";
}

TEST_F(CannedOcsp, RefusesRequestsWithoutCertificateOrUrl) {
    std::wstring message;
    CertSpec bare;
    bare.commonName = "No AIA";
    const Issued noAia = IssueCertificate(bare, &ca);
    int code =
        CodeOf([&] { client.GetOcspResponse(X509Certificate(noAia.cert.get()), Ca()); }, &message);
    EXPECT_TRUE(code == ErrChainVerification && message == L"cert.GetOcspResponderUrl() is empty")
        << "no URL set and none in the certificate";
    code = CodeOf([&] { client.GetOcspResponse(X509Certificate(), Ca()); }, &message);
    EXPECT_TRUE(code == ErrInvalidParameter && message == L"cert.GetX509()=NULL")
        << "an empty certificate: 102";
    code = CodeOf([&] { client.GetOcspResponseAfterTime(Ee(), X509Certificate(), 0); }, &message);
    EXPECT_TRUE(code == ErrInvalidParameter && message == L"issuer.GetX509()=NULL")
        << "an empty issuer: 102";
    EXPECT_EQ(transport.posts, 0) << "nothing is sent for a refused request";
}

TEST_F(CannedOcsp, LogsTheRequestAndACopyOpensItsOwnChannel) {
    RecordingLog& log = RecordingLog::Instance();
    log.Reset();
    const LoggingCallbacks table = log.Table();
    ASSERT_EQ(Tessera_InitializeLogging(&table, false), 1) << "logging set up";
    {
        X509OcspClientOnline logged;
        logged.SetHttpClient(&transport);
        logged.SetUrl(L"http://127.0.0.1:9/set");
        logged.GetOcspResponse(Ee(), Ca());
        const X509OcspClientOnline copy(logged);
        EXPECT_EQ(copy.GetHttpClient(), &transport) << "a copy keeps the settings";
    }
    Tessera_InitializeLogging(nullptr, false);
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
