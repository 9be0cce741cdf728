#include "QorTextConv.h"

#include <iconv.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <cwchar>
#include <memory>
#include <vector>

namespace qorstd {
namespace text {

const char* const kCharsetAscii = "ASCII";
const char* const kCharsetUtf8 = "UTF-8";
// glibc's iconv reads the empty name as the current locale's code set.
const char* const kCharsetProcess = "";

namespace {

const char* const kCharsetWide = "WCHAR_T";

struct IconvCloser {
    void operator()(iconv_t* cd) const {
        iconv_close(*cd);
        delete cd;
    }
};
using IconvPtr = std::unique_ptr<iconv_t, IconvCloser>;

IconvPtr OpenConverter(const char* to, const char* from) {
    iconv_t cd = iconv_open(to, from);
    if (cd == reinterpret_cast<iconv_t>(-1)) {
        return IconvPtr();
    }
    return IconvPtr(new iconv_t(cd));
}

// Converts `inBytes` bytes (terminator included) in one call; false when any
// character fails or the output does not fit.
bool Convert(const IconvPtr& cd, const char* in, std::size_t inBytes, char* out,
             std::size_t outBytes) {
    char* inPtr = const_cast<char*>(in);
    char* outPtr = out;
    std::size_t inLeft = inBytes;
    std::size_t outLeft = outBytes;
    if (iconv(*cd, &inPtr, &inLeft, &outPtr, &outLeft) == static_cast<std::size_t>(-1)) {
        return false;
    }
    return inLeft == 0;
}

}  // namespace

QorString WideToCharset(const wchar_t* text, const char* charset) {
    if (text == nullptr || *text == L'\0' || charset == nullptr) {
        return QorString();
    }
    IconvPtr cd = OpenConverter(charset, kCharsetWide);
    if (!cd) {
        return QorString();
    }
    const std::size_t inBytes = (std::wcslen(text) + 1) * sizeof(wchar_t);
    // Twice the wide size: room for the longest multibyte forms.
    std::vector<char> out(inBytes * 2, '\0');
    if (!Convert(cd, reinterpret_cast<const char*>(text), inBytes, out.data(), out.size())) {
        return QorString();
    }
    return QorString(out.data());
}

QorString WideToNarrow(const wchar_t* text, bool ascii) {
    return WideToCharset(text, ascii ? kCharsetAscii : kCharsetProcess);
}

QorStringW NarrowToWide(const char* text, unsigned int length, const char* charset) {
    if (text == nullptr || charset == nullptr) {
        return QorStringW();
    }
    const std::size_t textLength = length == 0 ? std::strlen(text) : length;
    if (textLength == 0) {
        return QorStringW();
    }
    IconvPtr cd = OpenConverter(kCharsetWide, charset);
    if (!cd) {
        return QorStringW();
    }
    // The given length need not end at a terminator: convert a terminated copy.
    std::vector<char> in(textLength + 1, '\0');
    std::memcpy(in.data(), text, textLength);
    std::vector<wchar_t> out(in.size() + 1, L'\0');
    if (!Convert(cd, in.data(), in.size(), reinterpret_cast<char*>(out.data()),
                 out.size() * sizeof(wchar_t))) {
        return QorStringW();
    }
    return QorStringW(out.data());
}

QorStringW FormatTime(std::int64_t time, const char* pattern, bool utc) {
    if (pattern == nullptr) {
        return QorStringW();
    }
    const std::time_t seconds = static_cast<std::time_t>(time);
    std::tm parts{};
    if ((utc ? gmtime_r(&seconds, &parts) : localtime_r(&seconds, &parts)) == nullptr) {
        return QorStringW();
    }
    char buffer[1000];
    const std::size_t written = std::strftime(buffer, sizeof(buffer), pattern, &parts);
    buffer[written] = '\0';
    return NarrowToWide(buffer, 0, kCharsetProcess);
}

}  // namespace text
}  // namespace qorstd
