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
// DER of a CRLDistributionPoints value: one distribution point per entry of
// `points`, each with the given URIs as its full name (in order). Use it as a
// raw extension "2.5.29.31".
std::vector<unsigned char> CrlDistributionPointsDer(
    const std::vector<std::vector<std::string>>& points);
// The parts one after the other.
std::vector<unsigned char> Join(const std::vector<std::vector<unsigned char>>& parts);
// DER of SEQUENCE OF OBJECT IDENTIFIER.
std::vector<unsigned char> OidSequenceDer(const std::vector<std::string>& oids);

struct CertPlan {
    std::string commonName;  // the subject is O=Tessera Test, CN=commonName
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
    // When not empty: the subject instead of O=Tessera Test, CN=commonName.
    std::vector<NameAttribute> subject;
    // When not empty: the value of a qualified-statements extension
    // (1.3.6.1.5.5.7.1.3), e.g. QcStatementsDer(...), added after `extensions`.
    std::vector<unsigned char> qcStatements;
    // When not empty: the serial number in decimal (any size, "-" allowed),
    // instead of `serial`.
    std::string serialDecimal;
    // Without it the certificate has no subject key identifier.
    bool subjectKeyId = true;
    // Extensions given as (dotted OID, DER value), added last, in order.
    std::vector<std::pair<std::string, std::vector<unsigned char>>> rawExtensions;
    // When set (borrowed): the certificate's key instead of a new one of
    // `keyKind`, e.g. CachedKey(...), which saves RSA generation time.
    EVP_PKEY* key = nullptr;
};

// A key of a process-wide pool: the same key for the same (kind, slot), made
// once. The caller gets its own reference.
KeyPtr CachedKey(KeyKind kind, int slot = 0);

// DER of one universal string value, e.g. (V_ASN1_UTF8STRING, "abc").
std::vector<unsigned char> StringDer(int tag, const std::string& value);
// DER of a certificatePolicies value with the given policy OIDs, no
// qualifiers (OpenSSL's configuration syntax for it needs a config database).
std::vector<unsigned char> CertificatePoliciesDer(const std::vector<std::string>& oids);

// Extensions of a certification authority (basic constraints, key usage).
std::vector<std::pair<std::string, std::string>> CaExtensions();

// A CA's profile (CaExtensions) or a signer's (critical key usage
// digitalSignature, nonRepudiation).
CertPlan BasicProfile(const std::string& commonName, long serial, bool ca);

struct Issued {
    CertPtr cert;
    KeyPtr key;
};

// Signs a new certificate with `issuer`'s key, or self-signed when `issuer`
// is null. Subject and authority key identifiers are always added.
Issued IssueCertificate(const CertPlan& profile, const Issued* issuer);

// PEM and DER forms.
std::string CertToPem(X509* cert);
std::string KeyToPem(EVP_PKEY* key);
std::vector<unsigned char> CertToDer(X509* cert);

void WriteTextFile(const std::string& path, const std::string& text);
std::vector<unsigned char> ReadBinaryFile(const std::string& path);

// A certificate read from a PEM file (null when unreadable).
CertPtr ReadPemCertificate(const std::string& path);

// A private folder below /tmp, removed with the object, for the files of the
// openssl command.
class ScratchDir {
public:
    ScratchDir();
    ~ScratchDir();
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    std::string Path(const std::string& name) const { return m_dir + "/" + name; }
    // Writes the file, returns its path.
    std::string Write(const std::string& name, const std::string& bytes) const;
    std::string Write(const std::string& name, const std::vector<unsigned char>& bytes) const;
    // Runs `openssl ARGS` inside the folder, for 30 seconds at most; true when
    // it exits with 0. Output() is what it printed on stdout and stderr.
    bool Openssl(const std::string& args) const;
    std::string Output() const;

private:
    std::string m_dir;
};

// ---- CRLs and PKCS#12 files ------------------------------------------------

struct X509CrlFree {
    void operator()(X509_CRL* c) const { X509_CRL_free(c); }
};
using CrlPtr = std::unique_ptr<X509_CRL, X509CrlFree>;

// One revoked entry. `reason` is a CRL_REASON_* code (CRL_REASON_REMOVE_FROM_CRL,
// CRL_REASON_CERTIFICATE_HOLD ...) or -1 for an entry without reason code.
// A non-empty `certificateIssuer` makes it an entry of an indirect CRL: the
// certificate issuer extension names that issuer (a directory name).
struct RevokedEntry {
    long serial = 1;
    std::int64_t revocationTime = UtcTime(2024, 6, 1, 12);
    int reason = -1;
    X509* certificateIssuer = nullptr;  // borrowed; its subject is taken
};

struct CrlPlan {
    int version = 2;  // 1: no extensions at all; 2: the extensions below
    std::int64_t thisUpdate = UtcTime(2024, 7, 1);
    std::int64_t nextUpdate = UtcTime(2024, 8, 1);  // 0: the CRL has none
    long crlNumber = 1;                             // v2 only; < 0: none
    bool authorityKeyId = true;                     // v2 only
    bool indirect = false;  // v2 only: issuingDistributionPoint with indirectCRL
    std::vector<RevokedEntry> revoked;
    const EVP_MD* digest = EVP_sha256();
    // When set: the outer signature algorithm is replaced by this OID after
    // signing (e.g. one OpenSSL does not know).
    std::string outerSignatureOid;
};

// A CRL issued (signed) by `issuer`.
CrlPtr IssueCrl(const CrlPlan& profile, const Issued& issuer);
// A v2 CRL of `issuer` from `thisUpdate` to `nextUpdate` listing `revoked`.
CrlPtr IssueCrl(const Issued& issuer, std::int64_t thisUpdate, std::int64_t nextUpdate,
                const std::vector<RevokedEntry>& revoked = {});
std::vector<unsigned char> CrlToDer(X509_CRL* crl);
std::string CrlToPem(X509_CRL* crl);

// A PKCS#12 file (DER) made with PKCS12_create: `key` with `cert` (either may
// be null) and `extra` certificates in the given order, under `password`.
// Without `withMac` the file has no integrity MAC, so a wrong password shows
// only when its contents do not decrypt.
std::vector<unsigned char> BuildPkcs12(EVP_PKEY* key, X509* cert, const std::vector<X509*>& extra,
                                       const std::string& password, bool withMac = true);

}  // namespace tessera_test
