// OCSP library: logging entry point.
#pragma once

#include "QorLoggingCallbacks.h"

#define QOROCSP2_API __attribute__((visibility("default")))

extern "C" {
// Installs the application's logging callbacks (null turns logging off); 1 on success.
QOROCSP2_API int QorOcsp2_InitializeLogging(const LoggingCallbacks* callbacks);
}
