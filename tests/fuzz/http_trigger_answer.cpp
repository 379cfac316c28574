// A trigger report's answer, as the server's bytes reach the library: status line,
// header block and body, served raw on loopback to the real HTTP client and read by
// the request queue with durable delivery on. Whatever the bytes, the report ends
// either accepted and out of the outbox, or waiting for a retry and still in it.
#include "FuzzSupport.hpp"
#include "RawHttpServer.hpp"

#include "request/HTTPClient.hpp"
#include "request/Outbox.hpp"
#include "request/RequestQueue.hpp"
#include "settings/TrackerSettings.hpp"

#include <cstdint>

namespace {

struct Setup {
    bvgeo::fuzz::RawHttpServer server;
    bvgeo::OutboxReport report;
};

Setup& setup() {
    static auto* made = [] {
        bvgeo::fuzz::quietLibrary();
        auto* s = new Setup();
        auto& settings = bvgeo::TrackerSettings::sharedInstance();
        bvgeo::ExtendedOptions extended;
        extended.durableDelivery = true;
        settings.setExtendedOptions(extended);
        bvgeo::HTTPClient::sharedInstance().setRequestTimeout(5.0);
        const std::string key = "5B6E7FD1-E4A5-4C8A-8535-F30219D75E4C";
        s->report.key = key;
        s->report.fenceId = "f1";
        s->report.event = "enter";
        s->report.createdAt = 1'500'000'000;
        s->report.request = bvgeo::HTTPClient::sharedInstance().request(
            s->server.baseUrl() + "api/v1/app/fuzz/trigger?sdk_ver=1.3.0", bvgeo::HTTPMethod::POST,
            nlohmann::json{{"deviceId", key}, {"event", "enter"}, {"timestamp", 1'500'000'000}, {"fenceId", "f1"}},
            nlohmann::json{{"Idempotency-Key", key}});
        return s;
    }();
    return *made;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto& s = setup();
    auto& queue = bvgeo::RequestQueue::sharedInstance();
    auto& outbox = bvgeo::Outbox::sharedInstance();
    s.server.setAnswer(std::string(reinterpret_cast<const char*>(data), size));
    if (!outbox.add(s.report)) __builtin_trap();

    queue.performRequest(s.report.request);
    if (!bvgeo::HTTPClient::sharedInstance().waitUntilIdle(60.0)) __builtin_trap();
    bvgeo::fuzz::quietLibrary().runUntilIdle(); // the retry timer's arming

    const bool waiting = !queue.retryRequests().empty();
    const bool kept = outbox.count() == 1;
    if (waiting != kept) __builtin_trap();
    queue.removeRequestFromRetryQueue(s.report.request);
    outbox.remove(s.report.key);
    return 0;
}
