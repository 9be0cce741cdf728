// tessera hash [--alg sha256] FILE...
//
// Streams each file (standard input for "-" or when no FILE is given) through
// CryptHash in large blocks and prints "<hex>  <name>" lines exactly as
// sha256sum does, so that the output can be compared or checked with it.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Cli.h"
#include "CryptHash.h"

namespace tessera_cli {

namespace {

using TesseraLib::CryptHash;

// Large enough that the per-call cost of read(2) and Update vanishes next to
// the hashing itself.
constexpr std::size_t kBlockSize = 1u << 20;

struct FdClose {
    int fd;
    ~FdClose() {
        if (fd > STDIN_FILENO) {
            ::close(fd);
        }
    }
};

// Hashes everything readable from `fd`; false with errno set on a read error.
bool HashStream(int fd, CryptHash& hash, unsigned char* block) {
    for (;;) {
        const ssize_t got = ::read(fd, block, kBlockSize);
        if (got == 0) {
            return true;
        }
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        hash.Update(block, static_cast<unsigned int>(got));
    }
}

// sha256sum's line: a name holding a backslash, CR or LF is written escaped,
// and the line then starts with a backslash.
std::string FormatLine(const qorstd::QorArray<unsigned char>& digest, const std::string& name) {
    std::string escaped;
    bool escape = false;
    for (char c : name) {
        switch (c) {
            case '\\':
                escaped += "\\\\";
                escape = true;
                break;
            case '\n':
                escaped += "\\n";
                escape = true;
                break;
            case '\r':
                escaped += "\\r";
                escape = true;
                break;
            default:
                escaped += c;
        }
    }
    const std::string line = escape ? "\\" : "";
    return line + Hex(digest.GetData(), digest.GetSize()) + "  " + escaped + "\n";
}

}  // namespace

int RunHash(const std::vector<std::string>& args) {
    const Arguments parsed = ParseArguments("hash", args, {"--alg"});
    if (!parsed.error.empty()) {
        return UsageError(parsed.error);
    }
    // An unknown name is the library's refusal (ErrAlgorithmNotSupported).
    const CryptHash::cptHashAlgorithm algorithm =
        CryptHash::GetHashAlgorithmByName(parsed.Get("--alg", "sha256").c_str());
    std::vector<std::string> names = parsed.positional;
    if (names.empty()) {
        names.push_back("-");
    }

    std::unique_ptr<unsigned char[]> block(new unsigned char[kBlockSize]);
    CryptHash hash(algorithm);
    qorstd::QorArray<unsigned char> digest;
    int status = kExitOk;
    for (const std::string& name : names) {
        const bool standardInput = name == "-";
        const FdClose file{standardInput ? STDIN_FILENO
                                         : ::open(name.c_str(), O_RDONLY | O_CLOEXEC)};
        if (file.fd < 0) {
            std::fprintf(stderr, "tessera hash: %s: %s\n", name.c_str(), std::strerror(errno));
            status = kExitFailure;
            continue;
        }
        ::posix_fadvise(file.fd, 0, 0, POSIX_FADV_SEQUENTIAL);
        hash.Reset();
        if (!HashStream(file.fd, hash, block.get())) {
            std::fprintf(stderr, "tessera hash: %s: %s\n", name.c_str(), std::strerror(errno));
            status = kExitFailure;
            continue;
        }
        hash.Finish(digest);
        const std::string line = FormatLine(digest, name);
        std::fwrite(line.data(), 1, line.size(), stdout);
    }
    if (std::fflush(stdout) != 0) {
        std::fprintf(stderr, "tessera hash: cannot write the output\n");
        return kExitFailure;
    }
    return status;
}

}  // namespace tessera_cli
