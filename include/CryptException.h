// Tessera's exceptions: CryptException with the one table of error codes, and
// the exceptions derived from it.
#pragma once

#include "OcspException.h"
#include "QorException.h"
#include "QorString.h"
#include "QorVector.h"
#include "TesseraExport.h"

namespace QorOcsp2Lib {
class OcspResponse;
}

namespace TesseraLib {

class TimeStampAttribute;
class X509Certificate;
class X509Crl;

// Every code the library throws. 101-180 belong to the library's own
// processing, 500-505 to CRL services and CRL checks, 600-604 to signature
// policy download. Any other code describes itself as "Unspecified error".
enum cptErrorCode : int {
    ErrUnspecified = 100,
    ErrInternal = 101,
    ErrInvalidParameter = 102,
    ErrOutOfBounds = 103,
    ErrOutOfMemory = 104,
    ErrSignerCertNotSet = 105,
    ErrSignerKeyUnusable = 106,
    ErrPrivateKeyRead = 107,
    ErrAsn1Encoding = 108,
    ErrAsn1Decoding = 109,
    ErrBase64Encoding = 110,
    ErrBase64Decoding = 111,
    ErrPkcs12Decoding = 112,
    ErrAlgorithmNotSupported = 113,
    ErrInvalidMessageFormat = 114,
    ErrNoMessage = 115,
    ErrHashGeneration = 116,
    ErrChainVerification = 117,
    ErrCertNotTimeValid = 118,
    ErrCertBadSignature = 119,
    ErrAddSigner = 120,
    ErrNoContent = 121,
    ErrInvalidSignature = 122,
    ErrSigningTimeNotFound = 123,
    ErrSigningTimeMultiple = 124,
    ErrSigning = 125,
    ErrNoCardReader = 126,
    ErrCardNotInserted = 127,
    ErrUserAborted = 128,
    ErrPinBlocked = 129,
    ErrWrongPin = 130,
    ErrPasswordInvalidChars = 131,
    ErrIncorrectPassword = 132,
    ErrPkcs12Parsing = 133,
    ErrSigningCertAttrNotFound = 134,
    ErrSigningCertAttrMultiple = 135,
    ErrHashMismatch = 136,
    ErrAddSignedAttribute = 137,
    ErrNoSigner = 138,
    ErrSignerCertNotFound = 139,
    ErrSignatureVerification = 140,
    ErrContentTypeAttrNotFound = 141,
    ErrContentTypeAttrMultiple = 142,
    ErrContentTypeMismatch = 143,
    ErrSigningCertMismatch = 144,
    ErrCertUsage = 145,
    ErrChainIncomplete = 146,
    ErrRevocationUnknown = 147,
    ErrUntrustedRoot = 148,
    ErrCertRevoked = 149,
    ErrCertRejected = 150,
    ErrCautionPeriod = 151,
    ErrInvalidState = 152,
    ErrNoSignPolicy = 153,
    ErrSigPolicyIdNotFound = 154,
    ErrSigPolicyIdMultiple = 155,
    ErrAtsHashIndexV3NotFound = 156,
    ErrAtsHashIndexV3Multiple = 157,
    ErrTimeStampAfterVerifyTime = 158,
    ErrAtsHashIndexCertMismatch = 159,
    ErrAtsHashIndexCrlMismatch = 160,
    ErrAtsHashIndexAttrMismatch = 161,
    ErrAtsHashIndexAlgorithm = 162,
    ErrNoValidationProcess = 163,
    ErrCertPoeAfterRevocation = 164,
    ErrMimeTypeAttrNotFound = 165,
    ErrMimeTypeAttrMultiple = 166,
    ErrCertPoeNotFound = 167,
    ErrSigPolicyNotTimeValid = 168,
    ErrSignatureTypeInvalid = 169,
    ErrAttributeInfoMismatch = 170,
    ErrChainInfoMismatch = 171,
    ErrAlgorithmMismatch = 172,
    ErrPolicyRuleNotSupported = 173,
    ErrPolicyRevocationModeNotSupported = 174,
    ErrPolicyFormatMismatch = 175,
    ErrPolicyOidMismatch = 176,
    ErrNotImplemented = 180,
    ErrCrlService = 500,
    ErrCrlServiceUnavailable = 501,
    ErrCrlServiceBadResponse = 502,
    ErrCrlServiceTimeout = 503,
    ErrCrlNotTimeValid = 504,
    ErrCrlBadSignature = 505,
    ErrPolicyDownloadTimeout = 600,
    ErrPolicyDownloadAborted = 601,
    ErrPolicyDownloadConnect = 602,
    ErrPolicyUnavailable = 603,
    ErrPolicyDownloadResponse = 604
};

// A failure of the library: an error code of the table above, a message
// composed by the throwing site (often naming the operation) and the fixed
// description of the code.
class TESSERA_API CryptException : public qorstd::QorException {
public:
    // Code 100 (ErrUnspecified), no message.
    CryptException();
    // The description is looked up from `code`.
    CryptException(int code, const wchar_t* message);
    CryptException(const CryptException& other);
    CryptException& operator=(const CryptException& other);
    ~CryptException() override;

    qorstd::QorStringW GetErrorDescription() const override;
    qorstd::QorException* Clone() const override;
    [[noreturn]] void ReThrow() const override;

    [[noreturn]] static void Throw(int code, const qorstd::QorStringW& message);

    // The description text of any code ("Unspecified error" for unlisted codes).
    static qorstd::QorStringW DescribeErrorCode(int code);
    // The name of a listed code ("ErrInvalidParameter"), empty for unlisted codes.
    static qorstd::QorString GetErrorCodeName(int code);
    // Every listed code in ascending order.
    static qorstd::QorVector<int> GetErrorCodes();

protected:
    CryptException(int code, const wchar_t* message, const wchar_t* description);
    virtual qorstd::QorStringW GetInternalErrorDescription(int code) const;
    void Copy(const CryptException& other);

private:
    qorstd::QorStringW m_description;
};

// A failure while processing one time-stamp. The time-stamp is neither owned
// nor copied: copies share the pointer.
class TESSERA_API TimeStampException : public CryptException {
public:
    TimeStampException(const TimeStampAttribute* timeStamp, int code, const wchar_t* message);
    TimeStampException(const TimeStampException& other);
    TimeStampException& operator=(const TimeStampException& other);
    ~TimeStampException() override;

    const TimeStampAttribute* GetTimeStamp() const { return m_timeStamp; }

    qorstd::QorException* Clone() const override;
    [[noreturn]] void ReThrow() const override;

    [[noreturn]] static void Throw(const TimeStampAttribute* timeStamp, int code,
                                   const wchar_t* message);

protected:
    void Copy(const TimeStampException& other);

private:
    const TimeStampAttribute* m_timeStamp;
};

// Thrown by the revocation checks of certificate validation with
// ErrRevocationUnknown (147) or ErrCertRevoked (149): the certificate whose
// check failed and the CRL or OCSP response that decided it (either may be
// null). None of them is owned; copies share the pointers. Clone and ReThrow
// are those of CryptException.
class TESSERA_API X509CertificateValidationException : public CryptException {
public:
    X509CertificateValidationException(const X509Certificate* certificate, const X509Crl* crl,
                                       const QorOcsp2Lib::OcspResponse* ocspResponse, int code,
                                       const wchar_t* message);
    X509CertificateValidationException(const X509CertificateValidationException& other);
    X509CertificateValidationException& operator=(const X509CertificateValidationException& other);
    ~X509CertificateValidationException() override;

    const X509Certificate* GetCertificate() const { return m_certificate; }
    const X509Crl* GetCrl() const { return m_crl; }
    const QorOcsp2Lib::OcspResponse* GetOcspResponse() const { return m_ocspResponse; }

private:
    const X509Certificate* m_certificate;
    const X509Crl* m_crl;
    const QorOcsp2Lib::OcspResponse* m_ocspResponse;
};

// An OCSP failure while checking one time-stamp: the OCSP library's
// exception with the time-stamp whose check failed (not owned; copies share
// the pointer).
class TESSERA_API TimeStampOcspException : public QorOcsp2Lib::OcspException {
public:
    TimeStampOcspException(const TimeStampAttribute* timeStamp, int code, const wchar_t* message);
    TimeStampOcspException(const TimeStampOcspException& other);
    TimeStampOcspException& operator=(const TimeStampOcspException& other);
    ~TimeStampOcspException() override;

    const TimeStampAttribute* GetTimeStamp() const { return m_timeStamp; }

    [[noreturn]] static void Throw(const TimeStampAttribute* timeStamp, int code,
                                   const wchar_t* message);

private:
    const TimeStampAttribute* m_timeStamp;
};

}  // namespace TesseraLib
