// Distinguished names and qualified-certificate statements from arbitrary
// bytes: the same input is read as a DER name (decoded, printed with a flag
// set picked by its first byte, exported, hashed, copied) and as the value of
// a qualified-statements extension (decoded into QcStatement objects and
// printed by the registered handler). Failures must be CryptExceptions.
#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "CryptException.h"
#include "OpenSslPtr.h"
#include "QcStatement.h"
#include "X509Name.h"
#include "x509/QcAsn1.h"
#include "x509/X509NamePrint.h"

using namespace TesseraLib;

namespace {

const int kFlagSets[] = {
    0,
    x509::kNamePrintX500Flags,
    static_cast<int>(XN_FLAG_ONELINE),
    static_cast<int>(XN_FLAG_MULTILINE),
    static_cast<int>(XN_FLAG_RFC2253),
    static_cast<int>(XN_FLAG_SEP_SPLUS_SPC | XN_FLAG_FN_OID | XN_FLAG_DUMP_UNKNOWN_FIELDS),
    static_cast<int>(XN_FLAG_SEP_CPLUS_SPC | XN_FLAG_FN_NONE | ASN1_STRFLGS_IGNORE_TYPE),
    static_cast<int>(ASN1_STRFLGS_ESC_QUOTE),  // no separator: the print fails
};

void FuzzName(const std::uint8_t* data, std::size_t size) {
    const unsigned char* cursor = data;
    X509NamePtr decoded(d2i_X509_NAME(nullptr, &cursor, static_cast<long>(size)));
    if (!decoded) {
        return;
    }
    qorstd::QorStringW printed;
    x509::PrintName(decoded.get(), kFlagSets[data[0] % (sizeof(kFlagSets) / sizeof(kFlagSets[0]))],
                    printed);
    std::vector<x509::NameEntry> entries;
    x509::ListNameEntries(decoded.get(), entries);
    try {
        X509Name name(decoded.get());
        name.GetStringX500();
        name.Export();
        name.GetSHA1HashHex();
        X509Name copy;
        copy = name;
        copy.Equals(name);
    } catch (const CryptException&) {
    }
}

void FuzzQcStatements(const std::uint8_t* data, std::size_t size) {
    try {
        qorstd::QorVector<QcStatement> statements;
        if (x509::AppendQcStatements(data, static_cast<long>(size), statements)) {
            const qorstd::QorVector<QcStatement> copy(statements);
            (void)copy;
        }
    } catch (const CryptException&) {
    }
    Asn1OctetStringPtr value(ASN1_OCTET_STRING_new());
    BioPtr sink(BIO_new(BIO_s_null()));
    if (!value || !sink || ASN1_OCTET_STRING_set(value.get(), data, static_cast<int>(size)) != 1) {
        return;
    }
    X509ExtensionPtr extension(
        X509_EXTENSION_create_by_NID(nullptr, NID_qcStatements, 0, value.get()));
    if (extension) {
        X509V3_EXT_print(sink.get(), extension.get(), 0, 0);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool handlerAdded = x509::RegisterQcStatementsHandler();
    (void)handlerAdded;
    if (size == 0) {
        return 0;
    }
    FuzzName(data, size);
    FuzzQcStatements(data, size);
    ERR_clear_error();
    return 0;
}
