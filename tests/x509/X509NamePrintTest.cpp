// The name printer with a caller's flag set, its un-escaping, and the entry
// list with its conversion of values that are not proper text.
#include <gtest/gtest.h>

#include <openssl/asn1.h>
#include <openssl/x509.h>

#include <memory>
#include <string>
#include <vector>

#include "TestPki.h"
#include "x509/X509NamePrint.h"

using namespace TesseraLib::x509;
using tessera_test::BuildName;

namespace {

std::wstring Print(const std::vector<tessera_test::NameAttribute>& attributes, int flags) {
    qorstd::QorStringW out(L"untouched");
    if (!PrintName(BuildName(attributes).get(), flags, out)) {
        return L"<failed>";
    }
    return out.c_str();
}

std::string Utf8Of(int type, const std::string& bytes) {
    std::unique_ptr<ASN1_STRING, void (*)(ASN1_STRING*)> value(ASN1_STRING_type_new(type),
                                                               ASN1_STRING_free);
    ASN1_STRING_set(value.get(), bytes.data(), static_cast<int>(bytes.size()));
    return NameValueToUtf8(value.get());
}

}  // namespace

TEST(X509NamePrintTest, FlagSetsOfTheCallerAreHonoured) {
    const std::vector<tessera_test::NameAttribute> name = {{"C", "SK"}, {"O", "a,b"}};
    EXPECT_EQ(Print(name, 0), L"C=SK,O=a,b") << "0 is the escaping default; escapes undone";
    EXPECT_EQ(Print(name, kNamePrintX500Flags), L"C=SK,O=\"a,b\"") << "quoting instead";
    EXPECT_EQ(Print(name, XN_FLAG_SEP_CPLUS_SPC | XN_FLAG_SPC_EQ | XN_FLAG_DN_REV),
              L"O = a,b, C = SK")
        << "separators, blanks and reversal come from the caller";
    EXPECT_EQ(Print({{"CN", std::string("\x01\x59", 2), false, V_ASN1_BMPSTRING}},
                    XN_FLAG_SEP_COMMA_PLUS),
              L"CN=ř")
        << "UTF-8 conversion is always added, so a BMPString prints as text";
    EXPECT_EQ(Print({{"1.2.3.4", "x"}}, XN_FLAG_SEP_COMMA_PLUS), L"1.2.3.4=x")
        << "without the dump flag an unknown type prints its value";
    EXPECT_EQ(Print({{"C", "SK"}}, ASN1_STRFLGS_ESC_QUOTE), L"<failed>")
        << "a flag set without separator cannot be printed";
    EXPECT_EQ(Print({{"CN", "caf\xE9", false, V_ASN1_UTF8STRING}}, 0), L"<failed>")
        << "a value that is not UTF-8 fails the print";
    EXPECT_EQ(Print({{"CN", std::string("a\0b", 3), false, V_ASN1_UTF8STRING}}, 0), L"CN=a")
        << "an escaped NUL ends the text";
}

TEST(X509NamePrintTest, UnescapingRestoresBytesAndCharacters) {
    EXPECT_EQ(UnescapePrintedName("caf\\C3\\A9"), "caf\xC3\xA9") << "two hex digits: a byte";
    EXPECT_EQ(UnescapePrintedName("\\c3\\a9"), "\xC3\xA9") << "lower-case hex digits too";
    EXPECT_EQ(UnescapePrintedName("a\\,b\\\\c\\\""), "a,b\\c\"") << "other: the character";
    EXPECT_EQ(UnescapePrintedName("\\4g"), "4g") << "one hex digit is an ordinary character";
    EXPECT_EQ(UnescapePrintedName("end\\"), "end\\") << "a final backslash stays";
}

TEST(X509NamePrintTest, EntriesListNumericOidsAndUtf8Values) {
    const tessera_test::NamePtr name =
        BuildName({{"CN", "Ján"}, {"C", "SK"}, {"OU", "x", true}, {"1.2.3.4", "y"}});
    std::vector<NameEntry> entries;
    ASSERT_TRUE(ListNameEntries(name.get(), entries)) << "list produced";
    ASSERT_EQ(entries.size(), 4u) << "every entry, multi-valued RDN included";
    EXPECT_EQ(entries[0].oid, "2.5.4.3") << "numeric even when OpenSSL has a short name";
    EXPECT_EQ(entries[0].value, "J\xC3\xA1n") << "UTF-8 value";
    EXPECT_EQ(entries[1].oid, "2.5.4.6") << "encoded order";
    EXPECT_EQ(entries[2].oid, "2.5.4.11") << "second value of the RDN";
    EXPECT_EQ(entries[3].oid, "1.2.3.4") << "unknown type";

    const tessera_test::NamePtr empty = BuildName({});
    EXPECT_TRUE(ListNameEntries(empty.get(), entries)) << "an empty name lists";
    EXPECT_TRUE(entries.empty()) << "no entries";
    EXPECT_FALSE(ListNameEntries(nullptr, entries)) << "no name, no list";
}

TEST(X509NamePrintTest, CharactersThatDoNotConvertBecomeBlanks) {
    EXPECT_EQ(Utf8Of(V_ASN1_T61STRING, "caf\xE9"), "caf\xC3\xA9") << "T61 read as Latin-1";
    EXPECT_EQ(Utf8Of(V_ASN1_BMPSTRING, std::string("\0A\xD8\x00\0B\0", 7)), "A B ")
        << "BMPString: lone surrogate and odd last byte";
    EXPECT_EQ(Utf8Of(V_ASN1_UNIVERSALSTRING, std::string("\0\0\0A\0\x11\0\0\0\0\x01\x59", 12)),
              "A \xC5\x99")
        << "UniversalString: a code point beyond Unicode";
    EXPECT_EQ(Utf8Of(V_ASN1_UTF8STRING, "a\xFF\xC3\xA9\xC3"), "a \xC3\xA9 ")
        << "UTF8String: broken sequences, good ones kept";
    EXPECT_EQ(Utf8Of(V_ASN1_OCTET_STRING, "ab\x80"), "ab ") << "no character set: ASCII only";
}
