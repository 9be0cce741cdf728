// Log channels fed through an application's callback table, shared by
// Tessera and the libraries beside it (internal, never installed).
//
// Each library keeps one Registry: the table the application installed and
// the channel-name prefix, guarded by one mutex. A Channel copies the table
// when it is constructed and keeps the handle the application's open
// callback gave it; installing a new table later does not affect it.
#pragma once

#include <mutex>
#include <string>

#include "QorLoggingCallbacks.h"

namespace qorlog {

enum class LogLevel { Error, Warning, Info, Debug };

class Registry {
public:
    Registry() = default;
    Registry(const Registry&) = delete;
    Registry& operator=(const Registry&) = delete;

    // Copies the twelve pointers; null clears the table.
    void Install(const LoggingCallbacks* callbacks);
    void SetPrefix(const wchar_t* prefix);
    // Copies of the current table and prefix.
    void Snapshot(LoggingCallbacks* callbacks, std::wstring* prefix) const;

private:
    mutable std::mutex m_mutex;
    LoggingCallbacks m_callbacks{};
    std::wstring m_prefix;
};

class Channel {
public:
    // Opens "<prefix>.<name>" (or "<name>" without a prefix); a name starting
    // with "." is used without the dot and without the prefix. A null name,
    // "", ".", or a table without an open slot leave the channel closed.
    Channel(const Registry& registry, const wchar_t* name);
    // Closes the handle through the table's close slot.
    ~Channel();

    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

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

}  // namespace qorlog
