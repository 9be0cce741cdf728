// Shared pieces of the tessera command-line tool.
#pragma once

#include <cstddef>
#include <cstdio>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace tessera_cli {

// Exit codes: 0 success, 1 a failed operation, 2 a usage error.
enum ExitCode { kExitOk = 0, kExitFailure = 1, kExitUsage = 2 };

struct Command {
    const char* name;
    const char* synopsis;  // the arguments; help wraps it at kHelpWidth
    const char* summary;   // what the command does, in a sentence or two
    std::string options;   // one "OPTION\tEXPLANATION" per line
    std::string examples;  // whole command lines, one per line
    int (*run)(const std::vector<std::string>& args);
};

// No line of a help text is wider.
constexpr std::size_t kHelpWidth = 100;

// Every subcommand, in the order `tessera help` lists them.
const std::vector<Command>& Commands();

// The subcommand called `name`, or null.
const Command* FindCommand(const std::string& name);

// The list of subcommands, each synopsis with its summary below it.
void PrintUsage(std::FILE* out);

// One subcommand's synopsis, summary, options and examples.
void PrintCommandHelp(const Command& command, std::FILE* out);

// Prints the usage text to stderr and returns kExitUsage.
int UsageError(const std::string& problem);

// What a failed call threw, as the tool reports it. The library and the
// libraries beside it throw exception families without a common base; each
// has a code, a description of the code and a message.
struct Failure {
    bool coded = false;  // one of the families; otherwise only `text` is set
    int code = 0;
    std::string description;
    std::string message;
    std::string text;  // what() of a standard exception, or a fixed text
};

// Runs `action`; true when it returned, false with `failure` filled when it
// threw anything at all.
bool RunCatching(const std::function<void()>& action, Failure* failure);

// Prints "tessera COMMAND: error CODE: DESCRIPTION (MESSAGE)", or
// "tessera COMMAND: TEXT" for a failure without a code, to stderr and
// returns kExitFailure.
int PrintFailure(const std::string& command, const Failure& failure);

// "--name value" options and positional arguments of a subcommand.
struct Arguments {
    std::map<std::string, std::vector<std::string>> options;  // every value, in order
    std::vector<std::string> positional;
    std::string error;  // non-empty when the arguments are malformed

    // The last value of an option, or `fallback`.
    std::string Get(const std::string& name, const std::string& fallback = "") const;
};

// Options named in `valued` take the next argument as their value; any other
// argument starting with "-" is an error.
Arguments ParseArguments(const std::string& command, const std::vector<std::string>& args,
                         const std::set<std::string>& valued);

// Takes every occurrence of the flag `flag` (an option without a value) out
// of `args`, leaving the rest for ParseArguments; whether it was given.
bool TakeFlag(std::vector<std::string>* args, const std::string& flag);

// Prints "tessera COMMAND: error CODE: DESCRIPTION (MESSAGE)" to stderr and
// returns kExitFailure.
int PrintError(const std::string& command, int code, const wchar_t* description,
               const wchar_t* message);

// `text` as a JSON string: quotes, backslashes and control characters
// escaped, other bytes (UTF-8) passed through.
std::string JsonString(const std::string& text);

// The texts as a JSON array of strings, on one line.
std::string JsonArray(const std::vector<std::string>& items);

// The name of a CRL reason code (RFC 5280), "none given" for -1.
const char* ReasonName(int reason);

// Two lower-case hexadecimal digits per byte.
std::string Hex(const unsigned char* data, std::size_t length);

// The whole content of a file; false when it cannot be read.
bool ReadFile(const std::string& path, std::vector<unsigned char>* bytes);
// The arguments of a command that shows one FILE [--json]: reads the file
// into `bytes` and sets `json`. 0 when both worked, else the exit code to
// return (a usage error, or a file that cannot be read).
int ReadShownFile(const std::string& command, const std::vector<std::string>& args,
                  std::vector<unsigned char>* bytes, bool* json);

// Seconds since 1970 as "%d.%m.%Y %H:%M:%S UTC".
std::string FormatUtc(long long seconds);

// Wide text to the terminal's encoding.
std::string Narrow(const wchar_t* text);

// Subcommand entry points.
int RunHelp(const std::vector<std::string>& args);
int RunVersion(const std::vector<std::string>& args);
int RunErrors(const std::vector<std::string>& args);
int RunTimestamp(const std::vector<std::string>& args);
int RunOcsp(const std::vector<std::string>& args);
int RunHash(const std::vector<std::string>& args);
int RunBase64(const std::vector<std::string>& args);
int RunKeyinfo(const std::vector<std::string>& args);
int RunCert(const std::vector<std::string>& args);
int RunCrl(const std::vector<std::string>& args);
int RunFetchCrl(const std::vector<std::string>& args);
int RunChain(const std::vector<std::string>& args);
int RunInfo(const std::vector<std::string>& args);
int RunPolicy(const std::vector<std::string>& args);
int RunVerify(const std::vector<std::string>& args);
int RunSign(const std::vector<std::string>& args);
int RunSignDigest(const std::vector<std::string>& args);
int RunCosign(const std::vector<std::string>& args);
int RunEstimate(const std::vector<std::string>& args);
int RunUpgrade(const std::vector<std::string>& args);
int RunExtend(const std::vector<std::string>& args);
int RunValidate(const std::vector<std::string>& args);
int RunStore(const std::vector<std::string>& args);

}  // namespace tessera_cli
