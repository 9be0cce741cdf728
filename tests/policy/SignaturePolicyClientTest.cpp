// Signature policy clients as an application sees them (libtessera.so), the
// online client against the loopback "http" fixture. Policy files go into the
// fixture's root under names unique to each test.
#include <gtest/gtest.h>

#include <string>

#include "SignaturePolicy.h"
#include "SignaturePolicyClient.h"
#include "TestServers.h"
#include "TestTessera.h"

namespace {

using namespace TesseraLib;
using namespace tessera_test;

const char kRbOid[] = "2.16.76.1.7.1.1.2.3";  // PA_AD_RB_v2_3.der
const wchar_t kCurl[] = L"Tessera.CurlSignaturePolicyClientOnline";

std::wstring Wide(const std::string& text) {
    return std::wstring(text.begin(), text.end());
}

qorstd::QorStringW HttpUrl(const std::string& path) {
    return qorstd::QorStringW(Wide(ServerFile("http", "url") + path).c_str());
}

// Copies the public policy into the fixture's root; returns its URL.
qorstd::QorStringW PublishPolicy() {
    const std::string name =
        std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()) + ".der";
    const Bytes der =
        ReadBinaryFile(std::string(TESSERA_VECTORS_DIR) + "/policies/PA_AD_RB_v2_3.der");
    WriteTextFile(ServerDir("http") + "/root/" + name, std::string(der.begin(), der.end()));
    return HttpUrl("/file/" + name);
}

bool Logged(Level level, const std::wstring& fragment) {
    return RecordingLog::Instance().Contains(kCurl, level, fragment);
}

class PolicyClientTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(ServerFile("http", "url").empty()) << "the http fixture must be running";
        ASSERT_TRUE(capture.Active()) << "logging set up";
    }
    LogCapture capture;
};

// Answers with a fixed policy or none, counting its calls.
class FixedPolicyClient : public SignaturePolicyClient {
public:
    explicit FixedPolicyClient(const SignaturePolicy* policy) : m_policy(policy) {}
    const SignaturePolicy* GetSignaturePolicy(const qorstd::QorString&) override {
        ++calls;
        return m_policy;
    }
    int calls = 0;

private:
    const SignaturePolicy* m_policy;
};

TEST_F(PolicyClientTest, OnlineClientReturnsOnlyThePolicyWithTheAskedOid) {
    CurlSignaturePolicyClientOnline client;
    client.SetUrl(PublishPolicy());
    const SignaturePolicy* policy = client.GetSignaturePolicy(kRbOid);
    ASSERT_NE(policy, nullptr) << "the downloaded policy carries the OID asked for";
    EXPECT_STREQ(policy->GetOID().c_str(), kRbOid) << "and is the one in the file";
    EXPECT_TRUE(Logged(Level::Debug, L"HTTP request succesful.")) << "the success line";

    EXPECT_EQ(client.GetSignaturePolicy("2.16.76.1.7.1.1.2.4"), nullptr)
        << "a policy with another OID is not returned";
    EXPECT_NE(client.GetSignaturePolicy(kRbOid), nullptr) << "the client answers again";
    client.Reset();

    client.SetUrl(HttpUrl("/empty"));
    EXPECT_EQ(client.GetSignaturePolicy(kRbOid), nullptr) << "an empty 200 body gives null";
    client.SetUrl(HttpUrl("/garbage"));
    EXPECT_EQ(CodeOf([&] { client.GetSignaturePolicy(kRbOid); }), ErrAsn1Decoding)
        << "a body that is no policy passes the decoding error on";
}

TEST_F(PolicyClientTest, CurlTransportMapsFailuresToPolicyDownloadCodes) {
    CurlSignaturePolicyClientOnline client;
    const auto fetch = [&](const qorstd::QorStringW& url) {
        client.SetUrl(url);
        return CodeOf([&] { client.GetSignaturePolicy(kRbOid); });
    };
    EXPECT_EQ(fetch(L""), ErrInvalidParameter) << "no URL → 102";
    EXPECT_TRUE(Logged(Level::Error, L"Server address not set")) << "the missing URL is logged";

    EXPECT_EQ(fetch(HttpUrl("/status/404")), ErrPolicyDownloadResponse) << "404 → 604";
    EXPECT_TRUE(Logged(Level::Error, L"Server HTTP reply contains HTTP status code 404 (URL=http"))
        << "the status is logged with the URL";
    EXPECT_TRUE(Logged(Level::Error, L"HTTP body: status 404")) << "and the body of the answer";
    EXPECT_EQ(fetch(HttpUrl("/status/503")), ErrPolicyUnavailable) << "503 → 603";

    const std::string refused =
        "http://127.0.0.1:" + std::to_string(FreeLoopbackPort()) + "/policy";
    EXPECT_EQ(fetch(qorstd::QorStringW(Wide(refused).c_str())), ErrPolicyDownloadConnect)
        << "a refused connection → 602";
    EXPECT_TRUE(Logged(Level::Error, L"HTTP request failed. Result code=7. Message="))
        << "libcurl's result code and text are logged";

    client.SetTimeout(1);
    EXPECT_EQ(fetch(HttpUrl("/slow/3")), ErrPolicyDownloadTimeout)
        << "an answer later than the time-out → 600";
}

TEST_F(PolicyClientTest, StackAsksInOrderUntilOneAnswers) {
    const SignaturePolicy policy(
        Array(ReadBinaryFile(std::string(TESSERA_VECTORS_DIR) + "/policies/PA_AD_RB_v2_3.der")));
    FixedPolicyClient none(nullptr), first(&policy), second(&policy);
    SignaturePolicyClientStack stack;
    EXPECT_EQ(stack.GetSignaturePolicy(kRbOid), nullptr) << "an empty stack has no policy";
    stack.AddClient(&none);
    stack.AddClient(&first);
    stack.AddClient(&second);
    EXPECT_EQ(stack.GetSignaturePolicy(kRbOid), &policy) << "the first non-null answer";
    EXPECT_EQ(none.calls + first.calls + second.calls, 2) << "asked in order, none after it";

    CurlSignaturePolicyClientOnline unset;  // no URL: throws
    SignaturePolicyClientStack failing;
    failing.AddClient(&unset);
    failing.AddClient(&first);
    EXPECT_EQ(CodeOf([&] { failing.GetSignaturePolicy(kRbOid); }), ErrInvalidParameter)
        << "an exception of a stacked client passes through";
}

TEST_F(PolicyClientTest, CopiesKeepUrlAndTimeouts) {
    CurlSignaturePolicyClientOnline client;
    client.SetUrl(PublishPolicy());
    client.SetConnectTimeout(2);
    client.SetTimeout(7);
    ASSERT_NE(client.GetSignaturePolicy(kRbOid), nullptr) << "the original holds a policy";

    CurlSignaturePolicyClientOnline copy(client);
    CurlSignaturePolicyClientOnline assigned;
    assigned = client;
    for (const CurlSignaturePolicyClientOnline* c : {&copy, &assigned}) {
        EXPECT_TRUE(c->GetUrl() == client.GetUrl()) << "the URL is copied";
        EXPECT_EQ(c->GetConnectTimeout(), 2) << "the connect time-out is copied";
        EXPECT_EQ(c->GetTimeout(), 7) << "the transfer time-out is copied";
    }
    client.Reset();
    EXPECT_NE(copy.GetSignaturePolicy(kRbOid), nullptr) << "the copy downloads on its own";
}

}  // namespace
