// Keys taken from certificates: the public key, an attached private key, and
// the modulus-only key that signs through an application callback.
//
//   Self-signed "Key Holder" (RSA 2048, pooled key), with and without the
//   private key attached; "EC Holder" (EC P-256), self-signed.
#include <gtest/gtest.h>

#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

#include "CryptKey.h"
#include "TestTessera.h"

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

struct Holders {
    KeyPtr rsaKey = CachedKey(KeyKind::Rsa2048, 2);
    Issued rsa;
    Issued ec;
    Holders() {
        CertPlan plan;
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
    X509Certificate rsa = Cert(Certs().rsa);
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
    EXPECT_EQ(privateKey.GetKeyType(), CryptKey::cptKeyRsaPublicPrivate) << "with both halves";

    X509Certificate ec = Cert(Certs().ec);
    CryptKeyEC ecKey;
    ecKey.ImportX509(ec, CryptKey::cptKeyEcPublic);
    EXPECT_EQ(ecKey.GetKeyType(), CryptKey::cptKeyEcPublic) << "EC public point";
    EXPECT_EQ(CodeOf([&] { ecKey.ImportX509(ec, CryptKey::cptKeyEcPrivate); }), ErrPrivateKeyRead)
        << "no EC key attached and no stand-in for EC";
    EXPECT_EQ(ecKey.GetKeyEVP(), nullptr) << "the failed import leaves the key empty";
}

TEST(CertificateKeyTest, WrongTypesAndEmptyCertificate) {
    const X509Certificate rsa = Cert(Certs().rsa);
    CryptKeyEC ecKey;
    EXPECT_EQ(CodeOf([&] { ecKey.ImportX509(rsa, CryptKey::cptKeyRsaPublic); }), ErrPrivateKeyRead)
        << "an EC key object refuses an RSA key";
    EXPECT_EQ(ecKey.GetKeyEVP(), nullptr) << "and holds nothing";
    CryptKeyRSA rsaKey;
    const Thrown both = Catch([&] { rsaKey.ImportX509(rsa, CryptKey::cptKeyRsaPublicPrivate); });
    EXPECT_TRUE(both.code == ErrInvalidParameter && both.message == "CryptKey - eKeyType")
        << "type 3 is not a request type";
    EXPECT_EQ(
        Catch([&] { rsaKey.ImportX509(X509Certificate(), CryptKey::cptKeyRsaPublic); }).message,
        "CryptKey - cert.GetX509()=NULL")
        << "an empty certificate has no key";
}

TEST(CertificateKeyTest, ModulusOnlyKeySignsThroughTheCallback) {
    const X509Certificate rsa = Cert(Certs().rsa);
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
    using MdCtx = std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)>;
    const MdCtx sign(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    ASSERT_EQ(EVP_DigestSignInit(sign.get(), nullptr, EVP_sha256(), nullptr, key.GetKeyEVP()), 1)
        << "signing context";
    ASSERT_EQ(EVP_DigestSign(sign.get(), signature, &signatureLength,
                             reinterpret_cast<const unsigned char*>(data.data()), data.size()),
              1)
        << "signing with the modulus-only key";
    EXPECT_GE(g_callbackCalls, 1) << "the callback did the private-key operation";

    const MdCtx verify(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    EVP_DigestVerifyInit(verify.get(), nullptr, EVP_sha256(), nullptr,
                         X509_get0_pubkey(Certs().rsa.cert.get()));
    EXPECT_EQ(EVP_DigestVerify(verify.get(), signature, signatureLength,
                               reinterpret_cast<const unsigned char*>(data.data()), data.size()),
              1)
        << "the signature verifies with the certificate";
}
