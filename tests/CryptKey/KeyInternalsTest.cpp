// The modulus-only RSA key built from a certificate's public key (the key
// that a private-encrypt callback completes; signing through one is shown in
// CryptKeyTest.cpp), and RSA decryption with a
// SoftHSM2 token key loaded through the engine "pkcs11".
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <string>

#include "CryptException.h"
#include "CryptKey.h"
#include "CryptKey/KeyInternals.h"
#include "EncryptionUtils.h"
#include "OpenSslPtr.h"
#include "Pkcs11Key.h"
#include "Pkcs11Manager.h"
#include "SoftHsmFixture.h"
#include "TesseraApi.h"
#include "TestPki.h"
#include "TestServers.h"

using namespace TesseraLib;
using Bytes = qorstd::QorArray<unsigned char>;

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

TEST(SoftHsmRsaDecryption, TokenKeyDecryptsWhatTheCertificateKeyEncrypted) {
    const std::wstring module = softhsm::WideValue("module");
    const std::wstring engine = softhsm::WideValue("engine");
    ASSERT_FALSE(module.empty()) << "the softhsm fixture must have written its module path";
    softhsm::KeepEngineLibraryLoaded();
    ASSERT_EQ(Tessera_InitializePkcs11(module.c_str(), engine.c_str()), 1)
        << "module and engine load";
    {
        EnginePtr pkcs11(Pkcs11Manager::GetInstance().GetEngine());
        ASSERT_TRUE(pkcs11) << "the engine pkcs11 is registered";
        ASSERT_EQ(ENGINE_ctrl_cmd_string(pkcs11.get(), "PIN", softhsm::Value("pin").c_str(), 0), 1)
            << "the engine takes the PIN";
        EvpPkeyPtr tokenKey = pkcs11::LoadPrivateKey(pkcs11.get(), softhsm::Value("keyid").c_str(),
                                                     Pkcs11Manager::GetInstance().GetEnginePinCb());
        ASSERT_TRUE(tokenKey) << "the fixture's key loads";
        tessera_test::CertPtr cert =
            tessera_test::ReadPemCertificate(tessera_test::ServerDir("softhsm") + "/cert.pem");
        ASSERT_TRUE(cert) << "the fixture's certificate reads";

        CryptKeyRSA publicKey(X509_get0_pubkey(cert.get()));
        CryptKeyRSA token(tokenKey.get());
        const unsigned char secret[] = "a content-encryption key";
        const Bytes cryptogram =
            EncryptionUtils::RsaEncryptPkcs1v15(publicKey, Bytes(secret, sizeof(secret)));
        const CryptArray plain = EncryptionUtils::RsaDecryptPkcs1v15(token, cryptogram);
        EXPECT_TRUE(Bytes(plain) == Bytes(secret, sizeof(secret)))
            << "the token decrypts the cryptogram";
    }
    ERR_clear_error();
    EXPECT_EQ(Tessera_UninitializePkcs11(), 1) << "shut-down succeeds";
}

}  // namespace
