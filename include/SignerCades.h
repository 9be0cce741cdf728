// The signer settings of a CAdES signature: the CMS signer's, plus the
// signature policy (CAdES-EPES) and the MIME type of the content.
#pragma once

#include "QorString.h"
#include "SignerCms.h"
#include "TesseraExport.h"

namespace TesseraLib {

class SignaturePolicy;

// A value: copies share the policy (not owned), which must outlive every
// signing that uses it.
class TESSERA_API SignerCades : public SignerCms {
public:
    SignerCades();
    explicit SignerCades(const X509Certificate& certificate);
    SignerCades(const SignerCades& other) = default;
    SignerCades& operator=(const SignerCades& other) = default;
    ~SignerCades() override;

    // Also clears the policy and the MIME type.
    void Reset() override;

    void SetSignaturePolicy(const SignaturePolicy* policy) { m_signaturePolicy = policy; }
    const SignaturePolicy* GetSignaturePolicy() const { return m_signaturePolicy; }
    // Empty: no MIME-type attribute.
    void SetMimeType(const qorstd::QorStringW& mimeType) { m_mimeType = mimeType; }
    const qorstd::QorStringW& GetMimeType() const { return m_mimeType; }

private:
    const SignaturePolicy* m_signaturePolicy = nullptr;
    qorstd::QorStringW m_mimeType;
};

}  // namespace TesseraLib
