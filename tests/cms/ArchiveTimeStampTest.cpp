// Archive time-stamps v3: the public LTA samples (hash indexes v1 and v3,
// a detached one, one with a certificate missing from the message), and
// signatures of the test PKI extended here with archive time-stamps whose
// imprints and hash indexes this file computes on its own.
#include <gtest/gtest.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/objects.h>

#include <memory>
#include <string>

#include "ATSHashIndexAttribute.h"
#include "CryptException.h"
#include "OpenSslPtr.h"
#include "QorDer.h"
#include "SignedCades.h"
#include "SignedCades2.h"
#include "TestCms.h"
#include "TestTessera.h"
#include "TestTsa.h"
#include "TimeStampAttribute.h"
#include "TspException.h"
#include "ValidationDataStore.h"
#include "VerifierCades.h"
#include "X509ChainPolicy.h"
#include "X509Crl.h"
#include "X509Store.h"

using namespace TesseraLib;
using namespace tessera_test;

namespace {

const char kArchiveTimeStamp[] = "0.4.0.1733.2.4";

struct Sample {
    const char* file;
    const char* detachedContent;  // beside the sample, or null when attached
    const char* indexOid;
    int code;  // of the hash-index check
};

std::string Vector(const std::string& name) {
    return std::string(TESSERA_VECTORS_DIR) + "/cades/" + name;
}

X509_ATTRIBUTE* UnsignedAttribute(const CMS_SignerInfo* signer, const char* oid) {
    const Asn1ObjectPtr type(OBJ_txt2obj(oid, 1));
    const int at = CMS_unsigned_get_attr_by_OBJ(signer, type.get(), -1);
    return at < 0 ? nullptr : CMS_unsigned_get_attr(signer, at);
}

}  // namespace

TEST(ArchiveTimeStamp, PublicSamplesAreLtaAndTheirArchiveTimeStampsVerify) {
    // The samples' certificates expired long ago: only the signatures,
    // hash indexes and imprints are checked here, not the paths.
    const Sample samples[] = {
        {"Signature-C-HU_POL-3.p7m", nullptr, ATSHashIndexAttributeBase::kOidV1, 0},
        {"cades-lta-detached.pkcs7", "hello_world.txt", ATSHashIndexAttributeBase::kOidV3, 0},
        {"cades-ats-v3-wrong-cert.p7m", nullptr, ATSHashIndexAttributeBase::kOidV3,
         ErrAtsHashIndexCertMismatch},
    };
    X509ChainPolicy policy;
    VerifierCades verifier;
    verifier.SetVerifyOption(VerifierCms::cptVerifyNone);
    verifier.SetChainPolicy(&policy);
    for (const Sample& sample : samples) {
        SCOPED_TRACE(sample.file);
        SignedCades2 cades;
        cades.Decode(Array(ReadBinaryFile(Vector(sample.file))));
        if (sample.detachedContent != nullptr) {
            cades.SetContent(Array(ReadBinaryFile(Vector(sample.detachedContent))));
        }
        SignedCades2::SignerInfo& signer = *cades.GetSignerInfo(0);
        EXPECT_EQ(signer.GetCadesType(), SignedCades2::cptCades2Lta);
        ValidationDataStore store;
        EXPECT_EQ(CodeOf([&] { signer.Verify(verifier, &store, SignedCades2::cptCades2None); }), 0)
            << "archive failures are recorded, not thrown";
        ASSERT_NE(signer.GetArchiveTimeStampsV3VerificationData(), nullptr);
        const TimeStampVerificationData& data =
            (*signer.GetArchiveTimeStampsV3VerificationData())[0];
        EXPECT_EQ(data.GetVerificationException() != nullptr
                      ? data.GetVerificationException()->GetErrorCode()
                      : 0,
                  sample.code)
            << "the archive time-stamp's outcome";
    }
}

TEST(ArchiveTimeStamp, HashIndexDecodingRefusesOtherTypesAndLayouts) {
    ATSHashIndexAttribute v1;
    ATSHashIndexV3Attribute v3;
    const Bytes der = ReadBinaryFile(Vector("cades-lta-detached.pkcs7"));
    SignedCades cades;
    cades.Decode(Array(der));
    X509_ATTRIBUTE* archive =
        UnsignedAttribute(cades.GetSignerInfo(0)->GetSigner(), kArchiveTimeStamp);
    const Bytes tokenDer = qorssl::Encode(i2d_ASN1_TYPE, X509_ATTRIBUTE_get0_type(archive, 0));
    SignedCades token;
    token.Decode(Array(tokenDer));
    X509_ATTRIBUTE* v3Attr =
        UnsignedAttribute(token.GetSignerInfo(0)->GetSigner(), ATSHashIndexAttributeBase::kOidV3);
    v3.Decode(v3Attr);
    EXPECT_EQ(v3.GetHashAlgorithm(), CryptHash::cptHashSHA256) << "named in the index";
    EXPECT_EQ(v3.GetCertificatesHashIndex().GetSize(), 5u);
    EXPECT_EQ(v3.GetCrlsHashIndex().GetSize(), 2u) << "a CRL and an OCSP choice";
    EXPECT_EQ(v3.GetUnsignedAttrValuesHashIndex().GetSize(), 1u);
    const ATSHashIndexV3Attribute copy(v3);
    EXPECT_EQ(copy.GetCertificatesHashIndex().GetSize(), 5u) << "copies keep the lists";
    EXPECT_EQ(CodeOf([&] { v1.Decode(v3Attr); }), ErrAsn1Decoding)
        << "a v3 attribute is no v1 index";
    EXPECT_EQ(CodeOf([&] {
                  v3.Decode(Array(Bytes{0x30, 0x00}));
              }),
              ErrAsn1Decoding)
        << "no attribute";
}

TEST(ArchiveTimeStamp, HashIndexProvesWhatItLists) {
    // Signature-C-HU_POL-3: 4 certificates, 2 OCSP responses and the
    // signature time-stamp, all listed by the archive token's v1 index.
    const Bytes der = ReadBinaryFile(Vector("Signature-C-HU_POL-3.p7m"));
    SignedCades cades;
    cades.Decode(Array(der));
    const SignedCades::SignerInfo& signer = *cades.GetSignerInfo(0);
    X509_ATTRIBUTE* archive = UnsignedAttribute(signer.GetSigner(), kArchiveTimeStamp);
    const Bytes tokenDer = qorssl::Encode(i2d_ASN1_TYPE, X509_ATTRIBUTE_get0_type(archive, 0));
    SignedCades token;
    token.Decode(Array(tokenDer));
    ATSHashIndexAttribute index(
        UnsignedAttribute(token.GetSignerInfo(0)->GetSigner(), ATSHashIndexAttributeBase::kOidV1));

    const std::int64_t at = UtcTime(2020, 1, 1);
    ValidationDataStore store;
    index.UpdatePOEInfo(cades.GetCertificates(), cades.GetCrls(), cades.GetOcspResponses(),
                        cades.GetOcspRevocationInfoChoices(), signer.GetSignatureTimeStamps(),
                        qorstd::QorVector<TimeStampAttribute>(), at, &store);
    EXPECT_EQ(store.GetCertificates().GetSize(), 4u) << "every certificate";
    EXPECT_EQ(store.GetOcsps().GetSize(), 2u) << "both OCSP responses, by their choices";
    ASSERT_EQ(store.GetTimeStamps().GetSize(), 1u) << "the signature time-stamp";
    std::int64_t poe = 0;
    EXPECT_TRUE(store.GetPOECertificate(&cades.GetCertificates()[0], &poe) && poe == at)
        << "proven at the archive time-stamp's time";
    EXPECT_EQ(CodeOf([&] {
                  index.UpdatePOEInfo(
                      cades.GetCertificates(), cades.GetCrls(), cades.GetOcspResponses(),
                      cades.GetOcspRevocationInfoChoices(), signer.GetSignatureTimeStamps(),
                      qorstd::QorVector<TimeStampAttribute>(), at, nullptr);
              }),
              ErrInvalidParameter)
        << "no store";
}

namespace {

// Timeline of the scenarios (the verification runs on 2026-01-01):
//
//   signer  2020 ───────────────── revoked 2025-06 ───────────── 2040
//   TSA 1   2020 ─────────────────────────── expired 2025-01
//   TSA 2   2020 ──────────────────────────────────────────────── 2040
//            signature time-stamp by TSA 1     2024-01-02
//            archive time-stamp by TSA 2       2024-06-01
const std::int64_t kSigned = UtcTime(2024, 1, 1);
const std::int64_t kStamped = UtcTime(2024, 1, 2);
const std::int64_t kArchived = UtcTime(2024, 6, 1);
const std::int64_t kRevoked = UtcTime(2025, 6, 1);
const std::int64_t kVerified = UtcTime(2026, 1, 1);
const std::int64_t kFar = UtcTime(2040, 1, 1);
const std::string kContent = "archived for the long term\n";

struct LongTermPki {
    Issued root;
    Issued signer;
    TestTsa tsa1{KeyKind::EcP256, EVP_sha256(), KeyKind::EcP256, UtcTime(2025, 1, 1)};
    TestTsa tsa2;
    LongTermPki() {
        CertPlan rootPlan = BasicProfile("Long-Term Root", 1, true);
        rootPlan.keyKind = KeyKind::Rsa2048;
        root = IssueCertificate(rootPlan, nullptr);
        signer = IssueCertificate(BasicProfile("Long-Term Signer", 5, false), &root);
    }
};

const LongTermPki& L() {
    static const LongTermPki pki;
    return pki;
}

Bytes Sha256(const Bytes& data) {
    return TestTsa::Digest(EVP_sha256(), std::string(data.begin(), data.end()));
}

// The DER elements directly inside the constructed element `tlv`.
std::vector<Bytes> Children(const Bytes& tlv) {
    const unsigned char* at = tlv.data();
    long length = 0;
    int tag = 0;
    int cls = 0;
    ASN1_get_object(&at, &length, &tag, &cls, static_cast<long>(tlv.size()));
    const unsigned char* end = at + length;
    std::vector<Bytes> out;
    while (at < end) {
        const unsigned char* start = at;
        ASN1_get_object(&at, &length, &tag, &cls, end - at);
        at += length;
        out.emplace_back(start, at);
    }
    return out;
}

Bytes Concat(const std::vector<Bytes>& parts) {
    Bytes out;
    for (const Bytes& part : parts) {
        out.insert(out.end(), part.begin(), part.end());
    }
    return out;
}

// An ats-hash-index-v3 value (SHA-256) over the message's certificates,
// CRLs and the first signer's unsigned attribute values.
Bytes HashIndexV3(CMS_ContentInfo* cms) {
    std::vector<Bytes> certs;
    std::vector<Bytes> crls;
    std::vector<Bytes> attrs;
    STACK_OF(X509)* carried = CMS_get1_certs(cms);
    for (int i = 0; i < sk_X509_num(carried); ++i) {
        certs.push_back(Tlv(0x04, Sha256(CertToDer(sk_X509_value(carried, i)))));
    }
    sk_X509_pop_free(carried, X509_free);
    STACK_OF(X509_CRL)* revocation = CMS_get1_crls(cms);
    for (int i = 0; i < sk_X509_CRL_num(revocation); ++i) {
        crls.push_back(Tlv(0x04, Sha256(CrlToDer(sk_X509_CRL_value(revocation, i)))));
    }
    sk_X509_CRL_pop_free(revocation, X509_CRL_free);
    CMS_SignerInfo* si = FirstSigner(cms);
    for (int i = 0; i < CMS_unsigned_get_attr_count(si); ++i) {
        X509_ATTRIBUTE* attr = CMS_unsigned_get_attr(si, i);
        const Bytes type = qorssl::Encode(i2d_ASN1_OBJECT, X509_ATTRIBUTE_get0_object(attr));
        for (int v = 0; v < X509_ATTRIBUTE_count(attr); ++v) {
            const Bytes value = qorssl::Encode(i2d_ASN1_TYPE, X509_ATTRIBUTE_get0_type(attr, v));
            attrs.push_back(Tlv(0x04, Sha256(Concat({type, value}))));
        }
    }
    const Bytes sha256 = {0x30, 0x0b, 0x06, 0x09, 0x60, 0x86, 0x48,
                          0x01, 0x65, 0x03, 0x04, 0x02, 0x01};
    return Tlv(0x30, Concat({sha256, Tlv(0x30, Concat(certs)), Tlv(0x30, Concat(crls)),
                             Tlv(0x30, Concat(attrs))}));
}

struct ArchivePlan {
    const TestTsa* tsa = nullptr;
    std::int64_t genTime = 0;
    bool wrongImprint = false;
    int indexCopies = 1;  // hash-index attributes on the token's signer
};

// Adds an archive time-stamp v3 to the first signer: the token stamps the
// content type, the content's digest, the signer's fields up to its
// signature and the hash-index value, and carries that index.
void AddArchiveTimeStamp(CMS_ContentInfo* cms, const ArchivePlan& plan) {
    const Bytes index = HashIndexV3(cms);
    const std::vector<Bytes> signedData = Children(Children(Children(CmsDer(cms))[1])[0]);
    const Bytes eContentType = Children(signedData[2])[0];
    std::vector<Bytes> fields = Children(Children(signedData.back())[0]);
    if (fields.back()[0] == 0xA1) {
        fields.pop_back();  // the unsigned attributes are not stamped
    }
    const Bytes input = Concat(
        {eContentType, Sha256(Bytes(kContent.begin(), kContent.end())), Concat(fields), index});
    TsaReply reply;
    reply.genTime = plan.genTime;
    reply.alterImprint = plan.wrongImprint;
    const Bytes token = plan.tsa->Token(EVP_sha256(), Sha256(input), true, reply);
    const unsigned char* read = token.data();
    CmsPtr stamp(d2i_CMS_ContentInfo(nullptr, &read, static_cast<long>(token.size())));
    ASSERT_TRUE(stamp);
    CMS_SignerInfo* tsaSigner = FirstSigner(stamp.get());
    for (int i = 0; i < plan.indexCopies; ++i) {
        ASSERT_EQ(CMS_unsigned_add1_attr_by_txt(tsaSigner, ATSHashIndexAttributeBase::kOidV3,
                                                V_ASN1_SEQUENCE, index.data(),
                                                static_cast<int>(index.size())),
                  1);
    }
    const Bytes carried = CmsDer(stamp.get());
    ASSERT_EQ(CMS_unsigned_add1_attr_by_txt(FirstSigner(cms), kArchiveTimeStamp, V_ASN1_SEQUENCE,
                                            carried.data(), static_cast<int>(carried.size())),
              1);
}

// A CAdES-T of the signer stamped by TSA 1, carrying TSA 1's CRL, then
// extended with the archive time-stamps of `archives`; the CRL revoking the
// signer and TSA 2's CRL are added after the last of them.
Bytes LongTermSignature(const std::vector<ArchivePlan>& archives) {
    CmsSignPlan plan;
    plan.content = kContent;
    plan.signers = {&L().signer};
    plan.flags = CMS_CADES;
    plan.signingTime = kSigned;
    CmsPtr cms = SignCms(plan);
    CMS_SignerInfo* si = FirstSigner(cms.get());
    const ASN1_OCTET_STRING* value = CMS_SignerInfo_get0_signature(si);
    TsaReply at;
    at.genTime = kStamped;
    const Bytes token = L().tsa1.Token(
        EVP_sha256(), Sha256(Bytes(value->data, value->data + value->length)), true, at);
    EXPECT_EQ(CMS_unsigned_add1_attr_by_NID(si, NID_id_smime_aa_timeStampToken, V_ASN1_SEQUENCE,
                                            token.data(), static_cast<int>(token.size())),
              1);
    CMS_add1_crl(cms.get(), IssueCrl(L().tsa1.Ca(), kArchived, kFar).get());
    for (const ArchivePlan& archive : archives) {
        AddArchiveTimeStamp(cms.get(), archive);
    }
    CMS_add1_crl(cms.get(), IssueCrl(L().root, UtcTime(2025, 7, 1), kFar,
                                     {RevokedEntry{5, kRevoked, CRL_REASON_KEY_COMPROMISE}})
                                .get());
    CMS_add1_crl(cms.get(), IssueCrl(L().tsa2.Ca(), UtcTime(2025, 7, 1), kFar).get());
    return CmsDer(cms.get());
}

// Anchors of the signer and both TSAs; CRLs from the message only.
struct LongTermTrust {
    X509MemoryStore anchors;
    X509ChainPolicy policy;
    VerifierCades verifier;
    LongTermTrust() {
        anchors.AddCertificate(X509Certificate(L().root.cert.get()));
        anchors.AddCertificate(X509Certificate(L().tsa1.Ca().cert.get()));
        anchors.AddCertificate(X509Certificate(L().tsa2.Ca().cert.get()));
        policy.SetTrustStore(&anchors);
        policy.SetChainBuildMode(static_cast<X509ChainPolicy::cptChainBuildMode>(
            X509ChainPolicy::cptChainBuildStores | X509ChainPolicy::cptChainBuildSuppliedValData));
        verifier.SetChainPolicy(&policy);
        verifier.SetVerifyTime(kVerified);
    }
};

int ArchiveOutcome(const SignedCades2::SignerInfo& signer, unsigned int index) {
    const qorstd::QorException* failure =
        (*signer.GetArchiveTimeStampsV3VerificationData())[index].GetVerificationException();
    return failure != nullptr ? failure->GetErrorCode() : 0;
}

}  // namespace

TEST(ArchiveTimeStamp, ProofsKeepARevokedSignerWithAnExpiredTsaValid) {
    const Bytes der = LongTermSignature({{&L().tsa2, kArchived}});
    LongTermTrust trust;

    SignedCades plain;
    plain.Decode(Array(der));
    EXPECT_NE(CodeOf([&] { plain.Verify(trust.verifier, SignedCades::cptCadesNone); }), 0)
        << "without proofs TSA 1 has expired by now";

    SignedCades2 cades;
    cades.Decode(Array(der));
    SignedCades2::SignerInfo& signer = *cades.GetSignerInfo(0);
    ASSERT_EQ(signer.GetCadesType(), SignedCades2::cptCades2Lta);
    ValidationDataStore store;
    EXPECT_EQ(CodeOf([&] { signer.Verify(trust.verifier, &store, SignedCades2::cptCades2None); }),
              0)
        << "the archive time-stamp proves the signature time-stamp in TSA 1's lifetime";
    EXPECT_EQ(ArchiveOutcome(signer, 0), 0);
    ASSERT_NE(signer.GetVerificationData()->GetVerifyTime(), nullptr);
    EXPECT_EQ(*signer.GetVerificationData()->GetVerifyTime(), kStamped)
        << "the path is judged at the signature's proven time, before the revocation";
    std::int64_t proven = 0;
    EXPECT_TRUE(store.GetPOESignatureTimeStamp(&signer.GetSignatureTimeStamps()[0].GetTimeStamp(),
                                               &proven) &&
                proven == kArchived)
        << "the hash index proves the signature time-stamp at the archive time";

    ValidationDataStore ignored;
    SignedCades2 withoutArchive;
    withoutArchive.Decode(Array(LongTermSignature({})));
    EXPECT_NE(CodeOf([&] {
                  withoutArchive.GetSignerInfo(0)->Verify(trust.verifier, &ignored,
                                                          SignedCades2::cptCades2None);
              }),
              0)
        << "an LT signature alone has nothing that proves TSA 1's token in time";
}

TEST(ArchiveTimeStamp, EachArchiveTimeStampKeepsItsOwnOutcome) {
    // The earlier token stamps other bytes; the later one carries its hash
    // index twice. Neither stops the signer's verification.
    const Bytes der = LongTermSignature(
        {{&L().tsa2, UtcTime(2024, 3, 1), true}, {&L().tsa2, kArchived, false, 2}});
    LongTermTrust trust;
    SignedCades2 cades;
    cades.Decode(Array(der));
    SignedCades2::SignerInfo& signer = *cades.GetSignerInfo(0);
    ValidationDataStore store;
    CodeOf([&] { signer.Verify(trust.verifier, &store, SignedCades2::cptCades2None); });
    ASSERT_EQ(signer.GetArchiveTimeStampsV3VerificationData()->GetSize(), 2u);
    EXPECT_EQ(ArchiveOutcome(signer, 0), ErrHashMismatch) << "earliest first";
    EXPECT_EQ(ArchiveOutcome(signer, 1), ErrAtsHashIndexV3Multiple);
}
