// d2i/i2d helpers shared by the library family (internal): decoding must
// consume every byte and returns an owned object, encoding returns an owned
// vector.
#pragma once

#include <climits>
#include <cstddef>
#include <vector>

#include <openssl/err.h>

namespace qorssl {

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
    if (!decoded) {
        ERR_clear_error();  // a refusal is the answer; nothing to report later
    }
    return decoded;
}

// The first encoding of T at `data`, or an empty pointer; whatever follows it
// is left alone, as OpenSSL's own readers do. `*consumed` (optional) gets the
// length of the encoding read.
template <class Ptr, class T>
Ptr DecodeFirst(T* (*d2i)(T**, const unsigned char**, long), const unsigned char* data,
                std::size_t length, std::size_t* consumed = nullptr) {
    if (consumed != nullptr) {
        *consumed = 0;
    }
    if (data == nullptr || length == 0 || length > static_cast<std::size_t>(LONG_MAX)) {
        return Ptr();
    }
    const unsigned char* cursor = data;
    Ptr decoded(d2i(nullptr, &cursor, static_cast<long>(length)));
    if (!decoded) {
        ERR_clear_error();
    } else if (consumed != nullptr) {
        *consumed = static_cast<std::size_t>(cursor - data);
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

}  // namespace qorssl
