// AES key wrap and RSA PKCS#1 v1.5 encryption.
#include "EncryptionUtils.h"

#include <openssl/aes.h>
#include <openssl/crypto.h>
#include <openssl/engine.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include "CryptException.h"
#include "CryptKey.h"
#include "Failure.h"
#include "OpenSslPtr.h"

namespace TesseraLib {

namespace {

using Bytes = qorstd::QorArray<unsigned char>;

// An expanded AES key, wiped whatever way the operation ends.
struct AesKeySchedule {
    AES_KEY schedule;
    ~AesKeySchedule() { OPENSSL_cleanse(&schedule, sizeof(schedule)); }
};

void CheckAesKey(const Bytes& key) {
    const unsigned int length = key.GetSize();
    if (length != 16 && length != 24 && length != 32) {
        Fail(ErrInvalidParameter, L"Key must have 128, 192 or 256 bits");
    }
}

const unsigned char* CheckIv(const Bytes& iv) {
    if (iv.GetSize() != 8) {
        Fail(ErrInvalidParameter, L"the IV must be 8 bytes long");
    }
    return iv.GetData();
}

// A null `iv` stands for the default initial value of RFC 3394.
Bytes Wrap(const Bytes& key, const Bytes& data, const unsigned char* iv) {
    CheckAesKey(key);
    if (data.GetSize() % 8 != 0) {
        Fail(ErrInvalidParameter, L"Data to wrap must have a length that is a multiple of 64 bits");
    }
    AesKeySchedule aes;
    if (AES_set_encrypt_key(key.GetData(), static_cast<int>(key.GetSize() * 8), &aes.schedule) !=
        0) {
        Fail(ErrInternal, L"AES_set_encrypt_key failed");
    }
    Bytes wrapped(data.GetSize() + 8);
    wrapped.SetSize(data.GetSize() + 8);
    const int length =
        AES_wrap_key(&aes.schedule, iv, wrapped.GetData(), data.GetData(), data.GetSize());
    if (length < 0 || static_cast<unsigned int>(length) != data.GetSize() + 8) {
        Fail(ErrInternal, L"AES_wrap_key failed");
    }
    return wrapped;
}

CryptArray Unwrap(const Bytes& key, const Bytes& wrapped, const unsigned char* iv) {
    CheckAesKey(key);
    if (wrapped.GetSize() % 8 != 0 || wrapped.GetSize() < 16) {
        Fail(ErrInvalidParameter,
             L"Data to unwrap must have a length that is a multiple of 64 bits and at least 128 "
             L"bits");
    }
    AesKeySchedule aes;
    if (AES_set_decrypt_key(key.GetData(), static_cast<int>(key.GetSize() * 8), &aes.schedule) !=
        0) {
        Fail(ErrInternal, L"AES_set_decrypt_key failed");
    }
    CryptArray plain(wrapped.GetSize() - 8);
    plain.SetSize(wrapped.GetSize() - 8);
    const int length =
        AES_unwrap_key(&aes.schedule, iv, plain.GetData(), wrapped.GetData(), wrapped.GetSize());
    if (length < 0 || static_cast<unsigned int>(length) != wrapped.GetSize() - 8) {
        Fail(ErrInternal, L"AES_unwrap_key failed");
    }
    return plain;
}

// A context for the key's public-key operations, with the engine the key is
// bound to. An empty key is refused here, before any key material is used.
EvpPkeyCtxPtr NewContext(CryptKeyRSA& key) {
    EVP_PKEY* pkey = key.GetKeyEVP();
    EvpPkeyCtxPtr context(pkey != nullptr ? EVP_PKEY_CTX_new(pkey, EVP_PKEY_get0_engine(pkey))
                                          : nullptr);
    if (!context) {
        Fail(ErrInternal, L"Failed to create RSA operation context");
    }
    return context;
}

void SelectPkcs1Padding(EVP_PKEY_CTX* context) {
    const int selected = EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PADDING);
    if (selected == -2) {
        Fail(ErrAlgorithmNotSupported, L"RSA PKCS1 v1.5 padding not supported by the provider");
    }
    if (selected <= 0) {
        Fail(ErrInternal, L"Failed to set RSA padding");
    }
}

}  // namespace

Bytes EncryptionUtils::AesWrapKey(const Bytes& key, const Bytes& data) {
    return Wrap(key, data, nullptr);
}

Bytes EncryptionUtils::AesWrapKey(const Bytes& key, const Bytes& data, const Bytes& iv) {
    return Wrap(key, data, CheckIv(iv));
}

CryptArray EncryptionUtils::AesUnwrapKey(const Bytes& key, const Bytes& wrapped) {
    return Unwrap(key, wrapped, nullptr);
}

CryptArray EncryptionUtils::AesUnwrapKey(const Bytes& key, const Bytes& wrapped, const Bytes& iv) {
    return Unwrap(key, wrapped, CheckIv(iv));
}

Bytes EncryptionUtils::RsaEncryptPkcs1v15(CryptKeyRSA& key, const Bytes& data) {
    if (key.GetKeyEVP() == nullptr) {
        Fail(ErrInternal, L"Failed to create RSA operation context");
    }
    const unsigned int modulus = static_cast<unsigned int>(key.GetLength());
    if (modulus < 11 || data.GetSize() > modulus - 11) {
        Fail(ErrInvalidParameter, L"data must be at least 11 bytes shorter than key modulus");
    }
    EvpPkeyCtxPtr context = NewContext(key);
    const int initialised = EVP_PKEY_encrypt_init(context.get());
    if (initialised == -2) {
        Fail(ErrAlgorithmNotSupported, L"Encryption not supported by the key");
    }
    if (initialised <= 0) {
        Fail(ErrInternal, L"Failed to init encryption");
    }
    SelectPkcs1Padding(context.get());
    Bytes cryptogram(modulus);
    cryptogram.SetSize(modulus);
    size_t length = modulus;
    if (EVP_PKEY_encrypt(context.get(), cryptogram.GetData(), &length, data.GetData(),
                         data.GetSize()) <= 0 ||
        length != modulus) {
        Fail(ErrInternal, L"Encryption failed");
    }
    return cryptogram;
}

CryptArray EncryptionUtils::RsaDecryptPkcs1v15(CryptKeyRSA& key, const Bytes& cryptogram) {
    if (key.GetKeyEVP() == nullptr) {
        Fail(ErrInternal, L"Failed to create RSA operation context");
    }
    const unsigned int modulus = static_cast<unsigned int>(key.GetLength());
    if (cryptogram.GetSize() != modulus) {
        Fail(ErrInvalidParameter, L"cryptogram must be the same length as the key modulus");
    }
    EvpPkeyCtxPtr context = NewContext(key);
    const int initialised = EVP_PKEY_decrypt_init(context.get());
    if (initialised == -2) {
        Fail(ErrAlgorithmNotSupported, L"Decryption not supported by the key");
    }
    if (initialised <= 0) {
        Fail(ErrInternal, L"Failed to init decryption");
    }
    SelectPkcs1Padding(context.get());
    CryptArray plain(modulus);
    plain.SetSize(modulus);
    size_t length = modulus;
    if (EVP_PKEY_decrypt(context.get(), plain.GetData(), &length, cryptogram.GetData(),
                         cryptogram.GetSize()) <= 0 ||
        length > modulus) {
        Fail(ErrInternal, L"Decryption failed");
    }
    plain.SetSize(static_cast<unsigned int>(length));
    return plain;
}

}  // namespace TesseraLib
