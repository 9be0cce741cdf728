#include "x509/X509NamePrint.h"

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/objects.h>

#include <cstring>

#include "OpenSslPtr.h"
#include "QorTextConv.h"

namespace TesseraLib {
namespace x509 {

namespace {

int HexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

bool IsScalarValue(unsigned long c) {
    return c <= 0x10FFFFUL && !(c >= 0xD800UL && c <= 0xDFFFUL);
}

void AppendUtf8(unsigned long c, std::string& out) {
    if (c < 0x80UL) {
        out.push_back(static_cast<char>(c));
    } else if (c < 0x800UL) {
        out.push_back(static_cast<char>(0xC0 | (c >> 6)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000UL) {
        out.push_back(static_cast<char>(0xE0 | (c >> 12)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (c >> 18)));
        out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
}

// Fixed-width big-endian code units (BMPString: 2 bytes, UniversalString: 4);
// a unit that is no Unicode scalar value and an incomplete last unit become
// blanks.
std::string RecoverFixedWidth(const unsigned char* data, int length, int width) {
    std::string out;
    int i = 0;
    for (; i + width <= length; i += width) {
        unsigned long c = 0;
        for (int k = 0; k < width; ++k) {
            c = (c << 8) | data[i + k];
        }
        if (IsScalarValue(c)) {
            AppendUtf8(c, out);
        } else {
            out.push_back(' ');
        }
    }
    if (i < length) {
        out.push_back(' ');
    }
    return out;
}

// UTF8String with broken sequences: each byte that starts no valid sequence
// becomes a blank, decoding resumes at the next byte.
std::string RecoverUtf8(const unsigned char* data, int length) {
    std::string out;
    int i = 0;
    while (i < length) {
        unsigned long c = 0;
        const int used = UTF8_getc(data + i, length - i, &c);
        if (used <= 0 || !IsScalarValue(c)) {
            out.push_back(' ');
            ++i;
            continue;
        }
        AppendUtf8(c, out);
        i += used;
    }
    return out;
}

// Types without a character set of their own (or an unknown one): ASCII bytes
// stay, every other byte becomes a blank.
std::string RecoverBytes(const unsigned char* data, int length) {
    std::string out;
    for (int i = 0; i < length; ++i) {
        out.push_back(data[i] < 0x80 ? static_cast<char>(data[i]) : ' ');
    }
    return out;
}

}  // namespace

std::string UnescapePrintedName(const std::string& printed) {
    std::string out;
    out.reserve(printed.size());
    for (std::size_t i = 0; i < printed.size(); ++i) {
        if (printed[i] != '\\' || i + 1 == printed.size()) {
            out.push_back(printed[i]);
            continue;
        }
        if (i + 2 < printed.size()) {
            const int high = HexDigit(printed[i + 1]);
            const int low = HexDigit(printed[i + 2]);
            if (high >= 0 && low >= 0) {
                out.push_back(static_cast<char>(high * 16 + low));
                i += 2;
                continue;
            }
        }
        out.push_back(printed[i + 1]);
        ++i;
    }
    return out;
}

bool PrintName(const X509_NAME* name, int flags, qorstd::QorStringW& out) {
    if (name == nullptr) {
        return false;
    }
    unsigned long printFlags = flags == 0
                                   ? kNamePrintDefaultFlags
                                   : static_cast<unsigned long>(static_cast<unsigned>(flags));
    printFlags |= kNamePrintEscapeFlags;
    BioPtr bio(BIO_new(BIO_s_mem()));
    if (!bio || X509_NAME_print_ex(bio.get(), name, 0, printFlags) < 0) {
        ERR_clear_error();
        return false;
    }
    char* data = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &data);
    std::string plain = UnescapePrintedName(std::string(data, static_cast<std::size_t>(length)));
    // An escaped NUL ends the text, as it ends every C string it is given to.
    plain.resize(std::strlen(plain.c_str()));
    if (plain.empty()) {
        out.clear();
        return true;
    }
    qorstd::QorStringW wide = qorstd::text::NarrowToWide(
        plain.c_str(), static_cast<unsigned int>(plain.size()), qorstd::text::kCharsetUtf8);
    if (wide.empty()) {
        return false;
    }
    out = wide;
    return true;
}

std::string NameValueToUtf8(const ASN1_STRING* value) {
    if (value == nullptr) {
        return std::string();
    }
    unsigned char* converted = nullptr;
    const int convertedLength = ASN1_STRING_to_UTF8(&converted, value);
    OpenSslBytesPtr owned(converted);
    if (convertedLength >= 0) {
        return std::string(reinterpret_cast<const char*>(owned.get()),
                           static_cast<std::size_t>(convertedLength));
    }
    ERR_clear_error();
    const unsigned char* data = ASN1_STRING_get0_data(value);
    const int length = ASN1_STRING_length(value);
    if (data == nullptr || length <= 0) {
        return std::string();
    }
    switch (ASN1_STRING_type(value)) {
        case V_ASN1_BMPSTRING:
            return RecoverFixedWidth(data, length, 2);
        case V_ASN1_UNIVERSALSTRING:
            return RecoverFixedWidth(data, length, 4);
        case V_ASN1_UTF8STRING:
            return RecoverUtf8(data, length);
        default:
            return RecoverBytes(data, length);
    }
}

bool NameEntriesReadable(const X509_NAME* name) {
    if (name == nullptr) {
        return false;
    }
    const int count = X509_NAME_entry_count(name);
    for (int i = 0; i < count; ++i) {
        const X509_NAME_ENTRY* entry = X509_NAME_get_entry(name, i);
        const ASN1_OBJECT* type = entry != nullptr ? X509_NAME_ENTRY_get_object(entry) : nullptr;
        if (type == nullptr || X509_NAME_ENTRY_get_data(entry) == nullptr ||
            (OBJ_obj2nid(type) == NID_undef && OBJ_obj2txt(nullptr, 0, type, 1) <= 0)) {
            ERR_clear_error();
            return false;
        }
    }
    return true;
}

bool ListNameEntries(const X509_NAME* name, std::vector<NameEntry>& entries) {
    if (name == nullptr) {
        return false;
    }
    std::vector<NameEntry> listed;
    const int count = X509_NAME_entry_count(name);
    for (int i = 0; i < count; ++i) {
        const X509_NAME_ENTRY* entry = X509_NAME_get_entry(name, i);
        if (entry == nullptr) {
            return false;
        }
        const ASN1_OBJECT* type = X509_NAME_ENTRY_get_object(entry);
        const ASN1_STRING* value = X509_NAME_ENTRY_get_data(entry);
        if (type == nullptr || value == nullptr) {
            return false;
        }
        // Attribute OIDs are short; a longer one is cut, never refused.
        char oid[1024];
        if (OBJ_obj2txt(oid, sizeof(oid), type, 1) <= 0) {
            ERR_clear_error();
            return false;
        }
        listed.push_back(NameEntry{oid, NameValueToUtf8(value)});
    }
    entries.swap(listed);
    return true;
}

}  // namespace x509
}  // namespace TesseraLib
