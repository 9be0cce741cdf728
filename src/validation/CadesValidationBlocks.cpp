// The five blocks that look at the CAdES signer itself. Each turns the
// failures of the signer's own checks into its report and lets everything
// else reach the process that runs it.
#include "ValidationBlock.h"

#include <openssl/cms.h>
#include <openssl/obj_mac.h>

#include "CryptException.h"
#include "CryptHash.h"
#include "LogChannel.h"
#include "SignedCades.h"
#include "X509Chain.h"
#include "X509Crl.h"

namespace TesseraLib {

namespace {

// The generic outcome of a block that lacks an input: the code's own text.
void MissingInput(const LogChannel* log, const wchar_t* line, int code,
                  ValidationBlockReport& report) {
    TLOG_ERROR(log, line);
    report.SetGenericIssue(CryptException::DescribeErrorCode(code));
}

}  // namespace

// ------------------------------------------------------------------ format

CadesFormatCheckingBlock::CadesFormatCheckingBlock()
    : m_signedCades(nullptr), m_log(std::make_unique<LogChannel>(L"CadesFormatCheckingBlock")) {}

CadesFormatCheckingBlock::CadesFormatCheckingBlock(const CadesFormatCheckingBlock& other)
    : ValidationBlock(other),
      m_signedCades(other.m_signedCades),
      m_report(other.m_report),
      m_log(std::make_unique<LogChannel>(L"CadesFormatCheckingBlock")) {}

CadesFormatCheckingBlock& CadesFormatCheckingBlock::operator=(
    const CadesFormatCheckingBlock& other) {
    m_signedCades = other.m_signedCades;
    m_report = other.m_report;
    return *this;
}

CadesFormatCheckingBlock::~CadesFormatCheckingBlock() = default;

void CadesFormatCheckingBlock::Process() {
    if (m_signedCades == nullptr) {
        MissingInput(m_log.get(), L"Process: SignedCades is not present.", ErrNoMessage, m_report);
        return;
    }
    if (m_signedCades->GetSignerInfoCount() > 0) {
        m_report.SetStatusIndication(ValidationBlockReport::repPassed);
        return;
    }
    TLOG_ERROR(m_log, L"Process: No signer was found.");
    m_report.SetStatusIndication(ValidationBlockReport::repFailed);
    m_report.SetSubStatusIndication(ValidationBlockReport::repFormatFailure);
    m_report.SetFailureReason("No signatures.");
    m_report.SetIssue(L"No signer was found.");
}

// ---------------------------------------------------- signing certificate

CadesSigningCertificateIdentificationBlock::CadesSigningCertificateIdentificationBlock()
    : m_signature(nullptr),
      m_log(std::make_unique<LogChannel>(L"CadesSigningCertificateIdentificationBlock")) {}

CadesSigningCertificateIdentificationBlock::CadesSigningCertificateIdentificationBlock(
    const CadesSigningCertificateIdentificationBlock& other)
    : ValidationBlock(other),
      m_signature(other.m_signature),
      m_signingCertificate(other.m_signingCertificate),
      m_report(other.m_report),
      m_log(std::make_unique<LogChannel>(L"CadesSigningCertificateIdentificationBlock")) {}

CadesSigningCertificateIdentificationBlock& CadesSigningCertificateIdentificationBlock::operator=(
    const CadesSigningCertificateIdentificationBlock& other) {
    m_signature = other.m_signature;
    m_signingCertificate = other.m_signingCertificate;
    m_report = other.m_report;
    return *this;
}

CadesSigningCertificateIdentificationBlock::~CadesSigningCertificateIdentificationBlock() = default;

void CadesSigningCertificateIdentificationBlock::Process() {
    if (m_signature == nullptr) {
        MissingInput(m_log.get(), L"Process: Signature is not present.", ErrNoSigner, m_report);
        return;
    }
    // The certificate the message gave the signer, else the caller's when
    // it matches the signer identifier.
    const x509_st* candidate = m_signature->GetCertificate().GetX509();
    if (candidate == nullptr && m_signature->GetSigner() != nullptr) {
        X509* attached = nullptr;
        CMS_SignerInfo_get0_algs(const_cast<CMS_SignerInfo*>(m_signature->GetSigner()), nullptr,
                                 &attached, nullptr, nullptr);
        candidate = attached;
    }
    if (candidate == nullptr && m_signingCertificate.GetX509() != nullptr) {
        qorstd::QorVector<X509Certificate> only;
        only.Add(m_signingCertificate);
        candidate = m_signature->FindSignerCertificate(m_signature->GetSigner(), &only);
        if (candidate != nullptr) {
            candidate = m_signingCertificate.GetX509();
        }
    }
    if (candidate == nullptr) {
        TLOG_ERROR(m_log, L"Process: Signing certificate not found.");
        m_report.SetStatusIndication(ValidationBlockReport::repIndeterminate);
        m_report.SetSubStatusIndication(ValidationBlockReport::repNoSigningCertificateFound);
        m_report.SetIssue(L"Signing certificate not found.");
        return;
    }
    const SigningCertificateAttribute& attribute = m_signature->GetSigningCertificate();
    if (attribute.GetX509Attr() != nullptr) {
        try {
            m_signature->VerifySigningCert(attribute, candidate);
        } catch (const CryptException& e) {
            m_report.SetStatusIndication(ValidationBlockReport::repIndeterminate);
            m_report.SetSubStatusIndication(ValidationBlockReport::repNoSigningCertificateFound);
            m_report.SetIssue(e.GetErrorDescription());
            return;
        }
    }
    if (candidate != m_signingCertificate.GetX509()) {
        m_signingCertificate = X509Certificate(candidate);
    }
    m_report.SetStatusIndication(ValidationBlockReport::repPassed);
}

// ------------------------------------------------------ validation context

const char CadesValidationContextInitializationBlock::kDefaultValidationPolicyOid[] =
    "1.3.6.1.4.1.47385.20.2.0";

CadesValidationContextInitializationBlock::CadesValidationContextInitializationBlock()
    : m_signature(nullptr),
      m_validationPolicyOid(kDefaultValidationPolicyOid),
      m_log(std::make_unique<LogChannel>(L"CadesValidationContextInitializationBlock")) {}

CadesValidationContextInitializationBlock::CadesValidationContextInitializationBlock(
    const CadesValidationContextInitializationBlock& other)
    : ValidationBlock(other),
      m_signature(other.m_signature),
      m_validationPolicyOid(other.m_validationPolicyOid),
      m_report(other.m_report),
      m_log(std::make_unique<LogChannel>(L"CadesValidationContextInitializationBlock")) {}

CadesValidationContextInitializationBlock& CadesValidationContextInitializationBlock::operator=(
    const CadesValidationContextInitializationBlock& other) {
    m_signature = other.m_signature;
    m_validationPolicyOid = other.m_validationPolicyOid;
    m_report = other.m_report;
    return *this;
}

CadesValidationContextInitializationBlock::~CadesValidationContextInitializationBlock() = default;

void CadesValidationContextInitializationBlock::Process() {
    if (m_signature == nullptr) {
        MissingInput(m_log.get(), L"Process: Signature is not present.", ErrNoSigner, m_report);
        return;
    }
    m_report.SetValidationPolicyOID(m_validationPolicyOid);
    if (m_validationPolicyOid.compare(kDefaultValidationPolicyOid) != 0) {
        m_report.SetStatusIndication(ValidationBlockReport::repIndeterminate);
        m_report.SetSubStatusIndication(ValidationBlockReport::repPolicyProcessingError);
        m_report.SetIssue(
            L"Incorrect value of Signature validation policy OID. None of input SVP OID match "
            L"with default value.");
        return;
    }
    // The one policy implemented here does not take a signer's own policy
    // into account, so such a signer cannot be judged by it.
    if (m_signature->HasPolicyId()) {
        m_report.SetStatusIndication(ValidationBlockReport::repIndeterminate);
        m_report.SetSubStatusIndication(ValidationBlockReport::repPolicyProcessingError);
        m_report.SetIssue(L"Signature contains signature validation policy.");
        return;
    }
    m_report.SetStatusIndication(ValidationBlockReport::repPassed);
}

// ------------------------------------------------- cryptographic verification

CadesCryptographicVerificationBlock::CadesCryptographicVerificationBlock()
    : m_signature(nullptr),
      m_log(std::make_unique<LogChannel>(L"CadesCryptographicVerificationBlock")) {}

CadesCryptographicVerificationBlock::CadesCryptographicVerificationBlock(
    const CadesCryptographicVerificationBlock& other)
    : ValidationBlock(other),
      m_signature(other.m_signature),
      m_signingCertificate(other.m_signingCertificate),
      m_signerDocumentDigest(other.m_signerDocumentDigest),
      m_report(other.m_report),
      m_log(std::make_unique<LogChannel>(L"CadesCryptographicVerificationBlock")) {}

CadesCryptographicVerificationBlock& CadesCryptographicVerificationBlock::operator=(
    const CadesCryptographicVerificationBlock& other) {
    m_signature = other.m_signature;
    m_signingCertificate = other.m_signingCertificate;
    m_signerDocumentDigest = other.m_signerDocumentDigest;
    m_report = other.m_report;
    return *this;
}

CadesCryptographicVerificationBlock::~CadesCryptographicVerificationBlock() = default;

void CadesCryptographicVerificationBlock::Process() {
    if (m_signature == nullptr) {
        MissingInput(m_log.get(), L"Process: Signature is not present.", ErrNoSigner, m_report);
        return;
    }
    const SignedCms* parent = m_signature->GetParent();
    if (parent == nullptr) {
        MissingInput(m_log.get(), L"Process: SignedCades is not present.", ErrNoMessage, m_report);
        return;
    }
    const bool withDigest = !m_signerDocumentDigest.IsEmpty();
    if (parent->IsDetached() && parent->GetContent().IsEmpty() && !withDigest) {
        TLOG_ERROR(m_log, L"Process: Signer's document or hash not set");
        m_report.SetStatusIndication(ValidationBlockReport::repIndeterminate);
        m_report.SetSubStatusIndication(ValidationBlockReport::repSignedDataNotFound);
        m_report.SetIssue(L"Signer's document or hash not set");
        return;
    }
    CMS_SignerInfo* signer = const_cast<CMS_SignerInfo*>(m_signature->GetSigner());
    if (signer != nullptr && m_signingCertificate.GetX509() != nullptr) {
        CMS_SignerInfo_set1_signer_cert(signer, m_signingCertificate.GetX509());
    }
    try {
        if (withDigest) {
            m_signature->VerifySignature(signer, m_signerDocumentDigest.GetData(),
                                         m_signerDocumentDigest.GetSize());
        } else {
            m_signature->VerifySignature(signer);
        }
    } catch (const CryptException& e) {
        m_report.SetStatusIndication(ValidationBlockReport::repFailed);
        m_report.SetSubStatusIndication(e.GetErrorCode() == ErrHashMismatch
                                            ? ValidationBlockReport::repHashFailure
                                            : ValidationBlockReport::repSigCryptoFailure);
        m_report.SetIssue(e.GetErrorDescription());
        return;
    }
    m_report.SetStatusIndication(ValidationBlockReport::repPassed);
}

// --------------------------------------------------------------- acceptance

CadesSignatureAcceptanceValidationBlock::CadesSignatureAcceptanceValidationBlock()
    : m_signature(nullptr),
      m_chain(nullptr),
      m_requireAttrSigningTime(1),
      m_log(std::make_unique<LogChannel>(L"CadesSignatureAcceptanceValidationBlock")) {}

CadesSignatureAcceptanceValidationBlock::CadesSignatureAcceptanceValidationBlock(
    const CadesSignatureAcceptanceValidationBlock& other)
    : ValidationBlock(other),
      m_signature(other.m_signature),
      m_chain(other.m_chain),
      m_requireAttrSigningTime(other.m_requireAttrSigningTime),
      m_report(other.m_report),
      m_log(std::make_unique<LogChannel>(L"CadesSignatureAcceptanceValidationBlock")) {}

CadesSignatureAcceptanceValidationBlock& CadesSignatureAcceptanceValidationBlock::operator=(
    const CadesSignatureAcceptanceValidationBlock& other) {
    m_signature = other.m_signature;
    m_chain = other.m_chain;
    m_requireAttrSigningTime = other.m_requireAttrSigningTime;
    m_report = other.m_report;
    return *this;
}

CadesSignatureAcceptanceValidationBlock::~CadesSignatureAcceptanceValidationBlock() = default;

void CadesSignatureAcceptanceValidationBlock::Process() {
    if (m_signature == nullptr) {
        MissingInput(m_log.get(), L"Process: Signature is not present.", ErrNoSigner, m_report);
        return;
    }
    if (m_chain == nullptr) {
        MissingInput(m_log.get(), L"Process: Certificate chain is not present.",
                     ErrInvalidParameter, m_report);
        return;
    }
    CheckConstraints();
    if (!m_report.GetFailedConstraints().IsEmpty()) {
        m_report.SetStatusIndication(ValidationBlockReport::repIndeterminate);
        m_report.SetSubStatusIndication(ValidationBlockReport::repSigConstraintsFailure);
        return;
    }
    CheckAlgorithms();
    if (m_report.GetFailedCryptoMaterialIds().IsEmpty()) {
        m_report.SetStatusIndication(ValidationBlockReport::repPassed);
    } else {
        m_report.SetStatusIndication(ValidationBlockReport::repIndeterminate);
        m_report.SetSubStatusIndication(ValidationBlockReport::repCryptoConstraintsFailureNoPOE);
    }
}

void CadesSignatureAcceptanceValidationBlock::RefuseConstraint(const wchar_t* issue,
                                                               const char* constraint) {
    m_report.SetIssue(issue);
    m_report.AddFailedConstraint(constraint);
}

void CadesSignatureAcceptanceValidationBlock::RefuseMaterial(
    const wchar_t* issue, const CryptoMaterialIdentification& material) {
    m_report.SetIssue(issue);
    m_report.AddFailedCryptoMaterialId(material);
}

void CadesSignatureAcceptanceValidationBlock::CheckConstraints() {
    static const char kSigningCertificate[] = "Signing certificate attribute";
    try {
        // One identifier is the signing certificate itself, which its own
        // block has matched already; more name the rest of the path.
        qorstd::QorVector<SigningCertificate> identifiers =
            m_signature->GetSigningCertificate().GetCertificateIdentifiers();
        if (identifiers.IsEmpty()) {
            TLOG_ERROR(m_log, L"Process: Signing certificate attribute is empty.");
            RefuseConstraint(L"Signing certificate attribute is missing or empty.",
                             kSigningCertificate);
        } else if (identifiers.GetSize() > 1) {
            const qorstd::QorVector<qorstd::QorArray<unsigned char>> none;
            const SignedCms* parent = m_signature->GetParent();
            if (!IsValidChain(identifiers, parent != nullptr ? parent->GetAttributeCerts() : none,
                              m_chain)) {
                RefuseConstraint(L"Invalid certificate chain.", kSigningCertificate);
            }
        }
    } catch (...) {
        TLOG_ERROR(m_log, L"Process: Signing certificate attribute error.");
        RefuseConstraint(L"Signing certificate attribute cannot be processed.",
                         kSigningCertificate);
    }
    if (m_requireAttrSigningTime == 1 && m_signature->GetSigningTime() == 0) {
        RefuseConstraint(L"Signing time attribute is missing.", "Signing time attribute");
    }
    try {
        m_signature->VerifyContentType(m_signature->GetContentType());
    } catch (const CryptException& e) {
        TLOG_ERROR(m_log, L"Process: Content type attribute error.");
        m_report.SetIssue(e.GetErrorDescription());
        m_report.AddFailedConstraint("Content type attribute");
    }
}

void CadesSignatureAcceptanceValidationBlock::CheckAlgorithms() {
    const int digest = m_signature->GetHashAlgorithmNID();
    const int signature = m_signature->GetSignatureAlgorithmNID();
    if (!IsValidHashAlgorithm(digest)) {
        CryptoMaterialIdentification material(m_signature->GetSignatureValueSHA1HashHex(),
                                              CryptoMaterialIdentification::cptMaterialSignature);
        material.SetAlgorithmName(m_signature->GetHashAlgorithmName());
        RefuseMaterial(L"Invalid signature hash algorithm.", material);
    } else if (!IsValidSignatureAlgorithm(signature)) {
        CryptoMaterialIdentification material(m_signature->GetSignatureValueSHA1HashHex(),
                                              CryptoMaterialIdentification::cptMaterialSignature);
        material.SetAlgorithmName(m_signature->GetSignatureAlgorithmName());
        RefuseMaterial(L"Invalid signature algorithm.", material);
    }

    const qorstd::QorVector<X509Certificate> certificates = m_chain->EnumCertificates();
    for (unsigned i = 0; i < certificates.GetSize(); ++i) {
        const X509Certificate& certificate = certificates[i];
        if (!IsValidSignatureAlgorithm(certificate.GetSignatureAlgorithmNID())) {
            CryptoMaterialIdentification material(
                certificate.GetSHA1HashHex(), CryptoMaterialIdentification::cptMaterialCertificate);
            material.SetAlgorithmName(certificate.GetSignatureAlgorithmName());
            material.SetKeyLength(certificate.GetKeyLength());
            RefuseMaterial(L"Invalid certificate signature algorithm.", material);
        }
    }
    const qorstd::QorVector<X509Crl> crls = m_chain->EnumCrls();
    for (unsigned i = 0; i < crls.GetSize(); ++i) {
        if (!IsValidSignatureAlgorithm(crls[i].GetSignatureAlgorithmNID())) {
            CryptoMaterialIdentification material(crls[i].GetSHA1HashHex(),
                                                  CryptoMaterialIdentification::cptMaterialCrl);
            material.SetAlgorithmName(crls[i].GetSignatureAlgorithmName());
            RefuseMaterial(L"Invalid CRL signature algorithm.", material);
        }
    }
    const QorOcsp2Lib::OcspVector<QorOcsp2Lib::OcspResponse> responses =
        m_chain->EnumOcspResponses();
    for (unsigned i = 0; i < responses.GetSize(); ++i) {
        // The response keeps only the algorithm's long name.
        const QorOcsp2Lib::StlString& name = responses[i].GetSignatureAlgorithmName();
        if (!IsValidSignatureAlgorithm(OBJ_ln2nid(name.c_str()))) {
            CryptoMaterialIdentification material(
                responses[i].GetSHA1HashHex().c_str(),
                CryptoMaterialIdentification::cptMaterialOcspResponse);
            material.SetAlgorithmName(name.c_str());
            RefuseMaterial(L"Invalid OCSP response signature algorithm.", material);
        }
    }
}

int CadesSignatureAcceptanceValidationBlock::IsValidChain(
    qorstd::QorVector<SigningCertificate>& identifiers,
    const qorstd::QorVector<qorstd::QorArray<unsigned char>>& attributeCerts, X509Chain* chain) {
    if (identifiers.IsEmpty()) {
        return 0;
    }
    qorstd::QorVector<qorstd::QorArray<unsigned char>> candidates;
    if (chain != nullptr) {
        const qorstd::QorVector<X509ChainElement>& elements = chain->GetElements();
        for (unsigned i = 0; i < elements.GetSize(); ++i) {
            candidates.Add(elements[i].GetCertificate()->Export());
        }
    }
    for (unsigned i = 0; i < attributeCerts.GetSize(); ++i) {
        candidates.Add(attributeCerts[i]);
    }
    for (unsigned i = 0; i < identifiers.GetSize(); ++i) {
        const SigningCertificate& identifier = identifiers[i];
        CryptHash hash(CryptHash::GetHashAlgorithmByName(identifier.GetHashAlgorithm().c_str()));
        bool matched = false;
        for (unsigned c = 0; c < candidates.GetSize() && !matched; ++c) {
            qorstd::QorArray<unsigned char> digest;
            hash.Reset();
            hash.Update(candidates[c]);
            hash.Finish(digest);
            matched = digest == identifier.GetHash();
        }
        if (!matched) {
            return 0;
        }
    }
    return 1;
}

int CadesSignatureAcceptanceValidationBlock::IsValidHashAlgorithm(const int& nid) {
    return nid == NID_sha256 || nid == NID_sha384 || nid == NID_sha512 || nid == NID_sha224 ? 1 : 0;
}

int CadesSignatureAcceptanceValidationBlock::IsValidSignatureAlgorithm(const int& nid) {
    return nid == NID_rsaEncryption || nid == NID_sha256WithRSAEncryption ||
                   nid == NID_sha384WithRSAEncryption || nid == NID_sha512WithRSAEncryption ||
                   nid == NID_sha224WithRSAEncryption
               ? 1
               : 0;
}

int CadesSignatureAcceptanceValidationBlock::IsValidSignatureKeyLength(const int& bits) {
    return bits >= 2048 ? 1 : 0;
}

}  // namespace TesseraLib
