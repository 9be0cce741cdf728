// The client against answers that are not tokens (the http fixture's fault
// paths) and against a port where nothing listens: every kind of failure
// has a code of its own.
#include <gtest/gtest.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "TestServers.h"
#include "TestTsa.h"
#include "TspClient.h"
#include "TspTestUtil.h"

using namespace QorTsp2Lib;
using tsp_test::CodeOf;

namespace {

// A port on 127.0.0.1 that was free a moment ago (bound, then closed).
int ClosedPort() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    int port = 0;
    if (fd >= 0 && bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
        port = ntohs(address.sin_port);
    }
    if (fd >= 0) {
        close(fd);
    }
    return port;
}

class TspClientFaultTest : public ::testing::Test {
protected:
    void SetUp() override {
        base = tessera_test::ServerFile("http", "url");
        if (base.empty()) {
            GTEST_SKIP() << "the http fixture is not running";
        }
    }

    int CodeFor(const std::string& url, long totalTimeout = 10,
                std::wstring* message = nullptr) const {
        TspClient client(std::wstring(url.begin(), url.end()).c_str());
        client.SetHashAlgorithm(tspHashSHA256);
        client.SetTotalTimeout(totalTimeout);
        return CodeOf([&] { client.TimeStamp(imprint.data(), 32, 0); }, url, message);
    }

    std::string base;
    const tessera_test::Bytes imprint = tessera_test::TestTsa::Digest(EVP_sha256(), "x");
};

}  // namespace

TEST_F(TspClientFaultTest, HttpErrorStatusesNameTheStatus) {
    for (const char* status : {"500", "404"}) {
        std::wstring message;
        EXPECT_EQ(CodeFor(base + "/status/" + status, 10, &message), TspErrHttpStatus)
            << "HTTP " << status;
        EXPECT_NE(message.find(std::wstring(status, status + 3)), std::wstring::npos)
            << "the message names HTTP " << status;
    }
}

TEST_F(TspClientFaultTest, BodiesThatAreNoResponseAreBadResponses) {
    EXPECT_EQ(CodeFor(base + "/garbage"), TspErrBadResponse) << "garbage body";
    EXPECT_EQ(CodeFor(base + "/empty"), TspErrBadResponse) << "empty body";
    EXPECT_EQ(CodeFor(base + "/echo"), TspErrBadResponse)
        << "the request echoed back is no response";
}

TEST_F(TspClientFaultTest, SlowAnswersTimeOut) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(CodeFor(base + "/slow/3", 1), TspErrTimeout) << "a 3 s answer with a 1 s limit";
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_LT(elapsed, std::chrono::milliseconds(2500)) << "the limit is enforced, not waited out";
}

TEST_F(TspClientFaultTest, TransportFailuresAreToldApart) {
    const int port = ClosedPort();
    ASSERT_NE(port, 0) << "a free port";
    EXPECT_EQ(CodeFor("http://127.0.0.1:" + std::to_string(port) + "/tsa"), TspErrConnect)
        << "nothing listens";
    EXPECT_EQ(CodeFor(base + "/drop"), TspErrTransport) << "connection closed without an answer";
}
