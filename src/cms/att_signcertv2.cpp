#include "cms/att_signcertv2.h"

#include <openssl/err.h>
#include <openssl/objects.h>

namespace {

using qorssl::OpenSslPtr;
using EssIssuerSerialPtr = OpenSslPtr<QOR_ESS_ISSUER_SERIAL, QOR_ESS_ISSUER_SERIAL_free>;
using EssCertIdPtr = OpenSslPtr<QOR_ESS_CERT_ID, QOR_ESS_CERT_ID_free>;
using EssCertIdV2Ptr = OpenSslPtr<QOR_ESS_CERT_ID_V2, QOR_ESS_CERT_ID_V2_free>;

// Fills OpenSSL's cache of the certificate's extensions and SHA-1
// fingerprint, which X509_digest then uses for SHA-1. A certificate whose
// extensions do not parse is still hashed, so its complaint is dropped.
void CacheCertificateValues(X509* cert) {
    ERR_set_mark();
    (void)X509_check_purpose(cert, -1, 0);
    ERR_pop_to_mark();
}

// The certificate's issuer name as the one directoryName, and its serial.
QOR_ESS_ISSUER_SERIAL* NewIssuerSerial(const X509* cert) {
    EssIssuerSerialPtr issuerSerial(QOR_ESS_ISSUER_SERIAL_new());
    qorssl::GeneralNamePtr name(GENERAL_NAME_new());
    if (!issuerSerial || !name) {
        return nullptr;
    }
    X509_NAME* issuer = X509_NAME_dup(X509_get_issuer_name(cert));
    if (issuer == nullptr) {
        return nullptr;
    }
    GENERAL_NAME_set0_value(name.get(), GEN_DIRNAME, issuer);
    if (sk_GENERAL_NAME_push(issuerSerial->issuer, name.get()) <= 0) {
        return nullptr;
    }
    name.release();
    ASN1_INTEGER* serial = ASN1_INTEGER_dup(X509_get0_serialNumber(cert));
    if (serial == nullptr) {
        return nullptr;
    }
    ASN1_INTEGER_free(issuerSerial->serial);
    issuerSerial->serial = serial;
    return issuerSerial.release();
}

// Sets `hash` to the `md` digest of the certificate's DER.
bool SetCertificateHash(ASN1_OCTET_STRING* hash, const EVP_MD* md, const X509* cert) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    return X509_digest(cert, md, digest, &length) == 1 &&
           ASN1_OCTET_STRING_set(hash, digest, static_cast<int>(length)) == 1;
}

}  // namespace

QOR_ESS_CERT_ID* QOR_ESS_CERT_ID_new_init(X509* cert) {
    if (cert == nullptr) {
        return nullptr;
    }
    CacheCertificateValues(cert);
    EssCertIdPtr id(QOR_ESS_CERT_ID_new());
    if (!id || !SetCertificateHash(id->hash, EVP_sha1(), cert)) {
        return nullptr;
    }
    id->issuer_serial = NewIssuerSerial(cert);
    return id->issuer_serial != nullptr ? id.release() : nullptr;
}

QOR_ESS_CERT_ID_V2* QOR_ESS_CERT_ID_V2_new_init(const EVP_MD* md, X509* cert) {
    if (md == nullptr || cert == nullptr) {
        return nullptr;
    }
    CacheCertificateValues(cert);
    EssCertIdV2Ptr id(QOR_ESS_CERT_ID_V2_new());
    if (!id || !SetCertificateHash(id->hash, md, cert)) {
        return nullptr;
    }
    // SHA-256 is the default and so, in DER, never written.
    if (EVP_MD_get_type(md) != NID_sha256) {
        id->hash_alg = X509_ALGOR_new();
        if (id->hash_alg == nullptr) {
            return nullptr;
        }
        X509_ALGOR_set_md(id->hash_alg, md);
    }
    id->issuer_serial = NewIssuerSerial(cert);
    return id->issuer_serial != nullptr ? id.release() : nullptr;
}

QOR_ESS_SIGNING_CERT* QOR_Attr_SigningCertificate_Create(X509* signer, STACK_OF(X509) * certs) {
    TesseraLib::cms::EssSigningCertPtr value(QOR_ESS_SIGNING_CERT_new());
    if (!value) {
        return nullptr;
    }
    // The signer's entry (i = -1), then one per further certificate.
    const int further = certs != nullptr ? sk_X509_num(certs) : 0;
    for (int i = -1; i < further; ++i) {
        QOR_ESS_CERT_ID* entry = QOR_ESS_CERT_ID_new_init(i < 0 ? signer : sk_X509_value(certs, i));
        if (entry == nullptr || sk_QOR_ESS_CERT_ID_push(value->cert_ids, entry) <= 0) {
            QOR_ESS_CERT_ID_free(entry);
            return nullptr;
        }
    }
    return value.release();
}

QOR_ESS_SIGNING_CERT_V2* QOR_Attr_SigningCertificateV2_Create(const EVP_MD* md, X509* signer,
                                                              STACK_OF(X509) * certs) {
    TesseraLib::cms::EssSigningCertV2Ptr value(QOR_ESS_SIGNING_CERT_V2_new());
    if (!value) {
        return nullptr;
    }
    // The signer's entry (i = -1), then one per further certificate.
    const int further = certs != nullptr ? sk_X509_num(certs) : 0;
    for (int i = -1; i < further; ++i) {
        QOR_ESS_CERT_ID_V2* entry =
            QOR_ESS_CERT_ID_V2_new_init(md, i < 0 ? signer : sk_X509_value(certs, i));
        if (entry == nullptr || sk_QOR_ESS_CERT_ID_V2_push(value->certs, entry) <= 0) {
            QOR_ESS_CERT_ID_V2_free(entry);
            return nullptr;
        }
    }
    return value.release();
}

// The templates, to the end of the file (formatting garbles the macros).
// clang-format off
ASN1_SEQUENCE(QOR_ESS_ISSUER_SERIAL) = {
    ASN1_SEQUENCE_OF(QOR_ESS_ISSUER_SERIAL, issuer, GENERAL_NAME),
    ASN1_SIMPLE(QOR_ESS_ISSUER_SERIAL, serial, ASN1_INTEGER)
} ASN1_SEQUENCE_END(QOR_ESS_ISSUER_SERIAL)
IMPLEMENT_ASN1_FUNCTIONS(QOR_ESS_ISSUER_SERIAL)

ASN1_SEQUENCE(QOR_ESS_CERT_ID) = {
    ASN1_SIMPLE(QOR_ESS_CERT_ID, hash, ASN1_OCTET_STRING),
    ASN1_OPT(QOR_ESS_CERT_ID, issuer_serial, QOR_ESS_ISSUER_SERIAL)
} ASN1_SEQUENCE_END(QOR_ESS_CERT_ID)
IMPLEMENT_ASN1_FUNCTIONS(QOR_ESS_CERT_ID)

ASN1_SEQUENCE(QOR_ESS_SIGNING_CERT) = {
    ASN1_SEQUENCE_OF(QOR_ESS_SIGNING_CERT, cert_ids, QOR_ESS_CERT_ID),
    ASN1_SEQUENCE_OF_OPT(QOR_ESS_SIGNING_CERT, policy_info, POLICYINFO)
} ASN1_SEQUENCE_END(QOR_ESS_SIGNING_CERT)
IMPLEMENT_ASN1_FUNCTIONS(QOR_ESS_SIGNING_CERT)

ASN1_SEQUENCE(QOR_ESS_CERT_ID_V2) = {
    ASN1_OPT(QOR_ESS_CERT_ID_V2, hash_alg, X509_ALGOR),
    ASN1_SIMPLE(QOR_ESS_CERT_ID_V2, hash, ASN1_OCTET_STRING),
    ASN1_OPT(QOR_ESS_CERT_ID_V2, issuer_serial, QOR_ESS_ISSUER_SERIAL)
} ASN1_SEQUENCE_END(QOR_ESS_CERT_ID_V2)
IMPLEMENT_ASN1_FUNCTIONS(QOR_ESS_CERT_ID_V2)

ASN1_SEQUENCE(QOR_ESS_SIGNING_CERT_V2) = {
    ASN1_SEQUENCE_OF(QOR_ESS_SIGNING_CERT_V2, certs, QOR_ESS_CERT_ID_V2),
    ASN1_SEQUENCE_OF_OPT(QOR_ESS_SIGNING_CERT_V2, policy_info, POLICYINFO)
} ASN1_SEQUENCE_END(QOR_ESS_SIGNING_CERT_V2)
IMPLEMENT_ASN1_FUNCTIONS(QOR_ESS_SIGNING_CERT_V2)
