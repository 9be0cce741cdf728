// tessera: the command-line face of libtessera.
#include <clocale>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <cwchar>
#include <exception>
#include <string>
#include <vector>

#include "Cli.h"
#include "Tessera.h"

namespace tessera_cli {

const std::vector<Command>& Commands() {
    static const std::vector<Command> commands = {
        {"help", "", "show the subcommands", RunHelp},
        {"version", "", "print the library's version text", RunVersion},
        {"errors", "", "list the error codes with their names and descriptions", RunErrors},
        {"hash", "[--alg sha256] FILE...", "print the digests of files, like sha256sum", RunHash},
        {"base64", "encode|decode [--crlf|--lf|--none] [IN [OUT]]",
         "Base64-encode or decode a file or standard input", RunBase64},
        {"keyinfo", "KEYFILE [--password P]", "show the type and size of a private key",
         RunKeyinfo},
        {"cert", "FILE [--json]", "show a certificate (DER or PEM)", RunCert},
        {"crl", "FILE [--cert CERT] [--json]", "show a CRL and the entry of a certificate", RunCrl},
        {"fetch-crl", "CERT [--out FILE] [--timeout SECONDS]",
         "download the CRL of a certificate from its distribution points", RunFetchCrl},
        {"timestamp", "--url URL [--hash sha256] [--out TOKEN] FILE",
         "ask a time-stamp authority for a token over FILE's digest", RunTimestamp},
        {"ocsp",
         "(--url URL | --client [--url URL]) --issuer ISSUER.pem --cert CERT.pem "
         "[--trust CA.pem] [--hash sha1] [--no-nonce] [--out RESPONSE.der]",
         "ask an OCSP responder for a certificate's status", RunOcsp},
        {"info", "SIG",
         "show what a CMS signature carries: content, certificates, CRLs, OCSP "
         "responses and signers",
         RunInfo},
        {"chain",
         "CERT --trust FILE... [--extra FILE...] [--crl FILE...] [--mode crl|ocsp|either] "
         "[--option none|end|chain|whole] [--fetch] [--time ISO8601] "
         "[--purpose smime|timestamp|none]",
         "build and check a certificate's path to a trust anchor, with revocation", RunChain},
        {"sign",
         "--cert CERT (--key KEY [--password P] | --p12 FILE --password P | --pkcs11 MODULE "
         "--key-id slot_X-id_Y --pin PIN) [--detached] [--no-attrs] "
         "[--include none|signer|chain|whole --trust FILE...] [--hash sha1|sha256|sha384|sha512] "
         "[--pem] IN OUT",
         "make a CMS signature of a file", RunSign},
        {"sign-digest", "SIGNER [--no-attrs] [--pem] --digest HEX OUT",
         "make a detached CMS signature over a digest of the content (signer options as for sign)",
         RunSignDigest},
        {"cosign", "SIGNER [--no-attrs] [--pem] [--content FILE] SIG OUT",
         "add a signer to a CMS signature (signer options as for sign)", RunCosign},
        {"estimate", "SIGNER [--detached] [--no-attrs] [--pem] IN [OUT]",
         "print the size of the signature sign would write, without signing", RunEstimate},
        {"verify",
         "SIG [--content FILE | --digest HEX] [--trust FILE... --extra FILE... --crl FILE... "
         "--mode crl|ocsp|either --fetch] [--time ISO8601] [--verify none|signer|chain]",
         "verify every signer of a CMS signature", RunVerify},
    };
    return commands;
}

std::string Narrow(const wchar_t* text) {
    if (text == nullptr) {
        return std::string();
    }
    std::mbstate_t state{};
    const wchar_t* source = text;
    const std::size_t length = std::wcsrtombs(nullptr, &source, 0, &state);
    if (length == static_cast<std::size_t>(-1)) {
        // Not representable in the terminal's encoding: keep what is ASCII.
        std::string ascii;
        for (const wchar_t* c = text; *c != L'\0'; ++c) {
            ascii.push_back(*c < 0x80 ? static_cast<char>(*c) : '?');
        }
        return ascii;
    }
    std::string narrow(length, '\0');
    source = text;
    state = std::mbstate_t{};
    std::wcsrtombs(&narrow[0], &source, length, &state);
    return narrow;
}

std::string Arguments::Get(const std::string& name, const std::string& fallback) const {
    const auto found = options.find(name);
    return found != options.end() && !found->second.empty() ? found->second.back() : fallback;
}

Arguments ParseArguments(const std::string& command, const std::vector<std::string>& args,
                         const std::set<std::string>& valued) {
    Arguments parsed;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (valued.count(arg) != 0) {
            if (i + 1 >= args.size()) {
                parsed.error = command + ": " + arg + " needs a value";
                return parsed;
            }
            parsed.options[arg].push_back(args[++i]);
        } else if (arg.size() > 1 && arg[0] == '-') {
            parsed.error = command + ": unknown option '" + arg + "'";
            return parsed;
        } else {
            parsed.positional.push_back(arg);
        }
    }
    return parsed;
}

int PrintError(const std::string& command, int code, const wchar_t* description,
               const wchar_t* message) {
    std::fprintf(stderr, "tessera %s: error %d: %s", command.c_str(), code,
                 Narrow(description).c_str());
    if (message != nullptr && message[0] != L'\0') {
        std::fprintf(stderr, " (%s)", Narrow(message).c_str());
    }
    std::fprintf(stderr, "\n");
    return kExitFailure;
}

std::string JsonString(const std::string& text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (c < 0x20 || c == 0x7F) {
                    char escaped[8];
                    std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
                    out += escaped;
                } else {
                    out.push_back(static_cast<char>(c));
                }
        }
    }
    return out + "\"";
}

const char* ReasonName(int reason) {
    static const char* const names[] = {
        "unspecified",   "keyCompromise",        "cACompromise",    "affiliationChanged",
        "superseded",    "cessationOfOperation", "certificateHold", "(7)",
        "removeFromCRL", "privilegeWithdrawn",   "aACompromise"};
    return reason >= 0 && reason <= 10 ? names[reason] : "none given";
}

std::string Hex(const unsigned char* data, std::size_t length) {
    static const char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(length * 2);
    for (std::size_t i = 0; i < length; ++i) {
        text.push_back(kDigits[data[i] >> 4]);
        text.push_back(kDigits[data[i] & 0x0f]);
    }
    return text;
}

bool ReadFile(const std::string& path, std::vector<unsigned char>* bytes) {
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        return false;
    }
    unsigned char buffer[65536];
    std::size_t got = 0;
    while ((got = std::fread(buffer, 1, sizeof(buffer), file)) > 0) {
        bytes->insert(bytes->end(), buffer, buffer + got);
    }
    const bool failed = std::ferror(file) != 0;
    std::fclose(file);
    return !failed;
}

std::string FormatUtc(long long seconds) {
    const std::time_t time = static_cast<std::time_t>(seconds);
    std::tm parts{};
    char text[64] = {0};
    if (gmtime_r(&time, &parts) == nullptr ||
        std::strftime(text, sizeof(text), "%d.%m.%Y %H:%M:%S UTC", &parts) == 0) {
        return std::to_string(seconds);
    }
    return text;
}

static void PrintUsage(std::FILE* out) {
    std::fprintf(out, "usage: tessera <command> [arguments]\n\ncommands:\n");
    for (const Command& command : Commands()) {
        const std::string head =
            std::string(command.name) + (command.synopsis[0] != '\0' ? " " : "") + command.synopsis;
        std::fprintf(out, "  %-34s %s\n", head.c_str(), command.summary);
    }
}

int UsageError(const std::string& problem) {
    std::fprintf(stderr, "tessera: %s\n\n", problem.c_str());
    PrintUsage(stderr);
    return kExitUsage;
}

int RunHelp(const std::vector<std::string>& /*args*/) {
    PrintUsage(stdout);
    return kExitOk;
}

}  // namespace tessera_cli

using namespace tessera_cli;

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    if (argc < 2) {
        return UsageError("no command given");
    }
    const std::string name = argv[1];
    const std::vector<std::string> args(argv + 2, argv + argc);
    for (const Command& command : Commands()) {
        if (name != command.name) {
            continue;
        }
        try {
            return command.run(args);
        } catch (const qorstd::QorException& e) {
            return PrintError(command.name, e.GetErrorCode(), e.GetErrorDescription().c_str(),
                              e.GetErrorMessage().c_str());
        } catch (const std::exception& e) {
            std::fprintf(stderr, "tessera %s: %s\n", command.name, e.what());
            return kExitFailure;
        }
    }
    return UsageError("unknown command '" + name + "'");
}
