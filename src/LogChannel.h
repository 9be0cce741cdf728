// Tessera's log channels (internal): channels of the library's own registry,
// whose prefix becomes "Tessera" once logging is set up.
#pragma once

#include <string>

#include "QorLog.h"

namespace TesseraLib {

using LogLevel = qorlog::LogLevel;

class LogChannel : public qorlog::Channel {
public:
    explicit LogChannel(const wchar_t* name);
};

namespace logging {

// The process-wide table and channel-name prefix of the library.
qorlog::Registry& Registry();
void InstallCallbacks(const LoggingCallbacks* callbacks);
void SetPrefix(const wchar_t* prefix);

}  // namespace logging

}  // namespace TesseraLib
