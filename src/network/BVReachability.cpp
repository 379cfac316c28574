#include "network/BVReachability.hpp"

#include "platform/RecentValue.hpp"
#include "request/CurlTransport.hpp"

#include <curl/curl.h>

#include <array>
#include <chrono>
#include <fstream>
#include <mutex>
#include <sstream>

namespace bvgeo {

namespace {

constexpr std::array<std::string_view, 3> kTypeTexts = {"WWAN", "WiFi", "NotConnected"};

struct Settings {
    std::mutex mutex;
    std::string probeURL{BVReachability::kProbeURL};
    std::string ipv4Path{BVReachability::kIPv4RouteFile};
    std::string ipv6Path{BVReachability::kIPv6RouteFile};
    // The type is only written into log lines, for which a second-old answer is as
    // good; the route tables were read twice per position.
    RecentValue<BVReachabilityType> type{std::chrono::seconds(1)};
};

Settings& settings() {
    static Settings shared;
    return shared;
}

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

std::string_view rawValue(BVReachabilityType type) {
    auto index = static_cast<std::size_t>(type);
    return index < kTypeTexts.size() ? kTypeTexts[index] : std::string_view();
}

std::optional<BVReachabilityType> reachabilityTypeFromRaw(std::string_view text) {
    for (std::size_t i = 0; i < kTypeTexts.size(); ++i)
        if (kTypeTexts[i] == text) return static_cast<BVReachabilityType>(i);
    return std::nullopt;
}

BVReachabilityType BVReachability::typeFromFlags(const RouteFlags& flags) {
    if (flags.reachable && flags.isWWAN) return BVReachabilityType::WWAN;
    if (flags.reachable) return BVReachabilityType::WiFi;
    return BVReachabilityType::NotConnected;
}

BVReachabilityType BVReachability::isConnectedToNetworkOfType() {
    // Under the lock, so that a reading always belongs to the current paths.
    std::lock_guard lock(settings().mutex);
    auto& s = settings();
    return s.type.get([&] { return typeFromFlags(routeFlags(readText(s.ipv4Path), readText(s.ipv6Path))); });
}

bool BVReachability::isConnectedToNetwork() {
    const std::string url = probeURL();
    if (!isValidHTTPURL(url)) return false;
    ensureCurlReady();
    CURL* easy = curl_easy_init();
    if (!easy) return false;
    // Ask every cache on the way to pass the request through to the site.
    curl_slist* headers = curl_slist_append(nullptr, "Cache-Control: no-cache");
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
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

void BVReachability::setProbeURL(std::string url) {
    std::lock_guard lock(settings().mutex);
    settings().probeURL = url.empty() ? std::string(kProbeURL) : std::move(url);
}

std::string BVReachability::probeURL() {
    std::lock_guard lock(settings().mutex);
    return settings().probeURL;
}

void BVReachability::setRouteFiles(std::string ipv4Path, std::string ipv6Path) {
    std::lock_guard lock(settings().mutex);
    settings().ipv4Path = ipv4Path.empty() ? std::string(kIPv4RouteFile) : std::move(ipv4Path);
    settings().ipv6Path = ipv6Path.empty() ? std::string(kIPv6RouteFile) : std::move(ipv6Path);
    settings().type.forget();
}

void BVReachability::setSteadyClock(std::function<std::chrono::steady_clock::time_point()> now) {
    std::lock_guard lock(settings().mutex);
    settings().type.setSteadyNow(std::move(now));
}

} // namespace bvgeo
