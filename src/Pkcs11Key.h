// Private keys of PKCS#11 tokens, loaded through the OpenSSL engine "pkcs11".
//
// Tessera names a token key "slot_<slot id>-id_<CKA_ID>", both in lower-case
// hexadecimal. libp11 reads the slot number in decimal, so the identifier is
// translated only at the moment the engine sees it; logs and callers keep
// the hexadecimal form.
#pragma once

#include <openssl/engine.h>

#include <cstddef>
#include <string>

#include "OpenSslPtr.h"

namespace TesseraLib {
namespace pkcs11 {

// "slot_" + the slot id in lower-case hex without leading zeros + "-id_" +
// two lower-case hex digits per CKA_ID byte (slot 1, bytes 0A FF:
// "slot_1-id_0aff").
std::string KeyIdentifier(unsigned long slotId, const unsigned char* id, std::size_t idLength);

// The identifier as libp11 wants it, the slot id in decimal
// ("slot_1a-id_0102" -> "slot_26-id_0102"). Empty when `keyId` is not of the
// form above (a hex slot id that fits an unsigned long, a non-empty even
// number of hex digits for the id).
std::string EngineKeyIdentifier(const char* keyId);

// Loads the private key `keyId` (Tessera form) through `engine`, with no UI
// method and `callbackData` for the engine's PIN dialogue. Null when the
// identifier is malformed or the engine finds no key; the engine's errors
// stay queued for the caller.
EvpPkeyPtr LoadPrivateKey(ENGINE* engine, const char* keyId, void* callbackData);

// The error code a failed key load is reported with, from the earliest
// error the engine queued: a cancelled PIN entry → ErrUserAborted, a wrong
// PIN → ErrWrongPin, a locked PIN → ErrPinBlocked, a missing token →
// ErrCardNotInserted, anything else → ErrPrivateKeyRead. libp11 queues the
// PKCS#11 return value as the reason under a library number it is given at
// run time, so the return values are matched on the low 12 bits alone.
int KeyLoadFailure(unsigned long error);

}  // namespace pkcs11
}  // namespace TesseraLib
