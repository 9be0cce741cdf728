// Key import over arbitrary bytes: PEM with an 8-bit and a wide password, and
// PKCS#12, all with a fixed password. Each must either give a key that can be
// asked what it is, or throw CryptException leaving the object empty — never
// crash, leak or hang.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "CryptException.h"
#include "CryptKey.h"

namespace {

using TesseraLib::CryptKey;

class AnyKey : public CryptKey {
public:
    ~AnyKey() override { FreeKey(); }
    cptKeyType GetKeyType() const override { return cptKeyNone; }
};

template <class Import>
void Exercise(Import import) {
    AnyKey key;
    try {
        import(key);
    } catch (const TesseraLib::CryptException&) {
        if (key.GetKeyEVP() != nullptr) {
            std::abort();  // a refused input leaves nothing behind
        }
        return;
    }
    CryptKey* typed = CryptKey::CreateKey(key.GetKeyEVP());
    if (typed != nullptr) {
        (void)typed->GetKeyType();
        if (auto* rsa = dynamic_cast<TesseraLib::CryptKeyRSA*>(typed)) {
            (void)rsa->GetLength();
        }
    }
    delete typed;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0 || size > 1u << 16) {
        return 0;
    }
    Exercise([&](CryptKey& key) { key.ImportPEM(data, static_cast<int>(size), "fuzz"); });
    Exercise([&](CryptKey& key) { key.ImportPEM(data, static_cast<int>(size), L"fuzz"); });
    Exercise([&](CryptKey& key) { key.ImportPKCS12(data, static_cast<long>(size), "fuzz"); });
    return 0;
}
