// The online CRL client over the library's own HTTP/HTTPS client: the URL
// checks, the proxy settings and the reading of the answer. The distribution-
// point walk is X509CrlClientOnline's.
#include <cstdlib>
#include <cstring>
#include <cwctype>
#include <string>

#include "CryptException.h"
#include "Failure.h"
#include "QorTextConv.h"
#include "X509CrlClient.h"
#include "x509/http/qor_http.h"

namespace TesseraLib {

namespace {

const wchar_t kChannel[] = L"X509QorCrlClientOnline";

// A kind-3 output freed with its owner.
struct MemoryOut {
    IoParam param{nullptr, 0, kIoMemory};
    MemoryOut() = default;
    MemoryOut(const MemoryOut&) = delete;
    MemoryOut& operator=(const MemoryOut&) = delete;
    ~MemoryOut() { QOR_Param_MemFree(&param); }
};

qorstd::QorStringW Widen(const std::string& text) {
    return qorstd::text::NarrowToWide(text.c_str(), static_cast<unsigned int>(text.size()),
                                      qorstd::text::kCharsetProcess);
}

}  // namespace

X509QorCrlClientOnline::X509QorCrlClientOnline() : m_log(std::make_unique<LogChannel>(kChannel)) {}

X509QorCrlClientOnline::X509QorCrlClientOnline(const X509QorCrlClientOnline& other)
    : X509CrlClientOnline(other), m_log(std::make_unique<LogChannel>(kChannel)) {}

X509QorCrlClientOnline& X509QorCrlClientOnline::operator=(const X509QorCrlClientOnline& other) {
    X509CrlClientOnline::operator=(other);
    return *this;
}

X509QorCrlClientOnline::~X509QorCrlClientOnline() = default;

int X509QorCrlClientOnline::FindOutURLSchema(const wchar_t* url, int& schema) const {
    const wchar_t* separator = std::wcsstr(url, L"://");
    if (separator == nullptr) {
        TLOG_ERROR(m_log,
                   L"FindOutURLSchema: Protocol identificator not found (:// not found). "
                   L"Address: %ls",
                   url);
        return 0;
    }
    std::wstring scheme(url, separator);
    for (wchar_t& c : scheme) {
        c = static_cast<wchar_t>(std::towupper(static_cast<wint_t>(c)));
    }
    if (scheme == L"HTTPS") {
        schema = 2;
        return 1;
    }
    if (scheme == L"HTTP") {
        schema = 1;
        return 1;
    }
    TLOG_ERROR(m_log, L"FindOutURLSchema: Unsupported schema: %ls", scheme.c_str());
    return 0;
}

void X509QorCrlClientOnline::GetCrlEncoded(const wchar_t* url,
                                           qorstd::QorArray<unsigned char>& out) const {
    if (url == nullptr || url[0] == L'\0') {
        Fail(m_log, L"GetCrlEncoded: Server address not set", ErrInvalidParameter);
    }
    if (GetUseProxy() != 0 && GetProxyAddress().empty()) {
        Fail(m_log, L"GetCrlEncoded: UseProxy set true, but proxy server address not set",
             ErrInvalidParameter);
    }
    HttpConnectParams params{};
    TLOG_DEBUG(m_log, L"URL: %ls", url);
    int schema = 0;
    if (FindOutURLSchema(url, schema) == 0) {
        Fail(m_log, L"GetCrlEncoded: Server address error", ErrInvalidParameter);
    }
    const std::string narrowUrl = qorstd::text::WideToNarrow(url, true).c_str();
    params.url = narrowUrl.c_str();
    params.httpVersion = 1;
    params.method = 1;

    std::string proxyHost;
    std::string proxyUser;
    std::string proxyPassword;
    if (GetUseProxy() != 0) {
        const std::string address =
            qorstd::text::WideToNarrow(GetProxyAddress().c_str(), true).c_str();
        proxyUser = qorstd::text::WideToNarrow(GetProxyUserName().c_str(), true).c_str();
        proxyPassword = qorstd::text::WideToNarrow(GetProxyPassword().c_str(), true).c_str();
        int proxySchema = 0;
        if (FindOutURLSchema(GetProxyAddress().c_str(), proxySchema) == 0) {
            Fail(m_log, L"GetCrlEncoded: Proxy address error", ErrInvalidParameter);
        }
        const std::size_t hostStart = address.find("://") + 3;
        const std::size_t colon = address.find(':', hostStart);
        proxyHost = address.substr(
            hostStart, colon == std::string::npos ? std::string::npos : colon - hostStart);
        if (colon != std::string::npos) {
            params.proxyPort = static_cast<std::uint16_t>(std::atoi(address.c_str() + colon + 1));
        } else {
            params.proxyPort = proxySchema == 2 ? 443 : 80;
        }
        params.proxyHost = proxyHost.c_str();
        // Always set, so that a proxied request always carries the
        // authorization line, empty credentials included.
        params.proxyUser = proxyUser.c_str();
        params.proxyPassword = proxyPassword.c_str();
    }

    MemoryOut response;
    const int result =
        schema == 1
            ? QOR_HTTP_Connect(&response.param, nullptr, &params, nullptr, nullptr)
            : QOR_HTTPS_Connect(&response.param, nullptr, nullptr, &params, nullptr, nullptr);
    if (result == kHttpTimeout) {
        TLOG_ERROR(m_log, L"GetCrlEncoded: Timeout expired. URL:%ls", url);
        Fail(ErrCrlServiceTimeout);
    }
    if (result == kHttpAborted) {
        TLOG_ERROR(m_log, L"GetCrlEncoded: User aborted. URL:%ls", url);
        Fail(ErrUserAborted);
    }
    if (result == kHttpFailed) {
        FailCrypto(m_log,
                   schema == 1 ? "GetCrlEncoded: QOR_HTTP_Connect Error:"
                               : "GetCrlEncoded: QOR_HTTPS_Connect Error:",
                   ErrCrlService);
    }
    const qorstd::QorStringW wideUrl = Widen(narrowUrl);
    MemoryOut header;
    MemoryOut body;
    const int split = QOR_HTTP_SplitData(&response.param, &header.param, &body.param);
    QOR_Param_MemFree(&response.param);
    if (split != 0) {
        TLOG_ERROR(m_log, L"GetCrlEncoded: Bad HTTP reply format (URL=%ls)", wideUrl.c_str());
        Fail(ErrCrlService, L"Bad HTTP reply format");
    }
    const int code = QOR_HTTP_GetCode(&header.param);
    if (code == 200) {
        out = qorstd::QorArray<unsigned char>();
        if (body.param.length > 0) {
            out.Assign(static_cast<const unsigned char*>(body.param.data), body.param.length);
        }
        return;
    }
    if (code == -1) {
        TLOG_ERROR(m_log, L"GetCrlEncoded: Can't get HTTP status code from reply (URL=%ls)",
                   wideUrl.c_str());
        Fail(ErrCrlService, L"Can't get HTTP status code from reply");
    }
    TLOG_ERROR(m_log, L"GetCrlEncoded: Server HTTP reply contains HTTP status code %i (URL=%ls)",
               code, wideUrl.c_str());
    const std::string text(static_cast<const char*>(body.param.data), body.param.length);
    const std::wstring bodyLine = L"HTTP body: " + std::wstring(Widen(text).c_str());
    TLOG_ERROR(m_log, bodyLine.c_str());
    Fail(code == 503 ? ErrCrlServiceUnavailable : ErrCrlServiceBadResponse);
}

}  // namespace TesseraLib
