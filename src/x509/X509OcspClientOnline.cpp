#include <utility>

#include "Failure.h"
#include "QorTextConv.h"
#include "X509OcspClient.h"
#include "X509OcspClientChecks.h"
#include "X509Store.h"
#include "x509/X509Bytes.h"

using QorOcsp2Lib::OcspCertificate;
using QorOcsp2Lib::OcspResponse;
using QorOcsp2Lib::OcspVector;

namespace TesseraLib {

// ---- X509OcspClient -----------------------------------------------------

X509OcspClient::X509OcspClient() : m_trustStore(nullptr) {}

X509OcspClient::X509OcspClient(const X509OcspClient& other) : m_trustStore(other.m_trustStore) {}

X509OcspClient& X509OcspClient::operator=(const X509OcspClient& other) {
    m_trustStore = other.m_trustStore;
    return *this;
}

X509OcspClient::~X509OcspClient() = default;

void X509OcspClient::SetTrustStore(X509Store* store) {
    m_trustStore = store;
}

X509Store* X509OcspClient::GetTrustStore() const {
    return m_trustStore;
}

// ---- X509OcspClientOnline -----------------------------------------------

namespace {

const wchar_t kOnlineChannel[] = L"X509OcspClientOnline";

std::unique_ptr<LogChannel> OpenOnlineChannel() {
    return std::make_unique<LogChannel>(kOnlineChannel);
}

}  // namespace

X509OcspClientOnline::X509OcspClientOnline()
    : m_log(OpenOnlineChannel()),
      m_httpClient(nullptr),
      m_hashAlgorithm(QorOcsp2Lib::OcspHash::ocspHashDefault) {}

X509OcspClientOnline::X509OcspClientOnline(const X509OcspClientOnline& other)
    : X509OcspClient(other),
      m_log(OpenOnlineChannel()),
      m_url(other.m_url),
      m_httpClient(other.m_httpClient),
      m_hashAlgorithm(other.m_hashAlgorithm) {}

X509OcspClientOnline& X509OcspClientOnline::operator=(const X509OcspClientOnline& other) {
    if (this != &other) {
        X509OcspClient::operator=(other);
        m_url = other.m_url;
        m_httpClient = other.m_httpClient;
        m_hashAlgorithm = other.m_hashAlgorithm;
    }
    return *this;
}

X509OcspClientOnline::~X509OcspClientOnline() = default;

OcspResponse* X509OcspClientOnline::GetOcspResponse(const X509Certificate& cert,
                                                    const X509Certificate& issuer) {
    TLOG_DEBUG(m_log, L"GetOcspResponse(Cert:%ls)", cert.GetSubjectName().GetStringX500().c_str());
    ocspclient::CheckHandles(*m_log, L"GetOcspResponse", cert, issuer);
    m_lastResponse.reset();

    QorOcsp2Lib::OcspClient client;
    if (!m_url.empty()) {
        TLOG_DEBUG(m_log, L"GetOcspResponse: URL=%ls", m_url.c_str());
        client.SetUrl(m_url.c_str());
    } else {
        const qorstd::QorString& fromCert = cert.GetOcspResponderUrl();
        if (fromCert.empty()) {
            Fail(m_log, L"GetOcspResponse: Certificate does not contain OCSP responder URL",
                 ErrChainVerification, L"cert.GetOcspResponderUrl() is empty");
        }
        const qorstd::QorStringW url =
            qorstd::text::NarrowToWide(fromCert.c_str(), 0, qorstd::text::kCharsetProcess);
        TLOG_DEBUG(m_log, L"GetOcspResponse: URL(from certificate)=%ls", url.c_str());
        client.SetUrl(url.c_str());
    }
    OcspVector<OcspCertificate> issuers;
    issuers.Add(OcspCertificate(issuer.GetX509()));
    client.SetIssuerCertificates(issuers);
    OcspVector<OcspCertificate> trusted;
    ocspclient::AppendTrustedCertificates(*m_log, L"LoadCertificatesFromStore", m_trustStore,
                                          trusted);
    client.SetCACertificates(trusted);
    client.SetHttpClient(m_httpClient);
    client.SetHashAlgorithm(m_hashAlgorithm);
    client.SetVerifyResponse(1);

    auto response = std::make_unique<OcspResponse>();
    client.SendRequest(OcspCertificate(cert.GetX509()), *response, 1);
    m_lastResponse = std::move(response);
    return m_lastResponse.get();
}

OcspResponse* X509OcspClientOnline::GetOcspResponseAfterTime(const X509Certificate& cert,
                                                             const X509Certificate& issuer,
                                                             const std::int64_t& time) {
    TLOG_DEBUG(m_log, L"GetOcspResponseAfterTime(Time:%ls)", x509::FormatLogTime(time).c_str());
    OcspResponse* response = GetOcspResponse(cert, issuer);
    if (response->GetProducedAt() >= time) {
        return response;
    }
    TLOG_DEBUG(m_log, L"Cannot get OCSP response, ocspResponse.GetProducedAt() < Time");
    m_lastResponse.reset();
    return nullptr;
}

}  // namespace TesseraLib
