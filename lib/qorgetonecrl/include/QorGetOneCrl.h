// CRL-service client library: the client, its response and exception, and
// the logging entry point.
#pragma once

#include "CrlClient.h"
#include "CrlException.h"
#include "CrlResponse.h"
#include "QorLoggingCallbacks.h"

extern "C" {
// Installs the application's logging callbacks (null turns logging off); 1 on success.
QORGETONECRL_API int QorGetOneCrl_InitializeLogging(const LoggingCallbacks* callbacks);
}
