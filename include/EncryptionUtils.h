// Protection of key material: AES key wrap (RFC 3394) and RSA encryption with
// PKCS#1 v1.5 padding. Results holding secrets are CryptArrays, which wipe
// themselves.
#pragma once

#include "CryptArray.h"
#include "QorArray.h"
#include "TesseraExport.h"

namespace TesseraLib {

class CryptKeyRSA;

// Every failure throws CryptException.
class TESSERA_API EncryptionUtils {
public:
    // Wraps `data` (a multiple of 8 bytes) with an AES key of 16, 24 or 32
    // bytes and the default initial value of RFC 3394; the result is 8 bytes
    // longer than `data`.
    static qorstd::QorArray<unsigned char> AesWrapKey(const qorstd::QorArray<unsigned char>& key,
                                                      const qorstd::QorArray<unsigned char>& data);
    // As above with an initial value of exactly 8 bytes.
    static qorstd::QorArray<unsigned char> AesWrapKey(const qorstd::QorArray<unsigned char>& key,
                                                      const qorstd::QorArray<unsigned char>& data,
                                                      const qorstd::QorArray<unsigned char>& iv);
    // Unwraps (at least 16 bytes, a multiple of 8) and checks the initial
    // value; a wrong key or initial value gives ErrInternal.
    static CryptArray AesUnwrapKey(const qorstd::QorArray<unsigned char>& key,
                                   const qorstd::QorArray<unsigned char>& wrapped);
    static CryptArray AesUnwrapKey(const qorstd::QorArray<unsigned char>& key,
                                   const qorstd::QorArray<unsigned char>& wrapped,
                                   const qorstd::QorArray<unsigned char>& iv);

    // PKCS#1 v1.5 through OpenSSL's generic key interface, with the engine
    // the key is bound to, so token keys work too. Encryption takes at most
    // the modulus length minus 11 bytes and gives the modulus length;
    // decryption takes exactly the modulus length.
    static qorstd::QorArray<unsigned char> RsaEncryptPkcs1v15(
        CryptKeyRSA& key, const qorstd::QorArray<unsigned char>& data);
    static CryptArray RsaDecryptPkcs1v15(CryptKeyRSA& key,
                                         const qorstd::QorArray<unsigned char>& cryptogram);
};

}  // namespace TesseraLib
