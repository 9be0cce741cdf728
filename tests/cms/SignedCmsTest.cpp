// The signed-data container as an application sees it: decoding messages
// made in-process with OpenSSL's CMS API, the values read from them, the
// signer infos, detaching and attaching, copies, and the failures of
// malformed messages.
#include <gtest/gtest.h>

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/objects.h>
#include <openssl/sha.h>
#include <openssl/x509.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "CryptException.h"
#include "SignedCms.h"
#include "TestOcsp.h"
#include "TestPki.h"
#include "TestTsa.h"
#include "TimeStampAttribute.h"
#include "VerificationData.h"

using namespace TesseraLib;
using namespace tessera_test;

namespace {

struct CmsFree {
    void operator()(CMS_ContentInfo* cms) const { CMS_ContentInfo_free(cms); }
};
using CmsPtr = std::unique_ptr<CMS_ContentInfo, CmsFree>;

const char* const kData = "1.2.840.113549.1.7.1";
const std::int64_t kSigningTime = UtcTime(2024, 6, 1, 12, 30, 0);

CryptException Thrown(const std::function<void()>& action) {
    try {
        action();
    } catch (const CryptException& e) {
        return e;
    }
    return CryptException(0, nullptr);
}

qorstd::QorArray<unsigned char> Array(const Bytes& bytes) {
    return qorstd::QorArray<unsigned char>(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

Bytes ToBytes(const qorstd::QorArray<unsigned char>& array) {
    return Bytes(array.GetData(), array.GetData() + array.GetSize());
}

Bytes Der(CMS_ContentInfo* cms) {
    unsigned char* out = nullptr;
    const int length = i2d_CMS_ContentInfo(cms, &out);
    Bytes der(out, out + (length > 0 ? length : 0));
    OPENSSL_free(out);
    return der;
}

CMS_SignerInfo* FirstSigner(CMS_ContentInfo* cms) {
    return sk_CMS_SignerInfo_value(CMS_get0_SignerInfos(cms), 0);
}

struct SignOptions {
    bool detached = false;
    unsigned keyIdSigners = 0;  // bit i: signer i is named by its key identifier
    bool noCerts = false;
    const char* contentType = nullptr;  // id-data when null
};

//   Test CA ──┬── Signer A   (EC P-256)
//             └── Signer B   (EC P-256)
struct Pki {
    Issued ca = IssueCertificate(Profile("CMS Test CA", 1, true), nullptr);
    Issued a = IssueCertificate(Profile("Signer A", 10, false), &ca);
    Issued b = IssueCertificate(Profile("Signer B", 11, false), &ca);

    static CertSpec Profile(const char* name, long serial, bool ca) {
        CertSpec profile;
        profile.commonName = name;
        profile.serial = serial;
        if (ca) {
            profile.extensions = CaExtensions();
        }
        return profile;
    }
};

const Pki& Certs() {
    static const Pki pki;
    return pki;
}

// A message over `content` signed by `signers` with a pinned signing time.
CmsPtr Sign(const std::string& content, const std::vector<const Issued*>& signers,
            const SignOptions& options = SignOptions()) {
    const unsigned int flags = CMS_BINARY | CMS_PARTIAL | (options.detached ? CMS_DETACHED : 0);
    CmsPtr cms(CMS_sign(nullptr, nullptr, nullptr, nullptr, flags));
    if (options.contentType != nullptr) {
        ASN1_OBJECT* type = OBJ_txt2obj(options.contentType, 1);
        CMS_set1_eContentType(cms.get(), type);
        ASN1_OBJECT_free(type);
    }
    for (unsigned index = 0; index < signers.size(); ++index) {
        const Issued* signer = signers[index];
        CMS_SignerInfo* si =
            CMS_add1_signer(cms.get(), signer->cert.get(), signer->key.get(), EVP_sha256(),
                            ((options.keyIdSigners >> index) & 1 ? CMS_USE_KEYID : 0) |
                                (options.noCerts ? CMS_NOCERTS : 0) | CMS_PARTIAL);
        ASN1_TIME* time = ASN1_TIME_set(nullptr, static_cast<time_t>(kSigningTime));
        CMS_signed_add1_attr_by_NID(si, NID_pkcs9_signingTime, time->type, time, -1);
        ASN1_TIME_free(time);
    }
    BIO* data = BIO_new_mem_buf(content.data(), static_cast<int>(content.size()));
    const int finished = CMS_final(cms.get(), data, nullptr, flags);
    BIO_free(data);
    EXPECT_EQ(finished, 1) << "OpenSSL signs the test message";
    return cms;
}

SignedCms Decoded(const Bytes& der) {
    SignedCms cms;
    cms.Decode(Array(der));
    return cms;
}

// ---- DER surgery for what OpenSSL cannot add itself ------------------------

Bytes Tlv(unsigned char tag, const Bytes& content) {
    Bytes out{tag};
    const std::size_t n = content.size();
    if (n < 0x80) {
        out.push_back(static_cast<unsigned char>(n));
    } else if (n < 0x100) {
        out.insert(out.end(), {0x81, static_cast<unsigned char>(n)});
    } else {
        out.insert(out.end(), {0x82, static_cast<unsigned char>(n >> 8),
                               static_cast<unsigned char>(n & 0xFF)});
    }
    out.insert(out.end(), content.begin(), content.end());
    return out;
}

// The elements of the TLV at `at`: (offset, total length) each.
std::vector<std::pair<std::size_t, std::size_t>> Children(const Bytes& der, std::size_t at) {
    auto header = [&](std::size_t p, std::size_t* length) {
        std::size_t h = 2;
        *length = der[p + 1];
        if (*length & 0x80) {
            const std::size_t octets = *length & 0x7F;
            *length = 0;
            for (std::size_t i = 0; i < octets; ++i) {
                *length = (*length << 8) | der[p + 2 + i];
            }
            h += octets;
        }
        return h;
    };
    std::size_t length = 0;
    std::size_t p = at + header(at, &length);
    const std::size_t end = p + length;
    std::vector<std::pair<std::size_t, std::size_t>> children;
    while (p < end) {
        std::size_t inner = 0;
        const std::size_t h = header(p, &inner);
        children.emplace_back(p, h + inner);
        p += h + inner;
    }
    return children;
}

// The message with `chunk` inserted into SignedData just before the signer
// infos (where the certificate and revocation sets belong).
Bytes InsertBeforeSignerInfos(const Bytes& der, const Bytes& chunk) {
    const auto info = Children(der, 0);  // contentType, [0]
    const auto signedData = Children(der, info[1].first)[0].first;
    const auto fields = Children(der, signedData);
    Bytes content;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (i + 1 == fields.size()) {
            content.insert(content.end(), chunk.begin(), chunk.end());
        }
        content.insert(content.end(), der.begin() + fields[i].first,
                       der.begin() + fields[i].first + fields[i].second);
    }
    Bytes oid(der.begin() + info[0].first, der.begin() + info[0].first + info[0].second);
    Bytes body = oid;
    const Bytes wrapped = Tlv(0xA0, Tlv(0x30, content));
    body.insert(body.end(), wrapped.begin(), wrapped.end());
    return Tlv(0x30, body);
}

// otherRevInfo [1] { id-ri-ocsp-response, response }
Bytes OtherOcsp(const Bytes& response) {
    Bytes body{0x06, 0x08, 0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x10, 0x02};
    body.insert(body.end(), response.begin(), response.end());
    return Tlv(0xA1, body);
}

Bytes OcspFor(const Issued& certificate, std::int64_t producedAt) {
    OcspResponseSpec response;
    response.signer = &Certs().ca;
    response.issuer = Certs().ca.cert.get();
    response.producedAt = producedAt;
    response.answers = {{certificate.cert.get()}};
    response.answers[0].thisUpdate = producedAt;
    return MakeOcspResponse(response);
}

}  // namespace

// ---------------------------------------------------------------- decoding

TEST(SignedCmsDecodeTest, AttachedMessageValues) {
    const CmsPtr message = Sign("hello", {&Certs().a});
    const Bytes der = Der(message.get());
    SignedCms cms(Array(Bytes{'o', 'l', 'd'}));
    cms.Decode(Array(der));

    EXPECT_EQ(cms.GetVersion(), 1u) << "issuer-and-serial signers, id-data: version 1";
    EXPECT_EQ(cms.IsDetached(), 0);
    EXPECT_EQ(ToBytes(cms.GetContent()), (Bytes{'h', 'e', 'l', 'l', 'o'}))
        << "embedded content replaces what was set";
    EXPECT_STREQ(cms.GetContentType().c_str(), kData);
    ASSERT_EQ(cms.GetCertificates().GetSize(), 1u) << "the signer certificate is carried";
    EXPECT_EQ(cms.GetCrls().GetSize() + cms.GetOcspResponses().GetSize() +
                  cms.GetAttributeCerts().GetSize(),
              0u);
    EXPECT_EQ(ToBytes(cms.Encode()), der) << "Encode gives the decoded DER back";

    ASSERT_EQ(cms.GetSignerInfoCount(), 1u);
    const SignedCms::SignerInfo& signer = *cms.GetSignerInfo(0);
    EXPECT_EQ(signer.GetVersion(), 1u);
    EXPECT_EQ(signer.GetCadesType(), SignedCms::cptCmsBasic);
    EXPECT_STREQ(signer.GetContentType().c_str(), kData) << "content-type attribute";
    EXPECT_EQ(signer.GetSigningTime(), kSigningTime) << "UTCTime of the signing-time attribute";
    EXPECT_EQ(signer.GetHashAlgorithmNID(), NID_sha256);
    EXPECT_STREQ(signer.GetHashAlgorithmName().c_str(), "sha256");
    EXPECT_STREQ(signer.GetHashAlgorithmOID().c_str(), "2.16.840.1.101.3.4.2.1");
    EXPECT_NE(signer.GetSignatureAlgorithmNID(), NID_undef);
    EXPECT_EQ(signer.GetHashValue().GetSize(), 0u) << "no hash value after parsing";
    EXPECT_EQ(X509_cmp(signer.GetCertificate().GetX509(), Certs().a.cert.get()), 0)
        << "certificate found by issuer and serial number";
    EXPECT_EQ(signer.GetVerificationData(), nullptr);
    EXPECT_EQ(signer.GetVerifyTime(), 0);
    EXPECT_EQ(signer.GetTimeStamp(), nullptr);

    const Bytes signature = ToBytes(signer.GetSignatureValue());
    unsigned char sha1[SHA_DIGEST_LENGTH];
    SHA1(signature.data(), signature.size(), sha1);
    EXPECT_EQ(ToBytes(signer.GetSignatureValueSHA1Hash()), Bytes(sha1, sha1 + sizeof sha1));
    const std::string hex = signer.GetSignatureValueSHA1HashHex().c_str();
    EXPECT_EQ(hex.size(), 40u);
    EXPECT_EQ(hex.find_first_not_of("0123456789abcdef"), std::string::npos) << "lower-case hex";
}

TEST(SignedCmsDecodeTest, DetachedAndEmptyContent) {
    const Bytes detached = Der(Sign("payload", {&Certs().a}, {true}).get());
    const qorstd::QorArray<unsigned char> set = Array(Bytes{'s', 'e', 't'});
    SignedCms before(set);
    before.Decode(Array(detached));
    EXPECT_EQ(before.IsDetached(), 1);
    EXPECT_EQ(before.GetContent(), set) << "content set before decoding survives";
    SignedCms after = Decoded(detached);
    after.SetContent(set);
    EXPECT_EQ(after.GetContent(), set) << "or is set afterwards";

    const SignedCms empty = Decoded(Der(Sign("", {&Certs().a}).get()));
    EXPECT_EQ(empty.IsDetached(), 0) << "an empty content octet string is still attached";
    EXPECT_EQ(empty.GetContent().GetSize(), 0u);
}

TEST(SignedCmsDecodeTest, ContentTypes) {
    TestTsa tsa;
    const Bytes token = tsa.Token(EVP_sha256(), TestTsa::Digest(EVP_sha256(), "signature"), true);
    const SignedCms stamp = Decoded(token);
    EXPECT_STREQ(stamp.GetContentType().c_str(), "1.2.840.113549.1.9.16.1.4")
        << "a time-stamp token is a signed-data message like any other";
    EXPECT_EQ(stamp.GetSignerInfoCount(), 1u);
    EXPECT_EQ(stamp.GetVersion(), 3u) << "non-data content: version 3";

    SignOptions other;
    other.contentType = "1.2.3.4.5";
    const Bytes der = Der(Sign("x", {&Certs().a}, other).get());
    SignedCms cms;
    EXPECT_EQ(Thrown([&] { cms.Decode(Array(der)); }).GetErrorCode(), ErrInvalidMessageFormat)
        << "any other content type is refused";
    EXPECT_EQ(cms.GetCms(), nullptr) << "a failed decode leaves no message";
    EXPECT_EQ(cms.GetSignerInfoCount(), 0u);
}

TEST(SignedCmsDecodeTest, BadInput) {
    SignedCms cms;
    EXPECT_EQ(Thrown([&] { cms.Decode(nullptr, 4); }).GetErrorCode(), ErrInvalidParameter);
    const unsigned char junk[] = {0x30, 0x03, 0x02, 0x01, 0x01};
    const CryptException zero = Thrown([&] { cms.Decode(junk, 0); });
    EXPECT_EQ(zero.GetErrorCode(), ErrInvalidParameter);
    EXPECT_STREQ(zero.GetErrorMessage().c_str(), L"nSize<=0");
    const CryptException empty = Thrown([&] { cms.Decode(qorstd::QorArray<unsigned char>()); });
    EXPECT_STREQ(empty.GetErrorMessage().c_str(), L"SignedCms - Crypto message is empty.");
    EXPECT_EQ(Thrown([&] { cms.Decode(junk, sizeof junk); }).GetErrorCode(),
              ErrInvalidMessageFormat)
        << "no ContentInfo";
    Bytes padded = Der(Sign("x", {&Certs().a}).get());
    padded.push_back(0);
    EXPECT_EQ(Thrown([&] { cms.Decode(Array(padded)); }).GetErrorCode(), ErrInvalidMessageFormat)
        << "bytes after the message are refused";
}

TEST(SignedCmsDecodeTest, DuplicateSingleAttributes) {
    const struct {
        int nid;
        int code;
    } cases[] = {{NID_pkcs9_contentType, ErrContentTypeAttrMultiple},
                 {NID_pkcs9_signingTime, ErrSigningTimeMultiple}};
    for (const auto& c : cases) {
        const CmsPtr message = Sign("x", {&Certs().a});
        X509_ATTRIBUTE* first =
            CMS_signed_get_attr(FirstSigner(message.get()),
                                CMS_signed_get_attr_by_NID(FirstSigner(message.get()), c.nid, -1));
        ASSERT_EQ(CMS_signed_add1_attr(FirstSigner(message.get()), first), 1);
        const Bytes der = Der(message.get());
        EXPECT_EQ(Thrown([&] { Decoded(der); }).GetErrorCode(), c.code)
            << "a second attribute of NID " << c.nid;
    }
}

// ------------------------------------------------------------------ signers

TEST(SignedCmsSignerTest, TwoSignersFindTheirCertificates) {
    const SignedCms cms = Decoded(Der(Sign("two", {&Certs().a, &Certs().b}).get()));
    ASSERT_EQ(cms.GetSignerInfoCount(), 2u);
    // The encoding sorts the signer infos: either may come first.
    X509* first = cms.GetSignerInfo(0)->GetCertificate().GetX509();
    X509* second = cms.GetSignerInfo(1)->GetCertificate().GetX509();
    ASSERT_TRUE(first != nullptr && second != nullptr);
    const bool aFirst = X509_cmp(first, Certs().a.cert.get()) == 0;
    EXPECT_EQ(X509_cmp(first, (aFirst ? Certs().a : Certs().b).cert.get()), 0);
    EXPECT_EQ(X509_cmp(second, (aFirst ? Certs().b : Certs().a).cert.get()), 0)
        << "each signer gets its own certificate";
    EXPECT_TRUE(*cms.GetSignerInfo(0) != *cms.GetSignerInfo(1));
    EXPECT_EQ(cms.GetSignerInfo(2), nullptr) << "index equal to the count";
    EXPECT_EQ(SignedCms().GetSignerInfoCount(), 0u);
    EXPECT_EQ(SignedCms().GetSignerInfos(), nullptr) << "no vector before a parse";
}

TEST(SignedCmsSignerTest, SubjectKeyIdentifier) {
    SignOptions keyId;
    keyId.keyIdSigners = 1;
    const SignedCms found = Decoded(Der(Sign("k", {&Certs().a}, keyId).get()));
    EXPECT_EQ(found.GetSignerInfo(0)->GetVersion(), 3u) << "key identifier: version 3";
    EXPECT_EQ(X509_cmp(found.GetSignerInfo(0)->GetCertificate().GetX509(), Certs().a.cert.get()), 0)
        << "found by its subject key identifier";

    keyId.noCerts = true;
    const SignedCms missing = Decoded(Der(Sign("k", {&Certs().a}, keyId).get()));
    EXPECT_EQ(missing.GetSignerInfo(0)->GetCertificate().GetX509(), nullptr)
        << "no certificate matches: stays empty, decoding succeeds";
}

TEST(SignedCmsSignerTest, SignatureTimeStamp) {
    TestTsa tsa;
    TsaReply reply;
    reply.genTime = UtcTime(2024, 6, 2, 8);
    const Bytes token = tsa.Token(EVP_sha256(), TestTsa::Digest(EVP_sha256(), "x"), true, reply);
    const CmsPtr message = Sign("x", {&Certs().a});
    ASSERT_EQ(CMS_unsigned_add1_attr_by_NID(FirstSigner(message.get()),
                                            NID_id_smime_aa_timeStampToken, V_ASN1_SEQUENCE,
                                            token.data(), static_cast<int>(token.size())),
              1);
    const SignedCms cms = Decoded(Der(message.get()));
    const SignedCms::SignerInfo& signer = *cms.GetSignerInfo(0);
    EXPECT_EQ(signer.GetCadesType(), SignedCms::cptCmsTimeStamp);
    ASSERT_EQ(signer.GetSignatureTimeStamps().GetSize(), 1u);
    EXPECT_EQ(signer.GetSignatureTimeStamps()[0].GetTimeStamp().GetTime(), reply.genTime)
        << "the token of the unsigned attribute is decoded";
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

TEST(SignedCmsSignerTest, VersionsOfAMessageBuiltInMemory) {
    // B by key identifier (version 3), A by issuer and serial (version 1).
    // The encoding sorts the signer infos while OpenSSL's stack keeps the
    // order of adding; over a few messages both orders occur.
    SignOptions mixed;
    mixed.keyIdSigners = 2;
    for (int round = 0; round < 6; ++round) {
        const CmsPtr message = Sign("two", {&Certs().a, &Certs().b}, mixed);
        ProbeCms cms;
        cms.ParseCms(message.get());
        ASSERT_EQ(cms.GetSignerInfoCount(), 2u);
        EXPECT_EQ(cms.GetSignerInfo(0)->GetVersion(), 1u) << "A, round " << round;
        EXPECT_EQ(cms.GetSignerInfo(1)->GetVersion(), 3u) << "B, round " << round;
    }
}

TEST(SignedCmsSignerTest, AttributeQueriesAndWriteBack) {
    ProbeCms cms;
    cms.Decode(Array(Der(Sign("q", {&Certs().a}).get())));
    ProbeSigner probe(&cms, cms.GetSignerInfo(0)->GetSigner(), nullptr);
    EXPECT_EQ(probe.HasSignedAttribute("1.2.840.113549.1.9.5"), 1) << "signing time by OID";
    EXPECT_EQ(probe.GetSignedAttrCount("1.2.840.113549.1.9.3"), 1) << "content type by OID";
    EXPECT_EQ(probe.GetUnsignedAttrCount(NID_id_smime_aa_timeStampToken), 0);
    const CryptException bad = Thrown([&] { probe.GetSignedAttrCount("no oid"); });
    EXPECT_EQ(bad.GetErrorCode(), ErrInternal);
    EXPECT_STREQ(bad.GetErrorMessage().c_str(), L"SignedCms::SignerInfo - pAsn1Obj = NULL");

    probe.m_verifyInfo = 5;
    cms.UpdateSignerCms(probe);
    EXPECT_EQ(cms.GetSignerInfo(0)->GetVerifyInfo(), 5u) << "same parent and signer: written back";
    const ProbeSigner stranger(nullptr, cms.GetSignerInfo(0)->GetSigner(), nullptr);
    EXPECT_EQ(Thrown([&] { cms.UpdateSignerCms(stranger); }).GetErrorCode(), ErrInvalidParameter)
        << "another parent is not an entry of this container";
    EXPECT_EQ(Thrown([&] { ProbeCms().UpdateSignerCms(probe); }).GetErrorCode(), ErrInternal)
        << "no signers at all";
}

// ------------------------------------------------- certificates and revocation

TEST(SignedCmsRevocationTest, CrlsOcspResponsesAndAttributeCertificates) {
    const CrlPtr crl = IssueCrl(CrlSpec(), Certs().ca);
    const std::int64_t producedAt = UtcTime(2024, 6, 1, 13);
    const CmsPtr message = Sign("r", {&Certs().a});
    // revocation set: CRL, OCSP response, an unknown other format (skipped)
    Bytes choices = CrlToDer(crl.get());
    const Bytes ocsp = OtherOcsp(OcspFor(Certs().a, producedAt));
    choices.insert(choices.end(), ocsp.begin(), ocsp.end());
    const Bytes unknown = Tlv(0xA1, {0x06, 0x02, 0x2A, 0x03, 0x30, 0x00});
    choices.insert(choices.end(), unknown.begin(), unknown.end());
    const Bytes der = InsertBeforeSignerInfos(Der(message.get()), Tlv(0xA1, choices));

    const SignedCms cms = Decoded(der);
    ASSERT_EQ(cms.GetCrls().GetSize(), 1u);
    EXPECT_EQ(cms.GetCrls()[0].GetThisUpdate(), CrlSpec().thisUpdate);
    ASSERT_EQ(cms.GetOcspResponses().GetSize(), 1u) << "only id-ri-ocsp-response is read";
    EXPECT_EQ(cms.GetOcspResponses()[0].GetProducedAt(), producedAt);

    // certificate set: an attribute certificate (v2, [2]) beside nothing else
    SignOptions noCerts;
    noCerts.noCerts = true;
    const Bytes attributeCert = {0x30, 0x03, 0x02, 0x01, 0x07};
    Bytes tagged = attributeCert;
    tagged[0] = 0xA2;
    const SignedCms withAttr = Decoded(
        InsertBeforeSignerInfos(Der(Sign("r", {&Certs().a}, noCerts).get()), Tlv(0xA0, tagged)));
    EXPECT_EQ(withAttr.GetCertificates().GetSize(), 0u);
    ASSERT_EQ(withAttr.GetAttributeCerts().GetSize(), 1u);
    EXPECT_EQ(ToBytes(withAttr.GetAttributeCerts()[0]), attributeCert)
        << "kept with a SEQUENCE tag";
}

// ------------------------------------------------------ detaching and copies

TEST(SignedCmsDetachTest, BothWays) {
    SignedCms cms = Decoded(Der(Sign("content", {&Certs().a}).get()));
    cms.SetDetached(1);
    EXPECT_EQ(cms.IsDetached(), 1);
    const SignedCms detached = Decoded(ToBytes(cms.Encode()));
    EXPECT_EQ(detached.IsDetached(), 1) << "the encoding no longer carries the content";
    EXPECT_EQ(ToBytes(cms.GetContent()), (Bytes{'c', 'o', 'n', 't', 'e', 'n', 't'}))
        << "detaching keeps the content in the object";

    cms.SetDetached(0);
    EXPECT_EQ(ToBytes(Decoded(ToBytes(cms.Encode())).GetContent()),
              (Bytes{'c', 'o', 'n', 't', 'e', 'n', 't'}))
        << "attaching embeds the content again";

    SignedCms bare = Decoded(Der(Sign("content", {&Certs().a}, {true}).get()));
    EXPECT_EQ(Thrown([&] { bare.SetDetached(0); }).GetErrorCode(), ErrNoContent);
    EXPECT_EQ(bare.IsDetached(), 1) << "a refused attach changes nothing";
    SignedCms none;
    EXPECT_EQ(Thrown([&] { none.SetDetached(1); }).GetErrorCode(), ErrNoMessage);
    EXPECT_EQ(none.Encode().GetSize(), 0u) << "Encode of an empty object";
}

TEST(SignedCmsCopyTest, DeepCopies) {
    SignedCms original = Decoded(Der(Sign("copy", {&Certs().a, &Certs().b}).get()));
    SignedCms copy(original);
    EXPECT_NE(copy.GetCms(), original.GetCms()) << "a message of its own";
    EXPECT_EQ(copy.Encode(), original.Encode());
    ASSERT_EQ(copy.GetSignerInfoCount(), 2u);
    EXPECT_FALSE(*copy.GetSignerInfo(0) == *original.GetSignerInfo(0))
        << "signers belong to the copy";
    EXPECT_EQ(
        copy.GetSignerInfo(1)->GetCertificate().Equals(original.GetSignerInfo(1)->GetCertificate()),
        1);

    SignedCms assigned(Array(Bytes{'z'}));
    assigned = original;
    original = SignedCms(Array(Bytes{'e'}));
    EXPECT_EQ(assigned.GetSignerInfoCount(), 2u) << "survives the original's reset";
    EXPECT_EQ(ToBytes(assigned.GetContent()), (Bytes{'c', 'o', 'p', 'y'}));
    EXPECT_EQ(original.GetCms(), nullptr);
    EXPECT_EQ(ToBytes(original.GetContent()), Bytes{'e'}) << "an empty object's content is copied";

    const SignedCms::SignerInfo signerCopy = *assigned.GetSignerInfo(0);
    EXPECT_TRUE(signerCopy == *assigned.GetSignerInfo(0)) << "same parent, same OpenSSL signer";
}

// --------------------------------------------- attributes and result holders

TEST(ContainerTimeStampAttributeTest, DecodeAndCreate) {
    TestTsa tsa;
    const Bytes token = tsa.Token(EVP_sha256(), TestTsa::Digest(EVP_sha256(), "v"), true);
    QorTsp2Lib::TspTimeStamp stamp;
    stamp.Decode(token.data(), static_cast<unsigned int>(token.size()));

    const TimeStampAttribute created = TimeStampAttribute::CreateFromTimeStamp(stamp);
    EXPECT_STREQ(created.GetOID().c_str(), "1.2.840.113549.1.9.16.2.14");
    EXPECT_EQ(ToBytes(created.GetValue()), token) << "the value is the token DER";
    const TimeStampAttribute decoded(created.Encode());
    EXPECT_EQ(decoded.GetTimeStamp().GetTime(), stamp.GetTime()) << "round trip";
    const TimeStampAttribute copy = decoded;
    EXPECT_NE(copy.GetX509Attr(), decoded.GetX509Attr()) << "copies duplicate the attribute";

    EXPECT_STREQ(Thrown([] { TimeStampAttribute(qorstd::QorArray<unsigned char>()); })
                     .GetErrorMessage()
                     .c_str(),
                 L"TimeStampAttribude - attr is empty");
    EXPECT_EQ(Thrown([] {
                  TimeStampAttribute::CreateFromTimeStamp(QorTsp2Lib::TspTimeStamp());
              }).GetErrorCode(),
              ErrInvalidParameter)
        << "no token";
    // A signing-time attribute is no time-stamp.
    const Bytes signingTime = {0x30, 0x1C, 0x06, 0x09, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D,
                               0x01, 0x09, 0x05, 0x31, 0x0F, 0x17, 0x0D, '2',  '4',  '0',
                               '6',  '0',  '1',  '1',  '2',  '0',  '0',  '0',  '0',  'Z'};
    EXPECT_EQ(Thrown([&] { TimeStampAttribute(Array(signingTime)); }).GetErrorCode(),
              ErrAsn1Decoding);
}

TEST(ContainerVerificationDataTest, DeepCopies) {
    TestTsa tsa;
    const Bytes token = tsa.Token(EVP_sha256(), TestTsa::Digest(EVP_sha256(), "v"), true);
    QorTsp2Lib::TspTimeStamp stamp;
    stamp.Decode(token.data(), static_cast<unsigned int>(token.size()));
    const std::int64_t time = UtcTime(2024, 6, 1);

    TimeStampVerificationData data;
    data.SetVerifyTime(&time);
    data.SetTimeStamp(&stamp);
    const std::unique_ptr<VerificationData> clone(data.Clone());
    data.Reset();
    const auto* copy = dynamic_cast<const TimeStampVerificationData*>(clone.get());
    ASSERT_NE(copy, nullptr) << "Clone keeps the dynamic type";
    ASSERT_NE(copy->GetVerifyTime(), nullptr);
    EXPECT_EQ(*copy->GetVerifyTime(), time) << "the clone keeps its own time";
    ASSERT_NE(copy->GetTimeStamp(), nullptr);
    EXPECT_EQ(copy->GetTimeStamp()->GetTime(), stamp.GetTime());
    EXPECT_EQ(data.GetVerifyTime(), nullptr);
    EXPECT_EQ(data.GetTimeStamp(), nullptr) << "Reset clears the token too";
}
