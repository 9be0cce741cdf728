// tessera: the command-line face of libtessera.
#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <cwchar>
#include <exception>
#include <string>
#include <vector>

#include "Cli.h"
#include "CrlException.h"
#include "OcspException.h"
#include "QorException.h"
#include "TspException.h"

namespace tessera_cli {

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

bool TakeFlag(std::vector<std::string>* args, const std::string& flag) {
    const auto end = std::remove(args->begin(), args->end(), flag);
    const bool given = end != args->end();
    args->erase(end, args->end());
    return given;
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

namespace {

int PrintCoded(const std::string& command, int code, const std::string& description,
               const std::string& message) {
    std::fprintf(stderr, "tessera %s: error %d: %s", command.c_str(), code, description.c_str());
    if (!message.empty()) {
        std::fprintf(stderr, " (%s)", message.c_str());
    }
    std::fprintf(stderr, "\n");
    return kExitFailure;
}

// The code, description and message of an exception of any family: they
// agree on these three accessors, not on a base class.
template <class Exception>
void Describe(const Exception& e, Failure* failure) {
    failure->coded = true;
    failure->code = e.GetErrorCode();
    failure->description = Narrow(e.GetErrorDescription().c_str());
    failure->message = Narrow(e.GetErrorMessage().c_str());
}

}  // namespace

int PrintError(const std::string& command, int code, const wchar_t* description,
               const wchar_t* message) {
    return PrintCoded(command, code, Narrow(description), Narrow(message));
}

// One catch per exception family, so that no command can forget one. Tessera's
// own exceptions and the PKCS#11 wrapper's derive from qorstd::QorException.
bool RunCatching(const std::function<void()>& action, Failure* failure) {
    try {
        action();
        return true;
    } catch (const qorstd::QorException& e) {
        Describe(e, failure);
    } catch (const QorTsp2Lib::TspException& e) {
        Describe(e, failure);
    } catch (const QorOcsp2Lib::OcspException& e) {
        Describe(e, failure);
    } catch (const QorGetOneCrlLib::CrlException& e) {
        Describe(e, failure);
    } catch (const std::exception& e) {
        failure->text = e.what();
    } catch (...) {
        failure->text = "failed with an exception of unknown type";
    }
    return false;
}

int PrintFailure(const std::string& command, const Failure& failure) {
    if (failure.coded) {
        return PrintCoded(command, failure.code, failure.description, failure.message);
    }
    std::fprintf(stderr, "tessera %s: %s\n", command.c_str(), failure.text.c_str());
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

std::string JsonArray(const std::vector<std::string>& items) {
    std::string out = "[";
    for (std::size_t i = 0; i < items.size(); ++i) {
        out += (i == 0 ? "" : ", ") + JsonString(items[i]);
    }
    return out + "]";
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

int ReadShownFile(const std::string& command, const std::vector<std::string>& args,
                  std::vector<unsigned char>* bytes, bool* json) {
    // --json is a flag; everything else goes through the common parser.
    *json = false;
    std::vector<std::string> rest;
    for (const std::string& arg : args) {
        if (arg == "--json") {
            *json = true;
        } else {
            rest.push_back(arg);
        }
    }
    const Arguments parsed = ParseArguments(command, rest, {});
    if (!parsed.error.empty()) {
        return UsageError(parsed.error);
    }
    if (parsed.positional.size() != 1) {
        return UsageError(command + ": exactly one FILE is required");
    }
    const std::string& path = parsed.positional[0];
    if (!ReadFile(path, bytes) || bytes->empty()) {
        std::fprintf(stderr, "tessera %s: cannot read %s\n", command.c_str(), path.c_str());
        return kExitFailure;
    }
    return 0;
}

int UsageError(const std::string& problem) {
    std::fprintf(stderr, "tessera: %s\n\n", problem.c_str());
    PrintUsage(stderr);
    return kExitUsage;
}

}  // namespace tessera_cli

using namespace tessera_cli;

namespace {

// Runs a subcommand, or prints its help when any argument asks for it. Every
// failure the command lets escape is reported here.
int RunCommand(const Command& command, const std::vector<std::string>& args) {
    for (const std::string& arg : args) {
        if (arg == "--help") {
            PrintCommandHelp(command, stdout);
            return kExitOk;
        }
    }
    int status = kExitFailure;
    Failure failure;
    if (!RunCatching([&] { status = command.run(args); }, &failure)) {
        return PrintFailure(command.name, failure);
    }
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    if (argc < 2) {
        return UsageError("no command given");
    }
    const std::string name = argv[1];
    const Command* command = FindCommand(name);
    if (command == nullptr) {
        return UsageError("unknown command '" + name + "'");
    }
    return RunCommand(*command, std::vector<std::string>(argv + 2, argv + argc));
}
