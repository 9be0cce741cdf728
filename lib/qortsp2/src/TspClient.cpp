#include "TspClient.h"

#include <cstring>
#include <string>
#include <vector>

#include "QorCurl.h"
#include "QorLog.h"
#include "QorTextConv.h"
#include "TspException.h"
#include "TspLog.h"
#include "TspProtocol.h"

namespace QorTsp2Lib {

using qorlog::LogLevel;

namespace {

constexpr long kDefaultConnectTimeout = 5;
constexpr long kDefaultTotalTimeout = 30;
constexpr const char* kRequestType = "application/timestamp-query";

qorlog::Channel* OpenChannel() {
    return new qorlog::Channel(logging::Registry(), L"TspClient");
}

std::string Utf8(const StlStringW& text) {
    return qorstd::text::WideToCharset(text.c_str(), qorstd::text::kCharsetUtf8).c_str();
}

}  // namespace

TspClient::TspClient()
    : m_hashAlgorithm(tspHashNone),
      m_connectTimeout(kDefaultConnectTimeout),
      m_totalTimeout(kDefaultTotalTimeout),
      m_log(OpenChannel()) {}

TspClient::TspClient(const wchar_t* url) : TspClient() {
    m_url = url;
}

TspClient::TspClient(const TspClient& other)
    : m_url(other.m_url),
      m_hashAlgorithm(other.m_hashAlgorithm),
      m_policyId(other.m_policyId),
      m_connectTimeout(other.m_connectTimeout),
      m_totalTimeout(other.m_totalTimeout),
      m_user(other.m_user),
      m_password(other.m_password),
      m_log(OpenChannel()) {}

// Copies the settings; each client keeps the channel it opened.
TspClient& TspClient::operator=(const TspClient& other) {
    if (this != &other) {
        m_url = other.m_url;
        m_hashAlgorithm = other.m_hashAlgorithm;
        m_policyId = other.m_policyId;
        m_connectTimeout = other.m_connectTimeout;
        m_totalTimeout = other.m_totalTimeout;
        m_user = other.m_user;
        m_password = other.m_password;
    }
    return *this;
}

TspClient::~TspClient() {
    delete m_log;
}

void TspClient::SetUrl(const wchar_t* url) {
    m_url = url;
}

void TspClient::SetPolicyId(const char* oid) {
    m_policyId = oid;
}

void TspClient::SetUser(const wchar_t* user) {
    m_user = user;
}

void TspClient::SetPassword(const wchar_t* password) {
    m_password = password;
}

TspTimeStamp TspClient::TimeStamp(const unsigned char* imprint, unsigned int length,
                                  int /*flags*/) const {
    const qorlog::Channel& log = *m_log;
    try {
        if (imprint == nullptr || length == 0) {
            protocol::Fail(TspErrInvalidParameter, "TimeStamp: the imprint is empty");
        }
        const std::string url =
            qorstd::text::WideToCharset(m_url.c_str(), qorstd::text::kCharsetAscii).c_str();
        if (url.empty()) {
            protocol::Fail(TspErrInvalidParameter, "TimeStamp: the URL is empty or not ASCII");
        }
        TLOG_INFO(log, L"TimeStamp(URL:%s Hash:%s)", url.c_str(), GetHashName(m_hashAlgorithm));

        protocol::RequestFacts facts;
        facts.algorithm = m_hashAlgorithm;
        facts.imprint.assign(imprint, imprint + length);
        facts.nonce = protocol::NewNonce();
        facts.policyId = m_policyId.c_str();

        qorcurl::Request request;
        request.url = url;
        request.contentType = kRequestType;
        request.body = protocol::EncodeRequest(facts);
        request.connectTimeoutSeconds = m_connectTimeout;
        request.totalTimeoutSeconds = m_totalTimeout;
        request.user = Utf8(m_user);
        request.password = Utf8(m_password);
        TLOG_DEBUG(log, L"TimeStamp: request %u bytes, nonce %s, policy %s",
                   static_cast<unsigned int>(request.body.size()),
                   protocol::NonceHex(facts.nonce).c_str(),
                   facts.policyId.empty() ? "(TSA's choice)" : facts.policyId.c_str());

        const qorcurl::Response response = qorcurl::Perform(request);
        switch (response.outcome) {
            case qorcurl::Outcome::Ok:
                break;
            case qorcurl::Outcome::Timeout:
                protocol::Fail(TspErrTimeout, "TimeStamp: " + response.error);
            case qorcurl::Outcome::Connect:
                protocol::Fail(TspErrConnect, "TimeStamp: " + response.error);
            case qorcurl::Outcome::Transport:
                protocol::Fail(TspErrTransport, "TimeStamp: " + response.error);
        }
        TLOG_DEBUG(log, L"TimeStamp: HTTP %ld, %u bytes, type %s", response.status,
                   static_cast<unsigned int>(response.body.size()), response.contentType.c_str());
        if (response.status != 200) {
            protocol::Fail(TspErrHttpStatus,
                           "TimeStamp: HTTP status " + std::to_string(response.status));
        }
        TspTimeStamp stamp =
            protocol::CheckResponse(response.body.data(), response.body.size(), facts);
        TLOG_DEBUG(log, L"TimeStamp: genTime %s, serial %s, policy %s",
                   stamp.GetGeneralizedTime().c_str(), stamp.GetSerialNumberHex().c_str(),
                   stamp.GetPolicyId().c_str());
        return stamp;
    } catch (const TspException& e) {
        TLOG_ERROR(log, L"TimeStamp failed (%d): %ls", e.GetErrorCode(),
                   e.GetErrorMessage().c_str());
        throw;
    }
}

}  // namespace QorTsp2Lib
