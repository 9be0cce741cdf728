// The signer, verifier, algorithm and commitment rules of a signature policy.
#include "CryptException.h"
#include "Failure.h"
#include "SignaturePolicyRules.h"
#include "policy/EsiAsn1.h"
#include "policy/PolicyParse.h"

namespace qorstd {
template class QorVector<TesseraLib::SignaturePolicyExtension>;
template class QorVectorIterator<TesseraLib::SignaturePolicyExtension>;
template class QorVector<TesseraLib::AlgAndLength>;
template class QorVectorIterator<TesseraLib::AlgAndLength>;
template class QorVector<TesseraLib::SelectedCommitmentType>;
template class QorVectorIterator<TesseraLib::SelectedCommitmentType>;
template class QorVector<TesseraLib::CommitmentRule>;
template class QorVectorIterator<TesseraLib::CommitmentRule>;
}  // namespace qorstd

namespace TesseraLib {

// ---- extensions and delta times --------------------------------------------

SignaturePolicyExtension::SignaturePolicyExtension() = default;

SignaturePolicyExtension::SignaturePolicyExtension(const ESI_SignPolExtn* extension) {
    ParseESISignPolExtn(extension);
}

void SignaturePolicyExtension::ParseESISignPolExtn(const ESI_SignPolExtn* extension) {
    if (extension == nullptr) {
        Fail(ErrInvalidParameter, L"pSignExt = NULL");
    }
    oid = policy::OidText(extension->extnID);
    if (extension->extnValue != nullptr && ASN1_STRING_length(extension->extnValue) > 0) {
        value = qorstd::QorArray<unsigned char>(
            ASN1_STRING_get0_data(extension->extnValue),
            static_cast<unsigned int>(ASN1_STRING_length(extension->extnValue)));
    }
}

DeltaTime::DeltaTime() : deltaSeconds(0), deltaMinutes(0), deltaHours(0), deltaDays(0) {}

DeltaTime::DeltaTime(const ESI_DeltaTime* deltaTime) : DeltaTime() {
    ParseESIDeltaTime(deltaTime);
}

void DeltaTime::ParseESIDeltaTime(const ESI_DeltaTime* deltaTime) {
    if (deltaTime == nullptr) {
        Fail(ErrInvalidParameter, L"pDeltaTime=NULL");
    }
    deltaSeconds = static_cast<std::int32_t>(ASN1_INTEGER_get(deltaTime->deltaSeconds));
    deltaMinutes = static_cast<std::int32_t>(ASN1_INTEGER_get(deltaTime->deltaMinutes));
    deltaHours = static_cast<std::int32_t>(ASN1_INTEGER_get(deltaTime->deltaHours));
    deltaDays = static_cast<std::int32_t>(ASN1_INTEGER_get(deltaTime->deltaDays));
    ERR_clear_error();
}

// ---- algorithms ------------------------------------------------------------

AlgAndLength::AlgAndLength() = default;

AlgAndLength::AlgAndLength(const ESI_AlgAndLength* algAndLength) {
    ParseESIAlgAndLength(algAndLength);
}

AlgAndLength::~AlgAndLength() = default;

void AlgAndLength::ParseESIAlgAndLength(const ESI_AlgAndLength* algAndLength) {
    if (algAndLength == nullptr) {
        Fail(ErrInvalidParameter, L"pAlgAndLength = NULL");
    }
    m_oid = policy::OidText(algAndLength->algID);
    if (algAndLength->minKeyLength != nullptr) {
        m_minKeyLength.reset(policy::NewUnsigned(algAndLength->minKeyLength));
    }
    policy::AppendExtensions(m_extensions, algAndLength->other);
}

AlgorithmConstraintSet::AlgorithmConstraintSet() = default;

AlgorithmConstraintSet::AlgorithmConstraintSet(const ESI_AlgorithmConstraintSet* constraints) {
    ParseESIAlgorithmConstraintSet(constraints);
}

void AlgorithmConstraintSet::ParseESIAlgorithmConstraintSet(
    const ESI_AlgorithmConstraintSet* constraints) {
    if (constraints == nullptr) {
        Fail(ErrInvalidParameter, L"pConstraints = NULL");
    }
    FillAlgorithmConstraintsVector(m_signer, constraints->signerAlgorithmConstraints);
    FillAlgorithmConstraintsVector(m_endEntity, constraints->eeCertAlgorithmConstraints);
    FillAlgorithmConstraintsVector(m_ca, constraints->caCertAlgorithmConstraints);
    FillAlgorithmConstraintsVector(m_attributeAuthority, constraints->aaCertAlgorithmConstraints);
    FillAlgorithmConstraintsVector(m_tsa, constraints->tsaCertAlgorithmConstraints);
}

void AlgorithmConstraintSet::FillAlgorithmConstraintsVector(
    qorstd::QorVector<AlgAndLength>& target, const stack_st_ESI_ALG_AND_LENGTH* list) {
    for (int i = 0; i < sk_ESI_ALG_AND_LENGTH_num(list); ++i) {
        const ESI_ALG_AND_LENGTH* item = sk_ESI_ALG_AND_LENGTH_value(list, i);
        if (item != nullptr) {
            target.Add(AlgAndLength(item));
        }
    }
}

// ---- signer and verifier rules ---------------------------------------------

SignerRules::SignerRules()
    : m_certificateReference(certRefSignerOnly), m_certificateInfo(certInfoNone) {}

SignerRules::SignerRules(const ESI_SignerRules* rules) : SignerRules() {
    ParseESISignerRules(rules);
}

SignerRules::~SignerRules() = default;

void SignerRules::ParseESISignerRules(const ESI_SignerRules* rules) {
    if (rules == nullptr) {
        Fail(ErrInvalidParameter, L"pRules = NULL");
    }
    // OpenSSL marks an absent BOOLEAN with -1, which differs from FALSE.
    if (rules->externalSignedData != -1) {
        m_externalSignedData.reset(new int(rules->externalSignedData != 0 ? 1 : 0));
    }
    policy::AppendOids(m_mandatedSignedAttributes, rules->mandatedSignedAttr);
    policy::AppendOids(m_mandatedUnsignedAttributes, rules->mandatedUnsignedAttr);
    if (rules->mandatedCertificateRef != nullptr) {
        m_certificateReference =
            static_cast<cptCertRefReq>(ASN1_ENUMERATED_get(rules->mandatedCertificateRef));
    }
    if (rules->mandatedCertificateInfo != nullptr) {
        m_certificateInfo =
            static_cast<cptCertInfoReq>(ASN1_ENUMERATED_get(rules->mandatedCertificateInfo));
    }
    ERR_clear_error();
    policy::AppendExtensions(m_extensions, rules->signPolExtensions);
}

VerifierRules::VerifierRules() = default;

VerifierRules::VerifierRules(const ESI_VerifierRules* rules) {
    ParseESIVerifierRules(rules);
}

void VerifierRules::ParseESIVerifierRules(const ESI_VerifierRules* rules) {
    if (rules == nullptr) {
        Fail(ErrInvalidParameter, L"pRules = NULL");
    }
    policy::AppendOids(m_mandatedUnsignedAttributes, rules->mandatedUnsignedAttr);
    policy::AppendExtensions(m_extensions, rules->signPolExtensions);
}

// ---- commitment types ------------------------------------------------------

CommitmentType::CommitmentType() = default;

CommitmentType::CommitmentType(const ESI_CommitmentType* type) {
    ParseESICommitmentType(type);
}

void CommitmentType::ParseESICommitmentType(const ESI_CommitmentType* type) {
    if (type == nullptr) {
        Fail(ErrInvalidParameter, L"pType = NULL");
    }
    m_oid = policy::OidText(type->identifier);
    if (type->fieldOfApplication != nullptr) {
        m_fieldOfApplication = policy::DirectoryText(
            type->fieldOfApplication, L"Failed to convert Field of Application to UTF8.");
    }
    if (type->semantics != nullptr) {
        m_semantics =
            policy::DirectoryText(type->semantics, L"Failed to convert Semantics to UTF8.");
    }
}

SelectedCommitmentType::SelectedCommitmentType() : m_isEmpty(1) {}

SelectedCommitmentType::SelectedCommitmentType(const ESI_SelectedCommitmentType* type)
    : SelectedCommitmentType() {
    ParseESISelectedCommitmentType(type);
}

void SelectedCommitmentType::ParseESISelectedCommitmentType(
    const ESI_SelectedCommitmentType* type) {
    if (type == nullptr) {
        Fail(ErrInvalidParameter, L"pType = NULL");
    }
    if (type->type == 0) {
        m_isEmpty = 1;
        return;
    }
    m_isEmpty = 0;
    m_commitmentType = CommitmentType(type->value.recognizedCommitmentType);
}

const CommitmentType& SelectedCommitmentType::GetCommitmentType() const {
    if (m_isEmpty != 0) {
        Fail(ErrInvalidState, L"Selected Commitment Type is empty");
    }
    return m_commitmentType;
}

// ---- common and commitment rules -------------------------------------------

CommonRules::CommonRules() = default;

CommonRules::CommonRules(const ESI_CommonRules* rules) {
    ParseESICommonRules(rules);
}

CommonRules::~CommonRules() = default;

void CommonRules::ParseESICommonRules(const ESI_CommonRules* rules) {
    if (rules == nullptr) {
        Fail(ErrInvalidParameter, L"pRules = NULL");
    }
    ParseRuleFields(policy::RuleFields(*rules));
}

void CommonRules::ParseRuleFields(const policy::RuleFields& fields) {
    // The attribute trust condition is decoded (so that a malformed one is
    // refused) but nothing in the library reads it.
    if (fields.signerAndVerifierRules != nullptr) {
        m_signerRules.reset(new SignerRules(fields.signerAndVerifierRules->signerRules));
        m_verifierRules.reset(new VerifierRules(fields.signerAndVerifierRules->verifierRules));
    }
    if (fields.signingCertTrustCondition != nullptr) {
        m_signingCertTrustCondition.reset(
            new SigningCertTrustCondition(fields.signingCertTrustCondition));
    }
    if (fields.timeStampTrustCondition != nullptr) {
        m_timeStampTrustCondition.reset(
            new TimeStampTrustCondition(fields.timeStampTrustCondition));
    }
    if (fields.algorithmConstraintSet != nullptr) {
        m_algorithmConstraintSet.reset(new AlgorithmConstraintSet(fields.algorithmConstraintSet));
    }
    policy::AppendExtensions(m_extensions, fields.extensions);
}

CommitmentRule::CommitmentRule() = default;

CommitmentRule::CommitmentRule(const ESI_CommitmentRule* rule) {
    ParseESICommitmetRule(rule);
}

void CommitmentRule::ParseESICommitmetRule(const ESI_CommitmentRule* rule) {
    if (rule == nullptr) {
        Fail(ErrInvalidParameter, L"pRule = NULL");
    }
    for (int i = 0; i < sk_ESI_SELECTED_COMMITMENT_TYPE_num(rule->selCommitmentTypes); ++i) {
        const ESI_SELECTED_COMMITMENT_TYPE* type =
            sk_ESI_SELECTED_COMMITMENT_TYPE_value(rule->selCommitmentTypes, i);
        if (type != nullptr) {
            m_selectedCommitmentTypes.Add(SelectedCommitmentType(type));
        }
    }
    ParseRuleFields(policy::RuleFields(*rule));
}

}  // namespace TesseraLib
