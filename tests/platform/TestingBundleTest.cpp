#include "platform/SharedInstance.hpp"

#include <bvgeo/platform/Platform.hpp>
#include <bvgeo/testing/TestPlatform.hpp>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace bvgeo::testing {
namespace {

TEST(ManualMainQueue, TimersFireOnlyOnceDueAndInDueOrder) {
    auto clock = std::make_shared<ManualClock>(1000.0);
    ManualMainQueue queue(clock);
    std::vector<std::string> fired;
    queue.scheduleTimer(10, 5, [&] { fired.push_back("10"); });
    queue.scheduleTimer(5, 0, [&] { fired.push_back("5a"); });
    queue.scheduleTimer(5, 0, [&] { fired.push_back("5b"); });
    auto cancelled = queue.scheduleTimer(1, 0, [&] { fired.push_back("cancelled"); });
    queue.cancelTimer(cancelled);
    EXPECT_EQ(queue.nextTimerDue(), 1005.0);

    clock->set(1004.999);
    EXPECT_EQ(queue.fireDueTimers(), 0) << "tolerance never makes a timer early";
    clock->set(1020.0);
    EXPECT_EQ(queue.fireDueTimers(), 3);
    EXPECT_EQ(fired, (std::vector<std::string>{"5a", "5b", "10"}));
    EXPECT_EQ(queue.scheduledTimers(), 0u);
    EXPECT_EQ(queue.nextTimerDue(), std::nullopt);
}

TEST(ManualMainQueue, PumpingRunsWorkPostedMeanwhileOnTheTestThreadAsMain) {
    ManualMainQueue queue(std::make_shared<ManualClock>());
    std::vector<int> seen;
    bool current = false;
    queue.async([&] {
        seen.push_back(1);
        current = queue.isCurrent();
        queue.async([&] { seen.push_back(3); });
    });
    queue.async([&] { seen.push_back(2); });
    EXPECT_FALSE(queue.isCurrent());
    EXPECT_EQ(queue.pendingWork(), 2u);
    EXPECT_EQ(queue.runPending(), 3);
    EXPECT_EQ(seen, (std::vector<int>{1, 2, 3}));
    EXPECT_TRUE(current);
    EXPECT_FALSE(queue.isCurrent());
}

TEST(ManualDispatchQueues, PumpedQueuesRunUntilEmptyAndKnowWhichIsCurrent) {
    ManualDispatchQueues factory;
    auto a = factory.makeSerialQueue("A");
    auto b = factory.makeSerialQueue("B");
    std::vector<std::string> seen;
    a->async([&] {
        seen.push_back(std::string("a:") + (a->isCurrent() && !b->isCurrent() ? "current" : "wrong"));
        b->async([&] {
            seen.push_back(std::string("b:") + (b->isCurrent() && !a->isCurrent() ? "current" : "wrong"));
            a->async([&] { seen.push_back("a again"); });
        });
    });
    EXPECT_TRUE(seen.empty()) << "nothing runs before pumping";
    EXPECT_EQ(factory.runPending(), 3);
    EXPECT_EQ(seen, (std::vector<std::string>{"a:current", "b:current", "a again"}));
    EXPECT_FALSE(a->isCurrent());
    EXPECT_EQ(factory.labels(), (std::vector<std::string>{"A", "B"}));
}

TEST(TestPlatform, AdvanceFiresTimersStartedByTimersWithinTheWindow) {
    TestPlatform sim;
    const double start = sim.clock->currentTime();
    std::vector<double> firedAt;
    std::vector<std::string> work;
    sim.mainQueue->scheduleTimer(10, 1, [&] {
        firedAt.push_back(sim.clock->currentTime() - start);
        sim.mainQueue->scheduleTimer(5, 0, [&] {
            firedAt.push_back(sim.clock->currentTime() - start);
            sim.mainQueue->async([&] { work.push_back("after 15"); });
        });
    });
    sim.mainQueue->scheduleTimer(30, 0, [&] { firedAt.push_back(-1); });

    sim.advance(20);
    EXPECT_EQ(firedAt, (std::vector<double>{10, 15}));
    EXPECT_EQ(work, std::vector<std::string>{"after 15"});
    EXPECT_EQ(sim.clock->currentTime(), start + 20);
    sim.advance(10);
    EXPECT_EQ(firedAt.back(), -1);
}

TEST(TestPlatform, ThreadedQueuesAreIdleOnlyWhenTheirWorkAndItsMainQueueFollowUpsAreDone) {
    TestPlatform sim({.threadedQueues = true});
    auto queue = sim.dispatchQueues->makeSerialQueue("ProcessInsideFences");
    int hops = 0; // on the serial queue and the main queue in turn, never at once
    std::function<void()> hop = [&] {
        if (++hops >= 20) return;
        if (sim.mainQueue->isCurrent())
            queue->async(hop);
        else
            sim.mainQueue->async(hop);
    };
    queue->async(hop);
    sim.runUntilIdle();
    EXPECT_EQ(hops, 20);
}

TEST(TestPlatform, InstallFreshEmptiesSharedInstancesNewestFirstAndInstallsTheBundle) {
    struct Probe {
        std::vector<std::string>* log;
        std::string name;
        ~Probe() { log->push_back(name); }
    };
    std::vector<std::string> destroyed;
    SharedInstance<Probe> older, newer;
    older.get([&] { return std::unique_ptr<Probe>(new Probe{&destroyed, "older"}); });
    newer.get([&] { return std::unique_ptr<Probe>(new Probe{&destroyed, "newer"}); });

    TestPlatform sim;
    sim.installFresh();
    EXPECT_EQ(destroyed, (std::vector<std::string>{"newer", "older"}));
    EXPECT_EQ(older.peek(), nullptr);
    EXPECT_EQ(platform().clock.get(), sim.clock.get());
    EXPECT_EQ(platform().files->documentsDirectory(), sim.documentsDirectory());

    TestPlatform other;
    Platform incomplete = other.bundle();
    incomplete.device = nullptr;
    EXPECT_FALSE(installPlatform(incomplete));
    EXPECT_EQ(platform().clock.get(), sim.clock.get()) << "a refused bundle changes nothing";
}

} // namespace
} // namespace bvgeo::testing
