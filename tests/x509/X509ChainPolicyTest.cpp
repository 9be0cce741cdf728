// The chain policy as an application sees it: Reset back to the defaults, the
// purpose range, caution periods per certificate, the revocation
// verdicts of certificate validation, and the trust-list variant that chooses
// its stores by purpose.
#include <gtest/gtest.h>

#include <openssl/ocsp.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "CryptException.h"
#include "TestTessera.h"
#include "X509ChainPolicy.h"

using namespace TesseraLib;
using namespace tessera_test;
using QorOcsp2Lib::OcspResponse;

namespace {

// What an action threw: code 0 when nothing; the pointers only for an
// X509CertificateValidationException.
struct Outcome {
    int code = 0;
    std::string message;
    bool validation = false;
    const X509Certificate* cert = nullptr;
    const X509Crl* crl = nullptr;
    const OcspResponse* ocsp = nullptr;
};

Outcome Observe(const std::function<void()>& action) {
    try {
        action();
    } catch (const X509CertificateValidationException& e) {
        return {e.GetErrorCode(), Narrow(e.GetErrorMessage()), true, e.GetCertificate(),
                e.GetCrl(),       e.GetOcspResponse()};
    } catch (const CryptException& e) {
        return {e.GetErrorCode(), Narrow(e.GetErrorMessage())};
    }
    return {};
}

// The clients are only pointed to, never called: any distinct addresses do.
char g_clientTags[2];
X509CrlClient* const kCrlClient = reinterpret_cast<X509CrlClient*>(&g_clientTags[0]);
X509OcspClient* const kOcspClient = reinterpret_cast<X509OcspClient*>(&g_clientTags[1]);

void DummyCrlVerdict(const X509Certificate*, const X509Crl&, std::int64_t, const CautionPeriod&) {}
void DummyOcspVerdict(const X509Certificate*, const OcspResponse&, std::int64_t,
                      const CautionPeriod&) {}

void ExpectDefaults(const X509ChainPolicy& p, const char* when) {
    EXPECT_TRUE(p.GetRevocationOption() == X509ChainPolicy::revOptionChain &&
                p.GetRevocationMode() == X509ChainPolicy::revCrl && p.GetChainBuildMode() == 5 &&
                p.GetPurpose() == X509_PURPOSE_SMIME_SIGN && p.GetMaxPathLen() == -1 &&
                p.GetMaxOcspFreshness() == -1L)
        << when << ": CRLs for the chain, clients + supplied data, S/MIME signing, no limits";
    EXPECT_EQ(p.GetCheckRevocationThisUpdate() | p.GetForceGetCrlAfterTimeUsage() |
                  p.GetPreferCrl() | p.GetCheckPolicy() | p.GetRequireExplicitPolicy() |
                  p.GetInhibitPolicyMapping() | p.GetInhibitAnyPolicy(),
              0)
        << when << ": every switch off";
    EXPECT_TRUE(p.GetTrustStore() == nullptr && p.GetExtraStore() == nullptr &&
                p.GetCrlClient() == nullptr && p.GetOcspClient() == nullptr &&
                p.GetVerifyCertCrlCallback() == nullptr &&
                p.GetVerifyCertOcspResponseCallback() == nullptr)
        << when << ": no store, no client, the library's own verdicts";
    EXPECT_TRUE(p.GetDefaultCautionPeriod().IsZero() && p.GetCautionPeriods().GetSize() == 0 &&
                p.GetAcceptablePolicies().GetSize() == 0)
        << when << ": no caution periods, no acceptable policies";
}

TEST(X509ChainPolicySettings, ResetRestoresDefaultsAndCopiesKeepTheirOwn) {
    X509ChainPolicy policy;
    X509MemoryStore trust, extra;
    policy.SetRevocationOption(X509ChainPolicy::revOptionWholeChain);
    policy.SetRevocationMode(X509ChainPolicy::revOcspOrCrl);
    policy.SetChainBuildMode(X509ChainPolicy::cptChainBuildStores);
    policy.SetCheckRevocationThisUpdate(1);
    policy.SetForceGetCrlAfterTimeUsage(1);
    policy.SetPreferCrl(1);
    policy.SetTrustStore(&trust);
    policy.SetExtraStore(&extra);
    policy.SetCrlClient(kCrlClient);
    policy.SetOcspClient(kOcspClient);
    policy.SetDefaultCautionPeriod(CautionPeriod(1, 0, 0, 0));
    policy.SetCautionPeriod("00ff", CautionPeriod(0, 1, 0, 0));
    policy.SetPurpose(0);
    qorstd::QorVector<qorstd::QorString> oids;
    oids.Add("1.2.3.4");
    policy.SetAcceptablePolicies(oids);
    policy.SetMaxPathLen(3);
    policy.SetMaxOcspFreshness(3600);
    policy.SetCheckPolicy(1);
    policy.SetRequireExplicitPolicy(1);
    policy.SetInhibitPolicyMapping(1);
    policy.SetInhibitAnyPolicy(1);
    policy.SetVerifyCertCrlCallback(DummyCrlVerdict);
    policy.SetVerifyCertOcspResponseCallback(DummyOcspVerdict);

    X509ChainPolicy copy(policy);
    X509ChainPolicy assigned;
    assigned = policy;
    policy.Reset();
    ExpectDefaults(policy, "after Reset");

    for (const X509ChainPolicy* p : {&copy, &assigned}) {
        EXPECT_TRUE(p->GetTrustStore() == &trust && p->GetExtraStore() == &extra &&
                    p->GetCrlClient() == kCrlClient && p->GetOcspClient() == kOcspClient)
            << "copies share stores and clients and keep them after the original's Reset";
        EXPECT_EQ(p->GetCautionPeriod("00ff").ToTimestamp(), 3600u) << "own caution periods";
        EXPECT_EQ(p->GetAcceptablePolicies().GetSize(), 1u) << "own list of policies";
    }
}

TEST(X509ChainPolicySettings, PurposeTakesOnlyZeroToNine) {
    X509ChainPolicy policy;
    for (int purpose = 0; purpose <= 9; ++purpose) {
        policy.SetPurpose(purpose);
        EXPECT_EQ(policy.GetPurpose(), purpose) << "purpose " << purpose << " is stored";
    }
    for (int purpose : {10, -1, INT_MIN, INT_MAX}) {
        policy.SetPurpose(purpose);
        EXPECT_EQ(policy.GetPurpose(), 9) << "purpose " << purpose << " is ignored without error";
    }
}

TEST(CautionPeriods, ArithmeticAndZero) {
    EXPECT_EQ(CautionPeriod(1, 2, 3, 4).ToTimestamp(), 93784u)
        << "1 d 2 h 3 min 4 s in seconds, days first";
    EXPECT_EQ(CautionPeriod(50000, 0, 0, 0).ToTimestamp(), 25032704u)
        << "50000 days wrap around 2^32 seconds";
    EXPECT_FALSE(CautionPeriod(0, 0, 0, 1).IsZero()) << "one second is not zero";
    CautionPeriod reset(1, 0, 0, 0);
    reset.Reset();
    EXPECT_TRUE(reset.IsZero()) << "Reset zeroes every unit";
}

TEST(CautionPeriods, PerCertificateLookup) {
    const X509Certificate cert(
        IssueCertificate(BasicProfile("Caution Leaf", 1, false), nullptr).cert.get());
    const std::string key = cert.GetSHA1HashHex().c_str();
    std::string upper = key;
    std::transform(key.begin(), key.end(), upper.begin(), ::toupper);
    X509ChainPolicy policy;
    policy.SetDefaultCautionPeriod(CautionPeriod(0, 0, 5, 0));
    policy.SetCautionPeriod(upper.c_str(), CautionPeriod(0, 0, 0, 10));
    EXPECT_EQ(policy.GetCautionPeriod(key.c_str()).ToTimestamp(), 300u)
        << "an upper-case entry does not answer the lower-case SHA-1 hex: default";

    policy.SetCautionPeriod(key.c_str(), CautionPeriod(0, 1, 0, 0));
    policy.SetCautionPeriod(key.c_str(), CautionPeriod(2, 0, 0, 0));
    EXPECT_EQ(policy.GetCautionPeriods().GetSize(), 2u)
        << "one entry per distinct text: the repeated call adds none";
    EXPECT_EQ(policy.GetCautionPeriod(key.c_str()).ToTimestamp(), 3600u)
        << "the first period set for the certificate wins";
    EXPECT_EQ(policy.GetCautionPeriod(upper.c_str()).ToTimestamp(), 10u)
        << "the upper-case text keeps its own entry";
    EXPECT_EQ(policy.GetCautionPeriod("0000").ToTimestamp(), 300u)
        << "an unknown certificate gets the default period";
}

//   Root CA ──┬── leaf #2: revoked 01.06.2024 12:00 (keyCompromise) on the CRL
//             ├── leaf #3: not listed
//             └── OCSP responder
// The CRL and every OCSP answer expire on 02.01.2024, long before the times
// checked, and a caution period of a year is passed: the verdicts ignore both.
class RevocationVerdicts : public ::testing::Test {
protected:
    struct Pki {
        Issued root = IssueCertificate(BasicProfile("Verdict Root", 1, true), nullptr);
        Issued responder = IssueCertificate(BasicProfile("Verdict OCSP", 9, false), &root);
        Issued revokedLeaf = IssueCertificate(BasicProfile("Revoked Leaf", 2, false), &root);
        Issued goodLeaf = IssueCertificate(BasicProfile("Good Leaf", 3, false), &root);
    };
    static const Pki& Certs() {
        static const Pki pki;
        return pki;
    }

    static X509Crl RootCrl() {
        return X509Crl(IssueCrl(Certs().root, UtcTime(2024, 1, 1), UtcTime(2024, 1, 2),
                                {{2, kRevoked, CRL_REASON_KEY_COMPROMISE}})
                           .get());
    }

    // One answer per (leaf, status, reason); a revoked answer dates kRevoked.
    static OcspResponse Response(const std::vector<std::tuple<const Issued*, int, int>>& answers) {
        OcspResponsePlan profile =
            OcspPlan(&Certs().responder, Certs().root.cert.get(), {}, UtcTime(2024, 1, 1));
        for (const auto& [leaf, status, reason] : answers) {
            const std::int64_t revoked = status == V_OCSP_CERTSTATUS_REVOKED ? kRevoked : 0;
            profile.answers.push_back({leaf->cert.get(), status, reason, revoked,
                                       UtcTime(2024, 1, 1), UtcTime(2024, 1, 2)});
        }
        return DecodedOcsp(profile);
    }

    Outcome Crl(const X509Certificate* cert, const X509Crl& crl, std::int64_t time) const {
        return Observe([&] { CertificateValidationCrlCallback(cert, crl, time, kYear); });
    }
    Outcome Ocsp(const X509Certificate* cert, const OcspResponse& r, std::int64_t time) const {
        return Observe([&] { CertificateValidationOcspCallback(cert, r, time, kYear); });
    }

    static inline const std::int64_t kRevoked = UtcTime(2024, 6, 1, 12);
    static inline const CautionPeriod kYear{365, 0, 0, 0};
    const Issued* revokedLeaf = &Certs().revokedLeaf;
    const Issued* goodLeaf = &Certs().goodLeaf;
    const X509Certificate revoked{revokedLeaf->cert.get()}, good{goodLeaf->cert.get()};
};

TEST_F(RevocationVerdicts, Crl) {
    const X509Crl crl = RootCrl();
    for (std::int64_t time : {kRevoked, kRevoked + 1}) {
        const Outcome o = Crl(&revoked, crl, time);
        EXPECT_TRUE(o.validation && o.code == ErrCertRevoked && o.message.empty())
            << "revoked at or before the time: validation exception 149 without message";
        EXPECT_TRUE(o.cert == &revoked && o.crl == &crl && o.ocsp == nullptr)
            << "it points to the certificate and the deciding CRL, to no OCSP response";
    }
    EXPECT_EQ(Crl(&revoked, crl, kRevoked - 1).code, 0) << "revoked one second later passes";
    EXPECT_EQ(Crl(&good, crl, kRevoked).code, 0) << "unlisted passes, however old the CRL";
    EXPECT_EQ(Crl(nullptr, crl, kRevoked).code, ErrInvalidParameter) << "null certificate";
}

TEST_F(RevocationVerdicts, Ocsp) {
    const OcspResponse goodAnswer = Response({{goodLeaf, V_OCSP_CERTSTATUS_GOOD, -1}});
    EXPECT_EQ(Ocsp(&good, goodAnswer, kRevoked).code, 0) << "good passes, however old";

    const int keyCompromise = OCSP_REVOKED_STATUS_KEYCOMPROMISE;
    const OcspResponse revokedAnswer =
        Response({{revokedLeaf, V_OCSP_CERTSTATUS_REVOKED, keyCompromise}});
    EXPECT_EQ(Ocsp(&revoked, revokedAnswer, kRevoked - 1).code, 0) << "revoked later passes";
    for (std::int64_t time : {kRevoked, kRevoked + 1}) {
        const Outcome o = Ocsp(&revoked, revokedAnswer, time);
        EXPECT_TRUE(o.validation && o.code == ErrCertRevoked && o.message.empty())
            << "revoked at or before the time: validation exception 149 without message";
        EXPECT_TRUE(o.cert == &revoked && o.crl == nullptr && o.ocsp == &revokedAnswer)
            << "it points to the certificate and the deciding response, to no CRL";
    }

    const int hold = OCSP_REVOKED_STATUS_CERTIFICATEHOLD;
    const OcspResponse onHold = Response({{revokedLeaf, V_OCSP_CERTSTATUS_REVOKED, hold}});
    const Outcome held = Ocsp(&revoked, onHold, kRevoked);
    ASSERT_TRUE(held.validation && held.code == ErrCertRevoked && held.ocsp == &onHold)
        << "on hold counts as revoked and carries its response";
    EXPECT_EQ(held.ocsp->GetSingleResponses()[0].GetRevocationReason(), hold)
        << "the catcher can read certificateHold from the carried response";

    const OcspResponse unknown = Response({{goodLeaf, V_OCSP_CERTSTATUS_UNKNOWN, -1}});
    const Outcome u = Ocsp(&good, unknown, kRevoked);
    EXPECT_TRUE(u.validation && u.code == ErrRevocationUnknown && u.message.empty() &&
                u.cert == &good && u.crl == nullptr && u.ocsp == &unknown)
        << "unknown: validation exception 147 without message, carrying the response";
}

TEST_F(RevocationVerdicts, OcspNeedsExactlyOneSingleResponse) {
    const Outcome two = Ocsp(&good,
                             Response({{goodLeaf, V_OCSP_CERTSTATUS_GOOD, -1},
                                       {revokedLeaf, V_OCSP_CERTSTATUS_GOOD, -1}}),
                             kRevoked);
    EXPECT_TRUE(!two.validation && two.code == ErrInternal &&
                two.message == "ocsp.GetSingleResponses().GetSize()>1")
        << "two single responses: plain 101, got " << two.code << " " << two.message;
    const Outcome none = Ocsp(&good, Response({}), kRevoked);
    EXPECT_TRUE(!none.validation && none.code == ErrInvalidParameter &&
                none.message == "ocsp.GetSingleResponses() is empty")
        << "no single response: plain 102, got " << none.code << " " << none.message;
}

class TrustListPolicy : public ::testing::Test {
protected:
    void SetUp() override {
        policy.SetTrustStoreSig(&trustSig);
        policy.SetExtraStoreSig(&extraSig);
        policy.SetTrustStoreTS(&trustTS);
        policy.SetExtraStoreTS(&extraTS);
        policy.SetTSUStore(&tsu);
    }

    X509MemoryStore trustSig, extraSig, trustTS, extraTS, tsu;
    X509ChainPolicyTL policy;
    X509ChainPolicy& base = policy;  // path building sees only the base
};

TEST_F(TrustListPolicy, PurposeChoosesTheStores) {
    EXPECT_TRUE(base.GetTrustStore() == &trustSig && base.GetExtraStore() == &extraSig)
        << "default purpose: the signature stores";
    policy.SetPurpose(X509_PURPOSE_TIMESTAMP_SIGN);
    EXPECT_TRUE(base.GetTrustStore() == &trustTS && base.GetExtraStore() == &extraTS)
        << "time-stamp purpose: the time-stamp stores, though signature stores are set";
    policy.SetTrustStoreTS(nullptr);
    EXPECT_EQ(base.GetTrustStore(), nullptr) << "no fallback to the signature trust store";
    policy.SetPurpose(0);
    EXPECT_EQ(base.GetTrustStore(), &trustSig) << "purpose 0: the signature trust store";
}

TEST_F(TrustListPolicy, RefusesTheUndividedStoreSetters) {
    for (X509Store* store : {static_cast<X509Store*>(&trustTS), static_cast<X509Store*>(nullptr)}) {
        const Outcome trust = Observe([&] { base.SetTrustStore(store); });
        EXPECT_TRUE(trust.code == ErrInvalidParameter &&
                    trust.message ==
                        "X509ChainPolicyTL::SetTrustStore() wrong usage. Use "
                        "X509ChainPolicyTL::SetTrustStoreSig() or "
                        "X509ChainPolicyTL::SetTrustStoreTS() instead.")
            << "SetTrustStore refused whatever the store, naming the setters to use";
        const Outcome extra = Observe([&] { base.SetExtraStore(store); });
        EXPECT_TRUE(extra.code == ErrInvalidParameter &&
                    extra.message ==
                        "X509ChainPolicyTL::SetExtraStore() wrong usage. Use "
                        "X509ChainPolicyTL::SetExtraStoreSig() or "
                        "X509ChainPolicyTL::SetExtraStoreTS() instead.")
            << "SetExtraStore refused whatever the store, naming the setters to use";
    }
    EXPECT_TRUE(policy.GetTrustStoreSig() == &trustSig && policy.GetExtraStoreSig() == &extraSig)
        << "refused calls change no store";
}

TEST_F(TrustListPolicy, ResetAndCopiesCoverTheTimeStampStores) {
    policy.SetPurpose(X509_PURPOSE_TIMESTAMP_SIGN);
    X509ChainPolicyTL copy(policy);
    X509ChainPolicyTL assigned;
    assigned = policy;
    base.Reset();  // as a chain resets the policy it points to
    ExpectDefaults(policy, "after Reset through the base");
    EXPECT_TRUE(policy.GetTrustStoreTS() == nullptr && policy.GetExtraStoreTS() == nullptr &&
                policy.GetTSUStore() == nullptr)
        << "Reset drops the time-stamp and TSU stores";
    for (const X509ChainPolicyTL* p : {&copy, &assigned}) {
        EXPECT_TRUE(p->GetTrustStore() == &trustTS && p->GetExtraStoreTS() == &extraTS &&
                    p->GetTSUStore() == &tsu && p->GetTrustStoreSig() == &trustSig)
            << "copies keep purpose and all stores after the original's Reset";
    }
}

}  // namespace
