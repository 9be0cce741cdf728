// The exception of the time-stamp library.
#pragma once

#include "QorString.h"
#include "QorTsp2Export.h"

namespace QorTsp2Lib {

// Error codes of TspException. The range 700-799 keeps them apart from
// Tessera's own codes in logs. Every way a time-stamp request can fail has a
// code of its own, so callers can react without reading the message.
enum TspErrorCode {
    // An unexpected failure inside OpenSSL (allocation, random numbers,
    // encoding of a well-formed structure).
    TspErrInternal = 700,
    // A caller's argument or setting is unusable: null or wrongly sized
    // imprint, hash algorithm unset or unknown, empty or non-ASCII URL,
    // malformed policy OID.
    TspErrInvalidParameter = 701,
    // Bytes given to TspTimeStamp::Decode or TspCertificate are not a
    // time-stamp token (a CMS SignedData ContentInfo holding a valid TSTInfo)
    // or not a certificate: garbage, truncated, trailing bytes, another
    // content type, a detached or malformed TSTInfo.
    TspErrDecode = 702,
    // The TSA could not be reached: name resolution failed or the connection
    // was refused.
    TspErrConnect = 703,
    // The connect or total time-out expired before the answer was complete.
    TspErrTimeout = 704,
    // Any other transport failure (connection dropped, TLS failure, an
    // oversized answer).
    TspErrTransport = 705,
    // The TSA answered with an HTTP status other than 200 (the status is in
    // the message).
    TspErrHttpStatus = 706,
    // The HTTP body is not a TimeStampResp (garbage, empty, trailing bytes,
    // a status without its token), or its token does not decode.
    TspErrBadResponse = 707,
    // The TSA refused: a status other than granted or grantedWithMods. The
    // message names the status, the failure information and the TSA's text.
    TspErrRejected = 708,
    // The token does not echo the request's nonce.
    TspErrNonceMismatch = 709,
    // The token's message imprint (algorithm or bytes) differs from the
    // request's.
    TspErrImprintMismatch = 710,
    // A policy was requested and the token names another one.
    TspErrPolicyMismatch = 711,
};

// Thrown for every failure of the library. Not related to Tessera's
// exceptions; Tessera carries it as QorExceptionWrapper<TspException>.
// The message is wide text (qorstd::QorStringW) composed by the throwing
// site; the description is the fixed text of the code.
class QORTSP2_API TspException {
public:
    TspException(int code, const wchar_t* message);
    TspException(const TspException& other);
    TspException& operator=(const TspException& other);
    virtual ~TspException();

    int GetErrorCode() const { return m_code; }
    const qorstd::QorStringW& GetErrorMessage() const { return m_message; }
    // The fixed text of this exception's code.
    qorstd::QorStringW GetErrorDescription() const;

    // The fixed text of `code`; "Unspecified error" for codes not listed in
    // TspErrorCode.
    static const wchar_t* GetCodeDescription(int code);
    [[noreturn]] static void Throw(int code, const wchar_t* message);

private:
    int m_code;
    qorstd::QorStringW m_message;
};

}  // namespace QorTsp2Lib
