// Archive time-stamps v3 of the public LTA samples: the hash index each
// token's signer carries is checked against the message, and the token's
// message imprint is recomputed from the message's bytes.
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
#include "TestTessera.h"
#include "TimeStampAttribute.h"
#include "ValidationDataStore.h"
#include "cms/ArchiveImprint.h"

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

// The signer's unsigned attributes as one (borrowing) stack.
struct UnsignedStack {
    STACK_OF(X509_ATTRIBUTE)* stack = sk_X509_ATTRIBUTE_new_null();
    explicit UnsignedStack(const CMS_SignerInfo* signer) {
        for (int i = 0; i < CMS_unsigned_get_attr_count(signer); ++i) {
            sk_X509_ATTRIBUTE_push(stack, CMS_unsigned_get_attr(signer, i));
        }
    }
    ~UnsignedStack() { sk_X509_ATTRIBUTE_free(stack); }
};

std::unique_ptr<ATSHashIndexAttributeBase> IndexFor(const char* oid) {
    const std::string type(oid);
    if (type == ATSHashIndexAttributeBase::kOidV1) {
        return std::make_unique<ATSHashIndexAttribute>();
    }
    if (type == ATSHashIndexAttributeBase::kOidV2) {
        return std::make_unique<ATSHashIndexV2Attribute>();
    }
    return std::make_unique<ATSHashIndexV3Attribute>();
}

}  // namespace

TEST(ArchiveTimeStamp, PublicSamplesCarryMatchingHashIndexesAndImprints) {
    const Sample samples[] = {
        {"Signature-C-HU_POL-3.p7m", nullptr, ATSHashIndexAttributeBase::kOidV1, 0},
        {"cades-lta-detached.pkcs7", "hello_world.txt", ATSHashIndexAttributeBase::kOidV3, 0},
        {"cades-ats-v3-wrong-cert.p7m", nullptr, ATSHashIndexAttributeBase::kOidV3,
         ErrAtsHashIndexCertMismatch},
    };
    for (const Sample& sample : samples) {
        SCOPED_TRACE(sample.file);
        const Bytes der = ReadBinaryFile(Vector(sample.file));
        SignedCades cades;
        cades.Decode(Array(der));
        const CMS_SignerInfo* signer = cades.GetSignerInfo(0)->GetSigner();

        // The token and the hash index its signer carries.
        X509_ATTRIBUTE* archive = UnsignedAttribute(signer, kArchiveTimeStamp);
        ASSERT_NE(archive, nullptr) << "an archive time-stamp";
        const Bytes tokenDer = qorssl::Encode(i2d_ASN1_TYPE, X509_ATTRIBUTE_get0_type(archive, 0));
        SignedCades token;
        token.Decode(Array(tokenDer));
        X509_ATTRIBUTE* indexAttr =
            UnsignedAttribute(token.GetSignerInfo(0)->GetSigner(), sample.indexOid);
        ASSERT_NE(indexAttr, nullptr) << "the token's signer carries the hash index";
        std::unique_ptr<ATSHashIndexAttributeBase> index = IndexFor(sample.indexOid);
        index->Decode(indexAttr);

        const UnsignedStack attrs(signer);
        EXPECT_EQ(CodeOf([&] {
                      index->Verify(cades.GetCertificates(), cades.GetRevocationInfoChoices(),
                                    attrs.stack);
                  }),
                  sample.code)
            << "the hash index against the message";

        // The imprint over the message's own bytes, with the token's algorithm.
        QorTsp2Lib::TspTimeStamp stamp;
        stamp.Decode(tokenDer.data(), static_cast<unsigned int>(tokenDer.size()));
        const EVP_MD* md = EVP_get_digestbyname(
            QorTsp2Lib::GetHashName(stamp.GetMessageImprint().GetHashAlgorithm()));
        ASSERT_NE(md, nullptr);
        const auto digest = [md](const Bytes& data) {
            Bytes out(EVP_MD_get_size(md));
            EVP_Digest(data.data(), data.size(), out.data(), nullptr, md, nullptr);
            return out;
        };
        const Bytes content = sample.detachedContent != nullptr
                                  ? ReadBinaryFile(Vector(sample.detachedContent))
                                  : ToBytes(cades.GetContent());
        cms::SignedDataLayout layout;
        Bytes walked = der;
        if (!cms::ReadSignedDataLayout(walked.data(), walked.size(), &layout)) {
            walked = ToBytes(cades.Encode());  // a BER message: its DER form
            ASSERT_TRUE(cms::ReadSignedDataLayout(walked.data(), walked.size(), &layout));
        }
        const Bytes value = qorssl::Encode(i2d_ASN1_TYPE, X509_ATTRIBUTE_get0_type(indexAttr, 0));
        const Bytes input = ToBytes(
            cms::ArchiveImprintInput(nullptr, layout, 0, Array(digest(content)), Array(value)));
        EXPECT_EQ(digest(input), ToBytes(stamp.GetMessageImprint().GetHashedMessage()))
            << "the token's imprint";
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
    X509_ATTRIBUTE* v3Attr = UnsignedAttribute(token.GetSignerInfo(0)->GetSigner(),
                                               ATSHashIndexAttributeBase::kOidV3);
    v3.Decode(v3Attr);
    EXPECT_EQ(v3.GetHashAlgorithm(), CryptHash::cptHashSHA256) << "named in the index";
    EXPECT_EQ(v3.GetCertificatesHashIndex().GetSize(), 5u);
    EXPECT_EQ(v3.GetCrlsHashIndex().GetSize(), 2u) << "a CRL and an OCSP choice";
    EXPECT_EQ(v3.GetUnsignedAttrValuesHashIndex().GetSize(), 1u);
    const ATSHashIndexV3Attribute copy(v3);
    EXPECT_EQ(copy.GetCertificatesHashIndex().GetSize(), 5u) << "copies keep the lists";
    EXPECT_EQ(CodeOf([&] { v1.Decode(v3Attr); }), ErrAsn1Decoding)
        << "a v3 attribute is no v1 index";
    EXPECT_EQ(CodeOf([&] { v3.Decode(Array(Bytes{0x30, 0x00})); }), ErrAsn1Decoding)
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
                  index.UpdatePOEInfo(cades.GetCertificates(), cades.GetCrls(),
                                      cades.GetOcspResponses(), cades.GetOcspRevocationInfoChoices(),
                                      signer.GetSignatureTimeStamps(),
                                      qorstd::QorVector<TimeStampAttribute>(), at, nullptr);
              }),
              ErrInvalidParameter)
        << "no store";
}
