// The own HTTP/HTTPS client and X509QorCrlClientOnline against the "rawhttp"
// fixture: servers that record the raw request bytes and answer with raw
// bytes each test chooses, over plain TCP and TLS, and tinyproxy (Basic
// authentication user/pass) whose CONNECT reaches the TLS server.
//
//   client ──────────────────────────────► plain server  (request recorded)
//   client ──── TLS ─────────────────────► TLS server
//   client ── CONNECT ──► tinyproxy ─ TLS ► TLS server
//   client ── absolute form / CONNECT ───► plain server acting as the proxy
//
// Answers and records are files named after the last path segment, unique
// per test, so tests may run in parallel.
#include <gtest/gtest.h>

#include <string>

#include "CryptException.h"
#include "TestServers.h"
#include "TestTessera.h"
#include "X509CrlClient.h"
#include "x509/http/httpint.h"
#include "x509/http/qor_http.h"

namespace {

using namespace TesseraLib;
using namespace tessera_test;

const wchar_t kChannel[] = L"Tessera.X509QorCrlClientOnline";
const std::string kFrom = "From: tessera-http@tessera.invalid\r\n";
const std::string kPlainAgent = "User-Agent: QOR_HTTP_Client/13.03\r\n";
const std::string kTlsAgent = "User-Agent: QOR_HTTPS_Client/13.03 OpenSSL/1.0\r\n";

std::wstring Wide(const std::string& text) {
    return std::wstring(text.begin(), text.end());
}

std::string Dir(const std::string& server) {
    return ServerDir("rawhttp") + "/" + server;
}

std::string Url(const std::string& server) {
    return ServerFile("rawhttp", server + "/url");
}

void Answer(const std::string& server, const std::string& name, const std::string& raw) {
    WriteTextFile(Dir(server) + "/responses/" + name, raw);
}

std::string Recorded(const std::string& server, const std::string& name) {
    const Bytes bytes = ReadBinaryFile(Dir(server) + "/requests/" + name);
    return std::string(bytes.begin(), bytes.end());
}

std::string CrlBytes() {
    static const Issued ca = IssueCertificate(BasicProfile("Own HTTP Test CA", 1, true), nullptr);
    const Bytes der = CrlToDer(IssueCrl(ca, UtcTime(2024, 3, 1), UtcTime(2024, 3, 2)).get());
    return std::string(der.begin(), der.end());
}

class QorCrlClientTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(Url("plain").empty()) << "the rawhttp fixture must be running";
        ASSERT_TRUE(capture.Active()) << "logging set up";
    }
    // GetCrlEncoded is reached as the application reaches it, through the base.
    int Fetch(const std::string& url, std::string* body = nullptr) {
        qorstd::QorArray<unsigned char> out;
        X509CrlClientOnline& online = client;
        const int code = CodeOf([&] { online.GetCrlEncoded(Wide(url).c_str(), out); });
        if (body != nullptr) {
            body->assign(out.GetData(), out.GetData() + out.GetSize());
        }
        return code;
    }
    bool Logged(const std::wstring& line) const {
        return RecordingLog::Instance().Has(kChannel, Level::Error, line);
    }
    bool LoggedPart(const std::wstring& fragment) const {
        return RecordingLog::Instance().Contains(kChannel, Level::Error, fragment);
    }
    LogCapture capture;
    X509QorCrlClientOnline client;
};

TEST_F(QorCrlClientTest, PlainRequestIsHttp10WithoutHostAndAnswersMapToCodes) {
    const std::string crl = CrlBytes();
    Answer("plain", "crl-a",
           "HTTP/1.0 200 OK\r\nContent-Length: " + std::to_string(crl.size()) + "\r\n\r\n" + crl);
    std::string body;
    ASSERT_EQ(Fetch(Url("plain") + "/dir/crl-a?when=now", &body), 0) << "200 is a download";
    EXPECT_EQ(body, crl) << "the body is the CRL";
    EXPECT_EQ(Recorded("plain", "crl-a"),
              "GET /dir/crl-a?when=now HTTP/1.0\r\n" + kFrom + kPlainAgent + "\r\n")
        << "path with query, HTTP/1.0, no Host line";
    X509CrlClientOnline& online = client;
    EXPECT_NE(online.GetCrl(Wide("HtTp" + Url("plain").substr(4) + "/crl-a").c_str()), nullptr)
        << "a scheme in mixed case is accepted and the CRL imported";

    Answer("plain", "root", "HTTP/1.0 200 OK\r\n\r\n");
    EXPECT_EQ(Fetch(Url("plain"), &body), 0);
    EXPECT_EQ(body, "") << "200 with an empty body gives an empty out";
    EXPECT_EQ(Recorded("plain", "root"), "GET / HTTP/1.0\r\n" + kFrom + kPlainAgent + "\r\n")
        << "a URL without a path asks for /";

    Answer("plain", "gone", "HTTP/1.0 404 Not Found\r\n\r\nno such CRL");
    EXPECT_EQ(Fetch(Url("plain") + "/gone"), ErrCrlServiceBadResponse) << "404 → 502";
    EXPECT_TRUE(Logged(L"GetCrlEncoded: Server HTTP reply contains HTTP status code 404 (URL=" +
                       Wide(Url("plain")) + L"/gone)"))
        << "the status line is logged with the URL";
    EXPECT_TRUE(Logged(L"HTTP body: no such CRL")) << "the body is logged";
    Answer("plain", "busy", "HTTP/1.1 503 Service Unavailable\r\nContent-Length: 0\r\n\r\n");
    EXPECT_EQ(Fetch(Url("plain") + "/busy"), ErrCrlServiceUnavailable) << "503 → 501";
}

TEST_F(QorCrlClientTest, BrokenAnswersGive500AndContentLengthEndsTheExchange) {
    Answer("plain", "noblank", "HTTP/1.0 200 OK\r\nContent-Type: x\r\n");
    Answer("plain", "midheader", "HTTP/1.0 200 OK\r\nContent-Le");
    for (const char* name : {"noblank", "midheader"}) {
        EXPECT_EQ(CodeOf([&] {
                      qorstd::QorArray<unsigned char> out;
                      static_cast<X509CrlClientOnline&>(client).GetCrlEncoded(
                          Wide(Url("plain") + "/" + name).c_str(), out);
                  }),
                  ErrCrlService)
            << name << ": an answer without a blank line → 500";
    }
    EXPECT_TRUE(LoggedPart(L"GetCrlEncoded: Bad HTTP reply format (URL=")) << "logged";
    // The plain exchange itself refuses a status line it cannot read; the
    // TLS exchange leaves that to the CRL client.
    Answer("plain", "garbage", "garbage\r\n\r\nbody");
    EXPECT_EQ(Fetch(Url("plain") + "/garbage"), ErrCrlService) << "plain: garbage status → 500";
    Answer("tls", "garbage", "garbage\r\n\r\nbody");
    const Thrown garbage = Catch([&] {
        qorstd::QorArray<unsigned char> out;
        static_cast<X509CrlClientOnline&>(client).GetCrlEncoded(
            Wide(Url("tls") + "/garbage").c_str(), out);
    });
    EXPECT_EQ(garbage.code, ErrCrlService) << "a first line without a blank → 500";
    EXPECT_EQ(garbage.message, "Can't get HTTP status code from reply") << "its message";
    EXPECT_TRUE(LoggedPart(L"GetCrlEncoded: Can't get HTTP status code from reply (URL=https://"));

    Answer("plain", "longline",
           "HTTP/1.0 200 OK\r\nX-Long: " + std::string(64 * 1024, 'a') + "\r\n\r\nbody");
    std::string body;
    EXPECT_EQ(Fetch(Url("plain") + "/longline", &body), 0) << "a 64 KiB header line is read";
    EXPECT_EQ(body, "body") << "and the body after it";

    // The server sends 10 announced bytes, then more, and keeps the
    // connection open: the client must stop after the announced body.
    Answer("plain", "short-hold",
           std::string("HTTP/1.0 200 OK\r\nContent-Length:  \"10\" \r\n\r\n0123456789") +
               std::string("\0PAUSE\0", 7) + "EXTRA");
    EXPECT_EQ(Fetch(Url("plain") + "/short-hold", &body), 0) << "done without the server closing";
    EXPECT_EQ(body, "0123456789") << "the exchange ends with the announced body";
}

TEST_F(QorCrlClientTest, BadAddressesAndUnreachableServers) {
    EXPECT_EQ(Fetch(""), ErrInvalidParameter) << "no URL";
    EXPECT_TRUE(Logged(L"GetCrlEncoded: Server address not set"));
    EXPECT_EQ(Fetch("ldap://127.0.0.1/cn=crl"), ErrInvalidParameter) << "ldap";
    EXPECT_TRUE(Logged(L"FindOutURLSchema: Unsupported schema: LDAP")) << "scheme in capitals";
    EXPECT_TRUE(Logged(L"GetCrlEncoded: Server address error"));
    EXPECT_EQ(Fetch("127.0.0.1/crl"), ErrInvalidParameter) << "no ://";
    EXPECT_TRUE(LoggedPart(L"FindOutURLSchema: Protocol identificator not found (:// not found)."));
    // A 70-character label is refused by the resolver itself: no query leaves the machine.
    EXPECT_EQ(Fetch("http://" + std::string(70, 'x') + ".invalid/crl"), ErrCrlService)
        << "unresolvable host → 500";
    EXPECT_TRUE(LoggedPart(L"GetCrlEncoded: QOR_HTTP_Connect Error:"));
    EXPECT_EQ(Fetch("http://127.0.0.1:1/crl"), ErrCrlService) << "refused connection → 500";
    EXPECT_EQ(Fetch("https://127.0.0.1:1/crl"), ErrCrlService) << "refused TLS connection → 500";
    EXPECT_TRUE(LoggedPart(L"GetCrlEncoded: QOR_HTTPS_Connect Error:"));
    client.SetUseProxy(1);
    EXPECT_EQ(Fetch(Url("plain") + "/x"), ErrInvalidParameter) << "proxy without address";
    EXPECT_TRUE(Logged(L"GetCrlEncoded: UseProxy set true, but proxy server address not set"));
    client.SetProxyAddress(L"127.0.0.1:3128");
    EXPECT_EQ(Fetch(Url("plain") + "/x"), ErrInvalidParameter) << "proxy address without ://";
    EXPECT_TRUE(Logged(L"GetCrlEncoded: Proxy address error"));
}

TEST_F(QorCrlClientTest, ProxyFormsCarryTheAuthorizationEvenWhenEmpty) {
    // The plain server plays the proxy and records what it is sent.
    client.SetUseProxy(1);
    client.SetProxyAddress(Wide(Url("plain")).c_str());
    Answer("plain", "proxied", "HTTP/1.0 200 OK\r\n\r\nvia proxy");
    std::string body;
    EXPECT_EQ(Fetch("http://crl.example/p/proxied", &body), 0);
    EXPECT_EQ(body, "via proxy");
    EXPECT_EQ(Recorded("plain", "proxied"), "GET http://crl.example:80/p/proxied HTTP/1.0\r\n" +
                                                kFrom + kPlainAgent +
                                                "Proxy-Authorization: Basic Og==\r\n\r\n")
        << "absolute form, port 80 filled in, Base64 of a lone colon";
    EXPECT_EQ(Fetch("https://crl.example:8443/x.crl"), ErrCrlService)
        << "a proxy refusing CONNECT (403) → 500";
    EXPECT_EQ(Recorded("plain", "connect-crl.example"),
              "CONNECT crl.example:8443 HTTP/1.0\r\n" + kTlsAgent +
                  "Proxy-Authorization: Basic Og==\r\n\r\n")
        << "the CONNECT request";
}

TEST_F(QorCrlClientTest, TlsIsReadUntilCloseAlsoThroughTinyproxy) {
    Answer("tls", "tls-crl", "HTTP/1.0 200 OK\r\nContent-Length: 3\r\n\r\nabcdef");
    std::string body;
    ASSERT_EQ(Fetch(Url("tls") + "/t/tls-crl", &body), 0) << "https without authenticating";
    EXPECT_EQ(body, "abcdef") << "a TLS response is not cut at its Content-Length";
    EXPECT_EQ(Recorded("tls", "tls-crl"),
              "GET /t/tls-crl HTTP/1.0\r\n" + kFrom + kTlsAgent + "\r\n");

    client.SetUseProxy(1);
    client.SetProxyAddress(Wide(ServerFile("rawhttp", "proxy_url")).c_str());
    client.SetProxyUserName(L"user");
    client.SetProxyPassword(L"pass");
    Answer("tls", "tunnel", "HTTP/1.0 200 OK\r\n\r\ntunnelled");
    ASSERT_EQ(Fetch(Url("tls") + "/t/tunnel", &body), 0) << "CONNECT tunnel through tinyproxy";
    EXPECT_EQ(body, "tunnelled");
    EXPECT_EQ(Recorded("tls", "tunnel"), "GET " + Url("tls") + "/t/tunnel HTTP/1.0\r\n" + kFrom +
                                             kTlsAgent +
                                             "Proxy-Authorization: Basic dXNlcjpwYXNz\r\n\r\n")
        << "inside the tunnel the request line has the absolute form with https";

    client.SetProxyPassword(L"wrong");
    Answer("plain", "denied", "HTTP/1.0 200 OK\r\n\r\nnever");
    EXPECT_EQ(Fetch(Url("plain") + "/denied"), ErrCrlServiceBadResponse) << "wrong password";
    EXPECT_TRUE(LoggedPart(L"Server HTTP reply contains HTTP status code 401")) << "tinyproxy: 401";

    // Without credentials (only the C layer can leave them out) tinyproxy asks for them.
    const std::string proxy = ServerFile("rawhttp", "proxy_url");
    const std::string url = Url("plain") + "/denied";
    HttpConnectParams params{};
    params.url = url.c_str();
    params.proxyHost = "127.0.0.1";
    params.proxyPort = static_cast<std::uint16_t>(std::stoi(proxy.substr(proxy.rfind(':') + 1)));
    IoParam out{nullptr, 0, kIoMemory};
    ASSERT_EQ(QOR_HTTP_Connect(&out, nullptr, &params, nullptr, nullptr), 0);
    EXPECT_EQ(QOR_HTTP_GetCode(&out), 407) << "missing proxy credentials";
    QOR_Param_MemFree(&out);
}

TEST_F(QorCrlClientTest, ExchangesStopOnTheirTimeoutAndOnTheCallbacksRefusal) {
    // Without Content-Length the answer ends only when the server closes,
    // which this one does not do for 10 s.
    Answer("plain", "stall-hold", "HTTP/1.0 200 OK\r\n\r\npartial");
    Answer("tls", "stall-hold", "HTTP/1.0 200 OK\r\n\r\npartial");
    const std::string plain = Url("plain") + "/stall-hold";
    const std::string tls = Url("tls") + "/stall-hold";
    HttpConnectParams params{};
    params.timeout = 1;
    IoParam out{nullptr, 0, kIoMemory};
    params.url = plain.c_str();
    EXPECT_EQ(QOR_HTTP_Connect(&out, nullptr, &params, nullptr, nullptr), kHttpTimeout) << "plain";
    params.url = tls.c_str();
    EXPECT_EQ(QOR_HTTPS_Connect(&out, nullptr, nullptr, &params, nullptr, nullptr), kHttpTimeout)
        << "TLS";
    EXPECT_EQ(out.data, nullptr) << "a failed exchange stores nothing";
    const HttpProgressCallback refuse = [](int phase, unsigned, unsigned, void*) {
        return phase == 0 ? 1 : 0;
    };
    params.url = plain.c_str();
    EXPECT_EQ(QOR_HTTP_Connect(&out, nullptr, &params, refuse, nullptr), kHttpAborted)
        << "refused while receiving";
    params.url = tls.c_str();
    EXPECT_EQ(QOR_HTTPS_Connect(&out, nullptr, nullptr, &params, refuse, nullptr), kHttpAborted);
}

TEST(QorHttpReading, SplitCodeHeaderItemsAndDates) {
    std::string raw = "HTTP/1.1 301 Moved\r\nLocation :  \"http://x/\" \t\r\nX: 1\r\n\r\nrest";
    IoParam in{raw.data(), static_cast<std::uint32_t>(raw.size()), kIoMemory};
    IoParam header{nullptr, 0, kIoMemory};
    IoParam body{nullptr, 0, kIoMemory};
    ASSERT_EQ(QOR_HTTP_SplitData(&in, &header, &body), 0);
    EXPECT_EQ(std::string(static_cast<char*>(header.data), header.length),
              std::string("HTTP/1.1 301 Moved\r\nLocation :  \"http://x/\" \t\r\nX: 1\r\n") + '\0')
        << "header lines and one zero byte";
    EXPECT_EQ(std::string(static_cast<char*>(body.data), body.length), "rest");
    EXPECT_EQ(QOR_HTTP_GetCode(&header), 301);
    char value[16];
    EXPECT_EQ(QOR_HTTP_GetHeaderItem(&header, "LOCATION", value, sizeof(value)), 0);
    EXPECT_STREQ(value, "http://x/") << "blanks and quotes removed, name without case";
    EXPECT_EQ(QOR_HTTP_GetHeaderItem(&header, "Location", value, 9), -1) << "does not fit";
    EXPECT_EQ(QOR_HTTP_GetHeaderItem(&header, "Absent", value, sizeof(value)), 0);
    EXPECT_STREQ(value, "") << "absent: empty";
    QOR_Param_MemFree(&header);
    QOR_Param_MemFree(&body);
    std::string partial = "HTTP/1.1 200 OK\r\n";
    IoParam incomplete{partial.data(), static_cast<std::uint32_t>(partial.size()), kIoMemory};
    IoParam nothing{nullptr, 0, kIoMemory};
    EXPECT_EQ(QOR_HTTP_SplitData(&incomplete, &nothing, nullptr), -2) << "no blank line yet";
    EXPECT_EQ(QOR_HTTP_SplitData(&incomplete, nullptr, nullptr), -1) << "no output";
    std::string noBlank = "garbage\r\n";
    IoParam garbage{noBlank.data(), static_cast<std::uint32_t>(noBlank.size()), kIoMemory};
    EXPECT_EQ(QOR_HTTP_GetCode(&garbage), -1) << "a first line without a blank";

    for (const char* good : {"Sun, 06 Nov 1994 08:49:37 GMT", "Sunday, 06-Nov-94 08:49:37 GMT",
                             "Sun Nov 06 08:49:37 1994", "Sun Nov  6 08:49:37 1994",
                             "Sun, 06 Nov 1994 59:49:37 GMT"}) {
        EXPECT_EQ(qorhttp::HTTPDate_Is(good), 1) << good;
    }
    for (const char* bad : {"Sun, 6 Nov 1994 08:49:37 GMT", "Sun, 32 Nov 1994 08:49:37 GMT",
                            "Sun, 06 Nov 1994 08:60:37 GMT", "sun, 06 Nov 1994 08:49:37 GMT",
                            "Sun, 06 Nov 1994 08:49:37 GMT ", ""}) {
        EXPECT_EQ(qorhttp::HTTPDate_Is(bad), 0) << bad;
    }
}

}  // namespace
