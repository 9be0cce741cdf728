// The library's own HTTP/HTTPS client (internal): one blocking exchange per
// call, buffers held in OpenSSL BIOs, failures reported as result codes only.
// Nothing in this layer logs or throws, so it can sit under any caller.
#pragma once

#include <openssl/bio.h>

#include <cstdint>

extern "C" {

// An input or output: the low four bits of `type` give the kind.
//   1  data is an 8-bit file name
//   2  data is an open FILE*
//   3  memory: as input data/length are read in place; as output a fresh
//      buffer whose address and length are stored here when it is closed
//      (freed with QOR_Param_MemFree)
//   4  data is a BIO* used as it is
struct IoParam {
    void* data;
    std::uint32_t length;
    std::int32_t type;
};

enum { kIoFile = 1, kIoStream = 2, kIoMemory = 3, kIoBio = 4 };
enum { kIoInput = 1, kIoOutput = 2 };

typedef int (*HttpKeyPasswordCallback)(char* buffer, int size, int rwflag, void* data);

// What one exchange asks for. Text fields are borrowed.
struct HttpConnectParams {
    const char* host;
    std::uint16_t port;
    const char* path;
    const char* url;
    std::int32_t timeout;      // seconds for any one network event; 0: no limit
    std::int32_t httpVersion;  // 0 or 1: HTTP/1.0, 2: HTTP/1.1
    std::int32_t method;       // 0/1 GET, 2 HEAD, 3 POST, 4 OPTIONS, 5 TRACE, 6 PUT, 7 DELETE
    const char* ifModifiedSince;
    const char* extraHeaders;
    const char* contentType;
    const char* charset;
    const char* contentEncoding;
    const char* proxyHost;
    std::uint16_t proxyPort;
    const char* proxyUser;
    const char* proxyPassword;
    IoParam* caCertificates;     // PEM; null: the server is not authenticated
    IoParam* clientCertificate;  // PEM
    IoParam* clientKey;          // PEM
    HttpKeyPasswordCallback keyPasswordCallback;
    void* keyPasswordData;
    void* tlsExtra;  // reserved; this client applies nothing of it
};

// Phase 0 sending, 1 receiving; expectedTotal 0 when unknown. Zero aborts.
typedef int (*HttpProgressCallback)(int phase, unsigned expectedTotal, unsigned doneSoFar,
                                    void* context);

enum { kHttpOk = 0, kHttpFailed = -1, kHttpAborted = -2, kHttpTimeout = -3 };

// direction 1 input, 2 output; null on failure.
BIO* QOR_Param_BioOpen(IoParam* param, int direction);
// Releases `bio`; a memory output stores its bytes into `param`. 0 or -1.
int QOR_Param_BioClose(IoParam* param, int direction, BIO* bio);
// Frees a kind-3 buffer; -1 for any other kind.
int QOR_Param_MemFree(IoParam* param);

// One plain exchange: out receives every byte received; in is the body.
int QOR_HTTP_Connect(IoParam* out, IoParam* in, const HttpConnectParams* params,
                     HttpProgressCallback callback, void* context);
// The same over TLS, optionally through a proxy's CONNECT tunnel.
int QOR_HTTPS_Connect(IoParam* out, IoParam* serverCertificate, IoParam* in,
                      const HttpConnectParams* params, HttpProgressCallback callback,
                      void* context);

// 0 split, -1 error, -2 the blank line has not come yet.
int QOR_HTTP_SplitData(IoParam* in, IoParam* outHeader, IoParam* outBody);
// The status code of the header's first line, or -1.
int QOR_HTTP_GetCode(IoParam* header);
// 0 (value empty when absent) or -1 (does not fit, bad arguments).
int QOR_HTTP_GetHeaderItem(IoParam* header, const char* name, char* value, int valueSize);

}  // extern "C"
