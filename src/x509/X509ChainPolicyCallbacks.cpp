// The revocation verdicts of certificate validation: they only tell revoked
// and unknown apart from good; how fresh the data is gets judged separately,
// so neither the caution period nor nextUpdate plays a part here.
#include "CryptException.h"
#include "Failure.h"
#include "OcspResponse.h"
#include "X509Certificate.h"
#include "X509ChainPolicy.h"
#include "X509Crl.h"

namespace TesseraLib {

void CertificateValidationCrlCallback(const X509Certificate* cert, const X509Crl& crl,
                                      std::int64_t verifyTime,
                                      const CautionPeriod& /*cautionPeriod*/) {
    if (cert == nullptr) {
        Fail(ErrInvalidParameter, L"pCert=NULL");
    }
    X509CrlItem item;
    if (crl.IsPresent(*cert) == 0 || crl.GetCrlItem(*cert, item) == 0) {
        return;
    }
    // A revocation dated after the verification time did not exist yet.
    if (verifyTime - item.GetRevocationTime() >= 0) {
        throw X509CertificateValidationException(cert, &crl, nullptr, ErrCertRevoked, nullptr);
    }
}

void CertificateValidationOcspCallback(const X509Certificate* cert,
                                       const QorOcsp2Lib::OcspResponse& response,
                                       std::int64_t verifyTime,
                                       const CautionPeriod& /*cautionPeriod*/) {
    if (cert == nullptr) {
        Fail(ErrInvalidParameter, L"pCert=NULL");
    }
    const auto& singles = response.GetSingleResponses();
    if (singles.GetSize() == 0) {
        Fail(ErrInvalidParameter, L"ocsp.GetSingleResponses() is empty");
    }
    if (singles.GetSize() > 1) {
        Fail(ErrInternal, L"ocsp.GetSingleResponses().GetSize()>1");
    }
    const QorOcsp2Lib::OcspSingleResponse& single = singles[0];
    switch (single.GetCertStatus()) {
        case QorOcsp2Lib::OcspSingleResponse::ocspStatusGood:
            return;
        case QorOcsp2Lib::OcspSingleResponse::ocspStatusRevoked:
            if (verifyTime - single.GetRevocationTime() >= 0) {
                throw X509CertificateValidationException(cert, nullptr, &response, ErrCertRevoked,
                                                         nullptr);
            }
            return;
        default:
            throw X509CertificateValidationException(cert, nullptr, &response, ErrRevocationUnknown,
                                                     nullptr);
    }
}

}  // namespace TesseraLib
