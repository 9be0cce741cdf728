// Registration of the library's object identifiers with OpenSSL.
#include <gtest/gtest.h>

#include <openssl/objects.h>

#include <string>

#include "ObjectTable.h"

using namespace TesseraLib::objects;

namespace {

std::string ShortName(const char* oid) {
    const int nid = OBJ_txt2nid(oid);
    return nid == NID_undef ? std::string() : std::string(OBJ_nid2sn(nid));
}

}  // namespace

TEST(ObjectTableTest, RegistersOncePerStartUp) {
    ClearRegisteredFlag();
    ASSERT_TRUE(EnsureRegistered());
    EXPECT_TRUE(IsRegistered());
    EXPECT_EQ(ShortName("1.3.6.1.4.1.311.10.3.12"), "msDocumentSigning");
    EXPECT_EQ(ShortName("1.2.840.113549.1.9.16.2.47"), "id-smime-aa-signingCertificateV2")
        << "an OID OpenSSL already knows keeps its own names";

    EXPECT_TRUE(EnsureRegistered()) << "later calls do nothing and succeed";
    ClearRegisteredFlag();
    EXPECT_FALSE(IsRegistered());
    EXPECT_TRUE(EnsureRegistered()) << "after shut-down the already known OIDs count as registered";
}

TEST(ObjectTableTest, StopsAtTheFirstFailureAndCanBeRetried) {
    const ObjectEntry broken[] = {
        {"1.3.6.1.4.1.47385.99.1", "tesseraTestOne", "Tessera test one"},
        {"not an oid", "tesseraTestBad", "Tessera test bad"},
        {"1.3.6.1.4.1.47385.99.2", "tesseraTestTwo", "Tessera test two"},
    };
    EXPECT_FALSE(Register(broken, 3));
    EXPECT_EQ(ShortName("1.3.6.1.4.1.47385.99.2"), "") << "nothing after the failure is added";

    const ObjectEntry fixed[] = {
        {"1.3.6.1.4.1.47385.99.1", "tesseraTestOne", "Tessera test one"},
        {"1.3.6.1.4.1.47385.99.2", "tesseraTestTwo", "Tessera test two"},
    };
    EXPECT_TRUE(Register(fixed, 2)) << "a retry goes on where the failed attempt stopped";
    EXPECT_EQ(ShortName("1.3.6.1.4.1.47385.99.2"), "tesseraTestTwo");
}

TEST(ObjectTableTest, NameClashIsAFailure) {
    const ObjectEntry clash[] = {{"1.3.6.1.4.1.47385.99.3", "CN", "clashing short name"}};
    EXPECT_FALSE(Register(clash, 1)) << "a short name OpenSSL uses for another OID";
}
