#include "TestPki.h"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace tessera_test {

namespace {

struct BioFree {
    void operator()(BIO* b) const { BIO_free_all(b); }
};
using BioPtr = std::unique_ptr<BIO, BioFree>;

[[noreturn]] void Fail(const std::string& what) {
    throw std::runtime_error("test PKI: " + what + " failed");
}

std::string BioText(BIO* bio) {
    char* data = nullptr;
    const long length = BIO_get_mem_data(bio, &data);
    return std::string(data, static_cast<std::size_t>(length));
}

void AddExtension(X509* cert, X509* issuer, const std::string& name, const std::string& value) {
    X509V3_CTX ctx;
    X509V3_set_ctx_nodb(&ctx);
    X509V3_set_ctx(&ctx, issuer, cert, nullptr, nullptr, 0);
    X509_EXTENSION* ext = X509V3_EXT_conf(nullptr, &ctx, name.c_str(), value.c_str());
    if (ext == nullptr) {
        Fail("extension " + name + "=" + value);
    }
    const int added = X509_add_ext(cert, ext, -1);
    X509_EXTENSION_free(ext);
    if (added != 1) {
        Fail("adding extension " + name);
    }
}

}  // namespace

std::int64_t UtcTime(int year, int month, int day, int hour, int minute, int second) {
    // Days from civil (Howard Hinnant's algorithm): no time zone involved.
    year -= month <= 2 ? 1 : 0;
    const long era = (year >= 0 ? year : year - 399) / 400;
    const long yoe = year - era * 400;
    const long doy = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const long doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    const long days = era * 146097 + doe - 719468;
    return static_cast<std::int64_t>(days) * 86400 + hour * 3600 + minute * 60 + second;
}

KeyPtr NewKey(KeyKind kind) {
    EVP_PKEY* key = kind == KeyKind::Rsa2048 ? EVP_RSA_gen(2048) : EVP_EC_gen("P-256");
    if (key == nullptr) {
        Fail("key generation");
    }
    return KeyPtr(key);
}

std::vector<std::pair<std::string, std::string>> CaExtensions() {
    return {{"basicConstraints", "critical,CA:TRUE"},
            {"keyUsage", "critical,keyCertSign,cRLSign,digitalSignature"}};
}

Issued IssueCertificate(const CertSpec& spec, const Issued* issuer) {
    Issued out;
    out.key = NewKey(spec.keyKind);
    out.cert.reset(X509_new());
    X509* cert = out.cert.get();
    if (cert == nullptr || X509_set_version(cert, 2) != 1 ||
        ASN1_INTEGER_set(X509_get_serialNumber(cert), spec.serial) != 1) {
        Fail("certificate set-up");
    }
    X509_NAME* name = X509_get_subject_name(cert);
    X509_NAME_add_entry_by_txt(name, "O", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(spec.organization.c_str()), -1,
                               -1, 0);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(spec.commonName.c_str()), -1,
                               -1, 0);
    X509* issuerCert = issuer != nullptr ? issuer->cert.get() : cert;
    EVP_PKEY* signingKey = issuer != nullptr ? issuer->key.get() : out.key.get();
    if (X509_set_issuer_name(cert, X509_get_subject_name(issuerCert)) != 1 ||
        ASN1_TIME_set(X509_getm_notBefore(cert), static_cast<time_t>(spec.notBefore)) == nullptr ||
        ASN1_TIME_set(X509_getm_notAfter(cert), static_cast<time_t>(spec.notAfter)) == nullptr ||
        X509_set_pubkey(cert, out.key.get()) != 1) {
        Fail("certificate fields");
    }
    AddExtension(cert, issuerCert, "subjectKeyIdentifier", "hash");
    if (issuer != nullptr) {
        AddExtension(cert, issuerCert, "authorityKeyIdentifier", "keyid");
    }
    for (const auto& extension : spec.extensions) {
        AddExtension(cert, issuerCert, extension.first, extension.second);
    }
    if (X509_sign(cert, signingKey, spec.digest) <= 0) {
        Fail("certificate signature");
    }
    return out;
}

std::string CertToPem(X509* cert) {
    BioPtr bio(BIO_new(BIO_s_mem()));
    if (!bio || PEM_write_bio_X509(bio.get(), cert) != 1) {
        Fail("PEM certificate");
    }
    return BioText(bio.get());
}

std::string KeyToPem(EVP_PKEY* key) {
    BioPtr bio(BIO_new(BIO_s_mem()));
    if (!bio ||
        PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr) != 1) {
        Fail("PEM key");
    }
    return BioText(bio.get());
}

std::vector<unsigned char> CertToDer(X509* cert) {
    unsigned char* der = nullptr;
    const int length = i2d_X509(cert, &der);
    if (length <= 0) {
        Fail("DER certificate");
    }
    std::vector<unsigned char> out(der, der + length);
    OPENSSL_free(der);
    return out;
}

void WriteTextFile(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
    if (!out) {
        Fail("writing " + path);
    }
}

std::vector<unsigned char> ReadBinaryFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        Fail("reading " + path);
    }
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in),
                                      std::istreambuf_iterator<char>());
}

CertPtr ReadPemCertificate(const std::string& path) {
    BioPtr bio(BIO_new_file(path.c_str(), "r"));
    if (!bio) {
        return CertPtr();
    }
    return CertPtr(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
}

}  // namespace tessera_test
