// CRL clients against the loopback "http" fixture and local files.
//
//   "CRL Test CA" (self-signed)
//      ├── issues  leaf (valid 2024-01-01 .. 2025-01-01), distribution points per test
//      └── signs   CRLs with thisUpdate chosen per test
//   "Other CA"  ── signs a CRL that must never be taken for the leaf
//
// CRL files go into the fixture's root folder under names unique to each test,
// so that tests can run in parallel.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "CryptException.h"
#include "TestServers.h"
#include "TestTessera.h"
#include "X509Certificate.h"
#include "X509CrlClient.h"

namespace {

using namespace TesseraLib;
using namespace tessera_test;

const std::int64_t kNotBefore = UtcTime(2024, 1, 1);
const std::int64_t kNotAfter = UtcTime(2025, 1, 1);
const wchar_t kOnline[] = L"Tessera.X509CrlClientOnline";
const wchar_t kCurl[] = L"Tessera.X509CurlCrlClientOnline";

const Issued& Ca(const std::string& name = "CRL Test CA") {
    static std::map<std::string, Issued> cas;
    auto found = cas.find(name);
    if (found == cas.end()) {
        found = cas.emplace(name, IssueCertificate(BasicProfile(name, 1, true), nullptr)).first;
    }
    return found->second;
}

X509Certificate Leaf(const std::vector<std::vector<std::string>>& points, bool withPoints = true) {
    CertPlan profile;
    profile.commonName = "CRL Test Leaf";
    profile.serial = 7;
    profile.notBefore = kNotBefore;
    profile.notAfter = kNotAfter;
    if (withPoints) {
        profile.rawExtensions = {{"2.5.29.31", CrlDistributionPointsDer(points)}};
    }
    const Issued leaf = IssueCertificate(profile, &Ca());
    return X509Certificate(leaf.cert.get());
}

std::vector<unsigned char> CrlDer(std::int64_t thisUpdate, const std::string& ca = "CRL Test CA") {
    return CrlToDer(IssueCrl(Ca(ca), thisUpdate, thisUpdate + 86400).get());
}

std::string TestName() {
    return ::testing::UnitTest::GetInstance()->current_test_info()->name();
}

// Writes a CRL into the http fixture's root and returns its file name.
std::string PublishCrl(const std::string& suffix, const std::vector<unsigned char>& der) {
    const std::string name = TestName() + "-" + suffix + ".crl";
    WriteTextFile(ServerDir("http") + "/root/" + name, std::string(der.begin(), der.end()));
    return name;
}

std::string HttpUrl(const std::string& path) {
    return ServerFile("http", "url") + path;
}

std::wstring Wide(const std::string& text) {
    return std::wstring(text.begin(), text.end());
}

bool Logged(const std::wstring& channel, Level level, const std::wstring& fragment) {
    return RecordingLog::Instance().Contains(channel, level, fragment);
}

class CrlClientTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(ServerFile("http", "url").empty()) << "the http fixture must be running";
        ASSERT_TRUE(capture.Active()) << "logging set up";
    }
    LogCapture capture;
};

// A client answering with a fixed CRL (or none) and counting its calls.
class FixedCrlClient : public X509CrlClient {
public:
    explicit FixedCrlClient(const std::vector<unsigned char>& der = {}) {
        if (!der.empty()) {
            m_crl = std::make_unique<X509Crl>(der.data(), static_cast<long>(der.size()));
        }
    }
    X509Crl* GetCrl(const X509Certificate&) override {
        ++calls;
        return m_crl.get();
    }
    X509Crl* GetCrlAfterTime(const X509Certificate&, const std::int64_t& time,
                             const X509Certificate*) override {
        ++calls;
        return m_crl && m_crl->GetThisUpdate() >= time ? m_crl.get() : nullptr;
    }
    int calls = 0;

private:
    std::unique_ptr<X509Crl> m_crl;
};

// ---------------------------------------------------------------- libcurl transport

TEST_F(CrlClientTest, CurlTransportMapsServerAnswersAndRefusesProxiesAndMissingUrls) {
    // A 200 answer with a CRL: the walk below and check_cli_fetch_crl.sh.
    X509CurlCrlClientOnline client;
    qorstd::QorArray<unsigned char> out;
    const auto fetch = [&](const std::string& path) {
        return CodeOf([&] { client.GetCrlEncoded(Wide(HttpUrl(path)).c_str(), out); });
    };
    EXPECT_EQ(fetch("/status/404"), ErrCrlServiceBadResponse) << "404 → 502";
    EXPECT_TRUE(Logged(kCurl, Level::Error,
                       L"Server HTTP reply contains HTTP status code 404 (URL=http://"))
        << "the status is logged with the URL";
    EXPECT_TRUE(Logged(kCurl, Level::Error, L"HTTP body: status 404"))
        << "the body of an error answer is logged";
    // 503 → 501 and 500 → 502: check_cli_fetch_crl.sh and check_cli_broken_servers.sh.
    EXPECT_EQ(CodeOf([&] { client.GetCrlEncoded(L"http://127.0.0.1:1/crl", out); }), ErrCrlService)
        << "connection refused → 500";
    EXPECT_TRUE(Logged(kCurl, Level::Error, L"HTTP request failed. Result code=7."))
        << "libcurl's result code is logged";

    client.SetTimeout(1);
    EXPECT_EQ(fetch("/slow/3"), ErrCrlServiceTimeout) << "an answer past the time-out → 503";
    client.SetTimeout(0);

    EXPECT_EQ(client.GetCrl(Wide(HttpUrl("/garbage")).c_str()), nullptr)
        << "a body that is no CRL gives no CRL";
    EXPECT_TRUE(Logged(kOnline, Level::Warning,
                       L"GetCrl: Cannot get CRL, CryptException caught: ErrorNumber = 109"))
        << "the decoding failure is a Warning, not an exception";
    EXPECT_EQ(client.GetCrl(Wide(HttpUrl("/empty")).c_str()), nullptr) << "an empty body: null";

    EXPECT_EQ(CodeOf([&] { client.GetCrlEncoded(L"", out); }), ErrInvalidParameter)
        << "an empty URL is a parameter error";
    client.SetUseProxy(1);
    const std::wstring url = Wide(HttpUrl("/empty"));
    EXPECT_EQ(CodeOf([&] { client.GetCrlEncoded(url.c_str(), out); }), ErrInvalidParameter)
        << "useProxy without proxy address → 102";
    client.SetProxyAddress(L"127.0.0.1:3128");
    EXPECT_EQ(CodeOf([&] { client.GetCrlEncoded(url.c_str(), out); }), ErrNotImplemented)
        << "useProxy with an address → 180 (no proxy support)";
}

// ---------------------------------------------------------------- distribution-point walk

TEST_F(CrlClientTest, WalkTakesTheFirstHttpNameOfEachPointAndGoesOnAfterFailures) {
    const std::string file = PublishCrl("dp2", CrlDer(UtcTime(2024, 4, 1)));
    // Point 1 fails (404); point 2 offers LDAP, HTTPS, upper-case HTTP, then http.
    const X509Certificate leaf =
        Leaf({{"ldap://127.0.0.1/cn=crl", HttpUrl("/status/404")},
              {"https://127.0.0.1:1/x.crl", "HTTP://127.0.0.1:1/x.crl", HttpUrl("/file/" + file)}});
    X509CurlCrlClientOnline client;
    X509Crl* crl = client.GetCrl(leaf);
    ASSERT_NE(crl, nullptr) << "the second point delivers";
    EXPECT_EQ(crl->GetThisUpdate(), UtcTime(2024, 4, 1)) << "the CRL of the second point";
    EXPECT_TRUE(Logged(kOnline, Level::Warning, L"ErrorNumber = 502"))
        << "the failing first point leaves a Warning";

    EXPECT_EQ(client.GetCrlAfterTime(leaf, UtcTime(2024, 4, 2), nullptr), nullptr)
        << "a CRL older than the time asked for is refused";
    EXPECT_TRUE(Logged(kOnline, Level::Debug,
                       L"CRL(ThisUpdate:01.04.2024 00:00:00) < Time(02.04.2024 00:00:00)"))
        << "the refusal names both times";
    EXPECT_NE(client.GetCrlAfterTime(leaf, UtcTime(2024, 4, 1), nullptr), nullptr)
        << "thisUpdate equal to the time is accepted";
}

TEST_F(CrlClientTest, WalkWithoutHttpPointsGivesNullWithoutComplaint) {
    X509CurlCrlClientOnline client;
    EXPECT_EQ(client.GetCrl(Leaf({{"ldap://127.0.0.1/cn=crl"}, {"https://127.0.0.1:1/x.crl"}})),
              nullptr)
        << "LDAP and HTTPS points are not fetched";
    EXPECT_EQ(client.GetCrl(Leaf({}, false)), nullptr) << "no distribution points: null";
    EXPECT_TRUE(RecordingLog::Instance().LinesOf(kOnline).size() > 0 &&
                !Logged(kOnline, Level::Warning, L""))
        << "neither case is a failure";
    EXPECT_EQ(client.GetCrl(X509Certificate()), nullptr)
        << "a certificate without handle gives null";
    EXPECT_TRUE(Logged(kOnline, Level::Error, L"GetCrl: Bad parameter - cert.GetX509() is null"))
        << "and the bad parameter is logged";
}

// Fails every URL with its own code, except those containing "good".
class ScriptedOnlineClient : public X509CrlClientOnline {
public:
    X509Crl* GetCrl(const X509Certificate& cert) override {
        return X509CrlClientOnline::GetCrl(cert);
    }
    X509Crl* GetCrl(const wchar_t* url) override {
        const std::wstring text(url);
        if (text.find(L"good") != std::wstring::npos) {
            return X509CrlClientOnline::GetCrl(url);
        }
        CryptException::Throw(text.find(L"first") != std::wstring::npos ? ErrCrlServiceTimeout
                                                                        : ErrCrlServiceUnavailable,
                              text.c_str());
    }
    void GetCrlEncoded(const wchar_t*, qorstd::QorArray<unsigned char>& out) const override {
        out.Append(crl.data(), static_cast<unsigned int>(crl.size()));
    }
    std::vector<unsigned char> crl;
};

TEST_F(CrlClientTest, WalkKeepsTheLastFailureAndReportsItOnlyWhenNoPointDelivers) {
    ScriptedOnlineClient client;
    client.crl = CrlDer(UtcTime(2024, 5, 1));
    EXPECT_NE(client.GetCrl(Leaf({{"http://first"}, {"http://good"}})), nullptr)
        << "a failure of the first point does not stop the walk";
    EXPECT_FALSE(Logged(kOnline, Level::Warning, L""))
        << "a walk that ends with a CRL reports nothing";

    EXPECT_EQ(client.GetCrl(Leaf({{"http://first"}, {"http://second"}})), nullptr)
        << "no point delivers";
    EXPECT_TRUE(Logged(kOnline, Level::Warning,
                       L"ErrorNumber = 501, Description = CRL service unavailable., Message = "
                       L"http://second"))
        << "the kept failure (code and message of the last point) is reported";
}

// ---------------------------------------------------------------- cache, stack, wrappers

TEST_F(CrlClientTest, CacheAnswersByIssuerWithoutAskingAgain) {
    const X509Certificate leaf = Leaf({}, false);
    FixedCrlClient subordinate(CrlDer(UtcTime(2024, 2, 1)));
    X509CacheCrlClient cache;
    EXPECT_EQ(cache.GetCrl(leaf), nullptr) << "empty cache without subordinate: null";
    cache.SetSubordinateClient(&subordinate);
    X509Crl* first = cache.GetCrl(leaf);
    ASSERT_NE(first, nullptr) << "the subordinate's CRL is handed on";
    EXPECT_EQ(cache.GetCache().GetSize(), 1u) << "and a copy is cached";
    EXPECT_NE(cache.GetCrl(leaf), nullptr) << "the cached CRL answers";
    EXPECT_EQ(cache.GetCrlAfterTime(leaf, UtcTime(2024, 6, 1), nullptr), nullptr)
        << "a cached CRL older than the time asked for is not returned";
    EXPECT_EQ(subordinate.calls, 1) << "the subordinate is asked once, even for a later time";

    FixedCrlClient foreign(CrlDer(UtcTime(2024, 2, 1), "Other CA"));
    X509CacheCrlClient other;
    other.SetSubordinateClient(&foreign);
    other.GetCrl(leaf);  // caches the foreign CRL
    other.SetSubordinateClient(nullptr);
    EXPECT_EQ(other.GetCrl(leaf), nullptr) << "a cached CRL of another issuer does not match";
}

TEST_F(CrlClientTest, StackAsksInInsertionOrderAndLetsExceptionsThrough) {
    const X509Certificate leaf = Leaf({}, false);
    FixedCrlClient none;
    FixedCrlClient a(CrlDer(UtcTime(2024, 2, 1)));
    FixedCrlClient b(CrlDer(UtcTime(2024, 3, 1)));
    X509CrlClientStack stack;
    stack.AddClient(&none);
    stack.AddClient(&a);
    stack.AddClient(&a);
    stack.AddClient(&b);
    EXPECT_EQ(stack.GetClients().GetSize(), 3u) << "the same client twice is kept once";
    ASSERT_NE(stack.GetCrl(leaf), nullptr) << "the first non-null answer";
    EXPECT_EQ(stack.GetCrl(leaf)->GetThisUpdate(), UtcTime(2024, 2, 1)) << "comes from a, not b";
    EXPECT_EQ(stack.GetCrlAfterTime(leaf, UtcTime(2024, 2, 15), nullptr)->GetThisUpdate(),
              UtcTime(2024, 3, 1))
        << "GetCrlAfterTime goes on to b when a's CRL is too old";
    EXPECT_EQ(b.calls, 1) << "b is asked only when a has nothing";

    X509WinCrlClientOnline throwing;  // a certificate without points makes it throw
    X509CrlClientStack failing;
    failing.AddClient(&throwing);
    failing.AddClient(&a);
    EXPECT_EQ(CodeOf([&] { failing.GetCrl(leaf); }), ErrRevocationUnknown)
        << "an exception of a stacked client passes through";
    EXPECT_EQ(CodeOf([&] { stack.GetCrlAfterTime(X509Certificate(), 0, nullptr); }),
              ErrInvalidParameter)
        << "a certificate without handle → 102";
}

TEST_F(CrlClientTest, TimeLimitlessIgnoresTimeAndValidatorKeepsCertificateValidity) {
    const X509Certificate leaf = Leaf({}, false);
    FixedCrlClient old(CrlDer(UtcTime(2024, 2, 1)));
    X509CrlClientTimeLimitless limitless(&old);
    EXPECT_NE(limitless.GetCrlAfterTime(leaf, UtcTime(2024, 9, 1), nullptr), nullptr)
        << "a CRL issued before the time asked for is still offered";
    X509CrlClientTimeLimitless empty(nullptr);
    EXPECT_EQ(CodeOf([&] { empty.GetCrl(leaf); }), ErrInvalidParameter) << "null client → 102";

    struct Case {
        std::int64_t thisUpdate;
        bool accepted;
    };
    for (const Case& c : {Case{kNotBefore, true}, Case{kNotAfter, true},
                          Case{kNotBefore - 1, false}, Case{kNotAfter + 1, false}}) {
        FixedCrlClient source(CrlDer(c.thisUpdate));
        X509CrlClientValidator validator(&source);
        EXPECT_EQ(validator.GetCrl(leaf) != nullptr, c.accepted)
            << "thisUpdate " << c.thisUpdate << " against validity [" << kNotBefore << ", "
            << kNotAfter << "]";
    }
    EXPECT_TRUE(Logged(L"Tessera.X509CrlClientValidator", Level::Debug,
                       L"CRL is not time valid, Cert(NotBefore:01.01.2024 00:00:00, "
                       L"NotAfter:01.01.2025 00:00:00) <- CRL(ThisUpdate:01.01.2025 00:00:01)"))
        << "a dropped CRL is logged with the three times";
}

// ---------------------------------------------------------------- platform retrieval

TEST_F(CrlClientTest, PlatformClientFetchesAnySchemeAndTakesTheFirstCrl) {
    const std::string root = ServerDir("http") + "/root/";
    const std::string file = PublishCrl("file", CrlDer(UtcTime(2024, 6, 1)));
    const std::string web = PublishCrl("web", CrlDer(UtcTime(2024, 7, 1)));
    const X509Certificate leaf = Leaf({{"file://" + root + "missing.crl", HttpUrl("/garbage")},
                                       {"file://" + root + file},
                                       {HttpUrl("/file/" + web)}});
    X509WinCrlClientOnline client;
    X509Crl* crl = client.GetCrl(leaf);
    ASSERT_NE(crl, nullptr) << "a missing file and garbage are skipped";
    EXPECT_EQ(crl->GetThisUpdate(), UtcTime(2024, 6, 1)) << "the first CRL that decodes wins";
    EXPECT_EQ(client.GetCrlAfterTime(leaf, UtcTime(2024, 6, 2), nullptr), nullptr)
        << "a CRL older than the time asked for is refused";

    const X509Certificate webOnly = Leaf({{HttpUrl("/status/404")}, {HttpUrl("/file/" + web)}});
    ASSERT_NE(client.GetCrl(webOnly), nullptr) << "http points are fetched as well";
    EXPECT_EQ(client.GetCrl(webOnly)->GetThisUpdate(), UtcTime(2024, 7, 1)) << "the web CRL";

    const X509Certificate nothing = Leaf({{HttpUrl("/status/503"), "file:///nonexistent/x.crl"}});
    EXPECT_EQ(CodeOf([&] { client.GetCrl(nothing); }), ErrCrlService)
        << "no point delivers a CRL → 500";
    EXPECT_TRUE(Logged(L"Tessera.X509WinCrlClientOnline", Level::Error,
                       L"GetCrlFromCertificate: Unable to retrieve CRL."))
        << "and the failure is logged";
    EXPECT_EQ(client.GetCrl(L"file:///anything"), nullptr) << "URL requests are not supported";
}

}  // namespace
