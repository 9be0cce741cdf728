// tessera verify SIG [--content FILE | --digest HEX]
//                [--trust FILE] [--extra FILE] [--crl FILE] [--mode crl|ocsp|either] [--fetch]
//                [--time ISO8601] [--verify none|signer|chain] [--cades]
//                [--policy FILE | --policy-url URL] [--check-policy]
//                [--ignore-signed-attr OID] [--tsa-trust FILE] [--json]
//
// Verifies every signer of the CMS signature SIG (DER, or PEM labelled CMS or
// PKCS7) and prints, per signer, its subject, the result and the checks that
// passed, or the error (code, description, message) that ended its check.
// The exit code is 0 only when every signer passed. --json prints the same as
// one object.
//
// --content gives the signed content of a detached signature; --digest the
// content's digest in hexadecimal instead (made with the signer's digest
// algorithm). --verify says how far the signer certificate is checked: none,
// signer (its validity at the time and, when the issuer is in the message,
// the issuer's signature) or chain (the path to a --trust anchor with
// revocation, as `tessera chain` checks it). Without --verify the path is
// checked when --trust is given, otherwise the signer certificate alone.
// --time fixes the verification time (default: now).
//
// A signer that carries a signing-certificate attribute is verified as a
// CAdES signer, which adds the check that the attribute names the signer
// certificate; the others as plain CMS signers, so that a message co-signed
// both ways still verifies. --cades verifies every signer as CAdES, so that
// one without the attribute fails. For a CAdES signer the form (BES, EPES,
// T), the levels it reaches, the policy it names and its MIME type are
// printed too, and, when a policy document is at hand (--policy, or the one
// the policy check applied), which digest of the document the signer's
// policy hash is: "fields", "whole file" or "none". --check-policy applies
// the named policy, read from --policy or downloaded from --policy-url, on
// top of the path check (its default then); a trust point of the policy
// replaces the --trust anchors. --ignore-signed-attr OID (repeatable) skips
// a signed attribute the policy mandates.
//
// A signer with signature time-stamps has its latest one checked; its time,
// the authority that made it and the result are printed. --tsa-trust FILE
// (repeatable) adds anchors for the authorities' paths to the trust store.
#include <openssl/cms.h>
#include <openssl/objects.h>

#include <cstdio>
#include <string>
#include <vector>

#include "ChainCli.h"
#include "Cli.h"
#include "CmsCli.h"
#include "CryptException.h"
#include "SignaturePolicy.h"
#include "SignaturePolicyClient.h"
#include "SignedCades.h"
#include "SignedCms.h"
#include "TspException.h"
#include "VerifierCades.h"

namespace tessera_cli {

namespace {

using TesseraLib::SignaturePolicy;
using TesseraLib::SignedCades;
using TesseraLib::SignedCms;
using TesseraLib::VerifierCms;

const char kCommand[] = "verify";

// What one signer's verification found, printed as text or JSON.
struct SignerReport {
    std::string subject;  // empty when the certificate was not found
    bool cades = false;
    std::string form;                 // CAdES only, once the signer could be read
    std::vector<std::string> levels;  // CAdES only
    std::string policyOid;            // empty when the signer names none
    std::string policyHash;           // empty when no document was at hand
    std::string mimeType;             // empty when the signer has none
    bool valid = false;
    std::vector<std::string> checked;
    Failure failure;  // when not valid
    // The signature time-stamp checked: the latest of stampCount.
    unsigned int stampCount = 0;
    long long stampTime = 0;
    std::string stampTsa;      // empty when the token carries no certificate
    bool stampValid = false;   // bit kVerifiedSignatureTimeStamps
    bool stampFailed = false;  // `failure` came from the time-stamp check
};

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

// Dotted decimal with at least two arcs, as the policy lists attributes.
bool IsDottedOid(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789.") == std::string::npos &&
           text.find('.') != std::string::npos && text.front() != '.' && text.back() != '.' &&
           text.find("..") == std::string::npos;
}

std::vector<std::string> ChecksPassed(unsigned long bits, VerifierCms::cptVerifyOption option) {
    using Info = SignedCades::SignerInfo;
    std::vector<std::string> names;
    if ((bits & Info::kVerifiedSignature) != 0) {
        names.push_back("signature");
    }
    if ((bits & Info::kVerifiedContentType) != 0) {
        names.push_back("content type");
    }
    if ((bits & Info::kVerifiedSigningCertificate) != 0) {
        names.push_back("signing certificate");
    }
    if ((bits & Info::kVerifiedSignatureTimeStamps) != 0) {
        names.push_back("signature time-stamps");
    }
    if ((bits & Info::kVerifiedCertificate) != 0) {
        names.push_back(option == VerifierCms::cptVerifyWholeChain ? "certificate path"
                                                                   : "signer certificate");
    }
    return names;
}

// CAdES signers are told apart from plain ones by this attribute (either
// version); OpenSSL reads it straight from the signer.
bool HasSigningCertificate(const SignedCms::SignerInfo& signer) {
    CMS_SignerInfo* handle = const_cast<CMS_SignerInfo*>(signer.GetSigner());
    return handle != nullptr &&
           (CMS_signed_get_attr_by_NID(handle, NID_id_smime_aa_signingCertificate, -1) >= 0 ||
            CMS_signed_get_attr_by_NID(handle, NID_id_smime_aa_signingCertificateV2, -1) >= 0);
}

const char* FormName(SignedCades::cptCadesType form) {
    switch (form) {
        case SignedCades::cptCadesBes:
            return "BES";
        case SignedCades::cptCadesEpes:
            return "EPES";
        case SignedCades::cptCadesT:
            return "T";
        default:
            return "none";
    }
}

const char* LevelName(SignedCades::cptCadesLevel level) {
    switch (level) {
        case SignedCades::cptCadesLevelBes:
            return "BES";
        case SignedCades::cptCadesLevelT:
            return "T";
        case SignedCades::cptCadesLevelLt:
            return "LT";
        case SignedCades::cptCadesLevelBaselineB:
            return "B-B";
        case SignedCades::cptCadesLevelBaselineT:
            return "B-T";
        case SignedCades::cptCadesLevelBaselineLt:
            return "B-LT";
    }
    return "?";
}

const char* HashConventionName(SignaturePolicy::cptHashConvention convention) {
    switch (convention) {
        case SignaturePolicy::cptHashMatchFields:
            return "fields";
        case SignaturePolicy::cptHashMatchWholeFile:
            return "whole file";
        default:
            return "none";
    }
}

std::string SubjectOf(const SignedCms::SignerInfo& signer) {
    return Narrow(signer.GetCertificate().GetSubjectStringX500(0).c_str());
}

// The time-stamp the verification checked, else the latest one by time.
const QorTsp2Lib::TspTimeStamp& CheckedStamp(const SignedCms::SignerInfo& signer) {
    if (signer.GetTimeStamp() != nullptr) {
        return *signer.GetTimeStamp();
    }
    const qorstd::QorVector<TesseraLib::TimeStampAttribute>& stamps =
        signer.GetSignatureTimeStamps();
    const TesseraLib::TimeStampAttribute* latest = &stamps[0];
    for (unsigned int i = 1; i < stamps.GetSize(); ++i) {
        if (TesseraLib::TimeStampAttribute::CompareByTime(&stamps[i], latest) > 0) {
            latest = &stamps[i];
        }
    }
    return latest->GetTimeStamp();
}

// The signature time-stamp values of a signer, read after its verification.
void DescribeStamp(const SignedCms::SignerInfo& signer, SignerReport* report) {
    report->stampCount = signer.GetSignatureTimeStamps().GetSize();
    if (report->stampCount == 0) {
        return;
    }
    const QorTsp2Lib::TspTimeStamp& stamp = CheckedStamp(signer);
    report->stampTime = stamp.GetTime();
    if (stamp.GetTsaCertificate() != nullptr) {
        report->stampTsa = stamp.GetTsaCertificate()->GetSubjectText().c_str();
    }
    report->stampValid =
        (signer.GetVerifyInfo() & SignedCms::SignerInfo::kVerifiedSignatureTimeStamps) != 0;
}

// The CAdES values of a signer, read after its verification; `document` is
// the policy document at hand (may be null).
void DescribeCades(const SignedCades::SignerInfo& signer, const SignaturePolicy* document,
                   SignerReport* report) {
    report->form = FormName(signer.GetCadesType());
    const qorstd::QorVector<SignedCades::cptCadesLevel>& levels = signer.GetCadesLevelEstimate();
    for (unsigned int i = 0; i < levels.GetSize(); ++i) {
        report->levels.push_back(LevelName(levels[i]));
    }
    if (const TesseraLib::SignaturePolicyAttribute* named = signer.GetSignaturePolicy()) {
        report->policyOid = named->GetPolicyOID().c_str();
        // The document the policy check applied, else the --policy file.
        const SignaturePolicy* applied =
            signer.GetPolicyInUse() != nullptr ? signer.GetPolicyInUse() : document;
        if (applied != nullptr) {
            report->policyHash = HashConventionName(
                applied->MatchHash(named->GetHashAlgorithmNID(), named->GetHashValue()));
        }
    }
    if (const TesseraLib::MimeTypeAttribute* mime = signer.GetMimeType()) {
        report->mimeType = Narrow(mime->GetMimeTypeString().c_str());
    }
}

std::string Joined(const std::vector<std::string>& items) {
    std::string text;
    for (const std::string& item : items) {
        text += (text.empty() ? "" : ", ") + item;
    }
    return text.empty() ? "none" : text;
}

void PrintText(const SignerReport& report, unsigned int index) {
    std::printf("Signer %u: %s\n", index,
                report.subject.empty() ? "(certificate not found)" : report.subject.c_str());
    if (!report.form.empty()) {
        std::printf("    Form:    %s\n", report.form.c_str());
        std::printf("    Levels:  %s\n", Joined(report.levels).c_str());
        if (!report.policyOid.empty()) {
            std::printf("    Policy:  %s", report.policyOid.c_str());
            if (!report.policyHash.empty()) {
                std::printf(" (hash check: %s)", report.policyHash.c_str());
            }
            std::printf("\n");
        }
        if (!report.mimeType.empty()) {
            std::printf("    MIME:    %s\n", report.mimeType.c_str());
        }
    }
    if (report.stampCount != 0) {
        std::printf("    Time-stamp: %s", FormatUtc(report.stampTime).c_str());
        if (report.stampCount > 1) {
            std::printf(", the latest of %u", report.stampCount);
        }
        std::printf("\n        TSA:    %s\n", report.stampTsa.empty()
                                                  ? "(no certificate in the token)"
                                                  : report.stampTsa.c_str());
        if (report.stampValid) {
            std::printf("        Result: ok\n");
        } else if (report.stampFailed && report.failure.coded) {
            std::printf("        Result: error %d\n", report.failure.code);
        } else {
            std::printf("        Result: not checked\n");
        }
    }
    std::printf("    Result:  %s\n", report.valid ? "valid" : "invalid");
    std::printf("    Checked: %s\n", Joined(report.checked).c_str());
    if (report.valid) {
        return;
    }
    const Failure& failure = report.failure;
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

std::string JsonOrNull(const std::string& text) {
    return text.empty() ? "null" : JsonString(text);
}

std::string StampJson(const SignerReport& r) {
    if (r.stampCount == 0) {
        return "null";
    }
    const bool failed = !r.stampValid && r.stampFailed && r.failure.coded;
    return "{\"count\": " + std::to_string(r.stampCount) +
           ", \"time\": " + std::to_string(r.stampTime) + ", \"tsa\": " + JsonOrNull(r.stampTsa) +
           ", \"result\": \"" +
           (r.stampValid ? "ok"
            : failed     ? "failed"
                         : "not checked") +
           "\", \"errorCode\": " + (failed ? std::to_string(r.failure.code) : "null") + "}";
}

void PrintJson(long long verifyTime, const std::vector<SignerReport>& reports,
               unsigned int passed) {
    std::printf("{\n  \"verificationTime\": %lld,\n  \"signers\": [", verifyTime);
    for (std::size_t i = 0; i < reports.size(); ++i) {
        const SignerReport& r = reports[i];
        std::printf("%s\n    {\n", i == 0 ? "" : ",");
        std::printf("      \"subject\": %s,\n", JsonOrNull(r.subject).c_str());
        std::printf("      \"cades\": %s,\n", r.cades ? "true" : "false");
        std::printf("      \"form\": %s,\n", JsonOrNull(r.form).c_str());
        std::printf("      \"levels\": %s,\n", JsonArray(r.levels).c_str());
        std::printf("      \"policyOid\": %s,\n", JsonOrNull(r.policyOid).c_str());
        std::printf("      \"policyHashCheck\": %s,\n", JsonOrNull(r.policyHash).c_str());
        std::printf("      \"mimeType\": %s,\n", JsonOrNull(r.mimeType).c_str());
        std::printf("      \"timeStamp\": %s,\n", StampJson(r).c_str());
        std::printf("      \"valid\": %s,\n", r.valid ? "true" : "false");
        std::printf("      \"checked\": %s,\n", JsonArray(r.checked).c_str());
        if (r.valid) {
            std::printf("      \"error\": null\n    }");
        } else if (r.failure.coded) {
            std::printf(
                "      \"error\": {\"code\": %d, \"description\": %s, \"message\": %s}\n    }",
                r.failure.code, JsonString(r.failure.description).c_str(),
                JsonString(r.failure.message).c_str());
        } else {
            std::printf(
                "      \"error\": {\"code\": null, \"description\": %s, \"message\": \"\"}\n"
                "    }",
                JsonString(r.failure.text).c_str());
        }
    }
    std::printf("%s],\n  \"validSigners\": %u,\n  \"valid\": %s\n}\n",
                reports.empty() ? "" : "\n  ", passed,
                !reports.empty() && passed == reports.size() ? "true" : "false");
}

// What the arguments ask for, checked for usage errors.
struct Request {
    Arguments parsed;
    bool fetch = false;
    bool json = false;
    bool allCades = false;
    bool checkPolicy = false;
    VerifierCms::cptVerifyOption option = VerifierCms::cptVerifyWholeChain;
    std::string contentFile;
    std::vector<unsigned char> digest;  // empty: verify against the content
    std::string policyFile;
    std::string policyUrl;
    TesseraLib::SignaturePolicyOverrides overrides;
};

// Fills `request`; kExitOk, or the exit code after a usage error (already
// reported).
int ReadRequest(const std::vector<std::string>& args, Request* request) {
    std::vector<std::string> options = args;
    request->fetch = TakeFetchFlag(&options);
    request->json = TakeFlag(&options, "--json");
    request->allCades = TakeFlag(&options, "--cades");
    request->checkPolicy = TakeFlag(&options, "--check-policy");
    const Arguments& parsed = request->parsed = ParseArguments(
        kCommand, options,
        {"--content", "--digest", "--trust", "--extra", "--crl", "--mode", "--time", "--verify",
         "--policy", "--policy-url", "--ignore-signed-attr", "--tsa-trust"});
    if (!parsed.error.empty()) {
        return UsageError(parsed.error);
    }
    if (parsed.positional.size() != 1) {
        return UsageError("verify: exactly one SIG is required");
    }
    request->contentFile = parsed.Get("--content");
    const std::string digestText = parsed.Get("--digest");
    if (!request->contentFile.empty() && !digestText.empty()) {
        return UsageError("verify: --content and --digest exclude each other");
    }
    if (!digestText.empty() && !ParseHex(digestText, &request->digest)) {
        return UsageError("verify: --digest takes the digest as hexadecimal digits");
    }
    const bool checkPolicy = request->checkPolicy;
    const bool haveTrust = parsed.options.count("--trust") != 0;
    const std::string level = parsed.Get("--verify", haveTrust || checkPolicy ? "chain" : "signer");
    if (level == "none") {
        request->option = VerifierCms::cptVerifyNone;
    } else if (level == "signer") {
        request->option = VerifierCms::cptVerifySignerCertificate;
    } else if (level != "chain") {
        return UsageError("verify: --verify must be none, signer or chain");
    }
    const bool chain = request->option == VerifierCms::cptVerifyWholeChain;
    // A trust point of the policy may be the anchor instead.
    if (chain && !haveTrust && !checkPolicy) {
        return UsageError("verify: --verify chain needs at least one --trust FILE");
    }
    request->policyFile = parsed.Get("--policy");
    request->policyUrl = parsed.Get("--policy-url");
    if (!request->policyFile.empty() && !request->policyUrl.empty()) {
        return UsageError("verify: --policy and --policy-url exclude each other");
    }
    if (checkPolicy && request->policyFile.empty() && request->policyUrl.empty()) {
        return UsageError("verify: --check-policy needs --policy FILE or --policy-url URL");
    }
    // The policy's algorithm constraints are checked on the certification
    // path, which only --verify chain builds.
    if (checkPolicy && !chain) {
        return UsageError("verify: --check-policy needs --verify chain");
    }
    // Only the policy check reads them.
    const auto ignored = parsed.options.find("--ignore-signed-attr");
    if (!checkPolicy && (!request->policyUrl.empty() || ignored != parsed.options.end())) {
        return UsageError("verify: --policy-url and --ignore-signed-attr need --check-policy");
    }
    if (ignored != parsed.options.end()) {
        for (const std::string& oid : ignored->second) {
            if (!IsDottedOid(oid)) {
                return UsageError("verify: --ignore-signed-attr takes a dotted OID, not '" + oid +
                                  "'");
            }
            request->overrides.GetIgnoredSignedAttributes().Add(qorstd::QorString(oid.c_str()));
        }
    }
    return kExitOk;
}

// Runs `verify` (which throws what the library throws) and fills the result
// and the checks passed; a failure ends this signer's check, not the
// command, so that the others are still checked.
// A failure of the time-stamp check is noted before it ends the signer's
// check as any other does.
template <class Verify>
void RunCheck(Verify verify, const SignedCms::SignerInfo& signer,
              VerifierCms::cptVerifyOption option, SignerReport* report) {
    const auto noting = [&verify, report] {
        try {
            verify();
        } catch (const TesseraLib::TimeStampException&) {
            report->stampFailed = true;
            throw;
        } catch (const TesseraLib::TimeStampOcspException&) {
            report->stampFailed = true;
            throw;
        } catch (const QorTsp2Lib::TspException&) {
            report->stampFailed = true;
            throw;
        }
    };
    report->valid = RunCatching(noting, &report->failure);
    report->checked = ChecksPassed(signer.GetVerifyInfo(), option);
    // After verifying, which may have found the certificate.
    report->subject = SubjectOf(signer);
    DescribeStamp(signer, report);
}

}  // namespace

int RunVerify(const std::vector<std::string>& args) {
    Request request;
    const int status = ReadRequest(args, &request);
    if (status != kExitOk) {
        return status;
    }
    ChainSetup setup;
    const int setupStatus = BuildChainSetup(kCommand, request.parsed, request.fetch, &setup);
    if (setupStatus != kExitOk) {
        return setupStatus;
    }
    // The authorities' anchors join the store the whole check trusts.
    const auto tsaTrust = request.parsed.options.find("--tsa-trust");
    if (tsaTrust != request.parsed.options.end()) {
        for (const std::string& path : tsaTrust->second) {
            std::vector<TesseraLib::X509Certificate> certs;
            if (!ReadCertificateFile(kCommand, path, &certs)) {
                return kExitFailure;
            }
            for (const TesseraLib::X509Certificate& cert : certs) {
                setup.trustStore.AddCertificate(cert);
            }
        }
    }
    std::vector<unsigned char> der;
    if (!ReadSignatureFile(kCommand, request.parsed.positional[0], &der)) {
        return kExitFailure;
    }
    std::vector<unsigned char> content;
    if (!request.contentFile.empty() &&
        !ReadInputFile(kCommand, request.contentFile, &content, true)) {
        return kExitFailure;
    }
    SignaturePolicy document;
    if (!request.policyFile.empty()) {
        std::vector<unsigned char> bytes;
        if (!ReadInputFile(kCommand, request.policyFile, &bytes)) {
            return kExitFailure;
        }
        document.Decode(
            qorstd::QorArray<unsigned char>(bytes.data(), static_cast<unsigned int>(bytes.size())));
    }

    const qorstd::QorArray<unsigned char> contentArray(content.data(),
                                                       static_cast<unsigned int>(content.size()));
    const qorstd::QorArray<unsigned char> derArray(der.data(),
                                                   static_cast<unsigned int>(der.size()));
    SignedCms cms(contentArray);
    cms.Decode(derArray);
    const unsigned int count = cms.GetSignerInfoCount();
    std::vector<bool> asCades(count, request.allCades);
    bool anyCades = request.allCades && count > 0;
    for (unsigned int i = 0; i < count; ++i) {
        if (HasSigningCertificate(*cms.GetSignerInfo(i))) {
            asCades[i] = true;
            anyCades = true;
        }
    }
    // The CAdES reading of the same message. It refuses a message in which
    // any signer lacks signed attributes; that failure becomes the verdict
    // of the CAdES signers, and the plain ones are still checked.
    SignedCades cades(contentArray);
    Failure cadesRefusal;
    bool cadesRead = !anyCades || RunCatching([&] { cades.Decode(derArray); }, &cadesRefusal);
    if (anyCades && cadesRead && cades.GetSignerInfoCount() != count) {
        cadesRead = false;
        cadesRefusal.text = "the CAdES reading of the message has other signers";
    }

    TesseraLib::VerifierCades verifier;
    verifier.SetVerifyOption(request.option);
    verifier.SetVerifyTime(setup.verifyTime);
    verifier.SetChainPolicy(&setup.policy);
    verifier.SetCheckSignaturePolicy(request.checkPolicy ? 1 : 0);
    verifier.SetSignaturePolicyOverrides(&request.overrides);
    if (!request.policyFile.empty()) {
        verifier.SetSignaturePolicy(&document);
    }
    TesseraLib::CurlSignaturePolicyClientOnline client;
    if (!request.policyUrl.empty()) {
        client.SetUrl(std::wstring(request.policyUrl.begin(), request.policyUrl.end()).c_str());
        verifier.SetSignaturePolicyClient(&client);
    }
    const bool withDigest = !request.digest.empty();
    const qorstd::QorArray<unsigned char> hash(request.digest.data(),
                                               static_cast<unsigned int>(request.digest.size()));

    std::vector<SignerReport> reports(count);
    unsigned int passed = 0;
    for (unsigned int i = 0; i < count; ++i) {
        SignerReport& report = reports[i];
        SignedCms::SignerInfo& plain = *cms.GetSignerInfo(i);
        report.cades = asCades[i];
        if (!asCades[i]) {
            RunCheck(
                [&] {
                    withDigest ? plain.VerifyDigest(verifier, hash, SignedCms::cptCmsNone)
                               : plain.Verify(verifier, SignedCms::cptCmsNone);
                },
                plain, request.option, &report);
        } else if (!cadesRead) {
            report.failure = cadesRefusal;
            report.subject = SubjectOf(plain);
        } else {
            SignedCades::SignerInfo& signer = *cades.GetSignerInfo(i);
            RunCheck(
                [&] {
                    withDigest ? signer.VerifyDigest(verifier, hash, SignedCades::cptCadesNone)
                               : signer.Verify(verifier, SignedCades::cptCadesNone);
                },
                signer, request.option, &report);
            DescribeCades(signer, request.policyFile.empty() ? nullptr : &document, &report);
        }
        passed += report.valid ? 1 : 0;
    }

    const bool allPassed = count > 0 && passed == count;
    if (request.json) {
        PrintJson(setup.verifyTime, reports, passed);
    } else {
        std::printf("Verification time: %s\n", FormatUtc(setup.verifyTime).c_str());
        for (unsigned int i = 0; i < count; ++i) {
            PrintText(reports[i], i + 1);
        }
        std::printf("Result: %s (%u of %u signers valid)\n", allPassed ? "valid" : "invalid",
                    passed, count);
    }
    return allPassed ? kExitOk : kExitFailure;
}

}  // namespace tessera_cli
