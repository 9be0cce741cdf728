// Memory stores from arbitrary bytes: read as a DER PKCS#12 file with a fixed
// password and, through a NUL-terminated copy, as PEM text; what is read is
// looked up again and put into an OpenSSL store. Failures must be
// CryptExceptions.
#include <openssl/err.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "CryptException.h"
#include "X509Store.h"

using namespace TesseraLib;

namespace {

void Exercise(X509MemoryStore& store) {
    const qorstd::QorVector<X509Certificate> certs = store.GetCertificates();
    for (unsigned i = 0; i < certs.GetSize(); ++i) {
        X509Certificate probe(certs.GetAt(i));
        X509Certificate issuer;
        store.FindCertificate(probe, 1);
        store.FindCertificate(probe.GetSubjectName(), issuer);
        store.FindIssuer(probe, issuer);
    }
    store.GetX509Store();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    X509MemoryStore store;
    try {
        store.ImportPKCS12(data, static_cast<long>(size), "fuzz");
        Exercise(store);
    } catch (const CryptException&) {
    }
    const std::string text(reinterpret_cast<const char*>(data), size);
    try {
        store.ImportPEM(text.c_str());
        Exercise(store);
    } catch (const CryptException&) {
    }
    ERR_clear_error();
    return 0;
}
