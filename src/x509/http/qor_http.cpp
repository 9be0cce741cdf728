// The I/O parameters of the own HTTP client and the reading of a response:
// splitting header from body, the status code, header look-up.
#include "x509/http/qor_http.h"

#include <openssl/crypto.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "x509/http/httpint.h"

namespace {

using qorhttp::ParamBio;

// Lines are read in pieces of at most this many bytes; a longer line simply
// arrives as several pieces.
const int kLineMax = 4095;
const int kBlock = 4096;

bool IsBlankOrTab(char c) {
    return c == ' ' || c == '\t';
}

}  // namespace

extern "C" {

BIO* QOR_Param_BioOpen(IoParam* param, int direction) {
    if (param == nullptr || (direction != kIoInput && direction != kIoOutput)) {
        return nullptr;
    }
    const bool input = direction == kIoInput;
    switch (param->type & 0x0f) {
        case kIoFile:
            return param->data == nullptr
                       ? nullptr
                       : BIO_new_file(static_cast<const char*>(param->data), input ? "rb" : "wb");
        case kIoStream:
            return param->data == nullptr
                       ? nullptr
                       : BIO_new_fp(static_cast<FILE*>(param->data), BIO_NOCLOSE);
        case kIoMemory: {
            if (!input) {
                return BIO_new(BIO_s_mem());
            }
            if (param->data == nullptr || param->length == 0) {
                BIO* empty = BIO_new(BIO_s_mem());
                if (empty != nullptr) {
                    BIO_set_mem_eof_return(empty, 0);
                }
                return empty;
            }
            if (param->length > 0x7fffffffu) {
                return nullptr;
            }
            return BIO_new_mem_buf(param->data, static_cast<int>(param->length));
        }
        case kIoBio:
            return static_cast<BIO*>(param->data);
        default:
            return nullptr;
    }
}

int QOR_Param_BioClose(IoParam* param, int direction, BIO* bio) {
    if (param == nullptr || bio == nullptr) {
        return -1;
    }
    const int kind = param->type & 0x0f;
    if (kind == kIoBio) {
        return 0;
    }
    int result = 0;
    if (kind == kIoMemory && direction == kIoOutput) {
        char* data = nullptr;
        const long size = BIO_get_mem_data(bio, &data);
        void* copy = OPENSSL_malloc(size > 0 ? static_cast<std::size_t>(size) : 1);
        if (copy == nullptr || size < 0) {
            OPENSSL_free(copy);
            result = -1;
        } else {
            if (size > 0) {
                std::memcpy(copy, data, static_cast<std::size_t>(size));
            }
            param->data = copy;
            param->length = static_cast<std::uint32_t>(size);
        }
    } else if (kind == kIoStream && direction == kIoOutput && BIO_flush(bio) <= 0) {
        result = -1;
    }
    BIO_free_all(bio);
    return result;
}

int QOR_Param_MemFree(IoParam* param) {
    if (param == nullptr || (param->type & 0x0f) != kIoMemory) {
        return -1;
    }
    OPENSSL_free(param->data);
    param->data = nullptr;
    param->length = 0;
    return 0;
}

int QOR_HTTP_SplitData(IoParam* in, IoParam* outHeader, IoParam* outBody) {
    if (in == nullptr || (outHeader == nullptr && outBody == nullptr)) {
        return -1;
    }
    ParamBio source(in, kIoInput);
    if (source.get() == nullptr) {
        return -1;
    }
    ParamBio header(outHeader, kIoOutput);
    ParamBio body(outBody, kIoOutput);
    if ((outHeader != nullptr && header.get() == nullptr) ||
        (outBody != nullptr && body.get() == nullptr)) {
        return -1;
    }
    char line[kLineMax + 1];
    for (;;) {
        const int got = BIO_gets(source.get(), line, sizeof(line));
        if (got <= 0) {
            return -2;
        }
        if (got >= 2 && line[0] == '\r' && line[1] == '\n') {
            break;
        }
        if (header.get() != nullptr && BIO_write(header.get(), line, got) != got) {
            return -1;
        }
    }
    if (header.get() != nullptr && BIO_write(header.get(), "", 1) != 1) {
        return -1;
    }
    char block[kBlock];
    int got = 0;
    while ((got = BIO_read(source.get(), block, sizeof(block))) > 0) {
        if (body.get() != nullptr && BIO_write(body.get(), block, got) != got) {
            return -1;
        }
    }
    return header.Close() == 0 && body.Close() == 0 ? 0 : -1;
}

int QOR_HTTP_GetCode(IoParam* header) {
    ParamBio source(header, kIoInput);
    if (source.get() == nullptr) {
        return -1;
    }
    char line[kLineMax + 1];
    const int got = BIO_gets(source.get(), line, sizeof(line));
    if (got <= 0) {
        return -1;
    }
    const char* blank =
        static_cast<const char*>(std::memchr(line, ' ', static_cast<std::size_t>(got)));
    if (blank == nullptr) {
        return -1;
    }
    // strtol stops at the next blank (or anything else that is no digit).
    const long code = std::strtol(blank + 1, nullptr, 10);
    return code > 0x7fffffffL || code < -0x7fffffffL ? -1 : static_cast<int>(code);
}

int QOR_HTTP_GetHeaderItem(IoParam* header, const char* name, char* value, int valueSize) {
    if (value == nullptr || valueSize <= 0 || name == nullptr) {
        return -1;
    }
    std::memset(value, 0, static_cast<std::size_t>(valueSize));
    ParamBio source(header, kIoInput);
    if (source.get() == nullptr) {
        return -1;
    }
    const std::size_t wanted = std::strlen(name);
    char line[kLineMax + 1];
    int got = 0;
    while ((got = BIO_gets(source.get(), line, sizeof(line))) > 0) {
        const char* end = line + got;
        const char* colon =
            static_cast<const char*>(std::memchr(line, ':', static_cast<std::size_t>(got)));
        if (colon == nullptr || colon == line) {
            continue;
        }
        const char* nameBegin = line;
        const char* nameEnd = colon;
        while (nameBegin < nameEnd && IsBlankOrTab(*nameBegin)) {
            ++nameBegin;
        }
        while (nameEnd > nameBegin && IsBlankOrTab(nameEnd[-1])) {
            --nameEnd;
        }
        if (static_cast<std::size_t>(nameEnd - nameBegin) != wanted ||
            OPENSSL_strncasecmp(nameBegin, name, wanted) != 0) {
            continue;
        }
        const char* valueBegin = colon + 1;
        const char* valueEnd = end;
        while (valueBegin < valueEnd && IsBlankOrTab(*valueBegin)) {
            ++valueBegin;
        }
        while (valueEnd > valueBegin && (IsBlankOrTab(valueEnd[-1]) || valueEnd[-1] == '\r' ||
                                         valueEnd[-1] == '\n' || valueEnd[-1] == '\0')) {
            --valueEnd;
        }
        if (valueEnd - valueBegin >= 2 && *valueBegin == '"' && valueEnd[-1] == '"') {
            ++valueBegin;
            --valueEnd;
        }
        const std::size_t length = static_cast<std::size_t>(valueEnd - valueBegin);
        if (length + 1 > static_cast<std::size_t>(valueSize)) {
            return -1;
        }
        std::memcpy(value, valueBegin, length);
        return 0;
    }
    return 0;
}

}  // extern "C"
