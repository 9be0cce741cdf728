// Base exceptions of the qorstd container library.
#pragma once

#include "QorStlExport.h"
#include "QorString.h"

namespace qorstd {

// Base of every exception the library family throws: an integer code and a
// wide message. The description belongs to the code and is supplied by the
// derived classes.
class QORSTL_API QorException {
public:
    QorException(int code, const wchar_t* message);
    QorException(const QorException& other);
    QorException& operator=(const QorException& other);

    virtual ~QorException();
    // The fixed text that belongs to the error code (empty for the base).
    virtual QorStringW GetErrorDescription() const;
    // "<class> <code>: <description>[ <message>]", for logs and diagnostics.
    virtual QorStringW ToString() const;
    // A heap copy of the same dynamic type; the caller owns it.
    virtual QorException* Clone() const;
    // Throws a copy of this object with its own dynamic type.
    [[noreturn]] virtual void ReThrow() const;

    int GetErrorCode() const { return m_code; }
    const QorStringW& GetErrorMessage() const { return m_message; }
    // The demangled dynamic class name, e.g. "TesseraLib::CryptException".
    QorString GetClassNameW() const;

protected:
    void Copy(const QorException& other);

private:
    int m_code;
    QorStringW m_message;
};

// Thrown by the containers: code 100 for an index or position out of range
// (and for Front, Back or GetUpperBound on an empty vector), code 101 when
// storage cannot be allocated. The containers throw it without a message.
class QORSTL_API StdLibException : public QorException {
public:
    enum { ErrOutOfRange = 100, ErrAllocation = 101 };

    StdLibException(int code, const wchar_t* message);
    StdLibException(const StdLibException& other);
    StdLibException& operator=(const StdLibException& other);
    ~StdLibException() override;

    QorStringW GetErrorDescription() const override;
    QorException* Clone() const override;
    [[noreturn]] void ReThrow() const override;

    [[noreturn]] static void Throw(int code, const wchar_t* message);
};

}  // namespace qorstd
