// The PKCS#11 store over SoftHSM2 tokens of the test's own, as an
// application sees it:
//
//   token store-a: Token Signer (CKA_ID 0a01) with its private key
//   token store-b: Token Other  (CKA_ID 0b01), no key
//
// Each test starts without PKCS#11 set up and leaves it so.
#include <gtest/gtest.h>
#include <openssl/engine.h>
#include <openssl/err.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "SignedCades.h"
#include "SignerCades.h"
#include "SoftHsmFixture.h"
#include "TestTessera.h"

using namespace TesseraLib;
using namespace tessera_test;

namespace {

struct EngineFree {
    void operator()(ENGINE* engine) const { ENGINE_free(engine); }
};

std::string Hex(unsigned long value) {
    char text[32];
    std::snprintf(text, sizeof(text), "%lx", value);
    return text;
}

class Pkcs11StoreTest : public ::testing::Test {
protected:
    void SetUp() override {
        softhsm::KeepEngineLibraryLoaded();
        ASSERT_EQ(Pkcs11Manager::GetInstance().GetModule(), nullptr)
            << "each test starts without PKCS#11 set up";
    }

    void TearDown() override {
        ERR_clear_error();
        EXPECT_EQ(Tessera_UninitializePkcs11(), 1) << "shut-down succeeds";
    }

    // The two tokens, and PKCS#11 with the engine over them.
    void MakeTokensAndStart() {
        m_slotA = m_tokens.AddToken("store-a");
        ASSERT_NE(m_tokens.AddToken("store-b"), 0ul) << "the second token is made";
        m_tokens.AddCertificate("store-a", m_signer.cert.get(), m_signer.key.get(), "0a01");
        m_tokens.AddCertificate("store-b", m_other.cert.get(), nullptr, "0b01");
        ASSERT_FALSE(HasFailure()) << "the tokens are written";
        ASSERT_EQ(Tessera_InitializePkcs11(softhsm::kModule, softhsm::kEngine), 1)
            << "module and engine load";
    }

    void SetPin(const char* pin) {
        std::unique_ptr<ENGINE, EngineFree> engine(Pkcs11Manager::GetInstance().GetEngine());
        ASSERT_NE(engine, nullptr) << "the engine pkcs11 is registered";
        ASSERT_EQ(ENGINE_ctrl_cmd_string(engine.get(), "PIN", pin, 0), 1) << "the engine takes it";
    }

    softhsm::OwnTokens m_tokens;
    unsigned long m_slotA = 0;
    // RSA: the key signs through the engine.
    Issued m_signer = IssueCertificate(
        [] {
            CertPlan plan = BasicProfile("Token Signer", 1, false);
            plan.keyKind = KeyKind::Rsa2048;
            return plan;
        }(),
        nullptr);
    Issued m_other = IssueCertificate(BasicProfile("Token Other", 2, false), nullptr);
};

TEST_F(Pkcs11StoreTest, OpenNeedsPkcs11AndAToken) {
    X509Pkcs11Store store;
    EXPECT_EQ(store.Open(), 0) << "before Tessera_InitializePkcs11 Open answers 0";
    EXPECT_EQ(store.GetCertificates().GetSize(), 0u) << "and lists nothing";
    ASSERT_EQ(Tessera_InitializePkcs11(softhsm::kModule, nullptr), 1) << "the module loads";
    EXPECT_EQ(CodeOf([&] { store.Open(); }), ErrCardNotInserted)
        << "a module without an initialised token";
}

TEST_F(Pkcs11StoreTest, ListsBothTokensAndLoadsTheKeyThatIsThere) {
    MakeTokensAndStart();
    X509Pkcs11Store store;
    ASSERT_EQ(store.Open(), 1) << "two tokens are there";
    const qorstd::QorVector<X509Certificate> certs = store.GetCertificates();
    ASSERT_EQ(certs.GetSize(), 2u) << "one certificate from each token";
    EXPECT_EQ(certs.GetAt(0).Equals(Cert(m_signer)) + certs.GetAt(1).Equals(Cert(m_signer)), 1)
        << "the signer is among them once";

    X509Certificate signer = Cert(m_signer);
    EXPECT_EQ(store.FindCertificate(signer, 0), 1) << "found without its key";
    EXPECT_EQ(signer.HasPrivateKey(), 0) << "no key without the flag";
    EXPECT_EQ(std::string(store.GetKeyIdentifier(signer).c_str()),
              "slot_" + Hex(m_slotA) + "-id_0a01")
        << "the key identifier has the slot in hexadecimal";

    SetPin(softhsm::OwnTokens::Pin());
    ASSERT_EQ(store.FindCertificate(signer, 1), 1) << "found with its key";
    ASSERT_EQ(signer.HasPrivateKey(), 1) << "the token's key is attached";
    X509Certificate other = Cert(m_other);
    EXPECT_EQ(CodeOf([&] { store.FindCertificate(other, 1); }), ErrPrivateKeyRead)
        << "a certificate whose token holds no key for it";
    X509Certificate stranger = Cert(IssueCertificate(BasicProfile("Stranger", 3, false), nullptr));
    EXPECT_EQ(store.FindCertificate(stranger, 1), 0) << "a certificate on no token";

    // The key signs on its token; openssl judges the signature.
    std::string why;
    EXPECT_TRUE(OpensslVerifiesCadesBy(signer, "signed on the token", m_signer.cert.get(), &why))
        << "openssl verifies the CAdES signature: " << why;
    signer = X509Certificate();
    store.LogoutAll();
}

TEST_F(Pkcs11StoreTest, WrongPinIsErrWrongPin) {
    MakeTokensAndStart();
    X509Pkcs11Store store;
    ASSERT_EQ(store.Open(), 1);
    SetPin("0000");
    X509Certificate signer = Cert(m_signer);
    EXPECT_EQ(CodeOf([&] { store.FindCertificate(signer, 1); }), ErrWrongPin)
        << "the engine's CKR_PIN_INCORRECT";
    EXPECT_EQ(signer.HasPrivateKey(), 0) << "no key is attached";
}

// A token taken away after Open: its slot is passed over, the other
// token's certificate is still listed and found.
TEST_F(Pkcs11StoreTest, ARemovedTokenIsPassedOver) {
    m_slotA = m_tokens.AddToken("store-a");
    ASSERT_NE(m_tokens.AddToken("store-b"), 0ul) << "the second token is made";
    m_tokens.AddCertificate("store-a", m_signer.cert.get(), nullptr, "0a01");
    m_tokens.AddCertificate("store-b", m_other.cert.get(), nullptr, "0b01");
    ASSERT_EQ(Tessera_InitializePkcs11(TESSERA_REMOVED_TOKEN_MODULE, nullptr), 1)
        << "the module that can take a token away loads";
    X509Pkcs11Store store;
    ASSERT_EQ(store.Open(), 1) << "both tokens are there when the store opens";
    setenv("TESSERA_TEST_REMOVED_SLOT", std::to_string(m_slotA).c_str(), 1);
    const qorstd::QorVector<X509Certificate> certs = store.GetCertificates();
    X509Certificate signer = Cert(m_signer);
    X509Certificate other = Cert(m_other);
    const int foundSigner = store.FindCertificate(signer, 0);
    const int foundOther = store.FindCertificate(other, 0);
    unsetenv("TESSERA_TEST_REMOVED_SLOT");
    ASSERT_EQ(certs.GetSize(), 1u) << "only the remaining token's certificate is listed";
    EXPECT_EQ(certs.GetAt(0).Equals(other), 1) << "and it is the other token's";
    EXPECT_EQ(foundSigner, 0) << "the removed token's certificate is not found";
    EXPECT_EQ(foundOther, 1) << "the remaining token's certificate is found";
}

}  // namespace
