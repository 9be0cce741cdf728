// A logging callback table that records what the library does with it.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "QorLoggingCallbacks.h"

namespace tessera_test {

enum class Level { Error, Warning, Info, Debug };

struct LogLine {
    std::wstring channel;
    Level level;
    std::wstring text;
};

// One recorder per process (the callbacks are plain C functions). Handles are
// 1, 2, 3 ... in the order channels were opened.
class RecordingLog {
public:
    static RecordingLog& Instance();

    // Clears the record and restores the defaults: open succeeds, every level enabled.
    void Reset();
    // A table with all ten used slots set.
    LoggingCallbacks Table() const;

    void SetOpenSucceeds(bool succeeds) { m_openSucceeds = succeeds; }
    void SetLevelEnabled(Level level, bool enabled) {
        m_enabled[static_cast<int>(level)] = enabled;
    }

    const std::vector<std::wstring>& Opened() const { return m_opened; }
    const std::vector<std::wstring>& Closed() const { return m_closed; }
    const std::vector<LogLine>& Lines() const { return m_lines; }
    // Lines written to one channel.
    std::vector<LogLine> LinesOf(const std::wstring& channel) const;
    bool WasOpened(const std::wstring& channel) const;
    // Whether `channel` got the line `text` at `level`.
    bool Has(const std::wstring& channel, Level level, const std::wstring& text) const;
    // Whether `channel` got a line at `level` that contains `fragment`.
    bool Contains(const std::wstring& channel, Level level, const std::wstring& fragment) const;

private:
    static int Open(const wchar_t* name, LogChannelHandle* handle);
    static void Close(LogChannelHandle handle);
    static int IsError(LogChannelHandle handle);
    static int IsWarning(LogChannelHandle handle);
    static int IsInfo(LogChannelHandle handle);
    static int IsDebug(LogChannelHandle handle);
    static void WriteError(LogChannelHandle handle, const wchar_t* text);
    static void WriteWarning(LogChannelHandle handle, const wchar_t* text);
    static void WriteInfo(LogChannelHandle handle, const wchar_t* text);
    static void WriteDebug(LogChannelHandle handle, const wchar_t* text);
    void Record(LogChannelHandle handle, Level level, const wchar_t* text);
    int Enabled(Level level) const { return m_enabled[static_cast<int>(level)] ? 1 : 0; }

    bool m_openSucceeds = true;
    bool m_enabled[4] = {true, true, true, true};
    std::uintptr_t m_nextHandle = 1;
    std::map<std::uintptr_t, std::wstring> m_names;
    std::vector<std::wstring> m_opened;
    std::vector<std::wstring> m_closed;
    std::vector<LogLine> m_lines;
};

}  // namespace tessera_test
