// Internals of the own HTTP client shared by the plain and the TLS exchange:
// name resolution, request composition, sockets, and the steps both
// exchanges begin with. Like the rest of the client, nothing here logs or
// throws; failures are -1.
#pragma once

#include <netinet/in.h>

#include <string>

#include "OpenSslPtr.h"
#include "x509/http/qor_http.h"

namespace qorhttp {

using namespace qorssl;

// The response size the progress callback is told while it is unknown.
const unsigned kUnknownSize = 0;
const int kBlock = 4096;

// An IoParam opened for the time of one call. Close() releases it the regular
// way (a memory output stores its bytes); without Close() it is released
// without storing anything.
class ParamBio {
public:
    ParamBio(IoParam* param, int direction)
        : m_param(param), m_direction(direction), m_bio(QOR_Param_BioOpen(param, direction)) {}
    ~ParamBio() {
        if (m_bio != nullptr && (m_param->type & 0x0f) != kIoBio) {
            BIO_free_all(m_bio);
        }
    }
    ParamBio(const ParamBio&) = delete;
    ParamBio& operator=(const ParamBio&) = delete;
    BIO* get() const { return m_bio; }
    int Close() {
        BIO* bio = m_bio;
        m_bio = nullptr;
        return bio == nullptr ? 0 : QOR_Param_BioClose(m_param, m_direction, bio);
    }

private:
    IoParam* m_param;
    int m_direction;
    BIO* m_bio;
};

// A socket closed with the owner.
class Socket {
public:
    explicit Socket(int fd = -1) : m_fd(fd) {}
    ~Socket();
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    int get() const { return m_fd; }
    // Closes it; with `shutdownFirst` both directions are shut down before
    // (a socket that is no longer connected is not an error). 0 or -1.
    int Finish(bool shutdownFirst);

private:
    int m_fd;
};

// What both exchanges prepare before they connect: the private copy of the
// parameters with host, port and path taken from the url, the address to
// connect to, the whole request, and the opened output.
struct Prepared {
    HttpConnectParams params{};
    std::string host;
    std::string path;
    sockaddr_in address{};
    BioPtr request;
    std::size_t requestSize = 0;
};

// Steps 1-3 of an exchange: copy, decompose, resolve, measure and read the
// body, compose the header (with `userAgent`). 0 or -1.
int Prepare(bool tls, IoParam* in, const HttpConnectParams* params, const char* userAgent,
            Prepared* prepared);

// The expected size of the whole response from the bytes received so far:
// -2 while the header is incomplete, -1 for a header that cannot be read,
// else the size (0: unknown).
long ExpectedSize(const std::string& received, int method, bool tls);

// Fills `address` (IPv4) for the proxy when set, else for the host.
int GetIPAddress(const HttpConnectParams* params, sockaddr_in* address);
// Appends the request line and header lines (not the blank line) to `buffer`.
int SetHTTPRequestHeader(int tls, const HttpConnectParams* params, long contentLength,
                         const char* userAgent, const char* from, BIO* buffer);
// A connected TCP socket, or -1.
int SetSocketConnection(const sockaddr_in* address);
// 1 when `text` is an HTTP date in one of its three forms, else 0.
int HTTPDate_Is(const char* text);
// The "Proxy-Authorization" line for the credentials, or empty when either is
// missing; -1 when they are too long.
int ProxyAuthorizationLine(const HttpConnectParams* params, std::string* line);
// Waits until `fd` is ready for writing (or reading): 1 ready, 0 time-out,
// -1 error or exception condition.
int WaitSocket(int fd, bool forWriting, int timeoutSeconds);

}  // namespace qorhttp
