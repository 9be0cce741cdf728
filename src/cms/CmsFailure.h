// Log lines and exceptions of the CMS classes' failures (internal). Every
// failure empties OpenSSL's error queue, so that the next operation's log
// shows only its own errors.
#pragma once

#include <openssl/err.h>

#include "CryptException.h"
#include "LogChannel.h"

namespace TesseraLib {
namespace cms {

// Writes `text` when there is a channel and it takes `level`.
inline void LogLine(const LogChannel* log, LogLevel level, const wchar_t* text) {
    if (log != nullptr && log->IsEnabled(level)) {
        log->Write(level, text);
    }
}

inline void LogError(const LogChannel* log, const wchar_t* text) {
    LogLine(log, LogLevel::Error, text);
}

// Logs `text` with OpenSSL's queued errors; the queue is empty afterwards
// whether or not the line was written.
inline void LogCryptoErrors(const LogChannel* log, const char* text) {
    if (log != nullptr && log->IsErrorEnabled()) {
        log->WriteCryptoErrors(text);
    }
    ERR_clear_error();
}

// Throws `code` with `message`, without a log line.
[[noreturn]] inline void Fail(int code, const wchar_t* message = L"") {
    ERR_clear_error();
    CryptException::Throw(code, message);
}

// Logs `text` and throws `code` with `message`.
[[noreturn]] inline void Fail(const LogChannel* log, const wchar_t* text, int code,
                              const wchar_t* message = L"") {
    LogError(log, text);
    Fail(code, message);
}

// Logs `text` with OpenSSL's queued errors and throws `code`.
[[noreturn]] inline void FailCrypto(const LogChannel* log, const char* text, int code) {
    LogCryptoErrors(log, text);
    CryptException::Throw(code, L"");
}

}  // namespace cms
}  // namespace TesseraLib
