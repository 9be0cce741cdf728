#include "LogChannel.h"

namespace TesseraLib {

namespace logging {

qorlog::Registry& Registry() {
    static qorlog::Registry registry;
    return registry;
}

void InstallCallbacks(const LoggingCallbacks* callbacks) { Registry().Install(callbacks); }

void SetPrefix(const wchar_t* prefix) { Registry().SetPrefix(prefix); }

}  // namespace logging

LogChannel::LogChannel(const wchar_t* name) : qorlog::Channel(logging::Registry(), name) {}

}  // namespace TesseraLib
