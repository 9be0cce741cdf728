// tessera: the command-line face of libtessera.
#include <clocale>
#include <cstdio>
#include <cstring>
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
        {"timestamp", "--url URL [--hash sha256] [--out TOKEN] FILE",
         "ask a time-stamp authority for a token over FILE's digest", RunTimestamp},
        {"ocsp", "--url URL --issuer ISSUER.pem --cert CERT.pem [--trust CA.pem]",
         "ask an OCSP responder for a certificate's status", RunOcsp},
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
            std::fprintf(stderr, "tessera %s: error %d: %s", command.name, e.GetErrorCode(),
                         Narrow(e.GetErrorDescription().c_str()).c_str());
            if (!e.GetErrorMessage().empty()) {
                std::fprintf(stderr, " (%s)", Narrow(e.GetErrorMessage().c_str()).c_str());
            }
            std::fprintf(stderr, "\n");
            return kExitFailure;
        } catch (const std::exception& e) {
            std::fprintf(stderr, "tessera %s: %s\n", command.name, e.what());
            return kExitFailure;
        }
    }
    return UsageError("unknown command '" + name + "'");
}
