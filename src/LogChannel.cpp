#include "LogChannel.h"

#include <openssl/err.h>

#include <cstdarg>
#include <cstring>
#include <cwchar>
#include <mutex>

#include "OpenSslPtr.h"
#include "QorTextConv.h"

namespace TesseraLib {

namespace {

struct LoggingState {
    std::mutex mutex;
    LoggingCallbacks callbacks{};
    std::wstring prefix;
};

LoggingState& State() {
    static LoggingState state;
    return state;
}

constexpr std::size_t kFormatBufferLength = 1024;
// A dump buffer of this many bytes or fewer is not written.
constexpr long kMinimumDumpLength = 18;

LogIsEnabledCallback CheckSlot(const LoggingCallbacks& table, LogLevel level) {
    switch (level) {
        case LogLevel::Error:
            return table.isErrorEnabled;
        case LogLevel::Warning:
            return table.isWarningEnabled;
        case LogLevel::Info:
            return table.isInfoEnabled;
        case LogLevel::Debug:
            return table.isDebugEnabled;
    }
    return nullptr;
}

LogWriteCallback WriteSlot(const LoggingCallbacks& table, LogLevel level) {
    switch (level) {
        case LogLevel::Error:
            return table.writeError;
        case LogLevel::Warning:
            return table.writeWarning;
        case LogLevel::Info:
            return table.writeInfo;
        case LogLevel::Debug:
            return table.writeDebug;
    }
    return nullptr;
}

}  // namespace

namespace logging {

void InstallCallbacks(const LoggingCallbacks* callbacks) {
    LoggingState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    if (callbacks != nullptr) {
        state.callbacks = *callbacks;
    } else {
        state.callbacks = LoggingCallbacks{};
    }
}

void SetPrefix(const wchar_t* prefix) {
    LoggingState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.prefix = prefix != nullptr ? prefix : L"";
}

void Snapshot(LoggingCallbacks* callbacks, std::wstring* prefix) {
    LoggingState& state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    *callbacks = state.callbacks;
    *prefix = state.prefix;
}

}  // namespace logging

LogChannel::LogChannel(const wchar_t* name) : m_handle(nullptr), m_callbacks{} {
    LoggingCallbacks table{};
    std::wstring prefix;
    logging::Snapshot(&table, &prefix);
    if (table.open == nullptr) {
        return;
    }
    m_callbacks = table;
    if (name == nullptr || name[0] == L'\0' || std::wcscmp(name, L".") == 0) {
        return;
    }
    std::wstring channelName;
    if (name[0] == L'.') {
        channelName = name + 1;
    } else if (!prefix.empty()) {
        channelName = prefix + L"." + name;
    } else {
        channelName = name;
    }
    LogChannelHandle handle = nullptr;
    if (m_callbacks.open(channelName.c_str(), &handle) != 0) {
        m_handle = handle;
    }
}

LogChannel::~LogChannel() {
    if (m_handle != nullptr && m_callbacks.close != nullptr) {
        m_callbacks.close(m_handle);
    }
}

int LogChannel::IsEnabled(LogLevel level) const {
    const LogIsEnabledCallback check = CheckSlot(m_callbacks, level);
    if (m_handle == nullptr || check == nullptr) {
        return 0;
    }
    return check(m_handle);
}

void LogChannel::Write(LogLevel level, const wchar_t* text) const {
    const LogWriteCallback write = WriteSlot(m_callbacks, level);
    if (m_handle == nullptr || write == nullptr) {
        return;
    }
    write(m_handle, text != nullptr ? text : L"");
}

void LogChannel::WriteFormat(LogLevel level, const wchar_t* format, ...) const {
    const LogWriteCallback write = WriteSlot(m_callbacks, level);
    if (m_handle == nullptr || write == nullptr || format == nullptr) {
        return;
    }
    wchar_t buffer[kFormatBufferLength];
    va_list arguments;
    va_start(arguments, format);
    const int written = std::vswprintf(buffer, kFormatBufferLength, format, arguments);
    va_end(arguments);
    // vswprintf fails (negative) when the text does not fit in the buffer.
    write(m_handle, written > 0 ? buffer : L"Message too long.");
}

void LogChannel::WriteCryptoErrors(const char* message) const {
    const LogWriteCallback write = WriteSlot(m_callbacks, LogLevel::Error);
    if (message != nullptr && message[0] != '\0' && m_handle != nullptr && write != nullptr) {
        BioPtr buffer(BIO_new(BIO_s_mem()));
        if (buffer) {
            BIO_puts(buffer.get(), message);
            BIO_puts(buffer.get(), " openssl errors:\n");
            ERR_print_errors(buffer.get());
            BIO_write(buffer.get(), "", 1);
            char* data = nullptr;
            const long length = BIO_get_mem_data(buffer.get(), &data);
            if (length > kMinimumDumpLength && data != nullptr) {
                const qorstd::QorStringW text =
                    qorstd::text::NarrowToWide(data, 0, qorstd::text::kCharsetProcess);
                write(m_handle, text.c_str());
            }
        }
    }
    ERR_clear_error();
}

}  // namespace TesseraLib
