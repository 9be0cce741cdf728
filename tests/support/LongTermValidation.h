// The with-time validation of a signature of the long-term test PKI
// (TestArchive.h) as the long-term tests judge it: EN 319 122-1 at
// LongTermTimes::Verified(), every anchor of that PKI trusted, each TSA CA's
// CRL at hand (TSA 1's first: the revocation search takes the first CRL by
// issuer name, and the two TSA CAs share one). Header-only, for test
// programs that link the library.
#pragma once

#include <string>

#include "CadesValidationProcess.h"
#include "SignedCades.h"
#include "TestArchive.h"
#include "TestTessera.h"
#include "ValidationReport.h"
#include "Validator.h"
#include "X509ChainPolicy.h"
#include "X509Crl.h"
#include "X509Store.h"

namespace tessera_test {

class LongTermWithTime {
public:
    LongTermWithTime() {
        const LongTermPki& pki = LongTermPki::Get();
        m_sigTrust.AddCertificate(Cert(pki.root));
        for (const TestTsa* tsa : {&pki.tsa1, &pki.tsa2}) {
            m_tsTrust.AddCertificate(Cert(tsa->Ca()));
            m_tsExtra.AddCrl(TesseraLib::X509Crl(
                IssueCrl(tsa->Ca(), UtcTime(2024, 5, 1), UtcTime(2040, 1, 1)).get()));
            m_tsu.AddCertificate(Cert(tsa->Tsa()));
        }
        m_policy.SetTrustStoreSig(&m_sigTrust);
        m_policy.SetTrustStoreTS(&m_tsTrust);
        m_policy.SetExtraStoreTS(&m_tsExtra);
        m_policy.SetTSUStore(&m_tsu);
        m_policy.SetRevocationOption(TesseraLib::X509ChainPolicy::revOptionChain);
        m_policy.SetChainBuildMode(TesseraLib::X509ChainPolicy::cptChainBuildStores);
    }
    LongTermWithTime(const LongTermWithTime&) = delete;
    LongTermWithTime& operator=(const LongTermWithTime&) = delete;

    // "total/sub-indication@best signature time" of the signature `der`.
    std::string operator()(const Bytes& der) {
        using TesseraLib::ValidationProcess;
        TesseraLib::SignedCades cades;
        cades.Decode(Array(der));
        TesseraLib::ValidatorCades validator;
        validator.SetSignedCades(&cades);
        validator.SetChainPolicy(&m_policy);
        validator.SetValidationProcessType(ValidationProcess::vptSignatureWithTimeValidation);
        validator.SetSignatureStandard(ValidationProcess::vptEN319122_1);
        validator.SetValidationTime(LongTermTimes::Verified());
        validator.Validate();
        const auto& report =
            *dynamic_cast<const TesseraLib::SignatureWithTimeValidationProcessReport*>(
                validator.GetValidationReport());
        return Narrow(TesseraLib::ValidationReport::cptReportTotalStatusStrings
                          [report.GetTotalStatusIndication()]) +
               "/" +
               Narrow(TesseraLib::ValidationBlockReport::cptReportSubStatusStrings
                          [report.GetSubStatusIndication()]) +
               "@" + std::to_string(report.GetBestSignatureTime());
    }

private:
    TesseraLib::X509MemoryStore m_sigTrust, m_tsTrust, m_tsExtra, m_tsu;
    TesseraLib::X509ChainPolicyTL m_policy;
};

}  // namespace tessera_test
