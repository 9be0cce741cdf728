// The chain's revocation verdicts on one CRL or OCSP response, the CRL
// suitability test, and the searches of an extra store, called directly
// through a chain whose protected steps are opened up. Whole paths are
// tested in X509ChainTest.cpp.
//
//   Revocation CA ──┬── leaf       serial 7, valid 2024-01-01 .. 2099-01-01
//   (self-signed)   └── other leaf serial 8
//   Other CA         (self-signed, signs CRLs nobody should accept for the leaf)
//
// Times are pinned, except where a verdict compares with the current time:
// there the CRL and verification times are taken relative to now.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "TestTessera.h"

using namespace TesseraLib;
using namespace tessera_test;
using QorOcsp2Lib::OcspResponse;

namespace {

class ChainProbe : public X509Chain {
public:
    using X509Chain::FindCrl;
    using X509Chain::FindOcspResponse;
    using X509Chain::VerifyCertCrl;
    using X509Chain::VerifyCertOcspResponse;
    using X509Chain::VerifyCrl;
    using X509Chain::X509Chain;
};

struct Pki {
    Issued ca = IssueCertificate(BasicProfile("Revocation CA", 1, true), nullptr);
    Issued otherCa = IssueCertificate(BasicProfile("Other CA", 1, true), nullptr);
    Issued leaf = Leaf("Leaf", 7), otherLeaf = Leaf("Other Leaf", 8);

    Issued Leaf(const char* name, long serial) const {
        CertPlan profile = BasicProfile(name, serial, false);
        profile.notBefore = UtcTime(2024, 1, 1);
        profile.notAfter = UtcTime(2099, 1, 1);
        return IssueCertificate(profile, &ca);
    }
};

const Pki& Certs() {
    static const Pki pki;
    return pki;
}

// nextUpdate 0: the CRL has none.
X509Crl Crl(std::int64_t thisUpdate, std::int64_t nextUpdate, const Issued& issuer = Certs().ca,
            const std::vector<RevokedEntry>& revoked = {}, long number = 1) {
    CrlPlan profile;
    profile.thisUpdate = thisUpdate;
    profile.nextUpdate = nextUpdate;
    profile.revoked = revoked;
    profile.crlNumber = number;
    return X509Crl(IssueCrl(profile, issuer).get());
}

OcspAnswer About(const Issued& cert, int status, std::int64_t thisUpdate,
                 std::int64_t nextUpdate = 0, std::int64_t revocationTime = 0) {
    return OcspAnswer{cert.cert.get(), status, -1, revocationTime, thisUpdate, nextUpdate};
}

// A response signed by the Revocation CA; by default one answer about the
// leaf, produced at its thisUpdate.
OcspResponse Ocsp(const std::vector<OcspAnswer>& answers, std::int64_t producedAt,
                  const EVP_MD* idDigest = EVP_sha1()) {
    OcspResponsePlan profile = OcspPlan(&Certs().ca, Certs().ca.cert.get(), answers, producedAt);
    profile.certIdDigest = idDigest;
    return DecodedOcsp(profile);
}
OcspResponse LeafOcsp(int status, std::int64_t thisUpdate, std::int64_t nextUpdate = 0,
                      std::int64_t revocationTime = 0) {
    return Ocsp({About(Certs().leaf, status, thisUpdate, nextUpdate, revocationTime)}, thisUpdate);
}

const std::int64_t kVerifyTime = UtcTime(2024, 7, 15, 12);
const std::int64_t kHour = 3600;
const std::int64_t kDay = 24 * kHour;
const CautionPeriod kNoCaution;
const CautionPeriod kOneDay(1, 0, 0, 0);

class ChainRevocationTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(capture.Active()) << "logging set up"; }
    bool Logged(const std::wstring& text) const {
        return RecordingLog::Instance().Has(L"Tessera.X509Chain", Level::Error, text);
    }
    Thrown CrlVerdict(const X509Crl& crl, std::int64_t verifyTime = kVerifyTime,
                      const CautionPeriod& caution = kNoCaution) {
        return Catch([&] { chain.VerifyCertCrl(&leaf, crl, verifyTime, caution); });
    }
    Thrown OcspVerdict(const OcspResponse& response) {
        return Catch(
            [&] { chain.VerifyCertOcspResponse(&leaf, response, kVerifyTime, kNoCaution); });
    }

    LogCapture capture;  // before the chain, which opens its channel into the recorder
    X509ChainPolicy policy;
    ChainProbe chain{&policy};
    const X509Certificate leaf = Cert(Certs().leaf);
    const X509Certificate ca = Cert(Certs().ca);
};

// ------------------------------------------------------------ CRL verdict

TEST_F(ChainRevocationTest, CrlRevocationAndTheTimeOfTheCrl) {
    const X509Crl revoking =
        Crl(UtcTime(2024, 7, 20), UtcTime(2024, 8, 20), Certs().ca, {RevokedEntry{7, kVerifyTime}});
    EXPECT_EQ(CrlVerdict(revoking).code, ErrCertRevoked) << "revoked at the verification time";
    EXPECT_TRUE(Logged(L"VerifyCertCrl: CRL certificate status revoked."));

    const Thrown late = CrlVerdict(Crl(UtcTime(2099, 2, 1), UtcTime(2099, 3, 1)));
    EXPECT_TRUE(late.code == ErrRevocationUnknown && late.message.empty())
        << "a CRL issued after the certificate expired: 147 without message";
    EXPECT_TRUE(Logged(L"VerifyCertCrl: Incomplete automatic verification. CRL not time valid."));
    EXPECT_EQ(CrlVerdict(Crl(UtcTime(2024, 1, 1), UtcTime(2024, 8, 1))).code, ErrRevocationUnknown)
        << "thisUpdate equal to notBefore is not after it";
    EXPECT_EQ(CrlVerdict(Crl(UtcTime(2023, 12, 31), UtcTime(2024, 8, 1))).code, ErrCrlNotTimeValid)
        << "a CRL older than the certificate";
}

TEST_F(ChainRevocationTest, OutdatedCrlWaitsOnlyWhileNewerDataCanAppear) {
    // The rule asks whether the next CRL is still due, so these times follow now.
    const std::int64_t now = CryptUtils::GetCurrentTimeUTC();
    const X509Crl dueSoon = Crl(now - 3 * kDay, now + kHour);
    EXPECT_EQ(CrlVerdict(dueSoon, now - kHour).code, 0) << "nextUpdate after the verification time";
    EXPECT_EQ(CrlVerdict(dueSoon, now - kHour, kOneDay).code, ErrCautionPeriod)
        << "a day of caution reaches past nextUpdate, which is still to come";
    EXPECT_EQ(CrlVerdict(Crl(now - 3 * kDay, now - kDay), now - 36 * kHour, kOneDay).code,
              ErrRevocationUnknown)
        << "the same, but nextUpdate has passed: no point waiting";
}

// CRLs judged by thisUpdate alone are rows of X509ChainTest; here one without
// nextUpdate, so that only thisUpdate can speak.
TEST_F(ChainRevocationTest, CrlWithoutNextUpdate) {
    EXPECT_EQ(CrlVerdict(Crl(UtcTime(2024, 7, 1), 0), UtcTime(2090, 1, 1)).code, 0)
        << "a CRL without nextUpdate is never outdated";
    policy.SetCheckRevocationThisUpdate(1);
    const std::int64_t soon = CryptUtils::GetCurrentTimeUTC() + kHour;
    EXPECT_EQ(CrlVerdict(Crl(UtcTime(2024, 7, 1), 0), soon).code, ErrCautionPeriod)
        << "no nextUpdate: wait while the check time is still to come";
}

// ----------------------------------------------------------- OCSP verdict

TEST_F(ChainRevocationTest, OcspResponseMustAnswerAfterTheCertificate) {
    const std::int64_t at = UtcTime(2024, 7, 10);
    const OcspAnswer good = About(Certs().leaf, V_OCSP_CERTSTATUS_GOOD, at);
    EXPECT_EQ(OcspVerdict(Ocsp({}, at)).code, ErrInvalidParameter) << "no single response";
    const Thrown early = OcspVerdict(Ocsp({good}, UtcTime(2023, 12, 1)));
    EXPECT_TRUE(early.byOcspLibrary && early.code == 138 && early.message.empty())
        << "produced before the certificate: the OCSP library's 138, no message";
    EXPECT_EQ(OcspVerdict(Ocsp({good}, at)).code, 0) << "good, no nextUpdate";
}

TEST_F(ChainRevocationTest, OcspStatusAndFreshness) {
    const std::int64_t at = UtcTime(2024, 7, 20);
    EXPECT_EQ(OcspVerdict(LeafOcsp(V_OCSP_CERTSTATUS_REVOKED, at, 0, kVerifyTime)).code,
              ErrCertRevoked)
        << "revoked exactly at the verification time";
    EXPECT_EQ(OcspVerdict(LeafOcsp(V_OCSP_CERTSTATUS_REVOKED, at, 0, kVerifyTime + 1)).code, 0)
        << "revoked one second later";
    EXPECT_EQ(OcspVerdict(LeafOcsp(V_OCSP_CERTSTATUS_UNKNOWN, at)).code, ErrRevocationUnknown)
        << "status unknown";
    EXPECT_TRUE(
        Logged(L"VerifyCertOcspResponse: Incomplete automatic verification. OCSP "
               L"certificate status unknown."));

    policy.SetMaxOcspFreshness(3600);
    const OcspResponse old =
        LeafOcsp(V_OCSP_CERTSTATUS_GOOD, kVerifyTime - 2 * kHour, kVerifyTime + kDay);
    EXPECT_EQ(OcspVerdict(old).code, ErrRevocationUnknown)
        << "two hours old under a one-hour limit, although nextUpdate lies ahead";
    EXPECT_TRUE(
        Logged(L"VerifyCertOcspResponse: Incomplete verification (OCSP response is not fresh)."));
}

// ------------------------------------------------------ CRL suitability

TEST_F(ChainRevocationTest, VerifyCrlChecksTimesThenProofOfExistenceThenSignature) {
    const X509Crl july = Crl(UtcTime(2024, 7, 1), UtcTime(2024, 8, 1));
    auto verify = [&](const X509Crl& crl, std::int64_t time) {
        return chain.VerifyCrl(crl.GetX509Crl(), &leaf, &ca, time, nullptr, nullptr);
    };
    std::int64_t poe = -1;
    EXPECT_EQ(chain.VerifyCrl(july.GetX509Crl(), &leaf, &ca, kVerifyTime, nullptr, &poe), 1)
        << "current, issued while the leaf is valid, signed by the CA";
    EXPECT_EQ(poe, 0) << "no proof of existence without a store";
    EXPECT_EQ(verify(july, UtcTime(2024, 8, 1)), 0) << "nextUpdate must be after the time";
    EXPECT_EQ(verify(Crl(UtcTime(2023, 12, 1), UtcTime(2024, 8, 1)), kVerifyTime), 0)
        << "issued before the certificate";
    EXPECT_EQ(verify(Crl(UtcTime(2024, 7, 1), UtcTime(2024, 8, 1), Certs().otherCa), kVerifyTime),
              0)
        << "signed by another key";
    ValidationDataStore poeStore;
    auto withPoe = [&] {
        poe = -1;
        return chain.VerifyCrl(july.GetX509Crl(), &leaf, &ca, kVerifyTime, &poeStore, &poe);
    };
    EXPECT_EQ(withPoe(), 0) << "with a store, a CRL without a proof of existence does not qualify";
    poeStore.AddCrl(&july, UtcTime(2041, 1, 1));
    EXPECT_EQ(withPoe(), 0) << "proven only after the CA expired";
    poeStore.AddCrl(&july, UtcTime(2024, 7, 2));
    EXPECT_TRUE(withPoe() == 1 && poe == UtcTime(2024, 7, 2))
        << "proven while the CA was valid: its POE comes back";
    policy.SetCheckRevocationThisUpdate(1);
    EXPECT_EQ(verify(july, kVerifyTime), 0) << "thisUpdate must be after the time";
}

// ---------------------------------------------------- extra-store searches

TEST_F(ChainRevocationTest, FindCrlTakesTheFirstFittingCrlOfTheStore) {
    X509MemoryStore store;
    store.AddCrl(Crl(UtcTime(2024, 6, 1), UtcTime(2024, 7, 10), Certs().ca, {}, 1));
    store.AddCrl(Crl(UtcTime(2024, 7, 25), UtcTime(2024, 8, 25), Certs().otherCa, {}, 2));
    store.AddCrl(Crl(UtcTime(2023, 12, 1), UtcTime(2024, 12, 1), Certs().ca, {}, 3));
    store.AddCrl(Crl(UtcTime(2024, 7, 1), UtcTime(2024, 8, 1), Certs().ca, {}, 4));
    store.AddCrl(Crl(UtcTime(2024, 7, 20), UtcTime(2024, 8, 20), Certs().ca, {}, 5));
    auto found = [&] {
        std::unique_ptr<X509Crl> crl(chain.FindCrl(leaf, ca, kVerifyTime, &store));
        return crl ? std::string(crl->GetCRLNumberDec().c_str()) : std::string("none");
    };
    EXPECT_EQ(found(), "4") << "1 outdated, 2 by another issuer, 3 older than the certificate";
    policy.SetCheckRevocationThisUpdate(1);
    EXPECT_EQ(found(), "5") << "by thisUpdate only 2 and 5 are recent enough";
    X509MemoryStore empty;
    EXPECT_EQ(chain.FindCrl(leaf, ca, kVerifyTime, &empty), nullptr) << "no CRLs";
    EXPECT_EQ(CodeOf([&] { chain.FindCrl(leaf, ca, kVerifyTime, nullptr); }), ErrInvalidParameter)
        << "no store";
}

TEST_F(ChainRevocationTest, FindOcspResponseMatchesTheCertificateAndVerifiesIt) {
    const std::int64_t at = UtcTime(2024, 7, 10);
    const OcspResponse aboutOther =
        Ocsp({About(Certs().otherLeaf, V_OCSP_CERTSTATUS_GOOD, at)}, at);
    const OcspResponse aboutLeaf =
        Ocsp({About(Certs().leaf, V_OCSP_CERTSTATUS_GOOD, at)}, at, EVP_sha256());
    X509MemoryStore store, trust, untrusted, onlyOther;
    store.AddOcspResponse(aboutOther);
    store.AddOcspResponse(aboutLeaf);
    trust.AddCertificate(ca);
    policy.SetTrustStore(&trust);
    std::unique_ptr<OcspResponse> found(chain.FindOcspResponse(leaf, ca, &store));
    ASSERT_NE(found, nullptr) << "the answer about the leaf, under a SHA-256 identifier";
    EXPECT_TRUE(*found == aboutLeaf) << "a copy of the matching response";

    untrusted.AddCertificate(Cert(Certs().otherCa));
    policy.SetTrustStore(&untrusted);
    const Thrown refused = Catch([&] { delete chain.FindOcspResponse(leaf, ca, &store); });
    EXPECT_TRUE(refused.byOcspLibrary && refused.code == 141)
        << "a response the trust store does not vouch for is refused";

    onlyOther.AddOcspResponse(aboutOther);
    EXPECT_EQ(chain.FindOcspResponse(leaf, ca, &onlyOther), nullptr) << "no answer about the leaf";
}

}  // namespace
