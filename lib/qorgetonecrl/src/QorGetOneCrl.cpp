#include "QorGetOneCrl.h"

#include "GetOneCrlInternal.h"

namespace QorGetOneCrlLib {
namespace internal {

qorlog::Registry& LogRegistry() {
    static qorlog::Registry registry;
    return registry;
}

}  // namespace internal
}  // namespace QorGetOneCrlLib

extern "C" int QorGetOneCrl_InitializeLogging(const LoggingCallbacks* callbacks) {
    QorGetOneCrlLib::internal::LogRegistry().Install(callbacks);
    QorGetOneCrlLib::internal::LogRegistry().SetPrefix(L"QorGetOneCrl");
    return 1;
}
