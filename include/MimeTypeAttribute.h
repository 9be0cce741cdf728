// The CAdES MIME-type attribute: one UTF8String naming the media type of the
// signed content.
#pragma once

#include <memory>

#include "QorArray.h"
#include "QorString.h"
#include "TesseraExport.h"
#include "X509Attribute.h"

namespace TesseraLib {

class LogChannel;

class TESSERA_API MimeTypeAttribute : public X509Attribute {
public:
    MimeTypeAttribute();
    // Keeps a duplicate of `attr` and decodes it.
    explicit MimeTypeAttribute(x509_attributes_st* attr);
    // The attribute for `mimeType` (GetMimeTypeString stays empty). Null →
    // ErrInvalidParameter "MimeTypeAttribute - pwszMimeType is null"; a text
    // that is empty or not convertible to UTF-8 → ErrAsn1Encoding.
    explicit MimeTypeAttribute(const wchar_t* mimeType);
    MimeTypeAttribute(const MimeTypeAttribute& other);
    MimeTypeAttribute& operator=(const MimeTypeAttribute& other);
    ~MimeTypeAttribute() override;

    // Releases the attribute and clears the MIME type.
    void Reset() override;
    // DER of a whole attribute. Empty → ErrInvalidParameter
    // "MimeTypeAttribute - attr is empty"; not one attribute →
    // ErrAsn1Decoding; then as the attribute form.
    void Decode(const qorstd::QorArray<unsigned char>& der) override;
    int IsSigned() const override { return 1; }

    // The MIME type read by Decode.
    const qorstd::QorStringW& GetMimeTypeString() const { return m_mimeType; }

protected:
    // Null → ErrInvalidParameter "MimeTypeAttribute - pAttr is null"; a type
    // other than 0.4.0.1733.2.1 → ErrAsn1Decoding (the object is left empty).
    // The MIME type is read from a first value that is a non-empty
    // UTF8String, and stays empty otherwise.
    virtual void Decode(const x509_attributes_st* attr);

private:
    std::unique_ptr<LogChannel> m_log;
    qorstd::QorStringW m_mimeType;
};

}  // namespace TesseraLib
