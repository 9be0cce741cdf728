#include "TspTypes.h"

#include <strings.h>

namespace QorTsp2Lib {

namespace {

struct HashEntry {
    tspHashAlgorithm algorithm;
    const char* name;
    unsigned int size;
};

constexpr HashEntry kHashes[] = {
    {tspHashSHA1, "sha1", 20},     {tspHashSHA224, "sha224", 28}, {tspHashSHA256, "sha256", 32},
    {tspHashSHA384, "sha384", 48}, {tspHashSHA512, "sha512", 64},
};

const HashEntry* FindHash(tspHashAlgorithm algorithm) {
    for (const HashEntry& entry : kHashes) {
        if (entry.algorithm == algorithm) {
            return &entry;
        }
    }
    return nullptr;
}

}  // namespace

unsigned int GetHashSize(tspHashAlgorithm algorithm) {
    const HashEntry* entry = FindHash(algorithm);
    return entry != nullptr ? entry->size : 0;
}

const char* GetHashName(tspHashAlgorithm algorithm) {
    const HashEntry* entry = FindHash(algorithm);
    return entry != nullptr ? entry->name : "";
}

tspHashAlgorithm GetHashByName(const char* name) {
    if (name == nullptr) {
        return tspHashNone;
    }
    for (const HashEntry& entry : kHashes) {
        if (strcasecmp(entry.name, name) == 0) {
            return entry.algorithm;
        }
    }
    return tspHashNone;
}

TspArray<unsigned char>::TspArray() = default;
TspArray<unsigned char>::TspArray(const unsigned char* data, unsigned int length)
    : qorstd::QorArray<unsigned char>(data, length) {}
TspArray<unsigned char>::TspArray(const TspArray& other) = default;
TspArray<unsigned char>::TspArray(const qorstd::QorArray<unsigned char>& other)
    : qorstd::QorArray<unsigned char>(other) {}
TspArray<unsigned char>::~TspArray() = default;
TspArray<unsigned char>& TspArray<unsigned char>::operator=(const TspArray& other) = default;

StlString::StlString() = default;
StlString::StlString(const char* text) : qorstd::QorString(text) {}
StlString::StlString(const char* text, unsigned int length) : qorstd::QorString(text, length) {}
StlString::StlString(const StlString& other) = default;
StlString::~StlString() = default;
StlString& StlString::operator=(const StlString& other) = default;
StlString& StlString::operator=(const char* text) {
    qorstd::QorString::operator=(text);
    return *this;
}

StlStringW::StlStringW() = default;
StlStringW::StlStringW(const wchar_t* text) : qorstd::QorStringW(text) {}
StlStringW::StlStringW(const StlStringW& other) = default;
StlStringW::~StlStringW() = default;
StlStringW& StlStringW::operator=(const StlStringW& other) = default;
StlStringW& StlStringW::operator=(const wchar_t* text) {
    qorstd::QorStringW::operator=(text);
    return *this;
}

TspMessageImprint::TspMessageImprint() : m_hashAlgorithm(tspHashNone) {}

TspMessageImprint::TspMessageImprint(tspHashAlgorithm algorithm,
                                     const TspArray<unsigned char>& hashedMessage)
    : m_hashAlgorithm(algorithm), m_hashedMessage(hashedMessage) {}

bool TspMessageImprint::operator==(const TspMessageImprint& other) const {
    return m_hashAlgorithm == other.m_hashAlgorithm && m_hashedMessage == other.m_hashedMessage;
}

}  // namespace QorTsp2Lib
