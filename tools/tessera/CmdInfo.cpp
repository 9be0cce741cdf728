// tessera version | errors
#include <cstdio>

#include "Cli.h"
#include "Tessera.h"

namespace tessera_cli {

int RunVersion(const std::vector<std::string>& args) {
    if (!args.empty()) {
        return UsageError("version takes no arguments");
    }
    qorstd::QorStringW text;
    if (Tessera_GetVersionString(&text) == 0) {
        std::fprintf(stderr, "tessera version: the library gave no version text\n");
        return kExitFailure;
    }
    std::printf("%s\n", Narrow(text.c_str()).c_str());
    return kExitOk;
}

int RunErrors(const std::vector<std::string>& args) {
    if (!args.empty()) {
        return UsageError("errors takes no arguments");
    }
    qorstd::QorVector<int> codes = TesseraLib::CryptException::GetErrorCodes();
    for (unsigned int i = 0; i < codes.GetSize(); ++i) {
        const int code = codes[i];
        std::printf("%d  %-36s %s\n", code,
                    TesseraLib::CryptException::GetErrorCodeName(code).c_str(),
                    Narrow(TesseraLib::CryptException::DescribeErrorCode(code).c_str()).c_str());
    }
    return kExitOk;
}

}  // namespace tessera_cli
