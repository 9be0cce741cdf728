// The CRL client interface, the cache, the stack and the two wrappers.
#include "CryptException.h"
#include "Failure.h"
#include "QorTextConv.h"
#include "X509Certificate.h"
#include "X509CrlClient.h"
#include "x509/CrlClientSupport.h"
#include "x509/X509Bytes.h"

template class TesseraLib::X509ClientStack<TesseraLib::X509CrlClient*>;

namespace TesseraLib {

namespace crlclients {

qorstd::QorStringW Describe(const X509Certificate& cert) {
    return cert.GetSubjectStringX500(0);
}

void RequireHandle(const LogChannel& log, const X509Certificate& cert, const wchar_t* operation) {
    if (cert.GetX509() != nullptr) {
        return;
    }
    TLOG_ERROR(log, L"%ls: Bad parameter - cert.GetX509() is null", operation);
    Fail(ErrInvalidParameter, L"cert.GetX509()=NULL");
}

}  // namespace crlclients

namespace {

X509CrlClient* RequireClient(X509CrlClient* client) {
    if (client == nullptr) {
        Fail(ErrInvalidParameter, L"_crlClient=NULL");
    }
    return client;
}

}  // namespace

X509CrlClient::~X509CrlClient() = default;

// ---------------------------------------------------------------- cache

X509CacheCrlClient::X509CacheCrlClient() : m_subordinateClient(nullptr) {}

X509CacheCrlClient::X509CacheCrlClient(const X509CacheCrlClient& other)
    : X509CrlClient(other),
      m_cache(other.m_cache),
      m_subordinateClient(other.m_subordinateClient) {}

X509CacheCrlClient& X509CacheCrlClient::operator=(const X509CacheCrlClient& other) {
    if (this != &other) {
        m_cache = other.m_cache;
        m_subordinateClient = other.m_subordinateClient;
    }
    return *this;
}

X509CacheCrlClient::~X509CacheCrlClient() = default;

X509Crl* X509CacheCrlClient::GetCrl(const X509Certificate& cert) {
    for (unsigned int i = 0; i < m_cache.GetSize(); ++i) {
        if (m_cache[i].GetIssuerName().Equals(cert.GetIssuerName()) == 1) {
            return &m_cache[i];
        }
    }
    if (m_subordinateClient == nullptr) {
        return nullptr;
    }
    X509Crl* crl = m_subordinateClient->GetCrl(cert);
    if (crl != nullptr) {
        m_cache.Add(*crl);
    }
    return crl;
}

X509Crl* X509CacheCrlClient::GetCrlAfterTime(const X509Certificate& cert, const std::int64_t& time,
                                             const X509Certificate* /*issuer*/) {
    X509Crl* crl = GetCrl(cert);
    if (crl == nullptr || crl->GetThisUpdate() < time) {
        return nullptr;
    }
    return crl;
}

// ---------------------------------------------------------------- stack

X509CrlClientStack::X509CrlClientStack()
    : m_log(std::make_unique<LogChannel>(L"X509CrlClientStack")) {}

X509CrlClientStack::X509CrlClientStack(const X509CrlClientStack& other)
    : X509CrlClient(other),
      X509ClientStack<X509CrlClient*>(other),
      m_log(std::make_unique<LogChannel>(L"X509CrlClientStack")) {}

X509CrlClientStack& X509CrlClientStack::operator=(const X509CrlClientStack& other) {
    if (this != &other) {
        X509ClientStack<X509CrlClient*>::operator=(other);
    }
    return *this;
}

X509CrlClientStack::~X509CrlClientStack() = default;

X509Crl* X509CrlClientStack::GetCrl(const X509Certificate& cert) {
    crlclients::RequireHandle(*m_log, cert, L"GetCrl");
    for (unsigned int i = 0; i < m_clients.GetSize(); ++i) {
        if (X509Crl* crl = m_clients[i]->GetCrl(cert)) {
            return crl;
        }
    }
    return nullptr;
}

X509Crl* X509CrlClientStack::GetCrlAfterTime(const X509Certificate& cert, const std::int64_t& time,
                                             const X509Certificate* issuer) {
    crlclients::RequireHandle(*m_log, cert, L"GetCrlAfterTime");
    for (unsigned int i = 0; i < m_clients.GetSize(); ++i) {
        if (X509Crl* crl = m_clients[i]->GetCrlAfterTime(cert, time, issuer)) {
            return crl;
        }
    }
    return nullptr;
}

// ---------------------------------------------------------------- time-limitless

X509CrlClientTimeLimitless::X509CrlClientTimeLimitless(X509CrlClient* crlClient)
    : _crlClient(crlClient), m_log(std::make_unique<LogChannel>(L"X509CrlClientTimeLimitless")) {}

X509CrlClientTimeLimitless::X509CrlClientTimeLimitless(const X509CrlClientTimeLimitless& other)
    : X509CrlClient(other),
      _crlClient(other._crlClient),
      m_log(std::make_unique<LogChannel>(L"X509CrlClientTimeLimitless")) {}

X509CrlClientTimeLimitless& X509CrlClientTimeLimitless::operator=(
    const X509CrlClientTimeLimitless& other) {
    _crlClient = other._crlClient;
    return *this;
}

X509CrlClientTimeLimitless::~X509CrlClientTimeLimitless() = default;

X509Crl* X509CrlClientTimeLimitless::GetCrl(const X509Certificate& cert) {
    return RequireClient(_crlClient)->GetCrl(cert);
}

X509Crl* X509CrlClientTimeLimitless::GetCrlAfterTime(const X509Certificate& cert,
                                                     const std::int64_t& /*time*/,
                                                     const X509Certificate* /*issuer*/) {
    // The newest CRL at hand is better than none when no fresh one exists.
    return RequireClient(_crlClient)->GetCrl(cert);
}

// ---------------------------------------------------------------- validator

X509CrlClientValidator::X509CrlClientValidator(X509CrlClient* crlClient)
    : _crlClient(crlClient), m_log(std::make_unique<LogChannel>(L"X509CrlClientValidator")) {}

X509CrlClientValidator::X509CrlClientValidator(const X509CrlClientValidator& other)
    : X509CrlClient(other),
      _crlClient(other._crlClient),
      m_log(std::make_unique<LogChannel>(L"X509CrlClientValidator")) {}

X509CrlClientValidator& X509CrlClientValidator::operator=(const X509CrlClientValidator& other) {
    _crlClient = other._crlClient;
    return *this;
}

X509CrlClientValidator::~X509CrlClientValidator() = default;

X509Crl* X509CrlClientValidator::GetCrl(const X509Certificate& cert) {
    return Check(cert, RequireClient(_crlClient)->GetCrl(cert));
}

X509Crl* X509CrlClientValidator::GetCrlAfterTime(const X509Certificate& cert,
                                                 const std::int64_t& time,
                                                 const X509Certificate* issuer) {
    return Check(cert, RequireClient(_crlClient)->GetCrlAfterTime(cert, time, issuer));
}

X509Crl* X509CrlClientValidator::Check(const X509Certificate& cert, X509Crl* crl) const {
    if (crl == nullptr) {
        return nullptr;
    }
    const std::int64_t thisUpdate = crl->GetThisUpdate();
    if (thisUpdate >= cert.GetNotBefore() && thisUpdate <= cert.GetNotAfter()) {
        return crl;
    }
    TLOG_DEBUG(m_log,
               L"CRL is not time valid, Cert(NotBefore:%ls, NotAfter:%ls) <- "
               L"CRL(ThisUpdate:%ls)",
               x509::FormatLogTime(cert.GetNotBefore()).c_str(),
               x509::FormatLogTime(cert.GetNotAfter()).c_str(),
               x509::FormatLogTime(thisUpdate).c_str());
    return nullptr;
}

}  // namespace TesseraLib
