#include "support/LibraryTest.hpp"

#include "logger/Logger.hpp"
#include "models/Log.hpp"

#include <gmock/gmock.h>

#include <thread>

namespace bvgeo::testing {
namespace {

using ::testing::ElementsAre;

class LoggerTest : public LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        sim().clock->set(1'456'841'109); // 2016-03-01 14:05:09 UTC
    }
    void TearDown() override {
        Logger::setDebugMode(true);
        LibraryTest::TearDown();
    }
};

TEST_F(LoggerTest, StoresTheFormattedLineWithCategoryAndTime) {
    Logger::log("Queue empty!", LogCategory::REQUESTS, "processQueue()", 80);
    Logger::log("text");

    auto rows = Log::getLogsFromDatabase();
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0]->message, "[2016-03-01 14:05:09] - processQueue() [Line 80]: Queue empty!");
    EXPECT_EQ(rows[0]->category, LogCategory::REQUESTS);
    EXPECT_EQ(rows[0]->timestamp, 1'456'841'109);
    EXPECT_EQ(rows[1]->message, "[2016-03-01 14:05:09] -  [Line 0]: text");
    EXPECT_EQ(rows[1]->category, LogCategory::NONE);
    EXPECT_EQ(Log::getLogsFromDatabase(LogCategory::REQUESTS).size(), 1u);
}

class LoggerEasternTimeTest : public LoggerTest {
protected:
    TestPlatformOptions options() const override { return {.utcOffsetSeconds = -5 * 3600}; }
};

TEST_F(LoggerEasternTimeTest, StoredTextIsInLocalTimeAndTheColumnInUtc) {
    Logger::log("x", LogCategory::ZONE, "f", 1);
    auto rows = Log::getLogsFromDatabase();
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0]->message, "[2016-03-01 09:05:09] - f [Line 1]: x");
    EXPECT_EQ(rows[0]->timestamp, 1'456'841'109);
}

TEST_F(LoggerTest, DebugModeDecidesTheConsoleEcho) {
    Logger::log("Queue empty!", LogCategory::REQUESTS, "processQueue()", 80);
    Logger::setDebugMode(false);
    Logger::log("quiet", LogCategory::ZONE, "zone()", 3);
    Logger::setDebugMode(true);
    Logger::log("loud", LogCategory::ZONE, "zone()", 4);

    EXPECT_THAT(sim().console->logLines(),
                ElementsAre("processQueue() [Line 80]: Queue empty!", "zone() [Line 4]: loud"));
    EXPECT_EQ(Log::getLogsFromDatabase().size(), 3u);
}

TEST_F(LoggerTest, ConcurrentCallsAreAllStored) {
    constexpr int kThreads = 4;
    constexpr int kCalls = 500;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < kCalls; ++i)
                Logger::log(std::to_string(t) + ":" + std::to_string(i), LogCategory::GENERAL, "worker", t);
        });
    for (auto& thread : threads) thread.join();

    auto rows = Log::getLogsFromDatabase(LogCategory::GENERAL);
    ASSERT_EQ(rows.size(), static_cast<std::size_t>(kThreads * kCalls));
    // Each thread's rows appear in the order it wrote them.
    std::vector<int> next(kThreads, 0);
    for (auto& row : rows) {
        auto text = row->message.substr(row->message.find("]: ") + 3);
        int thread = std::stoi(text.substr(0, text.find(':')));
        ASSERT_EQ(std::stoi(text.substr(text.find(':') + 1)), next[thread]++);
    }
    EXPECT_EQ(sim().console->logLines().size(), static_cast<std::size_t>(kThreads * kCalls));
}

} // namespace
} // namespace bvgeo::testing
