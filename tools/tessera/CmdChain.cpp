// tessera chain CERT --trust FILE [--extra FILE] [--crl FILE]
//               [--mode crl|ocsp|either] [--option none|end|chain|whole] [--fetch]
//               [--time ISO8601] [--purpose smime|timestamp|none]
//
// Builds and checks the certification path of CERT with X509Chain and prints
// it: the verification time, then for every certificate from CERT up to the
// trust anchor its subject, serial and the revocation data that decided its
// status, then "Result: valid". A failed check prints the error (code,
// description, message) and exits 1.
//
// Every file is PEM or DER. --trust, --extra and --crl take one file each and
// may be repeated; a PEM file may hold several certificates or CRLs. The
// --trust certificates are the anchors; --extra certificates and --crl CRLs
// form the extra store the path and revocation search draw from. When CERT
// holds several certificates, the first is checked and the others join the
// extra store. --fetch lets the search download CRLs from the distribution
// points and ask the OCSP responder named in each certificate's AIA.
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "ChainCli.h"
#include "Cli.h"
#include "X509Certificate.h"
#include "X509Chain.h"
#include "X509ChainPolicy.h"
#include "X509Crl.h"

namespace tessera_cli {

namespace {

using TesseraLib::X509Certificate;
using TesseraLib::X509ChainPolicy;

const char kCommand[] = "chain";

template <class T>
bool Lookup(const std::string& name, const std::vector<std::pair<const char*, T>>& table,
            T* value) {
    for (const auto& entry : table) {
        if (name == entry.first) {
            *value = entry.second;
            return true;
        }
    }
    return false;
}

std::string RevocationLine(const TesseraLib::X509ChainElement& element) {
    if (const QorOcsp2Lib::OcspResponse* response = element.GetOcspResponse()) {
        return "OCSP response produced " + FormatUtc(response->GetProducedAt()) + " by " +
               Narrow(response->GetResponderName().c_str());
    }
    if (const TesseraLib::X509Crl* crl = element.GetCrl()) {
        return "CRL issued " + FormatUtc(crl->GetThisUpdate()) + " by " +
               Narrow(crl->GetIssuerStringX500().c_str());
    }
    return "none";
}

}  // namespace

int RunChain(const std::vector<std::string>& args) {
    std::vector<std::string> options = args;
    const bool fetch = TakeFetchFlag(&options);
    const Arguments parsed = ParseArguments(
        kCommand, options,
        {"--trust", "--extra", "--crl", "--mode", "--option", "--time", "--purpose"});
    if (!parsed.error.empty()) {
        return UsageError(parsed.error);
    }
    if (parsed.positional.size() != 1) {
        return UsageError(
            "chain: exactly one CERT is required (repeat --trust, --extra or --crl for more "
            "files)");
    }
    if (parsed.options.count("--trust") == 0) {
        return UsageError("chain: at least one --trust FILE is required");
    }
    X509ChainPolicy::cptRevocationOption option = X509ChainPolicy::revOptionChain;
    if (!Lookup<X509ChainPolicy::cptRevocationOption>(
            parsed.Get("--option", "chain"),
            {{"none", X509ChainPolicy::revOptionNone},
             {"end", X509ChainPolicy::revOptionEndEntity},
             {"chain", X509ChainPolicy::revOptionChain},
             {"whole", X509ChainPolicy::revOptionWholeChain}},
            &option)) {
        return UsageError("chain: --option must be none, end, chain or whole");
    }
    int purpose = X509ChainPolicy::kPurposeSmimeSign;
    if (!Lookup<int>(parsed.Get("--purpose", "smime"),
                     {{"smime", X509ChainPolicy::kPurposeSmimeSign},
                      {"timestamp", X509ChainPolicy::kPurposeTimestampSign},
                      {"none", X509ChainPolicy::kPurposeNone}},
                     &purpose)) {
        return UsageError("chain: --purpose must be smime, timestamp or none");
    }
    ChainSetup setup;
    const int status = BuildChainSetup(kCommand, parsed, fetch, &setup);
    if (status != kExitOk) {
        return status;
    }
    std::vector<X509Certificate> subject;
    if (!ReadCertificateFile(kCommand, parsed.positional[0], &subject)) {
        return kExitFailure;
    }
    for (std::size_t i = 1; i < subject.size(); ++i) {
        setup.extraStore.AddCertificate(subject[i]);
    }
    setup.policy.SetRevocationOption(option);
    setup.policy.SetPurpose(purpose);

    std::printf("Verification time: %s\n", FormatUtc(setup.verifyTime).c_str());
    TesseraLib::X509Chain chain(&setup.policy);
    chain.Build(&subject[0], setup.verifyTime);
    const qorstd::QorVector<TesseraLib::X509ChainElement>& elements = chain.GetElements();
    for (unsigned int i = 0; i < elements.GetSize(); ++i) {
        const X509Certificate* cert = elements[i].GetCertificate();
        std::printf("[%u] Subject:    %s\n", i,
                    Narrow(cert->GetSubjectStringX500(0).c_str()).c_str());
        std::printf("    Serial:     %s\n", cert->GetSerialNumberStringHex().c_str());
        std::printf("    Revocation: %s\n", RevocationLine(elements[i]).c_str());
    }
    std::printf("Result: valid\n");
    return kExitOk;
}

}  // namespace tessera_cli
