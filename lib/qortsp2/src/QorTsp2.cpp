#include "QorTsp2.h"

#include "TspLog.h"

namespace QorTsp2Lib {
namespace logging {

qorlog::Registry& Registry() {
    static qorlog::Registry registry;
    return registry;
}

}  // namespace logging
}  // namespace QorTsp2Lib

// Start-up and shut-down have nothing to do: OpenSSL initialises itself and
// libcurl's global set-up runs once, on the first request.
extern "C" {
int QorTsp2_Initialize() {
    return 1;
}
int QorTsp2_Uninitialize() {
    return 1;
}
int QorTsp2_InitializeLogging(const LoggingCallbacks* callbacks) {
    QorTsp2Lib::logging::Registry().Install(callbacks);
    QorTsp2Lib::logging::Registry().SetPrefix(L"QorTsp2");
    return 1;
}
}
