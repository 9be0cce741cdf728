// What every process does first (internal).
#pragma once

namespace TesseraLib {

class LogChannel;
class ValidationProcess;

// Fails with 102 "Signature Standard not set" (logged on `log`) when the
// process has no standard; otherwise an existence time of 0 becomes now.
void BeginExecute(ValidationProcess& process, const LogChannel* log);

}  // namespace TesseraLib
