#include "x509/X509Bytes.h"

#include <string>

#include "CryptHash.h"
#include "QorHex.h"

namespace TesseraLib {
namespace x509 {

qorstd::QorString LowerHex(const qorstd::QorArray<unsigned char>& bytes) {
    return qorstd::QorString(qortext::LowerHex(bytes.GetData(), bytes.GetSize()).c_str());
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
