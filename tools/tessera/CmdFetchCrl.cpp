// tessera fetch-crl CERT [--out FILE] [--timeout SECONDS]
// tessera fetch-crl CERT --own-http [--proxy URL --proxy-user U --proxy-password P] [--url URL]
//
// Walks the certificate's CRL distribution points (http:// names) with the
// libcurl client, or with the library's own HTTP client (--own-http, which
// also goes through proxies and can fetch one --url instead of the points),
// and shows the CRL it obtains: URL, issuer, thisUpdate, nextUpdate and CRL
// number; --out writes the CRL's DER. When no point delivers, the failure of
// the last point is printed (code and description).
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

// An online client, remembering the URL that delivered and the failure of
// the last URL that did not (the walk itself only logs failures).
template <class Client>
class RecordingClient : public Client {
public:
    X509Crl* GetCrl(const X509Certificate& cert) override { return Client::GetCrl(cert); }
    X509Crl* GetCrl(const wchar_t* url) override {
        try {
            qorstd::QorArray<unsigned char> bytes;
            // The own client keeps its transport private; the base offers it.
            static_cast<const TesseraLib::X509CrlClientOnline&>(*this).GetCrlEncoded(url, bytes);
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

// Walks the certificate's points, or fetches `url` when given; the outcome is
// left in the client.
template <class Client>
void Fetch(RecordingClient<Client>& client, const X509Certificate& cert, const std::string& url) {
    if (url.empty()) {
        client.GetCrl(cert);
        return;
    }
    try {
        client.GetCrl(std::wstring(url.begin(), url.end()).c_str());
    } catch (const CryptException&) {
        // Recorded in the client.
    }
}

template <class Client>
int Show(RecordingClient<Client>& client, const std::string& out);

}  // namespace

int RunFetchCrl(const std::vector<std::string>& args) {
    std::vector<std::string> options(args);
    bool ownHttp = false;
    for (auto it = options.begin(); it != options.end();) {
        if (*it == "--own-http") {
            ownHttp = true;
            it = options.erase(it);
        } else {
            ++it;
        }
    }
    const Arguments parsed = ParseArguments(
        "fetch-crl", options,
        {"--out", "--timeout", "--proxy", "--proxy-user", "--proxy-password", "--url"});
    if (!parsed.error.empty()) {
        return UsageError(parsed.error);
    }
    if (parsed.positional.size() != 1) {
        return UsageError("fetch-crl: exactly one certificate file is required");
    }
    for (const char* ownOnly : {"--proxy", "--proxy-user", "--proxy-password", "--url"}) {
        if (!ownHttp && parsed.options.count(ownOnly) != 0) {
            return UsageError(std::string("fetch-crl: ") + ownOnly + " needs --own-http");
        }
    }
    if (ownHttp && parsed.options.count("--timeout") != 0) {
        return UsageError("fetch-crl: the own HTTP client has no --timeout");
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

    const std::string out = parsed.Get("--out");
    if (ownHttp) {
        RecordingClient<TesseraLib::X509QorCrlClientOnline> client;
        const std::string proxy = parsed.Get("--proxy");
        if (!proxy.empty()) {
            const std::string user = parsed.Get("--proxy-user");
            const std::string password = parsed.Get("--proxy-password");
            client.SetUseProxy(1);
            client.SetProxyAddress(std::wstring(proxy.begin(), proxy.end()).c_str());
            client.SetProxyUserName(std::wstring(user.begin(), user.end()).c_str());
            client.SetProxyPassword(std::wstring(password.begin(), password.end()).c_str());
        }
        Fetch(client, cert, parsed.Get("--url"));
        return Show(client, out);
    }
    RecordingClient<TesseraLib::X509CurlCrlClientOnline> client;
    client.SetTimeout(timeout);
    Fetch(client, cert, "");
    return Show(client, out);
}

namespace {

template <class Client>
int Show(RecordingClient<Client>& client, const std::string& out) {
    if (client.crl == nullptr) {
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

}  // namespace

}  // namespace tessera_cli
