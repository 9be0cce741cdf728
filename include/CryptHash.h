// Incremental message digests over OpenSSL, and the conversions between the
// library's digest enumeration and digest names, OIDs and OpenSSL NIDs.
#pragma once

#include "QorArray.h"
#include "QorString.h"
#include "TesseraExport.h"

struct evp_md_ctx_st;
struct evp_md_st;

namespace TesseraLib {

// Use: construct (or Reset), Update any number of times, Finish once. To
// hash further data with the same object, call Reset first; a failed Update
// or Finish also needs a Reset.
class TESSERA_API CryptHash {
public:
    enum cptHashAlgorithm {
        cptHashNone = 0,
        cptHashSHA1 = 1,
        cptHashSHA224 = 2,
        cptHashSHA256 = 3,
        cptHashSHA384 = 4,
        cptHashSHA512 = 5
    };

    // Throws ErrAlgorithmNotSupported for a digest OpenSSL lacks and
    // ErrHashGeneration when no digest can be loaded (e.g. cptHashNone).
    explicit CryptHash(cptHashAlgorithm algorithm);
    // The copy has a digest state of its own: continuing either object does
    // not disturb the other.
    CryptHash(const CryptHash& other);
    CryptHash& operator=(const CryptHash& other);
    virtual ~CryptHash();

    void Update(const unsigned char* data, unsigned int length);
    void Update(const qorstd::QorArray<unsigned char>& data);
    // Replaces the content of `out` with the digest; returns its length.
    unsigned int Finish(qorstd::QorArray<unsigned char>& out);
    // Starts a new computation with the same digest.
    void Reset();

    cptHashAlgorithm GetHashAlgorithm() const { return m_algorithm; }
    // The object's own digest context, for callers that drive OpenSSL directly.
    evp_md_ctx_st* GetHashContext() { return m_context; }

    // OpenSSL's digest for an algorithm; null for values outside 1-5 (and for
    // SHA-1 when OpenSSL lacks it). The others throw ErrAlgorithmNotSupported
    // when OpenSSL lacks them. The result is not to be freed.
    static const evp_md_st* GetHashEVP(cptHashAlgorithm algorithm);
    static const evp_md_st* GetHashEVPByName(const char* name);

    // "SHA1" ... "SHA512"; empty outside 1-5.
    static qorstd::QorString GetHashAlgorithmName(cptHashAlgorithm algorithm);
    // The dotted OID; empty outside 1-5. SHA-224 is known by
    // "1.2.840.113549.1.1.14" (sha224WithRSAEncryption), here and in
    // GetHashAlgorithmByOID alike.
    static qorstd::QorString GetHashAlgorithmOID(cptHashAlgorithm algorithm);

    // Reverse lookups. A null or NID_undef argument throws ErrInvalidParameter;
    // anything unknown throws ErrAlgorithmNotSupported with an empty message.
    static cptHashAlgorithm GetHashAlgorithmByNID(int nid);
    // Case-insensitive: "sha256" is cptHashSHA256, "SHA-256" is unknown.
    static cptHashAlgorithm GetHashAlgorithmByName(const char* name);
    // Exact match of the dotted OID.
    static cptHashAlgorithm GetHashAlgorithmByOID(const char* oid);

private:
    evp_md_ctx_st* m_context;  // owned
    evp_md_st* m_md;           // owned (fetched once, shared by copies through its reference count)
    cptHashAlgorithm m_algorithm;
};

}  // namespace TesseraLib
