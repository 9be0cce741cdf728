// The policy rules applied to one CAdES signer, and the loaders that turn
// the policy's trust conditions into chain-policy settings. The verifier
// supports a narrow subset of the policy language: trivial commitment
// rules, revocation requirements that map onto a chain-policy mode, and the
// first trust point of the signer trust condition only.
#include "SignaturePolicyVerifier.h"

#include <openssl/objects.h>

#include <string>

#include "CryptException.h"
#include "CryptUtils.h"
#include "Failure.h"
#include "LogChannel.h"
#include "SignaturePolicy.h"
#include "X509Chain.h"
#include "X509ChainPolicy.h"
#include "X509Store.h"
#include "cms/CmsOid.h"

namespace TesseraLib {

namespace {

constexpr const wchar_t* kChannelName = L"SignaturePolicyVerifier";
constexpr const wchar_t* kNoSign = L"_sign=NULL";

bool Contains(const qorstd::QorVector<qorstd::QorString>& list, const qorstd::QorString& oid) {
    for (unsigned int i = 0; i < list.GetSize(); ++i) {
        if (list[i] == oid) {
            return true;
        }
    }
    return false;
}

}  // namespace

SignaturePolicyVerifier::SignaturePolicyVerifier(const SignedCades::SignerInfo* sign,
                                                 const SignatureValidationPolicy* validator,
                                                 const SignaturePolicyOverrides* overrides)
    : m_validator(validator),
      m_sign(sign),
      m_overrides(overrides),
      m_log(std::make_unique<LogChannel>(kChannelName)) {}

SignaturePolicyVerifier::~SignaturePolicyVerifier() = default;

void SignaturePolicyVerifier::VerifyError(const wchar_t* text, int code,
                                          const wchar_t* message) const {
    Fail(m_log, text, code, message);
}

const CommonRules& SignaturePolicyVerifier::GetCommonRules() const {
    if (m_validator == nullptr) {
        VerifyError(L"GetCommonRules: Validator is not set.", ErrInternal, L"_validator=NULL");
    }
    return m_validator->GetCommonRules();
}

const qorstd::QorVector<CommitmentRule>& SignaturePolicyVerifier::GetCommitmentRules() const {
    if (m_validator == nullptr) {
        VerifyError(L"GetCommitmentRules: Validator is not set.", ErrInternal, L"_validator=NULL");
    }
    return m_validator->GetCommitmentRules();
}

// ---- checks ------------------------------------------------------------------

void SignaturePolicyVerifier::VerifyFormat(const SignaturePolicy* policy) const {
    if (policy == nullptr) {
        VerifyError(L"VerifyFormat: Policy is not set.", ErrInternal, L"policy=NULL");
    }
    const auto require = [this](bool present, const wchar_t* text, const wchar_t* message) {
        if (!present) {
            VerifyError(text, ErrPolicyFormatMismatch, message);
        }
    };
    require(policy->GetHashAlgorithmNID() != NID_undef, L"VerifyFormat: HashAlgorithm is not set.",
            L"GetHashAlgorithmNID() = NID_undef");
    require(!policy->GetOID().empty(), L"VerifyFormat: Policy OID is not set.",
            L"GetOID() is empty");
    require(policy->GetDateOfIssue() != 0, L"VerifyFormat: Date of issue is not set.",
            L"GetDateOfIssue() = 0");
    require(!policy->GetIssuerName().GetCommonName().empty() ||
                !policy->GetIssuerName().GetOrganization().empty(),
            L"VerifyFormat: Issuer name CN or O is not set.",
            L"GetIssuerName().GetCommonName() or GetIssuerName().GetOrganization() is empty");
    require(!policy->GetURI().empty(), L"VerifyFormat: URL address is not set.",
            L"GetURI() is empty");
    require(!policy->GetFieldOfApplication().empty(),
            L"VerifyFormat: FieldofApplication is not set.", L"GetFieldOfApplication() is empty");
    const SignatureValidationPolicy& validation = policy->GetSignatureValidationPolicy();
    require(validation.GetNotBefore() != 0, L"VerifyFormat: Validation - GetNotBefore is not set.",
            L"validator.GetNotBefore() = 0");
    require(validation.GetNotAfter() != 0, L"VerifyFormat: Validation - GetNotAfter is not set.",
            L"validator.GetNotAfter() = 0");
    const CommonRules& rules = validation.GetCommonRules();
    require(rules.GetSignerRules() != nullptr,
            L"VerifyFormat: Validation - SignerRules are not set.", L"commonSignerRules = NULL");
    require(rules.GetVerifierRules() != nullptr,
            L"VerifyFormat: Validation - VerifierRules are not set.",
            L"commonVerifierRules = NULL");
    if (const SigningCertTrustCondition* trust = rules.GetSigningCertTrustCondition()) {
        require(!trust->GetTrustTrees().IsEmpty(),
                L"VerifyFormat: Validation (TrustCondition) - TrustTrees are not set.",
                L"GetTrustTrees() is empty");
        const CertificateTrustPoint& first = trust->GetTrustTrees()[0];
        require(!first.GetAcceptablePolicySet().IsEmpty(),
                L"VerifyFormat: Validation (TrustCondition) - Acceptable policies are not set.",
                L"GetAcceptablePolicySet() is empty");
        require(first.GetRequireExplicitPolicy() != nullptr,
                L"VerifyFormat: Validation (TrustCondition) - Explicit policy is not set.",
                L"GetRequireExplicitPolicy() = NULL");
        require(trust->GetRevocationRequirements() != nullptr,
                L"VerifyFormat: Validation (RevocationRequirements) - Requirements are not set.",
                L"GetRevocationRequirements() = NULL");
    }
    require(rules.GetTimeStampTrustCondition() != nullptr,
            L"VerifyFormat: Validation - TimeStampCondition is not set.",
            L"GetTimeStampTrustCondition() = NULL");
    require(rules.GetAlgorithmConstraintSet() != nullptr,
            L"VerifyFormat: Validation - AlgorithmConstraints are not set.",
            L"GetAlgorithmConstraintSet() = NULL");
    require(policy->GetHashValue().GetSize() != 0, L"VerifyFormat: Policy hash is not set.",
            L"GetHashValue() is empty");
}

void SignaturePolicyVerifier::VerifyTimeValidity(const std::int64_t& time) const {
    const std::int64_t at = time != 0 ? time : CryptUtils::GetCurrentTimeUTC();
    if (m_validator == nullptr) {
        VerifyError(L"VerifyTimeValidity: Validator is not set.", ErrInternal, L"_validator=NULL");
    }
    const std::int64_t notBefore = m_validator->GetNotBefore();
    const std::int64_t notAfter = m_validator->GetNotAfter();
    if (notBefore > at) {
        VerifyError(L"VerifyTimeValidity: Sign is not yet valid.", ErrSigPolicyNotTimeValid,
                    L"Signature policy is not yet valid.");
    }
    // An end before the start (none at all included) sets no expiry.
    if (notAfter >= notBefore && notAfter < at) {
        VerifyError(L"VerifyTimeValidity: Sign has expired.", ErrSigPolicyNotTimeValid,
                    L"Signature policy has expired.");
    }
}

void SignaturePolicyVerifier::VerifySignerRules(const SignedCades* signature) const {
    if (m_sign == nullptr) {
        VerifyError(L"VerifySignerRules: Sign is not set.", ErrInternal, kNoSign);
    }
    const SignerRules* rules = GetCommonRules().GetSignerRules();
    if (rules == nullptr) {
        return;
    }
    const int detached = signature != nullptr ? (signature->IsDetached() != 0 ? 1 : 0) : 0;
    if (rules->GetExternalSignedData() != nullptr && *rules->GetExternalSignedData() != detached) {
        VerifyError(*rules->GetExternalSignedData() == 0
                        ? L"VerifySignerRules: Signature should be internal."
                        : L"VerifySignerRules: Signature should be external.",
                    ErrSignatureTypeInvalid, L"");
    }
    const qorstd::QorVector<qorstd::QorString>& mandatedSigned =
        rules->GetMandatedSignedAttributes();
    for (unsigned int i = 0; i < mandatedSigned.GetSize(); ++i) {
        if (m_overrides != nullptr &&
            Contains(m_overrides->GetIgnoredSignedAttributes(), mandatedSigned[i])) {
            continue;
        }
        if (m_sign->HasSignedAttribute(mandatedSigned[i].c_str()) == 0) {
            VerifyError(L"VerifySignerRules: Required signed attribute is missing.",
                        ErrAttributeInfoMismatch, L"");
        }
    }
    const qorstd::QorVector<qorstd::QorString>& mandatedUnsigned =
        rules->GetMandatedUnsignedAttributes();
    for (unsigned int i = 0; i < mandatedUnsigned.GetSize(); ++i) {
        if (m_sign->HasUnsignedAttribute(mandatedUnsigned[i].c_str()) == 0) {
            VerifyError(L"VerifySignerRules: Required unsigned attribute is missing.",
                        ErrAttributeInfoMismatch, L"");
        }
    }
    const unsigned int references =
        m_sign->GetSigningCertificate().GetCertificateIdentifiers().GetSize();
    if (rules->GetMandatedCertificateReference() == SignerRules::certRefSignerOnly &&
        references != 1) {
        VerifyError(L"VerifySignerRules: Signature should contain only end signer certificate.",
                    ErrChainInfoMismatch, L"");
    }
    if (rules->GetMandatedCertificateReference() == SignerRules::certRefFullPath &&
        references <= 1) {
        VerifyError(L"VerifySignerRules: Signature should contain full certification path.",
                    ErrChainInfoMismatch, L"");
    }
    if (m_overrides != nullptr && m_overrides->GetCheckMandatedCertificateInfo() == 0) {
        return;
    }
    const unsigned int certificates =
        signature != nullptr ? signature->GetCertificates().GetSize() : 0;
    if (rules->GetMandatedCertificateInfo() == SignerRules::certInfoSignerOnly &&
        certificates != 1) {
        VerifyError(L"VerifySignerRules: CMS should contain only end signer certificate.",
                    ErrChainInfoMismatch, L"");
    }
    if (rules->GetMandatedCertificateInfo() == SignerRules::certInfoFullPath && certificates <= 1) {
        VerifyError(L"VerifySignerRules: CMS should contain full certification path.",
                    ErrChainInfoMismatch, L"");
    }
}

void SignaturePolicyVerifier::VerifyVerifierRules() const {
    if (m_sign == nullptr) {
        VerifyError(L"VerifyVerifierRules: Sign is not set.", ErrInternal, kNoSign);
    }
    const VerifierRules* rules = GetCommonRules().GetVerifierRules();
    if (rules == nullptr) {
        return;
    }
    const qorstd::QorVector<qorstd::QorString>& mandated = rules->GetMandatedUnsignedAttributes();
    for (unsigned int i = 0; i < mandated.GetSize(); ++i) {
        if (m_sign->HasUnsignedAttribute(mandated[i].c_str()) == 0) {
            VerifyError(L"VerifyVerifierRules: Required unsigned attribute is missing.",
                        ErrAttributeInfoMismatch, L"");
        }
    }
}

void SignaturePolicyVerifier::VerifyCommitmentRules() const {
    const qorstd::QorVector<CommitmentRule>& rules = GetCommitmentRules();
    if (rules.IsEmpty()) {
        return;
    }
    if (rules.GetSize() > 1) {
        VerifyError(L"VerifyCommitmentRules: Commitment rules vector has more than 1 item.",
                    ErrPolicyRuleNotSupported, L"Commitment rules are not supported.");
    }
    const qorstd::QorVector<SelectedCommitmentType>& selected =
        rules[0].GetSelectedCommitmentTypes();
    if (selected.IsEmpty() || (selected.GetSize() == 1 && selected[0].IsEmpty() != 0)) {
        return;
    }
    VerifyError(
        L"VerifyCommitmentRules: Commitment rules vector has more than 1 item or an item is not "
        L"empty.",
        ErrPolicyRuleNotSupported, L"Commitment rules are not supported.");
}

void SignaturePolicyVerifier::VerifyAlgorithmConstraints(const X509Chain* chain) const {
    if (m_sign == nullptr) {
        VerifyError(L"VerifyAlgorithmConstraints: Sign is not set.", ErrInternal, kNoSign);
    }
    if (chain == nullptr) {
        VerifyError(L"VerifyAlgorithmConstraints: Chain is not set.", ErrInternal, L"chain=NULL");
    }
    const qorstd::QorVector<X509Certificate> certificates = chain->EnumCertificates();
    if (certificates.IsEmpty()) {
        VerifyError(L"VerifyAlgorithmConstraints: Chain is empty.", ErrInternal, L"");
    }
    const AlgorithmConstraintSet* constraints = GetCommonRules().GetAlgorithmConstraintSet();
    if (constraints == nullptr) {
        return;
    }
    CheckAlgorithmConstraints(constraints->GetSignerAlgorithmConstraints(),
                              m_sign->GetHashAlgorithmOID());
    CheckAlgorithmConstraints(constraints->GetCACertsAlgorithmConstraints(),
                              certificates.Back().GetSignatureAlgorithmOID());
    CheckAlgorithmConstraints(constraints->GetEndEntityCertsAlgorithmConstraints(),
                              certificates.Front().GetSignatureAlgorithmOID());
    const qorstd::QorVector<TimeStampAttribute>& stamps = m_sign->GetSignatureTimeStamps();
    for (unsigned int i = 0; i < stamps.GetSize(); ++i) {
        const QorTsp2Lib::TspCertificate* tsa = stamps[i].GetTimeStamp().GetTsaCertificate();
        if (tsa != nullptr && !tsa->IsEmpty()) {
            CheckAlgorithmConstraints(
                constraints->GetTSACertsAlgorithmConstraints(),
                HashAlgorithmNameToOID(tsa->GetHashAlgorithmName().c_str(), 1));
        }
    }
}

void SignaturePolicyVerifier::CheckAlgorithmConstraints(
    const qorstd::QorVector<AlgAndLength>& constraints, const qorstd::QorString& oid) const {
    if (oid.empty()) {
        VerifyError(L"CheckAlgorithmConstraints: Search hash OID is not set, unknown algorithm.",
                    ErrInternal, L"hashOID is empty");
    }
    for (unsigned int i = 0; i < constraints.GetSize(); ++i) {
        if (constraints[i].GetOID() == oid) {
            return;
        }
    }
    VerifyError(L"CheckAlgorithmConstraints: Signature or certificate algorithm mistmatch.",
                ErrAlgorithmMismatch, L"");
}

qorstd::QorString SignaturePolicyVerifier::HashAlgorithmNameToOID(const qorstd::QorString& name,
                                                                  int longName) const {
    const int nid = longName != 0 ? OBJ_ln2nid(name.c_str()) : OBJ_sn2nid(name.c_str());
    const qorstd::QorString oid =
        nid != NID_undef ? cms::OidText(OBJ_nid2obj(nid)) : qorstd::QorString();
    ERR_clear_error();
    return oid;
}

// ---- loaders -----------------------------------------------------------------

void SignaturePolicyVerifier::LoadChainConditionExtension(X509ChainPolicy* chainPolicy,
                                                          X509MemoryStore* trustStore) {
    if (m_sign == nullptr) {
        VerifyError(L"LoadChainConditionExtension: Sign is not set.", ErrInternal, kNoSign);
    }
    if (chainPolicy == nullptr) {
        VerifyError(L"LoadChainConditionExtension: ChainPolicy is not set.", ErrInternal,
                    L"chainPolicy=NULL");
    }
    const SigningCertTrustCondition* trust = GetCommonRules().GetSigningCertTrustCondition();
    if (trust == nullptr || trust->GetTrustTrees().IsEmpty()) {
        return;
    }
    const CertificateTrustPoint& point = trust->GetTrustTrees()[0];
    if (point.GetTrustPoint().GetX509() != nullptr) {
        if (trustStore == nullptr) {
            VerifyError(L"LoadChainConditionExtension: ChainPolicy trust store is not set.",
                        ErrInternal, L"trustStore=NULL");
        }
        trustStore->AddCertificate(point.GetTrustPoint());
    }
    if (trustStore != nullptr && !trustStore->GetCertificates().IsEmpty()) {
        chainPolicy->SetTrustStore(trustStore);
    }
    if (point.GetPathLenConstraint() != nullptr) {
        chainPolicy->SetMaxPathLen(static_cast<int>(*point.GetPathLenConstraint()));
    }
    if (!point.GetAcceptablePolicySet().IsEmpty()) {
        chainPolicy->SetAcceptablePolicies(point.GetAcceptablePolicySet());
    }
    if (point.GetRequireExplicitPolicy() != nullptr) {
        chainPolicy->SetRequireExplicitPolicy(1);
    }
    if (point.GetInhibitPolicyMapping() != nullptr) {
        chainPolicy->SetInhibitPolicyMapping(1);
    }
}

void SignaturePolicyVerifier::LoadRevocationConditionExtension(X509ChainPolicy* chainPolicy) {
    if (m_sign == nullptr) {
        VerifyError(L"LoadRevocationConditionExtension: Sign is not set.", ErrInternal, kNoSign);
    }
    if (chainPolicy == nullptr) {
        VerifyError(L"LoadRevocationConditionExtension: ChainPolicy is not set.", ErrInternal,
                    L"chainPolicy=NULL");
    }
    const SigningCertTrustCondition* trust = GetCommonRules().GetSigningCertTrustCondition();
    const CertRevReq* requirements =
        trust != nullptr ? trust->GetRevocationRequirements() : nullptr;
    if (requirements == nullptr) {
        return;
    }
    const RevReq::cptEnuRevReq end =
        requirements->GetEndCertRevocationRequirements().GetRevocationRequirements();
    const RevReq::cptEnuRevReq ca =
        requirements->GetCACertstRevocationRequirements().GetRevocationRequirements();
    constexpr const wchar_t* kNotSupported =
        L"LoadRevocationConditionExtension: Not supported revocation mode.";
    if (end != RevReq::noCheck && ca == RevReq::noCheck) {
        chainPolicy->SetRevocationOption(X509ChainPolicy::revOptionEndEntity);
    } else if (end == ca) {
        chainPolicy->SetRevocationOption(X509ChainPolicy::revOptionChain);
    } else {
        VerifyError(kNotSupported, ErrPolicyRevocationModeNotSupported,
                    L"Not supported revocation check of chain.");
    }
    switch (end) {
        case RevReq::clrCheck:
            chainPolicy->SetRevocationMode(X509ChainPolicy::revCrl);
            break;
        case RevReq::ocspCheck:
            chainPolicy->SetRevocationMode(X509ChainPolicy::revOcsp);
            break;
        case RevReq::eitherCheck:
            chainPolicy->SetRevocationMode(X509ChainPolicy::revOcspOrCrl);
            break;
        case RevReq::noCheck:
            chainPolicy->SetRevocationOption(X509ChainPolicy::revOptionNone);
            break;
        default: {
            const std::wstring message =
                L"Revocation mode: " + std::to_wstring(static_cast<int>(end));
            VerifyError(kNotSupported, ErrPolicyRevocationModeNotSupported, message.c_str());
        }
    }
}

void SignaturePolicyVerifier::LoadTimestampConditionExtension(X509ChainPolicy* chainPolicy) {
    if (m_sign == nullptr) {
        VerifyError(L"LoadTimestampConditionExtension: Sign is not set.", ErrInternal, kNoSign);
    }
    if (chainPolicy == nullptr) {
        VerifyError(L"LoadTimestampConditionExtension: ChainPolicy is not set.", ErrInternal,
                    L"chainPolicy=NULL");
    }
    const TimeStampTrustCondition* trust = GetCommonRules().GetTimeStampTrustCondition();
    if (trust != nullptr && trust->GetCautionPeriod() != nullptr) {
        const DeltaTime& period = *trust->GetCautionPeriod();
        chainPolicy->SetDefaultCautionPeriod(
            CautionPeriod(static_cast<std::uint32_t>(period.deltaDays),
                          static_cast<std::uint32_t>(period.deltaHours),
                          static_cast<std::uint32_t>(period.deltaMinutes),
                          static_cast<std::uint32_t>(period.deltaSeconds)));
    }
}

}  // namespace TesseraLib
