// Certificate validation for the signature validation: the path with the
// validation's own revocation verdicts, the freshness of the revocation
// data behind it, then the usage conditions of the certificate itself.
#include "X509CertificateValidationBlock.h"

#include <memory>

#include "CryptException.h"
#include "CryptUtils.h"
#include "LogChannel.h"
#include "OcspResponse.h"
#include "QcStatement.h"
#include "X509Chain.h"
#include "X509ChainPolicy.h"
#include "X509Crl.h"
#include "X509Store.h"
#include "x509/X509Bytes.h"

namespace TesseraLib {

namespace {

const char kEkuAny[] = "2.5.29.37.0";
const char kEkuEmailProtection[] = "1.3.6.1.5.5.7.3.4";
const char kEkuMsDocumentSigning[] = "1.3.6.1.4.1.311.10.3.12";
const char kEkuTimeStamping[] = "1.3.6.1.5.5.7.3.8";
const char kQcTypeStatement[] = "0.4.0.1862.1.6";

std::int64_t ResolveTime(std::int64_t time) {
    return time != 0 ? time : CryptUtils::GetCurrentTimeUTC();
}

bool Lists(const qorstd::QorVector<qorstd::QorString>& oids, const char* oid) {
    for (unsigned i = 0; i < oids.GetSize(); ++i) {
        if (oids[i].compare(oid) == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace

// ---------------------------------------------------- revocation freshness

RevocationFreshnessCheckerBlock::RevocationFreshnessCheckerBlock()
    : m_validationTime(0),
      m_crl(nullptr),
      m_ocspResponse(nullptr),
      m_log(std::make_unique<LogChannel>(L"RevocationFreshnessCheckerBlock")) {}

RevocationFreshnessCheckerBlock::RevocationFreshnessCheckerBlock(
    const RevocationFreshnessCheckerBlock& other)
    : ValidationBlock(other),
      m_validationTime(other.m_validationTime),
      m_certificate(other.m_certificate),
      m_crl(other.m_crl),
      m_ocspResponse(other.m_ocspResponse),
      m_report(other.m_report),
      m_log(std::make_unique<LogChannel>(L"RevocationFreshnessCheckerBlock")) {}

RevocationFreshnessCheckerBlock& RevocationFreshnessCheckerBlock::operator=(
    const RevocationFreshnessCheckerBlock& other) {
    m_validationTime = other.m_validationTime;
    m_certificate = other.m_certificate;
    m_crl = other.m_crl;
    m_ocspResponse = other.m_ocspResponse;
    m_report = other.m_report;
    return *this;
}

RevocationFreshnessCheckerBlock::~RevocationFreshnessCheckerBlock() = default;

void RevocationFreshnessCheckerBlock::Process() {
    if (m_certificate.GetX509() == nullptr) {
        TLOG_ERROR(m_log, L"Process: Signing certificate is null.");
        m_report.SetGenericIssue(CryptException::DescribeErrorCode(ErrSignerCertNotSet));
        return;
    }
    // A trust anchor vouches for itself.
    if (m_certificate.IsSelfSigned()) {
        m_report.SetStatusIndication(ValidationBlockReport::repPassed);
        return;
    }
    if (m_crl == nullptr && m_ocspResponse == nullptr) {
        TLOG_ERROR(m_log, L"Process: CRL or OCSP is null.");
        m_report.SetGenericIssue(CryptException::DescribeErrorCode(ErrRevocationUnknown));
        return;
    }
    if (m_ocspResponse != nullptr) {
        const auto& singles = m_ocspResponse->GetSingleResponses();
        if (singles.IsEmpty()) {
            TLOG_ERROR(m_log, L"Process: OCSP.GetSingleResponses() is empty");
            m_report.SetGenericIssue(L"No single OCSP response found.");
            return;
        }
        if (singles.GetSize() > 1) {
            TLOG_ERROR(m_log, L"Process: OCSP.GetSingleResponses().GetSize() > 1.");
            m_report.SetGenericIssue(L"Single OCSP responses occurs more than once.");
            return;
        }
        JudgeFreshness(singles[0].GetThisUpdate(), singles[0].GetNextUpdate(), L"OCSP");
        return;
    }
    const std::int64_t nextUpdate =
        m_crl->GetNextUpdate() == X509Crl::kNoNextUpdate ? 0 : m_crl->GetNextUpdate();
    JudgeFreshness(m_crl->GetThisUpdate(), nextUpdate, L"CRL");
}

void RevocationFreshnessCheckerBlock::JudgeFreshness(std::int64_t thisUpdate,
                                                     std::int64_t nextUpdate, const wchar_t* kind) {
    const std::int64_t validationTime = ResolveTime(m_validationTime);
    if (nextUpdate == 0) {
        m_report.SetStatusIndication(ValidationBlockReport::repFailed);
        m_report.SetIssue(qorstd::QorStringW(kind).append(L" nextUpdate is not set"));
        return;
    }
    if (nextUpdate - validationTime < 0) {
        m_report.SetStatusIndication(ValidationBlockReport::repFailed);
        m_report.SetIssue(
            qorstd::QorStringW(L"Validation time is after ").append(kind).append(L" nextUpdate."));
        return;
    }
    // The data's own update interval is the longest age it may have.
    const std::int64_t maximumAcceptedFreshness = nextUpdate - thisUpdate;
    if (thisUpdate < validationTime - maximumAcceptedFreshness) {
        TLOG_ERROR(m_log,
                   L"Revocation issuanceTime:%ls < validationTime:%ls - "
                   L"maximumAcceptedFreshness[s]:%f",
                   x509::FormatLogTime(thisUpdate).c_str(),
                   x509::FormatLogTime(validationTime).c_str(),
                   static_cast<double>(maximumAcceptedFreshness));
        m_report.SetStatusIndication(ValidationBlockReport::repFailed);
        m_report.SetIssue(L"Revocation data are not fresh.");
        return;
    }
    m_report.SetStatusIndication(ValidationBlockReport::repPassed);
}

// ------------------------------------------------- certificate validation

X509CertificateValidationBlock::X509CertificateValidationBlock()
    : m_validationTime(0),
      m_chainPolicy(nullptr),
      m_log(std::make_unique<LogChannel>(L"X509CertificateValidationBlock")) {}

X509CertificateValidationBlock::X509CertificateValidationBlock(
    const X509CertificateValidationBlock& other)
    : ValidationBlock(other),
      m_validationTime(other.m_validationTime),
      m_certificate(other.m_certificate),
      m_chainPolicy(other.m_chainPolicy),
      m_report(other.m_report),
      m_log(std::make_unique<LogChannel>(L"X509CertificateValidationBlock")) {}

X509CertificateValidationBlock& X509CertificateValidationBlock::operator=(
    const X509CertificateValidationBlock& other) {
    m_validationTime = other.m_validationTime;
    m_certificate = other.m_certificate;
    m_chainPolicy = other.m_chainPolicy;
    m_report = other.m_report;
    return *this;
}

X509CertificateValidationBlock::~X509CertificateValidationBlock() = default;

void X509CertificateValidationBlock::Refuse(const wchar_t* issue) {
    m_report.SetStatusIndication(ValidationBlockReport::repIndeterminate);
    m_report.SetSubStatusIndication(ValidationBlockReport::repChainConstraintsFailure);
    m_report.SetIssue(issue);
}

void X509CertificateValidationBlock::Process() {
    if (m_certificate.GetX509() == nullptr) {
        TLOG_ERROR(m_log, L"Process: Signing certificate is null.");
        m_report.SetGenericIssue(CryptException::DescribeErrorCode(ErrSignerCertNotSet));
        return;
    }
    if (m_chainPolicy == nullptr) {
        TLOG_ERROR(m_log, L"Process: Chain policy is null.");
        m_report.SetGenericIssue(L"Chain policy is not set.");
        return;
    }
    const int purpose = m_chainPolicy->GetPurpose();
    if (purpose != X509ChainPolicy::kPurposeSmimeSign &&
        purpose != X509ChainPolicy::kPurposeTimestampSign) {
        TLOG_ERROR(m_log, L"Process: Cert purpose set to unknown value.");
        m_report.SetGenericIssue(L"Bad parameter: Cert purpose set to unknown value.");
        return;
    }
    const bool tsa = purpose == X509ChainPolicy::kPurposeTimestampSign;
    // The validation decides revocation by the data alone; freshness is
    // judged separately below, so the caution period does not apply.
    m_chainPolicy->SetVerifyCertCrlCallback(CertificateValidationCrlCallback);
    m_chainPolicy->SetVerifyCertOcspResponseCallback(CertificateValidationOcspCallback);

    if (!BuildChain() || !CheckFreshness()) {
        return;
    }
    CheckKeyUsage(tsa);
}

bool X509CertificateValidationBlock::BuildChain() {
    const std::int64_t time = ResolveTime(m_validationTime);
    // Built here rather than by X509Certificate::Verify, which drops the
    // path when the build fails: a revoked verdict keeps the path so that a
    // later proof of an earlier signing time can still use it.
    auto chain = std::make_unique<X509Chain>(m_chainPolicy);
    try {
        m_certificate.Verify(X509Certificate::cptVerifyTimeValidity, time, nullptr, nullptr,
                             nullptr);
        chain->Build(&m_certificate, time);
    } catch (const X509CertificateValidationException& e) {
        m_report.SetStatusIndication(ValidationBlockReport::repIndeterminate);
        if (e.GetErrorCode() == ErrCertRevoked) {
            RecordRevocation(e);
        }
        m_report.SetIssue(e.GetErrorDescription());
        m_report.SetCertificateChain(chain.release());
        return false;
    } catch (const CryptException& e) {
        m_report.SetStatusIndication(ValidationBlockReport::repIndeterminate);
        m_report.SetSubStatusIndication(
            e.GetErrorCode() == ErrCertNotTimeValid
                ? ValidationBlockReport::repOutOfBoundsNoPOE
                : ValidationBlockReport::repCertificateChainGeneralFailure);
        m_report.SetIssue(e.GetErrorDescription());
        return false;
    } catch (...) {
        m_report.SetStatusIndication(ValidationBlockReport::repIndeterminate);
        m_report.SetSubStatusIndication(ValidationBlockReport::repCertificateChainGeneralFailure);
        return false;
    }
    if (chain->GetElements().IsEmpty()) {
        m_report.SetStatusIndication(ValidationBlockReport::repIndeterminate);
        m_report.SetSubStatusIndication(ValidationBlockReport::repNoCertificateChainFound);
        m_report.SetIssue(L"No certificate chain.");
        return false;
    }
    m_report.SetCertificateChain(chain.release());
    return true;
}

void X509CertificateValidationBlock::RecordRevocation(const X509CertificateValidationException& e) {
    const X509Certificate* revoked = e.GetCertificate();
    m_report.SetSubStatusIndication(revoked != nullptr && revoked->IsCA()
                                        ? ValidationBlockReport::repRevokedCANoPOE
                                        : ValidationBlockReport::repRevokedNoPOE);
    using Reason = QorOcsp2Lib::OcspSingleResponse::ocspRevocationReason;
    if (const QorOcsp2Lib::OcspResponse* response = e.GetOcspResponse()) {
        if (response->GetSingleResponses().IsEmpty()) {
            return;
        }
        const QorOcsp2Lib::OcspSingleResponse& single = response->GetSingleResponses()[0];
        if (single.GetRevocationReason() ==
            QorOcsp2Lib::OcspSingleResponse::ocspReasonCertificateHold) {
            m_report.SetSubStatusIndication(ValidationBlockReport::repTryLater);
            m_report.SetNextUpdate(single.GetNextUpdate());
        } else {
            m_report.SetCertificateRevocationReason(single.GetRevocationReason());
        }
        // The responder's revocation time counts as much as a CRL entry's:
        // a later proof of an earlier signing time needs it either way.
        m_report.SetCertificateRevocationTime(single.GetRevocationTime());
        return;
    }
    const X509Crl* crl = e.GetCrl();
    X509CrlItem item;
    if (crl == nullptr || revoked == nullptr || !crl->GetCrlItem(*revoked, item)) {
        return;
    }
    if (item.GetRevocationReason() == QorOcsp2Lib::OcspSingleResponse::ocspReasonCertificateHold) {
        m_report.SetSubStatusIndication(ValidationBlockReport::repTryLater);
        m_report.SetNextUpdate(
            crl->GetNextUpdate() == X509Crl::kNoNextUpdate ? 0 : crl->GetNextUpdate());
    } else {
        m_report.SetCertificateRevocationReason(static_cast<Reason>(item.GetRevocationReason()));
    }
    m_report.SetCertificateRevocationTime(item.GetRevocationTime());
}

bool X509CertificateValidationBlock::CheckFreshness() {
    const std::int64_t time = ResolveTime(m_validationTime);
    const qorstd::QorVector<X509ChainElement>& elements =
        m_report.GetCertificateChain()->GetElements();
    for (unsigned i = 0; i < elements.GetSize(); ++i) {
        RevocationFreshnessCheckerBlock freshness;
        freshness.SetValidationTime(time);
        freshness.SetCertificate(*elements[i].GetCertificate());
        freshness.SetCrl(elements[i].GetCrl());
        freshness.SetOcspResponse(elements[i].GetOcspResponse());
        freshness.Process();
        const RevocationFreshnessCheckerReport& report =
            freshness.GetRevocationFreshnessCheckerReport();
        const bool passed = report.GetStatusIndication() == ValidationBlockReport::repPassed;
        if (!passed || i + 1 == elements.GetSize()) {
            m_report.SetRevocationFreshnessCheckerReport(report.Clone());
        }
        if (!passed) {
            m_report.SetStatusIndication(ValidationBlockReport::repIndeterminate);
            m_report.SetSubStatusIndication(ValidationBlockReport::repTryLater);
            return false;
        }
    }
    return true;
}

void X509CertificateValidationBlock::CheckKeyUsage(bool tsa) {
    const qorstd::QorVector<qorstd::QorString>& usages = m_certificate.GetExtendedKeyUsages();
    if (!usages.IsEmpty()) {
        if (tsa && !Lists(usages, kEkuTimeStamping)) {
            Refuse(L"Certificate EKU Timestamping not found");
            return;
        }
        if (!tsa && !Lists(usages, kEkuAny) && !Lists(usages, kEkuMsDocumentSigning) &&
            !Lists(usages, kEkuEmailProtection)) {
            Refuse(
                L"Certificate valid EKU (anyExtendedKeyUsage, msDocumentSigning, "
                L"emailProtection) not found");
            return;
        }
    }
    if (tsa) {
        X509Store* tsuStore = m_chainPolicy->GetTSUStore();
        if (tsuStore == nullptr) {
            Refuse(L"Trusted TSU list not set.");
            return;
        }
        X509Certificate wanted(m_certificate);
        if (!tsuStore->FindCertificate(wanted, 0)) {
            Refuse(L"Certificate is not on trusted TSU list.");
            return;
        }
        m_report.SetStatusIndication(ValidationBlockReport::repPassed);
        return;
    }
    if (!m_certificate.HasQualifiedQcStatement()) {
        Refuse(L"Certificate QcStatement.QcCompliance not found");
        return;
    }
    const qorstd::QorVector<QcStatement>& statements = m_certificate.GetQCStatements();
    for (unsigned i = 0; i < statements.GetSize(); ++i) {
        if (statements[i].GetStatementId().compare(kQcTypeStatement) != 0) {
            continue;
        }
        const QcType* type = dynamic_cast<const QcType*>(statements[i].GetStatementInfo());
        if (type == nullptr) {
            Refuse(L"Certificate QcStatement.QcType not found");
            return;
        }
        if (type->GetCertificateType() != QcType::cptCertificateTypeESign &&
            type->GetCertificateType() != QcType::cptCertificateTypeESeal) {
            Refuse(L"Certificate QcStatement.QcType.ESigns not found");
            return;
        }
        break;
    }
    m_report.SetStatusIndication(ValidationBlockReport::repPassed);
}

}  // namespace TesseraLib
