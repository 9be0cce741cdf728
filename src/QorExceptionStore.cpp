#include "QorExceptionStore.h"

#include "ExceptionRecording.h"

namespace TesseraLib {

template class QorExceptionWrapper<std::exception>;
template class QorExceptionWrapper<QorTsp2Lib::TspException>;
template class QorExceptionWrapper<QorOcsp2Lib::OcspException>;
template class QorExceptionWrapper<TimeStampOcspException>;

QorExceptionStore::QorExceptionStore() : m_exception(nullptr) {}

QorExceptionStore::QorExceptionStore(const QorExceptionStore& other)
    : m_exception(other.m_exception != nullptr ? other.m_exception->Clone() : nullptr) {}

QorExceptionStore& QorExceptionStore::operator=(const QorExceptionStore& other) {
    if (this != &other) {
        qorstd::QorException* copy =
            other.m_exception != nullptr ? other.m_exception->Clone() : nullptr;
        delete m_exception;
        m_exception = copy;
    }
    return *this;
}

QorExceptionStore::~QorExceptionStore() {
    delete m_exception;
}

void QorExceptionStore::SetException(const qorstd::QorException& exception) {
    // Clone first: `exception` may be the one held here.
    qorstd::QorException* copy = exception.Clone();
    delete m_exception;
    m_exception = copy;
}

void QorExceptionStore::Reset() {
    delete m_exception;
    m_exception = nullptr;
}

void QorExceptionStore::ReThrow() const {
    if (m_exception != nullptr) {
        m_exception->ReThrow();
    }
}

}  // namespace TesseraLib

namespace TesseraLib {

namespace {

template <class T>
void RecordWrapped(QorExceptionStore& store, const T& failure) {
    store.SetException(QorExceptionWrapper<T>(failure, failure.GetErrorCode(),
                                              failure.GetErrorMessage().c_str(),
                                              failure.GetErrorDescription().c_str()));
}

}  // namespace

void RecordCurrentException(QorExceptionStore& store) {
    try {
        throw;
    } catch (const TimeStampOcspException& failure) {
        RecordWrapped(store, failure);
    } catch (const QorOcsp2Lib::OcspException& failure) {
        RecordWrapped(store, failure);
    } catch (const QorTsp2Lib::TspException& failure) {
        RecordWrapped(store, failure);
    } catch (const qorstd::QorException& failure) {
        store.SetException(failure);
    } catch (const std::exception& failure) {
        store.SetException(QorExceptionWrapper<std::exception>(failure, ErrInternal, L"", L""));
    } catch (...) {
        // Not ours to describe; the caller re-throws it unchanged.
    }
}

}  // namespace TesseraLib
