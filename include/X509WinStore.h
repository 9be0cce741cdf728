// The system certificate store. On Linux a store is a directory of
// certificate files, with the private keys as PEM files beside them.
#pragma once

#include <memory>

#include "QorString.h"
#include "QorVector.h"
#include "TesseraExport.h"
#include "X509Certificate.h"
#include "X509Name.h"
#include "X509Store.h"

struct evp_pkey_st;

namespace TesseraLib {

class LogChannel;

// A store named by a directory path. Its certificates are those of the files
// *.pem, *.crt, *.cer and *.der in the directory (not its subdirectories), in
// the byte order of the file names; whether a file is PEM or DER is told by
// its content, and a PEM file may hold several certificates (blocks of other
// kinds in it are passed over). A certificate has a private key when a file
// with the same base name and the extension .key (a PEM private key, not
// encrypted) stands beside its file; in a file of several certificates that
// key belongs to the first one.
//
// Open reads the directory once: the certificates are decoded then, and the
// store shows that snapshot until the next Open, whatever happens to the
// directory meanwhile. Only the key files are read later, when a key is
// asked for. A file that cannot be read or holds no certificate, and a
// certificate that does not decode, are left out of the snapshot with a
// warning in the log, so that the other certificates are still listed;
// GetCertificates therefore never fails on them.
//
// Copies share the snapshot (which is immutable), so a copy stays usable
// after the store it was made from is gone. A store, copies included, is
// used by one thread at a time.
class TESSERA_API X509WinStore : public X509Store {
public:
    // Closed.
    X509WinStore();
    // Adopts `handle`, a reference to an opened snapshot that DuplicateHandle
    // handed out: the store owns it from now on and releases it when closed.
    // Null gives a closed store.
    explicit X509WinStore(void* handle);
    // Share the source's snapshot; a closed source gives a closed store.
    X509WinStore(const X509WinStore& other);
    X509WinStore& operator=(const X509WinStore& other);
    // FreeStore of the base, then Close.
    ~X509WinStore() override;

    // Closes the store, then reads the directory `storeName`. 1 when the
    // directory could be listed (also when it holds no certificate); 0, and
    // the store stays closed, for a null or empty name or a directory that
    // cannot be listed. `flags` chose the store's location on Windows and
    // have no meaning here: they are accepted and ignored.
    int Open(const wchar_t* storeName, unsigned long flags);
    // Releases this store's reference to the snapshot.
    void Close();

    // A new reference to the opened snapshot for X509WinStore(void*), which
    // takes it over; null when the store is closed. A handle that is never
    // adopted is given back with CloseHandle.
    void* DuplicateHandle() const;
    static void CloseHandle(void* handle);

    // The first certificate whose subject has exactly the DER of `subject`;
    // 0 when none has, when the store is closed or `subject` is empty.
    int FindCertificate(const X509Name& subject, X509Certificate& found) const override;
    // 1 when a certificate with the DER of `cert` is in the store, else 0
    // (also when closed). Without `withPrivateKey` nothing else happens and
    // `cert` is not changed. With it, the first such certificate's key is
    // loaded (FindPrivateKey) and attached to `cert`; a certificate without
    // a key file stays without a key and the result is still 1. A key file
    // that cannot be read, is no private key, or does not belong to the
    // certificate → ErrPrivateKeyRead, `cert` unchanged.
    int FindCertificate(X509Certificate& cert, int withPrivateKey) override;
    // The first certificate that OpenSSL accepts as the issuer of `cert`
    // (names, authority key identifier, key usage; no signature, time or
    // revocation checks); 0 when none does, or the store is closed or `cert`
    // empty.
    int FindIssuer(const X509Certificate& cert, X509Certificate& issuer) const override;
    // Every certificate of the snapshot in order, without keys; empty when
    // closed.
    qorstd::QorVector<X509Certificate> GetCertificates() const override;

    // The key file standing beside the file of the store's first certificate
    // with the DER of `cert`: its path, the directory path as given to Open
    // joined with the file name. Empty when the store is closed, `cert` is
    // not in it or has no key file.
    qorstd::QorStringW CreateKeyInfo(const X509Certificate& cert) const;
    // Reads the key file of `cert` (CreateKeyInfo) into `*key`, which the
    // caller then owns: 1. No key file → 0. `cert` empty → ErrInvalidParameter
    // "pCert=NULL"; a key file that cannot be read or holds no PEM private
    // key → ErrPrivateKeyRead; a key that is not the one of `cert`'s public
    // key → ErrPrivateKeyRead.
    int FindPrivateKey(const X509Certificate& cert, evp_pkey_st** key) const;

protected:
    // Frees the base's OpenSSL store, then Close.
    void FreeStore() override;

private:
    struct Snapshot;

    std::unique_ptr<LogChannel> m_log;
    std::shared_ptr<const Snapshot> m_snapshot;  // null when closed
};

}  // namespace TesseraLib
