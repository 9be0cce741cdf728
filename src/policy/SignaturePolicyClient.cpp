// The signature policy clients: the online client, its libcurl transport and
// the stack.
#include "SignaturePolicyClient.h"

#include <string>

#include "CryptException.h"
#include "Failure.h"
#include "QorCurl.h"
#include "QorTextConv.h"
#include "SignaturePolicy.h"

template class TesseraLib::X509ClientStack<TesseraLib::SignaturePolicyClient*>;

namespace TesseraLib {

namespace {

const wchar_t kOnlineChannel[] = L"SignaturePolicyClientOnline";
const wchar_t kCurlChannel[] = L"CurlSignaturePolicyClientOnline";
const wchar_t kStackChannel[] = L"SignaturePolicyClientStack";

qorstd::QorStringW Widen(const std::string& text, const char* charset) {
    return qorstd::text::NarrowToWide(text.c_str(), static_cast<unsigned int>(text.size()),
                                      charset);
}

}  // namespace

SignaturePolicyClient::~SignaturePolicyClient() = default;

// ---------------------------------------------------------------- online

SignaturePolicyClientOnline::SignaturePolicyClientOnline()
    : m_log(std::make_unique<LogChannel>(kOnlineChannel)) {}

SignaturePolicyClientOnline::SignaturePolicyClientOnline(const SignaturePolicyClientOnline& other)
    : SignaturePolicyClient(other), m_log(std::make_unique<LogChannel>(kOnlineChannel)) {
    Copy(other);
}

SignaturePolicyClientOnline& SignaturePolicyClientOnline::operator=(
    const SignaturePolicyClientOnline& other) {
    if (this != &other) {
        Copy(other);
    }
    return *this;
}

SignaturePolicyClientOnline::~SignaturePolicyClientOnline() = default;

void SignaturePolicyClientOnline::Copy(const SignaturePolicyClientOnline& other) {
    m_url = other.m_url;
}

void SignaturePolicyClientOnline::Reset() {
    m_policy.reset();
}

const SignaturePolicy* SignaturePolicyClientOnline::GetSignaturePolicy(
    const qorstd::QorString& oid) {
    TLOG_DEBUG(m_log, L"GetSignaturePolicy(OID:%ls)",
               Widen(oid.c_str(), qorstd::text::kCharsetAscii).c_str());
    qorstd::QorArray<unsigned char> bytes;
    GetPolicyEncoded(m_url, bytes);
    m_policy.reset();
    if (bytes.GetSize() == 0) {
        return nullptr;
    }
    auto policy = std::make_unique<SignaturePolicy>(bytes);
    if (policy->GetOID() != oid) {
        return nullptr;
    }
    m_policy = std::move(policy);
    return m_policy.get();
}

// ---------------------------------------------------------------- libcurl

CurlSignaturePolicyClientOnline::CurlSignaturePolicyClientOnline()
    : m_log(std::make_unique<LogChannel>(kCurlChannel)), m_connectTimeout(5), m_timeout(0) {}

CurlSignaturePolicyClientOnline::CurlSignaturePolicyClientOnline(
    const CurlSignaturePolicyClientOnline& other)
    : SignaturePolicyClientOnline(other),
      m_log(std::make_unique<LogChannel>(kCurlChannel)),
      m_connectTimeout(other.m_connectTimeout),
      m_timeout(other.m_timeout) {}

CurlSignaturePolicyClientOnline& CurlSignaturePolicyClientOnline::operator=(
    const CurlSignaturePolicyClientOnline& other) {
    if (this != &other) {
        SignaturePolicyClientOnline::operator=(other);
        m_connectTimeout = other.m_connectTimeout;
        m_timeout = other.m_timeout;
    }
    return *this;
}

CurlSignaturePolicyClientOnline::~CurlSignaturePolicyClientOnline() = default;

unsigned int CurlSignaturePolicyClientOnline::write_callback(char* data, unsigned int size,
                                                             unsigned int count, void* out) {
    const unsigned int bytes = size * count;
    if (bytes != 0) {
        static_cast<qorstd::QorArray<unsigned char>*>(out)->Append(
            reinterpret_cast<const unsigned char*>(data), bytes);
    }
    return bytes;
}

void CurlSignaturePolicyClientOnline::GetPolicyEncoded(const qorstd::QorStringW& url,
                                                       qorstd::QorArray<unsigned char>& out) const {
    if (url.empty()) {
        Fail(m_log, L"Server address not set", ErrInvalidParameter);
    }
    qorcurl::Request request;
    request.url = qorstd::text::WideToNarrow(url.c_str(), true).c_str();
    request.connectTimeoutSeconds = m_connectTimeout;
    request.totalTimeoutSeconds = m_timeout;
    TLOG_DEBUG(m_log, L"URL: %ls", url.c_str());
    out = qorstd::QorArray<unsigned char>();
    qorcurl::Response answer = qorcurl::Perform(request);
    if (answer.outcome != qorcurl::Outcome::Ok) {
        if (answer.curlCode == 0) {
            Fail(m_log, L"CURL init failed", ErrInternal);
        }
        TLOG_ERROR(m_log, L"HTTP request failed. Result code=%d. Message=%ls", answer.curlCode,
                   Widen(answer.error, qorstd::text::kCharsetAscii).c_str());
        Fail(answer.outcome == qorcurl::Outcome::Timeout ? ErrPolicyDownloadTimeout
                                                         : ErrPolicyDownloadConnect);
    }
    TLOG_DEBUG(m_log, L"HTTP request succesful.");
    if (answer.status == 200) {
        // The shared transport collects the body; it reaches the caller's
        // array the way libcurl's chunks would.
        write_callback(reinterpret_cast<char*>(answer.body.data()), 1,
                       static_cast<unsigned int>(answer.body.size()), &out);
        return;
    }
    if (answer.status == 0) {
        TLOG_ERROR(m_log, L"Can't get HTTP status code from reply (URL=%ls)", url.c_str());
        Fail(ErrPolicyDownloadConnect, L"Can't get HTTP status code from reply");
    }
    TLOG_ERROR(m_log, L"Server HTTP reply contains HTTP status code %ld (URL=%ls)", answer.status,
               url.c_str());
    const std::string body(answer.body.begin(), answer.body.end());
    const std::wstring line =
        std::wstring(L"HTTP body: ") + Widen(body, qorstd::text::kCharsetProcess).c_str();
    Fail(m_log, line.c_str(),
         answer.status == 503 ? ErrPolicyUnavailable : ErrPolicyDownloadResponse);
}

// ---------------------------------------------------------------- stack

SignaturePolicyClientStack::SignaturePolicyClientStack()
    : m_log(std::make_unique<LogChannel>(kStackChannel)) {}

SignaturePolicyClientStack::SignaturePolicyClientStack(const SignaturePolicyClientStack& other)
    : SignaturePolicyClient(other),
      X509ClientStack<SignaturePolicyClient*>(other),
      m_log(std::make_unique<LogChannel>(kStackChannel)) {}

SignaturePolicyClientStack& SignaturePolicyClientStack::operator=(
    const SignaturePolicyClientStack& other) {
    if (this != &other) {
        X509ClientStack<SignaturePolicyClient*>::operator=(other);
    }
    return *this;
}

SignaturePolicyClientStack::~SignaturePolicyClientStack() = default;

const SignaturePolicy* SignaturePolicyClientStack::GetSignaturePolicy(
    const qorstd::QorString& oid) {
    for (unsigned int i = 0; i < m_clients.GetSize(); ++i) {
        if (m_clients[i] == nullptr) {
            continue;
        }
        if (const SignaturePolicy* policy = m_clients[i]->GetSignaturePolicy(oid)) {
            return policy;
        }
    }
    TLOG_DEBUG(m_log, L"GetSignaturePolicy: no client has the policy");
    return nullptr;
}

}  // namespace TesseraLib
