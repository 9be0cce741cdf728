#include "cms/SigningCertCheck.h"

#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/x509v3.h>

#include <cstring>

#include "CryptException.h"
#include "Failure.h"
#include "QorDer.h"
#include "cms/att_signcertv2.h"

namespace TesseraLib {
namespace cms {

namespace {

// The first entry of a signing-certificate value, with the decoded value
// that owns it when the check decoded it itself.
struct FirstCertId {
    EssSigningCertPtr v1;
    EssSigningCertV2Ptr v2;
    const EVP_MD* md = nullptr;  // null: no entry, or a digest OpenSSL does not know
    const ASN1_OCTET_STRING* hash = nullptr;
    const QOR_ESS_ISSUER_SERIAL* issuerSerial = nullptr;
};

void FirstOfV1(const LogChannel& log, const QOR_ESS_SIGNING_CERT& value, FirstCertId& first) {
    if (value.cert_ids == nullptr) {
        Fail(log, L"VerifySigningCert: pEssSignCert->cert_ids is null.", ErrInternal,
             L"SignedCades::SignerInfo - pEssCertIds=NULL");
    }
    if (sk_QOR_ESS_CERT_ID_num(value.cert_ids) > 0) {
        const QOR_ESS_CERT_ID* id = sk_QOR_ESS_CERT_ID_value(value.cert_ids, 0);
        first.md = EVP_sha1();
        first.hash = id->hash;
        first.issuerSerial = id->issuer_serial;
    }
}

void FirstOfV2(const LogChannel& log, const QOR_ESS_SIGNING_CERT_V2& value, FirstCertId& first) {
    if (value.certs == nullptr) {
        Fail(log, L"VerifySigningCert: pEssCertIdsV2->certs is null.", ErrInternal,
             L"SignedCades::SignerInfo - pEssCertIdsV2=NULL");
    }
    if (sk_QOR_ESS_CERT_ID_V2_num(value.certs) > 0) {
        const QOR_ESS_CERT_ID_V2* id = sk_QOR_ESS_CERT_ID_V2_value(value.certs, 0);
        // Without an algorithm the entry uses the default, SHA-256.
        first.md =
            id->hash_alg == nullptr ? EVP_sha256() : EVP_get_digestbyobj(id->hash_alg->algorithm);
        first.hash = id->hash;
        first.issuerSerial = id->issuer_serial;
    }
}

FirstCertId ReadV1(const LogChannel& log, const qorstd::QorArray<unsigned char>& value) {
    FirstCertId first;
    first.v1 = qorssl::DecodeWhole<EssSigningCertPtr>(d2i_QOR_ESS_SIGNING_CERT, value.GetData(),
                                                      value.GetSize());
    if (!first.v1) {
        Fail(log, L"VerifySigningCert: Decode signing certificate attribute error.",
             ErrAsn1Decoding);
    }
    FirstOfV1(log, *first.v1, first);
    return first;
}

FirstCertId ReadV2(const LogChannel& log, const qorstd::QorArray<unsigned char>& value) {
    FirstCertId first;
    first.v2 = qorssl::DecodeWhole<EssSigningCertV2Ptr>(d2i_QOR_ESS_SIGNING_CERT_V2,
                                                        value.GetData(), value.GetSize());
    if (!first.v2) {
        Fail(log, L"VerifySigningCert: Decode signing certificate V2 attribute error.",
             ErrAsn1Decoding);
    }
    FirstOfV2(log, *first.v2, first);
    return first;
}

// The first entry of the value the attribute decoded from the same bytes
// when it was read (the entries borrow from it).
FirstCertId ReadDecoded(const LogChannel& log, const SigningCertValue& value) {
    FirstCertId first;
    if (value.v1) {
        FirstOfV1(log, *value.v1, first);
    } else {
        FirstOfV2(log, *value.v2, first);
    }
    return first;
}

// Every directoryName of the entry must be the certificate's issuer, and the
// serials must be the same integer.
void CheckIssuerSerial(const LogChannel& log, const QOR_ESS_ISSUER_SERIAL& issuerSerial,
                       const X509* signerCert) {
    const X509_NAME* issuer = X509_get_issuer_name(signerCert);
    for (int i = 0; i < sk_GENERAL_NAME_num(issuerSerial.issuer); ++i) {
        const GENERAL_NAME* name = sk_GENERAL_NAME_value(issuerSerial.issuer, i);
        if (name->type == GEN_DIRNAME && X509_NAME_cmp(name->d.directoryName, issuer) != 0) {
            Fail(log,
                 L"VerifySigningCert: Certificate issuer does not match the signing certificate.",
                 ErrSigningCertMismatch);
        }
    }
    if (ASN1_INTEGER_cmp(issuerSerial.serial, X509_get0_serialNumber(signerCert)) != 0) {
        Fail(log,
             L"VerifySigningCert: Certificate serial number does not match the signing "
             L"certificate.",
             ErrSigningCertMismatch);
    }
}

}  // namespace

void VerifySigningCert(const LogChannel& log, const SigningCertificateAttribute& attr,
                       const X509* signerCert) {
    TLOG_DEBUG(log, L"VerifySigningCert()");
    if (signerCert == nullptr) {
        Fail(log, L"VerifySigningCert: Bad parameter - pSignerCert is null", ErrInvalidParameter,
             L"SignedCades::SignerInfo - pSignerCert=NULL");
    }
    const qorstd::QorArray<unsigned char> value = attr.GetValue();
    if (value.GetSize() == 0) {
        Fail(log, L"VerifySigningCert: attr.GetValue() is empty", ErrSigningCertAttrNotFound);
    }
    // The v1 type names SHA-1 hashes; anything else is read as v2.
    const SigningCertValue* decoded = SigningCertAccess::ValueOf(attr);
    const FirstCertId first = decoded != nullptr ? ReadDecoded(log, *decoded)
                              : std::strcmp(attr.GetOID().c_str(), kOidSigningCertificate) == 0
                                  ? ReadV1(log, value)
                                  : ReadV2(log, value);
    if (first.md == nullptr) {
        Fail(log, L"VerifySigningCert: Unsupported hash algorithm.", ErrAlgorithmNotSupported);
    }
    if (first.issuerSerial != nullptr) {
        CheckIssuerSerial(log, *first.issuerSerial, signerCert);
    }
    const int hashSize = first.hash != nullptr ? ASN1_STRING_length(first.hash) : 0;
    if (hashSize <= 0 || hashSize != EVP_MD_get_size(first.md)) {
        Fail(log, L"VerifySigningCert: Certificate hash size incorrect.", ErrInternal,
             L"nHashSize=pHash->length()");
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int digestSize = 0;
    if (X509_digest(signerCert, first.md, digest, &digestSize) != 1) {
        FailCrypto(log, "VerifySigningCert: Failed to compute certificate hash.",
                   ErrHashGeneration);
    }
    if (static_cast<int>(digestSize) != hashSize ||
        std::memcmp(digest, ASN1_STRING_get0_data(first.hash), digestSize) != 0) {
        Fail(log, L"VerifySigningCert: Certificate hash does not match the signing certificate.",
             ErrSigningCertMismatch);
    }
}

}  // namespace cms
}  // namespace TesseraLib
