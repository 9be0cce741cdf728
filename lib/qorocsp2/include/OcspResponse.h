// OCSP responses, their single responses and the certificates they are
// verified against.
#pragma once

#include <cstdint>

#include "OcspException.h"
#include "QorArray.h"
#include "QorString.h"
#include "QorVector.h"

struct x509_st;

namespace QorOcsp2Lib {

// The library's 8-bit and wide strings.
class QOROCSP2_API StlString : public qorstd::QorString {
public:
    using qorstd::QorString::QorString;
    StlString() = default;
    StlString(const qorstd::QorString& other) : qorstd::QorString(other) {}  // NOLINT
};

class QOROCSP2_API StlStringW : public qorstd::QorStringW {
public:
    using qorstd::QorStringW::QorStringW;
    StlStringW() = default;
    StlStringW(const qorstd::QorStringW& other) : qorstd::QorStringW(other) {}  // NOLINT
};

// Vectors of responses, single responses and certificates; insertion order is kept.
template <class T>
class QOROCSP2_API OcspVector : public qorstd::QorVector<T> {
public:
    using qorstd::QorVector<T>::QorVector;
    OcspVector() = default;
};

// The digest of the certificate identifier in a request. 0 means the
// default, SHA-1, which every responder understands; the other values follow
// the numbering of the library family's digest enumerations.
class QOROCSP2_API OcspHash {
public:
    enum ocspHashAlgorithm {
        ocspHashDefault = 0,
        ocspHashSHA1 = 1,
        ocspHashSHA224 = 2,
        ocspHashSHA256 = 3,
        ocspHashSHA384 = 4,
        ocspHashSHA512 = 5
    };
    // OpenSSL's digest name ("SHA1", "SHA256" ...); empty for unknown values.
    static StlString GetName(ocspHashAlgorithm algorithm);
};

// A certificate given to the OCSP library (a private duplicate).
class QOROCSP2_API OcspCertificate {
public:
    OcspCertificate();
    explicit OcspCertificate(const x509_st* certificate);
    OcspCertificate(const OcspCertificate& other);
    OcspCertificate& operator=(const OcspCertificate& other);
    virtual ~OcspCertificate();

    // Borrowed; null for an empty object.
    x509_st* GetX509() const { return m_certificate; }

private:
    x509_st* m_certificate;
};

// One answer of a response about one certificate.
class QOROCSP2_API OcspSingleResponse {
public:
    enum ocspCertStatus { ocspStatusGood = 0, ocspStatusRevoked = 1, ocspStatusUnknown = 2 };
    // The CRL reason codes; ocspReasonNone when a revoked answer gives no reason.
    enum ocspRevocationReason {
        ocspReasonNone = -1,
        ocspReasonUnspecified = 0,
        ocspReasonKeyCompromise = 1,
        ocspReasonCACompromise = 2,
        ocspReasonAffiliationChanged = 3,
        ocspReasonSuperseded = 4,
        ocspReasonCessationOfOperation = 5,
        ocspReasonCertificateHold = 6,
        ocspReasonRemoveFromCRL = 8,
        ocspReasonPrivilegeWithdrawn = 9,
        ocspReasonAACompromise = 10
    };

    OcspSingleResponse();
    OcspSingleResponse(const OcspSingleResponse& other) = default;
    OcspSingleResponse& operator=(const OcspSingleResponse& other) = default;
    virtual ~OcspSingleResponse();

    // 0 good, 1 revoked, anything else unknown.
    int GetCertStatus() const { return m_certStatus; }
    std::int64_t GetThisUpdate() const { return m_thisUpdate; }
    // 0 when the answer carries no nextUpdate.
    std::int64_t GetNextUpdate() const { return m_nextUpdate; }
    // 0 unless revoked.
    std::int64_t GetRevocationTime() const { return m_revocationTime; }
    ocspRevocationReason GetRevocationReason() const { return m_revocationReason; }
    // The certificate identifier: serial number (upper-case hex), digest name.
    const StlString& GetSerialNumberHex() const { return m_serialHex; }
    const StlString& GetCertIdHashName() const { return m_certIdHash; }
    // "good", "revoked" or "unknown".
    StlString GetCertStatusString() const;

private:
    friend class OcspResponse;
    int m_certStatus;
    std::int64_t m_thisUpdate;
    std::int64_t m_nextUpdate;
    std::int64_t m_revocationTime;
    ocspRevocationReason m_revocationReason;
    StlString m_serialHex;
    StlString m_certIdHash;
};

// A whole OCSP response. It keeps the DER it was decoded from and the fields
// read from it; copies are independent values.
class QOROCSP2_API OcspResponse {
public:
    enum ocspResponseStatus {
        ocspSuccessful = 0,
        ocspMalformedRequest = 1,
        ocspInternalError = 2,
        ocspTryLater = 3,
        ocspSigRequired = 5,
        ocspUnauthorized = 6
    };

    OcspResponse();
    OcspResponse(const OcspResponse& other);
    OcspResponse& operator=(const OcspResponse& other);
    virtual ~OcspResponse();

    // Two responses are equal when their DER is.
    bool operator==(const OcspResponse& other) const;
    bool operator!=(const OcspResponse& other) const { return !(*this == other); }

    // Replaces the content with the response in `der` (exactly `length`
    // bytes); OcspException 131 on bad bytes, leaving the object empty.
    void Decode(const unsigned char* der, unsigned long length);
    // The DER given to Decode; empty for an empty object.
    qorstd::QorArray<unsigned char> Encode() const;
    // The DER of the BasicOCSPResponse; empty when the response has none.
    qorstd::QorArray<unsigned char> GetBasicResponse() const;
    bool IsEmpty() const { return m_der.GetSize() == 0; }
    void Reset();

    // Checks the signature: the signer must be one of `trusted`, or be
    // certified through them (a responder delegated by a trusted issuer with
    // the OCSPSigning purpose, or a chain to a trusted certificate), judged at
    // producedAt. Throws OcspException 141 when it does not verify, 140 when
    // there is no basic response. A null `trusted` trusts nothing.
    void Verify(OcspVector<OcspCertificate>* trusted) const;

    int GetResponseStatus() const { return m_responseStatus; }
    // The response status for unsuccessful responses ("tryLater" ...);
    // otherwise the status of the first single response ("good" ...).
    StlString GetStatusString() const;
    std::int64_t GetProducedAt() const { return m_producedAt; }
    // The responder's name (RFC 2253 form), or "KeyHash:<hex>" when the
    // responder is identified by its key.
    const StlStringW& GetResponderName() const { return m_responderName; }
    const OcspVector<OcspSingleResponse>& GetSingleResponses() const { return m_singles; }
    // Certificates carried in the response (signer and chain).
    const OcspVector<OcspCertificate>& GetCertificates() const { return m_certificates; }
    // SHA-1 over Encode(), 40 lower-case hex digits; empty for an empty object.
    StlString GetSHA1HashHex() const;
    // OpenSSL's long name of the signature algorithm (e.g. sha256WithRSAEncryption).
    const StlString& GetSignatureAlgorithmName() const { return m_signatureAlgorithm; }

private:
    qorstd::QorArray<unsigned char> m_der;
    int m_responseStatus;
    std::int64_t m_producedAt;
    StlStringW m_responderName;
    StlString m_signatureAlgorithm;
    OcspVector<OcspSingleResponse> m_singles;
    OcspVector<OcspCertificate> m_certificates;
};

}  // namespace QorOcsp2Lib
