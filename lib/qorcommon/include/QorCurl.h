// One HTTP exchange over libcurl, shared by the clients of the library family
// (internal, never installed). Failures are returned, not thrown, so that each
// client maps them to its own error codes.
#pragma once

#include <string>
#include <vector>

namespace qorcurl {

struct Request {
    std::string url;
    // Empty body and content type: GET; otherwise POST of `body`.
    std::string contentType;
    std::vector<unsigned char> body;
    long connectTimeoutSeconds = 5;
    long totalTimeoutSeconds = 30;
    // Basic authentication when `user` is non-empty.
    std::string user;
    std::string password;
    // Schemes libcurl may use, in CURLOPT_PROTOCOLS_STR form ("all" for every
    // scheme it supports); empty means "http,https".
    std::string protocols;
};

enum class Outcome {
    Ok,         // a complete HTTP answer arrived (any status)
    Timeout,    // connect or total time-out expired
    Connect,    // name resolution or connection refused
    Transport,  // anything else libcurl reports
};

struct Response {
    Outcome outcome = Outcome::Transport;
    long status = 0;
    std::string contentType;
    std::vector<unsigned char> body;
    std::string error;  // libcurl's text when outcome is not Ok
    int curlCode = 0;   // libcurl's result code (CURLcode)
};

// Refuses bodies larger than this many bytes (a transport failure).
constexpr std::size_t kMaxBodyBytes = 64u * 1024u * 1024u;

Response Perform(const Request& request);

}  // namespace qorcurl
