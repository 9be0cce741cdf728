// The CAdES validation processes: the basic signature validation of one
// signer and the validation of a signature with time, which adds the
// signer's signature time-stamps and judges again, at the best signature
// time, what the basic process left indeterminate.
#pragma once

#include <cstdint>
#include <memory>

#include "QorArray.h"
#include "QorVector.h"
#include "SignedCades.h"
#include "TesseraExport.h"
#include "ValidationProcess.h"
#include "ValidationReport.h"
#include "X509Certificate.h"

namespace QorTsp2Lib {
class TspTimeStamp;
}

namespace TesseraLib {

class ValidationDataStore;

class LogChannel;
class X509ChainPolicyTL;
class X509MemoryStore;

// The inputs both CAdES processes take for one signer.
class TESSERA_API CadesSignerInputs {
public:
    void SetSignature(SignedCades::SignerInfo* signature) { m_signature = signature; }
    SignedCades::SignerInfo* GetSignature() const { return m_signature; }
    void SetSignerDocumentDigest(const qorstd::QorArray<unsigned char>& digest) {
        m_signerDocumentDigest = digest;
    }
    const qorstd::QorArray<unsigned char>& GetSignerDocumentDigest() const {
        return m_signerDocumentDigest;
    }
    // In: the caller's certificate for a signer whose message lacks it; out:
    // the certificate identified (empty when none was).
    void SetSigningCertificate(const X509Certificate& certificate) {
        m_signingCertificate = certificate;
    }
    const X509Certificate& GetSigningCertificate() const { return m_signingCertificate; }

protected:
    SignedCades::SignerInfo* m_signature = nullptr;
    qorstd::QorArray<unsigned char> m_signerDocumentDigest;
    X509Certificate m_signingCertificate;
};

class TESSERA_API CadesBasicSignatureValidationProcess : public ValidationProcess,
                                                         public CadesSignerInputs {
public:
    CadesBasicSignatureValidationProcess();
    CadesBasicSignatureValidationProcess(const CadesBasicSignatureValidationProcess& other);
    CadesBasicSignatureValidationProcess& operator=(
        const CadesBasicSignatureValidationProcess& other);
    ~CadesBasicSignatureValidationProcess() override;

    void Execute() override;
    cptValidationProcessType GetType() const override { return vptBasicSignatureValidation; }
    BasicSignatureValidationProcessReport* GetValidationReport() override;
    const BasicSignatureValidationProcessReport* GetValidationReport() const override;
    // vptTS103173, vptEN319122_1 and vptRFC3161 (time-stamp tokens).
    void SetSignatureStandard(cptSignatureStandard standard) override;
    void Release() override;

protected:
    // Each step runs its block, keeps a clone of its report and says
    // whether to go on (1).
    int ExecuteFormatChecking();
    int ExecuteSigningCertificateIdentification(X509Certificate& certificate);
    int ExecuteValidationContextInitialization();
    int ExecuteX509CertificateValidation(const X509Certificate& certificate);
    int ExecuteCryptographicVerification(const X509Certificate& certificate);
    int ExecuteSignatureAcceptanceValidation();

private:
    std::unique_ptr<BasicSignatureValidationProcessReport> m_report;
    std::unique_ptr<LogChannel> m_log;
};

class TESSERA_API CadesSignatureWithTimeValidationProcess : public ValidationProcess,
                                                            public CadesSignerInputs {
public:
    CadesSignatureWithTimeValidationProcess();
    CadesSignatureWithTimeValidationProcess(const CadesSignatureWithTimeValidationProcess& other);
    CadesSignatureWithTimeValidationProcess& operator=(
        const CadesSignatureWithTimeValidationProcess& other);
    ~CadesSignatureWithTimeValidationProcess() override;

    void Execute() override;
    cptValidationProcessType GetType() const override { return vptSignatureWithTimeValidation; }
    SignatureWithTimeValidationProcessReport* GetValidationReport() override;
    const SignatureWithTimeValidationProcessReport* GetValidationReport() const override;
    // vptTS103173 and vptEN319122_1.
    void SetSignatureStandard(cptSignatureStandard standard) override;
    void Release() override;

    // The signer's signature time-stamp tokens (borrowed from the signer).
    const qorstd::QorVector<const QorTsp2Lib::TspTimeStamp*>& GetTimeStamps() const {
        return m_timeStamps;
    }

protected:
    int InitTimeStampTokens();
    int ExecuteBasicSignatureValidation();
    int ExecuteSignatureTimeStampValidation();
    int ExecuteComparingTimes();
    int ExecuteRevocationFreshnesValidation();
    int ExecuteSignatureAcceptanceValidation();

private:
    // Ends the process with `total` / `subStatus`.
    int Stop(int total, int subStatus);
    // The proofs of existence the signer's archive time-stamps give (an
    // empty store when it has none or none of them holds).
    std::unique_ptr<ValidationDataStore> ArchiveProofs() const;

    std::int64_t m_bestSignatureTime;
    qorstd::QorVector<const QorTsp2Lib::TspTimeStamp*> m_timeStamps;
    std::unique_ptr<SignatureWithTimeValidationProcessReport> m_report;
    // What the basic process's reports may still point to.
    std::unique_ptr<X509ChainPolicyTL> m_basicPolicy;
    std::unique_ptr<X509MemoryStore> m_basicExtraStore;
    std::unique_ptr<LogChannel> m_log;
};

}  // namespace TesseraLib
