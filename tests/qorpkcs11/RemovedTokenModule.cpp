// A PKCS#11 module for tests: SoftHSM2 with one slot whose token counts as
// removed. The slot is named at call time by TESSERA_TEST_REMOVED_SLOT
// (decimal), so a test can take a token away after a store has listed its
// slot: opening a session there answers CKR_TOKEN_NOT_PRESENT.
#include <dlfcn.h>
#include <p11-kit/pkcs11.h>

#include <cstdlib>
#include <string>

namespace {

CK_FUNCTION_LIST g_forwarded;
CK_FUNCTION_LIST_PTR g_softhsm = nullptr;

bool IsRemoved(CK_SLOT_ID slot) {
    const char* removed = std::getenv("TESSERA_TEST_REMOVED_SLOT");
    return removed != nullptr && std::to_string(slot) == removed;
}

CK_RV OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, void* application, CK_NOTIFY notify,
                  CK_SESSION_HANDLE_PTR session) {
    if (IsRemoved(slot)) {
        return CKR_TOKEN_NOT_PRESENT;
    }
    return g_softhsm->C_OpenSession(slot, flags, application, notify, session);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) CK_RV C_GetFunctionList(
    CK_FUNCTION_LIST_PTR_PTR list) {
    if (list == nullptr) {
        return CKR_ARGUMENTS_BAD;
    }
    if (g_softhsm == nullptr) {
        void* module = dlopen("/usr/lib/softhsm/libsofthsm2.so", RTLD_NOW | RTLD_LOCAL);
        auto* get = module != nullptr
                        ? reinterpret_cast<CK_C_GetFunctionList>(dlsym(module, "C_GetFunctionList"))
                        : nullptr;
        if (get == nullptr || get(&g_softhsm) != CKR_OK) {
            return CKR_GENERAL_ERROR;
        }
        g_forwarded = *g_softhsm;
        g_forwarded.C_OpenSession = OpenSession;
    }
    *list = &g_forwarded;
    return CKR_OK;
}
