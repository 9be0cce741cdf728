// CryptKey: reference-shared keys and their import from PEM and PKCS#12.
#include "CryptKey.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>

#include <cstring>

#include "CryptException.h"
#include "CryptKey/KeyInternals.h"
#include "Failure.h"
#include "OpenSslPtr.h"
#include "QorTextConv.h"
#include "X509Certificate.h"

namespace TesseraLib {

namespace {

// Hands the pass phrase to the PEM reader. Without one it answers "none"
// instead of letting OpenSSL prompt on the terminal.
int PassphraseCallback(char* buffer, int size, int /*writing*/, void* password) {
    if (password == nullptr) {
        return -1;
    }
    const std::size_t length = std::strlen(static_cast<const char*>(password));
    if (length > static_cast<std::size_t>(size)) {
        return -1;
    }
    std::memcpy(buffer, password, length);
    return static_cast<int>(length);
}

// The password as ASCII; a non-empty password with any other character is
// refused before anything is parsed. Null stays null (`*narrow` unused).
const char* AsciiPassword(const wchar_t* password, qorstd::QorString* narrow) {
    if (password == nullptr) {
        return nullptr;
    }
    *narrow = qorstd::text::WideToNarrow(password, true);
    if (narrow->empty() && password[0] != L'\0') {
        Fail(ErrPasswordInvalidChars);
    }
    return narrow->c_str();
}

void CheckText(const char* text) {
    if (text == nullptr) {
        Fail(ErrInvalidParameter, L"CryptKey - pszKey=NULL");
    }
    if (text[0] == '\0') {
        Fail(ErrInvalidParameter, L"CryptKey - nKeyLength=0");
    }
}

}  // namespace

CryptKey::CryptKey() : m_key(nullptr) {}

CryptKey::CryptKey(evp_pkey_st* key) : m_key(nullptr) {
    m_key = CloneKey(key);
}

CryptKey::CryptKey(const CryptKey& other) : m_key(other.m_key) {}

CryptKey& CryptKey::operator=(const CryptKey& other) {
    m_key = other.m_key;
    return *this;
}

CryptKey::~CryptKey() = default;

void CryptKey::FreeKey() {
    if (m_key != nullptr) {
        EVP_PKEY_free(m_key);
        m_key = nullptr;
    }
}

evp_pkey_st* CryptKey::CloneKey(evp_pkey_st* key) {
    return UpRef(key).release();
}

CryptKey* CryptKey::CreateKey(evp_pkey_st* key) {
    if (key == nullptr) {
        return nullptr;
    }
    switch (EVP_PKEY_get_base_id(key)) {
        case EVP_PKEY_RSA:
            return new CryptKeyRSA(key);
        case EVP_PKEY_EC:
            return new CryptKeyEC(key);
        default:
            return nullptr;
    }
}

void CryptKey::ImportPEM(const unsigned char* data, int size, const char* password) {
    if (data == nullptr) {
        Fail(ErrInvalidParameter, L"CryptKey - pData=NULL");
    }
    if (size <= 0) {
        Fail(ErrInvalidParameter, L"CryptKey - nSize<=0");
    }
    BioPtr bio(BIO_new_mem_buf(data, size));
    if (!bio) {
        Fail(ErrOutOfMemory, L"CryptKey - pBioKey=NULL");
    }
    FreeKey();
    ERR_clear_error();
    m_key = PEM_read_bio_PrivateKey(bio.get(), nullptr, PassphraseCallback,
                                    const_cast<char*>(password));
    if (m_key == nullptr) {
        Fail(keys::TakeBadPassphraseError() ? ErrIncorrectPassword : ErrPrivateKeyRead);
    }
}

void CryptKey::ImportPEM(const unsigned char* data, int size, const wchar_t* password) {
    qorstd::QorString narrow;
    const char* ascii = AsciiPassword(password, &narrow);
    ImportPEM(data, size, ascii);
}

void CryptKey::ImportPEM(const char* text, const char* password) {
    CheckText(text);
    ImportPEM(reinterpret_cast<const unsigned char*>(text), static_cast<int>(std::strlen(text)),
              password);
}

void CryptKey::ImportPEM(const char* text, const wchar_t* password) {
    CheckText(text);
    ImportPEM(reinterpret_cast<const unsigned char*>(text), static_cast<int>(std::strlen(text)),
              password);
}

void CryptKey::ImportPKCS12(const unsigned char* data, long size, const char* password) {
    if (data == nullptr) {
        Fail(ErrInvalidParameter, L"CryptKey - pData=NULL");
    }
    if (size <= 0) {
        Fail(ErrInvalidParameter, L"CryptKey - nSize<=0");
    }
    Pkcs12Ptr pkcs12 = keys::DecodePkcs12(data, size);
    if (!pkcs12) {
        Fail(ErrPkcs12Decoding);
    }
    FreeKey();
    ERR_clear_error();
    EVP_PKEY* key = nullptr;
    X509* certificate = nullptr;
    const int parsed = PKCS12_parse(pkcs12.get(), password, &key, &certificate, nullptr);
    EvpPkeyPtr keyOwner(key);
    X509Ptr certificateOwner(certificate);
    if (parsed != 1) {
        Fail(keys::TakePkcs12MacError() ? ErrIncorrectPassword : ErrPkcs12Parsing);
    }
    if (!keyOwner) {
        Fail(ErrPrivateKeyRead);
    }
    m_key = keyOwner.release();
}

void CryptKey::ImportPKCS12(const unsigned char* data, long size, const wchar_t* password) {
    qorstd::QorString narrow;
    const char* ascii = AsciiPassword(password, &narrow);
    ImportPKCS12(data, size, ascii);
}

void CryptKey::ImportX509(const X509Certificate& certificate, cptKeyType type) {
    X509* x509 = certificate.GetX509();
    if (x509 == nullptr) {
        Fail(ErrInvalidParameter, L"CryptKey - cert.GetX509()=NULL");
    }
    FreeKey();
    switch (type) {
        case cptKeyRsaPublic:
        case cptKeyEcPublic: {
            // Read from the encoded SubjectPublicKeyInfo: a certificate made
            // in memory may hold the very key object it was made with,
            // private half included.
            unsigned char* der = nullptr;
            const int length = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(x509), &der);
            OpenSslBytesPtr owned(der);
            const unsigned char* cursor = der;
            m_key = length > 0 ? d2i_PUBKEY(nullptr, &cursor, length) : nullptr;
            break;
        }
        case cptKeyRsaPrivate:
        case cptKeyEcPrivate: {
            CryptKey* attached = certificate.GetPrivateKey();
            if (attached != nullptr) {
                m_key = CloneKey(attached->GetKeyEVP());
            } else if (type == cptKeyRsaPrivate) {
                m_key = keys::BuildModulusOnlyRsaKey(X509_get0_pubkey(x509)).release();
            }
            break;
        }
        default:
            Fail(ErrInvalidParameter, L"CryptKey - eKeyType");
    }
    ERR_clear_error();
    if (m_key == nullptr) {
        Fail(ErrPrivateKeyRead);
    }
}

}  // namespace TesseraLib
