// The certificates on the tokens of a PKCS#11 module, with their private
// keys loaded through OpenSSL's engine "pkcs11".
#pragma once

#include <memory>

#include "QorPKCS11.h"
#include "QorString.h"
#include "QorVector.h"
#include "TesseraExport.h"
#include "X509Certificate.h"
#include "X509Store.h"

struct evp_pkey_st;

namespace TesseraLib {

class LogChannel;

// Reads the module that Tessera_InitializePkcs11 loaded (Pkcs11Manager).
// The slots are fixed by Open; their Slot objects belong to the module, so
// after Tessera_UninitializePkcs11 a store must be opened again before it is
// used. A private key is never read out of its token: it is loaded through
// the engine by the identifier "slot_<slot id>-id_<CKA_ID>" (both in
// lower-case hexadecimal), and the engine obtains the PIN itself (its "PIN"
// control command, or its own dialogue). Nothing locks: the manager is
// shared by every store of the process.
class TESSERA_API X509Pkcs11Store : public X509Store {
public:
    X509Pkcs11Store();
    // Copy the slot list and the logged-in slot list (the same Slot objects).
    X509Pkcs11Store(const X509Pkcs11Store& other);
    X509Pkcs11Store& operator=(const X509Pkcs11Store& other);
    // Forgets both lists without logging out.
    ~X509Pkcs11Store() override;

    // 0 when PKCS#11 is not initialised. Otherwise Close, then the slots are
    // those with an initialised token present, in the module's order: 1, or
    // ErrCardNotInserted when there is none. The module's own failures are
    // thrown as PKCS11Exception.
    int Open();
    // Forgets the slots, and the slots logged in, without logging out.
    void Close();
    // Logs out every slot on which a key was loaded, in loading order.
    void LogoutAll();

    using X509Store::FindCertificate;
    // Looks for certificate objects equal to `cert` on every slot in order;
    // each match replaces `cert` (so the last matching slot decides). Without
    // `withPrivateKey` the result has no key; with it, the key with the
    // certificate's CKA_ID on that slot is loaded (FindPrivateKey) and
    // attached, and the slot counts as logged in. 1 when any slot matched.
    // A slot whose token cannot be read now (PKCS11Exception 545) is skipped;
    // other PKCS11Exceptions are thrown.
    int FindCertificate(X509Certificate& cert, int withPrivateKey) override;
    // The X.509 certificate objects of every slot in order; empty without
    // PKCS#11. A slot whose token cannot be read now is skipped; other
    // PKCS11Exceptions and undecodable certificates are thrown.
    qorstd::QorVector<X509Certificate> GetCertificates() const override;

    // The identifier of the key FindCertificate(cert, 1) would load: that of
    // the last slot holding a certificate equal to `cert`. Empty when none
    // does. For applications that show where a key lives.
    qorstd::QorString GetKeyIdentifier(const X509Certificate& cert) const;

protected:
    // Loads the key `keyId` through the engine "pkcs11" into `*key`, which
    // the caller owns: 1. Without the engine → ErrInternal "Cannot get
    // engine.". A failed load is thrown by the reason the engine gives: a
    // cancelled PIN entry → ErrUserAborted, a wrong PIN → ErrWrongPin, a
    // locked PIN → ErrPinBlocked, no token → ErrCardNotInserted, anything
    // else (a key that is not there) → ErrPrivateKeyRead.
    int FindPrivateKey(const char* keyId, evp_pkey_st** key) const;

private:
    std::unique_ptr<LogChannel> m_log;
    QorPKCS11Lib::PKCS11Vector<QorPKCS11Lib::Slot*> m_slots;
    QorPKCS11Lib::PKCS11Vector<QorPKCS11Lib::Slot*> m_loggedInSlots;
};

}  // namespace TesseraLib
