// The online CRL clients: the distribution-point walk, its libcurl transport,
// and the platform retrieval over every scheme libcurl supports.
#include <openssl/err.h>
#include <openssl/x509v3.h>

#include <string>
#include <vector>

#include "CryptException.h"
#include "Failure.h"
#include "OpenSslPtr.h"
#include "QorCurl.h"
#include "QorTextConv.h"
#include "X509Certificate.h"
#include "X509CrlClient.h"
#include "x509/CrlClientSupport.h"
#include "x509/X509Bytes.h"

namespace TesseraLib {

namespace {

const wchar_t kOnlineChannel[] = L"X509CrlClientOnline";
const wchar_t kCurlChannel[] = L"X509CurlCrlClientOnline";
const wchar_t kWinChannel[] = L"X509WinCrlClientOnline";
const char kHttpPrefix[] = "http://";
// The platform retrieval waits this long for each URL.
const long kWinTimeoutSeconds = 15;

// The error line that carries a refused download's body, written whole.
std::wstring BodyLine(const qorcurl::Response& answer) {
    const std::string body(answer.body.begin(), answer.body.end());
    const qorstd::QorStringW text = qorstd::text::NarrowToWide(
        body.c_str(), static_cast<unsigned int>(body.size()), qorstd::text::kCharsetProcess);
    return std::wstring(L"HTTP body: ") + text.c_str();
}

// The CRL distribution points of `cert`; null when it has none. An extension
// that does not decode (or appears twice) throws ErrInternal.
CrlDistPointsPtr ReadDistributionPoints(const X509Certificate& cert, const LogChannel& log,
                                        const wchar_t* failure, int code, const wchar_t* message) {
    int critical = 0;
    CrlDistPointsPtr points(static_cast<CRL_DIST_POINTS*>(
        X509_get_ext_d2i(cert.GetX509(), NID_crl_distribution_points, &critical, nullptr)));
    if (!points && critical != -1) {
        Fail(log, failure, code, message);
    }
    return points;
}

// The URIs among the full names of one distribution point, in order.
std::vector<std::string> FullNameUris(const DIST_POINT* point) {
    std::vector<std::string> uris;
    if (point->distpoint == nullptr || point->distpoint->type != 0) {
        return uris;
    }
    const GENERAL_NAMES* names = point->distpoint->name.fullname;
    for (int i = 0; i < sk_GENERAL_NAME_num(names); ++i) {
        const GENERAL_NAME* name = sk_GENERAL_NAME_value(names, i);
        if (name->type != GEN_URI) {
            continue;
        }
        const ASN1_IA5STRING* uri = name->d.uniformResourceIdentifier;
        uris.emplace_back(reinterpret_cast<const char*>(ASN1_STRING_get0_data(uri)),
                          static_cast<std::size_t>(ASN1_STRING_length(uri)));
    }
    return uris;
}

qorstd::QorStringW Widen(const std::string& text) {
    return qorstd::text::NarrowToWide(text.c_str(), static_cast<unsigned int>(text.size()),
                                      qorstd::text::kCharsetAscii);
}

}  // namespace

// ---------------------------------------------------------------- online

X509CrlClientOnline::X509CrlClientOnline()
    : m_useProxy(0), m_log(std::make_unique<LogChannel>(kOnlineChannel)) {}

X509CrlClientOnline::X509CrlClientOnline(const X509CrlClientOnline& other)
    : X509CrlClient(other),
      m_proxyAddress(other.m_proxyAddress),
      m_proxyUserName(other.m_proxyUserName),
      m_proxyPassword(other.m_proxyPassword),
      m_useProxy(other.m_useProxy),
      m_log(std::make_unique<LogChannel>(kOnlineChannel)) {}

X509CrlClientOnline& X509CrlClientOnline::operator=(const X509CrlClientOnline& other) {
    if (this != &other) {
        m_proxyAddress = other.m_proxyAddress;
        m_proxyUserName = other.m_proxyUserName;
        m_proxyPassword = other.m_proxyPassword;
        m_useProxy = other.m_useProxy;
    }
    return *this;
}

X509CrlClientOnline::~X509CrlClientOnline() = default;

void X509CrlClientOnline::WarnCaught(int code, const wchar_t* description,
                                     const wchar_t* message) const {
    TLOG_WARNING(m_log,
                 L"GetCrl: Cannot get CRL, CryptException caught: ErrorNumber = %d, "
                 L"Description = %ls, Message = %ls",
                 code, description, message);
}

X509Crl* X509CrlClientOnline::GetCrl(const X509Certificate& cert) {
    try {
        TLOG_DEBUG(m_log, L"GetCrl(Cert:%ls)", crlclients::Describe(cert).c_str());
        crlclients::RequireHandle(*m_log, cert, L"GetCrl");
        return GetCrlFromCertificate(cert);
    } catch (const CryptException& e) {
        WarnCaught(e.GetErrorCode(), e.GetErrorDescription().c_str(), e.GetErrorMessage().c_str());
        return nullptr;
    }
}

X509Crl* X509CrlClientOnline::GetCrlFromCertificate(const X509Certificate& cert) {
    const CrlDistPointsPtr points = ReadDistributionPoints(
        cert, *m_log, L"GetCrlFromCertificate: Unable to get CRLDP.", ErrInternal, L"pCrldp=NULL");
    if (!points) {
        return nullptr;
    }
    // A failing point does not end the walk; only when no point delivers is
    // the (last) failure reported.
    std::unique_ptr<CryptException> kept;
    for (int i = 0; i < sk_DIST_POINT_num(points.get()); ++i) {
        const DIST_POINT* point = sk_DIST_POINT_value(points.get(), i);
        if (point == nullptr) {
            Fail(m_log, L"GetCrldpUrl: CRLDP not set", ErrInvalidParameter);
        }
        std::string url;
        for (const std::string& uri : FullNameUris(point)) {
            if (uri.size() > sizeof(kHttpPrefix) - 1 && uri.compare(0, 7, kHttpPrefix) == 0) {
                url = uri;
                break;
            }
        }
        if (url.empty()) {
            continue;
        }
        try {
            if (X509Crl* crl = GetCrl(Widen(url).c_str())) {
                return crl;
            }
        } catch (const CryptException& e) {
            kept = std::make_unique<CryptException>(e);
        }
    }
    if (kept) {
        kept->ReThrow();
    }
    return nullptr;
}

X509Crl* X509CrlClientOnline::GetCrl(const wchar_t* url) {
    try {
        qorstd::QorArray<unsigned char> bytes;
        GetCrlEncoded(url, bytes);
        m_lastCrl.reset();
        if (bytes.GetSize() == 0) {
            return nullptr;
        }
        auto crl = std::make_unique<X509Crl>();
        crl->Import(bytes.GetData(), static_cast<long>(bytes.GetSize()));
        m_lastCrl = std::move(crl);
        return m_lastCrl.get();
    } catch (const CryptException& e) {
        WarnCaught(e.GetErrorCode(), e.GetErrorDescription().c_str(), e.GetErrorMessage().c_str());
        return nullptr;
    }
}

X509Crl* X509CrlClientOnline::GetCrlAfterTime(const X509Certificate& cert, const std::int64_t& time,
                                              const X509Certificate* /*issuer*/) {
    TLOG_DEBUG(m_log, L"GetCrlAfterTime(Time:%ls)", x509::FormatLogTime(time).c_str());
    X509Crl* crl = GetCrl(cert);
    if (crl != nullptr && crl->GetThisUpdate() < time) {
        TLOG_DEBUG(m_log, L"GetCrlAfterTime: Cannot get CRL, CRL(ThisUpdate:%ls) < Time(%ls)",
                   x509::FormatLogTime(crl->GetThisUpdate()).c_str(),
                   x509::FormatLogTime(time).c_str());
        return nullptr;
    }
    return crl;
}

// ---------------------------------------------------------------- libcurl

X509CurlCrlClientOnline::X509CurlCrlClientOnline()
    : m_log(std::make_unique<LogChannel>(kCurlChannel)), m_connectTimeout(5), m_timeout(0) {}

X509CurlCrlClientOnline::X509CurlCrlClientOnline(const X509CurlCrlClientOnline& other)
    : X509CrlClientOnline(other),
      m_log(std::make_unique<LogChannel>(kCurlChannel)),
      m_connectTimeout(other.m_connectTimeout),
      m_timeout(other.m_timeout) {}

X509CurlCrlClientOnline& X509CurlCrlClientOnline::operator=(const X509CurlCrlClientOnline& other) {
    if (this != &other) {
        X509CrlClientOnline::operator=(other);
        m_connectTimeout = other.m_connectTimeout;
        m_timeout = other.m_timeout;
    }
    return *this;
}

X509CurlCrlClientOnline::~X509CurlCrlClientOnline() = default;

void X509CurlCrlClientOnline::GetCrlEncoded(const wchar_t* url,
                                            qorstd::QorArray<unsigned char>& out) const {
    if (url == nullptr || url[0] == L'\0') {
        Fail(m_log, L"Server address not set", ErrInvalidParameter);
    }
    if (GetUseProxy() != 0) {
        if (GetProxyAddress().empty()) {
            Fail(m_log, L"UseProxy set true, but proxy server address not set",
                 ErrInvalidParameter);
        }
        // This transport talks to the server directly only.
        Fail(ErrNotImplemented);
    }
    out = qorstd::QorArray<unsigned char>();

    qorcurl::Request request;
    request.url = qorstd::text::WideToNarrow(url, true).c_str();
    request.connectTimeoutSeconds = m_connectTimeout;
    request.totalTimeoutSeconds = m_timeout;
    TLOG_DEBUG(m_log, L"URL: %ls", url);
    const qorcurl::Response answer = qorcurl::Perform(request);
    if (answer.outcome != qorcurl::Outcome::Ok) {
        if (answer.curlCode == 0) {
            Fail(m_log, L"CURL init failed", ErrInternal);
        }
        TLOG_ERROR(m_log, L"HTTP request failed. Result code=%d. Message=%ls", answer.curlCode,
                   Widen(answer.error).c_str());
        Fail(answer.outcome == qorcurl::Outcome::Timeout ? ErrCrlServiceTimeout : ErrCrlService);
    }
    TLOG_DEBUG(m_log, L"HTTP request succesful.");
    if (answer.status == 200) {
        if (!answer.body.empty()) {
            out.Assign(answer.body.data(), static_cast<unsigned int>(answer.body.size()));
        }
        return;
    }
    if (answer.status == 0) {
        TLOG_ERROR(m_log, L"Can't get HTTP status code from reply (URL=%ls)", url);
        Fail(ErrCrlService, L"Can't get HTTP status code from reply");
    }
    TLOG_ERROR(m_log, L"Server HTTP reply contains HTTP status code %ld (URL=%ls)", answer.status,
               url);
    Fail(m_log, BodyLine(answer).c_str(),
         answer.status == 503 ? ErrCrlServiceUnavailable : ErrCrlServiceBadResponse);
}

// ---------------------------------------------------------------- platform

X509WinCrlClientOnline::X509WinCrlClientOnline()
    : m_log(std::make_unique<LogChannel>(kWinChannel)) {}

X509WinCrlClientOnline::X509WinCrlClientOnline(const X509WinCrlClientOnline& other)
    : X509CrlClient(other), m_log(std::make_unique<LogChannel>(kWinChannel)) {}

X509WinCrlClientOnline& X509WinCrlClientOnline::operator=(const X509WinCrlClientOnline& /*other*/) {
    return *this;
}

X509WinCrlClientOnline::~X509WinCrlClientOnline() = default;

X509Crl* X509WinCrlClientOnline::GetCrl(const X509Certificate& cert) {
    crlclients::RequireHandle(*m_log, cert, L"GetCrl");
    TLOG_DEBUG(m_log, L"GetCrl(Cert:%ls)", crlclients::Describe(cert).c_str());
    const CrlDistPointsPtr points = ReadDistributionPoints(
        cert, *m_log, L"GetCertificateCrldpUrlArray: CryptGetObjectUrl() failed.",
        ErrRevocationUnknown, L"");
    if (!points) {
        Fail(m_log, L"GetCertificateCrldpUrlArray: CryptGetObjectUrl() failed.",
             ErrRevocationUnknown);
    }
    std::vector<std::string> urls;
    for (int i = 0; i < sk_DIST_POINT_num(points.get()); ++i) {
        for (const std::string& uri : FullNameUris(sk_DIST_POINT_value(points.get(), i))) {
            urls.push_back(uri);
        }
    }
    for (const std::string& url : urls) {
        TLOG_DEBUG(m_log, L"URL: %ls", Widen(url).c_str());
        qorcurl::Request request;
        request.url = url;
        request.protocols = "all";
        request.connectTimeoutSeconds = kWinTimeoutSeconds;
        request.totalTimeoutSeconds = kWinTimeoutSeconds;
        const qorcurl::Response answer = qorcurl::Perform(request);
        // An HTTP error page is no CRL even if it happened to decode; other
        // schemes (file, ftp) report no HTTP status.
        const bool http = url.compare(0, 4, "http") == 0 || url.compare(0, 4, "HTTP") == 0;
        if (answer.outcome != qorcurl::Outcome::Ok || answer.body.empty() ||
            (http && answer.status != 200)) {
            TLOG_DEBUG(m_log, L"GetCrl: no CRL from %ls (status %ld)", Widen(url).c_str(),
                       answer.status);
            continue;
        }
        try {
            auto crl = std::make_unique<X509Crl>(answer.body.data(),
                                                 static_cast<long>(answer.body.size()));
            m_lastCrl = std::move(crl);
            return m_lastCrl.get();
        } catch (const CryptException&) {
            TLOG_DEBUG(m_log, L"GetCrl: %ls delivered no CRL", Widen(url).c_str());
        }
    }
    Fail(m_log, L"GetCrlFromCertificate: Unable to retrieve CRL.", ErrCrlService,
         L"hCrlContext=NULL");
}

X509Crl* X509WinCrlClientOnline::GetCrlAfterTime(const X509Certificate& cert,
                                                 const std::int64_t& time,
                                                 const X509Certificate* /*issuer*/) {
    X509Crl* crl = GetCrl(cert);
    if (crl != nullptr && crl->GetThisUpdate() < time) {
        m_lastCrl.reset();
        return nullptr;
    }
    return crl;
}

X509Crl* X509WinCrlClientOnline::GetCrl(const wchar_t* /*url*/) {
    m_lastCrl.reset();
    return nullptr;
}

}  // namespace TesseraLib
