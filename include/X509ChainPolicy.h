// The chain policy: how a certification path is built and checked (stores,
// revocation sources and mode, caution periods, purpose, certificate-policy
// constraints, replaceable revocation verdicts), its variant with separate
// stores for signatures and time-stamps, and the revocation verdicts that
// certificate validation installs in it.
#pragma once

#include <cstdint>

#include "QorString.h"
#include "QorVector.h"
#include "TesseraExport.h"

namespace QorOcsp2Lib {
class OcspResponse;
}

namespace TesseraLib {

class X509Certificate;
class X509Crl;
class X509Store;
class X509CrlClient;
class X509OcspClient;

// The waiting time added to the verification time before revocation data
// counts as final. The constructor takes the units from the largest down;
// the fields are stored from the smallest up.
struct TESSERA_API CautionPeriod {
    std::uint32_t m_seconds;
    std::uint32_t m_minutes;
    std::uint32_t m_hours;
    std::uint32_t m_days;

    CautionPeriod();
    CautionPeriod(std::uint32_t days, std::uint32_t hours, std::uint32_t minutes,
                  std::uint32_t seconds);
    CautionPeriod(const CautionPeriod& other) = default;
    CautionPeriod& operator=(const CautionPeriod& other) = default;

    void Reset();
    bool IsZero() const;
    // The period in seconds, in unsigned 32-bit arithmetic: out-of-range
    // values are not rejected and a huge period wraps.
    std::uint32_t ToTimestamp() const;
};

// The caution period of one certificate, keyed by the lower-case hex SHA-1
// of the certificate's DER (X509Certificate::GetSHA1HashHex).
class TESSERA_API CautionPeriodIssuer {
public:
    CautionPeriodIssuer();
    CautionPeriodIssuer(const qorstd::QorString& issuer, const CautionPeriod& period);
    CautionPeriodIssuer(const CautionPeriodIssuer& other) = default;
    CautionPeriodIssuer& operator=(const CautionPeriodIssuer& other) = default;

    // Empty issuer, zero period.
    void Reset();
    qorstd::QorString GetIssuer() const { return m_issuer; }
    void SetIssuer(const qorstd::QorString& issuer) { m_issuer = issuer; }
    CautionPeriod GetCautionPeriod() const { return m_cautionPeriod; }
    void SetCautionPeriod(const CautionPeriod& period) { m_cautionPeriod = period; }

private:
    qorstd::QorString m_issuer;
    CautionPeriod m_cautionPeriod;
};

}  // namespace TesseraLib

namespace qorstd {
// Compiled once into the library.
extern template class QorVector<TesseraLib::CautionPeriodIssuer>;
extern template class QorVectorIterator<TesseraLib::CautionPeriodIssuer>;
}  // namespace qorstd

namespace TesseraLib {

// Replacement for the library's CRL verdict on one certificate. Throwing
// reports a failed check; returning means the certificate passed.
using VerifyCertCrlCallback = void (*)(const X509Certificate* cert, const X509Crl& crl,
                                       std::int64_t verifyTime, const CautionPeriod& cautionPeriod);
// Replacement for the library's OCSP verdict on one certificate, same rules.
using VerifyCertOcspResponseCallback = void (*)(const X509Certificate* cert,
                                                const QorOcsp2Lib::OcspResponse& response,
                                                std::int64_t verifyTime,
                                                const CautionPeriod& cautionPeriod);

// A plain settings object read by path building. It owns none of the stores
// and clients it points to: they must outlive every build that uses the
// policy, and copies share the pointers.
class TESSERA_API X509ChainPolicy {
public:
    enum cptRevocationMode : int { revCrl = 0, revOcsp = 1, revOcspOrCrl = 2 };

    enum cptRevocationOption : int {
        revOptionNone = 0,       // no revocation check
        revOptionEndEntity = 1,  // only the certificate being verified
        revOptionChain = 2,      // every certificate except self-signed ones
        revOptionWholeChain = 3  // every certificate, self-signed ones included
    };

    // Bit flags. Stores and supplied validation data mean the same thing:
    // anchors from the trust store, intermediates, CRLs and OCSP responses
    // from the extra store. Without either, paths are built against an empty
    // anchor store.
    enum cptChainBuildMode : int {
        cptChainBuildClients = 1,  // revocation data may be fetched by the clients
        cptChainBuildStores = 2,
        cptChainBuildSuppliedValData = 4
    };

    // Values of the purpose (OpenSSL's X509_PURPOSE_* identifiers).
    static constexpr int kPurposeNone = 0;
    static constexpr int kPurposeSmimeSign = 4;
    static constexpr int kPurposeTimestampSign = 9;

    // Runs Reset().
    X509ChainPolicy();
    X509ChainPolicy(const X509ChainPolicy& other);
    X509ChainPolicy& operator=(const X509ChainPolicy& other);
    virtual ~X509ChainPolicy();

    // Back to the defaults: option revOptionChain, mode revCrl, build mode
    // clients + supplied data, purpose S/MIME signing, maxPathLen and
    // maxOcspFreshness -1, everything else zero, empty or null.
    virtual void Reset();
    // Path building reads the stores only through these, so that a derived
    // policy can choose them by purpose.
    virtual void SetTrustStore(X509Store* store);
    virtual X509Store* GetTrustStore() const;
    virtual void SetExtraStore(X509Store* store);
    virtual X509Store* GetExtraStore() const;

    // True for revCrl and revOcspOrCrl.
    static bool IsRevCRLMode(const cptRevocationMode& mode);
    // True for revOcsp and revOcspOrCrl.
    static bool IsRevOCSPMode(const cptRevocationMode& mode);
    // True when stores or supplied validation data may be used.
    static bool UseValidationDataStore(const cptChainBuildMode& mode);

    cptRevocationOption GetRevocationOption() const { return m_revocationOption; }
    void SetRevocationOption(cptRevocationOption option) { m_revocationOption = option; }
    cptRevocationMode GetRevocationMode() const { return m_revocationMode; }
    void SetRevocationMode(cptRevocationMode mode) { m_revocationMode = mode; }
    cptChainBuildMode GetChainBuildMode() const { return m_chainBuildMode; }
    void SetChainBuildMode(cptChainBuildMode mode) { m_chainBuildMode = mode; }
    // Compare the check time with thisUpdate instead of nextUpdate; also
    // makes the clients fetch data issued after the check time.
    int GetCheckRevocationThisUpdate() const { return m_checkRevocationThisUpdate; }
    void SetCheckRevocationThisUpdate(int value) { m_checkRevocationThisUpdate = value; }
    int GetForceGetCrlAfterTimeUsage() const { return m_forceGetCrlAfterTimeUsage; }
    void SetForceGetCrlAfterTimeUsage(int value) { m_forceGetCrlAfterTimeUsage = value; }
    // In revOcspOrCrl mode, a sufficient CRL settles the certificate alone.
    int GetPreferCrl() const { return m_preferCrl; }
    void SetPreferCrl(int value) { m_preferCrl = value; }

    X509CrlClient* GetCrlClient() const { return m_crlClient; }
    void SetCrlClient(X509CrlClient* client) { m_crlClient = client; }
    X509OcspClient* GetOcspClient() const { return m_ocspClient; }
    void SetOcspClient(X509OcspClient* client) { m_ocspClient = client; }

    const CautionPeriod& GetDefaultCautionPeriod() const { return m_defaultCautionPeriod; }
    void SetDefaultCautionPeriod(const CautionPeriod& period) { m_defaultCautionPeriod = period; }
    const qorstd::QorVector<CautionPeriodIssuer>& GetCautionPeriods() const {
        return m_cautionPeriods;
    }
    // Adds a period for `issuer` (a certificate's lower-case SHA-1 hex) unless
    // that exact text has one already: the first period set stays.
    void SetCautionPeriod(const qorstd::QorString& issuer, const CautionPeriod& period);
    // The period of the entry whose text equals `issuer` (case-sensitive),
    // else the default period.
    CautionPeriod GetCautionPeriod(const qorstd::QorString& issuer) const;

    int GetPurpose() const { return m_purpose; }
    // Values outside 0..9 are ignored: the purpose stays as it was.
    void SetPurpose(int purpose);

    // Certificate policy OIDs (dotted text or object names) accepted on the path.
    const qorstd::QorVector<qorstd::QorString>& GetAcceptablePolicies() const {
        return m_acceptablePolicies;
    }
    void SetAcceptablePolicies(const qorstd::QorVector<qorstd::QorString>& policies) {
        m_acceptablePolicies = policies;
    }
    // Negative: OpenSSL's default verification depth.
    int GetMaxPathLen() const { return m_maxPathLen; }
    void SetMaxPathLen(int length) { m_maxPathLen = length; }
    // From 1 second on, a good OCSP answer must be at most this old at the
    // verification time; smaller values turn the limit off.
    long GetMaxOcspFreshness() const { return m_maxOcspFreshness; }
    void SetMaxOcspFreshness(long seconds) { m_maxOcspFreshness = seconds; }
    int GetCheckPolicy() const { return m_checkPolicy; }
    void SetCheckPolicy(int value) { m_checkPolicy = value; }
    int GetRequireExplicitPolicy() const { return m_requireExplicitPolicy; }
    void SetRequireExplicitPolicy(int value) { m_requireExplicitPolicy = value; }
    int GetInhibitPolicyMapping() const { return m_inhibitPolicyMapping; }
    void SetInhibitPolicyMapping(int value) { m_inhibitPolicyMapping = value; }
    int GetInhibitAnyPolicy() const { return m_inhibitAnyPolicy; }
    void SetInhibitAnyPolicy(int value) { m_inhibitAnyPolicy = value; }

    // Null: the library's own verdicts decide.
    VerifyCertCrlCallback GetVerifyCertCrlCallback() const { return m_verifyCertCrlCallback; }
    void SetVerifyCertCrlCallback(VerifyCertCrlCallback callback) {
        m_verifyCertCrlCallback = callback;
    }
    VerifyCertOcspResponseCallback GetVerifyCertOcspResponseCallback() const {
        return m_verifyCertOcspResponseCallback;
    }
    void SetVerifyCertOcspResponseCallback(VerifyCertOcspResponseCallback callback) {
        m_verifyCertOcspResponseCallback = callback;
    }

private:
    cptRevocationOption m_revocationOption;
    cptRevocationMode m_revocationMode;
    cptChainBuildMode m_chainBuildMode;
    int m_checkRevocationThisUpdate;
    int m_forceGetCrlAfterTimeUsage;
    int m_preferCrl;
    X509Store* m_trustStore;
    X509Store* m_extraStore;
    X509CrlClient* m_crlClient;
    X509OcspClient* m_ocspClient;
    CautionPeriod m_defaultCautionPeriod;
    qorstd::QorVector<CautionPeriodIssuer> m_cautionPeriods;
    int m_purpose;
    qorstd::QorVector<qorstd::QorString> m_acceptablePolicies;
    int m_maxPathLen;
    long m_maxOcspFreshness;
    int m_checkPolicy;
    int m_requireExplicitPolicy;
    int m_inhibitPolicyMapping;
    int m_inhibitAnyPolicy;
    VerifyCertCrlCallback m_verifyCertCrlCallback;
    VerifyCertOcspResponseCallback m_verifyCertOcspResponseCallback;
};

// The policy of the validation processes: one pair of stores for signatures
// (the base's) and one for time-stamps, chosen by the purpose, plus the list
// of trusted time-stamping units. The stores are not owned.
class TESSERA_API X509ChainPolicyTL : public X509ChainPolicy {
public:
    X509ChainPolicyTL();
    X509ChainPolicyTL(const X509ChainPolicyTL& other);
    X509ChainPolicyTL& operator=(const X509ChainPolicyTL& other);
    ~X509ChainPolicyTL() override;

    // Resets the base and drops the time-stamp and TSU stores.
    void Reset() override;
    // The stores must be set per purpose: always ErrInvalidParameter.
    void SetTrustStore(X509Store* store) override;
    void SetExtraStore(X509Store* store) override;
    // The time-stamp stores for purpose 9 (time-stamp signing), the
    // signature stores otherwise.
    X509Store* GetTrustStore() const override;
    X509Store* GetExtraStore() const override;

    void SetTrustStoreSig(X509Store* store);
    X509Store* GetTrustStoreSig() const;
    void SetExtraStoreSig(X509Store* store);
    X509Store* GetExtraStoreSig() const;
    void SetTrustStoreTS(X509Store* store) { m_trustStoreTS = store; }
    X509Store* GetTrustStoreTS() const { return m_trustStoreTS; }
    void SetExtraStoreTS(X509Store* store) { m_extraStoreTS = store; }
    X509Store* GetExtraStoreTS() const { return m_extraStoreTS; }
    // Certificates of the trusted time-stamping units.
    void SetTSUStore(X509Store* store) { m_tsuStore = store; }
    X509Store* GetTSUStore() const { return m_tsuStore; }

private:
    X509Store* m_trustStoreTS;
    X509Store* m_extraStoreTS;
    X509Store* m_tsuStore;
};

// The revocation verdicts that certificate validation installs in its chain
// policy. They decide only "revoked" and "status unknown" and leave freshness
// to the validation's own check, so the caution period is ignored. Their
// failures are X509CertificateValidationExceptions that point to the
// arguments: the certificate and the CRL or OCSP response that decided.
//
// Revoked (149) when the CRL lists `cert` with a revocation time at or
// before `verifyTime`; otherwise the certificate passes. Null `cert` →
// ErrInvalidParameter "pCert=NULL".
TESSERA_API void CertificateValidationCrlCallback(const X509Certificate* cert, const X509Crl& crl,
                                                  std::int64_t verifyTime,
                                                  const CautionPeriod& cautionPeriod);
// The response must hold exactly one single response (none →
// ErrInvalidParameter, several → ErrInternal). Good passes; revoked at or
// before `verifyTime` → revoked (149); revoked later passes; any other
// status → status unknown (147). Null `cert` → ErrInvalidParameter
// "pCert=NULL".
TESSERA_API void CertificateValidationOcspCallback(const X509Certificate* cert,
                                                   const QorOcsp2Lib::OcspResponse& response,
                                                   std::int64_t verifyTime,
                                                   const CautionPeriod& cautionPeriod);

}  // namespace TesseraLib
