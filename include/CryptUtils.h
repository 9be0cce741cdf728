// Static helpers: the library's own Base64 codec and the current time.
#pragma once

#include <cstdint>

#include "QorArray.h"
#include "QorString.h"
#include "TesseraExport.h"

namespace TesseraLib {

class TESSERA_API CryptUtils {
public:
    // Line breaks of encoded text. Any value other than None and CrLf means LF.
    enum cptLineBreakType { cptLineBreakNone = 0, cptLineBreakCrLf = 1, cptLineBreakLf = 2 };

    CryptUtils();
    CryptUtils(const CryptUtils& other);
    CryptUtils& operator=(const CryptUtils& other);
    virtual ~CryptUtils();

    // Decodes standard-alphabet Base64 and appends the bytes to `out` (its
    // content stays in front); returns how many bytes were appended.
    // Characters outside the alphabet are skipped and the first "=" ends the
    // text. Throws ErrInvalidParameter for a null text, and ErrBase64Decoding
    // (appending nothing) when the text ends at its NUL in the middle of a
    // four-character group.
    static unsigned int Base64Decode(const char* text, qorstd::QorArray<unsigned char>& out);
    static unsigned int Base64Decode(const qorstd::QorString& text,
                                     qorstd::QorArray<unsigned char>& out);

    // Appends the padded Base64 form of `length` bytes to `out` and returns
    // how many characters were appended. Unless `lineBreak` is None, a
    // separator ("\r\n" or "\n") follows every 76 characters when more text
    // follows; the text never ends with one. Throws ErrInvalidParameter for
    // null or empty input.
    static unsigned int Base64Encode(const unsigned char* data, unsigned int length,
                                     qorstd::QorString& out, cptLineBreakType lineBreak);
    static unsigned int Base64Encode(const qorstd::QorArray<unsigned char>& data,
                                     qorstd::QorString& out, cptLineBreakType lineBreak);

    // Seconds since 1970-01-01 00:00:00 UTC.
    static std::int64_t GetCurrentTimeUTC();
};

}  // namespace TesseraLib
