// The client against the loopback TSA of the tsa fixture (openssl ts -reply
// behind a python http.server): tokens over SHA-1/256/512, policies,
// credentials, argument checks and the log channel.
#include <gtest/gtest.h>

#include <openssl/evp.h>

#include <ctime>
#include <string>

#include "QorTsp2.h"
#include "RecordingLog.h"
#include "TestPki.h"
#include "TestServers.h"
#include "TestTsa.h"
#include "TspTestUtil.h"

using namespace QorTsp2Lib;
using tessera_test::Bytes;
using tessera_test::TestTsa;
using tsp_test::CodeOf;
using tsp_test::ToBytes;

namespace {

std::wstring Wide(const std::string& text) {
    return std::wstring(text.begin(), text.end());
}

class TspClientTest : public ::testing::Test {
protected:
    void SetUp() override {
        url = tessera_test::ServerFile("tsa", "url");
        if (url.empty()) {
            GTEST_SKIP() << "the tsa fixture is not running";
        }
        base = url.substr(0, url.rfind('/'));
    }

    TspClient Client(tspHashAlgorithm algorithm, const std::string& path = "/tsa") const {
        TspClient client(Wide(base + path).c_str());
        client.SetHashAlgorithm(algorithm);
        client.SetTotalTimeout(20);
        return client;
    }

    static TspTimeStamp Ask(const TspClient& client, const Bytes& imprint) {
        return client.TimeStamp(imprint.data(), static_cast<unsigned int>(imprint.size()), 0);
    }

    const Bytes imprint = TestTsa::Digest(EVP_sha256(), "document");
    std::string url;
    std::string base;
};

}  // namespace

TEST_F(TspClientTest, TokensCarryWhatWasAskedFor) {
    const tessera_test::CertPtr tsaCert =
        tessera_test::ReadPemCertificate(tessera_test::ServerDir("tsa") + "/tsa.pem");
    ASSERT_TRUE(tsaCert) << "the fixture leaves tsa.pem";
    const struct {
        const EVP_MD* md;
        tspHashAlgorithm algorithm;
    } cases[] = {
        {EVP_sha1(), tspHashSHA1}, {EVP_sha256(), tspHashSHA256}, {EVP_sha512(), tspHashSHA512}};
    for (const auto& c : cases) {
        const Bytes digest = TestTsa::Digest(c.md, "document");
        const std::int64_t before = static_cast<std::int64_t>(std::time(nullptr));
        const TspTimeStamp stamp = Ask(Client(c.algorithm), digest);
        const std::int64_t after = static_cast<std::int64_t>(std::time(nullptr));
        const std::string name = EVP_MD_get0_name(c.md);

        EXPECT_EQ(stamp.GetMessageImprint().GetHashAlgorithm(), c.algorithm)
            << name << ": imprint algorithm as sent";
        EXPECT_EQ(ToBytes(stamp.GetMessageImprint().GetHashedMessage()), digest)
            << name << ": imprint bytes as sent";
        EXPECT_GE(stamp.GetTime(), before - 1) << name << ": genTime not before the request";
        EXPECT_LE(stamp.GetTime(), after + 1) << name << ": genTime not after the answer";
        ASSERT_NE(stamp.GetTsaCertificate(), nullptr) << name << ": certReq TRUE was honoured";
        EXPECT_EQ(ToBytes(stamp.GetTsaCertificate()->Encode()),
                  tessera_test::CertToDer(tsaCert.get()))
            << name << ": the certificate is the fixture's tsa.pem";
        EXPECT_FALSE(stamp.GetNonceHex().empty()) << name << ": a nonce was sent";
    }
}

TEST_F(TspClientTest, EachRequestHasItsOwnNonceAndTheRequestedPolicyIsHonouredOrRefused) {
    TspClient client = Client(tspHashSHA256);
    const TspTimeStamp first = Ask(client, imprint);
    const TspTimeStamp second = Ask(client, imprint);
    EXPECT_NE(first.GetNonceHex(), second.GetNonceHex()) << "nonces are random per request";
    EXPECT_NE(first.GetSerialNumberHex(), second.GetSerialNumberHex()) << "two tokens from the TSA";

    client.SetPolicyId("1.2.3.4.5");
    EXPECT_STREQ(Ask(client, imprint).GetPolicyId().c_str(), "1.2.3.4.5")
        << "the TSA issues under the policy asked for";

    client.SetPolicyId("1.2.3.4.9");
    std::wstring message;
    EXPECT_EQ(CodeOf([&] { Ask(client, imprint); }, "unaccepted policy", &message), TspErrRejected)
        << "a policy the TSA does not serve is a rejection";
    EXPECT_NE(message.find(L"unacceptedPolicy"), std::wstring::npos)
        << "the failure information is in the message: " << tsp_test::Narrow(message);
}

TEST_F(TspClientTest, BasicCredentialsAreSent) {
    TspClient client = Client(tspHashSHA256, "/auth");
    std::wstring message;
    EXPECT_EQ(CodeOf([&] { Ask(client, imprint); }, "no credentials", &message), TspErrHttpStatus)
        << "without credentials the TSA answers 401";
    EXPECT_NE(message.find(L"401"), std::wstring::npos) << "the status is in the message";

    client.SetUser(L"tsa-user");
    client.SetPassword(L"wrong");
    EXPECT_EQ(CodeOf([&] { Ask(client, imprint); }, "wrong password"), TspErrHttpStatus)
        << "a wrong password is refused";

    client.SetPassword(L"tsa-pass");
    EXPECT_EQ(ToBytes(Ask(client, imprint).GetMessageImprint().GetHashedMessage()), imprint)
        << "with the right credentials the token arrives";
}

// Algorithm, imprint length and policy are the encoder's to refuse (TspProtocolTest).
TEST_F(TspClientTest, EmptyImprintOrUrlIsRefusedBeforeSending) {
    EXPECT_EQ(CodeOf([&] { Client(tspHashSHA512).TimeStamp(nullptr, 64, 0); }, "null imprint"),
              TspErrInvalidParameter)
        << "a null imprint";
    TspClient noUrl;
    noUrl.SetHashAlgorithm(tspHashSHA256);
    EXPECT_EQ(CodeOf([&] { Ask(noUrl, imprint); }, "no URL"), TspErrInvalidParameter)
        << "an empty URL";
}

class TspClientLogTest : public TspClientTest {
protected:
    void TearDown() override { QorTsp2_InitializeLogging(nullptr); }
};

TEST_F(TspClientLogTest, RequestsAreLoggedOnTheClientsChannel) {
    tessera_test::RecordingLog& log = tessera_test::RecordingLog::Instance();
    log.Reset();
    const LoggingCallbacks table = log.Table();
    ASSERT_EQ(QorTsp2_InitializeLogging(&table), 1) << "logging set-up succeeds";
    {
        const TspClient client = Client(tspHashSHA256);
        EXPECT_TRUE(log.WasOpened(L"QorTsp2.TspClient")) << "the channel carries the prefix";
        Ask(client, imprint);
        CodeOf([&] { Ask(client, Bytes(20, 0x11)); }, "wrong length");
    }
    const auto logged = [&](tessera_test::Level level, const std::wstring& fragment) {
        return log.Contains(L"QorTsp2.TspClient", level, fragment);
    };
    EXPECT_TRUE(logged(tessera_test::Level::Info, Wide(base + "/tsa")))
        << "one Info line names the URL";
    EXPECT_TRUE(logged(tessera_test::Level::Error, std::to_wstring(TspErrInvalidParameter)))
        << "a failure is logged at Error with its code";
    EXPECT_EQ(log.Closed().size(), log.Opened().size()) << "the channel closes with the client";

    QorTsp2_InitializeLogging(nullptr);
    const std::size_t opened = log.Opened().size();
    const TspClient silent;
    EXPECT_EQ(log.Opened().size(), opened) << "after clearing the table no channel opens";
}
