// Throughput of the network layer against a loopback server: JSON GET round trips
// through HTTPClient (connections kept alive between iterations), and requests
// going through the request queue from addition to completion, with its timers
// fired by a hand-moved clock so that only the work itself is measured.
#include "platform/SharedInstance.hpp"
#include "request/HTTPClient.hpp"
#include "request/RequestQueue.hpp"

#include <bvgeo/platform/Platform.hpp>
#include <bvgeo/testing/TestPlatform.hpp>

#include <benchmark/benchmark.h>
#include <httplib.h>

#include <memory>
#include <string>
#include <thread>

namespace {

// Keeps nothing: a recording console would grow by a line per answer.
class SilentConsole final : public bvgeo::Console {
public:
    void log(std::string_view) override {}
    void print(std::string_view) override {}
};

// A loopback server answering every request with a small JSON object.
class Server {
public:
    Server() {
        auto answer = [](const httplib::Request&, httplib::Response& response) {
            response.set_content(R"({"status":"ok","count":1})", "application/json");
        };
        server_.Get(".*", answer);
        server_.Post(".*", answer);
        server_.set_keep_alive_max_count(1'000'000);
        server_.set_tcp_nodelay(true); // else Nagle delays each body by the delayed-ACK time
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        for (int i = 0; i < 10'000'000 && !server_.is_running(); ++i) std::this_thread::yield();
    }
    ~Server() {
        server_.stop();
        thread_.join();
    }
    std::string url(const std::string& path) const { return "http://127.0.0.1:" + std::to_string(port_) + path; }

private:
    httplib::Server server_;
    std::thread thread_;
    int port_ = -1;
};

// A fresh testing platform with a silent console, for the duration of one benchmark.
class Environment {
public:
    Environment() {
        platform_.installFresh();
        auto bundle = platform_.bundle();
        bundle.console = std::make_shared<SilentConsole>();
        bvgeo::installPlatform(bundle);
    }
    ~Environment() {
        bvgeo::HTTPClient::sharedInstance().waitUntilIdle(30);
        platform_.runUntilIdle();
        bvgeo::resetAllSharedInstances();
    }
    bvgeo::testing::TestPlatform& platform() { return platform_; }

private:
    bvgeo::testing::TestPlatform platform_;
};

void BM_HTTPClientGet(benchmark::State& state) {
    Environment environment;
    Server server;
    auto& client = bvgeo::HTTPClient::sharedInstance();
    const auto count = state.range(0);
    const std::string url = server.url("/fences");
    std::atomic<std::int64_t> failures{0};
    for (auto _ : state) {
        for (std::int64_t i = 0; i < count; ++i)
            client.get(url, std::nullopt, [](const nlohmann::json&, const bvgeo::HTTPResponse&) {},
                       [&failures](const bvgeo::HTTPResponse&, const bvgeo::HTTPError&) { ++failures; });
        if (!client.waitUntilIdle(30)) {
            state.SkipWithError("requests did not finish");
            break;
        }
    }
    if (failures.load() > 0) state.SkipWithError("some requests failed");
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_HTTPClientGet)->Arg(1)->Arg(16)->Arg(64)->UseRealTime();

void BM_RequestQueueThroughput(benchmark::State& state) {
    Environment environment;
    Server server;
    auto& sim = environment.platform();
    auto& queue = bvgeo::RequestQueue::sharedInstance();
    auto& client = bvgeo::HTTPClient::sharedInstance();
    const auto count = state.range(0);
    const auto request = client.request(server.url("/triggers"), bvgeo::HTTPMethod::POST,
                                        nlohmann::json{{"deviceId", "D"}, {"event", "enter"}}, std::nullopt);
    for (auto _ : state) {
        for (std::int64_t i = 0; i < count; ++i) queue.addRequestToQueue(request);
        sim.runUntilIdle();
        sim.advance(1.0);
        if (!client.waitUntilIdle(30)) {
            state.SkipWithError("requests did not finish");
            break;
        }
        sim.runUntilIdle();
    }
    if (!queue.retryRequests().empty()) state.SkipWithError("some requests failed");
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_RequestQueueThroughput)->Arg(16)->Arg(128)->UseRealTime();

} // namespace
