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

bool EndsWith(const std::wstring& text, const std::wstring& tail) {
    return text.size() >= tail.size() &&
           text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

class LoggingSetupTest : public ::testing::Test {
protected:
    void SetUp() override { RecordingLog::Instance().Reset(); }
    void TearDown() override {
        Tessera_UnInitializeLogging();
        Tessera_InitializeLogging(nullptr, false);
        Tessera_UnInitializeLogging();
    }
};

}  // namespace

TEST(VersionTest, TextHasTheFixedFrame) {
    qorstd::QorStringW text(L"previous content");
    ASSERT_EQ(Tessera_GetVersionString(&text), 1);
    const std::wstring version = text.c_str();
    EXPECT_EQ(version.rfind(L"Version:v2.22.1.0,Revision:", 0), 0u) << "replaces, not appends";
    EXPECT_TRUE(EndsWith(version, L",Build date:Apr 11 2018,Build time:09:10:36"))
        << "got: " << text.c_str();
    EXPECT_EQ(Tessera_GetVersionString(nullptr), 0);
}

TEST(StartUpTest, InitializeRegistersTheObjectTableAgainAfterShutDown) {
    ASSERT_EQ(Tessera_Initialize(), 1);
    EXPECT_EQ(LongName("1.3.6.1.4.1.47385.4.1"), "Q.OR Vantor");
    EXPECT_EQ(LongName("1.3.6.1.4.1.47385.5"), "Q.OR Fexton");
    EXPECT_EQ(LongName("1.3.36.8.3.13"), "Common PKI CertHash");
    EXPECT_EQ(LongName("1.3.6.1.4.1.11801.2.1"), "MPSV IK");
    EXPECT_EQ(std::string(OBJ_nid2sn(OBJ_txt2nid("2.5.29.60"))), "expiredCertsOnCRL");
    EXPECT_EQ(LongName("2.5.4.97"), "organizationIdentifier") << "known to OpenSSL already";

    EXPECT_EQ(Tessera_Initialize(), 1) << "a second start-up is harmless";
    EXPECT_EQ(Tessera_Uninitialize(), 1);
    EXPECT_EQ(Tessera_Initialize(), 1) << "the library starts again after shut-down";
    EXPECT_EQ(LongName("1.3.6.1.4.1.47385.4.8"), "Q.OR Vantor QSCD");
    EXPECT_EQ(Tessera_Uninitialize(), 1);
}

TEST(StartUpTest, Pkcs11StartUpRefusesANullModule) {
    EXPECT_EQ(Tessera_InitializePkcs11(nullptr, nullptr), 0);
    EXPECT_EQ(Tessera_UninitializePkcs11(), 1);
}

TEST_F(LoggingSetupTest, LibraryChannelAnnouncesTheVersionAtDebug) {
    RecordingLog& log = RecordingLog::Instance();
    // The version line is written without asking whether Debug is enabled.
    log.SetLevelEnabled(Level::Debug, false);
    const LoggingCallbacks table = log.Table();
    ASSERT_EQ(Tessera_InitializeLogging(&table, true), 1);
    ASSERT_EQ(log.Opened(), std::vector<std::wstring>{L"Tessera"}) << "the library channel";
    const auto lines = log.LinesOf(L"Tessera");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, Level::Debug);
    EXPECT_EQ(lines[0].text.rfind(L"Version:v2.22.1.0,", 0), 0u);

    EXPECT_EQ(Tessera_UnInitializeLogging(), 1);
    EXPECT_EQ(log.Closed(), std::vector<std::wstring>{L"Tessera"}) << "closed on uninitialize";
    EXPECT_EQ(Tessera_UnInitializeLogging(), 1) << "a second call has nothing to close";
    EXPECT_EQ(log.Closed().size(), 1u);
}

TEST_F(LoggingSetupTest, ReinstallingClosesThePreviousLibraryChannel) {
    RecordingLog& log = RecordingLog::Instance();
    const LoggingCallbacks table = log.Table();
    ASSERT_EQ(Tessera_InitializeLogging(&table, false), 1);
    ASSERT_EQ(Tessera_InitializeLogging(&table, false), 1);
    EXPECT_EQ(log.Opened().size(), 2u);
    EXPECT_EQ(log.Closed(), std::vector<std::wstring>{L"Tessera"})
        << "the first channel was replaced";
}

TEST_F(LoggingSetupTest, NullOrOpenlessTableTurnsLoggingOff) {
    RecordingLog& log = RecordingLog::Instance();
    EXPECT_EQ(Tessera_InitializeLogging(nullptr, false), 1);
    EXPECT_EQ(Tessera_InitializeLogging(nullptr, true), 1);

    LoggingCallbacks openless = log.Table();
    openless.open = nullptr;
    EXPECT_EQ(Tessera_InitializeLogging(&openless, false), 1);
    EXPECT_TRUE(log.Opened().empty());
    EXPECT_TRUE(log.Lines().empty()) << "an absent table writes nothing";
}

TEST_F(LoggingSetupTest, FailedOpenLeavesTheChannelClosed) {
    RecordingLog& log = RecordingLog::Instance();
    log.SetOpenSucceeds(false);
    const LoggingCallbacks table = log.Table();
    EXPECT_EQ(Tessera_InitializeLogging(&table, false), 1) << "a failed open is not a failure";
    EXPECT_EQ(log.Opened().size(), 1u);
    EXPECT_TRUE(log.Lines().empty());
    Tessera_UnInitializeLogging();
    EXPECT_TRUE(log.Closed().empty()) << "nothing to close when open failed";
}

TEST_F(LoggingSetupTest, IncludeLibrariesHandsTheTableToTheTimeStampAndOcspLibraries) {
    RecordingLog& log = RecordingLog::Instance();
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

    ASSERT_EQ(Tessera_InitializeLogging(&table, false), 1);
    useBoth();
    EXPECT_FALSE(log.WasOpened(L"QorTsp2.TspClient")) << "without includeLibraries";
    EXPECT_FALSE(log.WasOpened(L"QorOcsp2.OcspClient"));

    ASSERT_EQ(Tessera_InitializeLogging(&table, true), 1);
    useBoth();
    EXPECT_TRUE(log.WasOpened(L"QorTsp2.TspClient")) << "the time-stamp library logs now";
    EXPECT_TRUE(log.WasOpened(L"QorOcsp2.OcspClient")) << "the OCSP library logs now";
    QorTsp2_InitializeLogging(nullptr);
    QorOcsp2_InitializeLogging(nullptr);
}
