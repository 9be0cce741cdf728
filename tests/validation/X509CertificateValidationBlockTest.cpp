// The certificate validation and revocation freshness blocks on paths of the
// test PKI with CRLs and OCSP responses, validated at a pinned time
// (2024-07-15 12:00 UTC). CRLs run from 2024-07-01 to 2024-08-01.
//
//   Validation Root (trusted) ── CRL: lists nothing, or Qualified CA
//    └── Qualified CA   serial 2 ── CRL: Revoked (keyCompromise, 2024-06-01)
//         ├── QES       21  QcCompliance, QcType eSign, EKU emailProtection
//         ├── Seal      22  QcCompliance, QcType eSeal, no EKU
//         ├── Web       23  QcCompliance, QcType web
//         ├── Plain     24  no qualified statements
//         ├── Revoked   25  QcCompliance
//         ├── Server    26  QcCompliance, EKU serverAuth only
//         ├── Expired   27  QcCompliance, valid until 2024-01-01
//         ├── TSA       28  EKU critical timeStamping
//         └── Qualified 29  QcCompliance only, no EKU
#include <gtest/gtest.h>

#include <string>

#include "TestTessera.h"
#include "X509CertificateValidationBlock.h"

using namespace TesseraLib;
using namespace tessera_test;
using Report = ValidationBlockReport;
using Policy = X509ChainPolicyTL;

namespace {

const std::int64_t kAt = UtcTime(2024, 7, 15, 12);
const std::int64_t kThisUpdate = UtcTime(2024, 7, 1);
const std::int64_t kNextUpdate = UtcTime(2024, 8, 1);
const std::int64_t kRevokedAt = UtcTime(2024, 6, 1);

Issued Leaf(const char* name, long serial, const Issued& ca, std::vector<QcStatementValue> qc,
            const char* eku = nullptr, std::int64_t notAfter = UtcTime(2040, 1, 1)) {
    CertPlan plan = BasicProfile(name, serial, false);
    plan.notAfter = notAfter;
    if (!qc.empty()) {
        plan.qcStatements = QcStatementsDer(qc);
    }
    if (eku != nullptr) {
        plan.extensions.push_back({"extendedKeyUsage", eku});
    }
    return IssueCertificate(plan, &ca);
}

struct Pki {
    Issued root = IssueCertificate(BasicProfile("Validation Root", 1, true), nullptr);
    Issued ca = IssueCertificate(BasicProfile("Qualified CA", 2, true), &root);
    Issued qes =
        Leaf("QES", 21, ca, {QcComplianceStatement(), QcTypeStatement({"0.4.0.1862.1.6.1"})},
             "emailProtection");
    Issued seal =
        Leaf("Seal", 22, ca, {QcComplianceStatement(), QcTypeStatement({"0.4.0.1862.1.6.2"})});
    Issued web =
        Leaf("Web", 23, ca, {QcComplianceStatement(), QcTypeStatement({"0.4.0.1862.1.6.3"})});
    Issued plain = Leaf("Plain", 24, ca, {});
    Issued revoked = Leaf("Revoked", 25, ca, {QcComplianceStatement()});
    Issued server = Leaf("Server", 26, ca, {QcComplianceStatement()}, "serverAuth");
    Issued expired =
        Leaf("Expired", 27, ca, {QcComplianceStatement()}, nullptr, UtcTime(2024, 1, 1));
    Issued tsa = Leaf("TSA", 28, ca, {}, "critical,timeStamping");
    Issued qualified = Leaf("Qualified", 29, ca, {QcComplianceStatement()});
};

const Pki& P() {
    static const Pki pki;
    return pki;
}

X509Crl Crl(const Issued& issuer, std::vector<RevokedEntry> revoked = {},
            std::int64_t nextUpdate = kNextUpdate) {
    return X509Crl(IssueCrl(issuer, kThisUpdate, nextUpdate, revoked).get());
}

QorOcsp2Lib::OcspResponse Ocsp(const Issued& who, int status, int reason = -1,
                               std::int64_t nextUpdate = kNextUpdate) {
    OcspAnswer answer{who.cert.get(), status,
                      reason,         status == V_OCSP_CERTSTATUS_REVOKED ? kRevokedAt : 0,
                      kThisUpdate,    nextUpdate};
    return DecodedOcsp(OcspPlan(&P().ca, P().ca.cert.get(), {answer}, kThisUpdate));
}

// The root trusted, the CA at hand, revocation by CRL for every certificate
// but the root: the CA's CRL and the root's CRL in the extra store.
struct Bench {
    X509MemoryStore trust, extra, tsu;
    Policy policy;
    X509CertificateValidationBlock block;

    explicit Bench(bool crls = true) {
        trust.AddCertificate(Cert(P().root));
        extra.AddCertificate(Cert(P().ca));
        if (crls) {
            extra.AddCrl(Crl(P().ca, {RevokedEntry{25, kRevokedAt, CRL_REASON_KEY_COMPROMISE}}));
            extra.AddCrl(Crl(P().root));
        }
        policy.SetTrustStoreSig(&trust);
        policy.SetExtraStoreSig(&extra);
        policy.SetTrustStoreTS(&trust);
        policy.SetExtraStoreTS(&extra);
        policy.SetRevocationOption(X509ChainPolicy::revOptionChain);
        policy.SetChainBuildMode(X509ChainPolicy::cptChainBuildStores);
        block.SetChainPolicy(&policy);
        block.SetValidationTime(kAt);
    }
    const X509CertificateValidationReport& Run(const Issued& who) {
        block.SetCertificate(Cert(who));
        block.Process();
        return block.GetX509CertificateValidationReport();
    }
};

std::string Outcome(const ValidationBlockReport& report) {
    if (report.GetStatusIndication() == Report::repPassed) {
        return "repPassed";
    }
    return Narrow(Report::cptReportStatusStrings[report.GetStatusIndication()]) + "/" +
           Narrow(Report::cptReportSubStatusStrings[report.GetSubStatusIndication()]) + "/" +
           Narrow(report.GetIssue());
}

std::string Description(int code) {
    return Narrow(CryptException::DescribeErrorCode(code));
}

}  // namespace

TEST(X509CertificateValidationBlock, MissingInputsAndAnUnknownPurposeAreGenericIssues) {
    Bench setup;
    X509CertificateValidationBlock empty;
    empty.Process();
    EXPECT_EQ(Outcome(empty.GetX509CertificateValidationReport()),
              "repIndeterminate/repGeneric/" + Description(ErrSignerCertNotSet))
        << "no certificate";
    X509CertificateValidationBlock noPolicy;
    noPolicy.SetCertificate(Cert(P().qes));
    noPolicy.Process();
    EXPECT_EQ(Outcome(noPolicy.GetX509CertificateValidationReport()),
              "repIndeterminate/repGeneric/Chain policy is not set.")
        << "no chain policy";
    setup.policy.SetPurpose(X509ChainPolicy::kPurposeNone);
    EXPECT_EQ(Outcome(setup.Run(P().qes)),
              "repIndeterminate/repGeneric/Bad parameter: Cert purpose set to unknown value.")
        << "purpose 0";
}

TEST(X509CertificateValidationBlock, QualifiedSignersPassWithTheirPathAndFreshnessReport) {
    for (const Issued* who : {&P().qes, &P().seal}) {
        Bench setup;
        const X509CertificateValidationReport& report = setup.Run(*who);
        EXPECT_EQ(Outcome(report), "repPassed") << "eSign with emailProtection, eSeal without EKU";
        ASSERT_NE(setup.block.GetChain(), nullptr) << "the path is the block's";
        EXPECT_EQ(setup.block.GetChain()->GetElements().GetSize(), 3u) << "leaf, CA, root";
        ASSERT_NE(report.GetRevocationFreshnessCheckerReport(), nullptr);
        EXPECT_EQ(report.GetRevocationFreshnessCheckerReport()->GetStatusIndication(),
                  Report::repPassed)
            << "the last element's freshness (the root: self-signed)";
        EXPECT_EQ(setup.policy.GetVerifyCertCrlCallback(), &CertificateValidationCrlCallback)
            << "the policy keeps the block's verdicts";
    }
}

TEST(X509CertificateValidationBlock, UsageAndQualifiedStatementConditions) {
    const std::string refused = "repIndeterminate/repChainConstraintsFailure/";
    EXPECT_EQ(Outcome(Bench().Run(P().plain)),
              refused + "Certificate QcStatement.QcCompliance not found")
        << "not qualified";
    EXPECT_EQ(Outcome(Bench().Run(P().web)),
              refused + "Certificate QcStatement.QcType.ESigns not found")
        << "qualified for web sites";
    EXPECT_EQ(Outcome(Bench().Run(P().qualified)), "repPassed")
        << "a qualified certificate without QcType and without EKU passes";
    // The path builder's S/MIME purpose turns it down before the block's
    // own usage rule.
    EXPECT_EQ(Outcome(Bench().Run(P().server)),
              "repIndeterminate/repCertificateChainGeneralFailure/" + Description(ErrCertUsage))
        << "only serverAuth";
}

TEST(X509CertificateValidationBlock, RevokedByCrlKeepsThePathAndTheRevocation) {
    Bench setup;
    const X509CertificateValidationReport& report = setup.Run(P().revoked);
    EXPECT_EQ(Outcome(report), "repIndeterminate/repRevokedNoPOE/" + Description(ErrCertRevoked))
        << "the signer is on the CA's CRL";
    ASSERT_NE(report.GetCertificateChain(), nullptr) << "the path built so far stays";
    EXPECT_EQ(report.GetCertificateChain()->GetElements().GetSize(), 3u);
    EXPECT_EQ(report.GetCertificateRevocationTime(), kRevokedAt) << "the entry's time";
    EXPECT_EQ(report.GetCertificateRevocationReason(),
              QorOcsp2Lib::OcspSingleResponse::ocspReasonKeyCompromise)
        << "the entry's reason";

    Bench caRevoked(false);
    caRevoked.extra.AddCrl(Crl(P().ca));
    caRevoked.extra.AddCrl(Crl(P().root, {RevokedEntry{2, kRevokedAt, CRL_REASON_CA_COMPROMISE}}));
    EXPECT_EQ(caRevoked.Run(P().qes).GetSubStatusIndication(), Report::repRevokedCANoPOE)
        << "the CA's certificate is on the root's CRL";
}

TEST(X509CertificateValidationBlock, RevokedOrOnHoldByOcsp) {
    // The CA by the root's CRL, the leaf by the CA's own OCSP answer.
    const auto run = [](int reason, int status = V_OCSP_CERTSTATUS_REVOKED) {
        Bench bench(false);
        bench.extra.AddCrl(Crl(P().root));
        bench.extra.AddOcspResponse(Ocsp(P().qes, status, reason));
        bench.policy.SetRevocationMode(X509ChainPolicy::revOcspOrCrl);
        const X509CertificateValidationReport report = bench.Run(P().qes);
        return report;
    };
    const X509CertificateValidationReport revoked = run(OCSP_REVOKED_STATUS_SUPERSEDED);
    EXPECT_EQ(revoked.GetSubStatusIndication(), Report::repRevokedNoPOE) << "revoked by OCSP";
    EXPECT_EQ(revoked.GetCertificateRevocationTime(), kRevokedAt)
        << "the response's revocation time";
    EXPECT_EQ(revoked.GetCertificateRevocationReason(),
              QorOcsp2Lib::OcspSingleResponse::ocspReasonSuperseded);
    ASSERT_NE(revoked.GetCertificateChain(), nullptr) << "the path stays";
    EXPECT_EQ(revoked.GetCertificateChain()->GetElements().GetSize(), 3u);

    const X509CertificateValidationReport held = run(OCSP_REVOKED_STATUS_CERTIFICATEHOLD);
    EXPECT_EQ(held.GetSubStatusIndication(), Report::repTryLater) << "on hold: try later";
    EXPECT_EQ(held.GetNextUpdate(), kNextUpdate) << "when the responder says more";

    const X509CertificateValidationReport unknown = run(-1, V_OCSP_CERTSTATUS_UNKNOWN);
    EXPECT_EQ(Outcome(unknown),
              "repIndeterminate/repNoSubStatusIndication/" + Description(ErrRevocationUnknown))
        << "status unknown leaves the sub-indication as it was";
    EXPECT_NE(unknown.GetCertificateChain(), nullptr) << "the path stays";
}

TEST(X509CertificateValidationBlock, ExpiredCertificatesAndStaleRevocationData) {
    Bench expired;
    const X509CertificateValidationReport& report = expired.Run(P().expired);
    EXPECT_EQ(Outcome(report),
              "repIndeterminate/repOutOfBoundsNoPOE/" + Description(ErrCertNotTimeValid))
        << "valid only until 2024-01-01";
    EXPECT_EQ(report.GetCertificateChain(), nullptr) << "no path";

    // The path accepts an OCSP answer past its nextUpdate; its freshness
    // does not.
    Bench stale(false);
    stale.extra.AddCrl(Crl(P().root));
    stale.extra.AddOcspResponse(Ocsp(P().qes, V_OCSP_CERTSTATUS_GOOD, -1, UtcTime(2024, 7, 10)));
    stale.policy.SetRevocationMode(X509ChainPolicy::revOcspOrCrl);
    const X509CertificateValidationReport& tryLater = stale.Run(P().qes);
    EXPECT_EQ(Outcome(tryLater), "repIndeterminate/repTryLater/")
        << "the signer's OCSP answer was due on 2024-07-10";
    ASSERT_NE(tryLater.GetRevocationFreshnessCheckerReport(), nullptr);
    EXPECT_EQ(Outcome(*tryLater.GetRevocationFreshnessCheckerReport()),
              "repFailed/repNoSubStatusIndication/Validation time is after OCSP nextUpdate.")
        << "the signer's freshness report";
}

TEST(X509CertificateValidationBlock, TimeStampingUnitsNeedTheirUsageAndTheTsuList) {
    Bench setup;
    setup.policy.SetPurpose(X509ChainPolicy::kPurposeTimestampSign);
    const std::string refused = "repIndeterminate/repChainConstraintsFailure/";
    EXPECT_EQ(Outcome(setup.Run(P().tsa)), refused + "Trusted TSU list not set.");
    setup.policy.SetTSUStore(&setup.tsu);
    EXPECT_EQ(Outcome(setup.Run(P().tsa)), refused + "Certificate is not on trusted TSU list.");
    setup.tsu.AddCertificate(Cert(P().tsa));
    EXPECT_EQ(Outcome(setup.Run(P().tsa)), "repPassed") << "listed";
}

TEST(RevocationFreshnessCheckerBlock, FreshnessByOcspOrCrl) {
    const auto run = [](const Issued& who, const X509Crl* crl,
                        const QorOcsp2Lib::OcspResponse* ocsp, std::int64_t at = kAt) {
        RevocationFreshnessCheckerBlock block;
        block.SetCertificate(Cert(who));
        block.SetCrl(crl);
        block.SetOcspResponse(ocsp);
        block.SetValidationTime(at);
        block.Process();
        return Outcome(block.GetRevocationFreshnessCheckerReport());
    };
    EXPECT_EQ(run(P().root, nullptr, nullptr), "repPassed") << "a trust anchor is always fresh";
    EXPECT_EQ(run(P().qes, nullptr, nullptr),
              "repIndeterminate/repNoSubStatusIndication/" + Description(ErrRevocationUnknown))
        << "no data: the generic issue, whose sub-status reads 0";

    const X509Crl crl = Crl(P().ca);
    EXPECT_EQ(run(P().qes, &crl, nullptr, kNextUpdate), "repPassed") << "valid up to nextUpdate";
    EXPECT_EQ(run(P().qes, &crl, nullptr, kNextUpdate + 1),
              "repFailed/repNoSubStatusIndication/Validation time is after CRL nextUpdate.")
        << "one second later";
    const X509Crl open = Crl(P().ca, {}, 0);
    EXPECT_EQ(run(P().qes, &open, nullptr),
              "repFailed/repNoSubStatusIndication/CRL nextUpdate is not set");

    const QorOcsp2Lib::OcspResponse good = Ocsp(P().qes, V_OCSP_CERTSTATUS_GOOD);
    EXPECT_EQ(run(P().qes, &open, &good), "repPassed") << "OCSP takes precedence over the CRL";
    EXPECT_EQ(run(P().qes, nullptr, &good, kNextUpdate + 1),
              "repFailed/repNoSubStatusIndication/Validation time is after OCSP nextUpdate.");
    OcspAnswer withoutNext{P().qes.cert.get(), V_OCSP_CERTSTATUS_GOOD, -1, 0, kThisUpdate, 0};
    const auto noNext =
        DecodedOcsp(OcspPlan(&P().ca, P().ca.cert.get(), {withoutNext}, kThisUpdate));
    EXPECT_EQ(run(P().qes, nullptr, &noNext),
              "repFailed/repNoSubStatusIndication/OCSP nextUpdate is not set");
    const auto two =
        DecodedOcsp(OcspPlan(&P().ca, P().ca.cert.get(), {withoutNext, withoutNext}, kThisUpdate));
    EXPECT_EQ(run(P().qes, nullptr, &two),
              "repIndeterminate/repNoSubStatusIndication/Single OCSP responses occurs more than "
              "once.");
}
