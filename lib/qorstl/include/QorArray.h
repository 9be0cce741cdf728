// Owned byte array of the qorstd container library.
#pragma once

#include "QorStlExport.h"
#include "QorVector.h"

namespace qorstd {

template <class T>
class QorArray;

// A growable byte buffer with the vector's layout and growth rules.
// GetData() is a plain array of GetSize() bytes; bytes between the size and
// the capacity are always zero.
template <>
class QORSTL_API QorArray<unsigned char> : public QorVector<unsigned char> {
public:
    QorArray();
    // Empty array with storage for `capacity` bytes (size 0).
    explicit QorArray(unsigned int capacity);
    QorArray(const unsigned char* data, unsigned int length);
    QorArray(const QorArray& other);
    ~QorArray() override;

    QorArray& operator=(const QorArray& other);

    // Replaces the content with `length` bytes from `data` (which may lie
    // inside this array).
    void Assign(const unsigned char* data, unsigned int length);
    // Appends and returns the new size. `data` may lie inside this array.
    unsigned int Append(const unsigned char* data, unsigned int length);
    unsigned int Append(const QorArray& other);
    // Grows with zero bytes or cuts the content to `size` bytes.
    void SetSize(unsigned int size);

    bool operator==(const QorArray& other) const;
    bool operator!=(const QorArray& other) const { return !(*this == other); }
};

extern template class QorVector<unsigned char>;

}  // namespace qorstd
