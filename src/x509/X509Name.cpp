#include "X509Name.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <cwchar>
#include <string>
#include <vector>

#include "CryptException.h"
#include "Failure.h"
#include "OpenSslPtr.h"
#include "QorTextConv.h"
#include "x509/X509Bytes.h"
#include "x509/X509NamePrint.h"

namespace TesseraLib {

namespace {

// The maker writes its own serial numbers with this prefix; only those are
// kept (without it).
const wchar_t kQorSerialPrefix[] = L"QOR - ";
const std::size_t kQorSerialPrefixLength = 6;

X509_NAME* DuplicateName(const X509_NAME* name) {
    if (name == nullptr) {
        return nullptr;
    }
    X509_NAME* copy = X509_NAME_dup(name);
    if (copy == nullptr) {
        Fail(ErrAsn1Decoding, L"X509_NAME_dup() failed");
    }
    return copy;
}

// DER of `name`; false when OpenSSL cannot encode it.
bool EncodeName(const X509_NAME* name, std::vector<unsigned char>& der) {
    unsigned char* encoded = nullptr;
    const int length = i2d_X509_NAME(name, &encoded);
    OpenSslBytesPtr owned(encoded);
    if (length <= 0 || !owned) {
        ERR_clear_error();
        return false;
    }
    der.assign(owned.get(), owned.get() + length);
    return true;
}

}  // namespace

X509Name::X509Name() = default;

X509Name::X509Name(const X509_name_st* name) {
    if (name == nullptr) {
        Fail(ErrInvalidParameter, L"pName=NULL");
    }
    m_name.reset(DuplicateName(name), X509_NAME_free);
    Parse();
}

X509Name::X509Name(const X509_name_st* name, std::shared_ptr<const void> owner) {
    if (name == nullptr) {
        Fail(ErrInvalidParameter, L"pName=NULL");
    }
    // Shares the owner's lifetime; the structure is only ever read.
    m_name = std::shared_ptr<X509_name_st>(std::move(owner), const_cast<X509_name_st*>(name));
    Parse();
}

X509Name::X509Name(const X509Name& other) = default;
X509Name& X509Name::operator=(const X509Name& other) = default;

X509Name::~X509Name() {
    Reset();
}

void X509Name::Reset() {
    m_name.reset();
    ClearAttributes();
}

void X509Name::ClearAttributes() {
    m_country.clear();
    m_stateOrProvince.clear();
    m_locality.clear();
    m_organization.clear();
    m_organizationUnit.clear();
    m_commonName.clear();
    m_qorSerialNumber.clear();
    m_emailAddress.clear();
    m_pseudonym.clear();
}

void X509Name::Parse() {
    struct Attribute {
        int nid;
        qorstd::QorStringW X509Name::*field;
    };
    // Matched by NID, which OpenSSL finds from the encoded identifier: the
    // same identifiers as their dotted forms, without printing each one.
    static const Attribute kAttributes[] = {
        {NID_countryName, &X509Name::m_country},                      // 2.5.4.6
        {NID_stateOrProvinceName, &X509Name::m_stateOrProvince},      // 2.5.4.8
        {NID_localityName, &X509Name::m_locality},                    // 2.5.4.7
        {NID_organizationName, &X509Name::m_organization},            // 2.5.4.10
        {NID_organizationalUnitName, &X509Name::m_organizationUnit},  // 2.5.4.11
        {NID_commonName, &X509Name::m_commonName},                    // 2.5.4.3
        {NID_pkcs9_emailAddress, &X509Name::m_emailAddress},          // 1.2.840.113549.1.9.1
        {NID_pseudonym, &X509Name::m_pseudonym},                      // 2.5.4.65
    };

    // Every entry must be readable before any attribute is taken.
    const X509_NAME* name = m_name.get();
    if (!x509::NameEntriesReadable(name)) {
        Fail(ErrAsn1Decoding, L"pNameValues=NULL");
    }
    const int count = X509_NAME_entry_count(name);
    ClearAttributes();
    for (int i = 0; i < count; ++i) {
        const X509_NAME_ENTRY* entry = X509_NAME_get_entry(name, i);
        const int nid = OBJ_obj2nid(X509_NAME_ENTRY_get_object(entry));
        qorstd::QorStringW X509Name::*field = nullptr;
        for (const Attribute& attribute : kAttributes) {
            if (nid == attribute.nid) {
                field = attribute.field;
                break;
            }
        }
        if (field == nullptr && nid != NID_serialNumber) {
            continue;
        }
        const std::string utf8 = x509::NameValueToUtf8(X509_NAME_ENTRY_get_data(entry));
        const qorstd::QorStringW value = qorstd::text::NarrowToWide(
            utf8.c_str(), static_cast<unsigned>(utf8.size()), qorstd::text::kCharsetUtf8);
        if (field != nullptr) {
            this->*field = value;
        } else if (value.length() >= kQorSerialPrefixLength &&
                   std::wcsncmp(value.c_str(), kQorSerialPrefix, kQorSerialPrefixLength) == 0) {
            m_qorSerialNumber = value.c_str() + kQorSerialPrefixLength;
        }
    }
}

int X509Name::Equals(const X509Name& other) const {
    if (!m_name || !other.m_name) {
        return 0;
    }
    return X509_NAME_cmp(m_name.get(), other.m_name.get()) == 0 ? 1 : 0;
}

qorstd::QorArray<unsigned char> X509Name::Export() const {
    qorstd::QorArray<unsigned char> out;
    if (!m_name) {
        return out;
    }
    std::vector<unsigned char> der;
    if (!EncodeName(m_name.get(), der)) {
        Fail(ErrAsn1Encoding, L"i2d_X509_NAME() failed");
    }
    out.Assign(der.data(), static_cast<unsigned>(der.size()));
    return out;
}

qorstd::QorArray<unsigned char> X509Name::GetSHA1Hash() const {
    qorstd::QorArray<unsigned char> out;
    if (!m_name) {
        return out;
    }
    std::vector<unsigned char> der;
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int digestLength = 0;
    if (!EncodeName(m_name.get(), der) ||
        EVP_Digest(der.data(), der.size(), digest, &digestLength, EVP_sha1(), nullptr) != 1) {
        Fail(ErrAsn1Decoding, L"QOR_X509Name_SHA1() failed");
    }
    out.Assign(digest, digestLength);
    return out;
}

qorstd::QorString X509Name::GetSHA1HashHex() const {
    return x509::LowerHex(GetSHA1Hash());
}

qorstd::QorStringW X509Name::GetStringX500() const {
    qorstd::QorStringW out;
    if (!m_name) {
        return out;
    }
    if (!x509::PrintName(m_name.get(), x509::kNamePrintX500Flags, out)) {
        Fail(ErrAsn1Decoding, L"QOR_X509Name_Print() failed");
    }
    return out;
}

}  // namespace TesseraLib
