// AES key wrap against the RFC 3394 vectors, and RSA PKCS#1 v1.5 encryption,
// through the public interface of libtessera.so.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>

#include "CryptException.h"
#include "CryptKey.h"
#include "EncryptionUtils.h"
#include "TestPki.h"

using namespace TesseraLib;
using Bytes = qorstd::QorArray<unsigned char>;

namespace {

Bytes Hex(const std::string& hex) {
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        const unsigned char byte =
            static_cast<unsigned char>(std::stoi(hex.substr(i, 2), nullptr, 16));
        bytes.Append(&byte, 1);
    }
    return bytes;
}

Bytes Filled(unsigned int length, unsigned char value) {
    Bytes bytes;
    bytes.SetSize(length);
    for (unsigned int i = 0; i < length; ++i) {
        bytes.GetData()[i] = static_cast<unsigned char>(value + i);
    }
    return bytes;
}

using Refusal = std::pair<int, std::wstring>;

// The code and message of the CryptException `call` throws.
Refusal Failure(const std::function<void()>& call) {
    try {
        call();
    } catch (const CryptException& e) {
        return {e.GetErrorCode(), e.GetErrorMessage().c_str()};
    }
    return {0, L"(nothing thrown)"};
}

const std::string kKek128 = "000102030405060708090A0B0C0D0E0F";
const std::string kKek192 = kKek128 + "1011121314151617";
const std::string kKek256 = kKek128 + "101112131415161718191A1B1C1D1E1F";
const std::string kData128 = "00112233445566778899AABBCCDDEEFF";

TEST(AesKeyWrap, Rfc3394Vectors) {
    const struct {
        const char* section;
        std::string kek, data, wrapped;
    } vectors[] = {
        {"4.1", kKek128, kData128, "1FA68B0A8112B447AEF34BD8FB5A7B829D3E862371D2CFE5"},
        {"4.2", kKek192, kData128, "96778B25AE6CA435F92B5B97C050AED2468AB8A17AD84E5D"},
        {"4.3", kKek256, kData128, "64E8C3F9CE0F5BA263E9777905818A2A93C8191E7D6E8AE7"},
        {"4.4", kKek192, kData128 + "0001020304050607",
         "031D33264E15D33268F24EC260743EDCE1C6C7DDEE725A936BA814915C6762D2"},
        {"4.5", kKek256, kData128 + "0001020304050607",
         "A8F9BC1612C68B3FF6E6F4FBE30E71E4769C8B80A32CB8958CD5D17D6B254DA1"},
        {"4.6", kKek256, kData128 + "000102030405060708090A0B0C0D0E0F",
         "28C9F404C4B810F4CBCCB35CFB87F8263F5786E2D80ED326CBC7F0E71A99F43BFB988B9B7A02DD21"},
    };
    for (const auto& vector : vectors) {
        EXPECT_TRUE(EncryptionUtils::AesWrapKey(Hex(vector.kek), Hex(vector.data)) ==
                    Hex(vector.wrapped))
            << "RFC 3394 " << vector.section << ": wrap";
        EXPECT_TRUE(Bytes(EncryptionUtils::AesUnwrapKey(Hex(vector.kek), Hex(vector.wrapped))) ==
                    Hex(vector.data))
            << "RFC 3394 " << vector.section << ": unwrap";
    }
}

TEST(AesKeyWrap, OwnInitialValueAndIntegrityCheck) {
    const Bytes kek = Hex(kKek256);
    const Bytes data = Filled(32, 0x40);
    const Bytes iv = Hex("0102030405060708");
    const Bytes wrapped = EncryptionUtils::AesWrapKey(kek, data, iv);
    EXPECT_EQ(wrapped.GetSize(), 40u) << "8 bytes longer than the data";
    EXPECT_FALSE(wrapped == EncryptionUtils::AesWrapKey(kek, data))
        << "the initial value changes the result";
    EXPECT_TRUE(Bytes(EncryptionUtils::AesUnwrapKey(kek, wrapped, iv)) == data)
        << "unwrapping with the same initial value gives the data back";

    const Refusal integrity{ErrInternal, L"AES_unwrap_key failed"};
    EXPECT_EQ(
        Failure([&] { EncryptionUtils::AesUnwrapKey(kek, wrapped, Hex("0102030405060709")); }),
        integrity)
        << "another initial value fails the integrity check";
    EXPECT_EQ(Failure([&] {
                  EncryptionUtils::AesUnwrapKey(
                      Hex(kKek128), Hex("1FA68B0A8112B447AEF34BD8FB5A7B829D3E862371D2CFE6"));
              }),
              integrity)
        << "a changed wrapped byte fails it";
}

TEST(AesKeyWrap, RefusesBadLengths) {
    const Bytes kek = Hex(kKek128);
    const wchar_t* const keyLength = L"Key must have 128, 192 or 256 bits";
    const wchar_t* const unwrapLength =
        L"Data to unwrap must have a length that is a multiple of 64 bits and at least 128 bits";
    const wchar_t* const ivLength = L"the IV must be 8 bytes long";
    const struct {
        const char* what;
        std::function<void()> call;
        int code;
        const wchar_t* message;
    } refused[] = {
        {"a 20-byte key", [&] { EncryptionUtils::AesWrapKey(Filled(20, 0), Filled(16, 0)); },
         ErrInvalidParameter, keyLength},
        {"a 20-byte key to unwrap",
         [&] { EncryptionUtils::AesUnwrapKey(Filled(20, 0), Filled(24, 0)); }, ErrInvalidParameter,
         keyLength},
        {"12 bytes to wrap", [&] { EncryptionUtils::AesWrapKey(kek, Filled(12, 0)); },
         ErrInvalidParameter, L"Data to wrap must have a length that is a multiple of 64 bits"},
        {"8 bytes to unwrap", [&] { EncryptionUtils::AesUnwrapKey(kek, Filled(8, 0)); },
         ErrInvalidParameter, unwrapLength},
        {"20 bytes to unwrap", [&] { EncryptionUtils::AesUnwrapKey(kek, Filled(20, 0)); },
         ErrInvalidParameter, unwrapLength},
        {"a 7-byte IV", [&] { EncryptionUtils::AesWrapKey(kek, Filled(16, 0), Filled(7, 0)); },
         ErrInvalidParameter, ivLength},
        {"a 9-byte IV", [&] { EncryptionUtils::AesUnwrapKey(kek, Filled(24, 0), Filled(9, 0)); },
         ErrInvalidParameter, ivLength},
        {"one 64-bit block, below what RFC 3394 wraps",
         [&] { EncryptionUtils::AesWrapKey(kek, Filled(8, 0)); }, ErrInternal,
         L"AES_wrap_key failed"},
    };
    for (const auto& entry : refused) {
        EXPECT_EQ(Failure(entry.call), Refusal(entry.code, entry.message)) << entry.what;
    }
}

TEST(RsaPkcs1v15, EncryptsUpToTheModulusLessElevenAndDecrypts) {
    tessera_test::KeyPtr pkey = tessera_test::NewKey(tessera_test::KeyKind::Rsa2048);
    CryptKeyRSA key(pkey.get());
    const Bytes longest = Filled(245, 7);
    const Bytes cryptogram = EncryptionUtils::RsaEncryptPkcs1v15(key, longest);
    EXPECT_EQ(cryptogram.GetSize(), 256u) << "the cryptogram has the modulus length";
    EXPECT_TRUE(Bytes(EncryptionUtils::RsaDecryptPkcs1v15(key, cryptogram)) == longest)
        << "245 bytes (modulus - 11) round-trip";
    EXPECT_FALSE(cryptogram == EncryptionUtils::RsaEncryptPkcs1v15(key, longest))
        << "the padding is random";

    EXPECT_EQ(
        Failure([&] { EncryptionUtils::RsaEncryptPkcs1v15(key, Filled(246, 0)); }),
        Refusal(ErrInvalidParameter, L"data must be at least 11 bytes shorter than key modulus"))
        << "246 bytes are too long";
    EXPECT_EQ(
        Failure([&] { EncryptionUtils::RsaDecryptPkcs1v15(key, Filled(255, 0)); }),
        Refusal(ErrInvalidParameter, L"cryptogram must be the same length as the key modulus"))
        << "a 255-byte cryptogram";
    Bytes damaged(cryptogram);
    damaged.GetData()[0] ^= 0x80;
    EXPECT_EQ(Failure([&] { EncryptionUtils::RsaDecryptPkcs1v15(key, damaged); }),
              Refusal(ErrInternal, L"Decryption failed"))
        << "a damaged cryptogram does not unpad";

    CryptKeyRSA empty;
    const Refusal noContext{ErrInternal, L"Failed to create RSA operation context"};
    EXPECT_EQ(Failure([&] { EncryptionUtils::RsaEncryptPkcs1v15(empty, Filled(1, 0)); }), noContext)
        << "an empty key is refused before any length check";
    EXPECT_EQ(Failure([&] { EncryptionUtils::RsaDecryptPkcs1v15(empty, cryptogram); }), noContext)
        << "also for decryption";
}

}  // namespace
