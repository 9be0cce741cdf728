#include "TestPki.h"

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <mutex>
#include <stdexcept>
#include <system_error>

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

using Bytes = std::vector<unsigned char>;

// The DER of `object` written by `i2d`.
template <class T, class I2d>
Bytes ToDer(T* object, I2d i2d, const std::string& what) {
    unsigned char* der = nullptr;
    const int length = object != nullptr ? i2d(object, &der) : 0;
    if (length <= 0) {
        Fail("DER " + what);
    }
    Bytes out(der, der + length);
    OPENSSL_free(der);
    return out;
}

// An extension in OpenSSL's configuration syntax, added to `cert` or, when
// that is null, to `crl`.
void AddExtension(X509* cert, X509_CRL* crl, X509* issuer, const std::string& name,
                  const std::string& value) {
    X509V3_CTX ctx;
    X509V3_set_ctx_nodb(&ctx);
    X509V3_set_ctx(&ctx, issuer, cert, nullptr, crl, 0);
    std::unique_ptr<X509_EXTENSION, void (*)(X509_EXTENSION*)> ext(
        X509V3_EXT_conf(nullptr, &ctx, name.c_str(), value.c_str()), X509_EXTENSION_free);
    if (!ext) {
        Fail("extension " + name + "=" + value);
    }
    if ((cert != nullptr ? X509_add_ext(cert, ext.get(), -1)
                         : X509_CRL_add_ext(crl, ext.get(), -1)) != 1) {
        Fail("adding extension " + name);
    }
}

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
    std::copy(content.begin(), content.end(), cursor);
    return out;
}

Bytes OidDer(const std::string& oid) {
    std::unique_ptr<ASN1_OBJECT, void (*)(ASN1_OBJECT*)> object(OBJ_txt2obj(oid.c_str(), 1),
                                                                ASN1_OBJECT_free);
    return ToDer(object.get(), i2d_ASN1_OBJECT, "OID " + oid);
}

void AddRawExtension(X509* cert, const std::string& oid, const Bytes& value) {
    std::unique_ptr<ASN1_OBJECT, void (*)(ASN1_OBJECT*)> object(OBJ_txt2obj(oid.c_str(), 1),
                                                                ASN1_OBJECT_free);
    std::unique_ptr<ASN1_OCTET_STRING, void (*)(ASN1_OCTET_STRING*)> octets(ASN1_OCTET_STRING_new(),
                                                                            ASN1_OCTET_STRING_free);
    if (!object || !octets ||
        ASN1_OCTET_STRING_set(octets.get(), value.data(), static_cast<int>(value.size())) != 1) {
        Fail("extension value " + oid);
    }
    std::unique_ptr<X509_EXTENSION, void (*)(X509_EXTENSION*)> ext(
        X509_EXTENSION_create_by_OBJ(nullptr, object.get(), 0, octets.get()), X509_EXTENSION_free);
    if (!ext || X509_add_ext(cert, ext.get(), -1) != 1) {
        Fail("adding extension " + oid);
    }
}

}  // namespace

std::vector<unsigned char> StringDer(int tag, const std::string& value) {
    return DerElement(tag, false, Bytes(value.begin(), value.end()));
}

std::vector<unsigned char> CertificatePoliciesDer(const std::vector<std::string>& oids) {
    std::vector<Bytes> policies;
    for (const std::string& oid : oids) {
        policies.push_back(DerElement(V_ASN1_SEQUENCE, true, OidDer(oid)));
    }
    return DerElement(V_ASN1_SEQUENCE, true, Join(policies));
}

KeyPtr CachedKey(KeyKind kind, int slot) {
    static std::mutex mutex;
    static std::map<std::pair<int, int>, KeyPtr> pool;
    std::lock_guard<std::mutex> lock(mutex);
    KeyPtr& cached = pool[{static_cast<int>(kind), slot}];
    if (!cached) {
        cached = NewKey(kind);
    }
    if (EVP_PKEY_up_ref(cached.get()) != 1) {
        Fail("key reference");
    }
    return KeyPtr(cached.get());
}

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
        Join({DerElement(V_ASN1_IA5STRING, false, Bytes(url.begin(), url.end())),
              DerElement(V_ASN1_PRINTABLESTRING, false, Bytes(language.begin(), language.end()))}));
    return {"0.4.0.1862.1.5", DerElement(V_ASN1_SEQUENCE, true, location)};
}

std::vector<unsigned char> QcStatementsDer(const std::vector<QcStatementValue>& statements) {
    std::vector<Bytes> encoded;
    for (const QcStatementValue& statement : statements) {
        encoded.push_back(
            DerElement(V_ASN1_SEQUENCE, true, Join({OidDer(statement.oid), statement.infoDer})));
    }
    return DerElement(V_ASN1_SEQUENCE, true, Join(encoded));
}

std::vector<unsigned char> CrlDistributionPointsDer(
    const std::vector<std::vector<std::string>>& points) {
    std::unique_ptr<CRL_DIST_POINTS, void (*)(CRL_DIST_POINTS*)> value(
        sk_DIST_POINT_new_null(), [](CRL_DIST_POINTS* p) { CRL_DIST_POINTS_free(p); });
    for (const std::vector<std::string>& uris : points) {
        DIST_POINT* point = DIST_POINT_new();
        point->distpoint = DIST_POINT_NAME_new();
        point->distpoint->type = 0;
        point->distpoint->name.fullname = GENERAL_NAMES_new();
        for (const std::string& uri : uris) {
            ASN1_IA5STRING* text = ASN1_IA5STRING_new();
            ASN1_STRING_set(text, uri.data(), static_cast<int>(uri.size()));
            GENERAL_NAME* name = GENERAL_NAME_new();
            GENERAL_NAME_set0_value(name, GEN_URI, text);
            sk_GENERAL_NAME_push(point->distpoint->name.fullname, name);
        }
        sk_DIST_POINT_push(value.get(), point);
    }
    return ToDer(value.get(), i2d_CRL_DIST_POINTS, "CRL distribution points");
}

std::vector<unsigned char> OidSequenceDer(const std::vector<std::string>& oids) {
    std::vector<Bytes> encoded;
    for (const std::string& oid : oids) {
        encoded.push_back(OidDer(oid));
    }
    return DerElement(V_ASN1_SEQUENCE, true, Join(encoded));
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

CertPlan BasicProfile(const std::string& commonName, long serial, bool ca) {
    CertPlan profile;
    profile.commonName = commonName;
    profile.serial = serial;
    profile.extensions = ca ? CaExtensions()
                            : std::vector<std::pair<std::string, std::string>>{
                                  {"keyUsage", "critical,digitalSignature,nonRepudiation"}};
    return profile;
}

Issued IssueCertificate(const CertPlan& profile, const Issued* issuer) {
    Issued out;
    if (profile.key != nullptr) {
        if (EVP_PKEY_up_ref(profile.key) != 1) {
            Fail("key reference");
        }
        out.key.reset(profile.key);
    } else {
        out.key = NewKey(profile.keyKind);
    }
    out.cert.reset(X509_new());
    X509* cert = out.cert.get();
    if (cert == nullptr || X509_set_version(cert, 2) != 1 ||
        ASN1_INTEGER_set(X509_get_serialNumber(cert), profile.serial) != 1) {
        Fail("certificate set-up");
    }
    if (!profile.serialDecimal.empty()) {
        BIGNUM* number = nullptr;
        if (BN_dec2bn(&number, profile.serialDecimal.c_str()) == 0 ||
            BN_to_ASN1_INTEGER(number, X509_get_serialNumber(cert)) == nullptr) {
            BN_free(number);
            Fail("serial " + profile.serialDecimal);
        }
        BN_free(number);
    }
    if (!profile.subject.empty() &&
        X509_set_subject_name(cert, BuildName(profile.subject).get()) != 1) {
        Fail("subject");
    }
    if (profile.subject.empty()) {
        // Unchecked: an empty or over-long common name is simply left out.
        X509_NAME* name = X509_get_subject_name(cert);
        X509_NAME_add_entry_by_txt(name, "O", MBSTRING_UTF8,
                                   reinterpret_cast<const unsigned char*>("Tessera Test"), -1, -1,
                                   0);
        X509_NAME_add_entry_by_txt(
            name, "CN", MBSTRING_UTF8,
            reinterpret_cast<const unsigned char*>(profile.commonName.c_str()), -1, -1, 0);
    }
    X509* issuerCert = issuer != nullptr ? issuer->cert.get() : cert;
    EVP_PKEY* signingKey = issuer != nullptr ? issuer->key.get() : out.key.get();
    if (X509_set_issuer_name(cert, X509_get_subject_name(issuerCert)) != 1 ||
        ASN1_TIME_set(X509_getm_notBefore(cert), static_cast<time_t>(profile.notBefore)) ==
            nullptr ||
        ASN1_TIME_set(X509_getm_notAfter(cert), static_cast<time_t>(profile.notAfter)) == nullptr ||
        X509_set_pubkey(cert, out.key.get()) != 1) {
        Fail("certificate fields");
    }
    if (profile.subjectKeyId) {
        AddExtension(cert, nullptr, issuerCert, "subjectKeyIdentifier", "hash");
    }
    if (issuer != nullptr) {
        AddExtension(cert, nullptr, issuerCert, "authorityKeyIdentifier", "keyid");
    }
    for (const auto& extension : profile.extensions) {
        AddExtension(cert, nullptr, issuerCert, extension.first, extension.second);
    }
    if (!profile.qcStatements.empty()) {
        AddRawExtension(cert, "1.3.6.1.5.5.7.1.3", profile.qcStatements);
    }
    for (const auto& raw : profile.rawExtensions) {
        AddRawExtension(cert, raw.first, raw.second);
    }
    if (X509_sign(cert, signingKey, profile.digest) <= 0) {
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
    return ToDer(cert, i2d_X509, "certificate");
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

ScratchDir::ScratchDir() {
    char pattern[] = "/tmp/tessera-test-XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
        Fail("making a scratch folder");
    }
    m_dir = pattern;
}

ScratchDir::~ScratchDir() {
    std::error_code ignored;
    std::filesystem::remove_all(m_dir, ignored);
}

std::string ScratchDir::Write(const std::string& name, const std::string& bytes) const {
    WriteTextFile(Path(name), bytes);
    return Path(name);
}

std::string ScratchDir::Write(const std::string& name, const Bytes& bytes) const {
    return Write(name, std::string(bytes.begin(), bytes.end()));
}

bool ScratchDir::Openssl(const std::string& args) const {
    const std::string command =
        "cd '" + m_dir + "' && timeout 30 openssl " + args + " >'" + Path(".output") + "' 2>&1";
    return std::system(command.c_str()) == 0;
}

std::string ScratchDir::Output() const {
    std::ifstream in(Path(".output"), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

namespace {

void AddRevokedEntry(X509_CRL* crl, const RevokedEntry& entry) {
    std::unique_ptr<X509_REVOKED, void (*)(X509_REVOKED*)> revoked(X509_REVOKED_new(),
                                                                   X509_REVOKED_free);
    std::unique_ptr<ASN1_INTEGER, void (*)(ASN1_INTEGER*)> serial(ASN1_INTEGER_new(),
                                                                  ASN1_INTEGER_free);
    std::unique_ptr<ASN1_TIME, void (*)(ASN1_TIME*)> when(
        ASN1_TIME_set(nullptr, static_cast<time_t>(entry.revocationTime)), ASN1_TIME_free);
    if (!revoked || !serial || !when || ASN1_INTEGER_set(serial.get(), entry.serial) != 1 ||
        X509_REVOKED_set_serialNumber(revoked.get(), serial.get()) != 1 ||
        X509_REVOKED_set_revocationDate(revoked.get(), when.get()) != 1) {
        Fail("revoked entry");
    }
    if (entry.reason >= 0) {
        std::unique_ptr<ASN1_ENUMERATED, void (*)(ASN1_ENUMERATED*)> reason(ASN1_ENUMERATED_new(),
                                                                            ASN1_ENUMERATED_free);
        if (!reason || ASN1_ENUMERATED_set(reason.get(), entry.reason) != 1 ||
            X509_REVOKED_add1_ext_i2d(revoked.get(), NID_crl_reason, reason.get(), 0, 0) != 1) {
            Fail("reason code");
        }
    }
    if (entry.certificateIssuer != nullptr) {
        std::unique_ptr<GENERAL_NAMES, void (*)(GENERAL_NAMES*)> names(sk_GENERAL_NAME_new_null(),
                                                                       GENERAL_NAMES_free);
        GENERAL_NAME* name = GENERAL_NAME_new();
        X509_NAME* directory = X509_NAME_dup(X509_get_subject_name(entry.certificateIssuer));
        if (!names || name == nullptr || directory == nullptr) {
            GENERAL_NAME_free(name);
            X509_NAME_free(directory);
            Fail("certificate issuer");
        }
        GENERAL_NAME_set0_value(name, GEN_DIRNAME, directory);
        if (sk_GENERAL_NAME_push(names.get(), name) <= 0) {
            GENERAL_NAME_free(name);
            Fail("certificate issuer");
        }
        if (X509_REVOKED_add1_ext_i2d(revoked.get(), NID_certificate_issuer, names.get(), 1, 0) !=
            1) {
            Fail("certificate issuer extension");
        }
    }
    if (X509_CRL_add0_revoked(crl, revoked.get()) != 1) {
        Fail("adding revoked entry");
    }
    revoked.release();
}

}  // namespace

CrlPtr IssueCrl(const CrlPlan& profile, const Issued& issuer) {
    CrlPtr crl(X509_CRL_new());
    std::unique_ptr<ASN1_TIME, void (*)(ASN1_TIME*)> thisUpdate(
        ASN1_TIME_set(nullptr, static_cast<time_t>(profile.thisUpdate)), ASN1_TIME_free);
    if (!crl || !thisUpdate || X509_CRL_set_version(crl.get(), profile.version - 1) != 1 ||
        X509_CRL_set_issuer_name(crl.get(), X509_get_subject_name(issuer.cert.get())) != 1 ||
        X509_CRL_set1_lastUpdate(crl.get(), thisUpdate.get()) != 1) {
        Fail("CRL set-up");
    }
    if (profile.nextUpdate != 0) {
        std::unique_ptr<ASN1_TIME, void (*)(ASN1_TIME*)> nextUpdate(
            ASN1_TIME_set(nullptr, static_cast<time_t>(profile.nextUpdate)), ASN1_TIME_free);
        if (!nextUpdate || X509_CRL_set1_nextUpdate(crl.get(), nextUpdate.get()) != 1) {
            Fail("CRL nextUpdate");
        }
    }
    for (const RevokedEntry& entry : profile.revoked) {
        AddRevokedEntry(crl.get(), entry);
    }
    if (profile.version >= 2) {
        if (profile.authorityKeyId) {
            AddExtension(nullptr, crl.get(), issuer.cert.get(), "authorityKeyIdentifier",
                         "keyid:always");
        }
        if (profile.crlNumber >= 0) {
            std::unique_ptr<ASN1_INTEGER, void (*)(ASN1_INTEGER*)> number(ASN1_INTEGER_new(),
                                                                          ASN1_INTEGER_free);
            if (!number || ASN1_INTEGER_set(number.get(), profile.crlNumber) != 1 ||
                X509_CRL_add1_ext_i2d(crl.get(), NID_crl_number, number.get(), 0, 0) != 1) {
                Fail("CRL number");
            }
        }
        if (profile.indirect) {
            AddExtension(nullptr, crl.get(), issuer.cert.get(), "issuingDistributionPoint",
                         "critical,indirectCRL:TRUE");
        }
    }
    if (X509_CRL_sort(crl.get()) != 1 ||
        X509_CRL_sign(crl.get(), issuer.key.get(), profile.digest) <= 0) {
        Fail("CRL signature");
    }
    if (!profile.outerSignatureOid.empty()) {
        const X509_ALGOR* outer = nullptr;
        X509_CRL_get0_signature(crl.get(), nullptr, &outer);
        ASN1_OBJECT* oid = OBJ_txt2obj(profile.outerSignatureOid.c_str(), 1);
        if (oid == nullptr ||
            X509_ALGOR_set0(const_cast<X509_ALGOR*>(outer), oid, V_ASN1_UNDEF, nullptr) != 1) {
            ASN1_OBJECT_free(oid);
            Fail("outer signature algorithm");
        }
        // Decode the changed encoding again so that OpenSSL's cached
        // signature NID follows the new OID.
        const std::vector<unsigned char> der = CrlToDer(crl.get());
        const unsigned char* cursor = der.data();
        crl.reset(d2i_X509_CRL(nullptr, &cursor, static_cast<long>(der.size())));
        if (!crl) {
            Fail("re-reading the CRL");
        }
    }
    return crl;
}

CrlPtr IssueCrl(const Issued& issuer, std::int64_t thisUpdate, std::int64_t nextUpdate,
                const std::vector<RevokedEntry>& revoked) {
    CrlPlan profile;
    profile.thisUpdate = thisUpdate;
    profile.nextUpdate = nextUpdate;
    profile.revoked = revoked;
    return IssueCrl(profile, issuer);
}

std::vector<unsigned char> Join(const std::vector<std::vector<unsigned char>>& parts) {
    std::vector<unsigned char> out;
    for (const std::vector<unsigned char>& part : parts) {
        out.insert(out.end(), part.begin(), part.end());
    }
    return out;
}

std::vector<unsigned char> CrlToDer(X509_CRL* crl) {
    return ToDer(crl, i2d_X509_CRL, "CRL");
}

std::string CrlToPem(X509_CRL* crl) {
    BioPtr bio(BIO_new(BIO_s_mem()));
    if (!bio || PEM_write_bio_X509_CRL(bio.get(), crl) != 1) {
        Fail("PEM CRL");
    }
    return BioText(bio.get());
}

std::vector<unsigned char> BuildPkcs12(EVP_PKEY* key, X509* cert, const std::vector<X509*>& extra,
                                       const std::string& password, bool withMac) {
    std::unique_ptr<STACK_OF(X509), void (*)(STACK_OF(X509)*)> chain(
        sk_X509_new_null(), [](STACK_OF(X509) * s) { sk_X509_free(s); });
    for (X509* certificate : extra) {
        if (!chain || sk_X509_push(chain.get(), certificate) <= 0) {
            Fail("PKCS#12 certificate list");
        }
    }
    std::unique_ptr<PKCS12, void (*)(PKCS12*)> pkcs12(
        PKCS12_create(password.c_str(), "tessera test", key, cert, chain.get(), 0, 0, 0,
                      withMac ? 0 : -1, 0),
        PKCS12_free);
    return ToDer(pkcs12.get(), i2d_PKCS12, "PKCS#12");
}

}  // namespace tessera_test
