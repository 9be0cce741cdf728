// Qualified-certificate statements: the extension of a certificate decoded in
// order into QcStatement objects, QcType's type OIDs, copies, malformed values
// and null arguments refused, and the printing handler added at start-up.
#include <gtest/gtest.h>

#include <openssl/bio.h>
#include <openssl/x509v3.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "CryptException.h"
#include "TesseraApi.h"
#include "TestPki.h"
#include "x509/QcAsn1.h"

using namespace TesseraLib;
using tessera_test::QcStatementValue;

namespace {

const char kUnlistedType[] = "0.4.0.1862.1.6.9";

tessera_test::CertPtr CertWith(const std::vector<QcStatementValue>& statements) {
    tessera_test::CertSpec wanted;
    wanted.commonName = "Qualified";
    if (!statements.empty()) {
        wanted.qcStatements = tessera_test::QcStatementsDer(statements);
    }
    return tessera_test::IssueCertificate(wanted, nullptr).cert;
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

// The code of the CryptException `action` throws (0 for none) and its message.
int Thrown(const std::function<void()>& action, std::wstring* message = nullptr) {
    try {
        action();
    } catch (const CryptException& e) {
        if (message != nullptr) {
            *message = e.GetErrorMessage().c_str();
        }
        return e.GetErrorCode();
    }
    return 0;
}

int ParseError(const std::vector<QcStatementValue>& statements) {
    return Thrown([&] { Parsed(statements); });
}

QcType::cptCertificateType TypeWith(const std::vector<std::string>& typeOids) {
    const qorstd::QorVector<QcStatement> parsed = Parsed({tessera_test::QcTypeStatement(typeOids)});
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
    const qorstd::QorVector<QcStatement> statements = Parsed(
        {tessera_test::QcComplianceStatement(), tessera_test::QcTypeStatement({"0.4.0.1862.1.6.2"}),
         tessera_test::QcSscdStatement(),
         tessera_test::QcPdsStatement("https://pds.example/en", "en"),
         tessera_test::QcTypeStatement({kUnlistedType})});
    ASSERT_EQ(statements.GetSize(), 5u) << "one object per statement";
    EXPECT_STREQ(statements[0].GetStatementId().c_str(), "0.4.0.1862.1.1") << "QcCompliance id";
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
    EXPECT_STREQ(QcType().GetStatementId().c_str(), "0.4.0.1862.1.6") << "QcType's statement id";
}

TEST(QcStatementTest, SearchKeysAndNullArguments) {
    const QcStatement compliance("0.4.0.1862.1.1");
    EXPECT_EQ(compliance.GetStatementInfo(), nullptr) << "a search key has no information";
    EXPECT_TRUE(compliance == QcStatement("0.4.0.1862.1.1")) << "same identifier text";
    EXPECT_FALSE(compliance == QcStatement("0.4.0.1862.1.4")) << "other identifier";
    EXPECT_EQ(QcStatement(compliance).GetStatementInfo(), nullptr) << "its copy neither";

    std::wstring message;
    EXPECT_EQ(Thrown([] { QcStatement s(static_cast<const QC_STATEMENT_st*>(nullptr)); }, &message),
              ErrInvalidParameter)
        << "null statement";
    EXPECT_EQ(message, L"pQcStatement=NULL") << "its message";
    EXPECT_EQ(Thrown([] { QcType t(static_cast<const ESI_QcType*>(nullptr)); }, &message),
              ErrInvalidParameter)
        << "null QcType information";
    EXPECT_EQ(message, L"pQcType=NULL") << "its message";
}

TEST(QcStatementTest, CopiedListsKeepIdentifiersAndInformation) {
    std::unique_ptr<qorstd::QorVector<QcStatement>> copy;
    {
        const qorstd::QorVector<QcStatement> original =
            Parsed({tessera_test::QcTypeStatement({"0.4.0.1862.1.6.3"}),
                    tessera_test::QcComplianceStatement()});
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
    EXPECT_EQ(x509::ParseCertificateQcStatements(CertWith({tessera_test::QcSscdStatement()}).get(),
                                                 statements),
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
    std::vector<unsigned char> der = tessera_test::QcStatementsDer({{"0.4.0.1862.1.1", {}}});
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

    const tessera_test::CertPtr cert =
        CertWith({tessera_test::QcComplianceStatement(),
                  tessera_test::QcTypeStatement({"0.4.0.1862.1.6.2", kUnlistedType}),
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
