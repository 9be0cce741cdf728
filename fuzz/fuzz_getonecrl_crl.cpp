// The CRL-service client's answer body over arbitrary bytes: either exactly
// one DER CRL, kept byte for byte, or a CrlException — never a crash, leak
// or hang.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "CrlException.h"
#include "CrlResponse.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 1u << 20) {
        return 0;
    }
    try {
        const QorGetOneCrlLib::Crl crl(data, static_cast<unsigned int>(size));
        const qorstd::QorArray<unsigned char> der = crl.Export();
        if (der.GetSize() != size || std::memcmp(der.GetData(), data, size) != 0) {
            std::abort();  // an accepted CRL keeps its own bytes
        }
        QorGetOneCrlLib::CrlResponse response;
        response.SetCrl(crl);
        if (!response.HasCrl()) {
            std::abort();
        }
    } catch (const QorGetOneCrlLib::CrlException&) {
    }
    return 0;
}
