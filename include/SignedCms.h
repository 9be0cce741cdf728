// One CMS SignedData message (RFC 5652): decoding and encoding, the values
// read from it, and signing and verifying its signers.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "ByteArrayVector.h"
#include "CryptHash.h"
#include "OcspResponse.h"
#include "QorArray.h"
#include "QorString.h"
#include "QorVector.h"
#include "TesseraExport.h"
#include "TimeStampAttribute.h"
#include "VerificationData.h"
#include "VerifierCms.h"
#include "X509Certificate.h"
#include "X509Crl.h"

struct CMS_ContentInfo_st;
struct CMS_SignerInfo_st;
struct bio_st;
struct asn1_string_st;
struct x509_st;
struct x509_attributes_st;
struct stack_st_X509;
struct stack_st_X509_ATTRIBUTE;

namespace QorTsp2Lib {
class TspClient;
}

namespace TesseraLib {

class LogChannel;
class SignerCms;
class VerifierCades;
class VerifierTimeStamp;
class X509Attribute;
class X509Chain;
class X509ChainPolicy;

// The container owns its OpenSSL message. A copy is a deep copy made by
// re-encoding the message and decoding it again: it gets a message and
// signer infos of its own (with each signer's verification results copied
// by position) and never shares handles with the original.
class TESSERA_API SignedCms {
public:
    enum cptCmsType {
        cptCmsNone = 0,      // no level given: verification uses the signer's own
        cptCmsBasic = 1,     // a plain signature
        cptCmsTimeStamp = 2  // a signature time-stamp present or wanted
    };

    // One signer of the message. It points into its container's message and
    // is only valid while the container holds that message: copies share the
    // OpenSSL signer handle and the parent pointer, so keeping a copy beyond
    // the next decode, sign, co-sign or upgrade of the container is not
    // supported.
    class TESSERA_API SignerInfo {
    public:
        // Bits of GetVerifyInfo(): what the last Verify checked.
        enum VerifyInfoBits : unsigned long {
            kVerifiedSignature = 1,    // signature and content
            kVerifiedCertificate = 2,  // signer certificate
            kVerifiedContentType = 4,  // content-type attribute
            kVerifiedSignatureTimeStamps = 8
        };

        SignerInfo();
        // Parses `signer`; `certificate` (may be null) is the signer's
        // certificate when the caller knows it.
        SignerInfo(const SignedCms* parent, const CMS_SignerInfo_st* signer,
                   const x509_st* certificate);
        SignerInfo(const SignerInfo& other);
        SignerInfo& operator=(const SignerInfo& other);
        virtual ~SignerInfo();

        // Same parent and same OpenSSL signer.
        bool operator==(const SignerInfo& other) const { return Equals(other); }
        bool operator!=(const SignerInfo& other) const { return !Equals(other); }
        bool Equals(const SignerInfo& other) const;

        unsigned long GetVersion() const { return m_version; }
        unsigned long GetVerifyInfo() const { return m_verifyInfo; }
        cptCmsType GetCadesType() const { return m_cadesType; }
        // Dotted OID of the content-type attribute; empty without one.
        const qorstd::QorString& GetContentType() const { return m_contentType; }
        // The signing-time attribute; 0 without one.
        std::int64_t GetSigningTime() const { return m_signingTime; }
        int GetHashAlgorithmNID() const { return m_nHashAlgorithm; }
        int GetSignatureAlgorithmNID() const { return m_nSignatureAlgorithm; }
        const qorstd::QorArray<unsigned char>& GetHashValue() const { return m_hashValue; }
        const qorstd::QorArray<unsigned char>& GetSignatureValue() const {
            return m_signatureValue;
        }
        // Empty until the signer's certificate is known.
        const X509Certificate& GetCertificate() const { return m_certificate; }
        const qorstd::QorVector<TimeStampAttribute>& GetSignatureTimeStamps() const {
            return m_signatureTimeStamps;
        }
        // Null before the first verification.
        const VerificationData* GetVerificationData() const { return m_verificationData.get(); }
        const TimeStampVerificationData* GetSignatureTimeStampVerificationData() const {
            return m_timeStampVerificationData.get();
        }
        // From the verification data: 0 / null when there is none.
        std::int64_t GetVerifyTime() const;
        const X509Chain* GetX509Chain() const;
        // From the time-stamp verification data: null / 0 when there is none.
        const QorTsp2Lib::TspTimeStamp* GetTimeStamp() const;
        const X509Chain* GetTimeStampChain() const;
        std::int64_t GetTimeStampVerifyTime() const;

        qorstd::QorString GetHashAlgorithmName() const;
        qorstd::QorString GetSignatureAlgorithmName() const;
        // Empty when the digest is unknown.
        qorstd::QorString GetHashAlgorithmOID() const;
        qorstd::QorArray<unsigned char> GetSignatureValueSHA1Hash() const;
        // 40 lower-case hex digits.
        qorstd::QorString GetSignatureValueSHA1HashHex() const;

        // Verification of this signer (see SignedCms::Verify). The first
        // failure of the signature time-stamps is held back until the
        // signer certificate has been checked too.
        void Verify(const VerifierCms& verifier, cptCmsType type);
        // The same with the caller's digest of the content in place of the
        // content.
        void VerifyDigest(const VerifierCms& verifier, const qorstd::QorArray<unsigned char>& hash,
                          cptCmsType type);
        // Only the signer certificate; the verify-info bits stay as they were.
        void VerifySignerCertificate(const VerifierCms& verifier);

        // cptCmsTimeStamp adds a signature time-stamp from `client` (whose
        // hash algorithm, when unset, becomes the signer's digest and stays
        // set); cptCmsBasic changes nothing.
        void Upgrade(cptCmsType type, const QorTsp2Lib::TspClient* client);

        const CMS_SignerInfo_st* GetSigner() const { return m_pSigner; }
        // The message this signer belongs to; null for a signer info of its own.
        const SignedCms* GetParent() const { return m_parent; }

    protected:
        friend class SignedCms;

        virtual void ParseSignerInfo(const CMS_SignerInfo_st* signer, const x509_st* certificate);
        // Re-reads the signature time-stamps from the unsigned attributes.
        void ParseSignatureTimeStamps();
        // Asks `client` for a token over the signature value and adds it as
        // an unsigned attribute.
        void AddTimeStamp(QorTsp2Lib::TspClient* client);
        // Checks the signer certificate under `option` at `time` (0 stays 0
        // for the certificate check) and keeps the verify time and path in
        // the verification data. cptVerifySignerCertificate: the time
        // validity of the certificate and, when the message or the verifier
        // holds the certificate's issuer, the issuer's signature on it.
        virtual void VerifyCertificate(const x509_st* certificate,
                                       VerifierCms::cptVerifyOption option,
                                       const std::int64_t& time, X509ChainPolicy* policy);
        // Checks `timeStamp` against `imprintSource` for this signer, with
        // new time-stamp verification data.
        virtual void VerifyTimeStamp(const TimeStampAttribute& timeStamp,
                                     const qorstd::QorArray<unsigned char>& imprintSource,
                                     const VerifierCades& verifier, std::int64_t* time);
        virtual void VerifySignatureTimeStamp(TimeStampVerificationData* data,
                                              const qorstd::QorArray<unsigned char>& imprintSource,
                                              const VerifierCades& verifier);
        // The latest time-stamp with a value is checked; on success `time`
        // becomes its time. Failures reach the caller as TimeStampException,
        // TspException or TimeStampOcspException.
        void VerifySignatureTimeStamps(qorstd::QorVector<TimeStampAttribute>& timeStamps,
                                       const VerifierCades& verifier, std::int64_t& time);

        int HasSignedAttributes() const;
        int HasSignedAttribute(const char* oid) const;
        int GetSignedAttrCount(const char* oid) const;
        int GetSignedAttrCount(int nid) const;
        int HasUnsignedAttribute(const char* oid) const;
        int GetUnsignedAttrCount(const char* oid) const;
        int GetUnsignedAttrCount(int nid) const;
        void AddUnsignedAttribute(const X509Attribute& attr);
        // The digest of `signer`'s signature octets (a time-stamp imprint).
        qorstd::QorArray<unsigned char> ComputeSignatureHash(
            const CMS_SignerInfo_st* signer, CryptHash::cptHashAlgorithm algorithm) const;

        // The one content-type / signing-time attribute (not found and
        // several are errors of their own).
        x509_attributes_st* GetContentTypeAttr() const;
        x509_attributes_st* GetSigningTimeAttr() const;

        void VerifySignature(const CMS_SignerInfo_st* signer) const;
        void VerifySignature(const CMS_SignerInfo_st* signer, const unsigned char* digest,
                             unsigned int length) const;
        void VerifyContent(const CMS_SignerInfo_st* signer) const;
        void VerifyContent(const CMS_SignerInfo_st* signer, const unsigned char* digest,
                           unsigned int length) const;
        void VerifyContentType(const qorstd::QorString& oid) const;
        // VerifyCertificate under the verifier's option, with the verifier's
        // candidates at hand as issuers.
        void VerifyCertificateFor(const x509_st* certificate, const VerifierCms& verifier,
                                  const std::int64_t& time, X509ChainPolicy* policy);
        // The signer certificate of a verification: the one the message
        // attaches, else FindSignerCertificate among the verifier's
        // candidates (kept on the signer info). None → ErrSignerCertNotFound,
        // logged as "`operation`: Signer's certificate not found.".
        const x509_st* LocateSignerCertificate(const wchar_t* operation,
                                               const VerifierCms& verifier);
        // The signer's own certificate, else the last candidate matching the
        // signer identifier; null when none.
        const x509_st* FindSignerCertificate(const CMS_SignerInfo_st* signer,
                                             const qorstd::QorVector<X509Certificate>* candidates);

        const SignedCms* m_parent;
        CMS_SignerInfo_st* m_pSigner;  // inside the parent's message, not owned
        unsigned long m_version;
        unsigned long m_verifyInfo;
        cptCmsType m_cadesType;
        qorstd::QorString m_contentType;
        std::int64_t m_signingTime;
        int m_nHashAlgorithm;
        int m_nSignatureAlgorithm;
        qorstd::QorArray<unsigned char> m_hashValue;
        qorstd::QorArray<unsigned char> m_signatureValue;
        X509Certificate m_certificate;
        std::unique_ptr<VerificationData> m_verificationData;
        qorstd::QorVector<TimeStampAttribute> m_signatureTimeStamps;
        std::unique_ptr<TimeStampVerificationData> m_timeStampVerificationData;
        std::unique_ptr<LogChannel> m_log;
        // The verifier's candidate certificates while one of its
        // verifications runs, so that VerifyCertificate can look for the
        // signer certificate's issuer among them too (not owned; null
        // otherwise, never copied).
        const qorstd::QorVector<X509Certificate>* m_issuerCandidates;
        // The version, sid, digest algorithm, signed attributes, signature
        // algorithm and signature as they stand in the decoded message,
        // one after the other: what an archive time-stamp covers of this
        // signer. Empty for a message the library built itself.
        qorstd::QorArray<unsigned char> m_archivedFields;

    private:
        // Shared by Verify and VerifyDigest; `hash` null means the content.
        void VerifySigner(const wchar_t* operation, const VerifierCms& verifier,
                          const qorstd::QorArray<unsigned char>* hash, cptCmsType type);
    };

    SignedCms();
    // The content to sign, or the detached content to verify.
    explicit SignedCms(const qorstd::QorArray<unsigned char>& content);
    SignedCms(const SignedCms& other);
    SignedCms& operator=(const SignedCms& other);
    virtual ~SignedCms();

    // Replaces the content; nothing else changes.
    void SetContent(const qorstd::QorArray<unsigned char>& content);

    virtual void Decode(const qorstd::QorArray<unsigned char>& message);
    virtual void Decode(const unsigned char* message, long size);
    // Empty when no message is held.
    virtual qorstd::QorArray<unsigned char> Encode() const;

    unsigned long GetVersion() const { return m_version; }
    int IsDetached() const { return m_detached; }
    const qorstd::QorArray<unsigned char>& GetContent() const { return m_aContent; }
    // Dotted OID of the encapsulated content type.
    const qorstd::QorString& GetContentType() const { return m_contentType; }
    const qorstd::QorVector<X509Certificate>& GetCertificates() const { return m_certificates; }
    const qorstd::QorVector<X509Crl>& GetCrls() const { return m_crls; }
    const QorOcsp2Lib::OcspVector<QorOcsp2Lib::OcspResponse>& GetOcspResponses() const {
        return m_ocspResponses;
    }
    // Each as a DER SEQUENCE.
    const qorstd::QorVector<qorstd::QorArray<unsigned char>>& GetAttributeCerts() const {
        return m_attributeCerts;
    }
    // Every revocation choice of the message (a CRL, or an "other" format
    // element), as it stands in the message; and, parallel to
    // GetOcspResponses(), the choice each OCSP response came in.
    const qorstd::QorVector<qorstd::QorArray<unsigned char>>& GetRevocationInfoChoices() const {
        return m_revocationChoices;
    }
    const qorstd::QorVector<qorstd::QorArray<unsigned char>>& GetOcspRevocationInfoChoices() const {
        return m_ocspChoices;
    }
    // Null before the first parse.
    const qorstd::QorVector<SignerInfo>* GetSignerInfos() const { return m_pvSigners.get(); }
    qorstd::QorVector<SignerInfo>* GetSignerInfos() { return m_pvSigners.get(); }
    virtual unsigned int GetSignerInfoCount() const;
    // Null when `index` is out of range.
    virtual const SignerInfo* GetSignerInfo(unsigned int index) const;
    virtual SignerInfo* GetSignerInfo(unsigned int index);

    // Drops the embedded content (1) or embeds the content set (0).
    void SetDetached(int detached);

    // Signing: the result replaces the held message and is parsed again.
    void Sign(const SignerCms& signer, cptCmsType type, int detached);
    // A digest of the content made by the caller with the signer's digest
    // algorithm; the message is always detached.
    void SignDigest(const SignerCms& signer, cptCmsType type,
                    const qorstd::QorArray<unsigned char>& hash);
    // Adds a signer over the content to the held message.
    void CoSign(const SignerCms& signer);
    // The exact DER size Sign would produce (for RSA keys); 0 on failure.
    unsigned long EstimateSize(const SignerCms& signer, cptCmsType type, int detached) const;

    // Upgrades a copy of every signer in order (see SignerInfo::Upgrade).
    void Upgrade(cptCmsType type, const QorTsp2Lib::TspClient* client);

    // Verification of every signer in order; the first failure ends it.
    void Verify(const VerifierCms& verifier, cptCmsType type);
    void VerifyDigest(const VerifierCms& verifier, const qorstd::QorArray<unsigned char>& hash,
                      cptCmsType type);
    void VerifySignerCertificate(const VerifierCms& verifier);

    CMS_ContentInfo_st* GetCms() const { return m_pCms; }

protected:
    friend class VerifierTimeStamp;

    // Decode of a message the caller has decoded already: takes over
    // `decoded`, what d2i_CMS_ContentInfo made of exactly `message`, instead
    // of decoding `message` once more (null: as Decode). A failure frees it.
    void DecodeAdopting(const qorstd::QorArray<unsigned char>& message,
                        CMS_ContentInfo_st* decoded);

    // Frees the message and the signer infos and empties what was read from
    // them; the content too when `freeContent` is nonzero.
    virtual void FreeCms(int freeContent);
    virtual void ParseCms(CMS_ContentInfo_st* cms);
    virtual CMS_SignerInfo_st* AddSignerCms(CMS_ContentInfo_st* cms, const SignerCms& signer,
                                            unsigned int flags);
    // Writes `info` back over the entry with the same parent and signer.
    virtual void UpdateSignerCms(const SignerInfo& info);

    // The CMS flags a signing with `signer` uses (NOATTR, NOCERTS, DETACHED,
    // NOSMIMECAP, and the library's own no-signing-time flag).
    virtual unsigned int SigningFlags(const SignerCms& signer, int detached) const;
    // The signer step of a signing operation: adds the signer to the message
    // with the flags given and returns its signer info.
    using AddSignerStep = std::function<CMS_SignerInfo_st*(CMS_ContentInfo_st*, unsigned int)>;
    // The bodies of Sign, SignDigest and CoSign around their signer step:
    // the first two return the new message (the caller owns it), CoSign
    // takes its result over and parses it.
    CMS_ContentInfo_st* SignContent(const SignerCms& signer, int detached,
                                    const AddSignerStep& addSigner);
    CMS_ContentInfo_st* SignHash(const SignerCms& signer,
                                 const qorstd::QorArray<unsigned char>& hash,
                                 const wchar_t* emptyHashMessage, const AddSignerStep& addSigner);
    void CoSignContent(const SignerCms& signer, const AddSignerStep& addSigner);

    // The body of EstimateSize: `type` for the log line, `allowance` bytes
    // added to the size, and the further signed attributes (an owned stack,
    // null for none) that `extraAttributes` makes after the checks.
    using ExtraAttributesStep = std::function<stack_st_X509_ATTRIBUTE*()>;
    unsigned long EstimateSignedSize(const SignerCms& signer, long type, int detached,
                                     unsigned long allowance,
                                     const ExtraAttributesStep& extraAttributes) const;

    void AddSignerCertificates(CMS_ContentInfo_st* cms, const SignerCms& signer);
    // A new stack of duplicates the caller owns; `skipSigner` leaves the
    // signer certificate out.
    stack_st_X509* EnumSignerCertificates(const SignerCms& signer, int skipSigner) const;
    static int FinalizeSigner(CMS_ContentInfo_st* cms, CMS_SignerInfo_st* signer, bio_st* content,
                              unsigned int flags);
    static int FinalizeDigestSigner(CMS_ContentInfo_st* cms, CMS_SignerInfo_st* signer,
                                    unsigned char* digest, unsigned int length, unsigned int flags);
    // Takes over `cms`, a message Sign or SignDigest has just made with
    // `signer`, in place of the held one and parses it; with
    // cptCmsTimeStamp its signer is time-stamped.
    void AdoptSignedMessage(CMS_ContentInfo_st* cms, const SignerCms& signer, cptCmsType type);
    static int SignSigner(CMS_SignerInfo_st* signer, unsigned int flags);
    static int AddSigningTime(CMS_SignerInfo_st* signer, asn1_string_st* time);

    CMS_ContentInfo_st* m_pCms;  // owned, null when none
    unsigned long m_version;
    int m_detached;
    qorstd::QorArray<unsigned char> m_aContent;
    qorstd::QorString m_contentType;
    qorstd::QorVector<X509Certificate> m_certificates;
    qorstd::QorVector<X509Crl> m_crls;
    qorstd::QorVector<qorstd::QorArray<unsigned char>> m_attributeCerts;
    QorOcsp2Lib::OcspVector<QorOcsp2Lib::OcspResponse> m_ocspResponses;
    qorstd::QorVector<qorstd::QorArray<unsigned char>> m_revocationChoices;
    qorstd::QorVector<qorstd::QorArray<unsigned char>> m_ocspChoices;
    // The encapsulated content type's OID encoding as it stands in the
    // decoded message (empty for a message the library built itself).
    qorstd::QorArray<unsigned char> m_eContentTypeDer;
    std::unique_ptr<LogChannel> m_log;
    std::unique_ptr<qorstd::QorVector<SignerInfo>> m_pvSigners;
    // The DER being decoded, while Decode parses it (else null): ParseCms
    // reads the parts OpenSSL does not hand out from it instead of encoding
    // the message again.
    const qorstd::QorArray<unsigned char>* m_decodingDer = nullptr;
    // Set while Sign or SignDigest parses the message it has just made:
    // such a message holds only X.509 certificates and signer infos, so its
    // version follows from them without encoding it.
    bool m_parsingOwnMessage = false;
};

}  // namespace TesseraLib

namespace qorstd {
extern template class QorVector<TesseraLib::SignedCms::SignerInfo>;
extern template class QorVectorIterator<TesseraLib::SignedCms::SignerInfo>;
}  // namespace qorstd
