// What signing and the size estimate share (internal).
#pragma once

#include <openssl/evp.h>

#include "QorString.h"

namespace TesseraLib {

class LogChannel;
class SignerCms;
class X509Certificate;

namespace cmssign {

// The digest the signer signs with: its own hash algorithm when set, else
// the digest of the certificate's signature algorithm. Null when unknown.
const EVP_MD* SignerDigest(const SignerCms& signer);

// CMS flags of Sign and EstimateSize: binary, no S/MIME capabilities, and
// NOATTR / NOCERTS / DETACHED as the signer and `detached` ask.
unsigned int SignFlags(const SignerCms& signer, int detached);

// The certificate's serial number in decimal, widened for log lines.
qorstd::QorStringW SerialText(const X509Certificate& certificate);

}  // namespace cmssign
}  // namespace TesseraLib
