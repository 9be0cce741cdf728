// Value types of the time-stamp library: byte arrays, strings, hash
// algorithm numbers and the message imprint.
#pragma once

#include "QorArray.h"
#include "QorString.h"
#include "QorTsp2Export.h"

namespace QorTsp2Lib {

// Hash algorithms of message imprints. The numbering is shared with
// Tessera's hash algorithm numbers, so callers may convert between them.
enum tspHashAlgorithm {
    tspHashNone = 0,  // unset, or an algorithm this library does not know
    tspHashSHA1 = 1,
    tspHashSHA224 = 2,
    tspHashSHA256 = 3,
    tspHashSHA384 = 4,
    tspHashSHA512 = 5,
};

// Digest size in bytes of `algorithm`; 0 for tspHashNone and unknown values.
QORTSP2_API unsigned int GetHashSize(tspHashAlgorithm algorithm);
// "sha1", "sha224", "sha256", "sha384", "sha512"; empty for anything else.
QORTSP2_API const char* GetHashName(tspHashAlgorithm algorithm);
// The inverse of GetHashName (case-insensitive); tspHashNone when unknown.
QORTSP2_API tspHashAlgorithm GetHashByName(const char* name);

template <class T>
class TspArray;

// An owned byte array: a QorArray<unsigned char> under the library's name.
template <>
class QORTSP2_API TspArray<unsigned char> : public qorstd::QorArray<unsigned char> {
public:
    TspArray();
    TspArray(const unsigned char* data, unsigned int length);
    TspArray(const TspArray& other);
    TspArray(const qorstd::QorArray<unsigned char>& other);  // NOLINT: a plain widening
    ~TspArray() override;

    TspArray& operator=(const TspArray& other);
};

// An owned 8-bit text: a qorstd::QorString under the library's name.
class QORTSP2_API StlString : public qorstd::QorString {
public:
    StlString();
    StlString(const char* text);  // NOLINT: implicit on purpose, like a C string
    StlString(const char* text, unsigned int length);
    StlString(const StlString& other);
    ~StlString() override;

    StlString& operator=(const StlString& other);
    StlString& operator=(const char* text);
};

// An owned wide text: a qorstd::QorStringW under the library's name.
class QORTSP2_API StlStringW : public qorstd::QorStringW {
public:
    StlStringW();
    StlStringW(const wchar_t* text);  // NOLINT: implicit on purpose, like a C string
    StlStringW(const StlStringW& other);
    ~StlStringW() override;

    StlStringW& operator=(const StlStringW& other);
    StlStringW& operator=(const wchar_t* text);
};

// The hash of the time-stamped data: the algorithm first, then the value.
// A token whose imprint algorithm is not one of tspHashAlgorithm keeps its
// value with tspHashNone.
class QORTSP2_API TspMessageImprint {
public:
    TspMessageImprint();
    TspMessageImprint(tspHashAlgorithm algorithm, const TspArray<unsigned char>& hashedMessage);

    tspHashAlgorithm GetHashAlgorithm() const { return m_hashAlgorithm; }
    const TspArray<unsigned char>& GetHashedMessage() const { return m_hashedMessage; }

    bool operator==(const TspMessageImprint& other) const;
    bool operator!=(const TspMessageImprint& other) const { return !(*this == other); }

private:
    tspHashAlgorithm m_hashAlgorithm;
    TspArray<unsigned char> m_hashedMessage;
};

}  // namespace QorTsp2Lib
