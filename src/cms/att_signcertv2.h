// ASN.1 of the ESS signing-certificate attribute values, both forms
// (internal). OpenSSL 3 keeps its own ESS types opaque, so the library reads
// and writes these with templates of its own.
//
//   SigningCertificate   ::= SEQUENCE { certs SEQUENCE OF ESSCertID,
//                                       policies SEQUENCE OF PolicyInformation OPTIONAL }
//   ESSCertID            ::= SEQUENCE { certHash OCTET STRING,
//                                       issuerSerial IssuerSerial OPTIONAL }
//   SigningCertificateV2 ::= SEQUENCE { certs SEQUENCE OF ESSCertIDv2,
//                                       policies SEQUENCE OF PolicyInformation OPTIONAL }
//   ESSCertIDv2          ::= SEQUENCE { hashAlgorithm AlgorithmIdentifier DEFAULT sha256,
//                                       certHash OCTET STRING,
//                                       issuerSerial IssuerSerial OPTIONAL }
//   IssuerSerial         ::= SEQUENCE { issuer GeneralNames, serialNumber INTEGER }
//
// Policies are read so that such values decode, but never written.
#pragma once

#include <openssl/asn1.h>
#include <openssl/asn1t.h>
#include <openssl/evp.h>
#include <openssl/safestack.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "OpenSslPtr.h"

typedef struct QOR_ESS_ISSUER_SERIAL_st {
    GENERAL_NAMES* issuer;
    ASN1_INTEGER* serial;
} QOR_ESS_ISSUER_SERIAL;
DECLARE_ASN1_FUNCTIONS(QOR_ESS_ISSUER_SERIAL)

typedef struct QOR_ESS_CERT_ID_st {
    ASN1_OCTET_STRING* hash;
    QOR_ESS_ISSUER_SERIAL* issuer_serial;  // null when absent
} QOR_ESS_CERT_ID;
DECLARE_ASN1_FUNCTIONS(QOR_ESS_CERT_ID)
DEFINE_STACK_OF(QOR_ESS_CERT_ID)

typedef struct QOR_ESS_SIGNING_CERT_st {
    STACK_OF(QOR_ESS_CERT_ID) * cert_ids;
    STACK_OF(POLICYINFO) * policy_info;  // null when absent
} QOR_ESS_SIGNING_CERT;
DECLARE_ASN1_FUNCTIONS(QOR_ESS_SIGNING_CERT)

typedef struct QOR_ESS_CERT_ID_V2_st {
    X509_ALGOR* hash_alg;  // null when absent: SHA-256
    ASN1_OCTET_STRING* hash;
    QOR_ESS_ISSUER_SERIAL* issuer_serial;  // null when absent
} QOR_ESS_CERT_ID_V2;
DECLARE_ASN1_FUNCTIONS(QOR_ESS_CERT_ID_V2)
DEFINE_STACK_OF(QOR_ESS_CERT_ID_V2)

typedef struct QOR_ESS_SIGNING_CERT_V2_st {
    STACK_OF(QOR_ESS_CERT_ID_V2) * certs;
    STACK_OF(POLICYINFO) * policy_info;  // null when absent
} QOR_ESS_SIGNING_CERT_V2;
DECLARE_ASN1_FUNCTIONS(QOR_ESS_SIGNING_CERT_V2)

// An ESSCertID for `cert`: the SHA-1 of its DER and its issuer and serial.
// Null when `cert` is null or OpenSSL fails.
QOR_ESS_CERT_ID* QOR_ESS_CERT_ID_new_init(X509* cert);

// An ESSCertIDv2 for `cert`: the `md` digest of its DER, the algorithm
// identifier unless `md` is SHA-256, and its issuer and serial. Null when an
// argument is null or OpenSSL fails.
QOR_ESS_CERT_ID_V2* QOR_ESS_CERT_ID_V2_new_init(const EVP_MD* md, X509* cert);

// A SigningCertificate with the entry of `signer` first, then one per
// certificate of `certs` (may be null). Null when OpenSSL fails.
QOR_ESS_SIGNING_CERT* QOR_Attr_SigningCertificate_Create(X509* signer, STACK_OF(X509) * certs);

// The same for a SigningCertificateV2 whose entries use the `md` digest.
QOR_ESS_SIGNING_CERT_V2* QOR_Attr_SigningCertificateV2_Create(const EVP_MD* md, X509* signer,
                                                              STACK_OF(X509) * certs);

namespace TesseraLib {
namespace cms {

using EssSigningCertPtr = qorssl::OpenSslPtr<QOR_ESS_SIGNING_CERT, QOR_ESS_SIGNING_CERT_free>;
using EssSigningCertV2Ptr =
    qorssl::OpenSslPtr<QOR_ESS_SIGNING_CERT_V2, QOR_ESS_SIGNING_CERT_V2_free>;

// A signing-certificate value as the attribute decoded it: `v1` for the v1
// type, `v2` for the v2 type. Never changed once read, so that the copies of
// the attribute share it.
struct SigningCertValue {
    EssSigningCertPtr v1;
    EssSigningCertV2Ptr v2;
};

// Dotted OIDs of the two attribute types.
constexpr const char* kOidSigningCertificate = "1.2.840.113549.1.9.16.2.12";
constexpr const char* kOidSigningCertificateV2 = "1.2.840.113549.1.9.16.2.47";

}  // namespace cms
}  // namespace TesseraLib
