// Text conversions: all-or-nothing results and time formatting.
#include <gtest/gtest.h>

#include "QorTextConv.h"

using namespace qorstd::text;

TEST(TextConvTest, WideToNarrowAsciiRefusesAnyNonAsciiCharacter) {
    EXPECT_STREQ(WideToNarrow(L"plain text", true).c_str(), "plain text") << "ASCII passes";
    EXPECT_STREQ(WideToNarrow(L"pa\u00dfword", true).c_str(), "") << "no partial result";
    EXPECT_STREQ(WideToNarrow(nullptr, true).c_str(), "") << "null gives empty text";
}

TEST(TextConvTest, Utf8RoundTripAndInvalidInput) {
    const char utf8[] = "\xC5\xBDilina \xE2\x82\xAC";  // "Žilina €"
    const qorstd::QorStringW wide = NarrowToWide(utf8, 0, kCharsetUtf8);
    EXPECT_STREQ(wide.c_str(), L"\u017dilina \u20ac") << "UTF-8 to wide";
    EXPECT_STREQ(WideToCharset(wide.c_str(), kCharsetUtf8).c_str(), utf8) << "and back";

    EXPECT_STREQ(NarrowToWide("ab\xC5", 0, kCharsetUtf8).c_str(), L"") << "a cut sequence fails";
    EXPECT_STREQ(NarrowToWide("abcdef", 3, kCharsetUtf8).c_str(), L"abc")
        << "length bounds the input";
    EXPECT_STREQ(NarrowToWide("text", 0, "NO-SUCH-CHARSET").c_str(), L"") << "unknown charset";
}

TEST(TextConvTest, ProcessCodeSetFollowsTheLocale) {
    // Tests run in the C locale, whose code set is ASCII.
    EXPECT_STREQ(NarrowToWide("ascii", 0, kCharsetProcess).c_str(), L"ascii") << "ASCII passes";
    EXPECT_STREQ(NarrowToWide("\xE9t\xE9", 0, kCharsetProcess).c_str(), L"") << "Latin-1 fails";
    EXPECT_STREQ(WideToNarrow(L"\u00e9t\u00e9", false).c_str(), "") << "so does é to narrow";
}

TEST(TextConvTest, FormatTimeInUtc) {
    EXPECT_STREQ(FormatTime(1234567890, "%d.%m.%Y %H:%M:%S", true).c_str(), L"13.02.2009 23:31:30")
        << "UTC, not local time";
    EXPECT_STREQ(FormatTime(-86400, "%Y-%m-%d", true).c_str(), L"1969-12-31") << "before 1970";
    EXPECT_STREQ(FormatTime(0x7FFFFFFFFFFFFFFFLL, "%Y", true).c_str(), L"")
        << "a time that cannot be broken down";
}
