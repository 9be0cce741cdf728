// Text conversions shared by the library family (not part of the public API).
//
// Conversions run through iconv with the wide encoding on one side. A
// conversion never returns a partial text: a converter that cannot be opened
// or any character that does not convert gives an empty result, so callers
// that must refuse such input test for "empty result from non-empty input".
#pragma once

#include <cstdint>

#include "QorString.h"

namespace qorstd {
namespace text {

// 8-bit character sets understood by the conversions. kCharsetProcess is the
// current locale's code set (what the C runtime calls "char").
extern const char* const kCharsetAscii;
extern const char* const kCharsetUtf8;
extern const char* const kCharsetProcess;

// Wide to 8-bit: ASCII when `ascii` is set, otherwise the process code set.
QorString WideToNarrow(const wchar_t* text, bool ascii);
// Wide to the named 8-bit character set.
QorString WideToCharset(const wchar_t* text, const char* charset);
// 8-bit to wide. `length` 0 means up to the terminator.
QorStringW NarrowToWide(const char* text, unsigned int length, const char* charset);
// `time` (seconds since 1970) formatted with a strftime pattern, in UTC or
// local time, widened from the process code set. Empty when the time cannot
// be broken down.
QorStringW FormatTime(std::int64_t time, const char* pattern, bool utc);

}  // namespace text
}  // namespace qorstd
