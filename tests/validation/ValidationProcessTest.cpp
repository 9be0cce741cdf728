// The validation processes through the validator, on CAdES signatures that
// OpenSSL makes (with -cades attributes) and tokens of an in-process TSA.
// The validator's time is pinned (2024-07-15 12:00 UTC); the basic process
// inside the with-time process validates at the current time, as it does
// for every caller, so the CRLs stay current until 2040.
//
//   Scenario Root (trusted for signatures) ── CRL about the CA
//    └── Scenario CA ── CRL: Revoked since 2024-06-10 (carried in the signature)
//         ├── Signer   21  QcCompliance
//         ├── Revoked  22  QcCompliance
//         └── Expired  23  QcCompliance, valid 2024-03-01 .. 2025-01-01
//   Test TSA Root (trusted for time-stamps) ── CRL about the TSA
//    └── Test TSA (on the TSU list)
#include <gtest/gtest.h>
#include <openssl/cms.h>

#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "CadesValidationProcess.h"
#include "LongTermValidation.h"
#include "TestArchive.h"
#include "TestCms.h"
#include "TestTessera.h"
#include "TestTsa.h"
#include "TimeStampValidationBlock.h"
#include "Validator.h"

using namespace TesseraLib;
using namespace tessera_test;
using Block = ValidationBlockReport;
using Total = ValidationReport;

namespace {

const std::int64_t kAt = UtcTime(2024, 7, 15, 12);
const std::int64_t kThisUpdate = UtcTime(2024, 7, 1);
const std::int64_t kFar = UtcTime(2040, 1, 1);
const std::int64_t kRevokedAt = UtcTime(2024, 6, 10);
const char kPolicyOid[] = "1.3.6.1.4.1.47385.20.2.0";
const std::string kText = "validated with time\n";

Issued Rsa(const char* name, long serial, int slot, const Issued* issuer, bool ca,
           std::int64_t notBefore = UtcTime(2020, 1, 1), std::int64_t notAfter = kFar) {
    CertPlan plan = BasicProfile(name, serial, ca);
    const KeyPtr key = CachedKey(KeyKind::Rsa2048, slot);
    plan.key = key.get();
    plan.notBefore = notBefore;
    plan.notAfter = notAfter;
    if (!ca) {
        plan.qcStatements = QcStatementsDer({QcComplianceStatement()});
    }
    return IssueCertificate(plan, issuer);
}

struct Pki {
    Issued root = Rsa("Scenario Root", 1, 10, nullptr, true);
    Issued ca = Rsa("Scenario CA", 2, 11, &root, true);
    Issued signer = Rsa("Signer", 21, 12, &ca, false);
    Issued revoked = Rsa("Revoked", 22, 13, &ca, false);
    Issued expired = Rsa("Expired", 23, 14, &ca, false, UtcTime(2024, 3, 1), UtcTime(2025, 1, 1));
    TestTsa tsa{KeyKind::Rsa2048, EVP_sha256(), KeyKind::Rsa2048};
};

const Pki& P() {
    static const Pki pki;
    return pki;
}

Bytes Sha256(const Bytes& data) {
    return TestTsa::Digest(EVP_sha256(), std::string(data.begin(), data.end()));
}

TsaReply At(std::int64_t genTime) {
    TsaReply reply;
    reply.genTime = genTime;
    return reply;
}

// Which CRLs a signature carries: the with-time process reads a
// signature's revocation data from the signature itself.
enum class Crls { kBoth, kRootOnly, kNone };

// A CAdES-BES of `who` with the CA's certificate, `crls` and the tokens
// `stamps(signature value)` as signature time-stamps.
using Stamps = std::function<std::vector<Bytes>(const Bytes&)>;
Bytes Signature(const Issued& who, const Stamps& stamps = nullptr, Crls crls = Crls::kBoth) {
    CmsSignPlan plan;
    plan.content = kText;
    plan.signers = {&who};
    plan.flags = CMS_CADES;
    plan.signingTime = UtcTime(2024, 5, 1);
    plan.certificates = {P().ca.cert.get()};
    CmsPtr cms = SignCms(plan);
    std::vector<CrlPtr> carried;
    if (crls != Crls::kNone) {
        carried.push_back(IssueCrl(P().root, kThisUpdate, kFar));
    }
    if (crls == Crls::kBoth) {
        carried.push_back(IssueCrl(P().ca, kThisUpdate, kFar,
                                   {RevokedEntry{22, kRevokedAt, CRL_REASON_KEY_COMPROMISE}}));
    }
    for (const CrlPtr& crl : carried) {
        EXPECT_EQ(CMS_add1_crl(cms.get(), crl.get()), 1) << "CRL carried";
    }
    CMS_SignerInfo* si = FirstSigner(cms.get());
    const ASN1_OCTET_STRING* value = CMS_SignerInfo_get0_signature(si);
    if (stamps) {
        for (const Bytes& token : stamps(Bytes(value->data, value->data + value->length))) {
            EXPECT_EQ(
                CMS_unsigned_add1_attr_by_NID(si, NID_id_smime_aa_timeStampToken, V_ASN1_SEQUENCE,
                                              token.data(), static_cast<int>(token.size())),
                1);
        }
    }
    return CmsDer(cms.get());
}

Stamps StampedAt(std::int64_t genTime) {
    return [genTime](const Bytes& value) {
        return std::vector<Bytes>{P().tsa.Token(EVP_sha256(), Sha256(value), true, At(genTime))};
    };
}

// An OCSP client that answers for the signer only, with a response current
// in July 2024 and outdated today. Clients keep what they hand out.
class JulyResponder : public X509OcspClient {
public:
    QorOcsp2Lib::OcspResponse* GetOcspResponse(const X509Certificate& cert,
                                               const X509Certificate&) override {
        if (cert.GetSHA1HashHex() != Cert(P().signer).GetSHA1HashHex()) {
            return nullptr;
        }
        OcspAnswer answer{P().signer.cert.get(), V_OCSP_CERTSTATUS_GOOD, -1, 0,
                          kThisUpdate,           UtcTime(2024, 8, 1)};
        given.push_back(std::make_unique<QorOcsp2Lib::OcspResponse>(
            DecodedOcsp(OcspPlan(&P().ca, P().ca.cert.get(), {answer}, kThisUpdate))));
        return given.back().get();
    }
    QorOcsp2Lib::OcspResponse* GetOcspResponseAfterTime(const X509Certificate& cert,
                                                        const X509Certificate& issuer,
                                                        const std::int64_t&) override {
        return GetOcspResponse(cert, issuer);
    }

private:
    std::vector<std::unique_ptr<QorOcsp2Lib::OcspResponse>> given;
};

// Clients must be there for both kinds of data; CRLs come from the message.
class NoCrls : public X509CrlClient {
public:
    X509Crl* GetCrl(const X509Certificate&) override { return nullptr; }
    X509Crl* GetCrlAfterTime(const X509Certificate&, const std::int64_t&,
                             const X509Certificate*) override {
        return nullptr;
    }
};

// Signature anchors and the CA; time-stamp anchors with the TSA's CRL and
// the TSU list; revocation by CRL for every certificate but the anchors.
struct Trust {
    X509MemoryStore sigTrust, sigExtra, tsTrust, tsExtra, tsu;
    X509ChainPolicyTL policy;
    JulyResponder responder;
    NoCrls noCrls;
    Trust() {
        sigTrust.AddCertificate(Cert(P().root));
        sigExtra.AddCertificate(Cert(P().ca));
        tsTrust.AddCertificate(Cert(P().tsa.Ca()));
        tsExtra.AddCrl(X509Crl(IssueCrl(P().tsa.Ca(), kThisUpdate, kFar).get()));
        tsu.AddCertificate(Cert(P().tsa.Tsa()));
        policy.SetTrustStoreSig(&sigTrust);
        policy.SetExtraStoreSig(&sigExtra);
        policy.SetTrustStoreTS(&tsTrust);
        policy.SetExtraStoreTS(&tsExtra);
        policy.SetTSUStore(&tsu);
        policy.SetRevocationOption(X509ChainPolicy::revOptionChain);
        policy.SetChainBuildMode(X509ChainPolicy::cptChainBuildStores);
    }
};

// A validator over `der` at kAt under EN 319 122-1.
struct Case {
    SignedCades cades;
    Trust trust;
    ValidatorCades validator;
    explicit Case(const Bytes& der, ValidationProcess::cptValidationProcessType type =
                                        ValidationProcess::vptSignatureWithTimeValidation) {
        cades.Decode(Array(der));
        validator.SetSignedCades(&cades);
        validator.SetChainPolicy(&trust.policy);
        validator.SetValidationProcessType(type);
        validator.SetSignatureStandard(ValidationProcess::vptEN319122_1);
        validator.SetValidationTime(kAt);  // the validation policy is the default one
    }
    const SignatureWithTimeValidationProcessReport& WithTime() {
        validator.Validate();
        return *dynamic_cast<const SignatureWithTimeValidationProcessReport*>(
            validator.GetValidationReport());
    }
};

std::string Outcome(const ValidationReport& report) {
    return Narrow(Total::cptReportTotalStatusStrings[report.GetTotalStatusIndication()]) + "/" +
           Narrow(Block::cptReportSubStatusStrings[report.GetSubStatusIndication()]);
}

template <class Report>
std::wstring Printed(const Report& report) {
    std::wostringstream os;
    report.Print(os);
    return os.str();
}

}  // namespace

TEST(ValidationProcess, BasicValidationPassesAndPrintsItsWholeTree) {
    // The basic process run on its own reads revocation data from the
    // policy's stores only.
    Case run(Signature(P().signer, nullptr, Crls::kNone),
             ValidationProcess::vptBasicSignatureValidation);
    run.trust.sigExtra.AddCrl(X509Crl(IssueCrl(P().root, kThisUpdate, kFar).get()));
    run.trust.sigExtra.AddCrl(X509Crl(IssueCrl(P().ca, kThisUpdate, kFar).get()));
    run.validator.Validate();
    const ValidationReport* report = run.validator.GetValidationReport();
    ASSERT_NE(report, nullptr);
    EXPECT_EQ(Outcome(*report), "repTotalPassed/repNoSubStatusIndication");
    ASSERT_NE(run.validator.GetSigningCertificate(), nullptr) << "the certificate identified";
    EXPECT_EQ(run.validator.GetSigningCertificate()->GetSHA1HashHex(),
              Cert(P().signer).GetSHA1HashHex());
    EXPECT_EQ(Printed(*report),
              L"> Basic Signature Validation Process\n"
              L"  > Format checking\n"
              L"    Indication: repPassed\n"
              L"  > Identification of the signing certificate\n"
              L"    Indication: repPassed\n"
              L"  > Validation context initialization\n"
              L"    ValidationPolicyOID: 1.3.6.1.4.1.47385.20.2.0\n"
              L"    Indication: repPassed\n"
              L"  > X.509 certificate validation\n"
              L"    Indication: repPassed\n"
              L"  > Cryptographic verification\n"
              L"    Indication: repPassed\n"
              L"  > Signature acceptance validation\n"
              L"    Indication: repPassed\n"
              L"  Signature standard: vptEN319122_1\n"
              L"  ValidationTime: Mon Jul 15 12:00:00 2024\n"
              L"  Indication: repTotalPassed\n"
              L"  SubIndication: repNoSubStatusIndication\n")
        << "the whole tree, byte for byte";
}

TEST(ValidationProcess, RevokedSignerIsRescuedOnlyByAnEarlierTimeStamp) {
    Case before(Signature(P().revoked, StampedAt(UtcTime(2024, 6, 1))));
    const SignatureWithTimeValidationProcessReport& rescued = before.WithTime();
    EXPECT_EQ(Outcome(rescued), "repTotalPassed/repNoSubStatusIndication")
        << "time-stamped before the revocation";
    ASSERT_NE(rescued.GetBasicSignatureValidationProcessReport(), nullptr);
    EXPECT_EQ(Outcome(*rescued.GetBasicSignatureValidationProcessReport()),
              "repIndeterminate/repRevokedNoPOE")
        << "the basic validation alone cannot tell";
    EXPECT_EQ(rescued.GetBestSignatureTime(), UtcTime(2024, 6, 1)) << "the time-stamp's time";
    ASSERT_EQ(rescued.GetSignatureTimeStampReports().GetSize(), 1u);
    EXPECT_EQ(rescued.GetSignatureTimeStampReports()[0]->GetStatusIndication(), Block::repPassed)
        << "the token validated as a signature of the TSU";

    Case after(Signature(P().revoked, StampedAt(UtcTime(2024, 6, 20))));
    EXPECT_EQ(Outcome(after.WithTime()), "repIndeterminate/repRevokedNoPOE")
        << "time-stamped after the revocation";
}

TEST(ValidationProcess, ExpiredSignerIsNotYetValidAtAnEarlierTimeStamp) {
    Case early(Signature(P().expired, StampedAt(UtcTime(2024, 2, 1))));
    EXPECT_EQ(Outcome(early.WithTime()), "repTotalFailed/repNotYetValid")
        << "time-stamped before the certificate's notBefore";
    Case unstamped(Signature(P().expired));
    EXPECT_EQ(Outcome(unstamped.WithTime()), "repIndeterminate/repOutOfBoundsNoPOE")
        << "no proof of the signing time";
}

TEST(ValidationProcess, TryLaterIsResolvedAtTheBestSignatureTime) {
    // The signer's status comes only from an OCSP answer that was current in
    // July 2024: today it is outdated, at the time-stamp it was fresh. The
    // validation time is today's, so that only a time-stamp proves an
    // earlier signing time.
    const auto run = [](const Stamps& stamps) {
        auto result = std::make_unique<Case>(Signature(P().signer, stamps, Crls::kRootOnly));
        result->validator.SetValidationTime(0);
        X509ChainPolicyTL& policy = result->trust.policy;
        policy.SetRevocationMode(X509ChainPolicy::revOcspOrCrl);
        policy.SetOcspClient(&result->trust.responder);
        policy.SetCrlClient(&result->trust.noCrls);
        policy.SetChainBuildMode(static_cast<X509ChainPolicy::cptChainBuildMode>(
            X509ChainPolicy::cptChainBuildStores | X509ChainPolicy::cptChainBuildClients));
        return result;
    };
    auto stamped = run(StampedAt(UtcTime(2024, 7, 10)));
    const SignatureWithTimeValidationProcessReport& report = stamped->WithTime();
    EXPECT_EQ(Outcome(*report.GetBasicSignatureValidationProcessReport()),
              "repIndeterminate/repTryLater")
        << "basic: the answer is outdated today";
    EXPECT_EQ(Outcome(report), "repTotalPassed/repNoSubStatusIndication")
        << "fresh at the time-stamp's time";
    ASSERT_NE(report.GetRevocationFreshnessCheckerReport(), nullptr);

    auto unstamped = run(nullptr);
    EXPECT_EQ(Outcome(unstamped->WithTime()), "repIndeterminate/repTryLater")
        << "without a time-stamp, today decides";
}

TEST(ValidationProcess, TimeStampsOverOtherDataOrNoneLeaveTheValidationTime) {
    Case other(Signature(P().signer, [](const Bytes&) {
        return std::vector<Bytes>{
            P().tsa.Token(EVP_sha256(), Sha256(Bytes(3, 'x')), true, At(UtcTime(2024, 6, 1)))};
    }));
    const SignatureWithTimeValidationProcessReport& report = other.WithTime();
    ASSERT_EQ(report.GetSignatureTimeStampReports().GetSize(), 1u);
    const TimeStampValidationReport& stamp = *report.GetSignatureTimeStampReports()[0];
    EXPECT_EQ(stamp.GetSubStatusIndication(), Block::repHashFailure) << "imprint mismatch";
    EXPECT_EQ(Narrow(stamp.GetIssue()), "Incorrect message imprint value.");
    EXPECT_EQ(report.GetBestSignatureTime(), kAt) << "the best signature time stays";
    EXPECT_EQ(Outcome(report), "repTotalPassed/repNoSubStatusIndication")
        << "a good signer passes without it";

    Case none(Signature(P().signer));
    const std::wstring printed = Printed(none.WithTime());
    EXPECT_NE(printed.find(L"  > Time Stamp Validation Reports\n      No Time Stamp Report\n"),
              std::wstring::npos)
        << printed;
    EXPECT_NE(printed.find(L"  Best Signature Time: Mon Jul 15 12:00:00 2024\n"),
              std::wstring::npos)
        << "the validation time";
}

TEST(ValidationProcess, TimeStampValidationBlockRefusesTokensWithTwoSigners) {
    const Bytes good = P().tsa.Token(EVP_sha256(), Sha256(Bytes(1, 'a')), true);
    const unsigned char* cursor = good.data();
    CmsPtr parsed(d2i_CMS_ContentInfo(nullptr, &cursor, static_cast<long>(good.size())));
    ASN1_OCTET_STRING** content = CMS_get0_content(parsed.get());
    CmsSignPlan plan;
    plan.content.assign(reinterpret_cast<const char*>((*content)->data), (*content)->length);
    plan.contentType = "1.2.840.113549.1.9.16.1.4";
    plan.signers = {&P().tsa.Tsa(), &P().signer};
    plan.flags = CMS_NOSMIMECAP | CMS_CADES;
    const Bytes twoSigners = CmsDer(SignCms(plan).get());

    Trust trust;
    for (const Bytes* der : {&good, &twoSigners}) {
        QorTsp2Lib::TspTimeStamp token;
        token.Decode(der->data(), static_cast<unsigned int>(der->size()));
        TimeStampValidationBlock block;
        block.SetChainPolicy(&trust.policy);
        block.SetTimeStamp(&token);
        block.SetValidationPolicyOID(kPolicyOid);
        block.Process();
        const TimeStampValidationReport& report = block.GetTimeStampValidationReport();
        if (der == &good) {
            EXPECT_EQ(report.GetStatusIndication(), Block::repPassed) << "one TSU signer";
            EXPECT_NE(Printed(report).find(L"  TimeStamp time: 20240601120000Z\n"),
                      std::wstring::npos)
                << Printed(report);
        } else {
            EXPECT_EQ(Narrow(report.GetIssue()), "More than one tsa signer found.");
            EXPECT_EQ(report.GetBasicSignatureValidationProcessReport(), nullptr)
                << "no validation ran";
        }
    }
}

TEST(ValidationProcess, ValidatorSettingsAreCheckedBeforeAnyProcessRuns) {
    Case run(Signature(P().signer));
    ValidatorCades bare;
    EXPECT_EQ(CodeOf([&] { bare.Validate(); }), ErrNoMessage) << "no message";
    bare.SetSignedCades(&run.cades);
    const Thrown noStandard = Catch([&] { bare.Validate(); });
    EXPECT_EQ(noStandard.code, ErrInvalidParameter);
    EXPECT_EQ(noStandard.message, "Signature Standard not set");
    EXPECT_EQ(bare.GetValidationReport(), nullptr) << "no process was made";
    EXPECT_EQ(CodeOf([&] { bare.SetSignatureStandard(ValidationProcess::vptRFC3161); }),
              ErrInvalidParameter)
        << "time-stamp tokens are not validated through the validator";

    run.validator.SetSignatureIndex(1);
    EXPECT_EQ(CodeOf([&] { run.validator.Validate(); }), ErrOutOfBounds)
        << "an index equal to the number of signers";
    run.validator.SetSignatureIndex(0);
    run.validator.SetValidationProcessType(
        static_cast<ValidationProcess::cptValidationProcessType>(2));
    const Thrown unknown = Catch([&] { run.validator.Validate(); });
    EXPECT_TRUE(unknown.code == ErrInvalidParameter && unknown.message.empty()) << "process type 2";
}

TEST(ValidationProcess, ArchiveTimeStampProvesASignatureTimeStampWhoseTsaExpired) {
    // The long-term PKI of TestArchive.h: TSA 1 expired in 2025, the signer
    // was revoked in 2025, the validation runs in 2026.
    const LongTermPki& pki = LongTermPki::Get();
    LongTermWithTime withTime;
    EXPECT_EQ(withTime(LongTermSignature({{&pki.tsa2, LongTermTimes::Archived()}})),
              "repTotalPassed/repNoSubStatusIndication@" + std::to_string(LongTermTimes::Stamped()))
        << "the time-stamp is judged when the archive time-stamp proves it";
    EXPECT_EQ(withTime(LongTermSignature({})),
              "repIndeterminate/repRevokedNoPOE@" + std::to_string(LongTermTimes::Verified()))
        << "without the archive time-stamp the expired TSA proves nothing";
}
