// tessera timestamp --url URL [--hash sha256] [--out TOKEN] FILE
//
// Hashes FILE block by block, asks the TSA for a token over the digest and
// prints what the token says; --out keeps the token's DER.
#include <openssl/evp.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Cli.h"
#include "CmsCli.h"
#include "QorTsp2.h"

namespace tessera_cli {

namespace {

constexpr std::size_t kBlockSize = 64 * 1024;

struct FileClose {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileClose>;

struct MdCtxFree {
    void operator()(EVP_MD_CTX* ctx) const { EVP_MD_CTX_free(ctx); }
};

// The digest of the file's content; false (with a message on stderr) when
// the file cannot be read.
bool HashFile(const std::string& path, const char* hashName, std::vector<unsigned char>* digest) {
    FilePtr file(std::fopen(path.c_str(), "rb"));
    if (!file) {
        std::fprintf(stderr, "tessera timestamp: cannot open %s\n", path.c_str());
        return false;
    }
    const EVP_MD* md = EVP_get_digestbyname(hashName);
    std::unique_ptr<EVP_MD_CTX, MdCtxFree> ctx(EVP_MD_CTX_new());
    if (md == nullptr || !ctx || EVP_DigestInit_ex(ctx.get(), md, nullptr) != 1) {
        std::fprintf(stderr, "tessera timestamp: cannot start %s\n", hashName);
        return false;
    }
    std::vector<unsigned char> block(kBlockSize);
    std::size_t read = 0;
    while ((read = std::fread(block.data(), 1, block.size(), file.get())) > 0) {
        if (EVP_DigestUpdate(ctx.get(), block.data(), read) != 1) {
            std::fprintf(stderr, "tessera timestamp: hashing failed\n");
            return false;
        }
    }
    if (std::ferror(file.get()) != 0) {
        std::fprintf(stderr, "tessera timestamp: cannot read %s\n", path.c_str());
        return false;
    }
    digest->assign(static_cast<std::size_t>(EVP_MD_get_size(md)), 0);
    unsigned int length = 0;
    if (EVP_DigestFinal_ex(ctx.get(), digest->data(), &length) != 1) {
        std::fprintf(stderr, "tessera timestamp: hashing failed\n");
        return false;
    }
    digest->resize(length);
    return true;
}

bool WriteFile(const std::string& path, const QorTsp2Lib::TspArray<unsigned char>& bytes) {
    FilePtr file(std::fopen(path.c_str(), "wb"));
    if (!file || std::fwrite(bytes.GetData(), 1, bytes.GetSize(), file.get()) != bytes.GetSize()) {
        return false;
    }
    return std::fclose(file.release()) == 0;
}

}  // namespace

int RunTimestamp(const std::vector<std::string>& args) {
    const Arguments parsed = ParseArguments("timestamp", args, {"--url", "--hash", "--out"});
    if (!parsed.error.empty()) {
        return UsageError(parsed.error);
    }
    if (parsed.positional.size() > 1) {
        return UsageError("timestamp: more than one FILE");
    }
    const std::string url = parsed.Get("--url");
    const std::string hash = parsed.Get("--hash", "sha256");
    const std::string out = parsed.Get("--out");
    const std::string input = parsed.positional.empty() ? "" : parsed.positional[0];
    if (url.empty()) {
        return UsageError("timestamp: --url is required");
    }
    if (input.empty()) {
        return UsageError("timestamp: FILE is required");
    }
    const QorTsp2Lib::tspHashAlgorithm algorithm = QorTsp2Lib::GetHashByName(hash.c_str());
    if (algorithm == QorTsp2Lib::tspHashNone) {
        return UsageError("timestamp: --hash must be sha1, sha224, sha256, sha384 or sha512");
    }

    std::vector<unsigned char> digest;
    if (!HashFile(input, QorTsp2Lib::GetHashName(algorithm), &digest)) {
        return kExitFailure;
    }
    QorTsp2Lib::TspClient client = TspClientFor(url);
    client.SetHashAlgorithm(algorithm);
    const QorTsp2Lib::TspTimeStamp stamp =
        client.TimeStamp(digest.data(), static_cast<unsigned int>(digest.size()), 0);
    const QorTsp2Lib::TspMessageImprint& imprint = stamp.GetMessageImprint();
    std::printf("genTime: %s\n", stamp.GetGeneralizedTime().c_str());
    std::printf(
        "imprint: %s %s\n", QorTsp2Lib::GetHashName(imprint.GetHashAlgorithm()),
        Hex(imprint.GetHashedMessage().GetData(), imprint.GetHashedMessage().GetSize()).c_str());
    std::printf("serial:  %s\n", stamp.GetSerialNumberHex().c_str());
    std::printf("policy:  %s\n", stamp.GetPolicyId().c_str());
    if (stamp.GetTsaCertificate() != nullptr) {
        std::printf("tsa:     %s\n", stamp.GetTsaCertificate()->GetSubjectText().c_str());
    }
    if (!out.empty()) {
        if (!WriteFile(out, stamp.Encode(0))) {
            std::fprintf(stderr, "tessera timestamp: cannot write %s\n", out.c_str());
            return kExitFailure;
        }
        std::printf("token:   %s (%u bytes)\n", out.c_str(), stamp.Encode(0).GetSize());
    }
    return kExitOk;
}

}  // namespace tessera_cli
