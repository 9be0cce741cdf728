// Verification of CMS signatures through the public interface: messages made
// by the openssl tool (interop) and by OpenSSL's CMS API in-process (crafted
// cases), checked with SignedCms::Verify, VerifyDigest and
// VerifySignerCertificate. Every check runs at a pinned time. The PKI:
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
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "CryptException.h"
#include "SignedCms.h"
#include "TestPki.h"
#include "TestTsa.h"
#include "VerifierCms.h"
#include "X509Chain.h"
#include "X509ChainPolicy.h"
#include "X509Crl.h"
#include "X509Store.h"

using namespace TesseraLib;
using namespace tessera_test;

namespace {

const std::int64_t kAt = UtcTime(2024, 6, 15, 12);
const std::string kText = "Tessera verifies what OpenSSL signed.\n";

struct Pki {
    Issued ca, alice, bob, revoked, expired, aliceTwin, fakeCa;
    CrlPtr crl;

    Pki() {
        CertSpec root;
        root.commonName = "Test Root CA";
        root.keyKind = KeyKind::Rsa2048;
        const KeyPtr rootKey = CachedKey(KeyKind::Rsa2048, 0);
        const KeyPtr fakeKey = CachedKey(KeyKind::Rsa2048, 1);
        root.key = rootKey.get();
        root.extensions = CaExtensions();
        ca = IssueCertificate(root, nullptr);
        root.key = fakeKey.get();
        root.subjectKeyId = false;
        fakeCa = IssueCertificate(root, nullptr);
        alice = Leaf("Alice", 11, KeyKind::Rsa2048, 2, ca);
        bob = Leaf("Bob", 12, KeyKind::EcP256, 0, ca);
        revoked = Leaf("Revoked", 13, KeyKind::Rsa2048, 3, ca);
        expired = Leaf("Expired", 14, KeyKind::Rsa2048, 2, ca, UtcTime(2023, 1, 1));
        aliceTwin = Leaf("Alice", 11, KeyKind::Rsa2048, 3, ca);
        CrlSpec list;
        list.thisUpdate = UtcTime(2024, 6, 10);
        list.nextUpdate = UtcTime(2024, 7, 10);
        list.revoked = {RevokedEntry{13, UtcTime(2024, 6, 1, 12)}};
        crl = IssueCrl(list, ca);
    }

    static Issued Leaf(const std::string& name, long serial, KeyKind kind, int slot,
                       const Issued& issuer, std::int64_t notAfter = UtcTime(2040, 1, 1)) {
        CertSpec spec;
        spec.commonName = name;
        spec.serial = serial;
        spec.keyKind = kind;
        spec.notAfter = notAfter;
        const KeyPtr key = CachedKey(kind, slot);
        spec.key = key.get();
        spec.extensions = {{"keyUsage", "critical,digitalSignature,nonRepudiation"}};
        return IssueCertificate(spec, &issuer);
    }
};

const Pki& P() {
    static const Pki pki;
    return pki;
}

qorstd::QorArray<unsigned char> Array(const Bytes& bytes) {
    return qorstd::QorArray<unsigned char>(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

Bytes Content() {
    return Bytes(kText.begin(), kText.end());
}

Bytes Sha256(const Bytes& data) {
    return TestTsa::Digest(EVP_sha256(), std::string(data.begin(), data.end()));
}

// The error code an action threw; 0 when it returned.
int CodeOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const qorstd::QorException& e) {
        return e.GetErrorCode();
    }
    return 0;
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

using Edit = std::function<void(CMS_ContentInfo*)>;

CMS_SignerInfo* FirstSigner(CMS_ContentInfo* cms) {
    return sk_CMS_SignerInfo_value(CMS_get0_SignerInfos(cms), 0);
}

// A message signed in-process by OpenSSL (CMS_sign, then CMS_final) with the
// given flags and extra certificates; the edits, when given, change it just
// before and just after the signature is made.
Bytes OpenSslSign(const Issued& signer, const Bytes& content, unsigned int flags,
                  const std::vector<X509*>& extra = {}, const Edit& beforeFinal = nullptr,
                  const Edit& afterFinal = nullptr) {
    std::unique_ptr<STACK_OF(X509), void (*)(STACK_OF(X509)*)> certs(
        sk_X509_new_null(), [](STACK_OF(X509) * s) { sk_X509_free(s); });
    for (X509* cert : extra) {
        sk_X509_push(certs.get(), cert);
    }
    flags |= CMS_BINARY | CMS_NOSMIMECAP;
    std::unique_ptr<BIO, int (*)(BIO*)> in(
        BIO_new_mem_buf(content.data(), static_cast<int>(content.size())), BIO_free);
    std::unique_ptr<CMS_ContentInfo, void (*)(CMS_ContentInfo*)> cms(
        CMS_sign(signer.cert.get(), signer.key.get(), certs.get(), nullptr, flags | CMS_PARTIAL),
        CMS_ContentInfo_free);
    if (!cms) {
        ADD_FAILURE() << "CMS_sign failed";
        return Bytes();
    }
    if (beforeFinal) {
        beforeFinal(cms.get());
    }
    if (CMS_final(cms.get(), in.get(), nullptr, flags) != 1) {
        ADD_FAILURE() << "CMS_final failed";
        return Bytes();
    }
    if (afterFinal) {
        afterFinal(cms.get());
    }
    unsigned char* der = nullptr;
    const int length = i2d_CMS_ContentInfo(cms.get(), &der);
    Bytes out(der, der + std::max(length, 0));
    OPENSSL_free(der);
    return out;
}

// A temporary folder with the PKI's files, for the openssl tool.
class Scratch {
public:
    Scratch() {
        char name[] = "/tmp/tessera-cmsverify-XXXXXX";
        m_dir = mkdtemp(name) != nullptr ? name : "";
        Write("content.bin", Content());
        WriteTextFile(m_dir + "/ca.pem", CertToPem(P().ca.cert.get()));
        for (const auto& entry :
             {std::make_pair("alice", &P().alice), std::make_pair("bob", &P().bob)}) {
            WriteTextFile(m_dir + "/" + entry.first + ".pem", CertToPem(entry.second->cert.get()));
            WriteTextFile(m_dir + "/" + entry.first + ".key", KeyToPem(entry.second->key.get()));
        }
    }
    ~Scratch() { std::system(("rm -rf '" + m_dir + "'").c_str()); }

    void Write(const std::string& name, const Bytes& bytes) const {
        WriteTextFile(m_dir + "/" + name, std::string(bytes.begin(), bytes.end()));
    }

    // `openssl cms -sign -binary` over content.bin with `options`; the DER.
    Bytes Sign(const std::string& options) const {
        const std::string command = "cd '" + m_dir +
                                    "' && timeout 30 openssl cms -sign -binary -in content.bin "
                                    "-outform DER -out sig.der " +
                                    options + " 2>/dev/null";
        const int status = std::system(command.c_str());
        EXPECT_EQ(status, 0) << "openssl: " << command;
        return status == 0 ? ReadBinaryFile(m_dir + "/sig.der") : Bytes();
    }

private:
    std::string m_dir;
};

const char kAlice[] = " -signer alice.pem -inkey alice.key";
const char kBob[] = " -signer bob.pem -inkey bob.key";

// Trust in the root, the CRL in the extra store, revocation of the signer only.
struct ChainSetup {
    X509MemoryStore trust, extra;
    X509ChainPolicy policy;
    ChainSetup() {
        trust.AddCertificate(X509Certificate(P().ca.cert.get()));
        const Bytes crl = CrlToDer(P().crl.get());
        extra.AddCrl(X509Crl(crl.data(), static_cast<long>(crl.size())));
        policy.SetTrustStore(&trust);
        policy.SetExtraStore(&extra);
        policy.SetRevocationOption(X509ChainPolicy::revOptionEndEntity);
        policy.SetChainBuildMode(X509ChainPolicy::cptChainBuildStores);
    }
};

// -------------------------------------------------- messages of the openssl tool

TEST(CmsVerifyInteropTest, AttachedWithAttributesAtEveryCertificateOption) {
    const Scratch scratch;
    const Bytes der = scratch.Sign(std::string("-nodetach -nosmimecap -certfile ca.pem") + kAlice);
    ChainSetup chain;
    auto cms = Decoded(der);
    SignedCms::SignerInfo& signer = *cms->GetSignerInfo(0);

    cms->Verify(Verifier(VerifierCms::cptVerifyNone), SignedCms::cptCmsNone);
    EXPECT_EQ(signer.GetVerifyInfo(), 5u) << "signature and content type, no certificate";
    EXPECT_EQ(signer.GetVerifyTime(), 0) << "no certificate check, no verify time";

    cms->Verify(Verifier(VerifierCms::cptVerifySignerCertificate), SignedCms::cptCmsBasic);
    EXPECT_EQ(signer.GetVerifyInfo(), 7u) << "the root in the message signed Alice";
    EXPECT_EQ(signer.GetVerifyTime(), kAt) << "the verifier's time is kept";
    EXPECT_EQ(signer.GetX509Chain(), nullptr) << "no path without path building";

    cms->Verify(Verifier(VerifierCms::cptVerifyWholeChain, &chain.policy), SignedCms::cptCmsNone);
    EXPECT_EQ(signer.GetVerifyInfo(), 7u) << "path and CRL check passed";
    ASSERT_NE(signer.GetX509Chain(), nullptr) << "the path is kept";
    EXPECT_EQ(signer.GetX509Chain()->GetElements().GetSize(), 2u) << "Alice and the root";
    EXPECT_STREQ(signer.GetCertificate().GetSubjectStringX500(0).c_str(),
                 L"O=Tessera Test,CN=Alice")
        << "the certificate carried by the message";

    Bytes tampered = der;
    const auto at = std::search(tampered.begin(), tampered.end(), kText.begin(), kText.end());
    ASSERT_NE(at, tampered.end()) << "the content is embedded";
    *at ^= 0x01;
    EXPECT_EQ(CodeOf([&] {
                  Decoded(tampered)->Verify(Verifier(VerifierCms::cptVerifyNone),
                                            SignedCms::cptCmsNone);
              }),
              ErrInvalidSignature)
        << "embedded content changed after signing (message digest differs)";
}

TEST(CmsVerifyInteropTest, DetachedWithoutAttributes) {
    const Scratch scratch;
    const Bytes der = scratch.Sign(std::string("-noattr") + kAlice);
    const VerifierCms none = Verifier(VerifierCms::cptVerifyNone);

    auto cms = Decoded(der);
    EXPECT_EQ(CodeOf([&] { cms->Verify(none, SignedCms::cptCmsNone); }), ErrNoContent)
        << "detached and no content set";
    EXPECT_EQ(cms->GetSignerInfo(0)->GetVerifyInfo(), 0u) << "nothing verified";
    cms->VerifyDigest(none, Array(Sha256(Content())), SignedCms::cptCmsNone);
    EXPECT_EQ(cms->GetSignerInfo(0)->GetVerifyInfo(), 1u)
        << "the signature over the right digest, no content type";
    EXPECT_EQ(CodeOf([&] {
                  cms->VerifyDigest(none, Array(Sha256(Bytes(3, 'x'))), SignedCms::cptCmsNone);
              }),
              ErrInvalidSignature)
        << "the signature is not over another digest";
    EXPECT_EQ(CodeOf([&] {
                  cms->VerifyDigest(none, qorstd::QorArray<unsigned char>(), SignedCms::cptCmsNone);
              }),
              ErrNoContent)
        << "an empty digest";

    Decoded(der, Content())->Verify(none, SignedCms::cptCmsNone);
    Bytes other = Content();
    other.back() = '!';
    EXPECT_EQ(CodeOf([&] { Decoded(der, other)->Verify(none, SignedCms::cptCmsNone); }),
              ErrInvalidSignature)
        << "wrong detached content: RSA's bad-signature error";
}

TEST(CmsVerifyInteropTest, TwoSignersByKeyIdentifier) {
    const Scratch scratch;
    const Bytes der = scratch.Sign(std::string("-keyid -nosmimecap") + kAlice + kBob);
    const VerifierCms option1 = Verifier(VerifierCms::cptVerifySignerCertificate);
    auto cms = Decoded(der, Content());
    ASSERT_EQ(cms->GetSignerInfoCount(), 2u) << "two -signer options";
    cms->Verify(option1, SignedCms::cptCmsNone);
    EXPECT_EQ(cms->GetSignerInfo(0)->GetVerifyInfo(), 7u) << "Alice, found by key identifier";
    EXPECT_EQ(cms->GetSignerInfo(1)->GetVerifyInfo(), 7u) << "Bob (EC), found by key identifier";

    cms->VerifyDigest(option1, Array(Sha256(Content())), SignedCms::cptCmsNone);
    EXPECT_EQ(cms->GetSignerInfo(1)->GetVerifyInfo(), 7u) << "digest form, both signers";
    EXPECT_EQ(CodeOf([&] {
                  cms->VerifyDigest(option1, Array(Sha256(Bytes(1, 'x'))), SignedCms::cptCmsNone);
              }),
              ErrHashMismatch)
        << "another digest than the message-digest attribute";
    EXPECT_EQ(
        CodeOf([&] { cms->VerifyDigest(option1, Array(Bytes(20, 0)), SignedCms::cptCmsNone); }),
        ErrHashMismatch)
        << "a digest of the wrong length";

    Bytes other = Content();
    other[0] = 'X';
    EXPECT_EQ(CodeOf([&] { Decoded(der, other)->Verify(option1, SignedCms::cptCmsNone); }),
              ErrInvalidSignature)
        << "wrong detached content: CMS's verification failure";
}

// ------------------------------------------------------ the signer certificate

TEST(CmsVerifyCertificateTest, FoundAmongTheCandidatesOrMissing) {
    Bytes tampered = OpenSslSign(P().alice, Content(), CMS_NOCERTS);
    const auto at = std::search(tampered.begin(), tampered.end(), kText.begin(), kText.end());
    ASSERT_NE(at, tampered.end()) << "the content is embedded";
    *at ^= 0x01;
    VerifierCms verifier = Verifier(VerifierCms::cptVerifyNone);
    EXPECT_EQ(CodeOf([&] { Decoded(tampered)->Verify(verifier, SignedCms::cptCmsNone); }),
              ErrSignerCertNotFound)
        << "no certificate anywhere: reported before the bad content";
    EXPECT_EQ(CodeOf([&] { Decoded(tampered)->VerifySignerCertificate(verifier); }),
              ErrSignerCertNotFound)
        << "the certificate-only check looks for it too";

    const Bytes der = OpenSslSign(P().alice, Content(), CMS_NOCERTS);
    const X509Certificate alice(P().alice.cert.get()), twin(P().aliceTwin.cert.get()),
        bob(P().bob.cert.get());
    qorstd::QorVector<X509Certificate> candidates;
    candidates.Add(alice);
    candidates.Add(bob);
    candidates.Add(twin);
    verifier.SetSignerCertificates(candidates);
    EXPECT_EQ(CodeOf([&] { Decoded(der)->Verify(verifier, SignedCms::cptCmsNone); }),
              ErrSignatureVerification)
        << "the last matching candidate (the twin, another key) is taken";

    candidates.RemoveAll();
    candidates.Add(twin);
    candidates.Add(bob);
    candidates.Add(alice);
    verifier.SetSignerCertificates(candidates);
    auto cms = Decoded(der);
    cms->Verify(verifier, SignedCms::cptCmsNone);
    EXPECT_EQ(cms->GetSignerInfo(0)->GetVerifyInfo(), 5u) << "Alice last: verified";
    EXPECT_EQ(cms->GetSignerInfo(0)->GetCertificate().Equals(alice), 1)
        << "the found certificate is kept";
    cms->Verify(Verifier(VerifierCms::cptVerifyNone), SignedCms::cptCmsNone);
    EXPECT_EQ(cms->GetSignerInfo(0)->GetVerifyInfo(), 5u)
        << "once found, the certificate stays attached to the signer";

    candidates.Add(X509Certificate());
    verifier.SetSignerCertificates(candidates);
    EXPECT_EQ(CodeOf([&] { Decoded(der)->Verify(verifier, SignedCms::cptCmsNone); }),
              ErrInvalidParameter)
        << "an empty candidate";
}

TEST(CmsVerifyCertificateTest, SignerCertificateOptionChecksTimeAndIssuer) {
    const VerifierCms option1 = Verifier(VerifierCms::cptVerifySignerCertificate);
    auto alone = Decoded(OpenSslSign(P().alice, Content(), 0));
    alone->Verify(option1, SignedCms::cptCmsNone);
    EXPECT_EQ(alone->GetSignerInfo(0)->GetVerifyInfo(), 7u) << "no issuer known: the time only";
    VerifierCms later = option1;
    later.SetVerifyTime(UtcTime(2041, 1, 1));
    EXPECT_EQ(CodeOf([&] { alone->Verify(later, SignedCms::cptCmsNone); }), ErrCertNotTimeValid)
        << "Alice has expired by 2041";
    EXPECT_EQ(alone->GetSignerInfo(0)->GetVerifyInfo(), 5u) << "no bit 2 after a failed check";

    auto fake = Decoded(OpenSslSign(P().alice, Content(), 0, {P().fakeCa.cert.get()}));
    EXPECT_EQ(CodeOf([&] { fake->Verify(option1, SignedCms::cptCmsNone); }), ErrCertBadSignature)
        << "an issuer by name in the message whose key did not sign Alice";
    auto candidateIssuer = Decoded(OpenSslSign(P().alice, Content(), 0));
    VerifierCms withFake = option1;
    qorstd::QorVector<X509Certificate> candidates;
    candidates.Add(X509Certificate(P().fakeCa.cert.get()));
    withFake.SetSignerCertificates(candidates);
    EXPECT_EQ(CodeOf([&] { candidateIssuer->VerifySignerCertificate(withFake); }),
              ErrCertBadSignature)
        << "the verifier's candidates are searched for the issuer as well";

    auto expired = Decoded(OpenSslSign(P().expired, Content(), 0, {P().ca.cert.get()}));
    EXPECT_EQ(CodeOf([&] { expired->VerifySignerCertificate(option1); }), ErrCertNotTimeValid)
        << "expired at the verify time";
    expired->VerifySignerCertificate(Verifier(VerifierCms::cptVerifyNone));
    EXPECT_EQ(expired->GetSignerInfo(0)->GetVerifyInfo(), 0u)
        << "the certificate-only check leaves the bits alone";
}

TEST(CmsVerifyCertificateTest, WholeChainWithCrl) {
    ChainSetup chain;
    const VerifierCms whole = Verifier(VerifierCms::cptVerifyWholeChain, &chain.policy);
    auto good = Decoded(OpenSslSign(P().alice, Content(), CMS_DETACHED), Content());
    good->Verify(whole, SignedCms::cptCmsNone);
    EXPECT_EQ(good->GetSignerInfo(0)->GetVerifyInfo(), 7u) << "Alice's path and CRL check pass";
    good->VerifySignerCertificate(whole);
    ASSERT_NE(good->GetSignerInfo(0)->GetX509Chain(), nullptr) << "the certificate-only check";
    EXPECT_EQ(good->GetSignerInfo(0)->GetX509Chain()->GetVerifyTime(), kAt)
        << "the path was built at the verify time";

    auto revoked = Decoded(OpenSslSign(P().revoked, Content(), 0));
    EXPECT_EQ(CodeOf([&] { revoked->Verify(whole, SignedCms::cptCmsNone); }), ErrCertRevoked)
        << "the CRL lists the signer";
    EXPECT_EQ(revoked->GetSignerInfo(0)->GetVerifyInfo(), 5u)
        << "signature and content type passed before the certificate failed";
    EXPECT_EQ(revoked->GetSignerInfo(0)->GetX509Chain(), nullptr) << "no path kept on failure";
    EXPECT_EQ(CodeOf([&] {
                  revoked->Verify(Verifier(VerifierCms::cptVerifyWholeChain),
                                  SignedCms::cptCmsNone);
              }),
              ErrInvalidParameter)
        << "path building needs a chain policy";
}

// ------------------------------------------------ attributes and check order

// Alice's message with an unsigned signature time-stamp attribute over her
// signature value.
Bytes WithTimeStamp(const Issued& signer) {
    static const TestTsa tsa;
    return OpenSslSign(signer, Content(), 0, {}, nullptr, [](CMS_ContentInfo* cms) {
        const ASN1_OCTET_STRING* value = CMS_SignerInfo_get0_signature(FirstSigner(cms));
        const Bytes signature(value->data, value->data + value->length);
        const Bytes token = tsa.Token(EVP_sha256(), Sha256(signature), true, TsaReply());
        ASSERT_EQ(CMS_unsigned_add1_attr_by_NID(FirstSigner(cms), NID_id_smime_aa_timeStampToken,
                                                V_ASN1_SEQUENCE, token.data(),
                                                static_cast<int>(token.size())),
                  1)
            << "time-stamp attribute added";
    });
}

TEST(CmsVerifyOrderTest, TimeStampFailureIsHeldBackBehindTheCertificateCheck) {
    ChainSetup chain;
    const VerifierCms whole = Verifier(VerifierCms::cptVerifyWholeChain, &chain.policy);
    auto good = Decoded(WithTimeStamp(P().alice));
    SignedCms::SignerInfo& signer = *good->GetSignerInfo(0);
    ASSERT_EQ(signer.GetCadesType(), SignedCms::cptCmsTimeStamp) << "the attribute was parsed";

    EXPECT_EQ(CodeOf([&] { good->Verify(whole, SignedCms::cptCmsNone); }), ErrNotImplemented)
        << "level none takes the signer's own: the time-stamp check runs (not available yet)";
    EXPECT_EQ(signer.GetVerifyInfo(), 7u) << "the certificate was still checked";
    EXPECT_NE(signer.GetX509Chain(), nullptr) << "and its path kept";
    EXPECT_NE(signer.GetSignatureTimeStampVerificationData(), nullptr)
        << "time-stamp results are prepared";

    good->Verify(whole, SignedCms::cptCmsBasic);
    EXPECT_EQ(signer.GetVerifyInfo(), 7u) << "the basic level skips the time-stamp";
    EXPECT_EQ(signer.GetSignatureTimeStampVerificationData(), nullptr)
        << "and prepares no time-stamp results";

    auto revoked = Decoded(WithTimeStamp(P().revoked));
    EXPECT_EQ(CodeOf([&] { revoked->Verify(whole, SignedCms::cptCmsTimeStamp); }),
              ErrNotImplemented)
        << "both fail: the time-stamp failure is reported";
    EXPECT_EQ(CodeOf([&] { revoked->Verify(whole, SignedCms::cptCmsBasic); }), ErrCertRevoked)
        << "without the time-stamp the revocation is reported";
}

TEST(CmsVerifyOrderTest, ContentTypeAttributeAndEmptyContainer) {
    // Signed while the content was typed a time-stamp token, then retyped as
    // plain data: the content-type attribute names the former.
    const auto retype = [](int nid) {
        return [nid](CMS_ContentInfo* cms) {
            ASSERT_EQ(CMS_set1_eContentType(cms, OBJ_nid2obj(nid)), 1) << "content retyped";
        };
    };
    const Bytes der = OpenSslSign(P().bob, Content(), 0, {}, retype(NID_id_smime_ct_TSTInfo),
                                  retype(NID_pkcs7_data));
    auto cms = Decoded(der);
    EXPECT_EQ(
        CodeOf([&] { cms->Verify(Verifier(VerifierCms::cptVerifyNone), SignedCms::cptCmsNone); }),
        ErrContentTypeMismatch)
        << "attribute names another type than the content";
    EXPECT_EQ(cms->GetSignerInfo(0)->GetVerifyInfo(), 1u) << "the signature itself passed";

    SignedCms empty;
    const VerifierCms verifier;
    EXPECT_EQ(CodeOf([&] { empty.Verify(verifier, SignedCms::cptCmsNone); }), ErrNoMessage)
        << "Verify without a message";
    EXPECT_EQ(
        CodeOf([&] { empty.VerifyDigest(verifier, Array(Bytes(32, 1)), SignedCms::cptCmsNone); }),
        ErrNoMessage)
        << "VerifyDigest without a message";
    EXPECT_EQ(CodeOf([&] { empty.VerifySignerCertificate(verifier); }), ErrNoMessage)
        << "VerifySignerCertificate without a message";
    VerifierCms reset = Verifier(VerifierCms::cptVerifyNone);
    reset.Reset();
    EXPECT_TRUE(reset.GetVerifyOption() == VerifierCms::cptVerifyWholeChain &&
                reset.GetVerifyTime() == 0 && reset.GetCompareTsTimeVerifyTime() == 1)
        << "Reset restores the defaults";
}

}  // namespace
