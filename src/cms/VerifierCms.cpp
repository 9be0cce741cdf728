// VerifierCms: the settings a CMS signature is verified under.
#include "VerifierCms.h"

namespace TesseraLib {

VerifierCms::VerifierCms() = default;

VerifierCms::~VerifierCms() {}

void VerifierCms::Reset() {
    VerifierCms::operator=(VerifierCms());
}

}  // namespace TesseraLib
