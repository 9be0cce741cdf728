// Umbrella header of the qorstd container library.
#pragma once

#include "QorArray.h"
#include "QorException.h"
#include "QorString.h"
#include "QorVector.h"
