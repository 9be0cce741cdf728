// Keeping the first failure of an operation in its exception store
// (internal).
#pragma once

#include <exception>

#include "OcspException.h"
#include "QorExceptionStore.h"
#include "TspException.h"

namespace TesseraLib {

// Call only inside a catch block: stores the exception being handled in
// `store` — Tessera's own exceptions as they are, the OCSP and time-stamp
// libraries' exceptions in their QorExceptionWrapper, a standard-library
// exception as QorExceptionWrapper<std::exception> with ErrInternal and empty
// texts. Anything else is not recorded. The caller re-throws.
void RecordCurrentException(QorExceptionStore& store);

// Runs `step`; a failure of any exception family is kept in `store` (the
// first only, when the store keeps one) instead of leaving. True when the
// step ran through.
template <class Step>
bool RunKeepingFailure(QorExceptionStore& store, Step&& step) {
    try {
        step();
        return true;
    } catch (const qorstd::QorException&) {
        RecordCurrentException(store);
    } catch (const QorTsp2Lib::TspException&) {
        RecordCurrentException(store);
    } catch (const QorOcsp2Lib::OcspException&) {
        RecordCurrentException(store);
    } catch (const std::exception&) {
        RecordCurrentException(store);
    }
    return false;
}

}  // namespace TesseraLib
