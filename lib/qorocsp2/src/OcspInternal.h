// Pieces shared by the OCSP library's sources (internal).
#pragma once

#include <openssl/evp.h>

#include "OcspResponse.h"
#include "QorLog.h"

namespace QorOcsp2Lib {
namespace internal {

// The library's logging registry (prefix "QorOcsp2" once logging is set up).
qorlog::Registry& LogRegistry();

// The digest of a certificate identifier; null for unknown values.
const EVP_MD* DigestOf(OcspHash::ocspHashAlgorithm algorithm);

}  // namespace internal
}  // namespace QorOcsp2Lib
