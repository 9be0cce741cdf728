// Placeholder until the client lands.
#include <cstdio>

#include "Cli.h"

namespace tessera_cli {

int RunTimestamp(const std::vector<std::string>& /*args*/) {
    std::fprintf(stderr, "tessera: not available yet\n");
    return kExitFailure;
}

}  // namespace tessera_cli
