// CryptKeyEC: EC keys.
#include <openssl/ec.h>

#include "CryptException.h"
#include "CryptKey.h"
#include "Failure.h"
#include "OpenSslPtr.h"

namespace TesseraLib {

namespace {

bool IsEc(const EVP_PKEY* key) {
    return key != nullptr && EVP_PKEY_get_base_id(key) == EVP_PKEY_EC;
}

}  // namespace

CryptKeyEC::CryptKeyEC() = default;

CryptKeyEC::CryptKeyEC(evp_pkey_st* key) {
    if (IsEc(key)) {
        m_key = CloneKey(key);
    }
}

CryptKeyEC::CryptKeyEC(const CryptKeyEC& other) : CryptKey() {
    if (IsEc(other.m_key)) {
        m_key = CloneKey(other.m_key);
    }
}

CryptKeyEC& CryptKeyEC::operator=(const CryptKeyEC& other) {
    if (this != &other) {
        FreeKey();
        if (IsEc(other.m_key)) {
            m_key = CloneKey(other.m_key);
        }
    }
    return *this;
}

CryptKeyEC::~CryptKeyEC() {
    FreeKey();
}

void CryptKeyEC::RequireEc() {
    if (!IsEc(m_key)) {
        FreeKey();
        Fail(ErrPrivateKeyRead);
    }
}

void CryptKeyEC::ImportPEM(const unsigned char* data, int size, const char* password) {
    CryptKey::ImportPEM(data, size, password);
    RequireEc();
}

void CryptKeyEC::ImportPEM(const unsigned char* data, int size, const wchar_t* password) {
    CryptKey::ImportPEM(data, size, password);
    RequireEc();
}

void CryptKeyEC::ImportPEM(const char* text, const char* password) {
    CryptKey::ImportPEM(text, password);
    RequireEc();
}

void CryptKeyEC::ImportPEM(const char* text, const wchar_t* password) {
    CryptKey::ImportPEM(text, password);
    RequireEc();
}

void CryptKeyEC::ImportPKCS12(const unsigned char* data, long size, const char* password) {
    CryptKey::ImportPKCS12(data, size, password);
    RequireEc();
}

void CryptKeyEC::ImportPKCS12(const unsigned char* data, long size, const wchar_t* password) {
    CryptKey::ImportPKCS12(data, size, password);
    RequireEc();
}

ec_key_st* CryptKeyEC::GetKeyEC() {
    // OpenSSL 3 hands out its legacy view of the key as const; the object is
    // the key's own and lives as long as the key.
    return IsEc(m_key) ? const_cast<EC_KEY*>(EVP_PKEY_get0_EC_KEY(m_key)) : nullptr;
}

const ec_key_st* CryptKeyEC::GetKeyEC() const {
    return IsEc(m_key) ? EVP_PKEY_get0_EC_KEY(m_key) : nullptr;
}

CryptKey::cptKeyType CryptKeyEC::GetKeyType() const {
    const EC_KEY* ec = GetKeyEC();
    if (ec == nullptr) {
        return cptKeyNone;
    }
    const bool point = EC_KEY_get0_public_key(ec) != nullptr;
    const bool scalar = EC_KEY_get0_private_key(ec) != nullptr;
    if (point && scalar) {
        return cptKeyEcPublicPrivate;
    }
    if (scalar) {
        return cptKeyEcPrivate;
    }
    return point ? cptKeyEcPublic : cptKeyNone;
}

void CryptKeyEC::ImportX509(const X509Certificate& certificate, cptKeyType type) {
    CryptKey::ImportX509(certificate, type);
    RequireEc();
}

}  // namespace TesseraLib
