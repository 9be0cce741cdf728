// The certificates of the smart card in a reader, read through the card's
// provider, with their private keys on request (the keys stay on the card).
#pragma once

#include <memory>

#include "QorString.h"
#include "QorVector.h"
#include "TesseraExport.h"
#include "X509Certificate.h"
#include "X509Store.h"

struct evp_pkey_st;

namespace TesseraLib {

class CardProviderContext;
class LogChannel;

// Readers and card presence come from pcsc-lite; card types, providers,
// containers and keys from what the application registered with
// SmartCardServices (SmartCardServices.h). Not locked: one thread at a time.
class TESSERA_API X509WinCardStore : public X509Store {
public:
    X509WinCardStore();
    // A copy of an open store opens anew (a fresh discovery of the card,
    // which may throw as Open does); a copy of a closed one stays closed.
    X509WinCardStore(const X509WinCardStore& other);
    X509WinCardStore& operator=(const X509WinCardStore& other);
    ~X509WinCardStore() override;

    // Finds the inserted card of a supported provider (the first in reader
    // order) and opens its provider. 1 when the provider was opened; 0 when
    // no card of a supported provider was found or its provider could not be
    // opened. No reader → ErrNoCardReader; readers, but no card in any →
    // ErrCardNotInserted.
    int Open();
    void Close();

    // 0 when closed; ErrInternal when the provider does not answer.
    unsigned long GetProviderType() const;
    // Empty when closed; ErrInternal when the provider does not answer.
    qorstd::QorStringW GetProviderName() const;
    // The provider's key containers in its order; empty when closed.
    // ErrInternal when the enumeration fails or a name does not convert.
    qorstd::QorVector<qorstd::QorStringW> GetKeyContainers() const;

    // Reads the certificate stored with key `keySpec` (1 key exchange, 2
    // signature) of `container` into `out`, with the private key attached
    // when `withPrivateKey` is not 0. 1 when a certificate was read, 0 when
    // the container, key or certificate is missing.
    int FindCertificate(const qorstd::QorStringW& container, unsigned long keySpec,
                        X509Certificate& out, int withPrivateKey) const;

    using X509Store::FindCertificate;
    // 1 when `cert` is on the card; with `withPrivateKey` the card's key is
    // attached to `cert`, which is otherwise left as it is.
    int FindCertificate(X509Certificate& cert, int withPrivateKey) override;
    // Per container: the certificate of key 1, then (for providers that
    // keep two keys per container) the one of key 2. Without private keys.
    qorstd::QorVector<X509Certificate> GetCertificates() const override;

protected:
    // Frees the OpenSSL store, then closes the provider.
    void FreeStore() override;

private:
    void CloseProvider();
    int FindPrivateKey(const qorstd::QorStringW& container, unsigned long keySpec,
                       evp_pkey_st** key) const;
    int OpenProvider(const qorstd::QorStringW& name, unsigned long type);
    static int FindProviderType(const qorstd::QorStringW& name, unsigned long& type);
    static int CheckProviderType(const qorstd::QorStringW& name, unsigned long type);
    int CheckCardProvider(const qorstd::QorStringW& name);
    int SupportsTwoKeysInKeyContainer() const;

    std::unique_ptr<LogChannel> m_log;
    std::unique_ptr<CardProviderContext> m_provider;  // null when closed
};

}  // namespace TesseraLib
