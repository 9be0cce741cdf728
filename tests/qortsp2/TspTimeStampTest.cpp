// Decoding time-stamp tokens built in-process: the fields a verifier reads,
// exact byte round trips, value semantics, and refusal of anything that is
// not exactly one token. Also the exception type and its wrapper.
#include <gtest/gtest.h>

#include <openssl/cms.h>
#include <openssl/x509.h>

#include "QorExceptionStore.h"
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

    static Bytes Sha256Token(const TsaReply& reply = TsaReply(), bool withCertificate = true) {
        return tsa->Token(EVP_sha256(), TestTsa::Digest(EVP_sha256(), "content"), withCertificate,
                          reply);
    }

    static TestTsa* tsa;
};

TestTsa* TspTimeStampTest::tsa = nullptr;

}  // namespace

TEST_F(TspTimeStampTest, PinnedGenTimeGivesThatTimeAndText) {
    TsaReply reply;
    reply.genTime = UtcTime(2024, 6, 1, 12, 0, 0);
    const TspTimeStamp stamp = DecodeBytes(Sha256Token(reply));
    EXPECT_EQ(stamp.GetTime(), UtcTime(2024, 6, 1, 12, 0, 0)) << "genTime in UTC seconds";
    EXPECT_STREQ(stamp.GetGeneralizedTime().c_str(), "20240601120000Z")
        << "genTime text as spelt in the token";

    reply.genTime = UtcTime(1999, 12, 31, 23, 59, 59);
    EXPECT_EQ(DecodeBytes(Sha256Token(reply)).GetTime(), UtcTime(1999, 12, 31, 23, 59, 59))
        << "a time before 2000 (month and leap-year arithmetic)";
    reply.genTime = UtcTime(2060, 2, 29, 0, 0, 1);
    EXPECT_EQ(DecodeBytes(Sha256Token(reply)).GetTime(), UtcTime(2060, 2, 29, 0, 0, 1))
        << "a leap day after 2038";
}

TEST_F(TspTimeStampTest, FractionsStayInTheTextAndLeaveTheSeconds) {
    TsaReply reply;
    reply.genTime = UtcTime(2024, 6, 1, 12, 0, 0);
    reply.genTimeMicros = 250000;
    reply.precisionDigits = 3;
    const TspTimeStamp stamp = DecodeBytes(Sha256Token(reply));
    EXPECT_STREQ(stamp.GetGeneralizedTime().c_str(), "20240601120000.25Z")
        << "the fraction as the TSA wrote it";
    EXPECT_EQ(stamp.GetTime(), UtcTime(2024, 6, 1, 12, 0, 0)) << "fractions are dropped";
}

TEST_F(TspTimeStampTest, ImprintKeepsAlgorithmAndBytes) {
    const struct {
        const EVP_MD* md;
        tspHashAlgorithm algorithm;
    } cases[] = {{EVP_sha1(), tspHashSHA1},
                 {EVP_sha224(), tspHashSHA224},
                 {EVP_sha256(), tspHashSHA256},
                 {EVP_sha384(), tspHashSHA384},
                 {EVP_sha512(), tspHashSHA512}};
    for (const auto& c : cases) {
        const Bytes imprint = TestTsa::Digest(c.md, "imprint data");
        const TspTimeStamp stamp = DecodeBytes(tsa->Token(c.md, imprint, true));
        EXPECT_EQ(stamp.GetMessageImprint().GetHashAlgorithm(), c.algorithm)
            << "algorithm number of " << EVP_MD_get0_name(c.md);
        EXPECT_EQ(ToBytes(stamp.GetMessageImprint().GetHashedMessage()), imprint)
            << "imprint bytes of " << EVP_MD_get0_name(c.md);
    }
}

TEST_F(TspTimeStampTest, UnnumberedImprintAlgorithmKeepsItsBytesUnderNone) {
    TsaReply reply;
    reply.sha3Imprint = true;
    const Bytes imprint = TestTsa::Digest(EVP_sha256(), "x");
    const TspTimeStamp stamp = DecodeBytes(tsa->Token(EVP_sha256(), imprint, true, reply));
    EXPECT_EQ(stamp.GetMessageImprint().GetHashAlgorithm(), tspHashNone)
        << "SHA3-256 has no number of its own";
    EXPECT_EQ(ToBytes(stamp.GetMessageImprint().GetHashedMessage()), imprint)
        << "the value is kept";
}

TEST_F(TspTimeStampTest, TsaCertificateOnlyWhenTheTokenCarriesIt) {
    const TspTimeStamp with = DecodeBytes(Sha256Token(TsaReply(), true));
    ASSERT_NE(with.GetTsaCertificate(), nullptr) << "certReq TRUE puts the TSA certificate in";
    EXPECT_EQ(ToBytes(with.GetTsaCertificate()->Encode()),
              tessera_test::CertToDer(tsa->Tsa().cert.get()))
        << "the certificate is the TSA's";
    EXPECT_EQ(with.GetTsaCertificate()->GetHashAlgorithmName(), qorstd::QorString("sha256"))
        << "digest of ecdsa-with-SHA256";

    const TspTimeStamp without = DecodeBytes(Sha256Token(TsaReply(), false));
    EXPECT_EQ(without.GetTsaCertificate(), nullptr) << "no certificate in the token";

    TsaReply chain;
    chain.includeChain = true;
    const TspTimeStamp withChain = DecodeBytes(Sha256Token(chain, true));
    ASSERT_NE(withChain.GetTsaCertificate(), nullptr) << "certificate found among several";
    EXPECT_EQ(ToBytes(withChain.GetTsaCertificate()->Encode()),
              tessera_test::CertToDer(tsa->Tsa().cert.get()))
        << "the signer's certificate, not the CA's that comes with it";
}

TEST_F(TspTimeStampTest, CertificateHashNameFollowsTheSignatureDigest) {
    const TestTsa sha384Tsa(tessera_test::KeyKind::EcP256, EVP_sha384());
    const Bytes token =
        sha384Tsa.Token(EVP_sha256(), TestTsa::Digest(EVP_sha256(), "content"), true);
    const TspTimeStamp stamp = DecodeBytes(token);
    ASSERT_NE(stamp.GetTsaCertificate(), nullptr) << "certificate carried";
    EXPECT_EQ(stamp.GetTsaCertificate()->GetHashAlgorithmName(), qorstd::QorString("sha384"))
        << "ecdsa-with-SHA384 names sha384 (not the whole signature name)";

    const Bytes der = tessera_test::CertToDer(tsa->Tsa().cert.get());
    const TspCertificate fromDer(der.data(), static_cast<unsigned int>(der.size()));
    EXPECT_EQ(ToBytes(fromDer.Encode()), der) << "DER constructor keeps the certificate";
    EXPECT_EQ(
        CodeOf([&] { TspCertificate bad(der.data(), static_cast<unsigned int>(der.size() - 1)); },
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
    const TspTimeStamp again = DecodeBytes(ToBytes(stamp.Encode(0)));
    EXPECT_EQ(ToBytes(again.Encode(0)), token) << "decode of the encoding round-trips";
    EXPECT_EQ(again.GetTime(), stamp.GetTime()) << "same genTime after the round trip";
    EXPECT_TRUE(TspTimeStamp().Encode(0).GetSize() == 0) << "no token encodes to nothing";
}

TEST_F(TspTimeStampTest, CopiesAreIndependentAndResetEmpties) {
    TspTimeStamp original = DecodeBytes(Sha256Token());
    const TspTimeStamp copy(original);
    TspTimeStamp assigned;
    assigned = original;
    original.Reset();
    EXPECT_TRUE(original.IsEmpty()) << "Reset drops the token";
    EXPECT_EQ(original.GetTime(), 0) << "Reset clears the time";
    EXPECT_TRUE(original.GetGeneralizedTime().empty()) << "Reset clears the text";
    EXPECT_EQ(original.GetTsaCertificate(), nullptr) << "Reset drops the certificate";
    EXPECT_EQ(original.GetMessageImprint().GetHashAlgorithm(), tspHashNone)
        << "Reset clears the imprint";
    for (const TspTimeStamp* survivor : {&copy, static_cast<const TspTimeStamp*>(&assigned)}) {
        EXPECT_EQ(survivor->GetTime(), UtcTime(2024, 6, 1, 12, 0, 0))
            << "a copy keeps its time after the original is reset";
        ASSERT_NE(survivor->GetTsaCertificate(), nullptr) << "a copy keeps its certificate";
        EXPECT_EQ(ToBytes(survivor->GetTsaCertificate()->Encode()),
                  tessera_test::CertToDer(tsa->Tsa().cert.get()))
            << "the copy's certificate is intact";
    }
    assigned = assigned;
    EXPECT_FALSE(assigned.IsEmpty()) << "self-assignment keeps the token";
}

TEST_F(TspTimeStampTest, AnythingButExactlyOneTokenIsRefused) {
    const Bytes token = Sha256Token();
    TspTimeStamp stamp = DecodeBytes(token);

    for (std::size_t length = 0; length < token.size(); ++length) {
        const int code =
            CodeOf([&] { stamp.Decode(token.data(), static_cast<unsigned int>(length)); },
                   "prefix of " + std::to_string(length) + " bytes");
        if (code != TspErrDecode) {
            ADD_FAILURE() << "a prefix of " << length << " bytes gave code " << code;
            break;
        }
    }
    Bytes trailing = token;
    trailing.push_back(0x00);
    EXPECT_EQ(
        CodeOf([&] { stamp.Decode(trailing.data(), static_cast<unsigned int>(trailing.size())); },
               "trailing byte"),
        TspErrDecode)
        << "one trailing byte is refused";
    const Bytes garbage = {0x30, 0x03, 0x02, 0x01, 0x05};
    EXPECT_EQ(
        CodeOf([&] { stamp.Decode(garbage.data(), static_cast<unsigned int>(garbage.size())); },
               "garbage"),
        TspErrDecode)
        << "a SEQUENCE that is no ContentInfo is refused";
    const Bytes certificate = tessera_test::CertToDer(tsa->Tsa().cert.get());
    EXPECT_EQ(CodeOf(
                  [&] {
                      stamp.Decode(certificate.data(),
                                   static_cast<unsigned int>(certificate.size()));
                  },
                  "certificate"),
              TspErrDecode)
        << "a certificate is no token";
    EXPECT_EQ(CodeOf([&] { stamp.Decode(nullptr, 10); }, "null data"), TspErrInvalidParameter)
        << "null data with a length is a bad argument";

    EXPECT_EQ(ToBytes(stamp.Encode(0)), token) << "failed decodes leave the object as it was";
}

TEST_F(TspTimeStampTest, SignedDataOfOtherContentIsNoToken) {
    tsp_test::Owned<BIO, BIO_free_all> data(BIO_new_mem_buf("not a TSTInfo", -1));
    ASSERT_TRUE(data) << "memory BIO";
    tsp_test::Owned<CMS_ContentInfo, CMS_ContentInfo_free> cms(
        CMS_sign(tsa->Tsa().cert.get(), tsa->Tsa().key.get(), nullptr, data.get(), CMS_BINARY));
    ASSERT_TRUE(cms) << "CMS_sign of plain data";
    const int length = i2d_CMS_ContentInfo(cms.get(), nullptr);
    ASSERT_GT(length, 0) << "encoding the SignedData";
    Bytes bytes(static_cast<std::size_t>(length));
    unsigned char* cursor = bytes.data();
    ASSERT_EQ(i2d_CMS_ContentInfo(cms.get(), &cursor), length) << "encoding the SignedData";
    TspTimeStamp stamp;
    std::wstring message;
    EXPECT_EQ(CodeOf([&] { stamp.Decode(bytes.data(), static_cast<unsigned int>(bytes.size())); },
                     "SignedData of id-data", &message),
              TspErrDecode)
        << "SignedData over id-data is refused";
    EXPECT_NE(message.find(L"TSTInfo"), std::wstring::npos) << "the message says what is missing";
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
        const TspException copy(e);
        EXPECT_EQ(copy.GetErrorMessage(), e.GetErrorMessage()) << "copies keep the message";
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

TEST(TspExceptionTest, WrapperRethrowsTheTimeStampException) {
    const TspException original(TspErrTimeout, L"slow");
    TesseraLib::QorExceptionStore store;
    store.SetException(TesseraLib::QorExceptionWrapper<TspException>(
        original, original.GetErrorCode(), original.GetErrorMessage().c_str(),
        original.GetErrorDescription().c_str()));
    EXPECT_EQ(store.GetException()->GetErrorCode(), TspErrTimeout)
        << "the wrapper carries the code";
    try {
        store.ReThrow();
        FAIL() << "ReThrow returned";
    } catch (const TspException& e) {
        EXPECT_EQ(e.GetErrorCode(), TspErrTimeout) << "caught as TspException, code kept";
        EXPECT_EQ(e.GetErrorMessage(), qorstd::QorStringW(L"slow")) << "message kept";
    } catch (...) {
        FAIL() << "ReThrow threw something other than TspException";
    }
}
