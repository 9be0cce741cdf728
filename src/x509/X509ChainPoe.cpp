// Path building with proofs of existence: a path whose certificates existed
// while their issuers were valid, and revocation judged from CRLs whose own
// existence and signer are proven, walking up from the certificate to its
// anchor so that a revoked CA invalidates only what it certified after its
// revocation.
#include <openssl/err.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <memory>

#include "CryptException.h"
#include "CryptUtils.h"
#include "Failure.h"
#include "LogChannel.h"
#include "QorExceptionStore.h"
#include "ValidationDataStore.h"
#include "X509Crl.h"
#include "X509CrlClient.h"
#include "x509/X509Bytes.h"
#include "x509/X509ChainContext.h"

namespace TesseraLib {

namespace {

qorstd::QorStringW Subject(const X509Certificate& cert) {
    return cert.GetSubjectName().GetStringX500();
}

const X509ChainPolicy& PolicyOf(const X509ChainPolicy* policy) {
    if (policy == nullptr) {
        Fail(ErrInvalidParameter, L"m_policy=NULL");
    }
    return *policy;
}

int Count(const STACK_OF(X509) * stack) {
    return stack != nullptr ? sk_X509_num(stack) : 0;
}

// How many certificates a path may still be built from.
int CandidateCount(const X509Chain::BuildContext& context) {
    return Count(context.trustedCerts.get()) + Count(context.extraCerts.get());
}

// Takes every certificate equal to `cert` out of `stack`; returns how many.
int RemoveEqual(STACK_OF(X509) * stack, const X509* cert) {
    int removed = 0;
    for (int i = Count(stack) - 1; i >= 0; --i) {
        if (X509_cmp(sk_X509_value(stack, i), cert) == 0) {
            X509Ptr taken(sk_X509_delete(stack, i));
            ++removed;
        }
    }
    return removed;
}

// Takes every CRL matching `crl` out of `stack`; returns how many.
int RemoveEqual(STACK_OF(X509_CRL) * stack, const X509_CRL* crl) {
    int removed = 0;
    for (int i = (stack != nullptr ? sk_X509_CRL_num(stack) : 0) - 1; i >= 0; --i) {
        if (X509_CRL_match(sk_X509_CRL_value(stack, i), crl) == 0) {
            X509CrlPtr taken(sk_X509_CRL_delete(stack, i));
            ++removed;
        }
    }
    return removed;
}

}  // namespace

void X509Chain::BuildWithPOE(const X509Certificate* cert, const std::int64_t& time,
                             ValidationDataStore* poeStore) {
    try {
        LogBuildStart(L"BuildWithPOE", cert);
        m_verifyTime = time != 0 ? time : CryptUtils::GetCurrentTimeUTC();
        BuildCheckParams(cert);
        BuildInitializeCtx(cert);
        BuildSolveWithPOE(cert, poeStore);
        BuildDestroyCtx();
    } catch (...) {
        BuildDestroyCtx();
        RecordFailure();
        throw;
    }
}

void X509Chain::BuildSolveWithPOE(const X509Certificate* cert, ValidationDataStore* poeStore) {
    TLOG_DEBUG(m_log, L"BuildSolveWithPOE");
    const X509ChainPolicy& policy = PolicyOf(m_policy);
    if (poeStore == nullptr) {
        Fail(m_log, L"BuildSolveWithPOE: pPOEStore is NULL", ErrInvalidParameter,
             L"pPOEStore=NULL");
    }
    if (!m_pBuildCtx || !m_pBuildCtx->pCrls) {
        Fail(m_log, L"BuildSolveWithPOE: m_pBuildCtx is NULL.", ErrInternal, L"m_pBuildCtx=NULL");
    }
    if (X509ChainPolicy::IsRevCRLMode(policy.GetRevocationMode()) &&
        X509ChainPolicy::UseValidationDataStore(policy.GetChainBuildMode())) {
        // Every CRL with a proof of existence may speak for a certificate of
        // the path. A CRL is never changed once read, so the list shares it.
        const qorstd::QorVector<ValidationDataPOEItem>& crls = poeStore->GetCrls();
        for (unsigned i = 0; i < crls.GetSize(); ++i) {
            const X509Crl* crl = crls[i].GetCrl();
            if (crl == nullptr || crl->GetX509Crl() == nullptr) {
                Fail(m_log,
                     L"BuildSolveWithPOE: crlNext.GetX509Crl()=NULL or "
                     L"crlNext.GetX509Crl()->GetX509Crl()=NULL",
                     ErrInternal, L"crlNext.GetX509Crl()=NULL");
            }
            X509CrlPtr reference = UpRef(crl->GetX509Crl());
            if (!reference) {
                Fail(m_log, L"BuildSolveWithPOE: X509_CRL_dup() failed.", ErrInternal,
                     L"pCrl=NULL");
            }
            if (sk_X509_CRL_push(m_pBuildCtx->pCrls.get(), reference.get()) <= 0) {
                Fail(m_log, L"BuildSolveWithPOE: sk_X509_CRL_push() failed.", ErrInternal,
                     L"sk_X509_CRL_push()");
            }
            reference.release();  // now the list's
            m_pBuildCtx->collectedCrls.push_back(*crl);
        }
    }

    QorExceptionStore afterRevocation;  // the first ErrCertPoeAfterRevocation
    for (;;) {
        m_elements.RemoveAll();
        X509StackPtr path;
        try {
            path.reset(BuildChainWithPOE(cert, poeStore));
        } catch (const qorstd::QorException& e) {
            // No path without the CAs dropped so far: the reason they were
            // dropped is the better answer.
            if (e.GetErrorCode() == ErrInternal || afterRevocation.IsEmpty()) {
                throw;
            }
            afterRevocation.ReThrow();
        }
        if (!path) {
            Fail(m_log, L"BuildSolveWithPOE: X509_STORE_CTX_get_chain() failed.",
                 ErrChainVerification);
        }
        for (int i = 0; i < sk_X509_num(path.get()); ++i) {
            AddChainElement(sk_X509_value(path.get(), i), nullptr, nullptr);
        }
        const int candidates = CandidateCount(*m_pBuildCtx);
        std::int64_t revokedAt = 0;
        try {
            CheckRevocationWithPOE(cert, path.get(), 0, m_verifyTime, poeStore, &revokedAt);
        } catch (const CryptException& e) {
            if (e.GetErrorCode() != ErrCertPoeAfterRevocation) {
                throw;
            }
            if (afterRevocation.IsEmpty()) {
                afterRevocation.SetException(e);
            }
            // The revoked CA has been dropped; had nothing been dropped, the
            // next path would be this one again.
            if (CandidateCount(*m_pBuildCtx) >= candidates) {
                afterRevocation.ReThrow();
            }
            continue;
        }
        if (revokedAt > 0) {
            Fail(m_log, L"BuildSolveWithPOE: CRL certificate status revoked.", ErrCertRevoked);
        }
        return;
    }
}

stack_st_X509* X509Chain::BuildChainWithPOE(const X509Certificate* cert,
                                            const ValidationDataStore* poeStore) {
    // Every new attempt has at least one candidate less, so the search ends.
    for (;;) {
        X509StackPtr path(BuildPath(cert));
        const X509* dropped = nullptr;
        for (int i = 0; i + 1 < sk_X509_num(path.get()) && dropped == nullptr; ++i) {
            const X509Certificate current = CertificateFor(sk_X509_value(path.get(), i));
            const X509Certificate issuer = CertificateFor(sk_X509_value(path.get(), i + 1));
            if (m_verifyTime < current.GetNotBefore() || m_verifyTime > current.GetNotAfter()) {
                if (i == 0) {
                    // Dropping the certificate being verified cannot change the next path.
                    TLOG_ERROR(m_log,
                               L"BuildChainWithPOE: Certificate is not time valid. "
                               L"Certificate: %ls.",
                               Subject(current).c_str());
                    Fail(ErrCertNotTimeValid, L"certificate not valid at the verification time");
                }
                dropped = sk_X509_value(path.get(), i);
                continue;
            }
            std::int64_t poe = 0;
            if (poeStore == nullptr || poeStore->GetPOECertificate(current.GetX509(), &poe) == 0) {
                TLOG_ERROR(m_log,
                           L"BuildChainWithPOE: Certificate POE not found. Certificate: %ls.",
                           Subject(current).c_str());
                Fail(ErrCertPoeNotFound);
            }
            if (poe < issuer.GetNotBefore() || poe > issuer.GetNotAfter()) {
                if (i == 0) {
                    // Dropping the certificate being verified cannot change the next path.
                    TLOG_ERROR(m_log,
                               L"BuildChainWithPOE: Certificate POE is outside the issuer's "
                               L"validity. Certificate: %ls. Certificate POE: %ls. Issuer: %ls.",
                               Subject(current).c_str(), x509::FormatLogTime(poe).c_str(),
                               Subject(issuer).c_str());
                    Fail(ErrChainVerification, L"certificate POE outside the issuer's validity");
                }
                dropped = sk_X509_value(path.get(), i);
            }
        }
        if (dropped == nullptr) {
            return path.release();
        }
        if (DeleteCertFromBuildCtx(dropped) == 0) {
            Fail(m_log, L"BuildChainWithPOE: Certificate not found among the candidates.",
                 ErrChainVerification, L"DeleteCertFromBuildCtx()=0");
        }
    }
}

int X509Chain::DeleteCertFromBuildCtx(const x509_st* cert) {
    if (!m_pBuildCtx) {
        Fail(m_log, L"DeleteCertFromBuildCtx: m_pBuildCtx is NULL.", ErrInternal,
             L"m_pBuildCtx=NULL");
    }
    if (cert == nullptr) {
        Fail(ErrInvalidParameter, L"pCert=NULL");
    }
    const int fromExtra = RemoveEqual(m_pBuildCtx->extraCerts.get(), cert);
    const int fromTrusted = RemoveEqual(m_pBuildCtx->trustedCerts.get(), cert);
    if (fromTrusted > 0) {
        X509StorePtr anchors(X509_STORE_new());
        if (!anchors) {
            Fail(ErrInternal, L"pX509Store=NULL");
        }
        for (int i = 0; i < Count(m_pBuildCtx->trustedCerts.get()); ++i) {
            X509_STORE_add_cert(anchors.get(), sk_X509_value(m_pBuildCtx->trustedCerts.get(), i));
        }
        ERR_clear_error();
        // The store context refers to the old store until it is set up again.
        X509_STORE_CTX_cleanup(m_pBuildCtx->pStoreCtx.get());
        m_pBuildCtx->pTrustStore = std::move(anchors);
    }
    return fromExtra + fromTrusted;
}

X509Crl* X509Chain::FindCrlWithPOE(const X509Certificate* cert, const X509Certificate* issuer,
                                   const std::int64_t& time, const ValidationDataStore* poeStore,
                                   std::int64_t* poeOut) const {
    if (poeStore == nullptr) {
        Fail(m_log, L"FindCrlWithPOE: pPOEStore is NULL", ErrInvalidParameter, L"pPOEStore=NULL");
    }
    if (issuer == nullptr || issuer->GetX509() == nullptr) {
        Fail(m_log, L"FindCrlWithPOE: pIssuer is NULL or pIssuer->GetX509() is NULL",
             ErrInvalidParameter, L"pIssuer=NULL");
    }
    STACK_OF(X509_CRL)* crls = m_pBuildCtx ? m_pBuildCtx->pCrls.get() : nullptr;
    if (crls == nullptr || sk_X509_CRL_num(crls) <= 0) {
        TLOG_WARNING(m_log, L"FindCrlWithPOE: No CRLs in extra store.");
        return nullptr;
    }
    const X509_NAME* issuerName = X509_get_subject_name(issuer->GetX509());
    for (int i = 0; i < sk_X509_CRL_num(crls); ++i) {
        X509_CRL* crl = sk_X509_CRL_value(crls, i);
        if (crl == nullptr) {
            Fail(m_log, L"FindCrlWithPOE: pCrlX509 is NULL.", ErrInternal, L"pCrlX509=NULL");
        }
        if (X509_NAME_cmp(X509_CRL_get_issuer(crl), issuerName) != 0) {
            continue;
        }
        std::int64_t poe = 0;
        if (VerifyCrl(crl, cert, issuer, time, poeStore, &poe) == 0) {
            continue;
        }
        if (poeOut != nullptr) {
            *poeOut = poe;
        }
        return new X509Crl(chain::CrlFor(m_pBuildCtx.get(), crl));
    }
    return nullptr;
}

void X509Chain::CheckRevocationWithPOE(const X509Certificate* cert, stack_st_X509* path, int index,
                                       const std::int64_t& time, ValidationDataStore* poeStore,
                                       std::int64_t* revokedAt) {
    if (cert == nullptr) {
        Fail(m_log, L"CheckRevocationWithPOE: pCert is NULL", ErrInvalidParameter, L"pCert=NULL");
    }
    if (revokedAt != nullptr) {
        *revokedAt = 0;
    }
    if (cert->IsSelfSigned() != 0) {
        return;  // anchors are not checked
    }
    if (path == nullptr || index < 0 || sk_X509_num(path) <= index + 1) {
        Fail(m_log, L"CheckRevocationWithPOE: Index out of bounds", ErrOutOfBounds,
             L"sk_X509_num(pChain) <= index");
    }
    const X509ChainPolicy& policy = PolicyOf(m_policy);
    const X509Certificate issuer = CertificateFor(sk_X509_value(path, index + 1));

    // A CRL downloaded now is proven to exist only from now on.
    auto fromClient = [&](std::int64_t* poe) -> std::unique_ptr<X509Crl> {
        X509CrlClient* client = policy.GetCrlClient();
        if ((policy.GetChainBuildMode() & X509ChainPolicy::cptChainBuildClients) == 0 ||
            client == nullptr) {
            return nullptr;
        }
        const X509Crl* candidate = client->GetCrlAfterTime(*cert, time, &issuer);
        if (candidate == nullptr || candidate->GetX509Crl() == nullptr ||
            VerifyCrl(candidate->GetX509Crl(), cert, &issuer, time, nullptr, nullptr) == 0) {
            return nullptr;
        }
        *poe = CryptUtils::GetCurrentTimeUTC();
        return std::make_unique<X509Crl>(*candidate);
    };

    std::int64_t crlPoe = 0;
    std::unique_ptr<X509Crl> crl(FindCrlWithPOE(cert, &issuer, time, poeStore, &crlPoe));
    if (!crl) {
        crl = fromClient(&crlPoe);
    }
    if (!crl) {
        TLOG_ERROR(m_log,
                   L"CheckRevocationWithPOE: Unable to obtain CRL. Certificate: %ls. "
                   L"Issuer: %ls. Time: %ls",
                   Subject(*cert).c_str(), Subject(issuer).c_str(),
                   x509::FormatLogTime(time).c_str());
        Fail(ErrRevocationUnknown, L"GetCrl()=NULL or GetCrl()->GetX509Crl()=NULL");
    }

    // The issuer is judged when its authority was last needed: when the
    // certificate or the CRL was proven to exist, or at the time asked.
    std::int64_t certPoe = 0;
    poeStore->GetPOECertificate(cert, &certPoe);
    const std::int64_t nextTime = std::max({certPoe, time, crlPoe});
    std::int64_t issuerRevokedAt = 0;
    CheckRevocationWithPOE(&issuer, path, index + 1, nextTime, poeStore, &issuerRevokedAt);

    if (issuerRevokedAt > 0) {
        if (issuerRevokedAt < certPoe) {
            TLOG_ERROR(m_log,
                       L"CheckRevocationWithPOE: Certificate POE is higher than issuer "
                       L"revocation time. Certificate: %ls. Certificate POE: %ls Issuer: %ls. "
                       L"Issuer revocation time: %ls. Time: %ls",
                       Subject(*cert).c_str(), x509::FormatLogTime(certPoe).c_str(),
                       Subject(issuer).c_str(), x509::FormatLogTime(issuerRevokedAt).c_str(),
                       x509::FormatLogTime(time).c_str());
            DeleteCertFromBuildCtx(issuer.GetX509());
            Fail(ErrCertPoeAfterRevocation, L"issuerRevocationTime < currCertPOE");
        }
        // Only a CRL that existed before its issuer was revoked still speaks
        // with the issuer's authority.
        while (crl && crlPoe >= issuerRevokedAt) {
            if (RemoveEqual(m_pBuildCtx->pCrls.get(), crl->GetX509Crl()) == 0) {
                crl.reset();  // the client's: the build's list has nothing else to offer
                break;
            }
            crl.reset(FindCrlWithPOE(cert, &issuer, time, poeStore, &crlPoe));
        }
        if (!crl) {
            crl = fromClient(&crlPoe);
        }
        if (!crl || crlPoe >= issuerRevokedAt) {
            TLOG_ERROR(m_log,
                       L"CheckRevocationWithPOE: Unable to obtain CRL before issuer revocation "
                       L"time: %ls. Certificate: %ls. Issuer: %ls. Time: %ls",
                       x509::FormatLogTime(issuerRevokedAt).c_str(), Subject(*cert).c_str(),
                       Subject(issuer).c_str(), x509::FormatLogTime(time).c_str());
            Fail(ErrRevocationUnknown, L"GetCrl()=NULL or GetCrl()->GetX509Crl()=NULL");
        }
    }

    poeStore->AddCrl(crl.get(), crlPoe);
    if (index < static_cast<int>(m_elements.GetSize())) {
        m_elements.GetAt(static_cast<unsigned>(index)).SetCrl(*crl);
    }
    // An entry of a delta CRL that takes a certificate off the list is no
    // revocation.
    X509CrlItem entry;
    if (revokedAt != nullptr && crl->GetCrlItem(*cert, entry) != 0 &&
        entry.GetRevocationReason() != CRL_REASON_REMOVE_FROM_CRL &&
        entry.GetRevocationTime() <= time) {
        *revokedAt = entry.GetRevocationTime();
    }
}

}  // namespace TesseraLib
