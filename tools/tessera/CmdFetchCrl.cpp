// Placeholder until the command lands.
#include <cstdio>

#include "Cli.h"

namespace tessera_cli {

int RunFetchCrl(const std::vector<std::string>& /*args*/) {
    std::fprintf(stderr, "tessera: not available yet\n");
    return kExitFailure;
}

}  // namespace tessera_cli
