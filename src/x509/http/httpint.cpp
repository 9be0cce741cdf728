// Name resolution, request composition and sockets of the own HTTP client,
// and the preparation both exchanges share.
#include "x509/http/httpint.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <openssl/evp.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace qorhttp {

namespace {

// Fixed limits of the request parts; longer values are refused rather than
// cut, so that a request is never sent other than asked.
const std::size_t kHostMax = 1024;
const std::size_t kPathMax = 8192;
const std::size_t kCredentialMax = 255;
const std::size_t kHeaderValueMax = 4096;
// Where the maker of the client can be reached; sent with every request.
const char kFrom[] = "tessera-http@tessera.invalid";

const char* const kMethods[] = {"GET", "GET", "HEAD", "POST", "OPTIONS", "TRACE", "PUT", "DELETE"};

bool TooLong(const char* text, std::size_t limit) {
    return text != nullptr && std::strlen(text) > limit;
}

bool Append(BIO* buffer, const std::string& text) {
    return BIO_write(buffer, text.data(), static_cast<int>(text.size())) ==
           static_cast<int>(text.size());
}

std::string Format(const char* format, const char* text, int number) {
    char line[kHostMax + 64];
    std::snprintf(line, sizeof(line), format, text, number);
    return line;
}

// Host, port and path from the url: the text after "://" up to ":" or "/",
// the digits after ":", and everything from the first "/" on.
bool Decompose(const char* url, bool tls, Prepared* prepared) {
    const char* start = std::strstr(url, "://");
    start = start == nullptr ? url : start + 3;
    const char* end = start + std::strcspn(start, ":/");
    prepared->host.assign(start, end);
    unsigned long port = tls ? 443 : 80;
    if (*end == ':') {
        port = std::strtoul(end + 1, nullptr, 10);
        if (port > 0xffff) {
            return false;
        }
    }
    prepared->params.port = static_cast<std::uint16_t>(port);
    const char* slash = std::strchr(start, '/');
    prepared->params.host = prepared->host.c_str();
    if (slash != nullptr) {
        prepared->path = slash;
        prepared->params.path = prepared->path.c_str();
    } else {
        prepared->params.path = nullptr;
    }
    return true;
}

// Four decimal numbers 0-255 with exactly three dots, the first at least 1.
bool IsDottedAddress(const char* name) {
    int parts = 0;
    const char* p = name;
    for (;;) {
        if (*p < '0' || *p > '9') {
            return false;
        }
        unsigned value = 0;
        int digits = 0;
        while (*p >= '0' && *p <= '9') {
            value = value * 10 + static_cast<unsigned>(*p - '0');
            if (++digits > 3) {
                return false;
            }
            ++p;
        }
        if (value > 255 || (parts == 0 && value < 1)) {
            return false;
        }
        ++parts;
        if (*p == '\0') {
            return parts == 4;
        }
        if (*p != '.' || parts == 4) {
            return false;
        }
        ++p;
    }
}

// ---------------------------------------------------------------- dates

enum Token {
    kBlank,
    kComma,
    kColon,
    kHyphen,
    kShortDay,
    kLongDay,
    kMonth,
    kGmt,
    kNumber1,
    kNumber2,
    kNumber4,
    kOtherNumber,
    kWord
};

struct DateToken {
    Token kind;
    int value;
};

int IndexOf(const char* const* names, int count, const std::string& word) {
    for (int i = 0; i < count; ++i) {
        if (word == names[i]) {
            return i;
        }
    }
    return -1;
}

std::vector<DateToken> Tokenize(const char* text) {
    static const char* const kShort[] = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};
    static const char* const kLong[] = {"Monday", "Tuesday",  "Wednesday", "Thursday",
                                        "Friday", "Saturday", "Sunday"};
    static const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    std::vector<DateToken> tokens;
    const char* p = text;
    while (*p != '\0') {
        const char* separator = std::strchr(" ,:-", *p);
        if (separator != nullptr) {
            tokens.push_back({static_cast<Token>(separator - " ,:-"), 0});
            ++p;
            continue;
        }
        const std::size_t length = std::strcspn(p, " ,:-");
        const std::string word(p, length);
        p += length;
        const bool digits = word.find_first_not_of("0123456789") == std::string::npos;
        if (digits) {
            const Token kind = length == 1   ? kNumber1
                               : length == 2 ? kNumber2
                               : length == 4 ? kNumber4
                                             : kOtherNumber;
            tokens.push_back({kind, kind == kOtherNumber ? 0 : std::atoi(word.c_str())});
        } else if (IndexOf(kShort, 7, word) >= 0) {
            tokens.push_back({kShortDay, 0});
        } else if (IndexOf(kLong, 7, word) >= 0) {
            tokens.push_back({kLongDay, 0});
        } else if (IndexOf(kMonths, 12, word) >= 0) {
            tokens.push_back({kMonth, 0});
        } else if (word == "GMT") {
            tokens.push_back({kGmt, 0});
        } else {
            tokens.push_back({kWord, 0});
        }
    }
    return tokens;
}

// Matches `tokens` against `form`; the positions of day, hour, minute and
// second are given so that their ranges can be checked.
bool Matches(const std::vector<DateToken>& tokens, const std::vector<Token>& form, int day,
             int hour) {
    if (tokens.size() != form.size()) {
        return false;
    }
    for (std::size_t i = 0; i < form.size(); ++i) {
        if (tokens[i].kind != form[i]) {
            return false;
        }
    }
    const int dayValue = tokens[static_cast<std::size_t>(day)].value;
    const std::size_t h = static_cast<std::size_t>(hour);
    // The hour is held to the same bound as minute and second.
    return dayValue >= 1 && dayValue <= 31 && tokens[h].value <= 59 && tokens[h + 2].value <= 59 &&
           tokens[h + 4].value <= 59;
}

}  // namespace

Socket::~Socket() {
    if (m_fd >= 0) {
        ::close(m_fd);
    }
}

int Socket::Finish(bool shutdownFirst) {
    const int fd = m_fd;
    m_fd = -1;
    if (fd < 0) {
        return -1;
    }
    int result = 0;
    if (shutdownFirst && ::shutdown(fd, SHUT_RDWR) != 0 && errno != ENOTCONN) {
        result = -1;
    }
    if (::close(fd) != 0) {
        result = -1;
    }
    return result;
}

int GetIPAddress(const HttpConnectParams* params, sockaddr_in* address) {
    const bool proxy = params->proxyHost != nullptr;
    const char* name = proxy ? params->proxyHost : params->host;
    if (name == nullptr || address == nullptr) {
        return -1;
    }
    std::memset(address, 0, sizeof(*address));
    address->sin_family = AF_INET;
    address->sin_port = htons(proxy ? params->proxyPort : params->port);
    if (IsDottedAddress(name)) {
        return inet_pton(AF_INET, name, &address->sin_addr) == 1 ? 0 : -1;
    }
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(name, nullptr, &hints, &found) != 0 || found == nullptr) {
        return -1;
    }
    int result = -1;
    for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
        if (entry->ai_family == AF_INET) {
            address->sin_addr = reinterpret_cast<const sockaddr_in*>(entry->ai_addr)->sin_addr;
            result = 0;
            break;
        }
    }
    freeaddrinfo(found);
    return result;
}

int ProxyAuthorizationLine(const HttpConnectParams* params, std::string* line) {
    line->clear();
    if (params->proxyUser == nullptr || params->proxyPassword == nullptr) {
        return 0;
    }
    if (TooLong(params->proxyUser, kCredentialMax) ||
        TooLong(params->proxyPassword, kCredentialMax)) {
        return -1;
    }
    const std::string credentials =
        std::string(params->proxyUser) + ":" + std::string(params->proxyPassword);
    std::vector<unsigned char> encoded(4 * ((credentials.size() + 2) / 3) + 1);
    EVP_EncodeBlock(encoded.data(), reinterpret_cast<const unsigned char*>(credentials.data()),
                    static_cast<int>(credentials.size()));
    *line = "Proxy-Authorization: Basic " + std::string(reinterpret_cast<char*>(encoded.data())) +
            "\r\n";
    return 0;
}

int SetHTTPRequestHeader(int tls, const HttpConnectParams* params, long contentLength,
                         const char* userAgent, const char* from, BIO* buffer) {
    if (params == nullptr || userAgent == nullptr || from == nullptr || buffer == nullptr ||
        params->method < 0 || params->method > 7 || params->httpVersion < 0 ||
        params->httpVersion > 2 || params->host == nullptr || TooLong(params->host, kHostMax) ||
        TooLong(params->path, kPathMax) || TooLong(userAgent, kHeaderValueMax) ||
        TooLong(from, kHeaderValueMax) || TooLong(params->contentType, kHeaderValueMax) ||
        TooLong(params->charset, kHeaderValueMax) ||
        TooLong(params->contentEncoding, kHeaderValueMax) ||
        TooLong(params->ifModifiedSince, kHeaderValueMax)) {
        return -1;
    }
    std::string header = kMethods[params->method];
    header += ' ';
    if (params->proxyHost != nullptr) {
        header += Format("%s://", tls != 0 ? "https" : "http", 0);
        header += Format("%s:%d", params->host, params->port);
    }
    header += params->path != nullptr ? params->path : "/";
    header += params->httpVersion == 2 ? " HTTP/1.1\r\n" : " HTTP/1.0\r\n";
    if (params->httpVersion == 2 && params->proxyHost == nullptr) {
        header += Format("Host: %s:%d\r\n", params->host, params->port);
    }
    header += std::string("From: ") + from + "\r\n";
    header += std::string("User-Agent: ") + userAgent + "\r\n";
    if (params->ifModifiedSince != nullptr) {
        if (HTTPDate_Is(params->ifModifiedSince) == 0) {
            return -1;
        }
        header += std::string("If-Modified-Since: ") + params->ifModifiedSince + "\r\n";
    }
    std::string authorization;
    if (ProxyAuthorizationLine(params, &authorization) != 0) {
        return -1;
    }
    header += authorization;
    if (contentLength > 0) {
        header +=
            std::string("Content-Type: ") +
            (params->contentType != nullptr ? params->contentType : "application/octet-stream");
        if (params->contentType != nullptr && params->charset != nullptr) {
            header += std::string(";Charset=") + params->charset;
        }
        header += "\r\n";
    }
    if (params->contentEncoding != nullptr) {
        header += std::string("Content-Encoding: ") + params->contentEncoding + "\r\n";
    }
    if (contentLength > 0) {
        header += "Content-Length: " + std::to_string(contentLength) + "\r\n";
    }
    if (params->extraHeaders != nullptr && params->extraHeaders[0] != '\0') {
        header += params->extraHeaders;
        if (header.size() < 2 || header.compare(header.size() - 2, 2, "\r\n") != 0) {
            header += "\r\n";
        }
    }
    return Append(buffer, header) ? 0 : -1;
}

int SetSocketConnection(const sockaddr_in* address) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return -1;
    }
    int result = 0;
    do {
        result = ::connect(fd, reinterpret_cast<const sockaddr*>(address), sizeof(*address));
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

int HTTPDate_Is(const char* text) {
    if (text == nullptr) {
        return 0;
    }
    const std::vector<DateToken> tokens = Tokenize(text);
    // Fixed by RFC 1123, RFC 850 and asctime().
    static const std::vector<Token> kRfc1123 = {
        kShortDay, kComma,   kBlank, kNumber2, kBlank, kMonth,   kBlank, kNumber4,
        kBlank,    kNumber2, kColon, kNumber2, kColon, kNumber2, kBlank, kGmt};
    static const std::vector<Token> kRfc850 = {
        kLongDay, kComma,   kBlank, kNumber2, kHyphen, kMonth,   kHyphen, kNumber2,
        kBlank,   kNumber2, kColon, kNumber2, kColon,  kNumber2, kBlank,  kGmt};
    static const std::vector<Token> kAsctime = {kShortDay, kBlank,   kMonth,  kBlank,   kNumber2,
                                                kBlank,    kNumber2, kColon,  kNumber2, kColon,
                                                kNumber2,  kBlank,   kNumber4};
    static const std::vector<Token> kAsctimeShortDay = {
        kShortDay, kBlank, kMonth,   kBlank, kBlank,   kNumber1, kBlank,
        kNumber2,  kColon, kNumber2, kColon, kNumber2, kBlank,   kNumber4};
    return Matches(tokens, kRfc1123, 3, 9) || Matches(tokens, kRfc850, 3, 9) ||
                   Matches(tokens, kAsctime, 4, 6) || Matches(tokens, kAsctimeShortDay, 5, 7)
               ? 1
               : 0;
}

int WaitSocket(int fd, bool forWriting, int timeoutSeconds) {
    fd_set ready;
    fd_set failed;
    FD_ZERO(&ready);
    FD_ZERO(&failed);
    FD_SET(fd, &ready);
    FD_SET(fd, &failed);
    timeval limit{timeoutSeconds, 0};
    int result = 0;
    do {
        result = ::select(fd + 1, forWriting ? nullptr : &ready, forWriting ? &ready : nullptr,
                          &failed, timeoutSeconds > 0 ? &limit : nullptr);
    } while (result < 0 && errno == EINTR);
    if (result < 0 || (result > 0 && FD_ISSET(fd, &failed))) {
        return -1;
    }
    return result == 0 ? 0 : 1;
}

int Prepare(bool tls, IoParam* in, const HttpConnectParams* params, const char* userAgent,
            Prepared* prepared) {
    if (params == nullptr) {
        return -1;
    }
    prepared->params = *params;
    if (params->host == nullptr && params->url != nullptr &&
        !Decompose(params->url, tls, prepared)) {
        return -1;
    }
    if (GetIPAddress(&prepared->params, &prepared->address) != 0) {
        return -1;
    }
    long bodyLength = 0;
    BioPtr body;
    if (in != nullptr) {
        const int kind = in->type & 0x0f;
        if (kind == kIoFile) {
            struct stat status {};
            if (in->data == nullptr || ::stat(static_cast<const char*>(in->data), &status) != 0) {
                return -1;
            }
            bodyLength = static_cast<long>(status.st_size);
        } else if (kind == kIoMemory) {
            bodyLength = static_cast<long>(in->length);
        } else {
            return -1;
        }
        body.reset(QOR_Param_BioOpen(in, kIoInput));
        if (!body) {
            return -1;
        }
    }
    prepared->request.reset(BIO_new(BIO_s_mem()));
    if (!prepared->request ||
        SetHTTPRequestHeader(tls ? 1 : 0, &prepared->params, bodyLength, userAgent, kFrom,
                             prepared->request.get()) != 0 ||
        BIO_write(prepared->request.get(), "\r\n", 2) != 2) {
        return -1;
    }
    char block[kBlock];
    int got = 0;
    while (body && (got = BIO_read(body.get(), block, sizeof(block))) > 0) {
        if (BIO_write(prepared->request.get(), block, got) != got) {
            return -1;
        }
    }
    prepared->requestSize = static_cast<std::size_t>(BIO_pending(prepared->request.get()));
    return 0;
}

long ExpectedSize(const std::string& received, int method, bool tls) {
    IoParam in{const_cast<char*>(received.data()), static_cast<std::uint32_t>(received.size()),
               kIoMemory};
    IoParam headerOut{nullptr, 0, kIoMemory};
    const int split = QOR_HTTP_SplitData(&in, &headerOut, nullptr);
    if (split != 0) {
        return split;
    }
    const std::string headerText(static_cast<const char*>(headerOut.data), headerOut.length);
    QOR_Param_MemFree(&headerOut);
    IoParam header{const_cast<char*>(headerText.data()),
                   static_cast<std::uint32_t>(headerText.size()), kIoMemory};
    const long headerSize = static_cast<long>(headerText.size());
    const int code = QOR_HTTP_GetCode(&header);
    char transferEncoding[256];
    char contentLength[256];
    if ((!tls && code < 0) ||
        QOR_HTTP_GetHeaderItem(&header, "Transfer-Encoding", transferEncoding,
                               sizeof(transferEncoding)) != 0 ||
        QOR_HTTP_GetHeaderItem(&header, "Content-Length", contentLength, sizeof(contentLength)) !=
            0) {
        return -1;
    }
    // The plain exchange adds the blank line after the header's terminating
    // zero byte; the TLS exchange has always counted one byte more.
    const long extra = tls ? 2 : 1;
    const bool headerOnly =
        tls ? method == 2 && code < 300
            : method == 2 || (code >= 100 && code < 200) || code == 204 || code == 304;
    if (headerOnly) {
        return headerSize + extra;
    }
    if (contentLength[0] != '\0') {
        return headerSize + extra + std::strtol(contentLength, nullptr, 10);
    }
    return 0;
}

}  // namespace qorhttp
