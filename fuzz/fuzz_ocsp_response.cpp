// OcspResponse::Decode over arbitrary bytes: it must either accept a response
// (which then encodes to its own bytes and can be asked everything) or throw
// OcspException — never crash, leak or hang.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "OcspResponse.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 1u << 20) {
        return 0;
    }
    QorOcsp2Lib::OcspResponse response;
    try {
        response.Decode(data, size);
    } catch (const QorOcsp2Lib::OcspException&) {
        if (!response.IsEmpty()) {
            std::abort();  // a refused input leaves nothing behind
        }
        return 0;
    }
    const qorstd::QorArray<unsigned char> encoded = response.Encode();
    if (encoded.GetSize() != size || std::memcmp(encoded.GetData(), data, size) != 0) {
        std::abort();  // a decoded response keeps its own bytes
    }
    const QorOcsp2Lib::OcspResponse copy(response);
    if (!(copy == response) ||
        copy.GetSingleResponses().GetSize() != response.GetSingleResponses().GetSize()) {
        std::abort();
    }
    (void)response.GetBasicResponse();
    (void)response.GetStatusString();
    (void)response.GetSHA1HashHex();
    QorOcsp2Lib::OcspVector<QorOcsp2Lib::OcspCertificate> trusted(response.GetCertificates());
    try {
        response.Verify(&trusted);  // self-signed garbage may even verify; it must not crash
    } catch (const QorOcsp2Lib::OcspException&) {
    }
    return 0;
}
