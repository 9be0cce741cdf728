// The revocation search before a path is verified and the verdicts after it.
#include <map>
#include <memory>

#include <openssl/err.h>

#include "CryptException.h"
#include "CryptUtils.h"
#include "Failure.h"
#include "LogChannel.h"
#include "OcspException.h"
#include "OcspResponse.h"
#include "QorAsn1Time.h"
#include "QorDer.h"
#include "QorTextConv.h"
#include "ValidationDataStore.h"
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
        Fail(ErrInvalidParameter, L"m_policy=NULL");
    }
    return *policy;
}

// Runs a search of the extra store. A store that cannot be searched is no
// reason to give up: the failure is logged and the search finds nothing.
template <class Search>
void SearchExtraStore(const LogChannel& log, const wchar_t* failure, Search search) {
    try {
        search();
    } catch (const qorstd::QorException&) {
        TLOG_ERROR(log, failure);
    } catch (const OcspException&) {
        TLOG_ERROR(log, failure);
    } catch (const std::exception&) {
        TLOG_ERROR(log, failure);
    }
}

// Hands the CRL to OpenSSL's own CRL check: the build's CRL list takes a
// reference of its own (a CRL is never changed once read), and the object
// is kept beside it so that the path elements share it too instead of
// decoding the list again.
void CollectCrl(const LogChannel& log, X509Chain::BuildContext* context, const X509Crl& crl) {
    if (!context || !context->pCrls) {
        Fail(log, L"FindRevocationElements: m_pBuildCtx->pCrls is NULL", ErrInternal,
             L"m_pBuildCtx->pCrls=NULL");
    }
    X509CrlPtr reference = UpRef(crl.GetX509Crl());
    if (!reference) {
        Fail(log, L"FindRevocationElements: X509_CRL_dup() failed.", ErrInternal, L"pCrl=NULL");
    }
    if (sk_X509_CRL_push(context->pCrls.get(), reference.get()) <= 0) {
        Fail(log, L"FindRevocationElements: sk_X509_CRL_push() failed.", ErrInternal,
             L"sk_X509_CRL_push()");
    }
    reference.release();  // now the list's
    context->collectedCrls.push_back(crl);
    TLOG_DEBUG(log,
               L"FindRevocationElements: Suitable CRL was found - Number:%ls "
               L"ThisUpdate:%ls NextUpdate:%ls Issuer:%ls.",
               x509::Widen(crl.GetCRLNumberDec()).c_str(),
               x509::FormatLogTime(crl.GetThisUpdate()).c_str(),
               x509::FormatLogTime(VerdictNextUpdate(crl)).c_str(),
               crl.GetIssuerStringX500().c_str());
}

// The CRL client's CRL for `cert` (still owned by the client), or null.
// In the mode that accepts either kind of data, `tryOcsp` tells whether an
// OCSP response should still be asked for: a CRL alone settles the
// certificate only when CRLs are preferred and it is not outdated at the
// check time.
const X509Crl* AskCrlClient(const LogChannel& log, X509CrlClient* client,
                            const X509ChainPolicy& policy, const X509Certificate& cert,
                            const X509Certificate& issuer, bool afterTime, std::int64_t checkTime,
                            bool* tryOcsp) {
    const bool eitherMode = policy.GetRevocationMode() == X509ChainPolicy::revOcspOrCrl;
    TLOG_DEBUG(log, L"FindRevocationElements: Try to find CRL by client ...");
    if (!afterTime) {
        const X509Crl* crl = client->GetCrl(cert);
        if (eitherMode) {
            *tryOcsp =
                !(crl != nullptr && policy.GetPreferCrl() != 0 && crl->GetNextUpdate() > checkTime);
        }
        return crl;
    }
    TLOG_DEBUG(log, L"FindRevocationElements: after time %ls",
               x509::FormatLogTime(checkTime).c_str());
    const X509Crl* crl = client->GetCrlAfterTime(cert, checkTime, &issuer);
    if (crl == nullptr && eitherMode) {
        // Any CRL will do while OCSP gets its chance too.
        crl = client->GetCrl(cert);
        *tryOcsp = true;
    }
    return crl;
}

// The line for an OCSP client's failure, from either exception family.
template <class Exception>
void LogOcspClientFailure(const LogChannel& log, const wchar_t* family, const Exception& e) {
    TLOG_ERROR(log,
               L"FindRevocationElements: Error while obtaining OCSP response "
               L"(%ls caught: ErrorNumber = %d, Description = %ls, Message = %ls).",
               family, e.GetErrorCode(),
               OrPlaceholder(e.GetErrorDescription(), L"<no description>"),
               OrPlaceholder(e.GetErrorMessage(), L"<no message>"));
}

// The OCSP client's response (still owned by the client), or null when it
// has none or fails: its failures are logged and absorbed.
const OcspResponse* AskOcspClient(const LogChannel& log, X509OcspClient* client,
                                  X509Store* trustStore, const X509Certificate& cert,
                                  const X509Certificate& issuer, bool afterTime,
                                  std::int64_t verifyTime) {
    TLOG_DEBUG(log, L"FindRevocationElements: Try to find OCSP response by client ...");
    const TrustStoreLoan loan(client, trustStore);
    try {
        if (!afterTime) {
            return client->GetOcspResponse(cert, issuer);
        }
        // No caution period for OCSP: a response produced after the
        // verification time will do.
        TLOG_DEBUG(log, L"FindRevocationElements: after time %ls",
                   x509::FormatLogTime(verifyTime).c_str());
        return client->GetOcspResponseAfterTime(cert, issuer, verifyTime);
    } catch (const OcspException& e) {
        LogOcspClientFailure(log, L"OcspException", e);
    } catch (const CryptException& e) {
        LogOcspClientFailure(log, L"CryptException", e);
    }
    return nullptr;
}

void RequireOcsp(const LogChannel& log, const OcspResponse* ocsp, const X509Certificate& cert,
                 const wchar_t* message) {
    if (ocsp != nullptr) {
        return;
    }
    TLOG_WARNING(log, L"FindRevocationElements: Unable to obtain OCSP. Certificate: %ls",
                 Subject(cert).c_str());
    Fail(ErrRevocationUnknown, message);
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
        TLOG_DEBUG(log, L"%ls: CautionPeriod=Days:%d Hours:%d Minutes:%d Seconds:%d",
                   texts.operation, static_cast<int>(caution.m_days),
                   static_cast<int>(caution.m_hours), static_cast<int>(caution.m_minutes),
                   static_cast<int>(caution.m_seconds));
        checkTime += caution.ToTimestamp();
    }
    TLOG_DEBUG(log, L"%ls: CheckRevocationThisUpdate=%ls, CheckTime=%ls", texts.operation,
               chain::Bool(byThisUpdate ? 1 : 0), x509::FormatLogTime(checkTime).c_str());
    const std::int64_t limit = byThisUpdate ? thisUpdate : nextUpdate;
    if (checkTime <= limit) {
        return;
    }
    TLOG_DEBUG(log, L"%ls, CheckTime:%ls > %ls(%ls:%ls)", texts.notValid,
               x509::FormatLogTime(checkTime).c_str(), texts.source,
               byThisUpdate ? L"ThisUpdate" : L"NextUpdate", x509::FormatLogTime(limit).c_str());
    TLOG_ERROR(log, L"%ls: Incomplete verification (waiting for a new %ls).", texts.operation,
               texts.awaited);
    const std::int64_t newerDataDue = nextUpdate != 0 ? nextUpdate : checkTime;
    Fail(newerDataDue > CryptUtils::GetCurrentTimeUTC() ? ErrCautionPeriod : ErrRevocationUnknown);
}

}  // namespace

X509Crl chain::CrlFor(const X509Chain::BuildContext* context, const X509_CRL* crl) {
    if (context != nullptr) {
        for (const X509Crl& collected : context->collectedCrls) {
            if (collected.GetX509Crl() == crl) {
                return collected;
            }
        }
    }
    return X509Crl(crl);
}

void X509Chain::FindRevocationElementsCheckParams(const X509Certificate* cert,
                                                  const X509CrlClient* crlClient,
                                                  const X509OcspClient* ocspClient) const {
    const X509ChainPolicy& policy = RequirePolicy(m_policy);
    const X509ChainPolicy::cptRevocationMode mode = policy.GetRevocationMode();
    const X509ChainPolicy::cptChainBuildMode buildMode = policy.GetChainBuildMode();
    const bool useClients = (buildMode & X509ChainPolicy::cptChainBuildClients) != 0;
    if (X509ChainPolicy::IsRevCRLMode(mode) && useClients) {
        if (!m_pBuildCtx || !m_pBuildCtx->pCrls) {
            Fail(m_log, L"FindRevocationElementsCheckParams: m_pBuildCtx->pCrls is NULL",
                 ErrInvalidParameter, L"m_pBuildCtx->pCrls=NULL");
        }
        if (crlClient == nullptr) {
            Fail(m_log, L"FindRevocationElementsCheckParams: CRL client not set.",
                 ErrInvalidParameter, L"pCrlClient=NULL");
        }
    } else if (mode == X509ChainPolicy::revOcsp && useClients && ocspClient == nullptr) {
        Fail(m_log, L"FindRevocationElementsCheckParams: OCSP client not set.", ErrInvalidParameter,
             L"pOcspClient=NULL");
    }
    if (cert == nullptr || cert->GetX509() == nullptr) {
        Fail(m_log, L"FindRevocationElementsCheckParams: pCert->GetX509() is NULL",
             ErrInvalidParameter, L"pCert->GetX509()=NULL");
    }
    if (X509ChainPolicy::UseValidationDataStore(buildMode) &&
        (!m_pBuildCtx || !m_pBuildCtx->pTrustStore)) {
        Fail(m_log, L"FindRevocationElementsCheckParams: Trusted store not set.",
             ErrInvalidParameter, L"m_pBuildCtx->pTrustStore=NULL");
    }
}

void X509Chain::FindRevocationElements(const X509Certificate* cert) {
    TLOG_DEBUG(m_log, L"FindRevocationElements");
    const X509ChainPolicy& policy = RequirePolicy(m_policy);
    const X509ChainPolicy::cptRevocationOption option = policy.GetRevocationOption();
    if (option == X509ChainPolicy::revOptionNone) {
        return;
    }
    TLOG_DEBUG(m_log,
               L"FindRevocationElements: PreferCrl=%ls, CheckRevocationThisUpdate=%ls, "
               L"ForceGetCrlAfterTimeUsage=%ls",
               chain::Bool(policy.GetPreferCrl()),
               chain::Bool(policy.GetCheckRevocationThisUpdate()),
               chain::Bool(policy.GetForceGetCrlAfterTimeUsage()));
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
        TLOG_DEBUG(m_log, L"FindRevocationElements: [%i] Certificate: %ls.", i,
                   Subject(current).c_str());
        // The next element issued this one; the end of the path must have
        // issued itself.
        const X509Certificate* issuer = nullptr;
        if (i + 1 < length) {
            issuer = m_elements.GetAt(first + static_cast<unsigned int>(i) + 1).GetCertificate();
        } else if (x509::IsIssuedBy(x509, x509)) {
            issuer = &current;
        } else {
            Fail(m_log, L"FindRevocationElements: pIssuer is NULL.", ErrInternal, L"pIssuer=NULL");
        }
        TLOG_DEBUG(m_log, L"FindRevocationElements: [%i] Certificate issuer: %ls.", i,
                   Subject(*issuer).c_str());

        // Data of an expired certificate, or data the policy wants issued
        // after the check time, must be asked for "after time".
        const bool afterTime = policy.GetCheckRevocationThisUpdate() != 0 ||
                               policy.GetForceGetCrlAfterTimeUsage() != 0 ||
                               current.GetNotAfter() < now;

        // The CRL: the extra store's first, else the client's.
        std::unique_ptr<X509Crl> foundCrl;  // from the extra store
        const X509Crl* crl = nullptr;       // found or the client's
        bool tryOcsp = false;
        if (X509ChainPolicy::IsRevCRLMode(mode)) {
            std::int64_t checkTime = m_verifyTime;
            const CautionPeriod caution = policy.GetCautionPeriod(current.GetSHA1HashHex());
            if (!caution.IsZero()) {
                TLOG_DEBUG(m_log,
                           L"FindRevocationElements: Applying caution period Days:%d "
                           L"Hours:%d Minutes:%d Seconds:%d",
                           static_cast<int>(caution.m_days), static_cast<int>(caution.m_hours),
                           static_cast<int>(caution.m_minutes),
                           static_cast<int>(caution.m_seconds));
                checkTime += caution.ToTimestamp();
            }
            if (extraStore != nullptr) {
                TLOG_DEBUG(m_log, L"FindRevocationElements: Try to find CRL in extra store ...");
                SearchExtraStore(
                    *m_log, L"FindRevocationElements: Error while finding CRL in extra store.",
                    [&] { foundCrl.reset(FindCrl(current, *issuer, checkTime, extraStore)); });
                crl = foundCrl.get();
            }
            if (useClients && crl == nullptr && crlClient != nullptr) {
                crl = AskCrlClient(*m_log, crlClient, policy, current, *issuer, afterTime,
                                   checkTime, &tryOcsp);
            }
            if (crl != nullptr && crl->GetX509Crl() == nullptr) {
                crl = nullptr;
            }
            if (crl != nullptr) {
                CollectCrl(*m_log, m_pBuildCtx.get(), *crl);
            } else if (mode == X509ChainPolicy::revCrl) {
                TLOG_WARNING(m_log,
                             L"FindRevocationElements: Unable to obtain CRL. "
                             L"Certificate: %ls. Issuer: %ls. Time: %ls",
                             Subject(current).c_str(), Subject(*issuer).c_str(),
                             x509::FormatLogTime(checkTime).c_str());
                Fail(ErrRevocationUnknown, L"GetCrl()=NULL or GetCrl()->GetX509Crl()=NULL");
            } else {
                TLOG_DEBUG(m_log,
                           L"FindRevocationElements: Suitable CRL was not found. "
                           L"Certificate: %ls.",
                           Subject(current).c_str());
            }
        }

        // The OCSP response, unless a preferred CRL already settles it.
        const bool lookForOcsp = mode == X509ChainPolicy::revOcsp ||
                                 (mode == X509ChainPolicy::revOcspOrCrl &&
                                  !(crl != nullptr && policy.GetPreferCrl() != 0 && !tryOcsp));
        std::unique_ptr<OcspResponse> foundOcsp;  // from the extra store
        const OcspResponse* ocsp = nullptr;       // found or the client's
        if (lookForOcsp) {
            if (extraStore != nullptr) {
                TLOG_DEBUG(m_log,
                           L"FindRevocationElements: Try to find OCSP response in extra "
                           L"store ...");
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
            if (ocsp != nullptr) {
                TLOG_DEBUG(m_log,
                           L"FindRevocationElements: Suitable OCSP response was found - "
                           L"ProducedAt:%ls Status:%ls ResponderName:%ls",
                           x509::FormatLogTime(ocsp->GetProducedAt()).c_str(),
                           x509::Widen(ocsp->GetStatusString()).c_str(),
                           ocsp->GetResponderName().c_str());
            }
        }

        // OCSP when the mode demands it, when there is no CRL, or when the
        // response is newer than the CRL (or the CRL alone did not settle it).
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
            TLOG_DEBUG(m_log,
                       L"FindRevocationElements: For certificate %ls will be used "
                       L"OCSP for revocation.",
                       Subject(current).c_str());
            continue;
        }
        if (crl == nullptr) {
            TLOG_WARNING(m_log, L"FindRevocationElements: Unable to obtain CRL. Certificate: %ls",
                         Subject(current).c_str());
            Fail(ErrRevocationUnknown, L"pCurrCrl == NULL");
        }
        element.SetCrl(*crl);
        TLOG_DEBUG(m_log,
                   L"FindRevocationElements: For certificate %ls will be used CRL "
                   L"for revocation.",
                   Subject(current).c_str());
    }
}

X509Crl* X509Chain::FindCrl(const X509Certificate& cert, const X509Certificate& issuer,
                            const std::int64_t& checkTime, const X509Store* store) const {
    if (store == nullptr) {
        Fail(m_log, L"FindCrl: pStore is NULL", ErrInvalidParameter, L"pStore=NULL");
    }
    const qorstd::QorVector<X509Crl> crls = store->GetCrls();
    if (crls.GetSize() == 0) {
        TLOG_WARNING(m_log, L"FindCrl: No CRLs in extra store.");
        return nullptr;
    }
    if (issuer.GetX509() == nullptr) {
        Fail(m_log, L"FindCrl: pIssuer is NULL", ErrInvalidParameter, L"pIssuer=NULL");
    }
    // The first CRL of the issuer that is recent enough for the check time
    // and was issued while the certificate was valid.
    const bool byThisUpdate = RequirePolicy(m_policy).GetCheckRevocationThisUpdate() != 0;
    const X509_NAME* issuerName = X509_get_subject_name(issuer.GetX509());
    for (unsigned int i = 0; i < crls.GetSize(); ++i) {
        const X509Crl& candidate = crls.GetAt(i);
        if (candidate.GetX509Crl() == nullptr) {
            Fail(m_log, L"FindCrl: crlNext.GetX509Crl() is NULL", ErrInternal,
                 L"crlNext.GetX509Crl()=NULL");
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
            return new X509Crl(candidate);  // shares the decoded CRL
        } catch (const CryptException&) {
            Fail(m_log, L"GetCrls: X509_CRL_dup() failed.", ErrInternal, L"pCrl=NULL");
        }
    }
    return nullptr;
}

OcspResponse* X509Chain::FindOcspResponse(const X509Certificate& cert,
                                          const X509Certificate& issuer,
                                          const X509Store* store) const {
    ocspclient::CheckHandles(*m_log, L"FindOcspResponse", cert, issuer);
    if (store == nullptr) {
        Fail(m_log, L"FindOcspResponse: Bad parameter - pStore is null", ErrInvalidParameter,
             L"pStore=NULL");
    }
    const OcspVector<OcspResponse> responses = store->GetOcspResponses();
    if (responses.GetSize() == 0) {
        TLOG_WARNING(m_log, L"FindOcspResponse: No OCSP response in extra store.");
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
            Fail(m_log, L"FindOcspResponse: Error d2i_OCSP_BASICRESP", ErrAsn1Decoding);
        }
        const int count = OCSP_resp_count(basic.get());
        for (int s = 0; s < count; ++s) {
            OCSP_SINGLERESP* single = OCSP_resp_get0(basic.get(), s);
            if (single == nullptr) {
                Fail(m_log, L"FindOcspResponse: Error OCSP_resp_get0", ErrInternal);
            }
            const OCSP_CERTID* answered = OCSP_SINGLERESP_get0_id(single);
            ASN1_OBJECT* digestOid = nullptr;
            OCSP_id_get0_info(nullptr, &digestOid, nullptr, nullptr,
                              const_cast<OCSP_CERTID*>(answered));
            const EVP_MD* digest = digestOid != nullptr ? EVP_get_digestbyobj(digestOid) : nullptr;
            if (digest == nullptr) {
                Fail(m_log, L"FindOcspResponse: Error in EVP_get_digestbyobj", ErrInternal);
            }
            OcspCertIdPtr& id = ids[digest];
            if (!id) {
                id.reset(OCSP_cert_to_id(digest, cert.GetX509(), issuer.GetX509()));
                if (!id) {
                    Fail(m_log, L"FindOcspResponse: Error in OCSP_cert_to_id", ErrInternal);
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
        Fail(ErrInvalidParameter, L"pCert=NULL");
    }
    const std::int64_t thisUpdate = crl.GetThisUpdate();
    const std::int64_t nextUpdate = VerdictNextUpdate(crl);
    TLOG_DEBUG(m_log,
               L"VerifyCertCrl(VerifyTime:%ls Certificate:%ls CRLNumber:%ls "
               L"CRLIssuer:%ls)",
               x509::FormatLogTime(verifyTime).c_str(), Subject(*cert).c_str(),
               x509::Widen(crl.GetCRLNumberDec()).c_str(), crl.GetIssuerStringX500().c_str());
    // A CRL issued before the certificate cannot speak for it.
    if (thisUpdate < cert->GetNotBefore()) {
        TLOG_ERROR(m_log,
                   L"VerifyCertCrl: CRL is not time valid, CRL(ThisUpdate:%ls) < "
                   L"Cert(NotBefore:%ls)",
                   x509::FormatLogTime(thisUpdate).c_str(),
                   x509::FormatLogTime(cert->GetNotBefore()).c_str());
        Fail(ErrCrlNotTimeValid);
    }
    TLOG_DEBUG(m_log, L"Checking CRL time validity ...");
    TLOG_DEBUG(m_log, L"CRL(ThisUpdate:%ls, NextUpdate:%ls)",
               x509::FormatLogTime(thisUpdate).c_str(), x509::FormatLogTime(nextUpdate).c_str());
    // It must have been issued while the certificate was valid.
    if (!(cert->GetNotBefore() < thisUpdate && thisUpdate <= cert->GetNotAfter())) {
        TLOG_DEBUG(m_log,
                   L"CRL is not time valid, Cert(NotBefore:%ls, NotAfter:%ls) <- "
                   L"CRL(ThisUpdate:%ls)",
                   x509::FormatLogTime(cert->GetNotBefore()).c_str(),
                   x509::FormatLogTime(cert->GetNotAfter()).c_str(),
                   x509::FormatLogTime(thisUpdate).c_str());
        Fail(m_log, L"VerifyCertCrl: Incomplete automatic verification. CRL not time valid.",
             ErrRevocationUnknown);
    }
    // Listed: revoked from the revocation time on.
    X509CrlItem item;
    if (crl.GetCrlItem(*cert, item) != 0) {
        TLOG_DEBUG(m_log, L"Certificate is identified in a CRL.");
        TLOG_DEBUG(m_log, L"RevocationTime=%ls",
                   x509::FormatLogTime(item.GetRevocationTime()).c_str());
        if (verifyTime >= item.GetRevocationTime()) {
            Fail(m_log, L"VerifyCertCrl: CRL certificate status revoked.", ErrCertRevoked);
        }
        return;
    }
    // Not listed: good when the CRL is fresh enough.
    TLOG_DEBUG(m_log, L"Certificate is not identified in a CRL.");
    CheckFreshness(*m_log, kCrlTexts, RequirePolicy(m_policy).GetCheckRevocationThisUpdate() != 0,
                   thisUpdate, nextUpdate, verifyTime, cautionPeriod);
}

void X509Chain::VerifyCertOcspResponse(const X509Certificate* cert, const OcspResponse& response,
                                       std::int64_t verifyTime,
                                       const CautionPeriod& cautionPeriod) {
    if (cert == nullptr) {
        Fail(ErrInvalidParameter, L"pCert=NULL");
    }
    TLOG_DEBUG(m_log,
               L"VerifyCertOcspResponse(VerifyTime:%ls Certificate:%ls "
               L"OCSPProducedAt:%ls OCSPResponderName:%ls)",
               x509::FormatLogTime(verifyTime).c_str(), Subject(*cert).c_str(),
               x509::FormatLogTime(response.GetProducedAt()).c_str(),
               response.GetResponderName().c_str());
    // Exactly one answer, produced after the certificate was issued.
    const OcspVector<OcspSingleResponse>& singles = response.GetSingleResponses();
    if (singles.GetSize() == 0) {
        Fail(m_log, L"VerifyCertOcspResponse: No single response found.", ErrInvalidParameter,
             L"ocsp.GetSingleResponses() is empty");
    }
    if (singles.GetSize() > 1) {
        Fail(m_log, L"VerifyCertOcspResponse: Single responses occurs more than once.", ErrInternal,
             L"ocsp.GetSingleResponses().GetSize()>1");
    }
    if (response.GetProducedAt() < cert->GetNotBefore()) {
        TLOG_ERROR(m_log,
                   L"VerifyCertOcspResponse: OCSP response is not time valid, "
                   L"OCSP(ProducedAt:%ls) < Cert(NotBefore:%ls)",
                   x509::FormatLogTime(response.GetProducedAt()).c_str(),
                   x509::FormatLogTime(cert->GetNotBefore()).c_str());
        OcspException::Throw(OcspException::ocspErrResponseTooOld, nullptr);
    }
    const OcspSingleResponse& single = singles.GetAt(0);
    const std::int64_t thisUpdate = single.GetThisUpdate();
    TLOG_DEBUG(m_log, L"Checking OCSP time validity ...");
    TLOG_DEBUG(m_log, L"OCSP(ThisUpdate:%ls, NextUpdate:%ls)",
               x509::FormatLogTime(thisUpdate).c_str(),
               x509::FormatLogTime(single.GetNextUpdate()).c_str());
    // The answer must have been given while the certificate was valid.
    if (!(cert->GetNotBefore() < thisUpdate && thisUpdate <= cert->GetNotAfter())) {
        TLOG_DEBUG(m_log,
                   L"OCSP response is not time valid, Cert(NotBefore:%ls, "
                   L"NotAfter:%ls) <- OCSP(ThisUpdate:%ls)",
                   x509::FormatLogTime(cert->GetNotBefore()).c_str(),
                   x509::FormatLogTime(cert->GetNotAfter()).c_str(),
                   x509::FormatLogTime(thisUpdate).c_str());
        Fail(m_log,
             L"VerifyCertOcspResponse: Incomplete automatic verification. OCSP "
             L"response not time valid.",
             ErrRevocationUnknown);
    }
    switch (single.GetCertStatus()) {
        case OcspSingleResponse::ocspStatusGood: {
            // Good when fresh: by the policy's maximum age when it sets one,
            // else by the same rule as a CRL.
            TLOG_DEBUG(m_log, L"CertificateStatus:Good");
            const long maxFreshness = RequirePolicy(m_policy).GetMaxOcspFreshness();
            if (maxFreshness < 1) {
                CheckFreshness(*m_log, kOcspTexts,
                               RequirePolicy(m_policy).GetCheckRevocationThisUpdate() != 0,
                               thisUpdate, single.GetNextUpdate(), verifyTime, cautionPeriod);
                return;
            }
            const std::int64_t oldest = verifyTime - maxFreshness;
            if (thisUpdate < oldest) {
                TLOG_DEBUG(m_log,
                           L"OCSP response is not time valid, OCSP(ThisUpdate:%ls) < "
                           L"CheckTime:%ls",
                           x509::FormatLogTime(thisUpdate).c_str(),
                           x509::FormatLogTime(oldest).c_str());
                Fail(m_log,
                     L"VerifyCertOcspResponse: Incomplete verification (OCSP response "
                     L"is not fresh).",
                     ErrRevocationUnknown);
            }
            return;
        }
        case OcspSingleResponse::ocspStatusRevoked:
            // Revoked from the revocation time on.
            TLOG_DEBUG(m_log, L"CertificateStatus:Revoked");
            TLOG_DEBUG(m_log, L"RevocationTime=%ls",
                       x509::FormatLogTime(single.GetRevocationTime()).c_str());
            if (verifyTime >= single.GetRevocationTime()) {
                Fail(m_log, L"VerifyCertOcspResponse: OCSP certificate status revoked.",
                     ErrCertRevoked);
            }
            return;
        default:
            TLOG_DEBUG(m_log, L"CertificateStatus:Unknown");
            Fail(m_log,
                 L"VerifyCertOcspResponse: Incomplete automatic verification. OCSP "
                 L"certificate status unknown.",
                 ErrRevocationUnknown);
    }
}

int X509Chain::VerifyCrl(X509_CRL* crl, const X509Certificate* cert, const X509Certificate* issuer,
                         const std::int64_t& time, const ValidationDataStore* poeStore,
                         std::int64_t* poeOut) const {
    if (crl == nullptr) {
        Fail(ErrInvalidParameter, L"pCrl=NULL");
    }
    if (cert == nullptr) {
        Fail(ErrInvalidParameter, L"pCert=NULL");
    }
    if (issuer == nullptr) {
        Fail(ErrInvalidParameter, L"pIssuer=NULL");
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
    // With a POE store the CRL must be proven to exist while its issuer was
    // valid; one without a recorded POE never qualifies.
    std::int64_t poe = 0;
    if (poeStore != nullptr) {
        poeStore->GetPOECrl(crl, &poe);
        if (!(issuer->GetNotBefore() < poe && poe < issuer->GetNotAfter())) {
            return 0;
        }
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
