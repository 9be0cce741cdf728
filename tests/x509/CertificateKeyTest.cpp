// Keys taken from certificates: the public key, an attached private key, and
// the modulus-only key that signs through an application callback.
//
//   Self-signed "Key Holder" (RSA 2048, pooled key), with and without the
//   private key attached; "EC Holder" (EC P-256), self-signed.
#include <gtest/gtest.h>

#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <functional>
#include <string>

#include "CryptException.h"
#include "CryptKey.h"
#include "TestPki.h"
#include "X509Certificate.h"

using namespace TesseraLib;
using namespace tessera_test;

namespace {

EVP_PKEY* g_realKey = nullptr;
int g_callbackCalls = 0;

// Stands in for a device that holds the private key.
int SignOnDevice(int length, const unsigned char* from, unsigned char* to, RSA* /*rsa*/,
                 int padding) {
    ++g_callbackCalls;
    return RSA_private_encrypt(length, from, to, const_cast<RSA*>(EVP_PKEY_get0_RSA(g_realKey)),
                               padding);
}

int CodeOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const CryptException& e) {
        return e.GetErrorCode();
    }
    return 0;
}

struct Holders {
    KeyPtr rsaKey = CachedKey(KeyKind::Rsa2048, 2);
    Issued rsa;
    Issued ec;
    Holders() {
        CertSpec plan;
        plan.commonName = "Key Holder";
        plan.key = rsaKey.get();
        rsa = IssueCertificate(plan, nullptr);
        plan.commonName = "EC Holder";
        plan.key = nullptr;
        ec = IssueCertificate(plan, nullptr);
    }
};

const Holders& Certs() {
    static const Holders holders;
    return holders;
}

}  // namespace

TEST(CertificateKeyTest, PublicAndAttachedPrivateKeys) {
    X509Certificate rsa(Certs().rsa.cert.get());
    CryptKeyRSA publicKey;
    publicKey.ImportX509(rsa, CryptKey::cptKeyRsaPublic);
    EXPECT_EQ(publicKey.GetKeyType(), CryptKey::cptKeyRsaPublic) << "modulus only";
    EXPECT_EQ(EVP_PKEY_eq(publicKey.GetKeyEVP(), Certs().rsaKey.get()), 1)
        << "the certificate's key";

    CryptKeyRSA attachedKey(Certs().rsaKey.get());
    rsa.SetPrivateKey(&attachedKey);
    CryptKeyRSA privateKey;
    privateKey.ImportX509(rsa, CryptKey::cptKeyRsaPrivate);
    EXPECT_EQ(privateKey.GetKeyEVP(), Certs().rsaKey.get()) << "the attached key, shared";
    EXPECT_EQ(privateKey.GetKeyType(), CryptKey::cptKeyRsaPublicPrivate);

    X509Certificate ec(Certs().ec.cert.get());
    CryptKeyEC ecKey;
    ecKey.ImportX509(ec, CryptKey::cptKeyEcPublic);
    EXPECT_EQ(ecKey.GetKeyType(), CryptKey::cptKeyEcPublic) << "EC public point";
    EXPECT_EQ(CodeOf([&] { ecKey.ImportX509(ec, CryptKey::cptKeyEcPrivate); }), ErrPrivateKeyRead)
        << "no EC key attached and no stand-in for EC";
    EXPECT_EQ(ecKey.GetKeyEVP(), nullptr) << "the failed import leaves the key empty";
}

TEST(CertificateKeyTest, WrongTypesAndEmptyCertificate) {
    const X509Certificate rsa(Certs().rsa.cert.get());
    CryptKeyEC ecKey;
    EXPECT_EQ(CodeOf([&] { ecKey.ImportX509(rsa, CryptKey::cptKeyRsaPublic); }), ErrPrivateKeyRead)
        << "an EC key object refuses an RSA key";
    EXPECT_EQ(ecKey.GetKeyEVP(), nullptr) << "and holds nothing";
    CryptKeyRSA rsaKey;
    try {
        rsaKey.ImportX509(rsa, CryptKey::cptKeyRsaPublicPrivate);
        ADD_FAILURE() << "type 3 is not a request type";
    } catch (const CryptException& e) {
        EXPECT_EQ(e.GetErrorCode(), ErrInvalidParameter) << "type 3";
        EXPECT_STREQ(e.GetErrorMessage().c_str(), L"CryptKey - eKeyType");
    }
    try {
        rsaKey.ImportX509(X509Certificate(), CryptKey::cptKeyRsaPublic);
        ADD_FAILURE() << "an empty certificate has no key";
    } catch (const CryptException& e) {
        EXPECT_STREQ(e.GetErrorMessage().c_str(), L"CryptKey - cert.GetX509()=NULL")
            << "empty certificate";
    }
}

TEST(CertificateKeyTest, ModulusOnlyKeySignsThroughTheCallback) {
    const X509Certificate rsa(Certs().rsa.cert.get());
    CryptKeyRSA key;
    key.ImportX509(rsa, CryptKey::cptKeyRsaPrivate);
    EXPECT_EQ(key.GetKeyType(), CryptKey::cptKeyRsaPublic)
        << "without an attached key only modulus and exponent are held";
    EXPECT_NE(key.GetKeyEVP(), X509_get0_pubkey(Certs().rsa.cert.get())) << "a key of its own";

    g_realKey = Certs().rsaKey.get();
    g_callbackCalls = 0;
    key.SetPrivateEncryptCallback(SignOnDevice);
    const std::string data = "document to sign";
    unsigned char signature[512];
    std::size_t signatureLength = sizeof signature;
    EVP_MD_CTX* sign = EVP_MD_CTX_new();
    ASSERT_EQ(EVP_DigestSignInit(sign, nullptr, EVP_sha256(), nullptr, key.GetKeyEVP()), 1);
    ASSERT_EQ(EVP_DigestSign(sign, signature, &signatureLength,
                             reinterpret_cast<const unsigned char*>(data.data()), data.size()),
              1)
        << "signing with the modulus-only key";
    EVP_MD_CTX_free(sign);
    EXPECT_GE(g_callbackCalls, 1) << "the callback did the private-key operation";

    EVP_MD_CTX* verify = EVP_MD_CTX_new();
    EVP_DigestVerifyInit(verify, nullptr, EVP_sha256(), nullptr,
                         X509_get0_pubkey(Certs().rsa.cert.get()));
    EXPECT_EQ(EVP_DigestVerify(verify, signature, signatureLength,
                               reinterpret_cast<const unsigned char*>(data.data()), data.size()),
              1)
        << "the signature verifies with the certificate";
    EVP_MD_CTX_free(verify);
}
