// The signed-data container as an application sees it: decoding messages
// made in-process with OpenSSL's CMS API, the values read from them, the
// signer infos, detaching and attaching, copies, and the failures of
// malformed messages.
//
//   Test CA ──┬── Signer A   (EC P-256)
//             └── Signer B   (EC P-256)
#include <gtest/gtest.h>

#include <openssl/asn1.h>
#include <openssl/cms.h>

#include <memory>
#include <string>
#include <vector>

#include "TestCms.h"
#include "TestTessera.h"
#include "TestTsa.h"

using namespace TesseraLib;
using namespace tessera_test;

namespace {

const char* const kData = "1.2.840.113549.1.7.1";
const std::int64_t kSigningTime = UtcTime(2024, 6, 1, 12, 30, 0);

struct Pki {
    Issued ca = IssueCertificate(BasicProfile("CMS Test CA", 1, true), nullptr);
    Issued a = IssueCertificate(BasicProfile("Signer A", 10, false), &ca);
    Issued b = IssueCertificate(BasicProfile("Signer B", 11, false), &ca);
};

const Pki& P() {
    static const Pki pki;
    return pki;
}

// A message over `content` with a pinned signing time; bit i of `keyIds`
// names signer i by its key identifier.
CmsPtr Sign(const std::string& content, unsigned int flags = 0,
            const std::vector<const Issued*>& signers = {&P().a}, unsigned keyIds = 0) {
    CmsSignPlan plan;
    plan.content = content;
    plan.signers = signers;
    plan.flags = flags;
    plan.keyIdSigners = keyIds;
    plan.signingTime = kSigningTime;
    return SignCms(plan);
}

Bytes Der(const CmsPtr& cms) {
    return CmsDer(cms.get());
}

SignedCms Decoded(const Bytes& der) {
    SignedCms cms;
    cms.Decode(Array(der));
    return cms;
}

// A time-stamp token over `data`.
Bytes Token(const std::string& data) {
    static const TestTsa tsa;
    return tsa.Token(EVP_sha256(), TestTsa::Digest(EVP_sha256(), data), true);
}

// The message with `chunk` inserted into SignedData just before the signer
// infos (where the certificate and revocation sets belong).
Bytes InsertBeforeSignerInfos(const Bytes& der, const Bytes& chunk) {
    const unsigned char* const end = der.data() + der.size();
    const unsigned char* p = der.data();
    // Reads the header at p; steps over the contents unless entering them.
    const auto next = [&](bool enter) {
        const unsigned char* at = p;
        long length = 0;
        int tag = 0, cls = 0;
        ASN1_get_object(&p, &length, &tag, &cls, end - p);
        p += enter ? 0 : length;
        return at;
    };
    next(true);  // ContentInfo
    const unsigned char* oid = next(false);
    const unsigned char* explicitTag = next(true);
    next(true);  // SignedData
    const unsigned char* fields = p;
    const unsigned char* last = p;
    while (p < end) {
        last = next(false);
    }
    return Tlv(0x30,
               Join({Bytes(oid, explicitTag),
                     Tlv(0xA0, Tlv(0x30, Join({Bytes(fields, last), chunk, Bytes(last, end)})))}));
}

}  // namespace

// ---------------------------------------------------------------- decoding

TEST(SignedCmsDecodeTest, AttachedMessageValues) {
    const Bytes der = Der(Sign("hello"));
    SignedCms cms(Array("old"));
    cms.Decode(Array(der));

    EXPECT_EQ(cms.GetVersion(), 1u) << "issuer-and-serial signers, id-data: version 1";
    EXPECT_EQ(cms.IsDetached(), 0);
    EXPECT_EQ(ToBytes(cms.GetContent()), (Bytes{'h', 'e', 'l', 'l', 'o'}))
        << "embedded content replaces what was set";
    EXPECT_STREQ(cms.GetContentType().c_str(), kData);
    ASSERT_EQ(cms.GetCertificates().GetSize(), 1u) << "the signer certificate is carried";
    EXPECT_EQ(ToBytes(cms.Encode()), der) << "Encode gives the decoded DER back";

    ASSERT_EQ(cms.GetSignerInfoCount(), 1u);
    const SignedCms::SignerInfo& signer = *cms.GetSignerInfo(0);
    EXPECT_EQ(signer.GetVersion(), 1u);
    EXPECT_EQ(signer.GetCadesType(), SignedCms::cptCmsBasic);
    EXPECT_STREQ(signer.GetContentType().c_str(), kData) << "content-type attribute";
    EXPECT_EQ(signer.GetSigningTime(), kSigningTime) << "UTCTime of the signing-time attribute";
    EXPECT_EQ(signer.GetHashAlgorithmNID(), NID_sha256) << "name and OID: check_cli_cms_info.sh";
    EXPECT_EQ(X509_cmp(signer.GetCertificate().GetX509(), P().a.cert.get()), 0)
        << "certificate found by issuer and serial number";

    const Bytes signature = ToBytes(signer.GetSignatureValue());
    EXPECT_EQ(ToBytes(signer.GetSignatureValueSHA1Hash()),
              TestTsa::Digest(EVP_sha1(), std::string(signature.begin(), signature.end())))
        << "SHA-1 of the signature value";
    const std::string hex = signer.GetSignatureValueSHA1HashHex().c_str();
    EXPECT_EQ(hex.size(), 40u);
    EXPECT_EQ(hex.find_first_not_of("0123456789abcdef"), std::string::npos) << "lower-case hex";
}

TEST(SignedCmsDecodeTest, DetachedAndEmptyContent) {
    const Bytes detached = Der(Sign("payload", CMS_DETACHED));
    const qorstd::QorArray<unsigned char> set = Array("set");
    SignedCms before(set);
    before.Decode(Array(detached));
    EXPECT_EQ(before.IsDetached(), 1);
    EXPECT_EQ(before.GetContent(), set) << "content set before decoding survives";
    SignedCms after = Decoded(detached);
    after.SetContent(set);
    EXPECT_EQ(after.GetContent(), set) << "or is set afterwards";

    const SignedCms empty = Decoded(Der(Sign("")));
    EXPECT_EQ(empty.IsDetached(), 0) << "an empty content octet string is still attached";
    EXPECT_EQ(empty.GetContent().GetSize(), 0u);
}

TEST(SignedCmsDecodeTest, ContentTypes) {
    const SignedCms stamp = Decoded(Token("signature"));
    EXPECT_STREQ(stamp.GetContentType().c_str(), "1.2.840.113549.1.9.16.1.4")
        << "a time-stamp token is a signed-data message like any other";
    EXPECT_EQ(stamp.GetSignerInfoCount(), 1u);
    EXPECT_EQ(stamp.GetVersion(), 3u) << "non-data content: version 3";

    CmsSignPlan other;
    other.content = "x";
    other.signers = {&P().a};
    other.contentType = "1.2.3.4.5";
    const Bytes der = CmsDer(SignCms(other).get());
    SignedCms cms;
    EXPECT_EQ(CodeOf([&] { cms.Decode(Array(der)); }), ErrInvalidMessageFormat)
        << "any other content type is refused";
    EXPECT_TRUE(cms.GetCms() == nullptr && cms.GetSignerInfoCount() == 0u)
        << "a failed decode leaves no message";
}

TEST(SignedCmsDecodeTest, BadInput) {
    SignedCms cms;
    EXPECT_EQ(CodeOf([&] { cms.Decode(nullptr, 4); }), ErrInvalidParameter);
    const unsigned char junk[] = {0x30, 0x03, 0x02, 0x01, 0x01};
    const Thrown zero = Catch([&] { cms.Decode(junk, 0); });
    EXPECT_TRUE(zero.code == ErrInvalidParameter && zero.message == "nSize<=0") << zero.message;
    EXPECT_EQ(Catch([&] { cms.Decode(qorstd::QorArray<unsigned char>()); }).message,
              "SignedCms - Crypto message is empty.");
    EXPECT_EQ(CodeOf([&] { cms.Decode(junk, sizeof junk); }), ErrInvalidMessageFormat)
        << "no ContentInfo";
}

TEST(SignedCmsDecodeTest, ZeroPaddedToReservedSize) {
    // A signature taken from a fixed-size field (a PDF's /Contents) with its
    // zero padding: the message is the first DER object.
    const Bytes der = Der(Sign("padded"));
    Bytes padded = der;
    padded.resize(der.size() + 8192, 0);
    SignedCms cms = Decoded(padded);
    EXPECT_EQ(ToBytes(cms.Encode()), der) << "the padding is not part of the message";
    VerifierCms verifier;
    verifier.SetVerifyOption(VerifierCms::cptVerifyNone);
    EXPECT_NO_THROW(cms.Verify(verifier, SignedCms::cptCmsNone)) << "signature and content verify";
}

TEST(SignedCmsDecodeTest, DuplicateSingleAttributes) {
    const struct {
        int nid;
        int code;
    } cases[] = {{NID_pkcs9_contentType, ErrContentTypeAttrMultiple},
                 {NID_pkcs9_signingTime, ErrSigningTimeMultiple}};
    for (const auto& c : cases) {
        const CmsPtr message = Sign("x");
        CMS_SignerInfo* si = FirstSigner(message.get());
        X509_ATTRIBUTE* first = CMS_signed_get_attr(si, CMS_signed_get_attr_by_NID(si, c.nid, -1));
        ASSERT_EQ(CMS_signed_add1_attr(si, first), 1);
        const Bytes der = Der(message);
        EXPECT_EQ(CodeOf([&] { Decoded(der); }), c.code) << "a second attribute of NID " << c.nid;
    }
}

// ------------------------------------------------------------------ signers

TEST(SignedCmsSignerTest, TwoSignersFindTheirCertificates) {
    const SignedCms cms = Decoded(Der(Sign("two", 0, {&P().a, &P().b})));
    ASSERT_EQ(cms.GetSignerInfoCount(), 2u);
    // The encoding sorts the signer infos: either may come first.
    const auto is = [&](unsigned i, const Issued& who) {
        return cms.GetSignerInfo(i)->GetCertificate().Equals(Cert(who)) == 1;
    };
    EXPECT_TRUE((is(0, P().a) && is(1, P().b)) || (is(0, P().b) && is(1, P().a)))
        << "each signer gets its own certificate";
    EXPECT_TRUE(*cms.GetSignerInfo(0) != *cms.GetSignerInfo(1));
    EXPECT_EQ(cms.GetSignerInfo(2), nullptr) << "index equal to the count";
}

namespace {
// Opens the protected attribute queries and the write-back for tests.
struct ProbeSigner : SignedCms::SignerInfo {
    using SignerInfo::GetSignedAttrCount;
    using SignerInfo::GetUnsignedAttrCount;
    using SignerInfo::HasSignedAttribute;
    using SignerInfo::m_verifyInfo;
    using SignerInfo::SignerInfo;
};
struct ProbeCms : SignedCms {
    using SignedCms::ParseCms;
    using SignedCms::UpdateSignerCms;
};
}  // namespace

TEST(SignedCmsSignerTest, KeyIdentifierSignersAndVersions) {
    // Found by its key identifier: CmsVerifyInteropTest (two -keyid signers).
    const SignedCms missing = Decoded(Der(Sign("k", CMS_NOCERTS, {&P().a}, 1)));
    EXPECT_EQ(missing.GetSignerInfo(0)->GetCertificate().GetX509(), nullptr)
        << "no certificate matches: stays empty, decoding succeeds";

    // B by key identifier (version 3), A by issuer and serial (version 1).
    // The encoding sorts the signer infos while OpenSSL's stack keeps the
    // order of adding; over a few messages built in memory both orders occur.
    for (int round = 0; round < 6; ++round) {
        const CmsPtr message = Sign("two", 0, {&P().a, &P().b}, 2);
        ProbeCms cms;
        cms.ParseCms(message.get());
        ASSERT_EQ(cms.GetSignerInfoCount(), 2u);
        EXPECT_EQ(cms.GetSignerInfo(0)->GetVersion(), 1u) << "A, round " << round;
        EXPECT_EQ(cms.GetSignerInfo(1)->GetVersion(), 3u) << "B, round " << round;
    }
}

TEST(SignedCmsSignerTest, AttributeQueriesAndWriteBack) {
    ProbeCms cms;
    cms.Decode(Array(Der(Sign("q"))));
    ProbeSigner probe(&cms, cms.GetSignerInfo(0)->GetSigner(), nullptr);
    EXPECT_EQ(probe.HasSignedAttribute("1.2.840.113549.1.9.5"), 1) << "signing time by OID";
    EXPECT_EQ(probe.GetSignedAttrCount("1.2.840.113549.1.9.3"), 1) << "content type by OID";
    EXPECT_EQ(probe.GetUnsignedAttrCount(NID_id_smime_aa_timeStampToken), 0);
    const Thrown bad = Catch([&] { probe.GetSignedAttrCount("no oid"); });
    EXPECT_EQ(bad.code, ErrInternal);
    EXPECT_EQ(bad.message, "SignedCms::SignerInfo - pAsn1Obj = NULL");

    probe.m_verifyInfo = 5;
    cms.UpdateSignerCms(probe);
    EXPECT_EQ(cms.GetSignerInfo(0)->GetVerifyInfo(), 5u) << "same parent and signer: written back";
    const ProbeSigner stranger(nullptr, cms.GetSignerInfo(0)->GetSigner(), nullptr);
    EXPECT_EQ(CodeOf([&] { cms.UpdateSignerCms(stranger); }), ErrInvalidParameter)
        << "another parent is not an entry of this container";
    EXPECT_EQ(CodeOf([&] { ProbeCms().UpdateSignerCms(probe); }), ErrInternal)
        << "no signers at all";
}

// ------------------------------------------------- certificates and revocation

TEST(SignedCmsRevocationTest, CrlsOcspResponsesAndAttributeCertificates) {
    const CrlPtr crl = IssueCrl(CrlPlan(), P().ca);
    const std::int64_t producedAt = UtcTime(2024, 6, 1, 13);
    const OcspResponsePlan response =
        OcspPlan(&P().ca, P().ca.cert.get(),
                 {{P().a.cert.get(), V_OCSP_CERTSTATUS_GOOD, -1, 0, producedAt, 0}}, producedAt);
    // certificate set: only an attribute certificate (v2, [2]); revocation
    // set: CRL, otherRevInfo [1] { id-ri-ocsp-response, response }, an
    // unknown other format (skipped)
    const Bytes attributeCert = {0x30, 0x03, 0x02, 0x01, 0x07};
    const Bytes ocspOid = {0x06, 0x08, 0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x10, 0x02};
    const Bytes choices =
        Join({CrlToDer(crl.get()), Tlv(0xA1, Join({ocspOid, MakeOcspResponse(response)})),
              Tlv(0xA1, {0x06, 0x02, 0x2A, 0x03, 0x30, 0x00})});
    const Bytes sets = Join({Tlv(0xA0, Tlv(0xA2, {0x02, 0x01, 0x07})), Tlv(0xA1, choices)});
    const SignedCms cms = Decoded(InsertBeforeSignerInfos(Der(Sign("r", CMS_NOCERTS)), sets));
    ASSERT_EQ(cms.GetCrls().GetSize(), 1u);
    EXPECT_EQ(cms.GetCrls()[0].GetThisUpdate(), CrlPlan().thisUpdate) << "the CRL is read";
    ASSERT_EQ(cms.GetOcspResponses().GetSize(), 1u) << "only id-ri-ocsp-response is read";
    EXPECT_EQ(cms.GetOcspResponses()[0].GetProducedAt(), response.producedAt);
    EXPECT_EQ(cms.GetCertificates().GetSize(), 0u) << "an attribute certificate is no X.509 one";
    ASSERT_EQ(cms.GetAttributeCerts().GetSize(), 1u);
    EXPECT_EQ(ToBytes(cms.GetAttributeCerts()[0]), attributeCert) << "kept with a SEQUENCE tag";
}

// ------------------------------------------------------ detaching and copies

TEST(SignedCmsDetachTest, BothWays) {
    const Bytes content = {'c', 'o', 'n', 't', 'e', 'n', 't'};
    SignedCms cms = Decoded(Der(Sign("content")));
    cms.SetDetached(1);
    EXPECT_EQ(cms.IsDetached(), 1);
    EXPECT_EQ(Decoded(ToBytes(cms.Encode())).IsDetached(), 1)
        << "the encoding no longer carries the content";
    EXPECT_EQ(ToBytes(cms.GetContent()), content) << "detaching keeps the content in the object";
    cms.SetDetached(0);
    EXPECT_EQ(ToBytes(Decoded(ToBytes(cms.Encode())).GetContent()), content)
        << "attaching embeds the content again";

    SignedCms bare = Decoded(Der(Sign("content", CMS_DETACHED)));
    EXPECT_EQ(CodeOf([&] { bare.SetDetached(0); }), ErrNoContent);
    EXPECT_EQ(bare.IsDetached(), 1) << "a refused attach changes nothing";
    SignedCms none;
    EXPECT_EQ(CodeOf([&] { none.SetDetached(1); }), ErrNoMessage);
    EXPECT_EQ(none.Encode().GetSize(), 0u) << "Encode of an empty object";
}

TEST(SignedCmsCopyTest, DeepCopies) {
    SignedCms original = Decoded(Der(Sign("copy", 0, {&P().a, &P().b})));
    SignedCms copy(original);
    EXPECT_NE(copy.GetCms(), original.GetCms()) << "a message of its own";
    EXPECT_EQ(copy.Encode(), original.Encode());
    ASSERT_EQ(copy.GetSignerInfoCount(), 2u);
    EXPECT_FALSE(*copy.GetSignerInfo(0) == *original.GetSignerInfo(0))
        << "signers belong to the copy";

    SignedCms assigned(Array("z"));
    assigned = original;
    original = SignedCms(Array("e"));
    EXPECT_EQ(assigned.GetSignerInfoCount(), 2u) << "survives the original's reset";
    EXPECT_EQ(ToBytes(assigned.GetContent()), (Bytes{'c', 'o', 'p', 'y'}));
    EXPECT_EQ(original.GetCms(), nullptr);
    EXPECT_EQ(ToBytes(original.GetContent()), Bytes{'e'}) << "an empty object's content is copied";

    const SignedCms::SignerInfo signerCopy = *assigned.GetSignerInfo(0);
    EXPECT_TRUE(signerCopy == *assigned.GetSignerInfo(0)) << "same parent, same OpenSSL signer";
}

// --------------------------------------------- attributes and result holders

TEST(ContainerTimeStampTest, AttributeAndVerificationData) {
    const Bytes token = Token("v");
    QorTsp2Lib::TspTimeStamp stamp;
    stamp.Decode(token.data(), static_cast<unsigned int>(token.size()));

    const TimeStampAttribute created = TimeStampAttribute::CreateFromTimeStamp(stamp);
    EXPECT_STREQ(created.GetOID().c_str(), "1.2.840.113549.1.9.16.2.14");
    EXPECT_EQ(ToBytes(created.GetValue()), token) << "the value is the token DER";
    const TimeStampAttribute decoded(created.Encode());
    EXPECT_EQ(decoded.GetTimeStamp().GetTime(), stamp.GetTime()) << "round trip";
    const TimeStampAttribute copy = decoded;
    EXPECT_NE(copy.GetX509Attr(), decoded.GetX509Attr()) << "copies duplicate the attribute";
    EXPECT_EQ(Catch([] { TimeStampAttribute(qorstd::QorArray<unsigned char>()); }).message,
              "TimeStampAttribude - attr is empty");
    EXPECT_EQ(CodeOf([] { TimeStampAttribute::CreateFromTimeStamp(QorTsp2Lib::TspTimeStamp()); }),
              ErrInvalidParameter)
        << "no token";
    // A signing-time attribute is no time-stamp.
    const Bytes signingTime = {0x30, 0x1C, 0x06, 0x09, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D,
                               0x01, 0x09, 0x05, 0x31, 0x0F, 0x17, 0x0D, '2',  '4',  '0',
                               '6',  '0',  '1',  '1',  '2',  '0',  '0',  '0',  '0',  'Z'};
    EXPECT_EQ(CodeOf([&] { TimeStampAttribute(Array(signingTime)); }), ErrAsn1Decoding);

    const std::int64_t time = UtcTime(2024, 6, 1);
    TimeStampVerificationData data;
    data.SetVerifyTime(&time);
    data.SetTimeStamp(&stamp);
    const std::unique_ptr<VerificationData> clone(data.Clone());
    data.Reset();
    const auto* held = dynamic_cast<const TimeStampVerificationData*>(clone.get());
    ASSERT_TRUE(held != nullptr && held->GetVerifyTime() != nullptr && held->GetTimeStamp())
        << "Clone keeps the dynamic type and both values";
    EXPECT_EQ(*held->GetVerifyTime(), time) << "the clone keeps its own time";
    EXPECT_EQ(held->GetTimeStamp()->GetTime(), stamp.GetTime());
    EXPECT_TRUE(data.GetVerifyTime() == nullptr && data.GetTimeStamp() == nullptr)
        << "Reset clears the time and the token";
}
