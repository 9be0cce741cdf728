// tessera verify SIG [--content FILE | --digest HEX]
//                [--trust FILE] [--extra FILE] [--crl FILE] [--mode crl|ocsp|either] [--fetch]
//                [--time ISO8601] [--verify none|signer|chain]
//
// Verifies every signer of the CMS signature SIG (DER, or PEM labelled CMS or
// PKCS7) and prints, per signer, its subject, the result and the checks that
// passed, or the error (code, description, message) that ended its check.
// The exit code is 0 only when every signer passed.
//
// --content gives the signed content of a detached signature; --digest the
// content's digest in hexadecimal instead (made with the signer's digest
// algorithm). --verify says how far the signer certificate is checked: none,
// signer (its validity at the time and, when the issuer is in the message,
// the issuer's signature) or chain (the path to a --trust anchor with
// revocation, as `tessera chain` checks it). Without --verify the path is
// checked when --trust is given, otherwise the signer certificate alone.
// --time fixes the verification time (default: now).
#include <cstdio>
#include <string>
#include <vector>

#include "ChainCli.h"
#include "Cli.h"
#include "CmsCli.h"
#include "SignedCms.h"
#include "VerifierCms.h"

namespace tessera_cli {

namespace {

using TesseraLib::SignedCms;
using TesseraLib::VerifierCms;

const char kCommand[] = "verify";

std::string ChecksPassed(unsigned long bits, VerifierCms::cptVerifyOption option) {
    using Info = SignedCms::SignerInfo;
    std::string text;
    const auto add = [&text](const char* name) {
        text += (text.empty() ? "" : ", ") + std::string(name);
    };
    if ((bits & Info::kVerifiedSignature) != 0) {
        add("signature");
    }
    if ((bits & Info::kVerifiedContentType) != 0) {
        add("content type");
    }
    if ((bits & Info::kVerifiedSignatureTimeStamps) != 0) {
        add("signature time-stamps");
    }
    if ((bits & Info::kVerifiedCertificate) != 0) {
        add(option == VerifierCms::cptVerifyWholeChain ? "certificate path" : "signer certificate");
    }
    return text.empty() ? "none" : text;
}

void PrintSignerFailure(const Failure& failure) {
    if (!failure.coded) {
        std::printf("    Error:   %s\n", failure.text.c_str());
        return;
    }
    std::printf("    Error:   %d: %s", failure.code, failure.description.c_str());
    if (!failure.message.empty()) {
        std::printf(" (%s)", failure.message.c_str());
    }
    std::printf("\n");
}

}  // namespace

int RunVerify(const std::vector<std::string>& args) {
    std::vector<std::string> options = args;
    const bool fetch = TakeFetchFlag(&options);
    const Arguments parsed = ParseArguments(
        kCommand, options,
        {"--content", "--digest", "--trust", "--extra", "--crl", "--mode", "--time", "--verify"});
    if (!parsed.error.empty()) {
        return UsageError(parsed.error);
    }
    if (parsed.positional.size() != 1) {
        return UsageError("verify: exactly one SIG is required");
    }
    const std::string contentFile = parsed.Get("--content");
    const std::string digestText = parsed.Get("--digest");
    if (!contentFile.empty() && !digestText.empty()) {
        return UsageError("verify: --content and --digest exclude each other");
    }
    std::vector<unsigned char> digest;
    if (!digestText.empty() && !ParseHex(digestText, &digest)) {
        return UsageError("verify: --digest takes the digest as hexadecimal digits");
    }
    const bool haveTrust = parsed.options.count("--trust") != 0;
    const std::string level = parsed.Get("--verify", haveTrust ? "chain" : "signer");
    VerifierCms::cptVerifyOption option = VerifierCms::cptVerifyWholeChain;
    if (level == "none") {
        option = VerifierCms::cptVerifyNone;
    } else if (level == "signer") {
        option = VerifierCms::cptVerifySignerCertificate;
    } else if (level != "chain") {
        return UsageError("verify: --verify must be none, signer or chain");
    }
    if (option == VerifierCms::cptVerifyWholeChain && !haveTrust) {
        return UsageError("verify: --verify chain needs at least one --trust FILE");
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
    std::vector<unsigned char> content;
    if (!contentFile.empty() && !ReadInputFile(kCommand, contentFile, &content, true)) {
        return kExitFailure;
    }

    SignedCms cms(
        qorstd::QorArray<unsigned char>(content.data(), static_cast<unsigned int>(content.size())));
    cms.Decode(qorstd::QorArray<unsigned char>(der.data(), static_cast<unsigned int>(der.size())));
    const qorstd::QorArray<unsigned char> hash(digest.data(),
                                               static_cast<unsigned int>(digest.size()));

    VerifierCms verifier;
    verifier.SetVerifyOption(option);
    verifier.SetVerifyTime(setup.verifyTime);
    verifier.SetChainPolicy(&setup.policy);

    std::printf("Verification time: %s\n", FormatUtc(setup.verifyTime).c_str());
    const unsigned int count = cms.GetSignerInfoCount();
    unsigned int passed = 0;
    for (unsigned int i = 0; i < count; ++i) {
        SignedCms::SignerInfo& signer = *cms.GetSignerInfo(i);
        // A failure ends this signer's check, not the command: the others
        // are still checked.
        Failure failure;
        const bool ok = RunCatching(
            [&] {
                if (digestText.empty()) {
                    signer.Verify(verifier, SignedCms::cptCmsNone);
                } else {
                    signer.VerifyDigest(verifier, hash, SignedCms::cptCmsNone);
                }
            },
            &failure);
        const qorstd::QorStringW subject = signer.GetCertificate().GetSubjectStringX500(0);
        std::printf("Signer %u: %s\n", i + 1,
                    subject.empty() ? "(certificate not found)" : Narrow(subject.c_str()).c_str());
        std::printf("    Result:  %s\n", ok ? "valid" : "invalid");
        std::printf("    Checked: %s\n", ChecksPassed(signer.GetVerifyInfo(), option).c_str());
        if (!ok) {
            PrintSignerFailure(failure);
        }
        passed += ok ? 1 : 0;
    }
    const bool allPassed = count > 0 && passed == count;
    std::printf("Result: %s (%u of %u signers valid)\n", allPassed ? "valid" : "invalid", passed,
                count);
    return allPassed ? kExitOk : kExitFailure;
}

}  // namespace tessera_cli
