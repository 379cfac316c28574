// The request queue through two hours of a trigger API that is down in each of the
// ways real servers go down, then comes back.
#include "support/FaultyServer.hpp"
#include "support/LibraryTest.hpp"

#include "models/Log.hpp"
#include "request/HTTPClient.hpp"
#include "request/RequestQueue.hpp"

#include <map>

namespace bvgeo::testing {
namespace {

using Mode = FaultyServer::Mode;

constexpr int kReports = 50;
constexpr double kRetryInterval = 30.0; // the configuration's default
constexpr double kOutage = 2 * 3600.0;

class OutageTest : public LibraryTest, public ::testing::WithParamInterface<Mode> {
protected:
    void settle() {
        ASSERT_TRUE(HTTPClient::sharedInstance().waitUntilIdle(30));
        sim().runUntilIdle();
    }
    // One second at a time, so that every failure comes back at the second it was
    // sent and arms its timer from there, as it would on a device.
    void run(double seconds) {
        for (int i = 0; i < static_cast<int>(seconds); ++i) {
            sim().advance(1.0);
            settle();
        }
    }
};

TEST_P(OutageTest, EachReportGoesOutOncePerRetryIntervalAndAllArriveOnceWhenTheServerReturns) {
    FaultyServer server(GetParam());
    // The late server keeps quiet for longer than this.
    HTTPClient::sharedInstance().setRequestTimeout(0.05);

    // Fifty reports a second apart: their failures would each arm a timer of their own.
    auto& queue = RequestQueue::sharedInstance();
    std::map<std::string, std::string> keyOf; // report URL -> key
    for (int i = 0; i < kReports; ++i) {
        const std::string url = server.url("/api/v1/app/a/trigger?n=" + std::to_string(i));
        keyOf[url] = "key-" + std::to_string(i);
        queue.addRequestToQueue(HTTPClient::sharedInstance().request(
            url, HTTPMethod::POST, nlohmann::json{{"n", i}}, nlohmann::json{{"Idempotency-Key", keyOf[url]}}));
        run(1);
    }
    run(kOutage);

    // Every send of every report, as the log has it. The first retry comes with the
    // next pass, which may be due sooner than a whole interval after the report
    // failed; from then on each report goes out once a retry interval.
    std::map<std::string, std::vector<std::int64_t>> sends;
    int passes = 0;
    for (const auto& row : Log::getLogsFromDatabase(LogCategory::REQUESTS)) {
        const auto& text = row->message;
        if (auto at = text.find("Request Error: "); at != std::string::npos)
            sends[text.substr(at + 15)].push_back(row->timestamp);
        if (text.find("Processing Retry Queue: ") != std::string::npos) ++passes;
    }
    ASSERT_EQ(sends.size(), static_cast<std::size_t>(kReports));
    for (const auto& [url, times] : sends) {
        SCOPED_TRACE(url);
        ASSERT_GE(times.size(), 2u);
        EXPECT_LE(times[1] - times[0], kRetryInterval);
        for (std::size_t i = 2; i < times.size(); ++i) EXPECT_EQ(times[i] - times[i - 1], kRetryInterval);
        EXPECT_LE(times.size(), static_cast<std::size_t>(kOutage / kRetryInterval) + 2);
        EXPECT_GE(times.size(), static_cast<std::size_t>(kOutage / kRetryInterval) - 1) << "retried all along";
    }
    EXPECT_LE(passes, static_cast<int>((kOutage + kReports) / kRetryInterval) + 1);

    // What the server saw agrees, where anything reached it.
    std::map<std::string, std::size_t> seen;
    for (const auto& key : server.keys()) ++seen[key];
    for (const auto& [url, key] : keyOf) EXPECT_LE(seen[key], sends[url].size());
    if (GetParam() != Mode::Refuse) {
        EXPECT_EQ(seen.size(), static_cast<std::size_t>(kReports));
    }

    // Nothing was lost, and nothing waits twice.
    const auto waiting = queue.retryRequests();
    EXPECT_EQ(waiting.size(), static_cast<std::size_t>(kReports));

    HTTPClient::sharedInstance().setRequestTimeout(0);
    server.setMode(Mode::Healthy);
    run(kRetryInterval);
    run(5 * kRetryInterval);
    std::map<std::string, int> accepted;
    for (const auto& key : server.acceptedKeys()) ++accepted[key];
    EXPECT_EQ(accepted.size(), static_cast<std::size_t>(kReports));
    for (const auto& [key, count] : accepted) EXPECT_EQ(count, 1) << key;
    EXPECT_TRUE(queue.retryRequests().empty());
    EXPECT_TRUE(queue.requests().empty());
}

INSTANTIATE_TEST_SUITE_P(ServerDown, OutageTest,
                         ::testing::Values(Mode::Refuse, Mode::CloseWithoutAnswer, Mode::EmptyServerError,
                                           Mode::AnswerLate),
                         [](const auto& info) {
                             switch (info.param) {
                             case Mode::Refuse: return "Refuses";
                             case Mode::CloseWithoutAnswer: return "ClosesWithoutAnswering";
                             case Mode::EmptyServerError: return "Answers500WithEmptyBody";
                             case Mode::AnswerLate: return "AnswersAfterTheTimeOut";
                             default: return "Healthy";
                             }
                         });

} // namespace
} // namespace bvgeo::testing
