// The CRL-service client and its per-issuer parameters.
#include "CryptException.h"
#include "CryptUtils.h"
#include "QorGetOneCrl.h"
#include "X509Certificate.h"
#include "X509CrlClient.h"
#include "x509/CrlClientSupport.h"
#include "x509/X509Bytes.h"

namespace qorstd {
template class QorVector<TesseraLib::X509GetOneCrlParameters>;
template class QorVectorIterator<TesseraLib::X509GetOneCrlParameters>;
}  // namespace qorstd

namespace TesseraLib {

namespace {

const wchar_t kChannel[] = L"X509GetOneCrlClient";

}  // namespace

X509GetOneCrlParameters::X509GetOneCrlParameters() : m_crlClient(nullptr) {}

X509GetOneCrlParameters::~X509GetOneCrlParameters() = default;

void X509GetOneCrlParameters::Reset() {
    m_issuer.clear();
    m_crlClient = nullptr;
}

X509GetOneCrlClient::X509GetOneCrlClient() : m_log(std::make_unique<LogChannel>(kChannel)) {}

X509GetOneCrlClient::X509GetOneCrlClient(const X509GetOneCrlClient& other)
    : X509CrlClient(other),
      m_log(std::make_unique<LogChannel>(kChannel)),
      m_crlParameters(other.m_crlParameters) {}

X509GetOneCrlClient& X509GetOneCrlClient::operator=(const X509GetOneCrlClient& other) {
    if (this != &other) {
        m_crlParameters = other.m_crlParameters;
    }
    return *this;
}

X509GetOneCrlClient::~X509GetOneCrlClient() = default;

X509Crl* X509GetOneCrlClient::GetCrl(const X509Certificate& /*cert*/) {
    TLOG_WARNING(m_log, L"GetCrl: Cannot get CRL, not implemented");
    return nullptr;
}

X509Crl* X509GetOneCrlClient::GetCrlAfterTime(const X509Certificate& cert, const std::int64_t& time,
                                              const X509Certificate* issuer) {
    try {
        TLOG_DEBUG(m_log, L"GetCrlAfterTime(Cert:%ls, Time:%ls, IssuerCert:%ls)",
                   crlclients::Describe(cert).c_str(), x509::FormatLogTime(time).c_str(),
                   issuer != nullptr ? crlclients::Describe(*issuer).c_str() : L"NULL");
        if (issuer == nullptr) {
            TLOG_WARNING(m_log, L"GetCrlAfterTime: issuerCert is null");
            return nullptr;
        }
        const qorstd::QorString key = issuer->GetSHA1HashHex();
        TLOG_DEBUG(m_log, L"IssuerSHA1=%s", key.c_str());
        QorGetOneCrlLib::CrlClient* service = nullptr;
        for (unsigned int i = 0; i < m_crlParameters.GetSize() && service == nullptr; ++i) {
            X509GetOneCrlParameters& entry = m_crlParameters[i];
            if (entry.GetCrlClient() != nullptr && !key.empty() &&
                entry.GetIssuer().icompare(key.c_str()) == 0) {
                service = entry.GetCrlClient();
            }
        }
        if (service == nullptr) {
            TLOG_WARNING(m_log, L"GetCrlAfterTime: GetOneCrl parameters not set. IssuerCert:%ls",
                         crlclients::Describe(*issuer).c_str());
            return nullptr;
        }

        m_lastCrl.reset();
        if (time != 0) {
            service->SetRequestTime(time);
        }
        qorstd::QorString issuerBase64;
        CryptUtils::Base64Encode(issuer->GetSubject(), issuerBase64, CryptUtils::cptLineBreakNone);
        service->SetIssuer(issuerBase64);
        TLOG_DEBUG(m_log, L"IssuerDNBase64=%s", issuerBase64.c_str());

        QorGetOneCrlLib::CrlResponse response;
        service->SendRequest(response);
        if (response.GetErrorCode() != 0) {
            TLOG_WARNING(m_log, L"GetCrlAfterTime: Bad CRL response (Error code=%d, Message=%ls)",
                         response.GetErrorCode(), response.GetErrorMessage().c_str());
        }
        if (const QorGetOneCrlLib::Crl* crl = response.GetCrl()) {
            const qorstd::QorArray<unsigned char> der = crl->Export();
            auto imported = std::make_unique<X509Crl>();
            imported->Import(der.GetData(), static_cast<long>(der.GetSize()));
            m_lastCrl = std::move(imported);
            return m_lastCrl.get();
        }
        return nullptr;
    } catch (const QorGetOneCrlLib::CrlException& e) {
        TLOG_ERROR(m_log,
                   L"GetCrlAfterTime: QORGETONECRL_NAMESPACE::CrlException caught "
                   L"(Error code=%d, Message=%ls, Description=%ls)",
                   e.GetErrorCode(), e.GetErrorMessage().c_str(), e.GetErrorDescription().c_str());
    } catch (const CryptException& e) {
        TLOG_ERROR(m_log,
                   L"GetCrlAfterTime: CryptException caught (Error code=%d, "
                   L"Message=%ls, Description=%ls)",
                   e.GetErrorCode(), e.GetErrorMessage().c_str(), e.GetErrorDescription().c_str());
    } catch (const qorstd::QorException& e) {
        TLOG_ERROR(m_log,
                   L"GetCrlAfterTime: QorException caught (ClassName=%s, Error "
                   L"code=%d, Message=%ls, Description=%ls)",
                   e.GetClassNameW().c_str(), e.GetErrorCode(), e.GetErrorMessage().c_str(),
                   e.GetErrorDescription().c_str());
    }
    return nullptr;
}

}  // namespace TesseraLib
