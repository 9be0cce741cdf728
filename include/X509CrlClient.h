// CRL clients: where the revocation search gets the CRL that covers a
// certificate. Clients are combined by wrapping (cache, time-limitless,
// validator) and stacking.
//
// Ownership: a returned X509Crl* stays owned by the client that produced it
// (or by the client below a wrapper or stack) and stays valid until that
// client's next request or its destruction; callers copy what they keep.
// Wrapped and stacked clients are never owned. A copy of a client opens its
// own log channel and holds no last CRL. One client object must not serve two
// requests at the same time.
#pragma once

#include <cstdint>
#include <memory>

#include "QorArray.h"
#include "QorString.h"
#include "QorVector.h"
#include "TesseraExport.h"
#include "X509ClientStack.h"
#include "X509Crl.h"

namespace QorGetOneCrlLib {
class CrlClient;
}  // namespace QorGetOneCrlLib

namespace TesseraLib {

class LogChannel;
class X509Certificate;

class TESSERA_API X509CrlClient {
public:
    X509CrlClient() = default;
    X509CrlClient(const X509CrlClient& other) = default;
    X509CrlClient& operator=(const X509CrlClient& other) = default;
    virtual ~X509CrlClient();

    // The CRL covering `cert`, or null.
    virtual X509Crl* GetCrl(const X509Certificate& cert) = 0;
    // A CRL covering `cert` issued at or after `time` (seconds since 1970
    // UTC), or null. `issuer` is the certificate's issuer when known.
    virtual X509Crl* GetCrlAfterTime(const X509Certificate& cert, const std::int64_t& time,
                                     const X509Certificate* issuer) = 0;
};

}  // namespace TesseraLib

// The client stack is compiled once into the library.
extern template class TesseraLib::X509ClientStack<TesseraLib::X509CrlClient*>;

namespace TesseraLib {

// Remembers every CRL a subordinate client delivered and answers from that
// memory first, by issuer name only: a cached CRL is returned whatever its age.
class TESSERA_API X509CacheCrlClient : public X509CrlClient {
public:
    X509CacheCrlClient();
    X509CacheCrlClient(const X509CacheCrlClient& other);
    X509CacheCrlClient& operator=(const X509CacheCrlClient& other);
    ~X509CacheCrlClient() override;

    // The first cached CRL whose issuer equals the certificate's issuer;
    // otherwise the subordinate's answer (a copy is cached, the subordinate's
    // object returned); null without a subordinate.
    X509Crl* GetCrl(const X509Certificate& cert) override;
    // GetCrl, then null unless thisUpdate >= time. A cached CRL that is too
    // old is not replaced by asking the subordinate again.
    X509Crl* GetCrlAfterTime(const X509Certificate& cert, const std::int64_t& time,
                             const X509Certificate* issuer) override;

    // Not owned; null: answer from the cache only.
    void SetSubordinateClient(X509CrlClient* client) { m_subordinateClient = client; }
    X509CrlClient* GetSubordinateClient() const { return m_subordinateClient; }
    const qorstd::QorVector<X509Crl>& GetCache() const { return m_cache; }

private:
    qorstd::QorVector<X509Crl> m_cache;
    X509CrlClient* m_subordinateClient;
};

// Downloads the CRL named by the certificate's CRL distribution points. Only
// "http://" full names are used (the first such name of each point, points in
// order); the first CRL obtained ends the walk. Transport failures
// (CryptException) are logged as a Warning and give null, so that the
// revocation search simply sees no CRL. The transport is GetCrlEncoded.
class TESSERA_API X509CrlClientOnline : public X509CrlClient {
public:
    X509CrlClientOnline();
    X509CrlClientOnline(const X509CrlClientOnline& other);
    X509CrlClientOnline& operator=(const X509CrlClientOnline& other);
    ~X509CrlClientOnline() override;

    // A certificate without handle → ErrInvalidParameter "cert.GetX509()=NULL"
    // (thrown). No distribution points → null. When a URL throws a
    // CryptException, the next point is still tried; when no point yields a
    // CRL, the failure of the last URL that threw is logged (Warning) and
    // null returned.
    X509Crl* GetCrl(const X509Certificate& cert) override;
    // GetCrl(cert), then null when thisUpdate < time (the CRL stays held).
    X509Crl* GetCrlAfterTime(const X509Certificate& cert, const std::int64_t& time,
                             const X509Certificate* issuer) override;
    // Downloads and imports the CRL at `url`; null for an empty body or a
    // CryptException (Warning).
    virtual X509Crl* GetCrl(const wchar_t* url);
    // Downloads the bytes at `url` into `out`; throws CryptException.
    virtual void GetCrlEncoded(const wchar_t* url, qorstd::QorArray<unsigned char>& out) const = 0;

    const qorstd::QorStringW& GetProxyAddress() const { return m_proxyAddress; }
    void SetProxyAddress(const qorstd::QorStringW& address) { m_proxyAddress = address; }
    const qorstd::QorStringW& GetProxyUserName() const { return m_proxyUserName; }
    void SetProxyUserName(const qorstd::QorStringW& name) { m_proxyUserName = name; }
    const qorstd::QorStringW& GetProxyPassword() const { return m_proxyPassword; }
    void SetProxyPassword(const qorstd::QorStringW& password) { m_proxyPassword = password; }
    int GetUseProxy() const { return m_useProxy; }
    void SetUseProxy(int useProxy) { m_useProxy = useProxy; }

private:
    X509Crl* GetCrlFromCertificate(const X509Certificate& cert);
    void WarnCaught(int code, const wchar_t* description, const wchar_t* message) const;

    std::unique_ptr<X509Crl> m_lastCrl;
    qorstd::QorStringW m_proxyAddress;
    qorstd::QorStringW m_proxyUserName;
    qorstd::QorStringW m_proxyPassword;
    int m_useProxy;
    std::unique_ptr<LogChannel> m_log;
};

// The online client over libcurl. Proxies are not supported: useProxy set
// gives ErrInvalidParameter without a proxy address and ErrNotImplemented
// with one. Failures: libcurl's time-out → ErrCrlServiceTimeout (503), other
// transfer failures → ErrCrlService (500), HTTP 503 →
// ErrCrlServiceUnavailable (501), any other status but 200 →
// ErrCrlServiceBadResponse (502).
class TESSERA_API X509CurlCrlClientOnline : public X509CrlClientOnline {
public:
    X509CurlCrlClientOnline();
    X509CurlCrlClientOnline(const X509CurlCrlClientOnline& other);
    X509CurlCrlClientOnline& operator=(const X509CurlCrlClientOnline& other);
    ~X509CurlCrlClientOnline() override;

    void GetCrlEncoded(const wchar_t* url, qorstd::QorArray<unsigned char>& out) const override;

    // Seconds; defaults 5 (connect) and 0 (the whole transfer, 0 = no limit).
    long GetConnectTimeout() const { return m_connectTimeout; }
    void SetConnectTimeout(long seconds) { m_connectTimeout = seconds; }
    long GetTimeout() const { return m_timeout; }
    void SetTimeout(long seconds) { m_timeout = seconds; }

private:
    std::unique_ptr<LogChannel> m_log;
    long m_connectTimeout;
    long m_timeout;
};

// The online client over the library's own HTTP and HTTPS client, with
// proxies (CONNECT for https, Basic proxy authentication). Through a proxy
// every request carries a "Proxy-Authorization" line, empty credentials
// included. There is no time-out: a download waits as long as the server or
// the system allows. Failures: a transport failure → ErrCrlService (500),
// an unreadable answer → 500, HTTP 503 → ErrCrlServiceUnavailable (501),
// any other status but 200 → ErrCrlServiceBadResponse (502), a bad server or
// proxy address → ErrInvalidParameter (102).
class TESSERA_API X509QorCrlClientOnline : public X509CrlClientOnline {
public:
    X509QorCrlClientOnline();
    X509QorCrlClientOnline(const X509QorCrlClientOnline& other);
    X509QorCrlClientOnline& operator=(const X509QorCrlClientOnline& other);
    ~X509QorCrlClientOnline() override;

private:
    void GetCrlEncoded(const wchar_t* url, qorstd::QorArray<unsigned char>& out) const override;
    // 1 with schema 1 (http) or 2 (https), else 0; the scheme is compared in
    // capitals.
    int FindOutURLSchema(const wchar_t* url, int& schema) const;

    std::unique_ptr<LogChannel> m_log;
};

// Asks the stacked clients in insertion order; the first non-null answer
// wins. Exceptions of a stacked client pass through.
class TESSERA_API X509CrlClientStack : public X509CrlClient,
                                       public X509ClientStack<X509CrlClient*> {
public:
    X509CrlClientStack();
    X509CrlClientStack(const X509CrlClientStack& other);
    X509CrlClientStack& operator=(const X509CrlClientStack& other);
    ~X509CrlClientStack() override;

    X509Crl* GetCrl(const X509Certificate& cert) override;
    X509Crl* GetCrlAfterTime(const X509Certificate& cert, const std::int64_t& time,
                             const X509Certificate* issuer) override;

private:
    std::unique_ptr<LogChannel> m_log;
};

// Offers the newest CRL the wrapped client has, whatever the time asked for:
// GetCrlAfterTime forwards to GetCrl.
class TESSERA_API X509CrlClientTimeLimitless : public X509CrlClient {
public:
    explicit X509CrlClientTimeLimitless(X509CrlClient* crlClient);
    X509CrlClientTimeLimitless(const X509CrlClientTimeLimitless& other);
    X509CrlClientTimeLimitless& operator=(const X509CrlClientTimeLimitless& other);
    ~X509CrlClientTimeLimitless() override;

    // A null wrapped client → ErrInvalidParameter "_crlClient=NULL".
    X509Crl* GetCrl(const X509Certificate& cert) override;
    X509Crl* GetCrlAfterTime(const X509Certificate& cert, const std::int64_t& time,
                             const X509Certificate* issuer) override;

private:
    X509CrlClient* _crlClient;
    std::unique_ptr<LogChannel> m_log;
};

// Drops CRLs issued outside the certificate's validity period (notBefore <=
// thisUpdate <= notAfter, both ends included).
class TESSERA_API X509CrlClientValidator : public X509CrlClient {
public:
    explicit X509CrlClientValidator(X509CrlClient* crlClient);
    X509CrlClientValidator(const X509CrlClientValidator& other);
    X509CrlClientValidator& operator=(const X509CrlClientValidator& other);
    ~X509CrlClientValidator() override;

    // A null wrapped client → ErrInvalidParameter "_crlClient=NULL".
    X509Crl* GetCrl(const X509Certificate& cert) override;
    X509Crl* GetCrlAfterTime(const X509Certificate& cert, const std::int64_t& time,
                             const X509Certificate* issuer) override;

private:
    X509Crl* Check(const X509Certificate& cert, X509Crl* crl) const;

    X509CrlClient* _crlClient;
    std::unique_ptr<LogChannel> m_log;
};

// Which CRL-service client serves the certificates of one issuing CA.
class TESSERA_API X509GetOneCrlParameters {
public:
    X509GetOneCrlParameters();
    X509GetOneCrlParameters(const X509GetOneCrlParameters& other) = default;
    X509GetOneCrlParameters& operator=(const X509GetOneCrlParameters& other) = default;
    virtual ~X509GetOneCrlParameters();

    void Reset();
    // The SHA-1 of the issuing CA certificate in hexadecimal
    // (X509Certificate::GetSHA1HashHex); compared without regard to case.
    const qorstd::QorString& GetIssuer() const { return m_issuer; }
    void SetIssuer(const qorstd::QorString& issuer) { m_issuer = issuer; }
    // Not owned.
    QorGetOneCrlLib::CrlClient* GetCrlClient() { return m_crlClient; }
    const QorGetOneCrlLib::CrlClient* GetCrlClient() const { return m_crlClient; }
    void SetCrlClient(QorGetOneCrlLib::CrlClient* client) { m_crlClient = client; }

private:
    qorstd::QorString m_issuer;
    QorGetOneCrlLib::CrlClient* m_crlClient;
};

}  // namespace TesseraLib

namespace qorstd {
// Compiled once into the library.
extern template class QorVector<TesseraLib::X509GetOneCrlParameters>;
extern template class QorVectorIterator<TesseraLib::X509GetOneCrlParameters>;
}  // namespace qorstd

namespace TesseraLib {

// The CRL service: asks the service client configured for the certificate's
// issuing CA. Only GetCrlAfterTime is served (GetCrl gives null); every
// failure is logged and gives null.
class TESSERA_API X509GetOneCrlClient : public X509CrlClient {
public:
    X509GetOneCrlClient();
    X509GetOneCrlClient(const X509GetOneCrlClient& other);
    X509GetOneCrlClient& operator=(const X509GetOneCrlClient& other);
    ~X509GetOneCrlClient() override;

    X509Crl* GetCrl(const X509Certificate& cert) override;
    // Needs `issuer`; the first parameters entry for its SHA-1 with a service
    // client is used. A non-zero time becomes the service client's request
    // time; the issuer's subject (Base64 of its DER) its issuer field.
    X509Crl* GetCrlAfterTime(const X509Certificate& cert, const std::int64_t& time,
                             const X509Certificate* issuer) override;

    const qorstd::QorVector<X509GetOneCrlParameters>& GetCrlParameters() const {
        return m_crlParameters;
    }
    void SetCrlParameters(const qorstd::QorVector<X509GetOneCrlParameters>& parameters) {
        m_crlParameters = parameters;
    }

private:
    std::unique_ptr<X509Crl> m_lastCrl;
    std::unique_ptr<LogChannel> m_log;
    qorstd::QorVector<X509GetOneCrlParameters> m_crlParameters;
};

// The CRL retrieval of the platform: every distribution-point URI libcurl
// can fetch (http, https, ftp, file ...), from the wire, 15 seconds each; the
// first CRL that decodes wins. Without a usable CRL →
// ErrCrlService (500) "hCrlContext=NULL"; a certificate whose distribution
// points cannot be read → ErrRevocationUnknown (147).
class TESSERA_API X509WinCrlClientOnline : public X509CrlClient {
public:
    X509WinCrlClientOnline();
    X509WinCrlClientOnline(const X509WinCrlClientOnline& other);
    X509WinCrlClientOnline& operator=(const X509WinCrlClientOnline& other);
    ~X509WinCrlClientOnline() override;

    X509Crl* GetCrl(const X509Certificate& cert) override;
    // GetCrl(cert); a CRL with thisUpdate < time is released and null returned.
    X509Crl* GetCrlAfterTime(const X509Certificate& cert, const std::int64_t& time,
                             const X509Certificate* issuer) override;
    // Not supported: releases the last CRL and returns null.
    virtual X509Crl* GetCrl(const wchar_t* url);

private:
    std::unique_ptr<X509Crl> m_lastCrl;
    std::unique_ptr<LogChannel> m_log;
};

}  // namespace TesseraLib
