// QorString and QorStringW: null handling, bounded assignment and comparisons.
#include <gtest/gtest.h>

#include <string>

#include "QorString.h"

using qorstd::QorString;
using qorstd::QorStringW;

TEST(QorStringTest, NullPointersActAsEmptyText) {
    QorString s(static_cast<const char*>(nullptr));
    EXPECT_STREQ(s.c_str(), "") << "c_str is never null";
    s = "abc";
    QorString copy(s);
    s.append(nullptr);
    s += nullptr;
    EXPECT_STREQ(s.c_str(), "abc") << "appending null adds nothing";
    copy.clear();
    EXPECT_STREQ(s.c_str(), "abc") << "a copy owns its characters";
    EXPECT_GT(s.compare(nullptr), 0) << "text sorts after null";
    s = static_cast<const char*>(nullptr);
    EXPECT_TRUE(s.empty()) << "assigning null empties";

    QorStringW w(static_cast<const wchar_t*>(nullptr));
    EXPECT_STREQ(w.c_str(), L"");
    w.append(nullptr);
    EXPECT_TRUE(w.empty());
}

TEST(QorStringTest, AssignTakesAtMostLengthCharacters) {
    QorString s;
    s.assign("abcdef", 3);
    EXPECT_STREQ(s.c_str(), "abc");
    s.assign("ab", 10);
    EXPECT_STREQ(s.c_str(), "ab") << "stops at the terminator inside the length";
    s.assign(nullptr, 4);
    EXPECT_TRUE(s.empty());

    QorStringW w;
    w.assign(L"wide text", 4);
    EXPECT_STREQ(w.c_str(), L"wide");
    w.append(L"!?", 1);
    EXPECT_STREQ(w.c_str(), L"wide!");
}

TEST(QorStringTest, CompareAndCaseInsensitiveCompare) {
    QorString s("Tessera");
    EXPECT_EQ(s.compare("Tessera"), 0);
    EXPECT_LT(s.compare("Tesserb"), 0);
    EXPECT_GT(s.compare("Tess"), 0);
    EXPECT_NE(s.compare("TESSERA"), 0);
    EXPECT_EQ(s.icompare("TESSERA"), 0);
    EXPECT_NE(s.icompare("TESSERAE"), 0);
    EXPECT_TRUE(QorString("a") != QorString("A")) << "operators compare case-sensitively";

    QorStringW w(L"Z\u00fcrich");
    EXPECT_EQ(w.compare(L"Z\u00fcrich"), 0);
    EXPECT_NE(w.compare(L"Zurich"), 0);
    EXPECT_EQ(w.length(), 6u);
}
