// Verification with proofs of existence of a CAdES-LTA signer, RSA-2048 and
// SHA-256 throughout:
//
//   Bench Archive Root (trusted) ── CRL about the CA
//    └── Bench Archive CA ── CRL about the signer
//         └── Bench Archive Signer
//   Test TSA Root (trusted) ── CRL about the TSA
//    └── Test TSA: the signature time-stamp (2024-06-01) and the archive
//        time-stamp v3 with its ats-hash-index-v3 (2024-06-02)
//
// All three CRLs and the CA travel in the message. "cades_lta_verify":
// decode as SignedCades2 and verify the signer with a ValidationDataStore
// (hash index, archive imprint and token, signature time-stamp at its
// proven time, the signer's path with CRLs at the signature's proven time)
// against the raw OpenSSL operations of the same checks: d2i, CMS_verify
// with CRL checking of the whole path, the hash-index digests of the
// message's certificates, CRLs and unsigned attributes, TS_RESP_verify_token
// of both tokens (the archive one over its imprint input), and
// X509_verify_cert of the signer's path at the signature time-stamp's time.

#include <benchmark/benchmark.h>
#include <openssl/cms.h>
#include <openssl/ts.h>
#include <openssl/x509_vfy.h>

#include <cstdint>
#include <string>
#include <vector>

#include "OpenSslPtr.h"
#include "SignedCades2.h"
#include "TestArchive.h"
#include "ValidationDataStore.h"
#include "VerifierCades.h"
#include "X509ChainPolicy.h"
#include "X509Store.h"

namespace {

using namespace tessera_test;

const std::int64_t kAt = UtcTime(2024, 7, 15, 12);
const std::int64_t kThisUpdate = UtcTime(2024, 5, 15);
const std::int64_t kFar = UtcTime(2040, 1, 1);
const std::int64_t kStampedAt = UtcTime(2024, 6, 1, 12);
const std::int64_t kArchivedAt = UtcTime(2024, 6, 2, 12);
const std::string kContent = "archived, and verified again and again\n";

Issued Rsa(const char* name, long serial, int slot, const Issued* issuer, bool ca) {
    CertPlan plan = BasicProfile(name, serial, ca);
    const KeyPtr key = CachedKey(KeyKind::Rsa2048, slot);
    plan.key = key.get();
    return IssueCertificate(plan, issuer);
}

struct Pki {
    Issued root = Rsa("Bench Archive Root", 1, 50, nullptr, true);
    Issued ca = Rsa("Bench Archive CA", 2, 51, &root, true);
    Issued signer = Rsa("Bench Archive Signer", 3, 52, &ca, false);
    TestTsa tsa{KeyKind::Rsa2048, EVP_sha256(), KeyKind::Rsa2048, kFar, 53};
    Bytes der;  // the CAdES-LTA

    Pki() {
        CmsSignPlan plan;
        plan.content = kContent;
        plan.signers = {&signer};
        plan.flags = CMS_CADES | CMS_NOSMIMECAP;
        plan.signingTime = UtcTime(2024, 5, 1);
        plan.certificates = {ca.cert.get()};
        CmsPtr cms = SignCms(plan);
        CMS_SignerInfo* si = FirstSigner(cms.get());
        const ASN1_OCTET_STRING* value = CMS_SignerInfo_get0_signature(si);
        TsaReply reply;
        reply.genTime = kStampedAt;
        const Bytes token = tsa.Token(
            EVP_sha256(),
            TestTsa::Digest(EVP_sha256(), std::string(value->data, value->data + value->length)),
            true, reply);
        if (CMS_unsigned_add1_attr_by_NID(si, NID_id_smime_aa_timeStampToken, V_ASN1_SEQUENCE,
                                          token.data(), static_cast<int>(token.size())) != 1) {
            return;
        }
        for (const Issued* issuer : std::vector<const Issued*>{&root, &ca, &tsa.Ca()}) {
            CMS_add1_crl(cms.get(), IssueCrl(*issuer, kThisUpdate, kFar).get());
        }
        ArchivePlan archive;
        archive.tsa = &tsa;
        archive.genTime = kArchivedAt;
        AddArchiveTimeStamp(cms.get(), kContent, archive);
        der = CmsDer(cms.get());
    }
};

const Pki& SharedPki() {
    static const Pki pki;
    return pki;
}

void BM_VerifyTessera(benchmark::State& state) {
    const Pki& pki = SharedPki();
    TesseraLib::X509MemoryStore anchors;
    anchors.AddCertificate(TesseraLib::X509Certificate(pki.root.cert.get()));
    anchors.AddCertificate(TesseraLib::X509Certificate(pki.tsa.Ca().cert.get()));
    TesseraLib::X509ChainPolicy policy;
    policy.SetTrustStore(&anchors);
    policy.SetChainBuildMode(static_cast<TesseraLib::X509ChainPolicy::cptChainBuildMode>(
        TesseraLib::X509ChainPolicy::cptChainBuildStores |
        TesseraLib::X509ChainPolicy::cptChainBuildSuppliedValData));
    TesseraLib::VerifierCades verifier;
    verifier.SetChainPolicy(&policy);
    verifier.SetVerifyTime(kAt);
    const qorstd::QorArray<unsigned char> der(pki.der.data(),
                                              static_cast<unsigned int>(pki.der.size()));
    for (auto _ : state) {
        try {
            TesseraLib::SignedCades2 cades;
            cades.Decode(der);
            TesseraLib::SignedCades2::SignerInfo& signer = *cades.GetSignerInfo(0);
            TesseraLib::ValidationDataStore store;
            signer.Verify(verifier, &store, TesseraLib::SignedCades2::cptCades2None);
            const auto* archives = signer.GetArchiveTimeStampsV3VerificationData();
            if (archives == nullptr || archives->GetSize() != 1 ||
                (*archives)[0].GetVerificationException() != nullptr ||
                *signer.GetVerificationData()->GetVerifyTime() != kStampedAt) {
                state.SkipWithError("the archive time-stamp or the proven time is wrong");
                break;
            }
        } catch (...) {
            state.SkipWithError("verification failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

qorssl::X509StorePtr CheckingStore(const std::vector<const Issued*>& anchors) {
    qorssl::X509StorePtr store(X509_STORE_new());
    for (const Issued* anchor : anchors) {
        if (!store || X509_STORE_add_cert(store.get(), anchor->cert.get()) != 1) {
            return nullptr;
        }
    }
    X509_VERIFY_PARAM* param = X509_STORE_get0_param(store.get());
    X509_VERIFY_PARAM_set_flags(param, X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL);
    X509_VERIFY_PARAM_set_time(param, static_cast<time_t>(kAt));
    return store;
}

// The token of the signer's unsigned attribute `oid`, decoded.
qorssl::Pkcs7Ptr TokenOf(CMS_SignerInfo* si, const char* oid) {
    const qorssl::Asn1ObjectPtr type(OBJ_txt2obj(oid, 1));
    const int at = CMS_unsigned_get_attr_by_OBJ(si, type.get(), -1);
    const ASN1_TYPE* value =
        at < 0 ? nullptr : X509_ATTRIBUTE_get0_type(CMS_unsigned_get_attr(si, at), 0);
    if (value == nullptr || value->type != V_ASN1_SEQUENCE) {
        return nullptr;
    }
    const unsigned char* cursor = value->value.sequence->data;
    return qorssl::Pkcs7Ptr(d2i_PKCS7(nullptr, &cursor, value->value.sequence->length));
}

// `openssl ts -verify` of `token` over the digest of `data`, with CRLs at
// `time` and the message's CRLs.
bool VerifyToken(PKCS7* token, const Bytes& data, X509_STORE* store) {
    const Bytes digest = TestTsa::Digest(EVP_sha256(), std::string(data.begin(), data.end()));
    qorssl::TsVerifyCtxPtr ctx(TS_VERIFY_CTX_new());
    qorssl::OpenSslBytesPtr imprint(
        static_cast<unsigned char*>(OPENSSL_memdup(digest.data(), digest.size())));
    if (token == nullptr || !ctx || !imprint || X509_STORE_up_ref(store) != 1) {
        return false;
    }
    TS_VERIFY_CTX_set_store(ctx.get(), store);
    TS_VERIFY_CTX_set_imprint(ctx.get(), imprint.release(), static_cast<long>(digest.size()));
    TS_VERIFY_CTX_set_flags(ctx.get(), TS_VFY_VERSION | TS_VFY_SIGNATURE | TS_VFY_IMPRINT);
    return TS_RESP_verify_token(ctx.get(), token) == 1;
}

// The hash-index value the archive token's signer carries.
Bytes HashIndexOf(PKCS7* token) {
    PKCS7_SIGNER_INFO* si = sk_PKCS7_SIGNER_INFO_value(PKCS7_get_signer_info(token), 0);
    const qorssl::Asn1ObjectPtr type(OBJ_txt2obj("0.4.0.19122.1.5", 1));
    const int at = X509at_get_attr_by_OBJ(si->unauth_attr, type.get(), -1);
    const ASN1_TYPE* value =
        at < 0 ? nullptr : X509_ATTRIBUTE_get0_type(X509at_get_attr(si->unauth_attr, at), 0);
    if (value == nullptr || value->type != V_ASN1_SEQUENCE) {
        return Bytes();
    }
    return Bytes(value->value.sequence->data,
                 value->value.sequence->data + value->value.sequence->length);
}

bool VerifySignerAt(CMS_ContentInfo* cms, X509_STORE* store, std::int64_t time) {
    X509* signer = nullptr;  // borrowed
    CMS_SignerInfo_get0_algs(FirstSigner(cms), nullptr, &signer, nullptr, nullptr);
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

void BM_VerifyOpenSsl(benchmark::State& state) {
    const Pki& pki = SharedPki();
    const qorssl::X509StorePtr store = CheckingStore({&pki.root, &pki.tsa.Ca()});
    {
        // The token checks take the CRLs from the store: the message's, once.
        const unsigned char* cursor = pki.der.data();
        const qorssl::CmsContentInfoPtr cms(
            d2i_CMS_ContentInfo(nullptr, &cursor, static_cast<long>(pki.der.size())));
        const qorssl::X509CrlStackPtr crls(cms ? CMS_get1_crls(cms.get()) : nullptr);
        for (int i = 0; i < sk_X509_CRL_num(crls.get()); ++i) {
            X509_STORE_add_crl(store.get(), sk_X509_CRL_value(crls.get(), i));
        }
    }
    for (auto _ : state) {
        const unsigned char* cursor = pki.der.data();
        qorssl::CmsContentInfoPtr cms(
            d2i_CMS_ContentInfo(nullptr, &cursor, static_cast<long>(pki.der.size())));
        if (!cms) {
            state.SkipWithError("decoding failed");
            break;
        }
        CMS_SignerInfo* si = FirstSigner(cms.get());
        const ASN1_OCTET_STRING* value = CMS_SignerInfo_get0_signature(si);
        const qorssl::Pkcs7Ptr signatureToken = TokenOf(si, "1.2.840.113549.1.9.16.2.14");
        const qorssl::Pkcs7Ptr archiveToken = TokenOf(si, "0.4.0.1733.2.4");
        const Bytes index = archiveToken ? HashIndexOf(archiveToken.get()) : Bytes();
        benchmark::DoNotOptimize(HashIndexV3(cms.get()));
        if (CMS_verify(cms.get(), nullptr, store.get(), nullptr, nullptr, CMS_BINARY | CMS_CADES) !=
                1 ||
            !VerifyToken(signatureToken.get(), Bytes(value->data, value->data + value->length),
                         store.get()) ||
            !VerifyToken(archiveToken.get(), ArchiveImprintInput(cms.get(), kContent, index),
                         store.get()) ||
            !VerifySignerAt(cms.get(), store.get(), kStampedAt)) {
            state.SkipWithError("verification failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

}  // namespace

BENCHMARK(BM_VerifyTessera)->Name("cades_lta_verify/tessera");
BENCHMARK(BM_VerifyOpenSsl)->Name("cades_lta_verify/openssl");
