#include "trigger/TriggerRules.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace bvgeo {
namespace {

using ::testing::ElementsAre;

TEST(TriggerRules, LingerIsPacedAndEndsAtMaxLingerTime) {
    const std::int64_t t0 = 1'500'000'000;
    EXPECT_FALSE(isLingerDue(t0 + 299, t0, t0, 300, 7200));
    EXPECT_TRUE(isLingerDue(t0 + 300, t0, t0, 300, 7200));          // exactly lingerTime
    EXPECT_FALSE(isLingerDue(t0 + 599, t0, t0 + 300, 300, 7200));   // paced from the last linger
    EXPECT_TRUE(isLingerDue(t0 + 7199, t0, t0 + 6000, 300, 7200));
    EXPECT_FALSE(isLingerDue(t0 + 7200, t0, t0 + 6000, 300, 7200)); // exactly maxLingerTime
}

TEST(TriggerRules, InsideFencesComeFirstThenExitsInStayOrder) {
    using T = TriggerType;
    const std::int64_t now = 10'000;
    std::vector<ActiveStay> stays = {{"gone1", 0, 0}, {"b", now - 400, now - 400}, {"gone2", 0, 0}, {"c", now, now}};
    auto steps = planTriggers({"a", "b", "c"}, stays, now, 300, 7200);
    EXPECT_THAT(steps, ElementsAre(TriggerStep{T::Enter, 0}, TriggerStep{T::Linger, 1}, TriggerStep{T::Exit, 0},
                                   TriggerStep{T::Exit, 2}));

    EXPECT_TRUE(planTriggers({}, {}, now, 300, 7200).empty());
    // A fence listed twice matches its stay once; the second listing enters.
    EXPECT_THAT(planTriggers({"c", "c"}, {{"c", now, now}}, now, 300, 7200), ElementsAre(TriggerStep{T::Enter, 1}));
}

} // namespace
} // namespace bvgeo
