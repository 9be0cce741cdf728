// RFC 3161 time-stamp library: start-up and logging entry points, and the
// umbrella over the library's classes.
#pragma once

#include "QorLoggingCallbacks.h"
#include "QorTsp2Export.h"

extern "C" {
// Prepares the library for use; 1 on success.
QORTSP2_API int QorTsp2_Initialize();
// Releases what QorTsp2_Initialize set up; 1 on success.
QORTSP2_API int QorTsp2_Uninitialize();
// Installs the application's logging callbacks (copied; null turns logging
// off) with the channel-name prefix "QorTsp2", so that a TspClient logs on
// "QorTsp2.TspClient". Only objects constructed afterwards use the new
// table. Always 1.
QORTSP2_API int QorTsp2_InitializeLogging(const LoggingCallbacks* callbacks);
}

#include "TspClient.h"
#include "TspException.h"
#include "TspTimeStamp.h"
#include "TspTypes.h"
