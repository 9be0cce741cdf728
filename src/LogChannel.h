// Per-object log channels fed through the application's callback table.
//
// Internal to the library. A channel copies the process-wide callback table
// when it is constructed and keeps the handle the application's open callback
// gave it; installing a new table later does not affect existing channels.
#pragma once

#include <string>

#include "QorLoggingCallbacks.h"

namespace TesseraLib {

enum class LogLevel { Error, Warning, Info, Debug };

class LogChannel {
public:
    // Opens "<prefix>.<name>" (or "<name>" without a prefix); a name starting
    // with "." is used without the dot and without the prefix. A null name,
    // "", ".", or an absent table leave the channel closed.
    explicit LogChannel(const wchar_t* name);
    // Closes the handle through the table's close slot.
    ~LogChannel();

    LogChannel(const LogChannel&) = delete;
    LogChannel& operator=(const LogChannel&) = delete;

    bool IsOpen() const { return m_handle != nullptr; }
    LogChannelHandle GetHandle() const { return m_handle; }

    // 0 when the channel is closed or the level's check slot is null.
    int IsEnabled(LogLevel level) const;
    int IsErrorEnabled() const { return IsEnabled(LogLevel::Error); }
    int IsWarningEnabled() const { return IsEnabled(LogLevel::Warning); }
    int IsInfoEnabled() const { return IsEnabled(LogLevel::Info); }
    int IsDebugEnabled() const { return IsEnabled(LogLevel::Debug); }

    void Write(LogLevel level, const wchar_t* text) const;
    // printf-style into a 1024-character buffer; a text that does not fit
    // (or formats to nothing) is written as "Message too long.".
    void WriteFormat(LogLevel level, const wchar_t* format, ...) const;
    // Writes `message`, " openssl errors:" and OpenSSL's queued errors of the
    // calling thread at Error level, then clears the queue (always).
    void WriteCryptoErrors(const char* message) const;

private:
    LogChannelHandle m_handle;
    LoggingCallbacks m_callbacks;
};

namespace logging {

// The process-wide table and channel-name prefix, guarded by one mutex.
void InstallCallbacks(const LoggingCallbacks* callbacks);
void SetPrefix(const wchar_t* prefix);
// Copies of the current table and prefix.
void Snapshot(LoggingCallbacks* callbacks, std::wstring* prefix);

}  // namespace logging

}  // namespace TesseraLib
