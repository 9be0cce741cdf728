#include "QorTsp2.h"

// The time-stamp client keeps no process-wide state yet; its start-up,
// shut-down and logging set-up succeed without work.
extern "C" {
int QorTsp2_Initialize() {
    return 1;
}
int QorTsp2_Uninitialize() {
    return 1;
}
int QorTsp2_InitializeLogging(const LoggingCallbacks* /*callbacks*/) {
    return 1;
}
}
