#include "TspException.h"

namespace QorTsp2Lib {

namespace {

struct Description {
    int code;
    const wchar_t* text;
};

constexpr Description kDescriptions[] = {
    {TspErrInternal, L"Internal error of the time-stamp library."},
    {TspErrInvalidParameter, L"Invalid parameter value."},
    {TspErrDecode, L"The data is not a valid time-stamp token."},
    {TspErrConnect, L"Cannot connect to the time-stamp authority."},
    {TspErrTimeout, L"The time-stamp authority did not answer in time."},
    {TspErrTransport, L"Communication with the time-stamp authority failed."},
    {TspErrHttpStatus, L"The time-stamp authority answered with an HTTP error status."},
    {TspErrBadResponse, L"The time-stamp authority's answer is not a valid time-stamp response."},
    {TspErrRejected, L"The time-stamp authority rejected the request."},
    {TspErrNonceMismatch, L"The time-stamp token does not carry the request's nonce."},
    {TspErrImprintMismatch, L"The time-stamp token does not carry the request's message imprint."},
    {TspErrPolicyMismatch, L"The time-stamp token was issued under another policy."},
};

}  // namespace

TspException::TspException(int code, const wchar_t* message) : m_code(code), m_message(message) {}

TspException::TspException(const TspException& other) = default;

TspException& TspException::operator=(const TspException& other) = default;

TspException::~TspException() = default;

qorstd::QorStringW TspException::GetErrorDescription() const {
    return GetCodeDescription(m_code);
}

const wchar_t* TspException::GetCodeDescription(int code) {
    for (const Description& entry : kDescriptions) {
        if (entry.code == code) {
            return entry.text;
        }
    }
    return L"Unspecified error";
}

void TspException::Throw(int code, const wchar_t* message) {
    throw TspException(code, message);
}

}  // namespace QorTsp2Lib
