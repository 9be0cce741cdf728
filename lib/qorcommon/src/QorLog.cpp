#include "QorLog.h"

#include "OpenSslPtr.h"

#include <openssl/bio.h>
#include <openssl/err.h>

#include <cstdarg>
#include <cstring>
#include <cwchar>
#include <memory>
#include <mutex>

#include "QorTextConv.h"

namespace qorlog {

namespace {

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

void Registry::Install(const LoggingCallbacks* callbacks) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (callbacks != nullptr) {
        m_callbacks = *callbacks;
    } else {
        m_callbacks = LoggingCallbacks{};
    }
}

void Registry::SetPrefix(const wchar_t* prefix) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_prefix = prefix != nullptr ? prefix : L"";
}

void Registry::Snapshot(LoggingCallbacks* callbacks, std::wstring* prefix) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    *callbacks = m_callbacks;
    *prefix = m_prefix;
}

Channel::Channel(const Registry& registry, const wchar_t* name) : m_handle(nullptr), m_callbacks{} {
    LoggingCallbacks table{};
    std::wstring prefix;
    registry.Snapshot(&table, &prefix);
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

Channel::~Channel() {
    if (m_handle != nullptr && m_callbacks.close != nullptr) {
        m_callbacks.close(m_handle);
    }
}

int Channel::IsEnabled(LogLevel level) const {
    const LogIsEnabledCallback check = CheckSlot(m_callbacks, level);
    if (m_handle == nullptr || check == nullptr) {
        return 0;
    }
    return check(m_handle);
}

void Channel::Write(LogLevel level, const wchar_t* text) const {
    const LogWriteCallback write = WriteSlot(m_callbacks, level);
    if (m_handle == nullptr || write == nullptr) {
        return;
    }
    write(m_handle, text != nullptr ? text : L"");
}

void Channel::WriteFormat(LogLevel level, const wchar_t* format, ...) const {
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

void Channel::WriteCryptoErrors(const char* message) const {
    const LogWriteCallback write = WriteSlot(m_callbacks, LogLevel::Error);
    if (message != nullptr && message[0] != '\0' && m_handle != nullptr && write != nullptr) {
        qorssl::BioPtr buffer(BIO_new(BIO_s_mem()));
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

void EmitCryptoErrors(const Channel* channel, const char* text) {
    if (channel != nullptr && channel->IsEnabled(LogLevel::Error) != 0) {
        channel->WriteCryptoErrors(text);
    }
    ERR_clear_error();
}

}  // namespace qorlog
