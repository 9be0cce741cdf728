#include "SoftHsmFixture.h"

#include <dlfcn.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

#include "TestServers.h"

namespace softhsm {

std::string Value(const char* file) {
    return tessera_test::ServerFile("softhsm", file);
}

std::wstring WideValue(const char* file) {
    const std::string text = Value(file);
    // The fixture writes ASCII paths and values.
    return std::wstring(text.begin(), text.end());
}

unsigned long SlotId() {
    return std::strtoul(Value("slot").c_str(), nullptr, 16);
}

void KeepEngineLibraryLoaded() {
    const std::string engine = Value("engine");
    if (!engine.empty()) {
        // Never closed: RTLD_NODELETE pins it for good anyway.
        dlopen(engine.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    }
}

std::vector<unsigned char> CertificateDer() {
    std::ifstream in(tessera_test::ServerDir("softhsm") + "/cert.der", std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in),
                                      std::istreambuf_iterator<char>());
}

}  // namespace softhsm
