// tessera base64 encode|decode [--crlf|--lf|--none] [IN [OUT]]
//
// Encodes or decodes with the library's codec; IN and OUT default to standard
// input and output ("-" names them too). Encoded text has LF line breaks
// after every 76 characters unless --crlf or --none says otherwise, and ends
// with a line break unless --none is given (as `base64 -w 76` and
// `base64 -w 0` write it).
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Cli.h"
#include "CryptUtils.h"

namespace tessera_cli {

namespace {

using TesseraLib::CryptUtils;

// Whole lines (57 bytes give 76 characters), so that encoding block by block
// gives the same text as encoding everything at once. Small enough that the
// codec's working copy is reused from the heap instead of being mapped and
// faulted in afresh for every block.
constexpr std::size_t kEncodeBlock = 57 * 1024;

struct Input {
    int fd = -1;
    ~Input() {
        if (fd > STDIN_FILENO) {
            ::close(fd);
        }
    }
};

struct FileClose {
    void operator()(std::FILE* file) const {
        if (file != stdout) {
            std::fclose(file);
        }
    }
};
using OutputPtr = std::unique_ptr<std::FILE, FileClose>;

// Fills `buffer` unless the input ends first; returns the count, or -1 on a
// read error.
long ReadFull(int fd, unsigned char* buffer, std::size_t size) {
    std::size_t filled = 0;
    while (filled < size) {
        const ssize_t got = ::read(fd, buffer + filled, size - filled);
        if (got == 0) {
            break;
        }
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            return -1;
        }
        filled += static_cast<std::size_t>(got);
    }
    return static_cast<long>(filled);
}

int Fail(const std::string& what, const std::string& name) {
    std::fprintf(stderr, "tessera base64: %s %s: %s\n", what.c_str(), name.c_str(),
                 std::strerror(errno));
    return kExitFailure;
}

bool Write(std::FILE* out, const void* data, std::size_t size) {
    return std::fwrite(data, 1, size, out) == size;
}

OutputPtr OpenOutput(const std::string& name) {
    return OutputPtr(name == "-" ? stdout : std::fopen(name.c_str(), "wb"));
}

int Encode(int in, const std::string& inName, const std::string& outName,
           CryptUtils::cptLineBreakType lineBreak) {
    const OutputPtr out = OpenOutput(outName);
    if (!out) {
        return Fail("cannot open", outName);
    }
    const char* separator = lineBreak == CryptUtils::cptLineBreakCrLf ? "\r\n"
                            : lineBreak == CryptUtils::cptLineBreakLf ? "\n"
                                                                      : "";
    std::unique_ptr<unsigned char[]> block(new unsigned char[kEncodeBlock]);
    qorstd::QorString text;  // reused: clearing keeps its storage
    bool wroteAny = false;
    for (;;) {
        const long got = ReadFull(in, block.get(), kEncodeBlock);
        if (got < 0) {
            return Fail("cannot read", inName);
        }
        if (got == 0) {
            break;
        }
        text.clear();
        CryptUtils::Base64Encode(block.get(), static_cast<unsigned int>(got), text, lineBreak);
        if ((wroteAny && !Write(out.get(), separator, std::strlen(separator))) ||
            !Write(out.get(), text.c_str(), text.length())) {
            return Fail("cannot write", outName);
        }
        wroteAny = true;
        if (static_cast<std::size_t>(got) < kEncodeBlock) {
            break;
        }
    }
    if ((wroteAny && !Write(out.get(), separator, std::strlen(separator))) ||
        std::fflush(out.get()) != 0) {
        return Fail("cannot write", outName);
    }
    return kExitOk;
}

int Decode(int in, const std::string& inName, const std::string& outName) {
    // The codec decides at the end of the text whether it is valid, and
    // nothing may be written for an invalid one: read it whole.
    std::string text;
    struct stat status {};
    if (::fstat(in, &status) == 0 && S_ISREG(status.st_mode)) {
        text.reserve(static_cast<std::size_t>(status.st_size));
    }
    std::vector<unsigned char> block(1u << 20);
    for (;;) {
        const long got = ReadFull(in, block.data(), block.size());
        if (got < 0) {
            return Fail("cannot read", inName);
        }
        text.append(reinterpret_cast<const char*>(block.data()), static_cast<std::size_t>(got));
        if (static_cast<std::size_t>(got) < block.size()) {
            break;
        }
    }
    qorstd::QorArray<unsigned char> bytes;
    CryptUtils::Base64Decode(text.c_str(), bytes);
    const OutputPtr out = OpenOutput(outName);
    if (!out) {
        return Fail("cannot open", outName);
    }
    if (!Write(out.get(), bytes.GetData(), bytes.GetSize()) || std::fflush(out.get()) != 0) {
        return Fail("cannot write", outName);
    }
    return kExitOk;
}

}  // namespace

int RunBase64(const std::vector<std::string>& args) {
    // The line-break switches take no value, which ParseArguments does not know.
    std::vector<std::string> rest;
    std::string lineOption;
    for (const std::string& arg : args) {
        if (arg == "--crlf" || arg == "--lf" || arg == "--none") {
            if (!lineOption.empty() && lineOption != arg) {
                return UsageError("base64: " + lineOption + " and " + arg + " exclude each other");
            }
            lineOption = arg;
        } else {
            rest.push_back(arg);
        }
    }
    const Arguments parsed = ParseArguments("base64", rest, {});
    if (!parsed.error.empty()) {
        return UsageError(parsed.error);
    }
    const std::vector<std::string>& positional = parsed.positional;
    if (positional.empty() || (positional[0] != "encode" && positional[0] != "decode")) {
        return UsageError("base64: encode or decode is required");
    }
    if (positional.size() > 3) {
        return UsageError("base64: too many arguments");
    }
    const bool encode = positional[0] == "encode";
    if (!encode && !lineOption.empty()) {
        return UsageError("base64: " + lineOption + " applies to encode only");
    }
    const std::string inName = positional.size() > 1 ? positional[1] : "-";
    const std::string outName = positional.size() > 2 ? positional[2] : "-";

    Input in;
    in.fd = inName == "-" ? STDIN_FILENO : ::open(inName.c_str(), O_RDONLY | O_CLOEXEC);
    if (in.fd < 0) {
        return Fail("cannot open", inName);
    }
    if (!encode) {
        return Decode(in.fd, inName, outName);
    }
    const CryptUtils::cptLineBreakType lineBreak =
        lineOption == "--crlf"   ? CryptUtils::cptLineBreakCrLf
        : lineOption == "--none" ? CryptUtils::cptLineBreakNone
                                 : CryptUtils::cptLineBreakLf;
    return Encode(in.fd, inName, outName, lineBreak);
}

}  // namespace tessera_cli
