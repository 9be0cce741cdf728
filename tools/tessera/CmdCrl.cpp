// tessera crl FILE [--cert CERT] [--json]
//
// Shows a CRL (DER or PEM): issuer, thisUpdate, nextUpdate, CRL number,
// authority key identifier and signature algorithm; with --cert (DER or PEM)
// also whether that certificate is listed, with revocation time and reason.
#include <cstdio>
#include <string>
#include <vector>

#include "Cli.h"
#include "CryptUtils.h"
#include "X509Certificate.h"
#include "X509Crl.h"

namespace tessera_cli {

namespace {

using TesseraLib::X509Certificate;
using TesseraLib::X509Crl;
using TesseraLib::X509CrlItem;

// The DER inside the first "-----BEGIN <label>-----" block of `bytes`, or
// `bytes` themselves when there is no such block.
std::vector<unsigned char> DerOf(const std::vector<unsigned char>& bytes,
                                 const std::string& label) {
    const std::string text(bytes.begin(), bytes.end());
    const std::string begin = "-----BEGIN " + label + "-----";
    const std::size_t start = text.find(begin);
    if (start == std::string::npos) {
        return bytes;
    }
    const std::size_t body = start + begin.size();
    const std::size_t end = text.find("-----END ", body);
    const std::string base64 = text.substr(body, end == std::string::npos ? end : end - body);
    qorstd::QorArray<unsigned char> der;
    TesseraLib::CryptUtils::Base64Decode(base64.c_str(), der);
    return std::vector<unsigned char>(der.GetData(), der.GetData() + der.GetSize());
}

// One line of the listing: label and value, as text or as a JSON member
// (an empty value is JSON null, `raw` values are written unquoted).
class Printer {
public:
    explicit Printer(bool json) : m_json(json), m_first(true) {
        if (m_json) {
            std::printf("{");
        }
    }
    void Field(const char* label, const std::string& value, const char* none = "(none)",
               bool raw = false) {
        if (!m_json) {
            std::printf("%-15s %s\n", (std::string(label) + ":").c_str(),
                        value.empty() ? none : value.c_str());
            return;
        }
        std::printf("%s\"%s\": %s", m_first ? "" : ", ", label,
                    value.empty() ? "null"
                    : raw         ? value.c_str()
                                  : JsonString(value).c_str());
        m_first = false;
    }
    void Finish() {
        if (m_json) {
            std::printf("}\n");
        }
    }

private:
    bool m_json;
    bool m_first;
};

}  // namespace

int RunCrl(const std::vector<std::string>& args) {
    std::vector<std::string> options;
    bool json = false;
    for (const std::string& arg : args) {
        if (arg == "--json") {
            json = true;
        } else {
            options.push_back(arg);
        }
    }
    const Arguments parsed = ParseArguments("crl", options, {"--cert"});
    if (!parsed.error.empty()) {
        return UsageError(parsed.error);
    }
    if (parsed.positional.size() != 1) {
        return UsageError("crl: exactly one CRL FILE is required");
    }
    std::vector<unsigned char> crlBytes;
    if (!ReadFile(parsed.positional[0], &crlBytes) || crlBytes.empty()) {
        std::fprintf(stderr, "tessera crl: cannot read %s\n", parsed.positional[0].c_str());
        return kExitFailure;
    }
    const std::string certPath = parsed.Get("--cert");
    std::vector<unsigned char> certBytes;
    if (!certPath.empty() && (!ReadFile(certPath, &certBytes) || certBytes.empty())) {
        std::fprintf(stderr, "tessera crl: cannot read %s\n", certPath.c_str());
        return kExitFailure;
    }

    // Decoding errors reach main(), which prints code and description.
    const std::vector<unsigned char> der = DerOf(crlBytes, "X509 CRL");
    const X509Crl crl(der.data(), static_cast<long>(der.size()));
    X509Certificate cert;
    if (!certPath.empty()) {
        const std::vector<unsigned char> certDer = DerOf(certBytes, "CERTIFICATE");
        cert.Import(certDer.data(), static_cast<long>(certDer.size()));
    }

    Printer out(json);
    out.Field("issuer", Narrow(crl.GetIssuerStringX500().c_str()));
    out.Field("version", std::to_string(crl.GetVersion() + 1), "", true);
    out.Field("thisUpdate", FormatUtc(crl.GetThisUpdate()));
    out.Field("nextUpdate", crl.GetNextUpdate() == X509Crl::kNoNextUpdate
                                ? std::string()
                                : FormatUtc(crl.GetNextUpdate()));
    out.Field("number", crl.GetCRLNumberDec().c_str());
    out.Field("authorityKeyId", crl.GetAuthorityKeyIdStringHex().c_str());
    out.Field("signature", crl.GetSignatureAlgorithmName().c_str());
    if (!certPath.empty()) {
        out.Field("serial", cert.GetSerialNumberStringHex().c_str());
        X509CrlItem item;
        if (crl.GetCrlItem(cert, item) == 1) {
            out.Field("status", "revoked");
            out.Field("revocationTime", FormatUtc(item.GetRevocationTime()));
            out.Field("reason", ReasonName(item.GetRevocationReason()));
        } else {
            out.Field("status", "not revoked");
        }
    }
    out.Finish();
    return kExitOk;
}

}  // namespace tessera_cli
