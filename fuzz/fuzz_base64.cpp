// CryptUtils::Base64Decode over arbitrary text: it must succeed or fail
// exactly as the codec's rules say (counted independently here), and a
// successful decode, encoded again with every line-break type, must decode
// back to the same bytes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "CryptException.h"
#include "CryptUtils.h"

using TesseraLib::CryptUtils;

namespace {

bool InAlphabet(unsigned char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' ||
           c == '/';
}

void Check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 1u << 20) {
        return 0;
    }
    const std::string text(reinterpret_cast<const char*>(data), size);  // NUL-terminated copy

    // What the rules predict: alphabet characters up to the first "=" or NUL.
    std::size_t characters = 0;
    bool endedAtPad = false;
    for (const char c : std::string(text.c_str())) {
        if (c == '=') {
            endedAtPad = true;
            break;
        }
        characters += InAlphabet(static_cast<unsigned char>(c)) ? 1 : 0;
    }
    const bool shouldFail = !endedAtPad && characters % 4 != 0;

    const unsigned char prefix[] = {0xA5, 0x5A};
    qorstd::QorArray<unsigned char> decoded(prefix, sizeof(prefix));
    try {
        const unsigned int appended = CryptUtils::Base64Decode(text.c_str(), decoded);
        Check(!shouldFail);
        Check(appended == characters * 6 / 8);
        Check(decoded.GetSize() == sizeof(prefix) + appended);
    } catch (const TesseraLib::CryptException& e) {
        Check(shouldFail && e.GetErrorCode() == TesseraLib::ErrBase64Decoding);
        Check(decoded.GetSize() == sizeof(prefix));  // nothing appended
        return 0;
    }
    Check(std::memcmp(decoded.GetData(), prefix, sizeof(prefix)) == 0);
    const unsigned int length = decoded.GetSize() - sizeof(prefix);
    if (length == 0) {
        return 0;
    }

    const unsigned char* bytes = decoded.GetData() + sizeof(prefix);
    for (const CryptUtils::cptLineBreakType lineBreak :
         {CryptUtils::cptLineBreakNone, CryptUtils::cptLineBreakCrLf, CryptUtils::cptLineBreakLf}) {
        qorstd::QorString encoded;
        const unsigned int characterCount =
            CryptUtils::Base64Encode(bytes, length, encoded, lineBreak);
        Check(characterCount == encoded.length());
        qorstd::QorArray<unsigned char> again;
        Check(CryptUtils::Base64Decode(encoded, again) == length);
        Check(std::memcmp(again.GetData(), bytes, length) == 0);
    }
    return 0;
}
