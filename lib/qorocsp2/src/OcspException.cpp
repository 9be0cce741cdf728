#include "OcspException.h"

namespace QorOcsp2Lib {

namespace {

struct CodeText {
    int code;
    const wchar_t* text;
};

const CodeText kDescriptions[] = {
    {OcspException::ocspErrInvalidParameter, L"Invalid parameter."},
    {OcspException::ocspErrDecoding, L"The OCSP response cannot be decoded."},
    {OcspException::ocspErrEncoding, L"The OCSP message cannot be encoded."},
    {OcspException::ocspErrRequest, L"The OCSP request cannot be built."},
    {OcspException::ocspErrConnect, L"The OCSP responder cannot be reached."},
    {OcspException::ocspErrTimeout, L"The OCSP responder did not answer in time."},
    {OcspException::ocspErrTransport, L"The OCSP exchange failed."},
    {OcspException::ocspErrHttpStatus, L"The OCSP responder answered with an HTTP error."},
    {OcspException::ocspErrResponseTooOld,
     L"The OCSP response is older than the certificate it is about."},
    {OcspException::ocspErrResponseStatus, L"The OCSP responder refused the request."},
    {OcspException::ocspErrNoBasicResponse, L"The OCSP response carries no basic response."},
    {OcspException::ocspErrSignature,
     L"The OCSP response signature does not verify against the trusted certificates."},
    {OcspException::ocspErrNonce, L"The OCSP response does not echo the request's nonce."},
    {OcspException::ocspErrCertNotAnswered,
     L"The OCSP response holds no answer for the requested certificate."},
    {OcspException::ocspErrNoUrl, L"No OCSP responder URL is set."},
};

}  // namespace

OcspException::OcspException(int code, const wchar_t* message)
    : m_code(code), m_message(message), m_description(DescribeErrorCode(code)) {}

OcspException::OcspException(const OcspException& other) = default;

OcspException& OcspException::operator=(const OcspException& other) {
    if (this != &other) {
        Copy(other);
    }
    return *this;
}

OcspException::~OcspException() = default;

void OcspException::Throw(int code, const wchar_t* message) { throw OcspException(code, message); }

qorstd::QorStringW OcspException::DescribeErrorCode(int code) {
    for (const CodeText& entry : kDescriptions) {
        if (entry.code == code) {
            return qorstd::QorStringW(entry.text);
        }
    }
    return qorstd::QorStringW(L"OCSP error.");
}

void OcspException::Copy(const OcspException& other) {
    m_code = other.m_code;
    m_message = other.m_message;
    m_description = other.m_description;
}

}  // namespace QorOcsp2Lib
