// VerifierCms: the settings a CMS signature is verified under.
#include "VerifierCms.h"

namespace TesseraLib {

VerifierCms::VerifierCms()
    : m_verifyOption(cptVerifyWholeChain),
      m_verifyTime(0),
      m_chainPolicy(nullptr),
      m_compareTsTimeVerifyTime(1) {}

VerifierCms::~VerifierCms() {}

void VerifierCms::Reset() {
    m_verifyOption = cptVerifyWholeChain;
    m_verifyTime = 0;
    m_signerCertificates.RemoveAll();
    m_chainPolicy = nullptr;
    m_compareTsTimeVerifyTime = 1;
}

}  // namespace TesseraLib
