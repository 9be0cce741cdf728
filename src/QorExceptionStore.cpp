#include "QorExceptionStore.h"

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
