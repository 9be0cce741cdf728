// The exact DER length of the signed-data message that signing would produce,
// computed from its parts without signing (internal).
#pragma once

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

namespace TesseraLib {

// The length in bytes of a signed-data message with one signer of `cert`
// and `key` over `content` (read through to its end unless `flags` holds
// CMS_DETACHED), digest `md`, the certificates `certs` (may be null) and
// the extra signed and unsigned attributes (either may be null). `flags` are
// the CMS flags of the signing (NOATTR, NOCERTS, DETACHED, NOSMIMECAP).
// Exact for keys whose signatures have one length (RSA); for others the
// key's maximum signature length is counted. -1 when an argument is missing
// or OpenSSL fails (its errors stay queued).
long QOR_PKCS7_GetSignSize(X509* cert, EVP_PKEY* key, STACK_OF(X509) * certs, BIO* content,
                           unsigned int flags, const EVP_MD* md,
                           STACK_OF(X509_ATTRIBUTE) * signedAttributes,
                           STACK_OF(X509_ATTRIBUTE) * unsignedAttributes);

}  // namespace TesseraLib
