#include "TestServers.h"

#include <cstdlib>
#include <fstream>

namespace tessera_test {

std::string ServerDir(const std::string& name) {
    const char* root = std::getenv("TESSERA_TEST_SERVERS");
    if (root == nullptr || *root == '\0') {
        return std::string();
    }
    return std::string(root) + "/" + name;
}

std::string ServerFile(const std::string& name, const std::string& file) {
    const std::string dir = ServerDir(name);
    if (dir.empty()) {
        return std::string();
    }
    std::ifstream in(dir + "/" + file);
    std::string line;
    std::getline(in, line);
    return line;
}

}  // namespace tessera_test
