// TspTimeStamp::Decode over arbitrary bytes: it must either accept a token
// (whose Encode then gives the same bytes back, and whose certificate
// encodes) or throw TspException — never crash, leak or hang.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "TspException.h"
#include "TspTimeStamp.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 1u << 20) {
        return 0;
    }
    QorTsp2Lib::TspTimeStamp stamp;
    try {
        stamp.Decode(data, static_cast<unsigned int>(size));
    } catch (const QorTsp2Lib::TspException&) {
        return 0;
    }
    for (int form : {0, 1}) {
        const QorTsp2Lib::TspArray<unsigned char> encoded = stamp.Encode(form);
        if (encoded.GetSize() != size || std::memcmp(encoded.GetData(), data, size) != 0) {
            std::abort();  // a decoded token must encode to its own bytes
        }
    }
    const QorTsp2Lib::TspTimeStamp copy(stamp);
    if (copy.GetTime() != stamp.GetTime()) {
        std::abort();
    }
    if (const QorTsp2Lib::TspCertificate* cert = stamp.GetTsaCertificate()) {
        try {
            (void)cert->Encode();
            (void)cert->GetHashAlgorithmName();
            (void)cert->GetSubjectText();
        } catch (const QorTsp2Lib::TspException&) {
        }
    }
    return 0;
}
