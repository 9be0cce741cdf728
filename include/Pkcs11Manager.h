// The process's PKCS#11 set-up: the module that the PKCS#11 certificate
// stores read, and the OpenSSL engine "pkcs11" that loads their private keys.
#pragma once

#include "TesseraExport.h"

struct engine_st;

namespace QorPKCS11Lib {
class PKCS11Module;
}

namespace TesseraLib {

// One instance per process (GetInstance), set up and torn down from one
// thread before and after use; it does not lock.
class TESSERA_API Pkcs11Manager {
public:
    // The process's instance, created on first use and destroyed at exit.
    static Pkcs11Manager& GetInstance();

    Pkcs11Manager();
    // Copies share the module pointer: only one of them may Finalize, and
    // the others must not use the module afterwards.
    Pkcs11Manager(const Pkcs11Manager& other);
    Pkcs11Manager& operator=(const Pkcs11Manager& other);
    // Leaves the module alone (copies may share it): call Finalize first.
    virtual ~Pkcs11Manager();

    // Loads and initialises the module at `modulePath` and, when `enginePath`
    // is given, makes OpenSSL's engine "pkcs11" (libp11) available over the
    // same module. 1 on success; 1 without doing anything when a module is
    // loaded already. 0 for a null module path, or when the module or the
    // engine cannot be loaded; then no module remains.
    int Initialize(const wchar_t* modulePath, const wchar_t* enginePath);
    // Finalises and deletes the module, then releases the engine "pkcs11"
    // completely (it is no longer registered afterwards). 1 on success, 0
    // when finalising the module failed (the module is gone all the same,
    // the engine is left as it was).
    int Finalize();

    // The loaded module; null when not initialised.
    QorPKCS11Lib::PKCS11Module* GetModule();
    const QorPKCS11Lib::PKCS11Module* GetModule() const;

    // The registered engine "pkcs11", looked up on every call (never loaded
    // from OpenSSL's engine directory on the side). The caller owns the
    // returned reference and releases it with ENGINE_free. Null when the
    // engine is not registered.
    engine_st* GetEngine();

    // Callback data for the engine's key loading: always null, so the
    // engine obtains a PIN by its own means (e.g. its "PIN" control command).
    void* GetEnginePinCb();

private:
    // Finalises and deletes the module; false when finalising failed.
    bool DropModule();

    QorPKCS11Lib::PKCS11Module* m_module;
};

}  // namespace TesseraLib
