// Validation reports: the indented text of whole report trees, ownership and
// deep copies, the generic issue, channel names and the JSON form. Times
// print in local time; the tests run with TZ=UTC.
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

#include "RecordingLog.h"
#include "Tessera.h"
#include "TestPki.h"
#include "TestTsa.h"
#include "TspTimeStamp.h"
#include "ValidationReport.h"
#include "X509Chain.h"

using namespace TesseraLib;
using tessera_test::TestTsa;
using tessera_test::UtcTime;

namespace {

using Block = ValidationBlockReport;

const std::int64_t kValidationTime = UtcTime(2024, 6, 2, 8, 30, 0);  // a Sunday
const std::int64_t kStampTime = UtcTime(2024, 6, 1, 12, 0, 0);       // TsaReply's genTime

template <class Report>
std::wstring Printed(const Report& report) {
    std::wostringstream os;
    report.Print(os);
    return os.str();
}

template <class Report>
Report* Made(Block::cptReportStatus status, Block::cptReportSubStatus subStatus,
             const wchar_t* issue = L"") {
    auto* report = new Report();
    report->SetStatusIndication(status);
    report->SetSubStatusIndication(subStatus);
    report->SetIssue(issue);
    return report;
}

BasicSignatureValidationProcessReport* Basic(ValidationProcess::cptSignatureStandard standard) {
    auto* basic = new BasicSignatureValidationProcessReport();
    basic->SetSignatureStandard(standard);
    basic->SetValidationTime(kValidationTime);
    basic->SetTotalStatusIndication(ValidationReport::repTotalPassed);
    return basic;
}

// One token of the in-process TSA, issued at kStampTime.
QorTsp2Lib::TspTimeStamp Token() {
    static const TestTsa tsa;
    const tessera_test::Bytes der =
        tsa.Token(EVP_sha256(), TestTsa::Digest(EVP_sha256(), "signature value"), true);
    QorTsp2Lib::TspTimeStamp token;
    token.Decode(der.data(), static_cast<unsigned int>(der.size()));
    return token;
}

X509Certificate* Certificate(const char* commonName, long serial) {
    const tessera_test::Issued issued = tessera_test::IssueCertificate(
        tessera_test::BasicProfile(commonName, serial, false), nullptr);
    return new X509Certificate(issued.cert.get());
}

}  // namespace

TEST(ValidationReportText, BlocksPrintTitleOwnLinesAndIndication) {
    std::unique_ptr<FormatCheckingReport> passed(
        Made<FormatCheckingReport>(Block::repPassed, Block::repFormatFailure));
    passed->SetFailureReason("never shown");
    EXPECT_EQ(Printed(*passed), L"> Format checking\n  Indication: repPassed\n")
        << "a passed block shows neither sub-indication nor failure reason";

    std::unique_ptr<FormatCheckingReport> failed(Made<FormatCheckingReport>(
        Block::repFailed, Block::repFormatFailure, L"No signer was found."));
    EXPECT_EQ(Printed(*failed),
              L"> Format checking\n"
              L"  FailureReason: \n"
              L"  Indication: repFailed\n"
              L"  SubIndication: repFormatFailure\n"
              L"  Issue: No signer was found.\n")
        << "a failed format check shows its (empty) reason before the indication";

    std::unique_ptr<ValidationContextInitializationReport> context(
        Made<ValidationContextInitializationReport>(Block::repIndeterminate,
                                                    Block::repPolicyProcessingError));
    context->SetValidationPolicyOID("1.3.6.1.4.1.47385.20.2.0");
    EXPECT_EQ(Printed(*context),
              L"> Validation context initialization\n"
              L"  ValidationPolicyOID: 1.3.6.1.4.1.47385.20.2.0\n"
              L"  Indication: repIndeterminate\n"
              L"  SubIndication: repPolicyProcessingError\n")
        << "the OID always, no issue line for an empty issue";

    std::unique_ptr<RevocationFreshnessCheckerReport> freshness(
        Made<RevocationFreshnessCheckerReport>(Block::repFailed, Block::repRevoked));
    EXPECT_EQ(Printed(*freshness),
              L"> Revocation freshness checker\n"
              L"  Indication: repFailed\n"
              L"  SubIndication: repNoSubStatusIndication\n")
        << "revocation freshness never shows the sub-status it was given";

    std::unique_ptr<SignatureAcceptanceValidationReport> acceptance(
        Made<SignatureAcceptanceValidationReport>(Block::repIndeterminate,
                                                  Block::repSigConstraintsFailure));
    acceptance->AddFailedConstraint("Signing time attribute");
    EXPECT_EQ(Printed(*acceptance),
              L"> Signature acceptance validation\n"
              L"  Indication: repIndeterminate\n"
              L"  SubIndication: repSigConstraintsFailure\n")
        << "failed constraints are not part of the text";

    const QorTsp2Lib::TspTimeStamp token = Token();
    std::unique_ptr<TimeStampValidationReport> stamp(Made<TimeStampValidationReport>(
        Block::repFailed, Block::repHashFailure, L"Incorrect message imprint value."));
    stamp->SetTimeStamp(&token);
    EXPECT_EQ(Printed(*stamp),
              L"> TimeStamp validation\n"
              L"  Indication: repFailed\n"
              L"  SubIndication: repHashFailure\n"
              L"  Issue: Incorrect message imprint value.\n")
        << "the token's time only for a passed time-stamp";
}

TEST(ValidationReportText, ProcessReportsIndentTheirBlocksAndSummariseAtTheirOwnLevel) {
    std::unique_ptr<BasicSignatureValidationProcessReport> basic(
        Basic(ValidationProcess::vptEN319122_1));
    basic->SetTotalStatusIndication(ValidationReport::repTotalFailed);
    basic->SetSubStatusIndication(Block::repHashFailure);
    basic->SetCryptographicVerificationReport(Made<CryptographicVerificationReport>(
        Block::repFailed, Block::repHashFailure, L"Hash mismatch."));
    basic->SetFormatCheckingReport(
        Made<FormatCheckingReport>(Block::repPassed, Block::repNoSubStatusIndication));
    EXPECT_EQ(Printed(*basic),
              L"> Basic Signature Validation Process\n"
              L"  > Format checking\n"
              L"    Indication: repPassed\n"
              L"  > Cryptographic verification\n"
              L"    Indication: repFailed\n"
              L"    SubIndication: repHashFailure\n"
              L"    Issue: Hash mismatch.\n"
              L"  Signature standard: vptEN319122_1\n"
              L"  ValidationTime: Sun Jun  2 08:30:00 2024\n"
              L"  Indication: repTotalFailed\n"
              L"  SubIndication: repHashFailure\n")
        << "blocks in process order, one level down, then the summary";

    const QorTsp2Lib::TspTimeStamp token = Token();
    TimeStampValidationReport stamp;
    stamp.SetStatusIndication(Block::repPassed);
    stamp.SetTimeStamp(&token);
    stamp.SetBasicSignatureValidationProcessReport(Basic(ValidationProcess::vptRFC3161));
    SignatureWithTimeValidationProcessReport withTime;
    withTime.SetSignatureStandard(ValidationProcess::vptEN319122_1);
    withTime.SetValidationTime(kValidationTime);
    withTime.SetTotalStatusIndication(ValidationReport::repTotalPassed);
    withTime.SetBestSignatureTime(kStampTime);
    std::unique_ptr<BasicSignatureValidationProcessReport> inner(
        Basic(ValidationProcess::vptEN319122_1));
    inner->SetFormatCheckingReport(
        Made<FormatCheckingReport>(Block::repPassed, Block::repNoSubStatusIndication));
    withTime.SetBasicSignatureValidationProcessReport(inner.release());
    withTime.AddSignatureTimeStampReport(&stamp);
    withTime.SetSignatureAcceptanceValidationReport(Made<SignatureAcceptanceValidationReport>(
        Block::repPassed, Block::repNoSubStatusIndication));
    EXPECT_EQ(Printed(withTime),
              L"> Signature With Time Validation Process\n"
              L"  > Basic Signature Validation Process\n"
              L"    > Format checking\n"
              L"      Indication: repPassed\n"
              L"    Signature standard: vptEN319122_1\n"
              L"    ValidationTime: Sun Jun  2 08:30:00 2024\n"
              L"    Indication: repTotalPassed\n"
              L"    SubIndication: repNoSubStatusIndication\n"
              L"  > Time Stamp Validation Reports\n"
              L"    > TimeStamp validation\n"
              L"      > Basic Signature Validation Process\n"
              L"        Signature standard: vptRFC3161\n"
              L"        ValidationTime: Sun Jun  2 08:30:00 2024\n"
              L"        Indication: repTotalPassed\n"
              L"        SubIndication: repNoSubStatusIndication\n"
              L"      TimeStamp time: 20240601120000Z\n"
              L"      Indication: repPassed\n"
              L"  > Signature acceptance validation\n"
              L"    Indication: repPassed\n"
              L"  Best Signature Time: Sat Jun  1 12:00:00 2024\n"
              L"  Signature standard: vptEN319122_1\n"
              L"  ValidationTime: Sun Jun  2 08:30:00 2024\n"
              L"  Indication: repTotalPassed\n"
              L"  SubIndication: repNoSubStatusIndication\n")
        << "time-stamp reports two levels down, their basic reports three";

    SignatureWithTimeValidationProcessReport empty;
    empty.SetValidationTime(kValidationTime);
    empty.SetBestSignatureTime(kValidationTime);
    EXPECT_EQ(Printed(empty),
              L"> Signature With Time Validation Process\n"
              L"  > Time Stamp Validation Reports\n"
              L"      No Time Stamp Report\n"
              L"  Best Signature Time: Sun Jun  2 08:30:00 2024\n"
              L"  Signature standard: vptNotSet\n"
              L"  ValidationTime: Sun Jun  2 08:30:00 2024\n"
              L"  Indication: repIndeterminate\n"
              L"  SubIndication: repNoSubStatusIndication\n")
        << "no time-stamp reports is said at the time-stamp reports' level";
}

// Run under ASan, these also prove that nothing is freed twice or leaked.
TEST(ValidationReportOwnership, SettersAdoptAndCopiesAreDeep) {
    BasicSignatureValidationProcessReport basic;
    FormatCheckingReport* format = new FormatCheckingReport();
    basic.SetFormatCheckingReport(format);
    basic.SetFormatCheckingReport(format);
    format->SetFailureReason("still alive");
    EXPECT_EQ(basic.GetFormatCheckingReport(), format) << "setting the same report again keeps it";
    basic.SetFormatCheckingReport(new FormatCheckingReport());  // the first one is deleted

    auto* x509 = new X509CertificateValidationReport();
    auto* chain = new X509Chain();
    std::unique_ptr<X509Certificate> signer(Certificate("Signer", 0x51));
    chain->GetElements().Add(X509ChainElement(*signer));
    x509->SetCertificateChain(chain);
    x509->SetCertificateChain(chain);
    x509->SetRevocationFreshnessCheckerReport(new RevocationFreshnessCheckerReport());
    basic.SetX509CertificateValidationReport(x509);
    auto* crypto = new CryptographicVerificationReport();
    crypto->SetSigningCertificate(signer.release());
    basic.SetCryptographicVerificationReport(crypto);

    BasicSignatureValidationProcessReport copy(basic);
    const X509CertificateValidationReport* copied = copy.GetX509CertificateValidationReport();
    ASSERT_NE(copied, nullptr) << "the copy has the X.509 report";
    EXPECT_NE(copied, x509) << "sub-reports are cloned";
    EXPECT_NE(copied->GetCertificateChain(), chain) << "the chain is cloned";
    EXPECT_EQ(copied->GetCertificateChain()->GetElements().GetSize(), 1u) << "with its elements";
    EXPECT_NE(copied->GetRevocationFreshnessCheckerReport(),
              x509->GetRevocationFreshnessCheckerReport())
        << "the nested freshness report is cloned";
    EXPECT_NE(copy.GetCryptographicVerificationReport()->GetSigningCertificate(),
              crypto->GetSigningCertificate())
        << "the signing certificate is copied";
    copy.GetFormatCheckingReport()->SetStatusIndication(Block::repFailed);
    EXPECT_EQ(basic.GetFormatCheckingReport()->GetStatusIndication(), Block::repIndeterminate)
        << "changing the copy leaves the original alone";

    basic = copy;
    EXPECT_EQ(basic.GetFormatCheckingReport()->GetStatusIndication(), Block::repFailed)
        << "assignment replaces the sub-reports by copies";
    EXPECT_NE(basic.GetFormatCheckingReport(), copy.GetFormatCheckingReport())
        << "assignment copies deeply too";
}

TEST(ValidationReportOwnership, TimeStampReportsAreStoredAsClones) {
    TimeStampValidationReport mine;
    mine.SetStatusIndication(Block::repPassed);
    mine.SetBasicSignatureValidationProcessReport(new BasicSignatureValidationProcessReport());
    SignatureWithTimeValidationProcessReport withTime;
    withTime.AddSignatureTimeStampReport(&mine);
    mine.SetStatusIndication(Block::repFailed);
    ASSERT_EQ(withTime.GetSignatureTimeStampReports().GetSize(), 1u) << "one report added";
    const TimeStampValidationReport* stored = withTime.GetSignatureTimeStampReports()[0];
    EXPECT_NE(stored, &mine) << "a clone is stored";
    EXPECT_EQ(stored->GetStatusIndication(), Block::repPassed)
        << "later changes of the caller's report do not reach the stored one";

    SignatureWithTimeValidationProcessReport copy;
    copy.AddSignatureTimeStampReport(&mine);
    copy = withTime;
    ASSERT_EQ(copy.GetSignatureTimeStampReports().GetSize(), 1u) << "assignment replaces the list";
    EXPECT_NE(copy.GetSignatureTimeStampReports()[0], stored) << "with clones of its own";
    std::unique_ptr<SignatureWithTimeValidationProcessReport> clone(withTime.Clone());
    EXPECT_NE(clone->GetSignatureTimeStampReports()[0], stored) << "Clone copies deeply";
}

TEST(ValidationReportGeneric, GenericIssueIsIndeterminateGeneric) {
    FormatCheckingReport report;
    report.SetGenericIssue(L"Signature is not present.");
    EXPECT_EQ(Block::IsGeneric(report), 1) << "a generic issue is generic";
    EXPECT_EQ(report.GetIssue(), qorstd::QorStringW(L"Signature is not present."))
        << "with the text given";
    report.SetStatusIndication(Block::repPassed);
    EXPECT_EQ(Block::IsGeneric(report), 0) << "a passed report is not generic";
}

TEST(ValidationReportLog, EveryReportOpensAChannelNamedAfterItsClass) {
    tessera_test::RecordingLog& log = tessera_test::RecordingLog::Instance();
    log.Reset();
    const LoggingCallbacks table = log.Table();
    ASSERT_EQ(Tessera_InitializeLogging(&table, false), 1) << "logging set up";
    {
        ValidationContextInitializationReport context;
        ValidationContextInitializationReport copied(context);
        SignatureWithTimeValidationProcessReport withTime;
    }
    Tessera_UnInitializeLogging();
    const std::vector<std::wstring> opened(log.Opened().begin() + 1, log.Opened().end());
    EXPECT_EQ(opened,
              (std::vector<std::wstring>{L"Tessera.ValidationContextInitializationReportReport",
                                         L"Tessera.ValidationContextInitializationReportReport",
                                         L"Tessera.SignatureWithTimeValidationProcessReport"}))
        << "one channel per object, copies included, under the class's established name";
}

TEST(ValidationReportJson, BlockReportWithChainReasonAndNestedReport) {
    X509CertificateValidationReport report;
    report.SetStatusIndication(Block::repFailed);
    report.SetSubStatusIndication(Block::repRevoked);
    report.SetIssue(L"Revoked \"key\"\n\u00e9");
    report.SetCertificateRevocationReason(QorOcsp2Lib::OcspSingleResponse::ocspReasonKeyCompromise);
    report.SetCertificateRevocationTime(UtcTime(2024, 5, 1));
    auto* chain = new X509Chain();
    std::unique_ptr<X509Certificate> signer(Certificate("Signer", 0x51));
    chain->GetElements().Add(X509ChainElement(*signer));
    report.SetCertificateChain(chain);
    report.SetRevocationFreshnessCheckerReport(new RevocationFreshnessCheckerReport());
    EXPECT_EQ(report.ToJson(),
              "{\"indication\":\"repFailed\",\"subIndication\":\"repRevoked\","
              "\"issue\":\"Revoked \\\"key\\\"\\n\xc3\xa9\","
              "\"certificateRevocationReason\":\"keyCompromise\","
              "\"certificateRevocationTime\":\"2024-05-01T00:00:00Z\",\"nextUpdate\":null,"
              "\"certificateChain\":[{\"subject\":\"O=Tessera Test,CN=Signer\","
              "\"issuer\":\"O=Tessera Test,CN=Signer\",\"serial\":\"51\"}],"
              "\"revocationFreshnessCheckerReport\":{\"indication\":\"repIndeterminate\","
              "\"subIndication\":\"repNoSubStatusIndication\",\"issue\":\"\"}}")
        << "escaped UTF-8 issue, reason by name, unset time null, chain summary, nested report";
}

TEST(ValidationReportJson, BasicProcessReportNestsBlocksAndNullsMissingOnes) {
    std::unique_ptr<BasicSignatureValidationProcessReport> basic(
        Basic(ValidationProcess::vptEN319122_1));
    basic->SetTotalStatusIndication(ValidationReport::repIndeterminate);
    basic->SetSubStatusIndication(Block::repCryptoConstraintsFailureNoPOE);
    auto* acceptance = Made<SignatureAcceptanceValidationReport>(
        Block::repIndeterminate, Block::repCryptoConstraintsFailureNoPOE,
        L"Invalid certificate signature algorithm.");
    acceptance->AddFailedConstraint("Signing time attribute");
    CryptoMaterialIdentification material("ab12",
                                          CryptoMaterialIdentification::cptMaterialCertificate);
    material.SetAlgorithmName("ecdsa-with-SHA256");
    material.SetKeyLength(256);
    acceptance->AddFailedCryptoMaterialId(material);
    basic->SetSignatureAcceptanceValidationReport(acceptance);
    EXPECT_EQ(
        basic->ToJson(),
        "{\"totalIndication\":\"repIndeterminate\","
        "\"subIndication\":\"repCryptoConstraintsFailureNoPOE\","
        "\"signatureStandard\":\"vptEN319122_1\",\"validationTime\":\"2024-06-02T08:30:00Z\","
        "\"processType\":0,\"formatChecking\":null,\"signingCertificateIdentification\":null,"
        "\"validationContextInitialization\":null,\"x509CertificateValidation\":null,"
        "\"cryptographicVerification\":null,\"signatureAcceptanceValidation\":{"
        "\"indication\":\"repIndeterminate\",\"subIndication\":"
        "\"repCryptoConstraintsFailureNoPOE\","
        "\"issue\":\"Invalid certificate signature algorithm.\","
        "\"failedConstraints\":[\"Signing time attribute\"],\"failedCryptoMaterialIds\":[{"
        "\"id\":\"ab12\",\"type\":1,\"algorithmName\":\"ecdsa-with-SHA256\",\"keyLength\":256,"
        "\"secureNotAfter\":null}]}}")
        << "summary first, every block slot present, null when missing";
}

TEST(ValidationReportJson, WithTimeReportListsTimeStampReportsWithTheirTokens) {
    const QorTsp2Lib::TspTimeStamp token = Token();
    TimeStampValidationReport stamp;
    stamp.SetStatusIndication(Block::repPassed);
    stamp.SetTimeStamp(&token);
    SignatureWithTimeValidationProcessReport withTime;
    withTime.SetValidationProcessType(ValidationProcess::vptSignatureWithTimeValidation);
    withTime.SetSignatureStandard(ValidationProcess::vptTS103173);
    withTime.SetTotalStatusIndication(ValidationReport::repTotalPassed);
    withTime.SetBestSignatureTime(kStampTime);
    withTime.AddSignatureTimeStampReport(&stamp);
    EXPECT_EQ(
        withTime.ToJson(),
        "{\"totalIndication\":\"repTotalPassed\",\"subIndication\":\"repNoSubStatusIndication\","
        "\"signatureStandard\":\"vptTS103173\",\"validationTime\":null,\"processType\":1,"
        "\"basicReport\":null,\"signatureTimeStampReports\":[{\"indication\":\"repPassed\","
        "\"subIndication\":\"repNoSubStatusIndication\",\"issue\":\"\",\"basicReport\":null,"
        "\"timeStamp\":{\"time\":\"2024-06-01T12:00:00Z\","
        "\"generalizedTime\":\"20240601120000Z\"}}],"
        "\"revocationFreshnessCheckerReport\":null,"
        "\"signatureAcceptanceValidationReport\":null,"
        "\"bestSignatureTime\":\"2024-06-01T12:00:00Z\"}")
        << "time-stamp reports as an array, the token's time both ways, unset validation time null";
}
