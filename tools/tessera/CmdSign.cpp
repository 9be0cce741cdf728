// tessera sign        SIGNER [--cades bes|epes [--policy FILE] [--mime TYPE]] [--tsa URL]
//                     [--detached] [--no-attrs] [--pem] IN OUT
// tessera sign-digest SIGNER [--no-attrs] [--pem] --digest HEX OUT
// tessera cosign      SIGNER [--no-attrs] [--pem] [--content FILE] SIG OUT
// tessera estimate    SIGNER [--detached] [--no-attrs] [--pem] IN [OUT]
//
// SIGNER: (--cert CERT (--key KEY [--password P] | --p12 FILE --password P |
//         --pkcs11 MODULE --key-id slot_X-id_Y --pin PIN) |
//         --store-dir DIR --subject TEXT | --pkcs11 MODULE --subject TEXT --pin PIN)
//         [--include none|signer|chain|whole] [--trust FILE] [--extra FILE]
//         [--hash sha1|sha256|sha384|sha512]
//
// With --subject the signer is the one certificate of the store whose
// subject contains TEXT, with the key the store holds for it.
//
// sign makes a CMS signature of IN (attached, or --detached); sign-digest
// one over a digest of the content made by the caller with the signer's
// digest algorithm (always detached); cosign adds a signer to the signature
// SIG (DER, or PEM labelled CMS or PKCS7) over --content, which a detached
// SIG needs and an attached one must embed byte for byte. Signatures are written as DER, or PEM
// labelled "CMS" with --pem. estimate prints the size in bytes of the file sign would write with
// the same arguments, without signing.
//
// --include chooses the signer's certificates carried (default: the signer
// certificate; chain: its path without the anchor, whole: with it, both
// built from the --trust anchors through the CA certificates of --p12 and
// the --extra files, which take one file each and may be repeated).
// --no-attrs leaves out the signed attributes (message digest, content type,
// signing time).
//
// sign --cades makes a CAdES signature with the same signer: BES adds the
// signing-certificate attribute, EPES also identifies the policy document
// --policy (DER) by its OID and stored hash, and --mime adds a MIME-type
// attribute. A CAdES signer always has signed attributes, so there --no-attrs
// leaves out the signing time alone. --tsa URL adds a signature time-stamp
// from that authority (CAdES-T); without --cades the form is BES. When the
// authority fails, nothing is written.
#include <cstdio>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ChainCli.h"
#include "Cli.h"
#include "CmsCli.h"
#include "SignaturePolicy.h"
#include "SignedCades.h"
#include "SignedCms.h"

namespace tessera_cli {

namespace {

using TesseraLib::SignedCades;
using TesseraLib::SignedCms;

struct Flags {
    bool detached = false;
    bool noAttributes = false;
    bool pem = false;
};

// Takes the flags out of `args`, leaving the valued options and positionals.
Flags TakeFlags(std::vector<std::string>* args) {
    Flags flags;
    for (auto it = args->begin(); it != args->end();) {
        bool* flag = *it == "--detached"   ? &flags.detached
                     : *it == "--no-attrs" ? &flags.noAttributes
                     : *it == "--pem"      ? &flags.pem
                                           : nullptr;
        if (flag == nullptr) {
            ++it;
        } else {
            *flag = true;
            it = args->erase(it);
        }
    }
    return flags;
}

// What a signing command works with once its arguments are read. Not
// copyable, as the signer set-up is not.
struct Invocation {
    Flags flags;
    Arguments parsed;
    SignerSetup setup;
};

// Reads the flags, the signer options and `extra` valued options, lets
// `check` judge the rest (it returns the usage problem, empty when there is
// none) and loads the signer, so that a usage error costs no key loading.
// Returns kExitOk, or the exit code after a usage error or an unreadable file
// (already reported).
template <class Check>
int Prepare(const std::string& command, std::vector<std::string> args,
            const std::set<std::string>& extra, Check check, Invocation* run) {
    run->flags = TakeFlags(&args);
    std::set<std::string> valued = SignerOptions();
    valued.insert(extra.begin(), extra.end());
    run->parsed = ParseArguments(command, args, valued);
    if (!run->parsed.error.empty()) {
        return UsageError(run->parsed.error);
    }
    const std::string problem = check(run->parsed);
    if (!problem.empty()) {
        return UsageError(command + ": " + problem);
    }
    return LoadSigner(command, run->parsed, run->flags.noAttributes, &run->setup);
}

// The usage problem of sign's IN OUT and CAdES options; empty when there is
// none. EPES without --policy is left to the library, whose own error says
// that the policy is missing.
std::string SignProblem(const Arguments& parsed) {
    if (parsed.positional.size() != 2) {
        return "IN and OUT are required";
    }
    const bool stamped = parsed.options.count("--tsa") != 0;
    const std::string form = parsed.Get("--cades", stamped ? "bes" : "");
    if (parsed.options.count("--cades") != 0 && form != "bes" && form != "epes") {
        return "--cades takes bes or epes";
    }
    if (parsed.options.count("--policy") != 0 && form != "epes") {
        return "--policy needs --cades epes";
    }
    // The library names the missing policy only when it signs EPES itself;
    // with a time-stamp it would sign without one.
    if (stamped && form == "epes" && parsed.options.count("--policy") == 0) {
        return "--cades epes with --tsa needs --policy";
    }
    if (stamped && parsed.Get("--tsa").empty()) {
        return "--tsa takes the time-stamp authority's URL";
    }
    if (parsed.options.count("--mime") != 0 && form.empty()) {
        return "--mime needs --cades bes or epes";
    }
    if (parsed.options.count("--mime") != 0 && parsed.Get("--mime").empty()) {
        return "--mime takes a media type, such as text/plain";
    }
    return std::string();
}

std::vector<unsigned char> ToBytes(const qorstd::QorArray<unsigned char>& array) {
    return std::vector<unsigned char>(array.GetData(), array.GetData() + array.GetSize());
}

qorstd::QorArray<unsigned char> ToArray(const std::vector<unsigned char>& bytes) {
    return qorstd::QorArray<unsigned char>(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

// Writes the signature and says where it went.
int Finish(const std::string& command, const SignedCms& cms, const std::string& out, bool pem) {
    const std::vector<unsigned char> der = ToBytes(cms.Encode());
    if (!WriteMessage(command, out, der, pem)) {
        return kExitFailure;
    }
    std::printf("%s: %u signer(s), %zu bytes DER\n", out.c_str(), cms.GetSignerInfoCount(),
                der.size());
    return kExitOk;
}

// The length of the PEM text of `der` as PEM_write writes it: 64 Base64
// characters a line.
unsigned long PemLength(unsigned long der) {
    const unsigned long base64 = (der + 2) / 3 * 4;
    return sizeof("-----BEGIN CMS-----\n") - 1 + base64 + (base64 + 63) / 64 +
           sizeof("-----END CMS-----\n") - 1;
}

}  // namespace

int RunSign(const std::vector<std::string>& args) {
    const std::string command = "sign";
    Invocation run;
    const int status =
        Prepare(command, args, {"--cades", "--policy", "--mime", "--tsa"}, SignProblem, &run);
    if (status != kExitOk) {
        return status;
    }
    std::vector<unsigned char> content;
    if (!ReadInputFile(command, run.parsed.positional[0], &content, true)) {
        return kExitFailure;
    }
    const int detached = run.flags.detached ? 1 : 0;
    const std::string tsa = run.parsed.Get("--tsa");
    const std::string form = run.parsed.Get("--cades", tsa.empty() ? "" : "bes");
    if (form.empty()) {
        SignedCms cms(ToArray(content));
        cms.Sign(run.setup.signer, SignedCms::cptCmsBasic, detached);
        return Finish(command, cms, run.parsed.positional[1], run.flags.pem);
    }
    // The signer only points at the policy, which must outlive the signing.
    TesseraLib::SignaturePolicy policy;
    const std::string policyPath = run.parsed.Get("--policy");
    if (!policyPath.empty()) {
        std::vector<unsigned char> der;
        if (!ReadInputFile(command, policyPath, &der)) {
            return kExitFailure;
        }
        policy.Decode(ToArray(der));
        run.setup.signer.SetSignaturePolicy(&policy);
    }
    const std::string mime = run.parsed.Get("--mime");
    run.setup.signer.SetMimeType(std::wstring(mime.begin(), mime.end()).c_str());
    // The signer only points at the client too.
    QorTsp2Lib::TspClient client = TspClientFor(tsa);
    SignedCades::cptCadesType type =
        form == "epes" ? SignedCades::cptCadesEpes : SignedCades::cptCadesBes;
    if (!tsa.empty()) {
        run.setup.signer.SetTspClient(&client);
        type = SignedCades::cptCadesT;
    }
    SignedCades cades(ToArray(content));
    cades.Sign(run.setup.signer, type, detached);
    return Finish(command, cades, run.parsed.positional[1], run.flags.pem);
}

int RunSignDigest(const std::vector<std::string>& args) {
    const std::string command = "sign-digest";
    std::vector<unsigned char> digest;
    Invocation run;
    const int status = Prepare(
        command, args, {"--digest"},
        [&digest](const Arguments& parsed) {
            return parsed.positional.size() == 1 && ParseHex(parsed.Get("--digest"), &digest)
                       ? std::string()
                       : std::string("--digest HEX and OUT are required");
        },
        &run);
    if (status != kExitOk) {
        return status;
    }
    SignedCms cms;
    cms.SignDigest(run.setup.signer, SignedCms::cptCmsBasic, ToArray(digest));
    return Finish(command, cms, run.parsed.positional[0], run.flags.pem);
}

int RunCosign(const std::vector<std::string>& args) {
    const std::string command = "cosign";
    Invocation run;
    const int status = Prepare(
        command, args, {"--content"},
        [](const Arguments& parsed) {
            return parsed.positional.size() == 2 ? std::string()
                                                 : std::string("SIG and OUT are required");
        },
        &run);
    if (status != kExitOk) {
        return status;
    }
    std::vector<unsigned char> signature;
    std::vector<unsigned char> content;
    const std::string contentPath = run.parsed.Get("--content");
    for (const auto& input : {std::make_pair(run.parsed.positional[0], &signature),
                              std::make_pair(contentPath, &content)}) {
        if (!input.first.empty() && !ReadInputFile(command, input.first, input.second, true)) {
            return kExitFailure;
        }
    }
    // Given content replaces embedded content, which must then match it.
    SignedCms cms;
    cms.Decode(ToArray(SignatureDer(signature)));
    if (!contentPath.empty()) {
        cms.SetContent(ToArray(content));
    }
    cms.CoSign(run.setup.signer);
    return Finish(command, cms, run.parsed.positional[1], run.flags.pem);
}

int RunEstimate(const std::vector<std::string>& args) {
    const std::string command = "estimate";
    Invocation run;
    const int status = Prepare(
        command, args, {},
        [](const Arguments& parsed) {
            return !parsed.positional.empty() && parsed.positional.size() <= 2
                       ? std::string()
                       : std::string("IN is required");
        },
        &run);
    if (status != kExitOk) {
        return status;
    }
    std::vector<unsigned char> content;
    if (!ReadInputFile(command, run.parsed.positional[0], &content, true)) {
        return kExitFailure;
    }
    const SignedCms cms(ToArray(content));
    const unsigned long size =
        cms.EstimateSize(run.setup.signer, SignedCms::cptCmsBasic, run.flags.detached ? 1 : 0);
    if (size == 0) {
        std::fprintf(stderr, "tessera %s: the size cannot be estimated\n", command.c_str());
        return kExitFailure;
    }
    std::printf("%lu\n", run.flags.pem ? PemLength(size) : size);
    return kExitOk;
}

}  // namespace tessera_cli
