// X509OcspClientMap and X509OcspClientStack over fake clients that record
// what reaches them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

#include "TestTessera.h"

using namespace TesseraLib;
using namespace tessera_test;
using QorOcsp2Lib::OcspException;
using QorOcsp2Lib::OcspResponse;

namespace {

class FakeClient : public X509OcspClient {
public:
    explicit FakeClient(OcspResponse* answer = nullptr) : answer(answer) {}
    OcspResponse* GetOcspResponse(const X509Certificate&, const X509Certificate&) override {
        ++calls;
        if (fails) {
            OcspException::Throw(OcspException::ocspErrConnect, L"responder down");
        }
        return answer;
    }
    OcspResponse* GetOcspResponseAfterTime(const X509Certificate& cert,
                                           const X509Certificate& issuer,
                                           const std::int64_t& after) override {
        time = after;
        return GetOcspResponse(cert, issuer);
    }
    OcspResponse* answer;
    bool fails = false;
    int calls = 0;
    std::int64_t time = -1;
};

std::string Upper(const qorstd::QorString& text) {
    std::string out = text.c_str();
    std::transform(out.begin(), out.end(), out.begin(),
                   [](unsigned char c) { return std::toupper(c); });
    return out;
}

// A CA, its renewal (same subject, new key) and an end entity of the CA.
class OcspRouting : public ::testing::Test {
protected:
    void SetUp() override {
        const CertPlan caProfile = BasicProfile("Routing CA", 1, true);
        const Issued caIssued = IssueCertificate(caProfile, nullptr);
        renewed = Cert(IssueCertificate(caProfile, nullptr));
        ee = Cert(IssueCertificate(BasicProfile("Routed Signer", 2, false), &caIssued));
        ca = Cert(caIssued);
    }
    X509Certificate ca, renewed, ee;
    OcspResponse responseA, responseB;
    FakeClient a{&responseA}, b{&responseB};
};

}  // namespace

TEST_F(OcspRouting, MapRoutesByIssuerKeyWithoutRegardToCase) {
    X509OcspClientMap byName;
    const qorstd::QorString nameKey = ca.GetSubjectName().GetSHA1HashHex();
    ASSERT_NE(Upper(nameKey), nameKey.c_str()) << "the key has letters, so case matters";
    byName.AddOcspClientForIssuer(Upper(nameKey).c_str(), &a);
    byName.SetDefaultClient(&b);
    EXPECT_EQ(byName.GetOcspResponse(ee, ca), &responseA) << "by name hash (the default method)";
    EXPECT_EQ(byName.GetOcspResponse(ee, renewed), &responseA)
        << "a renewed CA with the same subject name finds the same client";

    X509OcspClientMap byCert;
    byCert.SetIssuerIdentificationMethod(X509OcspClientMap::idByIssuerCertificateHash);
    byCert.AddOcspClientForIssuer(Upper(ca.GetSHA1HashHex()).c_str(), &a);
    byCert.SetDefaultClient(&b);
    EXPECT_EQ(byCert.GetOcspResponseAfterTime(ee, ca, 1234), &responseA) << "by certificate hash";
    EXPECT_EQ(a.time, 1234) << "the time is passed on";
    EXPECT_EQ(byCert.GetOcspResponse(ee, renewed), &responseB)
        << "the renewed CA certificate goes to the default client";

    FakeClient c(&responseB);
    byCert.AddOcspClientForIssuer(ca.GetSHA1HashHex(), &c);
    EXPECT_EQ(byCert.GetOcspResponse(ee, ca), &responseB) << "a key equal but for case replaces";
    EXPECT_EQ(a.calls, 3) << "the replaced client is not asked again";
}

TEST_F(OcspRouting, MapWithoutMatchOrDefaultWarnsAndAnswersNull) {
    {
        LogCapture capture;
        ASSERT_TRUE(capture.Active()) << "logging set up";
        X509OcspClientMap map;
        map.AddOcspClientForIssuer(ca.GetSubjectName().GetSHA1HashHex(), &a);
        EXPECT_EQ(map.GetOcspResponse(ca, ee), nullptr) << "no client for this issuer";
    }
    const std::vector<LogLine> lines =
        RecordingLog::Instance().LinesOf(L"Tessera.X509OcspClientMap");
    ASSERT_EQ(lines.size(), 1u) << "one line";
    EXPECT_TRUE(lines[0].level == Level::Warning && lines[0].text == L"OCSP client not found")
        << "a Warning that no client was found";
}

TEST_F(OcspRouting, TrustStoreReachesRoutedAndStackedClients) {
    X509MemoryStore store;
    X509OcspClientMap map;
    map.AddOcspClientForIssuer("00", &a);
    map.SetDefaultClient(&b);
    map.SetTrustStore(&store);
    EXPECT_TRUE(a.GetTrustStore() == &store && b.GetTrustStore() == &store)
        << "the map hands the store to its routed and default clients";
    EXPECT_EQ(map.GetTrustStore(), nullptr)
        << "the map keeps none, so the revocation search goes on lending its own";

    X509OcspClientStack stack;
    stack.AddClient(&a);
    stack.AddClient(&b);
    stack.SetTrustStore(nullptr);
    EXPECT_TRUE(a.GetTrustStore() == nullptr && b.GetTrustStore() == nullptr)
        << "the stack hands the store to every client";
    stack.SetTrustStore(&store);
    EXPECT_EQ(stack.GetTrustStore(), &store) << "the stack keeps the store too";
}

TEST_F(OcspRouting, StackTakesTheFirstResponseAndLetsExceptionsThrough) {
    FakeClient empty;
    X509OcspClientStack stack;
    stack.AddClient(&empty);
    stack.AddClient(&a);
    stack.AddClient(&b);
    EXPECT_EQ(stack.GetOcspResponse(ee, ca), &responseA) << "the first response wins";
    EXPECT_EQ(stack.GetOcspResponseAfterTime(ee, ca, 99), &responseA) << "also after a time";
    EXPECT_EQ(empty.time, 99) << "the time is passed on";
    EXPECT_EQ(b.calls, 0) << "clients after the answer are not asked";
    empty.fails = true;
    EXPECT_EQ(CodeOf([&] { stack.GetOcspResponse(ee, ca); }), OcspException::ocspErrConnect)
        << "a stacked client's own error propagates";
    EXPECT_EQ(a.calls, 2) << "no client is asked after an exception";
}

TEST_F(OcspRouting, MapAndStackRefuseCertificatesWithoutHandle) {
    X509OcspClientMap map;
    map.SetDefaultClient(&a);
    X509OcspClientStack stack;
    stack.AddClient(&a);
    for (X509OcspClient* client : std::vector<X509OcspClient*>{&map, &stack}) {
        const Thrown noCert = Catch([&] { client->GetOcspResponse(X509Certificate(), ca); });
        EXPECT_TRUE(noCert.code == ErrInvalidParameter && noCert.message == "cert.GetX509()=NULL")
            << "an empty certificate is refused: 102 naming it";
        EXPECT_EQ(
            Catch([&] { client->GetOcspResponseAfterTime(ee, X509Certificate(), 0); }).message,
            "issuer.GetX509()=NULL")
            << "an empty issuer is refused, naming it";
    }
    EXPECT_EQ(a.calls, 0) << "nothing is forwarded for a refused request";
}
