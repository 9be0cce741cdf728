// Signatures validated on several threads at once: each thread has its own
// message, validator and chain policy; the stores of anchors, CAs, the TSA's
// CRL and the TSU list are one set that every thread only reads. `make
// test-tsan` runs this program (label "threads") under ThreadSanitizer, which
// is what finds races; the verdicts show that no thread saw another's data.
//
//   Threads Root (trusted for signatures) ── CRL about the CA
//    └── Threads CA ── CRL: Revoked since 2024-06-10 (carried in every signature)
//         ├── Signer   31  QcCompliance
//         └── Revoked  32  QcCompliance
//   Test TSA Root (trusted for time-stamps) ── CRL about the TSA (shared store)
//    └── Test TSA (on the shared TSU list)
#include <gtest/gtest.h>
#include <openssl/cms.h>

#include <future>
#include <string>
#include <thread>
#include <vector>

#include "TestCms.h"
#include "TestTessera.h"
#include "TestTsa.h"
#include "Validator.h"

using namespace TesseraLib;
using namespace tessera_test;

namespace {

const std::int64_t kAt = UtcTime(2024, 7, 15, 12);
const std::int64_t kThisUpdate = UtcTime(2024, 7, 1);
const std::int64_t kFar = UtcTime(2040, 1, 1);
const char kText[] = "validated on many threads\n";

Issued Rsa(const char* name, long serial, int slot, const Issued* issuer, bool ca) {
    CertPlan plan = BasicProfile(name, serial, ca);
    const KeyPtr key = CachedKey(KeyKind::Rsa2048, slot);
    plan.key = key.get();
    if (!ca) {
        plan.qcStatements = QcStatementsDer({QcComplianceStatement()});
    }
    return IssueCertificate(plan, issuer);
}

struct Pki {
    Issued root = Rsa("Threads Root", 1, 20, nullptr, true);
    Issued ca = Rsa("Threads CA", 2, 21, &root, true);
    Issued signer = Rsa("Signer", 31, 22, &ca, false);
    Issued revoked = Rsa("Revoked", 32, 23, &ca, false);
    TestTsa tsa{KeyKind::Rsa2048, EVP_sha256(), KeyKind::Rsa2048};
};

// A CAdES-BES of `who` carrying the CA, both CRLs and, when `stampedAt` is
// not 0, a signature time-stamp of that time.
Bytes Signature(const Pki& pki, const Issued& who, std::int64_t stampedAt) {
    CmsSignPlan plan;
    plan.content = kText;
    plan.signers = {&who};
    plan.flags = CMS_CADES;
    plan.signingTime = UtcTime(2024, 5, 1);
    plan.certificates = {pki.ca.cert.get()};
    CmsPtr cms = SignCms(plan);
    EXPECT_EQ(CMS_add1_crl(cms.get(), IssueCrl(pki.root, kThisUpdate, kFar).get()), 1);
    EXPECT_EQ(
        CMS_add1_crl(cms.get(),
                     IssueCrl(pki.ca, kThisUpdate, kFar,
                              {RevokedEntry{32, UtcTime(2024, 6, 10), CRL_REASON_KEY_COMPROMISE}})
                         .get()),
        1);
    if (stampedAt != 0) {
        CMS_SignerInfo* si = FirstSigner(cms.get());
        const ASN1_OCTET_STRING* value = CMS_SignerInfo_get0_signature(si);
        TsaReply reply;
        reply.genTime = stampedAt;
        const Bytes token = pki.tsa.Token(
            EVP_sha256(),
            TestTsa::Digest(EVP_sha256(), std::string(value->data, value->data + value->length)),
            true, reply);
        EXPECT_EQ(CMS_unsigned_add1_attr_by_NID(si, NID_id_smime_aa_timeStampToken, V_ASN1_SEQUENCE,
                                                token.data(), static_cast<int>(token.size())),
                  1);
    }
    return CmsDer(cms.get());
}

// The stores every thread reads and none writes.
struct SharedTrust {
    X509MemoryStore sigTrust, sigExtra, tsTrust, tsExtra, tsu;
    explicit SharedTrust(const Pki& pki) {
        sigTrust.AddCertificate(Cert(pki.root));
        sigExtra.AddCertificate(Cert(pki.ca));
        tsTrust.AddCertificate(Cert(pki.tsa.Ca()));
        tsExtra.AddCrl(X509Crl(IssueCrl(pki.tsa.Ca(), kThisUpdate, kFar).get()));
        tsu.AddCertificate(Cert(pki.tsa.Tsa()));
    }
};

// One with-time validation under EN 319 122-1 at kAt with objects of its
// own; the outcome as "total/sub-indication", or what was thrown.
std::string Validate(const Bytes& der, SharedTrust& shared) {
    X509ChainPolicyTL policy;
    policy.SetTrustStoreSig(&shared.sigTrust);
    policy.SetExtraStoreSig(&shared.sigExtra);
    policy.SetTrustStoreTS(&shared.tsTrust);
    policy.SetExtraStoreTS(&shared.tsExtra);
    policy.SetTSUStore(&shared.tsu);
    policy.SetRevocationOption(X509ChainPolicy::revOptionChain);
    policy.SetChainBuildMode(X509ChainPolicy::cptChainBuildStores);
    std::string outcome;
    const Thrown thrown = Catch([&] {
        SignedCades cades;
        cades.Decode(Array(der));
        ValidatorCades validator;
        validator.SetSignedCades(&cades);
        validator.SetChainPolicy(&policy);
        validator.SetValidationProcessType(ValidationProcess::vptSignatureWithTimeValidation);
        validator.SetSignatureStandard(ValidationProcess::vptEN319122_1);
        validator.SetValidationTime(kAt);
        validator.Validate();
        const ValidationReport& report = *validator.GetValidationReport();
        outcome =
            Narrow(
                ValidationReport::cptReportTotalStatusStrings[report.GetTotalStatusIndication()]) +
            "/" +
            Narrow(
                ValidationBlockReport::cptReportSubStatusStrings[report.GetSubStatusIndication()]);
    });
    return thrown.code == 0 ? outcome
                            : "threw " + std::to_string(thrown.code) + " " + thrown.message;
}

}  // namespace

TEST(ValidationThreads, EachThreadGetsItsOwnSignaturesVerdict) {
    const Pki pki;
    SharedTrust shared(pki);
    // Without a time-stamp the message ends with the signature value.
    Bytes tampered = Signature(pki, pki.signer, 0);
    tampered.back() ^= 1;
    struct Job {
        Bytes der;
        std::string expected;
    };
    const std::vector<Job> jobs = {
        {Signature(pki, pki.signer, UtcTime(2024, 6, 1)),
         "repTotalPassed/repNoSubStatusIndication"},
        {Signature(pki, pki.signer, 0), "repTotalPassed/repNoSubStatusIndication"},
        {Signature(pki, pki.revoked, UtcTime(2024, 6, 1)),
         "repTotalPassed/repNoSubStatusIndication"},
        {Signature(pki, pki.revoked, UtcTime(2024, 6, 20)), "repIndeterminate/repRevokedNoPOE"},
        {tampered, "repTotalFailed/repSigCryptoFailure"},
    };
    // Every thread validates its signature a few times, all starting together,
    // so that the validations overlap.
    constexpr int kRounds = 3;
    std::promise<void> go;
    const std::shared_future<void> started = go.get_future().share();
    std::vector<std::vector<std::string>> outcomes(jobs.size());
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < jobs.size(); ++i) {
        threads.emplace_back([&, i] {
            started.wait();
            for (int round = 0; round < kRounds; ++round) {
                outcomes[i].push_back(Validate(jobs[i].der, shared));
            }
        });
    }
    go.set_value();
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (std::size_t i = 0; i < jobs.size(); ++i) {
        for (const std::string& outcome : outcomes[i]) {
            EXPECT_EQ(outcome, jobs[i].expected) << "signature " << i << " on its own thread";
        }
    }
}
