// The C functions of the library: start-up, shut-down, logging set-up,
// PKCS#11 start-up and the version text. None of them throws.
#include <openssl/crypto.h>
#include <openssl/engine.h>
#include <openssl/err.h>

#include <cstring>
#include <memory>

#include "Library.h"
#include "LogChannel.h"
#include "ObjectTable.h"
#include "OpenSslPtr.h"
#include "Pkcs11Manager.h"
#include "QorGetOneCrl.h"
#include "QorOcsp2.h"
#include "QorTsp2.h"
#include "TesseraApi.h"
#include "Version.h"
#include "x509/QcAsn1.h"

namespace TesseraLib {
namespace library {

namespace {

// Constructed without a name when the library is loaded, so it stays closed
// until Tessera_InitializeLogging replaces it.
std::unique_ptr<LogChannel>& ChannelSlot() {
    static std::unique_ptr<LogChannel> channel(new LogChannel(nullptr));
    return channel;
}

// Makes the CryptoAPI engine available when one is registered. Linux has no
// such engine and keys of the system store are read from files, so its
// absence is not a failure.
bool MakeCapiEngineAvailable() {
    EnginePtr capi(ENGINE_by_id("capi"));
    if (!capi) {
        ERR_clear_error();
    }
    return true;
}

void ReleaseCapiEngine() {
    EnginePtr capi(ENGINE_by_id("capi"));
    if (!capi) {
        ERR_clear_error();
    }
}

// Seven of the certificate-extension handlers need the object table, and
// each one whose table registration fails leaves the next one to try again.
// OpenSSL prints the extensions themselves, so the table is all they add.
void RegisterExtensionHandlers() {
    const int handlersNeedingObjects = 7;
    for (int attempt = 0; attempt < handlersNeedingObjects && !objects::EnsureRegistered();
         ++attempt) {
    }
    // The qualified-statements handler lists the statements when OpenSSL
    // prints a certificate; it needs no objects of the table. Without it the
    // extension prints as a hex dump, so a failure is no reason to stop.
    x509::RegisterQcStatementsHandler();
}

}  // namespace

qorstd::QorStringW VersionText() {
    const char* const parts[] = {
        "Version:",     TESSERA_VERSION_TEXT,    ",Revision:",   TESSERA_REVISION_TEXT,
        ",Build date:", TESSERA_BUILD_DATE_TEXT, ",Build time:", TESSERA_BUILD_TIME_TEXT};
    qorstd::QorStringW text;
    for (const char* part : parts) {
        // The constants are ASCII: widen byte by byte.
        for (const char* c = part; *c != '\0'; ++c) {
            const wchar_t wide[2] = {static_cast<wchar_t>(static_cast<unsigned char>(*c)), L'\0'};
            text.append(wide);
        }
    }
    return text;
}

LogChannel* Channel() {
    return ChannelSlot().get();
}

int Initialize() {
    // OpenSSL 3 allocates with the C runtime's malloc, realloc and free by
    // default and refuses new memory functions once it has allocated, so
    // start-up only loads the algorithms, error texts and built-in engines.
    if (OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CRYPTO_STRINGS | OPENSSL_INIT_ADD_ALL_CIPHERS |
                                OPENSSL_INIT_ADD_ALL_DIGESTS,
                            nullptr) != 1 ||
        OPENSSL_init_crypto(OPENSSL_INIT_ENGINE_ALL_BUILTIN, nullptr) != 1) {
        ERR_clear_error();
        return 0;
    }
    if (!MakeCapiEngineAvailable()) {
        return 0;
    }
    RegisterExtensionHandlers();
    return QorTsp2_Initialize();
}

int Uninitialize() {
    ReleaseCapiEngine();
    // OpenSSL 3 cannot be started again once its global state is cleaned up,
    // so that state is released when the process ends; what belongs to this
    // start-up is released here.
    ERR_clear_error();
    OPENSSL_thread_stop();
    objects::ClearRegisteredFlag();
    return QorTsp2_Uninitialize();
}

int InitializeLogging(const LoggingCallbacks* callbacks, bool includeLibraries) {
    logging::InstallCallbacks(callbacks);
    logging::SetPrefix(L"Tessera");
    ChannelSlot().reset(new LogChannel(L".Tessera"));
    const qorstd::QorStringW version = VersionText();
    if (!version.empty()) {
        ChannelSlot()->Write(LogLevel::Debug, version.c_str());
    }
    if (!includeLibraries) {
        return 1;
    }
    if (QorGetOneCrl_InitializeLogging(callbacks) == 0 ||
        QorOcsp2_InitializeLogging(callbacks) == 0) {
        return 0;
    }
    return QorTsp2_InitializeLogging(callbacks);
}

}  // namespace library
}  // namespace TesseraLib

using namespace TesseraLib;

extern "C" {

int Tessera_Initialize() {
    try {
        return library::Initialize();
    } catch (...) {
        return 0;
    }
}

int Tessera_Uninitialize() {
    try {
        return library::Uninitialize();
    } catch (...) {
        return 0;
    }
}

int Tessera_InitializeLogging(const LoggingCallbacks* callbacks, bool includeLibraries) {
    try {
        return library::InitializeLogging(callbacks, includeLibraries);
    } catch (...) {
        return 0;
    }
}

int Tessera_UnInitializeLogging() {
    library::ChannelSlot().reset();
    return 1;
}

int Tessera_InitializePkcs11(const wchar_t* modulePath, const wchar_t* enginePath) {
    try {
        return Pkcs11Manager::GetInstance().Initialize(modulePath, enginePath);
    } catch (...) {
        return 0;
    }
}

int Tessera_UninitializePkcs11() {
    try {
        return Pkcs11Manager::GetInstance().Finalize();
    } catch (...) {
        return 0;
    }
}

int Tessera_GetVersionString(qorstd::QorStringW* out) {
    if (out == nullptr) {
        return 0;
    }
    try {
        *out = library::VersionText();
        return out->empty() ? 0 : 1;
    } catch (...) {
        return 0;
    }
}

}  // extern "C"
