// PKCS#11 start-up and shut-down through the C functions of libtessera.so.
// The manager is one per process: every test leaves it finalised.
#include <gtest/gtest.h>
#include <openssl/engine.h>

#include <cstring>
#include <string>

#include "Pkcs11Manager.h"
#include "QorPKCS11.h"
#include "SoftHsmFixture.h"
#include "TesseraApi.h"

using TesseraLib::Pkcs11Manager;

namespace {

// Whether an engine "pkcs11" is on OpenSSL's engine list. ENGINE_by_id
// cannot tell: it would load one from OpenSSL's engine directory.
bool EngineRegistered() {
    bool found = false;
    for (ENGINE* engine = ENGINE_get_first(); engine != nullptr; engine = ENGINE_get_next(engine)) {
        found = found || std::strcmp(ENGINE_get_id(engine), "pkcs11") == 0;
    }
    return found;
}

class Pkcs11Startup : public ::testing::Test {
protected:
    void SetUp() override {
        m_module = softhsm::WideValue("module");
        m_engine = softhsm::WideValue("engine");
        ASSERT_FALSE(m_module.empty()) << "the softhsm fixture must have written its module path";
        softhsm::KeepEngineLibraryLoaded();
        ASSERT_EQ(Pkcs11Manager::GetInstance().GetModule(), nullptr)
            << "each test starts without PKCS#11 set up";
    }

    void TearDown() override {
        EXPECT_EQ(Tessera_UninitializePkcs11(), 1) << "shut-down succeeds";
        EXPECT_EQ(Pkcs11Manager::GetInstance().GetModule(), nullptr)
            << "shut-down drops the module";
    }

    std::wstring m_module;
    std::wstring m_engine;
};

TEST_F(Pkcs11Startup, ModuleOnlyAndSecondCallIgnoresItsArguments) {
    ASSERT_EQ(Tessera_InitializePkcs11(m_module.c_str(), nullptr), 1) << "the module loads";
    QorPKCS11Lib::PKCS11Module* module = Pkcs11Manager::GetInstance().GetModule();
    ASSERT_NE(module, nullptr) << "the manager holds the module";
    EXPECT_TRUE(module->IsInitialized()) << "the module is initialised";
    EXPECT_EQ(module->GetSlots(1, 1).GetSize(), 1u) << "the module sees the fixture's token";
    EXPECT_FALSE(EngineRegistered()) << "without an engine path no engine is registered";
    EXPECT_EQ(Pkcs11Manager::GetInstance().GetEngine(), nullptr)
        << "GetEngine does not load an engine of its own";

    EXPECT_EQ(Tessera_InitializePkcs11(L"/nonexistent/module.so", L"/nonexistent/engine.so"), 1)
        << "a second start-up succeeds without looking at its arguments";
    EXPECT_EQ(Pkcs11Manager::GetInstance().GetModule(), module) << "the first module stays";
    EXPECT_FALSE(EngineRegistered()) << "nor does the second call register an engine";

    const Pkcs11Manager copy(Pkcs11Manager::GetInstance());
    EXPECT_EQ(copy.GetModule(), module) << "a copy of the manager shares its module";
}

TEST_F(Pkcs11Startup, FailuresLeaveNoModule) {
    EXPECT_EQ(Tessera_InitializePkcs11(nullptr, m_engine.c_str()), 0) << "a null module path fails";
    EXPECT_EQ(Pkcs11Manager::GetInstance().GetModule(), nullptr) << "nothing is held after it";

    EXPECT_EQ(Tessera_InitializePkcs11(L"/nonexistent/module.so", nullptr), 0)
        << "a module that cannot be loaded fails";
    EXPECT_EQ(Pkcs11Manager::GetInstance().GetModule(), nullptr) << "no module remains";

    EXPECT_EQ(Tessera_InitializePkcs11(m_module.c_str(), L"/nonexistent/engine.so"), 0)
        << "an engine that cannot be loaded fails the start-up";
    EXPECT_EQ(Pkcs11Manager::GetInstance().GetModule(), nullptr)
        << "the module loaded before the engine failed is released";
    EXPECT_FALSE(EngineRegistered()) << "no half-loaded engine stays registered";

    EXPECT_EQ(Tessera_InitializePkcs11(m_module.c_str(), nullptr), 1)
        << "a later start-up works after the failures";
}

TEST_F(Pkcs11Startup, EngineIsReleasedCompletelyAndCanBeLoadedAgain) {
    ASSERT_EQ(Tessera_InitializePkcs11(m_module.c_str(), m_engine.c_str()), 1)
        << "module and engine load";
    EXPECT_TRUE(EngineRegistered()) << "the engine pkcs11 is registered";
    ENGINE* engine = Pkcs11Manager::GetInstance().GetEngine();
    ASSERT_NE(engine, nullptr) << "GetEngine finds the registered engine";
    EXPECT_STREQ(ENGINE_get_id(engine), "pkcs11") << "it is the engine pkcs11";
    ENGINE_free(engine);

    EXPECT_EQ(Tessera_UninitializePkcs11(), 1) << "shut-down succeeds";
    EXPECT_FALSE(EngineRegistered()) << "shut-down takes the engine off the list";
    EXPECT_EQ(Pkcs11Manager::GetInstance().GetEngine(), nullptr)
        << "GetEngine finds nothing after shut-down";

    ASSERT_EQ(Tessera_InitializePkcs11(m_module.c_str(), m_engine.c_str()), 1)
        << "a new start-up loads module and engine again";
    EXPECT_TRUE(EngineRegistered()) << "the engine is registered again";
    EXPECT_EQ(Pkcs11Manager::GetInstance().GetModule()->GetSlots(1, 1).GetSize(), 1u)
        << "the reloaded module works";
}

}  // namespace
