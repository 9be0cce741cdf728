// Umbrella header: every public header of Tessera and of the libraries beside it.
#pragma once

#include "CryptException.h"
#include "Pkcs11Manager.h"
#include "QorArray.h"
#include "QorException.h"
#include "QorExceptionStore.h"
#include "QorGetOneCrl.h"
#include "QorLoggingCallbacks.h"
#include "QorOcsp2.h"
#include "QorPKCS11.h"
#include "QorStl.h"
#include "QorString.h"
#include "QorTsp2.h"
#include "QorVector.h"
#include "TesseraApi.h"
#include "TesseraExport.h"
