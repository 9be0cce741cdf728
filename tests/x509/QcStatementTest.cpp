// Qualified-certificate statements: the extension of a certificate decoded in
// order into QcStatement objects, QcType's type OIDs, copies, malformed values
// and null arguments refused, and the printing handler added at start-up.
#include <gtest/gtest.h>

#include <openssl/bio.h>
#include <openssl/x509v3.h>

#include <memory>
#include <string>
#include <vector>

#include "TesseraApi.h"
#include "TestTessera.h"
#include "x509/QcAsn1.h"

using namespace TesseraLib;
using namespace tessera_test;

namespace {

const char kUnlistedType[] = "0.4.0.1862.1.6.9";

CertPtr CertWith(const std::vector<QcStatementValue>& statements) {
    CertPlan wanted;
    wanted.commonName = "Qualified";
    if (!statements.empty()) {
        wanted.qcStatements = QcStatementsDer(statements);
    }
    return IssueCertificate(wanted, nullptr).cert;
}

// Statements of a certificate carrying `statements`.
qorstd::QorVector<QcStatement> Parsed(const std::vector<QcStatementValue>& statements) {
    qorstd::QorVector<QcStatement> out;
    x509::ParseCertificateQcStatements(CertWith(statements).get(), out);
    return out;
}

QcType::cptCertificateType TypeOf(const QcStatement& statement) {
    const QcType* type = dynamic_cast<const QcType*>(statement.GetStatementInfo());
    return type != nullptr ? type->GetCertificateType()
                           : static_cast<QcType::cptCertificateType>(-1);
}

std::string UnknownIdOf(const QcStatement& statement) {
    const QcUnknown* unknown = dynamic_cast<const QcUnknown*>(statement.GetStatementInfo());
    return unknown != nullptr ? unknown->GetStatementId().c_str() : "<not a QcUnknown>";
}

int ParseError(const std::vector<QcStatementValue>& statements) {
    return CodeOf([&] { Parsed(statements); });
}

QcType::cptCertificateType TypeWith(const std::vector<std::string>& typeOids) {
    const qorstd::QorVector<QcStatement> parsed = Parsed({QcTypeStatement(typeOids)});
    return parsed.GetSize() == 1 ? TypeOf(parsed[0]) : static_cast<QcType::cptCertificateType>(-1);
}

std::string PrintedExtension(X509* cert) {
    const int index = X509_get_ext_by_NID(cert, NID_qcStatements, -1);
    BioPtr bio(BIO_new(BIO_s_mem()));
    if (index < 0 || !bio || X509V3_EXT_print(bio.get(), X509_get_ext(cert, index), 0, 0) != 1) {
        return "<not printed>";
    }
    char* data = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &data);
    return std::string(data, static_cast<std::size_t>(length));
}

}  // namespace

TEST(QcStatementTest, DecodesEveryStatementInOrder) {
    const qorstd::QorVector<QcStatement> statements =
        Parsed({QcComplianceStatement(), QcTypeStatement({"0.4.0.1862.1.6.2"}), QcSscdStatement(),
                QcPdsStatement("https://pds.example/en", "en"), QcTypeStatement({kUnlistedType})});
    ASSERT_EQ(statements.GetSize(), 5u) << "one object per statement";
    EXPECT_EQ(UnknownIdOf(statements[0]), "0.4.0.1862.1.1") << "QcCompliance is a QcUnknown";
    EXPECT_EQ(TypeOf(statements[1]), QcType::cptCertificateTypeESeal) << "QcType eSeal";
    EXPECT_EQ(UnknownIdOf(statements[2]), "0.4.0.1862.1.4") << "QcSSCD";
    EXPECT_EQ(UnknownIdOf(statements[3]), "0.4.0.1862.1.5") << "PDS: id kept, info not decoded";
    EXPECT_EQ(TypeOf(statements[4]), QcType::cptCertificateTypeNone) << "unlisted type OID";
}

TEST(QcStatementTest, QcTypeTakesItsFirstTypeOidExactly) {
    EXPECT_EQ(TypeWith({"0.4.0.1862.1.6.1"}), QcType::cptCertificateTypeESign) << "eSign";
    EXPECT_EQ(TypeWith({"0.4.0.1862.1.6.3", "0.4.0.1862.1.6.1"}), QcType::cptCertificateTypeWeb)
        << "web; only the first OID counts";
    EXPECT_EQ(TypeWith({"0.4.0.1862.1.6.1.1"}), QcType::cptCertificateTypeNone)
        << "matched exactly, not by prefix";
    EXPECT_EQ(TypeWith({}), QcType::cptCertificateTypeNone) << "no type OID";
}

TEST(QcStatementTest, SearchKeysAndNullArguments) {
    const QcStatement compliance("0.4.0.1862.1.1");
    EXPECT_TRUE(compliance == QcStatement("0.4.0.1862.1.1")) << "same identifier text";
    EXPECT_FALSE(compliance == QcStatement("0.4.0.1862.1.4")) << "other identifier";
    EXPECT_EQ(QcStatement(compliance).GetStatementInfo(), nullptr) << "a copied key: no info";

    const Thrown noStatement =
        Catch([] { QcStatement s(static_cast<const QC_STATEMENT_st*>(nullptr)); });
    EXPECT_TRUE(noStatement.code == ErrInvalidParameter &&
                noStatement.message == "pQcStatement=NULL")
        << "null statement: 102 naming it";
    const Thrown noType = Catch([] { QcType t(static_cast<const ESI_QcType*>(nullptr)); });
    EXPECT_TRUE(noType.code == ErrInvalidParameter && noType.message == "pQcType=NULL")
        << "null QcType information: 102 naming it";
}

TEST(QcStatementTest, CopiedListsKeepIdentifiersAndInformation) {
    std::unique_ptr<qorstd::QorVector<QcStatement>> copy;
    {
        const qorstd::QorVector<QcStatement> original =
            Parsed({QcTypeStatement({"0.4.0.1862.1.6.3"}), QcComplianceStatement()});
        copy.reset(new qorstd::QorVector<QcStatement>(original));
        ASSERT_EQ(copy->GetSize(), 2u) << "both statements copied";
        EXPECT_NE((*copy)[0].GetStatementInfo(), original[0].GetStatementInfo())
            << "each copy owns its information";
    }
    EXPECT_STREQ((*copy)[0].GetStatementId().c_str(), "0.4.0.1862.1.6") << "QcType id";
    EXPECT_EQ(TypeOf((*copy)[0]), QcType::cptCertificateTypeWeb) << "type survives the copy";
    EXPECT_EQ(UnknownIdOf((*copy)[1]), "0.4.0.1862.1.1") << "QcUnknown survives the copy";
}

TEST(QcStatementTest, AppendsToTheListAndReportsMissingExtensions) {
    qorstd::QorVector<QcStatement> statements;
    statements.Add(QcStatement("1.2.3"));
    EXPECT_EQ(x509::ParseCertificateQcStatements(CertWith({QcSscdStatement()}).get(), statements),
              1)
        << "extension found";
    ASSERT_EQ(statements.GetSize(), 2u) << "appended, not replaced";
    EXPECT_STREQ(statements[1].GetStatementId().c_str(), "0.4.0.1862.1.4") << "appended last";

    EXPECT_EQ(x509::ParseCertificateQcStatements(CertWith({}).get(), statements), 0)
        << "certificate without the extension";
    EXPECT_EQ(x509::ParseCertificateQcStatements(nullptr, statements), 0) << "no certificate";
    EXPECT_EQ(statements.GetSize(), 2u) << "nothing appended when there is nothing to parse";
}

TEST(QcStatementTest, MalformedValuesAreRefused) {
    EXPECT_EQ(TypeOf(Parsed({{"0.4.0.1862.1.6", {}}})[0]), QcType::cptCertificateTypeNone)
        << "a QcType without information has no type";
    EXPECT_EQ(ParseError({{"0.4.0.1862.1.6", {0x02, 0x01, 0x05}}}), ErrAsn1Decoding)
        << "QcType information that is no SEQUENCE";
    EXPECT_EQ(ParseError({{"0.4.0.1862.1.6", {0x30, 0x03, 0x02, 0x01, 0x05}}}), ErrAsn1Decoding)
        << "QcType information holding no OIDs";
    EXPECT_EQ(ParseError({{"0.4.0.1862.1.5", {0x30, 0x03, 0x02, 0x01, 0x05}}}), 0)
        << "other statements' information is not decoded, so it cannot be malformed";

    qorstd::QorVector<QcStatement> statements;
    std::vector<unsigned char> der = QcStatementsDer({{"0.4.0.1862.1.1", {}}});
    der.push_back(0x00);
    EXPECT_FALSE(x509::AppendQcStatements(der.data(), static_cast<long>(der.size()), statements))
        << "trailing bytes";
    const unsigned char notAList[] = {0x06, 0x03, 0x2A, 0x03, 0x04};
    EXPECT_FALSE(x509::AppendQcStatements(notAList, sizeof(notAList), statements))
        << "an OID instead of a SEQUENCE OF";
    EXPECT_FALSE(x509::AppendQcStatements(notAList, 0, statements)) << "no bytes";
    const unsigned char emptyList[] = {0x30, 0x00};
    EXPECT_TRUE(x509::AppendQcStatements(emptyList, sizeof(emptyList), statements))
        << "an empty list decodes";
    EXPECT_EQ(statements.GetSize(), 0u) << "nothing appended by any of these";
}

TEST(QcStatementTest, StartUpRegistersThePrintingHandlerOnce) {
    ASSERT_EQ(Tessera_Initialize(), 1) << "start-up";
    const X509V3_EXT_METHOD* handler = X509V3_EXT_get_nid(NID_qcStatements);
    ASSERT_NE(handler, nullptr) << "handler registered";

    const CertPtr cert = CertWith({QcComplianceStatement(),
                                   QcTypeStatement({"0.4.0.1862.1.6.2", kUnlistedType}),
                                   {"0.4.0.1862.1.5", {0x30, 0x03, 0x02, 0x01, 0x05}}});
    EXPECT_EQ(PrintedExtension(cert.get()),
              "0.4.0.1862.1.1\n"
              "0.4.0.1862.1.6\n"
              "  QcType: 0.4.0.1862.1.6.2\n"
              "  QcType: 0.4.0.1862.1.6.9\n"
              "0.4.0.1862.1.5\n")
        << "ids listed, QcType's types below, a malformed PDS tolerated";

    for (int round = 0; round < 2; ++round) {
        Tessera_Uninitialize();
        ASSERT_EQ(Tessera_Initialize(), 1) << "restart " << round;
    }
    EXPECT_EQ(X509V3_EXT_get_nid(NID_qcStatements), handler)
        << "restarts keep the one handler OpenSSL already holds";
    Tessera_Uninitialize();
}
