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
//
// --poe verifies instead of validating: each signer is verified as a
// long-term CAdES signer with proofs of existence, its archive time-stamps
// earliest first, each at its own proven time, and its path at the proven
// time of the signature value. The message's certificates and revocation
// data are validation data, and --tsa-trust anchors join the --trust ones
// (--tsu, --process, --standard and --policy-oid do not apply). Printed per
// signer: its form, each archive time-stamp's time and result, the proven
// time of the signature value and the verification's result. Exit status:
// 0 when every signer and every archive time-stamp passed, 1 when one
// failed, 3 for a usage or input error.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "ChainCli.h"
#include "Cli.h"
#include "CmsCli.h"
#include "CryptHash.h"
#include "SignedCades.h"
#include "SignedCades2.h"
#include "ValidationDataStore.h"
#include "ValidationReport.h"
#include "Validator.h"
#include "VerifierCades.h"
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
    bool poe = false;  // verification with proofs of existence instead
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
    request->poe = TakeFlag(&options, "--poe");
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
    if (request->poe &&
        (parsed.options.count("--process") != 0 || parsed.options.count("--standard") != 0 ||
         parsed.options.count("--policy-oid") != 0 || parsed.options.count("--tsu") != 0)) {
        UsageError("validate: --poe takes no --process, --standard, --policy-oid or --tsu");
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

// ------------------------------------------------ proofs of existence

// One archive time-stamp's outcome.
struct ArchiveOutcome {
    std::int64_t time = 0;
    bool passed = true;
    Failure failure;  // when not passed
};

// One signer's verification with proofs of existence.
struct ProofResult {
    unsigned int number = 0;  // from 1
    std::string form;
    std::vector<ArchiveOutcome> archives;
    bool proven = false;  // the signature value's hash has a proof
    std::int64_t provenTime = 0;
    bool passed = false;
    Failure failure;  // when not passed
};

const char* FormName(TesseraLib::SignedCades2::cptCadesType form) {
    switch (form) {
        case TesseraLib::SignedCades2::cptCades2B:
            return "B";
        case TesseraLib::SignedCades2::cptCades2T:
            return "T";
        case TesseraLib::SignedCades2::cptCades2Lt:
            return "LT";
        case TesseraLib::SignedCades2::cptCades2Lta:
            return "LTA";
        default:
            return "none";
    }
}

std::string FailureText(const Failure& failure) {
    if (!failure.coded) {
        return failure.text;
    }
    std::string text = "error " + std::to_string(failure.code) + ": " + failure.description;
    return failure.message.empty() ? text : text + " (" + failure.message + ")";
}

std::string FailureJson(const Failure& failure) {
    if (!failure.coded) {
        return "{\"code\": null, \"description\": " + JsonString(failure.text) +
               ", \"message\": \"\"}";
    }
    return "{\"code\": " + std::to_string(failure.code) +
           ", \"description\": " + JsonString(failure.description) +
           ", \"message\": " + JsonString(failure.message) + "}";
}

// ISO 8601 in JSON, as the validation reports write times.
std::string IsoUtc(std::int64_t seconds) {
    const std::time_t time = static_cast<std::time_t>(seconds);
    std::tm parts{};
    char text[32] = {0};
    if (gmtime_r(&time, &parts) == nullptr ||
        std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &parts) == 0) {
        return std::to_string(seconds);
    }
    return text;
}

void PrintProofText(const ProofResult& r, bool headed) {
    if (headed) {
        std::printf("Signer %u:\n", r.number);
    }
    std::printf("Form: %s\n", r.form.c_str());
    for (std::size_t i = 0; i < r.archives.size(); ++i) {
        const ArchiveOutcome& stamp = r.archives[i];
        std::printf("Archive time-stamp %zu: %s: %s\n", i + 1, FormatUtc(stamp.time).c_str(),
                    stamp.passed ? "passed" : FailureText(stamp.failure).c_str());
    }
    std::printf("Signature proven at: %s\n",
                r.proven ? FormatUtc(r.provenTime).c_str() : "(no proof)");
    std::printf("Result: %s\n", r.passed ? "passed" : FailureText(r.failure).c_str());
}

std::string ProofJson(const ProofResult& r) {
    std::string archives;
    for (const ArchiveOutcome& stamp : r.archives) {
        archives += std::string(archives.empty() ? "" : ", ") + "{\"time\": \"" +
                    IsoUtc(stamp.time) + "\", \"passed\": " + (stamp.passed ? "true" : "false") +
                    ", \"error\": " + (stamp.passed ? "null" : FailureJson(stamp.failure)) + "}";
    }
    return "{\"signer\": " + std::to_string(r.number) + ", \"form\": \"" + r.form +
           "\", \"archiveTimeStamps\": [" + archives +
           "], \"signatureProvenAt\": " + (r.proven ? "\"" + IsoUtc(r.provenTime) + "\"" : "null") +
           ", \"passed\": " + (r.passed ? "true" : "false") +
           ", \"error\": " + (r.passed ? "null" : FailureJson(r.failure)) + "}";
}

// Verifies the chosen signers with proofs of existence and prints what
// each gives; the exit status.
int VerifyWithProofs(const Request& request, ValidationSetup& setup,
                     const std::vector<unsigned char>& der,
                     const std::vector<unsigned char>& content) {
    using TesseraLib::SignedCades2;
    const Arguments& parsed = request.parsed;
    // The time-stamp authorities' paths end at anchors of the same store:
    // the verification has one policy for every path.
    for (unsigned int i = 0; i < setup.tsaTrustStore.GetCertificates().GetSize(); ++i) {
        setup.trustStore.AddCertificate(setup.tsaTrustStore.GetCertificates()[i]);
    }
    TesseraLib::X509ChainPolicy policy;
    policy.SetTrustStore(&setup.trustStore);
    policy.SetExtraStore(&setup.extraStore);
    ApplyPathSetup(setup, &policy);
    // The message's own validation data, and proofs gathered into the
    // store handed in, whose proven time of the signature is printed.
    policy.SetChainBuildMode(static_cast<TesseraLib::X509ChainPolicy::cptChainBuildMode>(
        policy.GetChainBuildMode() | TesseraLib::X509ChainPolicy::cptChainBuildStores |
        TesseraLib::X509ChainPolicy::cptChainBuildSuppliedValData));
    TesseraLib::VerifierCades verifier;
    verifier.SetVerifyOption(TesseraLib::VerifierCms::cptVerifyWholeChain);
    verifier.SetVerifyTime(setup.verifyTime);
    verifier.SetChainPolicy(&policy);

    SignedCades2 cades(
        qorstd::QorArray<unsigned char>(content.data(), static_cast<unsigned int>(content.size())));
    cades.Decode(
        qorstd::QorArray<unsigned char>(der.data(), static_cast<unsigned int>(der.size())));
    const unsigned int count = cades.GetSignerInfoCount();
    if (count == 0) {
        std::fprintf(stderr, "tessera validate: %s has no signer\n", parsed.positional[0].c_str());
        return kValidateInputError;
    }
    if (request.signer > count) {
        std::fprintf(stderr, "tessera validate: %s has %u signer(s), no signer %u\n",
                     parsed.positional[0].c_str(), count, request.signer);
        return kValidateInputError;
    }
    const qorstd::QorArray<unsigned char> digest(request.digest.data(),
                                                 static_cast<unsigned int>(request.digest.size()));
    std::vector<ProofResult> results;
    for (unsigned int number = 1; number <= count; ++number) {
        if (request.signer != 0 && number != request.signer) {
            continue;
        }
        SignedCades2::SignerInfo& signer = *cades.GetSignerInfo(number - 1);
        ProofResult result;
        result.number = number;
        result.form = FormName(signer.GetCadesType());
        // A store of its own per signer: one signer's proofs prove nothing
        // of another's signature.
        TesseraLib::ValidationDataStore store;
        result.passed = RunCatching(
            [&] {
                if (request.digest.empty()) {
                    signer.Verify(verifier, &store, SignedCades2::cptCades2None);
                } else {
                    signer.VerifyDigest(digest, verifier, &store, SignedCades2::cptCades2None);
                }
            },
            &result.failure);
        if (const auto* archives = signer.GetArchiveTimeStampsV3VerificationData()) {
            for (unsigned int i = 0; i < archives->GetSize(); ++i) {
                const TesseraLib::TimeStampVerificationData& data = (*archives)[i];
                ArchiveOutcome outcome;
                if (data.GetTimeStamp() != nullptr) {
                    outcome.time = data.GetTimeStamp()->GetTime();
                }
                if (const qorstd::QorException* failed = data.GetVerificationException()) {
                    outcome.passed = false;
                    RunCatching([&] { failed->ReThrow(); }, &outcome.failure);
                }
                result.archives.push_back(outcome);
            }
        }
        // The signature value is proven by its SHA-256 digest.
        TesseraLib::CryptHash sha256(TesseraLib::CryptHash::cptHashSHA256);
        sha256.Update(signer.GetSignatureValue());
        qorstd::QorArray<unsigned char> hash;
        sha256.Finish(hash);
        result.proven = store.GetPOEHash(&hash, &result.provenTime) != 0;
        results.push_back(std::move(result));
    }

    int status = kValidatePassed;
    const bool headed = request.signer == 0 && results.size() > 1;
    if (request.json) {
        std::printf("[");
    }
    for (std::size_t i = 0; i < results.size(); ++i) {
        const ProofResult& r = results[i];
        if (request.json) {
            std::printf("%s\n  %s", i == 0 ? "" : ",", ProofJson(r).c_str());
        } else {
            if (i != 0) {
                std::printf("\n");
            }
            PrintProofText(r, headed);
        }
        bool archivesPassed = true;
        for (const ArchiveOutcome& stamp : r.archives) {
            archivesPassed = archivesPassed && stamp.passed;
        }
        if (!r.passed || !archivesPassed) {
            status = kValidateFailed;
        }
    }
    if (request.json) {
        std::printf("\n]\n");
    }
    return status;
}

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
    if (request.poe) {
        std::vector<unsigned char> der;
        std::vector<unsigned char> content;
        if (!ReadSignatureFile(kCommand, parsed.positional[0], &der) ||
            (!request.contentFile.empty() &&
             !ReadInputFile(kCommand, request.contentFile, &content, true))) {
            return kValidateInputError;
        }
        return VerifyWithProofs(request, setup, der, content);
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
