#include "CrlClient.h"

#include <string>

#include "GetOneCrlInternal.h"
#include "QorCurl.h"
#include "QorTextConv.h"

namespace QorGetOneCrlLib {

namespace {

// The issuer travels in a query parameter: the URL alphabet needs no
// escaping, and padding carries no information.
std::string ToBase64Url(const char* base64) {
    std::string out;
    for (const char* c = base64; *c != '\0'; ++c) {
        switch (*c) {
            case '+':
                out += '-';
                break;
            case '/':
                out += '_';
                break;
            case '=':
            case '\r':
            case '\n':
            case ' ':
                break;
            default:
                out += *c;
        }
    }
    return out;
}

}  // namespace

CrlClient::CrlClient() : m_requestTime(0), m_connectTimeout(5), m_timeout(30) {}
CrlClient::CrlClient(const CrlClient& other) = default;
CrlClient& CrlClient::operator=(const CrlClient& other) = default;
CrlClient::~CrlClient() = default;

void CrlClient::SetUrl(const wchar_t* url) {
    m_url = qorstd::QorStringW(url != nullptr ? url : L"");
}

qorstd::QorString CrlClient::GetRequestUrl() const {
    if (m_url.empty() || m_issuer.empty()) {
        return qorstd::QorString();
    }
    const qorstd::QorString base = qorstd::text::WideToNarrow(m_url.c_str(), true);
    const std::string issuer = ToBase64Url(m_issuer.c_str());
    if (base.empty() || issuer.empty()) {
        return qorstd::QorString();
    }
    std::string url = base.c_str();
    url += url.find('?') == std::string::npos ? '?' : '&';
    url += "issuer=" + issuer;
    if (m_requestTime != 0) {
        url += "&time=" + std::to_string(m_requestTime);
    }
    return qorstd::QorString(url.c_str());
}

void CrlClient::SendRequest(CrlResponse& response) const {
    const qorlog::Channel log(internal::LogRegistry(), L"CrlClient");
    response.Reset();
    const qorstd::QorString url = GetRequestUrl();
    if (url.empty()) {
        TLOG_ERROR(log, L"SendRequest: service URL or issuer not set");
        CrlException::Throw(CrlException::crlErrInvalidParameter,
                            m_url.empty() ? L"URL not set" : L"Issuer not set");
    }
    TLOG_INFO(log, L"SendRequest(URL:%s)", url.c_str());

    qorcurl::Request request;
    request.url = url.c_str();
    request.connectTimeoutSeconds = m_connectTimeout;
    request.totalTimeoutSeconds = m_timeout;
    const qorcurl::Response answer = qorcurl::Perform(request);
    if (answer.outcome != qorcurl::Outcome::Ok) {
        TLOG_ERROR(log, L"SendRequest: HTTP request failed: %s", answer.error.c_str());
        const qorstd::QorStringW text =
            qorstd::text::NarrowToWide(answer.error.c_str(), 0, qorstd::text::kCharsetProcess);
        switch (answer.outcome) {
            case qorcurl::Outcome::Timeout:
                CrlException::Throw(CrlException::crlErrTimeout, text.c_str());
            case qorcurl::Outcome::Connect:
                CrlException::Throw(CrlException::crlErrConnect, text.c_str());
            default:
                CrlException::Throw(CrlException::crlErrTransport, text.c_str());
        }
    }
    if (answer.status == 404) {
        TLOG_DEBUG(log, L"SendRequest: CRL not found");
        response.SetError(CrlException::crlErrNotFound, L"CRL not found");
        return;
    }
    if (answer.status != 200) {
        TLOG_ERROR(log, L"SendRequest: HTTP status %ld", answer.status);
        const std::wstring message = L"HTTP status " + std::to_wstring(answer.status);
        CrlException::Throw(CrlException::crlErrHttpStatus, message.c_str());
    }
    response.SetCrl(Crl(answer.body.data(), static_cast<unsigned int>(answer.body.size())));
    TLOG_DEBUG(log, L"SendRequest: CRL of %u bytes received",
               static_cast<unsigned int>(answer.body.size()));
}

}  // namespace QorGetOneCrlLib
