// Extension of CAdES-T signatures to LT and LTA. The long-term PKI of
// TestArchive.h (pinned timeline there); the extension runs on 2024-03-01,
// while TSA 1 is still valid, and archive tokens come from TSA 2 in-process
// with a pinned time. The imprint and hash index are cross-checked with
// TestArchive's own computation, the results with the openssl tool.
//
//   Long-Term Root ── Long-Term Signer (serial 5, revoked 2025-06)
//   TSA 1 CA ── TSA 1 (expires 2025-01)     signature time-stamp 2024-01-02
//   TSA 2 CA ── TSA 2                        archive time-stamps
#include <gtest/gtest.h>
#include <openssl/cms.h>
#include <openssl/evp.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "ATSHashIndexAttribute.h"
#include "CadesValidationProcess.h"
#include "LongTermValidation.h"
#include "SignedCades2.h"
#include "TestArchive.h"
#include "TestOcsp.h"
#include "TestTessera.h"
#include "TspClient.h"
#include "TspException.h"
#include "ValidationDataStore.h"
#include "Validator.h"
#include "VerifierCades.h"
#include "X509ChainPolicy.h"
#include "X509CrlClient.h"
#include "X509OcspClient.h"
#include "X509Store.h"

using namespace TesseraLib;
using namespace tessera_test;

namespace {

const LongTermPki& L() {
    return LongTermPki::Get();
}
const std::int64_t kExtended = UtcTime(2024, 3, 1);
const std::int64_t kFar = UtcTime(2040, 1, 1);

// Archive tokens from TSA 2 at a pinned time instead of a TSA on the wire.
class PinnedCades2 : public SignedCades2 {
public:
    std::int64_t genTime = LongTermTimes::Archived();
    mutable Bytes lastImprint;

protected:
    QorTsp2Lib::TspTimeStamp RequestArchiveTimeStamp(
        const QorTsp2Lib::TspClient& client,
        const qorstd::QorArray<unsigned char>& imprint) const override {
        EXPECT_EQ(client.GetHashAlgorithm(), QorTsp2Lib::tspHashSHA256)
            << "the client learnt the signer's digest";
        lastImprint = ToBytes(imprint);
        TsaReply reply;
        reply.genTime = genTime;
        const Bytes token = L().tsa2.Token(EVP_sha256(), lastImprint, true, reply);
        QorTsp2Lib::TspTimeStamp stamp;
        stamp.Decode(token.data(), static_cast<unsigned int>(token.size()));
        return stamp;
    }
};

// Anchors of the three CAs and the revocation sources: the CRL of February
// 2024 of each certificate's own CA (the root's only with `rootCrl`; both
// TSA CAs bear one name, so it is chosen by the certificate), and with
// `ocsp` a responder that answers for the signer, signing as the root.
struct Sources : X509CrlClient, X509OcspClient {
    X509MemoryStore anchors;
    X509ChainPolicy policy;
    bool rootCrl;
    std::unique_ptr<X509Crl> crl;
    std::unique_ptr<QorOcsp2Lib::OcspResponse> response;

    explicit Sources(bool withRootCrl = true, bool ocsp = false) : rootCrl(withRootCrl) {
        for (const Issued* ca : {&L().root, &L().tsa1.Ca(), &L().tsa2.Ca()}) {
            anchors.AddCertificate(Cert(*ca));
        }
        policy.SetTrustStore(&anchors);
        policy.SetRevocationOption(X509ChainPolicy::revOptionChain);
        policy.SetRevocationMode(ocsp ? X509ChainPolicy::revOcspOrCrl : X509ChainPolicy::revCrl);
        policy.SetOcspClient(this);
        policy.SetCrlClient(this);
        policy.SetChainBuildMode(static_cast<X509ChainPolicy::cptChainBuildMode>(
            X509ChainPolicy::cptChainBuildStores | X509ChainPolicy::cptChainBuildClients));
    }
    static bool Is(const X509Certificate& cert, const Issued& issued) {
        return cert.GetSHA1HashHex() == Cert(issued).GetSHA1HashHex();
    }
    X509Crl* GetCrl(const X509Certificate& cert) override {
        const Issued* ca = rootCrl && Is(cert, L().signer) ? &L().root
                           : Is(cert, L().tsa1.Tsa())      ? &L().tsa1.Ca()
                           : Is(cert, L().tsa2.Tsa())      ? &L().tsa2.Ca()
                                                           : nullptr;
        crl.reset(ca != nullptr ? new X509Crl(IssueCrl(*ca, UtcTime(2024, 2, 1), kFar).get())
                                : nullptr);
        return crl.get();
    }
    X509Crl* GetCrlAfterTime(const X509Certificate& cert, const std::int64_t&,
                             const X509Certificate*) override {
        return GetCrl(cert);
    }
    QorOcsp2Lib::OcspResponse* GetOcspResponse(const X509Certificate& cert,
                                               const X509Certificate&) override {
        const std::int64_t at = UtcTime(2024, 2, 28);
        const OcspAnswer good{L().signer.cert.get(), V_OCSP_CERTSTATUS_GOOD, -1, 0, at, kFar};
        response.reset(Is(cert, L().signer) ? new QorOcsp2Lib::OcspResponse(DecodedOcsp(OcspPlan(
                                                  &L().root, L().root.cert.get(), {good}, at)))
                                            : nullptr);
        return response.get();
    }
    QorOcsp2Lib::OcspResponse* GetOcspResponseAfterTime(const X509Certificate& cert,
                                                        const X509Certificate& issuer,
                                                        const std::int64_t&) override {
        return GetOcspResponse(cert, issuer);
    }
};

PinnedCades2 LongTermT2() {
    PinnedCades2 cades;
    cades.Decode(Array(CmsDer(LongTermT().get())));
    return cades;
}

// The token DER of archive time-stamp `index` of the first signer, and the
// hash index its signer carries.
Bytes ArchiveToken(const SignedCades2& cades, unsigned int index) {
    return ToBytes(cades.GetSignerInfo(0)->GetArchiveTimeStampsV3()[index].GetValue());
}
ATSHashIndexV3Attribute IndexOf(const Bytes& token) {
    SignedCades2 parsed;
    parsed.Decode(Array(token));
    return ATSHashIndexV3Attribute(parsed.GetSignerInfo(0)->GetATSHashIndexV3());
}

// Verification in 2026 with proofs, revocation data from the message only;
// the outcome of the signer and of each archive time-stamp, "0 0 0" when all pass.
std::string VerifiedWithProofs(SignedCades2& cades, X509MemoryStore& anchors) {
    X509ChainPolicy policy;
    policy.SetTrustStore(&anchors);
    policy.SetChainBuildMode(static_cast<X509ChainPolicy::cptChainBuildMode>(
        X509ChainPolicy::cptChainBuildStores | X509ChainPolicy::cptChainBuildSuppliedValData));
    VerifierCades verifier;
    verifier.SetChainPolicy(&policy);
    verifier.SetVerifyTime(LongTermTimes::Verified());
    ValidationDataStore store;
    SignedCades2::SignerInfo& signer = *cades.GetSignerInfo(0);
    std::string outcome = std::to_string(
        CodeOf([&] { signer.Verify(verifier, &store, SignedCades2::cptCades2None); }));
    for (unsigned int i = 0; i < signer.GetArchiveTimeStampsV3VerificationData()->GetSize(); ++i) {
        const qorstd::QorException* failure =
            (*signer.GetArchiveTimeStampsV3VerificationData())[i].GetVerificationException();
        outcome += " " + std::to_string(failure != nullptr ? failure->GetErrorCode() : 0);
    }
    return outcome;
}

}  // namespace

TEST(ExtendSignature, LtAndLtaMatchTheIndependentBuilderAndVerifyHereAndWithOpenssl) {
    Sources sources;
    QorTsp2Lib::TspClient client(L"http://127.0.0.1:1/unused");
    PinnedCades2 cades = LongTermT2();
    const Bytes signatureBefore = ToBytes(cades.GetSignerInfo(0)->GetSignatureValue());
    cades.AddValidationData(0, sources.policy, kExtended);
    EXPECT_EQ(cades.GetSignerInfo(0)->GetCadesType(), SignedCades2::cptCades2Lt);
    EXPECT_EQ(cades.GetCertificates().GetSize() * 10 + cades.GetCrls().GetSize(), 42u)
        << "signer, root, TSA 1 and its CA; the CRLs of the root and TSA 1's CA";
    const Bytes lt = ToBytes(cades.Encode());
    cades.AddValidationData(0, sources.policy, kExtended);
    EXPECT_EQ(ToBytes(cades.Encode()), lt) << "a second run finds everything there";

    cades.AddArchiveTimeStamp(0, &client);
    const Bytes lta = ToBytes(cades.Encode());
    ASSERT_EQ(cades.GetSignerInfo(0)->GetCadesType(), SignedCades2::cptCades2Lta);
    EXPECT_EQ(ToBytes(cades.GetSignerInfo(0)->GetSignatureValue()), signatureBefore)
        << "the signer is not touched";
    // TestArchive computes index and imprint input from the LT message.
    const Bytes token = ArchiveToken(cades, 0);
    const unsigned char* cursor = lt.data();
    const CmsPtr ltCms(d2i_CMS_ContentInfo(nullptr, &cursor, static_cast<long>(lt.size())));
    const Bytes index = HashIndexV3(ltCms.get());
    const ATSHashIndexV3Attribute carried = IndexOf(token);
    const ASN1_STRING* value =
        X509_ATTRIBUTE_get0_type(const_cast<X509_ATTRIBUTE*>(carried.GetX509Attr()), 0)
            ->value.sequence;
    EXPECT_EQ(Bytes(value->data, value->data + value->length), index)
        << "the same ats-hash-index-v3";
    const Bytes input = ArchiveImprintInput(ltCms.get(), LongTermContent(), index);
    EXPECT_EQ(cades.lastImprint,
              TestTsa::Digest(EVP_sha256(), std::string(input.begin(), input.end())))
        << "the token stamps the digest of the same imprint input";

    cades.AddValidationData(0, sources.policy, kExtended);
    EXPECT_EQ(VerifiedWithProofs(cades, sources.anchors), "0 0")
        << "with TSA 2's path added too, verified in 2026 with the archive time-stamp's proofs";
    cades.genTime = UtcTime(2024, 9, 1);
    cades.Extend(0, SignedCades2::cptCades2Lta, sources.policy, &client, UtcTime(2024, 8, 1));
    EXPECT_EQ(IndexOf(ArchiveToken(cades, 1)).GetUnsignedAttrValuesHashIndex().GetSize(), 2u)
        << "the second archive time-stamp lists the signature and the first archive time-stamp";
    EXPECT_EQ(VerifiedWithProofs(cades, sources.anchors), "0 0 0") << "both archive time-stamps";

    ScratchDir dir;
    dir.Write("lta.der", lta);
    dir.Write("root.pem", CertToPem(L().root.cert.get()));
    dir.Write("tsa2-ca.pem", CertToPem(L().tsa2.Ca().cert.get()));
    dir.Write("token.der", token);
    dir.Write("input.bin", input);
    EXPECT_TRUE(
        dir.Openssl("cms -verify -binary -inform DER -in lta.der -CAfile root.pem "
                    "-purpose any -out content.bin"))
        << "openssl still verifies the extended signature: " << dir.Output();
    EXPECT_TRUE(
        dir.Openssl("ts -verify -token_in -in token.der -data input.bin -CAfile tsa2-ca.pem"))
        << "openssl verifies the archive token over the imprint input: " << dir.Output();
}

TEST(ExtendSignature, OcspGoesInAsOtherRevocationInfoAndProofsOutliveRevocationAndTsaExpiry) {
    // Validated in 2026: the signer was revoked in 2025-06, TSA 1 expired in
    // 2025-01; the root's CRL saying so joined the message later. The
    // signer's status at the extension came from OCSP, so that this CRL is
    // the root's only one.
    Sources sources(false, true);
    QorTsp2Lib::TspClient client(L"http://127.0.0.1:1/unused");
    const auto extended = [&](SignedCades2::cptCadesType type) {
        PinnedCades2 cades = LongTermT2();
        cades.Extend(0, type, sources.policy, &client, kExtended);
        const Bytes der = ToBytes(cades.Encode());
        const unsigned char* cursor = der.data();
        const CmsPtr cms(d2i_CMS_ContentInfo(nullptr, &cursor, static_cast<long>(der.size())));
        CMS_add1_crl(
            cms.get(),
            IssueCrl(L().root, UtcTime(2025, 7, 1), kFar,
                     {RevokedEntry{5, LongTermTimes::Revoked(), CRL_REASON_KEY_COMPROMISE}})
                .get());
        return CmsDer(cms.get());
    };
    const Bytes ltDer = extended(SignedCades2::cptCades2Lt);
    SignedCades2 lt;
    lt.Decode(Array(ltDer));
    ASSERT_EQ(lt.GetOcspResponses().GetSize(), 1u) << "the signer's OCSP response";
    const Bytes choice = ToBytes(lt.GetOcspRevocationInfoChoices()[0]);
    const Bytes riOcspResponse = {0xA1, 0x82};
    const Bytes format = {0x06, 0x08, 0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x10, 0x02};
    EXPECT_TRUE(std::equal(riOcspResponse.begin(), riOcspResponse.end(), choice.begin()) &&
                std::equal(format.begin(), format.end(), choice.begin() + 4))
        << "other [1] { id-ri-ocsp-response, OCSPResponse }";
    EXPECT_EQ(lt.GetVersion(), 5u) << "other revocation info makes the SignedData version 5";

    LongTermWithTime withTime;
    EXPECT_EQ(withTime(extended(SignedCades2::cptCades2Lta)),
              "repTotalPassed/repNoSubStatusIndication@" + std::to_string(LongTermTimes::Stamped()))
        << "the archive time-stamp proves the signature time-stamp within TSA 1's life";
    EXPECT_NE(withTime(ltDer).rfind("repTotalPassed", 0), 0u)
        << "LT alone proves nothing once TSA 1 has expired";
}

TEST(ExtendSignature, FailuresLeaveTheSignatureAsItWas) {
    QorTsp2Lib::TspClient refused(L"http://127.0.0.1:1/tsa");
    refused.SetTotalTimeout(2);
    SignedCades2 cades;
    cades.Decode(Array(CmsDer(LongTermT().get())));
    const Bytes before = ToBytes(cades.Encode());

    Sources sources;
    int tspCode = 0;
    try {
        cades.Extend(0, SignedCades2::cptCades2Lta, sources.policy, &refused, kExtended);
    } catch (const QorTsp2Lib::TspException& e) {
        tspCode = e.GetErrorCode();
    }
    EXPECT_NE(tspCode, 0)
        << "a TSA that cannot be reached fails with the time-stamp library's code";
    EXPECT_EQ(ToBytes(cades.Encode()), before)
        << "no validation data stays behind after a failed LTA";

    Sources silent(false);
    EXPECT_EQ(CodeOf([&] { cades.AddValidationData(0, silent.policy, kExtended); }),
              ErrRevocationUnknown)
        << "no source answers for the signer";
    X509ChainPolicy none;
    none.SetRevocationOption(X509ChainPolicy::revOptionNone);
    EXPECT_EQ(CodeOf([&] { cades.AddValidationData(0, none, kExtended); }), ErrInvalidParameter)
        << "a policy that checks no revocation gives no LT";
    EXPECT_EQ(ToBytes(cades.Encode()), before) << "nothing changed";
}
