// tessera validate SIG [--content FILE | --digest HEX] --trust FILE [--extra FILE]
//                  [--tsa-trust FILE] [--tsu FILE] [--crl FILE] [--mode crl|ocsp|either]
//                  [--fetch] [--process basic|time] [--standard ts103173|en319122]
//                  [--policy-oid OID] [--signer N] [--time ISO8601] [--json]
//
// Validates the signers of the CAdES signature SIG (DER, or PEM labelled CMS
// or PKCS7) with ValidatorCades and prints each signer's report tree as the
// report prints itself, in UTF-8. --signer N (counted from 1, as `tessera
// verify` numbers signers) validates one signer; without it every signer is
// validated in turn. When a message has several signers and all are
// validated, each report is headed by a line "Signer N:" and the reports
// are separated by an empty line. --json prints a JSON array instead, one
// {"signer": N, "report": REPORT} a signer (REPORT the report's own JSON
// object), one per line; it is an array even for a single signer.
//
// The exit status is this command's own, not the tool's: 0 when every
// report is total passed, 1 when one failed, 2 when one is indeterminate and
// none failed, 3 for a usage or input error, a library failure included
// (printed as the tool prints failures).
//
// --trust gives the anchors of the signers' paths, --tsa-trust those of the
// time-stamp authorities, --tsu the trusted time-stamping units. --extra
// certificates and --crl CRLs serve both kinds of path. Revocation is
// checked as `tessera chain` checks it.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "ChainCli.h"
#include "Cli.h"
#include "CmsCli.h"
#include "SignedCades.h"
#include "ValidationReport.h"
#include "Validator.h"
#include "X509ChainPolicy.h"

namespace tessera_cli {

namespace {

using TesseraLib::ValidationProcess;
using TesseraLib::ValidationReport;

const char kCommand[] = "validate";

// The statuses of this command; the reports' indications map onto 0 to 2.
enum ValidateExit {
    kValidatePassed = 0,
    kValidateFailed = 1,
    kValidateIndeterminate = 2,
    kValidateInputError = 3
};

// What the arguments ask for beyond the path options.
struct Request {
    Arguments parsed;
    bool fetch = false;
    bool json = false;
    std::string contentFile;
    std::vector<unsigned char> digest;  // empty: validate against the content
    ValidationProcess::cptValidationProcessType process =
        ValidationProcess::vptSignatureWithTimeValidation;
    ValidationProcess::cptSignatureStandard standard = ValidationProcess::vptEN319122_1;
    std::string policyOid;
    unsigned int signer = 0;  // from 1; 0: every signer
};

// The validation policy the validation blocks accept.
const char kDefaultPolicyOid[] = "1.3.6.1.4.1.47385.20.2.0";

// Takes the flag `name` out of `args`; whether it was there.
bool TakeFlag(std::vector<std::string>* args, const char* name) {
    bool found = false;
    for (auto it = args->begin(); it != args->end();) {
        if (*it == name) {
            found = true;
            it = args->erase(it);
        } else {
            ++it;
        }
    }
    return found;
}

// Fills `request`; kExitOk, or kValidateInputError after a usage error
// (already reported).
int ReadRequest(const std::vector<std::string>& args, Request* request) {
    std::vector<std::string> options = args;
    request->fetch = TakeFetchFlag(&options);
    request->json = TakeFlag(&options, "--json");
    const Arguments& parsed = request->parsed = ParseArguments(
        kCommand, options,
        {"--content", "--digest", "--trust", "--extra", "--tsa-trust", "--tsu", "--crl", "--mode",
         "--process", "--standard", "--policy-oid", "--signer", "--time"});
    if (!parsed.error.empty()) {
        UsageError(parsed.error);
        return kValidateInputError;
    }
    if (parsed.positional.size() != 1) {
        UsageError("validate: exactly one SIG is required");
        return kValidateInputError;
    }
    if (parsed.options.count("--trust") == 0) {
        UsageError("validate: at least one --trust FILE is required");
        return kValidateInputError;
    }
    request->contentFile = parsed.Get("--content");
    const std::string digestText = parsed.Get("--digest");
    if (!request->contentFile.empty() && !digestText.empty()) {
        UsageError("validate: --content and --digest exclude each other");
        return kValidateInputError;
    }
    if (!digestText.empty() && !ParseHex(digestText, &request->digest)) {
        UsageError("validate: --digest takes the digest as hexadecimal digits");
        return kValidateInputError;
    }
    const std::string process = parsed.Get("--process", "time");
    if (process == "basic") {
        request->process = ValidationProcess::vptBasicSignatureValidation;
    } else if (process != "time") {
        UsageError("validate: --process must be basic or time");
        return kValidateInputError;
    }
    const std::string standard = parsed.Get("--standard", "en319122");
    if (standard == "ts103173") {
        request->standard = ValidationProcess::vptTS103173;
    } else if (standard != "en319122") {
        UsageError("validate: --standard must be ts103173 or en319122");
        return kValidateInputError;
    }
    request->policyOid = parsed.Get("--policy-oid", kDefaultPolicyOid);
    const std::string signer = parsed.Get("--signer");
    if (!signer.empty()) {
        const bool digits =
            signer.size() <= 9 && signer.find_first_not_of("0123456789") == std::string::npos;
        request->signer = digits ? static_cast<unsigned int>(std::stoul(signer)) : 0;
        if (request->signer == 0) {
            UsageError("validate: --signer takes a signer's number, counted from 1");
            return kValidateInputError;
        }
    }
    return kExitOk;
}

// Every certificate of the files given with `option`, into `store`; false
// after a line on stderr.
bool ReadCertificates(const Arguments& parsed, const char* option,
                      TesseraLib::X509MemoryStore* store) {
    const auto found = parsed.options.find(option);
    if (found == parsed.options.end()) {
        return true;
    }
    for (const std::string& path : found->second) {
        std::vector<TesseraLib::X509Certificate> certs;
        if (!ReadCertificateFile(kCommand, path, &certs)) {
            return false;
        }
        for (const TesseraLib::X509Certificate& cert : certs) {
            store->AddCertificate(cert);
        }
    }
    return true;
}

// The stores and the policy of a validation: the signature anchors and the
// time-stamp anchors apart, the extra store (intermediates and CRLs) shared
// by both kinds of path. Not copyable: the policy points at the stores.
struct ValidationSetup : PathSetup {
    TesseraLib::X509MemoryStore tsaTrustStore;
    TesseraLib::X509MemoryStore tsuStore;
    TesseraLib::X509ChainPolicyTL policy;
};

// UTF-8 whatever the locale, so that the output is the same for every
// reader. wchar_t holds UTF-32 on the platforms the tool is built for;
// what is no character becomes U+FFFD.
std::string Utf8(const std::wstring& text) {
    std::string out;
    for (const wchar_t wide : text) {
        std::uint32_t c = static_cast<std::uint32_t>(wide);
        if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
            c = 0xFFFD;
        }
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += static_cast<char>(0xE0 | (c >> 12));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (c >> 18));
            out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

std::string PrintedReport(const ValidationReport& report) {
    std::wostringstream text;
    report.Print(text);
    return Utf8(text.str());
}

// One signer's result, kept until all are validated so that a failure of a
// later signer leaves no half-printed output.
struct SignerResult {
    unsigned int number = 0;  // from 1
    ValidationReport::cptReportTotalStatus status = ValidationReport::repIndeterminate;
    std::string output;  // the text tree or the JSON object
};

int Validate(const std::vector<std::string>& args) {
    Request request;
    if (ReadRequest(args, &request) != kExitOk) {
        return kValidateInputError;
    }
    const Arguments& parsed = request.parsed;
    ValidationSetup setup;
    if (ReadPathSetup(kCommand, parsed, request.fetch, &setup) != kExitOk ||
        !ReadCertificates(parsed, "--tsa-trust", &setup.tsaTrustStore) ||
        !ReadCertificates(parsed, "--tsu", &setup.tsuStore)) {
        return kValidateInputError;
    }
    TesseraLib::X509ChainPolicyTL& policy = setup.policy;
    policy.SetTrustStoreSig(&setup.trustStore);
    policy.SetExtraStoreSig(&setup.extraStore);
    policy.SetTrustStoreTS(&setup.tsaTrustStore);
    policy.SetExtraStoreTS(&setup.extraStore);
    policy.SetTSUStore(&setup.tsuStore);
    ApplyPathSetup(setup, &policy);

    std::vector<unsigned char> der;
    if (!ReadSignatureFile(kCommand, parsed.positional[0], &der)) {
        return kValidateInputError;
    }
    std::vector<unsigned char> content;
    if (!request.contentFile.empty() &&
        !ReadInputFile(kCommand, request.contentFile, &content, true)) {
        return kValidateInputError;
    }
    TesseraLib::SignedCades cades(
        qorstd::QorArray<unsigned char>(content.data(), static_cast<unsigned int>(content.size())));
    cades.Decode(
        qorstd::QorArray<unsigned char>(der.data(), static_cast<unsigned int>(der.size())));

    TesseraLib::ValidatorCades validator;
    validator.SetSignedCades(&cades);
    validator.SetChainPolicy(&policy);
    validator.SetValidationProcessType(request.process);
    validator.SetSignatureStandard(request.standard);
    validator.SetValidationPolicyOID(qorstd::QorString(request.policyOid.c_str()));
    validator.SetValidationTime(setup.verifyTime);
    const qorstd::QorArray<unsigned char> digest(request.digest.data(),
                                                 static_cast<unsigned int>(request.digest.size()));

    const unsigned int count = cades.GetSignerInfoCount();
    if (count == 0) {
        std::fprintf(stderr, "tessera validate: %s has no signer\n", parsed.positional[0].c_str());
        return kValidateInputError;
    }
    std::vector<unsigned int> numbers;
    if (request.signer != 0) {
        // One out of range is the validator's to refuse, with its code.
        numbers.push_back(request.signer);
    } else {
        for (unsigned int number = 1; number <= count; ++number) {
            numbers.push_back(number);
        }
    }
    const bool progress = isatty(fileno(stderr)) != 0;
    std::vector<SignerResult> results;
    for (unsigned int number : numbers) {
        if (progress) {
            std::fprintf(stderr, "tessera validate: validating signer %u of %u\n", number, count);
        }
        validator.SetSignatureIndex(number - 1);
        if (request.digest.empty()) {
            validator.Validate();
        } else {
            validator.ValidateDigest(digest);
        }
        const ValidationReport* report = validator.GetValidationReport();
        SignerResult result;
        result.number = number;
        if (report != nullptr) {
            result.status = report->GetTotalStatusIndication();
            result.output = request.json ? report->ToJson() : PrintedReport(*report);
        } else {
            result.output = request.json ? "null" : "(no report)\n";
        }
        results.push_back(std::move(result));
    }

    const bool headed = request.signer == 0 && results.size() > 1;
    if (request.json) {
        std::printf("[");
    }
    for (std::size_t i = 0; i < results.size(); ++i) {
        const SignerResult& result = results[i];
        if (request.json) {
            std::printf("%s\n  {\"signer\": %u, \"report\": %s}", i == 0 ? "" : ",", result.number,
                        result.output.c_str());
            continue;
        }
        if (headed) {
            std::printf("%sSigner %u:\n", i == 0 ? "" : "\n", result.number);
        }
        std::fputs(result.output.c_str(), stdout);
    }
    if (request.json) {
        std::printf("%s]\n", results.empty() ? "" : "\n");
    }

    int status = kValidatePassed;
    for (const SignerResult& result : results) {
        if (result.status == ValidationReport::repTotalFailed) {
            return kValidateFailed;
        }
        if (result.status != ValidationReport::repTotalPassed) {
            status = kValidateIndeterminate;
        }
    }
    return status;
}

}  // namespace

// Catches here rather than in main: a library failure is an input error of
// this command, status 3, where the tool's other commands return 1.
int RunValidate(const std::vector<std::string>& args) {
    int status = kValidateInputError;
    Failure failure;
    if (!RunCatching([&] { status = Validate(args); }, &failure)) {
        PrintFailure(kCommand, failure);
        return kValidateInputError;
    }
    return status;
}

}  // namespace tessera_cli
