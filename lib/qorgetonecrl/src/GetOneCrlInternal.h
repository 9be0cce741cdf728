// Pieces shared by the CRL-service library's sources (internal).
#pragma once

#include "QorLog.h"

namespace QorGetOneCrlLib {
namespace internal {

// The library's logging registry (prefix "QorGetOneCrl" once logging is set up).
qorlog::Registry& LogRegistry();

}  // namespace internal
}  // namespace QorGetOneCrlLib
