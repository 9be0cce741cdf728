// Keys taken from certificates: the public key, an attached private key, and
// the modulus-only stand-in that a private-encrypt callback completes.
//
//   Self-signed "Key Holder" (RSA 2048, pooled key), with and without the
//   private key attached; "EC Holder" (EC P-256), self-signed.
#include <gtest/gtest.h>

#include <openssl/evp.h>
#include <openssl/x509.h>

#include "CryptKey.h"
#include "TestTessera.h"

using namespace TesseraLib;
using namespace tessera_test;

namespace {

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

    CryptKeyRSA standIn;
    standIn.ImportX509(rsa, CryptKey::cptKeyRsaPrivate);
    EXPECT_EQ(standIn.GetKeyType(), CryptKey::cptKeyRsaPublic)
        << "no key attached: the modulus-only stand-in (signing through it: KeyInternalsTest)";
    EXPECT_NE(standIn.GetKeyEVP(), X509_get0_pubkey(Certs().rsa.cert.get())) << "a key of its own";

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
