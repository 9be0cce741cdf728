// tessera upgrade SIG --tsa URL [--type t|t-if-missing] [--pem] OUT
//
// Adds a signature time-stamp from the authority at URL to every CAdES
// signer of SIG (DER, or PEM labelled CMS or PKCS7): t always adds one,
// t-if-missing only to a signer that has none yet. The content is not
// needed, as the time-stamp covers the signature value. OUT is written only
// once every signer has been upgraded, so that a failing authority leaves no
// file behind. --pem writes PEM labelled "CMS" instead of DER.
#include <cstdio>
#include <string>
#include <vector>

#include "Cli.h"
#include "CmsCli.h"
#include "SignedCades.h"

namespace tessera_cli {

namespace {

using TesseraLib::SignedCades;

const char kCommand[] = "upgrade";

unsigned int StampCount(const SignedCades& cades) {
    unsigned int count = 0;
    for (unsigned int i = 0; i < cades.GetSignerInfoCount(); ++i) {
        count += cades.GetSignerInfo(i)->GetSignatureTimeStamps().GetSize();
    }
    return count;
}

}  // namespace

int RunUpgrade(const std::vector<std::string>& args) {
    std::vector<std::string> options = args;
    const bool pem = TakeFlag(&options, "--pem");
    const Arguments parsed = ParseArguments(kCommand, options, {"--tsa", "--type"});
    if (!parsed.error.empty()) {
        return UsageError(parsed.error);
    }
    if (parsed.positional.size() != 2) {
        return UsageError("upgrade: SIG and OUT are required");
    }
    const std::string tsa = parsed.Get("--tsa");
    if (tsa.empty()) {
        return UsageError("upgrade: --tsa URL is required");
    }
    const std::string typeName = parsed.Get("--type", "t");
    // Above T the library adds a time-stamp only where there is none.
    const SignedCades::cptCadesType type =
        typeName == "t" ? SignedCades::cptCadesT : static_cast<SignedCades::cptCadesType>(4);
    if (typeName != "t" && typeName != "t-if-missing") {
        return UsageError("upgrade: --type must be t or t-if-missing");
    }
    std::vector<unsigned char> der;
    if (!ReadSignatureFile(kCommand, parsed.positional[0], &der)) {
        return kExitFailure;
    }
    SignedCades cades;
    cades.Decode(
        qorstd::QorArray<unsigned char>(der.data(), static_cast<unsigned int>(der.size())));
    const unsigned int before = StampCount(cades);
    const QorTsp2Lib::TspClient client = TspClientFor(tsa);
    cades.Upgrade(type, &client);

    const qorstd::QorArray<unsigned char> encoded = cades.Encode();
    const std::vector<unsigned char> out(encoded.GetData(), encoded.GetData() + encoded.GetSize());
    if (!WriteMessage(kCommand, parsed.positional[1], out, pem)) {
        return kExitFailure;
    }
    std::printf("%s: %u signer(s), %u time-stamp(s) added, %zu bytes DER\n",
                parsed.positional[1].c_str(), cades.GetSignerInfoCount(),
                StampCount(cades) - before, out.size());
    return kExitOk;
}

}  // namespace tessera_cli
