#include "CrlException.h"

namespace QorGetOneCrlLib {

namespace {

struct CodeText {
    int code;
    const wchar_t* text;
};

const CodeText kDescriptions[] = {
    {CrlException::crlErrNotFound, L"CRL not found."},
    {CrlException::crlErrInvalidParameter, L"Invalid parameter."},
    {CrlException::crlErrConnect, L"The CRL service cannot be reached."},
    {CrlException::crlErrTimeout, L"The CRL service did not answer in time."},
    {CrlException::crlErrTransport, L"The CRL service exchange failed."},
    {CrlException::crlErrHttpStatus, L"The CRL service answered with an HTTP error."},
    {CrlException::crlErrDecoding, L"The CRL service answer is not a CRL."},
};

}  // namespace

CrlException::CrlException(int code, const wchar_t* message)
    : m_code(code),
      m_message(message != nullptr ? message : L""),
      m_description(DescribeErrorCode(code)) {}

CrlException::CrlException(const CrlException& other) = default;
CrlException& CrlException::operator=(const CrlException& other) = default;
CrlException::~CrlException() = default;

void CrlException::Throw(int code, const wchar_t* message) {
    throw CrlException(code, message);
}

qorstd::QorStringW CrlException::DescribeErrorCode(int code) {
    for (const CodeText& entry : kDescriptions) {
        if (entry.code == code) {
            return qorstd::QorStringW(entry.text);
        }
    }
    return qorstd::QorStringW(L"CRL service error.");
}

}  // namespace QorGetOneCrlLib
