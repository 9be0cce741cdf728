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
    w.append(nullptr);
    EXPECT_STREQ(w.c_str(), L"") << "the wide string treats null alike";
}

TEST(QorStringTest, AssignTakesAtMostLengthCharacters) {
    QorString s;
    s.assign("abcdef", 3);
    EXPECT_STREQ(s.c_str(), "abc") << "three characters";
    s.assign("ab", 10);
    EXPECT_STREQ(s.c_str(), "ab") << "stops at the terminator inside the length";
    s.assign(nullptr, 4);
    EXPECT_TRUE(s.empty()) << "null with a length assigns nothing";

    QorStringW w;
    w.assign(L"wide text", 4);
    w.append(L"!?", 1);
    EXPECT_STREQ(w.c_str(), L"wide!") << "wide assign and append take at most the length";
}

TEST(QorStringTest, CompareAndCaseInsensitiveCompare) {
    QorString s("Tessera");
    EXPECT_EQ(s.compare("Tessera"), 0) << "equal text";
    EXPECT_GT(s.compare("Tess"), 0) << "a prefix sorts first";
    EXPECT_NE(s.compare("TESSERA"), 0) << "compare is case-sensitive";
    EXPECT_EQ(s.icompare("TESSERA"), 0) << "icompare ignores ASCII case";
    EXPECT_NE(s.icompare("TESSERAE"), 0) << "but not the length";
    EXPECT_TRUE(QorString("a") != QorString("A")) << "operators compare case-sensitively";

    QorStringW w(L"Z\u00fcrich");
    EXPECT_EQ(w.compare(L"Z\u00fcrich"), 0) << "equal wide text";
    EXPECT_NE(w.compare(L"Zurich"), 0) << "non-ASCII characters compare as themselves";
    EXPECT_EQ(w.length(), 6u) << "length counts characters";
}
