// Qualified-certificate statements (RFC 3739 with the statements of
// ETSI EN 319 412-5) as a certificate carries them.
#pragma once

#include "QorString.h"
#include "QorVector.h"
#include "TesseraExport.h"

// OpenSSL structures of the extension, defined inside the library: one
// QCStatement, and the information of a QcType statement (its SEQUENCE OF
// OBJECT IDENTIFIER, kept as OpenSSL's stack of objects).
struct QC_STATEMENT_st;
struct stack_st_ASN1_OBJECT;
typedef struct stack_st_ASN1_OBJECT ESI_QcType;

namespace TesseraLib {

// What a statement says beyond its identifier.
class TESSERA_API QcStatementInfo {
public:
    QcStatementInfo();
    QcStatementInfo(const QcStatementInfo& other);
    QcStatementInfo& operator=(const QcStatementInfo& other);
    virtual ~QcStatementInfo();

    // The dotted identifier of the statement this information belongs to.
    virtual qorstd::QorString GetStatementId() const = 0;
};

// The QcType statement (0.4.0.1862.1.6): which kind of qualified certificate.
class TESSERA_API QcType : public QcStatementInfo {
public:
    enum cptCertificateType {
        cptCertificateTypeNone = 0,   // no type, or one the library does not know
        cptCertificateTypeESign = 1,  // 0.4.0.1862.1.6.1
        cptCertificateTypeESeal = 2,  // 0.4.0.1862.1.6.2
        cptCertificateTypeWeb = 3     // 0.4.0.1862.1.6.3
    };

    QcType();
    explicit QcType(cptCertificateType type);
    // The first type OID of `info` decides; null → ErrInvalidParameter
    // "pQcType=NULL"; an OID that cannot be printed → ErrAsn1Decoding.
    explicit QcType(const ESI_QcType* info);
    QcType(const QcType& other);
    QcType& operator=(const QcType& other);
    ~QcType() override;

    qorstd::QorString GetStatementId() const override;
    cptCertificateType GetCertificateType() const { return m_type; }
    void Reset();

private:
    cptCertificateType m_type;
};

// Any other statement: only its identifier is kept.
class TESSERA_API QcUnknown : public QcStatementInfo {
public:
    QcUnknown();
    explicit QcUnknown(const char* statementId);
    QcUnknown(const QcUnknown& other);
    QcUnknown& operator=(const QcUnknown& other);
    ~QcUnknown() override;

    qorstd::QorString GetStatementId() const override;

private:
    qorstd::QorString m_statementId;
};

// One statement: its dotted identifier and, when it was decoded from a
// certificate, the information (a QcType for 0.4.0.1862.1.6, a QcUnknown for
// every other statement).
class TESSERA_API QcStatement {
public:
    QcStatement();
    // Identifier only, no information: a key for searching a statement list.
    explicit QcStatement(const char* statementId);
    // Null → ErrInvalidParameter "pQcStatement=NULL"; an identifier that
    // cannot be printed, or QcType information that is not a SEQUENCE OF
    // OBJECT IDENTIFIER → ErrAsn1Decoding.
    explicit QcStatement(const QC_STATEMENT_st* statement);
    QcStatement(const QcStatement& other);
    QcStatement& operator=(const QcStatement& other);
    virtual ~QcStatement();

    void Reset();

    const qorstd::QorString& GetStatementId() const { return m_statementId; }
    // Owned by the statement; null when absent.
    const QcStatementInfo* GetStatementInfo() const { return m_info; }

    // Statements are the same when their identifiers are the same text.
    bool operator==(const QcStatement& other) const;
    bool operator!=(const QcStatement& other) const { return !(*this == other); }

protected:
    void Copy(const QcStatement& other);

private:
    qorstd::QorString m_statementId;
    QcStatementInfo* m_info;
};

}  // namespace TesseraLib

namespace qorstd {
// Compiled once into the library.
extern template class QorVector<TesseraLib::QcStatement>;
extern template class QorVectorIterator<TesseraLib::QcStatement>;
}  // namespace qorstd
