// RSA and EC keys: import from PEM and PKCS#12, the kind of key held, and for
// RSA a replaceable private-key operation so that a device that never reveals
// its key can do the signing.
#pragma once

#include "TesseraExport.h"

struct evp_pkey_st;
struct rsa_st;
struct ec_key_st;

namespace TesseraLib {

class X509Certificate;

// One asymmetric key of OpenSSL, shared by reference counting: taking a key
// adds a reference to the same EVP_PKEY, releasing drops one. Changes made to
// the key through OpenSSL are seen by every holder.
//
// Every import first drops the held key, so a failed import leaves the object
// empty. Failures throw CryptException.
class TESSERA_API CryptKey {
public:
    enum cptKeyType {
        cptKeyNone = 0,              // no key, or nothing usable in it
        cptKeyRsaPublic = 1,         // modulus without private exponent
        cptKeyRsaPrivate = 2,        // private exponent without modulus
        cptKeyRsaPublicPrivate = 3,  // modulus and private exponent
        cptKeyEcPublic = 4,          // public point only
        cptKeyEcPrivate = 5,         // private scalar only
        cptKeyEcPublicPrivate = 6    // both
    };

    CryptKey();
    // Takes a reference to `key`.
    explicit CryptKey(evp_pkey_st* key);
    // Copy and assignment copy the pointer only: the derived classes take
    // their own references, and only their destructors release them.
    CryptKey(const CryptKey& other);
    CryptKey& operator=(const CryptKey& other);
    virtual ~CryptKey();

    // One PEM private key (RSA or EC, traditional or PKCS#8, encrypted or
    // not) with `password` as its pass phrase. A wrong or missing pass phrase
    // of an encrypted key throws ErrIncorrectPassword, anything else that
    // cannot be read ErrPrivateKeyRead.
    virtual void ImportPEM(const unsigned char* data, int size, const char* password);
    // The password must be ASCII (else ErrPasswordInvalidChars, before any
    // parsing); a null password stays null.
    virtual void ImportPEM(const unsigned char* data, int size, const wchar_t* password);
    // NUL-terminated PEM text.
    virtual void ImportPEM(const char* text, const char* password);
    virtual void ImportPEM(const char* text, const wchar_t* password);
    // The private key of a DER PKCS#12 structure. Not PKCS#12 at all:
    // ErrPkcs12Decoding; MAC check failed: ErrIncorrectPassword; otherwise
    // unparsable: ErrPkcs12Parsing; no private key in it: ErrPrivateKeyRead.
    virtual void ImportPKCS12(const unsigned char* data, long size, const char* password);
    virtual void ImportPKCS12(const unsigned char* data, long size, const wchar_t* password);
    // A key of `certificate`: cptKeyRsaPublic or cptKeyEcPublic take its
    // public key (shared); cptKeyRsaPrivate or cptKeyEcPrivate take the
    // private key attached to it. Without an attached key, cptKeyRsaPrivate
    // builds a key of the certificate's modulus and public exponent only,
    // which signs once given a private-encrypt callback (CryptKeyRSA).
    // No certificate in it: ErrInvalidParameter "CryptKey - cert.GetX509()=NULL";
    // any other type: ErrInvalidParameter "CryptKey - eKeyType"; nothing
    // to take: ErrPrivateKeyRead.
    virtual void ImportX509(const X509Certificate& certificate, cptKeyType type);

    virtual cptKeyType GetKeyType() const = 0;

    evp_pkey_st* GetKeyEVP() { return m_key; }
    const evp_pkey_st* GetKeyEVP() const { return m_key; }

    // A new object owned by the caller, sharing `key`: CryptKeyRSA for an RSA
    // key, CryptKeyEC for an EC key, null for a null key or any other type.
    static CryptKey* CreateKey(evp_pkey_st* key);

protected:
    // Drops the held reference, if any, and leaves the object empty.
    virtual void FreeKey();
    // `key` after adding a reference to it; null for a null key or when the
    // reference cannot be taken.
    virtual evp_pkey_st* CloneKey(evp_pkey_st* key);

    evp_pkey_st* m_key;
};

class TESSERA_API CryptKeyRSA : public CryptKey {
public:
    // OpenSSL's private-encrypt operation: transform `length` bytes at `from`
    // into `to` with the private key of `rsa` under the RSA padding mode
    // `padding`; the number of bytes written, or below 1 on failure.
    typedef int (*PrivateEncryptFunction)(int length, const unsigned char* from, unsigned char* to,
                                          rsa_st* rsa, int padding);

    CryptKeyRSA();
    // Shares `key` only when it is an RSA key (otherwise stays empty).
    explicit CryptKeyRSA(evp_pkey_st* key);
    CryptKeyRSA(const CryptKeyRSA& other);
    CryptKeyRSA& operator=(const CryptKeyRSA& other);
    ~CryptKeyRSA() override;

    // As in CryptKey; a key that is not RSA is released and gives
    // ErrPrivateKeyRead.
    void ImportPEM(const unsigned char* data, int size, const char* password) override;
    void ImportPEM(const unsigned char* data, int size, const wchar_t* password) override;
    void ImportPEM(const char* text, const char* password) override;
    void ImportPEM(const char* text, const wchar_t* password) override;
    void ImportPKCS12(const unsigned char* data, long size, const char* password) override;
    void ImportPKCS12(const unsigned char* data, long size, const wchar_t* password) override;
    void ImportX509(const X509Certificate& certificate, cptKeyType type) override;

    cptKeyType GetKeyType() const override;

    // OpenSSL's RSA view of the key, null when empty.
    rsa_st* GetRSA();
    const rsa_st* GetRSA() const;
    // Modulus length in bytes, 0 when empty or without modulus.
    int GetLength() const;

    // Makes `callback` the private-key operation of this key, also for a key
    // that holds only modulus and public exponent: every signature OpenSSL
    // makes with the key (EVP_DigestSign, EVP_PKEY_sign, CMS) goes through
    // it. The callback lives in one process-wide RSA method shared by every
    // key given a callback, so the latest callback applies to all of them.
    // Set callbacks from one thread before use; not locked. No RSA key:
    // ErrPrivateKeyRead; the method cannot be installed: ErrInternal.
    void SetPrivateEncryptCallback(PrivateEncryptFunction callback);
    // The callback last set on this object, or the private-encrypt function
    // the key's method had when this object took it.
    PrivateEncryptFunction GetPrivateEncryptCallback() const { return m_privateEncrypt; }

private:
    void RequireRsa();

    PrivateEncryptFunction m_privateEncrypt;
};

class TESSERA_API CryptKeyEC : public CryptKey {
public:
    CryptKeyEC();
    // Shares `key` only when it is an EC key (otherwise stays empty).
    explicit CryptKeyEC(evp_pkey_st* key);
    CryptKeyEC(const CryptKeyEC& other);
    CryptKeyEC& operator=(const CryptKeyEC& other);
    ~CryptKeyEC() override;

    // As in CryptKey; a key that is not EC is released and gives
    // ErrPrivateKeyRead.
    void ImportPEM(const unsigned char* data, int size, const char* password) override;
    void ImportPEM(const unsigned char* data, int size, const wchar_t* password) override;
    void ImportPEM(const char* text, const char* password) override;
    void ImportPEM(const char* text, const wchar_t* password) override;
    void ImportPKCS12(const unsigned char* data, long size, const char* password) override;
    void ImportPKCS12(const unsigned char* data, long size, const wchar_t* password) override;
    void ImportX509(const X509Certificate& certificate, cptKeyType type) override;

    cptKeyType GetKeyType() const override;

    // OpenSSL's EC view of the key, null when empty.
    ec_key_st* GetKeyEC();
    const ec_key_st* GetKeyEC() const;

private:
    void RequireEc();
};

}  // namespace TesseraLib
