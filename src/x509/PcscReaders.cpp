// The card store's reader service over pcsc-lite.
#include <PCSC/winscard.h>

#include <cstring>

#include "x509/WinCard.h"

namespace TesseraLib {
namespace cardreaders {

namespace {

class PcscReaderService : public ReaderService {
public:
    long EstablishContext(unsigned long scope, Context& context) override {
        SCARDCONTEXT handle = 0;
        const LONG result = SCardEstablishContext(scope, nullptr, nullptr, &handle);
        context = result == SCARD_S_SUCCESS ? static_cast<Context>(handle) : 0;
        return result;
    }

    long ReleaseContext(Context context) override {
        return SCardReleaseContext(static_cast<SCARDCONTEXT>(context));
    }

    long ListReaders(Context context, std::vector<std::string>& readers) override {
        readers.clear();
        LPSTR list = nullptr;
        DWORD length = SCARD_AUTOALLOCATE;
        const LONG result = SCardListReaders(static_cast<SCARDCONTEXT>(context), nullptr,
                                             reinterpret_cast<LPSTR>(&list), &length);
        if (result != SCARD_S_SUCCESS) {
            return result;
        }
        // A sequence of zero-terminated names, ended by an empty one.
        for (const char* name = list; name != nullptr && *name != '\0';
             name += std::strlen(name) + 1) {
            readers.emplace_back(name);
        }
        SCardFreeMemory(static_cast<SCARDCONTEXT>(context), list);
        return result;
    }

    long GetStatusChange(Context context, unsigned long timeout,
                         std::vector<ReaderState>& states) override {
        std::vector<SCARD_READERSTATE> records(states.size());
        for (size_t i = 0; i < states.size(); ++i) {
            std::memset(&records[i], 0, sizeof(records[i]));
            records[i].szReader = states[i].reader.c_str();
            records[i].dwCurrentState = states[i].currentState;
        }
        const LONG result =
            SCardGetStatusChange(static_cast<SCARDCONTEXT>(context), timeout, records.data(),
                                 static_cast<DWORD>(records.size()));
        if (result != SCARD_S_SUCCESS) {
            return result;
        }
        for (size_t i = 0; i < states.size(); ++i) {
            states[i].eventState = records[i].dwEventState;
            const DWORD atrLength = records[i].cbAtr <= sizeof(records[i].rgbAtr)
                                        ? records[i].cbAtr
                                        : static_cast<DWORD>(sizeof(records[i].rgbAtr));
            states[i].atr.assign(records[i].rgbAtr, records[i].rgbAtr + atrLength);
        }
        return result;
    }
};

ReaderService* g_replacement = nullptr;

}  // namespace

ReaderService& Readers() {
    static PcscReaderService pcsc;
    return g_replacement != nullptr ? *g_replacement : pcsc;
}

void SetReaders(ReaderService* replacement) {
    g_replacement = replacement;
}

}  // namespace cardreaders

WinCard::WinCard() : m_context(0) {
    if (cardreaders::Readers().EstablishContext(cardreaders::kScopeUser, m_context) !=
        cardreaders::kSuccess) {
        m_context = 0;
    }
}

WinCard::~WinCard() {
    if (m_context != 0) {
        cardreaders::Readers().ReleaseContext(m_context);
    }
}

}  // namespace TesseraLib
