// The certificate checks that build a path: verification against a chain
// policy (also with proofs of existence), the issuer test and the
// qualified-certificate test.
#include <openssl/x509.h>

#include <memory>

#include "CryptException.h"
#include "CryptUtils.h"
#include "Failure.h"
#include "LogChannel.h"
#include "ValidationDataStore.h"
#include "X509Certificate.h"
#include "X509Chain.h"
#include "X509ChainPolicy.h"
#include "X509Crl.h"
#include "X509Store.h"

namespace TesseraLib {

namespace {

// 1 when a path of `cert` to an anchor of `policy` exists at `time`.
int PathExists(const X509Certificate& cert, const X509ChainPolicy& policy,
               const std::int64_t& time) {
    try {
        X509Chain(&policy).BuildPath(&cert, time);
        return 1;
    } catch (const CryptException&) {
        return 0;
    }
}

}  // namespace

void X509Certificate::Verify(cptVerifyOption option, const std::int64_t& time,
                             X509Certificate* issuer, X509ChainPolicy* policy,
                             X509Chain** chain) const {
    TLOG_INFO(m_log, L"Verify(VerifyOption:%d)", static_cast<int>(option));
    if (!m_x509) {
        TLOG_WARNING(m_log, L"Verify: m_pX509 is NULL");
        return;
    }
    if (chain != nullptr) {
        *chain = nullptr;
    }
    const std::int64_t when = time == 0 ? CryptUtils::GetCurrentTimeUTC() : time;
    CheckTimeValidityThrow(when);

    if (option == cptVerifyIssuerSignature) {
        if (issuer == nullptr) {
            Fail(m_log, L"Verify: Issuer certificate not set.", ErrInvalidParameter,
                 L"pIssuer=NULL");
        }
        VerifySignature(issuer->GetX509() != nullptr ? X509_get_pubkey(issuer->GetX509()) : nullptr,
                        1);
    } else if (option == cptVerifyWholeChain) {
        if (policy == nullptr) {
            Fail(m_log, L"Verify: Chain policy not set.", ErrInvalidParameter,
                 L"pChainPolicy=NULL");
        }
        auto built = std::make_unique<X509Chain>(policy);
        built->Build(this, when);
        if (chain != nullptr) {
            *chain = built.release();
        }
    }
}

namespace {

// A memory store with every certificate, CRL and OCSP response of `store`.
void FillFromValidationData(const LogChannel& log, const ValidationDataStore& store,
                            X509MemoryStore& memory) {
    const qorstd::QorVector<ValidationDataPOEItem>& certificates = store.GetCertificates();
    for (unsigned i = 0; i < certificates.GetSize(); ++i) {
        const X509Certificate* cert = certificates[i].GetCertificate();
        if (cert == nullptr || cert->GetX509() == nullptr) {
            Fail(log, L"Verify: crlNext.GetCertificate()->GetX509() is NULL", ErrInternal,
                 L"certNext.GetCertificate()=NULL or certNext.GetCertificate()->GetX509()=NULL");
        }
        memory.AddCertificate(*cert);
    }
    const qorstd::QorVector<ValidationDataPOEItem>& crls = store.GetCrls();
    for (unsigned i = 0; i < crls.GetSize(); ++i) {
        const X509Crl* crl = crls[i].GetCrl();
        if (crl == nullptr || crl->GetX509Crl() == nullptr) {
            Fail(log, L"Verify: crlNext.GetCrl()->GetX509Crl() is NULL", ErrInternal,
                 L"crlNext.GetCrl()=NULL or crlNext.GetCrl()->GetX509Crl()=NULL");
        }
        memory.AddCrl(*crl);
    }
    const qorstd::QorVector<ValidationDataPOEItem>& responses = store.GetOcsps();
    for (unsigned i = 0; i < responses.GetSize(); ++i) {
        if (responses[i].GetOcsp() == nullptr) {
            Fail(log, L"Verify: ocspNext.GetOcsp() is NULL", ErrInternal,
                 L"ocspNext.GetOcsp()=NULL");
        }
        memory.AddOcspResponse(*responses[i].GetOcsp());
    }
}

}  // namespace

void X509Certificate::Verify(cptVerifyOption option, const std::int64_t& time,
                             const X509ChainPolicy* policy, ValidationDataStore* store,
                             const X509Certificate* issuer, X509Chain** chain) const {
    TLOG_INFO(m_log, L"Verify(VerifyOption:%d)", static_cast<int>(option));
    if (!m_x509) {
        TLOG_WARNING(m_log, L"Verify: m_pX509 is NULL");
        return;
    }
    if (chain != nullptr) {
        *chain = nullptr;
    }
    // A past time is the point of proofs of existence: never replaced by now.
    CheckTimeValidityThrow(time);

    if (option == cptVerifyIssuerSignature) {
        if (issuer == nullptr) {
            Fail(m_log, L"Verify: Issuer certificate not set.", ErrInvalidParameter,
                 L"pIssuer=NULL");
        }
        VerifySignature(issuer->GetX509() != nullptr ? X509_get_pubkey(issuer->GetX509()) : nullptr,
                        1);
    } else if (option == cptVerifyWholeChain) {
        if (policy == nullptr) {
            Fail(m_log, L"Verify: Chain policy not set.", ErrInvalidParameter,
                 L"pChainPolicy=NULL");
        }
        const bool suppliedData =
            X509ChainPolicy::UseValidationDataStore(policy->GetChainBuildMode());
        if (suppliedData && store == nullptr) {
            Fail(m_log,
                 L"Verify: ChainBuildMode = cptChainBuildSuppliedValData but ValidationStore is "
                 L"not set",
                 ErrInvalidParameter,
                 L"GetChainBuildMode() & X509ChainPolicy::cptChainBuildSuppliedValData && pStore "
                 L"== NULL");
        }
        // The copy is a plain X509ChainPolicy: it takes the trust store the
        // caller's policy chooses for its purpose (a time-stamp policy
        // chooses by purpose), and an extra store of its own.
        X509ChainPolicy copy(*policy);
        copy.SetTrustStore(policy->GetTrustStore());
        X509MemoryStore validationData;
        if (suppliedData) {
            store->AddCertificate(this, time);
            FillFromValidationData(*m_log, *store, validationData);
            copy.SetExtraStore(&validationData);
        }
        auto built = std::make_unique<X509Chain>(&copy);
        built->BuildWithPOE(this, time, store);
        // The copy dies here; the chain handed out refers to the caller's policy.
        built->SetPolicy(policy);
        if (chain != nullptr) {
            *chain = built.release();
        }
    }
}

int X509Certificate::IsIssuerCert(const X509Certificate& candidate,
                                  const std::int64_t& time) const {
    if (!m_x509) {
        Fail(m_log, L"IsIssuerCert: GetX509() is NULL", ErrInternal, L"GetX509()=NULL");
    }
    if (candidate.GetX509() == nullptr) {
        Fail(m_log, L"IsIssuerCert: cert.GetX509() is NULL", ErrInvalidParameter,
             L"cert.GetX509()=NULL");
    }
    X509MemoryStore anchors;
    anchors.AddCertificate(candidate);
    X509ChainPolicy policy;
    policy.SetTrustStore(&anchors);
    return PathExists(*this, policy, time);
}

int X509Certificate::IsQualified(const std::int64_t& time, X509Store* trustStore,
                                 X509Store* extraStore) const {
    if (HasQualifiedQcStatement() == 0) {
        TLOG_DEBUG(m_log, L"IsQualified - Does not contain esi4-qcStatement-1.");
        return 0;
    }
    X509ChainPolicy policy;
    policy.SetTrustStore(trustStore);
    if (extraStore != nullptr) {
        policy.SetExtraStore(extraStore);
    }
    return PathExists(*this, policy, time);
}

}  // namespace TesseraLib
