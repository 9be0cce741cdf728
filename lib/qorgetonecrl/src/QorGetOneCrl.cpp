#include "QorGetOneCrl.h"

// The CRL-service client has no channels of its own yet; logging set-up succeeds.
extern "C" int QorGetOneCrl_InitializeLogging(const LoggingCallbacks* /*callbacks*/) {
    return 1;
}
