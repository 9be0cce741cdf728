// d2i/i2d helpers (internal): decoding must consume every byte, encoding
// returns an owned vector.
#pragma once

#include <climits>
#include <cstddef>
#include <vector>

namespace QorTsp2Lib {
namespace der {

// The decoded object, or an empty pointer when `data` does not hold exactly
// one encoding of T (nothing, garbage, truncated or trailing bytes).
template <class Ptr, class T>
Ptr DecodeWhole(T* (*d2i)(T**, const unsigned char**, long), const unsigned char* data,
                std::size_t length) {
    if (data == nullptr || length == 0 || length > static_cast<std::size_t>(LONG_MAX)) {
        return Ptr();
    }
    const unsigned char* cursor = data;
    Ptr decoded(d2i(nullptr, &cursor, static_cast<long>(length)));
    if (decoded && cursor != data + length) {
        decoded.reset();
    }
    return decoded;
}

// The DER of `value`; empty when encoding fails.
template <class T>
std::vector<unsigned char> Encode(int (*i2d)(const T*, unsigned char**), const T* value) {
    const int length = i2d(value, nullptr);
    if (length <= 0) {
        return {};
    }
    std::vector<unsigned char> out(static_cast<std::size_t>(length));
    unsigned char* cursor = out.data();
    if (i2d(value, &cursor) != length) {
        return {};
    }
    return out;
}

}  // namespace der
}  // namespace QorTsp2Lib
