// CRL-service client library: logging entry point.
#pragma once

#include "QorLoggingCallbacks.h"

#define QORGETONECRL_API __attribute__((visibility("default")))

extern "C" {
// Installs the application's logging callbacks (null turns logging off); 1 on success.
QORGETONECRL_API int QorGetOneCrl_InitializeLogging(const LoggingCallbacks* callbacks);
}
