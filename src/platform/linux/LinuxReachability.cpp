#include "platform/linux/LinuxReachability.hpp"

#include "platform/linux/CurlSetup.hpp"

#include <curl/curl.h>

#include <fstream>
#include <sstream>

namespace bvgeo {

namespace {

// Whole file, or empty text when it cannot be read (/proc files report size 0, so
// read by stream rather than by size).
std::string readText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return {};
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

size_t discard(char*, size_t size, size_t count, void*) { return size * count; }

} // namespace

LinuxReachability::LinuxReachability(LinuxReachabilityOptions options)
    : options_(std::move(options)), type_(options_.maxAge, options_.steadyNow) {}

BVReachabilityType LinuxReachability::typeFromFlags(const RouteFlags& flags) {
    if (flags.reachable && flags.isWWAN) return BVReachabilityType::WWAN;
    if (flags.reachable) return BVReachabilityType::WiFi;
    return BVReachabilityType::NotConnected;
}

BVReachabilityType LinuxReachability::isConnectedToNetworkOfType() {
    return type_.get([&] {
        return typeFromFlags(routeFlags(readText(options_.ipv4RouteFile), readText(options_.ipv6RouteFile)));
    });
}

bool LinuxReachability::isConnectedToNetwork() {
    const std::string& url = options_.probeURL;
    if (!isValidHTTPURL(url)) return false;
    ensureCurlReady();
    CURL* easy = curl_easy_init();
    if (!easy) return false;
    // Ask every cache on the way to pass the request through to the site.
    curl_slist* headers = curl_slist_append(nullptr, "Cache-Control: no-cache");
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
    setSecureHTTPOptions(easy);
    curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, static_cast<long>(kProbeTimeout * 1000));
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &discard);
    if (headers) curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);

    long status = 0;
    const bool answered = curl_easy_perform(easy) == CURLE_OK &&
                          curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status) == CURLE_OK;
    curl_easy_cleanup(easy);
    curl_slist_free_all(headers);
    return answered && status == 200;
}

} // namespace bvgeo
