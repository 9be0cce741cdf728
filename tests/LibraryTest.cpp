// The C functions: version text, start-up and shut-down, logging set-up.
#include <gtest/gtest.h>

#include <openssl/objects.h>

#include <string>

#include "QorOcsp2.h"
#include "QorTsp2.h"
#include "RecordingLog.h"
#include "TesseraApi.h"

using tessera_test::Level;
using tessera_test::RecordingLog;

namespace {

std::string LongName(const char* oid) {
    const int nid = OBJ_txt2nid(oid);
    return nid == NID_undef ? std::string() : std::string(OBJ_nid2ln(nid));
}

class LoggingSetupTest : public ::testing::Test {
protected:
    void SetUp() override { log.Reset(); }
    void TearDown() override {
        Tessera_UnInitializeLogging();
        Tessera_InitializeLogging(nullptr, false);
        Tessera_UnInitializeLogging();
    }
    RecordingLog& log = RecordingLog::Instance();
};

}  // namespace

// The whole text is checked by `tessera version` in check_cli.sh.
TEST(VersionTest, ReplacesTheCallersTextAndRefusesNull) {
    qorstd::QorStringW text(L"previous content");
    ASSERT_EQ(Tessera_GetVersionString(&text), 1) << "the version is given";
    EXPECT_EQ(std::wstring(text.c_str()).rfind(L"Version:v2.22.1.0,", 0), 0u)
        << "replaces, not appends";
    EXPECT_EQ(Tessera_GetVersionString(nullptr), 0) << "null is refused";
}

TEST(StartUpTest, InitializeRegistersTheObjectTableAgainAfterShutDown) {
    ASSERT_EQ(Tessera_Initialize(), 1) << "start-up";
    EXPECT_EQ(LongName("1.3.6.1.4.1.47385.4.1"), "Q.OR Vantor") << "an OID of the library's table";
    EXPECT_EQ(LongName("2.5.4.97"), "organizationIdentifier") << "known to OpenSSL already";

    EXPECT_EQ(Tessera_Initialize(), 1) << "a second start-up is harmless";
    EXPECT_EQ(Tessera_Uninitialize(), 1) << "shut-down";
    EXPECT_EQ(Tessera_Initialize(), 1) << "the library starts again after shut-down";
    EXPECT_EQ(LongName("1.3.6.1.4.1.47385.4.8"), "Q.OR Vantor QSCD") << "registered again";
    EXPECT_EQ(Tessera_Uninitialize(), 1) << "shut-down";

    EXPECT_EQ(Tessera_InitializePkcs11(nullptr, nullptr), 0) << "PKCS#11 needs a module";
    EXPECT_EQ(Tessera_UninitializePkcs11(), 1) << "PKCS#11 shut-down without start-up";
}

TEST_F(LoggingSetupTest, LibraryChannelAnnouncesTheVersionAtDebugAndClosesOnce) {
    log.SetLevelEnabled(Level::Debug, false);  // written without asking whether Debug is on
    const LoggingCallbacks table = log.Table();
    ASSERT_EQ(Tessera_InitializeLogging(&table, true), 1) << "set-up succeeds";
    ASSERT_EQ(log.Opened(), std::vector<std::wstring>{L"Tessera"}) << "the library channel";
    const auto lines = log.LinesOf(L"Tessera");
    ASSERT_EQ(lines.size(), 1u) << "one announcement";
    EXPECT_EQ(lines[0].level, Level::Debug) << "at Debug";
    EXPECT_EQ(lines[0].text.rfind(L"Version:v2.22.1.0,", 0), 0u) << "the version text";

    ASSERT_EQ(Tessera_InitializeLogging(&table, false), 1) << "set-up again";
    EXPECT_EQ(log.Closed(), std::vector<std::wstring>{L"Tessera"})
        << "reinstalling closed the first channel";
    EXPECT_EQ(Tessera_UnInitializeLogging(), 1) << "uninitialize";
    EXPECT_EQ(Tessera_UnInitializeLogging(), 1) << "a second call has nothing to close";
    EXPECT_EQ(log.Closed().size(), 2u) << "each channel closed once";
}

TEST_F(LoggingSetupTest, NullOpenlessOrRefusingTablesLogNothing) {
    EXPECT_EQ(Tessera_InitializeLogging(nullptr, false), 1) << "null turns logging off";
    EXPECT_EQ(Tessera_InitializeLogging(nullptr, true), 1) << "also with the libraries";
    LoggingCallbacks openless = log.Table();
    openless.open = nullptr;
    EXPECT_EQ(Tessera_InitializeLogging(&openless, false), 1) << "a table without open";
    EXPECT_TRUE(log.Opened().empty() && log.Lines().empty()) << "an absent table writes nothing";

    log.SetOpenSucceeds(false);
    const LoggingCallbacks table = log.Table();
    EXPECT_EQ(Tessera_InitializeLogging(&table, false), 1) << "a failed open is not a failure";
    EXPECT_EQ(log.Opened().size(), 1u) << "open was tried";
    EXPECT_TRUE(log.Lines().empty()) << "nothing written";
}

TEST_F(LoggingSetupTest, IncludeLibrariesHandsTheTableToTheTimeStampAndOcspLibraries) {
    QorTsp2_InitializeLogging(nullptr);
    QorOcsp2_InitializeLogging(nullptr);
    const LoggingCallbacks table = log.Table();
    auto useBoth = [] {
        QorTsp2Lib::TspClient tsp(L"http://127.0.0.1:1/");
        QorOcsp2Lib::OcspClient ocsp;
        QorOcsp2Lib::OcspResponse response;
        try {
            ocsp.SendRequest(QorOcsp2Lib::OcspCertificate(), response, 1);
        } catch (const QorOcsp2Lib::OcspException&) {
        }
    };
    ASSERT_EQ(Tessera_InitializeLogging(&table, false), 1) << "set-up without the libraries";
    useBoth();
    EXPECT_FALSE(log.WasOpened(L"QorTsp2.TspClient")) << "without includeLibraries";
    EXPECT_FALSE(log.WasOpened(L"QorOcsp2.OcspClient")) << "without includeLibraries";

    ASSERT_EQ(Tessera_InitializeLogging(&table, true), 1) << "set-up with the libraries";
    useBoth();
    EXPECT_TRUE(log.WasOpened(L"QorTsp2.TspClient")) << "the time-stamp library logs now";
    EXPECT_TRUE(log.WasOpened(L"QorOcsp2.OcspClient")) << "the OCSP library logs now";
    QorTsp2_InitializeLogging(nullptr);
    QorOcsp2_InitializeLogging(nullptr);
}
