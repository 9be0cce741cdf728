// Signed-data messages made with OpenSSL's CMS API, and DER pieces for what
// that API cannot make.
#pragma once

#include <openssl/cms.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "TestPki.h"

namespace tessera_test {

using Bytes = std::vector<unsigned char>;

struct CmsFree {
    void operator()(CMS_ContentInfo* cms) const { CMS_ContentInfo_free(cms); }
};
using CmsPtr = std::unique_ptr<CMS_ContentInfo, CmsFree>;

struct CmsSignPlan {
    std::string content;
    std::vector<const Issued*> signers;  // each signs with SHA-256
    // CMS_DETACHED, CMS_NOCERTS, CMS_NOATTR, CMS_NOSMIMECAP ...; CMS_BINARY always.
    unsigned int flags = 0;
    unsigned keyIdSigners = 0;        // bit i: signer i is named by its key identifier
    std::vector<X509*> certificates;  // further certificates to carry (borrowed)
    std::string contentType;          // dotted OID; id-data when empty
    std::int64_t signingTime = 0;     // 0: OpenSSL's clock (with signed attributes)
    // Runs just before the signatures are made.
    std::function<void(CMS_ContentInfo*)> beforeFinal;
};

// The signed message; throws when OpenSSL refuses.
CmsPtr SignCms(const CmsSignPlan& plan);
Bytes CmsDer(CMS_ContentInfo* cms);
CMS_SignerInfo* FirstSigner(CMS_ContentInfo* cms);

// A DER element with a definite length.
Bytes Tlv(unsigned char tag, const Bytes& content);

}  // namespace tessera_test
