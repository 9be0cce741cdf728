// The validation process base: what every process is given, the signature
// standards it validates against and the kinds of process. A process runs
// building blocks in order and collects their reports; results are values,
// only bad settings are thrown.
#pragma once

#include <cstdint>

#include "QorString.h"
#include "TesseraExport.h"

namespace TesseraLib {

class ValidationReport;
class X509ChainPolicyTL;

class TESSERA_API ValidationProcess {
public:
    // A fixed underlying type: callers may pass values outside the list,
    // which are then refused rather than undefined.
    enum cptSignatureStandard : int {
        vptNotSet = 0,
        vptTS103171 = 1,
        vptTS103172 = 2,
        vptTS103173 = 3,
        vptEN319122_1 = 4,
        vptEN319132_1 = 5,
        vptEN319142_1 = 6,
        vptRFC3161 = 7
    };

    enum cptValidationProcessType : int {
        vptBasicSignatureValidation = 0,
        vptSignatureWithTimeValidation = 1
    };

    // Indexed by cptSignatureStandard, without a range check.
    static const wchar_t* const cptSignatureStandardStrings[8];

    ValidationProcess();
    ValidationProcess(const ValidationProcess& other);
    ValidationProcess& operator=(const ValidationProcess& other);
    virtual ~ValidationProcess();

    virtual void Execute() = 0;
    virtual cptValidationProcessType GetType() const = 0;
    // Null before the first Execute and after Release.
    virtual ValidationReport* GetValidationReport() = 0;
    virtual const ValidationReport* GetValidationReport() const = 0;
    virtual void SetSignatureStandard(cptSignatureStandard standard);
    // Deletes the report.
    virtual void Release() = 0;

    // By default the one validation policy the blocks implement.
    void SetValidationPolicyOID(const qorstd::QorString& oid) { m_validationPolicyOid = oid; }
    const qorstd::QorString& GetValidationPolicyOID() const { return m_validationPolicyOid; }
    // 0: the time of Execute.
    void SetSignatureExistenceTime(std::int64_t time) { m_signatureExistenceTime = time; }
    std::int64_t GetSignatureExistenceTime() const { return m_signatureExistenceTime; }
    cptSignatureStandard GetSignatureStandard() const { return m_signatureStandard; }
    // Borrowed; the blocks install their revocation verdicts in it.
    void SetChainPolicy(X509ChainPolicyTL* policy) { m_chainPolicy = policy; }
    X509ChainPolicyTL* GetChainPolicy() const { return m_chainPolicy; }

protected:
    qorstd::QorString m_validationPolicyOid;
    X509ChainPolicyTL* m_chainPolicy;
    cptSignatureStandard m_signatureStandard;
    std::int64_t m_signatureExistenceTime;
};

}  // namespace TesseraLib
