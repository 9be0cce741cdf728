// Signing with a key that never leaves its token: the softhsm fixture's RSA
// key, loaded through OpenSSL's engine "pkcs11" as an application would.
#include <gtest/gtest.h>
#include <openssl/engine.h>
#include <openssl/err.h>

#include <memory>
#include <string>

#include "SoftHsmFixture.h"
#include "TestServers.h"
#include "TestTessera.h"

using namespace TesseraLib;
using namespace tessera_test;

namespace {

struct EngineFree {
    void operator()(ENGINE* engine) const { ENGINE_free(engine); }
};

// Shuts the token layer down once everything that uses it is gone.
struct Pkcs11Shutdown {
    ~Pkcs11Shutdown() {
        ERR_clear_error();
        EXPECT_EQ(Tessera_UninitializePkcs11(), 1) << "shut-down succeeds";
    }
};

TEST(TokenSignTest, TokenKeySignsAMessageOpensslVerifies) {
    const std::wstring module = softhsm::WideValue("module");
    ASSERT_FALSE(module.empty()) << "the softhsm fixture must have written its module path";
    softhsm::KeepEngineLibraryLoaded();
    const Pkcs11Shutdown shutdown;
    ASSERT_EQ(Tessera_InitializePkcs11(module.c_str(), softhsm::WideValue("engine").c_str()), 1)
        << "module and engine load";
    std::unique_ptr<ENGINE, EngineFree> engine(Pkcs11Manager::GetInstance().GetEngine());
    ASSERT_NE(engine, nullptr) << "the engine pkcs11 is registered";
    ASSERT_EQ(ENGINE_ctrl_cmd_string(engine.get(), "PIN", softhsm::Value("pin").c_str(), 0), 1);
    // libp11 reads the slot in decimal.
    const std::string keyId = "slot_" + std::to_string(softhsm::SlotId()) + "-id_0102";
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(
        ENGINE_load_private_key(engine.get(), keyId.c_str(), nullptr, nullptr), EVP_PKEY_free);
    ASSERT_NE(key, nullptr) << "the token's key loads";

    const Bytes der = softhsm::CertificateDer();
    X509Certificate cert(der.data(), static_cast<long>(der.size()));
    std::unique_ptr<CryptKey> tokenKey(CryptKey::CreateKey(key.get()));
    cert.SetPrivateKey(tokenKey.get());
    SignerCms signer(cert);
    signer.SetIncludeOption(SignerCms::cptIncludeSignerCertificate);
    signer.SetAttributeOption(SignerCms::cptAttributeDefault);
    const std::string text = "signed on the token";
    SignedCms cms(Array(text));
    const unsigned long estimate = cms.EstimateSize(signer, SignedCms::cptCmsBasic, 0);
    cms.Sign(signer, SignedCms::cptCmsBasic, 0);
    const Bytes message = ToBytes(cms.Encode());
    EXPECT_EQ(estimate, message.size()) << "the estimate holds for a token key as well";

    ScratchDir dir;
    dir.Write("sig.der", message);
    EXPECT_TRUE(dir.Openssl("cms -verify -binary -inform DER -in sig.der -CAfile " +
                            ServerDir("softhsm") + "/cert.pem -purpose any -out out.bin"))
        << "openssl verifies the token's signature: " << dir.Output();
    const Bytes out = ReadBinaryFile(dir.Path("out.bin"));
    EXPECT_EQ(std::string(out.begin(), out.end()), text) << "over the embedded content";
}

}  // namespace
