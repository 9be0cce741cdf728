// The revocation search before a path is verified and the verdicts after it.
#include <map>
#include <memory>

#include <openssl/err.h>

#include "CryptException.h"
#include "CryptUtils.h"
#include "LogChannel.h"
#include "OcspException.h"
#include "OcspResponse.h"
#include "QorAsn1Time.h"
#include "QorDer.h"
#include "QorTextConv.h"
#include "X509Certificate.h"
#include "X509Crl.h"
#include "X509CrlClient.h"
#include "X509OcspClient.h"
#include "X509Store.h"
#include "x509/X509Bytes.h"
#include "x509/X509ChainContext.h"
#include "x509/X509OcspClientChecks.h"

using QorOcsp2Lib::OcspCertificate;
using QorOcsp2Lib::OcspException;
using QorOcsp2Lib::OcspResponse;
using QorOcsp2Lib::OcspSingleResponse;
using QorOcsp2Lib::OcspVector;

namespace TesseraLib {

namespace {

qorstd::QorStringW Subject(const X509Certificate& cert) {
    return cert.GetSubjectName().GetStringX500();
}

// The verdicts speak of "no nextUpdate" as 0; X509Crl marks it with
// kNoNextUpdate so that plain comparisons elsewhere treat such a CRL as
// never outdated.
std::int64_t VerdictNextUpdate(const X509Crl& crl) {
    return crl.GetNextUpdate() == X509Crl::kNoNextUpdate ? 0 : crl.GetNextUpdate();
}

const wchar_t* OrPlaceholder(const qorstd::QorStringW& text, const wchar_t* placeholder) {
    return text.empty() ? placeholder : text.c_str();
}

// Lends a trust store to an OCSP client that has none, for one request, and
// takes it back however the request ends.
class TrustStoreLoan {
public:
    TrustStoreLoan(X509OcspClient* client, X509Store* store)
        : m_client(client->GetTrustStore() == nullptr ? client : nullptr) {
        if (m_client != nullptr) {
            m_client->SetTrustStore(store);
        }
    }
    ~TrustStoreLoan() {
        if (m_client != nullptr) {
            m_client->SetTrustStore(nullptr);
        }
    }
    TrustStoreLoan(const TrustStoreLoan&) = delete;
    TrustStoreLoan& operator=(const TrustStoreLoan&) = delete;

private:
    X509OcspClient* m_client;
};

// The chain's policy; the protected steps may be called before one is set.
const X509ChainPolicy& RequirePolicy(const X509ChainPolicy* policy) {
    if (policy == nullptr) {
        CryptException::Throw(ErrInvalidParameter, L"m_policy=NULL");
    }
    return *policy;
}

void LogError(const LogChannel& log, const wchar_t* text) {
    if (log.IsErrorEnabled()) {
        log.Write(LogLevel::Error, text);
    }
}

// Runs a search of the extra store. A store that cannot be searched is no
// reason to give up: the failure is logged and the search finds nothing.
template <class Search>
void SearchExtraStore(const LogChannel& log, const wchar_t* failure, Search search) {
    try {
        search();
    } catch (const qorstd::QorException&) {
        LogError(log, failure);
    } catch (const OcspException&) {
        LogError(log, failure);
    } catch (const std::exception&) {
        LogError(log, failure);
    }
}

// Appends a reference to the CRL to the build's CRL list, from
// which OpenSSL's own CRL check draws.
void CollectCrl(const LogChannel& log, X509Chain::BuildContext* context, const X509Crl& crl) {
    if (!context || !context->pCrls) {
        LogError(log, L"FindRevocationElements: m_pBuildCtx->pCrls is NULL");
        CryptException::Throw(ErrInternal, L"m_pBuildCtx->pCrls=NULL");
    }
    // A reference of the list's own (the CRL is never changed).
    X509_CRL* handle = crl.GetX509Crl();
    X509CrlPtr copy(X509_CRL_up_ref(handle) == 1 ? handle : nullptr);
    if (!copy) {
        LogError(log, L"FindRevocationElements: X509_CRL_dup() failed.");
        CryptException::Throw(ErrInternal, L"pCrl=NULL");
    }
    if (sk_X509_CRL_push(context->pCrls.get(), copy.get()) <= 0) {
        LogError(log, L"FindRevocationElements: sk_X509_CRL_push() failed.");
        CryptException::Throw(ErrInternal, L"sk_X509_CRL_push()");
    }
    copy.release();
    if (log.IsDebugEnabled()) {
        log.WriteFormat(LogLevel::Debug,
                        L"FindRevocationElements: Suitable CRL was found - Number:%ls "
                        L"ThisUpdate:%ls NextUpdate:%ls Issuer:%ls.",
                        x509::Widen(crl.GetCRLNumberDec()).c_str(),
                        x509::FormatLogTime(crl.GetThisUpdate()).c_str(),
                        x509::FormatLogTime(VerdictNextUpdate(crl)).c_str(),
                        crl.GetIssuerStringX500().c_str());
    }
}

// The OCSP client's response (still owned by the client), or null when it
// has none or fails: its failures are logged and absorbed.
const OcspResponse* AskOcspClient(const LogChannel& log, X509OcspClient* client,
                                  X509Store* trustStore, const X509Certificate& cert,
                                  const X509Certificate& issuer, bool afterTime,
                                  std::int64_t verifyTime) {
    if (log.IsDebugEnabled()) {
        log.Write(LogLevel::Debug,
                  L"FindRevocationElements: Try to find OCSP response by client ...");
    }
    const TrustStoreLoan loan(client, trustStore);
    try {
        if (!afterTime) {
            return client->GetOcspResponse(cert, issuer);
        }
        // No caution period for OCSP: a response produced after the
        // verification time will do.
        if (log.IsDebugEnabled()) {
            log.WriteFormat(LogLevel::Debug, L"FindRevocationElements: after time %ls",
                            x509::FormatLogTime(verifyTime).c_str());
        }
        return client->GetOcspResponseAfterTime(cert, issuer, verifyTime);
    } catch (const OcspException& e) {
        if (log.IsErrorEnabled()) {
            log.WriteFormat(LogLevel::Error,
                            L"FindRevocationElements: Error while obtaining OCSP response "
                            L"(OcspException caught: ErrorNumber = %d, Description = %ls, "
                            L"Message = %ls).",
                            e.GetErrorCode(),
                            OrPlaceholder(e.GetErrorDescription(), L"<no description>"),
                            OrPlaceholder(e.GetErrorMessage(), L"<no message>"));
        }
    } catch (const CryptException& e) {
        if (log.IsErrorEnabled()) {
            const qorstd::QorStringW description = e.GetErrorDescription();
            log.WriteFormat(LogLevel::Error,
                            L"FindRevocationElements: Error while obtaining OCSP response "
                            L"(CryptException caught: ErrorNumber = %d, Description = %ls, "
                            L"Message = %ls).",
                            e.GetErrorCode(), OrPlaceholder(description, L"<no description>"),
                            OrPlaceholder(e.GetErrorMessage(), L"<no message>"));
        }
    }
    return nullptr;
}

void RequireOcsp(const LogChannel& log, const OcspResponse* ocsp, const X509Certificate& cert,
                 const wchar_t* message) {
    if (ocsp != nullptr) {
        return;
    }
    if (log.IsWarningEnabled()) {
        log.WriteFormat(LogLevel::Warning,
                        L"FindRevocationElements: Unable to obtain OCSP. Certificate: %ls",
                        Subject(cert).c_str());
    }
    CryptException::Throw(ErrRevocationUnknown, message);
}

// The log texts that tell the two verdicts apart in the freshness rule.
struct FreshnessTexts {
    const wchar_t* operation;  // "VerifyCertCrl"
    const wchar_t* notValid;   // "CRL is not time valid"
    const wchar_t* source;     // "CRL" in "CRL(ThisUpdate:...)"
    const wchar_t* awaited;    // "CRL" in "waiting for a new CRL"
};
const FreshnessTexts kCrlTexts = {L"VerifyCertCrl", L"CRL is not time valid", L"CRL", L"CRL"};
const FreshnessTexts kOcspTexts = {L"VerifyCertOcspResponse", L"OCSP response is not time valid",
                                   L"OCSP", L"OCSP response"};

// Whether data that does not list the certificate as revoked is recent
// enough for the verification time plus the caution period. nextUpdate 0
// means the data announces no newer issue. Data that is too old gives
// ErrCautionPeriod while newer data can still appear (its nextUpdate, or
// the check time, lies in the future), ErrRevocationUnknown otherwise.
void CheckFreshness(const LogChannel& log, const FreshnessTexts& texts, bool byThisUpdate,
                    std::int64_t thisUpdate, std::int64_t nextUpdate, std::int64_t verifyTime,
                    const CautionPeriod& caution) {
    if (!byThisUpdate && nextUpdate == 0) {
        return;
    }
    std::int64_t checkTime = verifyTime;
    if (!caution.IsZero()) {
        if (log.IsDebugEnabled()) {
            log.WriteFormat(LogLevel::Debug,
                            L"%ls: CautionPeriod=Days:%d Hours:%d Minutes:%d Seconds:%d",
                            texts.operation, static_cast<int>(caution.m_days),
                            static_cast<int>(caution.m_hours), static_cast<int>(caution.m_minutes),
                            static_cast<int>(caution.m_seconds));
        }
        checkTime += caution.ToTimestamp();
    }
    if (log.IsDebugEnabled()) {
        log.WriteFormat(LogLevel::Debug, L"%ls: CheckRevocationThisUpdate=%ls, CheckTime=%ls",
                        texts.operation, chain::Bool(byThisUpdate ? 1 : 0),
                        x509::FormatLogTime(checkTime).c_str());
    }
    const std::int64_t limit = byThisUpdate ? thisUpdate : nextUpdate;
    if (checkTime <= limit) {
        return;
    }
    if (log.IsDebugEnabled()) {
        log.WriteFormat(LogLevel::Debug, L"%ls, CheckTime:%ls > %ls(%ls:%ls)", texts.notValid,
                        x509::FormatLogTime(checkTime).c_str(), texts.source,
                        byThisUpdate ? L"ThisUpdate" : L"NextUpdate",
                        x509::FormatLogTime(limit).c_str());
    }
    if (log.IsErrorEnabled()) {
        log.WriteFormat(LogLevel::Error, L"%ls: Incomplete verification (waiting for a new %ls).",
                        texts.operation, texts.awaited);
    }
    const std::int64_t newerDataDue = nextUpdate != 0 ? nextUpdate : checkTime;
    if (newerDataDue > CryptUtils::GetCurrentTimeUTC()) {
        CryptException::Throw(ErrCautionPeriod, L"");
    }
    CryptException::Throw(ErrRevocationUnknown, L"");
}

}  // namespace

void X509Chain::FindRevocationElementsCheckParams(const X509Certificate* cert,
                                                  const X509CrlClient* crlClient,
                                                  const X509OcspClient* ocspClient) const {
    const X509ChainPolicy& policy = RequirePolicy(m_policy);
    const X509ChainPolicy::cptRevocationMode mode = policy.GetRevocationMode();
    const X509ChainPolicy::cptChainBuildMode buildMode = policy.GetChainBuildMode();
    const bool useClients = (buildMode & X509ChainPolicy::cptChainBuildClients) != 0;
    if (X509ChainPolicy::IsRevCRLMode(mode) && useClients) {
        if (!m_pBuildCtx || !m_pBuildCtx->pCrls) {
            if (m_log->IsErrorEnabled()) {
                m_log->Write(LogLevel::Error,
                             L"FindRevocationElementsCheckParams: m_pBuildCtx->pCrls is NULL");
            }
            CryptException::Throw(ErrInvalidParameter, L"m_pBuildCtx->pCrls=NULL");
        }
        if (crlClient == nullptr) {
            if (m_log->IsErrorEnabled()) {
                m_log->Write(LogLevel::Error,
                             L"FindRevocationElementsCheckParams: CRL client not set.");
            }
            CryptException::Throw(ErrInvalidParameter, L"pCrlClient=NULL");
        }
    } else if (mode == X509ChainPolicy::revOcsp && useClients && ocspClient == nullptr) {
        if (m_log->IsErrorEnabled()) {
            m_log->Write(LogLevel::Error,
                         L"FindRevocationElementsCheckParams: OCSP client not set.");
        }
        CryptException::Throw(ErrInvalidParameter, L"pOcspClient=NULL");
    }
    if (cert == nullptr || cert->GetX509() == nullptr) {
        if (m_log->IsErrorEnabled()) {
            m_log->Write(LogLevel::Error,
                         L"FindRevocationElementsCheckParams: pCert->GetX509() is NULL");
        }
        CryptException::Throw(ErrInvalidParameter, L"pCert->GetX509()=NULL");
    }
    if (X509ChainPolicy::UseValidationDataStore(buildMode) &&
        (!m_pBuildCtx || !m_pBuildCtx->pTrustStore)) {
        if (m_log->IsErrorEnabled()) {
            m_log->Write(LogLevel::Error,
                         L"FindRevocationElementsCheckParams: Trusted store not set.");
        }
        CryptException::Throw(ErrInvalidParameter, L"m_pBuildCtx->pTrustStore=NULL");
    }
}

void X509Chain::FindRevocationElements(const X509Certificate* cert) {
    if (m_log->IsDebugEnabled()) {
        m_log->Write(LogLevel::Debug, L"FindRevocationElements");
    }
    const X509ChainPolicy& policy = RequirePolicy(m_policy);
    const X509ChainPolicy::cptRevocationOption option = policy.GetRevocationOption();
    if (option == X509ChainPolicy::revOptionNone) {
        return;
    }
    if (m_log->IsDebugEnabled()) {
        m_log->WriteFormat(LogLevel::Debug,
                           L"FindRevocationElements: PreferCrl=%ls, CheckRevocationThisUpdate=%ls, "
                           L"ForceGetCrlAfterTimeUsage=%ls",
                           chain::Bool(policy.GetPreferCrl()),
                           chain::Bool(policy.GetCheckRevocationThisUpdate()),
                           chain::Bool(policy.GetForceGetCrlAfterTimeUsage()));
    }
    X509CrlClient* const crlClient = policy.GetCrlClient();
    X509OcspClient* const ocspClient = policy.GetOcspClient();
    FindRevocationElementsCheckParams(cert, crlClient, ocspClient);

    const X509StackPtr path(BuildPath(cert));
    const int length = sk_X509_num(path.get());
    const unsigned int first = m_elements.GetSize();
    for (int i = 0; i < length; ++i) {
        AddChainElement(sk_X509_value(path.get(), i), nullptr, nullptr);
    }

    const X509ChainPolicy::cptRevocationMode mode = policy.GetRevocationMode();
    const X509ChainPolicy::cptChainBuildMode buildMode = policy.GetChainBuildMode();
    const bool useClients = (buildMode & X509ChainPolicy::cptChainBuildClients) != 0;
    X509Store* const extraStore =
        X509ChainPolicy::UseValidationDataStore(buildMode) ? policy.GetExtraStore() : nullptr;
    const std::int64_t now = CryptUtils::GetCurrentTimeUTC();

    for (int i = 0; i < length; ++i) {
        const X509* x509 = sk_X509_value(path.get(), i);
        if (!chain::NeedsRevocationCheck(option, i, x509)) {
            continue;
        }
        X509ChainElement& element = m_elements.GetAt(first + static_cast<unsigned int>(i));
        const X509Certificate& current = *element.GetCertificate();
        if (m_log->IsDebugEnabled()) {
            m_log->WriteFormat(LogLevel::Debug, L"FindRevocationElements: [%i] Certificate: %ls.",
                               i, Subject(current).c_str());
        }
        const X509Certificate* issuer = nullptr;
        if (i + 1 < length) {
            issuer = m_elements.GetAt(first + static_cast<unsigned int>(i) + 1).GetCertificate();
        } else if (x509::IsIssuedBy(x509, x509)) {
            issuer = &current;
        } else {
            if (m_log->IsErrorEnabled()) {
                m_log->Write(LogLevel::Error, L"FindRevocationElements: pIssuer is NULL.");
            }
            CryptException::Throw(ErrInternal, L"pIssuer=NULL");
        }
        if (m_log->IsDebugEnabled()) {
            m_log->WriteFormat(LogLevel::Debug,
                               L"FindRevocationElements: [%i] Certificate issuer: %ls.", i,
                               Subject(*issuer).c_str());
        }

        // Data of an expired certificate, or data the policy wants issued
        // after the check time, must be asked for "after time".
        const bool afterTime = policy.GetCheckRevocationThisUpdate() != 0 ||
                               policy.GetForceGetCrlAfterTimeUsage() != 0 ||
                               current.GetNotAfter() < now;
        std::unique_ptr<X509Crl> foundCrl;  // from the extra store
        const X509Crl* crl = nullptr;       // found or the client's
        bool tryOcsp = false;

        if (X509ChainPolicy::IsRevCRLMode(mode)) {
            std::int64_t checkTime = m_verifyTime;
            const CautionPeriod caution = policy.GetCautionPeriod(current.GetSHA1HashHex());
            if (!caution.IsZero()) {
                if (m_log->IsDebugEnabled()) {
                    m_log->WriteFormat(
                        LogLevel::Debug,
                        L"FindRevocationElements: Applying caution period Days:%d "
                        L"Hours:%d Minutes:%d Seconds:%d",
                        static_cast<int>(caution.m_days), static_cast<int>(caution.m_hours),
                        static_cast<int>(caution.m_minutes), static_cast<int>(caution.m_seconds));
                }
                checkTime += caution.ToTimestamp();
            }
            if (extraStore != nullptr) {
                if (m_log->IsDebugEnabled()) {
                    m_log->Write(LogLevel::Debug,
                                 L"FindRevocationElements: Try to find CRL in extra store ...");
                }
                SearchExtraStore(
                    *m_log, L"FindRevocationElements: Error while finding CRL in extra store.",
                    [&] { foundCrl.reset(FindCrl(current, *issuer, checkTime, extraStore)); });
                crl = foundCrl.get();
            }
            if (useClients && crl == nullptr && crlClient != nullptr) {
                if (m_log->IsDebugEnabled()) {
                    m_log->Write(LogLevel::Debug,
                                 L"FindRevocationElements: Try to find CRL by client ...");
                }
                if (afterTime) {
                    if (m_log->IsDebugEnabled()) {
                        m_log->WriteFormat(LogLevel::Debug,
                                           L"FindRevocationElements: after time %ls",
                                           x509::FormatLogTime(checkTime).c_str());
                    }
                    crl = crlClient->GetCrlAfterTime(current, checkTime, issuer);
                    if (crl == nullptr && mode == X509ChainPolicy::revOcspOrCrl) {
                        crl = crlClient->GetCrl(current);
                        tryOcsp = true;
                    }
                } else {
                    crl = crlClient->GetCrl(current);
                    if (mode == X509ChainPolicy::revOcspOrCrl) {
                        // A CRL alone settles the certificate only when preferred and
                        // not outdated at the check time.
                        tryOcsp = !(crl != nullptr && policy.GetPreferCrl() != 0 &&
                                    crl->GetNextUpdate() > checkTime);
                    }
                }
            }
            if (crl != nullptr && crl->GetX509Crl() == nullptr) {
                crl = nullptr;
            }
            if (crl != nullptr) {
                CollectCrl(*m_log, m_pBuildCtx.get(), *crl);
            } else if (mode == X509ChainPolicy::revCrl) {
                if (m_log->IsWarningEnabled()) {
                    m_log->WriteFormat(LogLevel::Warning,
                                       L"FindRevocationElements: Unable to obtain CRL. "
                                       L"Certificate: %ls. Issuer: %ls. Time: %ls",
                                       Subject(current).c_str(), Subject(*issuer).c_str(),
                                       x509::FormatLogTime(checkTime).c_str());
                }
                CryptException::Throw(ErrRevocationUnknown,
                                      L"GetCrl()=NULL or GetCrl()->GetX509Crl()=NULL");
            } else if (m_log->IsDebugEnabled()) {
                m_log->WriteFormat(LogLevel::Debug,
                                   L"FindRevocationElements: Suitable CRL was not found. "
                                   L"Certificate: %ls.",
                                   Subject(current).c_str());
            }
        }

        const bool lookForOcsp = mode == X509ChainPolicy::revOcsp ||
                                 (mode == X509ChainPolicy::revOcspOrCrl &&
                                  !(crl != nullptr && policy.GetPreferCrl() != 0 && !tryOcsp));
        std::unique_ptr<OcspResponse> foundOcsp;  // from the extra store
        const OcspResponse* ocsp = nullptr;       // found or the client's
        if (lookForOcsp) {
            if (extraStore != nullptr) {
                if (m_log->IsDebugEnabled()) {
                    m_log->Write(LogLevel::Debug,
                                 L"FindRevocationElements: Try to find OCSP response in extra "
                                 L"store ...");
                }
                SearchExtraStore(
                    *m_log,
                    L"FindRevocationElements: Error while finding OCSP response in extra store.",
                    [&] { foundOcsp.reset(FindOcspResponse(current, *issuer, extraStore)); });
                ocsp = foundOcsp.get();
            }
            if (useClients && ocsp == nullptr && ocspClient != nullptr) {
                ocsp = AskOcspClient(*m_log, ocspClient, policy.GetTrustStore(), current, *issuer,
                                     afterTime, m_verifyTime);
            }
            if (ocsp != nullptr && m_log->IsDebugEnabled()) {
                m_log->WriteFormat(LogLevel::Debug,
                                   L"FindRevocationElements: Suitable OCSP response was found - "
                                   L"ProducedAt:%ls Status:%ls ResponderName:%ls",
                                   x509::FormatLogTime(ocsp->GetProducedAt()).c_str(),
                                   x509::Widen(ocsp->GetStatusString()).c_str(),
                                   ocsp->GetResponderName().c_str());
            }
        }

        bool useOcsp = false;
        if (mode == X509ChainPolicy::revOcsp) {
            RequireOcsp(*m_log, ocsp, current, L"RevocationMode == revOcsp && pCurrOcsp == NULL");
            useOcsp = true;
        } else if (mode == X509ChainPolicy::revOcspOrCrl && crl == nullptr) {
            RequireOcsp(*m_log, ocsp, current,
                        L"RevocationMode == revOcspOrCrl && pCurrOcsp == NULL");
            useOcsp = true;
        } else if (mode == X509ChainPolicy::revOcspOrCrl && ocsp != nullptr) {
            useOcsp = ocsp->GetProducedAt() < crl->GetThisUpdate() || tryOcsp;
        }
        if (useOcsp) {
            element.SetOcspResponse(*ocsp);
            if (m_log->IsDebugEnabled()) {
                m_log->WriteFormat(LogLevel::Debug,
                                   L"FindRevocationElements: For certificate %ls will be used "
                                   L"OCSP for revocation.",
                                   Subject(current).c_str());
            }
            continue;
        }
        if (crl == nullptr) {
            if (m_log->IsWarningEnabled()) {
                m_log->WriteFormat(
                    LogLevel::Warning,
                    L"FindRevocationElements: Unable to obtain CRL. Certificate: %ls",
                    Subject(current).c_str());
            }
            CryptException::Throw(ErrRevocationUnknown, L"pCurrCrl == NULL");
        }
        element.SetCrl(*crl);
        if (m_log->IsDebugEnabled()) {
            m_log->WriteFormat(LogLevel::Debug,
                               L"FindRevocationElements: For certificate %ls will be used CRL "
                               L"for revocation.",
                               Subject(current).c_str());
        }
    }
}

X509Crl* X509Chain::FindCrl(const X509Certificate& cert, const X509Certificate& issuer,
                            const std::int64_t& checkTime, const X509Store* store) const {
    if (store == nullptr) {
        if (m_log->IsErrorEnabled()) {
            m_log->Write(LogLevel::Error, L"FindCrl: pStore is NULL");
        }
        CryptException::Throw(ErrInvalidParameter, L"pStore=NULL");
    }
    const qorstd::QorVector<X509Crl> crls = store->GetCrls();
    if (crls.GetSize() == 0) {
        if (m_log->IsWarningEnabled()) {
            m_log->Write(LogLevel::Warning, L"FindCrl: No CRLs in extra store.");
        }
        return nullptr;
    }
    if (issuer.GetX509() == nullptr) {
        if (m_log->IsErrorEnabled()) {
            m_log->Write(LogLevel::Error, L"FindCrl: pIssuer is NULL");
        }
        CryptException::Throw(ErrInvalidParameter, L"pIssuer=NULL");
    }
    const bool byThisUpdate = RequirePolicy(m_policy).GetCheckRevocationThisUpdate() != 0;
    const X509_NAME* issuerName = X509_get_subject_name(issuer.GetX509());
    for (unsigned int i = 0; i < crls.GetSize(); ++i) {
        const X509Crl& candidate = crls.GetAt(i);
        if (candidate.GetX509Crl() == nullptr) {
            if (m_log->IsErrorEnabled()) {
                m_log->Write(LogLevel::Error, L"FindCrl: crlNext.GetX509Crl() is NULL");
            }
            CryptException::Throw(ErrInternal, L"crlNext.GetX509Crl()=NULL");
        }
        const std::int64_t limit =
            byThisUpdate ? candidate.GetThisUpdate() : candidate.GetNextUpdate();
        const std::int64_t thisUpdate = candidate.GetThisUpdate();
        if (limit < checkTime ||
            X509_NAME_cmp(X509_CRL_get_issuer(candidate.GetX509Crl()), issuerName) != 0 ||
            thisUpdate <= cert.GetNotBefore() || thisUpdate >= cert.GetNotAfter()) {
            continue;
        }
        try {
            return new X509Crl(candidate);
        } catch (const CryptException&) {
            if (m_log->IsErrorEnabled()) {
                m_log->Write(LogLevel::Error, L"GetCrls: X509_CRL_dup() failed.");
            }
            CryptException::Throw(ErrInternal, L"pCrl=NULL");
        }
    }
    return nullptr;
}

OcspResponse* X509Chain::FindOcspResponse(const X509Certificate& cert,
                                          const X509Certificate& issuer,
                                          const X509Store* store) const {
    ocspclient::CheckHandles(*m_log, L"FindOcspResponse", cert, issuer);
    if (store == nullptr) {
        if (m_log->IsErrorEnabled()) {
            m_log->Write(LogLevel::Error, L"FindOcspResponse: Bad parameter - pStore is null");
        }
        CryptException::Throw(ErrInvalidParameter, L"pStore=NULL");
    }
    const OcspVector<OcspResponse> responses = store->GetOcspResponses();
    if (responses.GetSize() == 0) {
        if (m_log->IsWarningEnabled()) {
            m_log->Write(LogLevel::Warning, L"FindOcspResponse: No OCSP response in extra store.");
        }
        return nullptr;
    }
    // The identifier of (cert, issuer) under each digest met so far.
    std::map<const EVP_MD*, OcspCertIdPtr> ids;
    for (unsigned int r = 0; r < responses.GetSize(); ++r) {
        const OcspResponse& response = responses.GetAt(r);
        const qorstd::QorArray<unsigned char> der = response.GetBasicResponse();
        const OcspBasicRespPtr basic =
            DecodeWhole<OcspBasicRespPtr>(d2i_OCSP_BASICRESP, der.GetData(), der.GetSize());
        if (!basic) {
            if (m_log->IsErrorEnabled()) {
                m_log->Write(LogLevel::Error, L"FindOcspResponse: Error d2i_OCSP_BASICRESP");
            }
            CryptException::Throw(ErrAsn1Decoding, L"");
        }
        const int count = OCSP_resp_count(basic.get());
        for (int s = 0; s < count; ++s) {
            OCSP_SINGLERESP* single = OCSP_resp_get0(basic.get(), s);
            if (single == nullptr) {
                if (m_log->IsErrorEnabled()) {
                    m_log->Write(LogLevel::Error, L"FindOcspResponse: Error OCSP_resp_get0");
                }
                CryptException::Throw(ErrInternal, L"");
            }
            const OCSP_CERTID* answered = OCSP_SINGLERESP_get0_id(single);
            ASN1_OBJECT* digestOid = nullptr;
            OCSP_id_get0_info(nullptr, &digestOid, nullptr, nullptr,
                              const_cast<OCSP_CERTID*>(answered));
            const EVP_MD* digest = digestOid != nullptr ? EVP_get_digestbyobj(digestOid) : nullptr;
            if (digest == nullptr) {
                if (m_log->IsErrorEnabled()) {
                    m_log->Write(LogLevel::Error,
                                 L"FindOcspResponse: Error in EVP_get_digestbyobj");
                }
                CryptException::Throw(ErrInternal, L"");
            }
            OcspCertIdPtr& id = ids[digest];
            if (!id) {
                id.reset(OCSP_cert_to_id(digest, cert.GetX509(), issuer.GetX509()));
                if (!id) {
                    if (m_log->IsErrorEnabled()) {
                        m_log->Write(LogLevel::Error,
                                     L"FindOcspResponse: Error in OCSP_cert_to_id");
                    }
                    CryptException::Throw(ErrInternal, L"");
                }
            }
            if (OCSP_id_cmp(id.get(), answered) == 0) {
                OcspVector<OcspCertificate> trusted;
                LoadCertificatesFromTrustStore(trusted);
                response.Verify(&trusted);
                return new OcspResponse(response);
            }
        }
    }
    return nullptr;
}

void X509Chain::LoadCertificatesFromTrustStore(OcspVector<OcspCertificate>& out) const {
    ocspclient::AppendTrustedCertificates(*m_log, L"LoadCertificatesFromTrustStore",
                                          RequirePolicy(m_policy).GetTrustStore(), out);
}

void X509Chain::VerifyCertCrl(const X509Certificate* cert, const X509Crl& crl,
                              std::int64_t verifyTime, const CautionPeriod& cautionPeriod) {
    if (cert == nullptr) {
        CryptException::Throw(ErrInvalidParameter, L"pCert=NULL");
    }
    const std::int64_t thisUpdate = crl.GetThisUpdate();
    const std::int64_t nextUpdate = VerdictNextUpdate(crl);
    if (m_log->IsDebugEnabled()) {
        m_log->WriteFormat(LogLevel::Debug,
                           L"VerifyCertCrl(VerifyTime:%ls Certificate:%ls CRLNumber:%ls "
                           L"CRLIssuer:%ls)",
                           x509::FormatLogTime(verifyTime).c_str(), Subject(*cert).c_str(),
                           x509::Widen(crl.GetCRLNumberDec()).c_str(),
                           crl.GetIssuerStringX500().c_str());
    }
    if (thisUpdate < cert->GetNotBefore()) {
        if (m_log->IsErrorEnabled()) {
            m_log->WriteFormat(LogLevel::Error,
                               L"VerifyCertCrl: CRL is not time valid, CRL(ThisUpdate:%ls) < "
                               L"Cert(NotBefore:%ls)",
                               x509::FormatLogTime(thisUpdate).c_str(),
                               x509::FormatLogTime(cert->GetNotBefore()).c_str());
        }
        CryptException::Throw(ErrCrlNotTimeValid, L"");
    }
    if (m_log->IsDebugEnabled()) {
        m_log->Write(LogLevel::Debug, L"Checking CRL time validity ...");
        m_log->WriteFormat(LogLevel::Debug, L"CRL(ThisUpdate:%ls, NextUpdate:%ls)",
                           x509::FormatLogTime(thisUpdate).c_str(),
                           x509::FormatLogTime(nextUpdate).c_str());
    }
    if (!(cert->GetNotBefore() < thisUpdate && thisUpdate <= cert->GetNotAfter())) {
        if (m_log->IsDebugEnabled()) {
            m_log->WriteFormat(LogLevel::Debug,
                               L"CRL is not time valid, Cert(NotBefore:%ls, NotAfter:%ls) <- "
                               L"CRL(ThisUpdate:%ls)",
                               x509::FormatLogTime(cert->GetNotBefore()).c_str(),
                               x509::FormatLogTime(cert->GetNotAfter()).c_str(),
                               x509::FormatLogTime(thisUpdate).c_str());
        }
        if (m_log->IsErrorEnabled()) {
            m_log->Write(LogLevel::Error,
                         L"VerifyCertCrl: Incomplete automatic verification. CRL not time valid.");
        }
        CryptException::Throw(ErrRevocationUnknown, L"");
    }
    X509CrlItem item;
    if (crl.GetCrlItem(*cert, item) != 0) {
        if (m_log->IsDebugEnabled()) {
            m_log->Write(LogLevel::Debug, L"Certificate is identified in a CRL.");
            m_log->WriteFormat(LogLevel::Debug, L"RevocationTime=%ls",
                               x509::FormatLogTime(item.GetRevocationTime()).c_str());
        }
        if (verifyTime >= item.GetRevocationTime()) {
            if (m_log->IsErrorEnabled()) {
                m_log->Write(LogLevel::Error, L"VerifyCertCrl: CRL certificate status revoked.");
            }
            CryptException::Throw(ErrCertRevoked, L"");
        }
        return;
    }
    if (m_log->IsDebugEnabled()) {
        m_log->Write(LogLevel::Debug, L"Certificate is not identified in a CRL.");
    }
    CheckFreshness(*m_log, kCrlTexts, RequirePolicy(m_policy).GetCheckRevocationThisUpdate() != 0,
                   thisUpdate, nextUpdate, verifyTime, cautionPeriod);
}

void X509Chain::VerifyCertOcspResponse(const X509Certificate* cert, const OcspResponse& response,
                                       std::int64_t verifyTime,
                                       const CautionPeriod& cautionPeriod) {
    if (cert == nullptr) {
        CryptException::Throw(ErrInvalidParameter, L"pCert=NULL");
    }
    if (m_log->IsDebugEnabled()) {
        m_log->WriteFormat(LogLevel::Debug,
                           L"VerifyCertOcspResponse(VerifyTime:%ls Certificate:%ls "
                           L"OCSPProducedAt:%ls OCSPResponderName:%ls)",
                           x509::FormatLogTime(verifyTime).c_str(), Subject(*cert).c_str(),
                           x509::FormatLogTime(response.GetProducedAt()).c_str(),
                           response.GetResponderName().c_str());
    }
    const OcspVector<OcspSingleResponse>& singles = response.GetSingleResponses();
    if (singles.GetSize() == 0) {
        if (m_log->IsErrorEnabled()) {
            m_log->Write(LogLevel::Error, L"VerifyCertOcspResponse: No single response found.");
        }
        CryptException::Throw(ErrInvalidParameter, L"ocsp.GetSingleResponses() is empty");
    }
    if (singles.GetSize() > 1) {
        if (m_log->IsErrorEnabled()) {
            m_log->Write(LogLevel::Error,
                         L"VerifyCertOcspResponse: Single responses occurs more than once.");
        }
        CryptException::Throw(ErrInternal, L"ocsp.GetSingleResponses().GetSize()>1");
    }
    if (response.GetProducedAt() < cert->GetNotBefore()) {
        if (m_log->IsErrorEnabled()) {
            m_log->WriteFormat(LogLevel::Error,
                               L"VerifyCertOcspResponse: OCSP response is not time valid, "
                               L"OCSP(ProducedAt:%ls) < Cert(NotBefore:%ls)",
                               x509::FormatLogTime(response.GetProducedAt()).c_str(),
                               x509::FormatLogTime(cert->GetNotBefore()).c_str());
        }
        OcspException::Throw(OcspException::ocspErrResponseTooOld, nullptr);
    }
    const OcspSingleResponse& single = singles.GetAt(0);
    const std::int64_t thisUpdate = single.GetThisUpdate();
    if (m_log->IsDebugEnabled()) {
        m_log->Write(LogLevel::Debug, L"Checking OCSP time validity ...");
        m_log->WriteFormat(LogLevel::Debug, L"OCSP(ThisUpdate:%ls, NextUpdate:%ls)",
                           x509::FormatLogTime(thisUpdate).c_str(),
                           x509::FormatLogTime(single.GetNextUpdate()).c_str());
    }
    if (!(cert->GetNotBefore() < thisUpdate && thisUpdate <= cert->GetNotAfter())) {
        if (m_log->IsDebugEnabled()) {
            m_log->WriteFormat(LogLevel::Debug,
                               L"OCSP response is not time valid, Cert(NotBefore:%ls, "
                               L"NotAfter:%ls) <- OCSP(ThisUpdate:%ls)",
                               x509::FormatLogTime(cert->GetNotBefore()).c_str(),
                               x509::FormatLogTime(cert->GetNotAfter()).c_str(),
                               x509::FormatLogTime(thisUpdate).c_str());
        }
        if (m_log->IsErrorEnabled()) {
            m_log->Write(LogLevel::Error,
                         L"VerifyCertOcspResponse: Incomplete automatic verification. OCSP "
                         L"response not time valid.");
        }
        CryptException::Throw(ErrRevocationUnknown, L"");
    }
    switch (single.GetCertStatus()) {
        case OcspSingleResponse::ocspStatusGood: {
            if (m_log->IsDebugEnabled()) {
                m_log->Write(LogLevel::Debug, L"CertificateStatus:Good");
            }
            const long maxFreshness = RequirePolicy(m_policy).GetMaxOcspFreshness();
            if (maxFreshness < 1) {
                CheckFreshness(*m_log, kOcspTexts,
                               RequirePolicy(m_policy).GetCheckRevocationThisUpdate() != 0,
                               thisUpdate, single.GetNextUpdate(), verifyTime, cautionPeriod);
                return;
            }
            const std::int64_t oldest = verifyTime - maxFreshness;
            if (thisUpdate < oldest) {
                if (m_log->IsDebugEnabled()) {
                    m_log->WriteFormat(LogLevel::Debug,
                                       L"OCSP response is not time valid, OCSP(ThisUpdate:%ls) < "
                                       L"CheckTime:%ls",
                                       x509::FormatLogTime(thisUpdate).c_str(),
                                       x509::FormatLogTime(oldest).c_str());
                }
                if (m_log->IsErrorEnabled()) {
                    m_log->Write(LogLevel::Error,
                                 L"VerifyCertOcspResponse: Incomplete verification (OCSP response "
                                 L"is not fresh).");
                }
                CryptException::Throw(ErrRevocationUnknown, L"");
            }
            return;
        }
        case OcspSingleResponse::ocspStatusRevoked:
            if (m_log->IsDebugEnabled()) {
                m_log->Write(LogLevel::Debug, L"CertificateStatus:Revoked");
                m_log->WriteFormat(LogLevel::Debug, L"RevocationTime=%ls",
                                   x509::FormatLogTime(single.GetRevocationTime()).c_str());
            }
            if (verifyTime >= single.GetRevocationTime()) {
                if (m_log->IsErrorEnabled()) {
                    m_log->Write(LogLevel::Error,
                                 L"VerifyCertOcspResponse: OCSP certificate status revoked.");
                }
                CryptException::Throw(ErrCertRevoked, L"");
            }
            return;
        default:
            if (m_log->IsDebugEnabled()) {
                m_log->Write(LogLevel::Debug, L"CertificateStatus:Unknown");
            }
            if (m_log->IsErrorEnabled()) {
                m_log->Write(LogLevel::Error,
                             L"VerifyCertOcspResponse: Incomplete automatic verification. OCSP "
                             L"certificate status unknown.");
            }
            CryptException::Throw(ErrRevocationUnknown, L"");
    }
}

int X509Chain::VerifyCrl(X509_CRL* crl, const X509Certificate* cert, const X509Certificate* issuer,
                         const std::int64_t& time, const ValidationDataStore* poeStore,
                         std::int64_t* poeOut) const {
    if (crl == nullptr) {
        CryptException::Throw(ErrInvalidParameter, L"pCrl=NULL");
    }
    if (cert == nullptr) {
        CryptException::Throw(ErrInvalidParameter, L"pCert=NULL");
    }
    if (issuer == nullptr) {
        CryptException::Throw(ErrInvalidParameter, L"pIssuer=NULL");
    }
    std::int64_t thisUpdate = 0;
    if (!qortime::Asn1TimeToSeconds(X509_CRL_get0_lastUpdate(crl), &thisUpdate)) {
        return 0;
    }
    // Without nextUpdate the issuer announces no newer list: never outdated.
    std::int64_t limit = X509Crl::kNoNextUpdate;
    if (RequirePolicy(m_policy).GetCheckRevocationThisUpdate() != 0) {
        limit = thisUpdate;
    } else if (X509_CRL_get0_nextUpdate(crl) != nullptr &&
               !qortime::Asn1TimeToSeconds(X509_CRL_get0_nextUpdate(crl), &limit)) {
        return 0;
    }
    if (limit <= time) {
        return 0;
    }
    if (thisUpdate <= cert->GetNotBefore() || thisUpdate >= cert->GetNotAfter()) {
        return 0;
    }
    const std::int64_t poe = 0;
    if (poeStore != nullptr) {
        CryptException::Throw(ErrNotImplemented, L"VerifyCrl: proof-of-existence store");
    }
    EVP_PKEY* key = issuer->GetX509() != nullptr ? X509_get0_pubkey(issuer->GetX509()) : nullptr;
    if (key == nullptr || X509_CRL_verify(crl, key) != 1) {
        ERR_clear_error();
        return 0;
    }
    if (poeOut != nullptr) {
        *poeOut = poe;
    }
    return 1;
}

}  // namespace TesseraLib
