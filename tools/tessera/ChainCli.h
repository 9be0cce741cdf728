// Reading certificates and CRLs for the commands that check certification
// paths, and turning their path options (--trust, --extra, --crl, --mode,
// --fetch, --time) into a chain policy.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Cli.h"
#include "X509Certificate.h"
#include "X509ChainPolicy.h"
#include "X509CrlClient.h"
#include "X509OcspClient.h"
#include "X509Store.h"

namespace tessera_cli {

// True when the bytes hold a PEM block.
bool IsPem(const std::vector<unsigned char>& bytes);

// The DER of every "-----BEGIN <label>-----" block of a PEM text, in order.
std::vector<std::vector<unsigned char>> PemBlocks(const std::string& text,
                                                  const std::string& label);

// "2024-06-01T12:00:00Z", the same without the zone letter (read as UTC), or
// a bare date meaning its midnight UTC.
bool ParseUtc(const std::string& text, std::int64_t* seconds);

// The whole content of a file; false (after a line on stderr naming
// `command` and the file) when it cannot be read, or is empty unless
// `emptyOk`.
bool ReadInputFile(const std::string& command, const std::string& path,
                   std::vector<unsigned char>* bytes, bool emptyOk = false);

// The certificates of a PEM or DER file, in file order; false (after a line
// on stderr naming `command` and the file) when none can be read.
bool ReadCertificateFile(const std::string& command, const std::string& path,
                         std::vector<TesseraLib::X509Certificate>* out);

// The time, stores and clients the path options give, from which a chain
// policy of either kind is made. Not copyable: policies point at them.
struct PathSetup {
    std::int64_t verifyTime = 0;
    TesseraLib::X509ChainPolicy::cptRevocationMode revocationMode =
        TesseraLib::X509ChainPolicy::revCrl;
    bool fetch = false;
    TesseraLib::X509MemoryStore trustStore;
    TesseraLib::X509MemoryStore extraStore;  // the --extra certificates and the --crl CRLs
    TesseraLib::X509CurlCrlClientOnline crlClient;
    TesseraLib::X509OcspClientOnline ocspClient;

    PathSetup() = default;
    PathSetup(const PathSetup&) = delete;
    PathSetup& operator=(const PathSetup&) = delete;
};

// Fills `setup` from --time (else now, fixed here so that the time printed
// is the time checked), --trust, --extra, --crl and --mode (crl by
// default); `fetch` is kept for ApplyPathSetup. Returns kExitOk, or the
// exit code after a usage error or an unreadable file (already reported).
int ReadPathSetup(const std::string& command, const Arguments& parsed, bool fetch,
                  PathSetup* setup);

// Sets what a policy of either kind takes from `setup` apart from the
// stores, which a policy for signature validation keeps per purpose: the
// revocation mode, revocation checked for every certificate except
// self-signed ones, the S/MIME signing purpose and, with --fetch, the
// clients that download CRLs and ask OCSP responders.
void ApplyPathSetup(PathSetup& setup, TesseraLib::X509ChainPolicy* policy);

// The time, stores, clients and policy one path check reads.
struct ChainSetup : PathSetup {
    TesseraLib::X509ChainPolicy policy;
};

// ReadPathSetup, then a policy over the --trust anchors and the extra store
// as ApplyPathSetup sets it.
int BuildChainSetup(const std::string& command, const Arguments& parsed, bool fetch,
                    ChainSetup* setup);

// Takes the flag --fetch out of `args`, leaving the rest for ParseArguments;
// whether it was given.
bool TakeFetchFlag(std::vector<std::string>* args);

}  // namespace tessera_cli
