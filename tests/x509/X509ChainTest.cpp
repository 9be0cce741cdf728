// Whole-path scenarios of X509Chain: path building, OpenSSL's verification
// and the revocation search and verdicts, with every input made in-process
// (certificates, CRLs and OCSP responses in memory stores, recording fake
// clients) and every time pinned. The certificates used:
//
//   Root CA ............................ trust store
//    ├── Sub CA ........................ extra store
//    │    ├── Signer                     serial 0x51, valid 2020 .. 2040
//    │    ├── Expiring Signer            serial 0x52, valid 2024-01-01 .. 2024-12-31
//    │    └── Qualified Signer           serial 0x55, QcCompliance statement
//    ├── Lapsed Sub CA                   expired 2024-03-01
//    │    └── Lapsed Signer              serial 0x53
//    └── Policy Sub CA                   certificate policy P1
//         └── Policy Signer              serial 0x54, certificate policy P1
//   Other Root CA ...................... an anchor nothing chains to
//
// Unless a scenario says otherwise the chain verifies Signer at 2024-06-01
// 00:00 UTC, checks the revocation of the end entity only, from CRLs, and the
// fake clients have nothing to offer.
#include <gtest/gtest.h>

#include <openssl/ocsp.h>
#include <openssl/x509_vfy.h>

#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "TestTessera.h"

using namespace TesseraLib;
using namespace tessera_test;
using QorOcsp2Lib::OcspResponse;
using Policy = X509ChainPolicy;

namespace {

const std::int64_t kVerifyTime = UtcTime(2024, 6, 1);
const std::int64_t kCrlThisUpdate = UtcTime(2024, 5, 1);
const std::int64_t kCrlNextUpdate = UtcTime(2024, 7, 1);
const char kPolicy1[] = "1.3.6.1.4.1.55555.1.1";
const char kPolicy2[] = "1.3.6.1.4.1.55555.1.2";

struct Pki {
    Issued root, sub, signer, expiring, qualified, lapsedSub, lapsedSigner, policySub, policySigner,
        otherRoot;
};

const Pki& P() {
    static const Pki pki = [] {
        Pki p;
        p.root = IssueCertificate(BasicProfile("Root CA", 1, true), nullptr);
        p.sub = IssueCertificate(BasicProfile("Sub CA", 2, true), &p.root);
        p.signer = IssueCertificate(BasicProfile("Signer", 0x51, false), &p.sub);
        CertPlan c = BasicProfile("Expiring Signer", 0x52, false);
        c.notBefore = UtcTime(2024, 1, 1);
        c.notAfter = UtcTime(2024, 12, 31);
        p.expiring = IssueCertificate(c, &p.sub);
        c = BasicProfile("Qualified Signer", 0x55, false);
        c.qcStatements = QcStatementsDer({QcComplianceStatement()});
        p.qualified = IssueCertificate(c, &p.sub);
        c = BasicProfile("Lapsed Sub CA", 3, true);
        c.notAfter = UtcTime(2024, 3, 1);
        p.lapsedSub = IssueCertificate(c, &p.root);
        p.lapsedSigner = IssueCertificate(BasicProfile("Lapsed Signer", 0x53, false), &p.lapsedSub);
        c = BasicProfile("Policy Sub CA", 4, true);
        c.rawExtensions = {{"2.5.29.32", CertificatePoliciesDer({kPolicy1})}};
        p.policySub = IssueCertificate(c, &p.root);
        c = BasicProfile("Policy Signer", 0x54, false);
        c.rawExtensions = {{"2.5.29.32", CertificatePoliciesDer({kPolicy1})}};
        p.policySigner = IssueCertificate(c, &p.policySub);
        p.otherRoot = IssueCertificate(BasicProfile("Other Root CA", 1, true), nullptr);
        return p;
    }();
    return pki;
}

X509Crl Crl(const Issued& ca, const std::vector<RevokedEntry>& revoked = {},
            std::int64_t thisUpdate = kCrlThisUpdate, std::int64_t nextUpdate = kCrlNextUpdate) {
    return X509Crl(IssueCrl(ca, thisUpdate, nextUpdate, revoked).get());
}

OcspAnswer Good(const Issued& cert, std::int64_t thisUpdate, std::int64_t nextUpdate) {
    return OcspAnswer{cert.cert.get(), V_OCSP_CERTSTATUS_GOOD, -1, 0, thisUpdate, nextUpdate};
}

// A response signed by `signer` about certificates issued by `issuer`.
OcspResponse Ocsp(const std::vector<OcspAnswer>& answers, std::int64_t producedAt,
                  const Issued& issuer = P().sub, const Issued* signer = nullptr) {
    return DecodedOcsp(
        OcspPlan(signer != nullptr ? signer : &issuer, issuer.cert.get(), answers, producedAt));
}

// "GetCrlAfterTime(T+3600)": the call and the time it asked for, relative to
// the verification time.
std::string AfterTime(const char* name, std::int64_t time) {
    const std::int64_t offset = time - kVerifyTime;
    return std::string(name) + "(T" + (offset > 0 ? "+" : "") +
           (offset != 0 ? std::to_string(offset) : "") + ")";
}

// Answers with the first CRL whose issuer is the certificate's issuer, from
// both calls unless `afterTimeAnswers` is off, and notes every call.
class RecordingCrlClient : public X509CrlClient {
public:
    std::vector<X509Crl> crls;
    bool afterTimeAnswers = true;
    std::string calls;

    X509Crl* GetCrl(const X509Certificate& cert) override { return Find("GetCrl", cert); }
    X509Crl* GetCrlAfterTime(const X509Certificate& cert, const std::int64_t& time,
                             const X509Certificate* issuer) override {
        EXPECT_TRUE(issuer != nullptr && issuer->GetSubject() == cert.GetIssuer())
            << "the issuer of the certificate comes along";
        X509Crl* crl = Find(AfterTime("GetCrlAfterTime", time), cert);
        return afterTimeAnswers ? crl : nullptr;
    }

private:
    X509Crl* Find(const std::string& call, const X509Certificate& cert) {
        calls += (calls.empty() ? "" : " ") + call;
        for (X509Crl& crl : crls) {
            if (crl.GetIssuer() == cert.GetIssuer()) {
                return &crl;
            }
        }
        return nullptr;
    }
};

// Answers by the certificate's serial number, notes every call and the trust
// store it had during the call.
class RecordingOcspClient : public X509OcspClient {
public:
    std::map<std::string, OcspResponse> answers;
    bool fails = false;
    std::string calls;
    X509Store* trustSeen = nullptr;

    OcspResponse* GetOcspResponse(const X509Certificate& cert, const X509Certificate&) override {
        return Find("GetOcspResponse", cert);
    }
    OcspResponse* GetOcspResponseAfterTime(const X509Certificate& cert, const X509Certificate&,
                                           const std::int64_t& time) override {
        return Find(AfterTime("GetOcspResponseAfterTime", time), cert);
    }

private:
    OcspResponse* Find(const std::string& call, const X509Certificate& cert) {
        calls += (calls.empty() ? "" : " ") + call;
        trustSeen = GetTrustStore();
        if (fails) {
            CryptException::Throw(ErrChainVerification, L"cert.GetOcspResponderUrl() is empty");
        }
        auto found = answers.find(cert.GetSerialNumberStringDec().c_str());
        return found != answers.end() ? &found->second : nullptr;
    }
};

// Everything one build reads; see the header comment for the defaults.
struct Bench {
    X509MemoryStore trust;
    X509MemoryStore extra;
    RecordingCrlClient crlClient;
    RecordingOcspClient ocspClient;
    Policy policy;
    X509Certificate subject = Cert(P().signer);
    std::int64_t time = kVerifyTime;

    Bench() {
        trust.AddCertificate(Cert(P().root));
        extra.AddCertificate(Cert(P().sub));
        policy.SetTrustStore(&trust);
        policy.SetExtraStore(&extra);
        policy.SetCrlClient(&crlClient);
        policy.SetOcspClient(&ocspClient);
        policy.SetRevocationOption(Policy::revOptionEndEntity);
    }
    // A CRL in the extra store or with the CRL client; the policy to go on with.
    Policy& FromStore(const X509Crl& crl) {
        extra.AddCrl(crl);
        return policy;
    }
    Policy& FromClient(const X509Crl& crl) {
        crlClient.crls.push_back(crl);
        return policy;
    }
    // The OCSP client's answer about the subject.
    Policy& FromResponder(const OcspResponse& response) {
        ocspClient.answers[subject.GetSerialNumberStringDec().c_str()] = response;
        return policy;
    }
    // Other Root CA as the only anchor: nothing chains to it.
    void TrustOnlyOtherRoot() {
        trust = X509MemoryStore();
        trust.AddCertificate(Cert(P().otherRoot));
    }
    Thrown Build(X509Chain& chain) {
        return Catch([&] { chain.Build(&subject, time); });
    }
};

// One letter per element: C a CRL, O an OCSP response, B both, - neither.
std::string Attached(const X509Chain& chain) {
    std::string letters;
    const qorstd::QorVector<X509ChainElement>& elements = chain.GetElements();
    for (unsigned int i = 0; i < elements.GetSize(); ++i) {
        const bool crl = elements.GetAt(i).GetCrl() != nullptr;
        const bool ocsp = elements.GetAt(i).GetOcspResponse() != nullptr;
        letters += crl && ocsp ? 'B' : crl ? 'C' : ocsp ? 'O' : '-';
    }
    return letters;
}

struct Scenario {
    const char* name;
    int code;             // 0: the build passes
    const char* message;  // checked unless null
    const char* crlCalls;
    const char* ocspCalls;
    const char* attached;  // checked unless empty
    std::function<void(Bench&)> arrange;
};

// Each scenario on a fresh bench, arranged by `common` and then by itself.
void RunScenarios(const std::vector<Scenario>& scenarios,
                  const std::function<void(Bench&)>& common = nullptr) {
    for (const Scenario& s : scenarios) {
        SCOPED_TRACE(s.name);
        Bench b;
        if (common) {
            common(b);
        }
        s.arrange(b);
        X509Chain chain(&b.policy);
        const Thrown got = b.Build(chain);
        EXPECT_EQ(got.code, s.code) << "result of the build (message: " << got.message << ")";
        if (s.message != nullptr) {
            EXPECT_EQ(got.message, s.message) << "message of the failure";
        }
        EXPECT_EQ(b.crlClient.calls, s.crlCalls) << "what the CRL client was asked";
        EXPECT_EQ(b.ocspClient.calls, s.ocspCalls) << "what the OCSP client was asked";
        if (*s.attached != '\0') {
            EXPECT_EQ(Attached(chain), s.attached) << "revocation data per element";
        }
        if (!b.ocspClient.calls.empty()) {
            EXPECT_EQ(b.ocspClient.trustSeen, &b.trust)
                << "a client without trust store borrows the policy's for the call";
            EXPECT_EQ(b.ocspClient.GetTrustStore(), nullptr) << "and gives it back";
        }
    }
}

}  // namespace

TEST(X509ChainScenarios, PathBuildingAndOpenSslVerification) {
    const char* const noIssuer =
        X509_verify_cert_error_string(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY);
    const char* const expired = X509_verify_cert_error_string(X509_V_ERR_CERT_HAS_EXPIRED);
    const char* const purpose = X509_verify_cert_error_string(X509_V_ERR_INVALID_PURPOSE);
    const char* const noPolicy = X509_verify_cert_error_string(X509_V_ERR_NO_EXPLICIT_POLICY);
    // Root CA -> Policy Sub CA (P1) -> Policy Signer (P1), `oid` the one acceptable policy.
    const auto policyPath = [](Bench& b, const char* oid) -> Policy& {
        b.extra.AddCertificate(Cert(P().policySub));
        b.extra.AddCrl(Crl(P().policySub));
        b.subject = Cert(P().policySigner);
        qorstd::QorVector<qorstd::QorString> accepted;
        accepted.Add(oid);
        b.policy.SetAcceptablePolicies(accepted);
        return b.policy;
    };
    RunScenarios(
        {
            {"the default path passes; the CRL comes from the extra store", 0, nullptr, "", "",
             "C--", [](Bench&) {}},
            // Other Root CA   Sub CA -> Signer: no anchor for Sub CA.
            {"missing anchor", ErrChainIncomplete, noIssuer, "", "", "",
             [](Bench& b) { b.TrustOnlyOtherRoot(); }},
            {"without the store flags the anchor store is empty", ErrChainIncomplete, noIssuer, "",
             "", "", [](Bench& b) { b.policy.SetChainBuildMode(Policy::cptChainBuildClients); }},
            // Root CA -> Lapsed Sub CA (expired 2024-03-01) -> Lapsed Signer.
            {"expired intermediate", ErrCertNotTimeValid, expired, "", "", "",
             [](Bench& b) {
                 b.extra.AddCertificate(Cert(P().lapsedSub));
                 b.extra.AddCrl(Crl(P().lapsedSub));
                 b.subject = Cert(P().lapsedSigner);
             }},
            {"an S/MIME signing certificate checked for time-stamp signing", ErrCertUsage, purpose,
             "", "", "", [](Bench& b) { b.policy.SetPurpose(Policy::kPurposeTimestampSign); }},
            {"explicit policy P1 required and accepted", 0, nullptr, "", "", "C--",
             [&](Bench& b) { policyPath(b, kPolicy1).SetRequireExplicitPolicy(1); }},
            {"explicit policy required, only P2 acceptable", ErrChainVerification, noPolicy, "", "",
             "", [&](Bench& b) { policyPath(b, kPolicy2).SetRequireExplicitPolicy(1); }},
            {"acceptable policies alone do not demand a policy", 0, nullptr, "", "", "C--",
             [&](Bench& b) { policyPath(b, kPolicy2).SetCheckPolicy(1); }},
            {"explicit policy required on a path without policies", ErrChainVerification, noPolicy,
             "", "", "", [](Bench& b) { b.policy.SetRequireExplicitPolicy(1); }},
        },
        [](Bench& b) { b.FromStore(Crl(P().sub)); });
}

TEST(X509ChainScenarios, RevocationByCrl) {
    const std::int64_t revokedAt = UtcTime(2024, 5, 15);
    const char* const crlSignature =
        X509_verify_cert_error_string(X509_V_ERR_CRL_SIGNATURE_FAILURE);
    const char* const noCrl = "GetCrl()=NULL or GetCrl()->GetX509Crl()=NULL";
    const auto revoked = [](std::int64_t at, long serial = 0x51) {
        return std::vector<RevokedEntry>{{serial, at, -1, nullptr}};
    };
    const std::int64_t later = UtcTime(2039, 6, 1);  // stays ahead of the clock until 2039
    const auto cautionBench = [later](Bench& b) -> Policy& {
        b.time = later;
        return b.FromClient(Crl(P().sub, {}, UtcTime(2039, 5, 1), UtcTime(2039, 6, 1, 12)));
    };
    RunScenarios({
        {"revoked end entity", ErrCertRevoked, "", "", "", "C--",
         [&](Bench& b) { b.FromStore(Crl(P().sub, revoked(revokedAt))); }},
        {"revoked one second after the verification time", 0, nullptr, "", "", "C--",
         [&](Bench& b) { b.FromStore(Crl(P().sub, revoked(kVerifyTime + 1))); }},
        {"revoked exactly at the verification time", ErrCertRevoked, "", "", "", "C--",
         [&](Bench& b) { b.FromStore(Crl(P().sub, revoked(kVerifyTime))); }},
        // Root CA's CRL lists Sub CA; Sub CA's CRL is clean. Root CA is self-signed: skipped.
        {"revoked intermediate with every CA of the path checked", ErrCertRevoked, "", "", "",
         "CC-",
         [&](Bench& b) {
             b.FromStore(Crl(P().sub));
             b.FromStore(Crl(P().root, revoked(revokedAt, 2)))
                 .SetRevocationOption(Policy::revOptionChain);
         }},
        {"whole chain: the root's own CRL speaks for the root", 0, nullptr, "", "", "CCC",
         [](Bench& b) {
             b.FromStore(Crl(P().sub));
             b.FromStore(Crl(P().root)).SetRevocationOption(Policy::revOptionWholeChain);
         }},
        {"no revocation check: a revoked signer passes and nothing is attached", 0, nullptr, "", "",
         "---",
         [&](Bench& b) {
             b.FromStore(Crl(P().sub, revoked(revokedAt)))
                 .SetRevocationOption(Policy::revOptionNone);
         }},
        {"no CRL in the store nor from the client", ErrRevocationUnknown, noCrl, "GetCrl", "",
         "---", [](Bench&) {}},
        {"a CRL whose nextUpdate has passed is not taken from the store", ErrRevocationUnknown,
         noCrl, "GetCrl", "", "---",
         [](Bench& b) { b.FromStore(Crl(P().sub, {}, kCrlThisUpdate, kVerifyTime - 1)); }},
        {"the client's CRL is too old and no newer one can come", ErrRevocationUnknown, "",
         "GetCrl", "", "C--",
         [](Bench& b) { b.FromClient(Crl(P().sub, {}, kCrlThisUpdate, kVerifyTime - 1)); }},
        {"the CRL's nextUpdate lies within the caution period", ErrCautionPeriod, "", "GetCrl", "",
         "C--",
         [&](Bench& b) { cautionBench(b).SetDefaultCautionPeriod(CautionPeriod(1, 0, 0, 0)); }},
        {"the caution period is kept per certificate", ErrCautionPeriod, "", "GetCrl", "", "C--",
         [&](Bench& b) {
             cautionBench(b).SetCautionPeriod(b.subject.GetSHA1HashHex(),
                                              CautionPeriod(0, 13, 0, 0));
         }},
        {"the same CRL without caution period", 0, nullptr, "GetCrl", "", "C--", cautionBench},
        // Expiring Signer's validity ended 2024-12-31; the CRL was issued 2025-01-15.
        {"a CRL issued after the certificate expired", ErrRevocationUnknown, nullptr,
         "GetCrlAfterTime(T)", "", "C--",
         [](Bench& b) {
             b.subject = Cert(P().expiring);
             b.FromClient(Crl(P().sub, {}, UtcTime(2025, 1, 15), UtcTime(2025, 2, 15)));
         }},
        {"an expired certificate asks for a CRL issued after the check time", 0, nullptr,
         "GetCrlAfterTime(T+3600)", "", "C--",
         [](Bench& b) {
             b.subject = Cert(P().expiring);
             b.FromClient(Crl(P().sub)).SetDefaultCautionPeriod(CautionPeriod(0, 1, 0, 0));
         }},
        {"forced after-time fetching", 0, nullptr, "GetCrlAfterTime(T)", "", "C--",
         [](Bench& b) { b.FromClient(Crl(P().sub)).SetForceGetCrlAfterTimeUsage(1); }},
        {"thisUpdate as limit: a CRL issued after the verification time", 0, nullptr,
         "GetCrlAfterTime(T)", "", "C--",
         [](Bench& b) {
             b.FromClient(Crl(P().sub, {}, kVerifyTime + 3600, kCrlNextUpdate))
                 .SetCheckRevocationThisUpdate(1);
         }},
        {"thisUpdate as limit: a CRL issued before the verification time", ErrRevocationUnknown, "",
         "GetCrlAfterTime(T)", "", "C--",
         [](Bench& b) { b.FromClient(Crl(P().sub)).SetCheckRevocationThisUpdate(1); }},
        // Sub CA's name and key identifier, another key.
        {"a CRL with a bad signature", ErrRevocationUnknown, crlSignature, "", "", "C--",
         [](Bench& b) {
             const Issued forger{CertPtr(X509_dup(P().sub.cert.get())), NewKey(KeyKind::EcP256)};
             b.FromStore(X509Crl(IssueCrl(forger, kCrlThisUpdate, kCrlNextUpdate).get()));
         }},
    });
}

TEST(X509ChainScenarios, RevocationByOcspOrCrl) {
    const std::int64_t revokedAt = UtcTime(2024, 5, 15);
    const std::int64_t crlIssued = UtcTime(2024, 5, 31, 10);
    const std::int64_t before = UtcTime(2024, 5, 31, 9);
    const std::int64_t after = UtcTime(2024, 5, 31, 11);
    const X509Crl revokingCrl =
        Crl(P().sub, {RevokedEntry{0x51, revokedAt, -1, nullptr}}, crlIssued);
    const auto goodAt = [](std::int64_t produced, std::int64_t next = kCrlNextUpdate) {
        return Ocsp({Good(P().signer, produced, next)}, produced);
    };
    const OcspResponse revokedAnswer = Ocsp(
        {{P().signer.cert.get(), V_OCSP_CERTSTATUS_REVOKED, -1, revokedAt, before, 0}}, before);
    RunScenarios(
        {
            // CRL (thisUpdate 10:00, Signer revoked) and OCSP (good) both in the extra store.
            {"an OCSP answer produced before the CRL was issued decides", 0, nullptr, "", "", "B--",
             [&](Bench& b) {
                 b.FromStore(revokingCrl);
                 b.extra.AddOcspResponse(goodAt(before));
             }},
            {"a CRL issued before the OCSP answer decides", ErrCertRevoked, "", "", "", "C--",
             [&](Bench& b) {
                 b.FromStore(revokingCrl);
                 b.extra.AddOcspResponse(goodAt(after));
             }},
            {"a CRL from the client leaves the decision to OCSP", 0, nullptr, "GetCrl", "", "B--",
             [&](Bench& b) {
                 b.FromClient(revokingCrl);
                 b.extra.AddOcspResponse(goodAt(after));
             }},
            {"prefer CRL: a CRL valid at the check time settles it, OCSP is never asked", 0,
             nullptr, "GetCrl", "", "C--",
             [&](Bench& b) {
                 b.FromClient(Crl(P().sub)).SetPreferCrl(1);
                 b.FromResponder(revokedAnswer);
             }},
            {"prefer CRL, but the CRL is too old: OCSP decides", 0, nullptr, "GetCrl",
             "GetOcspResponse", "B--",
             [&](Bench& b) {
                 b.FromClient(Crl(P().sub, {}, kCrlThisUpdate, kVerifyTime - 1));
                 b.FromResponder(goodAt(before)).SetPreferCrl(1);
             }},
            {"no CRL anywhere: OCSP from the client", 0, nullptr, "GetCrl", "GetOcspResponse",
             "O--", [&](Bench& b) { b.FromResponder(goodAt(before)); }},
            {"neither CRL nor OCSP", ErrRevocationUnknown,
             "RevocationMode == revOcspOrCrl && pCurrOcsp == NULL", "GetCrl", "GetOcspResponse",
             "---", [](Bench&) {}},
            // Expiring Signer's validity ended before today.
            {"an expired certificate asks both clients for data issued after the time", 0, nullptr,
             "GetCrlAfterTime(T+3600) GetCrl", "GetOcspResponseAfterTime(T)", "B--",
             [&](Bench& b) {
                 b.subject = Cert(P().expiring);
                 b.FromClient(Crl(P().sub)).SetDefaultCautionPeriod(CautionPeriod(0, 1, 0, 0));
                 b.crlClient.afterTimeAnswers = false;
                 b.FromResponder(Ocsp({Good(P().expiring, before, kCrlNextUpdate)}, before));
             }},
        },
        [](Bench& b) { b.policy.SetRevocationMode(Policy::revOcspOrCrl); });
    const char* const noAnswer = "RevocationMode == revOcsp && pCurrOcsp == NULL";
    RunScenarios(
        {
            {"OCSP only: revoked", ErrCertRevoked, "", "", "GetOcspResponse", "O--",
             [&](Bench& b) { b.FromResponder(revokedAnswer); }},
            {"OCSP only: no answer", ErrRevocationUnknown, noAnswer, "", "GetOcspResponse", "---",
             [](Bench&) {}},
            {"OCSP only: a failing client is treated as no answer", ErrRevocationUnknown, noAnswer,
             "", "GetOcspResponse", "---", [](Bench& b) { b.ocspClient.fails = true; }},
            {"an answer in the extra store signed by an untrusted responder is passed over", 0,
             nullptr, "", "GetOcspResponse", "O--",
             [&](Bench& b) {
                 b.extra.AddOcspResponse(Ocsp({Good(P().signer, before, kCrlNextUpdate)}, before,
                                              P().sub, &P().otherRoot));
                 b.FromResponder(goodAt(after));
             }},
            {"two single responses in one answer", ErrInternal,
             "ocsp.GetSingleResponses().GetSize()>1", "", "GetOcspResponse", "O--",
             [&](Bench& b) {
                 b.FromResponder(Ocsp({Good(P().signer, before, kCrlNextUpdate),
                                       Good(P().qualified, before, kCrlNextUpdate)},
                                      before));
             }},
            // Good answers with thisUpdate 2 hours or 30 minutes before the verification time.
            {"freshness limit of one hour, answer two hours old", ErrRevocationUnknown, "", "",
             "GetOcspResponse", "O--",
             [&](Bench& b) {
                 b.FromResponder(goodAt(kVerifyTime - 7200)).SetMaxOcspFreshness(3600);
             }},
            {"freshness limit met: a passed nextUpdate no longer matters", 0, nullptr, "",
             "GetOcspResponse", "O--",
             [&](Bench& b) {
                 b.FromResponder(goodAt(kVerifyTime - 1800, kVerifyTime - 600))
                     .SetMaxOcspFreshness(3600);
             }},
            {"without freshness limit the passed nextUpdate fails", ErrRevocationUnknown, "", "",
             "GetOcspResponse", "O--",
             [&](Bench& b) { b.FromResponder(goodAt(kVerifyTime - 1800, kVerifyTime - 600)); }},
        },
        [](Bench& b) { b.policy.SetRevocationMode(Policy::revOcsp); });
}

TEST(X509ChainScenarios, ElementsAndEnumerationsFollowThePath) {
    Bench b;
    const X509Crl subCrl = Crl(P().sub), rootCrl = Crl(P().root);
    b.FromStore(rootCrl);
    b.FromStore(subCrl).SetRevocationOption(Policy::revOptionChain);
    X509Chain chain(&b.policy);
    ASSERT_EQ(b.Build(chain).code, 0) << "the path verifies";
    EXPECT_EQ(chain.GetVerifyTime(), kVerifyTime) << "the time of the build";
    const qorstd::QorVector<X509Certificate> certs = chain.EnumCertificates();
    ASSERT_EQ(certs.GetSize(), 3u) << "signer, sub CA, root";
    EXPECT_TRUE(certs.GetAt(0).Equals(Cert(P().signer)) && certs.GetAt(1).Equals(Cert(P().sub)) &&
                certs.GetAt(2).Equals(Cert(P().root)))
        << "path order: the verified certificate first, the anchor last";
    const qorstd::QorVector<X509Crl> crls = chain.EnumCrls();
    ASSERT_EQ(crls.GetSize(), 2u) << "only the checked certificates carry a CRL";
    EXPECT_TRUE(crls.GetAt(0).Equals(subCrl) && crls.GetAt(1).Equals(rootCrl))
        << "each certificate carries its issuer's CRL, in path order";
    EXPECT_EQ(crls.GetAt(0).GetX509Crl(), subCrl.GetX509Crl())
        << "the element shares the store's decoded CRL instead of decoding it again";
    EXPECT_EQ(chain.EnumOcspResponses().GetSize(), 0u) << "no OCSP in CRL mode";

    Bench o;
    const OcspResponse answer =
        Ocsp({Good(P().signer, UtcTime(2024, 5, 31), kCrlNextUpdate)}, UtcTime(2024, 5, 31));
    o.FromResponder(answer).SetRevocationMode(Policy::revOcsp);
    X509Chain ocspChain(&o.policy);
    ASSERT_EQ(o.Build(ocspChain).code, 0) << "OCSP path verifies";
    const auto responses = ocspChain.EnumOcspResponses();
    ASSERT_EQ(responses.GetSize(), 1u) << "the end entity's answer";
    EXPECT_TRUE(responses.GetAt(0) == answer) << "a copy of the client's response";
    EXPECT_EQ(ocspChain.EnumCrls().GetSize(), 0u) << "no CRL in OCSP mode";
}

TEST(X509ChainScenarios, TimeZeroMeansNow) {
    Bench b;
    b.FromStore(Crl(P().sub, {}, kCrlThisUpdate, UtcTime(2039, 12, 31)));
    b.time = 0;
    X509Chain chain(&b.policy);
    const std::int64_t before = static_cast<std::int64_t>(std::time(nullptr));
    const Thrown got = b.Build(chain);
    const std::int64_t after = static_cast<std::int64_t>(std::time(nullptr));
    EXPECT_EQ(got.code, 0) << got.message;
    EXPECT_TRUE(chain.GetVerifyTime() >= before && chain.GetVerifyTime() <= after)
        << "time 0 builds at the current time and reports it";
}

TEST(X509ChainScenarios, CertificateVerifyHandsTheChainOverAndFailuresAreKept) {
    Bench b;
    b.FromStore(Crl(P().sub));
    X509Chain* raw = nullptr;
    const auto verify = [&] {
        return Catch([&] {
            b.subject.Verify(X509Certificate::cptVerifyWholeChain, kVerifyTime, nullptr, &b.policy,
                             &raw);
        });
    };
    const Thrown got = verify();
    const std::unique_ptr<X509Chain> built(raw);
    EXPECT_EQ(got.code, 0) << got.message;
    ASSERT_NE(built, nullptr) << "the built chain goes to the caller";
    EXPECT_EQ(Attached(*built), "C--") << "signer, sub CA, root; with the end entity's CRL";

    b.TrustOnlyOtherRoot();
    X509Chain chain(&b.policy);
    raw = &chain;
    EXPECT_EQ(verify().code, ErrChainIncomplete) << "the build's failure reaches the caller";
    EXPECT_EQ(raw, nullptr) << "no chain after a failure";
    const Thrown first = b.Build(chain);
    ASSERT_EQ(first.code, ErrChainIncomplete) << "no anchor";
    EXPECT_FALSE(chain.GetExceptionStore().IsEmpty()) << "the failure is kept";
    const Thrown again = Catch([&] { chain.ReThrow(); });
    EXPECT_EQ(again.code, first.code) << "ReThrow throws the same code";
    EXPECT_EQ(again.message, first.message) << "and the same message";
    EXPECT_EQ(chain.GetVerifyTime(), kVerifyTime) << "the verification time stays set";
}

TEST(X509ChainScenarios, IssuerAndQualifiedChecksBuildPaths) {
    const X509Certificate sub = Cert(P().sub);
    EXPECT_EQ(sub.IsIssuerCert(Cert(P().root), kVerifyTime), 1) << "Root CA issued Sub CA";
    EXPECT_EQ(sub.IsIssuerCert(Cert(P().otherRoot), kVerifyTime), 0) << "Other Root CA did not";
    EXPECT_EQ(Cert(P().lapsedSub).IsIssuerCert(Cert(P().root), kVerifyTime), 0)
        << "no path for a certificate expired at the time";

    Bench b;  // Root CA trusted, Sub CA in the extra store
    const X509Certificate qualified = Cert(P().qualified);
    EXPECT_EQ(qualified.IsQualified(kVerifyTime, &b.trust, &b.extra), 1)
        << "QcCompliance and a path to the anchor";
    EXPECT_EQ(qualified.IsQualified(kVerifyTime, &b.trust, nullptr), 0)
        << "without the intermediate there is no path";
    EXPECT_EQ(Cert(P().signer).IsQualified(kVerifyTime, &b.trust, &b.extra), 0)
        << "a path alone is not enough without QcCompliance";
}
