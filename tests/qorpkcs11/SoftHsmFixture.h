// What the softhsm fixture left for the tests (tests/servers/softhsm_start.sh).
#pragma once

#include <string>
#include <vector>

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

}  // namespace softhsm
