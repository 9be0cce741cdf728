#include "QorOcsp2.h"

#include "OcspInternal.h"

namespace QorOcsp2Lib {
namespace internal {

qorlog::Registry& LogRegistry() {
    static qorlog::Registry registry;
    return registry;
}

}  // namespace internal
}  // namespace QorOcsp2Lib

extern "C" int QorOcsp2_InitializeLogging(const LoggingCallbacks* callbacks) {
    QorOcsp2Lib::internal::LogRegistry().Install(callbacks);
    QorOcsp2Lib::internal::LogRegistry().SetPrefix(L"QorOcsp2");
    return 1;
}
