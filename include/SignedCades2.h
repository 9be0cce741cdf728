// A CAdES signature read with its long-term forms: each signer is classified
// B, T, LT or LTA, its archive time-stamps v3 are read, and it can be
// verified with proofs of existence. A ValidationDataStore collects when
// the signature value, certificates, revocation data and time-stamps are
// proven to have existed; archive time-stamps move those proofs back in
// time, and the signer's path is then built at the proven time, so that a
// signature stays verifiable after its certificates expired or were revoked.
#pragma once

#include <cstdint>
#include <memory>

#include "ATSHashIndexAttribute.h"
#include "QorArray.h"
#include "QorVector.h"
#include "SignedCades.h"
#include "TesseraExport.h"
#include "TimeStampAttribute.h"
#include "VerificationData.h"

namespace QorTsp2Lib {
class TspClient;
class TspTimeStamp;
}  // namespace QorTsp2Lib

namespace TesseraLib {

class ValidationDataStore;
class X509ChainPolicy;

class TESSERA_API SignedCades2 : public SignedCades {
public:
    enum cptCadesType {
        cptCades2None = 0,  // found: none of the forms below; asked for: the signer's own
        cptCades2B = 1,     // signing-certificate attribute
        cptCades2T = 2,     // signature time-stamp
        cptCades2Lt = 3,    // and revocation data in the message
        cptCades2Lta = 4    // archive time-stamp
    };

    class TESSERA_API SignerInfo : public SignedCades::SignerInfo {
    public:
        // Further bit of GetVerifyInfo(): the archive time-stamps were
        // checked (each one's outcome is in its verification data).
        static constexpr unsigned long kVerifiedArchiveTimeStamps = 32;

        SignerInfo();
        SignerInfo(const SignerInfo& other);
        SignerInfo& operator=(const SignerInfo& other);
        ~SignerInfo() override;

        cptCadesType GetCadesType() const { return m_cades2Type; }
        const qorstd::QorVector<TimeStampAttribute>& GetArchiveTimeStampsV3() const {
            return m_archiveTimeStampsV3;
        }
        // One entry per archive time-stamp after a verification of an LTA
        // signer (null before): its time, path and failure, if any.
        const qorstd::QorVector<TimeStampVerificationData>* GetArchiveTimeStampsV3VerificationData()
            const {
            return m_archiveVerificationData.get();
        }

        // The hash-index attribute of this signer (an archive token's
        // signer): exactly one of the type must be there
        // (ErrAtsHashIndexV3NotFound, ErrAtsHashIndexV3Multiple). Borrowed.
        x509_attributes_st* GetATSHashIndex(const char* oid) const;
        x509_attributes_st* GetATSHashIndex() const;
        x509_attributes_st* GetATSHashIndexV2() const;
        x509_attributes_st* GetATSHashIndexV3() const;
        std::unique_ptr<ATSHashIndexAttributeBase> ParseATSHashIndex(
            const x509_attributes_st* attr) const;
        std::unique_ptr<ATSHashIndexAttributeBase> ParseATSHashIndexV2(
            const x509_attributes_st* attr) const;
        std::unique_ptr<ATSHashIndexAttributeBase> ParseATSHashIndexV3(
            const x509_attributes_st* attr) const;

        using SignedCades::SignerInfo::Verify;
        using SignedCades::SignerInfo::VerifyDigest;
        using SignedCades::SignerInfo::VerifySignerCertificate;
        // Verification with proofs of existence. The verifier's chain policy
        // decides the store: with build mode cptChainBuildSuppliedValData the
        // caller's `store` is used and filled, else one of the call's own.
        // Archive time-stamp failures are recorded per time-stamp, never
        // thrown; the rest fails as the verification without proofs does.
        void Verify(const VerifierCades& verifier, ValidationDataStore* store, cptCadesType type);
        void VerifyDigest(const qorstd::QorArray<unsigned char>& hash,
                          const VerifierCades& verifier, ValidationDataStore* store,
                          cptCadesType type);
        // The signer certificate's path alone, at the proven time of the
        // signature value.
        void VerifySignerCertificate(const VerifierCades& verifier, ValidationDataStore* store);

        // Every archive time-stamp in `attrs`, earliest first, each at the
        // proven time of its token; `msg` is the content's digest made with
        // each token's imprint algorithm (see VerifyArchiveTimeStamp).
        void VerifyArchiveTimeStamps(const qorstd::QorVector<TimeStampAttribute>& attrs,
                                     const VerifierCades& verifier, ValidationDataStore* store,
                                     const qorstd::QorArray<unsigned char>* msg,
                                     const X509Certificate* cert);

    protected:
        friend class SignedCades2;

        // Checks one signature time-stamp with proofs: `signatureValue` is
        // what its imprint covers.
        virtual void VerifySignatureTimeStamp(
            TimeStampVerificationData* data, const VerifierCades& verifier,
            const ValidationDataStore* store,
            const qorstd::QorArray<unsigned char>& signatureValue);
        // Checks one archive time-stamp and records what it proves. For a
        // detached message `msg` is the caller's digest of the content,
        // which must have been made with the token's imprint algorithm.
        virtual void VerifyArchiveTimeStamp(TimeStampVerificationData* data,
                                            const VerifierCades& verifier,
                                            ValidationDataStore* store,
                                            const qorstd::QorArray<unsigned char>* msg,
                                            const X509Certificate* cert);
        using SignedCms::SignerInfo::VerifySignatureTimeStamp;
        using SignedCms::SignerInfo::VerifySignatureTimeStamps;
        // The latest signature time-stamp, checked at its proven time;
        // failures reach the caller as the time-stamp exceptions.
        void VerifySignatureTimeStamps(const qorstd::QorVector<TimeStampAttribute>& attrs,
                                       const VerifierCades& verifier, ValidationDataStore* store,
                                       const X509Certificate* cert);
        // The signer's path at the proven time of its signature value.
        void VerifyCertificate(const x509_st* certificate, const VerifierCades& verifier,
                               ValidationDataStore* store, X509ChainPolicy* policy);

    private:
        SignerInfo(const SignedCades2* parent, const SignedCades::SignerInfo& parsed);
        void ParseArchiveTimeStamps();
        // The signer certificate: attached, among the verifier's
        // candidates, or among the store's certificates.
        const x509_st* LocateCertificateWithStore(const VerifierCades& verifier,
                                                  const ValidationDataStore* store);
        // The proven time of the signature value (`fallback` when none).
        std::int64_t ProvenSignatureTime(const ValidationDataStore& store,
                                         std::int64_t fallback) const;
        qorstd::QorArray<unsigned char> SignatureValueHash() const;
        // What an archive time-stamp v3 of this signer stamps, with
        // `indexAttr` as its hash index: the content's digest under
        // `atsHashAlg` (`msg`, the caller's digest, stands in for detached
        // content that is not set), the archived fields and the index's
        // value. One function for adding and checking, so that what is
        // written is what is verified.
        qorstd::QorArray<unsigned char> ArchiveImprintInput(
            CryptHash::cptHashAlgorithm atsHashAlg, const qorstd::QorArray<unsigned char>* msg,
            const x509_attributes_st* indexAttr) const;
        // The message's content type and this signer's archived fields as
        // they stand in the message (read again from its encoding when the
        // message was built here).
        void ArchivedParts(qorstd::QorArray<unsigned char>& eContentType,
                           qorstd::QorArray<unsigned char>& fields) const;

        const SignedCades2* m_cades2Parent;
        cptCadesType m_cades2Type;
        qorstd::QorVector<TimeStampAttribute> m_archiveTimeStampsV3;
        std::unique_ptr<qorstd::QorVector<TimeStampVerificationData>> m_archiveVerificationData;
        std::unique_ptr<LogChannel> m_cades2Log;
    };

    SignedCades2();
    explicit SignedCades2(const qorstd::QorArray<unsigned char>& content);
    SignedCades2(const SignedCades2& other);
    SignedCades2& operator=(const SignedCades2& other);
    ~SignedCades2() override;

    unsigned int GetSignerInfoCount() const override;
    // Null when `index` is out of range.
    const SignerInfo* GetSignerInfo(unsigned int index) const override;
    SignerInfo* GetSignerInfo(unsigned int index) override;

    using SignedCades::Verify;
    using SignedCades::VerifyDigest;
    // Every signer in order with proofs of existence; the first failure
    // ends it.
    virtual void Verify(const VerifierCades& verifier, ValidationDataStore* store,
                        cptCadesType type);
    virtual void VerifyDigest(const qorstd::QorArray<unsigned char>& hash,
                              const VerifierCades& verifier, ValidationDataStore* store,
                              cptCadesType type);
    void VerifySignerCertificate(const VerifierCades& verifier, ValidationDataStore* store);

    // Extension of one signer to the long-term forms. Each operation works
    // on a copy of the message and takes the result over only when all of
    // it succeeded: a failure leaves the object as it was. What is signed
    // is never touched. A detached message needs its content set.
    //
    // LT: builds at `time` (0: now) under `policy` (its stores and
    // revocation clients) the path of the signer certificate, of the TSA of
    // every signature time-stamp and of every archive time-stamp, and adds
    // to the message the certificates of those paths and the CRL or OCSP
    // response that decided each one's status, when the message does not
    // hold the same DER already (both when the either mode used both). OCSP
    // responses go in as revocation info of the other format
    // id-ri-ocsp-response. A path that cannot be built
    // fails with the chain's code; a policy without revocation checks
    // fails with ErrInvalidParameter, a checked certificate left without
    // revocation data with ErrRevocationUnknown.
    void AddValidationData(unsigned int signerIndex, const X509ChainPolicy& policy,
                           std::int64_t time);
    // LTA: an archive time-stamp v3 from `client` over the signer, carrying
    // an ats-hash-index-v3 of the message's certificates, revocation data
    // and the signer's unsigned attributes (earlier archive time-stamps
    // included, which it thus covers). The client's hash algorithm, when
    // unset, becomes the signer's digest and stays set. Failures of the
    // client are its own TspException.
    void AddArchiveTimeStamp(unsigned int signerIndex, const QorTsp2Lib::TspClient* client);
    // cptCades2Lt: AddValidationData; cptCades2Lta: AddValidationData,
    // AddArchiveTimeStamp and once more AddValidationData for the new
    // archive TSA's path, as one change. Other forms → ErrInvalidParameter.
    void Extend(unsigned int signerIndex, cptCadesType type, const X509ChainPolicy& policy,
                const QorTsp2Lib::TspClient* client, std::int64_t time);

protected:
    // The token over `imprint` (hashed with the client's algorithm). A
    // derived container may get it from elsewhere.
    virtual QorTsp2Lib::TspTimeStamp RequestArchiveTimeStamp(
        const QorTsp2Lib::TspClient& client, const qorstd::QorArray<unsigned char>& imprint) const;

    void FreeCms(int freeContent) override;
    void ParseCms(CMS_ContentInfo_st* cms) override;
    CMS_SignerInfo_st* AddSignerCades(CMS_ContentInfo_st* cms, const SignerCades& signer,
                                      SignedCades::cptCadesType type, unsigned int flags) override;
    void UpdateSignerCades(const SignedCades::SignerInfo& info) override;

private:
    // The signer at `signerIndex` of `work` (ErrOutOfBounds, ErrNoMessage).
    SignerInfo& ExtendedSigner(SignedCades2& work, unsigned int signerIndex,
                               const wchar_t* operation) const;
    // The two steps on a copy that the caller takes over; `latestArchiveOnly`
    // limits the paths to the one of the latest archive time-stamp's TSA.
    void AddValidationDataTo(SignedCades2& work, unsigned int signerIndex,
                             const X509ChainPolicy& policy, std::int64_t time,
                             bool latestArchiveOnly) const;
    void AddArchiveTimeStampTo(SignedCades2& work, unsigned int signerIndex,
                               const QorTsp2Lib::TspClient* client) const;

    std::unique_ptr<LogChannel> m_cades2Log;
    std::unique_ptr<qorstd::QorVector<SignerInfo>> m_pvCades2Signers;
};

}  // namespace TesseraLib

namespace qorstd {
extern template class QorVector<TesseraLib::SignedCades2::SignerInfo>;
extern template class QorVectorIterator<TesseraLib::SignedCades2::SignerInfo>;
}  // namespace qorstd
