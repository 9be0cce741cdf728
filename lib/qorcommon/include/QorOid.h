// Dotted OID texts and the content octets of their DER encoding, without
// OpenSSL's object machinery. Attribute look-ups and OID texts run on every
// parse and verification; building an ASN1_OBJECT for each look-up, or
// printing one arc by arc through OpenSSL, cost more than the look-up.
// Both directions refuse what they do not read plainly (arcs beyond 64
// bits among it), so that callers can hand such input to OpenSSL instead.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace qoroid {

// The content octets of `text` ("1.2.840.113549.1.9.3"): two or more
// decimal arcs separated by single dots, the first 0, 1 or 2 and, below 2,
// the second under 40. False (and `der` unspecified) otherwise.
inline bool TextToDer(const char* text, std::vector<unsigned char>* der) {
    if (text == nullptr || der == nullptr) {
        return false;
    }
    der->clear();
    // Never more octets than characters.
    der->reserve(std::strlen(text));
    std::uint64_t first = 0;
    int arcs = 0;
    const char* cursor = text;
    while (true) {
        if (*cursor < '0' || *cursor > '9') {
            return false;
        }
        std::uint64_t arc = 0;
        for (; *cursor >= '0' && *cursor <= '9'; ++cursor) {
            const std::uint64_t digit = static_cast<std::uint64_t>(*cursor - '0');
            if (arc > UINT64_MAX / 10 || (arc == UINT64_MAX / 10 && digit > UINT64_MAX % 10)) {
                return false;
            }
            arc = arc * 10 + digit;
        }
        if (arcs == 0) {
            if (arc > 2) {
                return false;
            }
            first = arc;
        } else {
            if (arcs == 1) {
                if (first < 2 && arc >= 40) {
                    return false;
                }
                if (arc > UINT64_MAX - first * 40) {
                    return false;
                }
                arc += first * 40;
            }
            // Base 128, most significant group first, high bit on all but the last.
            unsigned char groups[10];
            int count = 0;
            do {
                groups[count++] = static_cast<unsigned char>(arc & 0x7F);
                arc >>= 7;
            } while (arc != 0);
            while (count > 1) {
                der->push_back(static_cast<unsigned char>(groups[--count] | 0x80));
            }
            der->push_back(groups[0]);
        }
        ++arcs;
        if (*cursor == '\0') {
            return arcs >= 2;
        }
        if (*cursor != '.') {
            return false;
        }
        ++cursor;
    }
}

// The dotted text of content octets as OpenSSL prints them numerically.
// False for empty, truncated or non-minimal octets, or an arc beyond 64 bits.
inline bool DerToText(const unsigned char* der, std::size_t length, std::string* text) {
    if (der == nullptr || length == 0 || text == nullptr || (der[length - 1] & 0x80) != 0) {
        return false;
    }
    text->clear();
    text->reserve(length * 3);
    bool first = true;
    std::size_t at = 0;
    while (at < length) {
        if (der[at] == 0x80) {
            return false;  // a leading zero group
        }
        std::uint64_t arc = 0;
        unsigned char byte = 0;
        do {
            byte = der[at++];
            if (arc > (UINT64_MAX >> 7)) {
                return false;
            }
            arc = (arc << 7) | (byte & 0x7F);
        } while ((byte & 0x80) != 0);
        if (first) {
            const std::uint64_t top = arc < 40 ? 0 : arc < 80 ? 1 : 2;
            text->push_back(static_cast<char>('0' + top));
            arc -= top * 40;
            first = false;
        }
        char digits[20];
        int count = 0;
        do {
            digits[count++] = static_cast<char>('0' + arc % 10);
            arc /= 10;
        } while (arc != 0);
        text->push_back('.');
        while (count > 0) {
            text->push_back(digits[--count]);
        }
    }
    return true;
}

}  // namespace qoroid
