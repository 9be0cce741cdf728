// A decoded RFC 3161 time-stamp token and the certificate of its TSA.
#pragma once

#include <cstdint>
#include <memory>

#include "QorTsp2Export.h"
#include "TspTypes.h"

struct x509_st;
struct CMS_ContentInfo_st;

namespace QorTsp2Lib {

// The TSA's certificate as carried in a token. Copies share the one OpenSSL
// certificate (reference counted); it is never modified.
class QORTSP2_API TspCertificate {
public:
    TspCertificate();
    // Decodes a DER certificate; anything else (or trailing bytes) throws
    // TspException(TspErrDecode).
    TspCertificate(const unsigned char* der, unsigned int length);
    // Takes a reference of its own to `cert` (null gives an empty object).
    explicit TspCertificate(x509_st* cert);
    TspCertificate(const TspCertificate& other);
    TspCertificate& operator=(const TspCertificate& other);
    virtual ~TspCertificate();

    void Reset();
    bool IsEmpty() const { return m_cert == nullptr; }
    // The certificate, borrowed (null when empty).
    x509_st* GetX509() const { return m_cert; }
    // DER of the certificate; empty when empty.
    TspArray<unsigned char> Encode() const;
    // OpenSSL's long name of the digest of the certificate's signature
    // algorithm ("sha256" for both sha256WithRSAEncryption and
    // ecdsa-with-SHA256), which OBJ_ln2nid turns back into the digest.
    // Empty when the signature algorithm names no separate digest
    // (RSASSA-PSS, Ed25519) or the object is empty.
    StlString GetHashAlgorithmName() const;
    // Subject in OpenSSL's one-line form ("/CN=..."), for display.
    StlString GetSubjectText() const;

    // Same certificate (OpenSSL's comparison); two empty objects are equal.
    bool operator==(const TspCertificate& other) const;

private:
    x509_st* m_cert;
};

// A time-stamp token (RFC 3161 TimeStampToken: a CMS ContentInfo of
// SignedData whose content is a TSTInfo). Decoding checks the structure and
// caches the fields below; it does not verify the TSA's signature.
class QORTSP2_API TspTimeStamp {
public:
    TspTimeStamp();
    TspTimeStamp(const TspTimeStamp& other);
    TspTimeStamp& operator=(const TspTimeStamp& other);
    virtual ~TspTimeStamp();

    // Back to the empty state (no token).
    void Reset();
    bool IsEmpty() const { return m_der.GetSize() == 0; }

    // Decodes token DER. Throws TspException(TspErrDecode) for anything that
    // is not exactly one token (trailing bytes included) and
    // TspErrInvalidParameter for a null pointer with a nonzero length. On
    // failure the object keeps what it held before.
    void Decode(const unsigned char* der, unsigned int length);
    // The token bytes exactly as decoded (never re-encoded, so the TSA's
    // signature stays intact); empty when there is no token. `form` names
    // the use: 0 as the value of a time-stamp attribute, 1 as a CMS message
    // to decode. A TimeStampToken is itself a ContentInfo, so every form
    // gives the same bytes.
    TspArray<unsigned char> Encode(int form) const;

    // genTime in seconds since 1970 (UTC), fractions of a second dropped;
    // 0 when empty.
    std::int64_t GetTime() const { return m_time; }
    // genTime as the token spells it, e.g. "20240601120000Z" or
    // "20240601120000.25Z"; empty when empty.
    const StlString& GetGeneralizedTime() const { return m_generalizedTime; }
    const TspMessageImprint& GetMessageImprint() const { return m_imprint; }
    // The signer's certificate when the token carries it, else null. Owned by
    // this object.
    const TspCertificate* GetTsaCertificate() const;
    // Serial number in upper-case hexadecimal and in decimal (a leading "-"
    // for a negative number).
    const StlString& GetSerialNumberHex() const { return m_serialHex; }
    const StlString& GetSerialNumberDec() const { return m_serialDec; }
    // The TSA policy under which the token was issued, as a dotted OID.
    const StlString& GetPolicyId() const { return m_policyId; }
    // Accuracy in microseconds; -1 when the token states none.
    std::int64_t GetAccuracyMicros() const { return m_accuracyMicros; }
    // The nonce in upper-case hexadecimal; empty when the token has none.
    const StlString& GetNonceHex() const { return m_nonceHex; }

    // The CMS message Decode read the token from, handed over to the first
    // caller, who owns it then and may change it: checking the TSA's
    // signature need not decode the token once more. Copies share it, so it
    // is null once this object or a copy has handed it over, and when empty.
    // Nothing else this object answers depends on it. Safe to call on copies
    // from several threads.
    CMS_ContentInfo_st* TakeDecodedToken() const;

private:
    struct DecodedToken;

    TspArray<unsigned char> m_der;
    std::int64_t m_time;
    StlString m_generalizedTime;
    TspMessageImprint m_imprint;
    TspCertificate m_tsaCertificate;
    StlString m_serialHex;
    StlString m_serialDec;
    StlString m_policyId;
    std::int64_t m_accuracyMicros;
    StlString m_nonceHex;
    std::shared_ptr<DecodedToken> m_decodedToken;  // shared by copies
};

}  // namespace QorTsp2Lib
