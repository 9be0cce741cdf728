// Applying a decoded signature policy to one CAdES signer: the completeness
// of the document, its signing period, the signer, verifier, commitment and
// algorithm rules, and the loaders that move trust conditions into a chain
// policy. Codes, exception messages and the verifier's log lines are what
// callers see, so failures check all three.
//
// The test PKI (RSA-2048, valid 2020-2099):
//
//   Verifier Test Root (self-signed, sha384WithRSA) ── Policy Signer (sha256WithRSA)
//   Other Anchor (self-signed), a second trust point that is never loaded
#include <gtest/gtest.h>
#include <openssl/cms.h>

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "SignaturePolicy.h"
#include "SignaturePolicyVerifier.h"
#include "TestCms.h"
#include "TestPolicy.h"
#include "TestTessera.h"

using namespace TesseraLib;
using namespace tessera_test;

namespace {

const char kSigningCertV2[] = "1.2.840.113549.1.9.16.2.47";
const char kPolicyId[] = "1.2.840.113549.1.9.16.2.15";
const char kTimeStamp[] = "1.2.840.113549.1.9.16.2.14";
const char kPrivateAttr[] = "1.3.6.1.4.1.99999.3.1";  // added unsigned after signing
const char kSha256[] = "2.16.840.1.101.3.4.2.1";
const char kSha256Rsa[] = "1.2.840.113549.1.1.11";
const char kSha384Rsa[] = "1.2.840.113549.1.1.12";

struct Pki {
    Issued root, signer, other;
};

const Pki& P() {
    static const Pki pki = [] {
        const auto issue = [](const char* name, long serial, bool ca, int slot,
                              const EVP_MD* digest, const Issued* issuer) {
            CertPlan profile = BasicProfile(name, serial, ca);
            const KeyPtr key = CachedKey(KeyKind::Rsa2048, slot);
            profile.key = key.get();
            profile.digest = digest;
            profile.notAfter = UtcTime(2099, 12, 31);  // signing checks the certificate at now
            return IssueCertificate(profile, issuer);
        };
        Pki made;
        made.root = issue("Verifier Test Root", 1, true, 0, EVP_sha384(), nullptr);
        made.signer = issue("Policy Signer", 2, false, 1, EVP_sha256(), &made.root);
        made.other = issue("Other Anchor", 3, true, 2, EVP_sha256(), nullptr);
        return made;
    }();
    return pki;
}

SignaturePolicy Decoded(const PolicyPlan& plan) {
    return SignaturePolicy(Array(PolicyDer(plan)));
}

// The signatures the rules are checked against: EPES, attached, the signer's
// certificate only, unless the form says otherwise.
enum class Form { Epes, Bes, Detached, TwoCertificates, PrivateUnsigned };

std::unique_ptr<SignedCades> Sign(Form form) {
    static const SignaturePolicy named = Decoded(PolicyPlan());
    X509Certificate certificate = Cert(P().signer);
    const std::unique_ptr<CryptKey> key(CryptKey::CreateKey(P().signer.key.get()));
    certificate.SetPrivateKey(key.get());
    SignerCades signer(certificate);
    signer.SetHashAlgorithm(CryptHash::cptHashSHA256);
    signer.SetIncludeOption(SignerCms::cptIncludeSignerCertificate);
    signer.SetAttributeOption(SignerCms::cptAttributeDefault);
    signer.SetSignaturePolicy(&named);
    if (form == Form::TwoCertificates) {
        qorstd::QorVector<X509Certificate> extra;
        extra.Add(Cert(P().root));
        signer.SetCertificates(extra);
    }
    auto cades = std::make_unique<SignedCades>(Array(std::string("signed under a policy")));
    cades->Sign(signer, form == Form::Bes ? SignedCades::cptCadesBes : SignedCades::cptCadesEpes,
                form == Form::Detached ? 1 : 0);
    if (form == Form::PrivateUnsigned) {
        // Unsigned attributes lie outside the signature, so adding one keeps it valid.
        const Bytes der = ToBytes(cades->Encode());
        const unsigned char* in = der.data();
        const CmsPtr cms(d2i_CMS_ContentInfo(nullptr, &in, static_cast<long>(der.size())));
        if (!cms || CMS_unsigned_add1_attr_by_txt(FirstSigner(cms.get()), kPrivateAttr,
                                                  V_ASN1_UTF8STRING, "x", 1) != 1) {
            throw std::runtime_error("cannot add the unsigned attribute");
        }
        cades->Decode(Array(CmsDer(cms.get())));
    }
    return cades;
}

// A verifier of the first signer of `cades` (none when null).
SignaturePolicyVerifier Verifier(const SignaturePolicy* policy, const SignedCades* cades,
                                 const SignaturePolicyOverrides* overrides = nullptr) {
    return SignaturePolicyVerifier(
        cades != nullptr ? cades->GetSignerInfo(0) : nullptr,
        policy != nullptr ? &policy->GetSignatureValidationPolicy() : nullptr, overrides);
}

// What an action threw (code 0 and empty texts when it returned) and the last
// line the verifier logged at Error level.
using Outcome = std::tuple<int, std::string, std::wstring>;

template <class Action>
Outcome Logged(Action&& action) {
    const LogCapture capture;  // the verifier must be made inside `action`
    const Thrown thrown = Catch(action);
    std::wstring last;
    for (const LogLine& line :
         RecordingLog::Instance().LinesOf(L"Tessera.SignaturePolicyVerifier")) {
        last = line.level == Level::Error ? line.text : last;
    }
    return {thrown.code, thrown.message, last};
}

TrustPointPlan Point(const Issued& anchor) {
    TrustPointPlan point;
    point.certificateDer = CertToDer(anchor.cert.get());
    return point;
}

}  // namespace

TEST(SignaturePolicyVerifierTest, FormatNamesTheFirstMissingField) {
    struct Row {
        const char* field;
        std::function<void(PolicyPlan&)> drop;
        const wchar_t* log;  // after "VerifyFormat: "; empty: passes
        const char* message;
    };
    const auto point = [](PolicyPlan& p) -> TrustPointPlan& {
        return p.commonRules.signingCertTrust->trustTrees[0];
    };
    const Row rows[] = {
        {"nothing", [](PolicyPlan&) {}, L"", ""},
        {"signer trust condition (the rows on it apply only when present)",
         [](PolicyPlan& p) { p.commonRules.signingCertTrust.reset(); }, L"", ""},
        {"date of issue", [](PolicyPlan& p) { p.dateOfIssue = 0; }, L"Date of issue is not set.",
         "GetDateOfIssue() = 0"},
        {"issuer directory name", [](PolicyPlan& p) { p.issuer.erase(p.issuer.begin()); },
         L"Issuer name CN or O is not set.",
         "GetIssuerName().GetCommonName() or GetIssuerName().GetOrganization() is empty"},
        {"issuer URI", [](PolicyPlan& p) { p.issuer.pop_back(); }, L"URL address is not set.",
         "GetURI() is empty"},
        {"field of application", [](PolicyPlan& p) { p.fieldOfApplication.clear(); },
         L"FieldofApplication is not set.", "GetFieldOfApplication() is empty"},
        {"notBefore", [](PolicyPlan& p) { p.notBefore = 0; },
         L"Validation - GetNotBefore is not set.", "validator.GetNotBefore() = 0"},
        {"notAfter", [](PolicyPlan& p) { p.notAfter.reset(); },
         L"Validation - GetNotAfter is not set.", "validator.GetNotAfter() = 0"},
        {"signer and verifier rules",
         [](PolicyPlan& p) {
             p.commonRules.signerRules.reset(), p.commonRules.verifierRules.reset();
         },
         L"Validation - SignerRules are not set.", "commonSignerRules = NULL"},
        {"trust trees", [](PolicyPlan& p) { p.commonRules.signingCertTrust->trustTrees.clear(); },
         L"Validation (TrustCondition) - TrustTrees are not set.", "GetTrustTrees() is empty"},
        {"acceptable policies", [&](PolicyPlan& p) { point(p).acceptablePolicySet.reset(); },
         L"Validation (TrustCondition) - Acceptable policies are not set.",
         "GetAcceptablePolicySet() is empty"},
        {"requireExplicitPolicy", [&](PolicyPlan& p) { point(p).requireExplicitPolicy.reset(); },
         L"Validation (TrustCondition) - Explicit policy is not set.",
         "GetRequireExplicitPolicy() = NULL"},
        {"time-stamp trust condition", [](PolicyPlan& p) { p.commonRules.timeStampTrust.reset(); },
         L"Validation - TimeStampCondition is not set.", "GetTimeStampTrustCondition() = NULL"},
        {"algorithm constraints", [](PolicyPlan& p) { p.commonRules.algorithmConstraints.reset(); },
         L"Validation - AlgorithmConstraints are not set.", "GetAlgorithmConstraintSet() = NULL"},
        {"policy hash", [](PolicyPlan& p) { p.hash = PolicyHash::Absent; },
         L"Policy hash is not set.", "GetHashValue() is empty"},
    };
    // A document without policy OID, with signer rules but no verifier rules
    // or with trust trees but no revocation requirements does not decode, so
    // those gaps cannot be produced here.
    for (const Row& row : rows) {
        SCOPED_TRACE(row.field);
        PolicyPlan plan = FullPolicyPlan(CertToDer(P().root.cert.get()));
        row.drop(plan);
        const SignaturePolicy policy = Decoded(plan);
        // Neither signer nor validator: the check reads only the policy it is given.
        EXPECT_EQ(Logged([&] { Verifier(nullptr, nullptr).VerifyFormat(&policy); }),
                  Outcome(*row.log ? ErrPolicyFormatMismatch : 0, row.message,
                          *row.log ? std::wstring(L"VerifyFormat: ") + row.log : L""))
            << "code, message and log line";
    }
    const SignaturePolicy empty;
    EXPECT_EQ(Logged([&] { Verifier(nullptr, nullptr).VerifyFormat(&empty); }),
              Outcome(ErrPolicyFormatMismatch, "GetHashAlgorithmNID() = NID_undef",
                      L"VerifyFormat: HashAlgorithm is not set."))
        << "an empty policy has no hash algorithm";
}

TEST(SignaturePolicyVerifierTest, SigningPeriodBoundsAreInclusive) {
    const std::int64_t begin = UtcTime(2023, 3, 1), end = UtcTime(2033, 3, 1);
    const char* expired = "Signature policy has expired.";
    struct Row {
        const char* name;
        std::int64_t notBefore;
        std::optional<std::int64_t> notAfter;
        std::int64_t at;
        const char* message;  // empty: passes
    };
    const Row rows[] = {
        {"at notAfter", begin, end, end, ""},
        {"one second after notAfter", begin, end, end + 1, expired},
        {"at notBefore", begin, end, begin, ""},
        {"before notBefore", begin, end, begin - 1, "Signature policy is not yet valid."},
        {"no notAfter", begin, std::nullopt, UtcTime(2200, 1, 1), ""},
        {"notAfter before notBefore", begin, UtcTime(2020, 1, 1), UtcTime(2200, 1, 1), ""},
        // Taken literally, 0 would be before notBefore; as now it is past notAfter.
        {"time 0", UtcTime(1971, 1, 1), UtcTime(1972, 1, 1), 0, expired},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        PolicyPlan plan;
        plan.notBefore = row.notBefore;
        plan.notAfter = row.notAfter;
        const SignaturePolicy policy = Decoded(plan);
        const Thrown thrown = Catch([&] { Verifier(&policy, nullptr).VerifyTimeValidity(row.at); });
        EXPECT_EQ(thrown.code, *row.message ? ErrSigPolicyNotTimeValid : 0) << "code";
        EXPECT_EQ(thrown.message, row.message) << "exception message";
    }
    const Thrown thrown = Catch([&] { Verifier(nullptr, nullptr).VerifyTimeValidity(begin); });
    EXPECT_EQ(thrown.code, ErrInternal) << "no validator";
    EXPECT_EQ(thrown.message, "_validator=NULL") << "no validator";
}

TEST(SignaturePolicyVerifierTest, SignerRulesAgainstTheSignature) {
    SignaturePolicyOverrides ignorePolicyId, ignoreTimeStamp, noInfoCheck;
    ignorePolicyId.GetIgnoredSignedAttributes().Add(kPolicyId);
    ignoreTimeStamp.GetIgnoredSignedAttributes().Add(kTimeStamp);
    noInfoCheck.SetCheckMandatedCertificateInfo(0);
    SignerRulesPlan none, external, internal, certAndPolicyId, signedPrivate, unsignedPrivate,
        unsignedStamp, fullPathReferenced, signerOnlyCarried, fullPathCarried;
    external.externalSignedData = true;
    internal.externalSignedData = false;
    certAndPolicyId.mandatedSignedAttr = {kSigningCertV2, kPolicyId};
    signedPrivate.mandatedSignedAttr = {kPrivateAttr};
    unsignedPrivate.mandatedUnsignedAttr = {kPrivateAttr};
    unsignedStamp.mandatedUnsignedAttr = {kTimeStamp};
    fullPathReferenced.mandatedCertificateRef = SignerRules::certRefFullPath;
    signerOnlyCarried.mandatedCertificateInfo = SignerRules::certInfoSignerOnly;
    fullPathCarried.mandatedCertificateInfo = SignerRules::certInfoFullPath;
    const wchar_t* signedMissing = L"Required signed attribute is missing.";
    const wchar_t* noFullPath = L"Signature should contain full certification path.";
    struct Row {
        const char* name;
        const SignerRulesPlan& rules;
        Form form;
        const SignaturePolicyOverrides* overrides;
        int code;
        const wchar_t* log;  // after "VerifySignerRules: "
    };
    const Row rows[] = {
        {"nothing mandated", none, Form::Epes, nullptr, 0, L""},
        {"external wanted, attached", external, Form::Epes, nullptr, ErrSignatureTypeInvalid,
         L"Signature should be external."},
        {"internal wanted, detached", internal, Form::Detached, nullptr, ErrSignatureTypeInvalid,
         L"Signature should be internal."},
        {"external wanted, detached", external, Form::Detached, nullptr, 0, L""},
        {"policy identifier on a BES signer", certAndPolicyId, Form::Bes, nullptr,
         ErrAttributeInfoMismatch, signedMissing},
        {"the missing one ignored", certAndPolicyId, Form::Bes, &ignorePolicyId, 0, L""},
        {"an unsigned one is not signed", signedPrivate, Form::PrivateUnsigned, nullptr,
         ErrAttributeInfoMismatch, signedMissing},
        {"unsigned there", unsignedPrivate, Form::PrivateUnsigned, nullptr, 0, L""},
        {"unsigned missing, ignoring does not apply", unsignedStamp, Form::Epes, &ignoreTimeStamp,
         ErrAttributeInfoMismatch, L"Required unsigned attribute is missing."},
        {"full path referenced", fullPathReferenced, Form::Epes, nullptr, ErrChainInfoMismatch,
         noFullPath},
        {"full path referenced, no info check", fullPathReferenced, Form::Epes, &noInfoCheck,
         ErrChainInfoMismatch, noFullPath},
        {"signer only carried, two there", signerOnlyCarried, Form::TwoCertificates, nullptr,
         ErrChainInfoMismatch, L"CMS should contain only end signer certificate."},
        {"signer only carried, no info check", signerOnlyCarried, Form::TwoCertificates,
         &noInfoCheck, 0, L""},
        {"full path carried, one there", fullPathCarried, Form::Epes, nullptr, ErrChainInfoMismatch,
         L"CMS should contain full certification path."},
        {"full path carried, two there", fullPathCarried, Form::TwoCertificates, nullptr, 0, L""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        PolicyPlan plan;
        plan.commonRules.signerRules = row.rules;
        const SignaturePolicy policy = Decoded(plan);
        const std::unique_ptr<SignedCades> cades = Sign(row.form);
        // These failures carry no message; the log line tells them apart.
        EXPECT_EQ(
            Logged([&] {
                Verifier(&policy, cades.get(), row.overrides).VerifySignerRules(cades.get());
            }),
            Outcome(row.code, "", *row.log ? std::wstring(L"VerifySignerRules: ") + row.log : L""))
            << "code, message and log line";
    }
    const std::unique_ptr<SignedCades> cades = Sign(Form::Epes);
    const SignaturePolicy policy = Decoded(PolicyPlan());
    EXPECT_EQ(Catch([&] { Verifier(&policy, nullptr).VerifySignerRules(cades.get()); }).message,
              "_sign=NULL")
        << "no signer";
}

TEST(SignaturePolicyVerifierTest, VerifierRulesNeedEveryMandatedUnsignedAttribute) {
    const std::unique_ptr<SignedCades> cades = Sign(Form::PrivateUnsigned);
    const std::vector<std::vector<std::string>> rows = {
        {}, {kPrivateAttr}, {kPrivateAttr, "1.2.840.113549.1.9.16.2.21"}};
    for (const std::vector<std::string>& mandated : rows) {
        SCOPED_TRACE(mandated.size());
        PolicyPlan plan;
        plan.commonRules.verifierRules = VerifierRulesPlan{mandated, std::nullopt};
        const SignaturePolicy policy = Decoded(plan);
        const bool fails = mandated.size() == 2;  // the complete-certificate-refs are missing
        EXPECT_EQ(
            Logged([&] { Verifier(&policy, cades.get()).VerifyVerifierRules(); }),
            Outcome(fails ? ErrAttributeInfoMismatch : 0, "",
                    fails ? L"VerifyVerifierRules: Required unsigned attribute is missing." : L""))
            << "code, message and log line";
    }
}

TEST(SignaturePolicyVerifierTest, OnlyTrivialCommitmentRulesPass) {
    const SelectedCommitmentPlan empty{true, {}, std::nullopt, std::nullopt};
    const SelectedCommitmentPlan origin{false, "1.2.840.113549.1.9.16.6.1", std::nullopt,
                                        std::nullopt};
    const auto rule = [](std::vector<SelectedCommitmentPlan> selections) {
        CommitmentRulePlan made;
        made.selCommitmentTypes = std::move(selections);
        return made;
    };
    const std::wstring log = L"VerifyCommitmentRules: Commitment rules vector has more than 1 item";
    struct Row {
        const char* name;
        std::vector<CommitmentRulePlan> rules;
        const wchar_t* log;  // after `log`; null: passes
    };
    const Row rows[] = {
        {"no rule", {}, nullptr},
        {"one rule, one empty selection", {rule({empty})}, nullptr},
        {"one rule, a commitment type", {rule({origin})}, L" or an item is not empty."},
        {"one rule, empty and a type", {rule({empty, origin})}, L" or an item is not empty."},
        {"two rules", {rule({empty}), rule({empty})}, L"."},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        PolicyPlan plan;
        plan.commitmentRules = row.rules;
        const SignaturePolicy policy = Decoded(plan);
        EXPECT_EQ(Logged([&] { Verifier(&policy, nullptr).VerifyCommitmentRules(); }),
                  row.log ? Outcome(ErrPolicyRuleNotSupported,
                                    "Commitment rules are not supported.", log + row.log)
                          : Outcome())
            << "code, message and log line";
    }
}

// The signer digests with SHA-256; its certificate is signed with
// sha256WithRSA, the root (last in the chain) with sha384WithRSA.
TEST(SignaturePolicyVerifierTest, AlgorithmsMustBeListed) {
    const std::unique_ptr<SignedCades> cades = Sign(Form::Epes);
    X509Chain chain;
    chain.GetElements().Add(X509ChainElement(Cert(P().signer)));
    chain.GetElements().Add(X509ChainElement(Cert(P().root)));
    using List = std::optional<std::vector<AlgAndLengthPlan>>;
    const auto list = [](const char* oid) {
        return List(
            {{"1.3.14.3.2.26", std::nullopt, std::nullopt}, {oid, std::nullopt, std::nullopt}});
    };
    struct Row {
        const char* name;
        List signer, endEntity, ca;
        int code;
    };
    const Row rows[] = {
        {"as signed", list(kSha256), list(kSha256Rsa), list(kSha384Rsa), 0},
        {"signer list absent", std::nullopt, list(kSha256Rsa), list(kSha384Rsa),
         ErrAlgorithmMismatch},
        {"signer list names the signature algorithm", list(kSha256Rsa), list(kSha256Rsa),
         list(kSha384Rsa), ErrAlgorithmMismatch},
        {"end-entity and CA lists swapped", list(kSha256), list(kSha384Rsa), list(kSha256Rsa),
         ErrAlgorithmMismatch},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        PolicyPlan plan;
        plan.commonRules.algorithmConstraints = AlgorithmConstraintsPlan();
        plan.commonRules.algorithmConstraints->signer = row.signer;
        plan.commonRules.algorithmConstraints->eeCert = row.endEntity;
        plan.commonRules.algorithmConstraints->caCert = row.ca;
        const SignaturePolicy policy = Decoded(plan);
        EXPECT_EQ(
            Logged([&] { Verifier(&policy, cades.get()).VerifyAlgorithmConstraints(&chain); }),
            row.code ? Outcome(row.code, "",
                               L"CheckAlgorithmConstraints: Signature or certificate "
                               L"algorithm mistmatch.")
                     : Outcome())
            << "code, message and log line";
    }
    const SignaturePolicy none = Decoded(PolicyPlan());
    EXPECT_EQ(CodeOf([&] { Verifier(&none, cades.get()).VerifyAlgorithmConstraints(&chain); }), 0)
        << "a policy without constraints accepts any algorithm";
    const Thrown thrown =
        Catch([&] { Verifier(&none, cades.get()).VerifyAlgorithmConstraints(nullptr); });
    EXPECT_EQ(thrown.code, ErrInternal) << "no chain";
    EXPECT_EQ(thrown.message, "chain=NULL") << "no chain";
}

TEST(SignaturePolicyVerifierTest, RevocationRequirementsMapOntoChainPolicyModes) {
    using CP = X509ChainPolicy;
    const char* unsupported = "Not supported revocation check of chain.";
    struct Row {
        long end, ca;  // -1: no signer trust condition
        const char* message;
        CP::cptRevocationOption option;
        int mode;  // -1: left as it was
    };
    const Row rows[] = {
        {1, 4, "", CP::revOptionEndEntity, CP::revOcsp},
        {0, 4, "", CP::revOptionEndEntity, CP::revCrl},
        {3, 3, "", CP::revOptionChain, CP::revOcspOrCrl},
        {0, 0, "", CP::revOptionChain, CP::revCrl},
        {4, 4, "", CP::revOptionNone, -1},
        {-1, -1, "", CP::revOptionWholeChain, -1},
        {0, 1, unsupported, CP::revOptionWholeChain, -1},
        {4, 1, unsupported, CP::revOptionWholeChain, -1},
        {2, 2, "Revocation mode: 2", CP::revOptionChain, -1},
        {5, 4, "Revocation mode: 5", CP::revOptionEndEntity, -1},
    };
    const std::unique_ptr<SignedCades> cades = Sign(Form::Epes);
    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(row.end) + "/" + std::to_string(row.ca));
        PolicyPlan plan;
        if (row.end >= 0) {
            plan.commonRules.signingCertTrust = SigningCertTrustPlan{{Point(P().root)}, {}};
            plan.commonRules.signingCertTrust->revReq.endCert.enuRevReq = row.end;
            plan.commonRules.signingCertTrust->revReq.caCerts.enuRevReq = row.ca;
        }
        const SignaturePolicy policy = Decoded(plan);
        // A starting mode unlike the expected one, so that a mode left alone shows.
        const int preset = row.mode < 0 ? CP::revOcsp : (row.mode + 1) % 3;
        CP chainPolicy;
        chainPolicy.SetRevocationOption(CP::revOptionWholeChain);
        chainPolicy.SetRevocationMode(static_cast<CP::cptRevocationMode>(preset));
        EXPECT_EQ(Logged([&] {
                      Verifier(&policy, cades.get()).LoadRevocationConditionExtension(&chainPolicy);
                  }),
                  *row.message ? Outcome(ErrPolicyRevocationModeNotSupported, row.message,
                                         L"LoadRevocationConditionExtension: Not supported "
                                         L"revocation mode.")
                               : Outcome())
            << "code, message and log line";
        EXPECT_EQ(chainPolicy.GetRevocationOption(), row.option) << "revocation option";
        EXPECT_EQ(static_cast<int>(chainPolicy.GetRevocationMode()),
                  row.mode < 0 ? preset : row.mode)
            << "revocation mode";
    }
}

TEST(SignaturePolicyVerifierTest, ChainConditionLoadsTheFirstTrustPointOnly) {
    TrustPointPlan first = Point(P().root), second = Point(P().other);
    first.pathLenConstraint = 3;
    first.acceptablePolicySet = std::vector<std::string>{"1.3.6.1.4.1.99999.5.1"};
    first.requireExplicitPolicy = 5;
    first.inhibitPolicyMapping = 0;
    second.pathLenConstraint = 7;
    second.acceptablePolicySet = std::vector<std::string>{"1.3.6.1.4.1.99999.5.2"};
    PolicyPlan plan;
    plan.commonRules.signingCertTrust = SigningCertTrustPlan{{first, second}, {}};
    const SignaturePolicy policy = Decoded(plan);
    const std::unique_ptr<SignedCades> cades = Sign(Form::Epes);
    X509ChainPolicy chainPolicy;
    X509MemoryStore store;
    Verifier(&policy, cades.get()).LoadChainConditionExtension(&chainPolicy, &store);
    const qorstd::QorVector<X509Certificate> anchors = store.GetCertificates();
    ASSERT_EQ(anchors.GetSize(), 1u) << "one anchor loaded";
    EXPECT_EQ(anchors[0].Equals(Cert(P().root)), 1) << "the first trust point's certificate";
    EXPECT_EQ(chainPolicy.GetTrustStore(), &store) << "the store becomes the trust store";
    EXPECT_EQ(chainPolicy.GetMaxPathLen(), 3) << "the first trust point's path length";
    ASSERT_EQ(chainPolicy.GetAcceptablePolicies().GetSize(), 1u) << "one acceptable policy";
    EXPECT_EQ(chainPolicy.GetAcceptablePolicies()[0], "1.3.6.1.4.1.99999.5.1") << "the first's";
    EXPECT_EQ(chainPolicy.GetRequireExplicitPolicy(), 1) << "present means on, whatever its value";
    EXPECT_EQ(chainPolicy.GetInhibitPolicyMapping(), 1) << "present means on, even with 0";
    EXPECT_EQ(chainPolicy.GetCheckPolicy(), 0) << "policy checking is left to the caller";

    const Thrown thrown = Catch(
        [&] { Verifier(&policy, cades.get()).LoadChainConditionExtension(&chainPolicy, nullptr); });
    EXPECT_EQ(thrown.code, ErrInternal) << "a trust point but no store";
    EXPECT_EQ(thrown.message, "trustStore=NULL") << "a trust point but no store";
}

TEST(SignaturePolicyVerifierTest, TimeStampConditionSetsTheDefaultCautionPeriod) {
    PolicyPlan plan;
    plan.commonRules.timeStampTrust = TimeStampTrustPlan();
    plan.commonRules.timeStampTrust->cautionPeriod = DeltaTimePlan{4, 3, 2, 1};  // s, min, h, d
    const SignaturePolicy policy = Decoded(plan);
    const std::unique_ptr<SignedCades> cades = Sign(Form::Epes);
    X509ChainPolicy chainPolicy;
    Verifier(&policy, cades.get()).LoadTimestampConditionExtension(&chainPolicy);
    const CautionPeriod& period = chainPolicy.GetDefaultCautionPeriod();
    EXPECT_EQ(std::make_tuple(period.m_days, period.m_hours, period.m_minutes, period.m_seconds),
              std::make_tuple(1u, 2u, 3u, 4u))
        << "days, hours, minutes and seconds each in its place";
    EXPECT_EQ(CodeOf([&] {
                  Verifier(nullptr, cades.get()).LoadTimestampConditionExtension(&chainPolicy);
              }),
              ErrInternal)
        << "no validator";
}
