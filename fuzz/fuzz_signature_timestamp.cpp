// A signer whose signature time-stamp attribute holds arbitrary bytes: the
// message must decode and verify (as CAdES-T, without paths) or fail with
// one of the library's exception families — never crash, leak or hang. The
// same bytes as a whole attribute go to TimeStampAttribute::Decode.
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "CryptException.h"
#include "CryptKey.h"
#include "OcspException.h"
#include "SignedCades.h"
#include "TspException.h"
#include "X509ChainPolicy.h"

using namespace TesseraLib;

namespace {

// A CAdES-BES signature made once with a throw-away EC key.
std::vector<unsigned char> MakeSignature() {
    EVP_PKEY* key = EVP_EC_gen("P-256");
    X509* cert = X509_new();
    X509_set_version(cert, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(cert), 7);
    X509_NAME* name = X509_get_subject_name(cert);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>("Fuzz Signer"), -1, -1, 0);
    X509_set_issuer_name(cert, name);
    ASN1_TIME_set(X509_getm_notBefore(cert), 1577836800);  // 2020-01-01
    ASN1_TIME_set(X509_getm_notAfter(cert), 4102444800);   // 2100-01-01
    X509_set_pubkey(cert, key);
    X509_sign(cert, key, EVP_sha256());
    X509Certificate signerCert(cert);
    std::unique_ptr<CryptKey> cryptKey(CryptKey::CreateKey(key));
    signerCert.SetPrivateKey(cryptKey.get());
    SignerCades signer(signerCert);
    signer.SetIncludeOption(SignerCms::cptIncludeSignerCertificate);
    signer.SetAttributeOption(SignerCms::cptAttributeDefault);
    const unsigned char content[] = "fuzzed time-stamp";
    SignedCades cades(qorstd::QorArray<unsigned char>(content, sizeof content));
    cades.Sign(signer, SignedCades::cptCadesBes, 0);
    const qorstd::QorArray<unsigned char> der = cades.Encode();
    X509_free(cert);
    EVP_PKEY_free(key);
    return std::vector<unsigned char>(der.GetData(), der.GetData() + der.GetSize());
}

template <class Action>
void Guarded(Action&& action) {
    try {
        action();
    } catch (const qorstd::QorException&) {
    } catch (const QorTsp2Lib::TspException&) {
    } catch (const QorOcsp2Lib::OcspException&) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0 || size > 1u << 20) {
        return 0;
    }
    static const std::vector<unsigned char> signature = MakeSignature();

    Guarded([&] {
        TimeStampAttribute attr;
        attr.Decode(qorstd::QorArray<unsigned char>(data, static_cast<unsigned int>(size)));
        const TimeStampAttribute copy(attr);
        (void)copy.GetTimeStamp().GetTime();
    });

    // The bytes as the value of a signature time-stamp attribute.
    SignedCades stamped;
    stamped.Decode(qorstd::QorArray<unsigned char>(signature.data(),
                                                   static_cast<unsigned int>(signature.size())));
    CMS_SignerInfo* si = sk_CMS_SignerInfo_value(CMS_get0_SignerInfos(stamped.GetCms()), 0);
    if (CMS_unsigned_add1_attr_by_NID(si, NID_id_smime_aa_timeStampToken, V_ASN1_SEQUENCE, data,
                                      static_cast<int>(size)) != 1) {
        return 0;
    }
    qorstd::QorArray<unsigned char> message;
    Guarded([&] { message = stamped.Encode(); });
    if (message.GetSize() == 0) {
        return 0;
    }
    Guarded([&] {
        SignedCades decoded;
        decoded.Decode(message);
        X509ChainPolicy policy;
        VerifierCades verifier;
        verifier.SetVerifyOption(VerifierCms::cptVerifyNone);
        verifier.SetChainPolicy(&policy);
        decoded.Verify(verifier, SignedCades::cptCadesT);
        (void)decoded.GetSignerInfo(0)->GetTimeStamp();
    });
    return 0;
}
