#include "SmartCardServices.h"

#include <vector>

#include "CryptException.h"
#include "Failure.h"

namespace TesseraLib {

namespace {

struct RegisteredProvider {
    qorstd::QorStringW name;
    unsigned long type;
    CardProvider* provider;
};

// Unlocked on purpose: registrations are made before stores are used, as
// the rest of the library's process-wide set-up is.
struct Registrations {
    CardDatabase* database = nullptr;
    std::vector<RegisteredProvider> providers;
};

Registrations& Registered() {
    static Registrations registrations;
    return registrations;
}

}  // namespace

CardDatabase::~CardDatabase() = default;
CardProviderContext::~CardProviderContext() = default;
CardProvider::~CardProvider() = default;

void SmartCardServices::SetCardDatabase(CardDatabase* database) {
    Registered().database = database;
}

CardDatabase* SmartCardServices::GetCardDatabase() {
    return Registered().database;
}

void SmartCardServices::RegisterProvider(const qorstd::QorStringW& name, unsigned long type,
                                         CardProvider* provider) {
    if (provider == nullptr) {
        Fail(ErrInvalidParameter, L"provider=NULL");
    }
    if (name.empty()) {
        Fail(ErrInvalidParameter, L"name=empty");
    }
    for (RegisteredProvider& entry : Registered().providers) {
        if (entry.name == name) {
            entry.type = type;
            entry.provider = provider;
            return;
        }
    }
    Registered().providers.push_back(RegisteredProvider{name, type, provider});
}

void SmartCardServices::UnregisterProvider(const qorstd::QorStringW& name) {
    std::vector<RegisteredProvider>& providers = Registered().providers;
    for (auto entry = providers.begin(); entry != providers.end(); ++entry) {
        if (entry->name == name) {
            providers.erase(entry);
            return;
        }
    }
}

void SmartCardServices::UnregisterAll() {
    Registered().database = nullptr;
    Registered().providers.clear();
}

int SmartCardServices::EnumProviders(unsigned long index, qorstd::QorStringW& name,
                                     unsigned long& type) {
    const std::vector<RegisteredProvider>& providers = Registered().providers;
    if (index >= providers.size()) {
        return 0;
    }
    name = providers[index].name;
    type = providers[index].type;
    return 1;
}

CardProvider* SmartCardServices::FindProvider(const qorstd::QorStringW& name, unsigned long type) {
    for (const RegisteredProvider& entry : Registered().providers) {
        if (entry.name == name && entry.type == type) {
            return entry.provider;
        }
    }
    return nullptr;
}

}  // namespace TesseraLib
