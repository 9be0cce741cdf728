// A time-stamp token validated as a signature: the token's one signer runs
// through the basic process under the time-stamp stores (purpose 9).
#include "TimeStampValidationBlock.h"

#include "CadesValidationProcess.h"
#include "CryptException.h"
#include "LogChannel.h"
#include "SignedCades.h"
#include "TspException.h"
#include "TspTimeStamp.h"
#include "ValidationReport.h"
#include "X509ChainPolicy.h"
#include "x509/X509Bytes.h"

namespace TesseraLib {

namespace {

constexpr const wchar_t* kChannel = L"TimeStampValidationBlock";

}  // namespace

TimeStampValidationBlock::TimeStampValidationBlock()
    : m_timeStampCertificate(nullptr),
      m_chainPolicy(nullptr),
      m_timeStamp(nullptr),
      m_validationPolicyOid(CadesValidationContextInitializationBlock::kDefaultValidationPolicyOid),
      m_log(std::make_unique<LogChannel>(kChannel)) {}

TimeStampValidationBlock::TimeStampValidationBlock(const TimeStampValidationBlock& other)
    : ValidationBlock(other),
      m_timeStampCertificate(other.m_timeStampCertificate),
      m_chainPolicy(other.m_chainPolicy),
      m_timeStamp(other.m_timeStamp),
      m_validationPolicyOid(other.m_validationPolicyOid),
      m_validationTime(other.m_validationTime),
      m_report(other.m_report),
      m_log(std::make_unique<LogChannel>(kChannel)) {}

TimeStampValidationBlock& TimeStampValidationBlock::operator=(
    const TimeStampValidationBlock& other) {
    if (this != &other) {
        m_timeStampCertificate = other.m_timeStampCertificate;
        m_chainPolicy = other.m_chainPolicy;
        m_timeStamp = other.m_timeStamp;
        m_validationPolicyOid = other.m_validationPolicyOid;
        m_validationTime = other.m_validationTime;
        m_process.reset();
        m_tokenPolicy.reset();
        m_token.reset();
        m_report = other.m_report;
    }
    return *this;
}

TimeStampValidationBlock::~TimeStampValidationBlock() = default;

void TimeStampValidationBlock::Process() {
    if (m_timeStamp == nullptr) {
        TLOG_ERROR(m_log, L"Process: TimeStamp is not set.");
        m_report.SetGenericIssue(L"TimeStamp is not set");
        return;
    }
    if (m_chainPolicy == nullptr) {
        TLOG_ERROR(m_log, L"Process: Chain policy is null.");
        m_report.SetGenericIssue(L"Chain policy is not set.");
        return;
    }
    const auto formatFailure = [this](const wchar_t* issue) {
        m_report.SetStatusIndication(ValidationBlockReport::repFailed);
        m_report.SetSubStatusIndication(ValidationBlockReport::repFormatFailure);
        m_report.SetIssue(issue);
    };
    m_process.reset();
    m_tokenPolicy.reset();
    try {
        auto token = std::make_unique<SignedCades>();
        token->Decode(m_timeStamp->Encode(1));
        m_token = std::move(token);
    } catch (const qorstd::QorException& e) {
        TLOG_ERROR(m_log, L"Process: Decode TimeStamp structure failed.");
        TLOG_ERROR(m_log,
                   L"Process: QorException caught (ClassName=%ls, Error code=%d, Message=%ls, "
                   L"Description=%ls)",
                   x509::Widen(e.GetClassNameW()).c_str(), e.GetErrorCode(),
                   e.GetErrorMessage().c_str(), e.GetErrorDescription().c_str());
        formatFailure(L"Decode TimeStamp structure failed");
        return;
    } catch (const QorTsp2Lib::TspException& e) {
        TLOG_ERROR(m_log, L"Process: Decode TimeStamp structure failed.");
        TLOG_ERROR(m_log, L"Process: QorException caught (Error code=%d)", e.GetErrorCode());
        formatFailure(L"Decode TimeStamp structure failed");
        return;
    } catch (...) {
        TLOG_ERROR(m_log, L"Process: Decode TimeStamp structure failed.");
        formatFailure(L"Decode TimeStamp structure failed");
        return;
    }
    const unsigned int signers = m_token->GetSignerInfoCount();
    if (signers == 0) {
        TLOG_ERROR(m_log, L"Process: TsaSigners is empty");
        formatFailure(L"No tsa signer found.");
        return;
    }
    if (signers > 1) {
        TLOG_ERROR(m_log, L"Process: Multiple TSA signers found.");
        formatFailure(L"More than one tsa signer found.");
        return;
    }
    try {
        // The caller's policy with the time-stamp stores and purpose.
        m_tokenPolicy = std::make_unique<X509ChainPolicyTL>(*m_chainPolicy);
        m_tokenPolicy->SetPurpose(X509ChainPolicy::kPurposeTimestampSign);
        m_process = std::make_unique<CadesBasicSignatureValidationProcess>();
        m_process->SetSignature(m_token->GetSignerInfo(0));
        m_process->SetValidationPolicyOID(m_validationPolicyOid);
        m_process->SetSignatureStandard(ValidationProcess::vptRFC3161);
        m_process->SetChainPolicy(m_tokenPolicy.get());
        m_process->SetSignatureExistenceTime(m_validationTime);
        if (m_timeStampCertificate != nullptr) {
            m_process->SetSigningCertificate(*m_timeStampCertificate);
        }
    } catch (...) {
        TLOG_ERROR(m_log, L"Process: Error during creation of validation process.");
        m_report.SetGenericIssue(L"Error during creation of validation process");
        return;
    }
    m_process->Execute();
    const BasicSignatureValidationProcessReport* basic = m_process->GetValidationReport();
    m_report.SetBasicSignatureValidationProcessReport(basic->Clone());
    m_report.SetTimeStamp(m_timeStamp);
    m_report.SetStatusIndication(
        static_cast<ValidationBlockReport::cptReportStatus>(basic->GetTotalStatusIndication()));
    m_report.SetSubStatusIndication(basic->GetSubStatusIndication());
}

}  // namespace TesseraLib
