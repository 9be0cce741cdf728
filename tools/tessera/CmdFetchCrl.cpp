// tessera fetch-crl CERT [--out FILE] [--timeout SECONDS]
//
// Walks the certificate's CRL distribution points (http:// names) with the
// libcurl client and shows the CRL it obtains: URL, issuer, thisUpdate,
// nextUpdate and CRL number; --out writes the CRL's DER. When no point
// delivers, the failure of the last point is printed (code and description).
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "Cli.h"
#include "CryptException.h"
#include "CryptUtils.h"
#include "X509Certificate.h"
#include "X509Crl.h"
#include "X509CrlClient.h"

namespace tessera_cli {

namespace {

using TesseraLib::CryptException;
using TesseraLib::X509Certificate;
using TesseraLib::X509Crl;

// The libcurl client, remembering the URL that delivered and the failure of
// the last URL that did not (the walk itself only logs failures).
class RecordingCurlClient : public TesseraLib::X509CurlCrlClientOnline {
public:
    X509Crl* GetCrl(const X509Certificate& cert) override {
        return X509CurlCrlClientOnline::GetCrl(cert);
    }
    X509Crl* GetCrl(const wchar_t* url) override {
        try {
            qorstd::QorArray<unsigned char> bytes;
            GetCrlEncoded(url, bytes);
            if (bytes.GetSize() == 0) {
                CryptException::Throw(TesseraLib::ErrCrlServiceBadResponse, L"empty answer");
            }
            crl = std::make_unique<X509Crl>(bytes.GetData(), static_cast<long>(bytes.GetSize()));
            source = url;
            return crl.get();
        } catch (const CryptException& e) {
            failure = std::make_unique<CryptException>(e);
            failedUrl = url;
            throw;
        }
    }

    std::unique_ptr<X509Crl> crl;
    std::unique_ptr<CryptException> failure;
    std::wstring source;
    std::wstring failedUrl;
};

bool WriteFile(const std::string& path, const qorstd::QorArray<unsigned char>& bytes) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        return false;
    }
    const bool written = std::fwrite(bytes.GetData(), 1, bytes.GetSize(), file) == bytes.GetSize();
    return std::fclose(file) == 0 && written;
}

}  // namespace

int RunFetchCrl(const std::vector<std::string>& args) {
    const Arguments parsed = ParseArguments("fetch-crl", args, {"--out", "--timeout"});
    if (!parsed.error.empty()) {
        return UsageError(parsed.error);
    }
    if (parsed.positional.size() != 1) {
        return UsageError("fetch-crl: exactly one certificate file is required");
    }
    long timeout = 0;
    const std::string timeoutText = parsed.Get("--timeout");
    if (!timeoutText.empty()) {
        char* end = nullptr;
        timeout = std::strtol(timeoutText.c_str(), &end, 10);
        if (*end != '\0' || timeout < 0) {
            return UsageError("fetch-crl: --timeout takes a number of seconds");
        }
    }
    std::vector<unsigned char> bytes;
    if (!ReadFile(parsed.positional[0], &bytes) || bytes.empty()) {
        std::fprintf(stderr, "tessera fetch-crl: cannot read %s\n", parsed.positional[0].c_str());
        return kExitFailure;
    }
    X509Certificate cert;
    const std::string text(bytes.begin(), bytes.end());
    if (text.find("-----BEGIN CERTIFICATE-----") != std::string::npos) {
        cert.ImportPEM(text.c_str());
    } else {
        cert.Import(bytes.data(), static_cast<long>(bytes.size()));
    }

    RecordingCurlClient client;
    client.SetTimeout(timeout);
    if (client.GetCrl(cert) == nullptr) {
        if (client.failure) {
            std::fprintf(stderr, "tessera fetch-crl: %s failed\n",
                         Narrow(client.failedUrl.c_str()).c_str());
            return PrintError("fetch-crl", client.failure->GetErrorCode(),
                              client.failure->GetErrorDescription().c_str(),
                              client.failure->GetErrorMessage().c_str());
        }
        std::fprintf(stderr, "tessera fetch-crl: no http:// CRL distribution point\n");
        return kExitFailure;
    }
    const X509Crl& crl = *client.crl;
    const std::string out = parsed.Get("--out");
    if (!out.empty() && !WriteFile(out, crl.Export())) {
        std::fprintf(stderr, "tessera fetch-crl: cannot write %s\n", out.c_str());
        return kExitFailure;
    }
    const std::string number = crl.GetCRLNumberDec().c_str();
    std::printf("%-11s %s\n", "url:", Narrow(client.source.c_str()).c_str());
    std::printf("%-11s %s\n", "issuer:", Narrow(crl.GetIssuerStringX500().c_str()).c_str());
    std::printf("%-11s %s\n", "thisUpdate:", FormatUtc(crl.GetThisUpdate()).c_str());
    std::printf("%-11s %s\n", "nextUpdate:",
                crl.GetNextUpdate() == X509Crl::kNoNextUpdate
                    ? "(none)"
                    : FormatUtc(crl.GetNextUpdate()).c_str());
    std::printf("%-11s %s\n", "number:", number.empty() ? "(none)" : number.c_str());
    return kExitOk;
}

}  // namespace tessera_cli
