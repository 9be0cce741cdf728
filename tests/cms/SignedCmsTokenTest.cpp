// Signing with a key that never leaves its token: the softhsm fixture's RSA
// key, loaded through OpenSSL's engine "pkcs11" as an application would.
#include <gtest/gtest.h>
#include <openssl/engine.h>
#include <openssl/err.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "CryptKey.h"
#include "Pkcs11Manager.h"
#include "SignedCms.h"
#include "SignerCms.h"
#include "SoftHsmFixture.h"
#include "TesseraApi.h"
#include "TestPki.h"
#include "TestServers.h"

using namespace TesseraLib;

namespace {

class TokenSignTest : public ::testing::Test {
protected:
    void SetUp() override {
        const std::wstring module = softhsm::WideValue("module");
        ASSERT_FALSE(module.empty()) << "the softhsm fixture must have written its module path";
        softhsm::KeepEngineLibraryLoaded();
        ASSERT_EQ(Tessera_InitializePkcs11(module.c_str(), softhsm::WideValue("engine").c_str()), 1)
            << "module and engine load";
        m_engine.reset(Pkcs11Manager::GetInstance().GetEngine());
        ASSERT_NE(m_engine, nullptr) << "the engine pkcs11 is registered";
    }

    void TearDown() override {
        m_engine.reset();
        ERR_clear_error();
        EXPECT_EQ(Tessera_UninitializePkcs11(), 1) << "shut-down succeeds";
    }

    struct EngineFree {
        void operator()(ENGINE* engine) const { ENGINE_free(engine); }
    };
    std::unique_ptr<ENGINE, EngineFree> m_engine;
};

TEST_F(TokenSignTest, TokenKeySignsAMessageOpensslVerifies) {
    ASSERT_EQ(ENGINE_ctrl_cmd_string(m_engine.get(), "PIN", softhsm::Value("pin").c_str(), 0), 1);
    // libp11 reads the slot in decimal.
    const std::string keyId = "slot_" + std::to_string(softhsm::SlotId()) + "-id_0102";
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(
        ENGINE_load_private_key(m_engine.get(), keyId.c_str(), nullptr, nullptr), EVP_PKEY_free);
    ASSERT_NE(key, nullptr) << "the token's key loads";

    const std::vector<unsigned char> der = softhsm::CertificateDer();
    X509Certificate cert(der.data(), static_cast<long>(der.size()));
    std::unique_ptr<CryptKey> tokenKey(CryptKey::CreateKey(key.get()));
    cert.SetPrivateKey(tokenKey.get());
    SignerCms signer(cert);
    signer.SetIncludeOption(SignerCms::cptIncludeSignerCertificate);
    signer.SetAttributeOption(SignerCms::cptAttributeDefault);

    const std::string text = "signed on the token";
    SignedCms cms(
        qorstd::QorArray<unsigned char>(reinterpret_cast<const unsigned char*>(text.data()),
                                        static_cast<unsigned int>(text.size())));
    const unsigned long estimate = cms.EstimateSize(signer, SignedCms::cptCmsBasic, 0);
    cms.Sign(signer, SignedCms::cptCmsBasic, 0);
    const qorstd::QorArray<unsigned char> message = cms.Encode();
    EXPECT_EQ(estimate, message.GetSize()) << "the estimate holds for a token key as well";

    char pattern[] = "/tmp/tessera-cmstoken-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    const std::string dir = pattern;
    tessera_test::WriteTextFile(
        dir + "/sig.der", std::string(message.GetData(), message.GetData() + message.GetSize()));
    const std::string command =
        "cd " + dir +
        " && timeout 30 openssl cms -verify -binary -inform DER -in sig.der "
        "-CAfile " +
        tessera_test::ServerDir("softhsm") + "/cert.pem -purpose any -out out.bin 2>/dev/null";
    const int status = std::system(command.c_str());
    const std::vector<unsigned char> out = tessera_test::ReadBinaryFile(dir + "/out.bin");
    std::system(("rm -rf " + dir).c_str());
    EXPECT_EQ(status, 0) << "openssl verifies the token's signature";
    EXPECT_EQ(std::string(out.begin(), out.end()), text) << "over the embedded content";
}

}  // namespace
