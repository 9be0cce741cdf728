// The DER walker that reads what OpenSSL does not hand out of a signed-data
// message: versions, attribute certificates and OCSP responses carried as
// "other" revocation info, and its refusal of anything malformed.
#include <gtest/gtest.h>

#include <vector>

#include "cms/CmsRevocationInfo.h"

using namespace TesseraLib::cms;

namespace {

using Bytes = std::vector<unsigned char>;

Bytes Tlv(unsigned char tag, const Bytes& content) {
    Bytes out{tag};
    if (content.size() >= 0x80) {
        out.push_back(0x81);
    }
    out.push_back(static_cast<unsigned char>(content.size()));
    out.insert(out.end(), content.begin(), content.end());
    return out;
}

Bytes Join(const std::vector<Bytes>& parts) {
    Bytes out;
    for (const Bytes& part : parts) {
        out.insert(out.end(), part.begin(), part.end());
    }
    return out;
}

const Bytes kSignedDataOid = {0x06, 0x09, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07, 0x02};
const Bytes kOcspOid = {0x06, 0x08, 0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x10, 0x02};
const Bytes kResponse = {0x30, 0x03, 0x0A, 0x01, 0x00};  // OCSPResponse, status only

// ContentInfo { signedData, [0] SignedData { version 3, {}, encap,
//   [0] certs, [1] crls, { SignerInfo v1, SignerInfo v3 } } }
Bytes Message(const Bytes& certificates, const Bytes& revocations) {
    const Bytes encap = Tlv(0x30, {0x06, 0x03, 0x2A, 0x03, 0x04});
    const Bytes algorithm = Tlv(0x30, {0x06, 0x01, 0x2A});
    // issuer-and-serial signer without attributes; key-identifier signer with
    // signed and unsigned attributes
    const Bytes first = Tlv(0x30, Join({{0x02, 0x01, 0x01},
                                        Tlv(0x30, {0x05, 0x00}),
                                        algorithm,
                                        algorithm,
                                        {0x04, 0x02, 0xAA, 0xBB}}));
    const Bytes second = Tlv(0x30, Join({{0x02, 0x01, 0x03, 0x80, 0x01, 0x07},
                                         algorithm,
                                         {0xA0, 0x02, 0x30, 0x00},
                                         algorithm,
                                         {0x04, 0x01, 0xCC},
                                         {0xA1, 0x02, 0x30, 0x00}}));
    const Bytes signers = Tlv(0x31, Join({first, second}));
    const Bytes signedData = Tlv(
        0x30, Join({{0x02, 0x01, 0x03}, Tlv(0x31, {}), encap, certificates, revocations, signers}));
    return Tlv(0x30, Join({kSignedDataOid, Tlv(0xA0, signedData)}));
}

}  // namespace

TEST(CmsRevocationInfoTest, ReadsVersionsAndOtherChoices) {
    const Bytes x509 = Tlv(0x30, {0x05, 0x00});
    const Bytes v1Attr = {0xA1, 0x03, 0x02, 0x01, 0x01};
    const Bytes v2Attr = {0xA2, 0x03, 0x02, 0x01, 0x02};
    const Bytes otherCert = {0xA3, 0x02, 0x05, 0x00};
    const Bytes crl = Tlv(0x30, {0x05, 0x00});
    const Bytes ocsp = Tlv(0xA1, Join({kOcspOid, kResponse}));
    const Bytes notSequence = Tlv(0xA1, Join({kOcspOid, {0x04, 0x01, 0x00}}));
    const Bytes otherFormat = Tlv(0xA1, Join({{0x06, 0x02, 0x2A, 0x03}, kResponse}));
    const Bytes der = Message(Tlv(0xA0, Join({x509, v1Attr, otherCert, v2Attr})),
                              Tlv(0xA1, Join({crl, notSequence, ocsp, otherFormat})));

    SignedDataLayout layout;
    ASSERT_TRUE(ReadSignedDataLayout(der.data(), der.size(), &layout));
    EXPECT_EQ(layout.version, 3u);
    EXPECT_EQ(layout.signerVersions, (std::vector<unsigned long>{1, 3})) << "in message order";
    ASSERT_EQ(layout.signerSignatures.size(), 2u);
    EXPECT_EQ(Bytes(layout.signerSignatures[0].data,
                    layout.signerSignatures[0].data + layout.signerSignatures[0].length),
              (Bytes{0xAA, 0xBB}));
    EXPECT_EQ(Bytes(layout.signerSignatures[1].data,
                    layout.signerSignatures[1].data + layout.signerSignatures[1].length),
              Bytes{0xCC})
        << "the signature follows the signed attributes";
    EXPECT_EQ(layout.certificates.size(), 4u);
    EXPECT_EQ(layout.revocationInfos.size(), 4u);
    EXPECT_EQ(OcspResponsesOf(layout), std::vector<Bytes>{kResponse})
        << "only id-ri-ocsp-response with a SEQUENCE value";
    EXPECT_EQ(AttributeCertsOf(layout),
              (std::vector<Bytes>{{0x30, 0x03, 0x02, 0x01, 0x01}, {0x30, 0x03, 0x02, 0x01, 0x02}}))
        << "v1 and v2 attribute certificates, re-tagged as SEQUENCE";

    const Bytes plain = Message({}, {});
    ASSERT_TRUE(ReadSignedDataLayout(plain.data(), plain.size(), &layout)) << "both sets optional";
    EXPECT_TRUE(layout.certificates.empty() && layout.revocationInfos.empty());
}

TEST(CmsRevocationInfoTest, RefusesMalformedInput) {
    const Bytes der = Message(Tlv(0xA0, Tlv(0x30, {0x05, 0x00})), {});
    SignedDataLayout layout;
    for (std::size_t length = 0; length < der.size(); ++length) {
        EXPECT_FALSE(ReadSignedDataLayout(der.data(), length, &layout))
            << "truncated to " << length << " bytes";
    }
    Bytes indefinite = der;
    indefinite[1] = 0x80;
    EXPECT_FALSE(ReadSignedDataLayout(indefinite.data(), indefinite.size(), &layout))
        << "indefinite length (no DER)";
    Bytes enveloped = der;
    enveloped[2 + 10] = 0x03;  // last OID octet: 1.2.840.113549.1.7.3
    EXPECT_FALSE(ReadSignedDataLayout(enveloped.data(), enveloped.size(), &layout))
        << "another content type";
    const Bytes hugeLength = {0x30, 0x84, 0xFF, 0xFF, 0xFF, 0xFF, 0x00};
    EXPECT_FALSE(ReadSignedDataLayout(hugeLength.data(), hugeLength.size(), &layout))
        << "a length beyond the buffer";
}
