// Growable array with exact, documented growth and ownership rules.
//
// Elements are owned copies: constructed in place by copy construction and
// destroyed in place. When T is a pointer the pointed-to objects are never
// owned or deleted. Growth, copying and iterator ownership follow fixed rules
// that callers may rely on (capacities are observable through GetCapacity):
//   - growth to at least size+extra, or size*1.25 (truncated) if larger, so
//     repeated Add grows one slot at a time below 8 elements (1, 2, ... 8)
//     and by a quarter after that (8 -> 10 -> 12 -> 15 -> 18 ...);
//   - a copy takes the source's capacity, not its size;
//   - assignment keeps a larger own capacity;
//   - the vector owns the one iterator it handed out last.
// Slots between size and capacity are always zero-filled storage.
#pragma once

#include <cstring>
#include <functional>
#include <new>

#include "QorException.h"
#include "QorStlExport.h"

namespace qorstd {

template <class T>
class QorVector;

// Abstract forward iterator.
template <class T>
class QORSTL_API QorIterator {
public:
    virtual ~QorIterator() {}
    // Nonzero while elements remain.
    virtual int HasNext() = 0;
    // The next element; throws StdLibException(100) when exhausted.
    virtual T& Next() = 0;
    // Back to the first element.
    virtual void Reset() = 0;
};

template <class T>
class QORSTL_API QorVectorIterator : public QorIterator<T> {
public:
    explicit QorVectorIterator(QorVector<T>* vector) : m_index(0), m_vector(vector) {}

    int HasNext() override { return m_index < m_vector->GetSize() ? 1 : 0; }
    // The index advances even when the taken index is out of range.
    T& Next() override {
        const unsigned int taken = m_index++;
        return m_vector->GetAt(taken);
    }
    void Reset() override { m_index = 0; }

private:
    unsigned int m_index;
    QorVector<T>* m_vector;
};

template <class T>
class QORSTL_API QorVector {
public:
    QorVector() : m_size(0), m_capacity(0), m_data(nullptr), m_iterator(nullptr) {}

    // Empty vector with storage for `capacity` elements.
    explicit QorVector(unsigned int capacity) : QorVector() {
        if (capacity > 0) {
            m_data = static_cast<T*>(Allocate(ByteCount(capacity)));
            m_capacity = capacity;
        }
    }

    // Size and capacity equal to `count`, elements copied from `items`.
    QorVector(const T* items, unsigned int count) : QorVector() {
        if (count == 0) {
            return;
        }
        if (items == nullptr) {
            StdLibException::Throw(StdLibException::ErrOutOfRange, nullptr);
        }
        T* storage = static_cast<T*>(Allocate(ByteCount(count)));
        CopyConstructOrRelease(storage, items, count);
        m_data = storage;
        m_capacity = count;
        m_size = count;
    }

    // Takes the source's capacity (not its size); no iterator is copied.
    QorVector(const QorVector& other) : QorVector() {
        if (other.m_capacity == 0) {
            return;
        }
        T* storage = static_cast<T*>(Allocate(ByteCount(other.m_capacity)));
        CopyConstructOrRelease(storage, other.m_data, other.m_size);
        m_data = storage;
        m_capacity = other.m_capacity;
        m_size = other.m_size;
    }

    // Keeps a larger own capacity; reallocates to the source's capacity only
    // when the own capacity cannot hold the source's elements.
    QorVector& operator=(const QorVector& other) {
        if (this == &other) {
            return *this;
        }
        // Allocate first so that a failed allocation leaves the vector as it was.
        T* fresh = nullptr;
        if (m_capacity < other.m_size) {
            fresh = static_cast<T*>(Allocate(ByteCount(other.m_capacity)));
        }
        delete m_iterator;
        m_iterator = nullptr;
        DestructAll();
        ZeroSlots(0, m_size);
        m_size = 0;
        if (fresh != nullptr) {
            ReleaseStorage();
            m_data = fresh;
            m_capacity = other.m_capacity;
        }
        CopyConstruct(m_data, other.m_data, other.m_size);
        m_size = other.m_size;
        return *this;
    }

    virtual ~QorVector() {
        delete m_iterator;
        m_iterator = nullptr;
        QorVector::DestructAll();
        Deallocate(m_data);
    }

    void Add(const T& item) {
        if (m_size < m_capacity) {
            new (m_data + m_size) T(item);
            ++m_size;
            return;
        }
        if (IsOwnElement(item)) {
            // Growing releases the storage `item` lives in.
            const T copy(item);
            EnsureExtraCapacity(1);
            new (m_data + m_size) T(copy);
        } else {
            EnsureExtraCapacity(1);
            new (m_data + m_size) T(item);
        }
        ++m_size;
    }

    void push_back(const T& item) { Add(item); }

    void InsertAt(const T& item, unsigned int index) {
        if (index == m_size) {
            Add(item);
            return;
        }
        if (index > m_size) {
            ThrowOutOfRange();
        }
        if (IsOwnElement(item)) {
            // Shifting (and growing) would change or release what `item` refers to.
            const T copy(item);
            InsertShifted(copy, index);
        } else {
            InsertShifted(item, index);
        }
    }

    void SetAt(const T& item, unsigned int index) {
        if (index >= m_size) {
            ThrowOutOfRange();
        }
        m_data[index] = item;
    }

    void RemoveAt(unsigned int index) {
        if (index >= m_size) {
            ThrowOutOfRange();
        }
        for (unsigned int i = index; i + 1 < m_size; ++i) {
            m_data[i] = m_data[i + 1];
        }
        --m_size;
        m_data[m_size].~T();
        ZeroSlots(m_size, m_size + 1);
    }

    // Destroys every element; storage and iterator remain.
    void RemoveAll() {
        DestructAll();
        ZeroSlots(0, m_size);
        m_size = 0;
    }

    T& GetAt(unsigned int index) {
        if (index >= m_size) {
            ThrowOutOfRange();
        }
        return m_data[index];
    }
    const T& GetAt(unsigned int index) const {
        if (index >= m_size) {
            ThrowOutOfRange();
        }
        return m_data[index];
    }
    T& operator[](unsigned int index) { return GetAt(index); }
    const T& operator[](unsigned int index) const { return GetAt(index); }

    T& Front() { return GetAt(FirstIndex()); }
    const T& Front() const { return GetAt(FirstIndex()); }
    T& Back() { return GetAt(GetUpperBound()); }
    const T& Back() const { return GetAt(GetUpperBound()); }

    T* Begin() { return m_data; }
    const T* Begin() const { return m_data; }
    T* GetData() { return m_data; }
    const T* GetData() const { return m_data; }
    T* End() { return m_data + m_size; }
    const T* End() const { return m_data + m_size; }

    unsigned int GetSize() const { return m_size; }
    unsigned int GetCapacity() const { return m_capacity; }
    int IsEmpty() const { return m_size == 0 ? 1 : 0; }
    unsigned int GetUpperBound() const {
        if (m_size == 0) {
            ThrowOutOfRange();
        }
        return m_size - 1;
    }

    void Reserve(unsigned int capacity) {
        if (capacity > m_capacity) {
            EnsureExtraCapacity(capacity - m_size);
        }
    }

    // Replaces (and deletes) the iterator handed out before. The vector owns
    // the returned iterator: a later GetIterator, operator= or the destructor
    // invalidates it.
    QorIterator<T>* GetIterator() {
        QorVectorIterator<T>* fresh = new (std::nothrow) QorVectorIterator<T>(this);
        if (fresh == nullptr) {
            StdLibException::Throw(StdLibException::ErrAllocation, nullptr);
        }
        delete m_iterator;
        m_iterator = fresh;
        return m_iterator;
    }

protected:
    // Destroys the live elements; the size is left unchanged.
    virtual void DestructAll() {
        for (unsigned int i = 0; i < m_size; ++i) {
            m_data[i].~T();
        }
    }

    virtual void EnsureExtraCapacity(unsigned int extra) {
        const unsigned long long needed = static_cast<unsigned long long>(m_size) + extra;
        if (needed <= m_capacity) {
            return;
        }
        if (needed > 0xFFFFFFFFull) {
            StdLibException::Throw(StdLibException::ErrAllocation, nullptr);
        }
        const unsigned int grown = static_cast<unsigned int>(static_cast<double>(m_size) * 1.25);
        const unsigned int capacity =
            static_cast<unsigned int>(needed) > grown ? static_cast<unsigned int>(needed) : grown;
        T* fresh = static_cast<T*>(Allocate(ByteCount(capacity)));
        CopyConstructOrRelease(fresh, m_data, m_size);
        DestructAll();
        ReleaseStorage();
        m_data = fresh;
        m_capacity = capacity;
    }

    // Zero-filled storage from the global allocator; StdLibException(101) on failure.
    void* Allocate(unsigned long long bytes) {
        if (bytes == 0) {
            return nullptr;
        }
        void* storage = nullptr;
        if (bytes <= static_cast<unsigned long long>(static_cast<std::size_t>(-1))) {
            storage = ::operator new(static_cast<std::size_t>(bytes), std::nothrow);
        }
        if (storage == nullptr) {
            StdLibException::Throw(StdLibException::ErrAllocation, nullptr);
        }
        std::memset(storage, 0, static_cast<std::size_t>(bytes));
        return storage;
    }

    void Deallocate(void* storage) {
        if (storage != nullptr) {
            ::operator delete(storage);
        }
    }

    // Gives the current storage back (after its elements are destroyed). A
    // derived array that keeps secrets wipes the storage here first.
    virtual void ReleaseStorage() {
        Deallocate(m_data);
        m_data = nullptr;
        m_capacity = 0;
    }

    void ZeroSlots(unsigned int from, unsigned int to) {
        if (m_data != nullptr && to > from) {
            std::memset(static_cast<void*>(m_data + from), 0, ByteCount(to - from));
        }
    }

    static unsigned long long ByteCount(unsigned int count) {
        return static_cast<unsigned long long>(count) * sizeof(T);
    }

    [[noreturn]] static void ThrowOutOfRange() {
        StdLibException::Throw(StdLibException::ErrOutOfRange, nullptr);
    }

    unsigned int m_size;
    unsigned int m_capacity;
    T* m_data;
    QorVectorIterator<T>* m_iterator;

private:
    unsigned int FirstIndex() const { return m_size == 0 ? GetUpperBound() : 0; }

    bool IsOwnElement(const T& item) const {
        const std::less<const T*> before;
        return m_size > 0 && !before(&item, m_data) && before(&item, m_data + m_size);
    }

    void InsertShifted(const T& item, unsigned int index) {
        EnsureExtraCapacity(1);
        new (m_data + m_size) T(m_data[m_size - 1]);
        ++m_size;
        for (unsigned int i = m_size - 2; i > index; --i) {
            m_data[i] = m_data[i - 1];
        }
        m_data[index] = item;
    }

    // As CopyConstruct, releasing the fresh `target` storage on failure.
    void CopyConstructOrRelease(T* target, const T* source, unsigned int count) {
        try {
            CopyConstruct(target, source, count);
        } catch (...) {
            Deallocate(target);
            throw;
        }
    }

    // Copy-constructs `count` elements; on failure destroys the ones made.
    static void CopyConstruct(T* target, const T* source, unsigned int count) {
        unsigned int made = 0;
        try {
            for (; made < count; ++made) {
                new (target + made) T(source[made]);
            }
        } catch (...) {
            for (unsigned int i = 0; i < made; ++i) {
                target[i].~T();
            }
            throw;
        }
    }
};

}  // namespace qorstd

// Vectors of strings are compiled once into the library. Declaring that
// here, where every user of the vector sees it, keeps other translation units
// from making hidden inline copies that would hide the exported ones.
#include "QorString.h"

namespace qorstd {
extern template class QorVector<QorString>;
extern template class QorVector<QorStringW>;
}  // namespace qorstd
