#include "TestPki.h"

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <cstring>
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

using Bytes = std::vector<unsigned char>;

// One DER element of universal class: tag, length and `content`.
Bytes DerElement(int tag, bool constructed, const Bytes& content) {
    const int length = static_cast<int>(content.size());
    const int total = ASN1_object_size(constructed ? 1 : 0, length, tag);
    if (total <= 0) {
        Fail("DER element size");
    }
    Bytes out(static_cast<std::size_t>(total));
    unsigned char* cursor = out.data();
    ASN1_put_object(&cursor, constructed ? 1 : 0, length, tag, V_ASN1_UNIVERSAL);
    if (length > 0) {
        std::memcpy(cursor, content.data(), content.size());
    }
    return out;
}

Bytes Concat(const std::vector<Bytes>& parts) {
    Bytes out;
    for (const Bytes& part : parts) {
        out.insert(out.end(), part.begin(), part.end());
    }
    return out;
}

Bytes OidDer(const std::string& oid) {
    std::unique_ptr<ASN1_OBJECT, void (*)(ASN1_OBJECT*)> object(OBJ_txt2obj(oid.c_str(), 1),
                                                                ASN1_OBJECT_free);
    const int length = object ? i2d_ASN1_OBJECT(object.get(), nullptr) : 0;
    if (length <= 0) {
        Fail("OID " + oid);
    }
    Bytes out(static_cast<std::size_t>(length));
    unsigned char* cursor = out.data();
    i2d_ASN1_OBJECT(object.get(), &cursor);
    return out;
}

void AddQcStatementsExtension(X509* cert, const Bytes& value) {
    std::unique_ptr<ASN1_OCTET_STRING, void (*)(ASN1_OCTET_STRING*)> octets(ASN1_OCTET_STRING_new(),
                                                                            ASN1_OCTET_STRING_free);
    if (!octets ||
        ASN1_OCTET_STRING_set(octets.get(), value.data(), static_cast<int>(value.size())) != 1) {
        Fail("qualified statements value");
    }
    std::unique_ptr<X509_EXTENSION, void (*)(X509_EXTENSION*)> ext(
        X509_EXTENSION_create_by_NID(nullptr, NID_qcStatements, 0, octets.get()),
        X509_EXTENSION_free);
    if (!ext || X509_add_ext(cert, ext.get(), -1) != 1) {
        Fail("adding qualified statements");
    }
}

}  // namespace

NamePtr BuildName(const std::vector<NameAttribute>& attributes) {
    NamePtr name(X509_NAME_new());
    if (!name) {
        Fail("name");
    }
    for (const NameAttribute& attribute : attributes) {
        if (X509_NAME_add_entry_by_txt(
                name.get(), attribute.type.c_str(), attribute.stringType,
                reinterpret_cast<const unsigned char*>(attribute.value.data()),
                static_cast<int>(attribute.value.size()), -1,
                attribute.joinPrevious ? -1 : 0) != 1) {
            Fail("name attribute " + attribute.type);
        }
    }
    return name;
}

QcStatementValue QcComplianceStatement() {
    return {"0.4.0.1862.1.1", {}};
}

QcStatementValue QcSscdStatement() {
    return {"0.4.0.1862.1.4", {}};
}

QcStatementValue QcTypeStatement(const std::vector<std::string>& typeOids) {
    return {"0.4.0.1862.1.6", OidSequenceDer(typeOids)};
}

QcStatementValue QcPdsStatement(const std::string& url, const std::string& language) {
    const Bytes location = DerElement(
        V_ASN1_SEQUENCE, true,
        Concat(
            {DerElement(V_ASN1_IA5STRING, false, Bytes(url.begin(), url.end())),
             DerElement(V_ASN1_PRINTABLESTRING, false, Bytes(language.begin(), language.end()))}));
    return {"0.4.0.1862.1.5", DerElement(V_ASN1_SEQUENCE, true, location)};
}

std::vector<unsigned char> QcStatementsDer(const std::vector<QcStatementValue>& statements) {
    std::vector<Bytes> encoded;
    for (const QcStatementValue& statement : statements) {
        encoded.push_back(
            DerElement(V_ASN1_SEQUENCE, true, Concat({OidDer(statement.oid), statement.infoDer})));
    }
    return DerElement(V_ASN1_SEQUENCE, true, Concat(encoded));
}

std::vector<unsigned char> OidSequenceDer(const std::vector<std::string>& oids) {
    std::vector<Bytes> encoded;
    for (const std::string& oid : oids) {
        encoded.push_back(OidDer(oid));
    }
    return DerElement(V_ASN1_SEQUENCE, true, Concat(encoded));
}

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
    if (!spec.subject.empty() && X509_set_subject_name(cert, BuildName(spec.subject).get()) != 1) {
        Fail("subject");
    }
    X509_NAME* name = X509_get_subject_name(cert);
    if (spec.subject.empty()) {
        X509_NAME_add_entry_by_txt(
            name, "O", MBSTRING_UTF8,
            reinterpret_cast<const unsigned char*>(spec.organization.c_str()), -1, -1, 0);
        X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                                   reinterpret_cast<const unsigned char*>(spec.commonName.c_str()),
                                   -1, -1, 0);
    }
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
    if (!spec.qcStatements.empty()) {
        AddQcStatementsExtension(cert, spec.qcStatements);
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
