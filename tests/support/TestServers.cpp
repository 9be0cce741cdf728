#include "TestServers.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/evp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <vector>

#include "TestPki.h"

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

void PublishToCrlService(X509_CRL* crl, std::int64_t thisUpdate) {
    unsigned char* name = nullptr;
    const int length = i2d_X509_NAME(X509_CRL_get_issuer(crl), &name);
    std::vector<unsigned char> text(4 * (static_cast<std::size_t>(length) + 2) / 3 + 1);
    const int written = EVP_EncodeBlock(text.data(), name, length);
    OPENSSL_free(name);
    std::string key(text.begin(), text.begin() + written);
    for (char& c : key) {
        c = c == '+' ? '-' : c == '/' ? '_' : c;
    }
    const std::vector<unsigned char> der = CrlToDer(crl);
    WriteTextFile(ServerDir("crlservice") + "/root/" + key.substr(0, key.find('=')) + "." +
                      std::to_string(thisUpdate) + ".der",
                  std::string(der.begin(), der.end()));
}

int FreeLoopbackPort() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    close(fd);
    return ntohs(address.sin_port);
}

}  // namespace tessera_test
