// The logging callback table that applications install in Tessera and in the
// libraries beside it. Twelve pointers in slot order and nothing else.
#pragma once

#include <wchar.h>

#ifdef __cplusplus
extern "C" {
#endif

// A channel handle is a pointer-sized value chosen by the application.
typedef void* LogChannelHandle;

// Slot 0: nonzero means success and *handle holds the new channel's handle.
typedef int (*LogOpenCallback)(const wchar_t* name, LogChannelHandle* handle);
// Slot 1.
typedef void (*LogCloseCallback)(LogChannelHandle handle);
// Slots 3-6: nonzero when the level is enabled for the channel.
typedef int (*LogIsEnabledCallback)(LogChannelHandle handle);
// Slots 8-11: one NUL-terminated wide line.
typedef void (*LogWriteCallback)(LogChannelHandle handle, const wchar_t* text);
// Slots 2 and 7 are reserved and never called.
typedef void (*LogReservedCallback)(void);

// Any slot may be null (the operation is then a no-op, a check answers 0);
// a null `open` makes the whole table count as absent.
typedef struct LoggingCallbacks {
    LogOpenCallback open;
    LogCloseCallback close;
    LogReservedCallback reserved2;
    LogIsEnabledCallback isErrorEnabled;
    LogIsEnabledCallback isWarningEnabled;
    LogIsEnabledCallback isInfoEnabled;
    LogIsEnabledCallback isDebugEnabled;
    LogReservedCallback reserved7;
    LogWriteCallback writeError;
    LogWriteCallback writeWarning;
    LogWriteCallback writeInfo;
    LogWriteCallback writeDebug;
} LoggingCallbacks;

#ifdef __cplusplus
}
#endif
