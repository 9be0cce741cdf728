// Verification of long-term CAdES signers with proofs of existence: the
// archive time-stamps (latest proofs first recorded, each token checked at
// its own proven time), the signature time-stamp at its proven time, and
// the signer's path at the proven time of the signature value.
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "CryptException.h"
#include "CryptHash.h"
#include "CryptUtils.h"
#include "ExceptionRecording.h"
#include "Failure.h"
#include "LogChannel.h"
#include "OpenSslPtr.h"
#include "QorDer.h"
#include "QorExceptionStore.h"
#include "SignaturePolicy.h"
#include "SignaturePolicyVerifier.h"
#include "SignedCades2.h"
#include "ValidationDataStore.h"
#include "VerifierTimeStamp.h"
#include "X509Chain.h"
#include "X509ChainPolicy.h"
#include "X509Store.h"
#include "cms/ArchiveImprint.h"
#include "cms/CmsRevocationInfo.h"
#include "cms/TimeStampChoice.h"
#include "x509/X509Bytes.h"

namespace TesseraLib {

namespace {

constexpr const char* kOidTstInfo = "1.2.840.113549.1.9.16.1.4";

bool HasMode(const X509ChainPolicy* policy, int flag) {
    return policy != nullptr && (policy->GetChainBuildMode() & flag) != 0;
}

// The hash index the archive token's signer carries. Archive time-stamps
// in the wild carry any of the three versions (the public samples hold v1
// and v3), so whichever one is there is taken, newest first; each version
// hashes the unsigned attributes its own way.
std::unique_ptr<ATSHashIndexAttributeBase> HashIndexOf(const SignedCades2::SignerInfo& tsa) {
    const char* const versions[] = {ATSHashIndexAttributeBase::kOidV3,
                                    ATSHashIndexAttributeBase::kOidV2,
                                    ATSHashIndexAttributeBase::kOidV1};
    for (const char* oid : versions) {
        const Asn1ObjectPtr type(OBJ_txt2obj(oid, 1));
        if (CMS_unsigned_get_attr_by_OBJ(tsa.GetSigner(), type.get(), -1) < 0) {
            continue;
        }
        x509_attributes_st* attr = tsa.GetATSHashIndex(oid);
        if (std::strcmp(oid, ATSHashIndexAttributeBase::kOidV3) == 0) {
            return tsa.ParseATSHashIndexV3(attr);
        }
        if (std::strcmp(oid, ATSHashIndexAttributeBase::kOidV2) == 0) {
            return tsa.ParseATSHashIndexV2(attr);
        }
        return tsa.ParseATSHashIndex(attr);
    }
    // None: the v1 lookup reports it.
    return tsa.ParseATSHashIndex(tsa.GetATSHashIndex());
}

// Runs `check`, which may hand out a path in its argument; the path goes
// into `data` also when the check fails.
template <class Check>
void KeepingChain(VerificationData& data, Check&& check) {
    X509Chain* built = nullptr;
    try {
        check(&built);
    } catch (...) {
        const std::unique_ptr<X509Chain> chain(built);
        data.SetChain(chain.get());
        throw;
    }
    const std::unique_ptr<X509Chain> chain(built);
    data.SetChain(chain.get());
}

void RecordProofs(const SignedCms& message, std::int64_t time, ValidationDataStore& store) {
    for (unsigned int i = 0; i < message.GetCertificates().GetSize(); ++i) {
        store.AddCertificate(&message.GetCertificates()[i], time);
    }
    for (unsigned int i = 0; i < message.GetCrls().GetSize(); ++i) {
        store.AddCrl(&message.GetCrls()[i], time);
    }
    for (unsigned int i = 0; i < message.GetOcspResponses().GetSize(); ++i) {
        store.AddOcsp(&message.GetOcspResponses()[i], time);
    }
}

}  // namespace

// ================================================================ signer info

qorstd::QorArray<unsigned char> SignedCades2::SignerInfo::SignatureValueHash() const {
    return ComputeSignatureHash(m_pSigner, CryptHash::cptHashSHA256);
}

std::int64_t SignedCades2::SignerInfo::ProvenSignatureTime(const ValidationDataStore& store,
                                                           std::int64_t fallback) const {
    const qorstd::QorArray<unsigned char> hash = SignatureValueHash();
    std::int64_t poe = fallback;
    store.GetPOEHash(&hash, &poe);
    return poe;
}

void SignedCades2::SignerInfo::ArchivedParts(qorstd::QorArray<unsigned char>& eContentType,
                                             qorstd::QorArray<unsigned char>& fields) const {
    eContentType = m_cades2Parent->m_eContentTypeDer;
    fields = m_archivedFields;
    if (!eContentType.IsEmpty() && !fields.IsEmpty()) {
        return;
    }
    // A message built here was never walked: its own encoding is what a
    // time-stamp over it covers.
    const qorstd::QorArray<unsigned char> der = m_cades2Parent->Encode();
    cms::SignedDataLayout layout;
    if (!cms::ReadSignedDataLayout(der.GetData(), der.GetSize(), &layout)) {
        return;
    }
    eContentType.Assign(layout.eContentType.data,
                        static_cast<unsigned int>(layout.eContentType.length));
    for (std::size_t i = 0; i < layout.signerFields.size(); ++i) {
        const cms::DerSpan& signature = layout.signerSignatures[i];
        if (signature.length == m_signatureValue.GetSize() &&
            std::equal(signature.data, signature.data + signature.length,
                       m_signatureValue.GetData())) {
            fields = cms::ArchivedFields(layout.signerFields[i]);
        }
    }
}

const x509_st* SignedCades2::SignerInfo::LocateCertificateWithStore(
    const VerifierCades& verifier, const ValidationDataStore* store) {
    try {
        return LocateSignerCertificate(L"VerifyDigest", verifier);
    } catch (const CryptException& e) {
        const X509ChainPolicy* policy = verifier.GetChainPolicy();
        if (e.GetErrorCode() != ErrSignerCertNotFound || store == nullptr ||
            !(HasMode(policy, X509ChainPolicy::cptChainBuildStores) ||
              HasMode(policy, X509ChainPolicy::cptChainBuildSuppliedValData))) {
            throw;
        }
    }
    qorstd::QorVector<X509Certificate> proven;
    for (unsigned int i = 0; i < store->GetCertificates().GetSize(); ++i) {
        if (const X509Certificate* cert = store->GetCertificates()[i].GetCertificate()) {
            proven.Add(*cert);
        }
    }
    const x509_st* found = FindSignerCertificate(m_pSigner, &proven);
    if (found == nullptr) {
        Fail(m_cades2Log, L"VerifyDigest: Signer's certificate not found.", ErrSignerCertNotFound);
    }
    m_certificate = X509Certificate(found);
    return m_certificate.GetX509();
}

void SignedCades2::SignerInfo::Verify(const VerifierCades& verifier, ValidationDataStore* store,
                                      cptCadesType type) {
    TLOG_INFO(m_cades2Log, L"Verify()");
    VerifyDigest(ContentDigest(m_nHashAlgorithm), verifier, store, type);
}

void SignedCades2::SignerInfo::VerifyDigest(const qorstd::QorArray<unsigned char>& hash,
                                            const VerifierCades& verifier,
                                            ValidationDataStore* store, cptCadesType type) {
    const VerifierCms::cptVerifyOption option = verifier.GetVerifyOption();
    const std::int64_t time =
        verifier.GetVerifyTime() != 0 ? verifier.GetVerifyTime() : CryptUtils::GetCurrentTimeUTC();
    TLOG_INFO(m_cades2Log, L"VerifyDigest(Signer:%ls VerifyOption:%d VerifyTime: %ls)",
              m_certificate.GetSubjectStringX500(0).c_str(), static_cast<int>(option),
              x509::FormatLogTime(time).c_str());
    if (option == VerifierCms::cptVerifyWholeChain && verifier.GetChainPolicy() == nullptr) {
        Fail(m_cades2Log,
             L"VerifyDigest: GetVerifyOption() == VerifierCades::cptVerifyWholeChain && "
             L"GetChainPolicy() == NULL",
             ErrInvalidParameter);
    }
    m_verifyInfo = 0;
    if (type == cptCades2None) {
        type = m_cades2Type;
    }
    if (m_pSigner == nullptr) {
        Fail(m_cades2Log, L"VerifyDigest: Signer is not present.", ErrNoSigner);
    }
    m_verificationData.reset(new VerificationData());
    m_archiveVerificationData.reset();
    const bool checkArchives = type >= cptCades2Lta && !m_archiveTimeStampsV3.IsEmpty();
    if (type >= cptCades2Lta) {
        m_archiveVerificationData =
            std::make_unique<qorstd::QorVector<TimeStampVerificationData>>();
        for (unsigned int i = 0; i < m_archiveTimeStampsV3.GetSize(); ++i) {
            m_archiveVerificationData->Add(TimeStampVerificationData());
        }
    }
    const bool checkTimeStamps = type >= cptCades2T && !m_signatureTimeStamps.IsEmpty();
    m_timeStampVerificationData.reset(checkTimeStamps ? new TimeStampVerificationData() : nullptr);

    const X509ChainPolicy* given = verifier.GetChainPolicy();
    const x509_st* certificate = LocateCertificateWithStore(verifier, store);
    const X509Certificate signerCert(certificate);

    // Proofs found here reach the caller's store only when the policy says
    // the caller supplies validation data.
    ValidationDataStore ownStore;
    ValidationDataStore& proofs =
        store != nullptr && HasMode(given, X509ChainPolicy::cptChainBuildSuppliedValData)
            ? *store
            : ownStore;
    const qorstd::QorArray<unsigned char> signatureHash = SignatureValueHash();
    proofs.AddHash(&signatureHash, time);
    proofs.AddCertificate(&signerCert, time);
    if (type >= cptCades2T) {
        for (unsigned int i = 0; i < m_signatureTimeStamps.GetSize(); ++i) {
            proofs.AddSignatureTimeStamp(&m_signatureTimeStamps[i].GetTimeStamp(), time);
        }
    }
    if (type >= cptCades2Lta) {
        for (unsigned int i = 0; i < m_archiveTimeStampsV3.GetSize(); ++i) {
            proofs.AddArchiveTimeStamp(&m_archiveTimeStampsV3[i].GetTimeStamp(), time);
        }
    }
    if (type >= cptCades2Lt && HasMode(given, X509ChainPolicy::cptChainBuildStores) &&
        m_cades2Parent != nullptr) {
        RecordProofs(*m_cades2Parent, time, proofs);
    }

    X509MemoryStore policyStore;
    X509ChainPolicy chainPolicy = given != nullptr ? X509ChainPolicy(*given) : X509ChainPolicy();
    const bool isTimeStampToken =
        m_cades2Parent != nullptr && m_cades2Parent->GetContentType().compare(kOidTstInfo) == 0;
    m_policyInUse = nullptr;

    QorExceptionStore kept;
    RunKeepingFailure(kept, [&] {
        if (hash.IsEmpty()) {
            Fail(m_cades2Log, L"VerifyDigest: Content hash is empty", ErrNoContent);
        }
        VerifySignedParts(hash, certificate, verifier, isTimeStampToken, &policyStore,
                          &chainPolicy);
        if (checkArchives) {
            VerifyArchiveTimeStamps(m_archiveTimeStampsV3, verifier, &proofs, &hash, &signerCert);
            m_verifyInfo |= kVerifiedArchiveTimeStamps;
        }
        if (checkTimeStamps) {
            VerifySignatureTimeStamps(m_signatureTimeStamps, verifier, &proofs, &signerCert);
            m_verifyInfo |= kVerifiedSignatureTimeStamps;
        }
    });

    if (isTimeStampToken) {
        chainPolicy.SetPurpose(X509ChainPolicy::kPurposeTimestampSign);
    }
    try {
        if (option == VerifierCms::cptVerifySignerCertificate ||
            option == VerifierCms::cptVerifyWholeChain) {
            VerifyCertificate(certificate, verifier, &proofs, &chainPolicy);
            m_verifyInfo |= kVerifiedCertificate;
        }
        const std::int64_t* at = m_verificationData->GetVerifyTime();
        VerifyPolicyRules(verifier, at != nullptr ? *at : time);
    } catch (...) {
        kept.ReThrow();
        throw;
    }
    kept.ReThrow();
}

void SignedCades2::SignerInfo::VerifySignerCertificate(const VerifierCades& verifier,
                                                       ValidationDataStore* store) {
    const std::int64_t time =
        verifier.GetVerifyTime() != 0 ? verifier.GetVerifyTime() : CryptUtils::GetCurrentTimeUTC();
    TLOG_INFO(m_cades2Log, L"VerifySignerCertificate(Signer:%ls VerifyOption:%d VerifyTime: %ls)",
              m_certificate.GetSubjectStringX500(0).c_str(),
              static_cast<int>(verifier.GetVerifyOption()), x509::FormatLogTime(time).c_str());
    if (m_pSigner == nullptr) {
        Fail(m_cades2Log, L"VerifySignerCertificate: Signer is not present.", ErrNoSigner);
    }
    m_verificationData.reset(new VerificationData());
    const x509_st* certificate = LocateCertificateWithStore(verifier, store);
    ValidationDataStore ownStore;
    ValidationDataStore& proofs =
        store != nullptr &&
                HasMode(verifier.GetChainPolicy(), X509ChainPolicy::cptChainBuildSuppliedValData)
            ? *store
            : ownStore;
    const qorstd::QorArray<unsigned char> signatureHash = SignatureValueHash();
    proofs.AddHash(&signatureHash, time);
    const VerifierCms::cptVerifyOption option = verifier.GetVerifyOption();
    if (option == VerifierCms::cptVerifySignerCertificate ||
        option == VerifierCms::cptVerifyWholeChain) {
        VerifyCertificate(certificate, verifier, &proofs, verifier.GetChainPolicy());
    }
}

void SignedCades2::SignerInfo::VerifyCertificate(const x509_st* certificate,
                                                 const VerifierCades& verifier,
                                                 ValidationDataStore* store,
                                                 X509ChainPolicy* policy) {
    const X509Certificate cert(certificate);
    const std::int64_t fallback =
        verifier.GetVerifyTime() != 0 ? verifier.GetVerifyTime() : CryptUtils::GetCurrentTimeUTC();
    // The time-stamps have moved the signature value's proof back to the
    // earliest time it is known to have existed: the path is judged then.
    const std::int64_t time = ProvenSignatureTime(*store, fallback);
    m_verificationData->SetVerifyTime(&time);
    const X509Certificate::cptVerifyOption certOption =
        verifier.GetVerifyOption() == VerifierCms::cptVerifyWholeChain
            ? X509Certificate::cptVerifyWholeChain
            : X509Certificate::cptVerifyTimeValidity;
    KeepingChain(*m_verificationData, [&](X509Chain** built) {
        cert.Verify(certOption, time, policy, store, nullptr, built);
    });
}

// ------------------------------------------------- signature time-stamps

void SignedCades2::SignerInfo::VerifySignatureTimeStamp(
    TimeStampVerificationData* data, const VerifierCades& verifier,
    const ValidationDataStore* store, const qorstd::QorArray<unsigned char>& signatureValue) {
    TLOG_DEBUG(m_cades2Log, L"VerifySignatureTimeStamp()");
    if (data == nullptr) {
        Fail(m_cades2Log, L"VerifySignatureTimeStamp: Bad parameter - data == NULL",
             ErrInvalidParameter, L"VerifySignatureTimeStamp - data == NULL");
    }
    const std::int64_t* verifyTime = data->GetVerifyTime();
    TLOG_DEBUG(m_cades2Log, L"VerifySignatureTimeStamp(VerifyTime: %ls)",
               x509::FormatLogTime(verifyTime != nullptr ? *verifyTime : 0).c_str());
    if (data->GetTimeStamp() == nullptr) {
        Fail(m_cades2Log, L"VerifySignatureTimeStamp: Bad parameter - data->timestamp == NULL",
             ErrInvalidParameter, L"VerifySignatureTimeStamp - data->timestamp == NULL");
    }
    data->SetChain(nullptr);
    KeepingChain(*data, [&](X509Chain** built) {
        VerifierTimeStamp(data->GetTimeStamp()).Verify(signatureValue, verifier, store, built);
    });
}

void SignedCades2::SignerInfo::VerifySignatureTimeStamps(
    const qorstd::QorVector<TimeStampAttribute>& attrs, const VerifierCades& verifier,
    ValidationDataStore* store, const X509Certificate* cert) {
    TLOG_DEBUG(m_cades2Log, L"VerifySignatureTimeStamps()");
    if (attrs.IsEmpty()) {
        Fail(m_cades2Log, L"VerifySignatureTimeStamps: Bad parameter - attrs is empty",
             ErrInvalidParameter, L"SignedCades::SignerInfo - attrs.IsEmpty()");
    }
    if (m_signatureValue.IsEmpty()) {
        Fail(m_cades2Log, L"VerifySignatureTimeStamps: No signature data.", ErrInvalidSignature);
    }
    if (!m_timeStampVerificationData) {
        m_timeStampVerificationData.reset(new TimeStampVerificationData());
    }
    const TimeStampAttribute* chosen = cms::LatestTimeStamp(attrs);
    if (chosen == nullptr) {
        return;
    }
    cms::CheckAsTimeStamp(chosen, [&] {
        const QorTsp2Lib::TspTimeStamp& token = chosen->GetTimeStamp();
        std::int64_t at = verifier.GetVerifyTime();
        store->GetPOESignatureTimeStamp(&token, &at);
        m_timeStampVerificationData->SetVerifyTime(&at);
        m_timeStampVerificationData->SetTimeStamp(&token);
        VerifierCades atProof(verifier);
        atProof.SetVerifyTime(at);
        VerifySignatureTimeStamp(m_timeStampVerificationData.get(), atProof, store,
                                 m_signatureValue);
        const std::int64_t stamped = token.GetTime();
        const qorstd::QorArray<unsigned char> signatureHash = SignatureValueHash();
        store->AddHash(&signatureHash, stamped);
        if (cert != nullptr) {
            store->AddCertificate(cert, stamped);
        }
    });
}

// --------------------------------------------------- archive time-stamps

qorstd::QorArray<unsigned char> SignedCades2::SignerInfo::ArchiveImprintInput(
    CryptHash::cptHashAlgorithm atsHashAlg, const qorstd::QorArray<unsigned char>* msg,
    const x509_attributes_st* indexAttr) const {
    // The content's digest under the token's own algorithm, whatever the
    // signer's is: for a detached message the caller's digest counts only
    // when the signer's algorithm is the token's, else the content is
    // needed.
    qorstd::QorArray<unsigned char> contentDigest;
    const int atsNid = EVP_MD_get_type(CryptHash::GetHashEVP(atsHashAlg));
    if (m_cades2Parent->IsDetached() == 0 || !m_cades2Parent->GetContent().IsEmpty()) {
        if (m_cades2Parent->IsDetached() == 0 && m_cades2Parent->GetContent().IsEmpty()) {
            Fail(m_cades2Log, L"VerifyArchiveTimeStamp: nContentLen <= 0", ErrInternal);
        }
        contentDigest = ContentDigest(atsNid);
    } else if (msg == nullptr) {
        Fail(m_cades2Log, L"VerifyArchiveTimeStamp: msg == NULL)", ErrInvalidParameter);
    } else if (msg->IsEmpty()) {
        Fail(m_cades2Log, L"VerifyArchiveTimeStamp: nContentLen <= 0", ErrInvalidParameter);
    } else if (m_nHashAlgorithm != atsNid) {
        Fail(m_cades2Log,
             L"VerifyArchiveTimeStamp: The content is needed - the archive time-stamp's digest "
             L"algorithm is not the signer's.",
             ErrNoContent);
    } else {
        contentDigest = *msg;
    }

    // The index value exactly as the token carries it: re-encoding it into
    // another layout would stamp bytes the TSA never saw.
    const std::vector<unsigned char> indexValue =
        indexAttr != nullptr
            ? qorssl::Encode(i2d_ASN1_TYPE,
                             X509_ATTRIBUTE_get0_type(const_cast<X509_ATTRIBUTE*>(indexAttr), 0))
            : std::vector<unsigned char>();
    if (indexValue.empty()) {
        Fail(m_cades2Log, L"VerifyArchiveTimeStamp - hashIndex == NULL", ErrAsn1Decoding);
    }
    qorstd::QorArray<unsigned char> eContentType;
    qorstd::QorArray<unsigned char> fields;
    ArchivedParts(eContentType, fields);
    return cms::ArchiveImprintInput(
        m_cades2Log.get(), eContentType, contentDigest, fields,
        qorstd::QorArray<unsigned char>(indexValue.data(),
                                        static_cast<unsigned int>(indexValue.size())));
}

void SignedCades2::SignerInfo::VerifyArchiveTimeStamp(TimeStampVerificationData* data,
                                                      const VerifierCades& verifier,
                                                      ValidationDataStore* store,
                                                      const qorstd::QorArray<unsigned char>* msg,
                                                      const X509Certificate* cert) {
    TLOG_DEBUG(m_cades2Log, L"VerifyArchiveTimeStamp()");
    if (data == nullptr) {
        Fail(m_cades2Log, L"VerifyArchiveTimeStamp: Bad parameter - tsDataValidation == NULL",
             ErrInvalidParameter);
    }
    const std::int64_t* verifyTime = data->GetVerifyTime();
    TLOG_DEBUG(m_cades2Log, L"VerifyArchiveTimeStamp(VerifyTime: %ls)",
               x509::FormatLogTime(verifyTime != nullptr ? *verifyTime : 0).c_str());
    if (data->GetTimeStamp() == nullptr) {
        Fail(m_cades2Log,
             L"VerifyArchiveTimeStamp: Bad parameter - tsDataValidation->timestamp == NULL",
             ErrInvalidParameter);
    }
    data->SetChain(nullptr);
    const QorTsp2Lib::TspTimeStamp& token = *data->GetTimeStamp();

    // The token's signer and the hash index it carries.
    SignedCades2 tokenMessage;
    const QorTsp2Lib::TspArray<unsigned char> tokenDer = token.Encode(1);
    tokenMessage.Decode(tokenDer.GetData(), static_cast<long>(tokenDer.GetSize()));
    if (tokenMessage.GetSignerInfoCount() == 0) {
        Fail(m_cades2Log, L"VerifyArchiveTimeStamp: pTsaSigners is empty", ErrSignerCertNotFound,
             L"pTsaSigners->IsEmpty()");
    }
    if (tokenMessage.GetSignerInfoCount() > 1) {
        Fail(m_cades2Log, L"VerifyArchiveTimeStamp: Multiple TSA signers found.",
             ErrInvalidMessageFormat, L"pTsaSigners->GetSize() > 1");
    }
    const SignedCades2::SignerInfo& tsa = *tokenMessage.GetSignerInfo(0);
    const std::unique_ptr<ATSHashIndexAttributeBase> index = HashIndexOf(tsa);
    if (!index) {
        Fail(m_cades2Log, L"VerifyArchiveTimeStamp: atsHashIndexAttr=NULL", ErrAsn1Decoding);
    }
    const CryptHash::cptHashAlgorithm atsHashAlg =
        static_cast<CryptHash::cptHashAlgorithm>(token.GetMessageImprint().GetHashAlgorithm());
    if (index->GetHashAlgorithm() != atsHashAlg) {
        Fail(m_cades2Log,
             L"VerifyArchiveTimeStamp: atsHashIndexAttr.GetHashAlgorithm() != atsHashAlg",
             ErrAtsHashIndexAlgorithm);
    }
    const cms::UnsignedAttributes unsignedAttrs(m_pSigner);
    index->Verify(m_cades2Parent->GetCertificates(), m_cades2Parent->GetRevocationInfoChoices(),
                  unsignedAttrs.stack);

    const qorstd::QorArray<unsigned char> input =
        ArchiveImprintInput(atsHashAlg, msg, index->GetX509Attr());

    VerifierCades atProof(verifier);
    atProof.SetVerifyTime(verifyTime != nullptr ? *verifyTime : 0);
    KeepingChain(*data, [&](X509Chain** built) {
        VerifierTimeStamp(&token).Verify(input, atProof, store, built);
    });

    // What the index lists existed at the token's time.
    const std::int64_t stamped = token.GetTime();
    index->UpdatePOEInfo(m_cades2Parent->GetCertificates(), m_cades2Parent->GetCrls(),
                         m_cades2Parent->GetOcspResponses(),
                         m_cades2Parent->GetOcspRevocationInfoChoices(), m_signatureTimeStamps,
                         m_archiveTimeStampsV3, stamped, store);
    const qorstd::QorArray<unsigned char> signatureHash = SignatureValueHash();
    store->AddHash(&signatureHash, stamped);
    if (cert != nullptr) {
        store->AddCertificate(cert, stamped);
    }
}

void SignedCades2::SignerInfo::VerifyArchiveTimeStamps(
    const qorstd::QorVector<TimeStampAttribute>& attrs, const VerifierCades& verifier,
    ValidationDataStore* store, const qorstd::QorArray<unsigned char>* msg,
    const X509Certificate* cert) {
    TLOG_DEBUG(m_cades2Log, L"VerifyArchiveTimeStamps()");
    if (attrs.IsEmpty()) {
        Fail(m_cades2Log, L"VerifyArchiveTimeStamps: Bad parameter - attrs is empty",
             ErrInvalidParameter, L"SignedCades2::SignerInfo - attrs.IsEmpty()");
    }
    if (m_signatureValue.IsEmpty()) {
        Fail(m_cades2Log, L"VerifyArchiveTimeStamps: No signature data.", ErrInvalidSignature);
    }
    if (store == nullptr) {
        Fail(m_cades2Log, L"VerifyArchiveTimeStamps: Bad parameter - store is null",
             ErrInvalidParameter);
    }
    if (!m_archiveVerificationData || m_archiveVerificationData->GetSize() != attrs.GetSize()) {
        m_archiveVerificationData =
            std::make_unique<qorstd::QorVector<TimeStampVerificationData>>();
        for (unsigned int i = 0; i < attrs.GetSize(); ++i) {
            m_archiveVerificationData->Add(TimeStampVerificationData());
        }
    }
    std::vector<const TimeStampAttribute*> ordered;
    for (unsigned int i = 0; i < attrs.GetSize(); ++i) {
        ordered.push_back(&attrs[i]);
    }
    std::stable_sort(ordered.begin(), ordered.end(),
                     [](const TimeStampAttribute* a, const TimeStampAttribute* b) {
                         return TimeStampAttribute::CompareByTime(a, b) < 0;
                     });
    for (unsigned int i = 0; i < ordered.size(); ++i) {
        TimeStampVerificationData& data = m_archiveVerificationData->GetAt(i);
        const QorTsp2Lib::TspTimeStamp& token = ordered[i]->GetTimeStamp();
        data.SetTimeStamp(&token);
        std::int64_t at = verifier.GetVerifyTime();
        store->GetPOEArchiveTimeStamp(&token, &at);
        data.SetVerifyTime(&at);
        // Each time-stamp's outcome is its own: a failure is recorded and
        // the next one is still checked.
        QorExceptionStore failure;
        try {
            if (!RunKeepingFailure(
                    failure, [&] { VerifyArchiveTimeStamp(&data, verifier, store, msg, cert); })) {
                data.SetException(failure.GetException());
            }
        } catch (...) {
            const CryptException unknown(
                ErrInternal,
                L"Unrecognized exception occured during the archive timestamp verification "
                L"process.");
            data.SetException(&unknown);
        }
    }
}

// ================================================================== container

void SignedCades2::Verify(const VerifierCades& verifier, ValidationDataStore* store,
                          cptCadesType type) {
    TLOG_INFO(m_cades2Log, L"Verify(VerifyOption:%d)",
              static_cast<int>(verifier.GetVerifyOption()));
    if (m_pCms == nullptr) {
        Fail(m_cades2Log, L"Verify: CMS not present - m_pCms is null", ErrNoMessage);
    }
    if (GetSignerInfoCount() == 0) {
        Fail(m_cades2Log, L"Verify: Signer is not present.", ErrNoSigner);
    }
    for (unsigned int i = 0; i < GetSignerInfoCount(); ++i) {
        GetSignerInfo(i)->Verify(verifier, store, type);
    }
}

void SignedCades2::VerifyDigest(const qorstd::QorArray<unsigned char>& hash,
                                const VerifierCades& verifier, ValidationDataStore* store,
                                cptCadesType type) {
    TLOG_INFO(m_cades2Log, L"VerifyDigest(VerifyOption:%d)",
              static_cast<int>(verifier.GetVerifyOption()));
    if (m_pCms == nullptr) {
        Fail(m_cades2Log, L"VerifyDigest: CMS not present - m_pCms is null", ErrNoMessage);
    }
    if (GetSignerInfoCount() == 0) {
        Fail(m_cades2Log, L"VerifyDigest: Signer is not present.", ErrNoSigner);
    }
    for (unsigned int i = 0; i < GetSignerInfoCount(); ++i) {
        GetSignerInfo(i)->VerifyDigest(hash, verifier, store, type);
    }
}

void SignedCades2::VerifySignerCertificate(const VerifierCades& verifier,
                                           ValidationDataStore* store) {
    TLOG_INFO(m_cades2Log, L"VerifySignerCertificate(VerifyOption:%d)",
              static_cast<int>(verifier.GetVerifyOption()));
    if (m_pCms == nullptr) {
        Fail(m_cades2Log, L"VerifySignerCertificate: CMS not present - m_pCms is null",
             ErrNoMessage);
    }
    if (GetSignerInfoCount() == 0) {
        Fail(m_cades2Log, L"VerifySignerCertificate: Signer is not present.", ErrNoSigner);
    }
    for (unsigned int i = 0; i < GetSignerInfoCount(); ++i) {
        GetSignerInfo(i)->VerifySignerCertificate(verifier, store);
    }
}

}  // namespace TesseraLib
