#include "platform/SharedInstance.hpp"

#include "support/LibraryTest.hpp"
#include "support/FaultyServer.hpp"
#include "support/LoopbackServer.hpp"

#include "request/HTTPClient.hpp"

#include <gmock/gmock.h>

#include <atomic>
#include <future>
#include <thread>

namespace bvgeo::testing {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::StartsWith;

struct Outcome {
    bool succeeded = false;
    nlohmann::json data;
    HTTPResponse response;
    HTTPError error;
    std::thread::id thread;
};

class HTTPClientTest : public LibraryTest {
protected:
    HTTPClient& client() { return HTTPClient::sharedInstance(); }

    // Starts one request with callbacks that report here, and waits for them.
    Outcome run(const std::function<void(HTTPClient::Success, HTTPClient::Failure)>& start) {
        auto promise = std::make_shared<std::promise<Outcome>>();
        start(
            [promise](const nlohmann::json& data, const HTTPResponse& response) {
                promise->set_value({true, data, response, {}, std::this_thread::get_id()});
            },
            [promise](const HTTPResponse& response, const HTTPError& error) {
                promise->set_value({false, {}, response, error, std::this_thread::get_id()});
            });
        auto future = promise->get_future();
        if (future.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
            ADD_FAILURE() << "no callback within 10 s";
            return {};
        }
        EXPECT_TRUE(client().waitUntilIdle(5));
        return future.get();
    }
    Outcome get(const std::string& url) {
        return run([&](auto success, auto failure) { client().get(url, std::nullopt, success, failure); });
    }

    std::vector<std::string> consoleLogsStartingWith(const std::string& prefix) {
        std::vector<std::string> out;
        for (auto& line : sim().console->logLines())
            if (line.starts_with(prefix)) out.push_back(line);
        return out;
    }

    LoopbackServer server;
};

TEST_F(HTTPClientTest, SendsExactlyTheHeadersAndBodyTheRequestDescribes) {
    auto posted = run([&](auto success, auto failure) {
        client().post(server.url("/items"), nlohmann::json{{"a", 1}},
                      nlohmann::json{{"Content-Type", "text/plain"}, {"X-Count", 5}, {"X-Token", "t"}}, success, failure);
    });
    EXPECT_TRUE(posted.succeeded);
    run([&](auto success, auto failure) { client().get(server.url("/plain"), std::nullopt, success, failure); });

    auto seen = server.requests();
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].method, "POST");
    EXPECT_EQ(seen[0].path, "/items");
    EXPECT_EQ(seen[0].header("Content-Type"), "application/json, text/plain");
    EXPECT_EQ(seen[0].header("Accept"), "application/json");
    EXPECT_EQ(seen[0].header("X-Token"), "t");
    EXPECT_EQ(seen[0].header("X-Count"), std::nullopt);
    EXPECT_EQ(seen[0].header("Expect"), std::nullopt);
    EXPECT_EQ(seen[0].body, R"({"a":1})");

    EXPECT_EQ(seen[1].method, "GET");
    EXPECT_EQ(seen[1].header("Content-Type"), std::nullopt);
    EXPECT_EQ(seen[1].header("Accept"), std::nullopt);
    EXPECT_EQ(seen[1].body, "");
}

TEST_F(HTTPClientTest, AnyStatusWithAJsonObjectSucceedsAndOtherAnswersFail) {
    server.setHandler([](const httplib::Request& request, httplib::Response& response) {
        if (request.path == "/error") response.status = 500, response.set_content("{}", "application/json");
        if (request.path == "/object") {
            response.set_header("X-Answer", "42");
            response.set_content(R"({"b":[1,2],"a":"x"})", "application/json");
        }
        if (request.path == "/empty") response.status = 200;
        if (request.path == "/array") response.set_content("[1,2]", "application/json");
        if (request.path == "/deep") response.set_content(R"({"a":)" + std::string(5000, '['), "application/json");
    });

    auto error = get(server.url("/error"));
    EXPECT_TRUE(error.succeeded);
    EXPECT_EQ(error.data, nlohmann::json::object());
    EXPECT_EQ(error.response.statusCode, 500);

    auto object = get(server.url("/object"));
    EXPECT_TRUE(object.succeeded);
    EXPECT_EQ(object.data, (nlohmann::json{{"a", "x"}, {"b", {1, 2}}}));
    EXPECT_EQ(object.response.value("x-answer"), "42");
    EXPECT_EQ(object.response.url, server.url("/object"));
    EXPECT_THAT(sim().console->printedLines(), Contains(R"({"a":"x","b":[1,2]})"));
    EXPECT_NE(object.thread, std::this_thread::get_id());

    auto empty = get(server.url("/empty"));
    EXPECT_FALSE(empty.succeeded);
    EXPECT_EQ(empty.response.statusCode, 200);
    EXPECT_EQ(empty.error.domain, kHTTPDecodingErrorDomain);
    auto serializing = consoleLogsStartingWith("Error serializing data: ");
    ASSERT_EQ(serializing.size(), 1u);
    EXPECT_EQ(serializing[0], "Error serializing data: " + empty.error.description);

    auto array = get(server.url("/array"));
    EXPECT_FALSE(array.succeeded);
    EXPECT_EQ(array.response.statusCode, 200);
    EXPECT_EQ(array.error.code, kHTTPErrorNotAnObject);

    auto deep = get(server.url("/deep"));
    EXPECT_FALSE(deep.succeeded);
    EXPECT_EQ(deep.error.code, kHTTPErrorTooDeep);

    EXPECT_TRUE(consoleLogsStartingWith("ERROR: ").empty());
}

TEST_F(HTTPClientTest, TransportFailuresGiveAnEmptyResponseAndAConsoleLine) {
    FaultyServer refusing(FaultyServer::Mode::Refuse);
    auto refused = get(refusing.url("/"));
    EXPECT_FALSE(refused.succeeded);
    EXPECT_TRUE(refused.response.empty());
    EXPECT_EQ(refused.error.domain, kHTTPTransportErrorDomain);

    client().setRequestTimeout(0.3);
    server.holdAnswers();
    auto slow = get(server.url("/slow"));
    server.releaseAnswers();
    EXPECT_FALSE(slow.succeeded);
    EXPECT_EQ(slow.response.statusCode, 0);
    EXPECT_THAT(slow.error.description, HasSubstr("timed out"));

    const std::size_t seenBefore = server.requestCount();
    for (const std::string& url :
         {std::string("not a url"), std::string(""), std::string("http://"), server.url("/x").replace(0, 4, "ftp")}) {
        auto invalid = get(url);
        EXPECT_FALSE(invalid.succeeded) << url;
        EXPECT_TRUE(invalid.response.empty());
        EXPECT_THAT(invalid.error.description, StartsWith("Invalid URL")) << url;
        EXPECT_NE(invalid.thread, std::this_thread::get_id());
    }
    EXPECT_EQ(server.requestCount(), seenBefore);

    auto errors = consoleLogsStartingWith("ERROR: ");
    ASSERT_EQ(errors.size(), 6u);
    EXPECT_EQ(errors[0], "ERROR: " + refused.error.description);
    EXPECT_EQ(errors[1], "ERROR: " + slow.error.description);
    EXPECT_EQ(errors[2], "ERROR: Invalid URL: not a url");
}

TEST_F(HTTPClientTest, AnOversizedBodyFailsInsteadOfFillingMemory) {
    client().setMaxResponseBytes(1024);
    const std::string big = "{\"a\":\"" + std::string(4096, 'x') + "\"}";
    server.setHandler([big](const httplib::Request& request, httplib::Response& response) {
        if (request.path == "/chunked") {
            response.set_chunked_content_provider("application/json", [big](size_t, httplib::DataSink& sink) {
                sink.write(big.data(), big.size());
                sink.done();
                return true;
            });
        } else {
            response.set_content(big, "application/json");
        }
    });
    for (const char* path : {"/sized", "/chunked"}) {
        auto outcome = get(server.url(path));
        EXPECT_FALSE(outcome.succeeded) << path;
        EXPECT_TRUE(outcome.response.empty()) << path;
        EXPECT_THAT(outcome.error.description, HasSubstr("larger than 1024 bytes")) << path;
    }
}

TEST_F(HTTPClientTest, KeepsTheConnectionForTheNextRequest) {
    get(server.url("/one"));
    get(server.url("/two"));
    auto seen = server.requests();
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].remotePort, seen[1].remotePort);
}

TEST_F(HTTPClientTest, ManyRequestsFromSeveralThreadsAllComeBack) {
    constexpr int kThreads = 4;
    constexpr int kPerThread = 50;
    std::atomic<int> successes{0};
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kPerThread; ++i) {
                client().post(
                    server.url("/t" + std::to_string(t)), nlohmann::json{{"i", i}}, std::nullopt,
                    [&](const nlohmann::json&, const HTTPResponse&) { ++successes; },
                    [&](const HTTPResponse&, const HTTPError&) { ++failures; });
            }
        });
    }
    for (auto& thread : threads) thread.join();
    ASSERT_TRUE(client().waitUntilIdle(30));
    EXPECT_EQ(client().inFlight(), 0u);
    EXPECT_EQ(successes.load(), kThreads * kPerThread);
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(server.requestCount(), static_cast<std::size_t>(kThreads * kPerThread));
}

} // namespace
} // namespace bvgeo::testing
