#include "QcStatement.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/x509v3.h>

#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "CryptException.h"
#include "Failure.h"
#include "QorDer.h"
#include "x509/QcAsn1.h"

ASN1_SEQUENCE(QC_STATEMENT) =
    {
        ASN1_SIMPLE(QC_STATEMENT, statementId, ASN1_OBJECT),
        ASN1_OPT(QC_STATEMENT, statementInfo, ASN1_ANY),
} ASN1_SEQUENCE_END(QC_STATEMENT) IMPLEMENT_ASN1_FUNCTIONS(QC_STATEMENT)

        ASN1_ITEM_TEMPLATE(QC_STATEMENTS) = ASN1_EX_TEMPLATE_TYPE(ASN1_TFLG_SEQUENCE_OF, 0,
                                                                  QcStatements, QC_STATEMENT)
            ASN1_ITEM_TEMPLATE_END(QC_STATEMENTS) IMPLEMENT_ASN1_FUNCTIONS(QC_STATEMENTS)

                ASN1_ITEM_TEMPLATE(ESI_QcType) = ASN1_EX_TEMPLATE_TYPE(ASN1_TFLG_SEQUENCE_OF, 0,
                                                                       QcTypeIds, ASN1_OBJECT)
                    ASN1_ITEM_TEMPLATE_END(ESI_QcType) IMPLEMENT_ASN1_FUNCTIONS(ESI_QcType)

                        namespace qorstd {
    template class QorVector<TesseraLib::QcStatement>;
    template class QorVectorIterator<TesseraLib::QcStatement>;
}  // namespace qorstd

namespace TesseraLib {

namespace x509 {

const char* const kQcComplianceOid = "0.4.0.1862.1.1";
const char* const kQcTypeOid = "0.4.0.1862.1.6";

}  // namespace x509

namespace {

const char kQcTypeESignOid[] = "0.4.0.1862.1.6.1";
const char kQcTypeESealOid[] = "0.4.0.1862.1.6.2";
const char kQcTypeWebOid[] = "0.4.0.1862.1.6.3";

// The dotted form of `object`, however long; false when it has none.
bool OidToText(const ASN1_OBJECT* object, std::string& text) {
    const int length = object != nullptr ? OBJ_obj2txt(nullptr, 0, object, 1) : 0;
    if (length <= 0) {
        ERR_clear_error();
        return false;
    }
    std::vector<char> buffer(static_cast<std::size_t>(length) + 1, '\0');
    if (OBJ_obj2txt(buffer.data(), length + 1, object, 1) != length) {
        ERR_clear_error();
        return false;
    }
    text.assign(buffer.data(), static_cast<std::size_t>(length));
    return true;
}

// A QcType's information: null when the statement carries none; anything but
// a SEQUENCE OF OBJECT IDENTIFIER is malformed.
x509::EsiQcTypePtr DecodeQcTypeInfo(const ASN1_TYPE* info) {
    if (info == nullptr) {
        return x509::EsiQcTypePtr();
    }
    if (info->type != V_ASN1_SEQUENCE || info->value.sequence == nullptr) {
        Fail(ErrAsn1Decoding);
    }
    x509::EsiQcTypePtr decoded = qorssl::DecodeWhole<x509::EsiQcTypePtr>(
        d2i_ESI_QcType, ASN1_STRING_get0_data(info->value.sequence),
        ASN1_STRING_length(info->value.sequence));
    if (!decoded) {
        Fail(ErrAsn1Decoding);
    }
    return decoded;
}

}  // namespace

// ---------------------------------------------------------------- QcStatementInfo

QcStatementInfo::QcStatementInfo() = default;
QcStatementInfo::QcStatementInfo(const QcStatementInfo&) = default;
QcStatementInfo& QcStatementInfo::operator=(const QcStatementInfo&) = default;
QcStatementInfo::~QcStatementInfo() = default;

// ---------------------------------------------------------------- QcType

QcType::QcType() : m_type(cptCertificateTypeNone) {}

QcType::QcType(cptCertificateType type) : m_type(type) {}

QcType::QcType(const ESI_QcType* info) : m_type(cptCertificateTypeNone) {
    if (info == nullptr) {
        Fail(ErrInvalidParameter, L"pQcType=NULL");
    }
    // Only the first type counts: a certificate is of one kind.
    if (sk_ASN1_OBJECT_num(info) <= 0) {
        return;
    }
    std::string oid;
    if (!OidToText(sk_ASN1_OBJECT_value(info, 0), oid)) {
        Fail(ErrAsn1Decoding);
    }
    if (oid == kQcTypeESignOid) {
        m_type = cptCertificateTypeESign;
    } else if (oid == kQcTypeESealOid) {
        m_type = cptCertificateTypeESeal;
    } else if (oid == kQcTypeWebOid) {
        m_type = cptCertificateTypeWeb;
    }
}

QcType::QcType(const QcType& other) : QcStatementInfo(other), m_type(other.m_type) {}

QcType& QcType::operator=(const QcType& other) {
    m_type = other.m_type;
    return *this;
}

QcType::~QcType() = default;

qorstd::QorString QcType::GetStatementId() const {
    return qorstd::QorString(x509::kQcTypeOid);
}

void QcType::Reset() {
    m_type = cptCertificateTypeNone;
}

// ---------------------------------------------------------------- QcUnknown

QcUnknown::QcUnknown() = default;

QcUnknown::QcUnknown(const char* statementId) : m_statementId(statementId) {}

QcUnknown::QcUnknown(const QcUnknown& other)
    : QcStatementInfo(other), m_statementId(other.m_statementId) {}

QcUnknown& QcUnknown::operator=(const QcUnknown& other) {
    m_statementId = other.m_statementId;
    return *this;
}

QcUnknown::~QcUnknown() = default;

qorstd::QorString QcUnknown::GetStatementId() const {
    return m_statementId;
}

// ---------------------------------------------------------------- QcStatement

QcStatement::QcStatement() : m_info(nullptr) {}

QcStatement::QcStatement(const char* statementId) : m_statementId(statementId), m_info(nullptr) {}

QcStatement::QcStatement(const QC_STATEMENT_st* statement) : m_info(nullptr) {
    if (statement == nullptr) {
        Fail(ErrInvalidParameter, L"pQcStatement=NULL");
    }
    std::string id;
    if (!OidToText(statement->statementId, id)) {
        Fail(ErrAsn1Decoding);
    }
    m_statementId = id.c_str();
    // Allocation failures leave the information absent; the identifier is
    // what searches rely on.
    if (id == x509::kQcTypeOid) {
        const x509::EsiQcTypePtr info = DecodeQcTypeInfo(statement->statementInfo);
        m_info = info ? new (std::nothrow) QcType(info.get()) : new (std::nothrow) QcType();
    } else {
        m_info = new (std::nothrow) QcUnknown(id.c_str());
    }
}

QcStatement::QcStatement(const QcStatement& other) : m_info(nullptr) {
    Copy(other);
}

QcStatement& QcStatement::operator=(const QcStatement& other) {
    if (this != &other) {
        Reset();
        Copy(other);
    }
    return *this;
}

QcStatement::~QcStatement() {
    Reset();
}

void QcStatement::Reset() {
    delete m_info;
    m_info = nullptr;
    m_statementId.clear();
}

void QcStatement::Copy(const QcStatement& other) {
    m_statementId = other.m_statementId;
    if (other.m_info == nullptr) {
        return;
    }
    if (m_statementId == qorstd::QorString(x509::kQcTypeOid)) {
        const QcType* type = dynamic_cast<const QcType*>(other.m_info);
        m_info = new (std::nothrow)
            QcType(type != nullptr ? type->GetCertificateType() : QcType::cptCertificateTypeNone);
    } else {
        m_info = new (std::nothrow) QcUnknown(m_statementId.c_str());
    }
}

bool QcStatement::operator==(const QcStatement& other) const {
    return m_statementId == other.m_statementId;
}

// ---------------------------------------------------------------- extension

namespace x509 {

namespace {

// Lists each statement's identifier and, for a QcType, its type OIDs. Other
// information (PDS locations, semantics information) is not decoded, so a
// malformed one cannot spoil the listing.
int PrintQcStatements(const X509V3_EXT_METHOD*, void* extension, BIO* out, int indent) {
    const QC_STATEMENTS* statements = static_cast<const QC_STATEMENTS*>(extension);
    for (int i = 0; i < sk_QC_STATEMENT_num(statements); ++i) {
        const QC_STATEMENT* statement = sk_QC_STATEMENT_value(statements, i);
        std::string id;
        if (statement == nullptr || !OidToText(statement->statementId, id)) {
            id = "<unreadable statement id>";
        }
        BIO_printf(out, "%*s%s\n", indent, "", id.c_str());
        if (id != kQcTypeOid || statement->statementInfo == nullptr ||
            statement->statementInfo->type != V_ASN1_SEQUENCE) {
            continue;
        }
        const ASN1_STRING* sequence = statement->statementInfo->value.sequence;
        const EsiQcTypePtr types = qorssl::DecodeWhole<x509::EsiQcTypePtr>(
            d2i_ESI_QcType, ASN1_STRING_get0_data(sequence), ASN1_STRING_length(sequence));
        for (int k = 0; types && k < sk_ASN1_OBJECT_num(types.get()); ++k) {
            std::string type;
            if (OidToText(sk_ASN1_OBJECT_value(types.get(), k), type)) {
                BIO_printf(out, "%*s  QcType: %s\n", indent, "", type.c_str());
            }
        }
    }
    return 1;
}

struct ExtMethodFree {
    void operator()(X509V3_EXT_METHOD* method) const { OPENSSL_free(method); }
};

}  // namespace

QcStatementsPtr DecodeQcStatements(const unsigned char* der, long size) {
    return qorssl::DecodeWhole<x509::QcStatementsPtr>(d2i_QC_STATEMENTS, der, size);
}

bool AppendQcStatements(const unsigned char* der, long size,
                        qorstd::QorVector<QcStatement>& statements) {
    const QcStatementsPtr decoded = DecodeQcStatements(der, size);
    if (!decoded) {
        return false;
    }
    // Parse all first so that a failing statement appends nothing.
    qorstd::QorVector<QcStatement> parsed;
    for (int i = 0; i < sk_QC_STATEMENT_num(decoded.get()); ++i) {
        parsed.Add(QcStatement(sk_QC_STATEMENT_value(decoded.get(), i)));
    }
    for (unsigned i = 0; i < parsed.GetSize(); ++i) {
        statements.Add(parsed[i]);
    }
    return true;
}

bool AppendQcStatements(const X509_EXTENSION* extension,
                        qorstd::QorVector<QcStatement>& statements) {
    if (extension == nullptr) {
        return false;
    }
    const ASN1_OCTET_STRING* value =
        X509_EXTENSION_get_data(const_cast<X509_EXTENSION*>(extension));
    if (value == nullptr) {
        return false;
    }
    return AppendQcStatements(ASN1_STRING_get0_data(value), ASN1_STRING_length(value), statements);
}

int ParseCertificateQcStatements(const X509* certificate,
                                 qorstd::QorVector<QcStatement>& statements) {
    if (certificate == nullptr) {
        return 0;
    }
    const int index = X509_get_ext_by_NID(certificate, NID_qcStatements, -1);
    if (index < 0) {
        return 0;
    }
    return AppendQcStatements(X509_get_ext(certificate, index), statements) ? 1 : 0;
}

bool RegisterQcStatementsHandler() {
    static std::mutex mutex;
    static bool registered = false;
    std::lock_guard<std::mutex> lock(mutex);
    if (registered) {
        return true;
    }
    // A handler someone else added stays; decoding never relies on it.
    if (X509V3_EXT_get_nid(NID_qcStatements) != nullptr) {
        registered = true;
        return true;
    }
    std::unique_ptr<X509V3_EXT_METHOD, ExtMethodFree> method(
        static_cast<X509V3_EXT_METHOD*>(OPENSSL_zalloc(sizeof(X509V3_EXT_METHOD))));
    if (!method) {
        return false;
    }
    method->ext_nid = NID_qcStatements;
    method->ext_flags = X509V3_EXT_DYNAMIC | X509V3_EXT_MULTILINE;
    method->it = ASN1_ITEM_ref(QC_STATEMENTS);
    method->i2r = PrintQcStatements;
    if (X509V3_EXT_add(method.get()) != 1) {
        ERR_clear_error();
        return false;
    }
    // OpenSSL owns the method now and keeps it until the process ends.
    method.release();
    registered = true;
    return true;
}

}  // namespace x509
}  // namespace TesseraLib
