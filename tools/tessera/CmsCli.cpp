#include "CmsCli.h"

#include <dlfcn.h>
#include <openssl/engine.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

#include "ChainCli.h"
#include "CryptException.h"
#include "CryptHash.h"
#include "CryptKey.h"
#include "Pkcs11Manager.h"
#include "StoreCli.h"
#include "TesseraApi.h"

namespace tessera_cli {

namespace {

using TesseraLib::CryptException;
using TesseraLib::CryptKey;
using TesseraLib::SignerCms;
using TesseraLib::X509Certificate;
using TesseraLib::X509MemoryStore;

// The engine "pkcs11" of Debian's libengine-pkcs11-openssl.
const wchar_t kEngineLibrary[] = L"/usr/lib/x86_64-linux-gnu/engines-3/libpkcs11.so";

// PKCS #11 return values that the engine queues as error reasons.
constexpr int kCkrPinIncorrect = 0xA0;
constexpr int kCkrPinLocked = 0xA4;

// Imports through the base class, so the key's kind is decided afterwards.
class LoadedKey : public CryptKey {
public:
    ~LoadedKey() override { FreeKey(); }
    cptKeyType GetKeyType() const override { return cptKeyNone; }
};

// Hands `key` (an OpenSSL key of whatever origin) to the certificate.
void AttachKey(EVP_PKEY* key, X509Certificate* cert) {
    const std::unique_ptr<CryptKey> typed(CryptKey::CreateKey(key));
    if (!typed) {
        CryptException::Throw(TesseraLib::ErrPrivateKeyRead,
                              qorstd::QorStringW(L"neither an RSA nor an EC key"));
    }
    cert->SetPrivateKey(typed.get());
}

// "slot_<hex>-id_<hex>" with the slot in decimal, as the engine reads it;
// empty when the identifier has another form.
std::string EngineKeyId(const std::string& keyId) {
    const std::string slotPrefix = "slot_";
    const std::size_t separator = keyId.find("-id_");
    if (keyId.compare(0, slotPrefix.size(), slotPrefix) != 0 || separator == std::string::npos) {
        return std::string();
    }
    const std::string slot = keyId.substr(slotPrefix.size(), separator - slotPrefix.size());
    const std::string id = keyId.substr(separator + 4);
    std::vector<unsigned char> idBytes;
    if (slot.empty() || slot.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos ||
        !ParseHex(id, &idBytes)) {
        return std::string();
    }
    errno = 0;
    const unsigned long slotId = std::strtoul(slot.c_str(), nullptr, 16);
    if (errno == ERANGE) {
        return std::string();
    }
    return slotPrefix + std::to_string(slotId) + "-id_" + id;
}

// The code of a failed token key load: the engine queues the PKCS #11 return
// value as the reason of an error of its own run-time numbered library.
int TokenLoadFailure() {
    int code = TesseraLib::ErrPrivateKeyRead;
    for (unsigned long error = ERR_get_error(); error != 0; error = ERR_get_error()) {
        if (code == TesseraLib::ErrPrivateKeyRead && ERR_GET_LIB(error) >= ERR_LIB_USER) {
            if (ERR_GET_REASON(error) == kCkrPinIncorrect) {
                code = TesseraLib::ErrWrongPin;
            } else if (ERR_GET_REASON(error) == kCkrPinLocked) {
                code = TesseraLib::ErrPinBlocked;
            }
        }
    }
    return code;
}

// Loads key `keyId` of the token behind `module` with `pin`.
int LoadTokenKey(const std::string& command, const Arguments& parsed, SignerSetup* setup,
                 X509Certificate* cert) {
    const std::string module = parsed.Get("--pkcs11");
    const std::string keyId = parsed.Get("--key-id");
    if (keyId.empty() || parsed.options.count("--pin") == 0) {
        return UsageError(command + ": --pkcs11 needs --key-id slot_X-id_Y and --pin");
    }
    const std::string engineKeyId = EngineKeyId(keyId);
    if (engineKeyId.empty()) {
        return UsageError(command + ": --key-id must read slot_<hex>-id_<hex>");
    }
    const std::string pin = parsed.Get("--pin");
    if (!StartPkcs11(command, module, &pin)) {
        return kExitFailure;
    }
    setup->pkcs11 = true;
    std::unique_ptr<ENGINE, decltype(&ENGINE_free)> engine(
        TesseraLib::Pkcs11Manager::GetInstance().GetEngine(), ENGINE_free);
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(
        ENGINE_load_private_key(engine.get(), engineKeyId.c_str(), nullptr, nullptr),
        EVP_PKEY_free);
    if (!key) {
        const std::wstring message = L"token key " + std::wstring(keyId.begin(), keyId.end());
        CryptException::Throw(TokenLoadFailure(), qorstd::QorStringW(message.c_str()));
    }
    AttachKey(key.get(), cert);
    return kExitOk;
}

SignerCms::cptIncludeOption IncludeOption(const std::string& name, bool* known) {
    *known = true;
    if (name == "none") {
        return SignerCms::cptIncludeNone;
    }
    if (name == "chain") {
        return SignerCms::cptIncludeChainWithoutRoot;
    }
    if (name == "whole") {
        return SignerCms::cptIncludeWholeChain;
    }
    *known = name == "signer";
    return SignerCms::cptIncludeSignerCertificate;
}

}  // namespace

bool StartPkcs11(const std::string& command, const std::string& module, const std::string* pin) {
    const std::wstring modulePath(module.begin(), module.end());
    if (Tessera_InitializePkcs11(modulePath.c_str(), kEngineLibrary) != 1) {
        std::fprintf(stderr, "tessera %s: cannot load the PKCS#11 module %s\n", command.c_str(),
                     module.c_str());
        return false;
    }
    // libp11 allocates method tables it never frees; with its library kept
    // mapped until the tool exits they stay reachable instead of leaking
    // when the engine is unloaded.
    const std::wstring engineFile(kEngineLibrary);
    dlopen(std::string(engineFile.begin(), engineFile.end()).c_str(),
           RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
    std::unique_ptr<ENGINE, decltype(&ENGINE_free)> engine(
        TesseraLib::Pkcs11Manager::GetInstance().GetEngine(), ENGINE_free);
    if (!engine ||
        (pin != nullptr && ENGINE_ctrl_cmd_string(engine.get(), "PIN", pin->c_str(), 0) != 1)) {
        Tessera_UninitializePkcs11();
        std::fprintf(stderr, "tessera %s: the engine pkcs11 is not available\n", command.c_str());
        return false;
    }
    return true;
}

const std::set<std::string>& SignerOptions() {
    static const std::set<std::string> options = {
        "--cert",    "--key",   "--password", "--p12",  "--pkcs11",    "--key-id", "--pin",
        "--include", "--trust", "--extra",    "--hash", "--store-dir", "--subject"};
    return options;
}

SignerSetup::~SignerSetup() {
    // The token's key goes before the engine that made it.
    signer.Reset();
    if (pkcs11) {
        Tessera_UninitializePkcs11();
    }
}

int LoadSigner(const std::string& command, const Arguments& parsed, bool noAttributes,
               SignerSetup* setup) {
    const bool fromKey = parsed.options.count("--key") != 0;
    const bool fromP12 = parsed.options.count("--p12") != 0;
    const bool fromToken = parsed.options.count("--pkcs11") != 0;
    const bool fromDirectory = parsed.options.count("--store-dir") != 0;
    const bool bySubject = parsed.options.count("--subject") != 0;
    if (fromKey + fromP12 + fromToken + fromDirectory != 1) {
        return UsageError(command + ": give exactly one of --key, --p12, --pkcs11 and --store-dir");
    }
    if (bySubject != (fromDirectory || (fromToken && parsed.options.count("--key-id") == 0))) {
        return UsageError(command +
                          ": --subject picks the signer of --store-dir or --pkcs11 "
                          "(without --key-id), and they need it");
    }
    if (bySubject && parsed.options.count("--cert") != 0) {
        return UsageError(command + ": --subject picks the certificate; leave out --cert");
    }
    if (parsed.options.count("--cert") == 0 && !fromP12 && !bySubject) {
        return UsageError(command + ": --cert is required");
    }
    bool knownInclude = false;
    const SignerCms::cptIncludeOption include =
        IncludeOption(parsed.Get("--include", "signer"), &knownInclude);
    if (!knownInclude) {
        return UsageError(command + ": --include takes none, signer, chain or whole");
    }
    const bool withTrust = parsed.options.count("--trust") != 0;
    const bool withChain = include == SignerCms::cptIncludeChainWithoutRoot ||
                           include == SignerCms::cptIncludeWholeChain;
    const char* const noAnchor =
        ": --include chain and whole need --trust, or a self-signed CA certificate in --p12 or "
        "--extra";
    if (withChain && !withTrust && !fromP12 && parsed.options.count("--extra") == 0) {
        return UsageError(command + noAnchor);
    }
    const std::string hash = parsed.Get("--hash");
    if (!hash.empty() && hash != "sha1" && hash != "sha256" && hash != "sha384" &&
        hash != "sha512") {
        return UsageError(command + ": --hash takes sha1, sha256, sha384 or sha512");
    }

    X509Certificate cert;
    if (parsed.options.count("--cert") != 0) {
        std::vector<X509Certificate> certs;
        if (!ReadCertificateFile(command, parsed.Get("--cert"), &certs)) {
            return kExitFailure;
        }
        cert = certs.front();
    }
    const bool withPassword = parsed.options.count("--password") != 0;
    const std::string password = parsed.Get("--password");
    const char* pass = withPassword ? password.c_str() : nullptr;
    std::vector<unsigned char> bytes;
    if (fromKey) {
        if (!ReadInputFile(command, parsed.Get("--key"), &bytes)) {
            return kExitFailure;
        }
        LoadedKey key;
        key.ImportPEM(bytes.data(), static_cast<int>(bytes.size()), pass);
        AttachKey(key.GetKeyEVP(), &cert);
    } else if (fromP12) {
        if (!ReadInputFile(command, parsed.Get("--p12"), &bytes)) {
            return kExitFailure;
        }
        // One decoding (the password's key derivation is the slow part): the
        // store lists the signer's certificate first, with its key, then the
        // CA certificates the file carries beside it.
        const X509MemoryStore p12(bytes.data(), static_cast<long>(bytes.size()), pass);
        const qorstd::QorVector<X509Certificate>& bundled = p12.GetCertificateList();
        if (bundled.GetSize() == 0) {
            CryptException::Throw(TesseraLib::ErrPkcs12Parsing, L"");
        }
        if (cert.GetX509() == nullptr) {
            cert = bundled[0];
        } else {
            cert.SetPrivateKey(bundled[0].GetPrivateKey());
        }
        for (unsigned int i = 1; i < bundled.GetSize(); ++i) {
            setup->extraStore.AddCertificate(bundled[i]);
        }
    } else if (bySubject) {
        const int status = LoadStoreSigner(command, parsed, &setup->pkcs11, &cert);
        if (status != kExitOk) {
            return status;
        }
    } else {
        const int status = LoadTokenKey(command, parsed, setup, &cert);
        if (status != kExitOk) {
            return status;
        }
    }

    for (const auto& [option, store] : {std::make_pair("--trust", &setup->trustStore),
                                        std::make_pair("--extra", &setup->extraStore)}) {
        const auto paths = parsed.options.find(option);
        if (paths == parsed.options.end()) {
            continue;
        }
        for (const std::string& path : paths->second) {
            std::vector<X509Certificate> certs;
            if (!ReadCertificateFile(command, path, &certs)) {
                return kExitFailure;
            }
            for (const X509Certificate& one : certs) {
                store->AddCertificate(one);
            }
        }
    }
    if (withChain && !withTrust) {
        // The self-signed CA certificates handed over end the path. Nothing
        // is trusted by that: the path only decides which certificates the
        // signature carries, and whoever verifies it chooses the anchors.
        const qorstd::QorVector<X509Certificate>& extra = setup->extraStore.GetCertificateList();
        for (unsigned int i = 0; i < extra.GetSize(); ++i) {
            if (extra[i].IsSelfSigned() == 1) {
                setup->trustStore.AddCertificate(extra[i]);
            }
        }
        if (setup->trustStore.GetCertificateList().GetSize() == 0) {
            return UsageError(command + noAnchor);
        }
    }
    if (withTrust || withChain) {
        setup->signer.SetTrustStore(&setup->trustStore);
    }
    if (setup->extraStore.GetCertificateList().GetSize() != 0) {
        setup->signer.SetExtraStore(&setup->extraStore);
    }
    setup->signer.SetCertificate(cert);
    setup->signer.SetIncludeOption(include);
    setup->signer.SetAttributeOption(noAttributes ? SignerCms::cptAttributeNone
                                                  : SignerCms::cptAttributeDefault);
    if (!hash.empty()) {
        setup->signer.SetHashAlgorithm(TesseraLib::CryptHash::GetHashAlgorithmByName(hash.c_str()));
    }
    return kExitOk;
}

QorTsp2Lib::TspClient TspClientFor(const std::string& url) {
    return QorTsp2Lib::TspClient(std::wstring(url.begin(), url.end()).c_str());
}

bool ParseHex(const std::string& text, std::vector<unsigned char>* bytes) {
    if (text.empty() || text.size() % 2 != 0 ||
        text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        return false;
    }
    bytes->clear();
    for (std::size_t i = 0; i < text.size(); i += 2) {
        bytes->push_back(static_cast<unsigned char>(std::stoul(text.substr(i, 2), nullptr, 16)));
    }
    return true;
}

std::vector<unsigned char> SignatureDer(const std::vector<unsigned char>& bytes) {
    if (IsPem(bytes)) {
        const std::string text(bytes.begin(), bytes.end());
        for (const char* label : {"CMS", "PKCS7"}) {
            const auto blocks = PemBlocks(text, label);
            if (!blocks.empty()) {
                return blocks.front();
            }
        }
    }
    return bytes;
}

bool ReadSignatureFile(const std::string& command, const std::string& path,
                       std::vector<unsigned char>* der) {
    std::vector<unsigned char> bytes;
    if (!ReadInputFile(command, path, &bytes)) {
        return false;
    }
    *der = SignatureDer(bytes);
    return true;
}

bool WriteMessage(const std::string& command, const std::string& path,
                  const std::vector<unsigned char>& der, bool pem) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    bool written = file != nullptr;
    if (written) {
        written = pem ? PEM_write(file, "CMS", "", der.data(), static_cast<long>(der.size())) > 0
                      : std::fwrite(der.data(), 1, der.size(), file) == der.size();
        written = std::fclose(file) == 0 && written;
    }
    if (!written) {
        std::fprintf(stderr, "tessera %s: cannot write %s\n", command.c_str(), path.c_str());
    }
    return written;
}

}  // namespace tessera_cli
