// ASN.1 of the qualified-certificate statements extension (internal).
//
//   QCStatements ::= SEQUENCE OF QCStatement
//   QCStatement  ::= SEQUENCE { statementId OBJECT IDENTIFIER,
//                               statementInfo ANY DEFINED BY statementId OPTIONAL }
//   QcType       ::= SEQUENCE OF OBJECT IDENTIFIER   (information of 0.4.0.1862.1.6)
//
// Statement information stays undecoded (ANY) so that statements the library
// does not understand, malformed PDS locations among them, never make the
// whole extension unreadable; only a QcType's information is decoded.
#pragma once

#include <openssl/asn1.h>
#include <openssl/asn1t.h>
#include <openssl/safestack.h>
#include <openssl/x509.h>

#include "OpenSslPtr.h"
#include "QcStatement.h"
#include "QorVector.h"

typedef struct QC_STATEMENT_st {
    ASN1_OBJECT* statementId;
    ASN1_TYPE* statementInfo;  // null when absent
} QC_STATEMENT;
DECLARE_ASN1_FUNCTIONS(QC_STATEMENT)

DEFINE_STACK_OF(QC_STATEMENT)
typedef STACK_OF(QC_STATEMENT) QC_STATEMENTS;
DECLARE_ASN1_FUNCTIONS(QC_STATEMENTS)

// ESI_QcType is declared in the public header as this stack of OIDs.
DECLARE_ASN1_FUNCTIONS(ESI_QcType)

namespace TesseraLib {
namespace x509 {

using QcStatementsPtr = qorssl::OpenSslPtr<QC_STATEMENTS, QC_STATEMENTS_free>;
using QcStatementPtr = qorssl::OpenSslPtr<QC_STATEMENT, QC_STATEMENT_free>;
using EsiQcTypePtr = qorssl::OpenSslPtr<ESI_QcType, ESI_QcType_free>;

// The dotted identifiers of the statements the library knows by name.
extern const char* const kQcComplianceOid;  // 0.4.0.1862.1.1
extern const char* const kQcTypeOid;        // 0.4.0.1862.1.6

// Decodes the DER of a QCStatements value. Null when the bytes are not
// exactly one QCStatements value (trailing bytes are refused).
QcStatementsPtr DecodeQcStatements(const unsigned char* der, long size);

// Decodes a QCStatements value and appends one QcStatement per statement, in
// order. Returns false, appending nothing, when the bytes do not decode;
// throws CryptException (ErrAsn1Decoding) when a statement decodes but its
// identifier cannot be printed or a QcType's information is malformed.
bool AppendQcStatements(const unsigned char* der, long size,
                        qorstd::QorVector<QcStatement>& statements);

// The same for a certificate extension's value (any extension; the caller
// picks the qualified-statements one).
bool AppendQcStatements(const X509_EXTENSION* extension,
                        qorstd::QorVector<QcStatement>& statements);

// Finds the first qualified-statements extension of `certificate` and appends
// its statements. Returns 0 when the certificate is null or has no such
// extension or the extension does not decode, else 1; throws as above.
int ParseCertificateQcStatements(const X509* certificate,
                                 qorstd::QorVector<QcStatement>& statements);

// Adds the printing handler of the extension to OpenSSL's extension table,
// once per process (OpenSSL keeps added handlers until the process ends).
// Returns true when the handler is (or already was) added.
bool RegisterQcStatementsHandler();

}  // namespace x509
}  // namespace TesseraLib
