#include "CryptException.h"

#include <cstddef>

namespace TesseraLib {

namespace {

struct ErrorEntry {
    int code;
    const char* name;
    const wchar_t* description;
};

// The one table of error codes. The description texts are part of the
// library's interface and stay exactly as they are, spelling included.
const ErrorEntry kErrorTable[] = {
    {100, "ErrUnspecified", L"Unspecified error"},
    {101, "ErrInternal", L"An internal error."},
    {102, "ErrInvalidParameter", L"Invalid parameter value."},
    {103, "ErrOutOfBounds", L"Out of bounds."},
    {104, "ErrOutOfMemory", L"Out of memory."},
    {105, "ErrSignerCertNotSet", L"Signer's certificate is not set."},
    {106, "ErrSignerKeyUnusable", L"Cannot use the signer's certificate private key."},
    {107, "ErrPrivateKeyRead", L"Unable to read private key."},
    {108, "ErrAsn1Encoding", L"ASN.1 encoding error."},
    {109, "ErrAsn1Decoding", L"ASN.1 decoding error."},
    {110, "ErrBase64Encoding", L"Base64 encoding error."},
    {111, "ErrBase64Decoding", L"Base64 decoding error."},
    {112, "ErrPkcs12Decoding", L"PKCS12 decoding error."},
    {113, "ErrAlgorithmNotSupported", L"Algorithm not supported."},
    {114, "ErrInvalidMessageFormat", L"Invalid message format."},
    {115, "ErrNoMessage", L"No message is present."},
    {116, "ErrHashGeneration", L"Hash generation error."},
    {117, "ErrChainVerification", L"Certificate chain verification error."},
    {118, "ErrCertNotTimeValid",
     L"Certificate or one of the certificates in the certificate chain is not time valid."},
    {119, "ErrCertBadSignature",
     L"Certificate or one of the certificates in the certificate chain does not have a valid "
     L"signature."},
    {120, "ErrAddSigner", L"Add signer error."},
    {121, "ErrNoContent", L"No content is present."},
    {122, "ErrInvalidSignature", L"Invalid signature."},
    {123, "ErrSigningTimeNotFound", L"The signature attribute signing time not found."},
    {124, "ErrSigningTimeMultiple", L"The signature attribute signing time occurs more than once."},
    {125, "ErrSigning", L"Signing error."},
    {126, "ErrNoCardReader", L"Cannot find a smart card reader."},
    {127, "ErrCardNotInserted", L"The smart card is not inserted."},
    {128, "ErrUserAborted", L"User action aborted."},
    {129, "ErrPinBlocked",
     L"The card cannot be accessed because the maximum number of PIN entry attempts has been "
     L"reached."},
    {130, "ErrWrongPin", L"The card cannot be accessed because the wrong PIN was presented."},
    {131, "ErrPasswordInvalidChars", L"Password contains invalid characters"},
    {132, "ErrIncorrectPassword", L"Incorrect password."},
    {133, "ErrPkcs12Parsing", L"PKCS12 parsing error."},
    {134, "ErrSigningCertAttrNotFound", L"The signature attribute signing certificate not found."},
    {135, "ErrSigningCertAttrMultiple",
     L"The signature attribute signing certificate occurs more than once."},
    {136, "ErrHashMismatch", L"The hash value is not correct."},
    {137, "ErrAddSignedAttribute", L"Add signature attribute error."},
    {138, "ErrNoSigner", L"No signer was present."},
    {139, "ErrSignerCertNotFound", L"Signer's certificate not found."},
    {140, "ErrSignatureVerification", L"Signature verification error."},
    {141, "ErrContentTypeAttrNotFound", L"The signature attribute content type not found."},
    {142, "ErrContentTypeAttrMultiple",
     L"The signature attribute content type occurs more than once."},
    {143, "ErrContentTypeMismatch",
     L"Corresponding signature attribute does not match the content type."},
    {144, "ErrSigningCertMismatch",
     L"Corresponding signature attribute does not match the signing certificate."},
    {145, "ErrCertUsage", L"Certificate or certificate chain is not valid for its proposed usage."},
    {146, "ErrChainIncomplete", L"The certificate chain is not complete."},
    {147, "ErrRevocationUnknown",
     L"The revocation status of the certificate or one of the certificates in the certificate "
     L"chain is unknown."},
    {148, "ErrUntrustedRoot", L"Certificate or certificate chain is based on an untrusted root."},
    {149, "ErrCertRevoked",
     L"Trust for this certificate or one of the certificates in the certificate chain has been "
     L"revoked."},
    {150, "ErrCertRejected",
     L"Certificate or one of the certificates in the certificate chain was rejected."},
    {151, "ErrCautionPeriod",
     L"Applying a cautionary period for obtaining the revocation status of a certificate."},
    {152, "ErrInvalidState", L"Method call is invalid for the object's current state."},
    {153, "ErrNoSignPolicy", L"There is no sign policy."},
    {154, "ErrSigPolicyIdNotFound", L"The signature attribute sign policy identifier not found."},
    {155, "ErrSigPolicyIdMultiple",
     L"The signature attribute sign policy identifier occurs more than once."},
    {156, "ErrAtsHashIndexV3NotFound",
     L"The signature unsigned attribute ats-hash-index-v3 not found."},
    {157, "ErrAtsHashIndexV3Multiple",
     L"The signature unsigned attribute ats-hash-index-v3 occurs more than once."},
    {158, "ErrTimeStampAfterVerifyTime", L"The timestamp time is higher than verify time."},
    {159, "ErrAtsHashIndexCertMismatch",
     L"ATSHashIndex value of certificate field does not match."},
    {160, "ErrAtsHashIndexCrlMismatch", L"ATSHashIndex value of crl field does not match."},
    {161, "ErrAtsHashIndexAttrMismatch",
     L"ATSHashIndex value of unsigned attr field does not match."},
    {162, "ErrAtsHashIndexAlgorithm",
     L"ATSHashIndex hash algorithm is from hash algorithm in archive time stamp."},
    {163, "ErrNoValidationProcess", L"No validation process found."},
    {164, "ErrCertPoeAfterRevocation",
     L"Certificate POE is higher than certificate's issuer revocatiom time."},
    {165, "ErrMimeTypeAttrNotFound", L"The signature attribute mime type not found."},
    {166, "ErrMimeTypeAttrMultiple", L"The signature attribute mime type occurs more than once."},
    {167, "ErrCertPoeNotFound", L"Certificate POE not found."},
    {168, "ErrSigPolicyNotTimeValid", L"Signature policy is not time valid."},
    {169, "ErrSignatureTypeInvalid", L"Signature type invalid."},
    {170, "ErrAttributeInfoMismatch", L"Signature's attribute info mismatch."},
    {171, "ErrChainInfoMismatch", L"Signature's certificate chain info mismatch."},
    {172, "ErrAlgorithmMismatch", L"Signature or certificate algorithm mismatch."},
    {173, "ErrPolicyRuleNotSupported", L"Signature policy rule is not supported yet."},
    {174, "ErrPolicyRevocationModeNotSupported",
     L"Signature policy revocation mode is no supported."},
    {175, "ErrPolicyFormatMismatch", L"Signature policy format mistmatch."},
    {176, "ErrPolicyOidMismatch",
     L"OID of signature policy in CMS is not equal to used verifier signature policy."},
    {180, "ErrNotImplemented", L"Not yet implemented."},
    {500, "ErrCrlService", L"Error while communicating with the CRL service."},
    {501, "ErrCrlServiceUnavailable", L"CRL service unavailable."},
    {502, "ErrCrlServiceBadResponse", L"Invalid CRL service response."},
    {503, "ErrCrlServiceTimeout", L"CRL service communication timeout expired."},
    {504, "ErrCrlNotTimeValid",
     L"CRL or one of the CRLs in the certificate chain is not time valid."},
    {505, "ErrCrlBadSignature",
     L"CRL or one of the CRLs in the certificate chain does not have a valid signature."},
    {600, "ErrPolicyDownloadTimeout", L"Connection to get signature policy exceeded time out."},
    {601, "ErrPolicyDownloadAborted", L"User aborted signature policy download."},
    {602, "ErrPolicyDownloadConnect", L"SignaturePolicy download connect failed."},
    {603, "ErrPolicyUnavailable", L"Signature policy unavailable for download."},
    {604, "ErrPolicyDownloadResponse", L"Error in response to signature policy download request."},
};

const ErrorEntry* FindEntry(int code) {
    for (const ErrorEntry& entry : kErrorTable) {
        if (entry.code == code) {
            return &entry;
        }
    }
    return nullptr;
}

}  // namespace

// ---- CryptException -----------------------------------------------------

CryptException::CryptException() : CryptException(ErrUnspecified, nullptr) {}

CryptException::CryptException(int code, const wchar_t* message)
    : qorstd::QorException(code, message), m_description(DescribeErrorCode(code)) {}

CryptException::CryptException(int code, const wchar_t* message, const wchar_t* description)
    : qorstd::QorException(code, message), m_description(description) {}

CryptException::CryptException(const CryptException& other) = default;

CryptException& CryptException::operator=(const CryptException& other) {
    if (this != &other) {
        Copy(other);
    }
    return *this;
}

CryptException::~CryptException() = default;

qorstd::QorStringW CryptException::GetErrorDescription() const {
    return m_description;
}

qorstd::QorException* CryptException::Clone() const {
    return new CryptException(*this);
}

void CryptException::ReThrow() const {
    throw CryptException(*this);
}

void CryptException::Throw(int code, const qorstd::QorStringW& message) {
    throw CryptException(code, message.c_str());
}

qorstd::QorStringW CryptException::GetInternalErrorDescription(int code) const {
    return DescribeErrorCode(code);
}

qorstd::QorStringW CryptException::DescribeErrorCode(int code) {
    const ErrorEntry* entry = FindEntry(code);
    return qorstd::QorStringW(entry != nullptr ? entry->description : kErrorTable[0].description);
}

qorstd::QorString CryptException::GetErrorCodeName(int code) {
    const ErrorEntry* entry = FindEntry(code);
    return qorstd::QorString(entry != nullptr ? entry->name : "");
}

qorstd::QorVector<int> CryptException::GetErrorCodes() {
    qorstd::QorVector<int> codes(
        static_cast<unsigned int>(sizeof(kErrorTable) / sizeof(kErrorTable[0])));
    for (const ErrorEntry& entry : kErrorTable) {
        codes.Add(entry.code);
    }
    return codes;
}

void CryptException::Copy(const CryptException& other) {
    qorstd::QorException::Copy(other);
    m_description = other.m_description;
}

// ---- TimeStampException -------------------------------------------------

TimeStampException::TimeStampException(const TimeStampAttribute* timeStamp, int code,
                                       const wchar_t* message)
    : CryptException(code, message), m_timeStamp(timeStamp) {}

TimeStampException::TimeStampException(const TimeStampException& other) = default;

TimeStampException& TimeStampException::operator=(const TimeStampException& other) {
    if (this != &other) {
        Copy(other);
    }
    return *this;
}

TimeStampException::~TimeStampException() = default;

qorstd::QorException* TimeStampException::Clone() const {
    return new TimeStampException(*this);
}

void TimeStampException::ReThrow() const {
    throw TimeStampException(*this);
}

void TimeStampException::Throw(const TimeStampAttribute* timeStamp, int code,
                               const wchar_t* message) {
    throw TimeStampException(timeStamp, code, message);
}

void TimeStampException::Copy(const TimeStampException& other) {
    CryptException::Copy(other);
    m_timeStamp = other.m_timeStamp;
}

// ---- X509CertificateValidationException ---------------------------------

X509CertificateValidationException::X509CertificateValidationException(
    const X509Certificate* certificate, const X509Crl* crl,
    const QorOcsp2Lib::OcspResponse* ocspResponse, int code, const wchar_t* message)
    : CryptException(code, message),
      m_certificate(certificate),
      m_crl(crl),
      m_ocspResponse(ocspResponse) {}

X509CertificateValidationException::X509CertificateValidationException(
    const X509CertificateValidationException& other) = default;

X509CertificateValidationException& X509CertificateValidationException::operator=(
    const X509CertificateValidationException& other) {
    if (this != &other) {
        CryptException::Copy(other);
        m_certificate = other.m_certificate;
        m_crl = other.m_crl;
        m_ocspResponse = other.m_ocspResponse;
    }
    return *this;
}

X509CertificateValidationException::~X509CertificateValidationException() = default;

// ---- TimeStampOcspException ---------------------------------------------

TimeStampOcspException::TimeStampOcspException(const TimeStampAttribute* timeStamp, int code,
                                               const wchar_t* message)
    : QorOcsp2Lib::OcspException(code, message), m_timeStamp(timeStamp) {}

TimeStampOcspException::TimeStampOcspException(const TimeStampOcspException& other) = default;

TimeStampOcspException& TimeStampOcspException::operator=(const TimeStampOcspException& other) {
    if (this != &other) {
        QorOcsp2Lib::OcspException::Copy(other);
        m_timeStamp = other.m_timeStamp;
    }
    return *this;
}

TimeStampOcspException::~TimeStampOcspException() = default;

void TimeStampOcspException::Throw(const TimeStampAttribute* timeStamp, int code,
                                   const wchar_t* message) {
    throw TimeStampOcspException(timeStamp, code, message);
}

}  // namespace TesseraLib
