#include "QorException.h"

#include <cxxabi.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <typeinfo>

namespace qorstd {

QorException::QorException(int code, const wchar_t* message) : m_code(code), m_message(message) {}
QorException::QorException(const QorException& other) = default;

QorException& QorException::operator=(const QorException& other) {
    if (this != &other) {
        Copy(other);
    }
    return *this;
}

QorException::~QorException() = default;

QorStringW QorException::GetErrorDescription() const {
    return QorStringW();
}

QorStringW QorException::ToString() const {
    const QorString className = GetClassNameW();
    wchar_t head[512];
    std::swprintf(head, sizeof(head) / sizeof(head[0]), L"%s %d: ", className.c_str(), m_code);
    QorStringW text(head);
    text.append(GetErrorDescription().c_str());
    if (!m_message.empty()) {
        text.append(L" ");
        text.append(m_message.c_str());
    }
    return text;
}

QorException* QorException::Clone() const {
    return new QorException(*this);
}

void QorException::ReThrow() const {
    throw QorException(*this);
}

QorString QorException::GetClassNameW() const {
    const char* mangled = typeid(*this).name();
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> demangled(
        abi::__cxa_demangle(mangled, nullptr, nullptr, &status), std::free);
    return QorString(status == 0 && demangled ? demangled.get() : mangled);
}

void QorException::Copy(const QorException& other) {
    m_code = other.m_code;
    m_message = other.m_message;
}

StdLibException::StdLibException(int code, const wchar_t* message) : QorException(code, message) {}
StdLibException::StdLibException(const StdLibException& other) = default;

StdLibException& StdLibException::operator=(const StdLibException& other) {
    if (this != &other) {
        Copy(other);
    }
    return *this;
}

StdLibException::~StdLibException() = default;

QorStringW StdLibException::GetErrorDescription() const {
    switch (GetErrorCode()) {
        case ErrOutOfRange:
            return QorStringW(L"Index or position out of range.");
        case ErrAllocation:
            return QorStringW(L"Storage cannot be allocated.");
        default:
            return QorStringW(L"Container error.");
    }
}

QorException* StdLibException::Clone() const {
    return new StdLibException(*this);
}

void StdLibException::ReThrow() const {
    throw StdLibException(*this);
}

void StdLibException::Throw(int code, const wchar_t* message) {
    throw StdLibException(code, message);
}

}  // namespace qorstd
