// Checks one RFC 3161 time-stamp token against the data it stamps: the
// imprint and the time first, then the TSA signer (one signer, a
// certificate with the time-stamping usage), then the token as a CAdES
// message under the verifier's chain policy.
#pragma once

#include <cstdint>
#include <memory>

#include "QorArray.h"
#include "TesseraExport.h"
#include "TspTimeStamp.h"

namespace TesseraLib {

class LogChannel;
class ValidationDataStore;
class VerifierCades;
class X509Chain;

// The token is not owned: it must outlive the checks.
class TESSERA_API VerifierTimeStamp {
public:
    VerifierTimeStamp();
    explicit VerifierTimeStamp(const QorTsp2Lib::TspTimeStamp* timeStamp);
    VerifierTimeStamp(const VerifierTimeStamp& other);
    VerifierTimeStamp& operator=(const VerifierTimeStamp& other);
    virtual ~VerifierTimeStamp();

    // Forgets the token.
    virtual void Reset();
    void SetTimeStamp(const QorTsp2Lib::TspTimeStamp* timeStamp) { m_timeStamp = timeStamp; }
    const QorTsp2Lib::TspTimeStamp* GetTimeStamp() const { return m_timeStamp; }

    // `msg` is hashed with the algorithm of the token's imprint, then as
    // VerifyDigest.
    virtual void Verify(const qorstd::QorArray<unsigned char>& msg, const VerifierCades& verifier,
                        std::int64_t* time, X509Chain** chain);
    // `time` (optional) gets the token's time once the time check ran;
    // `chain` (optional) a clone of the TSA's path, which the caller owns.
    // The first failure of the imprint and time checks is reported even
    // when the TSA signer or the token's own verification fails too.
    virtual void VerifyDigest(const qorstd::QorArray<unsigned char>& hash,
                              const VerifierCades& verifier, std::int64_t* time, X509Chain** chain);
    // With proofs of existence: the token is checked at the verifier's
    // verify time (0: now) and its TSA's path is built with the proofs of
    // `store` (a copy of it; the caller's store is not changed).
    virtual void Verify(const qorstd::QorArray<unsigned char>& msg, const VerifierCades& verifier,
                        const ValidationDataStore* store, X509Chain** chain);
    virtual void VerifyDigest(const qorstd::QorArray<unsigned char>& hash,
                              const VerifierCades& verifier, const ValidationDataStore* store,
                              X509Chain** chain);

private:
    qorstd::QorArray<unsigned char> ImprintOf(const qorstd::QorArray<unsigned char>& msg) const;
    void Check(const qorstd::QorArray<unsigned char>& hash, const VerifierCades& verifier,
               std::int64_t* time, const ValidationDataStore* store, X509Chain** chain);

    const QorTsp2Lib::TspTimeStamp* m_timeStamp;
    std::unique_ptr<LogChannel> m_log;
};

}  // namespace TesseraLib
