// The DER walker that reads what OpenSSL does not hand out of a signed-data
// message: versions, attribute certificates and OCSP responses carried as
// "other" revocation info, and its refusal of anything malformed.
#include <gtest/gtest.h>

#include <vector>

#include "TestCms.h"
#include "cms/CmsRevocationInfo.h"

using namespace TesseraLib::cms;
using namespace tessera_test;

namespace {

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
    const Bytes v1Sid = {0x02, 0x01, 0x01, 0x30, 0x02, 0x05, 0x00}, none = {0x30, 0x00};
    const Bytes v3KeyId = {0x02, 0x01, 0x03, 0x80, 0x01, 0x07};
    const Bytes first = Tlv(0x30, Join({v1Sid, algorithm, algorithm, Tlv(0x04, {0xAA, 0xBB})}));
    const Bytes second = Tlv(0x30, Join({v3KeyId, algorithm, Tlv(0xA0, none), algorithm,
                                         Tlv(0x04, {0xCC}), Tlv(0xA1, none)}));
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
    std::vector<Bytes> signatures;
    for (const auto& signature : layout.signerSignatures) {
        signatures.emplace_back(signature.data, signature.data + signature.length);
    }
    EXPECT_EQ(signatures, (std::vector<Bytes>{{0xAA, 0xBB}, {0xCC}}))
        << "in message order; the second follows the signed attributes";
    EXPECT_TRUE(layout.certificates.size() == 4u && layout.revocationInfos.size() == 4u)
        << "every choice of both sets";
    const std::vector<OcspChoice> ocsps = OcspChoicesOf(layout);
    ASSERT_EQ(ocsps.size(), 1u) << "only OCSP formats with a SEQUENCE value";
    EXPECT_EQ(ocsps[0].response, kResponse) << "the OCSPResponse";
    EXPECT_EQ(Bytes(ocsps[0].choice.data, ocsps[0].choice.data + ocsps[0].choice.length), ocsp)
        << "with the whole choice it came in";
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
    Bytes indefinite = der, enveloped = der;
    indefinite[1] = 0x80;
    enveloped[2 + 10] = 0x03;  // last OID octet: 1.2.840.113549.1.7.3
    const std::pair<Bytes, const char*> refused[] = {
        {indefinite, "indefinite length (no DER)"},
        {enveloped, "another content type"},
        {{0x30, 0x84, 0xFF, 0xFF, 0xFF, 0xFF, 0x00}, "a length beyond the buffer"}};
    for (const auto& r : refused) {
        EXPECT_FALSE(ReadSignedDataLayout(r.first.data(), r.first.size(), &layout)) << r.second;
    }
}
