// OCSP library: responses, the client, and the logging entry point.
#pragma once

#include "OcspClient.h"
#include "OcspException.h"
#include "OcspResponse.h"
#include "QorLoggingCallbacks.h"

extern "C" {
// Installs the application's logging callbacks (null turns logging off); 1 on success.
QOROCSP2_API int QorOcsp2_InitializeLogging(const LoggingCallbacks* callbacks);
}
