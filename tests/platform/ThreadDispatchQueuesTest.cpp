#include "platform/linux/ThreadDispatchQueues.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>
#include <utility>
#include <vector>

namespace bvgeo {
namespace {

TEST(ThreadDispatchQueues, SerialQueueKeepsEachProducersOrderAndRunsOneItemAtATime) {
    ThreadDispatchQueues factory;
    auto queue = factory.makeSerialQueue("ProcessInsideFences");
    EXPECT_EQ(queue->label(), "ProcessInsideFences");

    constexpr int kProducers = 4, kItems = 500;
    std::vector<std::pair<int, int>> seen; // queue thread only
    int running = 0, overlaps = 0, offQueue = 0;
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p)
        producers.emplace_back([&, p] {
            for (int i = 0; i < kItems; ++i)
                queue->async([&, p, i] {
                    if (++running != 1) ++overlaps;
                    if (!queue->isCurrent()) ++offQueue;
                    seen.emplace_back(p, i);
                    --running;
                });
        });
    for (auto& t : producers) t.join();

    std::promise<std::vector<std::pair<int, int>>> done;
    queue->async([&] { done.set_value(seen); });
    auto future = done.get_future();
    ASSERT_EQ(future.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    auto order = future.get();

    ASSERT_EQ(order.size(), static_cast<std::size_t>(kProducers * kItems));
    std::vector<int> next(kProducers, 0);
    for (auto [p, i] : order) EXPECT_EQ(i, next[p]++) << "producer " << p;
    EXPECT_EQ(overlaps, 0);
    EXPECT_EQ(offQueue, 0);
    EXPECT_FALSE(queue->isCurrent());
}

TEST(ThreadDispatchQueues, DestroyingAQueueFinishesItsWorkFirst) {
    ThreadDispatchQueues factory;
    int ran = 0;
    {
        auto queue = factory.makeSerialQueue("drain");
        for (int i = 0; i < 100; ++i) queue->async([&] { ++ran; });
    }
    EXPECT_EQ(ran, 100);

    // The last reference may be dropped by the queue's own work.
    std::promise<void> released;
    {
        auto queue = factory.makeSerialQueue("self");
        queue->async([queue, &released]() mutable {
            queue.reset();
            released.set_value();
        });
    }
    EXPECT_EQ(released.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
}

} // namespace
} // namespace bvgeo
