// The client against answers that are not tokens (the http fixture's fault
// paths) and against a port where nothing listens: every kind of failure
// has a code of its own.
#include <gtest/gtest.h>

#include <string>

#include "TestServers.h"
#include "TestTsa.h"
#include "TspClient.h"
#include "TspTestUtil.h"

using namespace QorTsp2Lib;
using tsp_test::CodeOf;

TEST(TspClientFaultTest, EveryKindOfFailureHasItsCode) {
    const std::string base = tessera_test::ServerFile("http", "url");
    if (base.empty()) {
        GTEST_SKIP() << "the http fixture is not running";
    }
    const tessera_test::Bytes imprint = tessera_test::TestTsa::Digest(EVP_sha256(), "x");
    const struct {
        std::string url;
        int code;
        const char* what;
        const wchar_t* inMessage;  // a text the message must contain
    } cases[] = {
        {base + "/status/500", TspErrHttpStatus, "HTTP 500", L"500"},
        {base + "/status/404", TspErrHttpStatus, "HTTP 404", L"404"},
        {base + "/garbage", TspErrBadResponse, "a garbage body", L""},
        {base + "/empty", TspErrBadResponse, "an empty body", L""},
        {base + "/echo", TspErrBadResponse, "the request echoed back is no response", L""},
        {base + "/slow/3", TspErrTimeout, "a 3 s answer with a 1 s limit", L""},
        {"http://127.0.0.1:1/tsa", TspErrConnect, "nothing listens on port 1", L""},
        {base + "/drop", TspErrTransport, "connection closed without an answer", L""},
    };
    for (const auto& c : cases) {
        TspClient client(std::wstring(c.url.begin(), c.url.end()).c_str());
        client.SetHashAlgorithm(tspHashSHA256);
        client.SetTotalTimeout(c.code == TspErrTimeout ? 1 : 10);
        std::wstring message;
        EXPECT_EQ(CodeOf([&] { client.TimeStamp(imprint.data(), 32, 0); }, c.what, &message),
                  c.code)
            << c.what;
        EXPECT_NE(message.find(c.inMessage), std::wstring::npos)
            << c.what << ": the message names the status";
    }
}
