// SignedCms::Decode over arbitrary bytes: it must either decode a message,
// whose every getter (of the container and of every signer) then answers, or
// throw CryptException and leave the container empty — never crash, leak,
// hang or let another exception type escape. The DER walker behind the
// container also reads the raw bytes directly, since the container only
// shows it what OpenSSL re-encodes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "CryptException.h"
#include "SignedCms.h"
#include "cms/CmsRevocationInfo.h"

using TesseraLib::SignedCms;

namespace {

void Touch(const SignedCms::SignerInfo& signer) {
    (void)signer.GetVersion();
    (void)signer.GetVerifyInfo();
    (void)signer.GetCadesType();
    (void)signer.GetContentType().length();
    (void)signer.GetSigningTime();
    (void)signer.GetHashAlgorithmNID();
    (void)signer.GetSignatureAlgorithmNID();
    (void)signer.GetHashAlgorithmName();
    (void)signer.GetSignatureAlgorithmName();
    (void)signer.GetHashAlgorithmOID();
    (void)signer.GetHashValue().GetSize();
    if (signer.GetSignatureValue().GetSize() == 0 ||
        signer.GetSignatureValueSHA1HashHex().length() != 40) {
        std::abort();  // a parsed signer always has signature octets
    }
    (void)signer.GetCertificate().GetSerialNumberStringHex();
    const auto& stamps = signer.GetSignatureTimeStamps();
    for (unsigned int i = 0; i < stamps.GetSize(); ++i) {
        (void)stamps[i].GetTimeStamp().GetTime();
        (void)stamps[i].GetValue();
    }
    (void)signer.GetVerificationData();
    (void)signer.GetSignatureTimeStampVerificationData();
    (void)signer.GetVerifyTime();
    (void)signer.GetX509Chain();
    (void)signer.GetTimeStamp();
    (void)signer.GetTimeStampChain();
    (void)signer.GetTimeStampVerifyTime();
    (void)signer.GetSigner();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 1u << 20) {
        return 0;
    }
    TesseraLib::cms::SignedDataLayout layout;
    if (TesseraLib::cms::ReadSignedDataLayout(data, size, &layout)) {
        (void)TesseraLib::cms::OcspChoicesOf(layout);
        (void)TesseraLib::cms::AttributeCertsOf(layout);
    }

    SignedCms cms;
    try {
        cms.Decode(data, static_cast<long>(size));
    } catch (const TesseraLib::CryptException&) {
        if (cms.GetCms() != nullptr || cms.GetSignerInfoCount() != 0) {
            std::abort();  // a failed decode leaves no message behind
        }
        return 0;
    }
    (void)cms.GetVersion();
    (void)cms.IsDetached();
    (void)cms.GetContent().GetSize();
    (void)cms.GetContentType().length();
    for (unsigned int i = 0; i < cms.GetCertificates().GetSize(); ++i) {
        (void)cms.GetCertificates()[i].GetSubjectStringX500(0);
    }
    for (unsigned int i = 0; i < cms.GetCrls().GetSize(); ++i) {
        (void)cms.GetCrls()[i].GetThisUpdate();
    }
    for (unsigned int i = 0; i < cms.GetOcspResponses().GetSize(); ++i) {
        (void)cms.GetOcspResponses()[i].GetProducedAt();
    }
    (void)cms.GetAttributeCerts().GetSize();
    const unsigned int count = cms.GetSignerInfoCount();
    for (unsigned int i = 0; i < count; ++i) {
        Touch(*cms.GetSignerInfo(i));
    }
    if (cms.GetSignerInfo(count) != nullptr) {
        std::abort();
    }
    // A copy decodes the re-encoded message again and must agree.
    const SignedCms copy(cms);
    if (copy.GetSignerInfoCount() != count || copy.Encode() != cms.Encode()) {
        std::abort();
    }
    return 0;
}
