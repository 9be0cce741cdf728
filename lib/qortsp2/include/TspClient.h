// The RFC 3161 time-stamp client.
#pragma once

#include "QorTsp2Export.h"
#include "TspTimeStamp.h"
#include "TspTypes.h"

namespace qorlog {
class Channel;
}

namespace QorTsp2Lib {

// Asks one TSA for tokens over HTTP(S) POST. The settings are plain values;
// the client keeps no connection between requests, and a const client may be
// used from several threads at once. Logs on the channel "TspClient" (with
// the library's prefix "QorTsp2.TspClient"), opened when it is constructed.
class QORTSP2_API TspClient {
public:
    TspClient();
    explicit TspClient(const wchar_t* url);
    TspClient(const TspClient& other);
    TspClient& operator=(const TspClient& other);
    virtual ~TspClient();

    // The TSA's URL (http or https; ASCII).
    void SetUrl(const wchar_t* url);
    const StlStringW& GetUrl() const { return m_url; }
    // The algorithm the caller hashed the imprint with; tspHashNone (the
    // default) until set.
    void SetHashAlgorithm(tspHashAlgorithm algorithm) { m_hashAlgorithm = algorithm; }
    tspHashAlgorithm GetHashAlgorithm() const { return m_hashAlgorithm; }
    // The TSA policy to ask for, as a dotted OID; empty (the default) lets
    // the TSA choose.
    void SetPolicyId(const char* oid);
    const StlString& GetPolicyId() const { return m_policyId; }
    // Seconds allowed for the connection (default 5) and for the whole
    // exchange (default 30).
    void SetConnectTimeout(long seconds) { m_connectTimeout = seconds; }
    long GetConnectTimeout() const { return m_connectTimeout; }
    void SetTotalTimeout(long seconds) { m_totalTimeout = seconds; }
    long GetTotalTimeout() const { return m_totalTimeout; }
    // HTTP Basic credentials, sent (as UTF-8) when the user is not empty.
    void SetUser(const wchar_t* user);
    const StlStringW& GetUser() const { return m_user; }
    void SetPassword(const wchar_t* password);
    const StlStringW& GetPassword() const { return m_password; }

    // Asks the TSA for a token over `imprint` (the data already hashed with
    // GetHashAlgorithm(); `length` must be that algorithm's digest size). The
    // request carries a fresh random 64-bit nonce, certReq TRUE and the
    // policy when set. The answer must have status granted or grantedWithMods
    // and echo the nonce, the imprint and the requested policy. `flags` is
    // reserved; pass 0. Throws TspException with the codes of TspErrorCode.
    TspTimeStamp TimeStamp(const unsigned char* imprint, unsigned int length, int flags) const;

private:
    StlStringW m_url;
    tspHashAlgorithm m_hashAlgorithm;
    StlString m_policyId;
    long m_connectTimeout;
    long m_totalTimeout;
    StlStringW m_user;
    StlStringW m_password;
    qorlog::Channel* m_log;
};

}  // namespace QorTsp2Lib
