// Asking the CRL service for the CRL of one issuer.
#pragma once

#include <cstdint>

#include "CrlResponse.h"

namespace QorGetOneCrlLib {

// The service is asked with
//   GET <url>?issuer=<Base64url of the issuer's subject DER>[&time=<seconds>]
// and answers 200 with a DER CRL, or 404 when it has none. With a request time
// the service picks a CRL issued at or after it.
class QORGETONECRL_API CrlClient {
public:
    CrlClient();
    CrlClient(const CrlClient& other);
    CrlClient& operator=(const CrlClient& other);
    virtual ~CrlClient();

    void SetUrl(const wchar_t* url);
    const qorstd::QorStringW& GetUrl() const { return m_url; }
    // Seconds since 1970 UTC; 0 asks for the newest CRL.
    void SetRequestTime(std::int64_t time) { m_requestTime = time; }
    std::int64_t GetRequestTime() const { return m_requestTime; }
    // Base64 (standard or URL alphabet, padding optional) of the issuer's
    // subject DER.
    void SetIssuer(const qorstd::QorString& issuer) { m_issuer = issuer; }
    const qorstd::QorString& GetIssuer() const { return m_issuer; }
    // Seconds; defaults 5 (connect) and 30 (whole exchange, 0 = no limit).
    void SetConnectTimeout(long seconds) { m_connectTimeout = seconds; }
    long GetConnectTimeout() const { return m_connectTimeout; }
    void SetTimeout(long seconds) { m_timeout = seconds; }
    long GetTimeout() const { return m_timeout; }

    // The GET request this client sends (ASCII); empty without URL or issuer.
    qorstd::QorString GetRequestUrl() const;

    // Fills `response` (reset first): a CRL, or error code 1 when the service
    // has none. Throws CrlException for every other failure (codes 2-7).
    void SendRequest(CrlResponse& response) const;

private:
    qorstd::QorStringW m_url;
    std::int64_t m_requestTime;
    qorstd::QorString m_issuer;
    long m_connectTimeout;
    long m_timeout;
};

}  // namespace QorGetOneCrlLib
