// Pieces of the key classes that work on OpenSSL structures directly (not
// part of the public interface; tested on their own).
#pragma once

#include <openssl/evp.h>
#include <openssl/rsa.h>

#include "OpenSslPtr.h"

namespace TesseraLib {
namespace keys {

typedef int (*PrivateEncryptFunction)(int length, const unsigned char* from, unsigned char* to,
                                      RSA* rsa, int padding);

// A stand-alone RSA key holding only the modulus and public exponent of
// `publicKey`. It cannot sign by itself; it is meant to be given a
// private-encrypt callback. Null when `publicKey` is not RSA or building fails.
EvpPkeyPtr BuildModulusOnlyRsaKey(const EVP_PKEY* publicKey);

// The process-wide RSA method whose private-encrypt entry is the callback of
// SetPrivateEncryptCallback; null until the first installation.
const RSA_METHOD* SharedRsaMethod();

// Makes `callback` the private-encrypt entry of the shared method (created on
// the first call as a copy of `key`'s method, or of the default one) and
// installs the method on `key`, turning it into a legacy key whose RSA
// operations OpenSSL 3 routes through the method. `key` keeps its address
// and its legacy RSA object, so every holder sees the change. False (with
// OpenSSL's errors queued) when `key` is not RSA or any step fails.
bool InstallPrivateEncrypt(EVP_PKEY* key, PrivateEncryptFunction callback);

// Consume OpenSSL's error queue and tell whether it reports a wrong or
// missing pass phrase of an encrypted PEM key (traditional or PKCS#8), or a
// failed PKCS#12 MAC check respectively.
bool TakeBadPassphraseError();
bool TakePkcs12MacError();

// The PKCS#12 structure in exactly `size` bytes; null when the bytes are no
// PKCS#12 or its MAC iteration count is far beyond what any producer writes
// (checking the password would only stall).
Pkcs12Ptr DecodePkcs12(const unsigned char* data, long size);

}  // namespace keys
}  // namespace TesseraLib
