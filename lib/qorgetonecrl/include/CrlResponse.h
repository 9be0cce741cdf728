// What the CRL service answered: a CRL, or an error code with its message.
#pragma once

#include <memory>

#include "CrlException.h"
#include "QorArray.h"
#include "QorString.h"

namespace QorGetOneCrlLib {

// The DER of one CRL as the service delivered it (checked to decode as a CRL).
class QORGETONECRL_API Crl {
public:
    Crl();
    // Throws CrlException crlErrDecoding unless `der` is exactly one DER CRL.
    Crl(const unsigned char* der, unsigned int size);
    Crl(const Crl& other);
    Crl& operator=(const Crl& other);
    virtual ~Crl();

    qorstd::QorArray<unsigned char> Export() const { return m_der; }

private:
    qorstd::QorArray<unsigned char> m_der;
};

// Error code 0 and no CRL until a request fills it. A CRL the service does not
// hold gives code 1 (crlErrNotFound) with the message "CRL not found".
class QORGETONECRL_API CrlResponse {
public:
    CrlResponse();
    CrlResponse(const CrlResponse& other);
    CrlResponse& operator=(const CrlResponse& other);
    virtual ~CrlResponse();

    void Reset();

    int GetErrorCode() const { return m_errorCode; }
    const qorstd::QorStringW& GetErrorMessage() const { return m_errorMessage; }
    // Null when the response holds no CRL; owned by the response.
    const Crl* GetCrl() const { return m_crl.get(); }
    bool HasCrl() const { return m_crl != nullptr; }

    void SetError(int code, const wchar_t* message);
    void SetCrl(const Crl& crl);

private:
    int m_errorCode;
    qorstd::QorStringW m_errorMessage;
    std::unique_ptr<Crl> m_crl;
};

}  // namespace QorGetOneCrlLib
