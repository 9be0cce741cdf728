// The CRL-service client against the loopback "crlservice" fixture.
//
//   "Service CA" ──issues──> leaf
//        └── CRLs in the service folder, thisUpdate 2024-03-01 and 2024-05-01
//   "Unserved CA" ── has no CRL at the service
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <string>
#include <vector>

#include "QorGetOneCrl.h"
#include "TestServers.h"
#include "TestTessera.h"
#include "X509Certificate.h"
#include "X509CrlClient.h"

namespace {

using namespace TesseraLib;
using namespace tessera_test;

struct Pki {
    Issued ca;
    X509Certificate caCert;
    X509Certificate leaf;
};

const Pki& PkiOf(const std::string& caName) {
    static std::map<std::string, Pki> pkis;
    auto found = pkis.find(caName);
    if (found == pkis.end()) {
        Issued ca = IssueCertificate(BasicProfile(caName, 1, true), nullptr);
        const X509Certificate leaf =
            Cert(IssueCertificate(BasicProfile(caName + " Leaf", 2, false), &ca));
        const X509Certificate caCert = Cert(ca);
        found = pkis.emplace(caName, Pki{std::move(ca), caCert, leaf}).first;
    }
    return found->second;
}

void Publish(const Pki& pki, std::int64_t thisUpdate) {
    PublishToCrlService(IssueCrl(pki.ca, thisUpdate, thisUpdate + 86400).get(), thisUpdate);
}

bool Logged(Level level, const std::wstring& fragment) {
    return RecordingLog::Instance().Contains(L"Tessera.X509GetOneCrlClient", level, fragment);
}

class GetOneCrlClientTest : public ::testing::Test {
protected:
    void SetUp() override {
        const std::string url = ServerFile("crlservice", "url");
        ASSERT_FALSE(url.empty()) << "the crlservice fixture must be running";
        ASSERT_TRUE(capture.Active()) << "logging set up";
        service.SetUrl(std::wstring(url.begin(), url.end()).c_str());
        Publish(PkiOf("Service CA"), UtcTime(2024, 3, 1));
        Publish(PkiOf("Service CA"), UtcTime(2024, 5, 1));
    }

    // A client whose only entry names `ca` by its SHA-1 written in upper case.
    X509GetOneCrlClient ClientFor(const X509Certificate& ca) {
        std::string key = ca.GetSHA1HashHex().c_str();
        std::transform(key.begin(), key.end(), key.begin(), ::toupper);
        X509GetOneCrlParameters entry;
        entry.SetIssuer(key.c_str());
        entry.SetCrlClient(&service);
        qorstd::QorVector<X509GetOneCrlParameters> parameters;
        parameters.Add(entry);
        X509GetOneCrlClient client;
        client.SetCrlParameters(parameters);
        return client;
    }

    LogCapture capture;
    QorGetOneCrlLib::CrlClient service;
};

TEST_F(GetOneCrlClientTest, ServiceDeliversTheNewestCrlOrOneIssuedAfterTheTime) {
    const Pki& pki = PkiOf("Service CA");
    X509GetOneCrlClient client = ClientFor(pki.caCert);
    X509Crl* newest = client.GetCrlAfterTime(pki.leaf, 0, &pki.caCert);
    ASSERT_NE(newest, nullptr) << "upper-case key matches the lower-case SHA-1; CRL found";
    EXPECT_EQ(newest->GetThisUpdate(), UtcTime(2024, 5, 1)) << "without time: the newest CRL";
    EXPECT_EQ(service.GetRequestTime(), 0) << "time 0 is not written to the service client";

    X509Crl* after = client.GetCrlAfterTime(pki.leaf, UtcTime(2024, 2, 1), &pki.caCert);
    ASSERT_NE(after, nullptr) << "a CRL issued after 2024-02-01 exists";
    EXPECT_EQ(service.GetRequestTime(), UtcTime(2024, 2, 1)) << "the time reaches the service";

    EXPECT_EQ(client.GetCrlAfterTime(pki.leaf, UtcTime(2024, 6, 1), &pki.caCert), nullptr)
        << "no CRL issued after 2024-06-01";
    EXPECT_TRUE(Logged(Level::Warning,
                       L"GetCrlAfterTime: Bad CRL response (Error code=1, Message=CRL not found)"))
        << "not found is a Warning with the service's code and message";
    EXPECT_EQ(client.GetCrl(pki.leaf), nullptr) << "GetCrl is not served";
    EXPECT_TRUE(Logged(Level::Warning, L"GetCrl: Cannot get CRL, not implemented"))
        << "and says so";
}

TEST_F(GetOneCrlClientTest, MissingIssuerParametersOrServiceFailuresGiveNull) {
    const Pki& pki = PkiOf("Service CA");
    const Pki& unserved = PkiOf("Unserved CA");
    X509GetOneCrlClient client = ClientFor(pki.caCert);
    EXPECT_EQ(client.GetCrlAfterTime(pki.leaf, 0, nullptr), nullptr) << "no issuer: null";
    EXPECT_TRUE(Logged(Level::Warning, L"GetCrlAfterTime: issuerCert is null")) << "Warning";
    EXPECT_EQ(client.GetCrlAfterTime(unserved.leaf, 0, &unserved.caCert), nullptr)
        << "an issuer without parameters entry";
    EXPECT_TRUE(Logged(Level::Warning, L"GetCrlAfterTime: GetOneCrl parameters not set."))
        << "Warning names the missing parameters";

    service.SetUrl(L"http://127.0.0.1:1/crl");
    EXPECT_EQ(client.GetCrlAfterTime(pki.leaf, 0, &pki.caCert), nullptr) << "refused connection";
    EXPECT_TRUE(Logged(Level::Error, L"QORGETONECRL_NAMESPACE::CrlException caught (Error code=3"))
        << "the service library's exception is logged at Error and absorbed";

    const std::string url = ServerFile("crlservice", "url") + "?time=bad";
    service.SetUrl(std::wstring(url.begin(), url.end()).c_str());
    EXPECT_EQ(client.GetCrlAfterTime(pki.leaf, 0, &pki.caCert), nullptr) << "HTTP 400 answer";
    EXPECT_TRUE(Logged(Level::Error, L"CrlException caught (Error code=6"))
        << "a status other than 200 and 404 is an HTTP status failure";
}

TEST(GetOneCrlLibraryTest, RequestCarriesTheIssuerInUrlAlphabetAndTheTime) {
    QorGetOneCrlLib::CrlClient client;
    client.SetIssuer("ab+/cd==");
    EXPECT_TRUE(client.GetRequestUrl().empty()) << "no URL: no request";
    client.SetUrl(L"http://127.0.0.1:9/crl");
    EXPECT_STREQ(client.GetRequestUrl().c_str(), "http://127.0.0.1:9/crl?issuer=ab-_cd")
        << "Base64 becomes Base64url without padding";
    client.SetRequestTime(1717200000);
    client.SetUrl(L"http://127.0.0.1:9/crl?x=1");
    EXPECT_STREQ(client.GetRequestUrl().c_str(),
                 "http://127.0.0.1:9/crl?x=1&issuer=ab-_cd&time=1717200000")
        << "an existing query is extended; the time is appended";
    QorGetOneCrlLib::CrlResponse response;
    client.SetIssuer("");
    int code = 0;
    try {
        client.SendRequest(response);
    } catch (const QorGetOneCrlLib::CrlException& e) {
        code = e.GetErrorCode();
    }
    EXPECT_EQ(code, QorGetOneCrlLib::CrlException::crlErrInvalidParameter)
        << "a request without issuer throws code 2";
    const unsigned char notCrl[] = {0x30, 0x03, 0x02, 0x01, 0x00};
    EXPECT_THROW(QorGetOneCrlLib::Crl(notCrl, sizeof(notCrl)), QorGetOneCrlLib::CrlException)
        << "bytes that are no CRL are refused";
}

}  // namespace
