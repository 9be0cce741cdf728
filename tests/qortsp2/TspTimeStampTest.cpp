// Decoding time-stamp tokens built in-process: the fields a verifier reads,
// exact byte round trips, value semantics, and refusal of anything that is
// not exactly one token. Also the exception type.
#include <gtest/gtest.h>

#include <openssl/cms.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <algorithm>

#include "TestTsa.h"
#include "TspException.h"
#include "TspTestUtil.h"
#include "TspTimeStamp.h"

using namespace QorTsp2Lib;
using tessera_test::Bytes;
using tessera_test::TestTsa;
using tessera_test::TsaReply;
using tessera_test::UtcTime;
using tsp_test::CodeOf;
using tsp_test::ToBytes;

namespace {

class TspTimeStampTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { tsa = new TestTsa(); }
    static void TearDownTestSuite() {
        delete tsa;
        tsa = nullptr;
    }

    static TspTimeStamp DecodeBytes(const Bytes& der) {
        TspTimeStamp stamp;
        stamp.Decode(der.data(), static_cast<unsigned int>(der.size()));
        return stamp;
    }
    // The code of decoding `der` into `stamp`.
    static int DecodeCode(TspTimeStamp& stamp, const Bytes& der, const std::string& what,
                          std::wstring* message = nullptr) {
        return CodeOf([&] { stamp.Decode(der.data(), static_cast<unsigned int>(der.size())); },
                      what, message);
    }
    static Bytes Sha256Token(const TsaReply& reply = TsaReply(), bool withCertificate = true) {
        return tsa->Token(EVP_sha256(), TestTsa::Digest(EVP_sha256(), "content"), withCertificate,
                          reply);
    }
    static Bytes TsaDer() { return tessera_test::CertToDer(tsa->Tsa().cert.get()); }

    static TestTsa* tsa;
};

TestTsa* TspTimeStampTest::tsa = nullptr;

}  // namespace

TEST_F(TspTimeStampTest, GenTimeInSecondsAndAsSpelt) {
    TsaReply reply;
    reply.genTime = UtcTime(2024, 6, 1, 12, 0, 0);
    const TspTimeStamp stamp = DecodeBytes(Sha256Token(reply));
    EXPECT_EQ(stamp.GetTime(), UtcTime(2024, 6, 1, 12, 0, 0)) << "genTime in UTC seconds";
    EXPECT_STREQ(stamp.GetGeneralizedTime().c_str(), "20240601120000Z")
        << "genTime text as spelt in the token";
    for (const std::int64_t time :
         {UtcTime(1999, 12, 31, 23, 59, 59), UtcTime(2060, 2, 29, 0, 0, 1)}) {
        reply.genTime = time;
        EXPECT_EQ(DecodeBytes(Sha256Token(reply)).GetTime(), time)
            << "before 2000 and a leap day after 2038: " << time;
    }
    reply.genTime = UtcTime(2024, 6, 1, 12, 0, 0);
    reply.genTimeMicros = 250000;
    reply.precisionDigits = 3;
    const TspTimeStamp fraction = DecodeBytes(Sha256Token(reply));
    EXPECT_STREQ(fraction.GetGeneralizedTime().c_str(), "20240601120000.25Z")
        << "the fraction as the TSA wrote it";
    EXPECT_EQ(fraction.GetTime(), UtcTime(2024, 6, 1, 12, 0, 0)) << "fractions are dropped";
}

TEST_F(TspTimeStampTest, ImprintKeepsAlgorithmAndBytes) {
    const struct {
        const EVP_MD* md;
        tspHashAlgorithm algorithm;
        bool sha3;
    } cases[] = {{EVP_sha1(), tspHashSHA1, false},     {EVP_sha224(), tspHashSHA224, false},
                 {EVP_sha256(), tspHashSHA256, false}, {EVP_sha384(), tspHashSHA384, false},
                 {EVP_sha512(), tspHashSHA512, false}, {EVP_sha256(), tspHashNone, true}};
    for (const auto& c : cases) {
        TsaReply reply;
        reply.sha3Imprint = c.sha3;  // SHA3-256 has no number of its own
        const Bytes imprint = TestTsa::Digest(c.md, "imprint data");
        const TspTimeStamp stamp = DecodeBytes(tsa->Token(c.md, imprint, true, reply));
        const std::string name = c.sha3 ? "SHA3-256" : EVP_MD_get0_name(c.md);
        EXPECT_EQ(stamp.GetMessageImprint().GetHashAlgorithm(), c.algorithm)
            << "algorithm number of " << name;
        EXPECT_EQ(ToBytes(stamp.GetMessageImprint().GetHashedMessage()), imprint)
            << "imprint bytes of " << name;
    }
}

TEST_F(TspTimeStampTest, TsaCertificateOnlyWhenCarriedAndNamedByItsDigest) {
    TsaReply chain;
    chain.includeChain = true;
    for (const TspTimeStamp& with : {DecodeBytes(Sha256Token()), DecodeBytes(Sha256Token(chain))}) {
        ASSERT_NE(with.GetTsaCertificate(), nullptr) << "certReq TRUE puts the TSA certificate in";
        EXPECT_EQ(ToBytes(with.GetTsaCertificate()->Encode()), TsaDer())
            << "the signer's certificate, not the CA's that may come with it";
        EXPECT_EQ(with.GetTsaCertificate()->GetHashAlgorithmName(), qorstd::QorString("sha256"))
            << "digest of ecdsa-with-SHA256";
    }
    EXPECT_EQ(DecodeBytes(Sha256Token(TsaReply(), false)).GetTsaCertificate(), nullptr)
        << "no certificate in the token";

    const TestTsa sha384Tsa(tessera_test::KeyKind::EcP256, EVP_sha384());
    const TspTimeStamp stamp =
        DecodeBytes(sha384Tsa.Token(EVP_sha256(), TestTsa::Digest(EVP_sha256(), "content"), true));
    ASSERT_NE(stamp.GetTsaCertificate(), nullptr) << "certificate carried";
    EXPECT_EQ(stamp.GetTsaCertificate()->GetHashAlgorithmName(), qorstd::QorString("sha384"))
        << "ecdsa-with-SHA384 names sha384 (not the whole signature name)";

    const Bytes der = TsaDer();
    EXPECT_EQ(ToBytes(TspCertificate(der.data(), static_cast<unsigned int>(der.size())).Encode()),
              der)
        << "DER constructor keeps the certificate";
    EXPECT_EQ(CodeOf([&] { TspCertificate(der.data(), static_cast<unsigned int>(der.size() - 1)); },
                     "truncated certificate"),
              TspErrDecode)
        << "a truncated certificate is refused";
    EXPECT_EQ(TspCertificate().GetHashAlgorithmName(), qorstd::QorString(""))
        << "an empty certificate names nothing";
}

TEST_F(TspTimeStampTest, SerialPolicyAccuracyAndNonce) {
    TsaReply reply;
    reply.serial = 0x1F2E;
    reply.accuracySeconds = 1;
    reply.accuracyMillis = 500;
    reply.accuracyMicros = 100;
    const Bytes imprint = TestTsa::Digest(EVP_sha256(), "content");
    const Bytes nonce = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08};
    const TspTimeStamp stamp = DecodeBytes(TestTsa::TokenOf(
        tsa->Respond(TestTsa::Request(EVP_sha256(), imprint, nonce, true), reply)));
    EXPECT_STREQ(stamp.GetSerialNumberHex().c_str(), "1F2E") << "serial in hex";
    EXPECT_STREQ(stamp.GetSerialNumberDec().c_str(), "7982") << "serial in decimal";
    EXPECT_STREQ(stamp.GetPolicyId().c_str(), TestTsa::DefaultPolicy()) << "policy as dotted OID";
    EXPECT_EQ(stamp.GetAccuracyMicros(), 1500100) << "1 s 500 ms 100 us";
    EXPECT_STREQ(stamp.GetNonceHex().c_str(), "0102030405060708") << "the nonce echoed";

    const TspTimeStamp plain = DecodeBytes(Sha256Token());
    EXPECT_EQ(plain.GetAccuracyMicros(), -1) << "no accuracy stated";
    EXPECT_TRUE(plain.GetNonceHex().empty()) << "no nonce requested";
}

TEST_F(TspTimeStampTest, EncodeGivesTheDecodedBytesInEveryForm) {
    const Bytes token = Sha256Token();
    const TspTimeStamp stamp = DecodeBytes(token);
    for (int form : {0, 1}) {
        const Bytes encoded = ToBytes(stamp.Encode(form));
        EXPECT_EQ(encoded, token) << "form " << form << " gives the token byte for byte";
        const unsigned char* cursor = encoded.data();
        const tsp_test::Owned<CMS_ContentInfo, CMS_ContentInfo_free> cms(
            d2i_CMS_ContentInfo(nullptr, &cursor, static_cast<long>(encoded.size())));
        EXPECT_TRUE(cms) << "form " << form << " is a CMS ContentInfo for OpenSSL";
    }
    EXPECT_TRUE(TspTimeStamp().Encode(0).GetSize() == 0) << "no token encodes to nothing";
}

TEST_F(TspTimeStampTest, CopiesAreIndependentAndResetEmpties) {
    TspTimeStamp original = DecodeBytes(Sha256Token());
    const TspTimeStamp copy(original);
    TspTimeStamp assigned;
    assigned = original;
    original.Reset();
    EXPECT_TRUE(original.IsEmpty() && original.GetTime() == 0 &&
                original.GetGeneralizedTime().empty() && original.GetTsaCertificate() == nullptr &&
                original.GetMessageImprint().GetHashAlgorithm() == tspHashNone)
        << "Reset clears token, time, text, certificate and imprint";
    for (const TspTimeStamp* survivor : {&copy, static_cast<const TspTimeStamp*>(&assigned)}) {
        EXPECT_EQ(survivor->GetTime(), UtcTime(2024, 6, 1, 12, 0, 0))
            << "a copy keeps its time after the original is reset";
        ASSERT_NE(survivor->GetTsaCertificate(), nullptr) << "a copy keeps its certificate";
        EXPECT_EQ(ToBytes(survivor->GetTsaCertificate()->Encode()), TsaDer())
            << "the copy's certificate is intact";
    }
    assigned = assigned;
    EXPECT_FALSE(assigned.IsEmpty()) << "self-assignment keeps the token";
}

TEST_F(TspTimeStampTest, TheDecodedTokenIsHandedOverOnceAmongCopies) {
    const TspTimeStamp original = DecodeBytes(Sha256Token());
    const TspTimeStamp copy(original);
    const tsp_test::Owned<CMS_ContentInfo, CMS_ContentInfo_free> taken(copy.TakeDecodedToken());
    ASSERT_TRUE(taken) << "a decoded token hands over its message";
    EXPECT_EQ(OBJ_obj2nid(CMS_get0_eContentType(taken.get())), NID_id_smime_ct_TSTInfo)
        << "the message handed over is the token's";
    EXPECT_EQ(original.TakeDecodedToken(), nullptr)
        << "the copies share the one message: it is handed over only once";
    EXPECT_EQ(original.GetTime(), UtcTime(2024, 6, 1, 12, 0, 0))
        << "handing the message over changes nothing the object answers";
    EXPECT_EQ(TspTimeStamp().TakeDecodedToken(), nullptr) << "an empty object has none";
}

TEST_F(TspTimeStampTest, AnythingButExactlyOneTokenIsRefused) {
    const Bytes token = Sha256Token();
    TspTimeStamp stamp = DecodeBytes(token);
    for (std::size_t length = 0; length < token.size(); ++length) {
        const int code = DecodeCode(stamp, Bytes(token.begin(), token.begin() + length),
                                    "prefix of " + std::to_string(length) + " bytes");
        if (code != TspErrDecode) {
            ADD_FAILURE() << "a prefix of " << length << " bytes gave code " << code;
            break;
        }
    }
    Bytes trailing = token;
    trailing.push_back(0x00);
    EXPECT_EQ(DecodeCode(stamp, trailing, "trailing"), TspErrDecode) << "a trailing byte";
    EXPECT_EQ(DecodeCode(stamp, {0x30, 0x03, 0x02, 0x01, 0x05}, "garbage"), TspErrDecode)
        << "a SEQUENCE that is no ContentInfo is refused";
    EXPECT_EQ(DecodeCode(stamp, TsaDer(), "certificate"), TspErrDecode)
        << "a certificate is no token";
    EXPECT_EQ(CodeOf([&] { stamp.Decode(nullptr, 10); }, "null data"), TspErrInvalidParameter)
        << "null data with a length is a bad argument";

    tsp_test::Owned<BIO, BIO_free_all> data(BIO_new_mem_buf("not a TSTInfo", -1));
    tsp_test::Owned<CMS_ContentInfo, CMS_ContentInfo_free> cms(
        CMS_sign(tsa->Tsa().cert.get(), tsa->Tsa().key.get(), nullptr, data.get(), CMS_BINARY));
    ASSERT_TRUE(cms) << "CMS_sign of plain data";
    unsigned char* der = nullptr;
    const int length = i2d_CMS_ContentInfo(cms.get(), &der);
    const Bytes signedData(der, der + std::max(length, 0));
    OPENSSL_free(der);
    std::wstring message;
    EXPECT_EQ(DecodeCode(stamp, signedData, "SignedData of id-data", &message), TspErrDecode)
        << "SignedData over id-data is refused";
    EXPECT_NE(message.find(L"TSTInfo"), std::wstring::npos) << "the message says what is missing";
    EXPECT_EQ(ToBytes(stamp.Encode(0)), token) << "failed decodes leave the object as it was";
}

TEST(TspExceptionTest, CarriesCodeMessageAndDescription) {
    try {
        TspException::Throw(TspErrNonceMismatch, L"nonce 01, expected 02");
        FAIL() << "Throw returned";
    } catch (const TspException& e) {
        EXPECT_EQ(e.GetErrorCode(), TspErrNonceMismatch) << "code";
        EXPECT_EQ(e.GetErrorMessage(), qorstd::QorStringW(L"nonce 01, expected 02")) << "message";
        EXPECT_EQ(e.GetErrorDescription(),
                  qorstd::QorStringW(L"The time-stamp token does not carry the request's nonce."))
            << "description of the code";
        EXPECT_EQ(TspException(e).GetErrorMessage(), e.GetErrorMessage()) << "copies keep it";
    }
    EXPECT_EQ(qorstd::QorStringW(TspException::GetCodeDescription(42)),
              qorstd::QorStringW(L"Unspecified error"))
        << "an unlisted code";
    for (int code = TspErrInternal; code <= TspErrPolicyMismatch; ++code) {
        EXPECT_NE(qorstd::QorStringW(TspException::GetCodeDescription(code)),
                  qorstd::QorStringW(L"Unspecified error"))
            << "code " << code << " has a description";
    }
}
