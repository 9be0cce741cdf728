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
