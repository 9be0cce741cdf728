// CAdES signatures through the public interface: what our BES and EPES
// signers carry and what OpenSSL makes of them, OpenSSL's -cades output and
// the public samples read by us, the policy rules applied during
// verification, and the order in which failures are reported. Checks run at
// a pinned time. The PKI:
//
//   CAdES Root (RSA) ............. trust anchor; CRL 2024-06-10 .. 2024-07-10
//    ├── Alice    RSA-2048  serial 11
//    ├── Bob      RSA-2048  serial 12
//    └── Revoked  RSA-2048  serial 13, on the CRL since 2024-06-01 12:00
#include <gtest/gtest.h>
#include <openssl/cms.h>
#include <openssl/objects.h>

#include <algorithm>
#include <memory>
#include <string>

#include "SignaturePolicy.h"
#include "SignaturePolicyClient.h"
#include "SignedCades.h"
#include "TestCms.h"
#include "TestPolicy.h"
#include "TestTessera.h"
#include "TestTsa.h"

using namespace TesseraLib;
using namespace tessera_test;

namespace {

const std::int64_t kAt = UtcTime(2024, 6, 15, 12);
const std::string kText = "CAdES content\n";

Issued Make(const char* name, long serial, int slot, const Issued* issuer) {
    CertPlan plan = BasicProfile(name, serial, issuer == nullptr);
    const KeyPtr key = CachedKey(KeyKind::Rsa2048, slot);
    plan.key = key.get();
    return IssueCertificate(plan, issuer);
}

struct Pki {
    Issued root = Make("CAdES Root", 1, 0, nullptr);
    Issued alice = Make("Alice", 11, 1, &root), bob = Make("Bob", 12, 2, &root),
           revoked = Make("Revoked", 13, 3, &root);
    CrlPtr crl = IssueCrl(root, UtcTime(2024, 6, 10), UtcTime(2024, 7, 10),
                          {RevokedEntry{13, UtcTime(2024, 6, 1, 12)}});
};

const Pki& P() {
    static const Pki pki;
    return pki;
}

X509Certificate WithKey(const Issued& issued) {
    X509Certificate cert = Cert(issued);
    std::unique_ptr<CryptKey> key(CryptKey::CreateKey(issued.key.get()));
    cert.SetPrivateKey(key.get());
    return cert;
}

SignerCades Signer(const Issued& who, CryptHash::cptHashAlgorithm hash = CryptHash::cptHashNone) {
    SignerCades signer(WithKey(who));
    signer.SetIncludeOption(SignerCms::cptIncludeSignerCertificate);
    signer.SetAttributeOption(SignerCms::cptAttributeDefault);
    signer.SetHashAlgorithm(hash);
    return signer;
}

Bytes Sign(const SignerCades& signer, SignedCades::cptCadesType type, int detached = 0) {
    SignedCades cades(Array(kText));
    cades.Sign(signer, type, detached);
    const qorstd::QorArray<unsigned char> der = cades.Encode();
    return Bytes(der.GetData(), der.GetData() + der.GetSize());
}

std::unique_ptr<SignedCades> Decoded(const Bytes& der) {
    auto cades = std::make_unique<SignedCades>();
    cades->Decode(Array(der));
    return cades;
}

bool HasSigned(const SignedCades& cades, int nid) {
    return CMS_signed_get_attr_by_NID(
               const_cast<CMS_SignerInfo*>(cades.GetSignerInfo(0)->GetSigner()), nid, -1) >= 0;
}

// Trust in the root, the CRL at hand, revocation of the signer only.
struct Chain {
    X509MemoryStore trust, extra;
    X509ChainPolicy policy;
    VerifierCades verifier;
    explicit Chain(VerifierCms::cptVerifyOption option = VerifierCms::cptVerifyWholeChain) {
        trust.AddCertificate(Cert(P().root));
        extra.AddCrl(X509Crl(P().crl.get()));
        policy.SetTrustStore(&trust);
        policy.SetExtraStore(&extra);
        policy.SetRevocationOption(X509ChainPolicy::revOptionEndEntity);
        policy.SetChainBuildMode(X509ChainPolicy::cptChainBuildStores);
        verifier.SetVerifyOption(option);
        verifier.SetVerifyTime(kAt);
        verifier.SetChainPolicy(&policy);
    }
};

constexpr unsigned long kAllButTimeStamps = 1 | 2 | 4 | 16;

// `openssl cms -verify` of `der` with the root trusted and `options`.
bool OpensslVerifies(const Bytes& der, const std::string& options) {
    ScratchDir dir;
    dir.Write("sig.der", der);
    dir.Write("root.pem", CertToPem(P().root.cert.get()));
    const bool ok = dir.Openssl(
        "cms -verify -binary -inform DER -in sig.der -CAfile root.pem -purpose any "
        "-attime 1718452800 -out out.bin " +
        options);
    EXPECT_TRUE(ok) << dir.Output();
    return ok && ReadBinaryFile(dir.Path("out.bin")) == Bytes(kText.begin(), kText.end());
}

// A policy our test signatures satisfy: its issuer, dates, signer rules,
// a time-stamp trust condition and the algorithms of the test PKI.
PolicyPlan FittingPolicy() {
    PolicyPlan plan;
    plan.policyOid = "1.3.6.1.4.1.99999.7.1";
    plan.notAfter = UtcTime(2033, 3, 1);
    plan.commonRules.signerRules =
        SignerRulesPlan{std::nullopt,
                        {"1.2.840.113549.1.9.3", "1.2.840.113549.1.9.4",
                         "1.2.840.113549.1.9.16.2.47", "1.2.840.113549.1.9.16.2.15"},
                        {},
                        1,
                        1,
                        std::nullopt};
    plan.commonRules.verifierRules = VerifierRulesPlan{};
    plan.commonRules.timeStampTrust = TimeStampTrustPlan{};
    const std::vector<AlgAndLengthPlan> rsaSha256 = {{"1.2.840.113549.1.1.11", 2048, {}}};
    plan.commonRules.algorithmConstraints = AlgorithmConstraintsPlan{
        std::vector<AlgAndLengthPlan>{{"2.16.840.1.101.3.4.2.1", std::nullopt, {}}}, rsaSha256,
        rsaSha256, std::nullopt, std::nullopt};
    plan.commitmentRules = {{{{true, {}, std::nullopt, std::nullopt}}, {}}};
    return plan;
}

class OnePolicyClient : public SignaturePolicyClient {
public:
    explicit OnePolicyClient(const SignaturePolicy& policy) : m_policy(policy) {}
    const SignaturePolicy* GetSignaturePolicy(const qorstd::QorString& oid) override {
        asked = oid.c_str();
        return &m_policy;
    }
    std::string asked;

private:
    const SignaturePolicy& m_policy;
};

}  // namespace

TEST(CadesSignTest, BesCarriesTheSigningCertificateAndOpensslAcceptsIt) {
    const Bytes der = Sign(Signer(P().alice), SignedCades::cptCadesBes);
    auto cades = Decoded(der);
    const SignedCades::SignerInfo& signer = *cades->GetSignerInfo(0);
    EXPECT_EQ(signer.GetCadesType(), SignedCades::cptCadesBes);
    ASSERT_EQ(signer.GetCadesLevelEstimate().GetSize(), 2u);
    EXPECT_EQ(signer.GetCadesLevelEstimate()[1], SignedCades::cptCadesLevelBaselineB);
    EXPECT_EQ(CMS_signed_get_attr_count(const_cast<CMS_SignerInfo*>(signer.GetSigner())), 4)
        << "content type, message digest, signing time, signing certificate v2";
    EXPECT_TRUE(HasSigned(*cades, NID_id_smime_aa_signingCertificateV2));
    EXPECT_EQ(signer.GetSignaturePolicy(), nullptr);
    EXPECT_EQ(signer.GetMimeType(), nullptr);
    EXPECT_TRUE(OpensslVerifies(der, "")) << "plain CMS verification";
    EXPECT_TRUE(OpensslVerifies(der, "-cades")) << "OpenSSL checks our signing-certificate-v2";

    Chain chain;
    cades->Verify(chain.verifier, SignedCades::cptCadesNone);
    EXPECT_EQ(signer.GetVerifyInfo(), kAllButTimeStamps);
    EXPECT_EQ(signer.GetPolicyInUse(), nullptr);

    auto sha1 = Decoded(Sign(Signer(P().alice, CryptHash::cptHashSHA1), SignedCades::cptCadesBes));
    EXPECT_TRUE(HasSigned(*sha1, NID_id_smime_aa_signingCertificate)) << "SHA-1 gives ESS v1";
    sha1->Verify(chain.verifier, SignedCades::cptCadesNone);

    SignerCades noTime = Signer(P().alice);
    noTime.SetAttributeOption(SignerCms::cptAttributeNone);
    auto plain = Decoded(Sign(noTime, SignedCades::cptCadesBes));
    EXPECT_FALSE(HasSigned(*plain, NID_pkcs9_signingTime)) << "attribute option none";
    EXPECT_TRUE(HasSigned(*plain, NID_pkcs9_messageDigest)) << "still signed attributes";
    plain->Verify(chain.verifier, SignedCades::cptCadesNone);
}

TEST(CadesSignTest, EpesPolicyMimeTypeEstimateAndCoSign) {
    const SignaturePolicy policy(
        Array(ReadBinaryFile(std::string(TESSERA_VECTORS_DIR) + "/policies/PA_AD_RB_v2_3.der")));
    SignerCades signer = Signer(P().alice);
    signer.SetSignaturePolicy(&policy);
    signer.SetMimeType(L"text/plain");
    SignedCades cades(Array(kText));
    unsigned long estimate = 0;
    const Thrown signing = Catch([&] {
        estimate = cades.EstimateSize(signer, SignedCades::cptCadesEpes, 0);
        cades.Sign(signer, SignedCades::cptCadesEpes, 0);
    });
    ASSERT_EQ(signing.code, 0) << signing.message;
    const SignedCades::SignerInfo& info = *cades.GetSignerInfo(0);
    EXPECT_EQ(info.GetCadesType(), SignedCades::cptCadesEpes);
    ASSERT_NE(info.GetSignaturePolicy(), nullptr);
    EXPECT_EQ(info.GetSignaturePolicy()->GetPolicyOID(), "2.16.76.1.7.1.1.2.3");
    EXPECT_TRUE(info.GetSignaturePolicy()->GetHashValue() == policy.GetHashValue())
        << "the policy's stored hash";
    ASSERT_NE(info.GetMimeType(), nullptr);
    EXPECT_EQ(info.GetMimeType()->GetMimeTypeString(), L"text/plain");

    const unsigned long mimeLength = 2 + 8 + 2 + 2 + 10;  // the MIME attribute is not counted
    EXPECT_EQ(estimate + mimeLength, cades.Encode().GetSize()) << "RSA sizes are exact";
    SignerCades withoutMime = signer;
    withoutMime.SetMimeType(L"");
    EXPECT_EQ(cades.EstimateSize(withoutMime, SignedCades::cptCadesEpes, 0), estimate);

    SignerCades bes = Signer(P().bob);
    bes.SetSignaturePolicy(&policy);
    cades.CoSign(bes, SignedCades::cptCadesBes);
    ASSERT_EQ(cades.GetSignerInfoCount(), 2u);
    int withPolicy = 0;
    for (unsigned int i = 0; i < 2; ++i) {
        withPolicy += cades.GetSignerInfo(i)->HasPolicyId();
    }
    EXPECT_EQ(withPolicy, 1) << "a BES co-signer adds no policy identifier";

    SignedCades none(Array(kText));
    const Thrown missing =
        Catch([&] { none.Sign(Signer(P().alice), SignedCades::cptCadesEpes, 0); });
    EXPECT_EQ(missing.code, ErrNoSignPolicy) << "EPES without a policy";
    EXPECT_EQ(none.GetCms(), nullptr) << "nothing was signed";
    const qorstd::QorArray<unsigned char> before = cades.Encode();
    cades.Upgrade(SignedCades::cptCadesEpes, nullptr);
    EXPECT_TRUE(cades.Encode() == before) << "an upgrade below T changes nothing";
}

TEST(CadesVerifyTest, OpensslCadesAndPublicSamplesReadAndVerify) {
    ScratchDir dir;
    dir.Write("content.bin", kText);
    dir.Write("alice.pem", CertToPem(P().alice.cert.get()));
    dir.Write("alice.key", KeyToPem(P().alice.key.get()));
    ASSERT_TRUE(
        dir.Openssl("cms -sign -cades -binary -nodetach -in content.bin -signer alice.pem "
                    "-inkey alice.key -outform DER -out sig.der"))
        << dir.Output();
    auto openssl = Decoded(ReadBinaryFile(dir.Path("sig.der")));
    EXPECT_EQ(openssl->GetSignerInfo(0)->GetCadesType(), SignedCades::cptCadesBes);
    Chain chain;
    openssl->Verify(chain.verifier, SignedCades::cptCadesNone);
    EXPECT_EQ(openssl->GetSignerInfo(0)->GetVerifyInfo(), kAllButTimeStamps);

    // The samples' certificates chain to nothing here: signature only.
    VerifierCades signatureOnly;
    signatureOnly.SetVerifyOption(VerifierCms::cptVerifyNone);
    const std::string cadesDir = std::string(TESSERA_VECTORS_DIR) + "/cades/";
    auto bes = Decoded(ReadBinaryFile(cadesDir + "cades-enveloping.pkcs7"));
    EXPECT_EQ(bes->GetSignerInfo(0)->GetCadesType(), SignedCades::cptCadesBes);
    bes->Verify(signatureOnly, SignedCades::cptCadesNone);
    EXPECT_EQ(bes->GetSignerInfo(0)->GetVerifyInfo(), 1u | 4u | 16u);

    const Bytes epesDer = ReadBinaryFile(cadesDir + "cades-extended-epes-sig-pol-store.pkcs7");
    auto epes = Decoded(epesDer);
    const SignedCades::SignerInfo& signer = *epes->GetSignerInfo(0);
    EXPECT_EQ(signer.GetCadesType(), SignedCades::cptCadesEpes);
    ASSERT_NE(signer.GetSignaturePolicy(), nullptr);
    EXPECT_EQ(signer.GetSignaturePolicy()->GetPolicyOID(), "1.2.3.4.5.6");
    EXPECT_EQ(signer.GetSignaturePolicy()->GetQualifiers()[0].GetURI(), "http://spuri.test");
    epes->Verify(signatureOnly, SignedCades::cptCadesNone);

    // The policy document in the sigPolicyStore attribute is the file
    // beside it: its hash matches under the fields convention, but it names
    // another policy than the signature does.
    const Bytes document =
        ReadBinaryFile(std::string(TESSERA_VECTORS_DIR) + "/policies/signature-policy.der");
    EXPECT_NE(std::search(epesDer.begin(), epesDer.end(), document.begin(), document.end()),
              epesDer.end())
        << "the stored document is byte-identical to signature-policy.der";
    const SignaturePolicy stored(Array(document));
    EXPECT_EQ(stored.MatchHash(signer.GetSignaturePolicy()->GetHashAlgorithmNID(),
                               signer.GetSignaturePolicy()->GetHashValue()),
              SignaturePolicy::cptHashMatchFields);
    VerifierCades withPolicy = signatureOnly;
    withPolicy.SetCheckSignaturePolicy(1);
    withPolicy.SetSignaturePolicy(&stored);
    EXPECT_EQ(CodeOf([&] { epes->Verify(withPolicy, SignedCades::cptCadesNone); }),
              ErrPolicyOidMismatch);
}

TEST(CadesVerifyTest, PolicyRulesAreAppliedAfterThePath) {
    PolicyPlan plan = FittingPolicy();
    const SignaturePolicy policy(Array(PolicyDer(plan)));
    SignerCades signer = Signer(P().alice);
    signer.SetSignaturePolicy(&policy);
    auto cades = Decoded(Sign(signer, SignedCades::cptCadesEpes));
    const SignedCades::SignerInfo& info = *cades->GetSignerInfo(0);

    Chain chain;
    chain.verifier.SetCheckSignaturePolicy(1);
    OnePolicyClient client(policy);
    chain.verifier.SetSignaturePolicyClient(&client);
    cades->Verify(chain.verifier, SignedCades::cptCadesNone);
    EXPECT_EQ(client.asked, plan.policyOid) << "the client is asked for the signer's policy";
    EXPECT_EQ(info.GetPolicyInUse(), &policy);
    EXPECT_EQ(info.GetVerifyInfo(), kAllButTimeStamps);

    // A rule the signature breaks: a MIME type is mandated.
    plan.commonRules.signerRules->mandatedSignedAttr.push_back("0.4.0.1733.2.1");
    const SignaturePolicy strict(Array(PolicyDer(plan)));
    chain.verifier.SetSignaturePolicy(&strict);
    EXPECT_EQ(CodeOf([&] { cades->Verify(chain.verifier, SignedCades::cptCadesNone); }),
              ErrAttributeInfoMismatch)
        << "a mandated signed attribute is missing";
    SignaturePolicyOverrides overrides;
    overrides.GetIgnoredSignedAttributes().Add("0.4.0.1733.2.1");
    chain.verifier.SetSignaturePolicyOverrides(&overrides);
    cades->Verify(chain.verifier, SignedCades::cptCadesNone);

    plan.policyOid = "1.3.6.1.4.1.99999.7.2";
    const SignaturePolicy other(Array(PolicyDer(plan)));
    chain.verifier.SetSignaturePolicy(&other);
    EXPECT_EQ(CodeOf([&] { cades->Verify(chain.verifier, SignedCades::cptCadesNone); }),
              ErrPolicyOidMismatch);
    EXPECT_EQ(info.GetVerifyInfo(), 1u | 2u | 4u | 16u)
        << "the path was still checked after the held-back failure";

    // A policy server that fails is a held-back failure like the others.
    class FailingClient : public SignaturePolicyClient {
    public:
        const SignaturePolicy* GetSignaturePolicy(const qorstd::QorString&) override {
            CryptException::Throw(ErrPolicyUnavailable, L"");
        }
    } failing;
    chain.verifier.SetSignaturePolicy(nullptr);
    chain.verifier.SetSignaturePolicyClient(&failing);
    EXPECT_EQ(CodeOf([&] { cades->Verify(chain.verifier, SignedCades::cptCadesNone); }),
              ErrPolicyUnavailable);
    EXPECT_EQ(info.GetVerifyInfo(), 1u | 2u | 4u | 16u) << "the path was still checked";

    chain.verifier.SetSignaturePolicyClient(nullptr);
    EXPECT_EQ(CodeOf([&] { cades->Verify(chain.verifier, SignedCades::cptCadesNone); }),
              ErrNoSignPolicy)
        << "no policy and no client";
    chain.verifier.SetCheckSignaturePolicy(0);
    cades->Verify(chain.verifier, SignedCades::cptCadesNone);
    EXPECT_EQ(info.GetPolicyInUse(), nullptr) << "policies are not checked unless asked";
}

// A bad signature by a revoked signer reports the signature; a good one the
// revocation. Either way the path is checked at the verify time.
TEST(CadesVerifyTest, HeldBackSignatureFailureComesBeforeThePathFailure) {
    Bytes der = Sign(Signer(P().revoked), SignedCades::cptCadesBes);
    Chain chain;
    EXPECT_EQ(CodeOf([&] { Decoded(der)->Verify(chain.verifier, SignedCades::cptCadesNone); }),
              ErrCertRevoked);
    const auto at = std::search(der.begin(), der.end(), kText.begin(), kText.end());
    ASSERT_NE(at, der.end());
    *at ^= 1;
    auto tampered = Decoded(der);
    const int code = CodeOf([&] { tampered->Verify(chain.verifier, SignedCades::cptCadesNone); });
    EXPECT_TRUE(code == ErrInvalidSignature || code == ErrHashMismatch ||
                code == ErrSignatureVerification)
        << "the signature failure is reported, got " << code;
    EXPECT_EQ(tampered->GetSignerInfo(0)->GetVerifyTime(), kAt) << "the path check ran";
}

// Signing-certificate attributes added by hand to messages OpenSSL signs.
TEST(CadesVerifyTest, SigningCertificateAttributeFaults) {
    // OpenSSL refuses to sign two attributes of one kind: the second is
    // added after signing.
    const auto signedWith = [](std::vector<const Issued*> named, const Issued* afterwards) {
        const auto add = [](CMS_ContentInfo* cms, const Issued& who) {
            const CryptHash::cptHashAlgorithm hash =
                &who == &P().alice ? CryptHash::cptHashSHA1 : CryptHash::cptHashSHA256;
            const SigningCertificateAttribute attr(Cert(who), nullptr, hash);
            ASSERT_EQ(CMS_signed_add1_attr(FirstSigner(cms), attr.GetX509Attr()), 1);
        };
        CmsSignPlan plan;
        plan.content = kText;
        plan.signers = {&P().alice};
        plan.flags = CMS_NOSMIMECAP;
        plan.beforeFinal = [named, add](CMS_ContentInfo* cms) {
            for (const Issued* who : named) {
                add(cms, *who);
            }
        };
        const CmsPtr cms = SignCms(plan);
        if (afterwards != nullptr) {
            add(cms.get(), *afterwards);
        }
        return CmsDer(cms.get());
    };
    Chain chain;
    EXPECT_EQ(CodeOf([&] { Decoded(signedWith({&P().bob}, &P().bob)); }),
              ErrSigningCertAttrMultiple)
        << "two signing-certificate-v2 attributes";

    auto other = Decoded(signedWith({&P().bob}, nullptr));
    EXPECT_EQ(CodeOf([&] { other->Verify(chain.verifier, SignedCades::cptCadesNone); }),
              ErrSigningCertMismatch)
        << "the attribute names Bob, Alice signed";
    EXPECT_EQ(other->GetSignerInfo(0)->GetVerifyInfo(), 1u | 2u | 4u)
        << "signature and content type passed, the path was checked";

    auto both = Decoded(signedWith({&P().alice, &P().bob}, nullptr));
    both->Verify(chain.verifier, SignedCades::cptCadesNone);
    EXPECT_EQ(both->GetSignerInfo(0)->GetVerifyInfo(), kAllButTimeStamps)
        << "with v1 and v2 present the v1 (Alice) is checked";
}

// A time-stamp token is a CAdES-BES message over a TSTInfo; its path is
// checked for time-stamping whatever purpose the caller's policy names.
TEST(CadesVerifyTest, TimeStampTokensAreCheckedForTimeStamping) {
    const TestTsa tsa;
    const Bytes token = tsa.Token(EVP_sha256(), TestTsa::Digest(EVP_sha256(), kText), true);
    auto cades = Decoded(token);
    EXPECT_EQ(cades->GetContentType(), "1.2.840.113549.1.9.16.1.4");
    EXPECT_EQ(cades->GetSignerInfo(0)->GetCadesType(), SignedCades::cptCadesBes);

    X509MemoryStore trust;
    trust.AddCertificate(Cert(tsa.Ca()));
    X509ChainPolicy policy;
    policy.SetTrustStore(&trust);
    policy.SetRevocationOption(X509ChainPolicy::revOptionNone);
    policy.SetPurpose(X509ChainPolicy::kPurposeSmimeSign);
    VerifierCades verifier;
    verifier.SetVerifyTime(kAt);
    verifier.SetChainPolicy(&policy);
    verifier.SetCheckSignaturePolicy(1);
    cades->Verify(verifier, SignedCades::cptCadesNone);
    EXPECT_EQ(cades->GetSignerInfo(0)->GetVerifyInfo(), kAllButTimeStamps);
    EXPECT_EQ(policy.GetPurpose(), X509ChainPolicy::kPurposeSmimeSign)
        << "the caller's chain policy is left as it was";
}
