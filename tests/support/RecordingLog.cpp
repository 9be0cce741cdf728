#include "RecordingLog.h"

#include <algorithm>

namespace tessera_test {

RecordingLog& RecordingLog::Instance() {
    static RecordingLog log;
    return log;
}

void RecordingLog::Reset() {
    m_openSucceeds = true;
    std::fill(std::begin(m_enabled), std::end(m_enabled), true);
    m_names.clear();
    m_opened.clear();
    m_closed.clear();
    m_lines.clear();
}

LoggingCallbacks RecordingLog::Table() const {
    LoggingCallbacks table{};
    table.open = &RecordingLog::Open;
    table.close = &RecordingLog::Close;
    table.isErrorEnabled = &RecordingLog::IsError;
    table.isWarningEnabled = &RecordingLog::IsWarning;
    table.isInfoEnabled = &RecordingLog::IsInfo;
    table.isDebugEnabled = &RecordingLog::IsDebug;
    table.writeError = &RecordingLog::WriteError;
    table.writeWarning = &RecordingLog::WriteWarning;
    table.writeInfo = &RecordingLog::WriteInfo;
    table.writeDebug = &RecordingLog::WriteDebug;
    return table;
}

std::vector<LogLine> RecordingLog::LinesOf(const std::wstring& channel) const {
    std::vector<LogLine> lines;
    std::copy_if(m_lines.begin(), m_lines.end(), std::back_inserter(lines),
                 [&](const LogLine& line) { return line.channel == channel; });
    return lines;
}

bool RecordingLog::WasOpened(const std::wstring& channel) const {
    return std::find(m_opened.begin(), m_opened.end(), channel) != m_opened.end();
}

bool RecordingLog::Has(const std::wstring& channel, Level level, const std::wstring& text) const {
    return std::any_of(m_lines.begin(), m_lines.end(), [&](const LogLine& line) {
        return line.channel == channel && line.level == level && line.text == text;
    });
}

bool RecordingLog::Contains(const std::wstring& channel, Level level,
                            const std::wstring& fragment) const {
    return std::any_of(m_lines.begin(), m_lines.end(), [&](const LogLine& line) {
        return line.channel == channel && line.level == level &&
               line.text.find(fragment) != std::wstring::npos;
    });
}

int RecordingLog::Open(const wchar_t* name, LogChannelHandle* handle) {
    RecordingLog& log = Instance();
    log.m_opened.push_back(name);
    if (!log.m_openSucceeds) {
        return 0;
    }
    const std::uintptr_t value = log.m_nextHandle++;
    log.m_names[value] = name;
    *handle = reinterpret_cast<LogChannelHandle>(value);
    return 1;
}

void RecordingLog::Close(LogChannelHandle handle) {
    RecordingLog& log = Instance();
    const auto found = log.m_names.find(reinterpret_cast<std::uintptr_t>(handle));
    log.m_closed.push_back(found != log.m_names.end() ? found->second : L"<unknown handle>");
}

int RecordingLog::IsError(LogChannelHandle) {
    return Instance().Enabled(Level::Error);
}
int RecordingLog::IsWarning(LogChannelHandle) {
    return Instance().Enabled(Level::Warning);
}
int RecordingLog::IsInfo(LogChannelHandle) {
    return Instance().Enabled(Level::Info);
}
int RecordingLog::IsDebug(LogChannelHandle) {
    return Instance().Enabled(Level::Debug);
}

void RecordingLog::WriteError(LogChannelHandle h, const wchar_t* t) {
    Instance().Record(h, Level::Error, t);
}
void RecordingLog::WriteWarning(LogChannelHandle h, const wchar_t* t) {
    Instance().Record(h, Level::Warning, t);
}
void RecordingLog::WriteInfo(LogChannelHandle h, const wchar_t* t) {
    Instance().Record(h, Level::Info, t);
}
void RecordingLog::WriteDebug(LogChannelHandle h, const wchar_t* t) {
    Instance().Record(h, Level::Debug, t);
}

void RecordingLog::Record(LogChannelHandle handle, Level level, const wchar_t* text) {
    const auto found = m_names.find(reinterpret_cast<std::uintptr_t>(handle));
    m_lines.push_back({found != m_names.end() ? found->second : L"<unknown handle>", level,
                       text != nullptr ? text : L"<null>"});
}

}  // namespace tessera_test
