// Key import, key kinds, sharing, and signing through a replaced RSA
// private-key operation, through the public interface of libtessera.so.
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/rsa.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "CryptException.h"
#include "CryptKey.h"
#include "TestPki.h"
#include "TestTessera.h"

using namespace TesseraLib;
using tessera_test::CodeOf;
using tessera_test::KeyKind;
using tessera_test::KeyPtr;

namespace {

enum class PemForm { Pkcs8, Traditional };

std::string ToPem(EVP_PKEY* key, PemForm form, const char* password) {
    const EVP_CIPHER* cipher = password != nullptr ? EVP_aes_256_cbc() : nullptr;
    std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new(BIO_s_mem()), BIO_free);
    const int written =
        form == PemForm::Pkcs8
            ? PEM_write_bio_PKCS8PrivateKey(bio.get(), key, cipher, nullptr, 0, nullptr,
                                            const_cast<char*>(password))
            : PEM_write_bio_PrivateKey_traditional(bio.get(), key, cipher, nullptr, 0, nullptr,
                                                   const_cast<char*>(password));
    EXPECT_EQ(written, 1) << "the test key is written as PEM";
    char* text = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &text);
    return std::string(text, static_cast<std::size_t>(length));
}

// A PKCS#12 of an RSA key (`*key`) with its certificate, or of the
// certificate alone when `key` is null.
std::vector<unsigned char> MakePkcs12(const char* password, KeyPtr* key) {
    tessera_test::CertPlan profile;
    profile.commonName = "PKCS12 holder";
    profile.keyKind = KeyKind::Rsa2048;
    tessera_test::Issued holder = tessera_test::IssueCertificate(profile, nullptr);
    const std::vector<unsigned char> p12 = tessera_test::BuildPkcs12(
        key != nullptr ? holder.key.get() : nullptr, holder.cert.get(), {}, password);
    if (key != nullptr) {
        *key = std::move(holder.key);
    }
    return p12;
}

// The code `key`.ImportPKCS12 of `p12` under `password` throws (0 if none).
int Pkcs12Code(CryptKey& key, const std::vector<unsigned char>& p12, const char* password) {
    return CodeOf([&] { key.ImportPKCS12(p12.data(), static_cast<long>(p12.size()), password); });
}

struct Keys {
    KeyPtr rsa = tessera_test::NewKey(KeyKind::Rsa2048);
    KeyPtr ec = tessera_test::NewKey(KeyKind::EcP256);
};

const Keys& TestKeys() {
    static const Keys keys;
    return keys;
}

// Keys of every PEM form, and wrong passwords, are read through the base class
// in check_cli_keyinfo.sh. Here the derived classes with wide passwords, which
// must give the very key, and an encrypted key without any pass phrase.
TEST(CryptKeyImport, WidePasswordsAndMissingPassphrase) {
    for (PemForm form : {PemForm::Pkcs8, PemForm::Traditional}) {
        const char* what = form == PemForm::Pkcs8 ? "PKCS#8" : "traditional";
        CryptKeyRSA rsa;
        rsa.ImportPEM(ToPem(TestKeys().rsa.get(), form, "s3cret").c_str(), L"s3cret");
        EXPECT_EQ(EVP_PKEY_eq(rsa.GetKeyEVP(), TestKeys().rsa.get()), 1) << what << ": RSA key";
        CryptKeyEC ec;
        ec.ImportPEM(ToPem(TestKeys().ec.get(), form, "s3cret").c_str(), L"s3cret");
        EXPECT_EQ(EVP_PKEY_eq(ec.GetKeyEVP(), TestKeys().ec.get()), 1) << what << ": EC key";
        EXPECT_NE(ec.GetKeyEC(), nullptr) << what << ": the EC view exists";

        const std::string pem = ToPem(TestKeys().ec.get(), form, "right");
        CryptKeyEC locked;
        EXPECT_EQ(CodeOf([&] { locked.ImportPEM(pem.c_str(), static_cast<const char*>(nullptr)); }),
                  ErrIncorrectPassword)
            << what << ": no pass phrase for an encrypted key (and no terminal prompt)";
        EXPECT_EQ(locked.GetKeyEVP(), nullptr) << what << ": a failed import holds no key";
    }
    ERR_clear_error();
}

TEST(CryptKeyImport, RefusesBadArgumentsAndNonAsciiPasswordsFirst) {
    CryptKeyRSA key;
    const unsigned char bytes[] = "not a key";
    const std::pair<std::function<void()>, const char*> refused[] = {
        {[&] { key.ImportPEM(nullptr, 4, "p"); }, "CryptKey - pData=NULL"},
        {[&] { key.ImportPEM(bytes, 0, "p"); }, "CryptKey - nSize<=0"},
        {[&] { key.ImportPEM(static_cast<const char*>(nullptr), "p"); }, "CryptKey - pszKey=NULL"},
        {[&] { key.ImportPEM("", L"p"); }, "CryptKey - nKeyLength=0"},
        {[&] { key.ImportPKCS12(nullptr, 4, "p"); }, "CryptKey - pData=NULL"},
        {[&] { key.ImportPKCS12(bytes, -1, L"p"); }, "CryptKey - nSize<=0"},
    };
    for (const auto& call : refused) {
        const tessera_test::Thrown thrown = tessera_test::Catch(call.first);
        EXPECT_EQ(thrown.code, ErrInvalidParameter) << "argument check";
        EXPECT_EQ(thrown.message, call.second) << "the message names the argument";
    }
    EXPECT_EQ(CodeOf([&] { key.ImportPEM(bytes, sizeof(bytes), L"p\u00e4ss"); }),
              ErrPasswordInvalidChars)
        << "a non-ASCII password is refused before the bytes are looked at";
    EXPECT_EQ(CodeOf([&] { key.ImportPKCS12(bytes, sizeof(bytes), L"\u20ac"); }),
              ErrPasswordInvalidChars)
        << "the same for PKCS#12";
    EXPECT_EQ(CodeOf([&] { key.ImportPEM(bytes, sizeof(bytes), "p"); }), ErrPrivateKeyRead)
        << "bytes without a PEM key";
}

TEST(CryptKeyImport, Pkcs12PasswordsAndContents) {
    KeyPtr stored;
    const std::vector<unsigned char> p12 = MakePkcs12("p12pass", &stored);
    CryptKeyRSA rsa;
    rsa.ImportPKCS12(p12.data(), static_cast<long>(p12.size()), L"p12pass");
    EXPECT_EQ(rsa.GetKeyType(), CryptKey::cptKeyRsaPublicPrivate) << "the key is taken";
    EXPECT_EQ(EVP_PKEY_eq(rsa.GetKeyEVP(), stored.get()), 1) << "it is the stored key";

    EXPECT_EQ(Pkcs12Code(rsa, p12, "x"), ErrIncorrectPassword)
        << "the MAC check fails with a wrong password";
    EXPECT_EQ(rsa.GetKeyEVP(), nullptr) << "the key imported before is released";

    const unsigned char garbage[] = {0x30, 0x03, 0x02, 0x01, 0x03};
    EXPECT_EQ(CodeOf([&] { rsa.ImportPKCS12(garbage, sizeof(garbage), "x"); }), ErrPkcs12Decoding)
        << "bytes that are not PKCS#12";

    const std::vector<unsigned char> certOnly = MakePkcs12("p", nullptr);
    EXPECT_EQ(Pkcs12Code(rsa, certOnly, "p"), ErrPrivateKeyRead)
        << "a PKCS#12 without a private key";

    // A MAC iteration count far beyond any producer's is refused before the
    // password check would spend minutes on it.
    const unsigned char* cursor = p12.data();
    std::unique_ptr<PKCS12, decltype(&PKCS12_free)> stalling(
        d2i_PKCS12(nullptr, &cursor, static_cast<long>(p12.size())), PKCS12_free);
    const ASN1_INTEGER* iterations = nullptr;
    PKCS12_get0_mac(nullptr, nullptr, nullptr, &iterations, stalling.get());
    ASSERT_NE(iterations, nullptr) << "the file has a MAC";
    ASN1_INTEGER_set(const_cast<ASN1_INTEGER*>(iterations), 1L << 40);
    unsigned char* der = nullptr;
    const int length = i2d_PKCS12(stalling.get(), &der);
    const std::vector<unsigned char> bytes(der, der + (length > 0 ? length : 0));
    OPENSSL_free(der);
    EXPECT_EQ(Pkcs12Code(rsa, bytes, "p12pass"), ErrPkcs12Decoding) << "2^40 MAC iterations";
    ERR_clear_error();
}

TEST(CryptKeyImport, DerivedClassesInsistOnTheirKeyType) {
    CryptKeyRSA rsa;
    EXPECT_EQ(CodeOf([&] {
                  rsa.ImportPEM(tessera_test::KeyToPem(TestKeys().ec.get()).c_str(),
                                static_cast<const char*>(nullptr));
              }),
              ErrPrivateKeyRead)
        << "an EC key is no RSA key";
    EXPECT_TRUE(rsa.GetKeyEVP() == nullptr && rsa.GetKeyType() == CryptKey::cptKeyNone &&
                rsa.GetLength() == 0)
        << "the mismatching key is released: no key, no type, no length";

    KeyPtr stored;
    const std::vector<unsigned char> p12 = MakePkcs12("p", &stored);
    CryptKeyEC ec;
    EXPECT_EQ(Pkcs12Code(ec, p12, "p"), ErrPrivateKeyRead) << "an RSA key is no EC key";
    EXPECT_EQ(ec.GetKeyEVP(), nullptr) << "the mismatching key is released";
}

TEST(CryptKeySharing, KeysAreSharedByReference) {
    KeyPtr own = tessera_test::NewKey(KeyKind::Rsa2048);
    EVP_PKEY* raw = own.get();
    std::unique_ptr<CryptKey> created(CryptKey::CreateKey(raw));
    own.reset();  // the wrapper's reference keeps the key alive
    auto* rsa = dynamic_cast<CryptKeyRSA*>(created.get());
    ASSERT_NE(rsa, nullptr) << "CreateKey gives a CryptKeyRSA for an RSA key";
    EXPECT_EQ(rsa->GetKeyEVP(), raw) << "the key is shared, not copied";
    {
        CryptKeyRSA copy(*rsa);
        CryptKeyRSA assigned;
        assigned = copy;
        EXPECT_EQ(assigned.GetKeyEVP(), raw) << "copies share the same key";
    }
    EXPECT_EQ(rsa->GetLength(), 256) << "destroyed copies dropped only their own references";

    std::unique_ptr<CryptKey> ec(CryptKey::CreateKey(TestKeys().ec.get()));
    EXPECT_NE(dynamic_cast<CryptKeyEC*>(ec.get()), nullptr) << "CryptKeyEC for an EC key";
    EXPECT_TRUE(CryptKeyRSA(TestKeys().ec.get()).GetKeyEVP() == nullptr &&
                CryptKeyEC(TestKeys().rsa.get()).GetKeyEVP() == nullptr)
        << "CryptKeyRSA does not take an EC key, nor CryptKeyEC an RSA key";

    KeyPtr ed(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"));
    EXPECT_EQ(CryptKey::CreateKey(ed.get()), nullptr) << "no key object for other key types";
    EXPECT_EQ(CryptKey::CreateKey(nullptr), nullptr) << "none for a null key";
}

// The private half lives only here; the library's key object never sees it.
RSA* g_signer = nullptr;
int g_firstCalls = 0;
int g_secondCalls = 0;

int SignElsewhere(int length, const unsigned char* from, unsigned char* to, RSA*, int padding) {
    ++g_firstCalls;
    return RSA_private_encrypt(length, from, to, g_signer, padding);
}

int SignElsewhereToo(int length, const unsigned char* from, unsigned char* to, RSA*, int padding) {
    ++g_secondCalls;
    return RSA_private_encrypt(length, from, to, g_signer, padding);
}

int Refuse(int, const unsigned char*, unsigned char*, RSA*, int) {
    return -1;
}

class PrivateEncryptCallback : public ::testing::Test {
protected:
    void SetUp() override {
        g_signer = EVP_PKEY_get1_RSA(TestKeys().rsa.get());
        g_firstCalls = g_secondCalls = 0;
    }
    void TearDown() override {
        RSA_free(g_signer);
        g_signer = nullptr;
        ERR_clear_error();
    }

    // The public half alone, as a certificate would hand it out.
    static KeyPtr PublicOnly() {
        unsigned char* der = nullptr;
        const int length = i2d_PUBKEY(TestKeys().rsa.get(), &der);
        const unsigned char* cursor = der;
        KeyPtr key(d2i_PUBKEY(nullptr, &cursor, length));
        OPENSSL_free(der);
        return key;
    }

    // EVP_DigestSign over SHA-256; empty when signing fails.
    static std::vector<unsigned char> Sign(EVP_PKEY* key, const std::string& data) {
        std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> md(EVP_MD_CTX_new(),
                                                                   EVP_MD_CTX_free);
        std::vector<unsigned char> signature(512);
        size_t length = signature.size();
        const auto* bytes = reinterpret_cast<const unsigned char*>(data.data());
        const bool ok =
            EVP_DigestSignInit(md.get(), nullptr, EVP_sha256(), nullptr, key) == 1 &&
            EVP_DigestSign(md.get(), signature.data(), &length, bytes, data.size()) == 1;
        signature.resize(ok ? length : 0);
        return signature;
    }

    static bool Verifies(const std::vector<unsigned char>& signature, const std::string& data) {
        std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> md(EVP_MD_CTX_new(),
                                                                   EVP_MD_CTX_free);
        const auto* bytes = reinterpret_cast<const unsigned char*>(data.data());
        return EVP_DigestVerifyInit(md.get(), nullptr, EVP_sha256(), nullptr,
                                    TestKeys().rsa.get()) == 1 &&
               EVP_DigestVerify(md.get(), signature.data(), signature.size(), bytes, data.size()) ==
                   1;
    }
};

TEST_F(PrivateEncryptCallback, PublicOnlyKeySignsThroughTheCallback) {
    KeyPtr publicOnly = PublicOnly();
    CryptKeyRSA key(publicOnly.get());
    ASSERT_EQ(key.GetKeyType(), CryptKey::cptKeyRsaPublic) << "modulus and exponent only";
    EXPECT_TRUE(Sign(key.GetKeyEVP(), "data").empty())
        << "without a callback the public key cannot sign";
    ERR_clear_error();

    key.SetPrivateEncryptCallback(SignElsewhere);
    EXPECT_EQ(key.GetKeyEVP(), publicOnly.get()) << "the same shared key object is changed";
    const std::vector<unsigned char> signature = Sign(publicOnly.get(), "signed data");
    EXPECT_EQ(g_firstCalls, 1) << "EVP_DigestSign went through the callback once";
    EXPECT_TRUE(Verifies(signature, "signed data")) << "the signature verifies with the public key";
    EXPECT_FALSE(Verifies(signature, "other data")) << "and only for the data signed";

    // EVP_PKEY_sign over a digest (how signed attributes are signed).
    std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> pctx(
        EVP_PKEY_CTX_new(key.GetKeyEVP(), nullptr), EVP_PKEY_CTX_free);
    unsigned char digest[32] = {1, 2, 3}, out[256];
    size_t outLength = sizeof(out);
    EXPECT_TRUE(EVP_PKEY_sign_init(pctx.get()) == 1 &&
                EVP_PKEY_CTX_set_signature_md(pctx.get(), EVP_sha256()) == 1 &&
                EVP_PKEY_sign(pctx.get(), out, &outLength, digest, sizeof(digest)) == 1)
        << "EVP_PKEY_sign with SHA-256 signs";
    EXPECT_EQ(g_firstCalls, 2) << "EVP_PKEY_sign went through the callback too";
}

TEST_F(PrivateEncryptCallback, ReplacesTheOperationOfAFullKeyForEveryKeyOfTheRecord) {
    KeyPtr full = tessera_test::NewKey(KeyKind::Rsa2048);
    KeyPtr publicOnly = PublicOnly();
    CryptKeyRSA fullKey(full.get());
    CryptKeyRSA publicKey(publicOnly.get());

    fullKey.SetPrivateEncryptCallback(Refuse);
    EXPECT_EQ(fullKey.GetKeyType(), CryptKey::cptKeyRsaPublicPrivate) << "the key is unchanged";
    EXPECT_TRUE(Sign(fullKey.GetKeyEVP(), "data").empty())
        << "a refusing callback makes the full key's signing fail: its own exponent is not used";
    ERR_clear_error();

    publicKey.SetPrivateEncryptCallback(SignElsewhere);
    fullKey.SetPrivateEncryptCallback(SignElsewhereToo);
    EXPECT_EQ(publicKey.GetPrivateEncryptCallback(), &SignElsewhere)
        << "each object reports the callback set on it";

    const std::vector<unsigned char> signature = Sign(publicKey.GetKeyEVP(), "shared");
    EXPECT_EQ(g_firstCalls, 0) << "the earlier callback is no longer used";
    EXPECT_EQ(g_secondCalls, 1) << "the latest callback applies to every key of the record";
    EXPECT_TRUE(Verifies(signature, "shared")) << "and produces a valid signature";

    CryptKeyRSA empty;
    EXPECT_EQ(CodeOf([&] { empty.SetPrivateEncryptCallback(SignElsewhere); }), ErrPrivateKeyRead)
        << "no RSA key to give a callback";
}

}  // namespace
