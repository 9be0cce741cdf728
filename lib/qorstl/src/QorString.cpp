#include "QorString.h"

#include <strings.h>

#include <cstring>
#include <cwchar>

namespace qorstd {

namespace {

const char* OrEmpty(const char* text) {
    return text != nullptr ? text : "";
}
const wchar_t* OrEmpty(const wchar_t* text) {
    return text != nullptr ? text : L"";
}

// Like strnlen: the text may be shorter than `length` and need not be
// terminated after it.
std::size_t BoundedLength(const char* text, unsigned int length) {
    const void* end = std::memchr(text, 0, length);
    return end != nullptr ? static_cast<std::size_t>(static_cast<const char*>(end) - text) : length;
}

std::size_t BoundedLength(const wchar_t* text, unsigned int length) {
    const wchar_t* end = std::wmemchr(text, L'\0', length);
    return end != nullptr ? static_cast<std::size_t>(end - text) : length;
}

int Sign(int value) {
    return value < 0 ? -1 : (value > 0 ? 1 : 0);
}

}  // namespace

// ---- QorString ----------------------------------------------------------

QorString::QorString() = default;
QorString::QorString(const char* text) : m_text(OrEmpty(text)) {}
QorString::QorString(const char* text, unsigned int length) {
    assign(text, length);
}
QorString::QorString(const QorString& other) = default;
QorString::QorString(QorString&& other) noexcept = default;
QorString::~QorString() = default;

QorString& QorString::operator=(const char* text) {
    m_text = OrEmpty(text);
    return *this;
}
QorString& QorString::operator=(const QorString& other) = default;
QorString& QorString::operator=(QorString&& other) noexcept = default;
QorString& QorString::operator+=(const char* text) {
    return append(text);
}

QorString& QorString::append(const char* text) {
    m_text += OrEmpty(text);
    return *this;
}

QorString& QorString::append(const char* text, unsigned int length) {
    if (text != nullptr) {
        m_text.append(text, BoundedLength(text, length));
    }
    return *this;
}

QorString& QorString::assign(const char* text, unsigned int length) {
    if (text == nullptr) {
        m_text.clear();
    } else {
        m_text.assign(text, BoundedLength(text, length));
    }
    return *this;
}

void QorString::clear() {
    m_text.clear();
}
int QorString::compare(const char* text) const {
    return Sign(std::strcmp(m_text.c_str(), OrEmpty(text)));
}
int QorString::icompare(const char* text) const {
    return Sign(strcasecmp(m_text.c_str(), OrEmpty(text)));
}
bool QorString::empty() const {
    return m_text.empty();
}
unsigned int QorString::length() const {
    return static_cast<unsigned int>(m_text.length());
}
const char* QorString::c_str() const {
    return m_text.c_str();
}
bool QorString::operator==(const QorString& other) const {
    return m_text == other.m_text;
}
bool QorString::operator!=(const QorString& other) const {
    return m_text != other.m_text;
}

// ---- QorStringW ---------------------------------------------------------

QorStringW::QorStringW() = default;
QorStringW::QorStringW(const wchar_t* text) : m_text(OrEmpty(text)) {}
QorStringW::QorStringW(const wchar_t* text, unsigned int length) {
    assign(text, length);
}
QorStringW::QorStringW(const QorStringW& other) = default;
QorStringW::QorStringW(QorStringW&& other) noexcept = default;
QorStringW::~QorStringW() = default;

QorStringW& QorStringW::operator=(const wchar_t* text) {
    m_text = OrEmpty(text);
    return *this;
}
QorStringW& QorStringW::operator=(const QorStringW& other) = default;
QorStringW& QorStringW::operator=(QorStringW&& other) noexcept = default;

QorStringW& QorStringW::append(const wchar_t* text) {
    m_text += OrEmpty(text);
    return *this;
}

QorStringW& QorStringW::append(const wchar_t* text, unsigned int length) {
    if (text != nullptr) {
        m_text.append(text, BoundedLength(text, length));
    }
    return *this;
}

QorStringW& QorStringW::assign(const wchar_t* text, unsigned int length) {
    if (text == nullptr) {
        m_text.clear();
    } else {
        m_text.assign(text, BoundedLength(text, length));
    }
    return *this;
}

void QorStringW::clear() {
    m_text.clear();
}
int QorStringW::compare(const wchar_t* text) const {
    return Sign(std::wcscmp(m_text.c_str(), OrEmpty(text)));
}
bool QorStringW::empty() const {
    return m_text.empty();
}
unsigned int QorStringW::length() const {
    return static_cast<unsigned int>(m_text.length());
}
const wchar_t* QorStringW::c_str() const {
    return m_text.c_str();
}
bool QorStringW::operator==(const QorStringW& other) const {
    return m_text == other.m_text;
}
bool QorStringW::operator!=(const QorStringW& other) const {
    return m_text != other.m_text;
}

}  // namespace qorstd
