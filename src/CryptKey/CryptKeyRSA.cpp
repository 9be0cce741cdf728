// CryptKeyRSA: RSA keys and their replaceable private-encrypt operation.
#include <openssl/err.h>
#include <openssl/rsa.h>

#include "CryptException.h"
#include "CryptKey.h"
#include "CryptKey/KeyInternals.h"
#include "Failure.h"

namespace TesseraLib {

namespace {

bool IsRsa(const EVP_PKEY* key) {
    return key != nullptr && EVP_PKEY_get_base_id(key) == EVP_PKEY_RSA;
}

// The private-encrypt entry of the key's RSA method (null for other keys).
CryptKeyRSA::PrivateEncryptFunction MethodPrivateEncrypt(const EVP_PKEY* key) {
    const RSA* rsa = IsRsa(key) ? EVP_PKEY_get0_RSA(key) : nullptr;
    const RSA_METHOD* method = rsa != nullptr ? RSA_get_method(rsa) : nullptr;
    return method != nullptr ? RSA_meth_get_priv_enc(method) : nullptr;
}

}  // namespace

CryptKeyRSA::CryptKeyRSA() : m_privateEncrypt(nullptr) {}

CryptKeyRSA::CryptKeyRSA(evp_pkey_st* key) : m_privateEncrypt(nullptr) {
    if (IsRsa(key)) {
        m_key = CloneKey(key);
        m_privateEncrypt = MethodPrivateEncrypt(m_key);
    }
}

CryptKeyRSA::CryptKeyRSA(const CryptKeyRSA& other)
    : CryptKey(), m_privateEncrypt(other.m_privateEncrypt) {
    if (IsRsa(other.m_key)) {
        m_key = CloneKey(other.m_key);
    }
}

CryptKeyRSA& CryptKeyRSA::operator=(const CryptKeyRSA& other) {
    if (this != &other) {
        FreeKey();
        if (IsRsa(other.m_key)) {
            m_key = CloneKey(other.m_key);
        }
        m_privateEncrypt = other.m_privateEncrypt;
    }
    return *this;
}

CryptKeyRSA::~CryptKeyRSA() {
    FreeKey();
}

void CryptKeyRSA::RequireRsa() {
    if (!IsRsa(m_key)) {
        FreeKey();
        m_privateEncrypt = nullptr;
        Fail(ErrPrivateKeyRead);
    }
    m_privateEncrypt = MethodPrivateEncrypt(m_key);
}

void CryptKeyRSA::ImportPEM(const unsigned char* data, int size, const char* password) {
    CryptKey::ImportPEM(data, size, password);
    RequireRsa();
}

void CryptKeyRSA::ImportPEM(const unsigned char* data, int size, const wchar_t* password) {
    CryptKey::ImportPEM(data, size, password);
    RequireRsa();
}

void CryptKeyRSA::ImportPEM(const char* text, const char* password) {
    CryptKey::ImportPEM(text, password);
    RequireRsa();
}

void CryptKeyRSA::ImportPEM(const char* text, const wchar_t* password) {
    CryptKey::ImportPEM(text, password);
    RequireRsa();
}

void CryptKeyRSA::ImportPKCS12(const unsigned char* data, long size, const char* password) {
    CryptKey::ImportPKCS12(data, size, password);
    RequireRsa();
}

void CryptKeyRSA::ImportPKCS12(const unsigned char* data, long size, const wchar_t* password) {
    CryptKey::ImportPKCS12(data, size, password);
    RequireRsa();
}

rsa_st* CryptKeyRSA::GetRSA() {
    // OpenSSL 3 hands out its legacy view of the key as const; the object is
    // the key's own and lives as long as the key.
    return IsRsa(m_key) ? const_cast<RSA*>(EVP_PKEY_get0_RSA(m_key)) : nullptr;
}

const rsa_st* CryptKeyRSA::GetRSA() const {
    return IsRsa(m_key) ? EVP_PKEY_get0_RSA(m_key) : nullptr;
}

int CryptKeyRSA::GetLength() const {
    const RSA* rsa = GetRSA();
    const BIGNUM* modulus = rsa != nullptr ? RSA_get0_n(rsa) : nullptr;
    return modulus != nullptr ? BN_num_bytes(modulus) : 0;
}

CryptKey::cptKeyType CryptKeyRSA::GetKeyType() const {
    const RSA* rsa = GetRSA();
    if (rsa == nullptr) {
        return cptKeyNone;
    }
    const bool modulus = RSA_get0_n(rsa) != nullptr;
    const bool exponent = RSA_get0_d(rsa) != nullptr;
    if (modulus && exponent) {
        return cptKeyRsaPublicPrivate;
    }
    if (modulus) {
        return cptKeyRsaPublic;
    }
    return exponent ? cptKeyRsaPrivate : cptKeyNone;
}

void CryptKeyRSA::SetPrivateEncryptCallback(PrivateEncryptFunction callback) {
    if (!IsRsa(m_key)) {
        Fail(ErrPrivateKeyRead);
    }
    if (!keys::InstallPrivateEncrypt(m_key, callback)) {
        Fail(ErrInternal);
    }
    m_privateEncrypt = callback;
}

void CryptKeyRSA::ImportX509(const X509Certificate& certificate, cptKeyType type) {
    CryptKey::ImportX509(certificate, type);
    RequireRsa();
}

}  // namespace TesseraLib
