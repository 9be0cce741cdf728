// X509Certificate: import, decoding, export and the checks of one certificate.
#include "X509Certificate.h"

#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstring>
#include <cwctype>
#include <string>
#include <vector>

#include "CryptException.h"
#include "CryptHash.h"
#include "CryptKey/KeyInternals.h"
#include "CryptUtils.h"
#include "Failure.h"
#include "LogChannel.h"
#include "OpenSslPtr.h"
#include "QorAsn1Time.h"
#include "QorDer.h"
#include "QorTextConv.h"
#include "x509/QcAsn1.h"
#include "x509/X509Bytes.h"
#include "x509/X509NamePrint.h"

namespace qorstd {
template class QorVector<TesseraLib::X509Certificate>;
template class QorVectorIterator<TesseraLib::X509Certificate>;
}  // namespace qorstd

namespace TesseraLib {

namespace {

// 1.3.6.1.4.1.47385.4.3, the content octets of its DER encoding.
const unsigned char kBraddleIdOid[] = {0x2b, 0x06, 0x01, 0x04, 0x01, 0x82, 0xf2, 0x19, 0x04, 0x03};
const wchar_t kChannelName[] = L"X509Certificate";

using AccessInfoPtr = OpenSslPtr<AUTHORITY_INFO_ACCESS, AUTHORITY_INFO_ACCESS_free>;
using PoliciesPtr = OpenSslPtr<CERTIFICATEPOLICIES, CERTIFICATEPOLICIES_free>;
using ExtKeyUsagePtr = OpenSslPtr<EXTENDED_KEY_USAGE, EXTENDED_KEY_USAGE_free>;
using BitStringPtr = OpenSslPtr<ASN1_BIT_STRING, ASN1_BIT_STRING_free>;
using Asn1TypePtr = OpenSslPtr<ASN1_TYPE, ASN1_TYPE_free>;

// The value of an extension decoded as exactly one `T`.
template <class T, T* (*Decode)(T**, const unsigned char**, long), void (*Free)(T*)>
OpenSslPtr<T, Free> DecodeExtension(const X509_EXTENSION* extension) {
    const ASN1_OCTET_STRING* value =
        X509_EXTENSION_get_data(const_cast<X509_EXTENSION*>(extension));
    if (value == nullptr) {
        return OpenSslPtr<T, Free>();
    }
    return qorssl::DecodeWhole<qorssl::OpenSslPtr<T, Free>>(Decode, ASN1_STRING_get0_data(value),
                                                            ASN1_STRING_length(value));
}

// The dotted form of `object`, however long; false when it has none.
bool OidToText(const ASN1_OBJECT* object, qorstd::QorString& text) {
    // Most identifiers fit the buffer, which saves OpenSSL a second printing.
    char buffer[128];
    const int length =
        object != nullptr ? OBJ_obj2txt(buffer, static_cast<int>(sizeof(buffer)), object, 1) : 0;
    if (length <= 0) {
        ERR_clear_error();
        return false;
    }
    if (static_cast<std::size_t>(length) < sizeof(buffer)) {
        text.assign(buffer, static_cast<unsigned int>(length));
        return true;
    }
    std::vector<char> longer(static_cast<std::size_t>(length) + 1, '\0');
    if (OBJ_obj2txt(longer.data(), length + 1, object, 1) != length) {
        ERR_clear_error();
        return false;
    }
    text.assign(longer.data(), static_cast<unsigned int>(length));
    return true;
}

void AppendOid(const ASN1_OBJECT* object, qorstd::QorVector<qorstd::QorString>& list) {
    qorstd::QorString text;
    if (!OidToText(object, text)) {
        Fail(ErrAsn1Decoding);
    }
    list.Add(text);
}

void AssignBytes(const ASN1_STRING* value, qorstd::QorArray<unsigned char>& out) {
    out.RemoveAll();
    if (value != nullptr && ASN1_STRING_length(value) > 0) {
        out.Assign(ASN1_STRING_get0_data(value),
                   static_cast<unsigned int>(ASN1_STRING_length(value)));
    }
}

// DER of a name; empty when it cannot be encoded.
qorstd::QorArray<unsigned char> EncodeName(const X509_NAME* name) {
    qorstd::QorArray<unsigned char> der;
    unsigned char* bytes = nullptr;
    const int length = name != nullptr ? i2d_X509_NAME(name, &bytes) : -1;
    OpenSslBytesPtr owner(bytes);
    if (length > 0 && owner) {
        der.Assign(owner.get(), static_cast<unsigned int>(length));
    } else {
        ERR_clear_error();
    }
    return der;
}

const X509_EXTENSION* FindFirstExtension(const X509* certificate, int nid) {
    if (certificate == nullptr) {
        return nullptr;
    }
    const int index = X509_get_ext_by_NID(certificate, nid, -1);
    return index < 0 ? nullptr : X509_get_ext(certificate, index);
}

// The extension decoders of the import. Each returns 0 when the value does
// not decode (leaving the output alone) and 1 otherwise; an identifier that
// cannot be printed throws ErrAsn1Decoding.

int DecodeKeyUsage(const X509_EXTENSION* extension, unsigned long& keyUsage) {
    BitStringPtr bits =
        DecodeExtension<ASN1_BIT_STRING, d2i_ASN1_BIT_STRING, ASN1_BIT_STRING_free>(extension);
    if (!bits) {
        return 0;
    }
    // Bits 0-7 arrive in the first byte (digitalSignature is its top bit),
    // decipherOnly (bit 8) as the top bit of the second.
    const unsigned char* data = ASN1_STRING_get0_data(bits.get());
    const int length = ASN1_STRING_length(bits.get());
    unsigned long value = 0;
    if (length > 0) {
        value |= data[0];
    }
    if (length > 1) {
        value |= static_cast<unsigned long>(data[1] & 0x80) << 8;
    }
    keyUsage |= value;
    return 1;
}

int DecodeExtendedKeyUsage(const X509_EXTENSION* extension,
                           qorstd::QorVector<qorstd::QorString>& usages) {
    ExtKeyUsagePtr purposes =
        DecodeExtension<EXTENDED_KEY_USAGE, d2i_EXTENDED_KEY_USAGE, EXTENDED_KEY_USAGE_free>(
            extension);
    if (!purposes) {
        return 0;
    }
    for (int i = 0; i < sk_ASN1_OBJECT_num(purposes.get()); ++i) {
        AppendOid(sk_ASN1_OBJECT_value(purposes.get(), i), usages);
    }
    return 1;
}

int DecodeCertificatePolicies(const X509_EXTENSION* extension,
                              qorstd::QorVector<qorstd::QorString>& policies) {
    PoliciesPtr decoded =
        DecodeExtension<CERTIFICATEPOLICIES, d2i_CERTIFICATEPOLICIES, CERTIFICATEPOLICIES_free>(
            extension);
    if (!decoded) {
        return 0;
    }
    for (int i = 0; i < sk_POLICYINFO_num(decoded.get()); ++i) {
        const POLICYINFO* info = sk_POLICYINFO_value(decoded.get(), i);
        AppendOid(info != nullptr ? info->policyid : nullptr, policies);
    }
    return 1;
}

// The content bytes of a DER character string; empty for anything else.
qorstd::QorArray<unsigned char> DecodeBraddleId(const X509_EXTENSION* extension) {
    qorstd::QorArray<unsigned char> id;
    Asn1TypePtr value = DecodeExtension<ASN1_TYPE, d2i_ASN1_TYPE, ASN1_TYPE_free>(extension);
    if (!value) {
        return id;
    }
    switch (value->type) {
        case V_ASN1_UTF8STRING:
        case V_ASN1_PRINTABLESTRING:
        case V_ASN1_IA5STRING:
        case V_ASN1_VISIBLESTRING:
        case V_ASN1_T61STRING:
        case V_ASN1_NUMERICSTRING:
        case V_ASN1_BMPSTRING:
        case V_ASN1_UNIVERSALSTRING:
            AssignBytes(value->value.asn1_string, id);
            break;
        default:
            break;
    }
    return id;
}

// OpenSSL's verdict on `certificate` against `time`, by its own comparison
// in which a limit equal to the time counts as earlier.
int TimeValidity(const X509* certificate, std::int64_t time) {
    time_t when = static_cast<time_t>(time);
    if (X509_cmp_time(X509_get0_notBefore(certificate), &when) > 0) {
        return -1;
    }
    if (X509_cmp_time(X509_get0_notAfter(certificate), &when) <= 0) {
        return 1;
    }
    return 0;
}

// Refuses pass phrases: a certificate PEM block is never encrypted, and
// OpenSSL must not prompt on the terminal for one.
int NoPassphrase(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*userData*/) {
    return -1;
}

}  // namespace

void X509Certificate::X509Deleter::operator()(x509_st* certificate) const {
    X509_free(certificate);
}

void X509Certificate::BignumDeleter::operator()(bignum_st* number) const {
    BN_free(number);
}

const std::shared_ptr<const X509Certificate::Decoded>& X509Certificate::EmptyDecoded() {
    // Never destroyed: certificates in static storage reset to it while the
    // program ends, after function-local statics are gone.
    static const std::shared_ptr<const Decoded>* const empty =
        new std::shared_ptr<const Decoded>(std::make_shared<const Decoded>());
    return *empty;
}

// ---------------------------------------------------------------- lifecycle

X509Certificate::X509Certificate()
    : m_log(std::make_unique<LogChannel>(kChannelName)), m_decoded(EmptyDecoded()) {}

X509Certificate::X509Certificate(const x509_st* certificate) : X509Certificate() {
    if (certificate == nullptr) {
        Fail(ErrInvalidParameter, L"pCert=NULL");
    }
    // A reference, not a duplicate: see the copy constructor.
    m_x509.reset(UpRef(certificate).release());
    if (!m_x509) {
        Fail(ErrOutOfMemory);
    }
    try {
        ParseX509();
    } catch (...) {
        Reset();
        throw;
    }
}

X509Certificate::X509Certificate(const char* pem) : X509Certificate() {
    ImportPEM(pem);
}

X509Certificate::X509Certificate(const unsigned char* data, long size) : X509Certificate() {
    Import(data, size);
}

X509Certificate::X509Certificate(const X509Certificate& other) : X509Certificate() {
    CopyFrom(other);
}

X509Certificate& X509Certificate::operator=(const X509Certificate& other) {
    if (this != &other) {
        Reset();
        CopyFrom(other);
    }
    return *this;
}

X509Certificate::X509Certificate(X509Certificate&& other) : X509Certificate() {
    MoveFrom(other);
}

X509Certificate& X509Certificate::operator=(X509Certificate&& other) {
    if (this != &other) {
        Reset();
        MoveFrom(other);
    }
    return *this;
}

X509Certificate::~X509Certificate() {
    m_log.reset();
    Reset();
}

void X509Certificate::CopyFrom(const X509Certificate& other) {
    // The handle, the serial number and the decoded fields are shared
    // (nothing changes them once read); the key is an object of its own.
    X509Ptr x509 = UpRef(other.m_x509.get());
    if (other.m_x509 && !x509) {
        Fail(ErrOutOfMemory);
    }
    m_privateKey.reset(other.m_privateKey ? CryptKey::CreateKey(other.m_privateKey->GetKeyEVP())
                                          : nullptr);
    m_x509.reset(x509.release());
    m_serial = other.m_serial;
    m_decoded = other.m_decoded;
}

void X509Certificate::MoveFrom(X509Certificate& other) {
    // The channel stays with each object.
    m_x509 = std::move(other.m_x509);
    m_privateKey = std::move(other.m_privateKey);
    m_serial = std::move(other.m_serial);
    m_decoded = std::move(other.m_decoded);
    other.m_decoded = EmptyDecoded();
}

void X509Certificate::Reset() {
    m_x509.reset();
    m_privateKey.reset();
    m_serial.reset();
    m_decoded = EmptyDecoded();
}

// ------------------------------------------------------------------- import

void X509Certificate::Import(const unsigned char* data, long size) {
    if (data == nullptr) {
        Fail(m_log, L"Import: pCert is NULL", ErrInvalidParameter, L"pCert=NULL");
    }
    if (size < 1) {
        Fail(m_log, L"Import: Invalid nSize", ErrInvalidParameter, L"nSize<=0");
    }
    Reset();
    X509Ptr decoded = qorssl::DecodeWhole<X509Ptr>(d2i_X509, data, size);
    if (!decoded) {
        FailCrypto(m_log, "Import: d2i_X509() failed.", ErrAsn1Decoding);
    }
    m_x509.reset(decoded.release());
    try {
        ParseX509();
    } catch (...) {
        Reset();
        throw;
    }
}

void X509Certificate::ImportPEM(const char* pem) {
    if (pem == nullptr) {
        Fail(m_log, L"ImportPEM: pCert is NULL", ErrInvalidParameter, L"pszCert=NULL");
    }
    const std::size_t length = std::strlen(pem);
    if (length == 0) {
        Fail(m_log, L"ImportPEM: Invalid pszCert", ErrInvalidParameter, L"nCertSize=0");
    }
    qorstd::QorArray<unsigned char> der;
    BioPtr bio(length <= 0x7FFFFFFF ? BIO_new_mem_buf(pem, static_cast<int>(length)) : nullptr);
    X509Ptr certificate(bio ? PEM_read_bio_X509(bio.get(), nullptr, NoPassphrase, nullptr)
                            : nullptr);
    unsigned char* bytes = nullptr;
    const int derLength = certificate ? i2d_X509(certificate.get(), &bytes) : -1;
    OpenSslBytesPtr owner(bytes);
    if (derLength <= 0 || !owner) {
        FailCrypto(m_log, "ImportPEM: QOR_X509Cer_PEM2DER() failed.", ErrBase64Decoding);
    }
    Import(owner.get(), derLength);
}

void X509Certificate::ImportPKCS12(const unsigned char* data, long size, const char* password) {
    if (data == nullptr) {
        Fail(m_log, L"ImportPKCS12: pData is NULL", ErrInvalidParameter, L"pData=NULL");
    }
    if (size < 1) {
        Fail(m_log, L"ImportPKCS12: Invalid nSize", ErrInvalidParameter, L"nSize<=0");
    }
    Pkcs12Ptr pkcs12 = keys::DecodePkcs12(data, size);
    if (!pkcs12) {
        FailCrypto(m_log, "ImportPKCS12: d2i_PKCS12() failed.", ErrPkcs12Decoding);
    }
    Reset();
    ERR_clear_error();
    EVP_PKEY* key = nullptr;
    X509* certificate = nullptr;
    const int parsed = PKCS12_parse(pkcs12.get(), password, &key, &certificate, nullptr);
    EvpPkeyPtr keyOwner(key);
    X509Ptr certificateOwner(certificate);
    if (parsed != 1) {
        if (keys::TakePkcs12MacError()) {
            Fail(m_log, L"ImportPKCS12: Incorrect password.", ErrIncorrectPassword);
        }
        Fail(m_log, L"ImportPKCS12: Parsing error.", ErrPkcs12Parsing);
    }
    if (!certificateOwner) {
        Fail(m_log, L"ImportPKCS12: Parsing certificate error.", ErrPkcs12Parsing);
    }
    m_x509.reset(certificateOwner.release());
    try {
        ParseX509();
        if (keyOwner) {
            m_privateKey.reset(CryptKey::CreateKey(keyOwner.get()));
            if (!m_privateKey) {
                Fail(m_log, L"ImportPKCS12: Import private key error.", ErrPrivateKeyRead);
            }
        }
    } catch (...) {
        Reset();
        throw;
    }
}

void X509Certificate::ImportPKCS12(const unsigned char* data, long size, const wchar_t* password) {
    qorstd::QorString narrow;
    const char* ascii = nullptr;
    if (password != nullptr) {
        narrow = qorstd::text::WideToNarrow(password, true);
        if (narrow.empty() && password[0] != L'\0') {
            Fail(ErrPasswordInvalidChars);
        }
        ascii = narrow.c_str();
    }
    ImportPKCS12(data, size, ascii);
}

// ------------------------------------------------------------------ parsing

void X509Certificate::ParseX509() {
    X509* certificate = m_x509.get();
    // OpenSSL fills its extension cache on first use, and threads sharing
    // the certificate would race there: fill it now, while only this object
    // holds it. Bad extensions are reported where a check reads them.
    (void)X509_check_purpose(certificate, -1, 0);
    ERR_clear_error();
    // Filled here and only read afterwards: copies share it.
    const std::shared_ptr<Decoded> fresh = std::make_shared<Decoded>();
    Decoded& decoded = *fresh;
    decoded.version = static_cast<unsigned long>(X509_get_version(certificate));

    if (!qortime::Asn1TimeToSeconds(X509_get0_notBefore(certificate), &decoded.notBefore)) {
        Fail(m_log, L"ParseX509: Parsing notBefore failed.", ErrAsn1Decoding);
    }
    if (!qortime::Asn1TimeToSeconds(X509_get0_notAfter(certificate), &decoded.notAfter)) {
        Fail(m_log, L"ParseX509: Parsing notAfter failed.", ErrAsn1Decoding);
    }

    const std::shared_ptr<const bignum_st> serial(
        ASN1_INTEGER_to_BN(X509_get0_serialNumber(certificate), nullptr), BignumDeleter());
    if (!serial) {
        FailCrypto(m_log, "ParseX509: Parsing serial number failed.", ErrAsn1Decoding);
    }

    decoded.signatureNid = X509_get_signature_nid(certificate);
    if (decoded.signatureNid == NID_undef) {
        Fail(m_log, L"ParseX509: Parsing signature algorithm failed.", ErrAlgorithmNotSupported);
    }

    decoded.keyLength = 0;
    const EVP_PKEY* publicKey = X509_get0_pubkey(certificate);
    if (publicKey != nullptr && EVP_PKEY_get_base_id(publicKey) == EVP_PKEY_RSA) {
        decoded.keyLength = EVP_PKEY_get_bits(publicKey);
        if (decoded.keyLength <= 0) {
            decoded.keyLength = 0;
            Fail(m_log, L"ParseX509: Parsing key length failed.", ErrAlgorithmNotSupported);
        }
    }
    ERR_clear_error();

    // The names will read the certificate's own structures and keep a
    // reference to it, instead of duplicating them.
    const std::shared_ptr<const void> owner = UpRef(certificate);
    if (!owner) {
        Fail(ErrOutOfMemory);
    }
    const X509_NAME* subject = X509_get_subject_name(certificate);
    if (subject == nullptr) {
        Fail(m_log, L"ParseX509: Parsing subject DN failed.", ErrAsn1Decoding);
    }
    if (!x509::NameEntriesReadable(subject)) {
        Fail(ErrAsn1Decoding, L"pNameValues=NULL");
    }
    decoded.subjectSource = subject;
    decoded.subject = EncodeName(subject);
    if (decoded.subject.GetSize() < 1) {
        Fail(m_log, L"ParseX509: Parsing subject raw data failed.", ErrAsn1Decoding);
    }
    const X509_NAME* issuer = X509_get_issuer_name(certificate);
    if (issuer == nullptr) {
        Fail(m_log, L"ParseX509: Parsing issuer DN failed.", ErrAsn1Decoding);
    }
    if (!x509::NameEntriesReadable(issuer)) {
        Fail(ErrAsn1Decoding, L"pNameValues=NULL");
    }
    decoded.issuerSource = issuer;
    decoded.owner = owner;
    decoded.issuer = EncodeName(issuer);
    if (decoded.issuer.GetSize() < 1) {
        Fail(m_log, L"ParseX509: Parsing issuer raw data failed.", ErrAsn1Decoding);
    }

    // The first extension of that type, compared as X509_get_ext_by_OBJ
    // does, without making the object for it each time.
    for (int i = 0; i < X509_get_ext_count(certificate); ++i) {
        const X509_EXTENSION* extension = X509_get_ext(certificate, i);
        const ASN1_OBJECT* type = X509_EXTENSION_get_object(const_cast<X509_EXTENSION*>(extension));
        if (static_cast<std::size_t>(OBJ_length(type)) == sizeof(kBraddleIdOid) &&
            std::memcmp(OBJ_get0_data(type), kBraddleIdOid, sizeof(kBraddleIdOid)) == 0) {
            decoded.braddleId = DecodeBraddleId(extension);
            break;
        }
    }

    ParseExtensions(certificate, decoded);
    m_serial = serial;
    m_decoded = fresh;
}

void X509Certificate::ParseExtensions(const x509_st* certificate, Decoded& decoded) {
    for (int i = 0; i < X509_get_ext_count(certificate); ++i) {
        const X509_EXTENSION* extension = X509_get_ext(certificate, i);
        const ASN1_OBJECT* type = X509_EXTENSION_get_object(const_cast<X509_EXTENSION*>(extension));
        switch (OBJ_obj2nid(type)) {
            case NID_subject_key_identifier: {
                Asn1OctetStringPtr keyId = DecodeExtension<ASN1_OCTET_STRING, d2i_ASN1_OCTET_STRING,
                                                           ASN1_OCTET_STRING_free>(extension);
                if (!keyId) {
                    Fail(ErrAsn1Decoding);
                }
                AssignBytes(keyId.get(), decoded.subjectKeyId);
                break;
            }
            case NID_key_usage:
                DecodeKeyUsage(extension, decoded.keyUsage);
                break;
            case NID_certificate_policies:
                DecodeCertificatePolicies(extension, decoded.certificatePolicies);
                break;
            case NID_authority_key_identifier: {
                AuthorityKeyIdPtr keyId =
                    DecodeExtension<AUTHORITY_KEYID, d2i_AUTHORITY_KEYID, AUTHORITY_KEYID_free>(
                        extension);
                if (keyId) {
                    AssignBytes(keyId->keyid, decoded.authorityKeyId);
                }
                break;
            }
            case NID_ext_key_usage:
                DecodeExtendedKeyUsage(extension, decoded.extendedKeyUsages);
                break;
            case NID_info_access: {
                AccessInfoPtr access =
                    DecodeExtension<AUTHORITY_INFO_ACCESS, d2i_AUTHORITY_INFO_ACCESS,
                                    AUTHORITY_INFO_ACCESS_free>(extension);
                for (int j = 0; access && j < sk_ACCESS_DESCRIPTION_num(access.get()); ++j) {
                    const ACCESS_DESCRIPTION* entry = sk_ACCESS_DESCRIPTION_value(access.get(), j);
                    if (entry != nullptr && OBJ_obj2nid(entry->method) == NID_ad_OCSP &&
                        entry->location != nullptr && entry->location->type == GEN_URI) {
                        const ASN1_IA5STRING* uri = entry->location->d.uniformResourceIdentifier;
                        decoded.ocspUrl.assign(
                            reinterpret_cast<const char*>(ASN1_STRING_get0_data(uri)),
                            static_cast<unsigned int>(ASN1_STRING_length(uri)));
                    }
                }
                break;
            }
            case NID_qcStatements:
                x509::AppendQcStatements(extension, decoded.qcStatements);
                break;
            default:
                break;
        }
    }
}

// ------------------------------------------------------------------- export

qorstd::QorArray<unsigned char> X509Certificate::Export() const {
    qorstd::QorArray<unsigned char> der;
    if (!m_x509) {
        return der;
    }
    unsigned char* bytes = nullptr;
    const int length = i2d_X509(m_x509.get(), &bytes);
    OpenSslBytesPtr owner(bytes);
    if (length <= 0 || !owner) {
        FailCrypto(m_log, "Export: i2d_X509() failed.", ErrAsn1Encoding);
    }
    der.Assign(owner.get(), static_cast<unsigned int>(length));
    return der;
}

qorstd::QorString X509Certificate::ExportPEM() const {
    if (!m_x509) {
        return qorstd::QorString();
    }
    BioPtr bio(BIO_new(BIO_s_mem()));
    char* text = nullptr;
    long length = 0;
    if (!bio || PEM_write_bio_X509(bio.get(), m_x509.get()) != 1 ||
        (length = BIO_get_mem_data(bio.get(), &text)) <= 0 || text == nullptr) {
        FailCrypto(m_log, "ExportPEM: QOR_X509Cer_Int2PEM() failed.", ErrBase64Encoding);
    }
    return qorstd::QorString(text, static_cast<unsigned int>(length));
}

qorstd::QorArray<unsigned char> X509Certificate::ExportPrivateKey() const {
    qorstd::QorArray<unsigned char> der;
    if (!HasPrivateKey()) {
        return der;
    }
    unsigned char* bytes = nullptr;
    const int length = i2d_PrivateKey(m_privateKey->GetKeyEVP(), &bytes);
    OpenSslBytesPtr owner(bytes);
    if (length <= 0 || !owner) {
        FailCrypto(m_log, "Export: i2d_PrivateKey() failed.", ErrAsn1Encoding);
    }
    der.Assign(owner.get(), static_cast<unsigned int>(length));
    return der;
}

// ----------------------------------------------------------- derived values

const X509Name& X509Certificate::GetSubjectName() const {
    ReadNames(*m_decoded);
    return m_decoded->subjectName;
}

const X509Name& X509Certificate::GetIssuerName() const {
    ReadNames(*m_decoded);
    return m_decoded->issuerName;
}

void X509Certificate::ReadNames(const Decoded& decoded) {
    std::call_once(decoded.namesRead, [&decoded] {
        if (decoded.subjectSource != nullptr) {
            decoded.subjectName = X509Name(decoded.subjectSource, decoded.owner);
        }
        if (decoded.issuerSource != nullptr) {
            decoded.issuerName = X509Name(decoded.issuerSource, decoded.owner);
        }
    });
}

qorstd::QorString X509Certificate::GetSerialNumberStringDec() const {
    if (!m_serial) {
        return qorstd::QorString();
    }
    OpenSslTextPtr text(BN_bn2dec(m_serial.get()));
    if (!text) {
        FailCrypto(m_log, "GetSerialNumberStringDec: BN_bn2dec() failed.", ErrAsn1Decoding);
    }
    return qorstd::QorString(text.get());
}

qorstd::QorString X509Certificate::GetSerialNumberStringHex() const {
    if (!m_serial) {
        return qorstd::QorString();
    }
    OpenSslTextPtr text(BN_bn2hex(m_serial.get()));
    if (!text) {
        FailCrypto(m_log, "GetSerialNumberStringHex: BN_bn2hex() failed.", ErrAsn1Decoding);
    }
    return qorstd::QorString(text.get());
}

qorstd::QorString X509Certificate::GetSubjectKeyIdStringHex() const {
    return x509::LowerHex(m_decoded->subjectKeyId);
}

qorstd::QorString X509Certificate::GetAuthorityKeyIdStringHex() const {
    return x509::LowerHex(m_decoded->authorityKeyId);
}

qorstd::QorArray<unsigned char> X509Certificate::GetSHA1Hash() const {
    return x509::Sha1(Export());
}

qorstd::QorString X509Certificate::GetSHA1HashHex() const {
    return x509::LowerHex(GetSHA1Hash());
}

qorstd::QorString X509Certificate::GetSignatureAlgorithmName() const {
    const char* name =
        m_decoded->signatureNid != NID_undef ? OBJ_nid2ln(m_decoded->signatureNid) : nullptr;
    return qorstd::QorString(name != nullptr ? name : "");
}

qorstd::QorString X509Certificate::GetSignatureAlgorithmOID() const {
    qorstd::QorString text;
    if (m_decoded->signatureNid != NID_undef) {
        OidToText(OBJ_nid2obj(m_decoded->signatureNid), text);
    }
    return text;
}

qorstd::QorString X509Certificate::GetHashAlgorithmName() const {
    const std::string name = GetSignatureAlgorithmName().c_str();
    const std::size_t at = name.rfind("With");
    return qorstd::QorString(at == std::string::npos ? name.c_str() : name.substr(0, at).c_str());
}

qorstd::QorString X509Certificate::GetKeyAlgorithmName() const {
    const std::string name = GetSignatureAlgorithmName().c_str();
    const std::size_t at = name.find("With");
    return qorstd::QorString(at == std::string::npos ? name.c_str() : name.substr(at + 4).c_str());
}

double X509Certificate::GetTimeToExpiration() const {
    if (!m_x509) {
        return 0.0;
    }
    return static_cast<double>(m_decoded->notAfter - CryptUtils::GetCurrentTimeUTC());
}

qorstd::QorStringW X509Certificate::PrintName(const X509_name_st* name, int flags,
                                              const wchar_t* logLine) const {
    qorstd::QorStringW text;
    if (!m_x509 || name == nullptr) {
        return text;
    }
    if (!x509::PrintName(name, flags, text)) {
        Fail(m_log, logLine, ErrAsn1Decoding);
    }
    return text;
}

qorstd::QorStringW X509Certificate::GetSubjectStringX500(int flags) const {
    if (m_decoded->subject.GetSize() == 0) {
        return qorstd::QorStringW();
    }
    return PrintName(m_decoded->subjectSource, flags,
                     L"GetSubjectStringX500: QOR_X509Name_Print() failed.");
}

qorstd::QorStringW X509Certificate::GetIssuerStringX500(int flags) const {
    if (m_decoded->issuer.GetSize() == 0) {
        return qorstd::QorStringW();
    }
    return PrintName(m_decoded->issuerSource, flags,
                     L"GetIssuerStringX500: QOR_X509Name_Print() failed.");
}

qorstd::QorString X509Certificate::GetQorBraddleId() const {
    if (m_decoded->braddleId.GetSize() == 0) {
        return qorstd::QorString();
    }
    return qorstd::QorString(reinterpret_cast<const char*>(m_decoded->braddleId.GetData()),
                             m_decoded->braddleId.GetSize());
}

// -------------------------------------------------------------------- tests

int X509Certificate::Equals(const X509Certificate& other) const {
    if (!m_x509 || !other.m_x509) {
        return 0;
    }
    return X509_cmp(m_x509.get(), other.m_x509.get()) == 0 ? 1 : 0;
}

int X509Certificate::IsCA() const {
    if (!m_x509) {
        return 0;
    }
    const int result = X509_check_ca(m_x509.get()) > 0 ? 1 : 0;
    ERR_clear_error();
    return result;
}

int X509Certificate::IsSelfSigned() const {
    if (!m_x509) {
        return 0;
    }
    return x509::IsIssuedBy(m_x509.get(), m_x509.get()) ? 1 : 0;
}

int X509Certificate::HasPrivateKey() const {
    if (!m_x509 || !m_privateKey || m_privateKey->GetKeyEVP() == nullptr) {
        return 0;
    }
    const int result =
        X509_check_private_key(m_x509.get(), const_cast<EVP_PKEY*>(m_privateKey->GetKeyEVP())) == 1
            ? 1
            : 0;
    ERR_clear_error();
    return result;
}

void X509Certificate::SetPrivateKey(CryptKey* key) {
    m_privateKey.reset();
    if (key != nullptr) {
        m_privateKey.reset(CryptKey::CreateKey(key->GetKeyEVP()));
    }
}

int X509Certificate::IsQor() const {
    if (!m_x509) {
        return 0;
    }
    qorstd::QorStringW issuer;
    if (!x509::PrintName(X509_get_issuer_name(m_x509.get()), x509::kNamePrintX500Flags, issuer)) {
        return 0;
    }
    return std::wcsstr(issuer.c_str(), L"Q.OR") != nullptr ? 1 : 0;
}

int X509Certificate::IsQorStandard() const {
    if (IsQor() == 0) {
        return 0;
    }
    qorstd::QorStringW issuer;
    if (!x509::PrintName(X509_get_issuer_name(m_x509.get()), x509::kNamePrintX500Flags, issuer)) {
        return 0;
    }
    return std::wcsstr(issuer.c_str(), L"tandard") != nullptr ||
                   std::wcsstr(issuer.c_str(), L"Public") != nullptr
               ? 1
               : 0;
}

int X509Certificate::IsQorBraddles() const {
    return m_x509 && m_decoded->braddleId.GetSize() > 0 ? 1 : 0;
}

int X509Certificate::IsPseudonymous() const {
    if (!m_x509) {
        return 0;
    }
    std::wstring commonName = GetSubjectName().GetCommonName().c_str();
    for (wchar_t& c : commonName) {
        c = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)));
    }
    if (commonName.find(L"pseudonym") != std::wstring::npos) {
        return 1;
    }
    return GetSubjectName().GetPseudonym().empty() ? 0 : 1;
}

int X509Certificate::HasQualifiedQcStatement() const {
    if (!m_x509) {
        TLOG_DEBUG(m_log, L"HasQualifiedQcStatement - m_pX509 == NULL.");
        return 0;
    }
    const QcStatement compliance(x509::kQcComplianceOid);
    for (unsigned int i = 0; i < m_decoded->qcStatements.GetSize(); ++i) {
        if (m_decoded->qcStatements[i] == compliance) {
            return 1;
        }
    }
    return 0;
}

int X509Certificate::Compare(cptCompareOption option, const X509Certificate& other) const {
    if (!m_x509 || !other.m_x509) {
        return 0;
    }
    switch (option) {
        case cptCompareSubject:
            return X509_NAME_cmp(X509_get_subject_name(m_x509.get()),
                                 X509_get_subject_name(other.m_x509.get())) == 0
                       ? 1
                       : 0;
        case cptCompareIssuer:
            return X509_NAME_cmp(X509_get_issuer_name(m_x509.get()),
                                 X509_get_issuer_name(other.m_x509.get())) == 0
                       ? 1
                       : 0;
        case cptCompareIssuerAndSerial:
            return X509_NAME_cmp(X509_get_issuer_name(m_x509.get()),
                                 X509_get_issuer_name(other.m_x509.get())) == 0 &&
                           ASN1_INTEGER_cmp(X509_get0_serialNumber(m_x509.get()),
                                            X509_get0_serialNumber(other.m_x509.get())) == 0
                       ? 1
                       : 0;
        case cptCompareCertificateKind: {
            const bool q = HasQualifiedQcStatement() != 0;
            const bool b = m_decoded->braddleId.GetSize() > 0;
            const bool otherQ = other.HasQualifiedQcStatement() != 0;
            const bool otherB = other.m_decoded->braddleId.GetSize() > 0;
            if (b && q) {
                return otherB && otherQ ? 1 : 0;
            }
            if (q) {
                return otherQ ? 1 : 0;
            }
            if (b) {
                return otherB && !otherQ ? 1 : 0;
            }
            if (IsQorStandard() != 0) {
                return other.IsQorStandard() != 0 ? 1 : 0;
            }
            return !otherB && !otherQ ? 1 : 0;
        }
        case cptCompareBraddleId:
            return m_decoded->braddleId.GetSize() > 0 &&
                           m_decoded->braddleId.GetSize() == other.m_decoded->braddleId.GetSize() &&
                           std::memcmp(m_decoded->braddleId.GetData(),
                                       other.m_decoded->braddleId.GetData(),
                                       m_decoded->braddleId.GetSize()) == 0
                       ? 1
                       : 0;
        default:
            return 0;
    }
}

bool X509Certificate::VerifyDN(const std::vector<std::pair<std::string, std::string>>& expected,
                               DNSource source) const {
    const qorstd::QorArray<unsigned char>* der = source == DNSourceIssuer    ? &m_decoded->issuer
                                                 : source == DNSourceSubject ? &m_decoded->subject
                                                                             : nullptr;
    X509NamePtr name;
    if (der != nullptr && der->GetSize() > 0) {
        name = qorssl::DecodeWhole<X509NamePtr>(d2i_X509_NAME, der->GetData(),
                                                static_cast<long>(der->GetSize()));
    }
    if (!name) {
        Fail(ErrInternal, L"x509Name == NULL.");
    }

    std::vector<std::pair<std::string, std::string>> entries;
    for (int i = 0; i < X509_NAME_entry_count(name.get()); ++i) {
        const X509_NAME_ENTRY* entry = X509_NAME_get_entry(name.get(), i);
        if (entry == nullptr) {
            Fail(ErrInternal, L"pSubjectEntry == NULL.");
        }
        const ASN1_OBJECT* oid = X509_NAME_ENTRY_get_object(entry);
        const ASN1_STRING* value = X509_NAME_ENTRY_get_data(entry);
        if (oid == nullptr || value == nullptr) {
            Fail(ErrInternal, L"!pSubjectEntryOID || !pSubjectEntryValue");
        }
        qorstd::QorString oidText;
        if (!OidToText(oid, oidText)) {
            Fail(ErrInternal, L"OBJ_obj2txt(pcOID, iOIDSize, pSubjectEntryOID, 1) == 0");
        }
        unsigned char* utf8 = nullptr;
        const int length = ASN1_STRING_to_UTF8(&utf8, value);
        OpenSslBytesPtr utf8Owner(utf8);
        if (length < 0) {
            Fail(ErrInternal, L"ASN1_STRING_to_UTF8(&pucValueUTF8, pSubjectEntryValue) == 0");
        }
        std::string valueText;
        if (utf8Owner && length > 0) {
            valueText.assign(reinterpret_cast<const char*>(utf8Owner.get()),
                             static_cast<std::size_t>(length));
        }
        entries.emplace_back(oidText.c_str(), valueText);
    }

    for (const auto& wanted : expected) {
        bool found = false;
        for (const auto& entry : entries) {
            if (entry == wanted) {
                found = true;
                break;
            }
        }
        if (!found) {
            return false;
        }
    }
    return true;
}

// ----------------------------------------------------- static extension parsers

int X509Certificate::CheckTimeValidity(x509_st* certificate, const std::int64_t& time) {
    if (certificate == nullptr) {
        return 1;
    }
    return TimeValidity(certificate, time);
}

int X509Certificate::ParseKeyUsage(x509_st* certificate, unsigned long& keyUsage) {
    const X509_EXTENSION* extension = FindFirstExtension(certificate, NID_key_usage);
    return extension != nullptr ? DecodeKeyUsage(extension, keyUsage) : 0;
}

int X509Certificate::ParseExtendedKeyUsage(x509_st* certificate,
                                           qorstd::QorVector<qorstd::QorString>& usages) {
    const X509_EXTENSION* extension = FindFirstExtension(certificate, NID_ext_key_usage);
    return extension != nullptr ? DecodeExtendedKeyUsage(extension, usages) : 0;
}

int X509Certificate::ParseCertificatePolicies(x509_st* certificate,
                                              qorstd::QorVector<qorstd::QorString>& policies) {
    const X509_EXTENSION* extension = FindFirstExtension(certificate, NID_certificate_policies);
    return extension != nullptr ? DecodeCertificatePolicies(extension, policies) : 0;
}

int X509Certificate::ParseQCStatements(x509_st* certificate,
                                       qorstd::QorVector<QcStatement>& statements) {
    return x509::ParseCertificateQcStatements(certificate, statements);
}

// ------------------------------------------------------------- verification

void X509Certificate::CheckTimeValidityThrow(const std::int64_t& time) const {
    if (!m_x509) {
        Fail(m_log, L"CheckTimeValidityThrow: cert is NULL.", ErrInvalidParameter, L"cert=NULL");
    }
    const int validity = TimeValidity(m_x509.get(), time);
    if (validity < 0) {
        Fail(m_log, L"Verify: Certificate is not yet valid.", ErrCertNotTimeValid);
    }
    if (validity > 0) {
        Fail(m_log, L"Verify: Certificate has expired.", ErrCertNotTimeValid);
    }
}

void X509Certificate::VerifySignature(evp_pkey_st* issuerKey, int releaseKey) const {
    EvpPkeyPtr release(releaseKey == 1 ? issuerKey : nullptr);
    if (issuerKey == nullptr) {
        FailCrypto(m_log, "Verify: X509_get_pubkey() failed.", ErrAsn1Decoding);
    }
    if (!m_x509) {
        Fail(m_log, L"Verify: m_pX509 is NULL", ErrInternal, L"GetX509()=NULL");
    }
    if (X509_verify(m_x509.get(), issuerKey) <= 0) {
        FailCrypto(m_log, "Verify: X509_verify() failed.", ErrCertBadSignature);
    }
    ERR_clear_error();
}

}  // namespace TesseraLib
