// The CRL-service library's exception and its codes.
#pragma once

#include "QorString.h"

#define QORGETONECRL_API __attribute__((visibility("default")))

namespace QorGetOneCrlLib {

// A failure of the CRL-service client. The codes:
//   1 crlErrNotFound          the service holds no CRL for the issuer (and time)
//                             asked for; reported in CrlResponse, not thrown
//   2 crlErrInvalidParameter  no service URL or no issuer set
//   3 crlErrConnect           the service cannot be reached (name or connection refused)
//   4 crlErrTimeout           the service did not answer in time
//   5 crlErrTransport         any other HTTP transport failure
//   6 crlErrHttpStatus        the service answered with a status other than 200 and 404
//   7 crlErrDecoding          a 200 answer whose body is not one DER CRL
class QORGETONECRL_API CrlException {
public:
    enum Code {
        crlErrNotFound = 1,
        crlErrInvalidParameter = 2,
        crlErrConnect = 3,
        crlErrTimeout = 4,
        crlErrTransport = 5,
        crlErrHttpStatus = 6,
        crlErrDecoding = 7
    };

    CrlException(int code, const wchar_t* message);
    CrlException(const CrlException& other);
    CrlException& operator=(const CrlException& other);
    virtual ~CrlException();

    int GetErrorCode() const { return m_code; }
    const qorstd::QorStringW& GetErrorMessage() const { return m_message; }
    // The fixed text of the code (a generic text for codes outside the table).
    const qorstd::QorStringW& GetErrorDescription() const { return m_description; }

    [[noreturn]] static void Throw(int code, const wchar_t* message);

    static qorstd::QorStringW DescribeErrorCode(int code);

private:
    int m_code;
    qorstd::QorStringW m_message;
    qorstd::QorStringW m_description;
};

}  // namespace QorGetOneCrlLib
