// tessera extend SIG --to lt|lta --tsa URL [--content FILE] [--trust FILE --extra FILE
//                    --crl FILE --fetch --mode crl|ocsp|either --time ISO8601] [--pem] OUT
//
// Extends every CAdES signer of SIG (DER, or PEM labelled CMS or PKCS7) to
// LT (the certificates and revocation data of the signer's and the
// time-stamp authorities' paths) or LTA (also an archive time-stamp from
// the authority at URL, which needs the content of a detached signature).
// The paths may run through the certificates the signature carries. OUT is written only once every
// signer has been extended, so that a failing authority or revocation source leaves no file behind.
#include <cstdio>
#include <string>
#include <vector>

#include "ChainCli.h"
#include "Cli.h"
#include "CmsCli.h"
#include "SignedCades2.h"

namespace tessera_cli {

namespace {

using TesseraLib::SignedCades2;

const char kCommand[] = "extend";

}  // namespace

int RunExtend(const std::vector<std::string>& args) {
    std::vector<std::string> options = args;
    const bool pem = TakeFlag(&options, "--pem");
    const bool fetch = TakeFetchFlag(&options);
    const Arguments parsed = ParseArguments(
        kCommand, options,
        {"--to", "--tsa", "--content", "--trust", "--extra", "--crl", "--mode", "--time"});
    if (!parsed.error.empty()) {
        return UsageError(parsed.error);
    }
    if (parsed.positional.size() != 2) {
        return UsageError("extend: SIG and OUT are required");
    }
    const std::string to = parsed.Get("--to");
    if (to != "lt" && to != "lta") {
        return UsageError("extend: --to must be lt or lta");
    }
    const std::string tsa = parsed.Get("--tsa");
    if (to == "lta" && tsa.empty()) {
        return UsageError("extend: --to lta needs --tsa URL");
    }
    ChainSetup setup;
    const int status = BuildChainSetup(kCommand, parsed, fetch, &setup);
    if (status != kExitOk) {
        return status;
    }
    std::vector<unsigned char> der;
    if (!ReadSignatureFile(kCommand, parsed.positional[0], &der)) {
        return kExitFailure;
    }
    SignedCades2 cades;
    const std::string contentPath = parsed.Get("--content");
    std::vector<unsigned char> content;
    if (!contentPath.empty()) {
        if (!ReadInputFile(kCommand, contentPath, &content, true)) {
            return kExitFailure;
        }
        cades.SetContent(qorstd::QorArray<unsigned char>(
            content.data(), static_cast<unsigned int>(content.size())));
    }
    cades.Decode(
        qorstd::QorArray<unsigned char>(der.data(), static_cast<unsigned int>(der.size())));
    for (unsigned int i = 0; i < cades.GetCertificates().GetSize(); ++i) {
        setup.extraStore.AddCertificate(cades.GetCertificates()[i]);
    }
    const QorTsp2Lib::TspClient client = TspClientFor(tsa);
    const SignedCades2::cptCadesType type =
        to == "lt" ? SignedCades2::cptCades2Lt : SignedCades2::cptCades2Lta;
    for (unsigned int i = 0; i < cades.GetSignerInfoCount(); ++i) {
        cades.Extend(i, type, setup.policy, &client, setup.verifyTime);
    }

    const qorstd::QorArray<unsigned char> encoded = cades.Encode();
    const std::vector<unsigned char> out(encoded.GetData(), encoded.GetData() + encoded.GetSize());
    if (!WriteMessage(kCommand, parsed.positional[1], out, pem)) {
        return kExitFailure;
    }
    std::printf(
        "%s: %u signer(s) extended to %s, %u certificate(s), %u revocation item(s), "
        "%zu bytes DER\n",
        parsed.positional[1].c_str(), cades.GetSignerInfoCount(), to == "lt" ? "LT" : "LTA",
        cades.GetCertificates().GetSize(), cades.GetRevocationInfoChoices().GetSize(), out.size());
    return kExitOk;
}

}  // namespace tessera_cli
