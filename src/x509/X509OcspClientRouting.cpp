// The OCSP clients that forward requests: the map by issuer and the stack.
#include <strings.h>

#include "QorTextConv.h"
#include "X509OcspClient.h"
#include "X509OcspClientChecks.h"

using QorOcsp2Lib::OcspResponse;

namespace TesseraLib {

template class X509ClientStack<X509OcspClient*>;

// ---- X509OcspClientMap --------------------------------------------------

namespace {

const wchar_t kMapChannel[] = L"X509OcspClientMap";
const wchar_t kStackChannel[] = L"X509OcspClientStack";

}  // namespace

// Issuer keys are hexadecimal digests, written in either case by whoever
// configures the map.
bool X509OcspClientMap::KeyLess::operator()(const qorstd::QorString& left,
                                            const qorstd::QorString& right) const {
    return strcasecmp(left.c_str(), right.c_str()) < 0;
}

X509OcspClientMap::X509OcspClientMap()
    : m_defaultClient(nullptr),
      m_method(idByIssuerNameHash),
      m_log(std::make_unique<LogChannel>(kMapChannel)) {}

X509OcspClientMap::X509OcspClientMap(const X509OcspClientMap& other)
    : X509OcspClient(other),
      m_clients(other.m_clients),
      m_defaultClient(other.m_defaultClient),
      m_method(other.m_method),
      m_log(std::make_unique<LogChannel>(kMapChannel)) {}

X509OcspClientMap& X509OcspClientMap::operator=(const X509OcspClientMap& other) {
    if (this != &other) {
        X509OcspClient::operator=(other);
        m_clients = other.m_clients;
        m_defaultClient = other.m_defaultClient;
        m_method = other.m_method;
    }
    return *this;
}

X509OcspClientMap::~X509OcspClientMap() = default;

void X509OcspClientMap::SetIssuerIdentificationMethod(cptIdentificationMethod method) {
    m_method = method;
}

void X509OcspClientMap::AddOcspClientForIssuer(const qorstd::QorString& issuerKey,
                                               X509OcspClient* client) {
    m_clients[issuerKey] = client;
}

X509OcspClient* X509OcspClientMap::Route(const X509Certificate& issuer) const {
    const qorstd::QorString key = m_method == idByIssuerNameHash
                                      ? issuer.GetSubjectName().GetSHA1HashHex()
                                      : issuer.GetSHA1HashHex();
    const auto found = m_clients.find(key);
    if (found != m_clients.end() && found->second != nullptr) {
        TLOG_DEBUG(m_log, L"OCSP client for issuer %ls was found",
                   qorstd::text::NarrowToWide(key.c_str(), 0, qorstd::text::kCharsetAscii).c_str());
        return found->second;
    }
    if (m_defaultClient != nullptr) {
        TLOG_DEBUG(m_log, L"Use the default OCSP client");
        return m_defaultClient;
    }
    TLOG_WARNING(m_log, L"OCSP client not found");
    return nullptr;
}

OcspResponse* X509OcspClientMap::GetOcspResponse(const X509Certificate& cert,
                                                 const X509Certificate& issuer) {
    ocspclient::CheckHandles(*m_log, L"GetOcspResponse", cert, issuer);
    X509OcspClient* client = Route(issuer);
    return client != nullptr ? client->GetOcspResponse(cert, issuer) : nullptr;
}

OcspResponse* X509OcspClientMap::GetOcspResponseAfterTime(const X509Certificate& cert,
                                                          const X509Certificate& issuer,
                                                          const std::int64_t& time) {
    ocspclient::CheckHandles(*m_log, L"GetOcspResponseAfterTime", cert, issuer);
    X509OcspClient* client = Route(issuer);
    return client != nullptr ? client->GetOcspResponseAfterTime(cert, issuer, time) : nullptr;
}

void X509OcspClientMap::SetTrustStore(X509Store* store) {
    for (const auto& entry : m_clients) {
        if (entry.second != nullptr) {
            entry.second->SetTrustStore(store);
        }
    }
    if (m_defaultClient != nullptr) {
        m_defaultClient->SetTrustStore(store);
    }
}

// ---- X509OcspClientStack ------------------------------------------------

X509OcspClientStack::X509OcspClientStack() : m_log(std::make_unique<LogChannel>(kStackChannel)) {}

X509OcspClientStack::X509OcspClientStack(const X509OcspClientStack& other)
    : X509OcspClient(other),
      X509ClientStack<X509OcspClient*>(other),
      m_log(std::make_unique<LogChannel>(kStackChannel)) {}

X509OcspClientStack& X509OcspClientStack::operator=(const X509OcspClientStack& other) {
    if (this != &other) {
        X509OcspClient::operator=(other);
        X509ClientStack<X509OcspClient*>::operator=(other);
    }
    return *this;
}

X509OcspClientStack::~X509OcspClientStack() = default;

OcspResponse* X509OcspClientStack::GetOcspResponse(const X509Certificate& cert,
                                                   const X509Certificate& issuer) {
    ocspclient::CheckHandles(*m_log, L"GetOcspResponse", cert, issuer);
    for (unsigned int i = 0; i < m_clients.GetSize(); ++i) {
        if (m_clients[i] == nullptr) {
            continue;
        }
        if (OcspResponse* response = m_clients[i]->GetOcspResponse(cert, issuer)) {
            return response;
        }
    }
    return nullptr;
}

OcspResponse* X509OcspClientStack::GetOcspResponseAfterTime(const X509Certificate& cert,
                                                            const X509Certificate& issuer,
                                                            const std::int64_t& time) {
    ocspclient::CheckHandles(*m_log, L"GetOcspResponseAfterTime", cert, issuer);
    for (unsigned int i = 0; i < m_clients.GetSize(); ++i) {
        if (m_clients[i] == nullptr) {
            continue;
        }
        if (OcspResponse* response = m_clients[i]->GetOcspResponseAfterTime(cert, issuer, time)) {
            return response;
        }
    }
    return nullptr;
}

void X509OcspClientStack::SetTrustStore(X509Store* store) {
    m_trustStore = store;
    for (unsigned int i = 0; i < m_clients.GetSize(); ++i) {
        if (m_clients[i] != nullptr) {
            m_clients[i]->SetTrustStore(store);
        }
    }
}

}  // namespace TesseraLib
