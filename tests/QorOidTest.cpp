#include "QorOid.h"

#include <gtest/gtest.h>
#include <openssl/objects.h>

#include <string>
#include <vector>

#include "OpenSslPtr.h"

namespace {

TEST(QorOid, ReadsAndPrintsAsOpenSslDoes) {
    for (const char* text :
         {"0.0", "1.2.840.113549.1.9.16.2.47", "0.4.0.19122.1.5", "2.5.4.3", "2.999.1",
          "1.3.6.1.4.1.311.60.2.1.3", "1.2.9223372036854775807", "2.39.40"}) {
        const qorssl::Asn1ObjectPtr object(OBJ_txt2obj(text, 1));
        ASSERT_TRUE(object) << text;
        const std::vector<unsigned char> expected(
            OBJ_get0_data(object.get()), OBJ_get0_data(object.get()) + OBJ_length(object.get()));
        std::vector<unsigned char> der;
        EXPECT_TRUE(qoroid::TextToDer(text, &der)) << "reads " << text;
        EXPECT_EQ(der, expected) << "encodes " << text << " as OpenSSL does";
        std::string printed;
        EXPECT_TRUE(qoroid::DerToText(der.data(), der.size(), &printed)) << text;
        char openssl[128];
        OBJ_obj2txt(openssl, sizeof(openssl), object.get(), 1);
        EXPECT_EQ(printed, openssl) << "prints " << text << " as OpenSSL does";
    }
}

TEST(QorOid, RefusesWhatItDoesNotReadPlainly) {
    std::vector<unsigned char> der;
    for (const char* text : {"", "1", "3.1", "1.40", "1..2", "1.2.", ".1.2", "1.2a", " 1.2",
                             "1.18446744073709551616"}) {
        EXPECT_FALSE(qoroid::TextToDer(text, &der)) << "refuses \"" << text << "\"";
    }
    std::string text;
    const std::vector<std::vector<unsigned char>> bad = {
        {},
        {0x81},
        {0x2A, 0x80, 0x01},
        {0x2A, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F}};
    for (const std::vector<unsigned char>& octets : bad) {
        EXPECT_FALSE(qoroid::DerToText(octets.data(), octets.size(), &text))
            << "refuses empty, truncated, non-minimal or over-long octets (" << octets.size()
            << " bytes)";
    }
}

}  // namespace
