// Verification of CMS signatures through the public interface: messages made
// by the openssl tool (interop) and by OpenSSL's CMS API in-process (crafted
// cases). Every check runs at a pinned time. The PKI:
//
//   Test Root CA (RSA) ............ trust anchor; CRL 2024-06-10 .. 2024-07-10
//    ├── Alice     RSA-2048  serial 11
//    ├── Bob       EC P-256  serial 12
//    ├── Revoked   RSA-2048  serial 13, on the CRL since 2024-06-01 12:00
//    └── Expired   RSA-2048  serial 14, valid 2020 .. 2023
//   Alice's twin ................... Alice's issuer and serial, another key
//   Fake Root CA ................... the root's name, no key identifier, another key
#include <gtest/gtest.h>

#include <openssl/cms.h>
#include <openssl/evp.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "TestCms.h"
#include "TestTessera.h"
#include "TestTsa.h"

using namespace TesseraLib;
using namespace tessera_test;

namespace {

const std::int64_t kAt = UtcTime(2024, 6, 15, 12);
const std::string kText = "Tessera verifies what OpenSSL signed.\n";
const Bytes kContent(kText.begin(), kText.end());

// A certificate on a pooled key; a root when `issuer` is null.
Issued Make(const char* name, long serial, KeyKind kind, int slot, const Issued* issuer,
            std::int64_t notAfter = UtcTime(2040, 1, 1), bool keyId = true) {
    CertPlan plan = BasicProfile(name, serial, issuer == nullptr);
    const KeyPtr key = CachedKey(kind, slot);
    plan.key = key.get();
    plan.notAfter = notAfter;
    plan.subjectKeyId = keyId;
    return IssueCertificate(plan, issuer);
}

struct Pki {
    Issued ca = Make("Test Root CA", 1, KeyKind::Rsa2048, 0, nullptr),
           fakeCa =
               Make("Test Root CA", 1, KeyKind::Rsa2048, 1, nullptr, UtcTime(2040, 1, 1), false);
    Issued alice = Make("Alice", 11, KeyKind::Rsa2048, 2, &ca),
           bob = Make("Bob", 12, KeyKind::EcP256, 0, &ca),
           revoked = Make("Revoked", 13, KeyKind::Rsa2048, 3, &ca),
           expired = Make("Expired", 14, KeyKind::Rsa2048, 2, &ca, UtcTime(2023, 1, 1)),
           aliceTwin = Make("Alice", 11, KeyKind::Rsa2048, 3, &ca);
    CrlPtr crl = IssueCrl(ca, UtcTime(2024, 6, 10), UtcTime(2024, 7, 10),
                          {RevokedEntry{13, UtcTime(2024, 6, 1, 12)}});
};

const Pki& P() {
    static const Pki pki;
    return pki;
}

Bytes Sha256(const Bytes& data) {
    return TestTsa::Digest(EVP_sha256(), std::string(data.begin(), data.end()));
}

VerifierCms Verifier(VerifierCms::cptVerifyOption option, X509ChainPolicy* policy = nullptr) {
    VerifierCms verifier;
    verifier.SetVerifyOption(option);
    verifier.SetVerifyTime(kAt);
    verifier.SetChainPolicy(policy);
    return verifier;
}

std::unique_ptr<SignedCms> Decoded(const Bytes& der, const Bytes& content = Bytes()) {
    auto cms = std::make_unique<SignedCms>(Array(content));
    cms->Decode(Array(der));
    return cms;
}

qorstd::QorVector<X509Certificate> Candidates(const std::vector<X509Certificate>& certs) {
    return qorstd::QorVector<X509Certificate>(certs.data(), static_cast<unsigned>(certs.size()));
}

// The code of verifying `der` (with `content`) under `verifier`.
int VerifyCode(const Bytes& der, const VerifierCms& verifier, const Bytes& content = Bytes()) {
    return CodeOf([&] { Decoded(der, content)->Verify(verifier, SignedCms::cptCmsNone); });
}

// The embedded content with one bit flipped.
Bytes Tampered(Bytes der) {
    const auto at = std::search(der.begin(), der.end(), kText.begin(), kText.end());
    EXPECT_NE(at, der.end()) << "the content is embedded";
    if (at != der.end()) {
        *at ^= 0x01;
    }
    return der;
}

using Edit = std::function<void(CMS_ContentInfo*)>;

// A message over kContent signed in-process by OpenSSL with the given flags
// and extra certificates; the edits change it just before and just after the
// signature is made.
Bytes OpenSslSign(const Issued& signer, unsigned int flags, const std::vector<X509*>& extra = {},
                  const Edit& beforeFinal = nullptr, const Edit& afterFinal = nullptr) {
    CmsSignPlan plan;
    plan.content = kText;
    plan.signers = {&signer};
    plan.flags = flags | CMS_NOSMIMECAP;
    plan.certificates = extra;
    plan.beforeFinal = beforeFinal;
    const CmsPtr cms = SignCms(plan);
    if (afterFinal) {
        afterFinal(cms.get());
    }
    return CmsDer(cms.get());
}

// `openssl cms -sign -binary` over kContent with `options`, in a folder
// holding content.bin, ca.pem, alice.pem/.key and bob.pem/.key.
Bytes OpensslToolSign(const std::string& options) {
    ScratchDir dir;
    dir.Write("content.bin", kText);
    dir.Write("ca.pem", CertToPem(P().ca.cert.get()));
    for (const auto& entry :
         {std::make_pair("alice", &P().alice), std::make_pair("bob", &P().bob)}) {
        dir.Write(std::string(entry.first) + ".pem", CertToPem(entry.second->cert.get()));
        dir.Write(std::string(entry.first) + ".key", KeyToPem(entry.second->key.get()));
    }
    const bool signed_ =
        dir.Openssl("cms -sign -binary -in content.bin -outform DER -out sig.der " + options);
    EXPECT_TRUE(signed_) << "openssl cms -sign " << options << ": " << dir.Output();
    return signed_ ? ReadBinaryFile(dir.Path("sig.der")) : Bytes();
}

const char kAlice[] = " -signer alice.pem -inkey alice.key";
const char kBob[] = " -signer bob.pem -inkey bob.key";

// Trust in the root, the CRL in the extra store, revocation of the signer only.
struct ChainSetup {
    X509MemoryStore trust, extra;
    X509ChainPolicy policy;
    const VerifierCms whole = Verifier(VerifierCms::cptVerifyWholeChain, &policy);
    ChainSetup() {
        trust.AddCertificate(Cert(P().ca));
        extra.AddCrl(X509Crl(P().crl.get()));
        policy.SetTrustStore(&trust);
        policy.SetExtraStore(&extra);
        policy.SetRevocationOption(X509ChainPolicy::revOptionEndEntity);
        policy.SetChainBuildMode(X509ChainPolicy::cptChainBuildStores);
    }
};

const VerifierCms kNone = Verifier(VerifierCms::cptVerifyNone);
const VerifierCms kSignerCert = Verifier(VerifierCms::cptVerifySignerCertificate);

// -------------------------------------------------- messages of the openssl tool

TEST(CmsVerifyInteropTest, AttachedWithAttributesAtEveryCertificateOption) {
    const Bytes der =
        OpensslToolSign(std::string("-nodetach -nosmimecap -certfile ca.pem") + kAlice);
    ChainSetup chain;
    auto cms = Decoded(der);
    const SignedCms::SignerInfo& signer = *cms->GetSignerInfo(0);

    cms->Verify(kNone, SignedCms::cptCmsNone);
    EXPECT_EQ(signer.GetVerifyInfo(), 5u) << "signature and content type, no certificate";
    cms->Verify(kSignerCert, SignedCms::cptCmsBasic);
    EXPECT_EQ(signer.GetVerifyInfo(), 7u) << "the root in the message signed Alice";
    EXPECT_EQ(signer.GetVerifyTime(), kAt) << "the verifier's time is kept";
    EXPECT_EQ(signer.GetX509Chain(), nullptr) << "no path without path building";
    cms->Verify(chain.whole, SignedCms::cptCmsNone);
    EXPECT_EQ(signer.GetVerifyInfo(), 7u) << "path and CRL check passed";
    ASSERT_NE(signer.GetX509Chain(), nullptr) << "the path is kept";
    EXPECT_EQ(signer.GetX509Chain()->GetElements().GetSize(), 2u) << "Alice and the root";

    EXPECT_EQ(VerifyCode(Tampered(der), kNone), ErrInvalidSignature)
        << "embedded content changed after signing (message digest differs)";
}

TEST(CmsVerifyInteropTest, DetachedByDigestOrContent) {
    const Bytes plain = OpensslToolSign(std::string("-noattr") + kAlice);
    auto cms = Decoded(plain);
    EXPECT_EQ(CodeOf([&] { cms->Verify(kNone, SignedCms::cptCmsNone); }), ErrNoContent)
        << "detached and no content set";
    cms->VerifyDigest(kNone, Array(Sha256(kContent)), SignedCms::cptCmsNone);
    EXPECT_EQ(cms->GetSignerInfo(0)->GetVerifyInfo(), 1u)
        << "the signature over the right digest, no content type";
    EXPECT_EQ(CodeOf([&] {
                  cms->VerifyDigest(kNone, Array(Sha256(Bytes(3, 'x'))), SignedCms::cptCmsNone);
              }),
              ErrInvalidSignature)
        << "the signature is not over another digest";
    EXPECT_EQ(VerifyCode(plain, kNone, kContent), 0) << "with the content";
    Bytes other = kContent;
    other.back() = '!';
    EXPECT_EQ(VerifyCode(plain, kNone, other), ErrInvalidSignature)
        << "wrong detached content: RSA's bad-signature error";

    const Bytes two = OpensslToolSign(std::string("-keyid -nosmimecap") + kAlice + kBob);
    cms = Decoded(two, kContent);
    ASSERT_EQ(cms->GetSignerInfoCount(), 2u) << "two -signer options";
    const auto both = [&] {
        return cms->GetSignerInfo(0)->GetVerifyInfo() & cms->GetSignerInfo(1)->GetVerifyInfo();
    };
    cms->VerifyDigest(kSignerCert, Array(Sha256(kContent)), SignedCms::cptCmsNone);
    EXPECT_EQ(both(), 7u) << "Alice (RSA) and Bob (EC), found by key identifier, digest form";
    cms->Verify(kSignerCert, SignedCms::cptCmsNone);
    EXPECT_EQ(both(), 7u) << "both signers, content form";
    EXPECT_EQ(
        CodeOf([&] { cms->VerifyDigest(kSignerCert, Array(Bytes(20, 0)), SignedCms::cptCmsNone); }),
        ErrHashMismatch)
        << "a digest unlike the message-digest attribute";
    other[0] = 'X';
    EXPECT_EQ(VerifyCode(two, kSignerCert, other), ErrInvalidSignature)
        << "wrong detached content: CMS's verification failure";
}

// ------------------------------------------------------ the signer certificate

TEST(CmsVerifyCertificateTest, FoundAmongTheCandidatesOrMissing) {
    const Bytes der = OpenSslSign(P().alice, CMS_NOCERTS);
    EXPECT_EQ(VerifyCode(Tampered(der), kNone), ErrSignerCertNotFound)
        << "no certificate anywhere: reported before the bad content";
    EXPECT_EQ(CodeOf([&] { Decoded(der)->VerifySignerCertificate(kNone); }), ErrSignerCertNotFound)
        << "the certificate-only check looks for it too";

    const X509Certificate alice = Cert(P().alice), twin = Cert(P().aliceTwin), bob = Cert(P().bob);
    VerifierCms verifier = kNone;
    verifier.SetSignerCertificates(Candidates({alice, bob, twin}));
    EXPECT_EQ(VerifyCode(der, verifier), ErrSignatureVerification)
        << "the last matching candidate (the twin, another key) is taken";

    verifier.SetSignerCertificates(Candidates({twin, bob, alice}));
    auto cms = Decoded(der);
    cms->Verify(verifier, SignedCms::cptCmsNone);
    EXPECT_EQ(cms->GetSignerInfo(0)->GetCertificate().Equals(alice), 1) << "Alice last: taken";
    cms->Verify(kNone, SignedCms::cptCmsNone);
    EXPECT_EQ(cms->GetSignerInfo(0)->GetVerifyInfo(), 5u)
        << "once found, the certificate stays attached to the signer";

    verifier.SetSignerCertificates(Candidates({alice, X509Certificate()}));
    EXPECT_EQ(VerifyCode(der, verifier), ErrInvalidParameter) << "an empty candidate";
}

TEST(CmsVerifyCertificateTest, SignerCertificateOptionChecksTimeAndIssuer) {
    auto alone = Decoded(OpenSslSign(P().alice, 0));
    alone->Verify(kSignerCert, SignedCms::cptCmsNone);
    EXPECT_EQ(alone->GetSignerInfo(0)->GetVerifyInfo(), 7u) << "no issuer known: the time only";
    VerifierCms later = kSignerCert;
    later.SetVerifyTime(UtcTime(2041, 1, 1));
    EXPECT_EQ(CodeOf([&] { alone->Verify(later, SignedCms::cptCmsNone); }), ErrCertNotTimeValid)
        << "Alice has expired by 2041";
    EXPECT_EQ(alone->GetSignerInfo(0)->GetVerifyInfo(), 5u) << "no bit 2 after a failed check";

    EXPECT_EQ(VerifyCode(OpenSslSign(P().alice, 0, {P().fakeCa.cert.get()}), kSignerCert),
              ErrCertBadSignature)
        << "an issuer by name in the message whose key did not sign Alice";
    VerifierCms withFake = kSignerCert;
    withFake.SetSignerCertificates(Candidates({Cert(P().fakeCa)}));
    EXPECT_EQ(CodeOf([&] { alone->VerifySignerCertificate(withFake); }), ErrCertBadSignature)
        << "the verifier's candidates are searched for the issuer as well";

    auto expired = Decoded(OpenSslSign(P().expired, 0, {P().ca.cert.get()}));
    EXPECT_EQ(CodeOf([&] { expired->VerifySignerCertificate(kSignerCert); }), ErrCertNotTimeValid)
        << "expired at the verify time";
    EXPECT_EQ(expired->GetSignerInfo(0)->GetVerifyInfo(), 0u)
        << "the certificate-only check leaves the bits alone";
}

TEST(CmsVerifyCertificateTest, WholeChainWithCrl) {
    const ChainSetup chain;
    auto good = Decoded(OpenSslSign(P().alice, CMS_DETACHED), kContent);
    good->VerifySignerCertificate(chain.whole);
    ASSERT_NE(good->GetSignerInfo(0)->GetX509Chain(), nullptr) << "Alice's path is kept";
    EXPECT_EQ(good->GetSignerInfo(0)->GetX509Chain()->GetVerifyTime(), kAt)
        << "the path was built at the verify time";

    auto revoked = Decoded(OpenSslSign(P().revoked, 0));
    EXPECT_EQ(CodeOf([&] { revoked->Verify(chain.whole, SignedCms::cptCmsNone); }), ErrCertRevoked)
        << "the CRL lists the signer";
    EXPECT_EQ(revoked->GetSignerInfo(0)->GetVerifyInfo(), 5u)
        << "signature and content type passed before the certificate failed";
    EXPECT_EQ(revoked->GetSignerInfo(0)->GetX509Chain(), nullptr) << "no path kept on failure";
    EXPECT_EQ(VerifyCode(OpenSslSign(P().alice, 0), Verifier(VerifierCms::cptVerifyWholeChain)),
              ErrInvalidParameter)
        << "path building needs a chain policy";
}

// ------------------------------------------------ attributes and check order

// The signer's message with an unsigned signature time-stamp attribute over
// its signature value.
Bytes WithTimeStamp(const Issued& signer) {
    static const TestTsa tsa;
    return OpenSslSign(signer, 0, {}, nullptr, [](CMS_ContentInfo* cms) {
        const ASN1_OCTET_STRING* value = CMS_SignerInfo_get0_signature(FirstSigner(cms));
        const Bytes token =
            tsa.Token(EVP_sha256(), Sha256(Bytes(value->data, value->data + value->length)), true);
        ASSERT_EQ(CMS_unsigned_add1_attr_by_NID(FirstSigner(cms), NID_id_smime_aa_timeStampToken,
                                                V_ASN1_SEQUENCE, token.data(),
                                                static_cast<int>(token.size())),
                  1)
            << "time-stamp attribute added";
    });
}

TEST(CmsVerifyOrderTest, TimeStampFailureIsHeldBackBehindTheCertificateCheck) {
    const ChainSetup chain;
    const VerifierCms& whole = chain.whole;  // with CRL-checked path building
    auto good = Decoded(WithTimeStamp(P().alice));
    const SignedCms::SignerInfo& signer = *good->GetSignerInfo(0);
    ASSERT_EQ(signer.GetCadesType(), SignedCms::cptCmsTimeStamp) << "the attribute was parsed";
    ASSERT_EQ(signer.GetSignatureTimeStamps().GetSize(), 1u);
    EXPECT_EQ(signer.GetSignatureTimeStamps()[0].GetTimeStamp().GetTime(), TsaReply().genTime)
        << "the token of the unsigned attribute is decoded";

    EXPECT_EQ(CodeOf([&] { good->Verify(whole, SignedCms::cptCmsNone); }), ErrChainIncomplete)
        << "level none takes the signer's own: the time-stamp check runs, and the TSA's path "
           "does not reach the verifier's anchor";
    EXPECT_EQ(signer.GetVerifyInfo(), 7u) << "the certificate was still checked";
    EXPECT_NE(signer.GetX509Chain(), nullptr) << "and its path kept";
    EXPECT_NE(signer.GetSignatureTimeStampVerificationData(), nullptr)
        << "time-stamp results are prepared";
    good->Verify(whole, SignedCms::cptCmsBasic);
    EXPECT_EQ(signer.GetSignatureTimeStampVerificationData(), nullptr)
        << "the basic level skips the time-stamp";

    const Bytes revoked = WithTimeStamp(P().revoked);
    EXPECT_EQ(CodeOf([&] { Decoded(revoked)->Verify(whole, SignedCms::cptCmsTimeStamp); }),
              ErrChainIncomplete)
        << "both fail: the time-stamp failure is reported";
    EXPECT_EQ(CodeOf([&] { Decoded(revoked)->Verify(whole, SignedCms::cptCmsBasic); }),
              ErrCertRevoked)
        << "without the time-stamp the revocation is reported";
}

TEST(CmsVerifyOrderTest, ContentTypeAttributeMismatchIsLogged) {
    // Signed while the content was typed a time-stamp token, then retyped as
    // plain data: the content-type attribute names the former.
    const auto retype = [](int nid) {
        return [nid](CMS_ContentInfo* cms) {
            ASSERT_EQ(CMS_set1_eContentType(cms, OBJ_nid2obj(nid)), 1) << "content retyped";
        };
    };
    const Bytes der =
        OpenSslSign(P().bob, 0, {}, retype(NID_id_smime_ct_TSTInfo), retype(NID_pkcs7_data));
    const LogCapture capture;
    ASSERT_TRUE(capture.Active()) << "logging set up";
    auto cms = Decoded(der);
    EXPECT_EQ(CodeOf([&] { cms->Verify(kNone, SignedCms::cptCmsNone); }), ErrContentTypeMismatch)
        << "attribute names another type than the content";
    EXPECT_EQ(cms->GetSignerInfo(0)->GetVerifyInfo(), 1u) << "the signature itself passed";
    std::vector<std::wstring> lines;
    for (const LogLine& line : RecordingLog::Instance().LinesOf(L"Tessera.SignedCms.SignerInfo")) {
        if (line.level != Level::Debug) {
            lines.push_back(line.text);
        }
    }
    EXPECT_EQ(lines, (std::vector<std::wstring>{
                         L"Verify(Signer:O=Tessera Test,CN=Bob VerifyOption:0)",
                         L"VerifyContentType: SignerInfo.contentType not equals CMS contentType"}))
        << "the entry line, then the failure";

    SignedCms empty;
    EXPECT_EQ(CodeOf([&] { empty.Verify(kNone, SignedCms::cptCmsNone); }) + CodeOf([&] {
                  empty.VerifyDigest(kNone, Array(Bytes(32, 1)), SignedCms::cptCmsNone);
              }) + CodeOf([&] { empty.VerifySignerCertificate(kNone); }),
              3 * ErrNoMessage)
        << "no message: each form fails with ErrNoMessage";
}

}  // namespace
