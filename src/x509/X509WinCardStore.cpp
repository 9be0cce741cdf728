#include "X509WinCardStore.h"

#include <memory>
#include <vector>

#include "CryptException.h"
#include "CryptKey.h"
#include "Failure.h"
#include "LogChannel.h"
#include "OpenSslPtr.h"
#include "QorTextConv.h"
#include "SmartCardServices.h"
#include "x509/WinCard.h"

namespace qorstd {
template class QorVector<TesseraLib::WinCardParam>;
template class QorVector<TesseraLib::WinCardState>;
}  // namespace qorstd

namespace TesseraLib {

namespace {

const wchar_t kChannelName[] = L"X509WinCardStore";

// Card registries store ATRs at the resource manager's full length.
constexpr unsigned kAtrLength = 36;
// The card registry's provider value holds at most 512 bytes of UTF-16,
// terminator included.
constexpr unsigned kProviderValueBytes = 512;
// Provider names and container names come in buffers of these sizes.
constexpr unsigned kProviderNameBuffer = 260;
constexpr unsigned kContainerNameBuffer = 261;
// Certificates of card keys are read into a buffer of this size first.
constexpr unsigned long kCertificateBuffer = 8192;

constexpr unsigned long kKeyExchange = 1;  // AT_KEYEXCHANGE
constexpr unsigned long kSignature = 2;    // AT_SIGNATURE
constexpr unsigned long kProvRsaFull = 1;
constexpr unsigned long kProvRsaAes = 24;

const wchar_t kHalvernOldName[] = L"Q.OR Halvern v1.0";
const wchar_t kHalvernName[] = L"Q.OR Halvern CSP v1.0";
const wchar_t kVelmarkName[] = L"VelmarkCSP";
const wchar_t kDunrowName[] = L"Dunrow CSP";

using cardreaders::Readers;

// Releases a context established for one step.
class StepContext {
public:
    StepContext() : m_context(0) {
        if (Readers().EstablishContext(cardreaders::kScopeUser, m_context) !=
            cardreaders::kSuccess) {
            m_context = 0;
        }
    }
    StepContext(const StepContext&) = delete;
    StepContext& operator=(const StepContext&) = delete;
    ~StepContext() {
        if (m_context != 0) {
            Readers().ReleaseContext(m_context);
        }
    }
    cardreaders::Context Get() const { return m_context; }
    bool IsValid() const { return m_context != 0; }

private:
    cardreaders::Context m_context;
};

// One record per reader, in the manager's order; none → ErrNoCardReader.
qorstd::QorVector<WinCardState> ListReaderStates(const LogChannel& log) {
    std::vector<std::string> names;
    StepContext context;
    if (!context.IsValid() ||
        Readers().ListReaders(context.Get(), names) != cardreaders::kSuccess || names.empty()) {
        Fail(log, L"Open: No card reader found.", ErrNoCardReader);
    }
    qorstd::QorVector<WinCardState> states;
    for (const std::string& name : names) {
        WinCardState state;
        state.readerName = qorstd::text::NarrowToWide(name.c_str(), 0, qorstd::text::kCharsetUtf8);
        states.Add(state);
    }
    return states;
}

// The provider the card registry names for `cardName`; empty when none.
qorstd::QorStringW CardProviderName(CardDatabase& database, const qorstd::QorStringW& cardName) {
    qorstd::QorStringW value;
    if (database.GetCryptoProvider(cardName, value) != 1 ||
        (value.length() + 1) * 2 > kProviderValueBytes) {
        return qorstd::QorStringW();
    }
    // The value counts up to its terminating zero.
    qorstd::QorStringW provider(value.c_str());
    // Cards of the first Halvern series registered their provider under its
    // old name; the provider is installed under the new one.
    if (provider == kHalvernOldName) {
        provider = kHalvernName;
    }
    return provider;
}

// The card types known for the reader's ATR, each with its provider.
void ListCardsOfAtr(WinCardState& state) {
    CardDatabase* database = SmartCardServices::GetCardDatabase();
    qorstd::QorVector<qorstd::QorStringW> names;
    if (database == nullptr || database->ListCards(state.atr, names) != 1) {
        return;
    }
    for (unsigned i = 0; i < names.GetSize(); ++i) {
        state.cards.Add(WinCardParam{names.GetAt(i), CardProviderName(*database, names.GetAt(i))});
    }
}

// Presence, ATR and card types of each reader; no card anywhere →
// ErrCardNotInserted.
void ReadReaderStates(qorstd::QorVector<WinCardState>& states, const LogChannel& log) {
    bool anyPresent = false;
    {
        StepContext context;
        std::vector<cardreaders::ReaderState> records(states.GetSize());
        for (unsigned i = 0; i < states.GetSize(); ++i) {
            records[i].reader = qorstd::text::WideToCharset(states.GetAt(i).readerName.c_str(),
                                                            qorstd::text::kCharsetUtf8)
                                    .c_str();
        }
        if (context.IsValid() &&
            Readers().GetStatusChange(context.Get(), 0, records) == cardreaders::kSuccess) {
            for (unsigned i = 0; i < states.GetSize(); ++i) {
                WinCardState& state = states.GetAt(i);
                const std::vector<unsigned char>& atr = records[i].atr;
                state.present =
                    static_cast<std::uint32_t>(records[i].eventState & cardreaders::kStatePresent);
                TLOG_DEBUG(log, L"Open: reader %ls, card present: %u, ATR length: %u",
                           state.readerName.c_str(), state.present,
                           static_cast<unsigned>(atr.size()));
                if (state.present == 0) {
                    continue;
                }
                anyPresent = true;
                if (atr.empty() || atr.size() > kAtrLength) {
                    continue;
                }
                std::vector<unsigned char> padded(atr);
                padded.resize(kAtrLength, 0);
                state.atr.Append(padded.data(), kAtrLength);
                ListCardsOfAtr(state);
            }
        }
    }
    if (!anyPresent) {
        Fail(log, L"Open: No card inserted.", ErrCardNotInserted);
    }
}

}  // namespace

X509WinCardStore::X509WinCardStore() : m_log(std::make_unique<LogChannel>(kChannelName)) {}

X509WinCardStore::X509WinCardStore(const X509WinCardStore& other)
    : X509Store(other), m_log(std::make_unique<LogChannel>(kChannelName)) {
    if (other.m_provider) {
        Open();
    }
}

X509WinCardStore& X509WinCardStore::operator=(const X509WinCardStore& other) {
    if (this != &other) {
        X509Store::operator=(other);
        if (other.m_provider) {
            Open();
        } else {
            CloseProvider();
        }
    }
    return *this;
}

X509WinCardStore::~X509WinCardStore() {
    X509Store::FreeStore();
    Close();
}

void X509WinCardStore::FreeStore() {
    X509Store::FreeStore();
    Close();
}

void X509WinCardStore::Close() {
    CloseProvider();
}

void X509WinCardStore::CloseProvider() {
    m_provider.reset();
}

int X509WinCardStore::Open() {
    TLOG_INFO(m_log, L"Open");
    // The manager's context is held while the card is looked for.
    const WinCard managerContext;
    qorstd::QorVector<WinCardState> states = ListReaderStates(*m_log);
    ReadReaderStates(states, *m_log);

    for (unsigned i = 0; i < states.GetSize(); ++i) {
        const WinCardState& state = states.GetAt(i);
        if (state.present == 0) {
            continue;
        }
        for (unsigned j = 0; j < state.cards.GetSize(); ++j) {
            const WinCardParam& card = state.cards.GetAt(j);
            if (CheckCardProvider(card.cspName) == 0) {
                continue;
            }
            unsigned long type = 0;
            if (FindProviderType(card.cspName, type) == 0) {
                TLOG_WARNING(m_log, L"Open: Provider %ls of card %ls is not installed.",
                             card.cspName.c_str(), card.cardName.c_str());
                return 0;
            }
            TLOG_DEBUG(m_log, L"Open: card %ls in reader %ls, provider %ls (type %lu)",
                       card.cardName.c_str(), state.readerName.c_str(), card.cspName.c_str(), type);
            return OpenProvider(card.cspName, type);
        }
    }
    TLOG_INFO(m_log, L"Open: No card of a supported provider.");
    return 0;
}

int X509WinCardStore::OpenProvider(const qorstd::QorStringW& name, unsigned long type) {
    CloseProvider();
    if (name.empty()) {
        return 0;
    }
    CardProvider* provider = SmartCardServices::FindProvider(name, type);
    m_provider.reset(provider != nullptr ? provider->AcquireContext(nullptr) : nullptr);
    return m_provider ? 1 : 0;
}

int X509WinCardStore::FindProviderType(const qorstd::QorStringW& name, unsigned long& type) {
    if (CheckProviderType(name, kProvRsaFull) != 0) {
        type = kProvRsaFull;
        return 1;
    }
    if (CheckProviderType(name, kProvRsaAes) != 0) {
        type = kProvRsaAes;
        return 1;
    }
    return 0;
}

int X509WinCardStore::CheckProviderType(const qorstd::QorStringW& name, unsigned long type) {
    qorstd::QorStringW installed;
    unsigned long installedType = 0;
    for (unsigned long index = 0;
         SmartCardServices::EnumProviders(index, installed, installedType) != 0; ++index) {
        if ((type == 0 || installedType == type) && installed == name) {
            return 1;
        }
    }
    return 0;
}

int X509WinCardStore::CheckCardProvider(const qorstd::QorStringW& name) {
    return name == kVelmarkName || name == kDunrowName || name == kHalvernName ? 1 : 0;
}

int X509WinCardStore::SupportsTwoKeysInKeyContainer() const {
    if (!m_provider) {
        return 0;
    }
    const qorstd::QorStringW name = GetProviderName();
    if (name.empty()) {
        Fail(m_log, L"SupportsTwoKeysInKeyContainer: Provider name is empty.", ErrInternal);
    }
    return name == kHalvernOldName || name == kHalvernName || name == kDunrowName ? 0 : 1;
}

unsigned long X509WinCardStore::GetProviderType() const {
    if (!m_provider) {
        return 0;
    }
    unsigned long type = 0;
    if (m_provider->GetProviderType(type) != 1) {
        Fail(m_log, L"GetProviderType: Provider type cannot be read.", ErrInternal);
    }
    return type;
}

qorstd::QorStringW X509WinCardStore::GetProviderName() const {
    if (!m_provider) {
        return qorstd::QorStringW();
    }
    qorstd::QorString name;
    if (m_provider->GetProviderName(name) != 1 || name.length() >= kProviderNameBuffer) {
        Fail(m_log, L"GetProviderName: Provider name cannot be read.", ErrInternal);
    }
    return qorstd::text::NarrowToWide(name.c_str(), 0, qorstd::text::kCharsetProcess);
}

qorstd::QorVector<qorstd::QorStringW> X509WinCardStore::GetKeyContainers() const {
    qorstd::QorVector<qorstd::QorStringW> containers;
    if (!m_provider) {
        return containers;
    }
    for (int first = 1;; first = 0) {
        qorstd::QorString name;
        const CardProviderContext::cptCardResult result = m_provider->EnumContainers(first, name);
        if (result == CardProviderContext::cptCardNoMoreItems) {
            break;
        }
        // A name that does not fit the buffer fails the call as well.
        if (result != CardProviderContext::cptCardOk || name.length() >= kContainerNameBuffer) {
            Fail(m_log, L"GetKeyContainers: Key containers cannot be enumerated.", ErrInternal);
        }
        const qorstd::QorStringW wide =
            qorstd::text::NarrowToWide(name.c_str(), 0, qorstd::text::kCharsetProcess);
        if (wide.empty()) {
            Fail(m_log, L"GetKeyContainers: Container name does not convert.", ErrInternal);
        }
        containers.Add(wide);
    }
    return containers;
}

int X509WinCardStore::FindCertificate(const qorstd::QorStringW& container, unsigned long keySpec,
                                      X509Certificate& out, int withPrivateKey) const {
    const qorstd::QorStringW providerName = GetProviderName();
    if (providerName.empty()) {
        Fail(m_log, L"FindCertificate: Provider name is empty.", ErrInternal);
    }
    CardProvider* provider = SmartCardServices::FindProvider(providerName, GetProviderType());
    const std::unique_ptr<CardProviderContext> context(
        provider != nullptr ? provider->AcquireContext(container.c_str()) : nullptr);
    if (!context) {
        return 0;
    }
    std::vector<unsigned char> buffer(kCertificateBuffer, 0);
    unsigned long length = kCertificateBuffer;
    CardProviderContext::cptCardResult result =
        context->ReadCertificate(keySpec, buffer.data(), length);
    if (result == CardProviderContext::cptCardMoreData) {
        buffer.assign(length, 0);
        result = context->ReadCertificate(keySpec, buffer.data(), length);
    }
    if (result != CardProviderContext::cptCardOk || length == 0 || length > buffer.size()) {
        return 0;
    }
    out.Import(buffer.data(), static_cast<long>(length));
    if (withPrivateKey != 0) {
        EVP_PKEY* found = nullptr;
        FindPrivateKey(container, keySpec, &found);
        const qorssl::EvpPkeyPtr key(found);
        const std::unique_ptr<CryptKey> wrapped(CryptKey::CreateKey(key.get()));
        out.SetPrivateKey(wrapped.get());
    }
    return 1;
}

int X509WinCardStore::FindPrivateKey(const qorstd::QorStringW& container, unsigned long keySpec,
                                     EVP_PKEY** key) const {
    const qorstd::QorStringW providerName = GetProviderName();
    const unsigned long providerType = GetProviderType();
    // The provider is addressed by its 8-bit name, as key loaders know it.
    if (qorstd::text::WideToNarrow(providerName.c_str(), false).empty()) {
        Fail(m_log, L"FindPrivateKey: Provider name does not convert.", ErrInternal,
             L"Cannot set up engine.");
    }
    CardProvider* provider = SmartCardServices::FindProvider(providerName, providerType);
    if (provider == nullptr) {
        Fail(m_log, L"FindPrivateKey: No provider registered for the card.", ErrInternal,
             L"Cannot get engine.");
    }
    const qorstd::QorString containerName = qorstd::text::WideToNarrow(container.c_str(), false);
    EVP_PKEY* loaded = provider->LoadPrivateKey(containerName.c_str(), keySpec);
    if (loaded == nullptr) {
        Fail(m_log, L"FindPrivateKey: Private key cannot be loaded.", ErrPrivateKeyRead);
    }
    *key = loaded;
    return 1;
}

int X509WinCardStore::FindCertificate(X509Certificate& cert, int withPrivateKey) {
    if (!m_provider) {
        return 0;
    }
    const qorstd::QorVector<qorstd::QorStringW> containers = GetKeyContainers();
    for (unsigned i = 0; i < containers.GetSize(); ++i) {
        const qorstd::QorStringW& container = containers.GetAt(i);
        unsigned long keySpec = 0;
        X509Certificate exchange;
        if (FindCertificate(container, kKeyExchange, exchange, 0) == 1 &&
            exchange.Equals(cert) == 1) {
            keySpec = kKeyExchange;
        } else if (SupportsTwoKeysInKeyContainer() != 0) {
            X509Certificate signature;
            if (FindCertificate(container, kSignature, signature, 0) == 1 &&
                signature.Equals(cert) == 1) {
                keySpec = kSignature;
            }
        }
        if (keySpec == 0) {
            continue;
        }
        if (withPrivateKey != 0) {
            EVP_PKEY* found = nullptr;
            FindPrivateKey(container, keySpec, &found);
            const qorssl::EvpPkeyPtr key(found);
            const std::unique_ptr<CryptKey> wrapped(CryptKey::CreateKey(key.get()));
            cert.SetPrivateKey(wrapped.get());
        }
        return 1;
    }
    return 0;
}

qorstd::QorVector<X509Certificate> X509WinCardStore::GetCertificates() const {
    qorstd::QorVector<X509Certificate> certificates;
    if (!m_provider) {
        return certificates;
    }
    const qorstd::QorVector<qorstd::QorStringW> containers = GetKeyContainers();
    for (unsigned i = 0; i < containers.GetSize(); ++i) {
        X509Certificate exchange;
        if (FindCertificate(containers.GetAt(i), kKeyExchange, exchange, 0) == 1) {
            certificates.Add(exchange);
        }
        if (SupportsTwoKeysInKeyContainer() != 0) {
            X509Certificate signature;
            if (FindCertificate(containers.GetAt(i), kSignature, signature, 0) == 1) {
                certificates.Add(signature);
            }
        }
    }
    return certificates;
}

}  // namespace TesseraLib
