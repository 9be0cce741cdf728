// A list of byte strings (hash indexes, attribute certificates, revocation
// choices), compiled once into the library. Every header that names the
// type includes this one: a source that instantiated it on its own would
// make hidden copies of its members, and the linker would then hide the
// library's exported ones.
#pragma once

#include "QorArray.h"
#include "QorVector.h"

namespace qorstd {
extern template class QorVector<QorArray<unsigned char>>;
extern template class QorVectorIterator<QorArray<unsigned char>>;
}  // namespace qorstd
