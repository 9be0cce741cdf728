// Proofs of existence: the store's earliest-proof rules and identities, and
// path building with them. The certificates used:
//
//   Root CA ................ trust store, valid 2020 .. 2040
//    └── Sub CA ............ serial 2; revoked 2024-06-15 in the revoking Root CRL
//         └── Signer ....... serial 0x51
//
// Unless a test says otherwise the chain verifies Signer at 2024-07-01 from
// CRLs, Sub CA is proven to exist since 2024-01-01, and the supplied CRLs
// are Sub CA's (issued 2024-06-10) and Root CA's (issued 2024-06-20, valid
// until 2099 so that it also covers checks at the current time).
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "TestTessera.h"

using namespace TesseraLib;
using namespace tessera_test;

namespace {

const std::int64_t kVerifyTime = UtcTime(2024, 7, 1);
const std::int64_t kSubRevoked = UtcTime(2024, 6, 15);
const std::int64_t kSubPoe = UtcTime(2024, 1, 1);

struct Pki {
    Issued root = IssueCertificate(BasicProfile("Root CA", 1, true), nullptr);
    Issued sub = IssueCertificate(BasicProfile("Sub CA", 2, true), &root);
    Issued signer = IssueCertificate(BasicProfile("Signer", 0x51, false), &sub);
};

const Pki& P() {
    static const Pki pki;
    return pki;
}

X509Crl SubCrl() {
    return X509Crl(IssueCrl(P().sub, UtcTime(2024, 6, 10), UtcTime(2024, 8, 1)).get());
}

X509Crl RootCrl(bool revokingSub) {
    std::vector<RevokedEntry> revoked;
    if (revokingSub) {
        revoked.push_back(RevokedEntry{2, kSubRevoked});
    }
    return X509Crl(IssueCrl(P().root, UtcTime(2024, 6, 20), UtcTime(2099, 1, 1), revoked).get());
}

// Answers every GetCrlAfterTime with one CRL, as a download would.
class DownloadingCrlClient : public X509CrlClient {
public:
    std::unique_ptr<X509Crl> crl;
    int calls = 0;

    X509Crl* GetCrl(const X509Certificate&) override { return nullptr; }
    X509Crl* GetCrlAfterTime(const X509Certificate&, const std::int64_t&,
                             const X509Certificate*) override {
        ++calls;
        return crl.get();
    }
};

class ChainProbe : public X509Chain {
public:
    using X509Chain::CheckRevocationWithPOE;
    using X509Chain::X509Chain;
};

class ChainPoeTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(capture.Active()) << "logging set up";
        anchors.AddCertificate(root);
        policy.SetTrustStore(&anchors);
        policy.SetCrlClient(&client);
        poe.AddCertificate(&sub, kSubPoe);
    }
    Thrown Verify() {
        return Catch([&] {
            X509Chain* built = nullptr;
            signer.Verify(X509Certificate::cptVerifyWholeChain, kVerifyTime, &policy, &poe, nullptr,
                          &built);
            chain.reset(built);
        });
    }
    bool Logged(const std::wstring& fragment) const {
        return RecordingLog::Instance().Contains(L"Tessera.X509Chain", Level::Error, fragment);
    }

    LogCapture capture;  // before every object that opens a channel
    const X509Certificate root = Cert(P().root), sub = Cert(P().sub), signer = Cert(P().signer);
    X509MemoryStore anchors;
    DownloadingCrlClient client;
    X509ChainPolicy policy;
    ValidationDataStore poe;
    std::unique_ptr<X509Chain> chain;
};

// ------------------------------------------------------------------ store

TEST(ValidationDataStoreTest, KeepsTheEarliestProofOfEachObject) {
    ValidationDataStore store;
    const X509Certificate cert = Cert(P().signer);
    store.AddCertificate(&cert, UtcTime(2024, 3, 1, 10));
    store.AddCertificate(&cert, UtcTime(2024, 3, 1, 9));
    store.AddCertificate(&cert, UtcTime(2024, 3, 1, 11));
    std::int64_t at = 0;
    EXPECT_TRUE(store.GetPOECertificate(&cert, &at) == 1 && at == UtcTime(2024, 3, 1, 9))
        << "10:00, then 09:00, then 11:00 leave 09:00";
    EXPECT_EQ(store.GetCertificates().GetSize(), 1u) << "one item per certificate";

    const X509Crl crl = SubCrl();
    store.AddCrl(&crl, 0);
    store.AddCrl(&crl, UtcTime(2024, 3, 2));
    store.AddCrl(&crl, 0);
    EXPECT_TRUE(store.GetPOECrl(&crl, &at) == 1 && at == UtcTime(2024, 3, 2))
        << "a recorded 0 is replaced, an unknown POE replaces nothing";

    at = 7;
    const X509Certificate other = Cert(P().sub);
    EXPECT_TRUE(store.GetPOECertificate(&other, &at) == 0 && at == 7)
        << "an unknown certificate: 0, poe untouched";
}

TEST(ValidationDataStoreTest, IdentitiesFollowTheEncodingNotTheObject) {
    ValidationDataStore store;
    const X509Certificate cert = Cert(P().signer);
    const Bytes der = CertToDer(P().signer.cert.get());
    const X509Certificate decoded(der.data(), static_cast<long>(der.size()));
    store.AddCertificate(&cert, UtcTime(2024, 3, 1));
    std::int64_t at = 0;
    EXPECT_EQ(store.GetPOECertificate(decoded.GetX509(), &at), 1)
        << "a certificate decoded again is the same certificate";

    const X509Crl crl = SubCrl();
    const Bytes crlDer = ToBytes(crl.Export());
    const X509Crl crlAgain(crlDer.data(), static_cast<long>(crlDer.size()));
    store.AddCrl(&crl, UtcTime(2024, 3, 1));
    EXPECT_EQ(store.GetPOECrl(crlAgain.GetX509Crl(), &at), 1) << "a CRL by OpenSSL's CRL match";
    const X509Crl later = RootCrl(false);
    EXPECT_EQ(store.GetPOECrl(&later, &at), 0) << "another CRL is not found";

    const qorstd::QorArray<unsigned char> hash = Array("digest"), copy = Array("digest");
    store.AddHash(&hash, UtcTime(2024, 3, 1));
    EXPECT_EQ(store.GetPOEHash(&copy, &at), 1) << "hashes by their bytes";
    const qorstd::QorArray<unsigned char> otherHash = Array("digesT");
    EXPECT_EQ(store.GetPOEHash(&otherHash, &at), 0) << "one byte differs";

    const QorOcsp2Lib::OcspResponse response = DecodedOcsp(OcspPlan(
        &P().sub, P().sub.cert.get(), {OcspAnswer{P().signer.cert.get()}}, UtcTime(2024, 6, 1)));
    const QorOcsp2Lib::OcspResponse responseCopy = response;
    store.AddOcsp(&response, UtcTime(2024, 6, 2));
    EXPECT_EQ(store.GetPOEOcsp(&responseCopy, &at), 1) << "OCSP responses by their DER";
    EXPECT_EQ(store.GetOcsps().GetSize(), 1u) << "recorded once";
}

TEST(ValidationDataStoreTest, CopiesOutliveTheirSource) {
    auto source = std::make_unique<ValidationDataStore>();
    const X509Crl crl = SubCrl();
    {
        const X509Certificate cert = Cert(P().sub);
        const qorstd::QorArray<unsigned char> hash = Array("digest");
        source->AddCertificate(&cert, kSubPoe);
        source->AddCrl(&crl, UtcTime(2024, 6, 12));
        source->AddHash(&hash, UtcTime(2024, 6, 12));
    }
    ValidationDataStore copy(*source);
    const ValidationDataPOEItem item = source->GetCrls()[0];
    source.reset();

    ASSERT_NE(copy.GetCertificates()[0].GetCertificate(), nullptr)
        << "the copy has the certificate";
    EXPECT_EQ(copy.GetCertificates()[0].GetCertificate()->GetSubjectName().GetCommonName(),
              qorstd::QorStringW(L"Sub CA"))
        << "the certificate is readable after its source is gone";
    EXPECT_TRUE(copy.GetHashes()[0].GetHash() != nullptr &&
                *copy.GetHashes()[0].GetHash() == Array("digest"))
        << "the hash is readable";
    EXPECT_TRUE(item.GetCrl() != nullptr && item.GetCrl()->Equals(crl) == 1 &&
                item.GetPOE() == UtcTime(2024, 6, 12))
        << "an item taken out of the store keeps its own CRL";
    EXPECT_EQ(item.GetCertificate(), nullptr) << "a CRL item is no certificate";
}

// ------------------------------------------------------------ the chain

TEST_F(ChainPoeTest, EveryCertificateOfThePathNeedsAProof) {
    // Sub CA comes from the extra store, without a proof of existence.
    X509MemoryStore intermediates;
    intermediates.AddCertificate(sub);
    policy.SetExtraStore(&intermediates);
    ValidationDataStore onlySigner;
    onlySigner.AddCertificate(&signer, kVerifyTime);
    X509Chain built(&policy);
    const Thrown thrown = Catch([&] { built.BuildWithPOE(&signer, kVerifyTime, &onlySigner); });
    EXPECT_EQ(thrown.code, ErrCertPoeNotFound) << "the intermediate has no proof of existence";
    EXPECT_TRUE(Logged(L"BuildChainWithPOE: Certificate POE not found. Certificate: "))
        << "the Error line names the operation";
    EXPECT_FALSE(built.GetExceptionStore().IsEmpty()) << "the failure is kept by the chain";

    EXPECT_EQ(CodeOf([&] {
                  signer.Verify(X509Certificate::cptVerifyWholeChain, kVerifyTime, &policy, nullptr,
                                nullptr, nullptr);
              }),
              ErrInvalidParameter)
        << "building from supplied data without a store";
}

TEST_F(ChainPoeTest, ProofOutsideTheIssuersValidity) {
    // Signer proven before Sub CA was valid.
    poe.AddCertificate(&signer, UtcTime(2019, 6, 1));
    const Thrown own = Verify();
    EXPECT_TRUE(own.code == ErrChainVerification &&
                own.message == "certificate POE outside the issuer's validity")
        << "the verified certificate itself: an error instead of the same path again";

    // Sub CA proven only before Root CA was valid: dropped, and no other
    // issuer is left.
    ValidationDataStore early;
    early.AddCertificate(&sub, UtcTime(2019, 6, 1));
    poe = early;
    EXPECT_EQ(Verify().code, ErrChainIncomplete) << "the intermediate is dropped";
}

TEST_F(ChainPoeTest, SelfSignedAnchorEndsTheRecursion) {
    ChainProbe probe(&policy);
    ValidationDataStore empty;
    std::int64_t revokedAt = -1;
    EXPECT_EQ(CodeOf([&] {
                  probe.CheckRevocationWithPOE(&root, nullptr, 0, kVerifyTime, &empty, &revokedAt);
              }),
              0)
        << "no CRL is asked for the anchor";
    EXPECT_EQ(revokedAt, 0) << "an anchor is never revoked";
    EXPECT_EQ(client.calls, 0) << "the client is not asked either";
}

TEST_F(ChainPoeTest, ProofAfterTheRevocationOfTheIssuingCa) {
    // Signer is proven only from the verification time on, after Sub CA's
    // revocation.
    const X509Crl subCrl = SubCrl(), rootCrl = RootCrl(true);
    poe.AddCrl(&subCrl, UtcTime(2024, 6, 12));
    poe.AddCrl(&rootCrl, UtcTime(2024, 6, 21));
    const Thrown thrown = Verify();
    EXPECT_TRUE(thrown.code == ErrCertPoeAfterRevocation &&
                thrown.message == "issuerRevocationTime < currCertPOE")
        << "Sub CA is dropped and no other CA issued Signer";
    EXPECT_TRUE(
        Logged(L"CheckRevocationWithPOE: Certificate POE is higher than issuer "
               L"revocation time."))
        << "the Error line";
}

TEST_F(ChainPoeTest, CaRevokedAfterTheProofNeedsACrlFromBeforeTheRevocation) {
    const X509Crl subCrl = SubCrl(), rootCrl = RootCrl(true);
    poe.AddCertificate(&signer, UtcTime(2024, 6, 1));
    poe.AddCrl(&rootCrl, UtcTime(2024, 6, 21));
    const ValidationDataStore withoutSubCrl = poe;

    // Sub CA's CRL downloaded now: proven only after the revocation.
    client.crl = std::make_unique<X509Crl>(subCrl);
    EXPECT_EQ(Verify().code, ErrRevocationUnknown) << "a CRL downloaded now does not qualify";
    EXPECT_TRUE(
        Logged(L"CheckRevocationWithPOE: Unable to obtain CRL before issuer revocation "
               L"time: 15.06.2024 00:00:00."))
        << "the Error line names the revocation time";
    EXPECT_GE(client.calls, 1) << "the client was asked";

    poe = withoutSubCrl;
    poe.AddCrl(&subCrl, UtcTime(2024, 6, 12));
    ASSERT_EQ(Verify().code, 0) << "Sub CA's CRL proven to exist before its revocation";
    ASSERT_EQ(chain->GetElements().GetSize(), 3u) << "Signer, Sub CA, Root CA";
    EXPECT_TRUE(chain->GetElements()[0].GetCrl() != nullptr &&
                chain->GetElements()[0].GetCrl()->Equals(subCrl) == 1)
        << "Signer's element carries Sub CA's CRL";
    EXPECT_TRUE(chain->GetElements()[1].GetCrl() != nullptr &&
                chain->GetElements()[1].GetCrl()->Equals(rootCrl) == 1)
        << "Sub CA's element carries the revoking CRL";
    EXPECT_EQ(chain->GetElements()[2].GetCrl(), nullptr) << "the anchor needs none";
    EXPECT_EQ(chain->GetPolicy(), &policy) << "the chain refers to the caller's policy";
}

TEST_F(ChainPoeTest, SuccessfulBuildRecordsTheProofsOfItsCrls) {
    const X509Crl subCrl = SubCrl(), rootCrl = RootCrl(false);
    poe.AddCrl(&rootCrl, UtcTime(2024, 6, 21));
    client.crl = std::make_unique<X509Crl>(subCrl);  // Sub CA's CRL only by download
    ASSERT_EQ(Verify().code, 0) << "no CA revoked";

    std::int64_t at = 0;
    EXPECT_TRUE(poe.GetPOECertificate(&signer, &at) == 1 && at == kVerifyTime)
        << "the verified certificate is recorded with the verification time";
    EXPECT_TRUE(poe.GetPOECrl(&subCrl, &at) == 1 && at > UtcTime(2024, 8, 1))
        << "the downloaded CRL is recorded as existing from the download on";
    EXPECT_TRUE(poe.GetPOECrl(&rootCrl, &at) == 1 && at == UtcTime(2024, 6, 21))
        << "the supplied CRL keeps its proof";
}

}  // namespace
