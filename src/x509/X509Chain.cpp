// Path building: the build sequence, OpenSSL's verifier with our three
// callbacks, the error mapping, and the chain elements with their final
// revocation verdict.
#include <openssl/err.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <typeinfo>

#include "CryptException.h"
#include "CryptUtils.h"
#include "ExceptionRecording.h"
#include "Failure.h"
#include "LogChannel.h"
#include "QorTextConv.h"
#include "X509Store.h"
#include "x509/X509Bytes.h"
#include "x509/X509ChainContext.h"

template class qorstd::QorVector<TesseraLib::X509ChainElement>;
template class qorstd::QorVectorIterator<TesseraLib::X509ChainElement>;

namespace TesseraLib {

// ------------------------------------------------------------------ elements

X509ChainElement::X509ChainElement() = default;

X509ChainElement::X509ChainElement(const X509Certificate& certificate)
    : m_certificate(certificate) {}

X509ChainElement::X509ChainElement(const X509Certificate& certificate, const X509Crl& crl)
    : m_certificate(certificate), m_crl(std::make_unique<X509Crl>(crl)) {}

X509ChainElement::X509ChainElement(const X509Certificate& certificate,
                                   const QorOcsp2Lib::OcspResponse& response)
    : m_certificate(certificate),
      m_ocspResponse(std::make_unique<QorOcsp2Lib::OcspResponse>(response)) {}

X509ChainElement::X509ChainElement(const X509ChainElement& other)
    : m_certificate(other.m_certificate),
      m_crl(other.m_crl ? std::make_unique<X509Crl>(*other.m_crl) : nullptr),
      m_ocspResponse(other.m_ocspResponse
                         ? std::make_unique<QorOcsp2Lib::OcspResponse>(*other.m_ocspResponse)
                         : nullptr) {}

X509ChainElement& X509ChainElement::operator=(const X509ChainElement& other) {
    if (this != &other) {
        X509ChainElement copy(other);
        m_certificate = copy.m_certificate;
        m_crl = std::move(copy.m_crl);
        m_ocspResponse = std::move(copy.m_ocspResponse);
    }
    return *this;
}

X509ChainElement::~X509ChainElement() = default;

void X509ChainElement::SetCrl(const X509Crl& crl) {
    m_crl = std::make_unique<X509Crl>(crl);
}

void X509ChainElement::SetOcspResponse(const QorOcsp2Lib::OcspResponse& response) {
    m_ocspResponse = std::make_unique<QorOcsp2Lib::OcspResponse>(response);
}

// ------------------------------------------------------------ shared helpers

namespace chain {

int MapVerifyError(int error) {
    switch (error) {
        case X509_V_OK:
            return 0;
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
            return ErrChainIncomplete;
        case X509_V_ERR_UNABLE_TO_GET_CRL:
        case X509_V_ERR_UNABLE_TO_GET_CRL_ISSUER:
        case X509_V_ERR_KEYUSAGE_NO_CRL_SIGN:
        case X509_V_ERR_DIFFERENT_CRL_SCOPE:
            return ErrRevocationUnknown;
        case X509_V_ERR_CERT_SIGNATURE_FAILURE:
            return ErrCertBadSignature;
        case X509_V_ERR_CRL_SIGNATURE_FAILURE:
            return ErrCrlBadSignature;
        case X509_V_ERR_CERT_NOT_YET_VALID:
        case X509_V_ERR_CERT_HAS_EXPIRED:
            return ErrCertNotTimeValid;
        case X509_V_ERR_CRL_NOT_YET_VALID:
        case X509_V_ERR_CRL_HAS_EXPIRED:
            return ErrCrlNotTimeValid;
        case X509_V_ERR_OUT_OF_MEM:
            return ErrOutOfMemory;
        case X509_V_ERR_CERT_REVOKED:
            return ErrCertRevoked;
        case X509_V_ERR_INVALID_PURPOSE:
        case X509_V_ERR_KEYUSAGE_NO_CERTSIGN:
        case X509_V_ERR_KEYUSAGE_NO_DIGITAL_SIGNATURE:
            return ErrCertUsage;
        case X509_V_ERR_CERT_UNTRUSTED:
            return ErrUntrustedRoot;
        case X509_V_ERR_CERT_REJECTED:
            return ErrCertRejected;
        default:
            return ErrChainVerification;
    }
}

qorstd::QorStringW VerifyErrorText(int error) {
    return qorstd::text::NarrowToWide(X509_verify_cert_error_string(error), 0,
                                      qorstd::text::kCharsetProcess);
}

const wchar_t* Bool(int value) {
    return value != 0 ? L"TRUE" : L"FALSE";
}

bool NeedsRevocationCheck(X509ChainPolicy::cptRevocationOption option, int index,
                          const X509* certificate) {
    switch (option) {
        case X509ChainPolicy::revOptionEndEntity:
            return index == 0;
        case X509ChainPolicy::revOptionChain:
            return !x509::IsIssuedBy(certificate, certificate);
        case X509ChainPolicy::revOptionWholeChain:
            return true;
        default:
            return false;
    }
}

}  // namespace chain

namespace {

constexpr const wchar_t* kChannelName = L"X509Chain";

QorVerifyData* VerifyDataOf(const X509_STORE_CTX* storeCtx) {
    return static_cast<QorVerifyData*>(X509_STORE_CTX_get_ex_data(storeCtx, 0));
}

// Reports `error` to the verification callback the way the verifier does.
int ReportToVerifyCallback(X509_STORE_CTX* storeCtx, int error) {
    X509_STORE_CTX_set_error(storeCtx, error);
    X509_STORE_CTX_verify_cb callback = X509_STORE_CTX_get_verify_cb(storeCtx);
    return callback != nullptr ? callback(0, storeCtx) : 0;
}

// The extensions OpenSSL's CRL processing understands; any other critical
// one makes the CRL unusable unless the caller chose to ignore them.
bool HasUnhandledCriticalExtension(const X509_CRL* crl) {
    const STACK_OF(X509_EXTENSION)* extensions = X509_CRL_get0_extensions(crl);
    for (int i = 0; i < sk_X509_EXTENSION_num(extensions); ++i) {
        X509_EXTENSION* extension = sk_X509_EXTENSION_value(extensions, i);
        if (X509_EXTENSION_get_critical(extension) == 0) {
            continue;
        }
        const int nid = OBJ_obj2nid(X509_EXTENSION_get_object(extension));
        if (nid != NID_issuing_distribution_point && nid != NID_authority_key_identifier &&
            nid != NID_delta_crl) {
            return true;
        }
    }
    STACK_OF(X509_REVOKED)* revoked = X509_CRL_get_REVOKED(const_cast<X509_CRL*>(crl));
    for (int i = 0; i < sk_X509_REVOKED_num(revoked); ++i) {
        const STACK_OF(X509_EXTENSION)* entryExtensions =
            X509_REVOKED_get0_extensions(sk_X509_REVOKED_value(revoked, i));
        for (int j = 0; j < sk_X509_EXTENSION_num(entryExtensions); ++j) {
            X509_EXTENSION* extension = sk_X509_EXTENSION_value(entryExtensions, j);
            if (X509_EXTENSION_get_critical(extension) != 0 &&
                OBJ_obj2nid(X509_EXTENSION_get_object(extension)) != NID_certificate_issuer) {
                return true;
            }
        }
    }
    return false;
}

// The verification callback: revocation findings are left to the library's
// own verdict, CRL processing problems are remembered per depth for it.
int VerifyCallback(int ok, X509_STORE_CTX* storeCtx) {
    const int error = X509_STORE_CTX_get_error(storeCtx);
    if (error == X509_V_ERR_UNABLE_TO_GET_CRL || error == X509_V_ERR_CERT_REVOKED) {
        X509_STORE_CTX_set_error(storeCtx, X509_V_OK);
        return 1;
    }
    if (error == X509_V_ERR_CRL_NOT_YET_VALID || error == X509_V_ERR_CRL_HAS_EXPIRED) {
        return 1;
    }
    if (ok == 0 && X509_STORE_CTX_get0_current_crl(storeCtx) != nullptr) {
        QorVerifyData* verifyData = VerifyDataOf(storeCtx);
        if (verifyData != nullptr) {
            verifyData->crlErrorsByDepth[X509_STORE_CTX_get_error_depth(storeCtx)].push_back(error);
        }
        return 1;
    }
    return ok;
}

// Checks one certificate against one CRL and records which CRL spoke for
// which depth.
int CertCrlCallback(X509_STORE_CTX* storeCtx, X509_CRL* crl, X509* certificate) {
    QorVerifyData* verifyData = VerifyDataOf(storeCtx);
    if (verifyData == nullptr) {
        if (ReportToVerifyCallback(storeCtx, X509_V_ERR_APPLICATION_VERIFICATION) == 0) {
            return 0;
        }
    } else {
        verifyData->crlsUsedByDepth[X509_STORE_CTX_get_error_depth(storeCtx)] = crl;
    }
    const X509_VERIFY_PARAM* params = X509_STORE_CTX_get0_param(storeCtx);
    const unsigned long flags = X509_VERIFY_PARAM_get_flags(params);
    if ((flags & X509_V_FLAG_IGNORE_CRITICAL) == 0 && HasUnhandledCriticalExtension(crl) &&
        ReportToVerifyCallback(storeCtx, X509_V_ERR_UNHANDLED_CRITICAL_CRL_EXTENSION) == 0) {
        return 0;
    }
    X509_REVOKED* entry = nullptr;
    if (X509_CRL_get0_by_cert(crl, &entry, certificate) == 0 || entry == nullptr) {
        return 1;
    }
    int reasonCritical = 0;
    Asn1EnumeratedPtr reason(static_cast<ASN1_ENUMERATED*>(
        X509_REVOKED_get_ext_d2i(entry, NID_crl_reason, &reasonCritical, nullptr)));
    if (reason && ASN1_ENUMERATED_get(reason.get()) == CRL_REASON_REMOVE_FROM_CRL) {
        return 2;
    }
    if ((flags & X509_V_FLAG_USE_CHECK_TIME) != 0) {
        time_t checkTime = X509_VERIFY_PARAM_get_time(params);
        const int order = X509_cmp_time(X509_REVOKED_get0_revocationDate(entry), &checkTime);
        if (order > 0) {
            return 1;  // not yet revoked at the check time
        }
        if (order == 0) {
            return ReportToVerifyCallback(storeCtx, X509_V_ERR_APPLICATION_VERIFICATION) != 0 ? 1
                                                                                              : 0;
        }
    }
    return ReportToVerifyCallback(storeCtx, X509_V_ERR_CERT_REVOKED) != 0 ? 1 : 0;
}

// Hands the verifier the collected CRLs of an issuer that were issued while
// the certificate being checked was valid.
STACK_OF(X509_CRL) * LookupCrlsCallback(const X509_STORE_CTX* storeCtx, const X509_NAME* name) {
    const QorVerifyData* verifyData = VerifyDataOf(storeCtx);
    X509* certificate = X509_STORE_CTX_get_current_cert(storeCtx);
    if (verifyData == nullptr || verifyData->crls == nullptr || certificate == nullptr) {
        return nullptr;
    }
    const ASN1_TIME* notBefore = X509_get0_notBefore(certificate);
    const ASN1_TIME* notAfter = X509_get0_notAfter(certificate);
    if (notBefore == nullptr || notAfter == nullptr) {
        return nullptr;
    }
    X509CrlStackPtr found(sk_X509_CRL_new_null());
    if (!found) {
        return nullptr;
    }
    for (int i = 0; i < sk_X509_CRL_num(verifyData->crls); ++i) {
        X509_CRL* crl = sk_X509_CRL_value(verifyData->crls, i);
        if (X509_NAME_cmp(X509_CRL_get_issuer(crl), name) != 0) {
            continue;
        }
        int days = 0;
        int seconds = 0;
        const ASN1_TIME* thisUpdate = X509_CRL_get0_lastUpdate(crl);
        // Strictly inside the validity period: thisUpdate after notBefore...
        if (ASN1_TIME_diff(&days, &seconds, notBefore, thisUpdate) == 0 ||
            (days <= 0 && seconds <= 0)) {
            continue;
        }
        // ... and before notAfter.
        if (ASN1_TIME_diff(&days, &seconds, thisUpdate, notAfter) == 0 ||
            (days <= 0 && seconds <= 0)) {
            continue;
        }
        X509CrlPtr reference = UpRef(crl);
        if (reference && sk_X509_CRL_push(found.get(), reference.get()) > 0) {
            reference.release();  // now owned by the stack
        }
    }
    return found.release();
}

}  // namespace

// ------------------------------------------------------------------ the chain

X509Chain::X509Chain() : X509Chain(nullptr) {}

X509Chain::X509Chain(const X509ChainPolicy* policy)
    : m_policy(policy), m_verifyTime(0), m_log(std::make_unique<LogChannel>(kChannelName)) {}

X509Chain::X509Chain(const X509Chain& other)
    : m_policy(other.m_policy),
      m_elements(other.m_elements),
      m_verifyTime(other.m_verifyTime),
      m_exceptionStore(other.m_exceptionStore),
      m_log(std::make_unique<LogChannel>(kChannelName)) {}

X509Chain& X509Chain::operator=(const X509Chain& other) {
    if (this != &other) {
        m_policy = other.m_policy;
        m_elements = other.m_elements;
        m_verifyTime = other.m_verifyTime;
        m_exceptionStore = other.m_exceptionStore;
    }
    return *this;
}

X509Chain::~X509Chain() = default;

X509Chain* X509Chain::CloneX509Chain() const {
    return new X509Chain(*this);
}

void X509Chain::Reset() {
    if (m_policy != nullptr) {
        // The chain only reads its policy during a build; Reset is the one
        // documented exception.
        const_cast<X509ChainPolicy*>(m_policy)->Reset();
    }
    m_elements.RemoveAll();
    m_verifyTime = 0;
    m_exceptionStore.Reset();
    m_pBuildCtx.reset();
}

qorstd::QorVector<X509Certificate> X509Chain::EnumCertificates() const {
    qorstd::QorVector<X509Certificate> result;
    for (unsigned i = 0; i < m_elements.GetSize(); ++i) {
        result.Add(*m_elements[i].GetCertificate());
    }
    return result;
}

qorstd::QorVector<X509Crl> X509Chain::EnumCrls() const {
    qorstd::QorVector<X509Crl> result;
    for (unsigned i = 0; i < m_elements.GetSize(); ++i) {
        if (m_elements[i].GetCrl() != nullptr) {
            result.Add(*m_elements[i].GetCrl());
        }
    }
    return result;
}

QorOcsp2Lib::OcspVector<QorOcsp2Lib::OcspResponse> X509Chain::EnumOcspResponses() const {
    QorOcsp2Lib::OcspVector<QorOcsp2Lib::OcspResponse> result;
    for (unsigned i = 0; i < m_elements.GetSize(); ++i) {
        if (m_elements[i].GetOcspResponse() != nullptr) {
            result.Add(*m_elements[i].GetOcspResponse());
        }
    }
    return result;
}

// ------------------------------------------------------------ build sequence

void X509Chain::LogBuildStart(const wchar_t* operation, const X509Certificate* cert) const {
    if (cert != nullptr) {
        TLOG_INFO(m_log, L"%ls(Cert:%ls CertSN:%ls CertIssuer:%ls)", operation,
                  cert->GetSubjectStringX500(0).c_str(),
                  x509::Widen(cert->GetSerialNumberStringDec()).c_str(),
                  cert->GetIssuerStringX500(0).c_str());
    }
    if (m_policy == nullptr) {
        return;
    }
    TLOG_DEBUG(m_log, L"X509ChainPolicy: RevocationOption=%d",
               static_cast<int>(m_policy->GetRevocationOption()));
    TLOG_DEBUG(m_log, L"X509ChainPolicy: RevocationMode=%d",
               static_cast<int>(m_policy->GetRevocationMode()));
    const CautionPeriod& period = m_policy->GetDefaultCautionPeriod();
    TLOG_DEBUG(m_log,
               L"X509ChainPolicy: DefaultCautionPeriod(Days:Hours:Minutes:Seconds)=%d:%d:%d:%d",
               period.m_days, period.m_hours, period.m_minutes, period.m_seconds);
    const qorstd::QorVector<CautionPeriodIssuer>& periods = m_policy->GetCautionPeriods();
    for (unsigned i = 0; i < periods.GetSize(); ++i) {
        const CautionPeriod entry = periods[i].GetCautionPeriod();
        TLOG_DEBUG(m_log,
                   L"X509ChainPolicy: CautionPeriod for issuer %ls "
                   L"(Days:Hours:Minutes:Seconds)=%d:%d:%d:%d",
                   x509::Widen(periods[i].GetIssuer()).c_str(), entry.m_days, entry.m_hours,
                   entry.m_minutes, entry.m_seconds);
    }
}

void X509Chain::RecordFailure() {
    if (m_exceptionStore.IsEmpty()) {
        RecordCurrentException(m_exceptionStore);
    }
}

void X509Chain::Build(const X509Certificate* cert, const std::int64_t& time) {
    try {
        LogBuildStart(L"Build", cert);
        m_verifyTime = time != 0 ? time : CryptUtils::GetCurrentTimeUTC();
        BuildCheckParams(cert);
        BuildInitializeCtx(cert);
        BuildSolve(cert);
        BuildDestroyCtx();
    } catch (...) {
        BuildDestroyCtx();
        RecordFailure();
        throw;
    }
}

void X509Chain::BuildPath(const X509Certificate* cert, const std::int64_t& time) {
    m_verifyTime = time != 0 ? time : CryptUtils::GetCurrentTimeUTC();
    try {
        if (cert == nullptr || cert->GetX509() == nullptr) {
            Fail(ErrInvalidParameter, L"cert.GetX509()=NULL");
        }
        BuildInitializeCtx(cert);
        X509StackPtr path(BuildPath(cert));
        BuildDestroyCtx();
    } catch (...) {
        BuildDestroyCtx();
        throw;
    }
}

void X509Chain::BuildCheckParams(const X509Certificate* cert) {
    if (cert == nullptr || cert->GetX509() == nullptr) {
        Fail(m_log, L"BuildCheckParams: cert.GetX509() is NULL", ErrInvalidParameter,
             L"cert.GetX509()=NULL");
    }
    if (m_policy == nullptr) {
        Fail(m_log, L"BuildCheckParams: Chain policy not set.", ErrInvalidParameter,
             L"m_policy=NULL");
    }
    if (m_policy->GetRevocationOption() == X509ChainPolicy::revOptionNone ||
        (m_policy->GetChainBuildMode() & X509ChainPolicy::cptChainBuildClients) == 0) {
        return;
    }
    const X509ChainPolicy::cptRevocationMode mode = m_policy->GetRevocationMode();
    if (X509ChainPolicy::IsRevCRLMode(mode) && m_policy->GetCrlClient() == nullptr) {
        TLOG_WARNING(m_log, L"BuildCheckParams: CRL client not set.");
    }
    if (X509ChainPolicy::IsRevOCSPMode(mode) && m_policy->GetOcspClient() == nullptr) {
        TLOG_WARNING(m_log, L"BuildCheckParams: Ocsp client not set.");
    }
}

namespace {

// The handles of a store's certificates in the store's order (each with a
// reference of its own); null for an empty store. The certificate objects
// stay reachable through the context's `known` lists.
X509StackPtr GetCertificates(const LogChannel& log, const X509Store* store,
                             X509Chain::BuildContext& context) {
    if (store == nullptr) {
        Fail(ErrInvalidParameter, L"pStore=NULL");
    }
    // A plain memory store lends its certificates; any other store's are
    // kept as GetCertificates returns them, without a second copy.
    if (typeid(*store) == typeid(X509MemoryStore)) {
        context.known.push_back(&static_cast<const X509MemoryStore*>(store)->GetCertificateList());
    } else {
        context.ownedKnown.emplace_back(
            new qorstd::QorVector<X509Certificate>(store->GetCertificates()));
        context.known.push_back(context.ownedKnown.back().get());
    }
    const qorstd::QorVector<X509Certificate>& certificates = *context.known.back();
    if (certificates.GetSize() == 0) {
        TLOG_WARNING(log, L"GetCertificates: No certificates.");
        return nullptr;
    }
    X509StackPtr result(sk_X509_new_reserve(nullptr, static_cast<int>(certificates.GetSize())));
    if (!result) {
        Fail(ErrInternal, L"pCert=NULL");
    }
    for (unsigned i = 0; i < certificates.GetSize(); ++i) {
        X509* handle = certificates[i].GetX509();
        if (handle == nullptr) {
            Fail(ErrInternal, L"certNext.GetX509()=NULL");
        }
        X509Ptr reference = UpRef(handle);
        if (!reference || sk_X509_push(result.get(), reference.get()) <= 0) {
            Fail(ErrInternal, L"pCert=NULL");
        }
        reference.release();  // now owned by the stack
    }
    return result;
}

// A new OpenSSL store holding every certificate of `store`.
X509StorePtr CreateStore(const X509Store& store) {
    X509StorePtr result(X509_STORE_new());
    if (!result) {
        Fail(ErrInternal, L"pX509Store=NULL");
    }
    const qorstd::QorVector<X509Certificate> certificates = store.GetCertificates();
    for (unsigned i = 0; i < certificates.GetSize(); ++i) {
        if (certificates[i].GetX509() == nullptr) {
            Fail(ErrInternal, L"certNext.GetX509()=NULL");
        }
        // Adding a certificate that is already there is not an error.
        X509_STORE_add_cert(result.get(), certificates[i].GetX509());
    }
    ERR_clear_error();
    return result;
}

}  // namespace

void X509Chain::BuildInitializeCtx(const X509Certificate* cert) {
    m_pBuildCtx = std::make_unique<BuildContext>();
    if (cert != nullptr && cert->GetX509() != nullptr) {
        m_pBuildCtx->ownedKnown.emplace_back(new qorstd::QorVector<X509Certificate>());
        m_pBuildCtx->ownedKnown.back()->Add(*cert);
        m_pBuildCtx->known.push_back(m_pBuildCtx->ownedKnown.back().get());
    }
    const bool useStores = m_policy != nullptr &&
                           X509ChainPolicy::UseValidationDataStore(m_policy->GetChainBuildMode());
    if (useStores) {
        X509Store* trustStore = m_policy->GetTrustStore();
        if (trustStore == nullptr) {
            Fail(m_log, L"BuildInitializeCtx: Trusted store not set.", ErrInvalidParameter,
                 L"m_policy->GetTrustStore()=NULL");
        }
        m_pBuildCtx->pTrustStore = CreateStore(*trustStore);
        m_pBuildCtx->trustedCerts = GetCertificates(*m_log, trustStore, *m_pBuildCtx);
        if (const X509Store* extraStore = m_policy->GetExtraStore()) {
            m_pBuildCtx->extraCerts = GetCertificates(*m_log, extraStore, *m_pBuildCtx);
        }
    } else {
        m_pBuildCtx->pTrustStore.reset(X509_STORE_new());
    }
    if (!m_pBuildCtx->pTrustStore) {
        Fail(m_log, L"BuildInitializeCtx: TrustStore is null.", ErrInternal,
             L"m_pBuildCtx->pTrustStore=NULL");
    }
    m_pBuildCtx->pStoreCtx.reset(X509_STORE_CTX_new());
    if (!m_pBuildCtx->pStoreCtx) {
        m_pBuildCtx->pTrustStore.reset();
        Fail(m_log, L"BuildInitializeCtx: Unable to create store context.", ErrInternal,
             L"pStoreCtx=NULL");
    }
    m_pBuildCtx->pCrls.reset(sk_X509_CRL_new_null());
}

void X509Chain::BuildDestroyCtx() {
    if (!m_pBuildCtx) {
        return;
    }
    if (m_pBuildCtx->pStoreCtx) {
        X509_STORE_CTX_set_ex_data(m_pBuildCtx->pStoreCtx.get(), 0, nullptr);
    }
    m_pBuildCtx.reset();
}

stack_st_X509* X509Chain::BuildPath(const X509Certificate* cert) {
    if (!m_pBuildCtx) {
        Fail(m_log, L"BuildPath: m_pBuildCtx is NULL.", ErrInternal, L"m_pBuildCtx=NULL");
    }
    X509_STORE_CTX* storeCtx = m_pBuildCtx->pStoreCtx.get();
    X509_STORE_CTX_cleanup(storeCtx);
    // The plain path, without the callbacks a previous verification left on
    // the store.
    X509_STORE_set_cert_crl(m_pBuildCtx->pTrustStore.get(), nullptr);
    X509_STORE_set_lookup_crls(m_pBuildCtx->pTrustStore.get(), nullptr);
    if (X509_STORE_CTX_init(storeCtx, m_pBuildCtx->pTrustStore.get(), cert->GetX509(),
                            m_pBuildCtx->extraCerts.get()) != 1) {
        Fail(m_log, L"BuildPath: Unable to initialize store context.", ErrInternal,
             L"X509_STORE_CTX_init() failed");
    }
    X509_STORE_CTX_set_time(storeCtx, 0, static_cast<time_t>(m_verifyTime));
    if (m_policy != nullptr) {
        X509_STORE_CTX_set_purpose(storeCtx, m_policy->GetPurpose());
    }
    if (X509_verify_cert(storeCtx) != 1) {
        const int error = X509_STORE_CTX_get_error(storeCtx);
        const qorstd::QorStringW text = chain::VerifyErrorText(error);
        TLOG_ERROR(m_log, L"BuildPath: X509_verify_cert() failed. %ls", text.c_str());
        Fail(chain::MapVerifyError(error), text.c_str());
    }
    X509StackPtr path(X509_STORE_CTX_get1_chain(storeCtx));
    if (!path) {
        Fail(m_log, L"BuildPath: X509_STORE_CTX_get_chain() failed.", ErrChainVerification);
    }
    TLOG_DEBUG(m_log, L"BuildPath: Chain length: %i.", sk_X509_num(path.get()));
    return path.release();
}

void X509Chain::BuildSolve(const X509Certificate* cert) {
    try {
        TLOG_DEBUG(m_log, L"BuildSolve");
        m_elements.RemoveAll();
        FindRevocationElements(cert);

        X509_STORE_CTX* storeCtx = m_pBuildCtx->pStoreCtx.get();
        X509_STORE_CTX_cleanup(storeCtx);
        // OpenSSL 3 takes these two callbacks only from the store when the
        // context is initialised; the store is this build's own.
        X509_STORE_set_cert_crl(m_pBuildCtx->pTrustStore.get(), CertCrlCallback);
        X509_STORE_set_lookup_crls(m_pBuildCtx->pTrustStore.get(), LookupCrlsCallback);
        if (X509_STORE_CTX_init(storeCtx, m_pBuildCtx->pTrustStore.get(), cert->GetX509(),
                                m_pBuildCtx->extraCerts.get()) != 1) {
            Fail(m_log, L"BuildSolve: Unable to initialize store context.", ErrInternal,
                 L"X509_STORE_CTX_init() failed");
        }
        m_pBuildCtx->verifyData = std::make_unique<QorVerifyData>();
        X509_STORE_CTX_set_ex_data(storeCtx, 0, m_pBuildCtx->verifyData.get());

        const X509ChainPolicy::cptRevocationMode mode = m_policy->GetRevocationMode();
        unsigned long flags = 0;
        if (X509ChainPolicy::IsRevCRLMode(mode)) {
            const X509ChainPolicy::cptRevocationOption option = m_policy->GetRevocationOption();
            if (option == X509ChainPolicy::revOptionEndEntity) {
                flags |= X509_V_FLAG_CRL_CHECK;
            } else if (option == X509ChainPolicy::revOptionChain ||
                       option == X509ChainPolicy::revOptionWholeChain) {
                flags |= X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL;
            }
        }
        if (X509_VERIFY_PARAM* params = X509_STORE_CTX_get0_param(storeCtx)) {
            if (m_policy->GetCheckPolicy() != 0 || m_policy->GetRequireExplicitPolicy() != 0 ||
                m_policy->GetInhibitAnyPolicy() != 0) {
                flags |= X509_V_FLAG_POLICY_CHECK;
            }
            if (m_policy->GetRequireExplicitPolicy() != 0) {
                flags |= X509_V_FLAG_EXPLICIT_POLICY;
            }
            if (m_policy->GetInhibitPolicyMapping() != 0) {
                flags |= X509_V_FLAG_INHIBIT_MAP;
            }
            if (m_policy->GetInhibitAnyPolicy() != 0) {
                flags |= X509_V_FLAG_INHIBIT_ANY;
            }
            const qorstd::QorVector<qorstd::QorString>& policies =
                m_policy->GetAcceptablePolicies();
            for (unsigned i = 0; i < policies.GetSize(); ++i) {
                Asn1ObjectPtr policy(OBJ_txt2obj(policies[i].c_str(), 0));
                if (!policy || X509_VERIFY_PARAM_add0_policy(params, policy.get()) != 1) {
                    Fail(m_log, L"BuildSolve: X509_VERIFY_PARAM_add0_policy failed.", ErrInternal,
                         L"X509_VERIFY_PARAM_add0_policy()");
                }
                policy.release();  // the parameters own it now
            }
            if (m_policy->GetMaxPathLen() >= 0) {
                X509_VERIFY_PARAM_set_depth(params, m_policy->GetMaxPathLen());
            }
            X509_VERIFY_PARAM_set_time(params, static_cast<time_t>(m_verifyTime));
            X509_VERIFY_PARAM_set_flags(params, flags);
        }
        if (m_pBuildCtx->pCrls && X509ChainPolicy::IsRevCRLMode(mode)) {
            m_pBuildCtx->verifyData->crls = m_pBuildCtx->pCrls.get();
        }
        X509_STORE_CTX_set_purpose(storeCtx, m_policy->GetPurpose());
        X509_STORE_CTX_set_verify_cb(storeCtx, VerifyCallback);

        TLOG_DEBUG(m_log, L"BuildSolve: X509_verify_cert(VerifyTime(UTC)=%ls Flags:%d)",
                   x509::FormatLogTime(m_verifyTime).c_str(), static_cast<int>(flags));
        if (X509_verify_cert(storeCtx) != 1) {
            const int error = X509_STORE_CTX_get_error(storeCtx);
            const qorstd::QorStringW text = chain::VerifyErrorText(error);
            TLOG_ERROR(m_log, L"BuildSolve: X509_verify_cert() failed. %ls", text.c_str());
            Fail(chain::MapVerifyError(error), text.c_str());
        }
        UpdateChainElements(storeCtx);
        VerifyChainElements(storeCtx, m_verifyTime);
    } catch (...) {
        BuildDestroyCtx();
        throw;
    }
}

// ------------------------------------------------------------------ elements

void X509Chain::UpdateChainElements(const x509_store_ctx_st* storeCtx) {
    STACK_OF(X509)* path = X509_STORE_CTX_get0_chain(storeCtx);
    if (path == nullptr) {
        Fail(m_log, L"UpdateChainElemens: X509_STORE_CTX_get_chain() failed.",
             ErrChainVerification);
    }
    const QorVerifyData* verifyData = VerifyDataOf(storeCtx);
    if (verifyData == nullptr) {
        Fail(ErrInternal, L"verifyData=NULL");
    }
    const X509ChainPolicy::cptRevocationMode mode = m_policy->GetRevocationMode();
    for (int depth = 0; depth < sk_X509_num(path); ++depth) {
        const X509* certificate = sk_X509_value(path, depth);
        if (certificate == nullptr) {
            Fail(ErrInternal, L"pX509=NULL");
        }
        if (!chain::NeedsRevocationCheck(m_policy->GetRevocationOption(), depth, certificate)) {
            // No revocation data for it, but the path keeps one element per
            // certificate.
            UpdateChainElement(certificate, nullptr, nullptr);
            continue;
        }
        const X509_CRL* crl = nullptr;
        if (X509ChainPolicy::IsRevCRLMode(mode)) {
            const auto used = verifyData->crlsUsedByDepth.find(depth);
            if (used != verifyData->crlsUsedByDepth.end()) {
                crl = used->second;
            }
        }
        const QorOcsp2Lib::OcspResponse* ocsp = nullptr;
        if (X509ChainPolicy::IsRevOCSPMode(mode)) {
            for (unsigned i = 0; i < m_elements.GetSize(); ++i) {
                if (m_elements[i].GetOcspResponse() != nullptr &&
                    X509_cmp(m_elements[i].GetCertificate()->GetX509(), certificate) == 0) {
                    ocsp = m_elements[i].GetOcspResponse();
                    break;
                }
            }
        }
        if (mode == X509ChainPolicy::revCrl && crl == nullptr) {
            Fail(m_log, L"UpdateChainElemens: Unable to obtain CRL.", ErrRevocationUnknown,
                 L"pX509Crl=NULL");
        }
        if (mode == X509ChainPolicy::revOcsp && ocsp == nullptr) {
            Fail(m_log, L"UpdateChainElemens: Unable to obtain OCSP.", ErrRevocationUnknown,
                 L"pOcspResp=NULL");
        }
        if (mode == X509ChainPolicy::revOcspOrCrl && crl == nullptr && ocsp == nullptr) {
            Fail(m_log, L"UpdateChainElemens: Unable to obtain OCSP or CRL.", ErrRevocationUnknown,
                 L"pOcspResp=NULL && pX509Crl=NULL");
        }
        // The response belongs to an element that may be replaced below.
        std::unique_ptr<QorOcsp2Lib::OcspResponse> ocspCopy(
            ocsp != nullptr ? new QorOcsp2Lib::OcspResponse(*ocsp) : nullptr);
        UpdateChainElement(certificate, crl, ocspCopy.get());
    }
}

void X509Chain::VerifyChainElements(const x509_store_ctx_st* storeCtx,
                                    const std::int64_t& verifyTime) {
    STACK_OF(X509)* path = X509_STORE_CTX_get0_chain(storeCtx);
    if (path == nullptr) {
        Fail(m_log, L"VerifyChainElements: X509_STORE_CTX_get_chain() failed.", ErrInternal,
             L"pChain=NULL");
    }
    const QorVerifyData* verifyData = VerifyDataOf(storeCtx);
    if (verifyData == nullptr) {
        Fail(ErrInternal, L"verifyData=NULL");
    }
    if (static_cast<int>(m_elements.GetSize()) != sk_X509_num(path)) {
        Fail(m_log, L"VerifyChainElements: Counting chain elements failed.", ErrChainVerification,
             L"elements.size!=chain.size");
    }
    const X509ChainPolicy::cptRevocationMode mode = m_policy->GetRevocationMode();
    for (int depth = 0; depth < sk_X509_num(path); ++depth) {
        const X509* certificate = sk_X509_value(path, depth);
        if (certificate == nullptr) {
            Fail(ErrInternal, L"pX509=NULL");
        }
        const X509ChainElement& element = m_elements[static_cast<unsigned>(depth)];
        const X509* elementCertificate = element.GetCertificate()->GetX509();
        if (elementCertificate == nullptr) {
            Fail(ErrInternal, L"pX509Elem=NULL");
        }
        if (X509_cmp(certificate, elementCertificate) != 0) {
            Fail(m_log, L"VerifyChainElements: X509_cmp() failed.", ErrChainVerification,
                 L"pX509!=pX509Elem");
        }
        if (!chain::NeedsRevocationCheck(m_policy->GetRevocationOption(), depth, certificate)) {
            continue;
        }
        const X509Crl* crl = element.GetCrl();
        const QorOcsp2Lib::OcspResponse* ocsp = element.GetOcspResponse();
        if (mode == X509ChainPolicy::revOcsp && ocsp == nullptr) {
            Fail(m_log, L"VerifyChainElements: OCSP response not present.", ErrRevocationUnknown);
        }
        if (mode == X509ChainPolicy::revCrl && crl == nullptr) {
            Fail(m_log, L"VerifyChainElements: CRL response not present.", ErrRevocationUnknown);
        }
        const X509Certificate* cert = element.GetCertificate();
        const CautionPeriod cautionPeriod = m_policy->GetCautionPeriod(cert->GetSHA1HashHex());
        if (X509ChainPolicy::IsRevOCSPMode(mode) && ocsp != nullptr) {
            if (VerifyCertOcspResponseCallback callback =
                    m_policy->GetVerifyCertOcspResponseCallback()) {
                callback(cert, *ocsp, verifyTime, cautionPeriod);
            } else {
                VerifyCertOcspResponse(cert, *ocsp, verifyTime, cautionPeriod);
            }
            continue;
        }
        if (X509ChainPolicy::IsRevCRLMode(mode) && crl != nullptr) {
            const auto errors = verifyData->crlErrorsByDepth.find(depth);
            if (errors != verifyData->crlErrorsByDepth.end() && !errors->second.empty()) {
                const qorstd::QorStringW text = chain::VerifyErrorText(errors->second.front());
                TLOG_ERROR(m_log,
                           L"VerifyChainElements: CRL verification failed (error "
                           L"occured in OpenSSL). %ls",
                           text.c_str());
                Fail(ErrRevocationUnknown, text.c_str());
            }
            if (VerifyCertCrlCallback callback = m_policy->GetVerifyCertCrlCallback()) {
                callback(cert, *crl, verifyTime, cautionPeriod);
            } else {
                VerifyCertCrl(cert, *crl, verifyTime, cautionPeriod);
            }
            continue;
        }
        Fail(m_log, L"VerifyChainElements: OCSP response neither CRL not present.",
             ErrRevocationUnknown);
    }
}

X509Certificate X509Chain::CertificateFor(const x509_st* cert) const {
    if (m_pBuildCtx) {
        for (const auto& set : m_pBuildCtx->known) {
            for (unsigned i = 0; i < set->GetSize(); ++i) {
                if ((*set)[i].GetX509() == cert) {
                    return (*set)[i];
                }
            }
        }
    }
    return X509Certificate(cert);
}

void X509Chain::AddChainElement(const x509_st* cert, const X509_crl_st* crl,
                                const QorOcsp2Lib::OcspResponse* response) {
    if (cert == nullptr) {
        Fail(m_log, L"AddChainElement: pCert is NULL.", ErrInvalidParameter, L"pCert=NULL");
    }
    X509ChainElement element{CertificateFor(cert)};
    if (crl != nullptr) {
        element.SetCrl(chain::CrlFor(m_pBuildCtx.get(), crl));
    }
    if (response != nullptr) {
        element.SetOcspResponse(*response);
    }
    m_elements.Add(element);
}

void X509Chain::UpdateChainElement(const x509_st* cert, const X509_crl_st* crl,
                                   const QorOcsp2Lib::OcspResponse* response) {
    if (cert == nullptr) {
        Fail(ErrInvalidParameter, L"pCert=NULL");
    }
    for (unsigned i = 0; i < m_elements.GetSize(); ++i) {
        if (X509_cmp(m_elements[i].GetCertificate()->GetX509(), cert) != 0) {
            continue;
        }
        if (crl != nullptr) {
            m_elements[i].SetCrl(chain::CrlFor(m_pBuildCtx.get(), crl));
        }
        if (response != nullptr) {
            m_elements[i].SetOcspResponse(*response);
        }
        return;
    }
    AddChainElement(cert, crl, response);
}

}  // namespace TesseraLib
