// OCSP responses made in-process with pinned times: what decoding reads,
// what it refuses, and which signers Verify accepts.
//
//   ca ─┬─ responder (EKU OCSPSigning)      other-ca ── foreign (EKU OCSPSigning)
//       ├─ plain (no OCSPSigning)
//       ├─ alice (serial 0x51)
//       └─ bob   (serial 0x52)
#include <gtest/gtest.h>

#include <openssl/evp.h>
#include <openssl/ocsp.h>

#include <algorithm>
#include <cstdio>
#include <initializer_list>
#include <string>

#include "QorOcsp2.h"
#include "TestOcsp.h"
#include "TestPki.h"
#include "TestTessera.h"

using namespace QorOcsp2Lib;
using namespace tessera_test;

namespace {

const std::int64_t kProducedAt = UtcTime(2024, 6, 2, 8, 0, 0);
const std::int64_t kThisUpdate = UtcTime(2024, 6, 2, 7, 59, 0);
const std::int64_t kNextUpdate = UtcTime(2024, 6, 3, 8, 0, 0);
const std::int64_t kRevokedAt = UtcTime(2024, 6, 1, 12, 0, 0);

Issued Issue(const char* name, long serial,
             std::vector<std::pair<std::string, std::string>> extensions, const Issued* issuer) {
    CertPlan profile;
    profile.commonName = name;
    profile.serial = serial;
    profile.extensions = std::move(extensions);
    return IssueCertificate(profile, issuer);
}

struct Pki {
    Issued ca = Issue("Test CA", 1, CaExtensions(), nullptr);
    Issued responder = Issue("Test Responder", 2, {{"extendedKeyUsage", "OCSPSigning"}}, &ca);
    Issued plain = Issue("Plain Signer", 3, {{"keyUsage", "digitalSignature"}}, &ca);
    Issued alice = Issue("Alice", 0x51, {}, &ca);
    Issued bob = Issue("Bob", 0x52, {}, &ca);
    Issued otherCa = Issue("Other CA", 1, CaExtensions(), nullptr);
    Issued foreign = Issue("Foreign Responder", 2, {{"extendedKeyUsage", "OCSPSigning"}}, &otherCa);

    static const Pki& Get() {
        static const Pki pki;
        return pki;
    }
};

OcspResponsePlan GoodFor(const Issued& subject, const Issued& signer) {
    return OcspPlan(&signer, Pki::Get().ca.cert.get(),
                    {{subject.cert.get(), V_OCSP_CERTSTATUS_GOOD, -1, 0, kThisUpdate, kNextUpdate}},
                    kProducedAt);
}

OcspResponse Decoded(const std::vector<unsigned char>& der) {
    OcspResponse response;
    response.Decode(der.data(), der.size());
    return response;
}

// The code Verify throws (0: none) with the given certificates trusted; none
// given passes null.
int VerifyCode(const OcspResponse& response, std::initializer_list<const Issued*> trusted) {
    OcspVector<OcspCertificate> certificates;
    for (const Issued* issued : trusted) {
        certificates.Add(OcspCertificate(issued->cert.get()));
    }
    return CodeOf([&] { response.Verify(trusted.size() == 0 ? nullptr : &certificates); });
}

// A good answer for alice signed by `signer`.
OcspResponse SignedBy(const Issued& signer) {
    return Decoded(MakeOcspResponse(GoodFor(Pki::Get().alice, signer)));
}

}  // namespace

TEST(OcspResponseTest, DecodesTimesStatusesAndReasons) {
    const Pki& pki = Pki::Get();
    OcspResponsePlan profile = GoodFor(pki.alice, pki.responder);
    OcspAnswer revoked;
    revoked.certificate = pki.bob.cert.get();
    revoked.status = V_OCSP_CERTSTATUS_REVOKED;
    revoked.reason = OCSP_REVOKED_STATUS_CERTIFICATEHOLD;
    revoked.revocationTime = kRevokedAt;
    revoked.thisUpdate = kThisUpdate;  // and no nextUpdate
    profile.answers.push_back(revoked);

    const OcspResponse response = Decoded(MakeOcspResponse(profile));
    EXPECT_EQ(response.GetResponseStatus(), OcspResponse::ocspSuccessful) << "successful";
    EXPECT_EQ(response.GetProducedAt(), kProducedAt) << "producedAt as UTC seconds";
    EXPECT_STREQ(response.GetResponderName().c_str(), L"CN=Test Responder,O=Tessera Test")
        << "responder by name";
    EXPECT_STREQ(response.GetSignatureAlgorithmName().c_str(), "ecdsa-with-SHA256")
        << "signature algorithm";
    EXPECT_STREQ(response.GetStatusString().c_str(), "good") << "status of the first answer";
    EXPECT_EQ(response.GetCertificates().GetSize(), 1u) << "the signer certificate is carried";

    ASSERT_EQ(response.GetSingleResponses().GetSize(), 2u) << "both answers";
    const OcspSingleResponse& good = response.GetSingleResponses().GetAt(0);
    EXPECT_EQ(good.GetCertStatus(), 0) << "good is 0";
    EXPECT_EQ(good.GetThisUpdate(), kThisUpdate) << "thisUpdate";
    EXPECT_EQ(good.GetNextUpdate(), kNextUpdate) << "nextUpdate";
    EXPECT_EQ(good.GetRevocationTime(), 0) << "no revocation time for a good answer";
    EXPECT_STREQ(good.GetSerialNumberHex().c_str(), "51") << "alice's serial";
    EXPECT_STREQ(good.GetCertIdHashName().c_str(), "SHA1") << "CertID digest";

    const OcspSingleResponse& hold = response.GetSingleResponses().GetAt(1);
    EXPECT_EQ(hold.GetCertStatus(), 1) << "revoked is 1";
    EXPECT_EQ(hold.GetRevocationReason(), OcspSingleResponse::ocspReasonCertificateHold)
        << "certificateHold is reason 6";
    EXPECT_EQ(hold.GetRevocationTime(), kRevokedAt) << "revocation time";
    EXPECT_EQ(hold.GetNextUpdate(), 0) << "an absent nextUpdate reads as 0";
}

TEST(OcspResponseTest, UnknownStatusRevokedWithoutReasonAndKeyHashResponder) {
    const Pki& pki = Pki::Get();
    OcspResponsePlan profile = GoodFor(pki.alice, pki.responder);
    profile.responderByKeyHash = true;
    profile.certIdDigest = EVP_sha256();
    profile.answers[0].status = V_OCSP_CERTSTATUS_UNKNOWN;
    OcspAnswer revoked = profile.answers[0];
    revoked.certificate = pki.bob.cert.get();
    revoked.status = V_OCSP_CERTSTATUS_REVOKED;
    revoked.revocationTime = kRevokedAt;
    profile.answers.push_back(revoked);

    const OcspResponse response = Decoded(MakeOcspResponse(profile));
    EXPECT_EQ(response.GetSingleResponses().GetAt(0).GetCertStatus(), 2) << "unknown is 2";
    EXPECT_STREQ(response.GetStatusString().c_str(), "unknown") << "and named";
    EXPECT_STREQ(response.GetSingleResponses().GetAt(0).GetCertIdHashName().c_str(), "SHA256")
        << "CertID digest";
    EXPECT_EQ(response.GetSingleResponses().GetAt(1).GetRevocationReason(),
              OcspSingleResponse::ocspReasonNone)
        << "a revoked answer without a reason";
    const std::wstring name = response.GetResponderName().c_str();
    EXPECT_EQ(name.rfind(L"KeyHash:", 0), 0u) << "got " << name;
    EXPECT_EQ(name.size(), 8u + 40u) << "SHA-1 of the responder key in hex";
}

TEST(OcspResponseTest, EncodeCopyCompareAndDigest) {
    const Pki& pki = Pki::Get();
    const std::vector<unsigned char> der = MakeOcspResponse(GoodFor(pki.alice, pki.responder));
    OcspResponse response = Decoded(der);
    const qorstd::QorArray<unsigned char> encoded = response.Encode();
    EXPECT_EQ(std::vector<unsigned char>(encoded.Begin(), encoded.End()), der) << "byte-exact";

    OcspResponse copy(response);
    EXPECT_TRUE(copy == response) << "a copy compares equal";
    response.Reset();
    EXPECT_TRUE(response.IsEmpty() && !copy.IsEmpty()) << "a copy is an independent value";
    EXPECT_TRUE(copy != response) << "and then compares unequal";

    unsigned char digest[20];
    unsigned int length = 0;
    EVP_Digest(der.data(), der.size(), digest, &length, EVP_sha1(), nullptr);
    char hex[41];
    for (int i = 0; i < 20; ++i) {
        std::snprintf(hex + 2 * i, 3, "%02x", digest[i]);
    }
    EXPECT_STREQ(copy.GetSHA1HashHex().c_str(), hex) << "SHA-1 of the DER in lower-case hex";

    const qorstd::QorArray<unsigned char> basic = copy.GetBasicResponse();
    const unsigned char* cursor = basic.GetData();
    OCSP_BASICRESP* parsed = d2i_OCSP_BASICRESP(nullptr, &cursor, basic.GetSize());
    EXPECT_NE(parsed, nullptr) << "GetBasicResponse is the BasicOCSPResponse DER";
    OCSP_BASICRESP_free(parsed);
}

TEST(OcspResponseTest, BadBytesAreRefusedAndLeaveTheObjectEmpty) {
    const Pki& pki = Pki::Get();
    std::vector<unsigned char> der = MakeOcspResponse(GoodFor(pki.alice, pki.responder));
    OcspResponse response = Decoded(der);

    std::vector<unsigned char> trailing(der);
    trailing.push_back(0);
    EXPECT_EQ(CodeOf([&] { response.Decode(trailing.data(), trailing.size()); }), 131)
        << "a trailing byte";
    EXPECT_TRUE(response.IsEmpty()) << "a failed decode leaves nothing behind";
    EXPECT_EQ(CodeOf([&] { response.Decode(der.data(), der.size() - 1); }), 131) << "truncated";
    const unsigned char garbage[] = {0x30, 0x03, 0x0a, 0x01, 0x00};
    EXPECT_EQ(CodeOf([&] { response.Decode(garbage, sizeof(garbage)); }), 131)
        << "successful status without a basic response";
    EXPECT_EQ(CodeOf([&] { response.Decode(nullptr, 0); }), 131) << "no bytes";
}

TEST(OcspResponseTest, UnsuccessfulResponsesDecodeWithoutAnswers) {
    OcspResponsePlan profile;
    profile.responseStatus = OCSP_RESPONSE_STATUS_TRYLATER;
    const OcspResponse response = Decoded(MakeOcspResponse(profile));
    EXPECT_EQ(response.GetResponseStatus(), OcspResponse::ocspTryLater) << "the status read";
    EXPECT_STREQ(response.GetStatusString().c_str(), "trylater") << "and named";
    EXPECT_EQ(response.GetSingleResponses().GetSize() + response.GetBasicResponse().GetSize(), 0u)
        << "no answers and no basic response";
    EXPECT_EQ(VerifyCode(response, {&Pki::Get().ca}), 140) << "nothing to verify";
}

TEST(OcspResponseTest, VerifyAcceptsOnlySignersCertifiedByTheTrustedCertificates) {
    const Pki& pki = Pki::Get();
    const OcspResponse delegated = SignedBy(pki.responder);
    EXPECT_EQ(VerifyCode(delegated, {&pki.ca}), 0) << "responder delegated by the CA";
    EXPECT_EQ(VerifyCode(delegated, {&pki.responder}), 0) << "the responder trusted directly";
    EXPECT_EQ(VerifyCode(delegated, {&pki.otherCa}), 141) << "a CA that has nothing to do with it";
    EXPECT_EQ(VerifyCode(delegated, {}), 141) << "null trusts nothing";
    OcspVector<OcspCertificate> none;
    EXPECT_EQ(CodeOf([&] { delegated.Verify(&none); }), 141) << "an empty list trusts nothing";
    EXPECT_EQ(VerifyCode(SignedBy(pki.ca), {&pki.ca}), 0) << "the issuing CA signs its own answers";
    EXPECT_EQ(VerifyCode(SignedBy(pki.plain), {&pki.ca}), 141)
        << "a certificate of the CA without the OCSPSigning purpose";
    EXPECT_EQ(VerifyCode(SignedBy(pki.foreign), {&pki.ca, &pki.otherCa}), 141)
        << "a responder delegated by another CA answers for none of this CA's certificates";
}

TEST(OcspResponseTest, VerifyNeedsTheSignerCertificateAnIntactSignatureAndItsValidity) {
    const Pki& pki = Pki::Get();
    OcspResponsePlan profile = GoodFor(pki.alice, pki.responder);
    profile.includeSignerCertificate = false;
    const OcspResponse bare = Decoded(MakeOcspResponse(profile));
    EXPECT_EQ(VerifyCode(bare, {&pki.ca}), 141) << "signer certificate nowhere to be found";
    EXPECT_EQ(VerifyCode(bare, {&pki.ca, &pki.responder}), 0) << "found among the trusted";

    std::vector<unsigned char> der = MakeOcspResponse(GoodFor(pki.alice, pki.responder));
    // The answer's thisUpdate text sits inside the signed data: change one digit.
    const std::string stamp = "20240602075900Z";
    auto at = std::search(der.begin(), der.end(), stamp.begin(), stamp.end());
    ASSERT_NE(at, der.end()) << "thisUpdate found in the DER";
    at[3] = '5';
    EXPECT_EQ(VerifyCode(Decoded(der), {&pki.ca}), 141) << "signed data changed after signing";

    profile = GoodFor(pki.alice, pki.responder);
    profile.producedAt = UtcTime(2041, 1, 1);  // the responder certificate expired in 2040
    EXPECT_EQ(VerifyCode(Decoded(MakeOcspResponse(profile)), {&pki.ca}), 141)
        << "responder certificates are judged at producedAt";
}
