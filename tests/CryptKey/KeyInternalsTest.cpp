// The modulus-only RSA key built from a certificate's public key (the key
// that a private-encrypt callback completes; signing through one is shown in
// CryptKeyTest.cpp).
#include <gtest/gtest.h>
#include <openssl/rsa.h>

#include "CryptKey.h"
#include "CryptKey/KeyInternals.h"
#include "OpenSslPtr.h"
#include "TestPki.h"

using namespace TesseraLib;

namespace {

int NeverCalled(int, const unsigned char*, unsigned char*, RSA*, int) {
    return -1;
}

TEST(ModulusOnlyRsaKey, TakesModulusAndExponentOfACertificateKey) {
    tessera_test::CertPlan profile;
    profile.commonName = "card holder";
    profile.keyKind = tessera_test::KeyKind::Rsa2048;
    const tessera_test::Issued issued = tessera_test::IssueCertificate(profile, nullptr);
    EVP_PKEY* certificateKey = X509_get0_pubkey(issued.cert.get());

    EvpPkeyPtr built = keys::BuildModulusOnlyRsaKey(certificateKey);
    ASSERT_TRUE(built) << "an RSA certificate key gives a key";
    EXPECT_NE(built.get(), certificateKey) << "a stand-alone key, not the certificate's";
    EXPECT_EQ(EVP_PKEY_eq(built.get(), certificateKey), 1) << "same modulus and exponent";
    CryptKeyRSA key(built.get());
    EXPECT_EQ(key.GetKeyType(), CryptKey::cptKeyRsaPublic) << "no private exponent";
    EXPECT_EQ(key.GetLength(), 256) << "the certificate's 2048-bit modulus";

    key.SetPrivateEncryptCallback(NeverCalled);
    EXPECT_EQ(RSA_get_method(key.GetRSA()), keys::SharedRsaMethod())
        << "a callback installs the process-wide method on the built key";

    profile.keyKind = tessera_test::KeyKind::EcP256;
    const tessera_test::Issued ec = tessera_test::IssueCertificate(profile, nullptr);
    EXPECT_FALSE(keys::BuildModulusOnlyRsaKey(X509_get0_pubkey(ec.cert.get())))
        << "nothing for an EC certificate key";
    EXPECT_FALSE(keys::BuildModulusOnlyRsaKey(nullptr)) << "nothing for no key";
}

}  // namespace
