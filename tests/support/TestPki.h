// The test PKI builder: keys, CA and end-entity certificates with chosen
// times and extensions, minted in-process so that tests never depend on files
// made elsewhere or on today's date.
#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tessera_test {

struct X509Free {
    void operator()(X509* x) const { X509_free(x); }
};
struct PkeyFree {
    void operator()(EVP_PKEY* k) const { EVP_PKEY_free(k); }
};
using CertPtr = std::unique_ptr<X509, X509Free>;
using KeyPtr = std::unique_ptr<EVP_PKEY, PkeyFree>;

// Seconds since 1970 for a UTC calendar date, so that tests pin their times.
std::int64_t UtcTime(int year, int month, int day, int hour = 0, int minute = 0, int second = 0);

enum class KeyKind { Rsa2048, EcP256 };
KeyPtr NewKey(KeyKind kind);

// One attribute of a distinguished name. `type` is a short name ("CN",
// "serialNumber") or a dotted OID. `stringType` is MBSTRING_UTF8 (OpenSSL
// picks the string type) or a V_ASN1_* string type whose bytes are stored as
// given, so that malformed values (an odd-length BMPString) can be made.
// `joinPrevious` puts the attribute into the RDN of the one before it
// (multi-valued RDN).
struct NameAttribute {
    std::string type;
    std::string value;
    bool joinPrevious = false;
    int stringType = MBSTRING_UTF8;
};

struct X509NameFree {
    void operator()(X509_NAME* n) const { X509_NAME_free(n); }
};
using NamePtr = std::unique_ptr<X509_NAME, X509NameFree>;

// A name with the attributes in the given order.
NamePtr BuildName(const std::vector<NameAttribute>& attributes);

// Qualified-certificate statements (RFC 3739), built with OpenSSL's ASN.1
// primitives: each statement is its OID and, when `infoDer` is not empty,
// that DER as its information.
struct QcStatementValue {
    std::string oid;
    std::vector<unsigned char> infoDer;
};
QcStatementValue QcComplianceStatement();  // 0.4.0.1862.1.1, no information
QcStatementValue QcSscdStatement();        // 0.4.0.1862.1.4, no information
// 0.4.0.1862.1.6 with SEQUENCE OF the given OIDs (e.g. "0.4.0.1862.1.6.2" eSeal).
QcStatementValue QcTypeStatement(const std::vector<std::string>& typeOids);
// 0.4.0.1862.1.5: SEQUENCE OF SEQUENCE { IA5String url, PrintableString language }.
QcStatementValue QcPdsStatement(const std::string& url, const std::string& language);
// DER of QCStatements (the extension's value).
std::vector<unsigned char> QcStatementsDer(const std::vector<QcStatementValue>& statements);
// DER of SEQUENCE OF OBJECT IDENTIFIER.
std::vector<unsigned char> OidSequenceDer(const std::vector<std::string>& oids);

struct CertSpec {
    std::string commonName;
    std::string organization = "Tessera Test";
    long serial = 1;
    std::int64_t notBefore = UtcTime(2020, 1, 1);
    std::int64_t notAfter = UtcTime(2040, 1, 1);
    KeyKind keyKind = KeyKind::EcP256;
    const EVP_MD* digest = EVP_sha256();
    // Extensions in OpenSSL's configuration syntax, added in order, e.g.
    // {"basicConstraints", "critical,CA:TRUE"},
    // {"extendedKeyUsage", "critical,timeStamping"},
    // {"authorityInfoAccess", "OCSP;URI:http://127.0.0.1:8080"}.
    std::vector<std::pair<std::string, std::string>> extensions;
    // When not empty: the subject instead of O=organization, CN=commonName.
    std::vector<NameAttribute> subject;
    // When not empty: the value of a qualified-statements extension
    // (1.3.6.1.5.5.7.1.3), e.g. QcStatementsDer(...), added after `extensions`.
    std::vector<unsigned char> qcStatements;
};

// Extensions of a certification authority (basic constraints, key usage).
std::vector<std::pair<std::string, std::string>> CaExtensions();

struct Issued {
    CertPtr cert;
    KeyPtr key;
};

// Signs a new certificate with `issuer`'s key, or self-signed when `issuer`
// is null. Subject and authority key identifiers are always added.
Issued IssueCertificate(const CertSpec& spec, const Issued* issuer);

// PEM and DER forms.
std::string CertToPem(X509* cert);
std::string KeyToPem(EVP_PKEY* key);
std::vector<unsigned char> CertToDer(X509* cert);

void WriteTextFile(const std::string& path, const std::string& text);
std::vector<unsigned char> ReadBinaryFile(const std::string& path);

// A certificate read from a PEM file (null when unreadable).
CertPtr ReadPemCertificate(const std::string& path);

}  // namespace tessera_test
