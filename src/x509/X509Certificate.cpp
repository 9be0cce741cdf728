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

const char kBraddleIdOid[] = "1.3.6.1.4.1.47385.4.3";
const wchar_t kChannelName[] = L"X509Certificate";

using AccessInfoPtr = OpenSslPtr<AUTHORITY_INFO_ACCESS, AUTHORITY_INFO_ACCESS_free>;
using PoliciesPtr = OpenSslPtr<CERTIFICATEPOLICIES, CERTIFICATEPOLICIES_free>;
using ExtKeyUsagePtr = OpenSslPtr<EXTENDED_KEY_USAGE, EXTENDED_KEY_USAGE_free>;
using BitStringPtr = OpenSslPtr<ASN1_BIT_STRING, ASN1_BIT_STRING_free>;
using Asn1TypePtr = OpenSslPtr<ASN1_TYPE, ASN1_TYPE_free>;

[[noreturn]] void Fail(int code, const wchar_t* message = L"") {
    CryptException::Throw(code, message);
}

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
    const int length = object != nullptr ? OBJ_obj2txt(nullptr, 0, object, 1) : 0;
    if (length <= 0) {
        ERR_clear_error();
        return false;
    }
    std::vector<char> buffer(static_cast<std::size_t>(length) + 1, '\0');
    if (OBJ_obj2txt(buffer.data(), length + 1, object, 1) != length) {
        ERR_clear_error();
        return false;
    }
    text.assign(buffer.data(), static_cast<unsigned int>(length));
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

// ---------------------------------------------------------------- lifecycle

X509Certificate::X509Certificate()
    : m_log(std::make_unique<LogChannel>(kChannelName)),
      m_version(0),
      m_notBefore(0),
      m_notAfter(0),
      m_signatureNid(0),
      m_keyUsage(0),
      m_keyLength(0) {}

X509Certificate::X509Certificate(const x509_st* certificate) : X509Certificate() {
    if (certificate == nullptr) {
        Fail(ErrInvalidParameter, L"pCert=NULL");
    }
    // A reference, not a duplicate: see the copy constructor.
    X509* handle = const_cast<X509*>(certificate);
    if (X509_up_ref(handle) != 1) {
        ERR_clear_error();
        Fail(ErrOutOfMemory);
    }
    m_x509.reset(handle);
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

X509Certificate::~X509Certificate() {
    m_log.reset();
    Reset();
}

void X509Certificate::CopyFrom(const X509Certificate& other) {
    if (other.m_x509) {
        if (X509_up_ref(other.m_x509.get()) != 1) {
            ERR_clear_error();
            Fail(ErrOutOfMemory);
        }
        m_x509.reset(other.m_x509.get());
    }
    if (other.m_serial) {
        m_serial.reset(BN_dup(other.m_serial.get()));
        if (!m_serial) {
            ERR_clear_error();
            Reset();
            Fail(ErrOutOfMemory);
        }
    }
    if (other.m_privateKey) {
        m_privateKey.reset(CryptKey::CreateKey(other.m_privateKey->GetKeyEVP()));
    }
    m_version = other.m_version;
    m_notBefore = other.m_notBefore;
    m_notAfter = other.m_notAfter;
    m_signatureNid = other.m_signatureNid;
    m_subjectName = other.m_subjectName;
    m_issuerName = other.m_issuerName;
    m_subject = other.m_subject;
    m_issuer = other.m_issuer;
    m_subjectKeyId = other.m_subjectKeyId;
    m_authorityKeyId = other.m_authorityKeyId;
    m_braddleId = other.m_braddleId;
    m_keyUsage = other.m_keyUsage;
    m_extendedKeyUsages = other.m_extendedKeyUsages;
    m_qcStatements = other.m_qcStatements;
    m_certificatePolicies = other.m_certificatePolicies;
    m_ocspUrl = other.m_ocspUrl;
    m_keyLength = other.m_keyLength;
}

void X509Certificate::Reset() {
    m_x509.reset();
    m_privateKey.reset();
    m_serial.reset();
    m_version = 0;
    m_notBefore = 0;
    m_notAfter = 0;
    m_signatureNid = 0;
    m_subjectName.Reset();
    m_issuerName.Reset();
    m_subject.RemoveAll();
    m_issuer.RemoveAll();
    m_subjectKeyId.RemoveAll();
    m_authorityKeyId.RemoveAll();
    m_braddleId.RemoveAll();
    m_keyUsage = 0;
    m_extendedKeyUsages.RemoveAll();
    m_qcStatements.RemoveAll();
    m_certificatePolicies.RemoveAll();
    m_ocspUrl.clear();
    m_keyLength = 0;
}

void X509Certificate::LogError(const wchar_t* text) const {
    if (m_log && m_log->IsErrorEnabled()) {
        m_log->Write(LogLevel::Error, text);
    }
}

void X509Certificate::LogCryptoErrors(const char* text) const {
    if (m_log && m_log->IsErrorEnabled()) {
        m_log->WriteCryptoErrors(text);
    }
    ERR_clear_error();
}

// ------------------------------------------------------------------- import

void X509Certificate::Import(const unsigned char* data, long size) {
    if (data == nullptr) {
        LogError(L"Import: pCert is NULL");
        Fail(ErrInvalidParameter, L"pCert=NULL");
    }
    if (size < 1) {
        LogError(L"Import: Invalid nSize");
        Fail(ErrInvalidParameter, L"nSize<=0");
    }
    Reset();
    X509Ptr decoded = qorssl::DecodeWhole<X509Ptr>(d2i_X509, data, size);
    if (!decoded) {
        LogCryptoErrors("Import: d2i_X509() failed.");
        Fail(ErrAsn1Decoding);
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
        LogError(L"ImportPEM: pCert is NULL");
        Fail(ErrInvalidParameter, L"pszCert=NULL");
    }
    const std::size_t length = std::strlen(pem);
    if (length == 0) {
        LogError(L"ImportPEM: Invalid pszCert");
        Fail(ErrInvalidParameter, L"nCertSize=0");
    }
    qorstd::QorArray<unsigned char> der;
    BioPtr bio(length <= 0x7FFFFFFF ? BIO_new_mem_buf(pem, static_cast<int>(length)) : nullptr);
    X509Ptr certificate(bio ? PEM_read_bio_X509(bio.get(), nullptr, NoPassphrase, nullptr)
                            : nullptr);
    unsigned char* bytes = nullptr;
    const int derLength = certificate ? i2d_X509(certificate.get(), &bytes) : -1;
    OpenSslBytesPtr owner(bytes);
    if (derLength <= 0 || !owner) {
        LogCryptoErrors("ImportPEM: QOR_X509Cer_PEM2DER() failed.");
        Fail(ErrBase64Decoding);
    }
    Import(owner.get(), derLength);
}

void X509Certificate::ImportPKCS12(const unsigned char* data, long size, const char* password) {
    if (data == nullptr) {
        LogError(L"ImportPKCS12: pData is NULL");
        Fail(ErrInvalidParameter, L"pData=NULL");
    }
    if (size < 1) {
        LogError(L"ImportPKCS12: Invalid nSize");
        Fail(ErrInvalidParameter, L"nSize<=0");
    }
    Pkcs12Ptr pkcs12 = keys::DecodePkcs12(data, size);
    if (!pkcs12) {
        LogCryptoErrors("ImportPKCS12: d2i_PKCS12() failed.");
        Fail(ErrPkcs12Decoding);
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
            LogError(L"ImportPKCS12: Incorrect password.");
            Fail(ErrIncorrectPassword);
        }
        LogError(L"ImportPKCS12: Parsing error.");
        Fail(ErrPkcs12Parsing);
    }
    if (!certificateOwner) {
        LogError(L"ImportPKCS12: Parsing certificate error.");
        Fail(ErrPkcs12Parsing);
    }
    m_x509.reset(certificateOwner.release());
    try {
        ParseX509();
        if (keyOwner) {
            m_privateKey.reset(CryptKey::CreateKey(keyOwner.get()));
            if (!m_privateKey) {
                LogError(L"ImportPKCS12: Import private key error.");
                Fail(ErrPrivateKeyRead);
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
    m_version = static_cast<unsigned long>(X509_get_version(certificate));

    if (!qortime::Asn1TimeToSeconds(X509_get0_notBefore(certificate), &m_notBefore)) {
        LogError(L"ParseX509: Parsing notBefore failed.");
        Fail(ErrAsn1Decoding);
    }
    if (!qortime::Asn1TimeToSeconds(X509_get0_notAfter(certificate), &m_notAfter)) {
        LogError(L"ParseX509: Parsing notAfter failed.");
        Fail(ErrAsn1Decoding);
    }

    m_serial.reset(ASN1_INTEGER_to_BN(X509_get0_serialNumber(certificate), nullptr));
    if (!m_serial) {
        LogCryptoErrors("ParseX509: Parsing serial number failed.");
        Fail(ErrAsn1Decoding);
    }

    m_signatureNid = X509_get_signature_nid(certificate);
    if (m_signatureNid == NID_undef) {
        LogError(L"ParseX509: Parsing signature algorithm failed.");
        Fail(ErrAlgorithmNotSupported);
    }

    m_keyLength = 0;
    const EVP_PKEY* publicKey = X509_get0_pubkey(certificate);
    if (publicKey != nullptr && EVP_PKEY_get_base_id(publicKey) == EVP_PKEY_RSA) {
        m_keyLength = EVP_PKEY_get_bits(publicKey);
        if (m_keyLength <= 0) {
            m_keyLength = 0;
            LogError(L"ParseX509: Parsing key length failed.");
            Fail(ErrAlgorithmNotSupported);
        }
    }
    ERR_clear_error();

    // The names read the certificate's own structures and keep a reference
    // to it, instead of duplicating them.
    if (X509_up_ref(certificate) != 1) {
        ERR_clear_error();
        Fail(ErrOutOfMemory);
    }
    const std::shared_ptr<const void> owner(certificate, [](const void* held) {
        X509_free(static_cast<X509*>(const_cast<void*>(held)));
    });
    const X509_NAME* subject = X509_get_subject_name(certificate);
    if (subject == nullptr) {
        LogError(L"ParseX509: Parsing subject DN failed.");
        Fail(ErrAsn1Decoding);
    }
    m_subjectName = X509Name(subject, owner);
    m_subject = EncodeName(subject);
    if (m_subject.GetSize() < 1) {
        LogError(L"ParseX509: Parsing subject raw data failed.");
        Fail(ErrAsn1Decoding);
    }
    const X509_NAME* issuer = X509_get_issuer_name(certificate);
    if (issuer == nullptr) {
        LogError(L"ParseX509: Parsing issuer DN failed.");
        Fail(ErrAsn1Decoding);
    }
    m_issuerName = X509Name(issuer, owner);
    m_issuer = EncodeName(issuer);
    if (m_issuer.GetSize() < 1) {
        LogError(L"ParseX509: Parsing issuer raw data failed.");
        Fail(ErrAsn1Decoding);
    }

    Asn1ObjectPtr braddleOid(OBJ_txt2obj(kBraddleIdOid, 1));
    const int braddleIndex =
        braddleOid ? X509_get_ext_by_OBJ(certificate, braddleOid.get(), -1) : -1;
    if (braddleIndex >= 0) {
        m_braddleId = DecodeBraddleId(X509_get_ext(certificate, braddleIndex));
    }

    ParseExtensions();
}

void X509Certificate::ParseExtensions() {
    const X509* certificate = m_x509.get();
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
                AssignBytes(keyId.get(), m_subjectKeyId);
                break;
            }
            case NID_key_usage:
                DecodeKeyUsage(extension, m_keyUsage);
                break;
            case NID_certificate_policies:
                DecodeCertificatePolicies(extension, m_certificatePolicies);
                break;
            case NID_authority_key_identifier: {
                AuthorityKeyIdPtr keyId =
                    DecodeExtension<AUTHORITY_KEYID, d2i_AUTHORITY_KEYID, AUTHORITY_KEYID_free>(
                        extension);
                if (keyId) {
                    AssignBytes(keyId->keyid, m_authorityKeyId);
                }
                break;
            }
            case NID_ext_key_usage:
                DecodeExtendedKeyUsage(extension, m_extendedKeyUsages);
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
                        m_ocspUrl.assign(reinterpret_cast<const char*>(ASN1_STRING_get0_data(uri)),
                                         static_cast<unsigned int>(ASN1_STRING_length(uri)));
                    }
                }
                break;
            }
            case NID_qcStatements:
                x509::AppendQcStatements(extension, m_qcStatements);
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
        LogCryptoErrors("Export: i2d_X509() failed.");
        Fail(ErrAsn1Encoding);
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
        LogCryptoErrors("ExportPEM: QOR_X509Cer_Int2PEM() failed.");
        Fail(ErrBase64Encoding);
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
        LogCryptoErrors("Export: i2d_PrivateKey() failed.");
        Fail(ErrAsn1Encoding);
    }
    der.Assign(owner.get(), static_cast<unsigned int>(length));
    return der;
}

// ----------------------------------------------------------- derived values

qorstd::QorString X509Certificate::GetSerialNumberStringDec() const {
    if (!m_serial) {
        return qorstd::QorString();
    }
    OpenSslTextPtr text(BN_bn2dec(m_serial.get()));
    if (!text) {
        LogCryptoErrors("GetSerialNumberStringDec: BN_bn2dec() failed.");
        Fail(ErrAsn1Decoding);
    }
    return qorstd::QorString(text.get());
}

qorstd::QorString X509Certificate::GetSerialNumberStringHex() const {
    if (!m_serial) {
        return qorstd::QorString();
    }
    OpenSslTextPtr text(BN_bn2hex(m_serial.get()));
    if (!text) {
        LogCryptoErrors("GetSerialNumberStringHex: BN_bn2hex() failed.");
        Fail(ErrAsn1Decoding);
    }
    return qorstd::QorString(text.get());
}

qorstd::QorString X509Certificate::GetSubjectKeyIdStringHex() const {
    return x509::LowerHex(m_subjectKeyId);
}

qorstd::QorString X509Certificate::GetAuthorityKeyIdStringHex() const {
    return x509::LowerHex(m_authorityKeyId);
}

qorstd::QorArray<unsigned char> X509Certificate::GetSHA1Hash() const {
    return x509::Sha1(Export());
}

qorstd::QorString X509Certificate::GetSHA1HashHex() const {
    return x509::LowerHex(GetSHA1Hash());
}

qorstd::QorString X509Certificate::GetSignatureAlgorithmName() const {
    const char* name = m_signatureNid != NID_undef ? OBJ_nid2ln(m_signatureNid) : nullptr;
    return qorstd::QorString(name != nullptr ? name : "");
}

qorstd::QorString X509Certificate::GetSignatureAlgorithmOID() const {
    qorstd::QorString text;
    if (m_signatureNid != NID_undef) {
        OidToText(OBJ_nid2obj(m_signatureNid), text);
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
    return static_cast<double>(m_notAfter - CryptUtils::GetCurrentTimeUTC());
}

qorstd::QorStringW X509Certificate::PrintName(const X509_name_st* name, int flags,
                                              const wchar_t* logLine) const {
    qorstd::QorStringW text;
    if (!m_x509 || name == nullptr) {
        return text;
    }
    if (!x509::PrintName(name, flags, text)) {
        LogError(logLine);
        Fail(ErrAsn1Decoding);
    }
    return text;
}

qorstd::QorStringW X509Certificate::GetSubjectStringX500(int flags) const {
    if (m_subject.GetSize() == 0) {
        return qorstd::QorStringW();
    }
    return PrintName(m_subjectName.GetX509Name(), flags,
                     L"GetSubjectStringX500: QOR_X509Name_Print() failed.");
}

qorstd::QorStringW X509Certificate::GetIssuerStringX500(int flags) const {
    if (m_issuer.GetSize() == 0) {
        return qorstd::QorStringW();
    }
    return PrintName(m_issuerName.GetX509Name(), flags,
                     L"GetIssuerStringX500: QOR_X509Name_Print() failed.");
}

qorstd::QorString X509Certificate::GetQorBraddleId() const {
    if (m_braddleId.GetSize() == 0) {
        return qorstd::QorString();
    }
    return qorstd::QorString(reinterpret_cast<const char*>(m_braddleId.GetData()),
                             m_braddleId.GetSize());
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
    return m_x509 && m_braddleId.GetSize() > 0 ? 1 : 0;
}

int X509Certificate::IsPseudonymous() const {
    if (!m_x509) {
        return 0;
    }
    std::wstring commonName = m_subjectName.GetCommonName().c_str();
    for (wchar_t& c : commonName) {
        c = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)));
    }
    if (commonName.find(L"pseudonym") != std::wstring::npos) {
        return 1;
    }
    return m_subjectName.GetPseudonym().empty() ? 0 : 1;
}

int X509Certificate::HasQualifiedQcStatement() const {
    if (!m_x509) {
        if (m_log && m_log->IsDebugEnabled()) {
            m_log->Write(LogLevel::Debug, L"HasQualifiedQcStatement - m_pX509 == NULL.");
        }
        return 0;
    }
    const QcStatement compliance(x509::kQcComplianceOid);
    for (unsigned int i = 0; i < m_qcStatements.GetSize(); ++i) {
        if (m_qcStatements[i] == compliance) {
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
            const bool b = m_braddleId.GetSize() > 0;
            const bool otherQ = other.HasQualifiedQcStatement() != 0;
            const bool otherB = other.m_braddleId.GetSize() > 0;
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
            return m_braddleId.GetSize() > 0 &&
                           m_braddleId.GetSize() == other.m_braddleId.GetSize() &&
                           std::memcmp(m_braddleId.GetData(), other.m_braddleId.GetData(),
                                       m_braddleId.GetSize()) == 0
                       ? 1
                       : 0;
        default:
            return 0;
    }
}

bool X509Certificate::VerifyDN(const std::vector<std::pair<std::string, std::string>>& expected,
                               DNSource source) const {
    const qorstd::QorArray<unsigned char>* der = source == DNSourceIssuer    ? &m_issuer
                                                 : source == DNSourceSubject ? &m_subject
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
            ERR_clear_error();
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
        LogError(L"CheckTimeValidityThrow: cert is NULL.");
        Fail(ErrInvalidParameter, L"cert=NULL");
    }
    const int validity = TimeValidity(m_x509.get(), time);
    if (validity < 0) {
        LogError(L"Verify: Certificate is not yet valid.");
        Fail(ErrCertNotTimeValid);
    }
    if (validity > 0) {
        LogError(L"Verify: Certificate has expired.");
        Fail(ErrCertNotTimeValid);
    }
}

void X509Certificate::VerifySignature(evp_pkey_st* issuerKey, int releaseKey) const {
    EvpPkeyPtr release(releaseKey == 1 ? issuerKey : nullptr);
    if (issuerKey == nullptr) {
        LogCryptoErrors("Verify: X509_get_pubkey() failed.");
        Fail(ErrAsn1Decoding);
    }
    if (!m_x509) {
        LogError(L"Verify: m_pX509 is NULL");
        Fail(ErrInternal, L"GetX509()=NULL");
    }
    if (X509_verify(m_x509.get(), issuerKey) <= 0) {
        LogCryptoErrors("Verify: X509_verify() failed.");
        Fail(ErrCertBadSignature);
    }
    ERR_clear_error();
}

}  // namespace TesseraLib
