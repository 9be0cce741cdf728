// What an archive time-stamp v3 stamps (internal): the bytes whose digest
// is the token's message imprint.
#pragma once

#include <openssl/cms.h>
#include <openssl/x509.h>

#include "CmsRevocationInfo.h"
#include "QorArray.h"

namespace TesseraLib {

class LogChannel;

namespace cms {

// A signer's unsigned attributes as one stack that borrows them: what a
// hash index lists and is checked against.
struct UnsignedAttributes {
    explicit UnsignedAttributes(const CMS_SignerInfo* signer) {
        for (int i = 0; i < CMS_unsigned_get_attr_count(signer); ++i) {
            sk_X509_ATTRIBUTE_push(stack, CMS_unsigned_get_attr(signer, i));
        }
    }
    ~UnsignedAttributes() { sk_X509_ATTRIBUTE_free(stack); }
    UnsignedAttributes(const UnsignedAttributes&) = delete;
    UnsignedAttributes& operator=(const UnsignedAttributes&) = delete;
    STACK_OF(X509_ATTRIBUTE) * stack = sk_X509_ATTRIBUTE_new_null();
};

// A signer's version, sid, digest algorithm, signed attributes (when
// present), signature algorithm and signature, one after the other, as
// they stand in the walked message.
qorstd::QorArray<unsigned char> ArchivedFields(const SignerFields& fields);

// The concatenation of the message's encapsulated content type (its OID
// encoding), the content's digest (made by the caller with the token's
// imprint algorithm), the signer's archived fields and the hash-index
// attribute's value. Every part is taken as it stands in the message or
// the token, so that an encoding other than the one the time-stamp covered
// is not silently normalised into a match. Missing parts fail with the
// codes of the archive check, logged on `log`.
qorstd::QorArray<unsigned char> ArchiveImprintInput(
    const LogChannel* log, const qorstd::QorArray<unsigned char>& eContentType,
    const qorstd::QorArray<unsigned char>& contentDigest,
    const qorstd::QorArray<unsigned char>& archivedFields,
    const qorstd::QorArray<unsigned char>& hashIndexValue);

}  // namespace cms
}  // namespace TesseraLib
