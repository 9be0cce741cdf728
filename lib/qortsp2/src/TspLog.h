// The time-stamp library's own log registry (internal).
#pragma once

#include "QorLog.h"

namespace QorTsp2Lib {
namespace logging {

// The table and prefix installed by QorTsp2_InitializeLogging.
qorlog::Registry& Registry();

}  // namespace logging
}  // namespace QorTsp2Lib
