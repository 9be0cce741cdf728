// Library-wide pieces behind the C functions (internal).
#pragma once

#include "QorString.h"

namespace TesseraLib {

class LogChannel;

namespace library {

// "Version:...,Revision:...,Build date:...,Build time:..." widened from the
// 8-bit constants of this build.
qorstd::QorStringW VersionText();

// The library's own channel ("Tessera"); null when none is installed.
LogChannel* Channel();

}  // namespace library
}  // namespace TesseraLib
