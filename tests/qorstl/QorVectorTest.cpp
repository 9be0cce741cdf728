// QorVector and its iterator: growth, copying, insertion, removal, element
// lifetimes and the out-of-range rules applications rely on.
#include <gtest/gtest.h>

#include <vector>

#include "QorStl.h"

using qorstd::QorIterator;
using qorstd::QorVector;
using qorstd::StdLibException;

namespace {

// Counts live instances so tests can see constructions and destructions.
struct Tracked {
    static int live;
    static int copiesUntilThrow;  // <0: never throw
    int value;

    explicit Tracked(int v = 0) : value(v) { ++live; }
    Tracked(const Tracked& other) : value(other.value) {
        if (copiesUntilThrow == 0) {
            throw std::runtime_error("copy refused");
        }
        if (copiesUntilThrow > 0) {
            --copiesUntilThrow;
        }
        ++live;
    }
    Tracked& operator=(const Tracked& other) = default;
    ~Tracked() { --live; }
};
int Tracked::live = 0;
int Tracked::copiesUntilThrow = -1;

class QorVectorTest : public ::testing::Test {
protected:
    void SetUp() override {
        Tracked::live = 0;
        Tracked::copiesUntilThrow = -1;
    }
    void TearDown() override { EXPECT_EQ(Tracked::live, 0) << "every element was destroyed"; }
};

template <class T>
std::vector<int> Values(const QorVector<T>& v) {
    std::vector<int> out;
    for (unsigned int i = 0; i < v.GetSize(); ++i) {
        out.push_back(static_cast<int>(v[i]));
    }
    return out;
}

std::vector<int> Values(const QorVector<Tracked>& v) {
    std::vector<int> out;
    for (unsigned int i = 0; i < v.GetSize(); ++i) {
        out.push_back(v[i].value);
    }
    return out;
}

template <class F>
int CodeThrownBy(F&& action) {
    try {
        action();
    } catch (const StdLibException& e) {
        return e.GetErrorCode();
    }
    return -1;
}

}  // namespace

TEST_F(QorVectorTest, RepeatedAddGrowsOneSlotBelowEightThenByAQuarter) {
    QorVector<int> v;
    std::vector<unsigned int> capacities;
    for (int i = 0; i < 20; ++i) {
        v.Add(i);
        capacities.push_back(v.GetCapacity());
    }
    const std::vector<unsigned int> expected = {1,  2,  3,  4,  5,  6,  7,  8,  10, 10,
                                                12, 12, 15, 15, 15, 18, 18, 18, 22, 22};
    EXPECT_EQ(capacities, expected) << "capacity after each of 20 Add calls";
    EXPECT_EQ(Values(v).back(), 19) << "the elements survive every reallocation";
}

TEST_F(QorVectorTest, ReserveGrowsToAtLeastTheRequestedCapacity) {
    QorVector<int> v;
    v.Reserve(6);
    EXPECT_EQ(v.GetCapacity(), 6u) << "reserve on an empty vector gives exactly the request";
    v.Reserve(3);
    EXPECT_EQ(v.GetCapacity(), 6u) << "a smaller reserve changes nothing";
    EXPECT_EQ(v.GetSize(), 0u);
}

TEST_F(QorVectorTest, ConstructorsSetSizeAndCapacity) {
    QorVector<int> reserved(5);
    EXPECT_EQ(reserved.GetSize(), 0u);
    EXPECT_EQ(reserved.GetCapacity(), 5u);

    const int items[] = {4, 5, 6};
    QorVector<int> fromArray(items, 3);
    EXPECT_EQ(fromArray.GetCapacity(), 3u) << "array constructor: capacity equals the count";
    EXPECT_EQ(Values(fromArray), (std::vector<int>{4, 5, 6}));
}

TEST_F(QorVectorTest, CopyTakesTheSourceCapacityNotItsSize) {
    QorVector<Tracked> source(5);
    source.Add(Tracked(1));
    source.Add(Tracked(2));
    QorVector<Tracked> copy(source);
    EXPECT_EQ(copy.GetSize(), 2u);
    EXPECT_EQ(copy.GetCapacity(), 5u) << "copy of size 2, capacity 5 has capacity 5";
    EXPECT_EQ(Tracked::live, 4) << "the copy owns copies of the elements";
}

TEST_F(QorVectorTest, AssignmentKeepsALargerOwnCapacity) {
    QorVector<int> small;
    small.Add(7);
    QorVector<int> large(12);
    large.Add(1);
    large = small;
    EXPECT_EQ(large.GetCapacity(), 12u) << "a larger own capacity stays";
    EXPECT_EQ(Values(large), (std::vector<int>{7}));

    QorVector<int> source(9);
    for (int i = 0; i < 4; ++i) {
        source.Add(i);
    }
    QorVector<int> tiny(2);
    tiny = source;
    EXPECT_EQ(tiny.GetCapacity(), 9u) << "too small: reallocated to the source's capacity";
    EXPECT_EQ(Values(tiny), (std::vector<int>{0, 1, 2, 3}));

    tiny = tiny;
    EXPECT_EQ(Values(tiny), (std::vector<int>{0, 1, 2, 3})) << "self-assignment changes nothing";
}

TEST_F(QorVectorTest, AssignmentDestroysTheOldElements) {
    QorVector<Tracked> target;
    for (int i = 0; i < 3; ++i) {
        target.Add(Tracked(i));
    }
    QorVector<Tracked> source;
    source.Add(Tracked(9));
    target = source;
    EXPECT_EQ(Tracked::live, 2) << "three old elements destroyed, one copied";
    EXPECT_EQ(Values(target), (std::vector<int>{9}));
}

TEST_F(QorVectorTest, InsertAtShiftsAndAppendsAtTheEnd) {
    QorVector<int> v;
    v.Add(1);
    v.Add(3);
    v.InsertAt(2, 1);
    v.InsertAt(0, 0);
    v.InsertAt(4, v.GetSize());
    EXPECT_EQ(Values(v), (std::vector<int>{0, 1, 2, 3, 4}));

    EXPECT_EQ(CodeThrownBy([&] { v.InsertAt(9, v.GetSize() + 1); }), 100)
        << "inserting past the end is out of range";
    EXPECT_EQ(Values(v), (std::vector<int>{0, 1, 2, 3, 4})) << "a refused insert changes nothing";
}

TEST_F(QorVectorTest, AddAndInsertOfOwnElementsSurviveReallocation) {
    QorVector<Tracked> v;
    v.Add(Tracked(5));
    ASSERT_EQ(v.GetCapacity(), 1u);
    v.Add(v[0]);  // grows while the argument lives in the old storage
    v.InsertAt(v[1], 0);
    v.InsertAt(v.Back(), 1);
    EXPECT_EQ(Values(v), (std::vector<int>{5, 5, 5, 5}));

    QorVector<Tracked> w;
    w.Add(Tracked(1));
    w.Add(Tracked(2));
    w.Add(Tracked(3));
    w.InsertAt(w[2], 0);  // the referenced element moves while shifting
    EXPECT_EQ(Values(w), (std::vector<int>{3, 1, 2, 3}));
}

TEST_F(QorVectorTest, RemoveAtShiftsDownAndDestroysTheLastSlot) {
    QorVector<Tracked> v;
    for (int i = 0; i < 4; ++i) {
        v.Add(Tracked(i));
    }
    v.RemoveAt(1);
    EXPECT_EQ(Values(v), (std::vector<int>{0, 2, 3}));
    EXPECT_EQ(Tracked::live, 3) << "the removed element is destroyed";
    EXPECT_EQ(CodeThrownBy([&] { v.RemoveAt(3); }), 100);
    EXPECT_EQ(v.GetSize(), 3u);
}

TEST_F(QorVectorTest, RemoveAllKeepsStorageAndIterator) {
    QorVector<Tracked> v;
    for (int i = 0; i < 5; ++i) {
        v.Add(Tracked(i));
    }
    QorIterator<Tracked>* it = v.GetIterator();
    const unsigned int capacity = v.GetCapacity();
    v.RemoveAll();
    EXPECT_EQ(Tracked::live, 0);
    EXPECT_EQ(v.GetSize(), 0u);
    EXPECT_EQ(v.GetCapacity(), capacity) << "storage remains";
    EXPECT_EQ(it->HasNext(), 0) << "the iterator remains usable and sees the empty vector";
}

TEST_F(QorVectorTest, SetAtAndAccessOutOfRange) {
    QorVector<int> v;
    v.Add(1);
    v.SetAt(8, 0);
    EXPECT_EQ(v[0], 8);
    EXPECT_EQ(CodeThrownBy([&] { v.SetAt(1, 1); }), 100);
    EXPECT_EQ(CodeThrownBy([&] { (void)v.GetAt(1); }), 100);
    EXPECT_EQ(CodeThrownBy([&] { (void)v[5]; }), 100);
}

TEST_F(QorVectorTest, EmptyVectorRefusesFrontBackAndUpperBound) {
    QorVector<int> v;
    const QorVector<int>& constant = v;
    EXPECT_EQ(CodeThrownBy([&] { (void)v.Front(); }), 100);
    EXPECT_EQ(CodeThrownBy([&] { (void)constant.Back(); }), 100);
    EXPECT_EQ(CodeThrownBy([&] { (void)v.GetUpperBound(); }), 100);
    EXPECT_EQ(v.GetSize(), 0u) << "GetSize does not throw";
    EXPECT_NE(v.IsEmpty(), 0) << "IsEmpty does not throw";
    EXPECT_EQ(v.Begin(), v.End());

    v.Add(3);
    v.Add(4);
    EXPECT_EQ(v.Front(), 3);
    EXPECT_EQ(v.Back(), 4);
    EXPECT_EQ(v.GetUpperBound(), 1u);
    EXPECT_EQ(v.End() - v.GetData(), 2) << "the elements form one plain array";
}

TEST_F(QorVectorTest, IteratorWalksThrowsWhenExhaustedAndResets) {
    QorVector<int> v;
    v.Add(10);
    v.Add(20);
    QorIterator<int>* it = v.GetIterator();
    std::vector<int> seen;
    while (it->HasNext()) {
        seen.push_back(it->Next());
    }
    EXPECT_EQ(seen, (std::vector<int>{10, 20}));
    EXPECT_EQ(CodeThrownBy([&] { it->Next(); }), 100) << "Next on an exhausted iterator";
    it->Reset();
    ASSERT_NE(it->HasNext(), 0) << "Reset makes the iterator usable again";
    EXPECT_EQ(it->Next(), 10);
}

TEST_F(QorVectorTest, VectorOwnsOnlyItsLatestIterator) {
    // The first iterator is deleted by the second GetIterator and the second
    // by the destructor; the sanitizer build reports either leak.
    QorVector<int> v;
    v.Add(1);
    QorIterator<int>* first = v.GetIterator();
    QorIterator<int>* second = v.GetIterator();
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(second->Next(), 1);
    QorVector<int> copy(v);
    EXPECT_NE(copy.GetIterator(), second) << "a copy hands out its own iterator";
}

TEST_F(QorVectorTest, PointerElementsAreNeverDeleted) {
    Tracked* a = new Tracked(1);
    Tracked* b = new Tracked(2);
    {
        QorVector<Tracked*> pointers;
        pointers.Add(a);
        pointers.Add(b);
        pointers.RemoveAt(0);
        pointers.RemoveAll();
        pointers.Add(a);
    }
    EXPECT_EQ(Tracked::live, 2) << "the pointed-to objects outlive the vector";
    EXPECT_EQ(a->value + b->value, 3);
    delete a;
    delete b;
}

TEST_F(QorVectorTest, FailedCopyDuringGrowthLeavesTheVectorIntact) {
    QorVector<Tracked> v;
    for (int i = 0; i < 3; ++i) {
        v.Add(Tracked(i));
    }
    ASSERT_EQ(v.GetCapacity(), 3u);
    Tracked::copiesUntilThrow = 1;  // the second element copied into new storage throws
    EXPECT_THROW(v.Add(Tracked(3)), std::runtime_error);
    Tracked::copiesUntilThrow = -1;
    EXPECT_EQ(v.GetCapacity(), 3u) << "the old storage stays installed";
    EXPECT_EQ(Values(v), (std::vector<int>{0, 1, 2}));
}

TEST_F(QorVectorTest, AllocationFailureThrowsCode101AndChangesNothing) {
    struct Page {
        char bytes[4096];
    };
    QorVector<Page> v;
    v.Add(Page{});
    EXPECT_EQ(CodeThrownBy([&] { v.Reserve(0xFFFFFFFFu); }), 101) << "16 TiB cannot be allocated";
    EXPECT_EQ(v.GetSize(), 1u);
    EXPECT_EQ(v.GetCapacity(), 1u);
}

TEST_F(QorVectorTest, StdLibExceptionIsAQorExceptionWithoutMessage) {
    QorVector<int> v;
    try {
        (void)v.Front();
        FAIL() << "Front on an empty vector must throw";
    } catch (const qorstd::QorException& e) {
        EXPECT_EQ(e.GetErrorCode(), 100);
        EXPECT_TRUE(e.GetErrorMessage().empty()) << "container exceptions carry no message";
        EXPECT_EQ(std::string(e.GetClassNameW().c_str()), "qorstd::StdLibException");
        std::unique_ptr<qorstd::QorException> clone(e.Clone());
        EXPECT_NE(dynamic_cast<StdLibException*>(clone.get()), nullptr) << "Clone keeps the type";
    }
}
