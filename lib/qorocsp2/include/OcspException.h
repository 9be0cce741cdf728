// The OCSP library's exception and its codes.
#pragma once

#include "QorString.h"

#define QOROCSP2_API __attribute__((visibility("default")))

namespace QorOcsp2Lib {

// Every failure of the OCSP library. The codes:
//   130 ocspErrInvalidParameter  a null or empty argument, or no issuer given for the certificate
//   131 ocspErrDecoding          bytes that are no OCSP response (or trailing bytes after one)
//   132 ocspErrEncoding          a response or request that cannot be encoded
//   133 ocspErrRequest           the request (certificate identifier, nonce) cannot be built
//   134 ocspErrConnect           the responder cannot be reached (name or connection refused)
//   135 ocspErrTimeout           the responder did not answer in time
//   136 ocspErrTransport         any other HTTP transport failure
//   137 ocspErrHttpStatus        the responder answered with an HTTP status other than 200
//   138 ocspErrResponseTooOld    the response is older than the certificate it is about
//   139 ocspErrResponseStatus    the responder refused (malformedRequest, internalError,
//                                tryLater, sigRequired, unauthorized)
//   140 ocspErrNoBasicResponse   a successful response without a basic response
//   141 ocspErrSignature         the signature does not verify, or the signer is not trusted
//                                through the given certificates
//   142 ocspErrNonce             the responder echoed a different nonce
//   143 ocspErrCertNotAnswered   the response holds no answer for the requested certificate
//   144 ocspErrNoUrl             no responder URL is set
class QOROCSP2_API OcspException {
public:
    enum Code {
        ocspErrInvalidParameter = 130,
        ocspErrDecoding = 131,
        ocspErrEncoding = 132,
        ocspErrRequest = 133,
        ocspErrConnect = 134,
        ocspErrTimeout = 135,
        ocspErrTransport = 136,
        ocspErrHttpStatus = 137,
        ocspErrResponseTooOld = 138,
        ocspErrResponseStatus = 139,
        ocspErrNoBasicResponse = 140,
        ocspErrSignature = 141,
        ocspErrNonce = 142,
        ocspErrCertNotAnswered = 143,
        ocspErrNoUrl = 144
    };

    OcspException(int code, const wchar_t* message);
    OcspException(const OcspException& other);
    OcspException& operator=(const OcspException& other);
    virtual ~OcspException();

    int GetErrorCode() const { return m_code; }
    const qorstd::QorStringW& GetErrorMessage() const { return m_message; }
    // The fixed text of the code (a generic text for codes outside the table).
    const qorstd::QorStringW& GetErrorDescription() const { return m_description; }

    [[noreturn]] static void Throw(int code, const wchar_t* message);

    static qorstd::QorStringW DescribeErrorCode(int code);

protected:
    void Copy(const OcspException& other);

private:
    int m_code;
    qorstd::QorStringW m_message;
    qorstd::QorStringW m_description;
};

}  // namespace QorOcsp2Lib
