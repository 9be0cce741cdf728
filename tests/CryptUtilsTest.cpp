// The library's Base64 codec: output and line breaks against OpenSSL's
// encoder, its lenient but exact decoding rules, and appending to the
// caller's buffers.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <random>
#include <string>

#include "CryptException.h"
#include "CryptUtils.h"

using TesseraLib::CryptException;
using TesseraLib::CryptUtils;

namespace {

std::string Encode(const std::string& bytes, CryptUtils::cptLineBreakType lineBreak) {
    qorstd::QorString out;
    const unsigned int count =
        CryptUtils::Base64Encode(reinterpret_cast<const unsigned char*>(bytes.data()),
                                 static_cast<unsigned int>(bytes.size()), out, lineBreak);
    EXPECT_EQ(count, out.length()) << "the count of characters appended";
    return out.c_str();
}

std::string Decode(const char* text) {
    qorstd::QorArray<unsigned char> out;
    const unsigned int count = CryptUtils::Base64Decode(text, out);
    EXPECT_EQ(count, out.GetSize()) << "the count of bytes appended for " << text;
    return std::string(reinterpret_cast<const char*>(out.GetData()), out.GetSize());
}

const unsigned char* U(const char* text) {
    return reinterpret_cast<const unsigned char*>(text);
}

using Refusal = std::pair<int, std::wstring>;

// The code and message of the CryptException that `call` throws.
template <class Call>
Refusal Failure(Call call) {
    try {
        call();
    } catch (const CryptException& e) {
        return {e.GetErrorCode(), e.GetErrorMessage().c_str()};
    }
    return {0, L"nothing thrown"};
}

// Independent reference: OpenSSL's unbroken encoding, cut into 76-character lines.
std::string Reference(const std::string& bytes, const std::string& separator) {
    std::string flat(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&flat[0]),
                                       reinterpret_cast<const unsigned char*>(bytes.data()),
                                       static_cast<int>(bytes.size()));
    flat.resize(static_cast<std::size_t>(length));
    std::string lines;
    for (std::size_t at = 0; at < flat.size(); at += 76) {
        lines += (at > 0 ? separator : "") + flat.substr(at, 76);
    }
    return lines;
}

}  // namespace

// Every size up to two full lines (57 bytes fill one: no separator after it),
// then ever larger ones.
TEST(CryptUtilsTest, RandomDataMatchesTheReferenceAndRoundTripsForEveryLineBreakType) {
    std::mt19937 random(20240229u);
    const std::pair<CryptUtils::cptLineBreakType, std::string> types[] = {
        {CryptUtils::cptLineBreakNone, ""},
        {CryptUtils::cptLineBreakCrLf, "\r\n"},
        {CryptUtils::cptLineBreakLf, "\n"},
        {static_cast<CryptUtils::cptLineBreakType>(3), "\n"}};  // any other nonzero type: LF
    for (std::size_t size = 1; size < 4000; size += size <= 120 ? 1 : size / 8) {
        std::string bytes(size, '\0');
        for (char& byte : bytes) {
            byte = static_cast<char>(random());
        }
        for (const auto& [type, separator] : types) {
            const std::string text = Encode(bytes, type);
            ASSERT_EQ(text, Reference(bytes, separator))
                << size << " bytes, line-break type " << type;
            ASSERT_EQ(Decode(text.c_str()), bytes)
                << size << " bytes, line-break type " << type << " decode back";
        }
    }
}

TEST(CryptUtilsTest, DecodingSkipsForeignCharactersAndStopsAtTheFirstPad) {
    EXPECT_EQ(Decode("QUJD\r\nREVG"), "ABCDEF") << "CR LF inside the text is skipped";
    EXPECT_EQ(Decode(" Q\tU-J_D*"), "ABC") << "blanks and URL-safe characters are skipped";
    EXPECT_EQ(Decode("QUJD"), "ABC") << "four characters give three bytes";
    EXPECT_EQ(Decode("QUJDRA=="), "ABCD") << "eight characters ending in == give four bytes";
    EXPECT_EQ(Decode("QQ==QUJD"), "A") << "nothing after the first = counts";
    EXPECT_EQ(Decode("QUJDQU="), "ABCA") << "a group cut by = keeps its complete byte";
    EXPECT_EQ(Decode("QUJDQ="), "ABC") << "a single character before = gives no byte";
    EXPECT_EQ(Decode(""), "") << "empty text decodes to nothing";
    EXPECT_EQ(Decode("\r\n"), "") << "text without alphabet characters decodes to nothing";
}

TEST(CryptUtilsTest, AnIncompleteGroupAtTheEndFailsAndAppendsNothing) {
    for (const char* text : {"QUJDRE", "Q", "QUJDR", "QUJDREV\r\n"}) {
        qorstd::QorArray<unsigned char> out(U("kept"), 4);
        EXPECT_EQ(Failure([&] { CryptUtils::Base64Decode(text, out); }),
                  Refusal(TesseraLib::ErrBase64Decoding, L""))
            << "decoding '" << text << "'";
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(out.GetData()), out.GetSize()), "kept")
            << "nothing appended for '" << text << "'";
    }
}

TEST(CryptUtilsTest, RefusesMissingInput) {
    qorstd::QorArray<unsigned char> bytes;
    qorstd::QorString text;
    const Refusal nullInput{TesseraLib::ErrInvalidParameter, L"in = NULL"};
    EXPECT_EQ(Failure([&] { CryptUtils::Base64Decode(static_cast<const char*>(nullptr), bytes); }),
              nullInput)
        << "decoding null text";
    EXPECT_EQ(Failure([&] { CryptUtils::Base64Encode(nullptr, 1, text, {}); }), nullInput)
        << "encoding null bytes";
    EXPECT_EQ(Failure([&] { CryptUtils::Base64Encode(U("x"), 0, text, {}); }),
              Refusal(TesseraLib::ErrInvalidParameter, L"len = 0"))
        << "encoding zero bytes";
}

TEST(CryptUtilsTest, BothDirectionsAppendAndCountOnlyWhatTheyAppend) {
    qorstd::QorString text("-----BEGIN-----\n");
    const qorstd::QorArray<unsigned char> bytes(reinterpret_cast<const unsigned char*>("foob"), 4);
    EXPECT_EQ(CryptUtils::Base64Encode(bytes, text, CryptUtils::cptLineBreakLf), 8u)
        << "the count covers the appended characters only";
    EXPECT_STREQ(text.c_str(), "-----BEGIN-----\nZm9vYg==") << "the text is appended";

    qorstd::QorArray<unsigned char> out(U("xy"), 2);
    EXPECT_EQ(CryptUtils::Base64Decode(qorstd::QorString("Zm9vYmFy"), out), 6u)
        << "the count covers the appended bytes only";
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(out.GetData()), out.GetSize()), "xyfoobar")
        << "the bytes are appended";
}
