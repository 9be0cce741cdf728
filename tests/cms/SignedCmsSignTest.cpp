// Signing CMS messages: what goes into them, what OpenSSL's `cms -verify`
// makes of them, co-signing, the size estimate and how failures surface.
//
// The test PKI (RSA-2048 throughout, valid 2020-2049):
//
//   Sign Test Root ─┬─ Sign Test CA ── Chained Signer
//                   └─ Direct Signer
//   Expired Signer (self-signed, 2020-2021)
#include <gtest/gtest.h>
#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "TestCms.h"
#include "TestTessera.h"
#include "TestTsa.h"

using namespace TesseraLib;
using namespace tessera_test;

namespace {

struct Pki {
    Issued root, ca, chained, direct, expired;
};

const Pki& P() {
    static const Pki pki = [] {
        const auto issue = [](const std::string& name, long serial, bool ca, int slot,
                              const Issued* issuer, std::int64_t notAfter = UtcTime(2049, 12, 31)) {
            CertPlan profile = BasicProfile(name, serial, ca);
            profile.notAfter = notAfter;
            const KeyPtr key = CachedKey(KeyKind::Rsa2048, slot);
            profile.key = key.get();
            return IssueCertificate(profile, issuer);
        };
        Pki made;
        made.root = issue("Sign Test Root", 1, true, 0, nullptr);
        made.ca = issue("Sign Test CA", 2, true, 1, &made.root);
        made.chained = issue("Chained Signer", 3, false, 2, &made.ca);
        made.direct = issue("Direct Signer", 4, false, 3, &made.root);
        made.expired = issue("Expired Signer", 5, false, 2, nullptr, UtcTime(2021, 1, 1));
        return made;
    }();
    return pki;
}

// The certificate with its private key.
X509Certificate SigningCertificate(const Issued& issued) {
    X509Certificate cert = Cert(issued);
    std::unique_ptr<CryptKey> key(CryptKey::CreateKey(issued.key.get()));
    cert.SetPrivateKey(key.get());
    return cert;
}

SignedCms Decoded(const Bytes& der) {
    SignedCms cms;
    cms.Decode(Array(der));
    return cms;
}

// `openssl cms -verify` of the DER message, with the test root and CA trusted.
bool OpensslVerifies(const ScratchDir& dir, const Bytes& message, const std::string& content = "",
                     const std::string& extra = "") {
    dir.Write("sig.der", message);
    dir.Write("anchors.pem", CertToPem(P().root.cert.get()) + CertToPem(P().ca.cert.get()));
    return dir.Openssl(
        "cms -verify -binary -inform DER -in sig.der -CAfile anchors.pem "
        "-purpose any -out verified.bin " +
        extra + (content.empty() ? "" : " -content " + content));
}

class SignTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_signer.SetCertificate(SigningCertificate(P().chained));
        m_signer.SetHashAlgorithm(CryptHash::cptHashSHA256);
        m_signer.SetIncludeOption(SignerCms::cptIncludeSignerCertificate);
        m_signer.SetAttributeOption(SignerCms::cptAttributeDefault);
        m_trust.AddCertificate(Cert(P().root));
        m_extra.AddCertificate(Cert(P().ca));
        m_signer.SetTrustStore(&m_trust);
        m_signer.SetExtraStore(&m_extra);
    }

    // Signs `text`, checks the estimate against the real size, returns the DER.
    Bytes SignAndMeasure(const std::string& text, int detached) {
        SignedCms cms(Array(text));
        const unsigned long estimate = cms.EstimateSize(m_signer, SignedCms::cptCmsBasic, detached);
        cms.Sign(m_signer, SignedCms::cptCmsBasic, detached);
        EXPECT_EQ(ERR_peek_error(), 0ul) << "signing leaves no OpenSSL error behind";
        const Bytes der = ToBytes(cms.Encode());
        EXPECT_EQ(estimate, der.size()) << "the estimate is the exact size (RSA key)";
        EXPECT_EQ(cms.GetVersion(), Decoded(der).GetVersion())
            << "the version read after signing is the encoded one";
        return der;
    }
    // The content, written for `openssl cms -content`.
    std::string ContentFile() const { return m_dir.Write("content.bin", m_text); }

    SignerCms m_signer;
    X509MemoryStore m_trust;
    X509MemoryStore m_extra;
    ScratchDir m_dir;
    const std::string m_text = std::string(1000, 'x') + std::string("\r\nbinary\0tail", 13);
};

// ------------------------------------------------------------ interop, sizes

TEST_F(SignTest, OpensslVerifiesEveryFormAndTheEstimateIsExact) {
    const std::string content = ContentFile();
    for (int detached : {0, 1}) {
        for (auto attributes : {SignerCms::cptAttributeDefault, SignerCms::cptAttributeNone}) {
            SCOPED_TRACE(std::string(detached ? "detached" : "attached") +
                         (attributes ? " with" : " without") + " signed attributes");
            m_signer.SetAttributeOption(attributes);
            const Bytes der = SignAndMeasure(m_text, detached);
            EXPECT_TRUE(OpensslVerifies(m_dir, der, detached ? content : "")) << m_dir.Output();
            if (!detached) {
                EXPECT_EQ(ReadBinaryFile(m_dir.Path("verified.bin")),
                          Bytes(m_text.begin(), m_text.end()))
                    << "the embedded content is the signed content, byte for byte";
            }
            const SignedCms decoded = Decoded(der);
            ASSERT_EQ(decoded.GetSignerInfoCount(), 1u) << "one signer";
            EXPECT_EQ(decoded.GetSignerInfo(0)->GetSigningTime() != 0, attributes != 0)
                << "a signing time only with signed attributes";
            EXPECT_EQ(CMS_signed_get_attr_count(FirstSigner(decoded.GetCms())) == -1,
                      attributes == 0)
                << "without attributes no signed-attribute set at all";
        }
    }
}

TEST_F(SignTest, IncludeOptionsChooseTheCertificates) {
    const struct {
        const Issued* signer;
        SignerCms::cptIncludeOption option;
        bool extraList;        // Direct Signer in the signer's certificate list
        const char* expected;  // common names, sorted
    } cases[] = {
        {&P().chained, SignerCms::cptIncludeNone, false, ""},
        {&P().chained, SignerCms::cptIncludeNone, true, "Direct Signer;"},
        {&P().chained, SignerCms::cptIncludeChainWithoutRoot, false,
         "Chained Signer;Sign Test CA;"},
        {&P().chained, SignerCms::cptIncludeWholeChain, false,
         "Chained Signer;Sign Test CA;Sign Test Root;"},
        // Issued by the anchor: only the signer, or the anchor too.
        {&P().direct, SignerCms::cptIncludeChainWithoutRoot, false, "Direct Signer;"},
        {&P().direct, SignerCms::cptIncludeWholeChain, false, "Direct Signer;Sign Test Root;"},
    };
    m_dir.Write("signer.pem", CertToPem(P().chained.cert.get()));
    for (const auto& c : cases) {
        SCOPED_TRACE("include option " + std::to_string(c.option) +
                     (c.signer == &P().direct ? ", Direct Signer" : ""));
        m_signer.SetCertificate(SigningCertificate(*c.signer));
        m_signer.SetIncludeOption(c.option);
        const X509Certificate direct = Cert(P().direct);
        m_signer.SetCertificates(qorstd::QorVector<X509Certificate>(&direct, c.extraList ? 1 : 0));
        const Bytes der = SignAndMeasure(m_text, 0);
        const SignedCms decoded = Decoded(der);
        std::vector<std::string> subjects;
        for (unsigned int i = 0; i < decoded.GetCertificates().GetSize(); ++i) {
            const std::wstring subject =
                decoded.GetCertificates()[i].GetSubjectStringX500(0).c_str();
            subjects.emplace_back(subject.begin() + subject.find(L"CN=") + 3, subject.end());
        }
        std::sort(subjects.begin(), subjects.end());
        std::string names;
        for (const std::string& name : subjects) {
            names += name + ";";
        }
        EXPECT_EQ(names, c.expected) << "the certificates carried";
        EXPECT_TRUE(OpensslVerifies(m_dir, der, "", "-certfile signer.pem")) << m_dir.Output();
    }
}

// ------------------------------------------------------------- attributes

TEST_F(SignTest, SignDigestMakesADetachedMessageOverTheCallersDigest) {
    SignedCms cms;
    EXPECT_EQ(CodeOf([&] { cms.SignDigest(m_signer, SignedCms::cptCmsBasic, {}); }),
              ErrInvalidParameter)
        << "an empty hash";
    SignerCms sha1 = m_signer;
    sha1.SetHashAlgorithm(CryptHash::cptHashSHA1);
    EXPECT_EQ(CodeOf([&] { cms.SignDigest(sha1, SignedCms::cptCmsBasic, Array(Bytes(32, 7))); }),
              ErrHashMismatch)
        << "a 32-byte hash for a SHA-1 signer";

    const std::string content = ContentFile();
    for (auto attributes : {SignerCms::cptAttributeDefault, SignerCms::cptAttributeNone}) {
        m_signer.SetAttributeOption(attributes);
        cms.SignDigest(m_signer, SignedCms::cptCmsBasic,
                       Array(TestTsa::Digest(EVP_sha256(), m_text)));
        EXPECT_EQ(cms.IsDetached(), 1) << "always detached";
        EXPECT_TRUE(OpensslVerifies(m_dir, ToBytes(cms.Encode()), content))
            << "the digest stands for the content: " << m_dir.Output();
    }
}

// ------------------------------------------------------------------ co-signing

TEST_F(SignTest, CoSignAddsSignersBesideOpensslsOwnButNotOverOtherContent) {
    ContentFile();
    m_dir.Write("direct.pem", CertToPem(P().direct.cert.get()));
    m_dir.Write("direct.key", KeyToPem(P().direct.key.get()));
    ASSERT_TRUE(
        m_dir.Openssl("cms -sign -binary -nodetach -outform DER -in content.bin "
                      "-signer direct.pem -inkey direct.key -out openssl.der"))
        << m_dir.Output();

    SignedCms cms = Decoded(ReadBinaryFile(m_dir.Path("openssl.der")));
    cms.CoSign(m_signer);
    ASSERT_EQ(cms.GetSignerInfoCount(), 2u) << "OpenSSL's signer and ours";
    EXPECT_EQ(cms.GetCertificates().GetSize(), 2u) << "both signer certificates are carried";
    EXPECT_TRUE(OpensslVerifies(m_dir, ToBytes(cms.Encode())))
        << "openssl verifies every signer: " << m_dir.Output();

    // The same signer again: its certificate is in the message already.
    cms.CoSign(m_signer);
    EXPECT_EQ(cms.GetSignerInfoCount(), 3u) << "a third signer";
    EXPECT_EQ(cms.GetCertificates().GetSize(), 2u) << "the signer certificate is not added twice";

    const Bytes before = ToBytes(cms.Encode());
    cms.SetContent(Array(m_text + "!"));
    EXPECT_EQ(CodeOf([&] { cms.CoSign(m_signer); }), ErrSigning)
        << "content differing from the embedded content";
    EXPECT_EQ(ToBytes(cms.Encode()), before) << "the held message is unchanged";

    SignedCms detached(Array(m_text));
    detached.Sign(m_signer, SignedCms::cptCmsBasic, 1);
    m_signer.SetAttributeOption(SignerCms::cptAttributeNone);
    detached.CoSign(m_signer);
    EXPECT_TRUE(OpensslVerifies(m_dir, ToBytes(detached.Encode()), ContentFile()))
        << "a detached message co-signed without attributes: " << m_dir.Output();
}

// ------------------------------------------------------------------- estimate

TEST_F(SignTest, EstimateForTimeStampsAndDetachedContent) {
    SignedCms small(Array("a"));
    SignedCms large(Array(std::string(100000, 'b')));
    const unsigned long basic = small.EstimateSize(m_signer, SignedCms::cptCmsBasic, 1);
    EXPECT_EQ(small.EstimateSize(m_signer, SignedCms::cptCmsTimeStamp, 1), basic + 4000)
        << "room for a time-stamp token";
    EXPECT_EQ(large.EstimateSize(m_signer, SignedCms::cptCmsBasic, 1), basic)
        << "detached: the content length does not count";
    EXPECT_EQ(SignedCms().EstimateSize(m_signer, SignedCms::cptCmsBasic, 1), basic)
        << "detached: no content needed";
    EXPECT_EQ(CodeOf([&] { SignedCms().EstimateSize(m_signer, SignedCms::cptCmsBasic, 0); }),
              ErrNoContent)
        << "attached without content";
}

// ------------------------------------------------------------------ failures

TEST_F(SignTest, SignerProblemsAreReportedBeforeSigning) {
    SignedCms cms(Array(m_text));
    const auto sign = [&](const SignerCms& signer, SignedCms::cptCmsType type) {
        return CodeOf([&] { cms.Sign(signer, type, 0); });
    };
    const auto verifying = [&](X509Certificate::cptVerifyOption option, bool trust) {
        SignerCms signer = m_signer;
        signer.SetVerifyOption(option);
        signer.SetTrustStore(trust ? &m_trust : nullptr);
        return signer;
    };
    const auto basic = SignedCms::cptCmsBasic;
    EXPECT_EQ(sign(SignerCms(), basic), ErrSignerCertNotSet) << "no certificate";
    EXPECT_EQ(sign(SignerCms(Cert(P().chained)), basic), ErrSignerKeyUnusable) << "no key";
    EXPECT_EQ(sign(SignerCms(SigningCertificate(P().expired)), basic), ErrCertNotTimeValid)
        << "expired";
    EXPECT_EQ(sign(verifying(X509Certificate::cptVerifyWholeChain, false), basic),
              ErrInvalidParameter)
        << "path building needs the trust store";
    EXPECT_EQ(sign(verifying(X509Certificate::cptVerifyWholeChain, true), basic), 0)
        << "the path to the root is found through the extra store";
    EXPECT_EQ(sign(verifying(X509Certificate::cptVerifyIssuerSignature, true), basic), 0)
        << "the issuer's signature checks out";
    EXPECT_EQ(CodeOf([&] { SignedCms().Sign(m_signer, basic, 0); }), ErrNoContent)
        << "no content to sign";
    EXPECT_EQ(CodeOf([&] { SignedCms().CoSign(m_signer); }), ErrNoMessage) << "nothing to co-sign";
    EXPECT_EQ(sign(m_signer, SignedCms::cptCmsTimeStamp), ErrInvalidParameter)
        << "a time-stamp without a time-stamp client";
}

// A key whose private operation fails the way a token reports it: the
// PKCS #11 return value as reason of a library numbered at run time.
int g_failureReason = 0;
int FailingOperation(int, const unsigned char*, unsigned char*, RSA*, int) {
    static const int library = ERR_get_next_error_library();
    ERR_raise_data(library, g_failureReason, "token refused");
    return -1;
}

TEST_F(SignTest, TokenFailuresMapToTheirCodes) {
    const KeyPtr publicKey(X509_get_pubkey(P().chained.cert.get()));
    CryptKeyRSA key(publicKey.get());
    key.SetPrivateEncryptCallback(FailingOperation);
    X509Certificate cert = Cert(P().chained);
    cert.SetPrivateKey(&key);
    m_signer.SetCertificate(cert);

    const std::pair<int, int> cases[] = {{0xA0, ErrWrongPin},
                                         {0xA4, ErrPinBlocked},
                                         {0x50, ErrUserAborted},
                                         {0x70, ErrAlgorithmNotSupported},
                                         {0x05, ErrSigning}};
    for (auto attributes : {SignerCms::cptAttributeDefault, SignerCms::cptAttributeNone}) {
        m_signer.SetAttributeOption(attributes);
        for (const auto& c : cases) {
            g_failureReason = c.first;
            SignedCms cms(Array(m_text));
            EXPECT_EQ(CodeOf([&] { cms.Sign(m_signer, SignedCms::cptCmsBasic, 0); }), c.second)
                << "CK_RV 0x" << std::hex << c.first << (attributes ? " (attributes)" : "");
            EXPECT_EQ(ERR_peek_error(), 0ul) << "nothing is left queued";
        }
    }
}

}  // namespace
