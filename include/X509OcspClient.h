// OCSP clients: where the revocation search gets the OCSP response about one
// certificate. An online client asks a responder; a map routes each request
// by the certificate's issuer; a stack asks several clients in turn.
//
// A returned response stays owned by the client that produced it and is
// valid until that client's next request or its destruction; callers copy
// what they keep. Routed and stacked clients are never owned.
#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "OcspClient.h"
#include "OcspResponse.h"
#include "QorString.h"
#include "TesseraExport.h"
#include "X509ClientStack.h"

namespace TesseraLib {

class LogChannel;
class X509Certificate;
class X509Store;

// The interface the revocation search uses. The trust store names the
// certificates that may sign responses; it is not owned.
class TESSERA_API X509OcspClient {
public:
    X509OcspClient();
    X509OcspClient(const X509OcspClient& other);
    X509OcspClient& operator=(const X509OcspClient& other);
    virtual ~X509OcspClient();

    // The response about `cert`, issued by `issuer`; null when the client has
    // none.
    virtual QorOcsp2Lib::OcspResponse* GetOcspResponse(const X509Certificate& cert,
                                                       const X509Certificate& issuer) = 0;
    // As GetOcspResponse, but only a response produced at or after `time`.
    virtual QorOcsp2Lib::OcspResponse* GetOcspResponseAfterTime(const X509Certificate& cert,
                                                                const X509Certificate& issuer,
                                                                const std::int64_t& time) = 0;
    virtual void SetTrustStore(X509Store* store);
    virtual X509Store* GetTrustStore() const;

protected:
    X509Store* m_trustStore;  // not owned
};

// Asks an OCSP responder through the OCSP library. The responder URL is the
// configured one or, when none is set, the certificate's own. The response
// must verify against the issuer or the trust store's certificates;
// OcspException of the library propagates.
class TESSERA_API X509OcspClientOnline : public X509OcspClient {
public:
    X509OcspClientOnline();
    // Copies the settings; the copy has its own log channel and no response.
    X509OcspClientOnline(const X509OcspClientOnline& other);
    // Copies the settings; the last response stays this object's own.
    X509OcspClientOnline& operator=(const X509OcspClientOnline& other);
    ~X509OcspClientOnline() override;

    // Null handles → ErrInvalidParameter; no URL set and none in the
    // certificate → ErrChainVerification.
    QorOcsp2Lib::OcspResponse* GetOcspResponse(const X509Certificate& cert,
                                               const X509Certificate& issuer) override;
    // A response produced before `time` is dropped and null returned.
    QorOcsp2Lib::OcspResponse* GetOcspResponseAfterTime(const X509Certificate& cert,
                                                        const X509Certificate& issuer,
                                                        const std::int64_t& time) override;

    // Empty: the URL is taken from each certificate.
    const qorstd::QorStringW& GetUrl() const { return m_url; }
    void SetUrl(const qorstd::QorStringW& url) { m_url = url; }
    // Null: the OCSP library's own transport. Not owned.
    QorOcsp2Lib::HttpClient* GetHttpClient() const { return m_httpClient; }
    void SetHttpClient(QorOcsp2Lib::HttpClient* client) { m_httpClient = client; }
    // The digest of the certificate identifier in the request.
    QorOcsp2Lib::OcspHash::ocspHashAlgorithm GetHashAlgorithm() const { return m_hashAlgorithm; }
    void SetHashAlgorithm(QorOcsp2Lib::OcspHash::ocspHashAlgorithm algorithm) {
        m_hashAlgorithm = algorithm;
    }

private:
    std::unique_ptr<QorOcsp2Lib::OcspResponse> m_lastResponse;
    std::unique_ptr<LogChannel> m_log;
    qorstd::QorStringW m_url;
    QorOcsp2Lib::HttpClient* m_httpClient;  // not owned
    QorOcsp2Lib::OcspHash::ocspHashAlgorithm m_hashAlgorithm;
};

// Routes each request to the client registered for the certificate's issuer,
// or to the default client.
class TESSERA_API X509OcspClientMap : public X509OcspClient {
public:
    // How the issuer key of a request is made: the hexadecimal SHA-1 of the
    // issuer's subject name (a renewed CA certificate keeps its clients), or
    // — for any other value — of the whole issuer certificate.
    enum cptIdentificationMethod { idByIssuerNameHash = 0, idByIssuerCertificateHash = 1 };

    X509OcspClientMap();
    X509OcspClientMap(const X509OcspClientMap& other);
    X509OcspClientMap& operator=(const X509OcspClientMap& other);
    ~X509OcspClientMap() override;

    // Null handles → ErrInvalidParameter. No client for the issuer and no
    // default client: null.
    QorOcsp2Lib::OcspResponse* GetOcspResponse(const X509Certificate& cert,
                                               const X509Certificate& issuer) override;
    QorOcsp2Lib::OcspResponse* GetOcspResponseAfterTime(const X509Certificate& cert,
                                                        const X509Certificate& issuer,
                                                        const std::int64_t& time) override;
    // Hands the store to every routed client and the default client. The
    // map's own store stays unset, so that the revocation search keeps
    // lending its trust store to the map (and through it to all clients).
    void SetTrustStore(X509Store* store) override;

    virtual void SetIssuerIdentificationMethod(cptIdentificationMethod method);
    cptIdentificationMethod GetIssuerIdentificationMethod() const { return m_method; }

    // Keys are compared without regard to case; an equal key is replaced.
    void AddOcspClientForIssuer(const qorstd::QorString& issuerKey, X509OcspClient* client);
    void SetDefaultClient(X509OcspClient* client) { m_defaultClient = client; }
    X509OcspClient* GetDefaultClient() const { return m_defaultClient; }

private:
    struct KeyLess {
        bool operator()(const qorstd::QorString& left, const qorstd::QorString& right) const;
    };
    // The client a request about a certificate of `issuer` goes to; null
    // when none.
    X509OcspClient* Route(const X509Certificate& issuer) const;

    std::map<qorstd::QorString, X509OcspClient*, KeyLess> m_clients;  // not owned
    X509OcspClient* m_defaultClient;                                  // not owned
    cptIdentificationMethod m_method;
    std::unique_ptr<LogChannel> m_log;
};

// Compiled once into the library.
extern template class X509ClientStack<X509OcspClient*>;

// Asks the stacked clients in insertion order; the first response wins and
// their exceptions propagate.
class TESSERA_API X509OcspClientStack : public X509OcspClient,
                                        public X509ClientStack<X509OcspClient*> {
public:
    X509OcspClientStack();
    X509OcspClientStack(const X509OcspClientStack& other);
    X509OcspClientStack& operator=(const X509OcspClientStack& other);
    ~X509OcspClientStack() override;

    // Null handles → ErrInvalidParameter.
    QorOcsp2Lib::OcspResponse* GetOcspResponse(const X509Certificate& cert,
                                               const X509Certificate& issuer) override;
    QorOcsp2Lib::OcspResponse* GetOcspResponseAfterTime(const X509Certificate& cert,
                                                        const X509Certificate& issuer,
                                                        const std::int64_t& time) override;
    // Keeps the store and hands it to every stacked client.
    void SetTrustStore(X509Store* store) override;

private:
    std::unique_ptr<LogChannel> m_log;
};

}  // namespace TesseraLib
