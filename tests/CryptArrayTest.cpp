// CryptArray gives no storage up unwiped: growth, reassignment to larger
// content, Cleanse and destruction all overwrite the bytes first.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <vector>

#include "CryptArray.h"

using TesseraLib::CryptArray;

namespace {

// One heap block to look at when it is freed: were its bytes all zero then?
struct FreeWatch {
    const unsigned char* block = nullptr;
    std::size_t size = 0;
    bool freed = false;
    bool wiped = false;
};
FreeWatch g_watch;

bool AllZero(const void* data, std::size_t size) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    return std::all_of(bytes, bytes + size, [](unsigned char b) { return b == 0; });
}

void Release(void* block) noexcept {
    if (block != nullptr && block == g_watch.block) {
        g_watch.freed = true;
        g_watch.wiped = AllZero(block, g_watch.size);
        g_watch.block = nullptr;
    }
    std::free(block);
}

void* Obtain(std::size_t size) noexcept {
    return std::malloc(size != 0 ? size : 1);
}

// Records every ZeroOut call and checks that the bytes are zero after it.
class RecordingArray : public CryptArray {
public:
    struct Wipe {
        const void* data;
        unsigned int length;
        bool zero;
    };

    // Exactly one wipe so far, of `storage` over `length` bytes, zero after it.
    void ExpectOneWipe(const unsigned char* storage, unsigned int length, const char* what) const {
        ASSERT_EQ(wipes.size(), 1u) << what << ": the storage given up is wiped, once";
        EXPECT_EQ(wipes[0].data, storage) << what << ": the old storage is the one wiped";
        EXPECT_EQ(wipes[0].length, length) << what << ": over its whole capacity";
        EXPECT_TRUE(wipes[0].zero) << what << ": the bytes are zero after ZeroOut";
    }

    using CryptArray::CryptArray;
    RecordingArray& operator=(const CryptArray& other) {
        CryptArray::operator=(other);
        return *this;
    }

    const unsigned char* Storage() const { return m_data; }

    std::vector<Wipe> wipes;

protected:
    void ZeroOut(void* data, unsigned int length) override {
        CryptArray::ZeroOut(data, length);
        wipes.push_back({data, length, AllZero(data, length)});
    }
};

const unsigned char kSecret[] = "0123456789abcdef0123456789abcdef";  // 32 bytes and a NUL
constexpr unsigned int kSecretSize = 32;

}  // namespace

// The program's allocation functions are plain malloc and free, so that a
// block's bytes can be looked at just before it goes back.
void* operator new(std::size_t size) {
    if (void* block = Obtain(size)) {
        return block;
    }
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Obtain(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return Obtain(size);
}
void operator delete(void* block) noexcept {
    Release(block);
}
void operator delete[](void* block) noexcept {
    Release(block);
}
void operator delete(void* block, std::size_t) noexcept {
    Release(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    Release(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
    Release(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
    Release(block);
}

TEST(CryptArrayTest, GrowthAndLargerAssignmentsWipeTheOldStorageOverItsCapacity) {
    RecordingArray grown(kSecret, 8);
    const unsigned char* old = grown.Storage();
    const unsigned int oldCapacity = grown.GetCapacity();
    grown.Append(kSecret + 8, 1);  // one byte more than the capacity holds
    grown.ExpectOneWipe(old, oldCapacity, "growth");
    EXPECT_NE(grown.Storage(), old) << "the array moved to new storage";
    EXPECT_EQ(CryptArray(kSecret, 9), grown) << "the content survives the move";

    RecordingArray array(kSecret, 4);
    old = array.Storage();
    const CryptArray larger(kSecret, kSecretSize);
    array = larger;
    array.ExpectOneWipe(old, 4, "assigning larger content");
    EXPECT_EQ(array, larger) << "the content is the source's";

    const unsigned char* kept = array.Storage();
    array = CryptArray(kSecret, 3);
    EXPECT_EQ(array.Storage(), kept) << "storage large enough is kept";
    EXPECT_EQ(array.wipes.size(), 1u) << "no storage was released";
    EXPECT_TRUE(AllZero(array.Storage() + 3, array.GetCapacity() - 3))
        << "the bytes beyond the new size are zero at once";
}

TEST(CryptArrayTest, CleanseZeroesTheWholeStorageAndKeepsIt) {
    RecordingArray array(kSecret, kSecretSize);
    array.SetSize(10);
    const unsigned char* storage = array.Storage();
    array.Cleanse();

    array.ExpectOneWipe(storage, array.GetCapacity(), "Cleanse (capacity bytes, not size)");
    EXPECT_EQ(array.GetSize(), 0u) << "Cleanse empties the array";
    EXPECT_EQ(array.Storage(), storage) << "the storage is kept";
}

TEST(CryptArrayTest, DestructionWipesTheStorageBeforeItIsFreed) {
    {
        qorstd::QorArray<unsigned char> plain(kSecret, kSecretSize);
        g_watch = FreeWatch{plain.GetData(), plain.GetCapacity()};
    }
    ASSERT_TRUE(g_watch.freed) << "the watch sees the plain array's storage freed";
    EXPECT_FALSE(g_watch.wiped) << "a plain array frees its bytes as they are (the watch works)";

    {
        CryptArray secret(kSecret, kSecretSize);
        g_watch = FreeWatch{secret.GetData(), secret.GetCapacity()};
    }
    ASSERT_TRUE(g_watch.freed) << "the CryptArray's storage is freed at destruction";
    EXPECT_TRUE(g_watch.wiped) << "its whole capacity is zero when it is freed";
}
