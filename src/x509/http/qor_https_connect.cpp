// One HTTP exchange over TLS, optionally tunnelled through a proxy with
// CONNECT. The response is read until the server closes.
#include <signal.h>
#include <sys/socket.h>

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <string>

#include "x509/http/httpint.h"
#include "x509/http/qor_http.h"

namespace {

using namespace qorhttp;

const char kUserAgent[] = "QOR_HTTPS_Client/13.03 OpenSSL/1.0";
// The proxy's answer to CONNECT is read once, this much at most.
const int kProxyReplyMax = 1023;

// OpenSSL writes on the socket with write(): a peer that has gone would
// raise SIGPIPE in the caller's process. The signal is held back on this
// thread for the exchange and a SIGPIPE it caused is discarded.
class SigpipeGuard {
public:
    SigpipeGuard() {
        sigset_t pipe;
        sigemptyset(&pipe);
        sigaddset(&pipe, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        m_wasPending = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &pipe, &m_old);
    }
    ~SigpipeGuard() {
        sigset_t pending;
        sigpending(&pending);
        if (!m_wasPending && sigismember(&pending, SIGPIPE) == 1) {
            sigset_t pipe;
            sigemptyset(&pipe);
            sigaddset(&pipe, SIGPIPE);
            const timespec now{0, 0};
            sigtimedwait(&pipe, nullptr, &now);
        }
        pthread_sigmask(SIG_SETMASK, &m_old, nullptr);
    }
    SigpipeGuard(const SigpipeGuard&) = delete;
    SigpipeGuard& operator=(const SigpipeGuard&) = delete;

private:
    sigset_t m_old;
    bool m_wasPending = false;
};

// Installs the trusted certificates and the client's certificate and key.
int ConfigureContext(SSL_CTX* context, const HttpConnectParams& params) {
    if (params.caCertificates != nullptr) {
        ParamBio source(params.caCertificates, kIoInput);
        X509_STORE* store = SSL_CTX_get_cert_store(context);
        if (source.get() == nullptr) {
            return -1;
        }
        int added = 0;
        while (X509Ptr cert{PEM_read_bio_X509(source.get(), nullptr, nullptr, nullptr)}) {
            if (X509_STORE_add_cert(store, cert.get()) != 1) {
                return -1;
            }
            ++added;
        }
        ERR_clear_error();  // the end of the PEM input
        if (added == 0) {
            return -1;
        }
        SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
    } else {
        SSL_CTX_set_verify(context, SSL_VERIFY_NONE, nullptr);
    }
    if (params.clientCertificate != nullptr && params.clientKey != nullptr) {
        ParamBio certSource(params.clientCertificate, kIoInput);
        ParamBio keySource(params.clientKey, kIoInput);
        if (certSource.get() == nullptr || keySource.get() == nullptr) {
            return -1;
        }
        X509Ptr cert(PEM_read_bio_X509(certSource.get(), nullptr, nullptr, nullptr));
        EvpPkeyPtr key(PEM_read_bio_PrivateKey(keySource.get(), nullptr, params.keyPasswordCallback,
                                               params.keyPasswordData));
        if (!cert || !key || SSL_CTX_use_certificate(context, cert.get()) != 1 ||
            SSL_CTX_use_PrivateKey(context, key.get()) != 1 ||
            SSL_CTX_check_private_key(context) != 1) {
            return -1;
        }
    }
    return 0;
}

// Whether the last TLS error is the peer closing TCP without a TLS close.
bool PeerClosedWithoutTlsClose(int error) {
    if (error == SSL_ERROR_SYSCALL && ERR_peek_error() == 0 && errno == 0) {
        return true;
    }
    return error == SSL_ERROR_SSL &&
           ERR_GET_REASON(ERR_peek_last_error()) == SSL_R_UNEXPECTED_EOF_WHILE_READING;
}

}  // namespace

// Opens the tunnel on the connected proxy socket: CONNECT, then status 200.
static int SetHTTPSProxyConnection(int fd, const HttpConnectParams* params, const char* userAgent) {
    std::string request;
    const std::string target =
        std::string(params->host) + ":" + std::to_string(static_cast<int>(params->port));
    if (params->httpVersion == 2) {
        request = "CONNECT " + target + " HTTP/1.1\r\nHost: " + target + "\r\n";
    } else {
        request = "CONNECT " + target + " HTTP/1.0\r\n";
    }
    request += std::string("User-Agent: ") + userAgent + "\r\n";
    std::string authorization;
    if (ProxyAuthorizationLine(params, &authorization) != 0) {
        return -1;
    }
    request += authorization + "\r\n";
    std::size_t sent = 0;
    while (sent < request.size()) {
        const ssize_t done = ::send(fd, request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
        if (done < 0 && errno != EINTR) {
            return -1;
        }
        sent += done > 0 ? static_cast<std::size_t>(done) : 0;
    }
    char reply[kProxyReplyMax];
    ssize_t got = 0;
    do {
        got = ::recv(fd, reply, sizeof(reply), 0);
    } while (got < 0 && errno == EINTR);
    if (got <= 0) {
        return -1;
    }
    IoParam in{reply, static_cast<std::uint32_t>(got), kIoMemory};
    IoParam header{nullptr, 0, kIoMemory};
    if (QOR_HTTP_SplitData(&in, &header, nullptr) != 0) {
        return -1;
    }
    const int code = QOR_HTTP_GetCode(&header);
    QOR_Param_MemFree(&header);
    return code == 200 ? 0 : -1;
}

extern "C" int QOR_HTTPS_Connect(IoParam* out, IoParam* serverCertificate, IoParam* in,
                                 const HttpConnectParams* params, HttpProgressCallback callback,
                                 void* context) {
    Prepared prepared;
    if (Prepare(true, in, params, kUserAgent, &prepared) != 0 || out == nullptr) {
        return kHttpFailed;
    }
    ParamBio output(out, kIoOutput);
    SslCtxPtr tlsContext(SSL_CTX_new(TLS_client_method()));
    if (output.get() == nullptr || !tlsContext) {
        return kHttpFailed;
    }
    SSL_CTX_set_mode(tlsContext.get(), SSL_MODE_RELEASE_BUFFERS);
    SSL_CTX_set_session_cache_mode(tlsContext.get(), SSL_SESS_CACHE_OFF);
    if (ConfigureContext(tlsContext.get(), prepared.params) != 0) {
        return kHttpFailed;
    }
    SigpipeGuard quiet;
    Socket socket(SetSocketConnection(&prepared.address));
    if (socket.get() < 0 ||
        (prepared.params.proxyHost != nullptr &&
         SetHTTPSProxyConnection(socket.get(), &prepared.params, kUserAgent) != 0)) {
        return kHttpFailed;
    }
    SslPtr tls(SSL_new(tlsContext.get()));
    if (!tls || SSL_set_fd(tls.get(), socket.get()) != 1 || SSL_connect(tls.get()) != 1) {
        return kHttpFailed;
    }
    if (serverCertificate != nullptr) {
        X509* peer = SSL_get0_peer_certificate(tls.get());
        ParamBio store(serverCertificate, kIoOutput);
        if (peer == nullptr || store.get() == nullptr ||
            PEM_write_bio_X509(store.get(), peer) != 1 || store.Close() != 0) {
            return kHttpFailed;
        }
    }
    char* request = nullptr;
    BIO_get_mem_data(prepared.request.get(), &request);
    const int timeout = prepared.params.timeout;
    std::size_t sent = 0;
    bool sending = true;
    bool waitForWriting = true;
    bool closedWithoutTls = false;
    std::string head;
    bool headKnown = false;
    unsigned long expected = 0;
    unsigned long received = 0;
    char block[kBlock];
    for (;;) {
        if (!(sending == false && SSL_pending(tls.get()) > 0)) {
            const int ready = WaitSocket(socket.get(), waitForWriting, timeout);
            if (ready <= 0) {
                return ready == 0 ? kHttpTimeout : kHttpFailed;
            }
        }
        ERR_clear_error();
        errno = 0;
        if (sending) {
            // A write that must be retried is retried with the same bytes.
            const int size = static_cast<int>(
                std::min(static_cast<std::size_t>(kBlock), prepared.requestSize - sent));
            const int done = SSL_write(tls.get(), request + sent, size);
            if (done <= 0) {
                const int error = SSL_get_error(tls.get(), done);
                if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE) {
                    waitForWriting = error == SSL_ERROR_WANT_WRITE;
                    continue;
                }
                return kHttpFailed;
            }
            sent += static_cast<std::size_t>(done);
            if (sent >= prepared.requestSize) {
                sending = false;
                waitForWriting = false;
            }
            if (callback != nullptr && callback(0, static_cast<unsigned>(prepared.requestSize),
                                                static_cast<unsigned>(sent), context) == 0) {
                return kHttpAborted;
            }
            continue;
        }
        const int got = SSL_read(tls.get(), block, sizeof(block));
        if (got <= 0) {
            const int error = SSL_get_error(tls.get(), got);
            if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE) {
                waitForWriting = error == SSL_ERROR_WANT_WRITE;
                continue;
            }
            if (error == SSL_ERROR_ZERO_RETURN) {
                break;
            }
            if (PeerClosedWithoutTlsClose(error)) {
                ERR_clear_error();
                closedWithoutTls = true;
                break;
            }
            return kHttpFailed;
        }
        waitForWriting = false;
        if (BIO_write(output.get(), block, got) != got) {
            return kHttpFailed;
        }
        received += static_cast<unsigned long>(got);
        // The header is read only to tell the callback what to expect; the
        // response itself is not cut at its Content-Length.
        if (callback != nullptr) {
            if (!headKnown) {
                head.append(block, static_cast<std::size_t>(got));
                const long size = ExpectedSize(head, prepared.params.method, true);
                if (size >= 0) {
                    headKnown = true;
                    expected = static_cast<unsigned long>(size);
                    head.clear();
                } else if (size == -1) {
                    headKnown = true;
                }
            }
            if (callback(1, static_cast<unsigned>(expected), static_cast<unsigned>(received),
                         context) == 0) {
                return kHttpAborted;
            }
        }
    }
    if (!closedWithoutTls) {
        int shutdown = SSL_shutdown(tls.get());
        if (shutdown == 0) {
            ERR_clear_error();
            shutdown = SSL_shutdown(tls.get());
        }
        if (shutdown < 0) {
            ERR_clear_error();
            return kHttpFailed;
        }
    }
    tls.reset();
    if (socket.Finish(false) != 0) {
        return kHttpFailed;
    }
    return output.Close() == 0 ? kHttpOk : kHttpFailed;
}
