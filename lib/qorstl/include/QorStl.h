// Umbrella header of the qorstd container library.
#pragma once

#include "QorArray.h"
#include "QorException.h"
#include "QorString.h"
#include "QorVector.h"

namespace qorstd {
// Compiled once into the library.
extern template class QorVector<QorString>;
extern template class QorVector<QorStringW>;
}  // namespace qorstd
