// A zone download's answer, as the server's bytes reach the library: status line,
// header block and body, served raw on loopback to the real HTTP client and read by
// the zone manager (Last-Modified, 304 and 403 handling, the streaming zone file
// reader). Whatever the bytes, exactly one of success and failure is called once.
#include "FuzzSupport.hpp"
#include "RawHttpServer.hpp"

#include "request/HTTPClient.hpp"
#include "settings/TrackerSettings.hpp"
#include "zone/ZoneManager.hpp"

#include <atomic>
#include <cstdint>

namespace {

bvgeo::fuzz::RawHttpServer& server() {
    static auto* made = [] {
        bvgeo::fuzz::quietLibrary();
        auto* raw = new bvgeo::fuzz::RawHttpServer();
        auto& settings = bvgeo::TrackerSettings::sharedInstance();
        settings.setZonesBaseUrl(raw->baseUrl() + "fuzz/zones/");
        // A stuck answer (a Content-Length never met) ends within this, not the default 30 s.
        bvgeo::HTTPClient::sharedInstance().setRequestTimeout(5.0);
        return raw;
    }();
    return *made;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto& raw = server();
    raw.setAnswer(std::string(reinterpret_cast<const char*>(data), size));
    auto calls = std::make_shared<std::atomic<int>>(0);
    bvgeo::ZoneManager::getFencesForZone(
        "zone_51300_700.json", [calls](bvgeo::FenceList, bool) { ++*calls; },
        [calls](const bvgeo::HTTPError&) { ++*calls; });
    if (!bvgeo::HTTPClient::sharedInstance().waitUntilIdle(60.0) || calls->load() != 1) __builtin_trap();
    return 0;
}
