// The own HTTP client's reading of a response over arbitrary bytes: the
// splitter, the status code and the header look-up. Whatever the bytes, the
// split either waits for more (-2) or gives a header that ends in its zero
// byte and a body that is exactly the rest; the header parts must never read
// past what they were given, and a value found always fits its buffer.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "x509/http/qor_http.h"

namespace {

void Check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string input(reinterpret_cast<const char*>(data), size);
    IoParam in{input.data(), static_cast<std::uint32_t>(input.size()), kIoMemory};
    IoParam header{nullptr, 0, kIoMemory};
    IoParam body{nullptr, 0, kIoMemory};
    const int split = QOR_HTTP_SplitData(&in, &header, &body);
    Check(split == 0 || split == -2);
    if (split != 0) {
        return 0;
    }
    const std::string head(static_cast<const char*>(header.data), header.length);
    const std::string rest(static_cast<const char*>(body.data), body.length);
    Check(!head.empty() && head.back() == '\0');
    Check(head.size() - 1 + 2 + rest.size() <= input.size());
    Check(input.compare(input.size() - rest.size(), rest.size(), rest) == 0);
    QOR_HTTP_GetCode(&header);
    for (const char* name : {"Content-Length", "Transfer-Encoding", "", "X"}) {
        char value[32];
        const int found = QOR_HTTP_GetHeaderItem(&header, name, value, sizeof(value));
        Check(found == 0 || found == -1);
        Check(std::memchr(value, '\0', sizeof(value)) != nullptr);
    }
    QOR_Param_MemFree(&header);
    QOR_Param_MemFree(&body);
    return 0;
}
