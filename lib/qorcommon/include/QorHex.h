// Lower-case hexadecimal text of bytes (internal, shared by the library family).
#pragma once

#include <cstddef>
#include <string>

namespace qortext {

// Two lower-case digits per byte, no separators.
inline std::string LowerHex(const unsigned char* data, std::size_t length) {
    static const char kDigits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(length * 2);
    for (std::size_t i = 0; i < length; ++i) {
        hex.push_back(kDigits[data[i] >> 4]);
        hex.push_back(kDigits[data[i] & 0x0F]);
    }
    return hex;
}

}  // namespace qortext
