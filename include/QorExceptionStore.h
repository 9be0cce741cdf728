// Keeping the first failure of a routine that goes on after errors, and
// wrapping exceptions of other families so they can be kept the same way.
#pragma once

#include <exception>

#include "CryptException.h"
#include "OcspException.h"
#include "QorException.h"
#include "QorString.h"
#include "TesseraExport.h"
#include "TspException.h"

namespace TesseraLib {

// Carries an exception of another family (the time-stamp and OCSP libraries,
// the standard library) as a QorException. ReThrow throws a copy of the
// wrapped exception, not the wrapper, so a catcher sees the type it was first
// thrown with.
template <class T>
class TESSERA_API QorExceptionWrapper : public qorstd::QorException {
public:
    QorExceptionWrapper(const T& wrapped, int code, const wchar_t* message,
                        const wchar_t* description)
        : qorstd::QorException(code, message), m_wrapped(wrapped), m_description(description) {}
    QorExceptionWrapper(const QorExceptionWrapper& other) = default;
    ~QorExceptionWrapper() override {}

    qorstd::QorStringW GetErrorDescription() const override { return m_description; }
    qorstd::QorException* Clone() const override { return new QorExceptionWrapper(*this); }
    [[noreturn]] void ReThrow() const override { throw T(m_wrapped); }

    const T& GetWrappedException() const { return m_wrapped; }

private:
    T m_wrapped;
    qorstd::QorStringW m_description;
};

extern template class QorExceptionWrapper<std::exception>;
extern template class QorExceptionWrapper<QorTsp2Lib::TspException>;
extern template class QorExceptionWrapper<QorOcsp2Lib::OcspException>;
extern template class QorExceptionWrapper<TimeStampOcspException>;

// Holds at most one exception (an owned clone). Copies clone again.
class TESSERA_API QorExceptionStore {
public:
    QorExceptionStore();
    QorExceptionStore(const QorExceptionStore& other);
    QorExceptionStore& operator=(const QorExceptionStore& other);
    virtual ~QorExceptionStore();

    // Replaces the held exception with a clone of `exception`.
    void SetException(const qorstd::QorException& exception);
    // The held exception (null when empty); the store keeps ownership.
    const qorstd::QorException* GetException() const { return m_exception; }
    bool IsEmpty() const { return m_exception == nullptr; }
    void Reset();
    // Throws the held exception with its own dynamic type; returns when empty.
    void ReThrow() const;

private:
    qorstd::QorException* m_exception;
};

}  // namespace TesseraLib
