#include "QorOcsp2.h"

// The OCSP client has no channels of its own yet; logging set-up succeeds.
extern "C" int QorOcsp2_InitializeLogging(const LoggingCallbacks* /*callbacks*/) {
    return 1;
}
