// A byte array for secrets: its storage is wiped whenever it is given up.
#pragma once

#include "QorArray.h"
#include "TesseraExport.h"

namespace TesseraLib {

// Every time the storage is released (growth, reassignment to larger
// content, Cleanse, destruction) it is first overwritten with OpenSSL's
// cleansing routine, so no copy of the bytes stays behind in freed memory.
// Bytes cut off by SetSize or a shorter Assign are zeroed at once.
class TESSERA_API CryptArray : public qorstd::QorArray<unsigned char> {
public:
    CryptArray();
    // Empty, with storage for `capacity` bytes.
    explicit CryptArray(unsigned int capacity);
    CryptArray(const unsigned char* data, unsigned int length);
    CryptArray(const CryptArray& other);
    CryptArray(const qorstd::QorArray<unsigned char>& other);  // NOLINT: content copied
    ~CryptArray() override;

    CryptArray& operator=(const CryptArray& other);

    // Wipes the whole storage and empties the array; the storage is kept.
    void Cleanse();

protected:
    // Overwrites `length` bytes at `data` in a way the compiler keeps.
    virtual void ZeroOut(void* data, unsigned int length);
    void ReleaseStorage() override;
};

}  // namespace TesseraLib
