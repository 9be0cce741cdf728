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

#include "CryptException.h"
#include "OcspException.h"
#include "OcspResponse.h"
#include "RecordingLog.h"
#include "TesseraApi.h"
#include "TestOcsp.h"
#include "TestPki.h"
#include "X509Certificate.h"
#include "X509Chain.h"
#include "X509ChainPolicy.h"
#include "X509Crl.h"
#include "X509CrlClient.h"
#include "X509OcspClient.h"
#include "X509Store.h"

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

CertSpec Profile(const char* commonName, long serial, bool ca) {
    CertSpec profile;
    profile.commonName = commonName;
    profile.serial = serial;
    profile.extensions = ca ? CaExtensions()
                            : std::vector<std::pair<std::string, std::string>>{
                                  {"keyUsage", "critical,digitalSignature,nonRepudiation"}};
    return profile;
}

Pki MakePki() {
    Pki p;
    p.root = IssueCertificate(Profile("Root CA", 1, true), nullptr);
    p.sub = IssueCertificate(Profile("Sub CA", 2, true), &p.root);
    p.signer = IssueCertificate(Profile("Signer", 0x51, false), &p.sub);
    CertSpec profile = Profile("Expiring Signer", 0x52, false);
    profile.notBefore = UtcTime(2024, 1, 1);
    profile.notAfter = UtcTime(2024, 12, 31);
    p.expiring = IssueCertificate(profile, &p.sub);
    profile = Profile("Qualified Signer", 0x55, false);
    profile.qcStatements = QcStatementsDer({QcComplianceStatement()});
    p.qualified = IssueCertificate(profile, &p.sub);
    profile = Profile("Lapsed Sub CA", 3, true);
    profile.notAfter = UtcTime(2024, 3, 1);
    p.lapsedSub = IssueCertificate(profile, &p.root);
    p.lapsedSigner = IssueCertificate(Profile("Lapsed Signer", 0x53, false), &p.lapsedSub);
    profile = Profile("Policy Sub CA", 4, true);
    profile.rawExtensions = {{"2.5.29.32", CertificatePoliciesDer({kPolicy1})}};
    p.policySub = IssueCertificate(profile, &p.root);
    profile = Profile("Policy Signer", 0x54, false);
    profile.rawExtensions = {{"2.5.29.32", CertificatePoliciesDer({kPolicy1})}};
    p.policySigner = IssueCertificate(profile, &p.policySub);
    p.otherRoot = IssueCertificate(Profile("Other Root CA", 1, true), nullptr);
    return p;
}

const Pki& P() {
    static const Pki pki = MakePki();
    return pki;
}

X509Certificate Cert(const Issued& issued) {
    return X509Certificate(issued.cert.get());
}

RevokedEntry Revoked(long serial, std::int64_t at) {
    return RevokedEntry{serial, at, -1, nullptr};
}

X509Crl Crl(const Issued& ca, const std::vector<RevokedEntry>& revoked = {},
            std::int64_t thisUpdate = kCrlThisUpdate, std::int64_t nextUpdate = kCrlNextUpdate) {
    CrlSpec profile;
    profile.thisUpdate = thisUpdate;
    profile.nextUpdate = nextUpdate;
    profile.revoked = revoked;
    return X509Crl(IssueCrl(profile, ca).get());
}

OcspAnswer Good(const Issued& cert, std::int64_t thisUpdate, std::int64_t nextUpdate) {
    return OcspAnswer{cert.cert.get(), V_OCSP_CERTSTATUS_GOOD, -1, 0, thisUpdate, nextUpdate};
}

OcspAnswer RevokedAnswer(const Issued& cert, std::int64_t at, std::int64_t thisUpdate) {
    return OcspAnswer{cert.cert.get(), V_OCSP_CERTSTATUS_REVOKED, -1, at, thisUpdate, 0};
}

// A response signed by `signer` about certificates issued by `issuer`.
OcspResponse Ocsp(const std::vector<OcspAnswer>& answers, std::int64_t producedAt,
                  const Issued& issuer = P().sub, const Issued* signer = nullptr) {
    OcspResponseSpec profile;
    profile.signer = signer != nullptr ? signer : &issuer;
    profile.issuer = issuer.cert.get();
    profile.answers = answers;
    profile.producedAt = producedAt;
    const std::vector<unsigned char> der = MakeOcspResponse(profile);
    OcspResponse response;
    response.Decode(der.data(), static_cast<unsigned long>(der.size()));
    return response;
}

// "GetCrlAfterTime(T+3600)": a call and the time it asked for, relative to
// the verification time.
std::string Call(const char* name, const std::int64_t* time = nullptr) {
    std::string call = name;
    if (time != nullptr) {
        const std::int64_t offset = *time - kVerifyTime;
        call += "(T" + (offset == 0 ? "" : (offset > 0 ? "+" : "") + std::to_string(offset)) + ")";
    }
    return call;
}

// Answers with the first CRL whose issuer is the certificate's issuer, from
// both calls unless `afterTimeAnswers` is off, and notes every call.
class RecordingCrlClient : public X509CrlClient {
public:
    std::vector<X509Crl> crls;
    bool afterTimeAnswers = true;
    std::vector<std::string> calls;

    X509Crl* GetCrl(const X509Certificate& cert) override {
        calls.push_back(Call("GetCrl"));
        return Find(cert);
    }
    X509Crl* GetCrlAfterTime(const X509Certificate& cert, const std::int64_t& time,
                             const X509Certificate* issuer) override {
        calls.push_back(Call("GetCrlAfterTime", &time));
        EXPECT_TRUE(issuer != nullptr && issuer->GetSubject() == cert.GetIssuer())
            << "the issuer of the certificate comes along";
        return afterTimeAnswers ? Find(cert) : nullptr;
    }

private:
    X509Crl* Find(const X509Certificate& cert) {
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
    std::vector<std::string> calls;
    X509Store* trustSeen = nullptr;

    void Answer(const Issued& cert, const OcspResponse& response) {
        answers[Cert(cert).GetSerialNumberStringDec().c_str()] = response;
    }
    OcspResponse* GetOcspResponse(const X509Certificate& cert, const X509Certificate&) override {
        calls.push_back(Call("GetOcspResponse"));
        return Find(cert);
    }
    OcspResponse* GetOcspResponseAfterTime(const X509Certificate& cert, const X509Certificate&,
                                           const std::int64_t& time) override {
        calls.push_back(Call("GetOcspResponseAfterTime", &time));
        return Find(cert);
    }

private:
    OcspResponse* Find(const X509Certificate& cert) {
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
};

// What an action threw: code 0 when nothing.
struct Outcome {
    int code = 0;
    std::string message;
};

std::string Narrow(const qorstd::QorStringW& text) {
    const std::wstring wide(text.c_str());
    return std::string(wide.begin(), wide.end());
}

Outcome Catch(const std::function<void()>& action) {
    try {
        action();
    } catch (const CryptException& e) {
        return {e.GetErrorCode(), Narrow(e.GetErrorMessage())};
    } catch (const QorOcsp2Lib::OcspException& e) {
        return {e.GetErrorCode(), Narrow(e.GetErrorMessage())};
    }
    return {};
}

std::string Join(const std::vector<std::string>& calls) {
    std::string joined;
    for (const std::string& call : calls) {
        joined += (joined.empty() ? "" : " ") + call;
    }
    return joined;
}

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

std::string VerifyText(int error) {
    return X509_verify_cert_error_string(error);
}

struct Scenario {
    const char* name;
    std::function<void(Bench&)> arrange;
    int code;             // 0: the build passes
    const char* message;  // checked unless null
    std::string crlCalls;
    std::string ocspCalls;
    std::string attached;  // checked unless empty
};

void RunScenarios(const std::vector<Scenario>& scenarios) {
    for (const Scenario& s : scenarios) {
        SCOPED_TRACE(s.name);
        Bench b;
        s.arrange(b);
        X509Chain chain(&b.policy);
        const Outcome got = Catch([&] { chain.Build(&b.subject, b.time); });
        EXPECT_EQ(got.code, s.code) << "result of the build (message: " << got.message << ")";
        if (s.message != nullptr) {
            EXPECT_EQ(got.message, s.message) << "message of the failure";
        }
        EXPECT_EQ(Join(b.crlClient.calls), s.crlCalls) << "what the CRL client was asked";
        EXPECT_EQ(Join(b.ocspClient.calls), s.ocspCalls) << "what the OCSP client was asked";
        if (!s.attached.empty()) {
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
    const std::string noIssuer = VerifyText(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY);
    const std::string expired = VerifyText(X509_V_ERR_CERT_HAS_EXPIRED);
    const std::string purpose = VerifyText(X509_V_ERR_INVALID_PURPOSE);
    const std::string noPolicy = VerifyText(X509_V_ERR_NO_EXPLICIT_POLICY);
    // Root CA -> Policy Sub CA (P1) -> Policy Signer (P1), `oid` the one acceptable policy.
    const auto policyPath = [](Bench& b, const char* oid) {
        b.extra.AddCertificate(Cert(P().policySub));
        b.extra.AddCrl(Crl(P().policySub));
        b.subject = Cert(P().policySigner);
        qorstd::QorVector<qorstd::QorString> accepted;
        accepted.Add(oid);
        b.policy.SetAcceptablePolicies(accepted);
    };
    RunScenarios({
        {"the default path passes; the CRL comes from the extra store",
         [](Bench& b) { b.extra.AddCrl(Crl(P().sub)); }, 0, nullptr, "", "", "C--"},
        // Other Root CA   Sub CA -> Signer: no anchor for Sub CA.
        {"missing anchor",
         [](Bench& b) {
             b.trust = X509MemoryStore();
             b.trust.AddCertificate(Cert(P().otherRoot));
             b.extra.AddCrl(Crl(P().sub));
         },
         ErrChainIncomplete, noIssuer.c_str(), "", "", ""},
        {"without the store flags the anchor store is empty",
         [](Bench& b) { b.policy.SetChainBuildMode(Policy::cptChainBuildClients); },
         ErrChainIncomplete, noIssuer.c_str(), "", "", ""},
        // Root CA -> Lapsed Sub CA (expired 2024-03-01) -> Lapsed Signer.
        {"expired intermediate",
         [](Bench& b) {
             b.extra.AddCertificate(Cert(P().lapsedSub));
             b.extra.AddCrl(Crl(P().lapsedSub));
             b.subject = Cert(P().lapsedSigner);
         },
         ErrCertNotTimeValid, expired.c_str(), "", "", ""},
        {"an S/MIME signing certificate checked for time-stamp signing",
         [](Bench& b) {
             b.extra.AddCrl(Crl(P().sub));
             b.policy.SetPurpose(Policy::kPurposeTimestampSign);
         },
         ErrCertUsage, purpose.c_str(), "", "", ""},
        {"explicit policy P1 required and accepted",
         [&](Bench& b) {
             policyPath(b, kPolicy1);
             b.policy.SetRequireExplicitPolicy(1);
         },
         0, nullptr, "", "", "C--"},
        {"explicit policy required, only P2 acceptable",
         [&](Bench& b) {
             policyPath(b, kPolicy2);
             b.policy.SetRequireExplicitPolicy(1);
         },
         ErrChainVerification, noPolicy.c_str(), "", "", ""},
        {"acceptable policies alone do not demand a policy",
         [&](Bench& b) {
             policyPath(b, kPolicy2);
             b.policy.SetCheckPolicy(1);
         },
         0, nullptr, "", "", "C--"},
        {"explicit policy required on a path without policies",
         [](Bench& b) {
             b.extra.AddCrl(Crl(P().sub));
             b.policy.SetRequireExplicitPolicy(1);
         },
         ErrChainVerification, noPolicy.c_str(), "", "", ""},
    });
}

TEST(X509ChainScenarios, RevocationByCrl) {
    const std::int64_t revokedAt = UtcTime(2024, 5, 15);
    const std::string crlSignature = VerifyText(X509_V_ERR_CRL_SIGNATURE_FAILURE);
    const std::int64_t later = UtcTime(2039, 6, 1);  // stays ahead of the clock until 2039
    const auto cautionBench = [later](Bench& b) {
        b.time = later;
        b.crlClient.crls.push_back(Crl(P().sub, {}, UtcTime(2039, 5, 1), UtcTime(2039, 6, 1, 12)));
    };
    RunScenarios({
        {"revoked end entity",
         [&](Bench& b) { b.extra.AddCrl(Crl(P().sub, {Revoked(0x51, revokedAt)})); },
         ErrCertRevoked, "", "", "", "C--"},
        {"revoked one second after the verification time",
         [](Bench& b) { b.extra.AddCrl(Crl(P().sub, {Revoked(0x51, kVerifyTime + 1)})); }, 0,
         nullptr, "", "", "C--"},
        {"revoked exactly at the verification time",
         [](Bench& b) { b.extra.AddCrl(Crl(P().sub, {Revoked(0x51, kVerifyTime)})); },
         ErrCertRevoked, "", "", "", "C--"},
        // Root CA's CRL lists Sub CA; Sub CA's CRL is clean. Root CA is self-signed: skipped.
        {"revoked intermediate with every CA of the path checked",
         [&](Bench& b) {
             b.policy.SetRevocationOption(Policy::revOptionChain);
             b.extra.AddCrl(Crl(P().sub));
             b.extra.AddCrl(Crl(P().root, {Revoked(2, revokedAt)}));
         },
         ErrCertRevoked, "", "", "", "CC-"},
        {"whole chain: the root's own CRL speaks for the root",
         [](Bench& b) {
             b.policy.SetRevocationOption(Policy::revOptionWholeChain);
             b.extra.AddCrl(Crl(P().sub));
             b.extra.AddCrl(Crl(P().root));
         },
         0, nullptr, "", "", "CCC"},
        {"no revocation check: a revoked signer passes and nothing is attached",
         [&](Bench& b) {
             b.policy.SetRevocationOption(Policy::revOptionNone);
             b.extra.AddCrl(Crl(P().sub, {Revoked(0x51, revokedAt)}));
         },
         0, nullptr, "", "", "---"},
        {"no CRL in the store nor from the client", [](Bench&) {}, ErrRevocationUnknown,
         "GetCrl()=NULL or GetCrl()->GetX509Crl()=NULL", "GetCrl", "", "---"},
        {"a CRL whose nextUpdate has passed is not taken from the store",
         [](Bench& b) { b.extra.AddCrl(Crl(P().sub, {}, kCrlThisUpdate, kVerifyTime - 1)); },
         ErrRevocationUnknown, "GetCrl()=NULL or GetCrl()->GetX509Crl()=NULL", "GetCrl", "", "---"},
        {"the client's CRL is too old and no newer one can come",
         [](Bench& b) {
             b.crlClient.crls.push_back(Crl(P().sub, {}, kCrlThisUpdate, kVerifyTime - 1));
         },
         ErrRevocationUnknown, "", "GetCrl", "", "C--"},
        {"the CRL's nextUpdate lies within the caution period",
         [&](Bench& b) {
             cautionBench(b);
             b.policy.SetDefaultCautionPeriod(CautionPeriod(1, 0, 0, 0));
         },
         ErrCautionPeriod, "", "GetCrl", "", "C--"},
        {"the caution period is kept per certificate",
         [&](Bench& b) {
             cautionBench(b);
             b.policy.SetCautionPeriod(b.subject.GetSHA1HashHex(), CautionPeriod(0, 13, 0, 0));
         },
         ErrCautionPeriod, "", "GetCrl", "", "C--"},
        {"the same CRL without caution period", cautionBench, 0, nullptr, "GetCrl", "", "C--"},
        // Expiring Signer's validity ended 2024-12-31; the CRL was issued 2025-01-15.
        {"a CRL issued after the certificate expired",
         [](Bench& b) {
             b.subject = Cert(P().expiring);
             b.crlClient.crls.push_back(
                 Crl(P().sub, {}, UtcTime(2025, 1, 15), UtcTime(2025, 2, 15)));
         },
         ErrRevocationUnknown, nullptr, "GetCrlAfterTime(T)", "", "C--"},
        {"an expired certificate asks for a CRL issued after the check time",
         [](Bench& b) {
             b.subject = Cert(P().expiring);
             b.crlClient.crls.push_back(Crl(P().sub));
             b.policy.SetDefaultCautionPeriod(CautionPeriod(0, 1, 0, 0));
         },
         0, nullptr, "GetCrlAfterTime(T+3600)", "", "C--"},
        {"forced after-time fetching",
         [](Bench& b) {
             b.crlClient.crls.push_back(Crl(P().sub));
             b.policy.SetForceGetCrlAfterTimeUsage(1);
         },
         0, nullptr, "GetCrlAfterTime(T)", "", "C--"},
        {"thisUpdate as limit: a CRL issued after the verification time",
         [](Bench& b) {
             b.crlClient.crls.push_back(Crl(P().sub, {}, kVerifyTime + 3600, kCrlNextUpdate));
             b.policy.SetCheckRevocationThisUpdate(1);
         },
         0, nullptr, "GetCrlAfterTime(T)", "", "C--"},
        {"thisUpdate as limit: a CRL issued before the verification time",
         [](Bench& b) {
             b.crlClient.crls.push_back(Crl(P().sub));
             b.policy.SetCheckRevocationThisUpdate(1);
         },
         ErrRevocationUnknown, "", "GetCrlAfterTime(T)", "", "C--"},
        // Sub CA's name and key identifier, another key.
        {"a CRL with a bad signature",
         [](Bench& b) {
             const Issued forger{CertPtr(X509_dup(P().sub.cert.get())), NewKey(KeyKind::EcP256)};
             CrlSpec profile;
             profile.thisUpdate = kCrlThisUpdate;
             profile.nextUpdate = kCrlNextUpdate;
             b.extra.AddCrl(X509Crl(IssueCrl(profile, forger).get()));
         },
         ErrRevocationUnknown, crlSignature.c_str(), "", "", "C--"},
    });
}

TEST(X509ChainScenarios, RevocationByOcspOrCrl) {
    const std::int64_t revokedAt = UtcTime(2024, 5, 15);
    const std::int64_t crlIssued = UtcTime(2024, 5, 31, 10);
    const std::int64_t before = UtcTime(2024, 5, 31, 9);
    const std::int64_t after = UtcTime(2024, 5, 31, 11);
    const X509Crl revokingCrl = Crl(P().sub, {Revoked(0x51, revokedAt)}, crlIssued);
    const auto mode = [](Bench& b, Policy::cptRevocationMode m) { b.policy.SetRevocationMode(m); };
    const auto goodAt = [](std::int64_t produced, std::int64_t next = kCrlNextUpdate) {
        return Ocsp({Good(P().signer, produced, next)}, produced);
    };
    RunScenarios({
        // CRL (thisUpdate 10:00, Signer revoked) and OCSP (good) both in the extra store.
        {"an OCSP answer produced before the CRL was issued decides",
         [&](Bench& b) {
             mode(b, Policy::revOcspOrCrl);
             b.extra.AddCrl(revokingCrl);
             b.extra.AddOcspResponse(goodAt(before));
         },
         0, nullptr, "", "", "B--"},
        {"a CRL issued before the OCSP answer decides",
         [&](Bench& b) {
             mode(b, Policy::revOcspOrCrl);
             b.extra.AddCrl(revokingCrl);
             b.extra.AddOcspResponse(goodAt(after));
         },
         ErrCertRevoked, "", "", "", "C--"},
        {"a CRL from the client leaves the decision to OCSP",
         [&](Bench& b) {
             mode(b, Policy::revOcspOrCrl);
             b.crlClient.crls.push_back(revokingCrl);
             b.extra.AddOcspResponse(goodAt(after));
         },
         0, nullptr, "GetCrl", "", "B--"},
        {"prefer CRL: a CRL valid at the check time settles it, OCSP is never asked",
         [&](Bench& b) {
             mode(b, Policy::revOcspOrCrl);
             b.policy.SetPreferCrl(1);
             b.crlClient.crls.push_back(Crl(P().sub));
             b.ocspClient.Answer(P().signer,
                                 Ocsp({RevokedAnswer(P().signer, revokedAt, before)}, before));
         },
         0, nullptr, "GetCrl", "", "C--"},
        {"prefer CRL, but the CRL is too old: OCSP decides",
         [&](Bench& b) {
             mode(b, Policy::revOcspOrCrl);
             b.policy.SetPreferCrl(1);
             b.crlClient.crls.push_back(Crl(P().sub, {}, kCrlThisUpdate, kVerifyTime - 1));
             b.ocspClient.Answer(P().signer, goodAt(before));
         },
         0, nullptr, "GetCrl", "GetOcspResponse", "B--"},
        {"no CRL anywhere: OCSP from the client",
         [&](Bench& b) {
             mode(b, Policy::revOcspOrCrl);
             b.ocspClient.Answer(P().signer, goodAt(before));
         },
         0, nullptr, "GetCrl", "GetOcspResponse", "O--"},
        {"neither CRL nor OCSP", [&](Bench& b) { mode(b, Policy::revOcspOrCrl); },
         ErrRevocationUnknown, "RevocationMode == revOcspOrCrl && pCurrOcsp == NULL", "GetCrl",
         "GetOcspResponse", "---"},
        // Expiring Signer's validity ended before today.
        {"an expired certificate asks both clients for data issued after the time",
         [&](Bench& b) {
             mode(b, Policy::revOcspOrCrl);
             b.subject = Cert(P().expiring);
             b.policy.SetDefaultCautionPeriod(CautionPeriod(0, 1, 0, 0));
             b.crlClient.afterTimeAnswers = false;
             b.crlClient.crls.push_back(Crl(P().sub));
             b.ocspClient.Answer(P().expiring,
                                 Ocsp({Good(P().expiring, before, kCrlNextUpdate)}, before));
         },
         0, nullptr, "GetCrlAfterTime(T+3600) GetCrl", "GetOcspResponseAfterTime(T)", "B--"},
        {"OCSP only: revoked",
         [&](Bench& b) {
             mode(b, Policy::revOcsp);
             b.ocspClient.Answer(P().signer,
                                 Ocsp({RevokedAnswer(P().signer, revokedAt, before)}, before));
         },
         ErrCertRevoked, "", "", "GetOcspResponse", "O--"},
        {"OCSP only: no answer", [&](Bench& b) { mode(b, Policy::revOcsp); }, ErrRevocationUnknown,
         "RevocationMode == revOcsp && pCurrOcsp == NULL", "", "GetOcspResponse", "---"},
        {"OCSP only: a failing client is treated as no answer",
         [&](Bench& b) {
             mode(b, Policy::revOcsp);
             b.ocspClient.fails = true;
         },
         ErrRevocationUnknown, "RevocationMode == revOcsp && pCurrOcsp == NULL", "",
         "GetOcspResponse", "---"},
        {"an answer in the extra store signed by an untrusted responder is passed over",
         [&](Bench& b) {
             mode(b, Policy::revOcsp);
             b.extra.AddOcspResponse(
                 Ocsp({Good(P().signer, before, kCrlNextUpdate)}, before, P().sub, &P().otherRoot));
             b.ocspClient.Answer(P().signer, goodAt(after));
         },
         0, nullptr, "", "GetOcspResponse", "O--"},
        {"two single responses in one answer",
         [&](Bench& b) {
             mode(b, Policy::revOcsp);
             b.ocspClient.Answer(P().signer, Ocsp({Good(P().signer, before, kCrlNextUpdate),
                                                   Good(P().qualified, before, kCrlNextUpdate)},
                                                  before));
         },
         ErrInternal, "ocsp.GetSingleResponses().GetSize()>1", "", "GetOcspResponse", "O--"},
        // Good answers with thisUpdate 2 hours or 30 minutes before the verification time.
        {"freshness limit of one hour, answer two hours old",
         [&](Bench& b) {
             mode(b, Policy::revOcsp);
             b.policy.SetMaxOcspFreshness(3600);
             b.ocspClient.Answer(P().signer, goodAt(kVerifyTime - 7200));
         },
         ErrRevocationUnknown, "", "", "GetOcspResponse", "O--"},
        {"freshness limit met: a passed nextUpdate no longer matters",
         [&](Bench& b) {
             mode(b, Policy::revOcsp);
             b.policy.SetMaxOcspFreshness(3600);
             b.ocspClient.Answer(P().signer, goodAt(kVerifyTime - 1800, kVerifyTime - 600));
         },
         0, nullptr, "", "GetOcspResponse", "O--"},
        {"without freshness limit the passed nextUpdate fails",
         [&](Bench& b) {
             mode(b, Policy::revOcsp);
             b.ocspClient.Answer(P().signer, goodAt(kVerifyTime - 1800, kVerifyTime - 600));
         },
         ErrRevocationUnknown, "", "", "GetOcspResponse", "O--"},
    });
}

TEST(X509ChainScenarios, ElementsAndEnumerationsFollowThePath) {
    Bench b;
    b.policy.SetRevocationOption(Policy::revOptionChain);
    const X509Crl subCrl = Crl(P().sub);
    const X509Crl rootCrl = Crl(P().root);
    b.extra.AddCrl(rootCrl);
    b.extra.AddCrl(subCrl);
    X509Chain chain(&b.policy);
    ASSERT_EQ(Catch([&] { chain.Build(&b.subject, b.time); }).code, 0) << "the path verifies";
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
    EXPECT_EQ(chain.EnumOcspResponses().GetSize(), 0u) << "no OCSP in CRL mode";

    Bench o;
    o.policy.SetRevocationMode(Policy::revOcsp);
    const OcspResponse answer =
        Ocsp({Good(P().signer, UtcTime(2024, 5, 31), kCrlNextUpdate)}, UtcTime(2024, 5, 31));
    o.ocspClient.Answer(P().signer, answer);
    X509Chain ocspChain(&o.policy);
    ASSERT_EQ(Catch([&] { ocspChain.Build(&o.subject, o.time); }).code, 0) << "OCSP path verifies";
    const auto responses = ocspChain.EnumOcspResponses();
    ASSERT_EQ(responses.GetSize(), 1u) << "the end entity's answer";
    EXPECT_TRUE(responses.GetAt(0) == answer) << "a copy of the client's response";
    EXPECT_EQ(ocspChain.EnumCrls().GetSize(), 0u) << "no CRL in OCSP mode";
}

TEST(X509ChainScenarios, FailedBuildKeepsItsFirstFailure) {
    Bench b;
    b.trust = X509MemoryStore();
    b.trust.AddCertificate(Cert(P().otherRoot));
    X509Chain chain(&b.policy);
    const Outcome first = Catch([&] { chain.Build(&b.subject, b.time); });
    ASSERT_EQ(first.code, ErrChainIncomplete) << "no anchor";
    EXPECT_FALSE(chain.GetExceptionStore().IsEmpty()) << "the failure is kept";
    const Outcome again = Catch([&] { chain.ReThrow(); });
    EXPECT_EQ(again.code, first.code) << "ReThrow throws the same code";
    EXPECT_EQ(again.message, first.message) << "and the same message";
    EXPECT_EQ(chain.GetVerifyTime(), kVerifyTime) << "the verification time stays set";
}

TEST(X509ChainScenarios, TimeZeroMeansNow) {
    Bench b;
    b.extra.AddCrl(Crl(P().sub, {}, kCrlThisUpdate, UtcTime(2039, 12, 31)));
    X509Chain chain(&b.policy);
    const std::int64_t before = static_cast<std::int64_t>(std::time(nullptr));
    const Outcome got = Catch([&] { chain.Build(&b.subject, 0); });
    const std::int64_t after = static_cast<std::int64_t>(std::time(nullptr));
    EXPECT_EQ(got.code, 0) << got.message;
    EXPECT_TRUE(chain.GetVerifyTime() >= before && chain.GetVerifyTime() <= after)
        << "time 0 builds at the current time and reports it";
}

TEST(X509ChainScenarios, CertificateVerifyHandsTheWholeChainOver) {
    Bench b;
    b.extra.AddCrl(Crl(P().sub));
    X509Chain* raw = nullptr;
    const Outcome got = Catch([&] {
        b.subject.Verify(X509Certificate::cptVerifyWholeChain, kVerifyTime, nullptr, &b.policy,
                         &raw);
    });
    const std::unique_ptr<X509Chain> chain(raw);
    EXPECT_EQ(got.code, 0) << got.message;
    ASSERT_NE(chain, nullptr) << "the built chain goes to the caller";
    EXPECT_EQ(chain->EnumCertificates().GetSize(), 3u) << "signer, sub CA, root";
    EXPECT_EQ(Attached(*chain), "C--") << "with the end entity's CRL";

    b.trust = X509MemoryStore();
    b.trust.AddCertificate(Cert(P().otherRoot));
    X509Chain sentinel;
    raw = &sentinel;
    const Outcome failed = Catch([&] {
        b.subject.Verify(X509Certificate::cptVerifyWholeChain, kVerifyTime, nullptr, &b.policy,
                         &raw);
    });
    EXPECT_EQ(failed.code, ErrChainIncomplete) << "the build's failure reaches the caller";
    EXPECT_EQ(raw, nullptr) << "no chain after a failure";
}

TEST(X509ChainScenarios, IssuerAndQualifiedChecksBuildPaths) {
    const X509Certificate sub = Cert(P().sub);
    EXPECT_EQ(sub.IsIssuerCert(Cert(P().root), kVerifyTime), 1) << "Root CA issued Sub CA";
    EXPECT_EQ(sub.IsIssuerCert(Cert(P().otherRoot), kVerifyTime), 0) << "Other Root CA did not";
    EXPECT_EQ(Cert(P().lapsedSub).IsIssuerCert(Cert(P().root), kVerifyTime), 0)
        << "no path for a certificate expired at the time";

    X509MemoryStore trust;
    trust.AddCertificate(Cert(P().root));
    X509MemoryStore extra;
    extra.AddCertificate(sub);
    const X509Certificate qualified = Cert(P().qualified);
    EXPECT_EQ(qualified.IsQualified(kVerifyTime, &trust, &extra), 1)
        << "QcCompliance and a path to the anchor";
    EXPECT_EQ(qualified.IsQualified(kVerifyTime, &trust, nullptr), 0)
        << "without the intermediate there is no path";
    EXPECT_EQ(Cert(P().signer).IsQualified(kVerifyTime, &trust, &extra), 0)
        << "a path alone is not enough without QcCompliance";
}

namespace {

// Opens the verdict to the test, as a derived chain may.
class VerdictProbe : public X509Chain {
public:
    using X509Chain::VerifyCertCrl;
    using X509Chain::X509Chain;
};

}  // namespace

TEST(X509ChainScenarios, CrlIssuedAfterExpiryCannotSpeakForTheCertificate) {
    RecordingLog& log = RecordingLog::Instance();
    log.Reset();
    const LoggingCallbacks table = log.Table();
    ASSERT_EQ(Tessera_InitializeLogging(&table, false), 1) << "logging set up";
    Outcome got;
    {
        Policy policy;
        VerdictProbe probe(&policy);
        const X509Certificate expiring = Cert(P().expiring);
        const X509Crl late = Crl(P().sub, {}, UtcTime(2025, 1, 15), UtcTime(2025, 2, 15));
        got = Catch([&] { probe.VerifyCertCrl(&expiring, late, kVerifyTime, CautionPeriod()); });
    }
    Tessera_InitializeLogging(nullptr, false);
    EXPECT_EQ(got.code, ErrRevocationUnknown) << "status unknown";
    EXPECT_EQ(got.message, "") << "without message";
    bool logged = false;
    for (const LogLine& line : log.LinesOf(L"Tessera.X509Chain")) {
        logged = logged || (line.level == Level::Error &&
                            line.text ==
                                L"VerifyCertCrl: Incomplete automatic verification. CRL "
                                L"not time valid.");
    }
    EXPECT_TRUE(logged) << "the Error line names the reason";
}
