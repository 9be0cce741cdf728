// QorVector and its iterator: growth, copying, insertion, removal, element
// lifetimes and the out-of-range rules applications rely on.
#include <gtest/gtest.h>

#include <vector>

#include "QorStl.h"
#include "TestTessera.h"

using qorstd::QorIterator;
using qorstd::QorVector;
using qorstd::StdLibException;
using tessera_test::CodeOf;

namespace {

// Counts live instances; copying throws once copiesUntilThrow reaches 0 (<0: never).
struct Tracked {
    static int live;
    static int copiesUntilThrow;
    int value;

    explicit Tracked(int v = 0) : value(v) { ++live; }
    Tracked(const Tracked& other) : value(other.value) {
        if (copiesUntilThrow == 0) {
            throw std::runtime_error("copy refused");
        }
        copiesUntilThrow -= copiesUntilThrow > 0 ? 1 : 0;
        ++live;
    }
    Tracked& operator=(const Tracked& other) = default;
    ~Tracked() { --live; }
    explicit operator int() const { return value; }
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

template <class T>
void AddRange(QorVector<T>& v, int count) {
    for (int i = 0; i < count; ++i) {
        v.Add(T(i));
    }
}

}  // namespace

TEST_F(QorVectorTest, CapacityRules) {
    QorVector<int> v;
    AddRange(v, 20);
    EXPECT_EQ(Values(v).back(), 19) << "the elements survive every reallocation";

    const int items[] = {4, 5, 6};
    auto reserved = [](unsigned int first, unsigned int second) {
        QorVector<int> r;
        r.Reserve(first);
        r.Reserve(second);
        return r.GetCapacity();
    };
    auto assigned = [](unsigned int own, unsigned int source) {
        QorVector<int> target(own), from(source);
        target.Add(1);
        AddRange(from, 4);
        target = from;
        return target.GetCapacity();
    };
    QorVector<int> five(5);
    five.Add(1);
    const std::pair<unsigned int, unsigned int> table[] = {
        {reserved(6, 0), 6},                      // reserve on empty: exactly the request
        {reserved(6, 3), 6},                      // a smaller reserve changes nothing
        {QorVector<int>(five).GetCapacity(), 5},  // copy: the source's capacity, not size
        {assigned(12, 1), 12},                    // assignment keeps a larger own capacity
        {assigned(2, 9), 9},                      // too small: the source's capacity
    };
    for (std::size_t row = 0; row < sizeof(table) / sizeof(table[0]); ++row) {
        EXPECT_EQ(table[row].first, table[row].second) << "capacity rule in row " << row;
    }
    EXPECT_EQ(Values(QorVector<int>(items, 3)), (std::vector<int>{4, 5, 6}))
        << "array constructor copies";
}

TEST_F(QorVectorTest, CopyAndAssignmentElementLifetimes) {
    QorVector<Tracked> source(5);
    AddRange(source, 2);
    QorVector<Tracked> copy(source);
    EXPECT_EQ(Tracked::live, 4) << "the copy owns copies of the elements";

    QorVector<Tracked> target;
    AddRange(target, 3);
    QorVector<Tracked> one;
    one.Add(Tracked(9));
    target = one;
    EXPECT_EQ(Tracked::live, 6) << "assignment destroyed three old elements and copied one";
    EXPECT_EQ(Values(target), (std::vector<int>{9})) << "assigned content";
    target = target;
    EXPECT_EQ(Values(target), (std::vector<int>{9})) << "self-assignment changes nothing";
}

TEST_F(QorVectorTest, InsertAtShiftsAndAppendsAtTheEnd) {
    QorVector<int> v;
    v.Add(1);
    v.Add(3);
    v.InsertAt(2, 1);
    v.InsertAt(0, 0);
    v.InsertAt(4, v.GetSize());
    EXPECT_EQ(Values(v), (std::vector<int>{0, 1, 2, 3, 4})) << "middle, front and end inserts";
    EXPECT_EQ(CodeOf([&] { v.InsertAt(9, v.GetSize() + 1); }), 100)
        << "inserting past the end is out of range";
    EXPECT_EQ(Values(v), (std::vector<int>{0, 1, 2, 3, 4})) << "a refused insert changes nothing";
}

TEST_F(QorVectorTest, AddAndInsertOfOwnElementsSurviveReallocation) {
    QorVector<Tracked> v;
    v.Add(Tracked(5));
    ASSERT_EQ(v.GetCapacity(), 1u) << "the next Add reallocates";
    v.Add(v[0]);  // grows while the argument lives in the old storage
    v.InsertAt(v[1], 0);
    v.InsertAt(v.Back(), 1);
    EXPECT_EQ(Values(v), (std::vector<int>{5, 5, 5, 5})) << "own elements copied while growing";

    QorVector<Tracked> w;
    for (int i : {1, 2, 3}) {
        w.Add(Tracked(i));
    }
    w.InsertAt(w[2], 0);  // grows, and the referenced element moves while shifting
    EXPECT_EQ(Values(w), (std::vector<int>{3, 1, 2, 3})) << "the value before the shift is used";
}

TEST_F(QorVectorTest, RemoveAtAndRemoveAllDestroyElementsAndKeepStorage) {
    QorVector<Tracked> v;
    AddRange(v, 5);
    QorIterator<Tracked>* it = v.GetIterator();
    v.RemoveAt(1);
    EXPECT_EQ(Values(v), (std::vector<int>{0, 2, 3, 4})) << "RemoveAt shifts down";
    EXPECT_EQ(Tracked::live, 4) << "the removed element is destroyed";
    EXPECT_EQ(CodeOf([&] { v.RemoveAt(4); }), 100) << "removing past the end";
    EXPECT_EQ(v.GetSize(), 4u) << "a refused remove changes nothing";
    const unsigned int capacity = v.GetCapacity();
    v.RemoveAll();
    EXPECT_EQ(Tracked::live, 0) << "RemoveAll destroys every element";
    EXPECT_EQ(v.GetCapacity(), capacity) << "storage remains";
    EXPECT_EQ(it->HasNext(), 0) << "the iterator remains usable and sees the empty vector";
}

TEST_F(QorVectorTest, AccessOutsideTheElementsThrowsAStdLibException100) {
    QorVector<int> v;
    const QorVector<int>& constant = v;
    try {
        (void)v.Front();
        ADD_FAILURE() << "Front on an empty vector must throw";
    } catch (const qorstd::QorException& e) {
        EXPECT_EQ(e.GetErrorCode(), 100) << "Front of an empty vector is out of range";
        EXPECT_TRUE(e.GetErrorMessage().empty()) << "container exceptions carry no message";
        EXPECT_EQ(std::string(e.GetClassNameW().c_str()), "qorstd::StdLibException")
            << "class name";
        std::unique_ptr<qorstd::QorException> clone(e.Clone());
        EXPECT_NE(dynamic_cast<StdLibException*>(clone.get()), nullptr) << "Clone keeps the type";
    }
    EXPECT_EQ(CodeOf([&] { (void)constant.Back(); }), 100) << "Back of an empty vector";
    EXPECT_EQ(CodeOf([&] { (void)v.GetUpperBound(); }), 100) << "upper bound of nothing";

    v.Add(3);
    v.Add(4);
    v.SetAt(8, 0);
    EXPECT_EQ(Values(v), (std::vector<int>{8, 4})) << "SetAt replaces";
    EXPECT_EQ(CodeOf([&] { v.SetAt(1, 2); }), 100) << "SetAt past the end";
    EXPECT_EQ(CodeOf([&] { (void)v.GetAt(2); }), 100) << "GetAt past the end";
    EXPECT_EQ(CodeOf([&] { (void)v[5]; }), 100) << "operator[] past the end";
    EXPECT_EQ(std::make_pair(v.Front(), v.Back()), std::make_pair(8, 4)) << "Front and Back";
    EXPECT_EQ(v.GetUpperBound(), 1u) << "the last index";
    EXPECT_EQ(v.End() - v.GetData(), 2) << "the elements form one plain array";
}

TEST_F(QorVectorTest, IteratorWalksThrowsWhenExhaustedResetsAndIsOwnedByTheVector) {
    QorVector<int> v;
    v.Add(10);
    v.Add(20);
    // The first iterator is deleted by the second GetIterator and the second
    // by the destructor; the sanitizer build reports either leak.
    v.GetIterator();
    QorIterator<int>* it = v.GetIterator();
    std::vector<int> seen;
    while (it->HasNext()) {
        seen.push_back(it->Next());
    }
    EXPECT_EQ(seen, (std::vector<int>{10, 20})) << "the walk sees every element in order";
    EXPECT_EQ(CodeOf([&] { it->Next(); }), 100) << "Next on an exhausted iterator";
    it->Reset();
    ASSERT_NE(it->HasNext(), 0) << "Reset makes the iterator usable again";
    EXPECT_EQ(it->Next(), 10) << "and starts from the front";
    QorVector<int> copy(v);
    EXPECT_NE(copy.GetIterator(), it) << "a copy hands out its own iterator";
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
    delete a;
    delete b;
}

TEST_F(QorVectorTest, FailedGrowthLeavesTheVectorIntact) {
    QorVector<Tracked> v;
    AddRange(v, 3);
    ASSERT_EQ(v.GetCapacity(), 3u) << "the next Add reallocates";
    Tracked::copiesUntilThrow = 1;  // the second element copied into new storage throws
    EXPECT_THROW(v.Add(Tracked(3)), std::runtime_error) << "the element's exception passes";
    Tracked::copiesUntilThrow = -1;
    EXPECT_EQ(v.GetCapacity(), 3u) << "the old storage stays installed";
    EXPECT_EQ(Values(v), (std::vector<int>{0, 1, 2})) << "the old elements are intact";

    struct Page {
        char bytes[4096];
    };
    QorVector<Page> pages;
    pages.Add(Page{});
    EXPECT_EQ(CodeOf([&] { pages.Reserve(0xFFFFFFFFu); }), 101) << "16 TiB cannot be allocated";
    EXPECT_EQ(std::make_pair(pages.GetSize(), pages.GetCapacity()), std::make_pair(1u, 1u))
        << "a failed allocation changes neither size nor capacity";
}
