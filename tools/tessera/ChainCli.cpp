// Certificates, CRLs and chain policies from command-line options.
#include "ChainCli.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <utility>

#include "CryptUtils.h"
#include "X509Crl.h"

namespace tessera_cli {

using TesseraLib::X509Certificate;
using TesseraLib::X509ChainPolicy;
using TesseraLib::X509Crl;
using TesseraLib::X509MemoryStore;

bool IsPem(const std::vector<unsigned char>& bytes) {
    static const char kBegin[] = "-----BEGIN";
    return std::search(bytes.begin(), bytes.end(), kBegin, kBegin + sizeof(kBegin) - 1) !=
           bytes.end();
}

std::vector<std::vector<unsigned char>> PemBlocks(const std::string& text,
                                                  const std::string& label) {
    std::vector<std::vector<unsigned char>> blocks;
    const std::string begin = "-----BEGIN " + label + "-----";
    const std::string end = "-----END " + label + "-----";
    std::size_t at = 0;
    while ((at = text.find(begin, at)) != std::string::npos) {
        const std::size_t body = at + begin.size();
        const std::size_t stop = text.find(end, body);
        if (stop == std::string::npos) {
            break;
        }
        qorstd::QorArray<unsigned char> der;
        TesseraLib::CryptUtils::Base64Decode(text.substr(body, stop - body).c_str(), der);
        blocks.emplace_back(der.GetData(), der.GetData() + der.GetSize());
        at = stop + end.size();
    }
    return blocks;
}

bool ParseUtc(const std::string& text, std::int64_t* seconds) {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, used = 0;
    if (std::sscanf(text.c_str(), "%4d-%2d-%2d%n", &year, &month, &day, &used) != 3 || used != 10) {
        return false;
    }
    std::string rest = text.substr(static_cast<std::size_t>(used));
    if (!rest.empty()) {
        used = 0;
        if (std::sscanf(rest.c_str(), "T%2d:%2d:%2d%n", &hour, &minute, &second, &used) != 3 ||
            used != 9) {
            return false;
        }
        rest = rest.substr(static_cast<std::size_t>(used));
        if (!rest.empty() && rest != "Z") {
            return false;
        }
    }
    if (year < 1970 || month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 ||
        second > 60) {
        return false;
    }
    std::tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    *seconds = static_cast<std::int64_t>(timegm(&parts));
    // timegm normalises 31 February into March: such a date was not a date.
    return parts.tm_mday == day && parts.tm_mon == month - 1;
}

bool ReadInputFile(const std::string& command, const std::string& path,
                   std::vector<unsigned char>* bytes, bool emptyOk) {
    if (!ReadFile(path, bytes) || (bytes->empty() && !emptyOk)) {
        std::fprintf(stderr, "tessera %s: cannot read %s\n", command.c_str(), path.c_str());
        return false;
    }
    return true;
}

namespace {

bool ReadCrlFile(const std::string& command, const std::string& path, X509MemoryStore* store) {
    std::vector<unsigned char> bytes;
    if (!ReadInputFile(command, path, &bytes)) {
        return false;
    }
    try {
        std::vector<std::vector<unsigned char>> blocks;
        if (IsPem(bytes)) {
            blocks = PemBlocks(std::string(bytes.begin(), bytes.end()), "X509 CRL");
            // Only the decoded blocks are needed while the CRLs are read.
            std::vector<unsigned char>().swap(bytes);
        } else {
            // The file's bytes themselves: a copy of a large CRL would stay
            // alive beside its decoded form.
            blocks.push_back(std::move(bytes));
        }
        if (blocks.empty()) {
            std::fprintf(stderr, "tessera %s: no CRL in %s\n", command.c_str(), path.c_str());
            return false;
        }
        for (const auto& der : blocks) {
            store->AddCrl(X509Crl(der.data(), static_cast<long>(der.size())));
        }
    } catch (...) {
        std::fprintf(stderr, "tessera %s: no CRL could be read from %s\n", command.c_str(),
                     path.c_str());
        throw;
    }
    return true;
}

const std::vector<std::string>& ValuesOf(const Arguments& parsed, const char* name) {
    static const std::vector<std::string> none;
    const auto found = parsed.options.find(name);
    return found != parsed.options.end() ? found->second : none;
}

}  // namespace

bool ReadCertificateFile(const std::string& command, const std::string& path,
                         std::vector<X509Certificate>* out) {
    std::vector<unsigned char> bytes;
    if (!ReadInputFile(command, path, &bytes)) {
        return false;
    }
    const std::size_t before = out->size();
    try {
        if (IsPem(bytes)) {
            const std::string text(bytes.begin(), bytes.end());
            X509MemoryStore parsed;
            parsed.ImportPEM(text.c_str());
            const qorstd::QorVector<X509Certificate> certs = parsed.GetCertificates();
            for (unsigned int i = 0; i < certs.GetSize(); ++i) {
                out->push_back(certs[i]);
            }
        } else {
            X509Certificate cert;
            cert.Import(bytes.data(), static_cast<long>(bytes.size()));
            out->push_back(cert);
        }
    } catch (...) {
        std::fprintf(stderr, "tessera %s: no certificate could be read from %s\n", command.c_str(),
                     path.c_str());
        throw;
    }
    if (out->size() == before) {
        std::fprintf(stderr, "tessera %s: no certificate in %s\n", command.c_str(), path.c_str());
        return false;
    }
    return true;
}

int ReadPathSetup(const std::string& command, const Arguments& parsed, bool fetch,
                  PathSetup* setup) {
    setup->fetch = fetch;
    setup->verifyTime = static_cast<std::int64_t>(std::time(nullptr));
    const std::string timeText = parsed.Get("--time");
    if (!timeText.empty() && !ParseUtc(timeText, &setup->verifyTime)) {
        return UsageError(command + ": --time takes a UTC time such as 2024-06-01T12:00:00Z");
    }
    const std::string mode = parsed.Get("--mode", "crl");
    if (mode == "ocsp") {
        setup->revocationMode = X509ChainPolicy::revOcsp;
    } else if (mode == "either") {
        setup->revocationMode = X509ChainPolicy::revOcspOrCrl;
    } else if (mode == "crl") {
        setup->revocationMode = X509ChainPolicy::revCrl;
    } else {
        return UsageError(command + ": --mode must be crl, ocsp or either");
    }
    for (const char* option : {"--trust", "--extra"}) {
        X509MemoryStore& store =
            std::string(option) == "--trust" ? setup->trustStore : setup->extraStore;
        for (const std::string& path : ValuesOf(parsed, option)) {
            std::vector<X509Certificate> certs;
            if (!ReadCertificateFile(command, path, &certs)) {
                return kExitFailure;
            }
            for (const X509Certificate& cert : certs) {
                store.AddCertificate(cert);
            }
        }
    }
    for (const std::string& path : ValuesOf(parsed, "--crl")) {
        if (!ReadCrlFile(command, path, &setup->extraStore)) {
            return kExitFailure;
        }
    }
    return kExitOk;
}

void ApplyPathSetup(PathSetup& setup, X509ChainPolicy* policy) {
    policy->SetRevocationMode(setup.revocationMode);
    policy->SetRevocationOption(X509ChainPolicy::revOptionChain);
    policy->SetPurpose(X509ChainPolicy::kPurposeSmimeSign);
    int buildMode = X509ChainPolicy::cptChainBuildStores;
    if (setup.fetch) {
        buildMode |= X509ChainPolicy::cptChainBuildClients;
        policy->SetCrlClient(&setup.crlClient);
        policy->SetOcspClient(&setup.ocspClient);
    }
    policy->SetChainBuildMode(static_cast<X509ChainPolicy::cptChainBuildMode>(buildMode));
}

int BuildChainSetup(const std::string& command, const Arguments& parsed, bool fetch,
                    ChainSetup* setup) {
    const int status = ReadPathSetup(command, parsed, fetch, setup);
    if (status != kExitOk) {
        return status;
    }
    setup->policy.SetTrustStore(&setup->trustStore);
    setup->policy.SetExtraStore(&setup->extraStore);
    ApplyPathSetup(*setup, &setup->policy);
    return kExitOk;
}

bool TakeFetchFlag(std::vector<std::string>* args) {
    return TakeFlag(args, "--fetch");
}

}  // namespace tessera_cli
