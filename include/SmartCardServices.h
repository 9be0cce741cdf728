// The smart-card services a card store reads through: the card database
// (which cards an ATR belongs to, and which provider serves each card) and
// the card providers (key containers, their certificates and private keys).
//
// Linux has no system-wide registry of card types and card providers, so an
// application registers its own implementations here. Nothing is registered
// by default: without a database no inserted card is recognised, and without
// providers no card is supported.
//
// Registration is process-wide and not locked, like the stores that read it:
// register and unregister from one thread before stores are opened, and keep
// the registered objects alive while they are registered.
#pragma once

#include "QorArray.h"
#include "QorString.h"
#include "QorVector.h"
#include "TesseraExport.h"

struct evp_pkey_st;

namespace TesseraLib {

// What the system knows about card types.
class TESSERA_API CardDatabase {
public:
    virtual ~CardDatabase();

    // Appends to `names` the card names known for `atr` (always 36 bytes:
    // shorter ATRs come padded with zero bytes). 1 on success, even when no
    // card is known; 0 when the look-up itself failed.
    virtual int ListCards(const qorstd::QorArray<unsigned char>& atr,
                          qorstd::QorVector<qorstd::QorStringW>& names) = 0;

    // The provider name recorded for the card `cardName` into `provider`.
    // 1 when one is recorded, else 0. A name is used up to its first zero
    // character; a record longer than 255 characters (more than the 512
    // bytes of UTF-16 the card registry has room for) is ignored.
    virtual int GetCryptoProvider(const qorstd::QorStringW& cardName,
                                  qorstd::QorStringW& provider) = 0;
};

// One open session with a card provider: for the provider as a whole (no
// key container; used to enumerate the containers) or for one container.
// Deleting it releases the session.
class TESSERA_API CardProviderContext {
public:
    // Outcomes of the reading calls, numbered as their platform errors.
    enum cptCardResult {
        cptCardOk = 0,
        cptCardFailed = 1,
        cptCardMoreData = 234,     // the buffer is too small; the length needed is given back
        cptCardNoMoreItems = 259,  // the enumeration has ended
    };

    virtual ~CardProviderContext();

    // The provider's name, 8-bit text in the process's code set, at most 259
    // bytes. 1 on success, else 0.
    virtual int GetProviderName(qorstd::QorString& name) const = 0;
    // The provider's type (1 RSA full, 24 RSA with AES, ...). 1 on success.
    virtual int GetProviderType(unsigned long& type) const = 0;

    // The key containers one at a time: `first` 1 starts over, 0 goes on.
    // cptCardOk with the next container's name (8-bit, at most 260 bytes),
    // cptCardNoMoreItems after the last one, anything else on failure.
    virtual cptCardResult EnumContainers(int first, qorstd::QorString& name) = 0;

    // The DER certificate stored with key `keySpec` (1 key exchange, 2
    // signature) of this context's container, written to `buffer` of
    // `length` bytes. cptCardOk with `length` set to the certificate's size;
    // cptCardMoreData with `length` set to the size needed; anything else
    // when there is no such key or no certificate with it.
    virtual cptCardResult ReadCertificate(unsigned long keySpec, unsigned char* buffer,
                                          unsigned long& length) = 0;
};

// One card provider.
class TESSERA_API CardProvider {
public:
    virtual ~CardProvider();

    // A new session owned by the caller: for the provider as a whole when
    // `container` is null, else for that key container. Null when the
    // provider cannot be reached (no card, unknown container).
    virtual CardProviderContext* AcquireContext(const wchar_t* container) = 0;

    // The private key of container `container` (8-bit name) and key
    // `keySpec` as an OpenSSL key whose operations run on the card; the
    // caller owns the returned reference. Null when there is no such key.
    virtual evp_pkey_st* LoadPrivateKey(const char* container, unsigned long keySpec) = 0;
};

// The process-wide registrations. Nothing is owned.
class TESSERA_API SmartCardServices {
public:
    // The card database; null removes it.
    static void SetCardDatabase(CardDatabase* database);
    static CardDatabase* GetCardDatabase();

    // Installs `provider` under `name` and `type`, at the end of the
    // enumeration order; a provider already registered under `name` is
    // replaced in place. A null provider or an empty name is refused with
    // ErrInvalidParameter.
    static void RegisterProvider(const qorstd::QorStringW& name, unsigned long type,
                                 CardProvider* provider);
    // Removes the provider registered under `name`, if any.
    static void UnregisterProvider(const qorstd::QorStringW& name);
    // Removes the database and every provider.
    static void UnregisterAll();

    // The installed providers by index, in registration order: 1 with the
    // name and type of provider `index`, 0 past the last one.
    static int EnumProviders(unsigned long index, qorstd::QorStringW& name, unsigned long& type);
    // The provider registered under `name` with type `type`; null when none.
    static CardProvider* FindProvider(const qorstd::QorStringW& name, unsigned long type);
};

}  // namespace TesseraLib
