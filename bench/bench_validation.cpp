// The validation of a signature with time (EN 319 122-1, default validation
// policy) of a CAdES-T over a short text, RSA-2048 and SHA-256 throughout:
//
//   Bench Validation Root (trusted for signatures) ── CRL about the CA
//    └── Bench Validation CA ── CRL about the signer (both CRLs carried in the message)
//         └── Bench Validation Signer (QcCompliance)
//   Bench TestTsa CA (trusted for time-stamps) ── CRL about the TSA (in memory)
//    └── TestTsa TSA (on the TSU list, carried in the token)
//
// "cades_t_validate": decode and ValidatorCades with the with-time process
// (the basic validation with the path to the root checked against the CRLs,
// the time-stamp validated as a signature of the TSU with its own path and
// CRL, the signer's path judged again at the time-stamp's time) against the
// raw OpenSSL operations for the same checks: d2i_CMS_ContentInfo, CMS_verify
// with CMS_CADES and CRL checking of the whole path with the message's CRLs,
// TS_RESP_verify_token (signature, TSA path with its CRL, version, imprint
// over the signature value), and X509_verify_cert of the signer's path with
// CRLs at the token's genTime. Both check at the same pinned time.
// "cades_t_validate_mt": the same on two threads, every thread with objects
// of its own; items per second are validations per second of both threads.

#include <benchmark/benchmark.h>
#include <openssl/cms.h>
#include <openssl/ts.h>
#include <openssl/x509_vfy.h>

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "OpenSslPtr.h"
#include "TestCms.h"
#include "TestPki.h"
#include "TestTsa.h"
#include "ValidationReport.h"
#include "Validator.h"
#include "X509ChainPolicy.h"
#include "X509Crl.h"
#include "X509Store.h"

namespace {

using namespace tessera_test;

const std::int64_t kAt = UtcTime(2024, 7, 15, 12);
// Before the time-stamp, so that OpenSSL accepts the CRLs at its time too.
const std::int64_t kThisUpdate = UtcTime(2024, 5, 15);
const std::int64_t kFar = UtcTime(2040, 1, 1);
const std::int64_t kStampedAt = UtcTime(2024, 6, 1, 12);

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
    Issued root = Rsa("Bench Validation Root", 1, 30, nullptr, true);
    Issued ca = Rsa("Bench Validation CA", 2, 31, &root, true);
    Issued signer = Rsa("Bench Validation Signer", 3, 32, &ca, false);
    TestTsa tsa{KeyKind::Rsa2048, EVP_sha256(), KeyKind::Rsa2048};
    CrlPtr tsaCrl = IssueCrl(tsa.Ca(), kThisUpdate, kFar);
    Bytes der;  // the CAdES-T

    Pki() {
        CmsSignPlan plan;
        plan.content = "validated with time, again and again\n";
        plan.signers = {&signer};
        plan.flags = CMS_CADES | CMS_NOSMIMECAP;
        plan.signingTime = UtcTime(2024, 5, 1);
        plan.certificates = {ca.cert.get()};
        CmsPtr cms = SignCms(plan);
        const CrlPtr rootCrl = IssueCrl(root, kThisUpdate, kFar);
        const CrlPtr caCrl = IssueCrl(ca, kThisUpdate, kFar);
        CMS_SignerInfo* si = FirstSigner(cms.get());
        const ASN1_OCTET_STRING* value = CMS_SignerInfo_get0_signature(si);
        TsaReply reply;
        reply.genTime = kStampedAt;
        const Bytes token = tsa.Token(
            EVP_sha256(),
            TestTsa::Digest(EVP_sha256(), std::string(value->data, value->data + value->length)),
            true, reply);
        if (CMS_add1_crl(cms.get(), rootCrl.get()) == 1 &&
            CMS_add1_crl(cms.get(), caCrl.get()) == 1 &&
            CMS_unsigned_add1_attr_by_NID(si, NID_id_smime_aa_timeStampToken, V_ASN1_SEQUENCE,
                                          token.data(), static_cast<int>(token.size())) == 1) {
            der = CmsDer(cms.get());
        }
    }
};

const Pki& SharedPki() {
    static const Pki pki;
    return pki;
}

TesseraLib::X509Certificate Cert(const Issued& issued) {
    return TesseraLib::X509Certificate(issued.cert.get());
}

// The stores and chain policy of one validating thread: CRL checking of
// every certificate but the anchors, paths from the stores.
struct TesseraTrust {
    TesseraLib::X509MemoryStore sigTrust, sigExtra, tsTrust, tsExtra, tsu;
    TesseraLib::X509ChainPolicyTL policy;
    explicit TesseraTrust(const Pki& pki) {
        sigTrust.AddCertificate(Cert(pki.root));
        sigExtra.AddCertificate(Cert(pki.ca));
        tsTrust.AddCertificate(Cert(pki.tsa.Ca()));
        tsExtra.AddCrl(TesseraLib::X509Crl(pki.tsaCrl.get()));
        tsu.AddCertificate(Cert(pki.tsa.Tsa()));
        policy.SetTrustStoreSig(&sigTrust);
        policy.SetExtraStoreSig(&sigExtra);
        policy.SetTrustStoreTS(&tsTrust);
        policy.SetExtraStoreTS(&tsExtra);
        policy.SetTSUStore(&tsu);
        policy.SetRevocationOption(TesseraLib::X509ChainPolicy::revOptionChain);
        policy.SetChainBuildMode(TesseraLib::X509ChainPolicy::cptChainBuildStores);
    }
    TesseraTrust(const TesseraTrust&) = delete;
    TesseraTrust& operator=(const TesseraTrust&) = delete;
};

void BM_ValidateTessera(benchmark::State& state) {
    const Pki& pki = SharedPki();
    TesseraTrust trust(pki);
    const qorstd::QorArray<unsigned char> der(pki.der.data(),
                                              static_cast<unsigned int>(pki.der.size()));
    for (auto _ : state) {
        try {
            TesseraLib::SignedCades cades;
            cades.Decode(der);
            TesseraLib::ValidatorCades validator;
            validator.SetSignedCades(&cades);
            validator.SetChainPolicy(&trust.policy);
            validator.SetValidationProcessType(
                TesseraLib::ValidationProcess::vptSignatureWithTimeValidation);
            validator.SetSignatureStandard(TesseraLib::ValidationProcess::vptEN319122_1);
            validator.SetValidationTime(kAt);
            validator.Validate();
            const auto* report =
                dynamic_cast<const TesseraLib::SignatureWithTimeValidationProcessReport*>(
                    validator.GetValidationReport());
            if (report == nullptr ||
                report->GetTotalStatusIndication() !=
                    TesseraLib::ValidationReport::repTotalPassed ||
                report->GetBestSignatureTime() != kStampedAt) {
                state.SkipWithError("the signature did not pass at the time-stamp's time");
                break;
            }
        } catch (...) {
            state.SkipWithError("validation failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

// A store of `anchor` checking CRLs of the whole path at `time`; `crl` (if
// any) is kept in the store.
qorssl::X509StorePtr CheckingStore(const Issued& anchor, X509_CRL* crl, std::int64_t time) {
    qorssl::X509StorePtr store(X509_STORE_new());
    if (!store || X509_STORE_add_cert(store.get(), anchor.cert.get()) != 1 ||
        (crl != nullptr && X509_STORE_add_crl(store.get(), crl) != 1)) {
        return nullptr;
    }
    X509_VERIFY_PARAM* param = X509_STORE_get0_param(store.get());
    X509_VERIFY_PARAM_set_flags(param, X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL);
    X509_VERIFY_PARAM_set_time(param, static_cast<time_t>(time));
    return store;
}

// The token of the signer's first signature time-stamp, decoded.
qorssl::Pkcs7Ptr FirstToken(CMS_SignerInfo* si) {
    const int at = CMS_unsigned_get_attr_by_NID(si, NID_id_smime_aa_timeStampToken, -1);
    const ASN1_TYPE* value =
        at < 0 ? nullptr : X509_ATTRIBUTE_get0_type(CMS_unsigned_get_attr(si, at), 0);
    if (value == nullptr || value->type != V_ASN1_SEQUENCE) {
        return nullptr;
    }
    const unsigned char* cursor = value->value.sequence->data;
    return qorssl::Pkcs7Ptr(d2i_PKCS7(nullptr, &cursor, value->value.sequence->length));
}

// The token's check as `openssl ts -verify` does it (signature with the
// TSA's path, version, imprint over the signature value); its genTime in
// `genTime`.
bool VerifyTokenOpenSsl(CMS_SignerInfo* si, X509_STORE* tsaStore, std::int64_t* genTime) {
    const qorssl::Pkcs7Ptr token = FirstToken(si);
    const ASN1_OCTET_STRING* value = CMS_SignerInfo_get0_signature(si);
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (!token || EVP_Digest(value->data, static_cast<std::size_t>(value->length), digest, &length,
                             EVP_sha256(), nullptr) != 1) {
        return false;
    }
    qorssl::TsVerifyCtxPtr ctx(TS_VERIFY_CTX_new());
    qorssl::OpenSslBytesPtr imprint(static_cast<unsigned char*>(OPENSSL_memdup(digest, length)));
    if (!ctx || !imprint || X509_STORE_up_ref(tsaStore) != 1) {
        return false;
    }
    TS_VERIFY_CTX_set_store(ctx.get(), tsaStore);  // owns the reference taken
    TS_VERIFY_CTX_set_imprint(ctx.get(), imprint.release(), static_cast<long>(length));
    TS_VERIFY_CTX_set_flags(ctx.get(), TS_VFY_VERSION | TS_VFY_SIGNATURE | TS_VFY_IMPRINT);
    if (TS_RESP_verify_token(ctx.get(), token.get()) != 1) {
        return false;
    }
    const qorssl::TsTstInfoPtr info(PKCS7_to_TS_TST_INFO(token.get()));
    struct tm when = {};
    if (!info || ASN1_TIME_to_tm(TS_TST_INFO_get_time(info.get()), &when) != 1) {
        return false;
    }
    *genTime = static_cast<std::int64_t>(timegm(&when));
    return true;
}

// The path of the signer CMS_verify found, with the message's certificates
// and CRLs at `time`.
bool VerifySignerAt(CMS_ContentInfo* cms, X509_STORE* store, std::int64_t time) {
    X509* signer = nullptr;  // borrowed
    CMS_SignerInfo_get0_algs(sk_CMS_SignerInfo_value(CMS_get0_SignerInfos(cms), 0), nullptr,
                             &signer, nullptr, nullptr);
    const qorssl::X509StackPtr certs(CMS_get1_certs(cms));
    const qorssl::X509CrlStackPtr crls(CMS_get1_crls(cms));
    qorssl::X509StoreCtxPtr ctx(X509_STORE_CTX_new());
    if (signer == nullptr || !ctx ||
        X509_STORE_CTX_init(ctx.get(), store, signer, certs.get()) != 1) {
        return false;
    }
    X509_STORE_CTX_set0_crls(ctx.get(), crls.get());
    X509_STORE_CTX_set_time(ctx.get(), 0, static_cast<time_t>(time));
    return X509_verify_cert(ctx.get()) == 1;
}

void BM_ValidateOpenSsl(benchmark::State& state) {
    const Pki& pki = SharedPki();
    const qorssl::X509StorePtr store = CheckingStore(pki.root, nullptr, kAt);
    const qorssl::X509StorePtr tsaStore = CheckingStore(pki.tsa.Ca(), pki.tsaCrl.get(), kAt);
    for (auto _ : state) {
        const unsigned char* cursor = pki.der.data();
        qorssl::CmsContentInfoPtr cms(
            d2i_CMS_ContentInfo(nullptr, &cursor, static_cast<long>(pki.der.size())));
        std::int64_t genTime = 0;
        if (!cms ||
            CMS_verify(cms.get(), nullptr, store.get(), nullptr, nullptr, CMS_BINARY | CMS_CADES) !=
                1 ||
            !VerifyTokenOpenSsl(sk_CMS_SignerInfo_value(CMS_get0_SignerInfos(cms.get()), 0),
                                tsaStore.get(), &genTime) ||
            genTime != kStampedAt || !VerifySignerAt(cms.get(), store.get(), genTime)) {
            state.SkipWithError("verification failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

}  // namespace

BENCHMARK(BM_ValidateTessera)->Name("cades_t_validate/tessera");
BENCHMARK(BM_ValidateOpenSsl)->Name("cades_t_validate/openssl");
BENCHMARK(BM_ValidateTessera)->Name("cades_t_validate_mt/tessera")->Threads(2)->UseRealTime();
BENCHMARK(BM_ValidateOpenSsl)->Name("cades_t_validate_mt/openssl")->Threads(2)->UseRealTime();
