#include "TestCms.h"

#include <openssl/bio.h>
#include <openssl/objects.h>

#include <stdexcept>

namespace tessera_test {

CmsPtr SignCms(const CmsSignPlan& plan) {
    const unsigned int flags = plan.flags | CMS_BINARY;
    CmsPtr cms(CMS_sign(nullptr, nullptr, nullptr, nullptr, flags | CMS_PARTIAL));
    bool ok = cms != nullptr;
    if (ok && !plan.contentType.empty()) {
        std::unique_ptr<ASN1_OBJECT, void (*)(ASN1_OBJECT*)> type(
            OBJ_txt2obj(plan.contentType.c_str(), 1), ASN1_OBJECT_free);
        ok = type && CMS_set1_eContentType(cms.get(), type.get()) == 1;
    }
    for (X509* cert : plan.certificates) {
        ok = ok && CMS_add1_cert(cms.get(), cert) == 1;
    }
    for (unsigned index = 0; ok && index < plan.signers.size(); ++index) {
        const Issued* signer = plan.signers[index];
        const unsigned int keyId = (plan.keyIdSigners >> index) & 1 ? CMS_USE_KEYID : 0;
        CMS_SignerInfo* si = CMS_add1_signer(cms.get(), signer->cert.get(), signer->key.get(),
                                             EVP_sha256(), flags | keyId | CMS_PARTIAL);
        ok = si != nullptr;
        if (ok && plan.signingTime != 0 && (flags & CMS_NOATTR) == 0) {
            std::unique_ptr<ASN1_TIME, void (*)(ASN1_TIME*)> time(
                ASN1_TIME_set(nullptr, static_cast<time_t>(plan.signingTime)), ASN1_TIME_free);
            ok = time && CMS_signed_add1_attr_by_NID(si, NID_pkcs9_signingTime, time->type,
                                                     time.get(), -1) == 1;
        }
    }
    if (ok && plan.beforeFinal) {
        plan.beforeFinal(cms.get());
    }
    std::unique_ptr<BIO, int (*)(BIO*)> data(
        BIO_new_mem_buf(plan.content.data(), static_cast<int>(plan.content.size())), BIO_free);
    if (!ok || !data || CMS_final(cms.get(), data.get(), nullptr, flags) != 1) {
        throw std::runtime_error("test CMS: OpenSSL did not sign the message");
    }
    return cms;
}

Bytes CmsDer(CMS_ContentInfo* cms) {
    unsigned char* out = nullptr;
    const int length = i2d_CMS_ContentInfo(cms, &out);
    Bytes der(out, out + (length > 0 ? length : 0));
    OPENSSL_free(out);
    return der;
}

CMS_SignerInfo* FirstSigner(CMS_ContentInfo* cms) {
    return sk_CMS_SignerInfo_value(CMS_get0_SignerInfos(cms), 0);
}

Bytes Tlv(unsigned char tag, const Bytes& content) {
    const std::size_t n = content.size();
    Bytes out = n < 0x80    ? Bytes{tag, static_cast<unsigned char>(n)}
                : n < 0x100 ? Bytes{tag, 0x81, static_cast<unsigned char>(n)}
                            : Bytes{tag, 0x82, static_cast<unsigned char>(n >> 8),
                                    static_cast<unsigned char>(n & 0xFF)};
    out.insert(out.end(), content.begin(), content.end());
    return out;
}

}  // namespace tessera_test
