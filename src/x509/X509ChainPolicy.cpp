#include "X509ChainPolicy.h"

#include <openssl/x509v3.h>

#include "CryptException.h"
#include "Failure.h"

namespace qorstd {
template class QorVector<TesseraLib::CautionPeriodIssuer>;
template class QorVectorIterator<TesseraLib::CautionPeriodIssuer>;
}  // namespace qorstd

namespace TesseraLib {

static_assert(X509ChainPolicy::kPurposeSmimeSign == X509_PURPOSE_SMIME_SIGN,
              "the default purpose is OpenSSL's S/MIME signing");
static_assert(X509ChainPolicy::kPurposeTimestampSign == X509_PURPOSE_TIMESTAMP_SIGN,
              "the time-stamp stores are chosen by OpenSSL's time-stamp signing purpose");

// ---- CautionPeriod ----------------------------------------------------------

CautionPeriod::CautionPeriod() : m_seconds(0), m_minutes(0), m_hours(0), m_days(0) {}

CautionPeriod::CautionPeriod(std::uint32_t days, std::uint32_t hours, std::uint32_t minutes,
                             std::uint32_t seconds)
    : m_seconds(seconds), m_minutes(minutes), m_hours(hours), m_days(days) {}

void CautionPeriod::Reset() {
    *this = CautionPeriod();
}

bool CautionPeriod::IsZero() const {
    return m_seconds == 0 && m_minutes == 0 && m_hours == 0 && m_days == 0;
}

std::uint32_t CautionPeriod::ToTimestamp() const {
    return ((m_days * 24u + m_hours) * 60u + m_minutes) * 60u + m_seconds;
}

// ---- CautionPeriodIssuer ----------------------------------------------------

CautionPeriodIssuer::CautionPeriodIssuer() = default;

CautionPeriodIssuer::CautionPeriodIssuer(const qorstd::QorString& issuer,
                                         const CautionPeriod& period)
    : m_issuer(issuer), m_cautionPeriod(period) {}

void CautionPeriodIssuer::Reset() {
    m_issuer.clear();
    m_cautionPeriod.Reset();
}

// ---- X509ChainPolicy --------------------------------------------------------

X509ChainPolicy::X509ChainPolicy() {
    X509ChainPolicy::Reset();
}

X509ChainPolicy::X509ChainPolicy(const X509ChainPolicy& other) = default;

X509ChainPolicy& X509ChainPolicy::operator=(const X509ChainPolicy& other) = default;

X509ChainPolicy::~X509ChainPolicy() = default;

void X509ChainPolicy::Reset() {
    m_revocationOption = revOptionChain;
    m_revocationMode = revCrl;
    m_chainBuildMode =
        static_cast<cptChainBuildMode>(cptChainBuildClients | cptChainBuildSuppliedValData);
    m_checkRevocationThisUpdate = 0;
    m_forceGetCrlAfterTimeUsage = 0;
    m_preferCrl = 0;
    m_trustStore = nullptr;
    m_extraStore = nullptr;
    m_crlClient = nullptr;
    m_ocspClient = nullptr;
    m_defaultCautionPeriod.Reset();
    m_cautionPeriods.RemoveAll();
    m_purpose = kPurposeSmimeSign;
    m_acceptablePolicies.RemoveAll();
    m_maxPathLen = -1;
    m_maxOcspFreshness = -1;
    m_checkPolicy = 0;
    m_requireExplicitPolicy = 0;
    m_inhibitPolicyMapping = 0;
    m_inhibitAnyPolicy = 0;
    m_verifyCertCrlCallback = nullptr;
    m_verifyCertOcspResponseCallback = nullptr;
}

void X509ChainPolicy::SetTrustStore(X509Store* store) {
    m_trustStore = store;
}

X509Store* X509ChainPolicy::GetTrustStore() const {
    return m_trustStore;
}

void X509ChainPolicy::SetExtraStore(X509Store* store) {
    m_extraStore = store;
}

X509Store* X509ChainPolicy::GetExtraStore() const {
    return m_extraStore;
}

bool X509ChainPolicy::IsRevCRLMode(const cptRevocationMode& mode) {
    return mode == revCrl || mode == revOcspOrCrl;
}

bool X509ChainPolicy::IsRevOCSPMode(const cptRevocationMode& mode) {
    return mode == revOcsp || mode == revOcspOrCrl;
}

bool X509ChainPolicy::UseValidationDataStore(const cptChainBuildMode& mode) {
    return (mode & (cptChainBuildStores | cptChainBuildSuppliedValData)) != 0;
}

void X509ChainPolicy::SetCautionPeriod(const qorstd::QorString& issuer,
                                       const CautionPeriod& period) {
    for (unsigned int i = 0; i < m_cautionPeriods.GetSize(); ++i) {
        if (m_cautionPeriods[i].GetIssuer() == issuer) {
            return;
        }
    }
    m_cautionPeriods.Add(CautionPeriodIssuer(issuer, period));
}

CautionPeriod X509ChainPolicy::GetCautionPeriod(const qorstd::QorString& issuer) const {
    for (unsigned int i = 0; i < m_cautionPeriods.GetSize(); ++i) {
        if (m_cautionPeriods[i].GetIssuer() == issuer) {
            return m_cautionPeriods[i].GetCautionPeriod();
        }
    }
    return m_defaultCautionPeriod;
}

void X509ChainPolicy::SetPurpose(int purpose) {
    // Compared unsigned so that negative values fall out of range too.
    if (static_cast<unsigned int>(purpose) <= static_cast<unsigned int>(kPurposeTimestampSign)) {
        m_purpose = purpose;
    }
}

// ---- X509ChainPolicyTL ------------------------------------------------------

X509ChainPolicyTL::X509ChainPolicyTL()
    : m_trustStoreTS(nullptr), m_extraStoreTS(nullptr), m_tsuStore(nullptr) {}

X509ChainPolicyTL::X509ChainPolicyTL(const X509ChainPolicyTL& other) = default;

X509ChainPolicyTL& X509ChainPolicyTL::operator=(const X509ChainPolicyTL& other) = default;

X509ChainPolicyTL::~X509ChainPolicyTL() = default;

void X509ChainPolicyTL::Reset() {
    X509ChainPolicy::Reset();
    m_trustStoreTS = nullptr;
    m_extraStoreTS = nullptr;
    m_tsuStore = nullptr;
}

void X509ChainPolicyTL::SetTrustStore(X509Store* /*store*/) {
    Fail(ErrInvalidParameter,
         L"X509ChainPolicyTL::SetTrustStore() wrong usage. Use "
         L"X509ChainPolicyTL::SetTrustStoreSig() or "
         L"X509ChainPolicyTL::SetTrustStoreTS() instead.");
}

void X509ChainPolicyTL::SetExtraStore(X509Store* /*store*/) {
    Fail(ErrInvalidParameter,
         L"X509ChainPolicyTL::SetExtraStore() wrong usage. Use "
         L"X509ChainPolicyTL::SetExtraStoreSig() or "
         L"X509ChainPolicyTL::SetExtraStoreTS() instead.");
}

X509Store* X509ChainPolicyTL::GetTrustStore() const {
    return GetPurpose() == kPurposeTimestampSign ? m_trustStoreTS : GetTrustStoreSig();
}

X509Store* X509ChainPolicyTL::GetExtraStore() const {
    return GetPurpose() == kPurposeTimestampSign ? m_extraStoreTS : GetExtraStoreSig();
}

void X509ChainPolicyTL::SetTrustStoreSig(X509Store* store) {
    X509ChainPolicy::SetTrustStore(store);
}

X509Store* X509ChainPolicyTL::GetTrustStoreSig() const {
    return X509ChainPolicy::GetTrustStore();
}

void X509ChainPolicyTL::SetExtraStoreSig(X509Store* store) {
    X509ChainPolicy::SetExtraStore(store);
}

X509Store* X509ChainPolicyTL::GetExtraStoreSig() const {
    return X509ChainPolicy::GetExtraStore();
}

}  // namespace TesseraLib
