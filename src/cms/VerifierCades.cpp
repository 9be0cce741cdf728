#include "VerifierCades.h"

#include "SignedCades.h"

namespace TesseraLib {

VerifierCades::VerifierCades() = default;

VerifierCades::VerifierCades(const VerifierCms& verifier) : VerifierCms(verifier) {}

VerifierCades::~VerifierCades() = default;

void VerifierCades::Reset() {
    *this = VerifierCades();
}

SignedCades* VerifierCades::CreateSignatureObject() const {
    return new SignedCades();
}

}  // namespace TesseraLib
