// Certification paths: building the path of one certificate at one time under
// a chain policy, OpenSSL's verification of it, and the library's own
// revocation verdict for every certificate on it.
#pragma once

#include <cstdint>
#include <memory>

#include "OcspResponse.h"
#include "QorExceptionStore.h"
#include "QorVector.h"
#include "TesseraExport.h"
#include "X509Certificate.h"
#include "X509ChainPolicy.h"
#include "X509Crl.h"

struct x509_store_ctx_st;
struct x509_st;
struct X509_crl_st;
struct stack_st_X509;

namespace TesseraLib {

class LogChannel;
class X509CrlClient;
class X509OcspClient;
class X509Store;
class ValidationDataStore;

// One certificate of a path with the revocation data that decided its status
// (either may be absent). Copies are deep.
class TESSERA_API X509ChainElement {
public:
    X509ChainElement();
    explicit X509ChainElement(const X509Certificate& certificate);
    X509ChainElement(const X509Certificate& certificate, const X509Crl& crl);
    X509ChainElement(const X509Certificate& certificate, const QorOcsp2Lib::OcspResponse& response);
    X509ChainElement(const X509ChainElement& other);
    X509ChainElement& operator=(const X509ChainElement& other);
    virtual ~X509ChainElement();

    const X509Certificate* GetCertificate() const { return &m_certificate; }
    // Null when none is attached.
    const X509Crl* GetCrl() const { return m_crl.get(); }
    const QorOcsp2Lib::OcspResponse* GetOcspResponse() const { return m_ocspResponse.get(); }

    void SetCertificate(const X509Certificate& certificate) { m_certificate = certificate; }
    // Take ownership of the object given (null detaches).
    void SetCrl(X509Crl* crl) { m_crl.reset(crl); }
    void SetOcspResponse(QorOcsp2Lib::OcspResponse* response) { m_ocspResponse.reset(response); }
    // Store a copy.
    void SetCrl(const X509Crl& crl);
    void SetOcspResponse(const QorOcsp2Lib::OcspResponse& response);

private:
    X509Certificate m_certificate;
    std::unique_ptr<X509Crl> m_crl;
    std::unique_ptr<QorOcsp2Lib::OcspResponse> m_ocspResponse;
};

}  // namespace TesseraLib

namespace qorstd {
extern template class QorVector<TesseraLib::X509ChainElement>;
extern template class QorVectorIterator<TesseraLib::X509ChainElement>;
}  // namespace qorstd

namespace TesseraLib {

// Builds and checks the path of a certificate. Index 0 of the elements is the
// certificate checked, the last is the trust anchor. Every failure is thrown
// and also kept in the exception store until the next Reset. The build steps
// call each other only through the virtual members, so a derived chain can
// replace any of them. One thread at a time per chain; chains that share a
// policy may build in parallel (see FindRevocationElements for the one
// exception).
class TESSERA_API X509Chain {
public:
    X509Chain();
    // The policy is not owned and must outlive every build.
    explicit X509Chain(const X509ChainPolicy* policy);
    // Copies policy pointer, elements, verify time and exception store.
    X509Chain(const X509Chain& other);
    X509Chain& operator=(const X509Chain& other);
    virtual ~X509Chain();

    X509Chain* Clone() const { return CloneX509Chain(); }
    virtual X509Chain* CloneX509Chain() const;
    // Resets the policy the chain points to (it returns to its defaults),
    // empties the elements, the verify time and the exception store.
    virtual void Reset();
    // Builds the path of `cert` at `time` (0: now) and judges the revocation
    // status of its certificates. Throws on failure.
    virtual void Build(const X509Certificate* cert, const std::int64_t& time);
    // As Build, for a past time with proofs of existence: every certificate
    // of the path must be proven to exist (in `poeStore`) while its issuer
    // was valid, and revocation is judged from CRLs whose existence and
    // signer are proven, so that a revoked CA invalidates only what it
    // certified after its revocation. The POEs of the CRLs used are added to
    // `poeStore`, also when the build fails later.
    virtual void BuildWithPOE(const X509Certificate* cert, const std::int64_t& time,
                              ValidationDataStore* poeStore);
    // Only checks that a path to a trust anchor exists at `time` (0: now):
    // no revocation check, no elements. Throws the mapped error otherwise.
    virtual void BuildPath(const X509Certificate* cert, const std::int64_t& time);

    void SetPolicy(const X509ChainPolicy* policy) { m_policy = policy; }
    const X509ChainPolicy* GetPolicy() const { return m_policy; }
    std::int64_t GetVerifyTime() const { return m_verifyTime; }
    const qorstd::QorVector<X509ChainElement>& GetElements() const { return m_elements; }
    qorstd::QorVector<X509ChainElement>& GetElements() { return m_elements; }
    // Copies in path order; CRLs and responses only of the elements that carry one.
    qorstd::QorVector<X509Certificate> EnumCertificates() const;
    qorstd::QorVector<X509Crl> EnumCrls() const;
    QorOcsp2Lib::OcspVector<QorOcsp2Lib::OcspResponse> EnumOcspResponses() const;
    const QorExceptionStore& GetExceptionStore() const { return m_exceptionStore; }
    QorExceptionStore& GetExceptionStore() { return m_exceptionStore; }
    // Throws the first failure of the last build again (nothing when none).
    void ReThrow() const { m_exceptionStore.ReThrow(); }

    // What one build keeps while it runs (internal).
    struct BuildContext;

protected:
    virtual void BuildCheckParams(const X509Certificate* cert);
    virtual void BuildDestroyCtx();
    virtual void BuildSolve(const X509Certificate* cert);
    // Seeks paths until one passes CheckRevocationWithPOE; a path through a
    // CA revoked before the certificate's POE drops that CA and tries again.
    virtual void BuildSolveWithPOE(const X509Certificate* cert, ValidationDataStore* poeStore);
    // A path (as a new stack the caller owns) whose certificates are valid at
    // the verify time and proven to exist while their issuers were valid; a
    // certificate failing either is dropped from the candidates and the path
    // is sought again.
    virtual stack_st_X509* BuildChainWithPOE(const X509Certificate* cert,
                                             const ValidationDataStore* poeStore);
    virtual void FindRevocationElementsCheckParams(const X509Certificate* cert,
                                                   const X509CrlClient* crlClient,
                                                   const X509OcspClient* ocspClient) const;
    // Chooses the CRL and/or OCSP response for every certificate of the path
    // that needs a check. When the OCSP client has no trust store, the
    // policy's is lent to it for one call: a client shared by chains that
    // build at the same time must not be used that way.
    virtual void FindRevocationElements(const X509Certificate* cert);
    // Judges `cert` (path[index]) and, recursively, its issuers up to the
    // self-signed anchor; `*revokedAt` receives the revocation time of `cert`
    // when it was revoked at `time`, else 0.
    virtual void CheckRevocationWithPOE(const X509Certificate* cert, stack_st_X509* path, int index,
                                        const std::int64_t& time, ValidationDataStore* poeStore,
                                        std::int64_t* revokedAt);
    // The library's verdicts; throw when the data says revoked, unknown or
    // too old (ErrCautionPeriod while newer data can still appear).
    virtual void VerifyCertCrl(const X509Certificate* cert, const X509Crl& crl,
                               std::int64_t verifyTime, const CautionPeriod& cautionPeriod);
    virtual void VerifyCertOcspResponse(const X509Certificate* cert,
                                        const QorOcsp2Lib::OcspResponse& response,
                                        std::int64_t verifyTime,
                                        const CautionPeriod& cautionPeriod);
    virtual void UpdateChainElements(const x509_store_ctx_st* storeCtx);

    void BuildInitializeCtx(const X509Certificate* cert);
    void VerifyChainElements(const x509_store_ctx_st* storeCtx, const std::int64_t& verifyTime);
    // New objects or null; FindOcspResponse verifies the response against
    // the policy's trust store.
    X509Crl* FindCrl(const X509Certificate& cert, const X509Certificate& issuer,
                     const std::int64_t& checkTime, const X509Store* store) const;
    QorOcsp2Lib::OcspResponse* FindOcspResponse(const X509Certificate& cert,
                                                const X509Certificate& issuer,
                                                const X509Store* store) const;
    void LoadCertificatesFromTrustStore(
        QorOcsp2Lib::OcspVector<QorOcsp2Lib::OcspCertificate>& out) const;
    // The first CRL of the build (a new object, POE in `*poeOut`) that
    // VerifyCrl accepts for `cert` with the POE store; null when none.
    X509Crl* FindCrlWithPOE(const X509Certificate* cert, const X509Certificate* issuer,
                            const std::int64_t& time, const ValidationDataStore* poeStore,
                            std::int64_t* poeOut) const;
    // Takes every certificate equal to `cert` out of the build's candidates
    // (anchors and intermediates); returns how many were taken out.
    int DeleteCertFromBuildCtx(const x509_st* cert);
    // 1 when `crl` can speak for `cert` at `time`: recent enough, issued
    // while `cert` was valid, with a `poeStore`: proven to exist while
    // `issuer` was valid (the POE goes to `*poeOut`), and signed by `issuer`.
    int VerifyCrl(X509_crl_st* crl, const X509Certificate* cert, const X509Certificate* issuer,
                  const std::int64_t& time, const ValidationDataStore* poeStore,
                  std::int64_t* poeOut) const;
    void AddChainElement(const x509_st* cert, const X509_crl_st* crl,
                         const QorOcsp2Lib::OcspResponse* response);
    void UpdateChainElement(const x509_st* cert, const X509_crl_st* crl,
                            const QorOcsp2Lib::OcspResponse* response);

    const X509ChainPolicy* m_policy;
    qorstd::QorVector<X509ChainElement> m_elements;
    std::int64_t m_verifyTime;
    QorExceptionStore m_exceptionStore;
    std::unique_ptr<BuildContext> m_pBuildCtx;
    std::unique_ptr<LogChannel> m_log;

private:
    // The path at m_verifyTime without revocation checks, as a new stack.
    stack_st_X509* BuildPath(const X509Certificate* cert);
    void LogBuildStart(const wchar_t* operation, const X509Certificate* cert) const;
    // A copy of the known certificate object behind `cert`, or a new one.
    X509Certificate CertificateFor(const x509_st* cert) const;
    void RecordFailure();
};

}  // namespace TesseraLib
