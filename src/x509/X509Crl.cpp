#include "X509Crl.h"

#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <string>
#include <utility>

#include "CryptException.h"
#include "CryptHash.h"
#include "Failure.h"
#include "OpenSslPtr.h"
#include "QorAsn1Time.h"
#include "QorDer.h"
#include "X509Certificate.h"
#include "x509/X509Bytes.h"
#include "x509/X509NamePrint.h"

namespace qorstd {
template class QorVector<TesseraLib::X509Crl>;
template class QorVectorIterator<TesseraLib::X509Crl>;
}  // namespace qorstd

namespace TesseraLib {

namespace {

// Another reference to `crl` (null for null): nothing changes a CRL once it
// is read, and duplicating one decodes the whole list again.
X509CrlPtr ShareCrl(const X509_CRL* crl) {
    X509CrlPtr shared = UpRef(crl);
    if (crl != nullptr && !shared) {
        Fail(ErrOutOfMemory);
    }
    return shared;
}

BignumPtr DuplicateNumber(const BIGNUM* number) {
    if (number == nullptr) {
        return nullptr;
    }
    BignumPtr copy(BN_dup(number));
    if (!copy) {
        Fail(ErrOutOfMemory, L"BN_dup() failed");
    }
    return copy;
}

// What the lookup of OpenSSL finds for `cert`: 0 none, 1 an entry, 2 an
// entry with reason removeFromCRL (which still counts as listed).
int LookUp(const X509_CRL* crl, const X509Certificate& cert, X509_REVOKED** revoked) {
    if (cert.GetX509() == nullptr) {
        Fail(ErrInvalidParameter, L"cert.GetX509()=NULL");
    }
    if (crl == nullptr) {
        return 0;
    }
    // The lookup only reads the CRL; it takes a non-const handle for its
    // cached index.
    const int found = X509_CRL_get0_by_cert(const_cast<X509_CRL*>(crl), revoked, cert.GetX509());
    ERR_clear_error();
    return found > 0 ? found : 0;
}

}  // namespace

// ---- X509CrlItem -----------------------------------------------------------

X509CrlItem::X509CrlItem() : m_revocationTime(0), m_revocationReason(-1) {}

X509CrlItem::X509CrlItem(const x509_revoked_st* revoked) : X509CrlItem() {
    if (revoked == nullptr) {
        Fail(ErrInvalidParameter, L"pRevoked=NULL");
    }
    if (!qortime::Asn1TimeToSeconds(X509_REVOKED_get0_revocationDate(revoked), &m_revocationTime)) {
        Fail(ErrAsn1Decoding);
    }
    // The value OpenSSL caches for the entry when it decodes the CRL: the
    // reason-code extension, or none (-1) when it is absent or unreadable.
    int critical = 0;
    Asn1EnumeratedPtr reason(static_cast<ASN1_ENUMERATED*>(
        X509_REVOKED_get_ext_d2i(revoked, NID_crl_reason, &critical, nullptr)));
    m_revocationReason = reason ? static_cast<int>(ASN1_ENUMERATED_get(reason.get())) : -1;
    ERR_clear_error();
}

// ---- X509Crl ---------------------------------------------------------------

void X509Crl::CrlDeleter::operator()(X509_crl_st* crl) const {
    X509_CRL_free(crl);
}

void X509Crl::BignumDeleter::operator()(bignum_st* number) const {
    BN_free(number);
}

X509Crl::X509Crl() = default;

X509Crl::X509Crl(const unsigned char* der, long size) : X509Crl() {
    Import(der, size);
}

X509Crl::X509Crl(const X509_crl_st* crl) : X509Crl() {
    if (crl == nullptr) {
        Fail(ErrInvalidParameter, L"pCrl=NULL");
    }
    // A duplicate: a CRL made in memory has not computed the digest that
    // comparisons use until it is decoded.
    X509_CRL* copy = X509_CRL_dup(crl);
    if (copy == nullptr) {
        Fail(ErrAsn1Decoding, L"X509_CRL_dup() failed");
    }
    m_crl.reset(copy);
    Parse();
}

X509Crl::X509Crl(const X509Crl& other)
    : m_crl(ShareCrl(other.m_crl.get()).release()),
      m_crlNumber(DuplicateNumber(other.m_crlNumber.get()).release()),
      m_decoded(other.m_decoded) {}

X509Crl& X509Crl::operator=(const X509Crl& other) {
    if (this == &other) {
        return *this;
    }
    // Copy first: a failure leaves this object as it was.
    X509CrlPtr crl = ShareCrl(other.m_crl.get());
    BignumPtr number = DuplicateNumber(other.m_crlNumber.get());
    Decoded decoded = other.m_decoded;
    m_crl.reset(crl.release());
    m_crlNumber.reset(number.release());
    m_decoded = std::move(decoded);
    return *this;
}

X509Crl::~X509Crl() {
    Reset();
}

void X509Crl::Reset() {
    m_crl.reset();
    m_crlNumber.reset();
    m_decoded = Decoded();
}

void X509Crl::Import(const unsigned char* der, long size) {
    if (der == nullptr) {
        Fail(ErrInvalidParameter, L"pCrl=NULL");
    }
    if (size <= 0) {
        Fail(ErrInvalidParameter, L"nSize<=0");
    }
    Reset();
    // Bytes after the CRL would travel unnoticed with it into stores and
    // archives: the buffer must be the CRL and nothing else.
    X509CrlPtr crl = qorssl::DecodeWhole<X509CrlPtr>(d2i_X509_CRL, der, size);
    if (!crl) {
        Fail(ErrAsn1Decoding);
    }
    m_crl.reset(crl.release());
    Parse();
}

void X509Crl::Parse() {
    X509_CRL* crl = m_crl.get();
    if (crl == nullptr) {
        Fail(ErrInvalidParameter, L"pCrl=NULL");
    }
    m_decoded.version = static_cast<unsigned long>(X509_CRL_get_version(crl));
    // OpenSSL sorts the entries on the first look-up, and threads sharing
    // the CRL would race there: sort them now, as that look-up would.
    sk_X509_REVOKED_sort(X509_CRL_get_REVOKED(crl));

    if (!qortime::Asn1TimeToSeconds(X509_CRL_get0_lastUpdate(crl), &m_decoded.thisUpdate)) {
        Fail(ErrAsn1Decoding);
    }
    const ASN1_TIME* nextUpdate = X509_CRL_get0_nextUpdate(crl);
    if (nextUpdate == nullptr) {
        m_decoded.nextUpdate = kNoNextUpdate;
    } else if (!qortime::Asn1TimeToSeconds(nextUpdate, &m_decoded.nextUpdate)) {
        Fail(ErrAsn1Decoding);
    }

    m_decoded.signatureNid = X509_CRL_get_signature_nid(crl);
    if (m_decoded.signatureNid == NID_undef) {
        Fail(ErrAlgorithmNotSupported);
    }

    const X509_NAME* issuer = X509_CRL_get_issuer(crl);
    if (issuer == nullptr) {
        Fail(ErrAsn1Decoding, L"pIssuerName=NULL");
    }
    // A copy of its own: a name that shared the CRL's structure would keep
    // the whole list alive for as long as anyone holds the name.
    m_decoded.issuerName = X509Name(issuer);
    unsigned char* encoded = nullptr;
    const int length = i2d_X509_NAME(issuer, &encoded);
    OpenSslBytesPtr owned(encoded);
    if (length <= 0 || !owned) {
        Fail(ErrAsn1Decoding);
    }
    m_decoded.issuer.Assign(owned.get(), static_cast<unsigned>(length));

    int critical = 0;
    AuthorityKeyIdPtr keyId(static_cast<AUTHORITY_KEYID*>(
        X509_CRL_get_ext_d2i(crl, NID_authority_key_identifier, &critical, nullptr)));
    if (keyId && keyId->keyid != nullptr) {
        m_decoded.authorityKeyId.Assign(ASN1_STRING_get0_data(keyId->keyid),
                                        static_cast<unsigned>(ASN1_STRING_length(keyId->keyid)));
    }

    Asn1IntegerPtr number(
        static_cast<ASN1_INTEGER*>(X509_CRL_get_ext_d2i(crl, NID_crl_number, &critical, nullptr)));
    if (number) {
        m_crlNumber.reset(ASN1_INTEGER_to_BN(number.get(), nullptr));
        if (!m_crlNumber) {
            Fail(ErrAsn1Decoding, L"Parsing CRL number failed.");
        }
    }
    // An extension that is absent, repeated or unreadable leaves its field
    // empty; OpenSSL's reasons for that are of no further use.
    ERR_clear_error();
}

qorstd::QorArray<unsigned char> X509Crl::Export() const {
    qorstd::QorArray<unsigned char> out;
    if (!m_crl) {
        return out;
    }
    const int length = i2d_X509_CRL(m_crl.get(), nullptr);
    if (length < 1) {
        Fail(ErrAsn1Encoding);
    }
    out.SetSize(static_cast<unsigned>(length));
    unsigned char* cursor = out.GetData();
    if (i2d_X509_CRL(m_crl.get(), &cursor) != length) {
        Fail(ErrAsn1Encoding);
    }
    return out;
}

qorstd::QorString X509Crl::GetSignatureAlgorithmName() const {
    const char* name = OBJ_nid2ln(m_decoded.signatureNid);
    return qorstd::QorString(name != nullptr ? name : "");
}

qorstd::QorString X509Crl::GetHashAlgorithmName() const {
    const std::string name = GetSignatureAlgorithmName().c_str();
    const std::size_t with = name.rfind("With");
    return qorstd::QorString(name.substr(0, with).c_str());
}

qorstd::QorArray<unsigned char> X509Crl::GetSHA1Hash() const {
    return x509::Sha1(Export());
}

qorstd::QorString X509Crl::GetSHA1HashHex() const {
    return x509::LowerHex(GetSHA1Hash());
}

qorstd::QorString X509Crl::GetAuthorityKeyIdStringHex() const {
    return x509::LowerHex(m_decoded.authorityKeyId);
}

qorstd::QorString X509Crl::GetCRLNumberDec() const {
    if (!m_crlNumber) {
        return qorstd::QorString();
    }
    OpenSslTextPtr text(BN_bn2dec(m_crlNumber.get()));
    if (!text) {
        Fail(ErrAsn1Decoding, L"BN_bn2dec() failed");
    }
    return qorstd::QorString(text.get());
}

qorstd::QorString X509Crl::GetCRLNumberHex() const {
    if (!m_crlNumber) {
        return qorstd::QorString();
    }
    OpenSslTextPtr text(BN_bn2hex(m_crlNumber.get()));
    if (!text) {
        Fail(ErrAsn1Decoding, L"BN_bn2hex() failed");
    }
    return qorstd::QorString(text.get());
}

qorstd::QorStringW X509Crl::GetIssuerStringX500() const {
    qorstd::QorStringW out;
    if (!m_crl || m_decoded.issuer.GetSize() == 0) {
        return out;
    }
    if (!x509::PrintName(X509_CRL_get_issuer(m_crl.get()), x509::kNamePrintX500Flags, out)) {
        Fail(ErrAsn1Decoding);
    }
    return out;
}

int X509Crl::Equals(const X509Crl& other) const {
    if (!m_crl || !other.m_crl) {
        return 0;
    }
    return X509_CRL_match(m_crl.get(), other.m_crl.get()) == 0 ? 1 : 0;
}

int X509Crl::IsPresent(const X509Certificate& cert) const {
    X509_REVOKED* revoked = nullptr;
    return LookUp(m_crl.get(), cert, &revoked) != 0 ? 1 : 0;
}

int X509Crl::GetCrlItem(const X509Certificate& cert, X509CrlItem& item) const {
    X509_REVOKED* revoked = nullptr;
    if (LookUp(m_crl.get(), cert, &revoked) == 0) {
        return 0;
    }
    if (revoked == nullptr) {
        Fail(ErrInvalidParameter, L"pRevoked=NULL");
    }
    item = X509CrlItem(revoked);
    return 1;
}

}  // namespace TesseraLib
