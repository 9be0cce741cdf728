// The CAdES signed attributes: the signing-certificate attribute in both
// forms (built, read and checked against a signer certificate), cross-checked
// with OpenSSL's own ESS code and hand-built DER, and the MIME-type attribute.
//
//   Attr CA (RSA, signs with sha256WithRSAEncryption)
//           ├── Signer  (serial 0x1001)
//           ├── Wide A  (serial 2^80 + 1)
//           └── Wide B  (serial 2^81 + 1: the same low 64 bits as Wide A)
//   Other CA ──── Twin  (serial 0x1001, like Signer)
#include <gtest/gtest.h>

#include <openssl/ess.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <algorithm>
#include <string>

#include "LogChannel.h"
#include "MimeTypeAttribute.h"
#include "OpenSslPtr.h"
#include "SigningCertificateAttribute.h"
#include "TestCms.h"
#include "TestTessera.h"
#include "cms/SigningCertCheck.h"

using namespace TesseraLib;
using namespace tessera_test;

namespace {

const char* const kV1 = "1.2.840.113549.1.9.16.2.12";
const char* const kV2 = "1.2.840.113549.1.9.16.2.47";
const char* const kMime = "0.4.0.1733.2.1";

struct Pki {
    Issued ca = IssueCertificate(RsaCa(), nullptr);
    Issued other = IssueCertificate(BasicProfile("Other CA", 2, true), nullptr);
    Issued signer = IssueCertificate(BasicProfile("Signer", 0x1001, false), &ca);
    Issued twin = IssueCertificate(BasicProfile("Twin", 0x1001, false), &other);
    Issued wideA = IssueCertificate(Wide("Wide A", "1208925819614629174706177"), &ca);
    Issued wideB = IssueCertificate(Wide("Wide B", "2417851639229258349412353"), &ca);

    static CertPlan RsaCa() {
        CertPlan plan = BasicProfile("Attr CA", 1, true);
        plan.key = CachedKey(KeyKind::Rsa2048).get();
        return plan;
    }
    static CertPlan Wide(const std::string& name, const std::string& serial) {
        CertPlan plan = BasicProfile(name, 1, false);
        plan.serialDecimal = serial;
        return plan;
    }
};

const Pki& P() {
    static const Pki pki;
    return pki;
}

template <class T>
Bytes Der(int (*i2d)(const T*, unsigned char**), const T* value) {
    Bytes der(static_cast<std::size_t>(std::max(i2d(value, nullptr), 0)));
    unsigned char* cursor = der.data();
    i2d(value, &cursor);
    return der;
}

// SigningCertificate(V2) values made by OpenSSL's ESS code.
Bytes OpenSslV1(X509* cert) {
    ESS_SIGNING_CERT* value = OSSL_ESS_signing_cert_new_init(cert, nullptr, 1);
    Bytes der = Der(i2d_ESS_SIGNING_CERT, value);
    ESS_SIGNING_CERT_free(value);
    return der;
}
Bytes OpenSslV2(const EVP_MD* md, X509* cert, int withIssuerSerial = 1) {
    ESS_SIGNING_CERT_V2* value =
        OSSL_ESS_signing_cert_v2_new_init(md, cert, nullptr, withIssuerSerial);
    Bytes der = Der(i2d_ESS_SIGNING_CERT_V2, value);
    ESS_SIGNING_CERT_V2_free(value);
    return der;
}

Bytes Digest(const EVP_MD* md, X509* cert) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    X509_digest(cert, md, digest, &length);
    return Bytes(digest, digest + length);
}

// The attribute of type `oid` with the one SEQUENCE value `value`, decoded.
SigningCertificateAttribute AttributeOf(const char* oid, const Bytes& value) {
    const Asn1ObjectPtr type(OBJ_txt2obj(oid, 1));
    const X509AttributePtr attr(X509_ATTRIBUTE_create_by_OBJ(
        nullptr, type.get(), V_ASN1_SEQUENCE, value.data(), static_cast<int>(value.size())));
    return SigningCertificateAttribute(attr.get());
}

Thrown Check(const SigningCertificateAttribute& attr, const Issued& cert) {
    const LogChannel silent(L"AttributesTest");
    return Catch([&] { cms::VerifySigningCert(silent, attr, cert.cert.get()); });
}

// SigningCertificateV2 { { ESSCertIDv2 { [algorithm,] hash } } }, by hand.
Bytes V2Value(const Bytes& algorithm, const Bytes& hash) {
    return Tlv(0x30, Tlv(0x30, Tlv(0x30, Join({algorithm, Tlv(0x04, hash)}))));
}

}  // namespace

TEST(AttributesTest, BuildsEachFormAsOpenSslDoesAndReadsAndChecksOpenSslsValues) {
    X509* cert = P().signer.cert.get();
    struct Form {
        CryptHash::cptHashAlgorithm alg;
        const char* oid;
        Bytes reference;
        const EVP_MD* md;
        const char* name;
    };
    const Form forms[] = {
        // The signer's own signature is SHA-256: v2, no hashAlgorithm.
        {CryptHash::cptHashNone, kV2, OpenSslV2(EVP_sha256(), cert), EVP_sha256(), "SHA256"},
        {CryptHash::cptHashSHA384, kV2, OpenSslV2(EVP_sha384(), cert), EVP_sha384(), "sha384"},
        {CryptHash::cptHashSHA1, kV1, OpenSslV1(cert), EVP_sha1(), "SHA1"},
    };
    for (const Form& form : forms) {
        SCOPED_TRACE(form.name);
        const SigningCertificateAttribute built(Cert(P().signer), nullptr, form.alg);
        EXPECT_STREQ(built.GetOID().c_str(), form.oid) << "v1 for SHA-1 only";
        EXPECT_EQ(ToBytes(built.GetValue()), form.reference)
            << "the DER OpenSSL writes (hashAlgorithm left out for SHA-256)";
        EXPECT_EQ(built.GetCertificateIdentifiers().GetSize(), 0u) << "built, not read";

        const SigningCertificateAttribute read = AttributeOf(form.oid, form.reference);
        ASSERT_EQ(read.GetCertificateIdentifiers().GetSize(), 1u) << "OpenSSL's value reads";
        const SigningCertificate& entry = read.GetCertificateIdentifiers().GetAt(0);
        EXPECT_STREQ(entry.GetHashAlgorithm().c_str(), form.name) << "the algorithm's text";
        EXPECT_EQ(ToBytes(entry.GetHash()), Digest(form.md, cert)) << "certHash";
        EXPECT_TRUE(entry.GetSerial() != nullptr && *entry.GetSerial() == 0x1001u) << "serial";
        EXPECT_EQ(Check(read, P().signer).code, 0) << "the signer matches OpenSSL's value";
    }
}

TEST(AttributesTest, BuildRefusesMissingCertificateAndDigest) {
    const X509Certificate empty;
    Thrown thrown =
        Catch([&] { (void)SigningCertificateAttribute(empty, nullptr, CryptHash::cptHashNone); });
    EXPECT_EQ(thrown.code, ErrInvalidParameter) << "no signature digest to fall back on";
    EXPECT_EQ(thrown.message, "SigningCertificateAttribute - eHashAlg == CryptHash::cptHashNone")
        << "the message of a missing digest";
    for (const auto alg : {CryptHash::cptHashSHA1, CryptHash::cptHashSHA256}) {
        thrown = Catch([&] { (void)SigningCertificateAttribute(empty, nullptr, alg); });
        EXPECT_EQ(thrown.code, ErrInvalidParameter) << "v1 and v2 need a certificate";
        EXPECT_EQ(thrown.message, "SigningCertificateAttribute - cert.GetX509() == NULL")
            << "the message of a missing certificate";
    }
    EXPECT_EQ(CodeOf([&] {
                  (void)SigningCertificateAttribute(Cert(P().signer), nullptr,
                                                    static_cast<CryptHash::cptHashAlgorithm>(9));
              }),
              ErrAlgorithmNotSupported)
        << "a digest outside the enumeration";
}

TEST(AttributesTest, DecodersRefuseEmptyInputAndOtherAttributeTypes) {
    const MimeTypeAttribute mimeAttr(L"text/plain");
    const SigningCertificateAttribute signingAttr(Cert(P().signer), nullptr,
                                                  CryptHash::cptHashSHA256);
    SigningCertificateAttribute signing;
    MimeTypeAttribute mime;
    Thrown thrown = Catch([&] { signing.Decode(qorstd::QorArray<unsigned char>()); });
    EXPECT_EQ(thrown.code, ErrInvalidParameter) << "empty input is a bad argument";
    EXPECT_EQ(thrown.message, "SigningCertificateAttribute - attr is empty") << "its message";
    thrown = Catch([&] { mime.Decode(qorstd::QorArray<unsigned char>()); });
    EXPECT_EQ(thrown.code, ErrInvalidParameter) << "also for the MIME type";
    EXPECT_EQ(thrown.message, "MimeTypeAttribute - attr is empty") << "its message";

    signing.Decode(signingAttr.Encode());
    EXPECT_EQ(CodeOf([&] { signing.Decode(mimeAttr.Encode()); }), ErrAsn1Decoding)
        << "a MIME-type attribute is no signing-certificate attribute";
    EXPECT_TRUE(signing.GetX509Attr() == nullptr &&
                signing.GetCertificateIdentifiers().GetSize() == 0)
        << "the failed decode leaves the object empty";
    EXPECT_EQ(CodeOf([&] { mime.Decode(signingAttr.Encode()); }), ErrAsn1Decoding)
        << "and the other way round";
    EXPECT_EQ(CodeOf([&] {
                  signing.Decode(Array(Bytes{0x30, 0x00}));
              }),
              ErrAsn1Decoding)
        << "no attribute at all";
    // A SET in primitive form, which OpenSSL reads but cannot duplicate.
    const Bytes primitiveSet = Tlv(0x30, Join({{0x06, 0x06, 0x04, 0x00, 0x8D, 0x45, 0x02, 0x01},
                                               {0x11, 0x04, 0x20, 0x02, 0x30, 0x00}}));
    EXPECT_EQ(CodeOf([&] { mime.Decode(Array(primitiveSet)); }), ErrAsn1Decoding)
        << "malformed input, not a lack of memory";

    const SigningCertificateAttribute unreadable = AttributeOf(kV2, Tlv(0x30, {0x02, 0x01, 0x05}));
    EXPECT_EQ(unreadable.GetCertificateIdentifiers().GetSize(), 0u)
        << "a value of the wrong shape decodes to no entries";
    EXPECT_EQ(Check(unreadable, P().signer).code, ErrAsn1Decoding) << "which the check refuses";
}

TEST(AttributesTest, CheckComparesIssuerAndSerialBeforeTheHash) {
    const LogCapture capture;
    ASSERT_TRUE(capture.Active()) << "logging set up";
    const LogChannel log(L"SignedCades.SignerInfo");
    const SigningCertificateAttribute twinAttr(Cert(P().twin), nullptr, CryptHash::cptHashSHA256);
    EXPECT_EQ(CodeOf([&] { cms::VerifySigningCert(log, twinAttr, P().signer.cert.get()); }),
              ErrSigningCertMismatch)
        << "same serial, other issuer";
    const std::vector<LogLine> lines =
        RecordingLog::Instance().LinesOf(L"Tessera.SignedCades.SignerInfo");
    ASSERT_EQ(lines.size(), 2u) << "one debug line, one error line";
    EXPECT_TRUE(lines[0].level == Level::Debug && lines[0].text == L"VerifySigningCert()")
        << "the entry line comes first";
    EXPECT_TRUE(
        lines[1].level == Level::Error &&
        lines[1].text ==
            L"VerifySigningCert: Certificate issuer does not match the signing certificate.")
        << "the issuer, not the hash, is what fails";

    // Without issuerSerial only the hash counts: the twin then fails by hash.
    const SigningCertificateAttribute hashOnly =
        AttributeOf(kV2, OpenSslV2(EVP_sha256(), P().signer.cert.get(), 0));
    EXPECT_EQ(hashOnly.GetCertificateIdentifiers().GetAt(0).GetSerial(), nullptr)
        << "no issuerSerial, no serial";
    EXPECT_EQ(Check(hashOnly, P().signer).code, 0) << "the hash alone identifies the signer";
    EXPECT_EQ(CodeOf([&] { cms::VerifySigningCert(log, hashOnly, P().twin.cert.get()); }),
              ErrSigningCertMismatch)
        << "the twin is not the signer";
    EXPECT_TRUE(RecordingLog::Instance().Has(
        L"Tessera.SignedCades.SignerInfo", Level::Error,
        L"VerifySigningCert: Certificate hash does not match the signing certificate."))
        << "refused by its hash";
}

TEST(AttributesTest, CheckRefusesMalformedEntries) {
    const Bytes sha1 = Digest(EVP_sha1(), P().signer.cert.get());
    Thrown thrown = Check(AttributeOf(kV2, V2Value({}, sha1)), P().signer);
    EXPECT_EQ(thrown.code, ErrInternal) << "a 20-byte hash where SHA-256 is implied";
    EXPECT_EQ(thrown.message, "nHashSize=pHash->length()") << "the hash-size message";

    const Bytes unknownAlg = Tlv(0x30, {0x06, 0x03, 0x2A, 0x03, 0x04});  // 1.2.3.4
    EXPECT_EQ(Check(AttributeOf(kV2, V2Value(unknownAlg, sha1)), P().signer).code,
              ErrAlgorithmNotSupported)
        << "a digest OpenSSL does not know";
    EXPECT_EQ(Check(AttributeOf(kV1, Tlv(0x30, Tlv(0x30, {}))), P().signer).code,
              ErrAlgorithmNotSupported)
        << "no entry at all";
    EXPECT_EQ(Check(SigningCertificateAttribute(), P().signer).code, ErrSigningCertAttrNotFound)
        << "an empty attribute";
    thrown = Catch([&] {
        cms::VerifySigningCert(LogChannel(L"AttributesTest"), SigningCertificateAttribute(),
                               nullptr);
    });
    EXPECT_EQ(thrown.code, ErrInvalidParameter) << "no signer certificate";
    EXPECT_EQ(thrown.message, "SignedCades::SignerInfo - pSignerCert=NULL") << "its message";
}

TEST(AttributesTest, WideSerialsAreComparedInFull) {
    const LogCapture capture;
    ASSERT_TRUE(capture.Active()) << "logging set up";
    const SigningCertificateAttribute built(Cert(P().wideA), nullptr, CryptHash::cptHashSHA256);
    SigningCertificateAttribute read;
    read.Decode(built.Encode());
    const unsigned long* serial = read.GetCertificateIdentifiers().GetAt(0).GetSerial();
    const auto openSslRead = [](const Issued& cert) {
        const unsigned long value = ASN1_INTEGER_get(X509_get0_serialNumber(cert.cert.get()));
        ERR_clear_error();
        return value;
    };
    ASSERT_NE(serial, nullptr) << "issuerSerial is written";
    EXPECT_EQ(*serial, openSslRead(P().wideA)) << "kept as OpenSSL's integer read";
    EXPECT_EQ(openSslRead(P().wideA), openSslRead(P().wideB)) << "which cannot tell A from B";
    EXPECT_EQ(Check(read, P().wideA).code, 0) << "A is the signer";
    const LogChannel log(L"SignedCades.SignerInfo");
    EXPECT_EQ(CodeOf([&] { cms::VerifySigningCert(log, read, P().wideB.cert.get()); }),
              ErrSigningCertMismatch)
        << "B is not";
    EXPECT_TRUE(RecordingLog::Instance().Has(
        L"Tessera.SignedCades.SignerInfo", Level::Error,
        L"VerifySigningCert: Certificate serial number does not match the signing certificate."))
        << "refused by the full serial integers, before the hash";

    EXPECT_FALSE(SigningCertificate(0) == SigningCertificate(0)) << "no serial equals nothing";
    EXPECT_TRUE(SigningCertificate(7) == SigningCertificate(7)) << "equal serials";
}

TEST(AttributesTest, MimeTypeIsOneUtf8String) {
    const MimeTypeAttribute built(L"application/x-\u00fcber");
    EXPECT_TRUE(built.GetMimeTypeString().empty()) << "built from the text, not read";
    const Bytes der = ToBytes(built.Encode());
    const unsigned char* cursor = der.data();
    const X509AttributePtr parsed(
        d2i_X509_ATTRIBUTE(nullptr, &cursor, static_cast<long>(der.size())));
    ASSERT_TRUE(parsed) << "OpenSSL reads the attribute";
    const Asn1ObjectPtr mimeType(OBJ_txt2obj(kMime, 1));
    EXPECT_EQ(OBJ_cmp(X509_ATTRIBUTE_get0_object(parsed.get()), mimeType.get()), 0)
        << "the MIME-type OID";
    const ASN1_TYPE* value = X509_ATTRIBUTE_get0_type(parsed.get(), 0);
    ASSERT_TRUE(X509_ATTRIBUTE_count(parsed.get()) == 1 && value->type == V_ASN1_UTF8STRING)
        << "one UTF8String value";
    const ASN1_STRING* text = value->value.utf8string;
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(ASN1_STRING_get0_data(text)),
                          ASN1_STRING_length(text)),
              "application/x-\xC3\xBC"
              "ber")
        << "the text in UTF-8";

    MimeTypeAttribute read;
    read.Decode(Array(der));
    EXPECT_EQ(std::wstring(read.GetMimeTypeString().c_str()), L"application/x-\u00fcber")
        << "decodes back to the text";
    EXPECT_EQ(CodeOf([&] { read.GetValue(); }), ErrAsn1Decoding) << "its value is no SEQUENCE";
    const Thrown thrown =
        Catch([] { (void)MimeTypeAttribute(static_cast<const wchar_t*>(nullptr)); });
    EXPECT_EQ(thrown.code, ErrInvalidParameter) << "a null MIME type";
    EXPECT_EQ(thrown.message, "MimeTypeAttribute - pwszMimeType is null") << "its message";
}
