#include "x509/X509Bytes.h"

#include <string>

#include "CryptHash.h"

namespace TesseraLib {
namespace x509 {

qorstd::QorString LowerHex(const qorstd::QorArray<unsigned char>& bytes) {
    static const char kDigits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(static_cast<std::size_t>(bytes.GetSize()) * 2);
    for (unsigned int i = 0; i < bytes.GetSize(); ++i) {
        hex.push_back(kDigits[bytes.GetData()[i] >> 4]);
        hex.push_back(kDigits[bytes.GetData()[i] & 0x0F]);
    }
    return qorstd::QorString(hex.c_str());
}

qorstd::QorArray<unsigned char> Sha1(const qorstd::QorArray<unsigned char>& bytes) {
    qorstd::QorArray<unsigned char> digest;
    if (bytes.GetSize() == 0) {
        return digest;
    }
    CryptHash hash(CryptHash::cptHashSHA1);
    hash.Update(bytes);
    hash.Finish(digest);
    return digest;
}

}  // namespace x509
}  // namespace TesseraLib
