#include "SignerCms.h"

namespace TesseraLib {

SignerCms::SignerCms()
    : m_trustStore(nullptr),
      m_extraStore(nullptr),
      m_hashAlgorithm(CryptHash::cptHashNone),
      m_includeOption(cptIncludeNone),
      m_attributeOption(cptAttributeNone),
      m_verifyOption(X509Certificate::cptVerifyTimeValidity),
      m_tspClient(nullptr) {}

SignerCms::SignerCms(const X509Certificate& certificate) : SignerCms() {
    m_certificate = certificate;
}

SignerCms::~SignerCms() {}

void SignerCms::Reset() {
    m_certificate.Reset();
    m_certificates.RemoveAll();
    m_trustStore = nullptr;
    m_extraStore = nullptr;
    m_hashAlgorithm = CryptHash::cptHashNone;
    m_includeOption = cptIncludeNone;
    m_attributeOption = cptAttributeNone;
    m_verifyOption = X509Certificate::cptVerifyTimeValidity;
    m_tspClient = nullptr;
}

}  // namespace TesseraLib
