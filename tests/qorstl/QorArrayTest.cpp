// QorArray<unsigned char>: content operations and the zero-filled spare storage.
#include <gtest/gtest.h>

#include <string>

#include "QorArray.h"

using Bytes = qorstd::QorArray<unsigned char>;

namespace {

std::string Text(const Bytes& bytes) {
    return std::string(reinterpret_cast<const char*>(bytes.GetData()), bytes.GetSize());
}

const unsigned char* U(const char* text) {
    return reinterpret_cast<const unsigned char*>(text);
}

// Every byte between the size and the capacity is zero.
bool SpareIsZero(const Bytes& bytes) {
    const unsigned char* data = bytes.GetData();
    for (unsigned int i = bytes.GetSize(); i < bytes.GetCapacity(); ++i) {
        if (data[i] != 0) {
            return false;
        }
    }
    return true;
}

}  // namespace

TEST(QorArrayTest, AppendReturnsTheNewSizeAndSurvivesGrowthFromItsOwnBytes) {
    Bytes bytes(U("xyz"), 3);
    ASSERT_EQ(bytes.GetCapacity(), 3u) << "the next Append reallocates";
    EXPECT_EQ(bytes.Append(bytes), 6u) << "Append returns the new size";
    EXPECT_EQ(bytes.Append(bytes.GetData() + 1, 2), 8u) << "appending from its own storage";
    EXPECT_EQ(bytes.Append(nullptr, 0), 8u) << "appending nothing is allowed";
    EXPECT_EQ(Text(bytes), "xyzxyzyz") << "own bytes copied before the old storage goes";
}

TEST(QorArrayTest, AssignReplacesContentAndWipesTheRest) {
    Bytes bytes(U("long content"), 12);
    bytes.Assign(U("short"), 5);
    EXPECT_EQ(Text(bytes), "short") << "Assign replaces";
    EXPECT_TRUE(SpareIsZero(bytes)) << "the old tail is zero after a shorter Assign";

    bytes.Assign(bytes.GetData() + 1, 3);
    EXPECT_EQ(Text(bytes), "hor") << "assigning from its own storage";

    bytes.Assign(U("a much longer content than before"), 33);
    EXPECT_EQ(Text(bytes), "a much longer content than before") << "Assign grows";
}

TEST(QorArrayTest, SetSizeGrowsWithZerosAndCuts) {
    Bytes bytes(16);
    EXPECT_THROW(bytes[0], qorstd::StdLibException) << "a capacity constructor makes no bytes";
    bytes.Assign(U("ab"), 2);
    bytes.SetSize(5);
    EXPECT_EQ(Text(bytes), std::string("ab\0\0\0", 5)) << "growth adds zeros";
    bytes.SetSize(1);
    EXPECT_EQ(Text(bytes), "a") << "SetSize cuts";
    EXPECT_TRUE(SpareIsZero(bytes)) << "cut bytes are wiped";
}

TEST(QorArrayTest, CopiesAndComparison) {
    Bytes a(U("abc"), 3);
    Bytes b(a);
    b[2] = 'x';
    EXPECT_TRUE(a != b) << "a copy owns its bytes";
    a = b;
    EXPECT_TRUE(a == b) << "assignment copies the content";
    EXPECT_TRUE(Bytes() == Bytes(8)) << "two empty arrays are equal whatever their capacity";
}
