#include "CryptHash.h"

#include <openssl/evp.h>
#include <openssl/obj_mac.h>

#include <cstring>
#include <string>
#include <utility>

#include "CryptException.h"
#include "Failure.h"
#include "OpenSslPtr.h"

namespace TesseraLib {

namespace {

struct HashEntry {
    CryptHash::cptHashAlgorithm algorithm;
    const char* name;  // also the name OpenSSL knows the digest by
    const char* oid;
    int nid;
    const wchar_t* missing;  // message when OpenSSL lacks the digest; SHA-1 has none
};

constexpr HashEntry kHashes[] = {
    {CryptHash::cptHashSHA1, "SHA1", "1.3.14.3.2.26", NID_sha1, nullptr},
    {CryptHash::cptHashSHA224, "SHA224", "1.2.840.113549.1.1.14", NID_sha224,
     L"CryptHash - SHA224 not supported by this version of OpenSSL"},
    {CryptHash::cptHashSHA256, "SHA256", "2.16.840.1.101.3.4.2.1", NID_sha256,
     L"CryptHash - SHA256 not supported by this version of OpenSSL"},
    {CryptHash::cptHashSHA384, "SHA384", "2.16.840.1.101.3.4.2.2", NID_sha384,
     L"CryptHash - SHA384 not supported by this version of OpenSSL"},
    {CryptHash::cptHashSHA512, "SHA512", "2.16.840.1.101.3.4.2.3", NID_sha512,
     L"CryptHash - SHA512 not supported by this version of OpenSSL"},
};

// The numeric identifiers are part of the interface, not just OpenSSL's.
static_assert(NID_sha1 == 64 && NID_sha224 == 675 && NID_sha256 == 672 && NID_sha384 == 673 &&
                  NID_sha512 == 674,
              "OpenSSL's digest NIDs changed");

const HashEntry* FindEntry(CryptHash::cptHashAlgorithm algorithm) {
    for (const HashEntry& entry : kHashes) {
        if (entry.algorithm == algorithm) {
            return &entry;
        }
    }
    return nullptr;
}

[[noreturn]] void ThrowNotSupported() {
    Fail(ErrAlgorithmNotSupported);
}

}  // namespace

CryptHash::CryptHash(cptHashAlgorithm algorithm)
    : m_context(nullptr), m_md(nullptr), m_algorithm(algorithm) {
    if (GetHashEVP(algorithm) == nullptr) {
        Fail(ErrHashGeneration, L"CryptHash - Error loading Message Digest");
    }
    // Fetched once here, so that Reset and copies reuse the provider's
    // implementation instead of looking it up on every initialisation.
    EvpMdPtr md(EVP_MD_fetch(nullptr, FindEntry(algorithm)->name, nullptr));
    EvpMdCtxPtr context(EVP_MD_CTX_new());
    if (!md || !context || EVP_DigestInit_ex(context.get(), md.get(), nullptr) != 1) {
        Fail(ErrHashGeneration, L"CryptHash - Error loading Message Digest");
    }
    m_md = md.release();
    m_context = context.release();
}

CryptHash::CryptHash(const CryptHash& other)
    : m_context(nullptr), m_md(nullptr), m_algorithm(other.m_algorithm) {
    EvpMdCtxPtr context(EVP_MD_CTX_new());
    EvpMdPtr md = UpRef(other.m_md);
    if (!context || !md || EVP_MD_CTX_copy_ex(context.get(), other.m_context) != 1) {
        Fail(ErrHashGeneration, L"CryptHash - Error copying Message Digest");
    }
    m_md = md.release();
    m_context = context.release();
}

CryptHash& CryptHash::operator=(const CryptHash& other) {
    if (this != &other) {
        CryptHash copy(other);
        std::swap(m_context, copy.m_context);
        std::swap(m_md, copy.m_md);
        m_algorithm = other.m_algorithm;
    }
    return *this;
}

CryptHash::~CryptHash() {
    EVP_MD_CTX_free(m_context);
    EVP_MD_free(m_md);
}

void CryptHash::Update(const unsigned char* data, unsigned int length) {
    if ((data == nullptr && length > 0) || EVP_DigestUpdate(m_context, data, length) != 1) {
        Fail(ErrHashGeneration, L"CryptHash - Error updating Message Digest");
    }
}

void CryptHash::Update(const qorstd::QorArray<unsigned char>& data) {
    Update(data.GetData(), data.GetSize());
}

unsigned int CryptHash::Finish(qorstd::QorArray<unsigned char>& out) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_DigestFinal_ex(m_context, digest, &length) != 1) {
        Fail(ErrHashGeneration, L"CryptHash - Error finalizing Message Digest");
    }
    if (out.GetSize() > 0) {
        out.RemoveAll();
    }
    return out.Append(digest, length);
}

void CryptHash::Reset() {
    EVP_MD_CTX_reset(m_context);
    if (EVP_DigestInit_ex(m_context, m_md, nullptr) != 1) {
        Fail(ErrHashGeneration, L"CryptHash - Error loading Message Digest");
    }
}

const evp_md_st* CryptHash::GetHashEVP(cptHashAlgorithm algorithm) {
    const HashEntry* entry = FindEntry(algorithm);
    if (entry == nullptr) {
        return nullptr;
    }
    const EVP_MD* md = EVP_get_digestbyname(entry->name);
    if (md == nullptr && entry->missing != nullptr) {
        Fail(ErrAlgorithmNotSupported, entry->missing);
    }
    return md;
}

const evp_md_st* CryptHash::GetHashEVPByName(const char* name) {
    return GetHashEVP(GetHashAlgorithmByName(name));
}

qorstd::QorString CryptHash::GetHashAlgorithmName(cptHashAlgorithm algorithm) {
    const HashEntry* entry = FindEntry(algorithm);
    return qorstd::QorString(entry != nullptr ? entry->name : "");
}

qorstd::QorString CryptHash::GetHashAlgorithmOID(cptHashAlgorithm algorithm) {
    const HashEntry* entry = FindEntry(algorithm);
    return qorstd::QorString(entry != nullptr ? entry->oid : "");
}

CryptHash::cptHashAlgorithm CryptHash::GetHashAlgorithmByNID(int nid) {
    if (nid == NID_undef) {
        Fail(ErrInvalidParameter, L"CryptHash - nid == NID_undef");
    }
    for (const HashEntry& entry : kHashes) {
        if (entry.nid == nid) {
            return entry.algorithm;
        }
    }
    ThrowNotSupported();
}

CryptHash::cptHashAlgorithm CryptHash::GetHashAlgorithmByName(const char* name) {
    if (name == nullptr) {
        Fail(ErrInvalidParameter, L"CryptHash - pszName == NULL");
    }
    // Upper case as the C locale knows it, whatever the process's locale.
    std::string upper(name);
    for (char& c : upper) {
        if (c >= 'a' && c <= 'z') {
            c = static_cast<char>(c - 'a' + 'A');
        }
    }
    for (const HashEntry& entry : kHashes) {
        if (upper == entry.name) {
            return entry.algorithm;
        }
    }
    ThrowNotSupported();
}

CryptHash::cptHashAlgorithm CryptHash::GetHashAlgorithmByOID(const char* oid) {
    if (oid == nullptr) {
        Fail(ErrInvalidParameter, L"CryptHash - pszOID == NULL");
    }
    for (const HashEntry& entry : kHashes) {
        if (std::strcmp(oid, entry.oid) == 0) {
            return entry.algorithm;
        }
    }
    ThrowNotSupported();
}

}  // namespace TesseraLib
