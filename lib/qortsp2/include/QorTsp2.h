// RFC 3161 time-stamp library: start-up and logging entry points.
#pragma once

#include "QorLoggingCallbacks.h"

#define QORTSP2_API __attribute__((visibility("default")))

extern "C" {
// Prepares the library for use; 1 on success.
QORTSP2_API int QorTsp2_Initialize();
// Releases what QorTsp2_Initialize set up; 1 on success.
QORTSP2_API int QorTsp2_Uninitialize();
// Installs the application's logging callbacks (null turns logging off); 1 on success.
QORTSP2_API int QorTsp2_InitializeLogging(const LoggingCallbacks* callbacks);
}
