// What the softhsm fixture left for the tests (tests/servers/softhsm_start.sh),
// and SoftHSM2 token sets of a test's own.
#pragma once

#include <string>
#include <vector>

#include "TestPki.h"

namespace softhsm {

// One-line files of the fixture as text: "module", "engine", "pin", "slot"
// (hex), "keyid". Empty when the fixture did not run.
std::string Value(const char* file);
std::wstring WideValue(const char* file);
// The token's slot id, parsed from the hexadecimal "slot" file (0 if absent).
unsigned long SlotId();
// Keeps the engine library mapped until the process ends. libp11 allocates
// method tables it never frees; once the engine is unloaded LeakSanitizer
// can no longer tell they were libp11's. Mapped, they stay reachable.
void KeepEngineLibraryLoaded();
// The DER of the certificate stored on the token with CKA_ID 01 02.
std::vector<unsigned char> CertificateDer();

// SoftHSM2's module and the engine "pkcs11" (libp11) of Debian.
extern const wchar_t kModule[];
extern const wchar_t kEngine[];

// A SoftHSM2 token folder of the test's own, in a scratch folder, made the
// process's configuration (SOFTHSM2_CONF) until the object goes; load the
// module only while it lives. It starts without an initialised token. Tokens
// and objects are written with softhsm2-util and pkcs11-tool, each run
// bounded to 30 seconds; a failed run fails the test (ADD_FAILURE).
class OwnTokens {
public:
    OwnTokens();
    ~OwnTokens();
    OwnTokens(const OwnTokens&) = delete;
    OwnTokens& operator=(const OwnTokens&) = delete;

    // Initialises a token labelled `label` with the user PIN Pin(); its slot
    // id, 0 when that failed.
    unsigned long AddToken(const std::string& label);
    // Stores `cert` on token `label` under CKA_ID `idHex` and, when `key` is
    // given, the private key under the same id.
    void AddCertificate(const std::string& label, X509* cert, EVP_PKEY* key,
                        const std::string& idHex);
    static const char* Pin() { return "1234"; }

private:
    bool Run(const std::string& command);

    tessera_test::ScratchDir m_dir;
    std::string m_previous;
    bool m_hadPrevious;
};

}  // namespace softhsm
