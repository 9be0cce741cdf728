// Archive time-stamps v3: the public LTA samples (hash indexes v1 and v3,
// a detached one, one with a certificate missing from the message), and
// signatures of the test PKI extended with archive time-stamps (see
// TestArchive.h for their timeline).
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
#include "TestArchive.h"
#include "TestTessera.h"
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

const LongTermPki& L() {
    return LongTermPki::Get();
}
const std::int64_t kStamped = LongTermTimes::Stamped();
const std::int64_t kArchived = LongTermTimes::Archived();

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
        verifier.SetVerifyTime(LongTermTimes::Verified());
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
