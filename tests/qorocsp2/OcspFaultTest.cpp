// The OCSP client's transport failures (the http fixture) and its checks of
// answers that a transport of the test's own hands back.
#include <gtest/gtest.h>

#include <openssl/ocsp.h>

#include "OcspTestUtil.h"
#include "TestOcsp.h"
#include "TestServers.h"

using namespace QorOcsp2Lib;
using namespace ocsp_test;
using namespace tessera_test;

namespace {

struct Pki {
    Issued ca, responder, alice;
    Pki() {
        CertPlan profile;
        profile.commonName = "Fault CA";
        profile.extensions = CaExtensions();
        ca = IssueCertificate(profile, nullptr);
        profile.commonName = "Fault Responder";
        profile.serial = 2;
        profile.extensions = {{"extendedKeyUsage", "OCSPSigning"}};
        responder = IssueCertificate(profile, &ca);
        profile.commonName = "Alice";
        profile.serial = 0x61;
        profile.extensions = {};
        alice = IssueCertificate(profile, &ca);
    }
};

// Hands back a prepared answer and keeps the request it was given.
class CannedTransport : public HttpClient {
public:
    std::vector<unsigned char> answer;
    std::vector<unsigned char> request;
    void Post(const StlString&, const char*, const qorstd::QorArray<unsigned char>& body,
              qorstd::QorArray<unsigned char>& response) override {
        request.assign(body.Begin(), body.End());
        response.Assign(answer.data(), static_cast<unsigned int>(answer.size()));
    }
};

std::vector<unsigned char> NonceOf(const std::vector<unsigned char>& requestDer) {
    const unsigned char* cursor = requestDer.data();
    OCSP_REQUEST* request =
        d2i_OCSP_REQUEST(nullptr, &cursor, static_cast<long>(requestDer.size()));
    std::vector<unsigned char> nonce;
    const int at =
        request != nullptr ? OCSP_REQUEST_get_ext_by_NID(request, NID_id_pkix_OCSP_Nonce, -1) : -1;
    if (at >= 0) {
        ASN1_OCTET_STRING* value = X509_EXTENSION_get_data(OCSP_REQUEST_get_ext(request, at));
        nonce.assign(value->data, value->data + value->length);
    }
    OCSP_REQUEST_free(request);
    return nonce;
}

class OcspFaultTest : public ::testing::Test {
protected:
    void SetUp() override {
        client.SetIssuerCertificates(One(pki.ca.cert.get()));
        client.SetUrl(L"http://127.0.0.1:1/");
    }
    int Ask() {
        return CodeOf([&] {
            OcspResponse response;
            client.SendRequest(OcspCertificate(pki.alice.cert.get()), response, 1);
        });
    }
    OcspResponsePlan Answer(X509* subject) {
        const std::int64_t at = UtcTime(2024, 6, 2);
        return OcspPlan(&pki.responder, pki.ca.cert.get(),
                        {{subject, V_OCSP_CERTSTATUS_GOOD, -1, 0, at, 0}}, at);
    }

    static const Pki pki;
    OcspClient client;
};
const Pki OcspFaultTest::pki;

}  // namespace

TEST_F(OcspFaultTest, TransportFailuresHaveTheirOwnCodes) {
    const std::string base = ServerFile("http", "url");
    ASSERT_FALSE(base.empty()) << "the http fixture must be running";
    CurlHttpClient transport;
    transport.SetTimeout(1);
    client.SetHttpClient(&transport);

    const struct {
        std::string url;
        int code;
        const char* what;
    } cases[] = {{base + "/status/404", 137, "HTTP 404"},
                 {base + "/status/500", 137, "HTTP 500"},
                 {base + "/garbage", 131, "a body that is no OCSP response"},
                 {base + "/empty", 131, "an empty body"},
                 {base + "/slow/3", 135, "no answer within the 1 s limit"},
                 {base + "/drop", 136, "connection closed without an answer"},
                 {"http://127.0.0.1:1/", 134, "nothing listens on port 1"}};
    for (const auto& c : cases) {
        client.SetUrl(Wide(c.url).c_str());
        EXPECT_EQ(Ask(), c.code) << c.what;
    }
}

TEST_F(OcspFaultTest, NonceMustBeEchoedUnchangedWhenPresent) {
    CannedTransport transport;
    client.SetHttpClient(&transport);
    OcspResponsePlan profile = Answer(pki.alice.cert.get());
    transport.answer = MakeOcspResponse(profile);
    EXPECT_EQ(Ask(), 0) << "a responder may leave the nonce out";
    const std::vector<unsigned char> sent = NonceOf(transport.request);
    ASSERT_GE(sent.size(), 16u) << "the request carries a nonce";

    profile.nonce = {0x04, 0x02, 0xAB, 0xCD};
    transport.answer = MakeOcspResponse(profile);
    EXPECT_EQ(Ask(), 142) << "a different nonce";
}

TEST_F(OcspFaultTest, ResponseMustAnswerForTheCertificate) {
    CannedTransport transport;
    client.SetHttpClient(&transport);
    transport.answer = MakeOcspResponse(Answer(pki.responder.cert.get()));
    EXPECT_EQ(Ask(), 143) << "a signed answer about another certificate";

    OcspResponsePlan refused;
    refused.responseStatus = OCSP_RESPONSE_STATUS_UNAUTHORIZED;
    transport.answer = MakeOcspResponse(refused);
    EXPECT_EQ(Ask(), 139) << "the responder refused";
}
