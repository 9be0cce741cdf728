#include "QorArray.h"

#include "QorStl.h"

namespace qorstd {

template class QorVector<unsigned char>;
template class QorVector<QorString>;
template class QorVector<QorStringW>;
template class QorVectorIterator<unsigned char>;
template class QorVectorIterator<QorString>;
template class QorVectorIterator<QorStringW>;

QorArray<unsigned char>::QorArray() = default;
QorArray<unsigned char>::QorArray(unsigned int capacity) : QorVector<unsigned char>(capacity) {}
QorArray<unsigned char>::QorArray(const unsigned char* data, unsigned int length)
    : QorVector<unsigned char>(data, length) {}
QorArray<unsigned char>::QorArray(const QorArray& other) : QorVector<unsigned char>(other) {}
QorArray<unsigned char>::~QorArray() = default;

QorArray<unsigned char>& QorArray<unsigned char>::operator=(const QorArray& other) {
    QorVector<unsigned char>::operator=(other);
    return *this;
}

void QorArray<unsigned char>::Assign(const unsigned char* data, unsigned int length) {
    if (length > 0 && data == nullptr) {
        ThrowOutOfRange();
    }
    if (length > m_capacity) {
        // The source cannot lie inside storage smaller than itself.
        ZeroSlots(0, m_size);
        m_size = 0;
        EnsureExtraCapacity(length);
    }
    if (length > 0) {
        std::memmove(m_data, data, length);
    }
    if (m_size > length) {
        ZeroSlots(length, m_size);
    }
    m_size = length;
}

unsigned int QorArray<unsigned char>::Append(const unsigned char* data, unsigned int length) {
    if (length == 0) {
        return m_size;
    }
    if (data == nullptr) {
        ThrowOutOfRange();
    }
    const bool inside = m_data != nullptr && data >= m_data && data < m_data + m_capacity;
    const std::size_t offset = inside ? static_cast<std::size_t>(data - m_data) : 0;
    EnsureExtraCapacity(length);
    const unsigned char* source = inside ? m_data + offset : data;
    std::memmove(m_data + m_size, source, length);
    m_size += length;
    return m_size;
}

unsigned int QorArray<unsigned char>::Append(const QorArray& other) {
    return Append(other.m_data, other.m_size);
}

void QorArray<unsigned char>::SetSize(unsigned int size) {
    if (size > m_size) {
        EnsureExtraCapacity(size - m_size);
    } else {
        ZeroSlots(size, m_size);
    }
    m_size = size;
}

bool QorArray<unsigned char>::operator==(const QorArray& other) const {
    return m_size == other.m_size &&
           (m_size == 0 || std::memcmp(m_data, other.m_data, m_size) == 0);
}

}  // namespace qorstd
