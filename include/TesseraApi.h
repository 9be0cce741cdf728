// The C functions of libtessera: start-up and shut-down, PKCS#11 start-up,
// logging set-up and the version text.
#pragma once

#include "QorLoggingCallbacks.h"
#include "QorString.h"
#include "TesseraExport.h"

extern "C" {

// Starts OpenSSL, registers Tessera's object identifiers and starts the
// time-stamp library. Call once before any other use of the library.
// Returns 0 on failure, otherwise the time-stamp library's start-up result.
TESSERA_API int Tessera_Initialize();

// Releases what Tessera_Initialize set up; returns the time-stamp library's
// shut-down result. A later Tessera_Initialize registers everything again.
TESSERA_API int Tessera_Uninitialize();

// Installs a copy of the application's twelve logging callbacks (null turns
// logging off for objects constructed afterwards) and opens the library's own
// channel "Tessera". With `includeLibraries` the time-stamp, OCSP and
// CRL-service libraries get the same table. Returns 1 on success, 0 when one
// of those libraries refused.
TESSERA_API int Tessera_InitializeLogging(const LoggingCallbacks* callbacks, bool includeLibraries);

// Closes the library's own channel. Always 1.
TESSERA_API int Tessera_UnInitializeLogging();

// Loads a PKCS#11 module and, when `enginePath` is given, the OpenSSL engine
// "pkcs11" over it. Returns 1 on success, 0 on failure.
TESSERA_API int Tessera_InitializePkcs11(const wchar_t* modulePath, const wchar_t* enginePath);

// Unloads what Tessera_InitializePkcs11 loaded. Returns 1 on success.
TESSERA_API int Tessera_UninitializePkcs11();

// Replaces *out with "Version:<v>,Revision:<r>,Build date:<d>,Build time:<t>".
// Returns 1 when the text is non-empty, else 0.
TESSERA_API int Tessera_GetVersionString(qorstd::QorStringW* out);

}  // extern "C"
