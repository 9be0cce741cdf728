// tessera cert FILE [--json]
//
// Reads one certificate, DER or PEM, and prints what the library decodes from
// it: names, serial, validity, key, usages, policies, OCSP responder,
// qualified statements, SHA-1 and whether it is a CA and self-signed.
// Human-readable by default; --json prints one object for scripts.
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "Cli.h"
#include "X509Certificate.h"

namespace tessera_cli {

namespace {

using TesseraLib::X509Certificate;

bool LooksLikePem(const std::vector<unsigned char>& bytes) {
    const std::string marker = "-----BEGIN";
    return std::string(bytes.begin(), bytes.end()).find(marker) != std::string::npos;
}

std::vector<std::string> KeyUsageNames(unsigned long bits) {
    static const std::pair<unsigned long, const char*> kNames[] = {
        {X509Certificate::kuDigitalSignature, "digitalSignature"},
        {X509Certificate::kuNonRepudiation, "nonRepudiation"},
        {X509Certificate::kuKeyEncipherment, "keyEncipherment"},
        {X509Certificate::kuDataEncipherment, "dataEncipherment"},
        {X509Certificate::kuKeyAgreement, "keyAgreement"},
        {X509Certificate::kuKeyCertSign, "keyCertSign"},
        {X509Certificate::kuCrlSign, "cRLSign"},
        {X509Certificate::kuEncipherOnly, "encipherOnly"},
        {X509Certificate::kuDecipherOnly, "decipherOnly"}};
    std::vector<std::string> names;
    for (const auto& entry : kNames) {
        if ((bits & entry.first) != 0) {
            names.push_back(entry.second);
        }
    }
    return names;
}

std::vector<std::string> ToStrings(const qorstd::QorVector<qorstd::QorString>& list) {
    std::vector<std::string> out;
    for (unsigned int i = 0; i < list.GetSize(); ++i) {
        out.push_back(list[i].c_str());
    }
    return out;
}

// Everything printed, gathered first so both forms show the same values.
struct Report {
    std::string subject, issuer, serialDec, serialHex, notBefore, notAfter;
    long long notBeforeSeconds = 0, notAfterSeconds = 0;
    std::string signature, keyAlgorithm;
    int keyBits = 0;
    std::vector<std::string> keyUsage, extendedKeyUsage, policies, qcStatements;
    std::string ocspUrl, sha1;
    bool ca = false, selfSigned = false;
};

Report Describe(const X509Certificate& cert) {
    Report r;
    r.subject = Narrow(cert.GetSubjectStringX500(0).c_str());
    r.issuer = Narrow(cert.GetIssuerStringX500(0).c_str());
    r.serialDec = cert.GetSerialNumberStringDec().c_str();
    r.serialHex = cert.GetSerialNumberStringHex().c_str();
    r.notBeforeSeconds = cert.GetNotBefore();
    r.notAfterSeconds = cert.GetNotAfter();
    r.notBefore = FormatUtc(r.notBeforeSeconds);
    r.notAfter = FormatUtc(r.notAfterSeconds);
    r.signature = cert.GetSignatureAlgorithmName().c_str();
    const EVP_PKEY* key = X509_get0_pubkey(cert.GetX509());
    if (key != nullptr) {
        const int id = EVP_PKEY_get_base_id(key);
        const char* name = OBJ_nid2sn(id);
        r.keyAlgorithm = id == EVP_PKEY_EC ? "EC" : (name != nullptr ? name : "unknown");
        r.keyBits = EVP_PKEY_get_bits(key);
    } else {
        r.keyAlgorithm = "unknown";
    }
    r.keyUsage = KeyUsageNames(cert.GetKeyUsage());
    r.extendedKeyUsage = ToStrings(cert.GetExtendedKeyUsages());
    r.policies = ToStrings(cert.GetCertificatePolicies());
    for (unsigned int i = 0; i < cert.GetQCStatements().GetSize(); ++i) {
        r.qcStatements.push_back(cert.GetQCStatements()[i].GetStatementId().c_str());
    }
    r.ocspUrl = cert.GetOcspResponderUrl().c_str();
    r.sha1 = cert.GetSHA1HashHex().c_str();
    r.ca = cert.IsCA() != 0;
    r.selfSigned = cert.IsSelfSigned() != 0;
    return r;
}

std::string Joined(const std::vector<std::string>& items) {
    std::string out;
    for (const std::string& item : items) {
        out += (out.empty() ? "" : ", ") + item;
    }
    return out.empty() ? "-" : out;
}

void PrintText(const Report& r) {
    std::printf("subject:            %s\n", r.subject.c_str());
    std::printf("issuer:             %s\n", r.issuer.c_str());
    std::printf("serial:             %s (hex %s)\n", r.serialDec.c_str(), r.serialHex.c_str());
    std::printf("not before:         %s\n", r.notBefore.c_str());
    std::printf("not after:          %s\n", r.notAfter.c_str());
    std::printf("signature:          %s\n", r.signature.c_str());
    std::printf("key:                %s %d bits\n", r.keyAlgorithm.c_str(), r.keyBits);
    std::printf("key usage:          %s\n", Joined(r.keyUsage).c_str());
    std::printf("extended key usage: %s\n", Joined(r.extendedKeyUsage).c_str());
    std::printf("policies:           %s\n", Joined(r.policies).c_str());
    std::printf("ocsp:               %s\n", r.ocspUrl.empty() ? "-" : r.ocspUrl.c_str());
    std::printf("qc statements:      %s\n", Joined(r.qcStatements).c_str());
    std::printf("sha1:               %s\n", r.sha1.c_str());
    std::printf("ca:                 %s\n", r.ca ? "yes" : "no");
    std::printf("self-signed:        %s\n", r.selfSigned ? "yes" : "no");
}

void PrintJson(const Report& r) {
    std::printf("{\n");
    std::printf("  \"subject\": %s,\n", JsonString(r.subject).c_str());
    std::printf("  \"issuer\": %s,\n", JsonString(r.issuer).c_str());
    std::printf("  \"serial\": %s,\n", JsonString(r.serialDec).c_str());
    std::printf("  \"serialHex\": %s,\n", JsonString(r.serialHex).c_str());
    std::printf("  \"notBefore\": %lld,\n", r.notBeforeSeconds);
    std::printf("  \"notAfter\": %lld,\n", r.notAfterSeconds);
    std::printf("  \"signatureAlgorithm\": %s,\n", JsonString(r.signature).c_str());
    std::printf("  \"keyAlgorithm\": %s,\n", JsonString(r.keyAlgorithm).c_str());
    std::printf("  \"keyBits\": %d,\n", r.keyBits);
    std::printf("  \"keyUsage\": %s,\n", JsonArray(r.keyUsage).c_str());
    std::printf("  \"extendedKeyUsage\": %s,\n", JsonArray(r.extendedKeyUsage).c_str());
    std::printf("  \"policies\": %s,\n", JsonArray(r.policies).c_str());
    std::printf("  \"ocspUrl\": %s,\n", JsonString(r.ocspUrl).c_str());
    std::printf("  \"qcStatements\": %s,\n", JsonArray(r.qcStatements).c_str());
    std::printf("  \"sha1\": %s,\n", JsonString(r.sha1).c_str());
    std::printf("  \"ca\": %s,\n", r.ca ? "true" : "false");
    std::printf("  \"selfSigned\": %s\n", r.selfSigned ? "true" : "false");
    std::printf("}\n");
}

}  // namespace

int RunCert(const std::vector<std::string>& args) {
    std::vector<unsigned char> bytes;
    bool json = false;
    if (const int exitCode = ReadShownFile("cert", args, &bytes, &json); exitCode != 0) {
        return exitCode;
    }

    X509Certificate cert;
    if (LooksLikePem(bytes)) {
        const std::string text(bytes.begin(), bytes.end());
        cert.ImportPEM(text.c_str());
    } else {
        cert.Import(bytes.data(), static_cast<long>(bytes.size()));
    }
    const Report report = Describe(cert);
    if (json) {
        PrintJson(report);
    } else {
        PrintText(report);
    }
    return kExitOk;
}

}  // namespace tessera_cli
