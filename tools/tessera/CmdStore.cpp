// tessera store list (--dir DIR | --pkcs11 MODULE [--pin PIN] | --card) [--json]
//
// Lists the certificates of a certificate store with their subject, issuer
// and serial, whether the store has their private key, and where that key
// lives: the key file of a directory store, the key identifier of a token.
// A token's keys are only tried with --pin; without it "has key" is
// unknown. Also the signer picked from a store for the signing commands
// (StoreCli.h).
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Cli.h"
#include "CmsCli.h"
#include "CryptException.h"
#include "StoreCli.h"
#include "TesseraApi.h"
#include "X509Pkcs11Store.h"
#include "X509WinCardStore.h"
#include "X509WinStore.h"

namespace tessera_cli {

namespace {

using TesseraLib::X509Certificate;
using TesseraLib::X509Pkcs11Store;
using TesseraLib::X509Store;
using TesseraLib::X509WinCardStore;
using TesseraLib::X509WinStore;

enum class KeyState { Yes, No, Unknown };

// One listed certificate, gathered first so both forms show the same values.
struct Row {
    std::string subject, issuer, serialDec, serialHex, keyId;
    KeyState key = KeyState::Unknown;
    int keyError = 0;  // the code a key that is there but unusable failed with
};

Row Describe(const X509Certificate& cert) {
    Row row;
    row.subject = Narrow(cert.GetSubjectStringX500(0).c_str());
    row.issuer = Narrow(cert.GetIssuerStringX500(0).c_str());
    row.serialDec = cert.GetSerialNumberStringDec().c_str();
    row.serialHex = cert.GetSerialNumberStringHex().c_str();
    return row;
}

const char* KeyText(KeyState key) {
    return key == KeyState::Yes ? "yes" : key == KeyState::No ? "no" : "unknown";
}

void PrintRows(const std::vector<Row>& rows, bool json) {
    if (json) {
        std::printf("{\n  \"certificates\": [");
        for (std::size_t i = 0; i < rows.size(); ++i) {
            const Row& r = rows[i];
            std::printf(
                "%s\n    {\"subject\": %s, \"issuer\": %s, \"serial\": %s, "
                "\"serialHex\": %s, \"hasKey\": %s, \"keyIdentifier\": %s",
                i == 0 ? "" : ",", JsonString(r.subject).c_str(), JsonString(r.issuer).c_str(),
                JsonString(r.serialDec).c_str(), JsonString(r.serialHex).c_str(),
                r.key == KeyState::Yes  ? "true"
                : r.key == KeyState::No ? "false"
                                        : "null",
                JsonString(r.keyId).c_str());
            if (r.keyError != 0) {
                std::printf(", \"keyError\": %d", r.keyError);
            }
            std::printf("}");
        }
        std::printf("%s]\n}\n", rows.empty() ? "" : "\n  ");
        return;
    }
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const Row& r = rows[i];
        std::printf("certificate %zu\n", i + 1);
        std::printf("  subject:        %s\n", r.subject.c_str());
        std::printf("  issuer:         %s\n", r.issuer.c_str());
        std::printf("  serial:         %s (hex %s)\n", r.serialDec.c_str(), r.serialHex.c_str());
        if (r.keyError != 0) {
            std::printf("  has key:        no (error %d reading it)\n", r.keyError);
        } else {
            std::printf("  has key:        %s\n", KeyText(r.key));
        }
        std::printf("  key identifier: %s\n", r.keyId.empty() ? "-" : r.keyId.c_str());
    }
    std::printf("%zu certificate(s)\n", rows.size());
}

// Whether the store attaches a key to `cert`. A key that is not there or
// cannot be read (ErrPrivateKeyRead) is no key; any other failure, such as a
// wrong PIN, ends the listing: kExitOk or the exit code after the message.
int ProbeKey(const std::string& command, X509Store& store, const X509Certificate& cert, Row* row) {
    X509Certificate probe = cert;
    Failure failure;
    if (RunCatching([&] { store.FindCertificate(probe, 1); }, &failure)) {
        row->key = probe.HasPrivateKey() == 1 ? KeyState::Yes : KeyState::No;
        return kExitOk;
    }
    if (failure.coded && failure.code == TesseraLib::ErrPrivateKeyRead) {
        row->key = KeyState::No;
        row->keyError = failure.code;
        return kExitOk;
    }
    return PrintFailure(command, failure);
}

std::wstring Wide(const std::string& text) {
    return std::wstring(text.begin(), text.end());
}

bool OpenDirectory(const std::string& command, const std::string& dir, X509WinStore* store) {
    if (store->Open(Wide(dir).c_str(), 0) == 1) {
        return true;
    }
    std::fprintf(stderr, "tessera %s: cannot read the directory %s\n", command.c_str(),
                 dir.c_str());
    return false;
}

// Unloads PKCS#11 when a listing is done, after the listing's keys and the
// logins they made are gone.
struct Pkcs11Session {
    X509Pkcs11Store store;
    ~Pkcs11Session() {
        store.LogoutAll();
        store.Close();
        Tessera_UninitializePkcs11();
    }
};

int ListDirectoryStore(const std::string& command, const std::string& dir, bool json) {
    X509WinStore store;
    if (!OpenDirectory(command, dir, &store)) {
        return kExitFailure;
    }
    std::vector<Row> rows;
    const qorstd::QorVector<X509Certificate> certs = store.GetCertificates();
    for (unsigned int i = 0; i < certs.GetSize(); ++i) {
        Row row = Describe(certs[i]);
        row.keyId = Narrow(store.CreateKeyInfo(certs[i]).c_str());
        row.key = row.keyId.empty() ? KeyState::No : KeyState::Unknown;
        if (!row.keyId.empty()) {
            if (const int status = ProbeKey(command, store, certs[i], &row); status != kExitOk) {
                return status;
            }
        }
        rows.push_back(row);
    }
    PrintRows(rows, json);
    return kExitOk;
}

int ListTokenStore(const std::string& command, const Arguments& parsed, bool json) {
    const bool withPin = parsed.options.count("--pin") != 0;
    const std::string pin = parsed.Get("--pin");
    if (!StartPkcs11(command, parsed.Get("--pkcs11"), withPin ? &pin : nullptr)) {
        return kExitFailure;
    }
    Pkcs11Session session;
    session.store.Open();
    std::vector<Row> rows;
    const qorstd::QorVector<X509Certificate> certs = session.store.GetCertificates();
    for (unsigned int i = 0; i < certs.GetSize(); ++i) {
        Row row = Describe(certs[i]);
        row.keyId = session.store.GetKeyIdentifier(certs[i]).c_str();
        if (withPin) {
            if (const int status = ProbeKey(command, session.store, certs[i], &row);
                status != kExitOk) {
                return status;
            }
        }
        rows.push_back(row);
    }
    PrintRows(rows, json);
    return kExitOk;
}

// The inserted smart card's certificates. Card types and their providers
// are registered by the application that links the library; this tool
// registers none, so on its own it tells which reader or card is missing.
int ListCardStore(const std::string& command, bool json) {
    X509WinCardStore store;
    int opened = 0;
    Failure failure;
    if (!RunCatching([&] { opened = store.Open(); }, &failure)) {
        return PrintFailure(command, failure);
    }
    if (opened != 1) {
        std::fprintf(stderr,
                     "tessera %s: no inserted card is served by a registered card provider\n",
                     command.c_str());
        return kExitFailure;
    }
    std::vector<Row> rows;
    const qorstd::QorVector<X509Certificate> certs = store.GetCertificates();
    for (unsigned int i = 0; i < certs.GetSize(); ++i) {
        Row row = Describe(certs[i]);
        if (const int status = ProbeKey(command, store, certs[i], &row); status != kExitOk) {
            return status;
        }
        rows.push_back(row);
    }
    PrintRows(rows, json);
    return kExitOk;
}

}  // namespace

int LoadStoreSigner(const std::string& command, const Arguments& parsed, bool* pkcs11,
                    X509Certificate* cert) {
    const bool fromToken = parsed.options.count("--pkcs11") != 0;
    const std::string text = parsed.Get("--subject");
    if (text.empty()) {
        return UsageError(command + ": --subject takes a part of the signer's subject");
    }
    if (fromToken && parsed.options.count("--pin") == 0) {
        return UsageError(command + ": --pkcs11 with --subject needs --pin");
    }
    std::unique_ptr<X509Store> store;
    if (fromToken) {
        const std::string pin = parsed.Get("--pin");
        if (!StartPkcs11(command, parsed.Get("--pkcs11"), &pin)) {
            return kExitFailure;
        }
        *pkcs11 = true;
        auto token = std::make_unique<X509Pkcs11Store>();
        token->Open();
        store = std::move(token);
    } else {
        auto directory = std::make_unique<X509WinStore>();
        if (!OpenDirectory(command, parsed.Get("--store-dir"), directory.get())) {
            return kExitFailure;
        }
        store = std::move(directory);
    }
    const qorstd::QorVector<X509Certificate> certs = store->GetCertificates();
    std::vector<unsigned int> matches;
    for (unsigned int i = 0; i < certs.GetSize(); ++i) {
        if (Narrow(certs[i].GetSubjectStringX500(0).c_str()).find(text) != std::string::npos) {
            matches.push_back(i);
        }
    }
    if (matches.size() != 1) {
        std::fprintf(stderr,
                     "tessera %s: %zu certificates of the store have a subject "
                     "containing '%s'; exactly one must\n",
                     command.c_str(), matches.size(), text.c_str());
        for (unsigned int index : matches) {
            std::fprintf(stderr, "  %s\n",
                         Narrow(certs[index].GetSubjectStringX500(0).c_str()).c_str());
        }
        return kExitFailure;
    }
    *cert = certs[matches.front()];
    store->FindCertificate(*cert, 1);
    if (cert->HasPrivateKey() != 1) {
        std::fprintf(stderr, "tessera %s: the store has no private key for %s\n", command.c_str(),
                     Narrow(cert->GetSubjectStringX500(0).c_str()).c_str());
        return kExitFailure;
    }
    return kExitOk;
}

int RunStore(const std::vector<std::string>& args) {
    const std::string command = "store";
    std::vector<std::string> rest = args;
    bool json = false;
    bool card = false;
    for (auto it = rest.begin(); it != rest.end();) {
        bool* flag = *it == "--json" ? &json : *it == "--card" ? &card : nullptr;
        if (flag == nullptr) {
            ++it;
        } else {
            *flag = true;
            it = rest.erase(it);
        }
    }
    const Arguments parsed = ParseArguments(command, rest, {"--dir", "--pkcs11", "--pin"});
    if (!parsed.error.empty()) {
        return UsageError(parsed.error);
    }
    if (parsed.positional.size() != 1 || parsed.positional[0] != "list") {
        return UsageError(command + ": the action is list");
    }
    const bool fromDirectory = parsed.options.count("--dir") != 0;
    const bool fromToken = parsed.options.count("--pkcs11") != 0;
    if (fromDirectory + fromToken + card != 1) {
        return UsageError(command + ": give exactly one of --dir, --pkcs11 and --card");
    }
    if (parsed.options.count("--pin") != 0 && !fromToken) {
        return UsageError(command + ": --pin belongs to --pkcs11");
    }
    if (fromDirectory) {
        return ListDirectoryStore(command, parsed.Get("--dir"), json);
    }
    if (fromToken) {
        return ListTokenStore(command, parsed, json);
    }
    return ListCardStore(command, json);
}

}  // namespace tessera_cli
