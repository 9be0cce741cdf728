#include "Pkcs11Manager.h"

#include <openssl/engine.h>
#include <openssl/err.h>

#include <cstring>

#include "OpenSslPtr.h"
#include "QorPKCS11.h"
#include "QorTextConv.h"

namespace TesseraLib {

namespace {

const char kEngineId[] = "pkcs11";

// Whether Initialize holds a functional reference to the engine. Only that
// reference may be given back with ENGINE_finish: an engine that somebody
// else registered is removed from the list but its references stay theirs.
// The engine is process-wide, so this is too.
bool g_engineInitialized = false;

// The registered engine "pkcs11". ENGINE_by_id is no use here: for an id
// that is not registered it loads an engine of that name from OpenSSL's
// engine directory, unconfigured, and registers that one.
EnginePtr FindRegisteredEngine() {
    for (ENGINE* engine = ENGINE_get_first(); engine != nullptr; engine = ENGINE_get_next(engine)) {
        const char* id = ENGINE_get_id(engine);
        if (id != nullptr && std::strcmp(id, kEngineId) == 0) {
            return EnginePtr(engine);
        }
    }
    return EnginePtr();
}

// Takes the engine "pkcs11" off the engine list and gives back the
// functional reference Initialize took, so that the engine is unloaded.
void ReleaseEngine() {
    EnginePtr engine = FindRegisteredEngine();
    if (!engine) {
        g_engineInitialized = false;
        return;
    }
    if (g_engineInitialized) {
        ENGINE_finish(engine.get());
        g_engineInitialized = false;
    }
    ENGINE_remove(engine.get());
}

// Registers the engine "pkcs11" through the engine "dynamic" and initialises
// it. An engine registered already counts as available.
bool MakeEngineAvailable(const wchar_t* enginePath, const wchar_t* modulePath) {
    if (FindRegisteredEngine()) {
        return true;
    }
    const qorstd::QorString engineFile = qorstd::text::WideToNarrow(enginePath, false);
    const qorstd::QorString moduleFile = qorstd::text::WideToNarrow(modulePath, false);
    if (engineFile.empty() || moduleFile.empty()) {
        return false;
    }
    {
        // After LOAD this handle is the loaded engine itself, which is why
        // the module path is given to it last.
        EnginePtr dynamic(ENGINE_by_id("dynamic"));
        if (!dynamic ||
            ENGINE_ctrl_cmd_string(dynamic.get(), "SO_PATH", engineFile.c_str(), 0) != 1 ||
            ENGINE_ctrl_cmd_string(dynamic.get(), "ID", kEngineId, 0) != 1 ||
            ENGINE_ctrl_cmd_string(dynamic.get(), "LIST_ADD", "1", 0) != 1 ||
            ENGINE_ctrl_cmd_string(dynamic.get(), "LOAD", nullptr, 0) != 1 ||
            ENGINE_ctrl_cmd_string(dynamic.get(), "MODULE_PATH", moduleFile.c_str(), 0) != 1) {
            // What LOAD may have registered is unusable without its module.
            ReleaseEngine();
            return false;
        }
    }
    EnginePtr engine = FindRegisteredEngine();
    if (!engine || ENGINE_init(engine.get()) != 1) {
        ReleaseEngine();
        return false;
    }
    g_engineInitialized = true;
    return true;
}

}  // namespace

Pkcs11Manager& Pkcs11Manager::GetInstance() {
    static Pkcs11Manager instance;
    return instance;
}

Pkcs11Manager::Pkcs11Manager() : m_module(nullptr) {}

Pkcs11Manager::Pkcs11Manager(const Pkcs11Manager& other) : m_module(other.m_module) {}

Pkcs11Manager& Pkcs11Manager::operator=(const Pkcs11Manager& other) {
    m_module = other.m_module;
    return *this;
}

Pkcs11Manager::~Pkcs11Manager() {}

int Pkcs11Manager::Initialize(const wchar_t* modulePath, const wchar_t* enginePath) {
    if (modulePath == nullptr) {
        return 0;
    }
    if (m_module != nullptr) {
        return 1;
    }
    try {
        m_module = new QorPKCS11Lib::PKCS11Module(modulePath);
        m_module->Initialize();
    } catch (...) {
        delete m_module;
        m_module = nullptr;
        return 0;
    }
    if (enginePath == nullptr) {
        return 1;
    }
    bool available = false;
    try {
        available = MakeEngineAvailable(enginePath, modulePath);
    } catch (...) {
        available = false;
    }
    if (!available) {
        // Nothing of a failed engine set-up is left for later callers to read.
        ERR_clear_error();
        DropModule();
        return 0;
    }
    return 1;
}

bool Pkcs11Manager::DropModule() {
    bool finalized = true;
    try {
        m_module->Finalize();
    } catch (...) {
        // The module is unloaded even when it fails to finalise.
        finalized = false;
    }
    delete m_module;
    m_module = nullptr;
    return finalized;
}

int Pkcs11Manager::Finalize() {
    if (m_module != nullptr && !DropModule()) {
        return 0;
    }
    ReleaseEngine();
    return 1;
}

QorPKCS11Lib::PKCS11Module* Pkcs11Manager::GetModule() {
    return m_module;
}

const QorPKCS11Lib::PKCS11Module* Pkcs11Manager::GetModule() const {
    return m_module;
}

engine_st* Pkcs11Manager::GetEngine() {
    return FindRegisteredEngine().release();
}

void* Pkcs11Manager::GetEnginePinCb() {
    return nullptr;
}

}  // namespace TesseraLib
