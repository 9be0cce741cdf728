// 8-bit and wide strings of the qorstd container library.
#pragma once

#include <string>

#include "QorStlExport.h"

namespace qorstd {

// An owned 8-bit, NUL-terminated text. A null pointer given to any member is
// treated as the empty text.
class QORSTL_API QorString {
public:
    QorString();
    QorString(const char* text);  // NOLINT: implicit on purpose, like a C string
    QorString(const char* text, unsigned int length);
    QorString(const QorString& other);
    QorString(QorString&& other) noexcept;
    virtual ~QorString();

    QorString& operator=(const char* text);
    QorString& operator=(const QorString& other);
    QorString& operator=(QorString&& other) noexcept;
    QorString& operator+=(const char* text);

    QorString& append(const char* text);
    QorString& append(const char* text, unsigned int length);
    // Replaces the content with the first `length` bytes of `text`.
    QorString& assign(const char* text, unsigned int length);
    void clear();

    // strcmp-like: 0 on equality, negative or positive otherwise.
    int compare(const char* text) const;
    // As compare(), ignoring ASCII case.
    int icompare(const char* text) const;

    bool empty() const;
    unsigned int length() const;
    const char* c_str() const;

    bool operator==(const QorString& other) const;
    bool operator!=(const QorString& other) const;

private:
    std::string m_text;
};

// An owned wide (wchar_t), NUL-terminated text. A null pointer given to any
// member is treated as the empty text.
class QORSTL_API QorStringW {
public:
    QorStringW();
    QorStringW(const wchar_t* text);  // NOLINT: implicit on purpose, like a C string
    QorStringW(const wchar_t* text, unsigned int length);
    QorStringW(const QorStringW& other);
    QorStringW(QorStringW&& other) noexcept;
    virtual ~QorStringW();

    QorStringW& operator=(const wchar_t* text);
    QorStringW& operator=(const QorStringW& other);
    QorStringW& operator=(QorStringW&& other) noexcept;

    QorStringW& append(const wchar_t* text);
    QorStringW& append(const wchar_t* text, unsigned int length);
    QorStringW& assign(const wchar_t* text, unsigned int length);
    void clear();

    int compare(const wchar_t* text) const;

    bool empty() const;
    unsigned int length() const;
    const wchar_t* c_str() const;

    bool operator==(const QorStringW& other) const;
    bool operator!=(const QorStringW& other) const;

private:
    std::wstring m_text;
};

}  // namespace qorstd
