#include "CryptUtils.h"

#include <openssl/crypto.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <limits>
#include <memory>
#include <new>

#include "CryptException.h"
#include "Failure.h"

namespace TesseraLib {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned int kGroupsPerLine = 19;  // 76 characters

// Decoding classes of a character: its six-bit value (0-63), or one of these.
constexpr unsigned char kPad = 0x40;   // "=": the text ends here
constexpr unsigned char kEnd = 0x41;   // the terminating NUL
constexpr unsigned char kSkip = 0x80;  // anything else: ignored

constexpr std::array<unsigned char, 256> MakeDecodeTable() {
    std::array<unsigned char, 256> table{};
    for (auto& entry : table) {
        entry = kSkip;
    }
    for (unsigned char value = 0; value < 64; ++value) {
        table[static_cast<unsigned char>(kAlphabet[value])] = value;
    }
    table[static_cast<unsigned char>('=')] = kPad;
    table[0] = kEnd;
    return table;
}

constexpr std::array<unsigned char, 256> kDecode = MakeDecodeTable();

// Encodes `count` complete three-byte groups; returns the end of the text.
// Kept apart so that the pointers stay in registers: stores through char
// pointers could otherwise alias the caller's variables.
char* EncodeGroups(const unsigned char* in, unsigned int count, char* out) {
    for (; count > 0; --count, in += 3, out += 4) {
        const std::uint32_t value = (static_cast<std::uint32_t>(in[0]) << 16) |
                                    (static_cast<std::uint32_t>(in[1]) << 8) | in[2];
        const char characters[4] = {kAlphabet[value >> 18], kAlphabet[(value >> 12) & 0x3f],
                                    kAlphabet[(value >> 6) & 0x3f], kAlphabet[value & 0x3f]};
        std::memcpy(out, characters, sizeof(characters));
    }
    return out;
}

}  // namespace

CryptUtils::CryptUtils() = default;
CryptUtils::CryptUtils(const CryptUtils&) = default;
CryptUtils& CryptUtils::operator=(const CryptUtils&) = default;
CryptUtils::~CryptUtils() = default;

unsigned int CryptUtils::Base64Decode(const char* text, qorstd::QorArray<unsigned char>& out) {
    if (text == nullptr) {
        Fail(ErrInvalidParameter, L"in = NULL");
    }
    const unsigned char* const input = reinterpret_cast<const unsigned char*>(text);

    // First pass: count the alphabet characters up to the end of the text, so
    // that failure is known before anything is appended and the output can be
    // sized exactly.
    std::size_t characters = 0;
    const unsigned char* p = input;
    unsigned char code = kSkip;
    for (;; ++p) {
        code = kDecode[*p];
        if (code < 64) {
            ++characters;
        } else if (code != kSkip) {
            break;
        }
    }
    const std::size_t pending = characters % 4;
    if (code == kEnd && pending != 0) {
        Fail(ErrBase64Decoding);
    }
    // A group cut short by "=" keeps the bytes it completed.
    const std::size_t length = characters / 4 * 3 + pending * 3 / 4;
    if (length == 0) {
        return 0;
    }
    const unsigned int before = out.GetSize();
    if (length > std::numeric_limits<unsigned int>::max() - before) {
        Fail(ErrBase64Decoding);
    }

    out.SetSize(before + static_cast<unsigned int>(length));
    unsigned char* target = out.GetData() + before;
    unsigned char* const end = target + length;
    std::uint32_t bits = 0;
    int bitCount = 0;
    for (p = input; target != end; ++p) {
        code = kDecode[*p];
        if (code >= 64) {
            continue;  // only skipped characters come before the last byte
        }
        bits = (bits << 6) | code;
        bitCount += 6;
        if (bitCount >= 8) {
            bitCount -= 8;
            *target++ = static_cast<unsigned char>(bits >> bitCount);
        }
    }
    return static_cast<unsigned int>(length);
}

unsigned int CryptUtils::Base64Decode(const qorstd::QorString& text,
                                      qorstd::QorArray<unsigned char>& out) {
    return Base64Decode(text.c_str(), out);
}

unsigned int CryptUtils::Base64Encode(const unsigned char* data, unsigned int length,
                                      qorstd::QorString& out, cptLineBreakType lineBreak) {
    if (data == nullptr) {
        Fail(ErrInvalidParameter, L"in = NULL");
    }
    if (length == 0) {
        Fail(ErrInvalidParameter, L"len = 0");
    }
    const char* separator = lineBreak == cptLineBreakCrLf ? "\r\n" : "\n";
    const std::size_t separatorLength = lineBreak == cptLineBreakNone   ? 0
                                        : lineBreak == cptLineBreakCrLf ? 2
                                                                        : 1;
    const unsigned int groupsPerLine =
        separatorLength == 0 ? std::numeric_limits<unsigned int>::max() : kGroupsPerLine;

    const std::size_t characters = (static_cast<std::size_t>(length) + 2) / 3 * 4;
    const std::size_t total = characters + (characters - 1) / 76 * separatorLength;
    if (total > std::numeric_limits<unsigned int>::max()) {
        Fail(ErrBase64Encoding);
    }

    struct WipedText {
        void operator()(char* text) const {
            // Encoded keys pass through here; the copy that is ours goes wiped.
            OPENSSL_cleanse(text, size);
            delete[] text;
        }
        std::size_t size;
    };
    std::unique_ptr<char[], WipedText> text(new (std::nothrow) char[total], WipedText{total});
    if (!text) {
        Fail(ErrBase64Encoding);
    }

    char* o = text.get();
    const unsigned char* in = data;
    unsigned int groups = length / 3;   // complete groups still to encode
    unsigned int room = groupsPerLine;  // groups that still fit in the line
    for (;;) {
        const unsigned int count = groups < room ? groups : room;
        o = EncodeGroups(in, count, o);
        in += 3 * count;
        groups -= count;
        room -= count;
        if (groups == 0) {
            break;
        }
        // A full line with more input to come: the text never ends with a separator.
        std::memcpy(o, separator, separatorLength);
        o += separatorLength;
        room = groupsPerLine;
    }
    const unsigned int rest = length % 3;
    if (rest > 0) {
        if (room == 0) {
            std::memcpy(o, separator, separatorLength);
            o += separatorLength;
        }
        const std::uint32_t value = (static_cast<std::uint32_t>(in[0]) << 16) |
                                    (rest == 2 ? static_cast<std::uint32_t>(in[1]) << 8 : 0);
        o[0] = kAlphabet[value >> 18];
        o[1] = kAlphabet[(value >> 12) & 0x3f];
        o[2] = rest == 2 ? kAlphabet[(value >> 6) & 0x3f] : '=';
        o[3] = '=';
    }

    try {
        out.append(text.get(), static_cast<unsigned int>(total));
    } catch (const std::bad_alloc&) {
        Fail(ErrBase64Encoding);
    }
    return static_cast<unsigned int>(total);
}

unsigned int CryptUtils::Base64Encode(const qorstd::QorArray<unsigned char>& data,
                                      qorstd::QorString& out, cptLineBreakType lineBreak) {
    return Base64Encode(data.GetData(), data.GetSize(), out, lineBreak);
}

std::int64_t CryptUtils::GetCurrentTimeUTC() {
    return static_cast<std::int64_t>(std::time(nullptr));
}

}  // namespace TesseraLib
