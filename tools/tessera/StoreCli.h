// What `tessera store` shares with the signing commands: a signer picked from
// a certificate store (implemented in CmdStore.cpp).
#pragma once

#include <string>

#include "Cli.h"
#include "X509Certificate.h"

namespace tessera_cli {

// The signer of --store-dir DIR --subject TEXT, or of --pkcs11 MODULE
// --subject TEXT --pin PIN: the one certificate of the store whose subject
// contains TEXT, with its private key attached. Sets `*pkcs11` once the
// PKCS#11 module is loaded; the caller unloads it after the key is gone.
// kExitOk, or the exit code after a line on stderr (no match, several
// matches, no key). Library failures (a wrong PIN ...) are thrown.
int LoadStoreSigner(const std::string& command, const Arguments& parsed, bool* pkcs11,
                    TesseraLib::X509Certificate* cert);

}  // namespace tessera_cli
