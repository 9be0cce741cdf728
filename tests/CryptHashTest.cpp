// CryptHash: digests against known answers and OpenSSL's one-shot digest,
// independent copies, and the conversions with their refusals.
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/obj_mac.h>

#include <random>
#include <string>
#include <utility>
#include <vector>

#include "CryptException.h"
#include "CryptHash.h"

using TesseraLib::CryptException;
using TesseraLib::CryptHash;

namespace {

std::string Hex(const qorstd::QorArray<unsigned char>& bytes) {
    static const char kDigits[] = "0123456789abcdef";
    std::string text;
    for (unsigned int i = 0; i < bytes.GetSize(); ++i) {
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 0x0f];
    }
    return text;
}

void Feed(CryptHash& hash, const std::string& text) {
    hash.Update(reinterpret_cast<const unsigned char*>(text.data()),
                static_cast<unsigned int>(text.size()));
}

std::string Finish(CryptHash& hash) {
    qorstd::QorArray<unsigned char> digest;
    hash.Finish(digest);
    return Hex(digest);
}

std::string Digest(CryptHash::cptHashAlgorithm algorithm, const std::string& text) {
    CryptHash hash(algorithm);
    Feed(hash, text);
    return Finish(hash);
}

template <class Call>
std::pair<int, std::wstring> Failure(Call call) {
    try {
        call();
    } catch (const CryptException& e) {
        return {e.GetErrorCode(), e.GetErrorMessage().c_str()};
    }
    return {0, L"nothing thrown"};
}

std::pair<int, std::wstring> Refusal(int code, const wchar_t* message = L"") {
    return {code, message};
}

const char kSha256Abc[] = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

}  // namespace

// SHA-1, SHA-256 and SHA-512 are checked against sha*sum in check_cli_hash.sh.
TEST(CryptHashTest, KnownAnswersForAbc) {
    EXPECT_EQ(Digest(CryptHash::cptHashSHA224, "abc"),
              "23097d223405d8228642a477bda255b32aadbce4bda0b3f7e36c9da7")
        << "SHA-224";
    EXPECT_EQ(
        Digest(CryptHash::cptHashSHA384, "abc"),
        "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed8086072ba1e7cc2358baeca1"
        "34c825a7")
        << "SHA-384";
}

TEST(CryptHashTest, IncrementalUpdatesOverOneMebibyteMatchOneShotSha256) {
    std::mt19937 random(7u);
    std::vector<unsigned char> data(1u << 20);
    for (unsigned char& byte : data) {
        byte = static_cast<unsigned char>(random());
    }
    unsigned char expected[EVP_MAX_MD_SIZE];
    unsigned int expectedLength = 0;
    ASSERT_EQ(
        EVP_Digest(data.data(), data.size(), expected, &expectedLength, EVP_sha256(), nullptr), 1)
        << "the reference digest";

    CryptHash hash(CryptHash::cptHashSHA256);
    std::size_t at = 0;
    for (unsigned int piece = 0; at < data.size(); ++piece) {
        // Pieces of awkward sizes around the 64-byte block, and empty ones.
        const std::size_t size = std::min<std::size_t>(piece * 61 % 4099, data.size() - at);
        hash.Update(data.data() + at, static_cast<unsigned int>(size));
        at += size;
    }
    hash.Update(qorstd::QorArray<unsigned char>());
    qorstd::QorArray<unsigned char> digest;
    EXPECT_EQ(hash.Finish(digest), 32u) << "Finish returns the digest length";
    EXPECT_EQ(digest, qorstd::QorArray<unsigned char>(expected, expectedLength))
        << "incremental and one-shot digests agree";
}

TEST(CryptHashTest, FinishReplacesArrayContentAndResetStartsOver) {
    CryptHash hash(CryptHash::cptHashSHA256);
    Feed(hash, "abc");
    qorstd::QorArray<unsigned char> out(std::vector<unsigned char>(100, 0xee).data(), 100);
    EXPECT_EQ(hash.Finish(out), 32u) << "the returned size is the digest's, not 100 + 32";
    EXPECT_EQ(Hex(out), kSha256Abc) << "only the digest is left in the array";
    hash.Reset();
    Feed(hash, "abc");
    EXPECT_EQ(Finish(hash), kSha256Abc) << "Reset after Finish starts a new computation";
}

TEST(CryptHashTest, CopiesHaveTheirOwnDigestState) {
    CryptHash original(CryptHash::cptHashSHA256);
    Feed(original, "ab");
    CryptHash copy(original);
    Feed(copy, "XYZ");
    EXPECT_EQ(Finish(copy), Digest(CryptHash::cptHashSHA256, "abXYZ"))
        << "the copy continues from the original's state";
    Feed(original, "c");
    EXPECT_EQ(Finish(original), kSha256Abc) << "continuing the copy left the original alone";

    CryptHash assigned(CryptHash::cptHashSHA1);
    original.Reset();
    Feed(original, "ab");
    assigned = original;
    Feed(original, "d");
    Feed(assigned, "c");
    EXPECT_EQ(Finish(assigned), kSha256Abc)
        << "the assigned object takes SHA-256 and its state, and continues on its own";
    EXPECT_EQ(Finish(original), Digest(CryptHash::cptHashSHA256, "abd"))
        << "and the source on its own";
}

TEST(CryptHashTest, NamesOidsAndNidsConvertBothWays) {
    struct Row {
        CryptHash::cptHashAlgorithm algorithm;
        const char* name;
        const char* oid;
        int nid;
    };
    const Row rows[] = {{CryptHash::cptHashSHA1, "SHA1", "1.3.14.3.2.26", 64},
                        {CryptHash::cptHashSHA224, "SHA224", "1.2.840.113549.1.1.14", 675},
                        {CryptHash::cptHashSHA256, "SHA256", "2.16.840.1.101.3.4.2.1", 672},
                        {CryptHash::cptHashSHA384, "SHA384", "2.16.840.1.101.3.4.2.2", 673},
                        {CryptHash::cptHashSHA512, "SHA512", "2.16.840.1.101.3.4.2.3", 674}};
    for (const Row& row : rows) {
        EXPECT_STREQ(CryptHash::GetHashAlgorithmName(row.algorithm).c_str(), row.name) << row.oid;
        EXPECT_STREQ(CryptHash::GetHashAlgorithmOID(row.algorithm).c_str(), row.oid) << row.name;
        EXPECT_EQ(CryptHash::GetHashAlgorithmByName(row.name), row.algorithm) << row.name;
        EXPECT_EQ(CryptHash::GetHashAlgorithmByOID(row.oid), row.algorithm) << row.oid;
        EXPECT_EQ(CryptHash::GetHashAlgorithmByNID(row.nid), row.algorithm) << row.nid;
        const EVP_MD* md = CryptHash::GetHashEVP(row.algorithm);
        EXPECT_TRUE(md != nullptr && EVP_MD_get_type(md) == row.nid)
            << "the EVP_MD of " << row.name;
    }
    EXPECT_EQ(CryptHash::GetHashAlgorithmByName("sha256"), CryptHash::cptHashSHA256)
        << "names are matched in upper case";
    EXPECT_EQ(EVP_MD_get_type(CryptHash::GetHashEVPByName("Sha384")), NID_sha384)
        << "GetHashEVPByName goes through the name lookup";
    CryptHash hash(CryptHash::cptHashSHA512);
    EXPECT_EQ(EVP_MD_CTX_get_size(hash.GetHashContext()), 64)
        << "the context is usable with OpenSSL directly";
}

TEST(CryptHashTest, LookupsRefuseWithTheirCodesAndMessages) {
    const int invalid = TesseraLib::ErrInvalidParameter;
    const int unsupported = TesseraLib::ErrAlgorithmNotSupported;
    EXPECT_EQ(Failure([] { CryptHash::GetHashAlgorithmByName(nullptr); }),
              Refusal(invalid, L"CryptHash - pszName == NULL"))
        << "null name";
    EXPECT_EQ(Failure([] { CryptHash::GetHashAlgorithmByOID(nullptr); }),
              Refusal(invalid, L"CryptHash - pszOID == NULL"))
        << "null OID";
    EXPECT_EQ(Failure([] { CryptHash::GetHashAlgorithmByNID(NID_undef); }),
              Refusal(invalid, L"CryptHash - nid == NID_undef"))
        << "undefined NID";
    EXPECT_EQ(Failure([] { CryptHash::GetHashAlgorithmByName("SHA-256"); }), Refusal(unsupported))
        << "no hyphenated names";
    EXPECT_EQ(Failure([] { CryptHash::GetHashAlgorithmByNID(NID_md5); }), Refusal(unsupported))
        << "MD5 is not served";
    EXPECT_EQ(Failure([] { CryptHash::GetHashAlgorithmByOID("2.16.840.1.101.3.4.2.4"); }),
              Refusal(unsupported))
        << "SHA-224 is known only by its one stored OID";
    EXPECT_EQ(Failure([] { CryptHash::GetHashAlgorithmByOID("2.16.840.1.101.3.4.2.1.0"); }),
              Refusal(unsupported))
        << "OIDs match exactly, not by prefix";
    EXPECT_EQ(Failure([] { CryptHash hash(CryptHash::cptHashNone); }),
              Refusal(TesseraLib::ErrHashGeneration, L"CryptHash - Error loading Message Digest"))
        << "no digest for cptHashNone";

    const auto outside = static_cast<CryptHash::cptHashAlgorithm>(7);
    EXPECT_TRUE(CryptHash::GetHashAlgorithmName(CryptHash::cptHashNone).empty()) << "no name";
    EXPECT_TRUE(CryptHash::GetHashAlgorithmOID(outside).empty()) << "no OID";
    EXPECT_EQ(CryptHash::GetHashEVP(CryptHash::cptHashNone), nullptr) << "null, not a throw";
    EXPECT_EQ(CryptHash::GetHashEVP(outside), nullptr) << "null, not a throw";
}
