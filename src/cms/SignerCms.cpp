#include "SignerCms.h"

namespace TesseraLib {

SignerCms::SignerCms() = default;

SignerCms::SignerCms(const X509Certificate& certificate) : SignerCms() {
    m_certificate = certificate;
}

SignerCms::~SignerCms() {}

void SignerCms::Reset() {
    SignerCms::operator=(SignerCms());
}

}  // namespace TesseraLib
