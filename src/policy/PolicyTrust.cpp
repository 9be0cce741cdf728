// Trust conditions, trust points and revocation requirements of a signature
// policy.
#include "CryptException.h"
#include "Failure.h"
#include "SignaturePolicyRules.h"
#include "policy/EsiAsn1.h"
#include "policy/PolicyParse.h"

namespace qorstd {
template class QorVector<TesseraLib::CertificateTrustPoint>;
template class QorVectorIterator<TesseraLib::CertificateTrustPoint>;
}  // namespace qorstd

namespace TesseraLib {

RevReq::RevReq() : m_requirements(clrCheck) {}

RevReq::RevReq(const ESI_RevReq* revReq) : RevReq() {
    ParseESIRevReq(revReq);
}

void RevReq::ParseESIRevReq(const ESI_RevReq* revReq) {
    if (revReq == nullptr) {
        Fail(ErrInvalidParameter, L"pRevReq = NULL");
    }
    m_requirements = static_cast<cptEnuRevReq>(ASN1_ENUMERATED_get(revReq->enuRevReq));
    ERR_clear_error();
    policy::AppendExtensions(m_extensions, revReq->exRevReq);
}

CertRevReq::CertRevReq() = default;

CertRevReq::CertRevReq(const ESI_CertRevReq* certRevReq) {
    ParseESICertRevReq(certRevReq);
}

void CertRevReq::ParseESICertRevReq(const ESI_CertRevReq* certRevReq) {
    if (certRevReq == nullptr) {
        Fail(ErrInvalidParameter, L"pCertRevReq = NULL");
    }
    m_endCert = RevReq(certRevReq->endCertRevReq);
    m_caCerts = RevReq(certRevReq->caCerts);
}

CertificateTrustPoint::CertificateTrustPoint() = default;

CertificateTrustPoint::CertificateTrustPoint(const ESI_CertificateTrustPoint* trustPoint) {
    ParseESICertificateTrustPoint(trustPoint);
}

CertificateTrustPoint::~CertificateTrustPoint() = default;

void CertificateTrustPoint::ParseESICertificateTrustPoint(
    const ESI_CertificateTrustPoint* trustPoint) {
    if (trustPoint == nullptr) {
        Fail(ErrInvalidParameter, L"pTrustPoint = NULL");
    }
    m_trustPoint = X509Certificate(trustPoint->trustpoint);
    if (trustPoint->pathLenConstraint != nullptr) {
        m_pathLenConstraint.reset(policy::NewUnsigned(trustPoint->pathLenConstraint));
    }
    policy::AppendOids(m_acceptablePolicySet, trustPoint->acceptablePolicySet);
    // Name constraints are decoded and not kept: nothing checks them.
    const ESI_POLICY_CONSTRAINTS* constraints = trustPoint->policyConstraints;
    if (constraints != nullptr && constraints->requireExplicitPolicy != nullptr) {
        m_requireExplicitPolicy.reset(policy::NewUnsigned(constraints->requireExplicitPolicy));
    }
    if (constraints != nullptr && constraints->inhibitPolicyMapping != nullptr) {
        m_inhibitPolicyMapping.reset(policy::NewUnsigned(constraints->inhibitPolicyMapping));
    }
}

TrustCondition::TrustCondition() = default;

TrustCondition::~TrustCondition() = default;

void TrustCondition::ParseCertificateTrustTrees(
    const stack_st_ESI_CERTIFICATE_TRUST_POINT* trustTrees) {
    if (trustTrees == nullptr) {
        Fail(ErrInvalidParameter, L"pTrustTrees = NULL");
    }
    for (int i = 0; i < sk_ESI_CERTIFICATE_TRUST_POINT_num(trustTrees); ++i) {
        const ESI_CERTIFICATE_TRUST_POINT* point =
            sk_ESI_CERTIFICATE_TRUST_POINT_value(trustTrees, i);
        if (point != nullptr) {
            m_trustTrees.Add(CertificateTrustPoint(point));
        }
    }
}

void TrustCondition::ParseESICertRevReq(const ESI_CertRevReq* certRevReq) {
    m_revocationRequirements.reset(new CertRevReq(certRevReq));
}

SigningCertTrustCondition::SigningCertTrustCondition() = default;

SigningCertTrustCondition::SigningCertTrustCondition(
    const ESI_SigningCertTrustCondition* condition) {
    ParseESISigningCertTrustCondition(condition);
}

void SigningCertTrustCondition::ParseESISigningCertTrustCondition(
    const ESI_SigningCertTrustCondition* condition) {
    if (condition == nullptr) {
        Fail(ErrInvalidParameter, L"pTrustCond = NULL");
    }
    ParseCertificateTrustTrees(condition->signerTrustTrees);
    if (condition->signerRevReq == nullptr) {
        Fail(ErrInvalidParameter, L"pCertRevReq = NULL");
    }
    ParseESICertRevReq(condition->signerRevReq);
}

TimeStampTrustCondition::TimeStampTrustCondition() = default;

TimeStampTrustCondition::TimeStampTrustCondition(const ESI_TimestampTrustCondition* condition) {
    ParseESITimestampTrustCondition(condition);
}

void TimeStampTrustCondition::ParseESITimestampTrustCondition(
    const ESI_TimestampTrustCondition* condition) {
    if (condition == nullptr) {
        Fail(ErrInvalidParameter, L"pTrustCond = NULL");
    }
    if (condition->ttsCertificateTrustTrees != nullptr) {
        ParseCertificateTrustTrees(condition->ttsCertificateTrustTrees);
    }
    if (condition->ttsRevReq != nullptr) {
        ParseESICertRevReq(condition->ttsRevReq);
    }
    if (condition->cautionPeriod != nullptr) {
        m_cautionPeriod.reset(new DeltaTime(condition->cautionPeriod));
    }
    if (condition->signatureTimestampDelay != nullptr) {
        m_signatureTimestampDelay.reset(new DeltaTime(condition->signatureTimestampDelay));
    }
}

}  // namespace TesseraLib
