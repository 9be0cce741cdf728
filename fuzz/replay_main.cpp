// A driver that runs one fuzz target over the files and folders named on the
// command line (every file of a folder), or over a few fixed inputs when none
// is named. Ordinary builds link each target with it so that the targets are
// compiled and their seeds replayed by the test suite; the fuzzing itself is
// `make fuzz`.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

void Run(const std::vector<std::uint8_t>& input) {
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

int RunFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "cannot read %s\n", path.c_str());
        return 1;
    }
    Run(std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in), {}));
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (LLVMFuzzerInitialize != nullptr) {
        LLVMFuzzerInitialize(&argc, &argv);
    }
    if (argc < 2) {
        // Empty, a truncated SEQUENCE, an indefinite length, a huge length.
        const std::vector<std::vector<std::uint8_t>> fixed = {
            {}, {0x30}, {0x30, 0x80, 0x00, 0x00}, {0x30, 0x84, 0xff, 0xff, 0xff, 0xff}};
        for (const auto& input : fixed) {
            Run(input);
        }
        return 0;
    }
    int failures = 0;
    std::size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path path(argv[i]);
        if (std::filesystem::is_directory(path)) {
            for (const auto& entry : std::filesystem::directory_iterator(path)) {
                failures += RunFile(entry.path());
                ++count;
            }
        } else {
            failures += RunFile(path);
            ++count;
        }
    }
    std::printf("replayed %zu inputs\n", count);
    return failures == 0 ? 0 : 1;
}
