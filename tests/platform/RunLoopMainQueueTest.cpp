#include <bvgeo/platform/RunLoopMainQueue.hpp>

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

namespace bvgeo {
namespace {

constexpr auto kPatience = std::chrono::seconds(10);

TEST(RunLoopMainQueue, RunsPostedWorkInOrderOnItsOwnThread) {
    RunLoopMainQueue queue;
    queue.startThread();
    std::vector<int> seen; // touched only on the queue's thread
    bool allOnQueue = true;
    for (int i = 0; i < 200; ++i)
        queue.async([&, i] {
            seen.push_back(i);
            allOnQueue = allOnQueue && queue.isCurrent();
        });
    std::promise<std::vector<int>> done;
    queue.async([&] { done.set_value(seen); });

    auto future = done.get_future();
    ASSERT_EQ(future.wait_for(kPatience), std::future_status::ready);
    auto order = future.get();
    ASSERT_EQ(order.size(), 200u);
    for (int i = 0; i < 200; ++i) EXPECT_EQ(order[i], i);
    EXPECT_TRUE(allOnQueue);
    EXPECT_FALSE(queue.isCurrent());
}

TEST(RunLoopMainQueue, TimersFireInDueOrderAndCancelledOnesNever) {
    RunLoopMainQueue queue;
    queue.startThread();
    std::vector<std::string> fired; // queue thread only
    std::promise<std::vector<std::string>> done;

    queue.scheduleTimer(0.020, 0.0, [&] { fired.push_back("20ms"); });
    queue.scheduleTimer(0.005, 0.0, [&] { fired.push_back("5ms"); });
    TimerId cancelled = queue.scheduleTimer(0.010, 0.0, [&] { fired.push_back("cancelled"); });
    TimerId late = queue.scheduleTimer(0.030, 0.0, [&] { done.set_value(fired); });
    EXPECT_NE(cancelled, 0u);
    EXPECT_NE(cancelled, late);
    queue.cancelTimer(cancelled);
    queue.cancelTimer(cancelled);
    queue.cancelTimer(12345); // unknown ids are ignored

    auto future = done.get_future();
    ASSERT_EQ(future.wait_for(kPatience), std::future_status::ready);
    EXPECT_EQ(future.get(), (std::vector<std::string>{"5ms", "20ms"}));
}

TEST(RunLoopMainQueue, RunServesTheCallingThreadUntilStoppedAndKeepsLaterWork) {
    RunLoopMainQueue queue;
    std::promise<bool> servedOnHostThread;
    std::thread host([&] { queue.run(); });
    queue.async([&] { servedOnHostThread.set_value(queue.isCurrent()); });
    auto future = servedOnHostThread.get_future();
    ASSERT_EQ(future.wait_for(kPatience), std::future_status::ready);
    EXPECT_TRUE(future.get());
    queue.stop();
    host.join(); // run() returned

    // Work posted while nobody serves waits for the next run(), here on the test thread.
    std::vector<int> seen;
    queue.async([&] { seen.push_back(1); });
    queue.async([&] {
        seen.push_back(2);
        queue.stop();
    });
    queue.run();
    EXPECT_EQ(seen, (std::vector<int>{1, 2}));
    EXPECT_FALSE(queue.isCurrent());
}

TEST(RunLoopMainQueue, RunPendingRunsWhatIsDueNowOnTheCallersThreadAndReturns) {
    RunLoopMainQueue queue;
    std::vector<std::string> seen;
    queue.async([&] {
        seen.push_back(queue.isCurrent() ? "work on caller" : "work elsewhere");
        queue.async([&] { seen.push_back("posted meanwhile"); });
    });
    queue.scheduleTimer(0.0, 0.0, [&] { seen.push_back("due timer"); });
    queue.scheduleTimer(3600.0, 0.0, [&] { seen.push_back("later timer"); });
    // A timer of 0 seconds is due at once: the steady clock never goes back.
    EXPECT_EQ(queue.runPending(), 2);
    EXPECT_EQ(seen, (std::vector<std::string>{"due timer", "work on caller"}));
    EXPECT_FALSE(queue.isCurrent());
    EXPECT_EQ(queue.runPending(), 1) << "work posted by work waits for the next call";
    EXPECT_EQ(queue.runPending(), 0);

    // While another thread serves the queue, runPending leaves the work to it.
    std::promise<void> started;
    std::promise<void> release;
    std::thread host([&] { queue.run(); });
    queue.async([&] {
        started.set_value();
        release.get_future().wait();
    });
    started.get_future().wait();
    queue.async([&] { seen.push_back("served by run"); });
    EXPECT_EQ(queue.runPending(), 0);
    release.set_value();
    queue.async([&] { queue.stop(); });
    host.join();
    EXPECT_EQ(seen.back(), "served by run");
}

} // namespace
} // namespace bvgeo
