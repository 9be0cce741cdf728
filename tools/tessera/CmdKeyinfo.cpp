// tessera keyinfo KEYFILE [--password P]
//
// Reads a private key from a PEM file (traditional or PKCS#8, encrypted or
// not) or, failing that, from a DER PKCS#12 file, and prints its kind and,
// for RSA, the modulus length.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Cli.h"
#include "CryptException.h"
#include "CryptKey.h"

namespace tessera_cli {

namespace {

using TesseraLib::CryptException;
using TesseraLib::CryptKey;

// Imports through the base class, so the key's kind is decided afterwards.
class LoadedKey : public CryptKey {
public:
    ~LoadedKey() override { FreeKey(); }
    cptKeyType GetKeyType() const override { return cptKeyNone; }
};

const char* KeyTypeName(CryptKey::cptKeyType type) {
    switch (type) {
        case CryptKey::cptKeyRsaPublic:
            return "cptKeyRsaPublic";
        case CryptKey::cptKeyRsaPrivate:
            return "cptKeyRsaPrivate";
        case CryptKey::cptKeyRsaPublicPrivate:
            return "cptKeyRsaPublicPrivate";
        case CryptKey::cptKeyEcPublic:
            return "cptKeyEcPublic";
        case CryptKey::cptKeyEcPrivate:
            return "cptKeyEcPrivate";
        case CryptKey::cptKeyEcPublicPrivate:
            return "cptKeyEcPublicPrivate";
        default:
            return "cptKeyNone";
    }
}

}  // namespace

int RunKeyinfo(const std::vector<std::string>& args) {
    const Arguments parsed = ParseArguments("keyinfo", args, {"--password"});
    if (!parsed.error.empty()) {
        return UsageError(parsed.error);
    }
    if (parsed.positional.size() != 1) {
        return UsageError("keyinfo: exactly one KEYFILE is required");
    }
    const std::string& path = parsed.positional[0];
    std::vector<unsigned char> bytes;
    if (!ReadFile(path, &bytes) || bytes.empty()) {
        std::fprintf(stderr, "tessera keyinfo: cannot read %s\n", path.c_str());
        return kExitFailure;
    }
    const bool withPassword = parsed.options.count("--password") != 0;
    const std::string password = parsed.Get("--password");
    const char* pass = withPassword ? password.c_str() : nullptr;

    LoadedKey key;
    try {
        key.ImportPEM(bytes.data(), static_cast<int>(bytes.size()), pass);
    } catch (const CryptException& pemError) {
        if (pemError.GetErrorCode() != TesseraLib::ErrPrivateKeyRead) {
            throw;
        }
        try {
            key.ImportPKCS12(bytes.data(), static_cast<long>(bytes.size()), pass);
        } catch (const CryptException& pkcs12Error) {
            // Not PKCS#12 either: what the PEM reader said is the better answer.
            if (pkcs12Error.GetErrorCode() == TesseraLib::ErrPkcs12Decoding) {
                throw pemError;
            }
            throw;
        }
    }

    const std::unique_ptr<CryptKey> typed(CryptKey::CreateKey(key.GetKeyEVP()));
    if (!typed) {
        std::fprintf(stderr, "tessera keyinfo: %s holds neither an RSA nor an EC key\n",
                     path.c_str());
        return kExitFailure;
    }
    std::printf("type:    %s\n", KeyTypeName(typed->GetKeyType()));
    if (const auto* rsa = dynamic_cast<const TesseraLib::CryptKeyRSA*>(typed.get())) {
        std::printf("modulus: %d bits (%d bytes)\n", rsa->GetLength() * 8, rsa->GetLength());
    }
    return kExitOk;
}

}  // namespace tessera_cli
