// The check of a signer's certificate against its signing-certificate
// attribute (internal): the signer info of a CAdES signature calls it with
// its own log channel.
#pragma once

#include <openssl/x509.h>

#include "LogChannel.h"
#include "SigningCertificateAttribute.h"
#include "cms/att_signcertv2.h"

namespace TesseraLib {
namespace cms {

// Checks that the first entry of `attr` names `signerCert`: issuer names and
// serial when the entry has issuerSerial, then the certificate hash. Each
// failure is logged at Error level on `log` and thrown:
//   ErrInvalidParameter "SignedCades::SignerInfo - pSignerCert=NULL";
//   ErrSigningCertAttrNotFound  the attribute has no value;
//   ErrAsn1Decoding             the value is no SigningCertificate(V2);
//   ErrInternal                 no entry list ("SignedCades::SignerInfo -
//                               pEssCertIds=NULL", "... - pEssCertIdsV2=NULL")
//                               or a hash of the wrong size ("nHashSize=pHash->length()");
//   ErrAlgorithmNotSupported    no entry, or a digest OpenSSL does not know;
//   ErrSigningCertMismatch      issuer, serial or hash differ;
//   ErrHashGeneration           the certificate cannot be hashed.
void VerifySigningCert(const LogChannel& log, const SigningCertificateAttribute& attr,
                       const X509* signerCert);

// What the check reads of an attribute beyond its public face.
class SigningCertAccess {
public:
    // The value the attribute decoded when it was read; null when none.
    static const SigningCertValue* ValueOf(const SigningCertificateAttribute& attr) {
        return attr.m_value.get();
    }
};

}  // namespace cms
}  // namespace TesseraLib
