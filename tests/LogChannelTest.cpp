// Log channels: naming, the table copy taken at construction, enabled checks,
// the formatting limit, close-on-destroy and the OpenSSL error dump.
#include <gtest/gtest.h>

#include <openssl/err.h>
#include <openssl/x509.h>

#include <functional>
#include <string>

#include "Failure.h"
#include "LogChannel.h"
#include "RecordingLog.h"

using tessera_test::Level;
using tessera_test::RecordingLog;
using TesseraLib::LogChannel;
using TesseraLib::LogLevel;

namespace {

class LogChannelTest : public ::testing::Test {
protected:
    void SetUp() override {
        RecordingLog::Instance().Reset();
        table = RecordingLog::Instance().Table();
        TesseraLib::logging::InstallCallbacks(&table);
        TesseraLib::logging::SetPrefix(L"Tessera");
    }
    void TearDown() override {
        TesseraLib::logging::InstallCallbacks(nullptr);
        TesseraLib::logging::SetPrefix(L"");
    }
    RecordingLog& log = RecordingLog::Instance();
    LoggingCallbacks table{};
};

}  // namespace

TEST_F(LogChannelTest, NamesTakeThePrefixUnlessTheyStartWithAPoint) {
    {
        LogChannel chain(L"X509Chain");
        LogChannel nested(L"SignedCms.SignerInfo");
        LogChannel own(L".Tessera");
        EXPECT_TRUE(chain.IsOpen()) << "an opened channel";
    }
    EXPECT_EQ(log.Opened(), (std::vector<std::wstring>{
                                L"Tessera.X509Chain", L"Tessera.SignedCms.SignerInfo", L"Tessera"}))
        << "prefixed names; a leading point stands for the prefix alone";
    EXPECT_EQ(log.Closed().size(), 3u) << "each destroyed channel closes its handle";

    TesseraLib::logging::SetPrefix(L"");
    LogChannel plain(L"X509Chain");
    EXPECT_EQ(log.Opened().back(), L"X509Chain") << "without a prefix the name stands alone";
}

TEST_F(LogChannelTest, UnusableNamesAndFailedOpensStayClosedAndSilent) {
    {
        LogChannel empty(L"");
        LogChannel point(L".");
        LogChannel null(nullptr);
        EXPECT_FALSE(empty.IsOpen() || point.IsOpen() || null.IsOpen()) << "unusable names";
        EXPECT_TRUE(log.Opened().empty()) << "open is never called for them";
        empty.Write(LogLevel::Error, L"lost");
        EXPECT_EQ(empty.IsEnabled(LogLevel::Error), 0)
            << "a closed channel reports nothing enabled";
    }
    log.SetOpenSucceeds(false);
    {
        LogChannel channel(L"Refused");
        EXPECT_FALSE(channel.IsOpen()) << "the open callback failed";
        channel.WriteFormat(LogLevel::Error, L"%d", 1);
    }
    EXPECT_EQ(log.Opened().size(), 1u) << "open was tried once";
    EXPECT_TRUE(log.Closed().empty()) << "no close without an open";
    EXPECT_TRUE(log.Lines().empty()) << "no output from closed channels";
}

TEST_F(LogChannelTest, ChannelsKeepTheTableTheyWereBuiltWith) {
    TesseraLib::logging::InstallCallbacks(nullptr);
    LogChannel early(L"Early");
    TesseraLib::logging::InstallCallbacks(&table);
    LogChannel late(L"Late");
    early.Write(LogLevel::Error, L"never");
    late.Write(LogLevel::Error, L"seen");
    EXPECT_EQ(log.Opened(), std::vector<std::wstring>{L"Tessera.Late"})
        << "a channel built while logging was off never logs";

    TesseraLib::logging::InstallCallbacks(nullptr);
    late.Write(LogLevel::Info, L"still seen");
    ASSERT_EQ(log.Lines().size(), 2u) << "clearing the table does not affect existing channels";
    EXPECT_EQ(log.Lines()[1].text, L"still seen") << "the later line";
}

TEST_F(LogChannelTest, EnabledChecksAnswerThroughTheirSlots) {
    log.SetLevelEnabled(Level::Info, false);
    LogChannel channel(L"Checks");
    EXPECT_EQ(channel.IsEnabled(LogLevel::Error), 1) << "the callback's answer for Error";
    EXPECT_EQ(channel.IsEnabled(LogLevel::Info), 0) << "the callback's answer for Info";

    LoggingCallbacks partial = table;
    partial.isWarningEnabled = nullptr;
    partial.writeDebug = nullptr;
    TesseraLib::logging::InstallCallbacks(&partial);
    LogChannel sparse(L"Sparse");
    EXPECT_EQ(sparse.IsEnabled(LogLevel::Warning), 0) << "a null check slot answers 0";
    sparse.Write(LogLevel::Debug, L"dropped");
    sparse.Write(LogLevel::Warning, L"kept");
    ASSERT_EQ(log.Lines().size(), 1u) << "a null write slot is a no-op";
    EXPECT_EQ(log.Lines()[0].level, Level::Warning) << "the other slots still write";
}

TEST_F(LogChannelTest, FormattedTextIsLimitedTo1023Characters) {
    LogChannel channel(L"Format");
    const std::wstring fits(1023, L'a');
    const std::wstring tooLong(1024, L'b');
    channel.WriteFormat(LogLevel::Info, L"Sign(Type:%ld Detached:%ls)", 3L, L"true");
    channel.WriteFormat(LogLevel::Info, L"%ls", fits.c_str());
    channel.WriteFormat(LogLevel::Info, L"%ls", tooLong.c_str());
    channel.WriteFormat(LogLevel::Info, L"%ls", L"");
    ASSERT_EQ(log.Lines().size(), 4u) << "one line per call";
    EXPECT_EQ(log.Lines()[0].text, L"Sign(Type:3 Detached:true)") << "printf-style formatting";
    EXPECT_EQ(log.Lines()[1].text, fits) << "1023 characters still fit";
    EXPECT_EQ(log.Lines()[2].text, L"Message too long.") << "1024 characters do not";
    EXPECT_EQ(log.Lines()[3].text, L"Message too long.")
        << "an empty result is not written as such";
}

TEST_F(LogChannelTest, CryptoErrorDumpWritesTheQueueAndClearsIt) {
    LogChannel channel(L"Crypto");
    const unsigned char garbage[] = {0x30, 0x03, 0x02, 0x01};
    const unsigned char* cursor = garbage;
    ASSERT_EQ(d2i_X509(nullptr, &cursor, sizeof(garbage)), nullptr) << "garbage is refused";
    ASSERT_NE(ERR_peek_error(), 0u) << "the failed decode queued errors";

    channel.WriteCryptoErrors("Import: d2i_X509() failed.");
    ASSERT_EQ(log.Lines().size(), 1u) << "one line for the whole queue";
    const std::wstring& text = log.Lines()[0].text;
    EXPECT_EQ(log.Lines()[0].level, Level::Error) << "at Error";
    EXPECT_EQ(text.rfind(L"Import: d2i_X509() failed. openssl errors:\n", 0), 0u)
        << "got: " << text;
    EXPECT_NE(text.find(L"asn1"), std::wstring::npos) << "OpenSSL's own error lines follow";
    EXPECT_EQ(ERR_peek_error(), 0u) << "the queue is cleared";

    ERR_raise(ERR_LIB_X509, ERR_R_MALLOC_FAILURE);
    channel.WriteCryptoErrors("");
    EXPECT_EQ(log.Lines().size(), 1u) << "an empty message writes nothing";
    EXPECT_EQ(ERR_peek_error(), 0u) << "but the queue is still cleared";
}

TEST_F(LogChannelTest, MacrosCheckTheLevelBeforeTheyEvaluateAnything) {
    log.SetLevelEnabled(Level::Debug, false);
    LogChannel channel(L"Macros");
    int evaluated = 0;
    const auto expensive = [&] {
        ++evaluated;
        return L"text";
    };
    TLOG_DEBUG(channel, L"%ls", expensive());
    EXPECT_EQ(evaluated, 0) << "a disabled level evaluates no argument";
    TLOG_INFO(&channel, L"%ls %d", expensive(), 7);
    EXPECT_EQ(evaluated, 1) << "an enabled level evaluates them once";
    const LogChannel* none = nullptr;
    TLOG_ERROR(none, L"%ls", expensive());
    TLOG_CRYPTO_ERRORS(none, "dropped");
    EXPECT_EQ(evaluated, 1) << "a null channel writes nothing and evaluates nothing";
    TLOG_WARNING(channel, L"100% as written");
    ASSERT_EQ(log.Lines().size(), 2u) << "one line each from Info and Warning";
    EXPECT_EQ(log.Lines()[0].text, L"text 7") << "a format with arguments is formatted";
    EXPECT_EQ(log.Lines()[1].text, L"100% as written") << "a lone text is written as it is";
}

TEST_F(LogChannelTest, FailuresLogTheirLineAndLeaveTheQueueEmpty) {
    LogChannel channel(L"Fail");
    const auto codeOf = [](const std::function<void()>& failure) {
        try {
            failure();
        } catch (const TesseraLib::CryptException& e) {
            return e.GetErrorCode();
        }
        return 0;
    };
    ERR_raise(ERR_LIB_X509, ERR_R_MALLOC_FAILURE);
    EXPECT_EQ(codeOf([&] { TesseraLib::Fail(&channel, L"Op: failed.", 125); }), 125)
        << "the code is thrown";
    EXPECT_EQ(ERR_peek_error(), 0u) << "a plain failure empties the queue too";
    ERR_raise(ERR_LIB_X509, ERR_R_MALLOC_FAILURE);
    EXPECT_EQ(codeOf([&] { TesseraLib::FailCrypto(channel, "Op: X() failed.", 108); }), 108);
    ASSERT_EQ(log.Lines().size(), 2u) << "one Error line per failure";
    EXPECT_EQ(log.Lines()[0].text, L"Op: failed.") << "the operation's line";
    EXPECT_EQ(log.Lines()[1].text.rfind(L"Op: X() failed. openssl errors:\n", 0), 0u)
        << "the OpenSSL queue follows the line";
    EXPECT_EQ(ERR_peek_error(), 0u) << "and is emptied";
}
