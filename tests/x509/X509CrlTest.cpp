// CRLs as an application sees them: the decoded fields of v1 and v2 lists,
// the revoked entry of a certificate, comparison and copies, and bad input.
// CRLs written by `openssl ca -gencrl` are read in check_cli_crl.sh, which
// also checks the printed issuer and key identifier.
#include <gtest/gtest.h>

#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <string>
#include <vector>

#include "CryptException.h"
#include "TestTessera.h"
#include "X509Crl.h"

using namespace TesseraLib;
using namespace tessera_test;

namespace {

X509Crl Import(const std::vector<unsigned char>& der) {
    return X509Crl(der.data(), static_cast<long>(der.size()));
}

//   Root CA ──────────┬── leaf #2  keyCompromise, 01.06.2024 12:00 ─┐
//   (EC, SHA-256)     ├── leaf #3  removeFromCRL                    ├─ listed on the
//                     ├── leaf #4  no reason code                   │  root's CRL
//                     ├── leaf #6  certificateHold                 ─┘
//                     └── leaf #5  not listed
//   Other CA ──────────── leaf #2  same serial, other issuer: not listed
class X509CrlTest : public ::testing::Test {
protected:
    // A leaf of `issuer`, of the root when null.
    X509Certificate Leaf(long serial, const Issued* issuer = nullptr) const {
        const Issued& by = issuer != nullptr ? *issuer : *root;
        return X509Certificate(
            IssueCertificate(BasicProfile("Leaf", serial, false), &by).cert.get());
    }

    static CrlPlan ListingProfile() {
        CrlPlan profile;
        profile.crlNumber = 0x1234AB;
        profile.revoked = {{2, UtcTime(2024, 6, 1, 12), CRL_REASON_KEY_COMPROMISE},
                           {3, UtcTime(2024, 6, 2), CRL_REASON_REMOVE_FROM_CRL},
                           {4, UtcTime(2024, 6, 3), -1},
                           {6, UtcTime(2024, 6, 4), CRL_REASON_CERTIFICATE_HOLD}};
        return profile;
    }

    struct Roots {
        Issued root = IssueCertificate(BasicProfile("Test Root", 1, true), nullptr);
        Issued other = IssueCertificate(BasicProfile("Other Root", 1, true), nullptr);
    };
    static const Roots& Pki() {
        static const Roots roots;
        return roots;
    }
    const Issued* root = &Pki().root;
    const Issued* other = &Pki().other;
};

TEST_F(X509CrlTest, ReadsTheFieldsOfAVersion2Crl) {
    const std::vector<unsigned char> der = CrlToDer(IssueCrl(ListingProfile(), *root).get());
    const X509Crl crl = Import(der);

    EXPECT_EQ(crl.GetVersion(), 1u) << "v2 is encoded as 1";
    EXPECT_EQ(crl.GetThisUpdate(), UtcTime(2024, 7, 1)) << "thisUpdate";
    EXPECT_EQ(crl.GetNextUpdate(), UtcTime(2024, 8, 1)) << "nextUpdate";
    EXPECT_STREQ(crl.GetCRLNumberHex().c_str(), "1234AB") << "CRL number in upper-case hex";

    const ASN1_OCTET_STRING* rootKeyId = X509_get0_subject_key_id(root->cert.get());
    const std::vector<unsigned char> expectedKeyId(rootKeyId->data,
                                                   rootKeyId->data + rootKeyId->length);
    EXPECT_EQ(ToBytes(crl.GetAuthorityKeyId()), expectedKeyId) << "AKI is the issuer's key id";
    EXPECT_EQ(
        X509_NAME_cmp(crl.GetIssuerName().GetX509Name(), X509_get_subject_name(root->cert.get())),
        0)
        << "issuer name is the root's subject";
    EXPECT_EQ(crl.GetSignatureAlgorithmNID(), NID_ecdsa_with_SHA256) << "signature NID";
    EXPECT_STREQ(crl.GetHashAlgorithmName().c_str(), "ecdsa-with-SHA256")
        << "a lower-case 'with' does not cut the name";
    CertPlan rsaProfile = BasicProfile("RSA Root", 1, true);
    rsaProfile.key = CachedKey(KeyKind::Rsa2048).get();
    const Issued rsaRoot = IssueCertificate(rsaProfile, nullptr);
    const X509Crl rsaSigned = Import(CrlToDer(IssueCrl(CrlPlan(), rsaRoot).get()));
    EXPECT_STREQ(rsaSigned.GetSignatureAlgorithmName().c_str(), "sha256WithRSAEncryption")
        << "OpenSSL's long name";
    EXPECT_STREQ(rsaSigned.GetHashAlgorithmName().c_str(), "sha256") << "cut before 'With'";
    EXPECT_EQ(ToBytes(crl.Export()), der) << "Export gives the imported DER back";

    EXPECT_EQ(crl.GetSHA1HashHex().length(), 40u) << "SHA-1 of the DER as 40 hex digits";
}

TEST_F(X509CrlTest, Version1CrlWithoutNextUpdatePromisesNoNewerList) {
    CrlPlan profile;
    profile.version = 1;
    profile.nextUpdate = 0;
    const X509Crl crl = Import(CrlToDer(IssueCrl(profile, *root).get()));

    EXPECT_EQ(crl.GetVersion(), 0u) << "v1 has no version field: 0";
    EXPECT_TRUE(crl.GetAuthorityKeyId().GetSize() == 0 && crl.GetAuthorityKeyIdStringHex().empty())
        << "no extensions: no AKI, empty hex";
    EXPECT_TRUE(crl.GetCRLNumber() == nullptr && crl.GetCRLNumberDec().empty() &&
                crl.GetCRLNumberHex().empty())
        << "no CRL number: empty decimal and hex";
    EXPECT_EQ(crl.GetNextUpdate(), X509Crl::kNoNextUpdate) << "absent nextUpdate";
    EXPECT_GT(crl.GetNextUpdate(), UtcTime(9999, 12, 31))
        << "no check time is ever later than an absent nextUpdate";
}

TEST_F(X509CrlTest, FindsTheEntryOfACertificate) {
    const X509Crl crl = Import(CrlToDer(IssueCrl(ListingProfile(), *root).get()));
    struct Case {
        long serial;
        int reason;
        std::int64_t time;
    };
    const Case listed[] = {{2, CRL_REASON_KEY_COMPROMISE, UtcTime(2024, 6, 1, 12)},
                           {3, CRL_REASON_REMOVE_FROM_CRL, UtcTime(2024, 6, 2)},
                           {4, -1, UtcTime(2024, 6, 3)},
                           {6, CRL_REASON_CERTIFICATE_HOLD, UtcTime(2024, 6, 4)}};
    for (const Case& c : listed) {
        const X509Certificate leaf = Leaf(c.serial);
        X509CrlItem item;
        EXPECT_EQ(crl.IsPresent(leaf), 1) << "serial " << c.serial << " is listed";
        ASSERT_EQ(crl.GetCrlItem(leaf, item), 1) << "serial " << c.serial << " has an entry";
        EXPECT_EQ(item.GetRevocationReason(), c.reason) << "reason of serial " << c.serial;
        EXPECT_EQ(item.GetRevocationTime(), c.time) << "revocation time of serial " << c.serial;
    }

    X509CrlItem untouched;
    EXPECT_EQ(crl.IsPresent(Leaf(5)), 0) << "an unlisted serial is absent";
    EXPECT_EQ(crl.GetCrlItem(Leaf(5), untouched), 0) << "no entry for an unlisted serial";
    EXPECT_TRUE(untouched.GetRevocationReason() == -1 && untouched.GetRevocationTime() == 0)
        << "item left untouched";
    EXPECT_EQ(crl.IsPresent(Leaf(2, other)), 0) << "a listed serial under another issuer is absent";

    EXPECT_EQ(Catch([&] { crl.IsPresent(X509Certificate()); }).message, "cert.GetX509()=NULL")
        << "an empty certificate is an argument error";
    EXPECT_EQ(X509Crl().IsPresent(Leaf(2)), 0) << "an empty CRL lists nothing";
}

//   Root CA ── indirect CRL ── entry #7, certificateIssuer = Other CA
//   Other CA ── leaf #7 (listed)      Root CA ── leaf #7 (not listed)
TEST_F(X509CrlTest, EntryOfAnIndirectCrlNamesItsOwnIssuer) {
    CrlPlan profile;
    profile.indirect = true;
    profile.revoked = {{7, UtcTime(2024, 6, 1), CRL_REASON_SUPERSEDED, other->cert.get()}};
    const X509Crl crl = Import(CrlToDer(IssueCrl(profile, *root).get()));
    X509CrlItem item;
    EXPECT_EQ(crl.GetCrlItem(Leaf(7, other), item), 1) << "the named issuer's certificate";
    EXPECT_EQ(item.GetRevocationReason(), CRL_REASON_SUPERSEDED) << "its reason";
    EXPECT_EQ(crl.IsPresent(Leaf(7, root)), 0) << "the CRL issuer's own serial 7 is not listed";
}

TEST_F(X509CrlTest, EqualsComparesEncodingsAndCopiesAreIndependent) {
    const std::vector<unsigned char> der = CrlToDer(IssueCrl(ListingProfile(), *root).get());
    X509Crl first = Import(der);
    const X509Crl second = Import(der);
    const X509Crl different = Import(CrlToDer(IssueCrl(CrlPlan(), *root).get()));
    EXPECT_EQ(first.Equals(second), 1) << "same DER";
    EXPECT_EQ(first.Equals(different), 0) << "other CRL";
    EXPECT_EQ(X509Crl().Equals(first), 0) << "empty with a CRL";
    EXPECT_EQ(first.Equals(X509Crl()), 0) << "a CRL with empty";

    X509Crl copy(first);
    X509Crl assigned;
    assigned = first;
    first.Reset();
    EXPECT_TRUE(first.GetX509Crl() == nullptr && first.GetThisUpdate() == 0 &&
                first.GetIssuer().GetSize() == 0)
        << "Reset drops the CRL, zeroes the times and empties the issuer";
    EXPECT_EQ(copy.Equals(second) + assigned.Equals(second), 2)
        << "copy and assignment survive the original's Reset";
    EXPECT_EQ(X509Crl(second.GetX509Crl()).Equals(second), 1) << "built from an OpenSSL handle";
}

TEST_F(X509CrlTest, RejectsBadArgumentsBytesAndAlgorithms) {
    const std::vector<unsigned char> der = CrlToDer(IssueCrl(CrlPlan(), *root).get());
    X509Crl crl;
    const Thrown nullData = Catch([&] { crl.Import(nullptr, 10); });
    EXPECT_TRUE(nullData.code == ErrInvalidParameter && nullData.message == "pCrl=NULL")
        << "null data: 102 naming the argument";
    const Thrown noSize = Catch([&] { crl.Import(der.data(), 0); });
    EXPECT_TRUE(noSize.code == ErrInvalidParameter && noSize.message == "nSize<=0")
        << "size 0: 102 naming the argument";
    EXPECT_EQ(Catch([] { X509Crl(static_cast<const X509_CRL*>(nullptr)); }).message, "pCrl=NULL")
        << "null OpenSSL handle";

    std::vector<unsigned char> trailing(der);
    trailing.push_back(0);
    std::vector<unsigned char> truncated(der.begin(), der.end() - 1);
    std::vector<unsigned char> garbage = {0x30, 0x03, 0x02, 0x01, 0x01};
    for (const std::vector<unsigned char>* bad : {&trailing, &truncated, &garbage}) {
        EXPECT_EQ(CodeOf([&] { Import(*bad); }), ErrAsn1Decoding)
            << "not exactly one CRL: 109 (" << bad->size() << " bytes)";
    }
    CrlPlan unknownAlgorithm;
    unknownAlgorithm.outerSignatureOid = "1.3.6.1.4.1.99999.7";
    const std::vector<unsigned char> unknown = CrlToDer(IssueCrl(unknownAlgorithm, *root).get());
    EXPECT_EQ(CodeOf([&] { Import(unknown); }), ErrAlgorithmNotSupported)
        << "an unknown signature algorithm (NID 0) is rejected with 113";
    EXPECT_TRUE(X509Crl().Export().GetSize() == 0 && X509Crl().GetSHA1HashHex().empty())
        << "an empty object exports nothing and has no digest";
}

}  // namespace
