// The PKCS#11 module wrapper against the SoftHSM2 token of the fixture: one
// initialised token holding a certificate and an RSA key pair under CKA_ID
// 01 02, beside SoftHSM's free, uninitialised slot.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <vector>

#include "QorPKCS11.h"
#include "SoftHsmFixture.h"

using namespace QorPKCS11Lib;

namespace {

const unsigned long kPinIncorrect = 0xA0;        // CKR_PIN_INCORRECT
const unsigned long kLibraryLoadFailed = 0x1C2;  // CKR_LIBRARY_LOAD_FAILED
const unsigned long kNotInitialized = 0x190;     // CKR_CRYPTOKI_NOT_INITIALIZED
const std::vector<unsigned char> kId0102 = {0x01, 0x02};

// The code of the PKCS11Exception `call` throws; 0 when it throws none.
unsigned long CodeOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const PKCS11Exception& e) {
        return static_cast<unsigned long>(e.GetErrorCode());
    }
    return 0;
}

std::vector<unsigned char> Bytes(const Attribute<PKCS11Array<unsigned char> >& attribute) {
    const PKCS11Array<unsigned char>& array = attribute.GetValue();
    return std::vector<unsigned char>(array.GetData(), array.GetData() + array.GetSize());
}

// Copies of the objects of class `objectClass` that FindObjects(type) yields.
std::vector<Object> Find(Slot* slot, Slot::ObjectType type, ObjectClass::Class objectClass) {
    const PKCS11Vector<Object*> objects = slot->FindObjects(type);
    std::vector<Object> found;
    for (unsigned int i = 0; i < objects.GetSize(); ++i) {
        if (objects.GetAt(i)->GetClass().GetValue() == objectClass) {
            found.push_back(*objects.GetAt(i));
        }
    }
    Slot::FreeObjectList(objects);
    return found;
}

class SoftHsmModule : public ::testing::Test {
protected:
    void SetUp() override {
        const std::wstring path = softhsm::WideValue("module");
        ASSERT_FALSE(path.empty()) << "the softhsm fixture must have written its module path";
        m_module.reset(new PKCS11Module(path.c_str()));
        m_module->Initialize();
        const PKCS11Vector<Slot*> slots = m_module->GetSlots(1, 1);
        ASSERT_EQ(slots.GetSize(), 1u) << "GetSlots(1, 1) lists the one initialised token";
        m_slot = slots.GetAt(0);
    }

    void TearDown() override {
        if (m_module) {
            m_module->Finalize();
        }
    }

    std::unique_ptr<PKCS11Module> m_module;
    Slot* m_slot = nullptr;
};

TEST_F(SoftHsmModule, SlotsAreFilteredByTokenStateOwnedByTheModuleAndUnreadableOnesReport545) {
    EXPECT_EQ(m_slot->GetSlotId(), softhsm::SlotId())
        << "the initialised token's slot has the id the fixture's token was given";
    const PKCS11Vector<Slot*> present = m_module->GetSlots(1, 0);
    ASSERT_EQ(present.GetSize(), 2u) << "without the initialised filter SoftHSM's free slot counts";
    EXPECT_TRUE(present.GetAt(0) == m_slot || present.GetAt(1) == m_slot)
        << "a later GetSlots hands out the same Slot object for the same slot";
    // The free slot's token is not initialised: no session can be opened on
    // it, and callers walking the slots must skip it.
    Slot* freeSlot = present.GetAt(0) == m_slot ? present.GetAt(1) : present.GetAt(0);
    EXPECT_EQ(CodeOf([freeSlot] { freeSlot->FindObjects(Slot::otPublicObjects); }), 545u)
        << "an unreadable token is code 545";

    m_module->Finalize();
    EXPECT_EQ(CodeOf([this] { m_module->GetSlots(1, 1); }), kNotInitialized)
        << "a finalised module reports CKR_CRYPTOKI_NOT_INITIALIZED";
    m_module->Initialize();
    EXPECT_EQ(m_module->GetSlots(1, 1).GetSize(), 1u) << "the module initialises again";
}

TEST_F(SoftHsmModule, PublicObjectsIncludeTheCertificate) {
    const std::vector<Object> certificates =
        Find(m_slot, Slot::otPublicObjects, ObjectClass::Certificate);
    ASSERT_EQ(certificates.size(), 1u) << "the token holds one certificate";
    EXPECT_EQ(certificates[0].GetCertificateType().GetValue(), CertificateType::X509)
        << "the fixture's certificate is an X.509 certificate";
    EXPECT_EQ(Bytes(certificates[0].GetId()), kId0102) << "CKA_ID is the 01 02 the fixture stored";
    const std::vector<unsigned char> value = Bytes(certificates[0].GetValue());
    EXPECT_EQ(value, softhsm::CertificateDer()) << "CKA_VALUE is the fixture's certificate DER";

    const std::vector<Object> keys = Find(m_slot, Slot::otPublicObjects, ObjectClass::PublicKey);
    ASSERT_EQ(keys.size(), 1u) << "the key pair's public half is visible without login";
    EXPECT_NE(keys[0].GetCertificateType().GetValue(), CertificateType::X509)
        << "an object that is no certificate never reads as an X.509 certificate";
    EXPECT_TRUE(Find(m_slot, Slot::otPublicObjects, ObjectClass::PrivateKey).empty())
        << "the private key stays hidden without login";
    EXPECT_TRUE(Find(m_slot, Slot::otCertificates, ObjectClass::PublicKey).empty())
        << "the certificate search finds no keys";
}

TEST_F(SoftHsmModule, LoginRevealsThePrivateKeyUntilLogout) {
    EXPECT_EQ(CodeOf([this] { m_slot->Login("0000"); }), kPinIncorrect)
        << "a wrong PIN throws the module's CKR_PIN_INCORRECT";
    m_slot->Login(softhsm::Value("pin").c_str());
    EXPECT_EQ(CodeOf([this] { m_slot->Login(softhsm::Value("pin").c_str()); }), 0u)
        << "logging in again is no error";
    const std::vector<Object> keys = Find(m_slot, Slot::otPublicObjects, ObjectClass::PrivateKey);
    ASSERT_EQ(keys.size(), 1u) << "after login the private key is visible";
    EXPECT_EQ(Bytes(keys[0].GetId()), kId0102) << "the private key has the certificate's CKA_ID";
    EXPECT_FALSE(keys[0].GetValue().IsPresent()) << "a sensitive value is absent, not an error";

    m_slot->Logout();
    EXPECT_TRUE(Find(m_slot, Slot::otPublicObjects, ObjectClass::PrivateKey).empty())
        << "Logout ends the login";
    EXPECT_EQ(CodeOf([this] { m_slot->Logout(); }), 0u) << "logging out again is no error";
}

TEST(PKCS11ModuleLoading, UnloadableModulesThrowLibraryLoadFailed) {
    const wchar_t* const paths[] = {
        L"/nonexistent/libmissing-pkcs11.so",  // no such file
        L"libm.so.6",                          // a library, but no PKCS#11 module
    };
    for (const wchar_t* path : paths) {
        PKCS11Module module(path);
        EXPECT_EQ(CodeOf([&module] { module.Initialize(); }), kLibraryLoadFailed)
            << "loading " << path << " fails with CKR_LIBRARY_LOAD_FAILED";
        EXPECT_FALSE(module.IsInitialized()) << "a failed load leaves nothing initialised";
    }
}

TEST(PKCS11ExceptionTest, KeepsItsTypeThroughTheBaseAndNamesItsCode) {
    const std::unique_ptr<qorstd::QorException> clone(
        PKCS11Exception(0xA0, L"C_Login failed.").Clone());
    EXPECT_EQ(CodeOf([&clone] { clone->ReThrow(); }), kPinIncorrect)
        << "Clone and ReThrow through the base keep the type and the code";
    EXPECT_EQ(clone->GetErrorDescription().compare(L"CKR_PIN_INCORRECT"), 0)
        << "the description names the return value";
    EXPECT_EQ(
        PKCS11Exception(0x80000001, nullptr).GetErrorDescription().compare(L"CK_RV 0x80000001"), 0)
        << "an unnamed vendor value is described in hexadecimal";
}

}  // namespace
