// Archive time-stamp verification over arbitrary unsigned attributes: the
// signer of a fixed public LTA message gets the fuzz bytes as its unsigned
// attributes (a SET OF Attribute, or attributes one after another) and is
// verified with proofs of existence, its archive time-stamps also on their
// own; the same bytes are then decoded as a whole message and verified the
// same way. Every refusal must be an exception of one of the library
// families, never a crash, leak, hang or anything else thrown, and a
// verification that returns leaves one outcome per archive time-stamp.
//
// The fixed message is Signature-C-HU_POL-3.p7m (its archive token carries a
// v1 hash index), read once from the source tree. The anchors are its own
// certificates, paths are built from the stores and the message with
// revocation not checked, at a fixed time: nothing is fetched.
#include <openssl/asn1.h>
#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <vector>

#include "CrlException.h"
#include "OcspException.h"
#include "OpenSslPtr.h"
#include "QorException.h"
#include "SignedCades2.h"
#include "TspException.h"
#include "ValidationDataStore.h"
#include "VerifierCades.h"
#include "X509ChainPolicy.h"
#include "X509Store.h"

using namespace TesseraLib;

namespace {

// 2025-01-01 00:00:00 UTC.
const std::int64_t kCheckTime = 1735689600;
// Attributes taken from one input at most: enough for every layout the
// message has, and a bound on the work per input.
const int kMaxAttributes = 32;

struct Fixed {
    std::vector<unsigned char> message;
    X509MemoryStore trustStore;
    X509ChainPolicy chainPolicy;
    VerifierCades verifier;

    Fixed() {
        std::ifstream in(TESSERA_FUZZ_LTA_SAMPLE, std::ios::binary);
        message.assign(std::istreambuf_iterator<char>(in), {});
        SignedCades2 sample;
        sample.Decode(message.data(), static_cast<long>(message.size()));
        if (sample.GetSignerInfoCount() != 1 ||
            sample.GetSignerInfo(0)->GetCadesType() != SignedCades2::cptCades2Lta) {
            std::abort();  // the fixed message must be the LTA sample
        }
        for (unsigned int i = 0; i < sample.GetCertificates().GetSize(); ++i) {
            trustStore.AddCertificate(sample.GetCertificates()[i]);
        }
        chainPolicy.SetTrustStore(&trustStore);
        chainPolicy.SetChainBuildMode(static_cast<X509ChainPolicy::cptChainBuildMode>(
            X509ChainPolicy::cptChainBuildStores | X509ChainPolicy::cptChainBuildSuppliedValData));
        chainPolicy.SetRevocationOption(X509ChainPolicy::revOptionNone);
        verifier.SetVerifyOption(VerifierCms::cptVerifyWholeChain);
        verifier.SetVerifyTime(kCheckTime);
        verifier.SetChainPolicy(&chainPolicy);
    }
};

Fixed& Shared() {
    static Fixed fixed;
    return fixed;
}

// Runs `action`; true when it returned, false when it threw one of the
// library families. Anything else thrown is a finding.
template <class Action>
bool Passed(Action action) {
    try {
        action();
        return true;
    } catch (const qorstd::QorException&) {
    } catch (const QorTsp2Lib::TspException&) {
    } catch (const QorOcsp2Lib::OcspException&) {
    } catch (const QorGetOneCrlLib::CrlException&) {
    } catch (...) {
        std::abort();  // not a library exception
    }
    ERR_clear_error();
    return false;
}

// The fixed message with the fuzz bytes as its signer's unsigned
// attributes; empty when OpenSSL cannot encode the result.
std::vector<unsigned char> Spliced(const std::uint8_t* data, std::size_t size) {
    const std::vector<unsigned char>& message = Shared().message;
    const unsigned char* in = message.data();
    qorssl::CmsContentInfoPtr cms(
        d2i_CMS_ContentInfo(nullptr, &in, static_cast<long>(message.size())));
    if (!cms) {
        std::abort();  // the fixed message decoded at start
    }
    CMS_SignerInfo* signer = sk_CMS_SignerInfo_value(CMS_get0_SignerInfos(cms.get()), 0);
    while (CMS_unsigned_get_attr_count(signer) > 0) {
        X509_ATTRIBUTE_free(CMS_unsigned_delete_attr(signer, 0));
    }
    const unsigned char* p = data;
    long left = static_cast<long>(size);
    if (size >= 2 && data[0] == 0x31) {
        // A SET OF: its content holds the attributes.
        long length = 0;
        int tag = 0;
        int cls = 0;
        const unsigned char* body = p;
        if ((ASN1_get_object(&body, &length, &tag, &cls, left) & 0x80) == 0) {
            left = std::min<long>(length, left - static_cast<long>(body - p));
            p = body;
        }
    }
    for (int count = 0; left > 0 && count < kMaxAttributes; ++count) {
        const unsigned char* before = p;
        qorssl::X509AttributePtr attr(d2i_X509_ATTRIBUTE(nullptr, &p, left));
        if (!attr) {
            break;
        }
        left -= static_cast<long>(p - before);
        if (CMS_unsigned_add1_attr(signer, attr.get()) <= 0) {
            break;
        }
    }
    ERR_clear_error();
    unsigned char* der = nullptr;
    const int length = i2d_CMS_ContentInfo(cms.get(), &der);
    const qorssl::OpenSslBytesPtr owned(der);
    return length > 0 ? std::vector<unsigned char>(der, der + length)
                      : std::vector<unsigned char>();
}

void CheckOutcomes(const SignedCades2::SignerInfo& signer) {
    const auto* outcomes = signer.GetArchiveTimeStampsV3VerificationData();
    if (outcomes == nullptr || outcomes->GetSize() != signer.GetArchiveTimeStampsV3().GetSize()) {
        std::abort();  // one outcome per archive time-stamp
    }
    for (unsigned int i = 0; i < outcomes->GetSize(); ++i) {
        const TimeStampVerificationData& outcome = (*outcomes)[i];
        if (outcome.GetTimeStamp() == nullptr || outcome.GetVerifyTime() == nullptr) {
            std::abort();  // each outcome names its token and time
        }
        (void)(outcome.GetVerificationException() != nullptr
                   ? outcome.GetVerificationException()->GetErrorCode()
                   : 0);
    }
}

void VerifyWithProofs(const std::uint8_t* data, std::size_t size) {
    Fixed& fixed = Shared();
    SignedCades2 cades;
    if (!Passed([&] { cades.Decode(data, static_cast<long>(size)); })) {
        return;
    }
    for (unsigned int i = 0; i < cades.GetSignerInfoCount(); ++i) {
        SignedCades2::SignerInfo& signer = *cades.GetSignerInfo(i);
        ValidationDataStore store;
        if (Passed([&] { signer.Verify(fixed.verifier, &store, SignedCades2::cptCades2Lta); }) &&
            !signer.GetArchiveTimeStampsV3().IsEmpty()) {
            CheckOutcomes(signer);
        }
        (void)store.GetHashes().GetSize();
        const qorstd::QorVector<TimeStampAttribute> stamps = signer.GetArchiveTimeStampsV3();
        if (stamps.IsEmpty()) {
            continue;
        }
        ValidationDataStore own;
        if (Passed([&] {
                signer.VerifyArchiveTimeStamps(stamps, fixed.verifier, &own, nullptr, nullptr);
            })) {
            CheckOutcomes(signer);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    Shared();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 1u << 20) {
        return 0;
    }
    const std::vector<unsigned char> spliced = Spliced(data, size);
    if (!spliced.empty()) {
        VerifyWithProofs(spliced.data(), spliced.size());
    }
    VerifyWithProofs(data, size);
    return 0;
}
