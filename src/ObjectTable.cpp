#include "ObjectTable.h"

#include <openssl/err.h>
#include <openssl/objects.h>

#include <atomic>

namespace TesseraLib {
namespace objects {

namespace {

const ObjectEntry kObjectTable[] = {
    {"2.5.4.97", "organizationIdentifier", "organizationIdentifier"},
    {"1.3.36.8.3.13", nullptr, "Common PKI CertHash"},
    {"1.3.6.1.4.1.47385.4.1", nullptr, "Q.OR Vantor"},
    {"1.3.6.1.4.1.47385.4.8", nullptr, "Q.OR Vantor QSCD"},
    {"1.3.6.1.4.1.47385.4.7", nullptr, "Q.OR Quillet"},
    {"1.3.6.1.4.1.47385.4.2", nullptr, "Q.OR Morvane"},
    {"1.3.6.1.4.1.47385.4.3", nullptr, "Q.OR Braddle"},
    {"1.3.6.1.4.1.47385.4.4", nullptr, "Q.OR Pellow"},
    {"1.3.6.1.4.1.47385.4.5", nullptr, "Q.OR Orrin"},
    {"1.3.6.1.4.1.47385.4.6", nullptr, "Q.OR Zindle"},
    {"1.3.6.1.4.1.47385.5", nullptr, "Q.OR Fexton"},
    {"2.5.29.60", "expiredCertsOnCRL", "X509v3 Expired Certificates On CRL"},
    {"1.3.6.1.4.1.11801.2.3", nullptr, "MPSV IDS"},
    {"1.3.6.1.4.1.11801.2.1", nullptr, "MPSV IK"},
    {"1.3.6.1.4.1.311.10.3.12", "msDocumentSigning", "Microsoft Document Signing"},
    {"1.2.840.113549.1.9.16.2.47", "id-smime-aa-signingCertificateV2", nullptr},
};

std::atomic<bool> g_registered{false};

bool IsKnown(const char* oid) {
    const int nid = OBJ_txt2nid(oid);
    // A failed lookup leaves an error on the queue that means nothing here.
    ERR_clear_error();
    return nid != NID_undef;
}

}  // namespace

bool Register(const ObjectEntry* table, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        if (IsKnown(table[i].oid)) {
            continue;
        }
        if (OBJ_create(table[i].oid, table[i].shortName, table[i].longName) == NID_undef) {
            // OpenSSL 3 keeps added objects until the process ends and has no
            // call to remove one, so the entries added before the failure stay;
            // since a known OID counts as registered, the next attempt goes on
            // where this one stopped.
            return false;
        }
    }
    return true;
}

bool EnsureRegistered() {
    if (g_registered.load()) {
        return true;
    }
    if (!Register(kObjectTable, sizeof(kObjectTable) / sizeof(kObjectTable[0]))) {
        return false;
    }
    g_registered.store(true);
    return true;
}

bool IsRegistered() {
    return g_registered.load();
}

void ClearRegisteredFlag() {
    g_registered.store(false);
}

}  // namespace objects
}  // namespace TesseraLib
