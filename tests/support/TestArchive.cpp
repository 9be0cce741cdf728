#include "TestArchive.h"

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <stdexcept>

namespace tessera_test {

namespace {

const char kArchiveTimeStamp[] = "0.4.0.1733.2.4";
const char kHashIndexV3[] = "0.4.0.19122.1.5";

void Check(int result, const char* what) {
    if (result != 1) {
        throw std::runtime_error(std::string("test archive: ") + what + " failed");
    }
}

Bytes Sha256(const Bytes& data) {
    return TestTsa::Digest(EVP_sha256(), std::string(data.begin(), data.end()));
}

template <class T>
Bytes Der(int (*i2d)(const T*, unsigned char**), const T* value) {
    const int length = i2d(value, nullptr);
    Bytes out(length > 0 ? static_cast<std::size_t>(length) : 0);
    unsigned char* write = out.data();
    Check(length > 0 && i2d(value, &write) == length ? 1 : 0, "encoding");
    return out;
}

// The DER elements directly inside the constructed element `tlv`.
std::vector<Bytes> Children(const Bytes& tlv) {
    const unsigned char* at = tlv.data();
    long length = 0;
    int tag = 0;
    int cls = 0;
    ASN1_get_object(&at, &length, &tag, &cls, static_cast<long>(tlv.size()));
    const unsigned char* end = at + length;
    std::vector<Bytes> out;
    while (at < end) {
        const unsigned char* start = at;
        ASN1_get_object(&at, &length, &tag, &cls, end - at);
        at += length;
        out.emplace_back(start, at);
    }
    return out;
}

Issued Rsa(const char* name, long serial, int slot, const Issued* issuer, bool ca) {
    CertPlan plan = BasicProfile(name, serial, ca);
    const KeyPtr key = CachedKey(KeyKind::Rsa2048, slot);
    plan.key = key.get();
    return IssueCertificate(plan, issuer);
}

}  // namespace

LongTermPki::LongTermPki()
    : root(Rsa("Long-Term Root", 1, 40, nullptr, true)),
      signer(Rsa("Long-Term Signer", 5, 41, &root, false)),
      tsa1(KeyKind::Rsa2048, EVP_sha256(), KeyKind::Rsa2048, UtcTime(2025, 1, 1), 42),
      tsa2(KeyKind::Rsa2048, EVP_sha256(), KeyKind::Rsa2048, UtcTime(2040, 1, 1), 44) {}

const LongTermPki& LongTermPki::Get() {
    static const LongTermPki pki;
    return pki;
}

Bytes HashIndexV3(CMS_ContentInfo* cms) {
    Bytes certs;
    Bytes crls;
    Bytes attrs;
    const auto entry = [](Bytes& list, const Bytes& input) {
        const Bytes octets = Tlv(0x04, Sha256(input));
        list.insert(list.end(), octets.begin(), octets.end());
    };
    STACK_OF(X509)* carried = CMS_get1_certs(cms);
    for (int i = 0; i < sk_X509_num(carried); ++i) {
        entry(certs, CertToDer(sk_X509_value(carried, i)));
    }
    sk_X509_pop_free(carried, X509_free);
    STACK_OF(X509_CRL)* revocation = CMS_get1_crls(cms);
    for (int i = 0; i < sk_X509_CRL_num(revocation); ++i) {
        entry(crls, CrlToDer(sk_X509_CRL_value(revocation, i)));
    }
    sk_X509_CRL_pop_free(revocation, X509_CRL_free);
    CMS_SignerInfo* si = FirstSigner(cms);
    for (int i = 0; i < CMS_unsigned_get_attr_count(si); ++i) {
        X509_ATTRIBUTE* attr = CMS_unsigned_get_attr(si, i);
        const Bytes type = Der(i2d_ASN1_OBJECT, X509_ATTRIBUTE_get0_object(attr));
        for (int v = 0; v < X509_ATTRIBUTE_count(attr); ++v) {
            Bytes input = type;
            const Bytes value = Der(i2d_ASN1_TYPE, X509_ATTRIBUTE_get0_type(attr, v));
            input.insert(input.end(), value.begin(), value.end());
            entry(attrs, input);
        }
    }
    const Bytes sha256 = {0x30, 0x0b, 0x06, 0x09, 0x60, 0x86, 0x48,
                          0x01, 0x65, 0x03, 0x04, 0x02, 0x01};
    return Tlv(0x30, Join({sha256, Tlv(0x30, certs), Tlv(0x30, crls), Tlv(0x30, attrs)}));
}

Bytes ArchiveImprintInput(CMS_ContentInfo* cms, const std::string& content, const Bytes& index) {
    // ContentInfo → [0] → SignedData: ..., encapContentInfo, ..., signerInfos.
    const std::vector<Bytes> signedData = Children(Children(Children(CmsDer(cms))[1])[0]);
    const Bytes eContentType = Children(signedData[2])[0];
    std::vector<Bytes> fields = Children(Children(signedData.back())[0]);
    if (fields.back()[0] == 0xA1) {
        fields.pop_back();  // the unsigned attributes are not stamped
    }
    return Join({eContentType, Sha256(Bytes(content.begin(), content.end())), Join(fields), index});
}

void AddArchiveTimeStamp(CMS_ContentInfo* cms, const std::string& content,
                         const ArchivePlan& plan) {
    const Bytes index = HashIndexV3(cms);
    const Bytes input = ArchiveImprintInput(cms, content, index);
    TsaReply reply;
    reply.genTime = plan.genTime;
    reply.alterImprint = plan.wrongImprint;
    const Bytes token = plan.tsa->Token(EVP_sha256(), Sha256(input), true, reply);
    const unsigned char* read = token.data();
    CmsPtr stamp(d2i_CMS_ContentInfo(nullptr, &read, static_cast<long>(token.size())));
    Check(stamp ? 1 : 0, "reading the token");
    for (int i = 0; i < plan.indexCopies; ++i) {
        Check(CMS_unsigned_add1_attr_by_txt(FirstSigner(stamp.get()), kHashIndexV3, V_ASN1_SEQUENCE,
                                            index.data(), static_cast<int>(index.size())),
              "adding the hash index");
    }
    const Bytes carried = CmsDer(stamp.get());
    Check(CMS_unsigned_add1_attr_by_txt(FirstSigner(cms), kArchiveTimeStamp, V_ASN1_SEQUENCE,
                                        carried.data(), static_cast<int>(carried.size())),
          "adding the archive time-stamp");
}

std::string LongTermContent() {
    return "archived for the long term\n";
}

CmsPtr LongTermT() {
    const LongTermPki& pki = LongTermPki::Get();
    CmsSignPlan plan;
    plan.content = LongTermContent();
    plan.signers = {&pki.signer};
    plan.flags = CMS_CADES;
    plan.signingTime = LongTermTimes::Signed();
    CmsPtr cms = SignCms(plan);
    CMS_SignerInfo* si = FirstSigner(cms.get());
    const ASN1_OCTET_STRING* value = CMS_SignerInfo_get0_signature(si);
    TsaReply at;
    at.genTime = LongTermTimes::Stamped();
    const Bytes token = pki.tsa1.Token(
        EVP_sha256(), Sha256(Bytes(value->data, value->data + value->length)), true, at);
    Check(CMS_unsigned_add1_attr_by_NID(si, NID_id_smime_aa_timeStampToken, V_ASN1_SEQUENCE,
                                        token.data(), static_cast<int>(token.size())),
          "adding the signature time-stamp");
    return cms;
}

Bytes LongTermSignature(const std::vector<ArchivePlan>& archives) {
    const LongTermPki& pki = LongTermPki::Get();
    const std::int64_t far = UtcTime(2040, 1, 1);
    CmsPtr cms = LongTermT();
    Check(CMS_add1_crl(cms.get(), IssueCrl(pki.tsa1.Ca(), UtcTime(2024, 5, 1), far).get()),
          "adding TSA 1's CRL");
    for (const ArchivePlan& archive : archives) {
        AddArchiveTimeStamp(cms.get(), LongTermContent(), archive);
    }
    Check(CMS_add1_crl(cms.get(), IssueCrl(pki.root, UtcTime(2025, 7, 1), far,
                                           {RevokedEntry{5, LongTermTimes::Revoked(),
                                                         CRL_REASON_KEY_COMPROMISE}})
                                      .get()),
          "adding the root's CRL");
    Check(CMS_add1_crl(cms.get(), IssueCrl(pki.tsa2.Ca(), UtcTime(2025, 7, 1), far).get()),
          "adding TSA 2's CRL");
    return CmsDer(cms.get());
}

}  // namespace tessera_test
