#include "Pkcs11Key.h"

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

}  // namespace pkcs11
}  // namespace TesseraLib
