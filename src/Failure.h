// How Tessera's own code fails (internal): CryptException through the shared
// failure idiom.
//
//     Fail(ErrInvalidParameter, L"pCert=NULL");
//     Fail(m_log, L"Verify: Signer is not present.", ErrNoSigner);
//     FailCrypto(m_log, "Sign: CMS_sign() failed.", ErrSigning);
#pragma once

#include "CryptException.h"
#include "LogChannel.h"
#include "QorFail.h"

namespace TesseraLib {

// Throws `code` with `message`, without a log line.
[[noreturn]] inline void Fail(int code, const wchar_t* message = L"") {
    qorlog::Fail<CryptException>(code, message);
}

// Writes `line` at Error level, then throws `code` with `message`.
template <class Log>
[[noreturn]] void Fail(const Log& log, const wchar_t* line, int code,
                       const wchar_t* message = L"") {
    qorlog::Fail<CryptException>(log, line, code, message);
}

// Writes `line` with OpenSSL's queued errors, then throws `code`.
template <class Log>
[[noreturn]] void FailCrypto(const Log& log, const char* line, int code,
                             const wchar_t* message = L"") {
    qorlog::FailCrypto<CryptException>(log, line, code, message);
}

}  // namespace TesseraLib
