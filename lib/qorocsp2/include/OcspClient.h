// Asking an OCSP responder about one certificate.
#pragma once

#include "OcspResponse.h"

namespace QorOcsp2Lib {

// The transport of a request. Implementations throw OcspException (134-137)
// on failure and fill `response` with the body of a 200 answer.
class QOROCSP2_API HttpClient {
public:
    virtual ~HttpClient();
    virtual void Post(const StlString& url, const char* contentType,
                      const qorstd::QorArray<unsigned char>& body,
                      qorstd::QorArray<unsigned char>& response) = 0;
};

// HttpClient over libcurl.
class QOROCSP2_API CurlHttpClient : public HttpClient {
public:
    CurlHttpClient();
    ~CurlHttpClient() override;

    // Seconds; defaults 5 (connect) and 30 (whole exchange).
    void SetConnectTimeout(long seconds) { m_connectTimeout = seconds; }
    void SetTimeout(long seconds) { m_timeout = seconds; }
    long GetConnectTimeout() const { return m_connectTimeout; }
    long GetTimeout() const { return m_timeout; }

    void Post(const StlString& url, const char* contentType,
              const qorstd::QorArray<unsigned char>& body,
              qorstd::QorArray<unsigned char>& response) override;

private:
    long m_connectTimeout;
    long m_timeout;
};

// One request for one certificate: settings first, then SendRequest.
class QOROCSP2_API OcspClient {
public:
    OcspClient();
    OcspClient(const OcspClient& other);
    OcspClient& operator=(const OcspClient& other);
    virtual ~OcspClient();

    // The issuer of the certificate asked about (the first that issued it is used).
    void SetIssuerCertificates(const OcspVector<OcspCertificate>& issuers);
    // Certificates trusted for the response signature, beside the issuer.
    void SetCACertificates(const OcspVector<OcspCertificate>& trusted);
    // Null: an internal CurlHttpClient with its default timeouts. Not owned.
    void SetHttpClient(HttpClient* client) { m_httpClient = client; }
    HttpClient* GetHttpClient() const { return m_httpClient; }
    void SetUrl(const wchar_t* url);
    const StlStringW& GetUrl() const { return m_url; }
    void SetHashAlgorithm(OcspHash::ocspHashAlgorithm algorithm) { m_hashAlgorithm = algorithm; }
    OcspHash::ocspHashAlgorithm GetHashAlgorithm() const { return m_hashAlgorithm; }
    // 1: the response must verify (signature and signer) and echo the nonce.
    void SetVerifyResponse(int verify) { m_verifyResponse = verify; }
    int GetVerifyResponse() const { return m_verifyResponse; }

    // Asks about `certificate` (with a nonce when `addNonce` is 1) and fills
    // `response`; throws OcspException on any failure.
    void SendRequest(const OcspCertificate& certificate, OcspResponse& response, int addNonce) const;

private:
    OcspVector<OcspCertificate> m_issuers;
    OcspVector<OcspCertificate> m_trusted;
    HttpClient* m_httpClient;
    StlStringW m_url;
    OcspHash::ocspHashAlgorithm m_hashAlgorithm;
    int m_verifyResponse;
};

}  // namespace QorOcsp2Lib
