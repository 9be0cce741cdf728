// Signature time-stamps: CAdES-T made and upgraded against the loopback TSA
// (checked by openssl ts and cms too), tokens made in-process with a chosen
// time, a wrong imprint, a TSA certificate without the time-stamping usage
// and two signers, the public CAdES-T samples, and a failing TSA that leaves
// the signature as it was.
//
//   TS Root (RSA) ── TS Signer  RSA-2048  serial 21
//   TestTsa CA ── TestTsa TSA (critical EKU timeStamping)   in-process tokens
//   the fixture's CA ── its TSA                              loopback tokens
#include <gtest/gtest.h>
#include <openssl/cms.h>

#include <algorithm>
#include <memory>
#include <string>

#include "SignedCades.h"
#include "TestCms.h"
#include "TestServers.h"
#include "TestTessera.h"
#include "TestTsa.h"
#include "TspClient.h"

using namespace TesseraLib;
using namespace tessera_test;

namespace {

const std::int64_t kAt = UtcTime(2024, 6, 15, 12);
const std::string kText = "time-stamped content\n";

struct Pki {
    Issued root, signer;
    TestTsa tsa;
    Pki() {
        CertPlan plan = BasicProfile("TS Root", 1, true);
        KeyPtr key = CachedKey(KeyKind::Rsa2048, 0);
        plan.key = key.get();
        root = IssueCertificate(plan, nullptr);
        plan = BasicProfile("TS Signer", 21, false);
        key = CachedKey(KeyKind::Rsa2048, 1);
        plan.key = key.get();
        signer = IssueCertificate(plan, &root);
    }
};

const Pki& P() {
    static const Pki pki;
    return pki;
}

SignerCades Signer(QorTsp2Lib::TspClient* client = nullptr) {
    X509Certificate cert = Cert(P().signer);
    std::unique_ptr<CryptKey> key(CryptKey::CreateKey(P().signer.key.get()));
    cert.SetPrivateKey(key.get());
    SignerCades signer(cert);
    signer.SetIncludeOption(SignerCms::cptIncludeSignerCertificate);
    signer.SetAttributeOption(SignerCms::cptAttributeDefault);
    signer.SetTspClient(client);
    return signer;
}

Bytes Der(const SignedCms& cms) {
    const qorstd::QorArray<unsigned char> der = cms.Encode();
    return Bytes(der.GetData(), der.GetData() + der.GetSize());
}

// Anchors for the signer and the TSAs, no revocation checks.
struct Trust {
    X509MemoryStore store;
    X509ChainPolicy policy;
    VerifierCades verifier;
    explicit Trust(std::int64_t at = kAt) {
        store.AddCertificate(Cert(P().root));
        store.AddCertificate(Cert(P().tsa.Ca()));
        policy.SetTrustStore(&store);
        policy.SetRevocationOption(X509ChainPolicy::revOptionNone);
        verifier.SetVerifyOption(VerifierCms::cptVerifyWholeChain);
        verifier.SetVerifyTime(at);
        verifier.SetChainPolicy(&policy);
    }
};

// A BES signature over kText made in-process, with `tokens(signature value)`
// added as signature time-stamps.
Bytes WithTokens(const std::function<std::vector<Bytes>(const Bytes&)>& tokens) {
    SignedCades cades(Array(kText));
    cades.Sign(Signer(), SignedCades::cptCadesBes, 0);
    CMS_SignerInfo* si = FirstSigner(cades.GetCms());
    const ASN1_OCTET_STRING* value = CMS_SignerInfo_get0_signature(si);
    for (const Bytes& token : tokens(Bytes(value->data, value->data + value->length))) {
        EXPECT_EQ(CMS_unsigned_add1_attr_by_NID(si, NID_id_smime_aa_timeStampToken, V_ASN1_SEQUENCE,
                                                token.data(), static_cast<int>(token.size())),
                  1);
    }
    return Der(cades);
}

Bytes Sha256(const Bytes& data) {
    return TestTsa::Digest(EVP_sha256(), std::string(data.begin(), data.end()));
}

// The code a verification throws, and whether it came as a time-stamp failure.
std::pair<int, bool> VerifyFailure(const Bytes& der, const VerifierCades& verifier) {
    SignedCades cades;
    cades.Decode(Array(der));
    try {
        cades.Verify(verifier, SignedCades::cptCadesNone);
    } catch (const TimeStampException& e) {
        return {e.GetErrorCode(), e.GetTimeStamp() != nullptr};
    } catch (const qorstd::QorException& e) {
        return {e.GetErrorCode(), false};
    }
    return {0, false};
}

// A token over `imprint` whose TSTInfo is re-signed by `signers` (certificates
// of any usage), so that the token's structure can be anything.
Bytes ResignedToken(const Bytes& imprint, std::vector<const Issued*> signers) {
    const Bytes token = P().tsa.Token(EVP_sha256(), imprint, true);
    const unsigned char* cursor = token.data();
    CmsPtr parsed(d2i_CMS_ContentInfo(nullptr, &cursor, static_cast<long>(token.size())));
    ASN1_OCTET_STRING** content = CMS_get0_content(parsed.get());
    CmsSignPlan plan;
    plan.content.assign(reinterpret_cast<const char*>((*content)->data), (*content)->length);
    plan.contentType = "1.2.840.113549.1.9.16.1.4";
    plan.signers = signers;
    plan.flags = CMS_NOSMIMECAP | CMS_CADES;
    return CmsDer(SignCms(plan).get());
}

}  // namespace

class LoopbackTsaTest : public ::testing::Test {
protected:
    void SetUp() override {
        const std::string url = ServerFile("tsa", "url");
        if (url.empty()) {
            GTEST_SKIP() << "the tsa fixture is not running";
        }
        client.SetUrl(std::wstring(url.begin(), url.end()).c_str());
        client.SetTotalTimeout(20);
        caPem = ServerDir("tsa") + "/ca.pem";
    }
    QorTsp2Lib::TspClient client;
    std::string caPem;
};

TEST_F(LoopbackTsaTest, CadesTSignedUpgradedAndCheckedByOpenssl) {
    SignedCades cades(Array(kText));
    cades.Sign(Signer(&client), SignedCades::cptCadesT, 0);
    EXPECT_EQ(client.GetHashAlgorithm(), QorTsp2Lib::tspHashSHA256)
        << "the client took the signer's digest and keeps it";
    const SignedCades::SignerInfo& signer = *cades.GetSignerInfo(0);
    EXPECT_EQ(signer.GetCadesType(), SignedCades::cptCadesT);
    ASSERT_EQ(signer.GetSignatureTimeStamps().GetSize(), 1u);
    EXPECT_NE(std::find(signer.GetCadesLevelEstimate().Begin(),
                        signer.GetCadesLevelEstimate().End(), SignedCades::cptCadesLevelBaselineT),
              signer.GetCadesLevelEstimate().End());

    // openssl: the signature still verifies, the token is over its value.
    ScratchDir dir;
    dir.Write("sig.der", Der(cades));
    dir.Write("root.pem", CertToPem(P().root.cert.get()));
    dir.Write("tsa-ca.pem", ReadBinaryFile(caPem));
    EXPECT_TRUE(
        dir.Openssl("cms -verify -binary -inform DER -in sig.der -CAfile root.pem "
                    "-purpose any -out out.bin"))
        << dir.Output();
    const TimeStampAttribute& stamp = signer.GetSignatureTimeStamps()[0];
    const qorstd::QorArray<unsigned char> token = stamp.GetValue();
    dir.Write("token.der", Bytes(token.GetData(), token.GetData() + token.GetSize()));
    const qorstd::QorArray<unsigned char>& value = signer.GetSignatureValue();
    dir.Write("value.bin", Bytes(value.GetData(), value.GetData() + value.GetSize()));
    EXPECT_TRUE(
        dir.Openssl("ts -verify -token_in -in token.der -data value.bin "
                    "-CAfile tsa-ca.pem"))
        << dir.Output();

    // Checked at now (the TSA's clock): the path is checked at the token's time.
    X509MemoryStore store;
    store.AddCertificate(Cert(P().root));
    store.AddCertificate(X509Certificate(ReadPemCertificate(caPem).get()));
    X509ChainPolicy policy;
    policy.SetTrustStore(&store);
    policy.SetRevocationOption(X509ChainPolicy::revOptionNone);
    VerifierCades verifier;
    verifier.SetChainPolicy(&policy);
    const Thrown verified = Catch([&] { cades.Verify(verifier, SignedCades::cptCadesNone); });
    EXPECT_EQ(verified.code, 0) << verified.message;
    EXPECT_EQ(signer.GetVerifyInfo(), 1u | 2u | 4u | 8u | 16u);
    EXPECT_EQ(signer.GetVerifyTime(), stamp.GetTimeStamp().GetTime())
        << "the signer's path at the time-stamp's time";
    ASSERT_NE(signer.GetTimeStamp(), nullptr);
    EXPECT_NE(signer.GetTimeStampChain(), nullptr) << "the TSA's path is kept";

    cades.Upgrade(static_cast<SignedCades::cptCadesType>(4), &client);
    EXPECT_EQ(cades.GetSignerInfo(0)->GetSignatureTimeStamps().GetSize(), 1u)
        << "above T: only when there is none";
    cades.Upgrade(SignedCades::cptCadesT, &client);
    EXPECT_EQ(cades.GetSignerInfo(0)->GetSignatureTimeStamps().GetSize(), 2u)
        << "T always adds one";
}

TEST_F(LoopbackTsaTest, AFailingTsaLeavesTheSignatureAsItWas) {
    SignedCades cades(Array(kText));
    cades.Sign(Signer(), SignedCades::cptCadesBes, 0);
    const Bytes before = Der(cades);
    // Canned replies served as files: a refusal, and a granted reply to
    // another request (its nonce is not the client's).
    const Bytes request = TestTsa::Request(EVP_sha256(), Bytes(32, 0x11), Bytes{1, 2, 3, 4}, true);
    TsaReply refusal;
    refusal.refuseStatus = 2;  // rejection
    const Bytes rejected = P().tsa.Respond(request, refusal), other = P().tsa.Respond(request);
    WriteTextFile(ServerDir("http") + "/root/rejected.tsr",
                  std::string(rejected.begin(), rejected.end()));
    WriteTextFile(ServerDir("http") + "/root/other.tsr", std::string(other.begin(), other.end()));
    const std::string base = ServerFile("http", "url");
    for (const std::string& url :
         {base + "/status/500", base + "/garbage", base + "/file/rejected.tsr",
          base + "/file/other.tsr", base + "/slow/3", std::string("http://127.0.0.1:1/tsa")}) {
        QorTsp2Lib::TspClient failing(std::wstring(url.begin(), url.end()).c_str());
        failing.SetTotalTimeout(1);
        int code = 0;
        try {
            cades.Upgrade(SignedCades::cptCadesT, &failing);
        } catch (const QorTsp2Lib::TspException& e) {
            code = e.GetErrorCode();
        }
        EXPECT_NE(code, 0) << url << " fails with the time-stamp library's code";
        EXPECT_EQ(Der(cades), before) << url << " left the signature unchanged";
    }
}

TEST(TimeStampCheckTest, ImprintTimeUsageAndSigners) {
    const Trust trust;
    // A good token, then the time checks around it.
    const Bytes good = WithTokens([](const Bytes& value) {
        return std::vector<Bytes>{P().tsa.Token(EVP_sha256(), Sha256(value), true)};
    });
    EXPECT_EQ(VerifyFailure(good, trust.verifier).first, 0);
    // The first check takes the token as it was decoded with the message, a
    // later check decodes it again; a copy of the message shares that one.
    SignedCades decoded;
    decoded.Decode(Array(good));
    SignedCades copy(decoded);
    for (SignedCades* message : {&decoded, &decoded, &copy}) {
        EXPECT_EQ(Catch([&] { message->Verify(trust.verifier, SignedCades::cptCadesNone); }).code,
                  0)
            << "every check of the same time-stamped message succeeds";
        EXPECT_NE(message->GetSignerInfo(0)->GetTimeStampChain(), nullptr)
            << "every check built the TSA's path";
    }
    const Trust early(TsaReply().genTime - 1);
    EXPECT_EQ(VerifyFailure(good, early.verifier),
              std::make_pair(static_cast<int>(ErrTimeStampAfterVerifyTime), true))
        << "the token's time is after the verify time";
    Trust lenient(TsaReply().genTime - 1);
    lenient.verifier.SetCompareTsTimeVerifyTime(0);
    EXPECT_EQ(VerifyFailure(good, lenient.verifier).first, 0) << "comparison switched off";

    const Bytes other = WithTokens([](const Bytes&) {
        return std::vector<Bytes>{P().tsa.Token(EVP_sha256(), Sha256(Bytes(3, 'x')), true)};
    });
    EXPECT_EQ(VerifyFailure(other, trust.verifier),
              std::make_pair(static_cast<int>(ErrHashMismatch), true))
        << "a token over other data, as a time-stamp failure";

    // Of two tokens the later is checked: an earlier bad one does not count.
    const Bytes twoTokens = WithTokens([](const Bytes& value) {
        TsaReply earlier;
        earlier.genTime -= 3600;
        return std::vector<Bytes>{P().tsa.Token(EVP_sha256(), Sha256(Bytes(3, 'x')), true, earlier),
                                  P().tsa.Token(EVP_sha256(), Sha256(value), true)};
    });
    EXPECT_EQ(VerifyFailure(twoTokens, trust.verifier).first, 0);

    const Bytes noUsage = WithTokens([](const Bytes& value) {
        return std::vector<Bytes>{ResignedToken(Sha256(value), {&P().signer})};
    });
    EXPECT_EQ(VerifyFailure(noUsage, trust.verifier).first, ErrCertUsage)
        << "the token's signer is no TSA";
    const Bytes twoSigners = WithTokens([](const Bytes& value) {
        return std::vector<Bytes>{ResignedToken(Sha256(value), {&P().signer, &P().root})};
    });
    EXPECT_EQ(VerifyFailure(twoSigners, trust.verifier).first, ErrInvalidMessageFormat)
        << "a token with two signers";
}

// The public CAdES-T samples; their certificates chain to nothing here, so
// signer and TSA are checked without paths.
TEST(TimeStampCheckTest, PublicSamples) {
    X509ChainPolicy policy;
    VerifierCades verifier;
    verifier.SetVerifyOption(VerifierCms::cptVerifyNone);
    verifier.SetChainPolicy(&policy);
    const std::string dir = std::string(TESSERA_VECTORS_DIR) + "/cades/";
    SignedCades duplicated;
    duplicated.Decode(Array(ReadBinaryFile(dir + "cades-t-duplicated-sigtst.p7m")));
    EXPECT_EQ(duplicated.GetSignerInfo(0)->GetSignatureTimeStamps().GetSize(), 2u);
    duplicated.Verify(verifier, SignedCades::cptCadesNone);
    EXPECT_EQ(duplicated.GetSignerInfo(0)->GetVerifyInfo() & 8u, 8u) << "time-stamps checked";

    EXPECT_EQ(VerifyFailure(ReadBinaryFile(dir + "CAdES-BpT_modified_ts_hash.p7m"), verifier),
              std::make_pair(static_cast<int>(ErrHashMismatch), true))
        << "the altered imprint is the failure reported";
}
