// Long-term signatures for tests: a CAdES-T of a small RSA PKI extended with
// archive time-stamps v3, whose imprint and ats-hash-index-v3 are computed
// here from the message's own elements, independently of the library.
#pragma once

#include <openssl/cms.h>

#include <cstdint>
#include <string>
#include <vector>

#include "TestCms.h"
#include "TestPki.h"
#include "TestTsa.h"

namespace tessera_test {

// Timeline (pinned):
//
//   signer  2020 ───────────────── revoked 2025-06 ───────────── 2040
//   TSA 1   2020 ─────────────────────────── expired 2025-01
//   TSA 2   2020 ──────────────────────────────────────────────── 2040
//            signature time-stamp by TSA 1     2024-01-02
//            archive time-stamp by TSA 2       2024-06-01
//            verification                      2026-01-01
struct LongTermTimes {
    static std::int64_t Signed() { return UtcTime(2024, 1, 1); }
    static std::int64_t Stamped() { return UtcTime(2024, 1, 2); }
    static std::int64_t Archived() { return UtcTime(2024, 6, 1); }
    static std::int64_t Revoked() { return UtcTime(2025, 6, 1); }
    static std::int64_t Verified() { return UtcTime(2026, 1, 1); }
};

// RSA throughout (pool slots 40 to 45), so that validation policies that
// accept RSA only can judge it.
struct LongTermPki {
    LongTermPki();
    Issued root;
    Issued signer;  // serial 5
    TestTsa tsa1;   // expires 2025-01-01
    TestTsa tsa2;
    static const LongTermPki& Get();
};

struct ArchivePlan {
    const TestTsa* tsa = nullptr;
    std::int64_t genTime = 0;
    bool wrongImprint = false;  // the token stamps other bytes
    int indexCopies = 1;        // hash-index attributes on the token's signer
};

// The ats-hash-index-v3 value (SHA-256) over the message's certificates,
// CRLs and its first signer's unsigned attribute values.
Bytes HashIndexV3(CMS_ContentInfo* cms);

// What an archive time-stamp v3 of the first signer stamps: the content
// type, the digest of `content`, the signer's fields up to its signature
// and the hash-index value `index`.
Bytes ArchiveImprintInput(CMS_ContentInfo* cms, const std::string& content, const Bytes& index);

// Adds an archive time-stamp v3 to the first signer of `cms`, whose
// content is `content`.
void AddArchiveTimeStamp(CMS_ContentInfo* cms, const std::string& content, const ArchivePlan& plan);

// The CAdES-T of the signer over `LongTermContent()` stamped by TSA 1,
// without revocation data.
std::string LongTermContent();
CmsPtr LongTermT();

// That CAdES-T carrying TSA 1's CRL, extended with `archives`; the root's CRL revoking
// the signer and TSA 2's CRL are added after them.
Bytes LongTermSignature(const std::vector<ArchivePlan>& archives);

}  // namespace tessera_test
