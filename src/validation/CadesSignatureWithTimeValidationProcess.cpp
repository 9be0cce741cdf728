// Validation of a signature with time: the basic validation, then the
// signer's signature time-stamps give the best signature time at which the
// revocation, expiry and freshness findings of the basic validation are
// judged again.
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/objects.h>

#include <algorithm>
#include <exception>

#include "CadesValidationProcess.h"
#include "CryptException.h"
#include "CryptHash.h"
#include "Failure.h"
#include "LogChannel.h"
#include "OcspResponse.h"
#include "OpenSslPtr.h"
#include "ProcessStart.h"
#include "SignedCades2.h"
#include "TimeStampAttribute.h"
#include "TimeStampValidationBlock.h"
#include "TspTimeStamp.h"
#include "ValidationBlock.h"
#include "ValidationDataStore.h"
#include "ValidationReport.h"
#include "VerifierCades.h"
#include "X509CertificateValidationBlock.h"
#include "X509Chain.h"
#include "X509ChainPolicy.h"
#include "X509Store.h"

namespace TesseraLib {

namespace {

constexpr const wchar_t* kChannel = L"CadesSignatureWithTimeValidationProcess";

// The digest of the signature value under the token's imprint algorithm
// matches the imprint.
bool ImprintMatches(const qorstd::QorArray<unsigned char>& signatureValue,
                    const QorTsp2Lib::TspTimeStamp& token) {
    const QorTsp2Lib::TspMessageImprint& imprint = token.GetMessageImprint();
    const EVP_MD* md = EVP_get_digestbyname(QorTsp2Lib::GetHashName(imprint.GetHashAlgorithm()));
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (md == nullptr || EVP_Digest(signatureValue.GetData(), signatureValue.GetSize(), digest,
                                    &length, md, nullptr) != 1) {
        return false;
    }
    const auto& hashed = imprint.GetHashedMessage();
    return hashed.GetSize() == length && std::equal(digest, digest + length, hashed.GetData());
}

bool HasArchiveTimeStamp(const CMS_SignerInfo* signer) {
    const Asn1ObjectPtr type(OBJ_txt2obj("0.4.0.1733.2.4", 1));
    return signer != nullptr && CMS_unsigned_get_attr_by_OBJ(signer, type.get(), -1) >= 0;
}

}  // namespace

CadesSignatureWithTimeValidationProcess::CadesSignatureWithTimeValidationProcess()
    : m_bestSignatureTime(0), m_log(std::make_unique<LogChannel>(kChannel)) {}

CadesSignatureWithTimeValidationProcess::CadesSignatureWithTimeValidationProcess(
    const CadesSignatureWithTimeValidationProcess& other)
    : ValidationProcess(other),
      CadesSignerInputs(other),
      m_bestSignatureTime(other.m_bestSignatureTime),
      m_timeStamps(other.m_timeStamps),
      m_report(other.m_report ? other.m_report->Clone() : nullptr),
      m_log(std::make_unique<LogChannel>(kChannel)) {}

CadesSignatureWithTimeValidationProcess& CadesSignatureWithTimeValidationProcess::operator=(
    const CadesSignatureWithTimeValidationProcess& other) {
    if (this != &other) {
        ValidationProcess::operator=(other);
        CadesSignerInputs::operator=(other);
        m_bestSignatureTime = other.m_bestSignatureTime;
        m_timeStamps = other.m_timeStamps;
        m_report.reset(other.m_report ? other.m_report->Clone() : nullptr);
    }
    return *this;
}

CadesSignatureWithTimeValidationProcess::~CadesSignatureWithTimeValidationProcess() = default;

SignatureWithTimeValidationProcessReport*
CadesSignatureWithTimeValidationProcess::GetValidationReport() {
    return m_report.get();
}

const SignatureWithTimeValidationProcessReport*
CadesSignatureWithTimeValidationProcess::GetValidationReport() const {
    return m_report.get();
}

void CadesSignatureWithTimeValidationProcess::Release() {
    m_report.reset();
}

void CadesSignatureWithTimeValidationProcess::SetSignatureStandard(cptSignatureStandard standard) {
    if (standard != vptTS103173 && standard != vptEN319122_1) {
        Fail(m_log,
             L"SetSignatureStandard: Bad parameter - Only CAdES standards vptTS103173 and "
             L"vptEN319122_1 can be used.",
             ErrInvalidParameter,
             L"SetSignatureStandard::Only CAdES standards vptTS103173 and vptEN319122_1 can be "
             L"used");
    }
    ValidationProcess::SetSignatureStandard(standard);
}

int CadesSignatureWithTimeValidationProcess::Stop(int total, int subStatus) {
    m_report->SetTotalStatusIndication(static_cast<ValidationReport::cptReportTotalStatus>(total));
    m_report->SetSubStatusIndication(
        static_cast<ValidationBlockReport::cptReportSubStatus>(subStatus));
    return 0;
}

void CadesSignatureWithTimeValidationProcess::Execute() {
    Release();
    BeginExecute(*this, m_log.get());
    m_report = std::make_unique<SignatureWithTimeValidationProcessReport>();
    m_report->SetSignatureStandard(m_signatureStandard);
    m_report->SetValidationProcessType(vptSignatureWithTimeValidation);
    m_report->SetValidationTime(m_signatureExistenceTime);
    if (!InitTimeStampTokens() || !ExecuteBasicSignatureValidation() ||
        !ExecuteSignatureTimeStampValidation() || !ExecuteComparingTimes() ||
        !ExecuteRevocationFreshnesValidation() || !ExecuteSignatureAcceptanceValidation()) {
        return;
    }
    Stop(ValidationReport::repTotalPassed, ValidationBlockReport::repNoSubStatusIndication);
}

int CadesSignatureWithTimeValidationProcess::InitTimeStampTokens() {
    m_bestSignatureTime = m_signatureExistenceTime;
    m_report->SetBestSignatureTime(m_bestSignatureTime);
    if (m_signature == nullptr) {
        Fail(m_log, L"Validate: SignedCades is not present.", ErrNoMessage, L"");
    }
    m_timeStamps.RemoveAll();
    const qorstd::QorVector<TimeStampAttribute>& attributes = m_signature->GetSignatureTimeStamps();
    for (unsigned i = 0; i < attributes.GetSize(); ++i) {
        m_timeStamps.Add(&attributes[i].GetTimeStamp());
    }
    if (m_timeStamps.IsEmpty()) {
        TLOG_INFO(m_log, L"InitTimeStampTokens: No signature timestamps found.");
    } else {
        TLOG_INFO(m_log, L"InitTimeStampTokens: %d signature timestamp found",
                  static_cast<int>(m_timeStamps.GetSize()));
    }
    return 1;
}

int CadesSignatureWithTimeValidationProcess::ExecuteBasicSignatureValidation() {
    TLOG_INFO(m_log, L"ExecuteBasicSignatureValidation()");
    if (m_signature == nullptr) {
        Fail(m_log, L"Validate: SignedCades is not present.", ErrNoMessage, L"");
    }
    CadesBasicSignatureValidationProcess basic;
    try {
        // The basic validation may use what the signature carries: its
        // certificates, CRLs and OCSP responses join the extra store.
        m_basicExtraStore = std::make_unique<X509MemoryStore>();
        m_basicPolicy = m_chainPolicy != nullptr
                            ? std::make_unique<X509ChainPolicyTL>(*m_chainPolicy)
                            : std::make_unique<X509ChainPolicyTL>();
        if (m_chainPolicy != nullptr && m_chainPolicy->GetExtraStoreSig() != nullptr) {
            m_basicExtraStore->AddCertificateRange(
                m_chainPolicy->GetExtraStoreSig()->GetCertificates());
        }
        if (const SignedCms* message = m_signature->GetParent()) {
            m_basicExtraStore->AddCertificateRange(message->GetCertificates());
            m_basicExtraStore->AddCrlRange(message->GetCrls());
            m_basicExtraStore->AddOcspResponseRange(message->GetOcspResponses());
        }
        m_basicPolicy->SetExtraStoreSig(m_basicExtraStore.get());
        basic.SetSignature(m_signature);
        basic.SetValidationPolicyOID(m_validationPolicyOid);
        basic.SetSignatureStandard(m_signatureStandard);
        basic.SetSigningCertificate(m_signingCertificate);
        basic.SetSignerDocumentDigest(m_signerDocumentDigest);
        basic.SetChainPolicy(m_basicPolicy.get());
    } catch (...) {
        Fail(m_log,
             L"ExecuteBasicSignatureValidation: Error during creation of validation process.",
             ErrNoValidationProcess, L"");
    }
    basic.Execute();
    const BasicSignatureValidationProcessReport* report = basic.GetValidationReport();
    m_report->SetBasicSignatureValidationProcessReport(report->Clone());
    m_signingCertificate = basic.GetSigningCertificate();

    const ValidationBlockReport::cptReportSubStatus sub = report->GetSubStatusIndication();
    if (report->GetTotalStatusIndication() == ValidationReport::repTotalPassed ||
        (report->GetTotalStatusIndication() == ValidationReport::repIndeterminate &&
         (sub == ValidationBlockReport::repCryptoConstraintsFailureNoPOE ||
          sub == ValidationBlockReport::repRevokedNoPOE ||
          sub == ValidationBlockReport::repRevokedCANoPOE ||
          sub == ValidationBlockReport::repTryLater ||
          sub == ValidationBlockReport::repOutOfBoundsNoPOE))) {
        TLOG_INFO(m_log, L"Execute: Validation process will continue");
        return 1;
    }
    return Stop(report->GetTotalStatusIndication(), sub);
}

std::unique_ptr<ValidationDataStore> CadesSignatureWithTimeValidationProcess::ArchiveProofs()
    const {
    auto store = std::make_unique<ValidationDataStore>();
    const SignedCms* message = m_signature->GetParent();
    if (message == nullptr || m_chainPolicy == nullptr ||
        !HasArchiveTimeStamp(m_signature->GetSigner())) {
        return store;
    }
    try {
        // The signer read with its long-term forms, from the message as it
        // stands (detached content included).
        std::unique_ptr<SignedCades2> copy;
        const SignedCades2* longTerm = dynamic_cast<const SignedCades2*>(message);
        if (longTerm == nullptr) {
            copy = std::make_unique<SignedCades2>();
            copy->Decode(message->Encode());
            if (message->IsDetached() != 0 && !message->GetContent().IsEmpty()) {
                copy->SetContent(message->GetContent());
            }
            longTerm = copy.get();
        }
        SignedCades2::SignerInfo* signer = nullptr;
        for (unsigned int i = 0; i < longTerm->GetSignerInfoCount() && signer == nullptr; ++i) {
            if (longTerm->GetSignerInfo(i)->GetSignatureValue() ==
                m_signature->GetSignatureValue()) {
                signer = const_cast<SignedCades2*>(longTerm)->GetSignerInfo(i);
            }
        }
        if (signer == nullptr) {
            return store;
        }
        // Each archive token is checked with its TSA's path; what the valid
        // ones list is proven at their times. The verification's own
        // verdict on the signer is the basic process's business.
        // Verification copies the policy as a plain one: the anchors of
        // signatures and time-stamps go into one trust store.
        X509MemoryStore anchors;
        for (const X509Store* trust :
             {m_chainPolicy->GetTrustStoreSig(), m_chainPolicy->GetTrustStoreTS()}) {
            if (trust != nullptr) {
                anchors.AddCertificateRange(trust->GetCertificates());
            }
        }
        X509ChainPolicy policy(*m_chainPolicy);
        policy.SetTrustStore(&anchors);
        policy.SetChainBuildMode(static_cast<X509ChainPolicy::cptChainBuildMode>(
            policy.GetChainBuildMode() | X509ChainPolicy::cptChainBuildStores |
            X509ChainPolicy::cptChainBuildSuppliedValData));
        VerifierCades verifier;
        verifier.SetChainPolicy(&policy);
        verifier.SetVerifyOption(VerifierCms::cptVerifyWholeChain);
        verifier.SetVerifyTime(m_signatureExistenceTime);
        try {
            if (!m_signerDocumentDigest.IsEmpty()) {
                signer->VerifyDigest(m_signerDocumentDigest, verifier, store.get(),
                                     SignedCades2::cptCades2Lta);
            } else {
                signer->Verify(verifier, store.get(), SignedCades2::cptCades2Lta);
            }
        } catch (...) {
            TLOG_INFO(m_log, L"ArchiveProofs: the signer's verification with proofs failed.");
        }
    } catch (...) {
        TLOG_ERROR(m_log, L"ArchiveProofs: the archive time-stamps could not be checked.");
    }
    return store;
}

int CadesSignatureWithTimeValidationProcess::ExecuteSignatureTimeStampValidation() {
    const std::unique_ptr<ValidationDataStore> proofs = ArchiveProofs();
    for (unsigned i = 0; i < m_timeStamps.GetSize(); ++i) {
        const QorTsp2Lib::TspTimeStamp* token = m_timeStamps[i];
        try {
            if (!ImprintMatches(m_signature->GetSignatureValue(), *token)) {
                TLOG_ERROR(m_log, L"ExecuteSignatureTimeStampValidation: hash != stamp_hash");
                TimeStampValidationReport failed;
                failed.SetStatusIndication(ValidationBlockReport::repFailed);
                failed.SetSubStatusIndication(ValidationBlockReport::repHashFailure);
                failed.SetIssue(L"Incorrect message imprint value.");
                failed.SetTimeStamp(token);
                m_report->AddSignatureTimeStampReport(&failed);
                continue;
            }
            TimeStampValidationBlock block;
            block.SetChainPolicy(m_chainPolicy);
            block.SetTimeStamp(token);
            block.SetValidationPolicyOID(m_validationPolicyOid);
            // A token an archive time-stamp proves earlier is judged then:
            // its TSA may have expired or been revoked since.
            std::int64_t proven = 0;
            if (proofs->GetPOESignatureTimeStamp(token, &proven) && proven != 0 &&
                proven < m_report->GetValidationTime()) {
                block.SetValidationTime(proven);
            }
            block.Process();
            const TimeStampValidationReport& report = block.GetTimeStampValidationReport();
            m_report->AddSignatureTimeStampReport(&report);
            if (report.GetStatusIndication() == ValidationBlockReport::repPassed &&
                token->GetTime() < m_bestSignatureTime) {
                m_bestSignatureTime = token->GetTime();
                m_report->SetBestSignatureTime(m_bestSignatureTime);
            }
        } catch (...) {
            TLOG_ERROR(m_log,
                       L"ExecuteSignatureTimeStampValidation: Unexpected exception occured during "
                       L"timestamp validation.");
            TimeStampValidationReport failed;
            failed.SetGenericIssue(L"TimeStamp validation failed with unexpected error.");
            m_report->AddSignatureTimeStampReport(&failed);
        }
    }
    return 1;
}

int CadesSignatureWithTimeValidationProcess::ExecuteComparingTimes() {
    const BasicSignatureValidationProcessReport* basic =
        m_report->GetBasicSignatureValidationProcessReport();
    if (basic->GetTotalStatusIndication() != ValidationReport::repIndeterminate) {
        return 1;
    }
    const ValidationBlockReport::cptReportSubStatus sub = basic->GetSubStatusIndication();
    const X509CertificateValidationReport* x509 = basic->GetX509CertificateValidationReport();
    switch (sub) {
        case ValidationBlockReport::repRevokedNoPOE:
        case ValidationBlockReport::repRevokedCANoPOE:
            if (x509 == nullptr) {
                TLOG_ERROR(m_log, L"Execute: X509CertificateValidationReport missing.");
                return 0;
            }
            // Signed before the revocation only when a time-stamp proves it.
            if (x509->GetCertificateRevocationTime() <= m_bestSignatureTime) {
                return Stop(ValidationReport::repIndeterminate, sub);
            }
            return 1;
        case ValidationBlockReport::repOutOfBoundsNoPOE:
            if (m_signingCertificate.GetX509() == nullptr) {
                TLOG_ERROR(m_log, L"Execute: Signing certificate missing.");
                return 0;
            }
            if (m_bestSignatureTime < m_signingCertificate.GetNotBefore()) {
                return Stop(ValidationReport::repTotalFailed,
                            ValidationBlockReport::repNotYetValid);
            }
            return Stop(ValidationReport::repIndeterminate, sub);
        case ValidationBlockReport::repCryptoConstraintsFailureNoPOE:
            return Stop(ValidationReport::repIndeterminate, sub);
        default:
            return 1;
    }
}

int CadesSignatureWithTimeValidationProcess::ExecuteRevocationFreshnesValidation() {
    const BasicSignatureValidationProcessReport* basic =
        m_report->GetBasicSignatureValidationProcessReport();
    if (basic->GetTotalStatusIndication() != ValidationReport::repIndeterminate ||
        basic->GetSubStatusIndication() != ValidationBlockReport::repTryLater) {
        return 1;
    }
    const X509CertificateValidationReport* x509 = basic->GetX509CertificateValidationReport();
    if (x509 == nullptr || x509->GetCertificateChain() == nullptr) {
        return 0;
    }
    const qorstd::QorVector<X509ChainElement>& elements =
        x509->GetCertificateChain()->GetElements();
    for (unsigned i = 0; i < elements.GetSize(); ++i) {
        RevocationFreshnessCheckerBlock block;
        block.SetValidationTime(m_bestSignatureTime);
        block.SetCertificate(*elements[i].GetCertificate());
        block.SetCrl(elements[i].GetCrl());
        block.SetOcspResponse(elements[i].GetOcspResponse());
        block.Process();
        const RevocationFreshnessCheckerReport& report =
            block.GetRevocationFreshnessCheckerReport();
        const bool passed = report.GetStatusIndication() == ValidationBlockReport::repPassed;
        if (!passed || i + 1 == elements.GetSize()) {
            m_report->SetRevocationFreshnessCheckerReport(report.Clone());
        }
        if (!passed) {
            return Stop(ValidationReport::repIndeterminate, ValidationBlockReport::repTryLater);
        }
    }
    return 1;
}

int CadesSignatureWithTimeValidationProcess::ExecuteSignatureAcceptanceValidation() {
    const X509CertificateValidationReport* x509 =
        m_report->GetBasicSignatureValidationProcessReport()->GetX509CertificateValidationReport();
    CadesSignatureAcceptanceValidationBlock block;
    block.SetSignature(m_signature);
    block.SetChain(x509 != nullptr ? x509->GetCertificateChain() : nullptr);
    block.Process();
    const SignatureAcceptanceValidationReport& report =
        block.GetSignatureAcceptanceValidationReport();
    m_report->SetSignatureAcceptanceValidationReport(report.Clone());
    if (report.GetStatusIndication() != ValidationBlockReport::repPassed) {
        return Stop(report.GetStatusIndication(), report.GetSubStatusIndication());
    }
    return 1;
}

}  // namespace TesseraLib
