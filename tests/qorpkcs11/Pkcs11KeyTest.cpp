// Key identifiers of PKCS#11 keys, and loading the fixture's key through the
// engine "pkcs11" (libp11 over SoftHSM2) and decrypting with it.
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/evp.h>

#include <climits>
#include <string>

#include "CryptException.h"
#include "CryptKey.h"
#include "EncryptionUtils.h"
#include "OpenSslPtr.h"
#include "Pkcs11Key.h"
#include "Pkcs11Manager.h"
#include "SoftHsmFixture.h"
#include "TestPki.h"
#include "TestServers.h"

using namespace TesseraLib;

namespace {

TEST(Pkcs11KeyIdentifier, FormatsSlotAndIdInLowerCaseHex) {
    const unsigned char id0aff[] = {0x0A, 0xFF};
    EXPECT_EQ(pkcs11::KeyIdentifier(1, id0aff, 2), "slot_1-id_0aff")
        << "each id byte is two digits, leading zero kept";
    const unsigned char id0102[] = {0x01, 0x02};
    EXPECT_EQ(pkcs11::KeyIdentifier(26, id0102, 2), "slot_1a-id_0102")
        << "the slot id is hexadecimal";
    EXPECT_EQ(pkcs11::KeyIdentifier(0, id0102, 1), "slot_0-id_01")
        << "slot 0 is written as one digit";
    EXPECT_EQ(pkcs11::KeyIdentifier(0x38de7682ul, id0102, 2), "slot_38de7682-id_0102")
        << "SoftHSM's large slot ids are written without leading zeros";
    EXPECT_EQ(pkcs11::KeyIdentifier(ULONG_MAX, id0102, 0), "slot_ffffffffffffffff-id_")
        << "the whole unsigned long range is written";
}

TEST(Pkcs11KeyIdentifier, EngineFormHasTheSlotInDecimal) {
    EXPECT_EQ(pkcs11::EngineKeyIdentifier("slot_1a-id_0102"), "slot_26-id_0102")
        << "the slot is translated to decimal, the id kept";
    EXPECT_EQ(pkcs11::EngineKeyIdentifier("slot_38de7682-id_0aff"), "slot_954103426-id_0aff")
        << "large slot ids translate exactly";
    EXPECT_EQ(pkcs11::EngineKeyIdentifier("slot_1A-id_0A0B"), "slot_26-id_0A0B")
        << "upper-case hex is read too";
    EXPECT_EQ(pkcs11::EngineKeyIdentifier("slot_0-id_01"), "slot_0-id_01") << "slot 0 stays 0";

    const char* const malformed[] = {
        "",
        "slot_-id_01",                   // no slot
        "slot_1a-id_",                   // no id
        "slot_1a-id_012",                // odd number of id digits
        "slot_1g-id_01",                 // not hex
        "slot_1a-id_0x",                 // not hex
        "slot_1a_id_01",                 // wrong separator
        "id_0102",                       // no slot part
        "slot_10000000000000000-id_01",  // slot beyond an unsigned long
    };
    for (const char* keyId : malformed) {
        EXPECT_EQ(pkcs11::EngineKeyIdentifier(keyId), "") << "'" << keyId << "' is refused";
    }
    EXPECT_EQ(pkcs11::EngineKeyIdentifier(nullptr), "") << "a null identifier is refused";
}

TEST(Pkcs11KeyLoadFailure, TranslatesTheEarliestErrorIntoTheUserFacingCode) {
    struct Row {
        unsigned long error;
        int code;
        const char* what;
    };
    const Row rows[] = {
        {0x80005050ul, ErrUserAborted, "a cancelled PIN dialogue"},
        {0x26096080ul, ErrUserAborted, "a cancelled UI prompt"},
        {0x25066067ul, ErrWrongPin, "a wrong PIN by its whole code"},
        {ERR_PACK(ERR_LIB_USER + 3, 0, 0xA0), ErrWrongPin, "CKR_PIN_INCORRECT of one library"},
        {ERR_PACK(ERR_LIB_USER + 40, 0, 0xA0), ErrWrongPin, "and of any other library number"},
        {ERR_PACK(ERR_LIB_USER + 3, 0, 0xA4), ErrPinBlocked, "CKR_PIN_LOCKED"},
        {ERR_PACK(ERR_LIB_USER + 3, 0, 0xE0), ErrCardNotInserted, "CKR_TOKEN_NOT_PRESENT"},
        {ERR_PACK(ERR_LIB_USER + 3, 0, 101), ErrPrivateKeyRead, "the engine's key not found"},
        {0, ErrPrivateKeyRead, "no error queued at all"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(pkcs11::KeyLoadFailure(row.error), row.code) << row.what;
    }
}

// The manager of this test program with module and engine loaded, and the
// engine given the token's PIN (the library itself passes no PIN callback).
class SoftHsmKey : public ::testing::Test {
protected:
    void SetUp() override {
        const std::wstring module = softhsm::WideValue("module");
        const std::wstring engine = softhsm::WideValue("engine");
        ASSERT_FALSE(module.empty()) << "the softhsm fixture must have written its module path";
        softhsm::KeepEngineLibraryLoaded();
        ASSERT_EQ(Pkcs11Manager::GetInstance().Initialize(module.c_str(), engine.c_str()), 1)
            << "module and engine load";
        m_engine.reset(Pkcs11Manager::GetInstance().GetEngine());
        ASSERT_TRUE(m_engine) << "the engine pkcs11 is registered";
        ERR_clear_error();
    }

    void TearDown() override {
        m_engine.reset();
        ERR_clear_error();
        EXPECT_EQ(Pkcs11Manager::GetInstance().Finalize(), 1) << "shut-down succeeds";
    }

    void SetPin(const std::string& pin) {
        ASSERT_EQ(ENGINE_ctrl_cmd_string(m_engine.get(), "PIN", pin.c_str(), 0), 1)
            << "the engine takes the PIN";
    }

    EvpPkeyPtr Load(const std::string& keyId) {
        return pkcs11::LoadPrivateKey(m_engine.get(), keyId.c_str(),
                                      Pkcs11Manager::GetInstance().GetEnginePinCb());
    }

    EnginePtr m_engine;
};

// The fixture's slot id and CKA_ID are read back in PKCS11ModuleTest; its key
// identifier, in the form KeyIdentifier writes, names the key loaded here.
TEST_F(SoftHsmKey, LoadedKeyDecryptsWhatTheCertificateKeyEncrypted) {
    SetPin(softhsm::Value("pin"));
    EvpPkeyPtr tokenKey = Load(softhsm::Value("keyid"));
    ASSERT_TRUE(tokenKey) << "the key loads by its hexadecimal-slot identifier";
    const tessera_test::CertPtr cert =
        tessera_test::ReadPemCertificate(tessera_test::ServerDir("softhsm") + "/cert.pem");
    ASSERT_TRUE(cert) << "the fixture's certificate decodes";
    EXPECT_EQ(EVP_PKEY_eq(tokenKey.get(), X509_get0_pubkey(cert.get())), 1)
        << "the loaded key is the certificate's (signing with it: SignedCmsTokenTest)";

    CryptKeyRSA publicKey(X509_get0_pubkey(cert.get()));
    CryptKeyRSA token(tokenKey.get());
    const unsigned char secret[] = "a content-encryption key";
    const qorstd::QorArray<unsigned char> plain(secret, sizeof(secret));
    const CryptArray decrypted = EncryptionUtils::RsaDecryptPkcs1v15(
        token, EncryptionUtils::RsaEncryptPkcs1v15(publicKey, plain));
    EXPECT_TRUE(qorstd::QorArray<unsigned char>(decrypted) == plain)
        << "the token decrypts the cryptogram";
    ERR_clear_error();
}

TEST_F(SoftHsmKey, FailedLoadsLeaveTheReasonQueued) {
    // Wrong PIN first: once the engine is logged in, it does not ask again.
    SetPin("0000");
    EXPECT_FALSE(Load(softhsm::Value("keyid"))) << "a wrong PIN loads no key";
    bool pinIncorrect = false;
    for (unsigned long error = ERR_get_error(); error != 0; error = ERR_get_error()) {
        // libp11 queues the CK_RV as the reason under a library number of its own.
        pinIncorrect = pinIncorrect || ERR_GET_REASON(error) == 0xA0;
    }
    EXPECT_TRUE(pinIncorrect) << "a wrong PIN is queued with the reason CKR_PIN_INCORRECT";

    SetPin(softhsm::Value("pin"));
    EXPECT_FALSE(Load("slot_" + softhsm::Value("slot") + "-id_0909")) << "no key has CKA_ID 09 09";
    EXPECT_NE(ERR_peek_error(), 0ul) << "the engine's error stays queued for the caller";
    ERR_clear_error();
    EXPECT_FALSE(Load("slot_" + softhsm::Value("slot") + "-id_01020")) << "malformed id";
    EXPECT_EQ(ERR_peek_error(), 0ul) << "a malformed identifier never reaches the engine";
}

}  // namespace
