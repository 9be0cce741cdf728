#include "OcspClient.h"

#include <openssl/err.h>
#include <openssl/ocsp.h>
#include <openssl/x509v3.h>

#include <string>

#include "OcspInternal.h"
#include "OpenSslPtr.h"
#include "QorCurl.h"
#include "QorLog.h"
#include "QorTextConv.h"

namespace QorOcsp2Lib {

using qorlog::LogLevel;
using qorssl::OcspBasicRespPtr;
using qorssl::OcspCertIdPtr;
using qorssl::OcspRequestPtr;
using qorssl::OcspResponsePtr;

namespace {

qorstd::QorArray<unsigned char> RequestDer(OCSP_REQUEST* request) {
    unsigned char* der = nullptr;
    const int length = i2d_OCSP_REQUEST(request, &der);
    if (length <= 0) {
        ERR_clear_error();
        OcspException::Throw(OcspException::ocspErrEncoding, L"i2d_OCSP_REQUEST failed");
    }
    qorstd::QorArray<unsigned char> out(der, static_cast<unsigned int>(length));
    OPENSSL_free(der);
    return out;
}

// The first of `issuers` that issued `certificate`.
X509* FindIssuer(const OcspVector<OcspCertificate>& issuers, X509* certificate) {
    for (unsigned int i = 0; i < issuers.GetSize(); ++i) {
        X509* candidate = issuers.GetAt(i).GetX509();
        if (candidate != nullptr && X509_check_issued(candidate, certificate) == X509_V_OK) {
            return candidate;
        }
    }
    return nullptr;
}

// Only an echoed nonce that differs is refused: many responders (those that
// pre-produce their answers among them) leave the nonce out.
bool NonceAccepted(OCSP_REQUEST* request, OCSP_BASICRESP* basic) {
    const int check = OCSP_check_nonce(request, basic);
    ERR_clear_error();
    return check != 0;
}

}  // namespace

// ---- HttpClient ---------------------------------------------------------

HttpClient::~HttpClient() = default;

CurlHttpClient::CurlHttpClient() : m_connectTimeout(5), m_timeout(30) {}
CurlHttpClient::~CurlHttpClient() = default;

void CurlHttpClient::Post(const StlString& url, const char* contentType,
                          const qorstd::QorArray<unsigned char>& body,
                          qorstd::QorArray<unsigned char>& response) {
    qorcurl::Request request;
    request.url = url.c_str();
    request.contentType = contentType != nullptr ? contentType : "application/octet-stream";
    request.body.assign(body.GetData(), body.GetData() + body.GetSize());
    request.connectTimeoutSeconds = m_connectTimeout;
    request.totalTimeoutSeconds = m_timeout;
    const qorcurl::Response answer = qorcurl::Perform(request);
    const qorstd::QorStringW error =
        qorstd::text::NarrowToWide(answer.error.c_str(), 0, qorstd::text::kCharsetUtf8);
    switch (answer.outcome) {
        case qorcurl::Outcome::Ok:
            break;
        case qorcurl::Outcome::Timeout:
            OcspException::Throw(OcspException::ocspErrTimeout, error.c_str());
        case qorcurl::Outcome::Connect:
            OcspException::Throw(OcspException::ocspErrConnect, error.c_str());
        case qorcurl::Outcome::Transport:
            OcspException::Throw(OcspException::ocspErrTransport, error.c_str());
    }
    if (answer.status != 200) {
        const std::wstring message = L"HTTP status " + std::to_wstring(answer.status);
        OcspException::Throw(OcspException::ocspErrHttpStatus, message.c_str());
    }
    response.Assign(answer.body.data(), static_cast<unsigned int>(answer.body.size()));
}

// ---- OcspClient ---------------------------------------------------------

OcspClient::OcspClient()
    : m_httpClient(nullptr), m_hashAlgorithm(OcspHash::ocspHashDefault), m_verifyResponse(1) {}
OcspClient::OcspClient(const OcspClient& other) = default;
OcspClient& OcspClient::operator=(const OcspClient& other) = default;
OcspClient::~OcspClient() = default;

void OcspClient::SetIssuerCertificates(const OcspVector<OcspCertificate>& issuers) {
    m_issuers = issuers;
}

void OcspClient::SetCACertificates(const OcspVector<OcspCertificate>& trusted) {
    m_trusted = trusted;
}

void OcspClient::SetUrl(const wchar_t* url) {
    m_url = url;
}

void OcspClient::SendRequest(const OcspCertificate& certificate, OcspResponse& response,
                             int addNonce) const {
    const qorlog::Channel log(internal::LogRegistry(), L"OcspClient");
    X509* subject = certificate.GetX509();
    if (subject == nullptr) {
        OcspException::Throw(OcspException::ocspErrInvalidParameter, L"certificate is empty");
    }
    if (m_url.empty()) {
        OcspException::Throw(OcspException::ocspErrNoUrl, nullptr);
    }
    const qorstd::QorString url =
        qorstd::text::WideToCharset(m_url.c_str(), qorstd::text::kCharsetUtf8);
    TLOG_INFO(log, L"SendRequest(URL:%ls Hash:%s Nonce:%d Verify:%d)", m_url.c_str(),
              OcspHash::GetName(m_hashAlgorithm).c_str(), addNonce, m_verifyResponse);
    X509* issuer = FindIssuer(m_issuers, subject);
    if (issuer == nullptr) {
        log.Write(LogLevel::Error, L"SendRequest: no issuer certificate for the certificate.");
        OcspException::Throw(OcspException::ocspErrInvalidParameter,
                             L"no issuer certificate for the certificate");
    }
    const EVP_MD* digest = internal::DigestOf(m_hashAlgorithm);
    OcspCertIdPtr id(digest != nullptr ? OCSP_cert_to_id(digest, subject, issuer) : nullptr);
    OcspRequestPtr request(OCSP_REQUEST_new());
    OcspCertIdPtr requestId(id ? OCSP_CERTID_dup(id.get()) : nullptr);
    if (!id || !request || !requestId ||
        OCSP_request_add0_id(request.get(), requestId.get()) == nullptr) {
        log.WriteCryptoErrors("SendRequest: building the request failed.");
        OcspException::Throw(OcspException::ocspErrRequest, L"certificate identifier");
    }
    requestId.release();  // owned by the request now
    if (addNonce == 1 && OCSP_request_add1_nonce(request.get(), nullptr, -1) != 1) {
        log.WriteCryptoErrors("SendRequest: OCSP_request_add1_nonce() failed.");
        OcspException::Throw(OcspException::ocspErrRequest, L"nonce");
    }

    CurlHttpClient ownTransport;
    HttpClient* transport = m_httpClient != nullptr ? m_httpClient : &ownTransport;
    qorstd::QorArray<unsigned char> answer;
    try {
        transport->Post(StlString(url), "application/ocsp-request", RequestDer(request.get()),
                        answer);
    } catch (const OcspException& e) {
        TLOG_ERROR(log, L"SendRequest: exchange failed (%d): %ls", e.GetErrorCode(),
                   e.GetErrorMessage().c_str());
        throw;
    }

    OcspResponse received;
    received.Decode(answer.GetData(), answer.GetSize());
    if (received.GetResponseStatus() != OCSP_RESPONSE_STATUS_SUCCESSFUL) {
        const qorstd::QorStringW status = qorstd::text::NarrowToWide(
            received.GetStatusString().c_str(), 0, qorstd::text::kCharsetUtf8);
        log.WriteFormat(LogLevel::Error, L"SendRequest: responder answered %ls.", status.c_str());
        OcspException::Throw(OcspException::ocspErrResponseStatus, status.c_str());
    }
    const qorstd::QorArray<unsigned char> basicDer = received.GetBasicResponse();
    const unsigned char* cursor = basicDer.GetData();
    OcspBasicRespPtr basic(
        d2i_OCSP_BASICRESP(nullptr, &cursor, static_cast<long>(basicDer.GetSize())));
    if (!basic) {
        ERR_clear_error();
        OcspException::Throw(OcspException::ocspErrNoBasicResponse, nullptr);
    }
    if (m_verifyResponse == 1) {
        // The issuer may sign its own answers or delegate a responder.
        OcspVector<OcspCertificate> trusted(m_trusted);
        trusted.Add(OcspCertificate(issuer));
        received.Verify(&trusted);
        if (!NonceAccepted(request.get(), basic.get())) {
            log.Write(LogLevel::Error, L"SendRequest: nonce mismatch.");
            OcspException::Throw(OcspException::ocspErrNonce, nullptr);
        }
    }
    if (OCSP_resp_find(basic.get(), id.get(), -1) < 0) {
        ERR_clear_error();
        log.Write(LogLevel::Error,
                  L"SendRequest: the response does not answer for the certificate.");
        OcspException::Throw(OcspException::ocspErrCertNotAnswered, nullptr);
    }
    TLOG_DEBUG(log, L"SendRequest: status %s", received.GetStatusString().c_str());
    response = received;
}

}  // namespace QorOcsp2Lib
