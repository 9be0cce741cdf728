#include "CrlResponse.h"

#include <openssl/err.h>
#include <openssl/x509.h>

#include "OpenSslPtr.h"
#include "QorDer.h"

namespace QorGetOneCrlLib {

Crl::Crl() = default;

Crl::Crl(const unsigned char* der, unsigned int size) {
    // Trailing bytes mean the body was not one CRL.
    if (!qorssl::DecodeWhole<qorssl::X509CrlPtr>(d2i_X509_CRL, der, size)) {
        CrlException::Throw(CrlException::crlErrDecoding, L"The answer is not one DER CRL");
    }
    m_der.Append(der, size);
}

Crl::Crl(const Crl& other) = default;
Crl& Crl::operator=(const Crl& other) = default;
Crl::~Crl() = default;

CrlResponse::CrlResponse() : m_errorCode(0) {}

CrlResponse::CrlResponse(const CrlResponse& other)
    : m_errorCode(other.m_errorCode),
      m_errorMessage(other.m_errorMessage),
      m_crl(other.m_crl ? new Crl(*other.m_crl) : nullptr) {}

CrlResponse& CrlResponse::operator=(const CrlResponse& other) {
    if (this != &other) {
        m_errorCode = other.m_errorCode;
        m_errorMessage = other.m_errorMessage;
        m_crl.reset(other.m_crl ? new Crl(*other.m_crl) : nullptr);
    }
    return *this;
}

CrlResponse::~CrlResponse() = default;

void CrlResponse::Reset() {
    m_errorCode = 0;
    m_errorMessage.clear();
    m_crl.reset();
}

void CrlResponse::SetError(int code, const wchar_t* message) {
    m_errorCode = code;
    m_errorMessage = qorstd::QorStringW(message != nullptr ? message : L"");
}

void CrlResponse::SetCrl(const Crl& crl) {
    m_crl.reset(new Crl(crl));
}

}  // namespace QorGetOneCrlLib
