// A CAdES signature (ETSI EN 319 122): a CMS SignedData message whose
// signers carry a signing-certificate attribute (CAdES-BES), optionally a
// signature-policy identifier (CAdES-EPES) and a MIME type, and may be
// time-stamped (CAdES-T).
#pragma once

#include <cstdint>
#include <memory>

#include "MimeTypeAttribute.h"
#include "QorArray.h"
#include "QorVector.h"
#include "SignaturePolicyAttribute.h"
#include "SignedCms.h"
#include "SignerCades.h"
#include "SigningCertificateAttribute.h"
#include "TesseraExport.h"
#include "VerifierCades.h"

namespace TesseraLib {

class SignaturePolicy;
class X509ChainPolicy;
class X509MemoryStore;

class TESSERA_API SignedCades : public SignedCms {
public:
    // The form asked for or found.
    enum cptCadesType {
        cptCadesNone = 0,  // found: none; asked for: the signer's own form
        cptCadesBes = 1,   // signing-certificate attribute
        cptCadesEpes = 2,  // signature-policy identifier
        cptCadesT = 3      // signature time-stamp; above 3: only when none is there yet
    };
    // Levels a parsed signer may satisfy.
    enum cptCadesLevel {
        cptCadesLevelBes = 0,
        cptCadesLevelT = 1,
        cptCadesLevelLt = 2,
        cptCadesLevelBaselineB = 4,
        cptCadesLevelBaselineT = 5,
        cptCadesLevelBaselineLt = 6
    };

    // One CAdES signer; the same validity rules as the CMS signer info.
    class TESSERA_API SignerInfo : public SignedCms::SignerInfo {
    public:
        // Further bit of GetVerifyInfo(): the signing-certificate attribute
        // matched the signer certificate.
        static constexpr unsigned long kVerifiedSigningCertificate = 16;

        SignerInfo();
        SignerInfo(const SignedCades* parent, const CMS_SignerInfo_st* signer,
                   const x509_st* certificate);
        SignerInfo(const SignerInfo& other);
        SignerInfo& operator=(const SignerInfo& other);
        ~SignerInfo() override;

        bool operator==(const SignerInfo& other) const { return Equals(other); }
        bool operator!=(const SignerInfo& other) const { return !Equals(other); }
        bool Equals(const SignerInfo& other) const;

        cptCadesType GetCadesType() const { return m_cadesForm; }
        const qorstd::QorVector<cptCadesLevel>& GetCadesLevelEstimate() const {
            return m_levelEstimate;
        }
        const SigningCertificateAttribute& GetSigningCertificate() const {
            return m_signingCertificate;
        }
        // Null without a policy identifier / MIME type.
        const SignaturePolicyAttribute* GetSignaturePolicy() const;
        const MimeTypeAttribute* GetMimeType() const;
        int HasPolicyId() const { return m_hasPolicyId; }
        // The policy the last verification applied; null when none.
        const SignaturePolicy* GetPolicyInUse() const { return m_policyInUse; }

        // Adds a signature time-stamp for cptCadesT (always) and above (when
        // there is none); below cptCadesT nothing changes.
        void Upgrade(cptCadesType type, const QorTsp2Lib::TspClient* client);
        // The signature, content type and signing certificate, the policy
        // (when the verifier asks for it) and the time-stamps are checked
        // first and their first failure is held back; the certificate path
        // and the policy rules are always checked after them.
        void Verify(const VerifierCades& verifier, cptCadesType type);
        void VerifyDigest(const VerifierCades& verifier,
                          const qorstd::QorArray<unsigned char>& hash, cptCadesType type);

    protected:
        friend class SignedCades;
        friend class SignaturePolicyVerifier;
        // The validation blocks run single steps of a verification.
        friend class CadesSigningCertificateIdentificationBlock;
        friend class CadesCryptographicVerificationBlock;
        friend class CadesSignatureAcceptanceValidationBlock;

        void ParseSignerInfo(const CMS_SignerInfo_st* signer, const x509_st* certificate) override;
        // The digest (OpenSSL digest `nid`) of the signed content: the
        // message's own, or the detached content the caller set
        // (ErrNoContent without it).
        qorstd::QorArray<unsigned char> ContentDigest(int nid) const;
        // The checks of the signed parts: signature over `hash`, content
        // type, signing certificate, and the policy loaded when the verifier
        // asks for it (not for a time-stamp token).
        void VerifySignedParts(const qorstd::QorArray<unsigned char>& hash,
                               const x509_st* certificate, const VerifierCades& verifier,
                               bool isTimeStampToken, X509MemoryStore* policyStore,
                               X509ChainPolicy* chainPolicy);
        // The rules of the policy in use, if any, at `time`.
        void VerifyPolicyRules(const VerifierCades& verifier, std::int64_t time) const;
        // Whether `attr` names `signerCert`: issuer and serial when given,
        // then the certificate digest.
        void VerifySigningCert(const SigningCertificateAttribute& attr,
                               const x509_st* signerCert) const;
        // The verifier's policy, or its client's for the identifier's OID;
        // loads its trust conditions into the verifier's chain policy and
        // `store`. Not owned by the signer.
        // `chainPolicy` is the verification's own copy of the verifier's.
        const SignaturePolicy* LoadSignaturePolicy(const VerifierCades& verifier,
                                                   X509MemoryStore* store,
                                                   X509ChainPolicy* chainPolicy) const;
        void AddTimeStamp(QorTsp2Lib::TspClient* client);
        // The one attribute of its kind (not found and several are errors
        // of their own); borrowed from the signer info.
        x509_attributes_st* GetSigningCertAttr() const;
        x509_attributes_st* GetSignaturePolicyAttr() const;
        x509_attributes_st* GetMimeTypeAttr() const;

        const SignedCades* m_cadesParent;
        const SignaturePolicy* m_policyInUse;
        cptCadesType m_cadesForm;
        qorstd::QorVector<cptCadesLevel> m_levelEstimate;
        int m_hasPolicyId;
        SigningCertificateAttribute m_signingCertificate;
        SignaturePolicyAttribute m_signaturePolicy;
        MimeTypeAttribute m_mimeType;
        std::unique_ptr<LogChannel> m_cadesLog;

    private:
        // A signer the CMS layer has parsed already: only the CAdES
        // attributes are read.
        SignerInfo(const SignedCades* parent, const SignedCms::SignerInfo& parsed);
        void ParseCadesAttributes();
        x509_attributes_st* SingleAttribute(const char* oid, const wchar_t* operation,
                                            const wchar_t* what, int notFound, int multiple) const;
        void AddLevels(bool timeStamped);
    };

    SignedCades();
    explicit SignedCades(const qorstd::QorArray<unsigned char>& content);
    SignedCades(const SignedCades& other);
    SignedCades& operator=(const SignedCades& other);
    ~SignedCades() override;

    unsigned int GetSignerInfoCount() const override;
    // Null when `index` is out of range.
    const SignerInfo* GetSignerInfo(unsigned int index) const override;
    SignerInfo* GetSignerInfo(unsigned int index) override;

    // The CMS operations with CAdES signers; a type above cptCadesEpes
    // time-stamps the new signer with the signer's time-stamp client.
    void Sign(const SignerCades& signer, cptCadesType type, int detached);
    void SignDigest(const SignerCades& signer, cptCadesType type,
                    const qorstd::QorArray<unsigned char>& hash);
    void CoSign(const SignerCades& signer, cptCadesType type);
    unsigned long EstimateSize(const SignerCades& signer, cptCadesType type, int detached) const;
    void Upgrade(cptCadesType type, const QorTsp2Lib::TspClient* client);

    // Every signer in order; the first failure ends it.
    virtual void Verify(const VerifierCades& verifier, cptCadesType type);
    virtual void VerifyDigest(const VerifierCades& verifier,
                              const qorstd::QorArray<unsigned char>& hash, cptCadesType type);

protected:
    void FreeCms(int freeContent) override;
    void ParseCms(CMS_ContentInfo_st* cms) override;
    // A CAdES signer always has signed attributes; its attribute option
    // decides the signing time only.
    unsigned int SigningFlags(const SignerCms& signer, int detached) const override;
    virtual CMS_SignerInfo_st* AddSignerCades(CMS_ContentInfo_st* cms, const SignerCades& signer,
                                              cptCadesType type, unsigned int flags);
    virtual void UpdateSignerCades(const SignerInfo& info);

private:
    std::unique_ptr<LogChannel> m_cadesLog;
    std::unique_ptr<qorstd::QorVector<SignerInfo>> m_pvCadesSigners;
};

}  // namespace TesseraLib

namespace qorstd {
extern template class QorVector<TesseraLib::SignedCades::SignerInfo>;
extern template class QorVectorIterator<TesseraLib::SignedCades::SignerInfo>;
extern template class QorVector<TesseraLib::SignedCades::cptCadesLevel>;
extern template class QorVectorIterator<TesseraLib::SignedCades::cptCadesLevel>;
}  // namespace qorstd
