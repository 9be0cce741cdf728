// The RFC 3161 exchange without the transport (internal): building a
// TimeStampReq, checking a TimeStampResp against it, and the small DER and
// text helpers the library shares. Kept apart from TspClient so that tests
// can drive the checks with replies built in-process.
#pragma once

#include <openssl/evp.h>

#include <cstddef>
#include <string>
#include <vector>

#include "TspTimeStamp.h"
#include "TspTypes.h"

namespace QorTsp2Lib {
namespace protocol {

// What a request asked for; the answer is checked against it.
struct RequestFacts {
    tspHashAlgorithm algorithm = tspHashNone;
    std::vector<unsigned char> imprint;
    // Big-endian unsigned bytes of the nonce.
    std::vector<unsigned char> nonce;
    // Dotted OID; empty when the TSA may choose.
    std::string policyId;
};

// OpenSSL's NID of `algorithm` (NID_undef when none or unknown) and back.
int HashNid(tspHashAlgorithm algorithm);
tspHashAlgorithm HashOfNid(int nid);

// 8 random bytes. Throws TspErrInternal when the generator fails.
std::vector<unsigned char> NewNonce();

// The nonce bytes as OpenSSL prints the integer (upper-case hex, "0" for zero).
std::string NonceHex(const std::vector<unsigned char>& nonce);

// DER TimeStampReq: version 1, the imprint, the policy when set, the nonce,
// certReq TRUE. Throws TspErrInvalidParameter for an unknown algorithm, an
// imprint of the wrong size or a malformed policy OID.
std::vector<unsigned char> EncodeRequest(const RequestFacts& facts);

// Decodes a TimeStampResp and returns its token after checking status,
// nonce, imprint and (when requested) policy; throws TspErrBadResponse,
// TspErrRejected, TspErrNonceMismatch, TspErrImprintMismatch or
// TspErrPolicyMismatch.
TspTimeStamp CheckResponse(const unsigned char* der, std::size_t length, const RequestFacts& facts);

// UTF-8 to wide text; characters that do not convert become '?'.
std::wstring Widen(const std::string& utf8);

// The time-stamp library's binding of the shared failure idiom (QorFail.h):
// throws TspException(code, Widen(message)), OpenSSL's error queue emptied.
[[noreturn]] void Fail(int code, const std::string& message);

}  // namespace protocol
}  // namespace QorTsp2Lib
