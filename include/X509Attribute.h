// The wrapper of one signer attribute (an OpenSSL X509_ATTRIBUTE), the base
// of every attribute class the signatures read and write.
#pragma once

#include "QorArray.h"
#include "QorString.h"
#include "TesseraExport.h"

struct x509_attributes_st;

namespace TesseraLib {

class TESSERA_API X509Attribute {
public:
    X509Attribute();
    // Takes the attribute as it is (no copy); the subclasses' destructors
    // release it.
    explicit X509Attribute(x509_attributes_st* attr);
    // Copies duplicate the attribute.
    X509Attribute(const X509Attribute& other);
    X509Attribute& operator=(const X509Attribute& other);
    // Moves take the other's attribute and leave it empty.
    X509Attribute(X509Attribute&& other) noexcept;
    X509Attribute& operator=(X509Attribute&& other) noexcept;
    virtual ~X509Attribute();

    // Releases the held attribute.
    virtual void Reset();
    // Replaces the content with the attribute in `der` (a whole attribute).
    virtual void Decode(const qorstd::QorArray<unsigned char>& der) = 0;
    // 1 for attributes that belong to the signed attributes.
    virtual int IsSigned() const = 0;

    // The held attribute (not a copy); null when empty.
    x509_attributes_st* GetX509Attr() const { return m_attr; }
    // Dotted OID of the attribute type; empty for none.
    qorstd::QorString GetOID() const;
    static qorstd::QorString GetOID(x509_attributes_st* attr);
    // DER of the first value, which must be a SEQUENCE: empty for no
    // attribute; single-value form, no value or another type →
    // ErrAsn1Decoding; a SEQUENCE without contents → ErrInternal.
    qorstd::QorArray<unsigned char> GetValue() const;
    static qorstd::QorArray<unsigned char> GetValue(x509_attributes_st* attr);
    // DER of the whole attribute; empty for none.
    qorstd::QorArray<unsigned char> Encode() const;

protected:
    virtual void FreeAttribute();
    // A duplicate; null for null.
    virtual x509_attributes_st* CloneAttribute(x509_attributes_st* attr);

    x509_attributes_st* m_attr;  // owned, null when empty
};

}  // namespace TesseraLib
