// The five blocks that examine a CAdES signer, run on real signatures: our
// own, OpenSSL's with hand-made signing-certificate attributes, and the
// public EPES sample. Paths are built at a pinned time.
//
//   Blocks Root (RSA, trusted)
//    ├── Alice   RSA-2048  serial 11
//    ├── Bob     RSA-2048  serial 12 (never in Alice's path)
//    └── EC Sub  P-256, signed with RSA
//         └── Carol  RSA-2048, signed with ECDSA: refused by the acceptance block
#include <gtest/gtest.h>
#include <openssl/cms.h>
#include <openssl/ess.h>
#include <openssl/sha.h>

#include <memory>
#include <string>

#include "SignedCades.h"
#include "SignerCades.h"
#include "TestCms.h"
#include "TestTessera.h"
#include "ValidationBlock.h"

using namespace TesseraLib;
using namespace tessera_test;

namespace {

using Report = ValidationBlockReport;

const std::int64_t kAt = UtcTime(2024, 6, 15, 12);
const std::string kText = "validated content\n";
const char kPolicyOid[] = "1.3.6.1.4.1.47385.20.2.0";

Issued Make(const char* name, long serial, KeyKind kind, int slot, const Issued* issuer) {
    CertPlan plan = BasicProfile(name, serial, issuer == nullptr || kind == KeyKind::EcP256);
    const KeyPtr key = CachedKey(kind, slot);
    plan.key = key.get();
    return IssueCertificate(plan, issuer);
}

struct Pki {
    Issued root = Make("Blocks Root", 1, KeyKind::Rsa2048, 0, nullptr);
    Issued alice = Make("Alice", 11, KeyKind::Rsa2048, 1, &root);
    Issued bob = Make("Bob", 12, KeyKind::Rsa2048, 2, &root);
    Issued ecSub = Make("EC Sub", 13, KeyKind::EcP256, 0, &root);
    Issued carol = Make("Carol", 14, KeyKind::Rsa2048, 3, &ecSub);
};

const Pki& P() {
    static const Pki pki;
    return pki;
}

struct SignOptions {
    bool detached = false;
    bool withCertificate = true;
    bool signingTime = true;
    CryptHash::cptHashAlgorithm hash = CryptHash::cptHashSHA256;
};

// A CAdES-BES of `who` made by us.
Bytes OurBes(const Issued& who, const SignOptions& options = {}) {
    X509Certificate cert = Cert(who);
    std::unique_ptr<CryptKey> key(CryptKey::CreateKey(who.key.get()));
    cert.SetPrivateKey(key.get());
    SignerCades signer(cert);
    signer.SetIncludeOption(options.withCertificate ? SignerCms::cptIncludeSignerCertificate
                                                    : SignerCms::cptIncludeNone);
    // A CAdES signer without default attributes still signs its own, but
    // no signing time.
    signer.SetAttributeOption(options.signingTime ? SignerCms::cptAttributeDefault
                                                  : SignerCms::cptAttributeNone);
    signer.SetHashAlgorithm(options.hash);
    SignedCades cades(Array(kText));
    cades.Sign(signer, SignedCades::cptCadesBes, options.detached ? 1 : 0);
    return ToBytes(cades.Encode());
}

// Adds a signing-certificate-v2 attribute naming `named` and then `others`,
// encoded as OpenSSL's own CAdES signing does.
void AddSigningCertificateV2(CMS_SignerInfo* signer, X509* named,
                             const std::vector<X509*>& others) {
    STACK_OF(X509)* chain = sk_X509_new_null();
    for (X509* other : others) {
        sk_X509_push(chain, other);
    }
    ESS_SIGNING_CERT_V2* ess = OSSL_ESS_signing_cert_v2_new_init(EVP_sha256(), named, chain, 0);
    unsigned char* der = nullptr;
    const int length = ess != nullptr ? i2d_ESS_SIGNING_CERT_V2(ess, &der) : -1;
    ASSERT_GT(length, 0) << "ESS attribute encoded";
    ASSERT_EQ(CMS_signed_add1_attr_by_NID(signer, NID_id_smime_aa_signingCertificateV2,
                                          V_ASN1_SEQUENCE, der, length),
              1)
        << "ESS attribute added";
    OPENSSL_free(der);
    ESS_SIGNING_CERT_V2_free(ess);
    sk_X509_free(chain);
}

// Alice's signature made by OpenSSL whose signing-certificate-v2 attribute
// names Alice and then `others` (none: the attribute is left out).
Bytes OpensslWithIdentifiers(const std::vector<X509*>& others, bool attribute = true) {
    CmsSignPlan plan;
    plan.content = kText;
    plan.signers = {&P().alice};
    plan.signingTime = kAt;
    plan.beforeFinal = [&](CMS_ContentInfo* cms) {
        if (attribute) {
            AddSigningCertificateV2(FirstSigner(cms), P().alice.cert.get(), others);
        }
    };
    return CmsDer(SignCms(plan).get());
}

std::unique_ptr<SignedCades> Decoded(const Bytes& der) {
    auto cades = std::make_unique<SignedCades>();
    cades->Decode(Array(der));
    return cades;
}

// Status, sub-status and issue in one line, for readable failures; only the
// status when passed.
std::string Outcome(const ValidationBlockReport& report) {
    if (report.GetStatusIndication() == Report::repPassed) {
        return "repPassed";
    }
    return Narrow(Report::cptReportStatusStrings[report.GetStatusIndication()]) + "/" +
           Narrow(Report::cptReportSubStatusStrings[report.GetSubStatusIndication()]) + "/" +
           Narrow(report.GetIssue());
}

std::string Generic(int code) {
    return "repIndeterminate/repGeneric/" + Narrow(CryptException::DescribeErrorCode(code));
}

// The path of `who` to the trusted root at kAt, without revocation.
struct Path {
    X509MemoryStore trust, extra;
    X509ChainPolicy policy;
    X509Chain chain{&policy};
    explicit Path(const Issued& who) {
        trust.AddCertificate(Cert(P().root));
        extra.AddCertificate(Cert(P().ecSub));
        policy.SetTrustStore(&trust);
        policy.SetExtraStore(&extra);
        policy.SetRevocationOption(X509ChainPolicy::revOptionNone);
        policy.SetChainBuildMode(X509ChainPolicy::cptChainBuildStores);
        const X509Certificate cert = Cert(who);
        chain.Build(&cert, kAt);
    }
};

SignatureAcceptanceValidationReport Accept(SignedCades::SignerInfo* signer, const Issued& who,
                                           int requireTime = 1) {
    CadesSignatureAcceptanceValidationBlock block;
    Path path(who);
    block.SetSignature(signer);
    block.SetChain(&path.chain);
    block.SetRequireAttrSigningTime(requireTime);
    block.Process();
    return block.GetSignatureAcceptanceValidationReport();
}

}  // namespace

TEST(CadesValidationBlocks, FormatCheckingNeedsASigner) {
    CadesFormatCheckingBlock block;
    block.Process();
    EXPECT_EQ(Outcome(block.GetFormatCheckingReport()), Generic(ErrNoMessage))
        << "no message: the generic issue with the description of 115";

    SignedCades empty;
    block = CadesFormatCheckingBlock();
    block.SetSignedCades(&empty);
    block.Process();
    EXPECT_EQ(Outcome(block.GetFormatCheckingReport()),
              "repFailed/repFormatFailure/No signer was found.")
        << "a message without signers fails";
    EXPECT_EQ(block.GetFormatCheckingReport().GetFailureReason(), "No signatures.")
        << "and says why";

    const auto cades = Decoded(OurBes(P().alice));
    block = CadesFormatCheckingBlock();
    block.SetSignedCades(cades.get());
    block.Process();
    EXPECT_EQ(block.GetFormatCheckingReport().GetStatusIndication(), Report::repPassed)
        << "one signer passes";
}

TEST(CadesValidationBlocks, SigningCertificateIsFoundAndMatchedAgainstTheAttribute) {
    CadesSigningCertificateIdentificationBlock block;
    block.Process();
    EXPECT_EQ(Outcome(block.GetSigningCertificateIdentificationReport()), Generic(ErrNoSigner))
        << "no signature";

    SignOptions noCert;
    noCert.withCertificate = false;
    const auto bare = Decoded(OurBes(P().alice, noCert));
    block = CadesSigningCertificateIdentificationBlock();
    block.SetSignature(bare->GetSignerInfo(0));
    block.Process();
    EXPECT_EQ(Outcome(block.GetSigningCertificateIdentificationReport()),
              "repIndeterminate/repNoSigningCertificateFound/Signing certificate not found.")
        << "the message does not carry the signer's certificate and none was given";

    block = CadesSigningCertificateIdentificationBlock();
    block.SetSignature(bare->GetSignerInfo(0));
    block.SetSigningCertificate(Cert(P().bob));
    block.Process();
    EXPECT_EQ(block.GetSigningCertificateIdentificationReport().GetSubStatusIndication(),
              Report::repNoSigningCertificateFound)
        << "a given certificate that is not the signer's is not taken";

    block = CadesSigningCertificateIdentificationBlock();
    block.SetSignature(bare->GetSignerInfo(0));
    block.SetSigningCertificate(Cert(P().alice));
    block.Process();
    EXPECT_EQ(block.GetSigningCertificateIdentificationReport().GetStatusIndication(),
              Report::repPassed)
        << "the signer's certificate given by the caller is found and matches the attribute";
    EXPECT_EQ(block.GetSigningCertificate().GetSHA1HashHex(), Cert(P().alice).GetSHA1HashHex())
        << "and is the block's result";

    // OpenSSL signs as Alice with an attribute that names Bob only.
    CmsSignPlan plan;
    plan.content = kText;
    plan.signers = {&P().alice};
    plan.beforeFinal = [](CMS_ContentInfo* cms) {
        AddSigningCertificateV2(FirstSigner(cms), P().bob.cert.get(), {});
    };
    const auto misnamed = Decoded(CmsDer(SignCms(plan).get()));
    block = CadesSigningCertificateIdentificationBlock();
    block.SetSignature(misnamed->GetSignerInfo(0));
    block.Process();
    const auto& report = block.GetSigningCertificateIdentificationReport();
    EXPECT_EQ(report.GetSubStatusIndication(), Report::repNoSigningCertificateFound)
        << "an attribute naming another certificate";
    EXPECT_FALSE(report.GetIssue().empty()) << "the check's description is the issue";
    EXPECT_EQ(block.GetSigningCertificate().GetX509(), nullptr) << "nothing identified";
}

TEST(CadesValidationBlocks, ValidationContextAcceptsOnlyTheDefaultPolicyAndNoSignerPolicy) {
    const auto bes = Decoded(OurBes(P().alice));
    const std::string refused =
        "repIndeterminate/repPolicyProcessingError/Incorrect value of Signature validation "
        "policy OID. None of input SVP OID match with default value.";
    for (const char* oid : {"", "1.3.6.1.4.1.47385.20.2.1"}) {
        CadesValidationContextInitializationBlock block;
        block.SetSignature(bes->GetSignerInfo(0));
        block.SetValidationPolicyOID(oid);
        block.Process();
        EXPECT_EQ(Outcome(block.GetValidationContextInitializationReport()), refused)
            << "validation policy '" << oid << "'";
    }
    CadesValidationContextInitializationBlock block;
    block.SetValidationPolicyOID(kPolicyOid);
    block.Process();
    EXPECT_EQ(Outcome(block.GetValidationContextInitializationReport()), Generic(ErrNoSigner))
        << "no signature";

    block.SetSignature(bes->GetSignerInfo(0));
    block = CadesValidationContextInitializationBlock(block);
    block.Process();
    EXPECT_EQ(block.GetValidationContextInitializationReport().GetStatusIndication(),
              Report::repPassed)
        << "a BES under the default policy (the copy kept the inputs)";
    EXPECT_EQ(block.GetValidationContextInitializationReport().GetValidationPolicyOID(), kPolicyOid)
        << "the report names the policy";

    const auto epes = Decoded(ReadBinaryFile(std::string(TESSERA_VECTORS_DIR) +
                                             "/cades/cades-extended-epes-sig-pol-store.pkcs7"));
    block = CadesValidationContextInitializationBlock();
    block.SetSignature(epes->GetSignerInfo(0));
    block.SetValidationPolicyOID(kPolicyOid);
    block.Process();
    EXPECT_EQ(Outcome(block.GetValidationContextInitializationReport()),
              "repIndeterminate/repPolicyProcessingError/Signature contains signature validation "
              "policy.")
        << "the public EPES sample names its own policy";
}

TEST(CadesValidationBlocks, CryptographicVerificationOverContentOrDigest) {
    const auto run = [](SignedCades::SignerInfo* signer, const Bytes& digest = {}) {
        CadesCryptographicVerificationBlock block;
        block.SetSignature(signer);
        block.SetSigningCertificate(Cert(P().alice));
        if (!digest.empty()) {
            block.SetSignerDocumentDigest(Array(digest));
        }
        block.Process();
        return Outcome(block.GetCryptographicVerificationReport());
    };
    EXPECT_EQ(run(nullptr), Generic(ErrNoSigner)) << "no signature";

    const auto attached = Decoded(OurBes(P().alice));
    EXPECT_EQ(run(attached->GetSignerInfo(0)), "repPassed") << "attached content";

    SignOptions detachedOptions;
    detachedOptions.detached = true;
    const auto detached = Decoded(OurBes(P().alice, detachedOptions));
    EXPECT_EQ(run(detached->GetSignerInfo(0)),
              "repIndeterminate/repSignedDataNotFound/Signer's document or hash not set")
        << "detached, neither content nor digest";
    Bytes digest(SHA256_DIGEST_LENGTH);
    SHA256(reinterpret_cast<const unsigned char*>(kText.data()), kText.size(), digest.data());
    EXPECT_EQ(run(detached->GetSignerInfo(0), digest), "repPassed") << "the right digest";
    Bytes wrong = digest;
    wrong[0] ^= 1;
    EXPECT_EQ(
        run(detached->GetSignerInfo(0), wrong),
        "repFailed/repHashFailure/" + Narrow(CryptException::DescribeErrorCode(ErrHashMismatch)))
        << "a wrong digest";

    // The last byte of the message is the last byte of the signature value.
    Bytes tampered = OurBes(P().alice);
    tampered.back() ^= 1;
    const auto broken = Decoded(tampered);
    const std::string outcome = run(broken->GetSignerInfo(0));
    EXPECT_EQ(outcome.rfind("repFailed/repSigCryptoFailure/", 0), 0u)
        << "a wrong signature value: " << outcome;
}

TEST(CadesValidationBlocks, AcceptanceChecksTheAttributeConstraintsFirst) {
    CadesSignatureAcceptanceValidationBlock block;
    block.Process();
    EXPECT_EQ(Outcome(block.GetSignatureAcceptanceValidationReport()), Generic(ErrNoSigner))
        << "no signature";
    const auto bes = Decoded(OurBes(P().alice));
    block.SetSignature(bes->GetSignerInfo(0));
    block = CadesSignatureAcceptanceValidationBlock(block);
    block.Process();
    EXPECT_EQ(Outcome(block.GetSignatureAcceptanceValidationReport()), Generic(ErrInvalidParameter))
        << "no chain";

    EXPECT_EQ(Outcome(Accept(bes->GetSignerInfo(0), P().alice)), "repPassed") << "our BES";

    SignOptions untimed;
    untimed.signingTime = false;
    const auto noTime = Decoded(OurBes(P().alice, untimed));
    SignatureAcceptanceValidationReport report = Accept(noTime->GetSignerInfo(0), P().alice);
    EXPECT_EQ(Outcome(report),
              "repIndeterminate/repSigConstraintsFailure/Signing time attribute is missing.")
        << "no signing time while it is required";
    ASSERT_EQ(report.GetFailedConstraints().GetSize(), 1u);
    EXPECT_EQ(report.GetFailedConstraints()[0], "Signing time attribute") << "constraint named";
    EXPECT_EQ(Outcome(Accept(noTime->GetSignerInfo(0), P().alice, 0)), "repPassed")
        << "no signing time while it is not required";

    const auto noAttribute = Decoded(OpensslWithIdentifiers({}, false));
    EXPECT_EQ(Outcome(Accept(noAttribute->GetSignerInfo(0), P().alice)),
              "repIndeterminate/repSigConstraintsFailure/Signing certificate attribute is missing "
              "or empty.")
        << "a CMS signer without signing-certificate attribute";

    const auto withRoot = Decoded(OpensslWithIdentifiers({P().root.cert.get()}));
    EXPECT_EQ(Outcome(Accept(withRoot->GetSignerInfo(0), P().alice)), "repPassed")
        << "two identifiers, both in the path";
    // SHA-1 would be refused in the algorithm phase, which a failed
    // constraint keeps from running.
    const auto withBob = Decoded(OpensslWithIdentifiers({P().bob.cert.get()}));
    report = Accept(withBob->GetSignerInfo(0), P().alice);
    EXPECT_EQ(Outcome(report),
              "repIndeterminate/repSigConstraintsFailure/Invalid certificate chain.")
        << "the second identifier names a certificate outside the path";
    EXPECT_TRUE(report.GetFailedCryptoMaterialIds().IsEmpty()) << "no algorithm check ran";
}

TEST(CadesValidationBlocks, AcceptanceRefusesWeakAndNonRsaAlgorithms) {
    SignOptions sha1;
    sha1.hash = CryptHash::cptHashSHA1;
    const auto weak = Decoded(OurBes(P().alice, sha1));
    SignatureAcceptanceValidationReport report = Accept(weak->GetSignerInfo(0), P().alice);
    EXPECT_EQ(Outcome(report),
              "repIndeterminate/repCryptoConstraintsFailureNoPOE/Invalid signature hash "
              "algorithm.")
        << "a SHA-1 signer";
    ASSERT_EQ(report.GetFailedCryptoMaterialIds().GetSize(), 1u) << "one refused object";
    const CryptoMaterialIdentification& signature = report.GetFailedCryptoMaterialIds()[0];
    EXPECT_EQ(signature.GetType(), CryptoMaterialIdentification::cptMaterialSignature)
        << "the signature";
    EXPECT_EQ(signature.GetID(), weak->GetSignerInfo(0)->GetSignatureValueSHA1HashHex())
        << "named by its value's SHA-1";
    EXPECT_STREQ(signature.GetAlgorithmName().c_str(), "sha1") << "with the refused digest";

    const auto carol = Decoded(OurBes(P().carol));
    report = Accept(carol->GetSignerInfo(0), P().carol);
    EXPECT_EQ(Outcome(report),
              "repIndeterminate/repCryptoConstraintsFailureNoPOE/Invalid certificate signature "
              "algorithm.")
        << "a path with an ECDSA-signed certificate";
    ASSERT_EQ(report.GetFailedCryptoMaterialIds().GetSize(), 1u) << "only Carol's certificate";
    const CryptoMaterialIdentification& cert = report.GetFailedCryptoMaterialIds()[0];
    EXPECT_EQ(cert.GetType(), CryptoMaterialIdentification::cptMaterialCertificate);
    EXPECT_EQ(cert.GetID(), Cert(P().carol).GetSHA1HashHex()) << "named by its SHA-1";
    EXPECT_EQ(cert.GetKeyLength(), 2048) << "with its key length";

    EXPECT_TRUE(CadesSignatureAcceptanceValidationBlock::IsValidSignatureKeyLength(2048) &&
                !CadesSignatureAcceptanceValidationBlock::IsValidSignatureKeyLength(2047))
        << "2048 bits is the least key length";
}
