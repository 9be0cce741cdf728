// One plain HTTP exchange of the own client: send the whole request, then
// read until the peer closes or the announced body is in.
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "x509/http/httpint.h"
#include "x509/http/qor_http.h"

namespace {

const char kUserAgent[] = "QOR_HTTP_Client/13.03";

}  // namespace

extern "C" int QOR_HTTP_Connect(IoParam* out, IoParam* in, const HttpConnectParams* params,
                                HttpProgressCallback callback, void* context) {
    using namespace qorhttp;
    Prepared prepared;
    if (Prepare(false, in, params, kUserAgent, &prepared) != 0 || out == nullptr) {
        return kHttpFailed;
    }
    ParamBio output(out, kIoOutput);
    if (output.get() == nullptr) {
        return kHttpFailed;
    }
    char* request = nullptr;
    BIO_get_mem_data(prepared.request.get(), &request);
    Socket socket(SetSocketConnection(&prepared.address));
    if (socket.get() < 0) {
        return kHttpFailed;
    }
    const int timeout = prepared.params.timeout;
    std::size_t sent = 0;
    bool sending = true;
    // Kept until the header has been recognised, to learn the expected size.
    std::string head;
    bool headKnown = false;
    unsigned long expected = 0;
    unsigned long received = 0;
    char block[kBlock];
    for (;;) {
        const int ready = WaitSocket(socket.get(), sending, timeout);
        if (ready <= 0) {
            return ready == 0 ? kHttpTimeout : kHttpFailed;
        }
        if (sending) {
            const std::size_t size =
                std::min(static_cast<std::size_t>(kBlock), prepared.requestSize - sent);
            const ssize_t done = ::send(socket.get(), request + sent, size, MSG_NOSIGNAL);
            if (done < 0) {
                if (errno == EINTR) {
                    continue;
                }
                return kHttpFailed;
            }
            sent += static_cast<std::size_t>(done);
            // The socket stays open both ways: some servers take a half-close
            // for an aborted request.
            sending = sent < prepared.requestSize;
            if (callback != nullptr && callback(0, static_cast<unsigned>(prepared.requestSize),
                                                static_cast<unsigned>(sent), context) == 0) {
                return kHttpAborted;
            }
            continue;
        }
        const ssize_t got = ::recv(socket.get(), block, sizeof(block), 0);
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            return kHttpFailed;
        }
        if (got > 0) {
            if (BIO_write(output.get(), block, static_cast<int>(got)) != got) {
                return kHttpFailed;
            }
            received += static_cast<unsigned long>(got);
            if (!headKnown) {
                head.append(block, static_cast<std::size_t>(got));
                const long size = ExpectedSize(head, prepared.params.method, false);
                if (size == -1) {
                    return kHttpFailed;
                }
                if (size != -2) {
                    headKnown = true;
                    expected = static_cast<unsigned long>(size);
                    head.clear();
                }
            }
        }
        if (callback != nullptr && callback(1, static_cast<unsigned>(expected),
                                            static_cast<unsigned>(received), context) == 0) {
            return kHttpAborted;
        }
        if (got == 0 || (expected != 0 && received >= expected)) {
            break;
        }
    }
    if (socket.Finish(true) != 0) {
        return kHttpFailed;
    }
    return output.Close() == 0 ? kHttpOk : kHttpFailed;
}
