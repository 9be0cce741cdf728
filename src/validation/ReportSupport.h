// What the report classes share (internal): owned sub-objects and narrow
// text written into wide streams.
#pragma once

#include <memory>
#include <ostream>

namespace TesseraLib {
namespace reports {

// A setter that takes ownership: the held object goes unless it is the one
// given again (deleting it would leave the caller's pointer dangling).
template <class T>
void Adopt(std::unique_ptr<T>& held, T* given) {
    if (held.get() != given) {
        held.reset(given);
    }
}

// A deep copy through the object's own Clone; null stays null.
template <class T>
std::unique_ptr<T> CloneOf(const std::unique_ptr<T>& held) {
    return std::unique_ptr<T>(held ? held->Clone() : nullptr);
}

// Narrow texts (OIDs, reasons, asctime) widened byte by byte.
inline void WriteNarrow(std::basic_ostream<wchar_t>& os, const char* text) {
    for (const char* p = text; p != nullptr && *p != '\0'; ++p) {
        os.put(static_cast<wchar_t>(static_cast<unsigned char>(*p)));
    }
}

}  // namespace reports
}  // namespace TesseraLib
