// The one way to fail, shared by Tessera and the libraries beside it
// (internal, never installed). Each library binds it to its own exception
// family once (Tessera: Failure.h) and calls only that binding.
//
// A failure writes the operation's line at Error level when there is one,
// with OpenSSL's queued errors when the failure came from OpenSSL, leaves
// the calling thread's OpenSSL error queue empty, and throws the code with
// its terse message.
#pragma once

#include <openssl/err.h>

#include "QorLog.h"

namespace qorlog {

// Throws `code` with `message`, without a log line.
template <class Exception>
[[noreturn]] void Fail(int code, const wchar_t* message) {
    ERR_clear_error();
    throw Exception(code, message != nullptr ? message : L"");
}

// Writes `line` at Error level, then throws `code` with `message`.
template <class Exception, class Log>
[[noreturn]] void Fail(const Log& log, const wchar_t* line, int code, const wchar_t* message) {
    TLOG_ERROR(log, line);
    Fail<Exception>(code, message);
}

// Writes `line` with OpenSSL's queued errors, then throws `code`.
template <class Exception, class Log>
[[noreturn]] void FailCrypto(const Log& log, const char* line, int code, const wchar_t* message) {
    TLOG_CRYPTO_ERRORS(log, line);
    Fail<Exception>(code, message);
}

}  // namespace qorlog
