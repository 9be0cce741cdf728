#include "CryptArray.h"

#include <openssl/crypto.h>

namespace TesseraLib {

CryptArray::CryptArray() = default;
CryptArray::CryptArray(unsigned int capacity) : qorstd::QorArray<unsigned char>(capacity) {}
CryptArray::CryptArray(const unsigned char* data, unsigned int length)
    : qorstd::QorArray<unsigned char>(data, length) {}
CryptArray::CryptArray(const CryptArray& other) : qorstd::QorArray<unsigned char>(other) {}
CryptArray::CryptArray(const qorstd::QorArray<unsigned char>& other)
    : qorstd::QorArray<unsigned char>(other) {}

CryptArray::~CryptArray() {
    if (m_data != nullptr) {
        ZeroOut(m_data, m_capacity);
    }
}

CryptArray& CryptArray::operator=(const CryptArray& other) {
    // The base assignment gives up storage only through ReleaseStorage.
    qorstd::QorArray<unsigned char>::operator=(other);
    return *this;
}

void CryptArray::Cleanse() {
    if (m_data != nullptr) {
        ZeroOut(m_data, m_capacity);
    }
    RemoveAll();
}

void CryptArray::ZeroOut(void* data, unsigned int length) {
    if (data != nullptr && length > 0) {
        OPENSSL_cleanse(data, length);
    }
}

void CryptArray::ReleaseStorage() {
    if (m_data != nullptr) {
        ZeroOut(m_data, m_capacity);
    }
    qorstd::QorArray<unsigned char>::ReleaseStorage();
}

}  // namespace TesseraLib
