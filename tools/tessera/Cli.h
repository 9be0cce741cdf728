// Shared pieces of the tessera command-line tool.
#pragma once

#include <string>
#include <vector>

namespace tessera_cli {

// Exit codes: 0 success, 1 a failed operation, 2 a usage error.
enum ExitCode { kExitOk = 0, kExitFailure = 1, kExitUsage = 2 };

struct Command {
    const char* name;
    const char* synopsis;  // arguments, shown by `tessera help`
    const char* summary;   // one line
    int (*run)(const std::vector<std::string>& args);
};

// Every subcommand, in the order `tessera help` lists them.
const std::vector<Command>& Commands();

// Prints the usage text to stderr and returns kExitUsage.
int UsageError(const std::string& problem);

// Wide text to the terminal's encoding.
std::string Narrow(const wchar_t* text);

// Subcommand entry points.
int RunHelp(const std::vector<std::string>& args);
int RunVersion(const std::vector<std::string>& args);
int RunErrors(const std::vector<std::string>& args);
int RunTimestamp(const std::vector<std::string>& args);
int RunOcsp(const std::vector<std::string>& args);

}  // namespace tessera_cli
