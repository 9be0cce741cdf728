// What one path build keeps while it runs, and the helpers the build steps
// share (internal).
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "OpenSslPtr.h"
#include "QorString.h"
#include "X509Chain.h"

namespace TesseraLib {

// Per-verification data of the OpenSSL callbacks, attached to the store
// context as application data 0, so that chains building in parallel never
// share it.
struct QorVerifyData {
    // The CRLs the lookup callback may hand to the verifier (borrowed from
    // the build context; null outside CRL modes).
    STACK_OF(X509_CRL) * crls = nullptr;
    // The CRL the verifier checked the certificate at each depth against
    // (borrowed, alive as long as `crls`).
    std::map<int, X509_CRL*> crlsUsedByDepth;
    // Verification errors met at each depth while a CRL was processed.
    std::map<int, std::vector<int>> crlErrorsByDepth;
};

// The store context refers to everything else here, so it is declared last
// and released first.
struct X509Chain::BuildContext {
    // The certificate objects behind the handles offered to the verifier
    // (the one being built, the trust store's, the extra store's): path
    // elements are copied from them instead of being decoded again.
    std::vector<const qorstd::QorVector<X509Certificate>*> known;
    std::vector<std::unique_ptr<qorstd::QorVector<X509Certificate>>> ownedKnown;
    X509StorePtr pTrustStore;
    X509StackPtr trustedCerts;  // null when the trust store is empty
    X509StackPtr extraCerts;    // the untrusted certificates offered to the verifier
    X509CrlStackPtr pCrls;      // every CRL the revocation search found
    // The CRL objects behind pCrls: path elements copy these, sharing the
    // decoded list, instead of duplicating a handle the verifier names.
    std::vector<X509Crl> collectedCrls;
    std::unique_ptr<QorVerifyData> verifyData;
    X509StoreCtxPtr pStoreCtx;
};

namespace chain {

// The code for an OpenSSL verification error number.
int MapVerifyError(int error);
// OpenSSL's text for a verification error number, as wide text.
qorstd::QorStringW VerifyErrorText(int error);
// "TRUE" / "FALSE".
const wchar_t* Bool(int value);
// The revocation-option rule shared by the search and the verdict: whether
// the certificate at `index` of the path needs a revocation check.
bool NeedsRevocationCheck(X509ChainPolicy::cptRevocationOption option, int index,
                          const X509* certificate);
// The collected CRL object behind `crl` (a copy sharing it), or a new
// object duplicating `crl` when the search did not collect it.
X509Crl CrlFor(const X509Chain::BuildContext* context, const X509_CRL* crl);

}  // namespace chain
}  // namespace TesseraLib
