#include "Pkcs11Key.h"

#include "CryptException.h"
#include "QorHex.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace TesseraLib {
namespace pkcs11 {

namespace {

const char kSlotPrefix[] = "slot_";
const char kIdPrefix[] = "-id_";

bool IsHexDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

}  // namespace

std::string KeyIdentifier(unsigned long slotId, const unsigned char* id, std::size_t idLength) {
    static const char digits[] = "0123456789abcdef";
    std::string slot;
    do {
        slot.insert(slot.begin(), digits[slotId & 0xF]);
        slotId >>= 4;
    } while (slotId != 0);

    return kSlotPrefix + slot + kIdPrefix + qortext::LowerHex(id, idLength);
}

std::string EngineKeyIdentifier(const char* keyId) {
    if (keyId == nullptr || std::strncmp(keyId, kSlotPrefix, sizeof(kSlotPrefix) - 1) != 0) {
        return std::string();
    }
    const char* slot = keyId + sizeof(kSlotPrefix) - 1;
    const char* slotEnd = slot;
    while (IsHexDigit(*slotEnd)) {
        ++slotEnd;
    }
    if (slotEnd == slot || std::strncmp(slotEnd, kIdPrefix, sizeof(kIdPrefix) - 1) != 0) {
        return std::string();
    }
    const char* id = slotEnd + sizeof(kIdPrefix) - 1;
    const std::size_t idLength = std::strlen(id);
    if (idLength == 0 || idLength % 2 != 0) {
        return std::string();
    }
    for (std::size_t i = 0; i < idLength; ++i) {
        if (!IsHexDigit(id[i])) {
            return std::string();
        }
    }

    const std::string slotHex(slot, slotEnd);
    errno = 0;
    char* parsedEnd = nullptr;
    const unsigned long slotId = std::strtoul(slotHex.c_str(), &parsedEnd, 16);
    if (errno == ERANGE || parsedEnd != slotHex.c_str() + slotHex.size()) {
        return std::string();
    }
    return kSlotPrefix + std::to_string(slotId) + kIdPrefix + id;
}

EvpPkeyPtr LoadPrivateKey(ENGINE* engine, const char* keyId, void* callbackData) {
    if (engine == nullptr) {
        return EvpPkeyPtr();
    }
    const std::string engineKeyId = EngineKeyIdentifier(keyId);
    if (engineKeyId.empty()) {
        return EvpPkeyPtr();
    }
    return EvpPkeyPtr(ENGINE_load_private_key(engine, engineKeyId.c_str(), nullptr, callbackData));
}

int KeyLoadFailure(unsigned long error) {
    // Whole codes that engines queue for a cancelled PIN dialogue, a wrong
    // PIN and a locked PIN; they are matched before the return values.
    const unsigned long kCancelled = 0x80005050ul;
    const unsigned long kCancelledByUser = 0x80005006ul;
    const unsigned long kPinIncorrect = 0x800050A0ul;
    const unsigned long kPinIncorrectCapi = 0x25066067ul;
    const unsigned long kPinLocked = 0x800050A4ul;
    const unsigned long kUiCancelled = 0x26096080ul;
    const unsigned long kCkrPinIncorrect = 0x0A0;
    const unsigned long kCkrPinLocked = 0x0A4;
    const unsigned long kCkrTokenNotPresent = 0x0E0;

    const unsigned long low = error & 0xFFFul;
    if (error == kCancelled || error == kCancelledByUser) {
        return ErrUserAborted;
    }
    if (error == kPinIncorrect || error == kPinIncorrectCapi || low == kCkrPinIncorrect) {
        return ErrWrongPin;
    }
    if (error == kPinLocked || low == kCkrPinLocked) {
        return ErrPinBlocked;
    }
    if (error == kUiCancelled) {
        return ErrUserAborted;
    }
    if (low == kCkrTokenNotPresent) {
        return ErrCardNotInserted;
    }
    return ErrPrivateKeyRead;
}

}  // namespace pkcs11
}  // namespace TesseraLib
