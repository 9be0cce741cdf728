// The subcommands with their help texts, and `tessera help`.
#include <algorithm>
#include <cstdio>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Cli.h"

namespace tessera_cli {

namespace {

// The options of the signing commands (sign, sign-digest, cosign, estimate).
const std::string kSignerOptions =
    "--cert CERT\tthe signer certificate, PEM or DER; with --p12 it may be left out and is "
    "then the PKCS#12 file's\n"
    "--key KEY\tthe private key as a PEM file, encrypted or not\n"
    "--p12 FILE\ta PKCS#12 file with the private key; the CA certificates it carries serve "
    "--include chain and whole\n"
    "--password P\tthe password of --key or --p12\n"
    "--pkcs11 MODULE\tthe PKCS#11 module of a token that holds the private key\n"
    "--key-id slot_X-id_Y\tthe token key: slot and key identifier in hexadecimal\n"
    "--pin PIN\tthe token's user PIN\n"
    "--store-dir DIR\ta certificate store directory (as store list --dir) to pick the signer "
    "and its key from, with --subject\n"
    "--subject TEXT\tpicks the one certificate of --store-dir or of the --pkcs11 tokens whose "
    "subject contains TEXT, and its key; several matches are an error\n"
    "--include WHICH\tthe signer's certificates the signature carries: none, signer (default), "
    "chain (the path without its anchor) or whole (with it)\n"
    "--trust FILE\tanchors (PEM or DER) for the path of --include chain and whole (repeatable); "
    "without it, the self-signed CA certificates of --p12 and --extra serve\n"
    "--extra FILE\tintermediate certificates (PEM or DER) for that path (repeatable)\n"
    "--hash NAME\tthe digest algorithm: sha1, sha256, sha384 or sha512 (default: the one of the "
    "certificate's signature)\n"
    "--no-attrs\tsign the content digest alone, without signed attributes (message digest, "
    "content type, signing time)\n"
    "--pem\twrite PEM labelled CMS instead of DER\n";

// The options of the commands that check certification paths.
const std::string kPathOptions =
    "--trust FILE\ttrust anchors, PEM or DER, one or more certificates a file (repeatable)\n"
    "--extra FILE\tfurther certificates the path may use (repeatable)\n"
    "--crl FILE\tCRLs, PEM or DER, for the revocation checks (repeatable)\n"
    "--mode MODE\tthe revocation data to use: crl (default), ocsp, or either\n"
    "--fetch\tlet the checks download CRLs from distribution points and ask the OCSP "
    "responders the certificates name\n"
    "--time ISO8601\tcheck at this UTC time, as 2024-06-01T12:00:00Z or 2024-06-01 "
    "(default: now)\n";

const std::string kSigner = "--cert signer.pem --key signer.key";

}  // namespace

const std::vector<Command>& Commands() {
    static const std::vector<Command> commands = {
        {"help", "[COMMAND]", "show the subcommands, or one subcommand's options and examples", "",
         "tessera help\ntessera help sign\n", RunHelp},
        {"version", "", "print the library's version text", "", "tessera version\n", RunVersion},
        {"errors", "", "list the error codes with their names and descriptions", "",
         "tessera errors\n", RunErrors},
        {"hash", "[--alg NAME] [FILE...]",
         "print the digests of files, in the lines sha256sum prints; standard input for - or "
         "when no FILE is given",
         "--alg NAME\tsha1, sha224, sha256 (default), sha384 or sha512\n",
         "tessera hash document.pdf\ntessera hash --alg sha512 a.bin b.bin\n", RunHash},
        {"base64", "encode|decode [--crlf|--lf|--none] [IN [OUT]]",
         "Base64-encode or decode a file; IN and OUT default to standard input and output, and "
         "- names them too",
         "--lf\tencode with a line break after every 76 characters and at the end (default)\n"
         "--crlf\tthe same with CR LF line breaks\n"
         "--none\tencode as one line without a final line break\n",
         "tessera base64 encode cert.der cert.b64\ntessera base64 decode < cert.b64 > cert.der\n",
         RunBase64},
        {"keyinfo", "KEYFILE [--password P]",
         "show the type and size of a private key: PEM (traditional or PKCS#8, encrypted or "
         "not) or PKCS#12",
         "--password P\tthe password of an encrypted key or of the PKCS#12 file\n",
         "tessera keyinfo signer.key\ntessera keyinfo signer.p12 --password secret\n", RunKeyinfo},
        {"cert", "FILE [--json]",
         "show a certificate (DER or PEM): names, serial, validity, key, usages, policies, OCSP "
         "responder, qualified statements and SHA-1",
         "--json\tprint one JSON object instead of text\n",
         "tessera cert signer.pem\ntessera cert signer.der --json\n", RunCert},
        {"crl", "FILE [--cert CERT] [--json]",
         "show a CRL (DER or PEM) and, with --cert, whether a certificate is listed on it",
         "--cert CERT\talso show whether this certificate (DER or PEM) is listed, with the "
         "revocation time and reason\n"
         "--json\tprint one JSON object instead of text\n",
         "tessera crl ca.crl --cert signer.pem\n", RunCrl},
        {"fetch-crl",
         "CERT [--out FILE] [--timeout SECONDS | --own-http [--proxy URL --proxy-user U "
         "--proxy-password P] [--url URL]]",
         "download the CRL of a certificate from its http:// distribution points and show it; "
         "when none delivers, the failure of the last one is printed",
         "--out FILE\twrite the CRL's DER\n"
         "--timeout SECONDS\tthe limit for each download (default 0: none)\n"
         "--own-http\tdownload with the library's own HTTP/HTTPS client instead of libcurl\n"
         "--proxy URL\twith --own-http: go through this proxy (CONNECT for https)\n"
         "--proxy-user U\twith --proxy: the Basic proxy user name (default empty)\n"
         "--proxy-password P\twith --proxy: the Basic proxy password (default empty)\n"
         "--url URL\twith --own-http: fetch this http:// or https:// URL instead of the "
         "points\n",
         "tessera fetch-crl signer.pem --out signer-ca.crl --timeout 10\n"
         "tessera fetch-crl signer.pem --own-http --proxy http://px:3128 --proxy-user u "
         "--proxy-password p\n",
         RunFetchCrl},
        {"timestamp", "--url URL [--hash NAME] [--out TOKEN] FILE",
         "ask a time-stamp authority for a token over FILE's digest and show the token",
         "--url URL\tthe time-stamp authority's address (required)\n"
         "--hash NAME\tthe digest sent: sha1, sha224, sha256 (default), sha384 or sha512\n"
         "--out TOKEN\twrite the token's DER\n",
         "tessera timestamp --url http://tsa.example/ --out document.tst document.pdf\n",
         RunTimestamp},
        {"ocsp",
         "(--url URL | --client [--url URL]) --issuer ISSUER.pem --cert CERT.pem "
         "[--trust CA.pem] [--hash NAME] [--no-nonce] [--out RESPONSE.der]",
         "ask an OCSP responder for a certificate's status; the response must be signed by the "
         "issuer, a responder it delegated, or one certified by a --trust certificate",
         "--url URL\tthe responder's address; with --client the default is the certificate's "
         "AIA\n"
         "--client\task through the revocation client the chain checks use; it always sends a "
         "nonce\n"
         "--issuer ISSUER.pem\tthe certificate's issuer (PEM)\n"
         "--cert CERT.pem\tthe certificate asked about (PEM)\n"
         "--trust CA.pem\ta certificate (PEM) that may certify the responder (repeatable)\n"
         "--hash NAME\tthe digest of the certificate identifier: sha1 (default), sha224, sha256, "
         "sha384 or sha512\n"
         "--no-nonce\tsend no nonce\n"
         "--out RESPONSE.der\twrite the response's DER\n",
         "tessera ocsp --url http://ocsp.example/ --issuer ca.pem --cert signer.pem\n"
         "tessera ocsp --client --issuer ca.pem --cert signer.pem --out status.der\n",
         RunOcsp},
        {"info", "SIG",
         "show what a CMS signature (DER, or PEM labelled CMS or PKCS7) carries: content, "
         "certificates, CRLs, OCSP responses and signers, without verifying anything",
         "", "tessera info document.p7s\n", RunInfo},
        {"policy", "FILE [--json]",
         "show a signature policy (DER): identifier, issuer, hash and which convention it "
         "matches, signing period, and the common and commitment rules with their attributes, "
         "trust points, revocation requirements and algorithm constraints",
         "--json\tprint one JSON object instead of text\n",
         "tessera policy policy.der\ntessera policy policy.der --json\n", RunPolicy},
        {"chain",
         "CERT --trust FILE [--extra FILE] [--crl FILE] [--mode crl|ocsp|either] "
         "[--option none|end|chain|whole] [--fetch] [--time ISO8601] "
         "[--purpose smime|timestamp|none]",
         "build and check a certificate's path to a trust anchor, with revocation, and show "
         "each certificate with the data that decided its status; further certificates in "
         "CERT's file join --extra",
         kPathOptions +
             "--option WHICH\tthe certificates checked for revocation: none, end (CERT only), "
             "chain (all but self-signed ones; default) or whole (all)\n"
             "--purpose NAME\tthe purpose CERT must serve: smime (default), timestamp or none\n",
         "tessera chain signer.pem --trust root.pem --extra sub-ca.pem --crl sub-ca.crl\n"
         "tessera chain signer.pem --trust root.pem --mode either --fetch\n",
         RunChain},
        {"store", "list (--dir DIR | --pkcs11 MODULE [--pin PIN] | --card) [--json]",
         "list the certificates of a certificate store with subject, issuer, serial, whether "
         "the store has their private key, and the key's identifier",
         "--dir DIR\ta directory store: the files *.pem, *.crt, *.cer and *.der, each "
         "certificate's key in the PEM file of the same name ending in .key beside it\n"
         "--pkcs11 MODULE\tthe tokens of this PKCS#11 module; their keys are named "
         "slot_X-id_Y\n"
         "--pin PIN\tthe tokens' user PIN; without it whether a key is there stays unknown\n"
         "--card\tthe inserted smart card\n"
         "--json\tprint one JSON object instead of text\n",
         "tessera store list --dir certs\n"
         "tessera store list --pkcs11 /usr/lib/softhsm/libsofthsm2.so --pin 1234 --json\n",
         RunStore},
        {"sign",
         "(--cert CERT (--key KEY [--password P] | --p12 FILE --password P | --pkcs11 MODULE "
         "--key-id slot_X-id_Y --pin PIN) | --store-dir DIR --subject TEXT | --pkcs11 MODULE "
         "--subject TEXT --pin PIN) [--include none|signer|chain|whole] [--trust FILE] "
         "[--extra FILE] [--hash sha1|sha256|sha384|sha512] [--cades bes|epes] [--policy FILE] "
         "[--mime TYPE] [--tsa URL] [--detached] [--no-attrs] [--pem] IN OUT",
         "make a CMS signature of a file, or with --cades a CAdES signature, and with --tsa a "
         "time-stamped one (CAdES-T)",
         kSignerOptions +
             "--cades FORM\tsign as CAdES: bes (with a signing-certificate attribute) or epes "
             "(also naming the --policy); here --no-attrs leaves out the signing time alone\n"
             "--policy FILE\tthe signature policy (DER) an epes signature names by its OID and "
             "stored hash (required with epes)\n"
             "--mime TYPE\ta MIME-type attribute with the content's media type, e.g. "
             "application/pdf (CAdES only)\n"
             "--tsa URL\tadd a signature time-stamp from this time-stamp authority; the form is "
             "bes unless --cades epes is given, and nothing is written when the authority fails\n"
             "--detached\tleave the content out\n",
         "tessera sign " + kSigner +
             " --detached document.pdf document.p7s\n"
             "tessera sign --p12 signer.p12 --password secret --include chain document.pdf "
             "document.p7s\n"
             "tessera sign " +
             kSigner +
             " --cades epes --policy policy.der in.pdf out.p7s\n"
             "tessera sign " +
             kSigner +
             " --tsa http://tsa.example/ in.pdf out.p7s\n"
             "tessera sign --store-dir certs --subject \"CN=Jane Doe\" --cades bes in.pdf "
             "out.p7s\n"
             "tessera sign --pkcs11 /usr/lib/softhsm/libsofthsm2.so --subject Jane --pin 1234 "
             "in.pdf out.p7s\n",
         RunSign},
        {"sign-digest", "SIGNER [--no-attrs] [--pem] --digest HEX OUT",
         "make a detached CMS signature over a digest of the content made elsewhere with the "
         "signer's digest algorithm (SIGNER: the signer options of sign)",
         kSignerOptions + "--digest HEX\tthe content's digest in hexadecimal (required)\n",
         "d=$(sha256sum document.pdf | cut -c1-64)\ntessera sign-digest " + kSigner +
             " --digest $d document.p7s\n",
         RunSignDigest},
        {"cosign", "SIGNER [--no-attrs] [--pem] [--content FILE] SIG OUT",
         "add a signer to the CMS signature SIG (SIGNER: the signer options of sign)",
         kSignerOptions +
             "--content FILE\tthe signed content: needed for a detached SIG, and equal to the "
             "embedded content of an attached one\n",
         "tessera cosign " + kSigner + " --content document.pdf first.p7s both.p7s\n", RunCosign},
        {"estimate", "SIGNER [--detached] [--no-attrs] [--pem] IN [OUT]",
         "print the size in bytes of the file sign would write with the same arguments, without "
         "signing (SIGNER: the signer options of sign)",
         kSignerOptions + "--detached\tfor a signature without the content\n",
         "tessera estimate " + kSigner + " --detached document.pdf\n", RunEstimate},
        {"upgrade", "SIG --tsa URL [--type t|t-if-missing] [--pem] OUT",
         "add a signature time-stamp to every CAdES signer of SIG (DER, or PEM labelled CMS or "
         "PKCS7); OUT is written only when every signer got what --type asks for",
         "--tsa URL\tthe time-stamp authority's address (required)\n"
         "--type TYPE\tt (default): add a time-stamp to every signer; t-if-missing: only to "
         "signers without one\n"
         "--pem\twrite PEM labelled CMS instead of DER\n",
         "tessera upgrade signed.p7s --tsa http://tsa.example/ stamped.p7s\n"
         "tessera upgrade signed.p7s --tsa http://tsa.example/ --type t-if-missing out.p7s\n",
         RunUpgrade},
        {"extend",
         "SIG --to lt|lta [--tsa URL] [--content FILE] [--trust FILE] [--extra FILE] "
         "[--crl FILE] [--mode crl|ocsp|either] [--fetch] [--time ISO8601] [--pem] OUT",
         "extend every CAdES signer of SIG (DER, or PEM labelled CMS or PKCS7) to LT: the "
         "certificates of the signer's and the time-stamp authorities' paths and the CRL or OCSP "
         "response that decided each one's status are added; or to LTA: also an archive "
         "time-stamp v3 over all of it; the paths may run through the certificates SIG carries; "
         "what is signed is not touched, and OUT is written only when every signer was extended",
         "--to FORM\tlt or lta (required)\n"
         "--tsa URL\tthe address of the time-stamp authority of the archive time-stamp "
         "(required for lta)\n"
         "--content FILE\tthe signed content of a detached signature (needed for lta)\n" +
             kPathOptions + "--pem\twrite PEM labelled CMS instead of DER\n",
         "tessera extend stamped.p7s --to lt --trust root.pem --fetch --mode either lt.p7s\n"
         "tessera extend t.p7s --to lta --tsa http://tsa.example/ --trust roots.pem --fetch "
         "lta.p7s\n",
         RunExtend},
        {"verify",
         "SIG [--content FILE | --digest HEX] [--trust FILE] [--extra FILE] [--crl FILE] "
         "[--mode crl|ocsp|either] [--fetch] [--time ISO8601] [--verify none|signer|chain] "
         "[--cades] [--policy FILE | --policy-url URL] [--check-policy] "
         "[--ignore-signed-attr OID] [--tsa-trust FILE] [--json]",
         "verify every signer of a CMS signature (DER, or PEM labelled CMS or PKCS7) and show "
         "the checks each passed; signers with a signing-certificate attribute are verified as "
         "CAdES signers and shown with their form, levels and policy; a signer's latest "
         "signature time-stamp is checked and shown with its time, authority and result; the "
         "exit status is 0 only when all signers are valid",
         "--content FILE\tthe signed content of a detached signature\n"
         "--digest HEX\tinstead of --content, the content's digest in hexadecimal, made with the "
         "signer's digest algorithm\n" +
             kPathOptions +
             "--verify LEVEL\thow far the signer certificate is checked: none, signer (its "
             "validity and, when the issuer is at hand, the issuer's signature) or chain (the "
             "path to a --trust anchor with revocation); default chain with --trust, else "
             "signer\n"
             "--cades\tverify every signer as CAdES, so that one without a signing-certificate "
             "attribute fails\n"
             "--policy FILE\tthe signature policy (DER) a signer names: shows which digest of "
             "it the signer's policy hash is (fields, whole file or none) and serves "
             "--check-policy\n"
             "--policy-url URL\tinstead of --policy, download the policy for --check-policy\n"
             "--check-policy\tapply the policy a signer names: its OID, signing period, rules "
             "and trust conditions, on top of the path check (--verify chain, the default then); "
             "a trust point of the policy replaces the --trust anchors\n"
             "--ignore-signed-attr OID\ta signed attribute the policy mandates that the check "
             "skips (repeatable)\n"
             "--tsa-trust FILE\tanchors (PEM or DER) for the paths of the time-stamp "
             "authorities, added to the --trust anchors (repeatable)\n"
             "--json\tprint one JSON object instead of text\n",
         "tessera verify document.p7s --content document.pdf --trust root.pem --crl ca.crl\n"
         "tessera verify attached.p7s --verify signer\n"
         "tessera verify cades.p7s --trust root.pem --policy policy.der --check-policy --json\n"
         "tessera verify stamped.p7s --trust root.pem --tsa-trust tsa-root.pem\n",
         RunVerify},
        {"validate",
         "SIG [--content FILE | --digest HEX] --trust FILE [--extra FILE] [--tsa-trust FILE] "
         "[--tsu FILE] [--crl FILE] [--mode crl|ocsp|either] [--fetch] [--process basic|time] "
         "[--standard ts103173|en319122] [--policy-oid OID] [--signer N] [--time ISO8601] "
         "[--poe] [--json]",
         "validate the signers of a CAdES signature (DER, or PEM labelled CMS or PKCS7) and print "
         "each signer's validation report as a tree; with several signers each report is headed "
         "by \"Signer N:\". Exit status (this command's own): 0 every report passed, 1 one "
         "failed, 2 one is indeterminate and none failed, 3 a usage or input error, a library "
         "error included. With --poe each signer is verified with proofs of existence instead "
         "(0 the signer and every archive time-stamp passed, 1 one failed)",
         "--content FILE\tthe signed content of a detached signature\n"
         "--digest HEX\tinstead of --content, the content's digest in hexadecimal, made with the "
         "signer's digest algorithm\n"
         "--trust FILE\tanchors (PEM or DER) of the signers' paths (repeatable, required)\n"
         "--extra FILE\tintermediate certificates for the signers' and the time-stamp "
         "authorities' paths (repeatable)\n"
         "--tsa-trust FILE\tanchors of the time-stamp authorities' paths (repeatable)\n"
         "--tsu FILE\tthe certificates of the trusted time-stamping units (repeatable)\n"
         "--crl FILE\tCRLs, PEM or DER, for both kinds of path (repeatable); the process with "
         "time checks the signer with the CRLs the signature carries or --fetch finds\n"
         "--mode MODE\tthe revocation data to use: crl (default), ocsp, or either; every "
         "certificate but self-signed ones is checked\n"
         "--fetch\tlet the checks download CRLs from distribution points and ask the OCSP "
         "responders the certificates name\n"
         "--process NAME\tbasic (the basic signature validation) or time (default: the "
         "validation with the signature time-stamps, which holds the basic one)\n"
         "--standard NAME\tthe signature standard: en319122 (default) or ts103173\n"
         "--policy-oid OID\tthe validation policy (default 1.3.6.1.4.1.47385.20.2.0, the only "
         "one the validation accepts)\n"
         "--signer N\tvalidate only the N-th signer, counted from 1 (default: every signer in "
         "turn)\n"
         "--time ISO8601\tthe validation time, as 2024-06-01T12:00:00Z or 2024-06-01 (default: "
         "now); the process with time checks the signer itself now\n"
         "--poe\tverify each signer as a long-term CAdES signer with proofs of existence, the "
         "message's certificates and revocation data as validation data and the --tsa-trust "
         "anchors beside the --trust ones, and print its form, each archive time-stamp's time and "
         "result, the proven time of the signature value and the result (no --process, "
         "--standard, --policy-oid or --tsu)\n"
         "--json\tprint a JSON array of {\"signer\": N, \"report\": REPORT}, one a signer, "
         "even for one; with --poe one {\"signer\", \"form\", \"archiveTimeStamps\", "
         "\"signatureProvenAt\", \"passed\", \"error\"} a signer\n",
         "tessera validate signed.p7s --trust root.pem --fetch\n"
         "tessera validate signed.p7s --trust root.pem --crl root.crl --process basic\n"
         "tessera validate stamped.p7s --trust root.pem --fetch --tsa-trust tsa-root.pem "
         "--tsu tsa.pem\n"
         "tessera validate detached.p7s --content document.pdf --trust root.pem --signer 2 "
         "--json\n"
         "tessera validate archived.p7s --trust root.pem --tsa-trust tsa-root.pem --poe\n",
         RunValidate},
    };
    return commands;
}

const Command* FindCommand(const std::string& name) {
    for (const Command& command : Commands()) {
        if (name == command.name) {
            return &command;
        }
    }
    return nullptr;
}

namespace {

std::vector<std::string> Words(const std::string& text) {
    std::istringstream split(text);
    std::vector<std::string> words;
    for (std::string word; split >> word;) {
        words.push_back(word);
    }
    return words;
}

// The pieces of a synopsis a line break must not tear apart: a word stays
// with the one before it unless it starts an option or a group, so that
// "--hash sha1|sha256" or "IN OUT" keeps together.
std::vector<std::string> SynopsisPieces(const std::string& synopsis) {
    std::vector<std::string> pieces;
    for (const std::string& word : Words(synopsis)) {
        const bool starts = word[0] == '-' || word[0] == '[' || word[0] == '(';
        if (pieces.empty() || starts) {
            pieces.push_back(word);
        } else {
            pieces.back() += " " + word;
        }
    }
    return pieces;
}

// `lead`, then the pieces separated by spaces, broken into lines of at most
// kHelpWidth columns; lines after the first are indented as wide as `lead`.
// A piece too long for any line is broken between its words.
void PrintWrapped(std::FILE* out, const std::string& lead, const std::vector<std::string>& pieces) {
    const std::string margin(lead.size(), ' ');
    std::string line = lead;
    bool empty = true;  // nothing after the lead or margin yet
    const auto place = [&](const std::string& piece) {
        if (!empty && line.size() + 1 + piece.size() > kHelpWidth) {
            std::fprintf(out, "%s\n", line.c_str());
            line = margin;
            empty = true;
        }
        line += (empty ? "" : " ") + piece;
        empty = false;
    };
    for (const std::string& piece : pieces) {
        if (margin.size() + piece.size() > kHelpWidth) {
            for (const std::string& word : Words(piece)) {
                place(word);
            }
        } else {
            place(piece);
        }
    }
    std::fprintf(out, "%s\n", line.c_str());
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream split(text);
    for (std::string line; std::getline(split, line);) {
        lines.push_back(line);
    }
    return lines;
}

// The options, one a line: the option, then its explanation in a column of
// its own; an option too wide for the column puts its explanation below it.
void PrintOptions(std::FILE* out, const std::string& options) {
    constexpr std::size_t kMaxColumn = 26;
    std::vector<std::pair<std::string, std::string>> rows;
    std::size_t column = 0;
    for (const std::string& line : Lines(options)) {
        const std::size_t tab = line.find('\t');
        rows.emplace_back(line.substr(0, tab), line.substr(tab + 1));
        column = std::max(column, std::min(kMaxColumn, 2 + rows.back().first.size() + 2));
    }
    for (const auto& row : rows) {
        std::string lead = "  " + row.first;
        if (lead.size() + 2 > column) {
            std::fprintf(out, "%s\n", lead.c_str());
            lead.clear();
        }
        lead.resize(column, ' ');
        PrintWrapped(out, lead, Words(row.second));
    }
}

std::string Head(const Command& command) {
    return std::string(command.name) + (command.synopsis[0] != '\0' ? " " : "");
}

}  // namespace

void PrintUsage(std::FILE* out) {
    std::fprintf(out,
                 "usage: tessera COMMAND [ARGUMENTS]\n"
                 "       tessera help COMMAND, or tessera COMMAND --help: its options and "
                 "examples\n\ncommands:\n");
    for (const Command& command : Commands()) {
        PrintWrapped(out, "  " + Head(command), SynopsisPieces(command.synopsis));
        PrintWrapped(out, "      ", Words(command.summary));
    }
    std::fprintf(out, "\n--trust, --extra and --crl take one file each and may be repeated.\n");
}

void PrintCommandHelp(const Command& command, std::FILE* out) {
    PrintWrapped(out, "usage: tessera " + Head(command), SynopsisPieces(command.synopsis));
    std::fprintf(out, "\n");
    PrintWrapped(out, "", Words(command.summary));
    if (!command.options.empty()) {
        std::fprintf(out, "\noptions:\n");
        PrintOptions(out, command.options);
    }
    std::fprintf(out, "\nexamples:\n");
    // Unbroken, so that they can be copied; each fits the width.
    for (const std::string& example : Lines(command.examples)) {
        std::fprintf(out, "  %s\n", example.c_str());
    }
}

int RunHelp(const std::vector<std::string>& args) {
    if (args.size() > 1) {
        return UsageError("help takes at most one COMMAND");
    }
    if (args.empty()) {
        PrintUsage(stdout);
        return kExitOk;
    }
    const Command* command = FindCommand(args[0]);
    if (command == nullptr) {
        return UsageError("unknown command '" + args[0] + "'");
    }
    PrintCommandHelp(*command, stdout);
    return kExitOk;
}

}  // namespace tessera_cli
