// The validator: the one object a caller configures to validate a signer of
// a CAdES message and obtain the report tree.
#pragma once

#include <cstdint>
#include <memory>

#include "CadesValidationProcess.h"
#include "QorArray.h"
#include "QorString.h"
#include "SignedCades.h"
#include "TesseraExport.h"

namespace TesseraLib {

class LogChannel;
class ValidationReport;
class X509Certificate;
class X509ChainPolicyTL;

class TESSERA_API Validator {
public:
    Validator();
    Validator(const Validator& other) = default;
    Validator& operator=(const Validator& other) = default;

    virtual void Validate() = 0;
    virtual void SetSignatureStandard(ValidationProcess::cptSignatureStandard standard) = 0;
    // Null before the first validation.
    virtual const ValidationReport* GetValidationReport() const = 0;
    virtual ValidationReport* GetValidationReport() = 0;
    virtual ~Validator();
    // Validate with the caller's digest of the content instead of the content.
    virtual void ValidateDigest(const qorstd::QorArray<unsigned char>& digest) = 0;

    ValidationProcess::cptValidationProcessType GetValidationProcessType() const {
        return m_processType;
    }
    void SetValidationProcessType(ValidationProcess::cptValidationProcessType type) {
        m_processType = type;
    }
    // 0: now.
    std::int64_t GetValidationTime() const { return m_validationTime; }
    void SetValidationTime(std::int64_t time) { m_validationTime = time; }
    // By default the one validation policy the blocks implement.
    const qorstd::QorString& GetValidationPolicyOID() const { return m_validationPolicyOid; }
    void SetValidationPolicyOID(const qorstd::QorString& oid) { m_validationPolicyOid = oid; }
    unsigned int GetSignatureIndex() const { return m_signatureIndex; }
    void SetSignatureIndex(unsigned int index) { m_signatureIndex = index; }
    ValidationProcess::cptSignatureStandard GetSignatureStandard() const {
        return m_signatureStandard;
    }

protected:
    ValidationProcess::cptValidationProcessType m_processType;
    std::int64_t m_validationTime;
    qorstd::QorString m_validationPolicyOid;
    unsigned int m_signatureIndex;
    ValidationProcess::cptSignatureStandard m_signatureStandard;
};

// Validates the signer at the signature index of a decoded CAdES message.
// The message and the chain policy are borrowed; the process, and with it
// the report, lives until the next validation or the validator's end.
class TESSERA_API ValidatorCades : public Validator {
public:
    ValidatorCades();
    ~ValidatorCades() override;
    ValidatorCades(const ValidatorCades&) = delete;
    ValidatorCades& operator=(const ValidatorCades&) = delete;

    void Validate() override;
    void ValidateDigest(const qorstd::QorArray<unsigned char>& digest) override;
    // vptTS103173 and vptEN319122_1 only.
    void SetSignatureStandard(ValidationProcess::cptSignatureStandard standard) override;
    const ValidationReport* GetValidationReport() const override;
    ValidationReport* GetValidationReport() override;

    SignedCades* GetSignedCades() const { return m_signedCades; }
    void SetSignedCades(SignedCades* signedCades) { m_signedCades = signedCades; }
    X509ChainPolicyTL* GetChainPolicy() const { return m_chainPolicy; }
    void SetChainPolicy(X509ChainPolicyTL* policy) { m_chainPolicy = policy; }
    // In: a certificate for a signer whose message lacks it (copied).
    void SetSigningCertificate(const X509Certificate* certificate);
    // Out, after a validation: the certificate the process identified, or
    // null.
    const X509Certificate* GetSigningCertificate() const { return m_identifiedCertificate; }

protected:
    SignedCades::SignerInfo& GetSignature(unsigned int index);
    ValidationProcess* CreateValidationProcess(ValidationProcess::cptValidationProcessType type);

private:
    void Run(const wchar_t* operation, const qorstd::QorArray<unsigned char>* digest);

    SignedCades* m_signedCades;
    std::unique_ptr<ValidationProcess> m_process;
    std::unique_ptr<X509Certificate> m_callerCertificate;
    const X509Certificate* m_identifiedCertificate;
    X509ChainPolicyTL* m_chainPolicy;
    std::unique_ptr<LogChannel> m_log;
};

}  // namespace TesseraLib
