#include "SignerCades.h"

namespace TesseraLib {

SignerCades::SignerCades() = default;

SignerCades::SignerCades(const X509Certificate& certificate) : SignerCms(certificate) {}

SignerCades::~SignerCades() = default;

void SignerCades::Reset() {
    *this = SignerCades();
}

}  // namespace TesseraLib
