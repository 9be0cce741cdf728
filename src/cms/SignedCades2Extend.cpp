// Extension of long-term CAdES signers: validation data (LT) and archive
// time-stamps v3 (LTA). Both are built from the pieces the verification
// reads, so that what is written is what is verified, and both work on a
// copy of the message that replaces the held one only at the end.
#include <openssl/cms.h>
#include <openssl/x509.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "CryptException.h"
#include "CryptHash.h"
#include "Failure.h"
#include "LogChannel.h"
#include "OpenSslPtr.h"
#include "QorDer.h"
#include "SignedCades2.h"
#include "TspClient.h"
#include "X509Chain.h"
#include "X509ChainPolicy.h"
#include "cms/ArchiveImprint.h"
#include "cms/CmsRevocationInfo.h"
#include "x509/X509ChainContext.h"

namespace TesseraLib {

namespace {

constexpr const char* kOidArchiveTimeStampV3 = "0.4.0.1733.2.4";
// RFC 5652: a message with revocation info of the other format is version 5.
constexpr unsigned long kVersionOtherRevocationInfo = 5;

using Der = std::vector<unsigned char>;

Der ToDer(const qorstd::QorArray<unsigned char>& bytes) {
    return Der(bytes.GetData(), bytes.GetData() + bytes.GetSize());
}

// The validation data of a message: every certificate and revocation choice
// it holds and what is added, each once (same DER).
struct ValidationItems {
    std::vector<Der> certificates;
    std::vector<Der> revocationInfos;
    unsigned int added = 0;

    void Add(std::vector<Der>& list, Der item) {
        if (!item.empty() && std::find(list.begin(), list.end(), item) == list.end()) {
            list.push_back(std::move(item));
            ++added;
        }
    }
    bool HasOtherRevocationInfo() const {
        return std::any_of(revocationInfos.begin(), revocationInfos.end(),
                           [](const Der& choice) { return choice.front() == 0xA1; });
    }
};

// The certificate that signed `stamp`, as its token carries it.
X509Certificate TsaCertificateOf(const LogChannel* log, const TimeStampAttribute& stamp) {
    const QorTsp2Lib::TspArray<unsigned char> der = stamp.GetTimeStamp().Encode(1);
    SignedCades token;
    token.Decode(der.GetData(), static_cast<long>(der.GetSize()));
    const SignedCms::SignerInfo* tsa = token.GetSignerInfo(0);
    if (tsa == nullptr || tsa->GetCertificate().GetX509() == nullptr) {
        Fail(log, L"AddValidationData: The TSA's certificate is not in its token.",
             ErrSignerCertNotFound);
    }
    return tsa->GetCertificate();
}

// A copy of `policy` for one path, of its own kind: a validation policy
// chooses its stores by the purpose.
std::unique_ptr<X509ChainPolicy> PolicyFor(const X509ChainPolicy& policy, int purpose) {
    const auto* validation = dynamic_cast<const X509ChainPolicyTL*>(&policy);
    std::unique_ptr<X509ChainPolicy> copy = validation != nullptr
                                                ? std::make_unique<X509ChainPolicyTL>(*validation)
                                                : std::make_unique<X509ChainPolicy>(policy);
    copy->SetPurpose(purpose);
    return copy;
}

}  // namespace

SignedCades2::SignerInfo& SignedCades2::ExtendedSigner(SignedCades2& work, unsigned int signerIndex,
                                                       const wchar_t* operation) const {
    if (work.m_pCms == nullptr) {
        TLOG_ERROR(m_cades2Log, L"%ls: CMS not present - m_pCms is null", operation);
        Fail(ErrNoMessage);
    }
    SignerInfo* signer = work.GetSignerInfo(signerIndex);
    if (signer == nullptr) {
        TLOG_ERROR(m_cades2Log, L"%ls: Signer index %u out of range (%u signers).", operation,
                   signerIndex, work.GetSignerInfoCount());
        Fail(ErrOutOfBounds, L"signerIndex");
    }
    return *signer;
}

// ------------------------------------------------------------------- LT

void SignedCades2::AddValidationDataTo(SignedCades2& work, unsigned int signerIndex,
                                       const X509ChainPolicy& policy, std::int64_t time,
                                       bool latestArchiveOnly) const {
    const SignerInfo& signer = ExtendedSigner(work, signerIndex, L"AddValidationData");
    const X509ChainPolicy::cptRevocationOption option = policy.GetRevocationOption();
    if (option == X509ChainPolicy::revOptionNone) {
        Fail(m_cades2Log,
             L"AddValidationData: Bad parameter - the chain policy checks no revocation.",
             ErrInvalidParameter, L"GetRevocationOption()=revOptionNone");
    }
    if (signer.GetCertificate().GetX509() == nullptr) {
        Fail(m_cades2Log, L"AddValidationData: Signer's certificate not found.",
             ErrSignerCertNotFound);
    }
    // The signer's path, then each TSA's, each under its own purpose.
    std::vector<std::pair<X509Certificate, int>> subjects;
    const qorstd::QorVector<TimeStampAttribute>& archives = signer.GetArchiveTimeStampsV3();
    if (latestArchiveOnly) {
        subjects.emplace_back(TsaCertificateOf(m_cades2Log.get(), archives[archives.GetSize() - 1]),
                              X509ChainPolicy::kPurposeTimestampSign);
    } else {
        subjects.emplace_back(signer.GetCertificate(), policy.GetPurpose());
        for (const qorstd::QorVector<TimeStampAttribute>* stamps :
             {&signer.GetSignatureTimeStamps(), &archives}) {
            for (unsigned int i = 0; i < stamps->GetSize(); ++i) {
                subjects.emplace_back(TsaCertificateOf(m_cades2Log.get(), (*stamps)[i]),
                                      X509ChainPolicy::kPurposeTimestampSign);
            }
        }
    }

    const qorstd::QorArray<unsigned char> der = work.Encode();
    cms::SignedDataLayout layout;
    if (!cms::ReadSignedDataLayout(der.GetData(), der.GetSize(), &layout)) {
        Fail(m_cades2Log, L"AddValidationData: The message is not a SignedData.",
             ErrInvalidMessageFormat);
    }
    ValidationItems items;
    for (const cms::DerSpan& span : layout.certificates) {
        items.certificates.emplace_back(span.data, span.data + span.length);
    }
    for (const cms::DerSpan& span : layout.revocationInfos) {
        items.revocationInfos.emplace_back(span.data, span.data + span.length);
    }

    for (const auto& subject : subjects) {
        TLOG_DEBUG(m_cades2Log, L"AddValidationData: Path of %ls.",
                   subject.first.GetSubjectStringX500(0).c_str());
        const std::unique_ptr<X509ChainPolicy> purposeful = PolicyFor(policy, subject.second);
        X509Chain chain(purposeful.get());
        chain.Build(&subject.first, time);
        const qorstd::QorVector<X509ChainElement>& elements = chain.GetElements();
        for (unsigned int i = 0; i < elements.GetSize(); ++i) {
            const X509ChainElement& element = elements[i];
            items.Add(items.certificates, ToDer(element.GetCertificate()->Export()));
            // Either mode may have decided with both.
            if (element.GetCrl() != nullptr) {
                items.Add(items.revocationInfos, ToDer(element.GetCrl()->Export()));
            }
            if (element.GetOcspResponse() != nullptr) {
                items.Add(items.revocationInfos,
                          cms::OcspRevocationChoice(ToDer(element.GetOcspResponse()->Encode())));
            }
            if (element.GetCrl() == nullptr && element.GetOcspResponse() == nullptr &&
                chain::NeedsRevocationCheck(option, static_cast<int>(i),
                                            element.GetCertificate()->GetX509())) {
                TLOG_ERROR(m_cades2Log, L"AddValidationData: No revocation data for %ls.",
                           element.GetCertificate()->GetSubjectStringX500(0).c_str());
                Fail(ErrRevocationUnknown);
            }
        }
    }
    if (items.added == 0) {
        TLOG_DEBUG(m_cades2Log, L"AddValidationData: The message holds all of it already.");
        return;
    }
    TLOG_DEBUG(m_cades2Log, L"AddValidationData: %u items added.", items.added);
    const unsigned long version = items.HasOtherRevocationInfo()
                                      ? std::max(layout.version, kVersionOtherRevocationInfo)
                                      : layout.version;
    const Der rebuilt = cms::RebuildSignedData(layout, version, std::move(items.certificates),
                                               std::move(items.revocationInfos));
    work.Decode(
        qorstd::QorArray<unsigned char>(rebuilt.data(), static_cast<unsigned int>(rebuilt.size())));
}

// ------------------------------------------------------------------ LTA

QorTsp2Lib::TspTimeStamp SignedCades2::RequestArchiveTimeStamp(
    const QorTsp2Lib::TspClient& client, const qorstd::QorArray<unsigned char>& imprint) const {
    return client.TimeStamp(imprint.GetData(), imprint.GetSize(), 0);
}

void SignedCades2::AddArchiveTimeStampTo(SignedCades2& work, unsigned int signerIndex,
                                         const QorTsp2Lib::TspClient* client) const {
    SignerInfo& signer = ExtendedSigner(work, signerIndex, L"AddArchiveTimeStamp");
    if (client == nullptr) {
        Fail(m_cades2Log, L"AddArchiveTimeStamp: Bad parameter - pTspClient is null",
             ErrInvalidParameter, L"SignedCades2 - pTspClient=NULL");
    }
    if (work.IsDetached() != 0 && work.GetContent().IsEmpty()) {
        Fail(m_cades2Log,
             L"AddArchiveTimeStamp: The content of a detached signature is needed - it is not set.",
             ErrNoContent);
    }
    if (client->GetHashAlgorithm() == QorTsp2Lib::tspHashNone) {
        // As for signature time-stamps: the client learns the signer's digest.
        const CryptHash::cptHashAlgorithm own =
            CryptHash::GetHashAlgorithmByNID(signer.GetHashAlgorithmNID());
        const_cast<QorTsp2Lib::TspClient*>(client)->SetHashAlgorithm(
            static_cast<QorTsp2Lib::tspHashAlgorithm>(own));
    }
    const auto algorithm = static_cast<CryptHash::cptHashAlgorithm>(client->GetHashAlgorithm());

    // The index and the imprint over the message as it stands now.
    const cms::UnsignedAttributes unsignedAttrs(signer.GetSigner());
    qorstd::QorVector<qorstd::QorArray<unsigned char>> certificates;
    for (unsigned int i = 0; i < work.GetCertificates().GetSize(); ++i) {
        certificates.Add(work.GetCertificates()[i].Export());
    }
    const ATSHashIndexV3Attribute index = ATSHashIndexV3Attribute::Create(
        algorithm, certificates, work.GetRevocationInfoChoices(), unsignedAttrs.stack);
    const qorstd::QorArray<unsigned char> input =
        signer.ArchiveImprintInput(algorithm, nullptr, index.GetX509Attr());
    CryptHash hash(algorithm);
    hash.Update(input);
    qorstd::QorArray<unsigned char> imprint;
    hash.Finish(imprint);
    TLOG_DEBUG(m_cades2Log, L"AddArchiveTimeStamp: Requesting the archive time-stamp...");
    const QorTsp2Lib::TspTimeStamp stamp = RequestArchiveTimeStamp(*client, imprint);

    // The TSA signed the token; the index goes in as an unsigned attribute
    // of the token's signer.
    const QorTsp2Lib::TspArray<unsigned char> tokenDer = stamp.Encode(0);
    const CmsContentInfoPtr token(qorssl::DecodeWhole<CmsContentInfoPtr>(
        d2i_CMS_ContentInfo, tokenDer.GetData(), tokenDer.GetSize()));
    STACK_OF(CMS_SignerInfo)* tsaSigners = token ? CMS_get0_SignerInfos(token.get()) : nullptr;
    if (sk_CMS_SignerInfo_num(tsaSigners) != 1) {
        Fail(m_cades2Log, L"AddArchiveTimeStamp: The token has not exactly one signer.",
             ErrInvalidMessageFormat);
    }
    if (CMS_unsigned_add1_attr(sk_CMS_SignerInfo_value(tsaSigners, 0),
                               const_cast<X509_ATTRIBUTE*>(index.GetX509Attr())) != 1) {
        FailCrypto(m_cades2Log, "AddArchiveTimeStamp: CMS_unsigned_add1_attr() failed.",
                   ErrAddSignedAttribute);
    }
    const Der carried = qorssl::Encode(i2d_CMS_ContentInfo, token.get());
    const X509AttributePtr archive(X509_ATTRIBUTE_create_by_txt(nullptr, kOidArchiveTimeStampV3,
                                                                V_ASN1_SEQUENCE, carried.data(),
                                                                static_cast<int>(carried.size())));
    if (carried.empty() || !archive) {
        FailCrypto(m_cades2Log, "AddArchiveTimeStamp: X509_ATTRIBUTE_create_by_txt() failed.",
                   ErrAsn1Encoding);
    }
    signer.AddUnsignedAttribute(TimeStampAttribute(archive.get()));
    work.Decode(work.Encode());

    // The message as written must still give the stamped bytes.
    const SignerInfo& written = *work.GetSignerInfo(signerIndex);
    if (written.ArchiveImprintInput(algorithm, nullptr, index.GetX509Attr()) != input) {
        Fail(m_cades2Log, L"AddArchiveTimeStamp: The message changed while it was written.",
             ErrHashMismatch);
    }
}

// -------------------------------------------------------------- public

namespace {

// The message as OpenSSL writes it, decoded again into a container of its
// own: the extension's bytes are the ones later verifications read.
void CopyForExtension(const SignedCades2& from, SignedCades2& work, const LogChannel* log,
                      const wchar_t* operation) {
    if (from.GetCms() == nullptr) {
        TLOG_ERROR(log, L"%ls: CMS not present - m_pCms is null", operation);
        Fail(ErrNoMessage);
    }
    work.SetContent(from.GetContent());
    work.Decode(from.Encode());
}

}  // namespace

void SignedCades2::AddValidationData(unsigned int signerIndex, const X509ChainPolicy& policy,
                                     std::int64_t time) {
    TLOG_INFO(m_cades2Log, L"AddValidationData(Signer:%u)", signerIndex);
    SignedCades2 work;
    CopyForExtension(*this, work, m_cades2Log.get(), L"AddValidationData");
    AddValidationDataTo(work, signerIndex, policy, time, false);
    Decode(work.Encode());
}

void SignedCades2::AddArchiveTimeStamp(unsigned int signerIndex,
                                       const QorTsp2Lib::TspClient* client) {
    TLOG_INFO(m_cades2Log, L"AddArchiveTimeStamp(Signer:%u)", signerIndex);
    SignedCades2 work;
    CopyForExtension(*this, work, m_cades2Log.get(), L"AddArchiveTimeStamp");
    AddArchiveTimeStampTo(work, signerIndex, client);
    Decode(work.Encode());
}

void SignedCades2::Extend(unsigned int signerIndex, cptCadesType type,
                          const X509ChainPolicy& policy, const QorTsp2Lib::TspClient* client,
                          std::int64_t time) {
    TLOG_INFO(m_cades2Log, L"Extend(Signer:%u Type:%ld)", signerIndex, static_cast<long>(type));
    if (type != cptCades2Lt && type != cptCades2Lta) {
        Fail(m_cades2Log, L"Extend: Invalid requested level.", ErrInvalidParameter,
             L"type is neither LT nor LTA");
    }
    SignedCades2 work;
    CopyForExtension(*this, work, m_cades2Log.get(), L"Extend");
    AddValidationDataTo(work, signerIndex, policy, time, false);
    if (type == cptCades2Lta) {
        AddArchiveTimeStampTo(work, signerIndex, client);
        // The new archive TSA's path and revocation data too, so that the
        // message alone suffices to verify it; they are outside its hash
        // index, which allows them to be added afterwards.
        AddValidationDataTo(work, signerIndex, policy, time, true);
    }
    Decode(work.Encode());
}

}  // namespace TesseraLib
