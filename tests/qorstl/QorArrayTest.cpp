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

TEST(QorArrayTest, AppendReturnsTheNewSize) {
    Bytes bytes;
    EXPECT_EQ(bytes.Append(U("abc"), 3), 3u);
    EXPECT_EQ(bytes.Append(U("de"), 2), 5u);
    Bytes more(U("fg"), 2);
    EXPECT_EQ(bytes.Append(more), 7u);
    EXPECT_EQ(Text(bytes), "abcdefg");
    EXPECT_EQ(bytes.Append(nullptr, 0), 7u) << "appending nothing is allowed";
}

TEST(QorArrayTest, AppendOfItsOwnBytesSurvivesGrowth) {
    Bytes bytes(U("xyz"), 3);
    ASSERT_EQ(bytes.GetCapacity(), 3u);
    bytes.Append(bytes);
    bytes.Append(bytes.GetData() + 1, 2);
    EXPECT_EQ(Text(bytes), "xyzxyzyz");
}

TEST(QorArrayTest, AssignReplacesContentAndWipesTheRest) {
    Bytes bytes(U("long content"), 12);
    bytes.Assign(U("short"), 5);
    EXPECT_EQ(Text(bytes), "short");
    EXPECT_TRUE(SpareIsZero(bytes)) << "the old tail is zero after a shorter Assign";

    bytes.Assign(bytes.GetData() + 1, 3);
    EXPECT_EQ(Text(bytes), "hor") << "assigning from its own storage";

    bytes.Assign(U("a much longer content than before"), 33);
    EXPECT_EQ(Text(bytes), "a much longer content than before");
    bytes.Assign(nullptr, 0);
    EXPECT_EQ(bytes.GetSize(), 0u);
}

TEST(QorArrayTest, SetSizeGrowsWithZerosAndCuts) {
    Bytes bytes(U("ab"), 2);
    bytes.SetSize(5);
    ASSERT_EQ(bytes.GetSize(), 5u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(bytes.GetData()), 5),
              std::string("ab\0\0\0", 5));
    bytes.SetSize(1);
    EXPECT_EQ(Text(bytes), "a");
    EXPECT_TRUE(SpareIsZero(bytes)) << "cut bytes are wiped";
}

TEST(QorArrayTest, CapacityConstructorReservesWithoutSize) {
    Bytes bytes(16);
    EXPECT_EQ(bytes.GetSize(), 0u);
    EXPECT_EQ(bytes.GetCapacity(), 16u);
    EXPECT_THROW(bytes[0], qorstd::StdLibException) << "no byte exists yet";
}

TEST(QorArrayTest, CopiesAndComparison) {
    Bytes a(U("abc"), 3);
    Bytes b(a);
    EXPECT_TRUE(a == b);
    b[2] = 'x';
    EXPECT_TRUE(a != b) << "a copy owns its bytes";
    a = b;
    EXPECT_EQ(Text(a), "abx");
    EXPECT_TRUE(Bytes() == Bytes(8)) << "two empty arrays are equal whatever their capacity";
}
