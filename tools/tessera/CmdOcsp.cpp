// tessera ocsp --url URL --issuer ISSUER.pem --cert CERT.pem [--trust CA.pem]
//              [--hash sha1|sha256|...] [--no-nonce] [--out RESPONSE.der]
// tessera ocsp --client [--url URL] --issuer ISSUER.pem --cert CERT.pem
//              [--trust CA.pem] [--hash ...] [--out RESPONSE.der]
//
// Asks an OCSP responder about one certificate and prints its answer. The
// response must be signed by the issuer, a responder it delegated, or a
// responder certified by one of the --trust certificates (one file each, the
// option repeated for more).
//
// Plain, the command drives the OCSP library directly. With --client it goes
// through Tessera's X509OcspClientOnline, as the revocation search does: the
// URL defaults to the certificate's AIA, the --trust certificates become the
// client's trust store, and a nonce is always sent.
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Cli.h"
#include "QorOcsp2.h"
#include "Tessera.h"

namespace tessera_cli {

namespace {

struct X509Free {
    void operator()(X509* cert) const { X509_free(cert); }
};
using CertPtr = std::unique_ptr<X509, X509Free>;

// The first certificate of a PEM file; null (with a message) when unreadable.
CertPtr ReadCertificate(const std::string& path) {
    std::FILE* file = std::fopen(path.c_str(), "r");
    if (file == nullptr) {
        std::fprintf(stderr, "tessera ocsp: cannot open %s\n", path.c_str());
        return CertPtr();
    }
    CertPtr cert(PEM_read_X509(file, nullptr, nullptr, nullptr));
    std::fclose(file);
    if (!cert) {
        std::fprintf(stderr, "tessera ocsp: no PEM certificate in %s\n", path.c_str());
    }
    return cert;
}

bool HashByName(const std::string& name, QorOcsp2Lib::OcspHash::ocspHashAlgorithm* out) {
    using QorOcsp2Lib::OcspHash;
    const std::pair<const char*, OcspHash::ocspHashAlgorithm> names[] = {
        {"sha1", OcspHash::ocspHashSHA1},     {"sha224", OcspHash::ocspHashSHA224},
        {"sha256", OcspHash::ocspHashSHA256}, {"sha384", OcspHash::ocspHashSHA384},
        {"sha512", OcspHash::ocspHashSHA512},
    };
    for (const auto& entry : names) {
        if (name == entry.first) {
            *out = entry.second;
            return true;
        }
    }
    return false;
}

void PrintResponse(const QorOcsp2Lib::OcspResponse& response) {
    std::printf("responder:      %s\n", Narrow(response.GetResponderName().c_str()).c_str());
    std::printf("producedAt:     %s\n", FormatUtc(response.GetProducedAt()).c_str());
    const auto& answers = response.GetSingleResponses();
    for (unsigned int i = 0; i < answers.GetSize(); ++i) {
        const QorOcsp2Lib::OcspSingleResponse& answer = answers.GetAt(i);
        std::printf("serial:         %s\n", answer.GetSerialNumberHex().c_str());
        std::printf("status:         %s\n", answer.GetCertStatusString().c_str());
        std::printf("thisUpdate:     %s\n", FormatUtc(answer.GetThisUpdate()).c_str());
        std::printf("nextUpdate:     %s\n", answer.GetNextUpdate() != 0
                                                ? FormatUtc(answer.GetNextUpdate()).c_str()
                                                : "(none)");
        if (answer.GetCertStatus() == QorOcsp2Lib::OcspSingleResponse::ocspStatusRevoked) {
            std::printf("revocationTime: %s\n", FormatUtc(answer.GetRevocationTime()).c_str());
            std::printf("reason:         %s\n", ReasonName(answer.GetRevocationReason()));
        }
    }
}

bool WriteResponse(const QorOcsp2Lib::OcspResponse& response, const std::string& out) {
    const qorstd::QorArray<unsigned char> der = response.Encode();
    std::FILE* file = std::fopen(out.c_str(), "wb");
    const bool written =
        file != nullptr && std::fwrite(der.GetData(), 1, der.GetSize(), file) == der.GetSize();
    if (file == nullptr || std::fclose(file) != 0 || !written) {
        std::fprintf(stderr, "tessera ocsp: cannot write %s\n", out.c_str());
        return false;
    }
    return true;
}

// The request through X509OcspClientOnline.
int AskThroughClient(const std::string& url, X509* issuer, X509* subject,
                     const std::vector<CertPtr>& trusted,
                     QorOcsp2Lib::OcspHash::ocspHashAlgorithm hash, const std::string& out) {
    TesseraLib::X509MemoryStore trustStore;
    for (const CertPtr& cert : trusted) {
        trustStore.AddCertificate(TesseraLib::X509Certificate(cert.get()));
    }
    TesseraLib::X509OcspClientOnline client;
    if (!url.empty()) {
        client.SetUrl(std::wstring(url.begin(), url.end()).c_str());
    }
    client.SetTrustStore(&trustStore);
    client.SetHashAlgorithm(hash);
    const QorOcsp2Lib::OcspResponse* response = client.GetOcspResponse(
        TesseraLib::X509Certificate(subject), TesseraLib::X509Certificate(issuer));
    PrintResponse(*response);
    if (!out.empty() && !WriteResponse(*response, out)) {
        return kExitFailure;
    }
    return kExitOk;
}

}  // namespace

int RunOcsp(const std::vector<std::string>& args) {
    std::vector<std::string> options(args);
    bool nonce = true;
    bool throughClient = false;
    for (auto it = options.begin(); it != options.end();) {
        if (*it == "--no-nonce") {
            nonce = false;
            it = options.erase(it);
        } else if (*it == "--client") {
            throughClient = true;
            it = options.erase(it);
        } else {
            ++it;
        }
    }
    const Arguments parsed = ParseArguments(
        "ocsp", options, {"--url", "--issuer", "--cert", "--trust", "--hash", "--out"});
    if (!parsed.error.empty()) {
        return UsageError(parsed.error);
    }
    if (!parsed.positional.empty()) {
        return UsageError("ocsp: unexpected argument '" + parsed.positional[0] + "'");
    }
    const std::string url = parsed.Get("--url");
    if (parsed.Get("--issuer").empty() || parsed.Get("--cert").empty() ||
        (url.empty() && !throughClient)) {
        return UsageError("ocsp: --issuer and --cert are required, and --url unless --client");
    }
    if (throughClient && !nonce) {
        return UsageError("ocsp: --client always sends a nonce; drop --no-nonce");
    }
    QorOcsp2Lib::OcspHash::ocspHashAlgorithm hash = QorOcsp2Lib::OcspHash::ocspHashDefault;
    if (!parsed.Get("--hash").empty() && !HashByName(parsed.Get("--hash"), &hash)) {
        return UsageError("ocsp: --hash must be sha1, sha224, sha256, sha384 or sha512");
    }

    const CertPtr issuer = ReadCertificate(parsed.Get("--issuer"));
    const CertPtr subject = ReadCertificate(parsed.Get("--cert"));
    if (!issuer || !subject) {
        return kExitFailure;
    }
    std::vector<CertPtr> trustedCerts;
    const auto found = parsed.options.find("--trust");
    if (found != parsed.options.end()) {
        for (const std::string& path : found->second) {
            CertPtr cert = ReadCertificate(path);
            if (!cert) {
                return kExitFailure;
            }
            trustedCerts.push_back(std::move(cert));
        }
    }
    if (throughClient) {
        return AskThroughClient(url, issuer.get(), subject.get(), trustedCerts, hash,
                                parsed.Get("--out"));
    }
    QorOcsp2Lib::OcspVector<QorOcsp2Lib::OcspCertificate> trusted;
    for (const CertPtr& cert : trustedCerts) {
        trusted.Add(QorOcsp2Lib::OcspCertificate(cert.get()));
    }
    QorOcsp2Lib::OcspVector<QorOcsp2Lib::OcspCertificate> issuers;
    issuers.Add(QorOcsp2Lib::OcspCertificate(issuer.get()));

    QorOcsp2Lib::OcspClient client;
    client.SetUrl(std::wstring(url.begin(), url.end()).c_str());
    client.SetIssuerCertificates(issuers);
    client.SetCACertificates(trusted);
    client.SetHashAlgorithm(hash);
    client.SetVerifyResponse(1);
    QorOcsp2Lib::OcspResponse response;
    client.SendRequest(QorOcsp2Lib::OcspCertificate(subject.get()), response, nonce ? 1 : 0);
    PrintResponse(response);
    const std::string out = parsed.Get("--out");
    if (!out.empty() && !WriteResponse(response, out)) {
        return kExitFailure;
    }
    return kExitOk;
}

}  // namespace tessera_cli
