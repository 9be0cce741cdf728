#include "QorCurl.h"

#include <curl/curl.h>

#include <memory>
#include <mutex>

namespace qorcurl {

namespace {

struct EasyDeleter {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct ListDeleter {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

void GlobalInit() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

size_t Collect(char* data, size_t size, size_t count, void* target) {
    auto* body = static_cast<std::vector<unsigned char>*>(target);
    const size_t bytes = size * count;
    if (body->size() + bytes > kMaxBodyBytes) {
        return 0;  // makes libcurl fail with a write error
    }
    body->insert(body->end(), data, data + bytes);
    return bytes;
}

Outcome Classify(CURLcode code) {
    switch (code) {
        case CURLE_OK:
            return Outcome::Ok;
        case CURLE_OPERATION_TIMEDOUT:
            return Outcome::Timeout;
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
        case CURLE_COULDNT_CONNECT:
            return Outcome::Connect;
        default:
            return Outcome::Transport;
    }
}

}  // namespace

Response Perform(const Request& request) {
    GlobalInit();
    Response response;
    std::unique_ptr<CURL, EasyDeleter> easy(curl_easy_init());
    if (!easy) {
        response.error = "curl_easy_init failed";
        return response;
    }
    CURL* curl = easy.get();
    char errorText[CURL_ERROR_SIZE] = {0};
    std::unique_ptr<curl_slist, ListDeleter> headers;

    curl_easy_setopt(curl, CURLOPT_URL, request.url.c_str());
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, errorText);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, request.connectTimeoutSeconds);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, request.totalTimeoutSeconds);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &Collect);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &response.body);
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR,
                     request.protocols.empty() ? "http,https" : request.protocols.c_str());
    if (!request.contentType.empty() || !request.body.empty()) {
        const std::string header = "Content-Type: " + request.contentType;
        headers.reset(curl_slist_append(nullptr, header.c_str()));
        curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers.get());
        curl_easy_setopt(curl, CURLOPT_POST, 1L);
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, request.body.data());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE,
                         static_cast<curl_off_t>(request.body.size()));
    }
    if (!request.user.empty()) {
        curl_easy_setopt(curl, CURLOPT_HTTPAUTH, CURLAUTH_BASIC);
        curl_easy_setopt(curl, CURLOPT_USERNAME, request.user.c_str());
        curl_easy_setopt(curl, CURLOPT_PASSWORD, request.password.c_str());
    }

    const CURLcode code = curl_easy_perform(curl);
    response.outcome = Classify(code);
    response.curlCode = static_cast<int>(code);
    if (code != CURLE_OK) {
        response.error = errorText[0] != '\0' ? errorText : curl_easy_strerror(code);
        response.body.clear();
        return response;
    }
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &response.status);
    char* contentType = nullptr;
    if (curl_easy_getinfo(curl, CURLINFO_CONTENT_TYPE, &contentType) == CURLE_OK &&
        contentType != nullptr) {
        response.contentType = contentType;
    }
    return response;
}

}  // namespace qorcurl
