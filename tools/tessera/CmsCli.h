// What the CMS commands share: the signer of the signing commands (sign,
// sign-digest, cosign, estimate), a certificate with its private key from a
// PEM key file, a PKCS#12 file or a PKCS#11 token, and the signer's options;
// the time-stamp client; hexadecimal digests; signature files read and
// written.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "Cli.h"
#include "SignerCades.h"
#include "TspClient.h"
#include "X509Store.h"

namespace tessera_cli {

// The options LoadSigner reads, each taking a value: --cert, --key,
// --password, --p12, --pkcs11, --key-id, --pin, --include, --trust, --extra,
// --hash, --store-dir, --subject.
const std::set<std::string>& SignerOptions();

// What one signing command signs with. Not copyable: the signer points at
// the stores beside it. The signer is a CAdES one so that the CAdES options
// add to the CMS set-up instead of repeating it; a plain CMS signature
// ignores what it adds. A PKCS#11 set-up is undone on destruction,
// after the signer has let go of the token's key.
struct SignerSetup {
    TesseraLib::X509MemoryStore trustStore;
    TesseraLib::X509MemoryStore extraStore;
    TesseraLib::SignerCades signer;
    bool pkcs11 = false;

    SignerSetup() = default;
    SignerSetup(const SignerSetup&) = delete;
    SignerSetup& operator=(const SignerSetup&) = delete;
    ~SignerSetup();
};

// Fills `setup` from the signer options: the certificate (--cert; with
// --p12 it may come from the PKCS#12 file instead; with --subject it is
// picked from the store of --store-dir or --pkcs11), exactly one key source,
// --include none|signer|chain|whole (default signer), --hash (default: the
// certificate's), and signed attributes unless `noAttributes` (--no-attrs).
// The path of --include chain and whole runs from the --trust anchors
// through the CA certificates of the PKCS#12 file and the --extra files;
// without --trust, the self-signed ones among these are the anchors.
// Returns kExitOk, or the exit code after a usage error or an unreadable
// file (already reported). Library failures (a wrong password or PIN ...)
// are thrown.
int LoadSigner(const std::string& command, const Arguments& parsed, bool noAttributes,
               SignerSetup* setup);

// Loads the PKCS#11 module `module` with the engine pkcs11 over it, and
// hands the engine `pin` when one is given. false, after a line on stderr and
// with nothing left loaded, when that fails.
bool StartPkcs11(const std::string& command, const std::string& module, const std::string* pin);

// The client every command that asks a time-stamp authority uses (timestamp,
// sign --tsa, upgrade), for the address `url`.
QorTsp2Lib::TspClient TspClientFor(const std::string& url);

// Hexadecimal text as bytes; false for an odd length or a non-hex digit.
bool ParseHex(const std::string& text, std::vector<unsigned char>* bytes);

// The DER of a signature file's bytes: the first PEM block labelled CMS,
// else PKCS7, else the bytes as they are.
std::vector<unsigned char> SignatureDer(const std::vector<unsigned char>& bytes);

// The DER of the signature file `path` (DER, or PEM labelled CMS or PKCS7);
// false (after a line on stderr) when it cannot be read or is empty.
bool ReadSignatureFile(const std::string& command, const std::string& path,
                       std::vector<unsigned char>* der);

// Writes a message as DER, or as PEM labelled "CMS" when `pem` is set; false
// (after a line on stderr) when the file cannot be written.
bool WriteMessage(const std::string& command, const std::string& path,
                  const std::vector<unsigned char>& der, bool pem);

}  // namespace tessera_cli
