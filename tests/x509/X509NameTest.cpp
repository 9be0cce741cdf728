// Distinguished names as an application sees them: decoded attributes, the
// printed one-line form, comparison, DER and hash, and names made by the
// openssl command-line tool.
#include <gtest/gtest.h>

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <algorithm>
#include <string>
#include <vector>

#include "CryptException.h"
#include "TestTessera.h"
#include "X509Name.h"

using namespace TesseraLib;
using namespace tessera_test;

namespace {

X509Name Make(const std::vector<NameAttribute>& attributes) {
    return X509Name(BuildName(attributes).get());
}

std::wstring Printed(const std::vector<NameAttribute>& attributes) {
    return Make(attributes).GetStringX500().c_str();
}

}  // namespace

TEST(X509NameTest, DecodesTheNineAttributes) {
    const X509Name name = Make({{"C", "SK"},
                                {"ST", "Bratislavský kraj"},
                                {"L", "Bratislava"},
                                {"O", "Firma, a.s."},
                                {"OU", "Podpisy"},
                                {"CN", "Ján Novák"},
                                {"serialNumber", "QOR - 00012345"},
                                {"emailAddress", "jan@example.sk"},
                                {"pseudonym", "JN"}});
    EXPECT_STREQ(name.GetCountry().c_str(), L"SK") << "2.5.4.6";
    EXPECT_STREQ(name.GetStateOrProvince().c_str(), L"Bratislavský kraj") << "2.5.4.8, UTF-8";
    EXPECT_STREQ(name.GetLocality().c_str(), L"Bratislava") << "2.5.4.7";
    EXPECT_STREQ(name.GetOrganization().c_str(), L"Firma, a.s.") << "2.5.4.10";
    EXPECT_STREQ(name.GetOrganizationUnit().c_str(), L"Podpisy") << "2.5.4.11";
    EXPECT_STREQ(name.GetCommonName().c_str(), L"Ján Novák") << "2.5.4.3, UTF-8";
    EXPECT_STREQ(name.GetQorSerialNumber().c_str(), L"00012345") << "prefix removed";
    EXPECT_STREQ(name.GetEmailAddress().c_str(), L"jan@example.sk") << "1.2.840.113549.1.9.1";
    EXPECT_STREQ(name.GetPseudonym().c_str(), L"JN") << "2.5.4.65";
}

TEST(X509NameTest, LaterValuesWinAndOnlyTheMakersSerialNumbersCount) {
    EXPECT_STREQ(Make({{"OU", "First"}, {"OU", "Second"}}).GetOrganizationUnit().c_str(), L"Second")
        << "two OU values: the later one stays";
    EXPECT_STREQ(Make({{"serialNumber", "SK12345678"}}).GetQorSerialNumber().c_str(), L"")
        << "a serial number without the prefix is ignored";
    EXPECT_STREQ(Make({{"serialNumber", "qor - 1"}}).GetQorSerialNumber().c_str(), L"")
        << "the prefix is case-sensitive";
    EXPECT_STREQ(Make({{"serialNumber", "QOR - 1"}, {"serialNumber", "PNOSK-2"}})
                     .GetQorSerialNumber()
                     .c_str(),
                 L"1")
        << "a later foreign serial number does not clear the maker's";
    EXPECT_STREQ(Make({{"CN", std::string("\0C\0a\0f\0\xE9", 8), false, V_ASN1_BMPSTRING}})
                     .GetCommonName()
                     .c_str(),
                 L"Café")
        << "a BMPString value is converted like a UTF8String";
    EXPECT_STREQ(Make({{"1.2.3.4", "x"}}).GetCommonName().c_str(), L"")
        << "other attribute types are ignored";
}

TEST(X509NameTest, PrintsOneLineInEncodedOrderWithQuotedValues) {
    EXPECT_EQ(Printed({{"C", "SK"}, {"O", "Q.OR, a.s."}, {"CN", "Jan"}}),
              L"C=SK,O=\"Q.OR, a.s.\",CN=Jan")
        << "comma after O= quoted, RDNs not reversed, no blanks";
    EXPECT_EQ(Printed({{"CN", "Café"}}), L"CN=Café") << "é as itself, not as an escape";
    const struct {
        const char* value;
        const wchar_t* printed;
    } cases[] = {
        {"a+b", L"CN=\"a+b\""}, {"a;b", L"CN=\"a;b\""}, {"#ab", L"CN=\"#ab\""},
        {"ab ", L"CN=\"ab \""}, {" ab", L"CN=\" ab\""}, {"a<b", L"CN=\"a<b\""},
        {"a\\b", L"CN=a\\b"},   {"a\"b", L"CN=a\"b"},   {"a\nb", L"CN=a\nb"},
        {"plain", L"CN=plain"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Printed({{"CN", c.value}}), c.printed) << "value [" << c.value << "]";
    }
    EXPECT_EQ(Printed({{"CN", "A"}, {"OU", "B", true}, {"C", "SK"}}), L"CN=A+OU=B,C=SK")
        << "a multi-valued RDN joins its values with +";
    EXPECT_EQ(Printed({{"1.2.3.4", "x"}, {"CN", "y"}}), L"1.2.3.4=#0C0178,CN=y")
        << "an unknown attribute type as dotted OID and a # DER dump";
}

TEST(X509NameTest, EmptyNamesGiveEmptyResults) {
    const X509Name none;
    EXPECT_EQ(none.Equals(X509Name()), 0) << "two empty names are not equal";
    EXPECT_TRUE(none.GetX509Name() == nullptr && none.Export().GetSize() == 0 &&
                none.GetSHA1Hash().GetSize() == 0 && none.GetSHA1HashHex().empty() &&
                none.GetStringX500().empty())
        << "no structure, DER, hash or text";

    const X509Name noEntries = Make({});
    EXPECT_EQ(ToBytes(noEntries.Export()), (std::vector<unsigned char>{0x30, 0x00}))
        << "a name without RDNs is an empty SEQUENCE";
    EXPECT_STREQ(noEntries.GetStringX500().c_str(), L"") << "and prints as nothing";
    EXPECT_EQ(noEntries.Equals(Make({})), 1) << "two names without RDNs are equal";

    const X509Name name = Make({{"C", "SK"}, {"CN", "Jan Novak"}});
    EXPECT_EQ(name.Equals(Make({{"C", "SK"}, {"CN", "jan  novak"}})), 1)
        << "OpenSSL's canonical comparison ignores case and inner blanks";
    EXPECT_EQ(name.Equals(Make({{"CN", "Jan Novak"}, {"C", "SK"}})), 0) << "order matters";
    EXPECT_EQ(name.Equals(none), 0) << "against an empty name";
}

TEST(X509NameTest, ExportRoundTripsAndHashesTheDer) {
    const NamePtr source = BuildName({{"C", "SK"}, {"O", "Firma"}, {"CN", "Ján"}});
    const X509Name name(source.get());
    const std::vector<unsigned char> der = ToBytes(name.Export());
    unsigned char* reference = nullptr;
    const int length = i2d_X509_NAME(source.get(), &reference);
    EXPECT_EQ(der, std::vector<unsigned char>(reference, reference + std::max(0, length)))
        << "Export is OpenSSL's DER of the name";
    OPENSSL_free(reference);

    unsigned char sha1[EVP_MAX_MD_SIZE];
    unsigned int sha1Length = 0;
    ASSERT_EQ(EVP_Digest(der.data(), der.size(), sha1, &sha1Length, EVP_sha1(), nullptr), 1)
        << "reference SHA-1";
    EXPECT_EQ(ToBytes(name.GetSHA1Hash()), std::vector<unsigned char>(sha1, sha1 + sha1Length))
        << "SHA-1 over the DER";
    std::string hex;
    for (unsigned int i = 0; i < sha1Length; ++i) {
        hex += "0123456789abcdef"[sha1[i] >> 4];
        hex += "0123456789abcdef"[sha1[i] & 15];
    }
    EXPECT_EQ(std::string(name.GetSHA1HashHex().c_str()), hex) << "40 lower-case digits";
}

TEST(X509NameTest, CopiesShareTheirStructure) {
    X509Name copy;
    {
        const X509Name original = Make({{"O", "Firma"}, {"CN", "Jan"}});
        copy = original;
        EXPECT_EQ(copy.GetX509Name(), original.GetX509Name()) << "assignment shares";
    }
    EXPECT_STREQ(copy.GetStringX500().c_str(), L"O=Firma,CN=Jan") << "the copy outlives the source";
    copy = X509Name();
    EXPECT_EQ(copy.GetX509Name(), nullptr) << "assigning an empty name empties";
    EXPECT_STREQ(copy.GetCommonName().c_str(), L"") << "and clears the attributes";
}

TEST(X509NameTest, RefusesNullAndUnencodableNames) {
    const Thrown null = Catch([] { X509Name name(nullptr); });
    EXPECT_TRUE(null.code == ErrInvalidParameter && null.message == "pName=NULL")
        << "null structure: 102 naming the argument";

    const NamePtr broken = BuildName({{"CN", "caf\xE9", false, V_ASN1_UTF8STRING}});
    EXPECT_EQ(CodeOf([&] { X509Name name(broken.get()); }), ErrAsn1Decoding)
        << "a UTF8String that is not UTF-8 cannot be copied";
}

// Names written by the openssl tool, read back through a certificate it made.
TEST(X509NameTest, ReadsNamesMadeByTheOpensslTool) {
    const ScratchDir dir;
    const std::string req =
        "req -x509 -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -utf8 "
        "-multivalue-rdn -days 1 -keyout key.pem -out cert.pem "
        "-subj '/C=SK/O=Firma, a.s./OU=Prvá/OU=Druhá/CN=Ján Novák+"
        "serialNumber=QOR - 00012345/emailAddress=jan@example.sk'";
    ASSERT_TRUE(dir.Openssl(req)) << "openssl " << req << ": " << dir.Output();
    const CertPtr cert = ReadPemCertificate(dir.Path("cert.pem"));
    ASSERT_TRUE(cert) << "certificate written by openssl";

    const X509Name name(X509_get_subject_name(cert.get()));
    EXPECT_STREQ(name.GetOrganizationUnit().c_str(), L"Druhá") << "the later of two OUs";
    EXPECT_STREQ(name.GetCommonName().c_str(), L"Ján Novák") << "CN of a multi-valued RDN";
    EXPECT_STREQ(name.GetQorSerialNumber().c_str(), L"00012345") << "serial number beside it";
    EXPECT_STREQ(name.GetStringX500().c_str(),
                 L"C=SK,O=\"Firma, a.s.\",OU=Prvá,OU=Druhá,CN=Ján Novák+serialNumber=QOR - "
                 L"00012345,emailAddress=jan@example.sk")
        << "printed in encoded order";
    EXPECT_EQ(name.Equals(X509Name(X509_get_issuer_name(cert.get()))), 1)
        << "self-signed: subject equals issuer";
}
