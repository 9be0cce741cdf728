// What signing and the size estimate share (internal).
#pragma once

#include <openssl/cms.h>
#include <openssl/evp.h>

#include <functional>

#include "QorString.h"

namespace TesseraLib {

class LogChannel;
class SignerCms;
class X509Certificate;

namespace cmssign {

// A flag of our own beside OpenSSL's CMS flags: signed attributes without a
// signing time (a CAdES signer whose attribute option is none still signs
// its attributes). OpenSSL's functions never see it.
constexpr unsigned int kNoSigningTime = 0x40000000u;

// The digest the signer signs with: its own hash algorithm when set, else
// the digest of the certificate's signature algorithm. Null when unknown.
const EVP_MD* SignerDigest(const SignerCms& signer);

// The checks of a signer step (message, certificate, key, then
// `extraChecks` when set, then the signer certificate itself at the current
// time), logged as "`operation`: ...", and CMS_add1_signer; `nullMessage`
// is the message of a missing message.
CMS_SignerInfo* AddCheckedSigner(const LogChannel* log, const wchar_t* operation,
                                 const wchar_t* nullMessage, CMS_ContentInfo* cms,
                                 const SignerCms& signer, unsigned int flags,
                                 const std::function<void()>& extraChecks);

// CMS flags of Sign and EstimateSize: binary, no S/MIME capabilities, and
// NOATTR / NOCERTS / DETACHED as the signer and `detached` ask.
unsigned int SignFlags(const SignerCms& signer, int detached);

// The certificate's serial number in decimal, widened for log lines.
qorstd::QorStringW SerialText(const X509Certificate& certificate);

}  // namespace cmssign
}  // namespace TesseraLib
