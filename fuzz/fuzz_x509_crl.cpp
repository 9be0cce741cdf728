// CRLs from arbitrary bytes: import, every getter, the entry lookup of a
// fixed certificate whose serial and issuer come from the CRL's first entry,
// copies, and the Export round trip, which must give the same CRL back.
// Failures must be CryptExceptions.
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "CryptException.h"
#include "OpenSslPtr.h"
#include "X509Certificate.h"
#include "X509Crl.h"

using namespace TesseraLib;

namespace {

// A certificate carrying the serial of the CRL's first entry and the CRL's
// issuer, so that the lookup finds something; null when there is no entry.
X509Ptr MatchingCertificate(X509_CRL* crl) {
    STACK_OF(X509_REVOKED)* entries = X509_CRL_get_REVOKED(crl);
    if (sk_X509_REVOKED_num(entries) <= 0) {
        return X509Ptr();
    }
    static EvpPkeyPtr key(EVP_EC_gen("P-256"));
    const X509_REVOKED* entry = sk_X509_REVOKED_value(entries, 0);
    X509Ptr cert(X509_new());
    if (!cert || !key || X509_set_version(cert.get(), 2) != 1 ||
        X509_set_serialNumber(
            cert.get(), const_cast<ASN1_INTEGER*>(X509_REVOKED_get0_serialNumber(entry))) != 1 ||
        X509_set_issuer_name(cert.get(), X509_CRL_get_issuer(crl)) != 1 ||
        X509_set_subject_name(cert.get(), X509_CRL_get_issuer(crl)) != 1 ||
        X509_gmtime_adj(X509_getm_notBefore(cert.get()), 0) == nullptr ||
        X509_gmtime_adj(X509_getm_notAfter(cert.get()), 3600) == nullptr ||
        X509_set_pubkey(cert.get(), key.get()) != 1 ||
        X509_sign(cert.get(), key.get(), EVP_sha256()) <= 0) {
        return X509Ptr();
    }
    return cert;
}

void Exercise(const X509Crl& crl) {
    crl.GetVersion();
    crl.GetThisUpdate();
    crl.GetNextUpdate();
    crl.GetExpiredCertOnCRL();
    crl.GetSignatureAlgorithmNID();
    crl.GetIssuerName().GetCommonName();
    crl.GetIssuer();
    crl.GetAuthorityKeyId();
    crl.GetSignatureAlgorithmName();
    crl.GetHashAlgorithmName();
    crl.GetSHA1HashHex();
    crl.GetAuthorityKeyIdStringHex();
    crl.GetCRLNumberDec();
    crl.GetCRLNumberHex();
    crl.GetIssuerStringX500();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        X509Crl crl(data, static_cast<long>(size));
        Exercise(crl);
        const X509Crl copy(crl);
        const qorstd::QorArray<unsigned char> der = crl.Export();
        const X509Crl again(der.GetData(), static_cast<long>(der.GetSize()));
        if (again.Equals(copy) != 1 || again.GetThisUpdate() != crl.GetThisUpdate() ||
            again.GetNextUpdate() != crl.GetNextUpdate()) {
            std::abort();  // the exported CRL is not the imported one
        }
        X509Ptr cert = MatchingCertificate(crl.GetX509Crl());
        if (cert) {
            const X509Certificate certificate(cert.get());
            X509CrlItem item;
            if (crl.GetCrlItem(certificate, item) != crl.IsPresent(certificate)) {
                std::abort();  // lookup and presence test disagree
            }
        }
    } catch (const CryptException&) {
    }
    ERR_clear_error();
    return 0;
}
