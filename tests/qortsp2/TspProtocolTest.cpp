// The request encoder and the response checks, driven with replies that an
// in-process TSA (OpenSSL's TS_RESP_CTX) builds: refusals, missing or wrong
// nonces, foreign imprints and policies, and bodies that are no response.
#include <gtest/gtest.h>

#include <openssl/objects.h>
#include <openssl/ts.h>

#include "TestTsa.h"
#include "TspException.h"
#include "TspProtocol.h"
#include "TspTestUtil.h"

using namespace QorTsp2Lib;
using QorTsp2Lib::protocol::RequestFacts;
using tessera_test::Bytes;
using tessera_test::TestTsa;
using tessera_test::TsaReply;
using tsp_test::CodeOf;
using tsp_test::ToBytes;

namespace {

using RequestPtr = tsp_test::Owned<TS_REQ, TS_REQ_free>;

class TspProtocolTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { tsa = new TestTsa(); }
    static void TearDownTestSuite() {
        delete tsa;
        tsa = nullptr;
    }

    void SetUp() override {
        facts.algorithm = tspHashSHA256;
        facts.imprint = TestTsa::Digest(EVP_sha256(), "signature value");
        facts.nonce = {0x7f, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07};
    }

    // The encoded request, parsed by OpenSSL; it must be all of the bytes.
    RequestPtr EncodedRequest() const {
        const Bytes der = protocol::EncodeRequest(facts);
        const unsigned char* cursor = der.data();
        RequestPtr parsed(d2i_TS_REQ(nullptr, &cursor, static_cast<long>(der.size())));
        EXPECT_EQ(cursor, der.data() + der.size()) << "the request is one whole TimeStampReq";
        return parsed;
    }
    // The reply to the request these facts describe.
    Bytes Reply(const TsaReply& reply = TsaReply()) const {
        return tsa->Respond(protocol::EncodeRequest(facts), reply);
    }
    TspTimeStamp Check(const Bytes& response) const {
        return protocol::CheckResponse(response.data(), response.size(), facts);
    }
    int CheckCode(const Bytes& response, std::wstring* message = nullptr) const {
        return CodeOf([&] { Check(response); }, "CheckResponse", message);
    }

    static TestTsa* tsa;
    RequestFacts facts;
};

TestTsa* TspProtocolTest::tsa = nullptr;

}  // namespace

TEST_F(TspProtocolTest, RequestCarriesImprintNonceCertReqAndPolicy) {
    facts.policyId = "1.2.3.4.5";
    const RequestPtr request = EncodedRequest();
    ASSERT_TRUE(request) << "the request is a TimeStampReq";
    EXPECT_EQ(TS_REQ_get_version(request.get()), 1) << "version 1";
    EXPECT_EQ(TS_REQ_get_cert_req(request.get()), 1) << "certReq TRUE";
    TS_MSG_IMPRINT* imprint = TS_REQ_get_msg_imprint(request.get());
    const ASN1_OBJECT* oid = nullptr;
    int parameterType = 0;
    X509_ALGOR_get0(&oid, &parameterType, nullptr, TS_MSG_IMPRINT_get_algo(imprint));
    EXPECT_EQ(OBJ_obj2nid(oid), NID_sha256) << "imprint algorithm";
    EXPECT_EQ(parameterType, V_ASN1_NULL) << "NULL parameters";
    const ASN1_OCTET_STRING* hashed = TS_MSG_IMPRINT_get_msg(imprint);
    EXPECT_EQ(Bytes(ASN1_STRING_get0_data(hashed),
                    ASN1_STRING_get0_data(hashed) + ASN1_STRING_length(hashed)),
              facts.imprint)
        << "imprint bytes";
    char policy[64] = {0};
    OBJ_obj2txt(policy, sizeof(policy), TS_REQ_get_policy_id(request.get()), 1);
    EXPECT_STREQ(policy, "1.2.3.4.5") << "requested policy";
    EXPECT_EQ(ASN1_INTEGER_get(TS_REQ_get_nonce(request.get())), 0x7f01020304050607L) << "nonce";

    facts.policyId.clear();
    facts.nonce.clear();
    const RequestPtr plain = EncodedRequest();
    ASSERT_TRUE(plain) << "the plain request decodes";
    EXPECT_EQ(TS_REQ_get_policy_id(plain.get()), nullptr) << "no policy unless asked";
    EXPECT_EQ(TS_REQ_get_nonce(plain.get()), nullptr) << "no nonce when none is given";
}

TEST_F(TspProtocolTest, RequestRefusesWhatCannotBeAskedAndNoncesAreRandom) {
    const auto encodeCode = [&](const char* what) {
        return CodeOf([&] { protocol::EncodeRequest(facts); }, what);
    };
    facts.imprint.pop_back();
    EXPECT_EQ(encodeCode("31 bytes"), TspErrInvalidParameter) << "a 31-byte SHA-256 imprint";
    facts.imprint.push_back(0);
    facts.algorithm = tspHashNone;
    EXPECT_EQ(encodeCode("no algorithm"), TspErrInvalidParameter) << "no algorithm";
    facts.algorithm = tspHashSHA256;
    facts.policyId = "1.2.x";
    EXPECT_EQ(encodeCode("bad OID"), TspErrInvalidParameter) << "malformed policy";

    const Bytes first = protocol::NewNonce();
    EXPECT_EQ(first.size(), 8u) << "nonces are 64 bits";
    EXPECT_NE(first, protocol::NewNonce()) << "two nonces differ";
    EXPECT_EQ(protocol::NonceHex({0x00, 0x0a, 0xff}), "0AFF")
        << "whole bytes, a leading zero byte dropped, as OpenSSL prints integers";
}

TEST_F(TspProtocolTest, GrantedReplyGivesItsTokenByteForByte) {
    const Bytes response = Reply();
    const TspTimeStamp stamp = Check(response);
    EXPECT_EQ(ToBytes(stamp.Encode(0)), TestTsa::TokenOf(response))
        << "the token is taken from the reply unchanged";
    EXPECT_STREQ(stamp.GetNonceHex().c_str(), "7F01020304050607") << "the checked nonce";

    TsaReply mods;
    mods.grantedWithMods = true;
    EXPECT_NO_THROW(Check(Reply(mods))) << "grantedWithMods is a grant";

    facts.policyId = TestTsa::OtherPolicy();
    EXPECT_STREQ(Check(Reply()).GetPolicyId().c_str(), TestTsa::OtherPolicy())
        << "the requested policy was granted";
}

TEST_F(TspProtocolTest, RefusalsNameStatusFailureAndText) {
    TsaReply reply;
    reply.refuseStatus = TS_STATUS_REJECTION;
    reply.failureInfo = TS_INFO_BAD_ALG;
    reply.statusText = "digest not served";
    std::wstring message;
    EXPECT_EQ(CheckCode(Reply(reply), &message), TspErrRejected) << "a rejection";
    for (const wchar_t* part : {L"rejection (2)", L"badAlg", L"digest not served"}) {
        EXPECT_NE(message.find(part), std::wstring::npos)
            << "the message holds '" << tsp_test::Narrow(part)
            << "': " << tsp_test::Narrow(message);
    }
    TsaReply waiting;
    waiting.refuseStatus = TS_STATUS_WAITING;
    EXPECT_EQ(CheckCode(Reply(waiting)), TspErrRejected) << "waiting is no grant either";
}

TEST_F(TspProtocolTest, TokenMustEchoNonceImprintAndPolicy) {
    const struct {
        bool TsaReply::*flag;
        int code;
        const char* what;
    } cases[] = {{&TsaReply::alterNonce, TspErrNonceMismatch, "another nonce"},
                 {&TsaReply::dropNonce, TspErrNonceMismatch, "no nonce at all"},
                 {&TsaReply::alterImprint, TspErrImprintMismatch, "other imprint bytes"},
                 {&TsaReply::sha3Imprint, TspErrImprintMismatch, "another imprint algorithm"}};
    for (const auto& c : cases) {
        TsaReply reply;
        reply.*c.flag = true;
        EXPECT_EQ(CheckCode(Reply(reply)), c.code) << c.what;
    }
    const Bytes response = Reply();
    facts.policyId = TestTsa::OtherPolicy();  // asked for one policy, got the TSA's default
    EXPECT_EQ(CheckCode(response), TspErrPolicyMismatch) << "another policy";
}

TEST_F(TspProtocolTest, BodiesThatAreNoResponseAreRefused) {
    const Bytes response = Reply();
    Bytes trailing = response;
    trailing.push_back(0);
    EXPECT_EQ(CheckCode(trailing), TspErrBadResponse) << "trailing byte";
    EXPECT_EQ(CheckCode(Bytes(response.begin(), response.end() - 1)), TspErrBadResponse)
        << "truncated";
    EXPECT_EQ(CheckCode(Bytes()), TspErrBadResponse) << "empty";
    EXPECT_EQ(CheckCode(TestTsa::TokenOf(response)), TspErrBadResponse)
        << "a bare token is no response";
}
