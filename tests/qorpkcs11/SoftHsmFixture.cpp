#include "SoftHsmFixture.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

#include "TestServers.h"

namespace softhsm {

const wchar_t kModule[] = L"/usr/lib/softhsm/libsofthsm2.so";
const wchar_t kEngine[] = L"/usr/lib/x86_64-linux-gnu/engines-3/libpkcs11.so";

namespace {

std::string Narrow(const wchar_t* text) {
    const std::wstring wide(text);
    return std::string(wide.begin(), wide.end());
}

}  // namespace

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
    std::string engine = Value("engine");
    if (engine.empty()) {
        engine = Narrow(kEngine);
    }
    // Never closed: RTLD_NODELETE pins it for good anyway.
    dlopen(engine.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
}

std::vector<unsigned char> CertificateDer() {
    std::ifstream in(tessera_test::ServerDir("softhsm") + "/cert.der", std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in),
                                      std::istreambuf_iterator<char>());
}

OwnTokens::OwnTokens() {
    const char* previous = std::getenv("SOFTHSM2_CONF");
    m_hadPrevious = previous != nullptr;
    m_previous = m_hadPrevious ? previous : "";
    mkdir(m_dir.Path("tokens").c_str(), 0700);
    m_dir.Write("softhsm2.conf", "directories.tokendir = " + m_dir.Path("tokens") +
                                     "\nobjectstore.backend = file\nlog.level = ERROR\n"
                                     "slots.removable = false\n");
    setenv("SOFTHSM2_CONF", m_dir.Path("softhsm2.conf").c_str(), 1);
}

OwnTokens::~OwnTokens() {
    if (m_hadPrevious) {
        setenv("SOFTHSM2_CONF", m_previous.c_str(), 1);
    } else {
        unsetenv("SOFTHSM2_CONF");
    }
}

bool OwnTokens::Run(const std::string& command) {
    const std::string full =
        "cd '" + m_dir.Path("") + "' && timeout 30 " + command + " >run.log 2>&1";
    const bool ran = std::system(full.c_str()) == 0;
    if (!ran) {
        std::ifstream log(m_dir.Path("run.log"));
        ADD_FAILURE() << command << " failed: "
                      << std::string(std::istreambuf_iterator<char>(log),
                                     std::istreambuf_iterator<char>());
    }
    return ran;
}

unsigned long OwnTokens::AddToken(const std::string& label) {
    if (!Run("softhsm2-util --init-token --free --label " + label + " --pin " + Pin() +
             " --so-pin 12345678")) {
        return 0;
    }
    std::ifstream log(m_dir.Path("run.log"));
    const std::string text{std::istreambuf_iterator<char>(log), std::istreambuf_iterator<char>()};
    const std::string marker = "reassigned to slot ";
    const std::size_t at = text.find(marker);
    return at == std::string::npos ? 0
                                   : std::strtoul(text.c_str() + at + marker.size(), nullptr, 10);
}

void OwnTokens::AddCertificate(const std::string& label, X509* cert, EVP_PKEY* key,
                               const std::string& idHex) {
    m_dir.Write("object.der", tessera_test::CertToDer(cert));
    if (key != nullptr) {
        m_dir.Write("object.key", tessera_test::KeyToPem(key));
        Run("softhsm2-util --import object.key --token " + label + " --label key-" + idHex +
            " --id " + idHex + " --pin " + Pin());
    }
    Run("pkcs11-tool --module " + Narrow(kModule) + " --token-label " + label + " --login --pin " +
        Pin() + " --write-object object.der --type cert --id " + idHex + " --label cert-" + idHex);
}

}  // namespace softhsm
