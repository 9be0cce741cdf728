// Log channels fed through an application's callback table, shared by
// Tessera and the libraries beside it (internal, never installed).
//
// Each library keeps one Registry: the table the application installed and
// the channel-name prefix, guarded by one mutex. A Channel copies the table
// when it is constructed and keeps the handle the application's open
// callback gave it; installing a new table later does not affect it.
//
// Code writes lines only through the TLOG_* macros at the end of this file:
//
//     TLOG_DEBUG(m_log, L"Sign(Signer:%ls)", subject.c_str());
//     TLOG_ERROR(log, L"Verify: Signer is not present.");
//     TLOG_CRYPTO_ERRORS(m_log, "Sign: CMS_sign() failed.");
//
// The level is checked first, so the arguments are evaluated only for a
// line that will be written.
#pragma once

#include <memory>
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

// The channel behind whatever a class keeps: a reference, a pointer (null
// allowed: nothing is written) or a unique_ptr.
inline const Channel* ChannelOf(const Channel& channel) {
    return &channel;
}
inline const Channel* ChannelOf(const Channel* channel) {
    return channel;
}
template <class C, class D>
const Channel* ChannelOf(const std::unique_ptr<C, D>& channel) {
    return channel.get();
}

// One text is written as it is; a format with arguments goes through the
// 1024-character buffer.
inline void Emit(const Channel& channel, LogLevel level, const wchar_t* text) {
    channel.Write(level, text);
}
template <class... Args>
void Emit(const Channel& channel, LogLevel level, const wchar_t* format, const Args&... args) {
    channel.WriteFormat(level, format, args...);
}

// The OpenSSL dump of a failed call: written when the channel takes Error
// lines; the calling thread's error queue is empty afterwards in every case.
void EmitCryptoErrors(const Channel* channel, const char* text);

}  // namespace qorlog

#define TLOG_AT(level, log, ...)                                                \
    do {                                                                        \
        const ::qorlog::Channel* const tlogChannel_ = ::qorlog::ChannelOf(log); \
        if (tlogChannel_ != nullptr && tlogChannel_->IsEnabled(level) != 0) {   \
            ::qorlog::Emit(*tlogChannel_, level, __VA_ARGS__);                  \
        }                                                                       \
    } while (false)

#define TLOG_ERROR(log, ...) TLOG_AT(::qorlog::LogLevel::Error, log, __VA_ARGS__)
#define TLOG_WARNING(log, ...) TLOG_AT(::qorlog::LogLevel::Warning, log, __VA_ARGS__)
#define TLOG_INFO(log, ...) TLOG_AT(::qorlog::LogLevel::Info, log, __VA_ARGS__)
#define TLOG_DEBUG(log, ...) TLOG_AT(::qorlog::LogLevel::Debug, log, __VA_ARGS__)
#define TLOG_CRYPTO_ERRORS(log, text) ::qorlog::EmitCryptoErrors(::qorlog::ChannelOf(log), text)
