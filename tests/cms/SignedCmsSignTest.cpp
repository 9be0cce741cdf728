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
#include <openssl/x509.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "CryptException.h"
#include "CryptHash.h"
#include "CryptKey.h"
#include "SignedCms.h"
#include "SignerCms.h"
#include "TestPki.h"
#include "X509Store.h"

using namespace TesseraLib;
using tessera_test::CertSpec;
using tessera_test::Issued;
using tessera_test::KeyKind;
using Bytes = std::vector<unsigned char>;

namespace {

// ------------------------------------------------------------------ helpers

struct Pki {
    Issued root, ca, chained, direct, expired;
};

CertSpec Profile(const std::string& name, long serial, bool ca) {
    CertSpec profile;
    profile.commonName = name;
    profile.serial = serial;
    profile.notAfter = tessera_test::UtcTime(2049, 12, 31);
    profile.extensions = ca ? tessera_test::CaExtensions()
                            : std::vector<std::pair<std::string, std::string>>{
                                  {"keyUsage", "critical,digitalSignature,nonRepudiation"}};
    return profile;
}

const Pki& TestPki() {
    static const Pki pki = [] {
        Pki made;
        std::vector<tessera_test::KeyPtr> keys;
        auto issue = [&keys](CertSpec profile, int slot, const Issued* issuer) {
            keys.push_back(tessera_test::CachedKey(KeyKind::Rsa2048, slot));
            profile.key = keys.back().get();
            return tessera_test::IssueCertificate(profile, issuer);
        };
        made.root = issue(Profile("Sign Test Root", 1, true), 0, nullptr);
        made.ca = issue(Profile("Sign Test CA", 2, true), 1, &made.root);
        made.chained = issue(Profile("Chained Signer", 3, false), 2, &made.ca);
        made.direct = issue(Profile("Direct Signer", 4, false), 3, &made.root);
        CertSpec expired = Profile("Expired Signer", 5, false);
        expired.notAfter = tessera_test::UtcTime(2021, 1, 1);
        made.expired = issue(expired, 2, nullptr);
        return made;
    }();
    return pki;
}

Bytes Der(const Issued& issued) {
    return tessera_test::CertToDer(issued.cert.get());
}

X509Certificate Certificate(const Issued& issued) {
    const Bytes der = Der(issued);
    return X509Certificate(der.data(), static_cast<long>(der.size()));
}

// The certificate with its private key.
X509Certificate SigningCertificate(const Issued& issued) {
    X509Certificate cert = Certificate(issued);
    std::unique_ptr<CryptKey> key(CryptKey::CreateKey(issued.key.get()));
    cert.SetPrivateKey(key.get());
    return cert;
}

qorstd::QorArray<unsigned char> Array(const std::string& text) {
    return qorstd::QorArray<unsigned char>(reinterpret_cast<const unsigned char*>(text.data()),
                                           static_cast<unsigned int>(text.size()));
}

Bytes ToBytes(const qorstd::QorArray<unsigned char>& array) {
    return Bytes(array.GetData(), array.GetData() + array.GetSize());
}

int ErrorCodeOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const CryptException& e) {
        return e.GetErrorCode();
    }
    return 0;
}

// A scratch directory for the openssl command, removed with the object.
class Scratch {
public:
    Scratch() {
        char pattern[] = "/tmp/tessera-cmssign-XXXXXX";
        m_dir = mkdtemp(pattern) != nullptr ? pattern : "";
    }
    ~Scratch() { std::system(("rm -rf '" + m_dir + "'").c_str()); }
    std::string Path(const std::string& name) const { return m_dir + "/" + name; }
    std::string Write(const std::string& name, const Bytes& bytes) const {
        tessera_test::WriteTextFile(Path(name), std::string(bytes.begin(), bytes.end()));
        return Path(name);
    }
    // Runs `openssl ARGS` in the directory, bounded in time; true on exit 0.
    bool Openssl(const std::string& args) const {
        const std::string command = "cd '" + m_dir + "' && timeout 30 openssl " + args +
                                    " >/dev/null 2>'" + Path("openssl.err") + "'";
        return std::system(command.c_str()) == 0;
    }
    std::string Errors() const {
        const Bytes text = tessera_test::ReadBinaryFile(Path("openssl.err"));
        return std::string(text.begin(), text.end());
    }

private:
    std::string m_dir;
};

// `openssl cms -verify` of the DER message, with the test root and CA trusted.
bool OpensslVerifies(const Scratch& dir, const Bytes& message, const std::string& content,
                     const std::string& extra = "") {
    dir.Write("sig.der", message);
    tessera_test::WriteTextFile(dir.Path("anchors.pem"),
                                tessera_test::CertToPem(TestPki().root.cert.get()) +
                                    tessera_test::CertToPem(TestPki().ca.cert.get()));
    std::string args = "cms -verify -binary -inform DER -in sig.der -CAfile anchors.pem " + extra +
                       " -out verified.bin";
    if (!content.empty()) {
        args += " -content " + content;
    }
    return dir.Openssl(args);
}

class SignTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_signer.SetCertificate(SigningCertificate(TestPki().chained));
        m_signer.SetHashAlgorithm(CryptHash::cptHashSHA256);
        m_signer.SetIncludeOption(SignerCms::cptIncludeSignerCertificate);
        m_signer.SetAttributeOption(SignerCms::cptAttributeDefault);
        m_trust.AddCertificate(Certificate(TestPki().root));
        m_extra.AddCertificate(Certificate(TestPki().ca));
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
        SignedCms decoded;
        decoded.Decode(der.data(), static_cast<long>(der.size()));
        EXPECT_EQ(cms.GetVersion(), decoded.GetVersion())
            << "the version read after signing is the encoded one";
        return der;
    }

    SignerCms m_signer;
    X509MemoryStore m_trust;
    X509MemoryStore m_extra;
    const std::string m_text = std::string(1000, 'x') + std::string("\r\nbinary\0tail", 13);
};

// ------------------------------------------------------------ interop, sizes

TEST_F(SignTest, OpensslVerifiesEveryFormAndTheEstimateIsExact) {
    Scratch dir;
    const std::string content = dir.Write("content.bin", Bytes(m_text.begin(), m_text.end()));
    for (int detached : {0, 1}) {
        for (auto attributes : {SignerCms::cptAttributeDefault, SignerCms::cptAttributeNone}) {
            SCOPED_TRACE(std::string(detached ? "detached" : "attached") +
                         (attributes ? " with" : " without") + " signed attributes");
            m_signer.SetAttributeOption(attributes);
            const Bytes der = SignAndMeasure(m_text, detached);
            EXPECT_TRUE(OpensslVerifies(dir, der, detached ? content : "", "-purpose any"))
                << dir.Errors();
            if (!detached) {
                EXPECT_EQ(tessera_test::ReadBinaryFile(dir.Path("verified.bin")),
                          Bytes(m_text.begin(), m_text.end()))
                    << "the embedded content is the signed content, byte for byte";
            }
            SignedCms decoded;
            decoded.Decode(der.data(), static_cast<long>(der.size()));
            ASSERT_EQ(decoded.GetSignerInfoCount(), 1u) << "one signer";
            EXPECT_EQ(decoded.GetSignerInfo(0)->GetSigningTime() != 0, attributes != 0)
                << "a signing time only with signed attributes";
        }
    }
}

TEST_F(SignTest, IncludeOptionsChooseTheCertificates) {
    // option, extra list, subjects expected in the message
    struct Case {
        SignerCms::cptIncludeOption option;
        bool extraList;
        std::vector<std::string> expected;
    } cases[] = {
        {SignerCms::cptIncludeNone, false, {}},
        {SignerCms::cptIncludeNone, true, {"Direct Signer"}},
        {SignerCms::cptIncludeChainWithoutRoot, false, {"Chained Signer", "Sign Test CA"}},
        {SignerCms::cptIncludeWholeChain,
         false,
         {"Chained Signer", "Sign Test CA", "Sign Test Root"}},
    };
    Scratch dir;
    tessera_test::WriteTextFile(dir.Path("signer.pem"),
                                tessera_test::CertToPem(TestPki().chained.cert.get()));
    for (const Case& c : cases) {
        SCOPED_TRACE("include option " + std::to_string(c.option));
        m_signer.SetIncludeOption(c.option);
        qorstd::QorVector<X509Certificate> extra;
        if (c.extraList) {
            extra.Add(Certificate(TestPki().direct));
        }
        m_signer.SetCertificates(extra);
        const Bytes der = SignAndMeasure(m_text, 0);
        SignedCms decoded;
        decoded.Decode(der.data(), static_cast<long>(der.size()));
        std::vector<std::string> subjects;
        for (unsigned int i = 0; i < decoded.GetCertificates().GetSize(); ++i) {
            const std::wstring subject =
                decoded.GetCertificates()[i].GetSubjectStringX500(0).c_str();
            subjects.push_back(
                std::string(subject.begin() + subject.find(L"CN=") + 3, subject.end()));
        }
        std::sort(subjects.begin(), subjects.end());
        EXPECT_EQ(subjects, c.expected) << "the certificates carried";
        EXPECT_TRUE(OpensslVerifies(dir, der, "", "-purpose any -certfile signer.pem"))
            << dir.Errors();
    }
}

TEST_F(SignTest, ChainOptionsForACertificateIssuedByTheAnchor) {
    //   Sign Test Root ── Direct Signer
    m_signer.SetCertificate(SigningCertificate(TestPki().direct));
    const std::pair<SignerCms::cptIncludeOption, unsigned int> cases[] = {
        {SignerCms::cptIncludeChainWithoutRoot, 1u}, {SignerCms::cptIncludeWholeChain, 2u}};
    for (const auto& c : cases) {
        m_signer.SetIncludeOption(c.first);
        const Bytes der = SignAndMeasure(m_text, 1);
        SignedCms decoded;
        decoded.Decode(der.data(), static_cast<long>(der.size()));
        EXPECT_EQ(decoded.GetCertificates().GetSize(), c.second)
            << "option 2: only the signer; option 3: the anchor too";
    }
}

// ------------------------------------------------------------- attributes

TEST_F(SignTest, WithoutAttributesTheContentDigestIsSigned) {
    m_signer.SetAttributeOption(SignerCms::cptAttributeNone);
    SignedCms cms(Array(m_text));
    cms.Sign(m_signer, SignedCms::cptCmsBasic, 1);
    CMS_SignerInfo* si = sk_CMS_SignerInfo_value(CMS_get0_SignerInfos(cms.GetCms()), 0);
    EXPECT_EQ(CMS_signed_get_attr_count(si), -1) << "no signed-attribute set at all";

    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(m_text.data(), m_text.size(), digest, &length, EVP_sha256(), nullptr);
    const qorstd::QorArray<unsigned char>& signature = cms.GetSignerInfo(0)->GetSignatureValue();
    std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> verify(
        EVP_PKEY_CTX_new(X509_get0_pubkey(TestPki().chained.cert.get()), nullptr),
        EVP_PKEY_CTX_free);
    ASSERT_EQ(EVP_PKEY_verify_init(verify.get()), 1);
    ASSERT_EQ(EVP_PKEY_CTX_set_signature_md(verify.get(), EVP_sha256()), 1);
    EXPECT_EQ(
        EVP_PKEY_verify(verify.get(), signature.GetData(), signature.GetSize(), digest, length), 1)
        << "the signature is the key's signature of the content's SHA-256";
}

TEST_F(SignTest, SignDigestMakesADetachedMessageOverTheCallersDigest) {
    SignedCms cms;
    EXPECT_EQ(ErrorCodeOf([&] { cms.SignDigest(m_signer, SignedCms::cptCmsBasic, {}); }),
              ErrInvalidParameter)
        << "an empty hash";
    SignerCms sha1 = m_signer;
    sha1.SetHashAlgorithm(CryptHash::cptHashSHA1);
    const qorstd::QorArray<unsigned char> digest32(std::vector<unsigned char>(32, 7).data(), 32);
    EXPECT_EQ(ErrorCodeOf([&] { cms.SignDigest(sha1, SignedCms::cptCmsBasic, digest32); }),
              ErrHashMismatch)
        << "a 32-byte hash for a SHA-1 signer";

    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(m_text.data(), m_text.size(), digest, &length, EVP_sha256(), nullptr);
    Scratch dir;
    const std::string content = dir.Write("content.bin", Bytes(m_text.begin(), m_text.end()));
    for (auto attributes : {SignerCms::cptAttributeDefault, SignerCms::cptAttributeNone}) {
        m_signer.SetAttributeOption(attributes);
        cms.SignDigest(m_signer, SignedCms::cptCmsBasic,
                       qorstd::QorArray<unsigned char>(digest, length));
        EXPECT_EQ(cms.IsDetached(), 1) << "always detached";
        EXPECT_TRUE(OpensslVerifies(dir, ToBytes(cms.Encode()), content, "-purpose any"))
            << "the digest stands for the content: " << dir.Errors();
    }
}

// ------------------------------------------------------------------ co-signing

TEST_F(SignTest, CoSignAddsASignerThatOpensslAcceptsBesideItsOwn) {
    Scratch dir;
    const Pki& pki = TestPki();
    dir.Write("content.bin", Bytes(m_text.begin(), m_text.end()));
    tessera_test::WriteTextFile(dir.Path("direct.pem"),
                                tessera_test::CertToPem(pki.direct.cert.get()));
    tessera_test::WriteTextFile(dir.Path("direct.key"),
                                tessera_test::KeyToPem(pki.direct.key.get()));
    ASSERT_TRUE(
        dir.Openssl("cms -sign -binary -nodetach -outform DER -in content.bin "
                    "-signer direct.pem -inkey direct.key -out openssl.der"))
        << dir.Errors();
    const Bytes made = tessera_test::ReadBinaryFile(dir.Path("openssl.der"));

    SignedCms cms;
    cms.Decode(made.data(), static_cast<long>(made.size()));
    cms.CoSign(m_signer);
    ASSERT_EQ(cms.GetSignerInfoCount(), 2u) << "OpenSSL's signer and ours";
    EXPECT_EQ(cms.GetCertificates().GetSize(), 2u) << "both signer certificates are carried";
    EXPECT_TRUE(OpensslVerifies(dir, ToBytes(cms.Encode()), "", "-purpose any"))
        << "openssl verifies every signer: " << dir.Errors();

    // The same signer again: its certificate is in the message already.
    cms.CoSign(m_signer);
    EXPECT_EQ(cms.GetSignerInfoCount(), 3u) << "a third signer";
    EXPECT_EQ(cms.GetCertificates().GetSize(), 2u) << "the signer certificate is not added twice";
}

TEST_F(SignTest, CoSignRefusesOtherContentAndKeepsTheMessage) {
    SignedCms cms(Array(m_text));
    cms.Sign(m_signer, SignedCms::cptCmsBasic, 0);
    const Bytes before = ToBytes(cms.Encode());
    cms.SetContent(Array(m_text + "!"));
    EXPECT_EQ(ErrorCodeOf([&] { cms.CoSign(m_signer); }), ErrSigning)
        << "content differing from the embedded content";
    EXPECT_EQ(ToBytes(cms.Encode()), before) << "the held message is unchanged";

    SignedCms detached(Array(m_text));
    detached.Sign(m_signer, SignedCms::cptCmsBasic, 1);
    m_signer.SetAttributeOption(SignerCms::cptAttributeNone);
    detached.CoSign(m_signer);
    Scratch dir;
    const std::string content = dir.Write("content.bin", Bytes(m_text.begin(), m_text.end()));
    EXPECT_TRUE(OpensslVerifies(dir, ToBytes(detached.Encode()), content, "-purpose any"))
        << "a detached message co-signed without attributes: " << dir.Errors();
}

// ------------------------------------------------------------------- estimate

TEST_F(SignTest, EstimateForTimeStampsAndDetachedContent) {
    SignedCms small(Array("a"));
    SignedCms large(Array(std::string(100000, 'b')));
    const unsigned long basic = small.EstimateSize(m_signer, SignedCms::cptCmsBasic, 1);
    EXPECT_GT(basic, 0u);
    EXPECT_EQ(small.EstimateSize(m_signer, SignedCms::cptCmsTimeStamp, 1), basic + 4000)
        << "room for a time-stamp token";
    EXPECT_EQ(large.EstimateSize(m_signer, SignedCms::cptCmsBasic, 1), basic)
        << "detached: the content length does not count";
    EXPECT_EQ(SignedCms().EstimateSize(m_signer, SignedCms::cptCmsBasic, 1), basic)
        << "detached: no content needed";
    EXPECT_EQ(ErrorCodeOf([&] { SignedCms().EstimateSize(m_signer, SignedCms::cptCmsBasic, 0); }),
              ErrNoContent)
        << "attached without content";
}

// ------------------------------------------------------------------ failures

TEST_F(SignTest, SignerProblemsAreReportedBeforeSigning) {
    SignedCms cms(Array(m_text));
    SignerCms noKey(Certificate(TestPki().chained));
    SignerCms expired(SigningCertificate(TestPki().expired));
    SignerCms noTrust = m_signer;
    noTrust.SetTrustStore(nullptr);
    noTrust.SetVerifyOption(X509Certificate::cptVerifyWholeChain);
    SignerCms chain = m_signer;
    chain.SetVerifyOption(X509Certificate::cptVerifyWholeChain);
    SignerCms issuer = m_signer;
    issuer.SetVerifyOption(X509Certificate::cptVerifyIssuerSignature);

    EXPECT_EQ(ErrorCodeOf([&] { cms.Sign(SignerCms(), SignedCms::cptCmsBasic, 0); }),
              ErrSignerCertNotSet);
    EXPECT_EQ(ErrorCodeOf([&] { cms.Sign(noKey, SignedCms::cptCmsBasic, 0); }),
              ErrSignerKeyUnusable);
    EXPECT_EQ(ErrorCodeOf([&] { cms.Sign(expired, SignedCms::cptCmsBasic, 0); }),
              ErrCertNotTimeValid);
    EXPECT_EQ(ErrorCodeOf([&] { cms.Sign(noTrust, SignedCms::cptCmsBasic, 0); }),
              ErrInvalidParameter)
        << "path building needs the trust store";
    EXPECT_EQ(ErrorCodeOf([&] { cms.Sign(chain, SignedCms::cptCmsBasic, 0); }), 0)
        << "the path to the root is found through the extra store";
    EXPECT_EQ(ErrorCodeOf([&] { cms.Sign(issuer, SignedCms::cptCmsBasic, 0); }), 0)
        << "the issuer's signature checks out";
    EXPECT_EQ(ErrorCodeOf([&] { SignedCms().Sign(m_signer, SignedCms::cptCmsBasic, 0); }),
              ErrNoContent);
    EXPECT_EQ(ErrorCodeOf([&] { SignedCms().CoSign(m_signer); }), ErrNoMessage);
    EXPECT_EQ(ErrorCodeOf([&] { cms.Sign(m_signer, SignedCms::cptCmsTimeStamp, 0); }),
              ErrNotImplemented)
        << "signature time-stamps are not there yet";
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
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> publicKey(
        X509_get_pubkey(TestPki().chained.cert.get()), EVP_PKEY_free);
    CryptKeyRSA key(publicKey.get());
    key.SetPrivateEncryptCallback(FailingOperation);
    X509Certificate cert = Certificate(TestPki().chained);
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
            EXPECT_EQ(ErrorCodeOf([&] { cms.Sign(m_signer, SignedCms::cptCmsBasic, 0); }), c.second)
                << "CK_RV 0x" << std::hex << c.first << (attributes ? " (attributes)" : "");
            EXPECT_EQ(ERR_peek_error(), 0ul) << "nothing is left queued";
        }
    }
}

}  // namespace
