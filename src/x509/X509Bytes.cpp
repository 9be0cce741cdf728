#include "x509/X509Bytes.h"

#include <openssl/err.h>
#include <openssl/x509v3.h>

#include <string>

#include "CryptHash.h"
#include "QorHex.h"
#include "QorTextConv.h"

namespace TesseraLib {
namespace x509 {

qorstd::QorString LowerHex(const qorstd::QorArray<unsigned char>& bytes) {
    return qorstd::QorString(qortext::LowerHex(bytes.GetData(), bytes.GetSize()).c_str());
}

qorstd::QorArray<unsigned char> Sha1(const qorstd::QorArray<unsigned char>& bytes) {
    qorstd::QorArray<unsigned char> digest;
    if (bytes.GetSize() == 0) {
        return digest;
    }
    CryptHash hash(CryptHash::cptHashSHA1);
    hash.Update(bytes);
    hash.Finish(digest);
    return digest;
}

qorstd::QorStringW Widen(const qorstd::QorString& text) {
    return qorstd::text::NarrowToWide(text.c_str(), 0, qorstd::text::kCharsetProcess);
}

qorstd::QorStringW FormatLogTime(std::int64_t time) {
    return qorstd::text::FormatTime(time, "%d.%m.%Y %H:%M:%S", true);
}

bool IsIssuedBy(const x509_st* issuer, const x509_st* subject) {
    if (issuer == nullptr || subject == nullptr) {
        return false;
    }
    const bool issued =
        X509_check_issued(const_cast<X509*>(issuer), const_cast<X509*>(subject)) == X509_V_OK;
    ERR_clear_error();
    return issued;
}

const X509Certificate* FindIssuerIn(const qorstd::QorVector<X509Certificate>& certificates,
                                    const x509_st* subject) {
    for (unsigned int i = 0; i < certificates.GetSize(); ++i) {
        if (IsIssuedBy(certificates[i].GetX509(), subject)) {
            return &certificates[i];
        }
    }
    return nullptr;
}

}  // namespace x509
}  // namespace TesseraLib
