// Signature policy clients: where a verifier gets the policy document that a
// signature-policy-identifier attribute names. Clients are combined by
// stacking.
//
// Ownership: a returned SignaturePolicy* stays owned by the client that
// produced it and stays valid until that client's next request, Reset() or
// destruction; callers copy what they keep. Stacked clients are never owned.
// A copy of a client opens its own log channel and holds no policy.
#pragma once

#include <memory>

#include "QorArray.h"
#include "QorString.h"
#include "TesseraExport.h"
#include "X509ClientStack.h"

namespace TesseraLib {

class LogChannel;
class SignaturePolicy;

class TESSERA_API SignaturePolicyClient {
public:
    SignaturePolicyClient() = default;
    SignaturePolicyClient(const SignaturePolicyClient& other) = default;
    SignaturePolicyClient& operator=(const SignaturePolicyClient& other) = default;
    virtual ~SignaturePolicyClient();

    // The policy whose identifier is `oid` (dotted form), or null.
    virtual const SignaturePolicy* GetSignaturePolicy(const qorstd::QorString& oid) = 0;
};

// Fetches the policy document from one configured URL, whatever OID is asked
// for, and returns it only when it carries that OID. The transport is
// GetPolicyEncoded.
class TESSERA_API SignaturePolicyClientOnline : public SignaturePolicyClient {
public:
    SignaturePolicyClientOnline();
    SignaturePolicyClientOnline(const SignaturePolicyClientOnline& other);
    SignaturePolicyClientOnline& operator=(const SignaturePolicyClientOnline& other);
    ~SignaturePolicyClientOnline() override;

    // Transport and decoding failures pass to the caller. An empty body or a
    // policy with another OID gives null; either way the previously returned
    // policy is gone.
    const SignaturePolicy* GetSignaturePolicy(const qorstd::QorString& oid) override;
    // Deletes the held policy.
    virtual void Reset();

    const qorstd::QorStringW& GetUrl() const { return m_url; }
    void SetUrl(const qorstd::QorStringW& url) { m_url = url; }

protected:
    // Downloads the bytes at `url` into `out`; throws CryptException.
    virtual void GetPolicyEncoded(const qorstd::QorStringW& url,
                                  qorstd::QorArray<unsigned char>& out) const = 0;
    // Takes the URL of `other`, not its policy.
    void Copy(const SignaturePolicyClientOnline& other);

private:
    std::unique_ptr<SignaturePolicy> m_policy;
    qorstd::QorStringW m_url;
    std::unique_ptr<LogChannel> m_log;
};

// The online client over libcurl (plain HTTP GET, libcurl's defaults for
// proxies, redirects and TLS). Failures: an empty URL → ErrInvalidParameter,
// libcurl's time-out → ErrPolicyDownloadTimeout (600), other transfer
// failures or no HTTP status → ErrPolicyDownloadConnect (602), HTTP 503 →
// ErrPolicyUnavailable (603), any other status but 200 →
// ErrPolicyDownloadResponse (604).
class TESSERA_API CurlSignaturePolicyClientOnline : public SignaturePolicyClientOnline {
public:
    CurlSignaturePolicyClientOnline();
    CurlSignaturePolicyClientOnline(const CurlSignaturePolicyClientOnline& other);
    CurlSignaturePolicyClientOnline& operator=(const CurlSignaturePolicyClientOnline& other);
    ~CurlSignaturePolicyClientOnline() override;

    // Seconds; defaults 5 (connect) and 0 (the whole transfer, 0 = no limit).
    long GetConnectTimeout() const { return m_connectTimeout; }
    void SetConnectTimeout(long seconds) { m_connectTimeout = seconds; }
    long GetTimeout() const { return m_timeout; }
    void SetTimeout(long seconds) { m_timeout = seconds; }

protected:
    void GetPolicyEncoded(const qorstd::QorStringW& url,
                          qorstd::QorArray<unsigned char>& out) const override;

private:
    // Appends size × count bytes of `data` to the byte array `out`; returns
    // that number.
    static unsigned int write_callback(char* data, unsigned int size, unsigned int count,
                                       void* out);

    std::unique_ptr<LogChannel> m_log;
    long m_connectTimeout;
    long m_timeout;
};

}  // namespace TesseraLib

// The client stack is compiled once into the library.
extern template class TesseraLib::X509ClientStack<TesseraLib::SignaturePolicyClient*>;

namespace TesseraLib {

// Asks the stacked clients in insertion order; the first non-null answer
// wins, null when none answers. Exceptions of a stacked client pass through.
class TESSERA_API SignaturePolicyClientStack : public SignaturePolicyClient,
                                               public X509ClientStack<SignaturePolicyClient*> {
public:
    SignaturePolicyClientStack();
    SignaturePolicyClientStack(const SignaturePolicyClientStack& other);
    SignaturePolicyClientStack& operator=(const SignaturePolicyClientStack& other);
    ~SignaturePolicyClientStack() override;

    const SignaturePolicy* GetSignaturePolicy(const qorstd::QorString& oid) override;

private:
    std::unique_ptr<LogChannel> m_log;
};

}  // namespace TesseraLib
