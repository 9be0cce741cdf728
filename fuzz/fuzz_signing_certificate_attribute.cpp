// SigningCertificateAttribute::Decode over arbitrary bytes (v1 and v2
// attributes alike) and, when they decode, the signer-certificate check
// against a fixed certificate that the seeds' attributes name. Every refusal
// must be a CryptException with one of the codes the two document — never a
// crash, leak, hang or another exception type.
#include <openssl/err.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>

#include "CryptException.h"
#include "LogChannel.h"
#include "SigningCertificateAttribute.h"
#include "X509Certificate.h"
#include "cms/SigningCertCheck.h"

using namespace TesseraLib;

namespace {

// Self-signed EC certificate "CN=Fuzz Signer, O=Tessera Fuzz", serial 0x1001,
// valid 2024-03-01 to 2034-03-01. seeds/fuzz_signing_certificate_attribute.sh
// holds the same certificate.
const char kSignerPem[] =
    "-----BEGIN CERTIFICATE-----\n"
    "MIIBQjCB6QICEAEwCgYIKoZIzj0EAwIwLTEUMBIGA1UEAwwLRnV6eiBTaWduZXIx\n"
    "FTATBgNVBAoMDFRlc3NlcmEgRnV6ejAeFw0yNDAzMDEwMDAwMDBaFw0zNDAzMDEw\n"
    "MDAwMDBaMC0xFDASBgNVBAMMC0Z1enogU2lnbmVyMRUwEwYDVQQKDAxUZXNzZXJh\n"
    "IEZ1enowWTATBgcqhkjOPQIBBggqhkjOPQMBBwNCAATzQ/nArDG/RYQErzPa/7xl\n"
    "H/2DixLiQSIcTJfgp5Pcq3YxQasaeOUhe3eJ8SiHAchO9O8y+lCeDnXryQFUoQkq\n"
    "MAoGCCqGSM49BAMCA0gAMEUCIQCZyTNTvffr9p0P6/GpBQ5kwWcWHjZehv0OgUpj\n"
    "dF/LQAIgUtqHZbXm5lVv6lLloaJVhk1aDtLR/T/jk15va62/dTo=\n"
    "-----END CERTIFICATE-----\n";

void ExpectCode(const CryptException& e, std::initializer_list<int> documented) {
    for (const int code : documented) {
        if (e.GetErrorCode() == code) {
            return;
        }
    }
    std::abort();  // a failure with a code the operation does not document
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 1u << 16) {
        return 0;
    }
    static const X509Certificate signer(kSignerPem);
    static const LogChannel log(L"fuzz_signing_certificate_attribute");
    SigningCertificateAttribute attr;
    try {
        attr.Decode(qorstd::QorArray<unsigned char>(data, static_cast<unsigned int>(size)));
    } catch (const CryptException& e) {
        ExpectCode(e, {ErrInvalidParameter, ErrAsn1Decoding});
        if (attr.GetX509Attr() != nullptr || attr.GetCertificateIdentifiers().GetSize() != 0) {
            std::abort();  // a failed decode leaves the object empty
        }
        return 0;
    }
    const qorstd::QorVector<SigningCertificate>& entries = attr.GetCertificateIdentifiers();
    for (unsigned int i = 0; i < entries.GetSize(); ++i) {
        const SigningCertificate& entry = entries.GetAt(i);
        (void)entry.GetHash().GetSize();
        (void)entry.GetHashAlgorithm().length();
        if (entry.GetSerial() != nullptr && *entry.GetSerial() == 0) {
            std::abort();  // a serial of 0 is kept as none
        }
        (void)(entry == entries.GetAt(0));
    }
    const SigningCertificateAttribute copy(attr);
    if (copy.GetCertificateIdentifiers().GetSize() != entries.GetSize()) {
        std::abort();  // a copy lost entries
    }
    try {
        cms::VerifySigningCert(log, attr, signer.GetX509());
    } catch (const CryptException& e) {
        ExpectCode(e, {ErrSigningCertAttrNotFound, ErrAsn1Decoding, ErrInternal,
                       ErrAlgorithmNotSupported, ErrSigningCertMismatch, ErrHashGeneration});
    }
    ERR_clear_error();
    return 0;
}
