// Decoding signature policies: the public ICP-Brasil and test policies with
// the values `openssl asn1parse` shows, policies written field by field with
// every optional part present or absent, the hash conventions and bad input.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <string>
#include <vector>

#include "SignaturePolicy.h"
#include "TestPolicy.h"
#include "TestTessera.h"
#include "policy/EsiAsn1.h"

using namespace TesseraLib;
using namespace tessera_test;

namespace {

Bytes Vector(const std::string& name) {
    return ReadBinaryFile(std::string(TESSERA_VECTORS_DIR) + "/policies/" + name);
}

std::string Hex(const qorstd::QorArray<unsigned char>& bytes) {
    static const char kDigits[] = "0123456789abcdef";
    std::string hex;
    for (unsigned int i = 0; i < bytes.GetSize(); ++i) {
        hex += kDigits[bytes[i] >> 4];
        hex += kDigits[bytes[i] & 15];
    }
    return hex;
}

std::vector<std::string> Strings(const qorstd::QorVector<qorstd::QorString>& list) {
    std::vector<std::string> out;
    for (unsigned int i = 0; i < list.GetSize(); ++i) {
        out.emplace_back(list[i].c_str());
    }
    return out;
}

qorstd::QorArray<unsigned char> Sha256(const Bytes& data) {
    unsigned char digest[32];
    EVP_Digest(data.data(), data.size(), digest, nullptr, EVP_sha256(), nullptr);
    return qorstd::QorArray<unsigned char>(digest, 32);
}

struct PublicPolicy {
    const char* file;
    const char* oid;
    const char* storedHash;
    const char* fileHash;  // SHA-256 of the whole document
    std::int64_t dateOfIssue, notBefore, notAfter;
    std::vector<std::string> mandatedUnsigned;
};

const std::vector<std::string> kIcpSigned = {"1.2.840.113549.1.9.3", "1.2.840.113549.1.9.4",
                                             "1.2.840.113549.1.9.16.2.47",
                                             "1.2.840.113549.1.9.16.2.15"};

}  // namespace

// Values read with openssl asn1parse and openssl dgst.
TEST(SignaturePolicyTest, PublicPoliciesDecodeAsAsn1parseShowsThem) {
    const std::int64_t icpIssue = UtcTime(2018, 5, 14), icpEnd = UtcTime(2029, 3, 2);
    const std::string aa = "1.2.840.113549.1.9.16.2.";
    const std::vector<PublicPolicy> policies = {
        {"PA_AD_RB_v2_3.der",
         "2.16.76.1.7.1.1.2.3",
         "b16e88bbf77322a67995b79078778ed3d0ea7c88587b6f6d518b715e8f76a3d5",
         "e98bc76b0149e632cd639de76682ee72d97f927c255c28b04a3dbcfec632285f",
         icpIssue,
         icpIssue,
         icpEnd,
         {}},
        {"PA_AD_RT_v2_3.der",
         "2.16.76.1.7.1.2.2.3",
         "80dfe81e2a8ae762cd360253722922332ee10164d992156d847c47c8fb879cd2",
         "2b53082af649097717587f266b5aa0d2cff6cf0f12b29dafdfaa33d47bd094ef",
         icpIssue,
         icpIssue,
         icpEnd,
         {aa + "14"}},
        {"PA_AD_RV_v2_3.der",
         "2.16.76.1.7.1.3.2.3",
         "08ab9799a528e211478ef5003e4cec9c337ca82838de1d6a7372c8789934ad4b",
         "3fed238fe60a9344673c1436320c4b04e61df3abe70a47568f38198b1353fcae",
         icpIssue,
         icpIssue,
         icpEnd,
         {aa + "14", aa + "21", aa + "22", aa + "25"}},
        {"PA_AD_RC_v2_3.der",
         "2.16.76.1.7.1.4.2.3",
         "2106ea59ccc2d314e5b7f1c75506a03f3b90bd5eb636b48075d6b60e7489bf18",
         "983ddb27bec71585b6c17891a47c55232194667a1554a86f1a16021cdaaf56cd",
         icpIssue,
         icpIssue,
         icpEnd,
         {aa + "14", aa + "21", aa + "22", aa + "25", aa + "23", aa + "24"}},
        {"PA_AD_RA_v2_4.der",
         "2.16.76.1.7.1.5.2.4",
         "e21a476b65eb647ad4056b7de3d3513a8b14f6a8de676d681fa362066eb0b628",
         "34a14f64d41ca5a2cb4c5f7dea9601e5568d2da2d0a4d58d82d0065f5f6fb9d4",
         icpIssue,
         icpIssue,
         icpEnd,
         {aa + "21", aa + "22", aa + "23", aa + "24", aa + "48"}},
        {"signature-policy-example.der",
         "1.2.3.4.5.1",
         "fe71e01aedd99f444238602d4e98f47bbab405c58c0e3811b9511dcd58c3c983",
         "69d1ddce55fd3299ef667c20ddf98bfe033ad782c7448efd0a5aacff4d262037",
         UtcTime(2015, 5, 30),
         UtcTime(2015, 5, 30),
         UtcTime(2016, 7, 1),
         {}}};
    for (const PublicPolicy& expected : policies) {
        SCOPED_TRACE(expected.file);
        const Bytes der = Vector(expected.file);
        const SignaturePolicy policy(Array(der));
        const bool icp = std::string(expected.file).rfind("PA_AD", 0) == 0;
        EXPECT_EQ(policy.GetOID(), expected.oid) << "signPolicyIdentifier";
        EXPECT_EQ(policy.GetDateOfIssue(), expected.dateOfIssue) << "dateOfIssue";
        EXPECT_EQ(policy.GetHashAlgorithmOID(), "2.16.840.1.101.3.4.2.1") << "signPolicyHashAlg";
        EXPECT_EQ(policy.GetHashAlgorithmName(), "sha256") << "the name CryptHash takes";
        EXPECT_EQ(policy.GetHashValueHex(), expected.storedHash) << "signPolicyHash";
        EXPECT_EQ(policy.CheckHash(), SignaturePolicy::cptHashMatchFields)
            << "the stored hash is the digest of the first two fields";
        EXPECT_EQ(Hex(policy.ComputeHash(NID_sha256, SignaturePolicy::cptHashMatchWholeFile)),
                  expected.fileHash)
            << "whole-file digest";
        EXPECT_TRUE(policy.Export() == Array(der)) << "Export returns the input bytes";
        EXPECT_EQ(Narrow(policy.GetIssuerName().GetCountry()), icp ? "BR" : "SK") << "issuer C";
        EXPECT_EQ(policy.GetURI(),
                  icp ? "" : "http://www.nbusr.sk/archive/20150530000000zsignaturepolicy.der")
            << "issuer URI";

        const SignatureValidationPolicy& validation = policy.GetSignatureValidationPolicy();
        EXPECT_EQ(validation.GetNotBefore(), expected.notBefore) << "signingPeriod notBefore";
        EXPECT_EQ(validation.GetNotAfter(), expected.notAfter) << "signingPeriod notAfter";
        ASSERT_EQ(validation.GetCommitmentRules().GetSize(), 1u) << "one commitment rule";
        const CommitmentRule& rule = validation.GetCommitmentRules()[0];
        ASSERT_EQ(rule.GetSelectedCommitmentTypes().GetSize(), 1u);
        EXPECT_EQ(rule.GetSelectedCommitmentTypes()[0].IsEmpty(), 1) << "selection `empty`";
        EXPECT_EQ(rule.GetSignerRules(), nullptr) << "the commitment rule has no own rules";

        const CommonRules& common = validation.GetCommonRules();
        ASSERT_NE(common.GetSignerRules(), nullptr);
        const SignerRules& signer = *common.GetSignerRules();
        EXPECT_EQ(signer.GetExternalSignedData(), nullptr) << "externalSignedData absent";
        EXPECT_EQ(signer.GetMandatedCertificateReference(), SignerRules::certRefSignerOnly);
        EXPECT_EQ(signer.GetMandatedCertificateInfo(),
                  icp ? SignerRules::certInfoSignerOnly : SignerRules::certInfoFullPath);
        if (icp) {
            EXPECT_EQ(Strings(signer.GetMandatedSignedAttributes()), kIcpSigned);
        }
        EXPECT_EQ(Strings(signer.GetMandatedUnsignedAttributes()), expected.mandatedUnsigned);
        EXPECT_EQ(Strings(common.GetVerifierRules()->GetMandatedUnsignedAttributes()),
                  expected.mandatedUnsigned)
            << "verifier rules repeat the signer's unsigned attributes";

        const SigningCertTrustCondition* signing = common.GetSigningCertTrustCondition();
        ASSERT_NE(signing, nullptr);
        ASSERT_EQ(signing->GetTrustTrees().GetSize(), 2u) << "two trust points";
        EXPECT_EQ(
            Narrow(signing->GetTrustTrees()[0].GetTrustPoint().GetSubjectName().GetCommonName()),
            icp ? "Autoridade Certificadora Raiz Brasileira v5" : "RootCAOK");
        EXPECT_EQ(signing->GetRevocationRequirements()
                      ->GetEndCertRevocationRequirements()
                      .GetRevocationRequirements(),
                  RevReq::eitherCheck);
        EXPECT_EQ(common.GetAlgorithmConstraintSet()->GetSignerAlgorithmConstraints().GetSize(),
                  icp ? 2u : 18u)
            << "signer algorithm constraints";
    }
}

// The example policy's second trust point carries a policy set and policy
// constraints, its time-stamp condition only a caution period; the ICP
// algorithm constraints give key lengths.
TEST(SignaturePolicyTest, PublicPolicyDetails) {
    const SignaturePolicy example(Array(Vector("signature-policy-example.der")));
    const CommonRules& rules = example.GetSignatureValidationPolicy().GetCommonRules();
    const CertificateTrustPoint& kca = rules.GetSigningCertTrustCondition()->GetTrustTrees()[1];
    EXPECT_EQ(Narrow(kca.GetTrustPoint().GetSubjectName().GetCommonName()), "KCA NBU SR 3");
    EXPECT_EQ(Strings(kca.GetAcceptablePolicySet()),
              std::vector<std::string>{"1.3.158.36061701.0.0.0.1.2.2"});
    ASSERT_NE(kca.GetRequireExplicitPolicy(), nullptr);
    EXPECT_EQ(*kca.GetRequireExplicitPolicy(), 0u) << "requireExplicitPolicy 0";
    EXPECT_EQ(kca.GetInhibitPolicyMapping(), nullptr);
    EXPECT_EQ(kca.GetPathLenConstraint(), nullptr);
    const TimeStampTrustCondition* stamps = rules.GetTimeStampTrustCondition();
    ASSERT_NE(stamps, nullptr);
    EXPECT_EQ(stamps->GetTrustTrees().GetSize(), 0u);
    EXPECT_EQ(stamps->GetRevocationRequirements(), nullptr);
    ASSERT_NE(stamps->GetCautionPeriod(), nullptr);
    EXPECT_EQ(stamps->GetCautionPeriod()->deltaDays, 1) << "caution period of one day";
    EXPECT_EQ(stamps->GetSignatureTimestampDelay(), nullptr);
    const AlgAndLength& ecdsa =
        rules.GetAlgorithmConstraintSet()->GetTSACertsAlgorithmConstraints()[12];
    EXPECT_EQ(ecdsa.GetOID(), "1.2.840.10045.4.3.2");
    EXPECT_EQ(*ecdsa.GetMinKeyLength(), 256u);
    EXPECT_EQ(
        rules.GetAlgorithmConstraintSet()->GetSignerAlgorithmConstraints()[0].GetMinKeyLength(),
        nullptr)
        << "SHA-256 entry without a key length";

    const SignaturePolicy rb(Array(Vector("PA_AD_RB_v2_3.der")));
    const CommonRules& icp = rb.GetSignatureValidationPolicy().GetCommonRules();
    const AlgAndLength& rsa = icp.GetAlgorithmConstraintSet()->GetSignerAlgorithmConstraints()[1];
    EXPECT_EQ(rsa.GetOID(), "1.2.840.113549.1.1.13");
    EXPECT_EQ(*rsa.GetMinKeyLength(), 2048u);
    ASSERT_NE(icp.GetTimeStampTrustCondition(), nullptr) << "an empty condition is present";
    EXPECT_EQ(icp.GetTimeStampTrustCondition()->GetTrustTrees().GetSize(), 0u);
    EXPECT_EQ(Narrow(rb.GetFieldOfApplication()).substr(0, 23), "Este tipo de assinatura");
    EXPECT_EQ(rb.GetFieldOfApplication().length(), 656u) << "the whole text";
}

TEST(SignaturePolicyTest, EveryOptionalFieldIsReadAndCopiedDeeply) {
    const Issued root = IssueCertificate(BasicProfile("Policy Root", 7, true), nullptr);
    const PolicyPlan plan = FullPolicyPlan(CertToDer(root.cert.get()));
    SignaturePolicy copy;
    {
        const SignaturePolicy original(Array(PolicyDer(plan)));
        copy = original;  // the original's owned parts go with it
    }
    EXPECT_EQ(copy.GetIssuerName().GetCommonName(), L"Policy Authority");
    EXPECT_EQ(copy.GetURI(), "http://policy.tessera.test/policy.der");
    EXPECT_EQ(copy.GetSignaturePolicyExtensions().GetSize(), 1u) << "info extension";
    EXPECT_EQ(copy.GetSignaturePolicyExtensions()[0].value.GetSize(), 2u) << "extension octets";
    const SignatureValidationPolicy validation = copy.GetSignatureValidationPolicy();
    EXPECT_EQ(validation.GetNotAfter(), UtcTime(2033, 3, 1));
    EXPECT_EQ(validation.GetSignaturePolicyExtensions().GetSize(), 1u);

    const CommitmentRule rule = validation.GetCommitmentRules()[0];
    ASSERT_EQ(rule.GetSelectedCommitmentTypes().GetSize(), 2u);
    const CommitmentType& type = rule.GetSelectedCommitmentTypes()[0].GetCommitmentType();
    EXPECT_EQ(type.GetOID(), "1.2.840.113549.1.9.16.6.1");
    EXPECT_EQ(type.GetFieldOfApplication(), L"Tessera test contracts");
    EXPECT_EQ(type.GetSemantics(), L"Proof of origin");
    EXPECT_EQ(rule.GetSelectedCommitmentTypes()[1].IsEmpty(), 1);
    EXPECT_EQ(CodeOf([&] { rule.GetSelectedCommitmentTypes()[1].GetCommitmentType(); }),
              ErrInvalidState)
        << "an empty selection has no commitment type";

    for (const CommonRules* rules :
         {&validation.GetCommonRules(), static_cast<const CommonRules*>(&rule)}) {
        const SignerRules& signer = *rules->GetSignerRules();
        ASSERT_NE(signer.GetExternalSignedData(), nullptr);
        EXPECT_EQ(*signer.GetExternalSignedData(), 1) << "externalSignedData TRUE";
        EXPECT_EQ(signer.GetMandatedCertificateReference(), SignerRules::certRefFullPath);
        EXPECT_EQ(signer.GetMandatedCertificateInfo(), SignerRules::certInfoSignerOnly);
        EXPECT_EQ(signer.GetMandatedSignedAttributes().GetSize(), 3u);
        EXPECT_EQ(signer.GetSignaturePolicyExtensions().GetSize(), 1u);
        EXPECT_EQ(Strings(rules->GetVerifierRules()->GetMandatedUnsignedAttributes()),
                  std::vector<std::string>{"1.2.840.113549.1.9.16.2.21"});

        const CertificateTrustPoint& point =
            rules->GetSigningCertTrustCondition()->GetTrustTrees()[0];
        EXPECT_EQ(point.GetTrustPoint().GetSubjectName().GetCommonName(), L"Policy Root");
        EXPECT_EQ(*point.GetPathLenConstraint(), 2u);
        EXPECT_EQ(*point.GetRequireExplicitPolicy(), 0u);
        EXPECT_EQ(*point.GetInhibitPolicyMapping(), 1u);
        const CertRevReq& revocation =
            *rules->GetSigningCertTrustCondition()->GetRevocationRequirements();
        EXPECT_EQ(revocation.GetEndCertRevocationRequirements().GetRevocationRequirements(),
                  RevReq::ocspCheck);
        EXPECT_EQ(revocation.GetCACertstRevocationRequirements().GetRevocationRequirements(),
                  RevReq::clrCheck);
        EXPECT_EQ(
            revocation.GetCACertstRevocationRequirements().GetSignaturePolicyExtensions().GetSize(),
            1u)
            << "exRevReq";

        const TimeStampTrustCondition& stamps = *rules->GetTimeStampTrustCondition();
        EXPECT_EQ(stamps.GetTrustTrees().GetSize(), 1u);
        EXPECT_EQ(stamps.GetCautionPeriod()->deltaDays, 1);
        EXPECT_EQ(stamps.GetSignatureTimestampDelay()->deltaHours, 1);

        const AlgorithmConstraintSet& algorithms = *rules->GetAlgorithmConstraintSet();
        EXPECT_EQ(algorithms.GetSignerAlgorithmConstraints().GetSize(), 2u);
        EXPECT_EQ(*algorithms.GetCACertsAlgorithmConstraints()[0].GetMinKeyLength(), 4096u);
        EXPECT_EQ(algorithms.GetAttributeAuthorityCertsAlgorithmConstraints()[0].GetMinKeyLength(),
                  nullptr);
        EXPECT_EQ(algorithms.GetEndEntityCertsAlgorithmConstraints().GetSize(), 1u);
        EXPECT_EQ(algorithms.GetTSACertsAlgorithmConstraints().GetSize(), 1u);
        EXPECT_EQ(
            algorithms.GetSignerAlgorithmConstraints()[0].GetSignaturePolicyExtensions().GetSize(),
            1u)
            << "`other` of an algorithm";
        EXPECT_EQ(rules->GetSignaturePolicyExtensions().GetSize(), 1u);
    }
}

TEST(SignaturePolicyTest, AbsentOptionalFieldsAndDefaults) {
    PolicyPlan plan;  // the smallest policy: no hash, no notAfter, empty rules
    plan.hash = PolicyHash::Absent;
    plan.issuer = {{IssuerNamePlan::Kind::Uri, {}, "http://only.uri.test/p.der"}};
    plan.commonRules.signerRules = SignerRulesPlan{false, {}, {}, std::nullopt, std::nullopt, {}};
    plan.commitmentRules = {{{{true, {}, std::nullopt, std::nullopt}}, {}}};
    const SignaturePolicy policy(Array(PolicyDer(plan)));
    EXPECT_EQ(policy.GetHashValue().GetSize(), 0u) << "no signPolicyHash";
    EXPECT_EQ(policy.GetHashValueHex(), "");
    EXPECT_EQ(policy.CheckHash(), SignaturePolicy::cptHashMatchNone);
    EXPECT_EQ(policy.GetIssuerName().GetX509Name(), nullptr) << "only a URI names the issuer";
    EXPECT_EQ(policy.GetURI(), "http://only.uri.test/p.der");
    EXPECT_EQ(policy.GetSignatureValidationPolicy().GetNotAfter(), 0) << "open signing period";

    const CommonRules& rules = policy.GetSignatureValidationPolicy().GetCommonRules();
    const SignerRules& signer = *rules.GetSignerRules();
    ASSERT_NE(signer.GetExternalSignedData(), nullptr) << "FALSE differs from absent";
    EXPECT_EQ(*signer.GetExternalSignedData(), 0);
    EXPECT_EQ(signer.GetMandatedCertificateReference(), SignerRules::certRefSignerOnly);
    EXPECT_EQ(signer.GetMandatedCertificateInfo(), SignerRules::certInfoNone);
    EXPECT_EQ(rules.GetSigningCertTrustCondition(), nullptr);
    EXPECT_EQ(rules.GetTimeStampTrustCondition(), nullptr);
    EXPECT_EQ(rules.GetAlgorithmConstraintSet(), nullptr);

    // Two directory names: the second counts.
    plan.issuer = {{IssuerNamePlan::Kind::Directory, NameDer({{"CN", "First"}}), {}},
                   {IssuerNamePlan::Kind::Directory, NameDer({{"CN", "Second"}}), {}}};
    EXPECT_EQ(SignaturePolicy(Array(PolicyDer(plan))).GetIssuerName().GetCommonName(), L"Second");
}

// A commitment type's texts read the same whether the tags replace the
// string's own (as written here) or wrap it (as policies with explicit tags
// have them).
TEST(SignaturePolicyTest, CommitmentTextsReadWithImplicitOrExplicitTags) {
    for (const bool wrapped : {false, true}) {
        const Bytes field = DerUtf8("Contracts"), semantics = DerUtf8("Origin");
        const Bytes der = DerSequence({DerOid("1.2.840.113549.1.9.16.6.2"),
                                       wrapped ? Explicit(0, field) : Implicit(0, field),
                                       wrapped ? Explicit(1, semantics) : Implicit(1, semantics)});
        const unsigned char* cursor = der.data();
        ESI_COMMITMENT_TYPE* decoded =
            d2i_ESI_COMMITMENT_TYPE(nullptr, &cursor, static_cast<long>(der.size()));
        ASSERT_NE(decoded, nullptr) << (wrapped ? "explicit" : "implicit") << " tags";
        const CommitmentType type(decoded);
        ESI_COMMITMENT_TYPE_free(decoded);
        EXPECT_EQ(type.GetFieldOfApplication(), L"Contracts");
        EXPECT_EQ(type.GetSemantics(), L"Origin");
    }
}

TEST(SignaturePolicyTest, BadInputEndsInTheDocumentedCodes) {
    const Thrown empty = Catch([] { SignaturePolicy().Decode(qorstd::QorArray<unsigned char>()); });
    EXPECT_EQ(empty.code, ErrInvalidParameter);
    EXPECT_EQ(empty.message, "SignaturePolicy::Decode() - policy is empty");

    Bytes truncated = Vector("PA_AD_RB_v2_3.der");
    truncated.resize(truncated.size() - 10);
    const Thrown cut = Catch([&] { SignaturePolicy policy(Array(truncated)); });
    EXPECT_EQ(cut.code, ErrAsn1Decoding) << "truncated policy";
    EXPECT_EQ(cut.message, "pPolicy=NULL");

    Bytes trailing = Vector("PA_AD_RB_v2_3.der");
    trailing.push_back(0);
    EXPECT_EQ(CodeOf([&] { SignaturePolicy policy(Array(trailing)); }), ErrAsn1Decoding)
        << "bytes after the policy";

    PolicyPlan unknown;
    unknown.hash = PolicyHash::Given;
    unknown.givenHash = Bytes(32, 0xAB);
    unknown.hashAlgorithmOid = "1.3.6.1.4.1.99999.9.9";
    const Thrown algorithm = Catch([&] { SignaturePolicy policy(Array(PolicyDer(unknown))); });
    EXPECT_EQ(algorithm.code, ErrAlgorithmNotSupported) << "hash algorithm OpenSSL does not know";
    EXPECT_EQ(algorithm.message,
              "SignaturePolicy::ParseESISignaturePolicy() - parsing signature policy hash "
              "algorithm failed.");

    EXPECT_EQ(Catch([] {
                  SignaturePolicy policy(static_cast<const ESI_SignaturePolicy*>(nullptr));
              }).message,
              "pPolicy=NULL");
    EXPECT_EQ(
        Catch([] { CommonRules rules(static_cast<const ESI_CommonRules*>(nullptr)); }).message,
        "pRules = NULL");
}

// A reference by either digest is recognised, with the signature's own
// algorithm; the structure constructor keeps the encoding.
TEST(SignaturePolicyTest, HashConventionsAndTheStructureConstructor) {
    const Bytes der = Vector("signature-policy.der");
    const SignaturePolicy policy(Array(der));
    EXPECT_EQ(policy.GetHashValueHex().c_str(),
              std::string("501d69b4b71fc6e57323c2c74131a9c8c62409be378ba788dc288555611b9e58"));
    EXPECT_EQ(policy.MatchHash(NID_sha256, Sha256(der)), SignaturePolicy::cptHashMatchWholeFile)
        << "a reference by the whole file";
    EXPECT_EQ(policy.MatchHash(NID_sha256, policy.GetHashValue()),
              SignaturePolicy::cptHashMatchFields);
    EXPECT_EQ(policy.MatchHash(NID_sha1, policy.GetHashValue()), SignaturePolicy::cptHashMatchNone)
        << "the hash under another algorithm";
    EXPECT_EQ(policy.MatchHash(NID_sha384,
                               policy.ComputeHash(NID_sha384, SignaturePolicy::cptHashMatchFields)),
              SignaturePolicy::cptHashMatchFields)
        << "a SHA-384 reference";

    PolicyPlan wrong;
    wrong.hash = PolicyHash::Given;
    wrong.givenHash = Bytes(32, 0x01);
    EXPECT_EQ(SignaturePolicy(Array(PolicyDer(wrong))).CheckHash(),
              SignaturePolicy::cptHashMatchNone)
        << "a stored hash that matches nothing";

    const unsigned char* cursor = der.data();
    policy::EsiSignaturePolicyPtr decoded(
        d2i_ESI_SIGNATURE_POLICY(nullptr, &cursor, static_cast<long>(der.size())));
    ASSERT_TRUE(decoded);
    const SignaturePolicy fromStructure(decoded.get());
    EXPECT_TRUE(fromStructure.Export() == Array(der)) << "DER policies re-encode to themselves";
    EXPECT_EQ(fromStructure.GetOID(), "2.16.76.1.7.1.11.1");
}
