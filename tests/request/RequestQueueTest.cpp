#include "platform/SharedInstance.hpp"

#include "support/LibraryTest.hpp"
#include "support/LoopbackServer.hpp"
#include "support/StoredLogs.hpp"

#include "request/HTTPClient.hpp"
#include "request/RequestQueue.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <thread>

namespace bvgeo::testing {
namespace {

using ::testing::ElementsAre;

class RequestQueueTest : public LibraryTest {
protected:
    RequestQueue& queue() { return RequestQueue::sharedInstance(); }

    URLRequest report(const std::string& path) {
        return HTTPClient::sharedInstance().request(server.url(path), HTTPMethod::POST, nlohmann::json{{"p", path}},
                                                    std::nullopt);
    }

    // Lets every started request finish, then runs what their callbacks posted.
    void settle() {
        ASSERT_TRUE(HTTPClient::sharedInstance().waitUntilIdle(10));
        sim().runUntilIdle();
    }

    // Moves the clock with the server holding its answers, so that no answer can
    // overtake the timers firing during the move; then lets the answers go.
    void advanceHeld(double seconds) {
        sim().runUntilIdle();
        server.holdAnswers();
        sim().advance(seconds);
        server.releaseAnswers();
        settle();
    }

    LoopbackServer server;
};

TEST_F(RequestQueueTest, AQueuedRequestIsSentOnceWhenTheQueueTimerFires) {
    auto request = report("/report");
    queue().addRequestToQueue(request);
    sim().runUntilIdle();
    EXPECT_EQ(queue().requests(), std::vector<URLRequest>{request});

    sim().advance(0.9);
    settle();
    EXPECT_EQ(server.requestCount(), 0u);

    sim().advance(0.1);
    settle();
    ASSERT_EQ(server.requestCount(), 1u);
    EXPECT_EQ(server.requests()[0].body, R"({"p":"/report"})");
    EXPECT_TRUE(queue().requests().empty());

    sim().advance(120);
    settle();
    EXPECT_EQ(server.requestCount(), 1u);
    EXPECT_TRUE(queue().retryRequests().empty());
}

TEST_F(RequestQueueTest, QuickAdditionsGoOutTogetherInOnePass) {
    for (const char* path : {"/a", "/b", "/c"}) queue().addRequestToQueue(report(path));
    EXPECT_EQ(queue().requests(), (std::vector<URLRequest>{report("/a"), report("/b"), report("/c")}));

    sim().runUntilIdle();
    sim().advance(1.0);
    settle();
    EXPECT_THAT(server.paths(), ::testing::UnorderedElementsAre("/a", "/b", "/c"));
    auto lines = storedLines(LogCategory::REQUESTS);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "processQueue() [Line 76]: Processing Queue: 3 requests on queue"), 1);
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(), [](auto& l) { return l.find("Processing Queue") != l.npos; }), 1);
}

TEST_F(RequestQueueTest, AFailedRequestIsRetriedEveryRetryIntervalAndListedOnce) {
    server.setHandler(LoopbackServer::json(200, "")); // not JSON: every attempt fails
    auto request = report("/fails");
    queue().addRequestToQueue(request);
    queue().addRequestToQueue(request);

    advanceHeld(1.0);
    EXPECT_EQ(server.requestCount(), 2u);
    EXPECT_EQ(queue().retryRequests(), std::vector<URLRequest>{request});

    advanceHeld(29.0);
    EXPECT_EQ(server.requestCount(), 2u);
    advanceHeld(1.0);
    EXPECT_EQ(server.requestCount(), 3u);
    EXPECT_EQ(queue().retryRequests(), std::vector<URLRequest>{request});
    advanceHeld(30.0);
    EXPECT_EQ(server.requestCount(), 4u);

    server.setHandler(LoopbackServer::json(200, "{}"));
    advanceHeld(30.0);
    EXPECT_EQ(server.requestCount(), 5u);
    EXPECT_TRUE(queue().retryRequests().empty());
    advanceHeld(60.0);
    EXPECT_EQ(server.requestCount(), 5u);

    auto lines = storedLines(LogCategory::REQUESTS);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "performRequest [Line 114]: Request Error: " + request.url), 4);
    EXPECT_EQ(std::count(lines.begin(), lines.end(),
                         "processRetryQueue() [Line 92]: Processing Retry Queue: 1 requests on queue"),
              3);
}

TEST_F(RequestQueueTest, LogsTheLifeOfOneRequest) {
    auto request = report("/one");
    queue().addRequestToQueue(request);
    advanceHeld(1.0);
    sim().advance(1.0);
    EXPECT_THAT(storedLines(LogCategory::REQUESTS),
                ElementsAre("addRequestToQueue [Line 40]: New Request added to queue: " + request.url,
                            "processQueue() [Line 76]: Processing Queue: 1 requests on queue",
                            "processQueue() [Line 80]: Queue empty!",
                            "performRequest [Line 111]: Request Completed Successfully: " + request.url,
                            "processQueue() [Line 80]: Queue empty!"));
}

TEST_F(RequestQueueTest, AdditionsFromManyThreadsWhileTheQueueRunsAreAllSent) {
    constexpr int kThreads = 4;
    constexpr int kPerThread = 50;
    constexpr std::size_t kTotal = kThreads * kPerThread;
    std::vector<std::thread> producers;
    for (int t = 0; t < kThreads; ++t) {
        producers.emplace_back([this, t] {
            for (int i = 0; i < kPerThread; ++i)
                queue().addRequestToQueue(report("/t" + std::to_string(t) + "/" + std::to_string(i)));
        });
    }
    // This thread is the main queue meanwhile: it pumps while the producers add and
    // the transport thread completes.
    for (int round = 0; round < 20'000 && !server.waitForRequests(kTotal, 0.001); ++round) {
        sim().clock->advance(1.0);
        sim().mainQueue->fireDueTimers();
        sim().mainQueue->runPending();
    }
    for (auto& producer : producers) producer.join();
    settle();
    sim().advance(5.0);
    settle();
    EXPECT_EQ(server.requestCount(), kTotal);
    EXPECT_TRUE(queue().requests().empty());
    EXPECT_TRUE(queue().retryRequests().empty());
    auto lines = storedLines(LogCategory::REQUESTS);
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](auto& l) { return l.find("Request Completed Successfully") != l.npos; }),
              static_cast<long>(kTotal));
}

} // namespace
} // namespace bvgeo::testing
