// An X.501 distinguished name with its well-known attributes decoded.
#pragma once

#include <memory>

#include "QorArray.h"
#include "QorString.h"
#include "TesseraExport.h"

struct X509_name_st;

namespace TesseraLib {

// An OpenSSL name plus nine attributes as wide text, so that callers read
// the common name or the organisation directly. Copies share the OpenSSL
// structure, which nothing changes once it is read. An absent
// attribute is an empty string; when a name carries an attribute twice, the
// later value is kept. Read operations on an empty name never throw.
class TESSERA_API X509Name {
public:
    X509Name();
    // Duplicates and decodes `name`; null → ErrInvalidParameter "pName=NULL".
    explicit X509Name(const X509_name_st* name);
    // Decodes `name` without duplicating it: `name` must stay valid and
    // unchanged as long as `owner` is alive (e.g. a certificate's own name).
    X509Name(const X509_name_st* name, std::shared_ptr<const void> owner);
    X509Name(const X509Name& other);
    X509Name& operator=(const X509Name& other);
    virtual ~X509Name();

    // Releases the structure and clears the attributes.
    void Reset();

    // The held structure itself (not a copy); null when empty.
    X509_name_st* GetX509Name() const { return m_name.get(); }

    // 1 when both names hold a structure and OpenSSL finds them equal.
    int Equals(const X509Name& other) const;

    // DER of the name; empty when empty.
    qorstd::QorArray<unsigned char> Export() const;
    // SHA-1 of the DER (20 bytes); empty when empty.
    qorstd::QorArray<unsigned char> GetSHA1Hash() const;
    // The same as 40 lower-case hexadecimal digits.
    qorstd::QorString GetSHA1HashHex() const;
    // One line, RDNs in encoded order, e.g. C=SK,O="Q.OR, a.s.",CN=Jan;
    // values that need it are quoted rather than escaped.
    qorstd::QorStringW GetStringX500() const;

    const qorstd::QorStringW& GetCountry() const { return m_country; }
    const qorstd::QorStringW& GetStateOrProvince() const { return m_stateOrProvince; }
    const qorstd::QorStringW& GetLocality() const { return m_locality; }
    const qorstd::QorStringW& GetOrganization() const { return m_organization; }
    const qorstd::QorStringW& GetOrganizationUnit() const { return m_organizationUnit; }
    const qorstd::QorStringW& GetCommonName() const { return m_commonName; }
    // The serial number after its "QOR - " prefix; serial numbers without the
    // prefix are not the maker's and are ignored.
    const qorstd::QorStringW& GetQorSerialNumber() const { return m_qorSerialNumber; }
    const qorstd::QorStringW& GetEmailAddress() const { return m_emailAddress; }
    const qorstd::QorStringW& GetPseudonym() const { return m_pseudonym; }

private:
    void ClearAttributes();
    void Parse();

    std::shared_ptr<X509_name_st> m_name;
    qorstd::QorStringW m_country;
    qorstd::QorStringW m_stateOrProvince;
    qorstd::QorStringW m_locality;
    qorstd::QorStringW m_organization;
    qorstd::QorStringW m_organizationUnit;
    qorstd::QorStringW m_commonName;
    qorstd::QorStringW m_qorSerialNumber;
    qorstd::QorStringW m_emailAddress;
    qorstd::QorStringW m_pseudonym;
};

}  // namespace TesseraLib
