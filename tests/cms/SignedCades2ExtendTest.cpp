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
#include <sstream>
#include <string>
#include <vector>

#include "ATSHashIndexAttribute.h"
#include "CadesValidationProcess.h"
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

// Answers for the signer only, signed by the root; nothing for the rest.
class SignerResponder : public X509OcspClient {
public:
    bool silent = false;
    QorOcsp2Lib::OcspResponse* GetOcspResponse(const X509Certificate& cert,
                                               const X509Certificate&) override {
        if (silent || cert.GetSHA1HashHex() != Cert(L().signer).GetSHA1HashHex()) {
            return nullptr;
        }
        const OcspAnswer good{
            L().signer.cert.get(), V_OCSP_CERTSTATUS_GOOD, -1, 0, UtcTime(2024, 2, 28), kFar};
        given = std::make_unique<QorOcsp2Lib::OcspResponse>(
            DecodedOcsp(OcspPlan(&L().root, L().root.cert.get(), {good}, UtcTime(2024, 2, 28))));
        return given.get();
    }
    QorOcsp2Lib::OcspResponse* GetOcspResponseAfterTime(const X509Certificate& cert,
                                                        const X509Certificate& issuer,
                                                        const std::int64_t&) override {
        return GetOcspResponse(cert, issuer);
    }

private:
    std::unique_ptr<QorOcsp2Lib::OcspResponse> given;
};

// The CRL of February 2024 of each certificate's own CA. Both TSA CAs bear
// one name, so the CRL is chosen by the certificate, not the issuer name.
class CrlsByCertificate : public X509CrlClient {
public:
    bool withRoot = true;
    X509Crl* GetCrl(const X509Certificate& cert) override {
        const Issued* ca = nullptr;
        if (withRoot && Is(cert, L().signer)) {
            ca = &L().root;
        } else if (Is(cert, L().tsa1.Tsa())) {
            ca = &L().tsa1.Ca();
        } else if (Is(cert, L().tsa2.Tsa())) {
            ca = &L().tsa2.Ca();
        }
        given.reset(ca != nullptr ? new X509Crl(IssueCrl(*ca, UtcTime(2024, 2, 1), kFar).get())
                                  : nullptr);
        return given.get();
    }
    X509Crl* GetCrlAfterTime(const X509Certificate& cert, const std::int64_t&,
                             const X509Certificate*) override {
        return GetCrl(cert);
    }

private:
    static bool Is(const X509Certificate& cert, const Issued& issued) {
        return cert.GetSHA1HashHex() == Cert(issued).GetSHA1HashHex();
    }
    std::unique_ptr<X509Crl> given;
};

// Anchors of the three CAs; revocation data from the clients: CRLs (the
// root's only with `rootCrl`), and the responder for the signer with `ocsp`.
struct Sources {
    X509MemoryStore anchors;
    X509ChainPolicy policy;
    SignerResponder responder;
    CrlsByCertificate crls;
    explicit Sources(bool rootCrl = true, bool ocsp = false) {
        for (const Issued* ca : {&L().root, &L().tsa1.Ca(), &L().tsa2.Ca()}) {
            anchors.AddCertificate(Cert(*ca));
        }
        crls.withRoot = rootCrl;
        policy.SetTrustStore(&anchors);
        policy.SetRevocationOption(X509ChainPolicy::revOptionChain);
        policy.SetRevocationMode(ocsp ? X509ChainPolicy::revOcspOrCrl : X509ChainPolicy::revCrl);
        policy.SetOcspClient(&responder);
        policy.SetCrlClient(&crls);
        policy.SetChainBuildMode(static_cast<X509ChainPolicy::cptChainBuildMode>(
            X509ChainPolicy::cptChainBuildStores | X509ChainPolicy::cptChainBuildClients));
    }
};

Bytes Der(const SignedCms& cms) {
    return ToBytes(cms.Encode());
}

CmsPtr Parsed(const Bytes& der) {
    const unsigned char* cursor = der.data();
    return CmsPtr(d2i_CMS_ContentInfo(nullptr, &cursor, static_cast<long>(der.size())));
}

// The token DER of archive time-stamp `index` of the first signer.
Bytes ArchiveToken(const SignedCades2& cades, unsigned int index) {
    return ToBytes(cades.GetSignerInfo(0)->GetArchiveTimeStampsV3()[index].GetValue());
}

// The hash-index value (DER) the token's signer carries.
Bytes IndexValue(const Bytes& token) {
    SignedCades2 parsed;
    parsed.Decode(Array(token));
    const ATSHashIndexV3Attribute index(parsed.GetSignerInfo(0)->GetATSHashIndexV3());
    const ASN1_TYPE* value =
        X509_ATTRIBUTE_get0_type(const_cast<X509_ATTRIBUTE*>(index.GetX509Attr()), 0);
    Bytes der(static_cast<std::size_t>(i2d_ASN1_TYPE(value, nullptr)));
    unsigned char* cursor = der.data();
    i2d_ASN1_TYPE(value, &cursor);
    return der;
}

int ArchiveOutcome(const SignedCades2::SignerInfo& signer, unsigned int index) {
    const qorstd::QorException* failure =
        (*signer.GetArchiveTimeStampsV3VerificationData())[index].GetVerificationException();
    return failure != nullptr ? failure->GetErrorCode() : 0;
}

}  // namespace

TEST(ExtendSignature, LtAddsPathsAndRevocationDataAndLeavesTheSignerAlone) {
    Sources sources(false, true);
    SignedCades2 cades;
    const Bytes t = CmsDer(LongTermT().get());
    cades.Decode(Array(t));
    const Bytes signatureBefore = ToBytes(cades.GetSignerInfo(0)->GetSignatureValue());
    ASSERT_EQ(cades.GetSignerInfo(0)->GetCadesType(), SignedCades2::cptCades2T);

    cades.AddValidationData(0, sources.policy, kExtended);
    const SignedCades2::SignerInfo& signer = *cades.GetSignerInfo(0);
    EXPECT_EQ(signer.GetCadesType(), SignedCades2::cptCades2Lt) << "revocation data added";
    EXPECT_EQ(cades.GetCertificates().GetSize(), 4u) << "signer, root, TSA 1 and its CA";
    EXPECT_EQ(cades.GetCrls().GetSize(), 1u) << "TSA 1's CA's CRL";
    ASSERT_EQ(cades.GetOcspResponses().GetSize(), 1u) << "the signer's OCSP response";
    const Bytes choice = ToBytes(cades.GetOcspRevocationInfoChoices()[0]);
    const Bytes riOcspResponse = {0x06, 0x08, 0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x10, 0x02};
    EXPECT_TRUE(choice[0] == 0xA1 &&
                std::search(choice.begin(), choice.end(), riOcspResponse.begin(),
                            riOcspResponse.end()) != choice.end())
        << "the response is other revocation info under id-ri-ocsp-response";
    EXPECT_EQ(cades.GetVersion(), 5u) << "other revocation info makes the SignedData version 5";
    EXPECT_EQ(ToBytes(signer.GetSignatureValue()), signatureBefore) << "the signer is not touched";

    const Bytes lt = Der(cades);
    cades.AddValidationData(0, sources.policy, kExtended);
    EXPECT_EQ(Der(cades), lt) << "a second run finds everything there and adds nothing";

    X509ChainPolicy anchorsOnly;
    anchorsOnly.SetTrustStore(&sources.anchors);
    anchorsOnly.SetRevocationOption(X509ChainPolicy::revOptionNone);
    VerifierCades verifier;
    verifier.SetVerifyOption(VerifierCms::cptVerifyWholeChain);
    verifier.SetVerifyTime(kExtended);
    verifier.SetChainPolicy(&anchorsOnly);
    EXPECT_EQ(CodeOf([&] { cades.Verify(verifier, SignedCades::cptCadesNone); }), 0)
        << "signature, time-stamp and paths still verify";
}

TEST(ExtendSignature, LtaMatchesTheIndependentImprintAndVerifiesHereAndWithOpenssl) {
    Sources sources;
    QorTsp2Lib::TspClient client(L"http://127.0.0.1:1/unused");
    PinnedCades2 cades;
    cades.Decode(Array(CmsDer(LongTermT().get())));
    cades.AddValidationData(0, sources.policy, kExtended);
    const Bytes lt = Der(cades);
    cades.AddArchiveTimeStamp(0, &client);
    const Bytes archived = Der(cades);
    cades.AddValidationData(0, sources.policy, kExtended);
    EXPECT_EQ(cades.GetCrls().GetSize(), 3u)
        << "TSA 2's CA's CRL joins those of the root and TSA 1's CA";
    ASSERT_EQ(cades.GetSignerInfo(0)->GetCadesType(), SignedCades2::cptCades2Lta);

    // TestArchive computes index and imprint input from the LT message.
    const Bytes token = ArchiveToken(cades, 0);
    const CmsPtr ltCms = Parsed(lt);
    const Bytes index = HashIndexV3(ltCms.get());
    EXPECT_EQ(IndexValue(token), index) << "the same ats-hash-index-v3 value";
    const Bytes input = ArchiveImprintInput(ltCms.get(), LongTermContent(), index);
    EXPECT_EQ(cades.lastImprint,
              TestTsa::Digest(EVP_sha256(), std::string(input.begin(), input.end())))
        << "the token stamps the digest of the same imprint input";

    X509ChainPolicy policy;
    policy.SetTrustStore(&sources.anchors);
    policy.SetChainBuildMode(static_cast<X509ChainPolicy::cptChainBuildMode>(
        X509ChainPolicy::cptChainBuildStores | X509ChainPolicy::cptChainBuildSuppliedValData));
    VerifierCades verifier;
    verifier.SetChainPolicy(&policy);
    verifier.SetVerifyTime(LongTermTimes::Verified());
    ValidationDataStore store;
    SignedCades2::SignerInfo& signer = *cades.GetSignerInfo(0);
    EXPECT_EQ(CodeOf([&] { signer.Verify(verifier, &store, SignedCades2::cptCades2None); }), 0)
        << "verified in 2026 with the proofs the archive time-stamp gives";
    EXPECT_EQ(ArchiveOutcome(signer, 0), 0) << "archive time-stamp and hash index verify";

    ScratchDir dir;
    dir.Write("lta.der", archived);
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

TEST(ExtendSignature, ExtendingAnLtaAgainCoversTheEarlierArchiveTimeStamp) {
    Sources sources;
    QorTsp2Lib::TspClient client(L"http://127.0.0.1:1/unused");
    PinnedCades2 cades;
    cades.Decode(Array(CmsDer(LongTermT().get())));
    cades.Extend(0, SignedCades2::cptCades2Lta, sources.policy, &client, kExtended);
    cades.genTime = UtcTime(2024, 9, 1);
    cades.Extend(0, SignedCades2::cptCades2Lta, sources.policy, &client, UtcTime(2024, 8, 1));
    SignedCades2::SignerInfo& signer = *cades.GetSignerInfo(0);
    ASSERT_EQ(signer.GetArchiveTimeStampsV3().GetSize(), 2u);

    SignedCades2 second;
    second.Decode(Array(ArchiveToken(cades, 1)));
    const ATSHashIndexV3Attribute index(second.GetSignerInfo(0)->GetATSHashIndexV3());
    EXPECT_EQ(index.GetUnsignedAttrValuesHashIndex().GetSize(), 2u)
        << "the signature time-stamp and the first archive time-stamp";
    EXPECT_EQ(index.GetCrlsHashIndex().GetSize(), 3u) << "the CRLs of the three CAs";

    X509ChainPolicy policy;
    policy.SetTrustStore(&sources.anchors);
    policy.SetChainBuildMode(static_cast<X509ChainPolicy::cptChainBuildMode>(
        X509ChainPolicy::cptChainBuildStores | X509ChainPolicy::cptChainBuildSuppliedValData));
    VerifierCades verifier;
    verifier.SetChainPolicy(&policy);
    verifier.SetVerifyTime(LongTermTimes::Verified());
    ValidationDataStore store;
    EXPECT_EQ(CodeOf([&] { signer.Verify(verifier, &store, SignedCades2::cptCades2None); }), 0);
    EXPECT_EQ(ArchiveOutcome(signer, 0) + ArchiveOutcome(signer, 1), 0)
        << "both archive time-stamps verify";
}

TEST(ExtendSignature, ProofsKeepTheExtendedSignatureValidAfterRevocationAndTsaExpiry) {
    // Validated in 2026: the signer was revoked in 2025-06, TSA 1 expired in
    // 2025-01; the root's CRL saying so joined the message later. The
    // signer's status at the extension came from OCSP, so that this CRL is
    // the root's only one.
    Sources sources(false, true);
    QorTsp2Lib::TspClient client(L"http://127.0.0.1:1/unused");
    const auto extended = [&](SignedCades2::cptCadesType type) {
        PinnedCades2 cades;
        cades.Decode(Array(CmsDer(LongTermT().get())));
        cades.Extend(0, type, sources.policy, &client, kExtended);
        const CmsPtr cms = Parsed(Der(cades));
        CMS_add1_crl(
            cms.get(),
            IssueCrl(L().root, UtcTime(2025, 7, 1), kFar,
                     {RevokedEntry{5, LongTermTimes::Revoked(), CRL_REASON_KEY_COMPROMISE}})
                .get());
        return CmsDer(cms.get());
    };
    X509MemoryStore sigTrust, tsTrust, tsExtra;
    sigTrust.AddCertificate(Cert(L().root));
    // The TSA CAs share one name: their CRLs are also at hand in this
    // order, TSA 1's first, as the revocation search takes the first by name.
    X509MemoryStore tsu;
    for (const TestTsa* tsa : {&L().tsa1, &L().tsa2}) {
        tsTrust.AddCertificate(Cert(tsa->Ca()));
        tsExtra.AddCrl(X509Crl(IssueCrl(tsa->Ca(), UtcTime(2024, 5, 1), kFar).get()));
        tsu.AddCertificate(Cert(tsa->Tsa()));
    }
    X509ChainPolicyTL policy;
    policy.SetTSUStore(&tsu);
    policy.SetTrustStoreSig(&sigTrust);
    policy.SetTrustStoreTS(&tsTrust);
    policy.SetExtraStoreTS(&tsExtra);
    policy.SetRevocationOption(X509ChainPolicy::revOptionChain);
    policy.SetChainBuildMode(X509ChainPolicy::cptChainBuildStores);
    const auto withTime = [&](const Bytes& der) {
        SignedCades cades;
        cades.Decode(Array(der));
        ValidatorCades validator;
        validator.SetSignedCades(&cades);
        validator.SetChainPolicy(&policy);
        validator.SetValidationProcessType(ValidationProcess::vptSignatureWithTimeValidation);
        validator.SetSignatureStandard(ValidationProcess::vptEN319122_1);
        validator.SetValidationTime(LongTermTimes::Verified());
        validator.Validate();
        const auto& report = *dynamic_cast<const SignatureWithTimeValidationProcessReport*>(
            validator.GetValidationReport());
        std::wostringstream stream;
        report.Print(stream);
        const std::wstring printed = stream.str();
        return std::make_pair(
            Narrow(
                ValidationReport::cptReportTotalStatusStrings[report.GetTotalStatusIndication()]) +
                "@" + std::to_string(report.GetBestSignatureTime()),
            std::string(printed.begin(), printed.end()));
    };
    const auto lta = withTime(extended(SignedCades2::cptCades2Lta));
    EXPECT_EQ(lta.first, "repTotalPassed@" + std::to_string(LongTermTimes::Stamped()))
        << "the archive time-stamp proves the signature time-stamp within TSA 1's life\n"
        << lta.second;
    EXPECT_NE(withTime(extended(SignedCades2::cptCades2Lt)).first.rfind("repTotalPassed", 0), 0u)
        << "LT alone proves nothing once TSA 1 has expired";
}

TEST(ExtendSignature, FailuresLeaveTheSignatureAsItWas) {
    QorTsp2Lib::TspClient refused(L"http://127.0.0.1:1/tsa");
    refused.SetTotalTimeout(2);
    SignedCades2 cades;
    cades.Decode(Array(CmsDer(LongTermT().get())));
    const Bytes before = Der(cades);

    Sources sources;
    int tspCode = 0;
    try {
        cades.Extend(0, SignedCades2::cptCades2Lta, sources.policy, &refused, kExtended);
    } catch (const QorTsp2Lib::TspException& e) {
        tspCode = e.GetErrorCode();
    }
    EXPECT_NE(tspCode, 0)
        << "a TSA that cannot be reached fails with the time-stamp library's code";
    EXPECT_EQ(Der(cades), before) << "no validation data stays behind after a failed LTA";

    Sources silent(false, true);
    silent.responder.silent = true;
    EXPECT_EQ(CodeOf([&] { cades.AddValidationData(0, silent.policy, kExtended); }),
              ErrRevocationUnknown)
        << "no source answers for the signer";
    X509ChainPolicy none;
    none.SetRevocationOption(X509ChainPolicy::revOptionNone);
    EXPECT_EQ(CodeOf([&] { cades.AddValidationData(0, none, kExtended); }), ErrInvalidParameter)
        << "a policy that checks no revocation gives no LT";
    EXPECT_EQ(CodeOf([&] { cades.AddValidationData(1, sources.policy, kExtended); }),
              ErrOutOfBounds)
        << "there is one signer";
    EXPECT_EQ(CodeOf([&] {
                  cades.Extend(0, SignedCades2::cptCades2T, sources.policy, &refused, kExtended);
              }),
              ErrInvalidParameter)
        << "T is no extension";
    EXPECT_EQ(Der(cades), before) << "nothing changed";
    SignedCades2 empty;
    EXPECT_EQ(CodeOf([&] { empty.AddArchiveTimeStamp(0, &refused); }), ErrNoMessage);
}
