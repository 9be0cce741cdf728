// Certificates as an application sees them: what an import decodes, what
// failed imports keep, exports, time and signature checks, comparisons and
// classification, PKCS#12 (also from the openssl tool), and logging.
//
// The test PKI (all times pinned; the checks run at kNow = 2024-06-15 12:00):
//
//   Q.OR Standard Root (RSA 2048, CA, self-signed)
//     |
//     +-- Jan Novak   (EC P-256) two keyUsage, two policies and two AIA
//     |               extensions, EKU, QcCompliance + QcType, Braddle id,
//     |               valid 2024-01-01 .. 2025-01-01
//     +-- Qualified A / Qualified B (EC) QcCompliance only, no Braddle id
//     +-- Pseudonym 7 (RSA 2048) no subject key id, 30-digit serial
//
//   Other Root (EC, self-signed, serial -5): not Q.OR, nothing qualified
#include <gtest/gtest.h>

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "CryptException.h"
#include "TestTessera.h"
#include "X509Certificate.h"

using namespace TesseraLib;
using namespace tessera_test;

namespace {

const std::int64_t kNow = UtcTime(2024, 6, 15, 12);
const std::int64_t kLeafNotBefore = UtcTime(2024, 1, 1);
const std::int64_t kLeafNotAfter = UtcTime(2025, 1, 1);
const char kBraddleOid[] = "1.3.6.1.4.1.47385.4.3";

std::vector<std::string> Strings(const qorstd::QorVector<qorstd::QorString>& list) {
    std::vector<std::string> out;
    for (unsigned int i = 0; i < list.GetSize(); ++i) {
        out.push_back(list[i].c_str());
    }
    return out;
}

struct Pki {
    Issued root, leaf, qualifiedA, qualifiedB, pseudonym, otherRoot;

    Pki() {
        CertPlan rootPlan;
        rootPlan.subject = {{"O", "Q.OR, a.s."}, {"CN", "Q.OR Standard Root"}};
        rootPlan.key = CachedKey(KeyKind::Rsa2048, 0).get();
        rootPlan.extensions = CaExtensions();
        root = IssueCertificate(rootPlan, nullptr);

        CertPlan leafPlan;
        leafPlan.subject = {{"C", "SK"}, {"O", "Tessera Test"}, {"CN", "Jan Novak"}};
        leafPlan.serial = 0x1001;
        leafPlan.notBefore = kLeafNotBefore;
        leafPlan.notAfter = kLeafNotAfter;
        leafPlan.extensions = {{"keyUsage", "critical,digitalSignature"},
                               {"keyUsage", "nonRepudiation,decipherOnly"},
                               {"extendedKeyUsage", "clientAuth,emailProtection"},
                               {"authorityInfoAccess", "OCSP;URI:http://ocsp-one.test"},
                               {"authorityInfoAccess",
                                "OCSP;URI:http://ocsp-two.test,OCSP;URI:http://ocsp-three.test,"
                                "caIssuers;URI:http://ca.test/root.crt"}};
        leafPlan.qcStatements =
            QcStatementsDer({QcComplianceStatement(), QcTypeStatement({"0.4.0.1862.1.6.1"})});
        leafPlan.rawExtensions = {
            {"2.5.29.32", CertificatePoliciesDer({"1.3.158.1.2.3", "0.4.0.194112.1.2"})},
            {kBraddleOid, StringDer(V_ASN1_UTF8STRING, "BR-0042")},
            {"2.5.29.32", CertificatePoliciesDer({"1.2.3.4"})}};
        leaf = IssueCertificate(leafPlan, &root);

        CertPlan qualifiedPlan;
        qualifiedPlan.qcStatements = QcStatementsDer({QcComplianceStatement()});
        qualifiedPlan.commonName = "Qualified A";
        qualifiedA = IssueCertificate(qualifiedPlan, &root);
        qualifiedPlan.commonName = "Qualified B";
        qualifiedB = IssueCertificate(qualifiedPlan, &root);

        CertPlan pseudonymPlan;
        pseudonymPlan.commonName = "PSEUDONYM 7";
        pseudonymPlan.key = CachedKey(KeyKind::Rsa2048, 1).get();
        pseudonymPlan.subjectKeyId = false;
        pseudonymPlan.serialDecimal = "123456789012345678901234567890";
        pseudonym = IssueCertificate(pseudonymPlan, &root);

        CertPlan otherPlan;
        otherPlan.commonName = "Other Root";
        otherPlan.serialDecimal = "-5";
        otherPlan.extensions = CaExtensions();
        otherRoot = IssueCertificate(otherPlan, nullptr);
    }
};

const Pki& Certs() {
    static const Pki pki;
    return pki;
}

// What Verify with `option` at `time` throws (code 0: nothing).
Thrown VerifyFails(const X509Certificate& cert, X509Certificate::cptVerifyOption option,
                   std::int64_t time, X509Certificate* issuer = nullptr) {
    return Catch([&] { cert.Verify(option, time, issuer, nullptr, nullptr); });
}

}  // namespace

// ------------------------------------------------------------ decoding

TEST(CertificateDecodeTest, ReadsEveryFieldOfAFullCertificate) {
    const X509Certificate cert = Cert(Certs().leaf);
    EXPECT_EQ(cert.GetVersion(), 2u) << "version 3 is stored as 2";
    EXPECT_EQ(cert.GetNotBefore(), kLeafNotBefore) << "notBefore in seconds";
    EXPECT_EQ(cert.GetNotAfter(), kLeafNotAfter) << "notAfter in seconds";
    EXPECT_EQ(cert.GetKeyLength(), 0) << "only RSA keys report a length";
    EXPECT_STREQ(cert.GetSubjectName().GetCommonName().c_str(), L"Jan Novak") << "subject name";
    EXPECT_STREQ(cert.GetIssuerName().GetCommonName().c_str(), L"Q.OR Standard Root") << "issuer";
    unsigned char* der = nullptr;
    const int length = i2d_X509_NAME(X509_get_subject_name(Certs().leaf.cert.get()), &der);
    EXPECT_EQ(ToBytes(cert.GetSubject()), std::vector<unsigned char>(der, der + length))
        << "subject DER";
    OPENSSL_free(der);
    EXPECT_EQ(cert.GetKeyUsage(), 0x80u | 0x40u | 0x8000u)
        << "bits of both key-usage extensions are OR-ed, decipherOnly is 0x8000";
    EXPECT_EQ(Strings(cert.GetExtendedKeyUsages()),
              (std::vector<std::string>{"1.3.6.1.5.5.7.3.2", "1.3.6.1.5.5.7.3.4"}))
        << "EKU OIDs in order";
    EXPECT_EQ(Strings(cert.GetCertificatePolicies()),
              (std::vector<std::string>{"1.3.158.1.2.3", "0.4.0.194112.1.2", "1.2.3.4"}))
        << "a later policies extension adds to the list";
    EXPECT_STREQ(cert.GetOcspResponderUrl().c_str(), "http://ocsp-three.test")
        << "the last OCSP entry of the last AIA extension wins; caIssuers is ignored";
    ASSERT_EQ(cert.GetQCStatements().GetSize(), 2u) << "both statements";
    EXPECT_STREQ(cert.GetQCStatements()[1].GetStatementId().c_str(), "0.4.0.1862.1.6")
        << "QcType second, in order";
    EXPECT_STREQ(cert.GetQorBraddleId().c_str(), "BR-0042") << "Braddle id content bytes";
    EXPECT_EQ(cert.GetSubjectKeyIdStringHex().length(), 40u) << "hash key id, lower-case hex";
    EXPECT_STREQ(cert.GetAuthorityKeyIdStringHex().c_str(),
                 Cert(Certs().root).GetSubjectKeyIdStringHex().c_str())
        << "authority key id is the issuer's subject key id";
}

TEST(CertificateDecodeTest, AlgorithmNamesSerialsAndAbsentKeyId) {
    const X509Certificate rsaSigned = Cert(Certs().leaf);
    EXPECT_STREQ(rsaSigned.GetSignatureAlgorithmName().c_str(), "sha256WithRSAEncryption")
        << "OpenSSL's long name";
    EXPECT_STREQ(rsaSigned.GetSignatureAlgorithmOID().c_str(), "1.2.840.113549.1.1.11") << "OID";
    EXPECT_STREQ(rsaSigned.GetHashAlgorithmName().c_str(), "sha256") << "before the last With";
    EXPECT_STREQ(rsaSigned.GetKeyAlgorithmName().c_str(), "RSAEncryption") << "after the first";

    const X509Certificate ecSigned = Cert(Certs().otherRoot);
    EXPECT_STREQ(ecSigned.GetKeyAlgorithmName().c_str(), "ecdsa-with-SHA256")
        << "a name without With is returned whole";
    EXPECT_EQ(Cert(Certs().root).GetKeyLength(), 2048) << "RSA modulus bits";

    const X509Certificate big = Cert(Certs().pseudonym);
    EXPECT_STREQ(big.GetSerialNumberStringDec().c_str(), "123456789012345678901234567890")
        << "30-digit serial";
    EXPECT_STREQ(big.GetSerialNumberStringHex().c_str(), "018EE90FF6C373E0EE4E3F0AD2")
        << "hex as OpenSSL prints it";
    EXPECT_TRUE(big.GetSubjectKeyId().GetSize() == 0 && big.GetSubjectKeyIdStringHex().empty())
        << "no subject key id extension: empty bytes and hex";
    EXPECT_STREQ(ecSigned.GetSerialNumberStringDec().c_str(), "-5") << "negative serial";
    EXPECT_STREQ(ecSigned.GetSerialNumberStringHex().c_str(), "-05") << "negative serial, hex";
}

TEST(CertificateDecodeTest, EmptyObjectAnswersEmpty) {
    const X509Certificate empty;
    EXPECT_TRUE(empty.Export().GetSize() == 0 && empty.ExportPEM().empty() &&
                empty.GetSHA1Hash().GetSize() == 0)
        << "no DER, PEM or hash";
    EXPECT_TRUE(empty.GetSerialNumberStringDec().empty() && empty.GetSubjectStringX500(0).empty())
        << "no serial, no printed subject";
    EXPECT_EQ(empty.IsCA() + empty.IsSelfSigned() + empty.HasPrivateKey() + empty.IsQor(), 0)
        << "tests answer 0";
    EXPECT_EQ(VerifyFails(empty, X509Certificate::cptVerifyWholeChain, kNow).code, 0)
        << "verifying an empty object does nothing";
}

TEST(CertificateDecodeTest, MovedFromObjectIsEmptyAndUsable) {
    X509Certificate source = Cert(Certs().leaf);
    X509Certificate moved(std::move(source));
    EXPECT_STREQ(moved.GetSubjectName().GetCommonName().c_str(), L"Jan Novak")
        << "the moved-to object answers the certificate's names";
    EXPECT_TRUE(source.GetX509() == nullptr && source.GetSerialNumber() == nullptr &&
                source.GetSubject().GetSize() == 0 && source.GetExtendedKeyUsages().IsEmpty() &&
                source.GetSubjectName().GetCommonName().empty())
        << "the moved-from object is empty";
    source = Cert(Certs().root);
    EXPECT_STREQ(source.GetSubjectName().GetCommonName().c_str(), L"Q.OR Standard Root")
        << "the moved-from object takes a certificate again";
    moved = std::move(source);
    EXPECT_STREQ(moved.GetIssuerName().GetCommonName().c_str(), L"Q.OR Standard Root")
        << "move assignment replaces the held certificate";
}

// ------------------------------------------------ import failures and exports

TEST(CertificateImportTest, FailuresKeepOrResetAsDocumented) {
    const std::vector<unsigned char> der = CertToDer(Certs().leaf.cert.get());
    X509Certificate cert(der.data(), static_cast<long>(der.size()));

    const Thrown nullDer = Catch([&] { cert.Import(nullptr, 5); });
    EXPECT_TRUE(nullDer.code == ErrInvalidParameter && nullDer.message == "pCert=NULL")
        << "null DER: 102 naming the argument";
    EXPECT_EQ(Catch([&] { cert.ImportPEM(""); }).message, "nCertSize=0") << "no PEM";
    EXPECT_EQ(Catch([&] { cert.ImportPEM("no PEM here"); }).code, ErrBase64Decoding)
        << "text without PEM";
    const unsigned char junk[] = {0x30, 0x03, 0x02, 0x01, 0x01};
    EXPECT_EQ(Catch([&] { cert.ImportPKCS12(junk, sizeof junk, "x"); }).code, ErrPkcs12Decoding)
        << "not PKCS#12";
    EXPECT_NE(cert.GetX509(), nullptr)
        << "argument, PEM and PKCS#12 decoding failures keep content";

    std::vector<unsigned char> trailing = der;
    trailing.push_back(0);
    EXPECT_EQ(Catch([&] { cert.Import(trailing.data(), static_cast<long>(trailing.size())); }).code,
              ErrAsn1Decoding)
        << "trailing bytes are refused";
    EXPECT_EQ(cert.GetX509(), nullptr) << "a failed DER decode leaves the object empty";
    EXPECT_EQ(cert.GetSubject().GetSize(), 0u) << "and its fields cleared";
}

TEST(CertificateImportTest, PemExportReimportsByteExact) {
    const X509Certificate cert = Cert(Certs().leaf);
    const std::string pem = cert.ExportPEM().c_str();
    EXPECT_EQ(pem, CertToPem(Certs().leaf.cert.get())) << "standard PEM form";
    const X509Certificate again(("junk before\n" + pem).c_str());
    EXPECT_EQ(ToBytes(again.Export()), CertToDer(Certs().leaf.cert.get())) << "same DER";
}

TEST(CertificateImportTest, Pkcs12WithKeyAndWrongPassword) {
    const Issued& leaf = Certs().leaf;
    const std::vector<unsigned char> p12 =
        BuildPkcs12(leaf.key.get(), leaf.cert.get(), {Certs().root.cert.get()}, "s3cret");
    X509Certificate cert;
    cert.ImportPKCS12(p12.data(), static_cast<long>(p12.size()), L"s3cret");
    EXPECT_EQ(cert.Equals(Cert(leaf)), 1) << "the key's certificate, not the extra one";
    EXPECT_EQ(cert.HasPrivateKey(), 1) << "matching key attached";
    unsigned char* keyDer = nullptr;
    const int keyLength = i2d_PrivateKey(leaf.key.get(), &keyDer);
    EXPECT_EQ(ToBytes(cert.ExportPrivateKey()),
              std::vector<unsigned char>(keyDer, keyDer + keyLength))
        << "private key DER";
    OPENSSL_free(keyDer);

    const X509Certificate copy = cert;
    EXPECT_NE(copy.GetPrivateKey(), cert.GetPrivateKey()) << "copies hold their own key object";
    EXPECT_EQ(copy.GetPrivateKey()->GetKeyEVP(), cert.GetPrivateKey()->GetKeyEVP())
        << "sharing one OpenSSL key";

    const long size = static_cast<long>(p12.size());
    EXPECT_EQ(Catch([&] { cert.ImportPKCS12(p12.data(), size, L"s3crét"); }).code,
              ErrPasswordInvalidChars)
        << "non-ASCII password";
    EXPECT_EQ(Catch([&] { cert.ImportPKCS12(p12.data(), size, "wrong"); }).code,
              ErrIncorrectPassword)
        << "MAC check fails";
    EXPECT_EQ(cert.GetX509(), nullptr) << "a wrong password leaves the object empty";
    EXPECT_EQ(cert.GetPrivateKey(), nullptr) << "key released too";
    cert.SetPrivateKey(copy.GetPrivateKey());
    EXPECT_EQ(cert.HasPrivateKey(), 0) << "a key without certificate does not count";
}

// ------------------------------------------------------ time and signatures

TEST(CertificateVerifyTest, TimeBoundaries) {
    X509* leaf = Certs().leaf.cert.get();
    EXPECT_EQ(X509Certificate::CheckTimeValidity(leaf, kLeafNotBefore - 1), -1) << "before";
    EXPECT_EQ(X509Certificate::CheckTimeValidity(leaf, kLeafNotBefore), 0) << "notBefore is valid";
    EXPECT_EQ(X509Certificate::CheckTimeValidity(leaf, kLeafNotAfter - 1), 0) << "last second";
    EXPECT_EQ(X509Certificate::CheckTimeValidity(leaf, kLeafNotAfter), 1) << "notAfter is expired";
}

TEST(CertificateVerifyTest, IssuerSignatureAndChainOption) {
    const X509Certificate cert = Cert(Certs().leaf);
    X509Certificate root = Cert(Certs().root);
    X509Certificate other = Cert(Certs().otherRoot);
    const auto signature = X509Certificate::cptVerifyIssuerSignature;
    const auto wholeChain = X509Certificate::cptVerifyWholeChain;
    EXPECT_EQ(VerifyFails(cert, signature, kNow, &root).code, 0) << "signed by the root";
    EXPECT_EQ(VerifyFails(cert, signature, kNow, &other).code, ErrCertBadSignature)
        << "not signed by another key";
    const Thrown noIssuer = VerifyFails(cert, signature, kNow);
    EXPECT_TRUE(noIssuer.code == ErrInvalidParameter && noIssuer.message == "pIssuer=NULL")
        << "issuer missing: 102 naming it";
    EXPECT_EQ(Catch([&] { cert.VerifySignature(nullptr, 0); }).code, ErrAsn1Decoding) << "null key";

    const Thrown noPolicy = VerifyFails(cert, wholeChain, kNow);
    EXPECT_TRUE(noPolicy.code == ErrInvalidParameter && noPolicy.message == "pChainPolicy=NULL")
        << "chain option without policy: 102 naming it";
    EXPECT_EQ(VerifyFails(cert, wholeChain, kLeafNotAfter).code, ErrCertNotTimeValid)
        << "the time is checked before the policy";
    // The built path handed to the caller: X509ChainTest.
}

// ------------------------------------------------ comparison and classification

TEST(CertificateClassifyTest, CompareOptions) {
    const Pki& pki = Certs();
    const X509Certificate leaf = Cert(pki.leaf), qa = Cert(pki.qualifiedA),
                          qb = Cert(pki.qualifiedB), plain = Cert(pki.pseudonym),
                          other = Cert(pki.otherRoot), empty;
    using C = X509Certificate;
    EXPECT_EQ(leaf.Compare(C::cptCompareSubject, Cert(pki.leaf)), 1) << "same subject";
    EXPECT_EQ(leaf.Compare(C::cptCompareSubject, qa), 0) << "different subject";
    EXPECT_EQ(qa.Compare(C::cptCompareIssuer, plain), 1) << "same issuer";
    EXPECT_EQ(qa.Compare(C::cptCompareIssuerAndSerial, plain), 0) << "serials differ";
    EXPECT_EQ(qa.Compare(C::cptCompareIssuerAndSerial, qb), 1) << "same issuer and serial 1";
    EXPECT_EQ(qa.Compare(C::cptCompareCertificateKind, qb), 1) << "both qualified, no Braddle";
    EXPECT_EQ(qa.Compare(C::cptCompareCertificateKind, plain), 0) << "qualified vs not";
    EXPECT_EQ(qa.Compare(C::cptCompareCertificateKind, leaf), 1)
        << "Q alone only asks the other to be qualified";
    EXPECT_EQ(leaf.Compare(C::cptCompareCertificateKind, qa), 0) << "B and Q needs both";
    EXPECT_EQ(plain.Compare(C::cptCompareCertificateKind, other), 0)
        << "a Q.OR standard certificate needs another one";
    EXPECT_EQ(other.Compare(C::cptCompareCertificateKind, plain), 1)
        << "plain against neither qualified nor Braddle";
    EXPECT_EQ(leaf.Compare(C::cptCompareBraddleId, Cert(pki.leaf)), 1) << "same Braddle id";
    EXPECT_EQ(qa.Compare(C::cptCompareBraddleId, qb), 0) << "absent ids never match";
    EXPECT_EQ(leaf.Compare(static_cast<C::cptCompareOption>(9), leaf), 0) << "unknown option";
    EXPECT_EQ(empty.Compare(C::cptCompareCertificateKind, empty), 0) << "empty objects";
}

TEST(CertificateClassifyTest, KindsAndNames) {
    const Pki& pki = Certs();
    const X509Certificate leaf = Cert(pki.leaf), root = Cert(pki.root),
                          pseudonym = Cert(pki.pseudonym), other = Cert(pki.otherRoot);
    EXPECT_EQ(root.IsCA() * root.IsSelfSigned(), 1) << "root is a self-signed CA";
    EXPECT_EQ(leaf.IsCA() + leaf.IsSelfSigned(), 0) << "leaf is neither";
    EXPECT_EQ(leaf.IsQor() * leaf.IsQorStandard(), 1) << "issued by Q.OR Standard Root";
    EXPECT_EQ(other.IsQor(), 0) << "issuer without Q.OR";
    EXPECT_EQ(leaf.IsQorBraddles(), 1) << "Braddle id present";
    EXPECT_TRUE(leaf.HasQualifiedQcStatement() == 1 && pseudonym.HasQualifiedQcStatement() == 0)
        << "QcCompliance present only in the leaf";
    EXPECT_TRUE(pseudonym.IsPseudonymous() == 1 && leaf.IsPseudonymous() == 0)
        << "CN contains PSEUDONYM in any case";
    CertPlan withAttribute;
    withAttribute.subject = {{"CN", "Someone"}, {"pseudonym", "JN"}};
    EXPECT_EQ(Cert(IssueCertificate(withAttribute, nullptr)).IsPseudonymous(), 1)
        << "pseudonym attribute set";

    EXPECT_STREQ(root.GetSubjectStringX500(0x1010008).c_str(),
                 L"O=\"Q.OR, a.s.\",CN=Q.OR Standard Root")
        << "quoted form";
    EXPECT_STREQ(leaf.GetIssuerStringX500(0).c_str(), L"O=Q.OR, a.s.,CN=Q.OR Standard Root")
        << "default form: no quotes, escapes undone";
    EXPECT_TRUE(leaf.VerifyDN({{"2.5.4.3", "Jan Novak"}, {"2.5.4.6", "SK"}},
                              X509Certificate::DNSourceSubject))
        << "exact pairs in any order";
    EXPECT_FALSE(leaf.VerifyDN({{"2.5.4.3", "jan novak"}}, X509Certificate::DNSourceSubject))
        << "case-sensitive";
    EXPECT_TRUE(leaf.VerifyDN({{"2.5.4.10", "Q.OR, a.s."}}, X509Certificate::DNSourceIssuer))
        << "issuer pairs";
    EXPECT_TRUE(leaf.VerifyDN({}, X509Certificate::DNSourceIssuer)) << "empty list";
    EXPECT_EQ(Catch([&] { leaf.VerifyDN({}, static_cast<X509Certificate::DNSource>(7)); }).code,
              ErrInternal)
        << "unknown source decodes nothing";
}

// ------------------------------------------------------------------ logging

TEST(CertificateLoggingTest, ChannelPerObjectAndErrorBeforeThrow) {
    const std::wstring channel = L"Tessera.X509Certificate";
    const RecordingLog& log = RecordingLog::Instance();
    std::size_t closed = 0;
    {
        LogCapture capture;
        ASSERT_TRUE(capture.Active()) << "logging set up";
        {
            X509Certificate cert = Cert(Certs().leaf);
            const X509Certificate copy = cert;
            EXPECT_EQ(std::count(log.Opened().begin(), log.Opened().end(), channel), 2)
                << "original and copy open one channel each";
            cert.Verify(X509Certificate::cptVerifyTimeValidity, kNow, nullptr, nullptr, nullptr);
            const unsigned char junk[] = {0x04, 0x00};
            EXPECT_EQ(CodeOf([&] { cert.Import(junk, sizeof junk); }), ErrAsn1Decoding)
                << "junk DER";
        }
        closed = log.Closed().size();
    }
    const auto lines = log.LinesOf(channel);
    ASSERT_GE(lines.size(), 2u) << "entry line and error line";
    EXPECT_TRUE(lines[0].level == Level::Info && lines[1].level == Level::Error)
        << "an Info entry line, then an Error line";
    EXPECT_EQ(lines[0].text, L"Verify(VerifyOption:0)") << "entry line with its option";
    EXPECT_EQ(lines[1].text.rfind(L"Import: d2i_X509() failed.", 0), 0u)
        << "the failed call, then OpenSSL's errors";
    EXPECT_EQ(closed, 2u) << "channels close with their objects";
}

// ---------------------------------------------------- the openssl tool's output

// The fields of a certificate written by `openssl req` are read in
// check_cli_cert.sh; here the PKCS#12 file `openssl pkcs12` makes of it.
TEST(CertificateInteropTest, OpensslPkcs12) {
    const ScratchDir dir;
    ASSERT_TRUE(
        dir.Openssl("req -x509 -new -newkey rsa:2048 -nodes -keyout k.pem -out c.pem "
                    "-subj '/CN=Interop Root' -days 30"))
        << "openssl req: " << dir.Output();
    ASSERT_TRUE(dir.Openssl("pkcs12 -export -in c.pem -inkey k.pem -passout pass:pw -out c.p12"))
        << dir.Output();
    const std::vector<unsigned char> pem = ReadBinaryFile(dir.Path("c.pem"));
    const std::vector<unsigned char> p12 = ReadBinaryFile(dir.Path("c.p12"));
    X509Certificate fromP12;
    fromP12.ImportPKCS12(p12.data(), static_cast<long>(p12.size()), "pw");
    EXPECT_EQ(fromP12.Equals(X509Certificate(std::string(pem.begin(), pem.end()).c_str())), 1)
        << "the certificate openssl req wrote";
    EXPECT_EQ(fromP12.HasPrivateKey(), 1) << "with its key";
}
