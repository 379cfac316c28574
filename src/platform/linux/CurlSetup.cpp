#include "platform/linux/CurlSetup.hpp"

#include <curl/curl.h>

#include <string_view>

namespace bvgeo {

void ensureCurlReady() {
    static const bool ready = [] {
        curl_global_init(CURL_GLOBAL_DEFAULT);
        return true;
    }();
    (void)ready;
}

bool isValidHTTPURL(const std::string& url) {
    if (url.empty() || url.find('\0') != std::string::npos) return false;
    ensureCurlReady();
    CURLU* handle = curl_url();
    if (!handle) return false;
    bool valid = false;
    if (curl_url_set(handle, CURLUPART_URL, url.c_str(), 0) == CURLUE_OK) {
        char* scheme = nullptr;
        char* host = nullptr;
        if (curl_url_get(handle, CURLUPART_SCHEME, &scheme, 0) == CURLUE_OK &&
            curl_url_get(handle, CURLUPART_HOST, &host, 0) == CURLUE_OK) {
            std::string_view s(scheme);
            valid = (s == "http" || s == "https") && host && *host;
        }
        curl_free(scheme);
        curl_free(host);
    }
    curl_url_cleanup(handle);
    return valid;
}

std::string hostOfHTTPURL(const std::string& url) {
    if (!isValidHTTPURL(url)) return {};
    CURLU* handle = curl_url();
    if (!handle) return {};
    std::string host;
    char* part = nullptr;
    if (curl_url_set(handle, CURLUPART_URL, url.c_str(), 0) == CURLUE_OK &&
        curl_url_get(handle, CURLUPART_HOST, &part, 0) == CURLUE_OK && part)
        host = part;
    curl_free(part);
    curl_url_cleanup(handle);
    return host;
}

void setSecureHTTPOptions(void* easy) {
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
}

} // namespace bvgeo
