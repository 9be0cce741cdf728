// Keeping the first failure of an operation in its exception store
// (internal).
#pragma once

#include "QorExceptionStore.h"

namespace TesseraLib {

// Call only inside a catch block: stores the exception being handled in
// `store` — Tessera's own exceptions as they are, the OCSP and time-stamp
// libraries' exceptions in their QorExceptionWrapper, a standard-library
// exception as QorExceptionWrapper<std::exception> with ErrInternal and empty
// texts. Anything else is not recorded. The caller re-throws.
void RecordCurrentException(QorExceptionStore& store);

}  // namespace TesseraLib
