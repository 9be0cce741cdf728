// The reader side of the card store (internal): the resource-manager calls
// the store makes, behind a seam so that tests can put readers and cards in
// memory, and the records the store keeps while it discovers the card.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "QorArray.h"
#include "QorString.h"
#include "QorVector.h"

namespace TesseraLib {
namespace cardreaders {

// Results as the resource manager numbers them.
constexpr long kSuccess = 0;
constexpr long kNoService = 0x8010001D;           // no daemon to talk to
constexpr long kNoReadersAvailable = 0x8010002E;  // a daemon, but no reader
constexpr unsigned long kScopeUser = 0;
constexpr unsigned long kStateUnaware = 0;
constexpr unsigned long kStatePresent = 0x20;

using Context = std::intptr_t;

// One reader of a status query: the reader's name (UTF-8) and the state the
// caller knows go in, the event state and the card's ATR come back.
struct ReaderState {
    std::string reader;
    unsigned long currentState = kStateUnaware;
    unsigned long eventState = 0;
    std::vector<unsigned char> atr;
};

// The resource-manager operations the card store needs.
class ReaderService {
public:
    virtual ~ReaderService() = default;
    virtual long EstablishContext(unsigned long scope, Context& context) = 0;
    virtual long ReleaseContext(Context context) = 0;
    // The names of all readers, in the manager's order.
    virtual long ListReaders(Context context, std::vector<std::string>& readers) = 0;
    // Fills the event state and ATR of each record; `timeout` in milliseconds.
    virtual long GetStatusChange(Context context, unsigned long timeout,
                                 std::vector<ReaderState>& states) = 0;
};

// The service in use: pcsc-lite unless replaced.
ReaderService& Readers();
// Replaces the service (not owned); null goes back to pcsc-lite. For tests.
void SetReaders(ReaderService* replacement);

}  // namespace cardreaders

// One resource-manager context of user scope, held for the object's life;
// null when it could not be established.
class WinCard {
public:
    WinCard();
    WinCard(const WinCard&) = delete;
    WinCard& operator=(const WinCard&) = delete;
    virtual ~WinCard();

    cardreaders::Context GetContext() const { return m_context; }

private:
    cardreaders::Context m_context;
};

// A card type known for an ATR and its provider (empty when none is named).
struct WinCardParam {
    qorstd::QorStringW cardName;
    qorstd::QorStringW cspName;
};

// One reader: the card types known for its card's ATR, the ATR padded to 36
// bytes (empty when none was usable) and whether a card is present (0x20).
struct WinCardState {
    qorstd::QorStringW readerName;
    qorstd::QorVector<WinCardParam> cards;
    qorstd::QorArray<unsigned char> atr;
    std::uint32_t present = 0;
};

}  // namespace TesseraLib

namespace qorstd {
extern template class QorVector<TesseraLib::WinCardParam>;
extern template class QorVector<TesseraLib::WinCardState>;
}  // namespace qorstd
