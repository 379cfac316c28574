#include "request/ResolveHold.hpp"

#include <gtest/gtest.h>

namespace bvgeo {
namespace {

TEST(ResolveHold, AFailedLookupHoldsTheHostForDoublingTimesUpToAnHour) {
    const double t = 1'400'000'000;
    struct Case {
        std::optional<ResolveHold> previous;
        double seconds;
    };
    for (const auto& c : {Case{std::nullopt, 30}, Case{ResolveHold{t, 30}, 60}, Case{ResolveHold{t, 1800}, 3600},
                          Case{ResolveHold{t, 3600}, 3600}}) {
        const auto hold = holdAfterFailure(c.previous, t);
        EXPECT_EQ(hold.seconds, c.seconds);
        EXPECT_EQ(hold.until, t + c.seconds);
        EXPECT_TRUE(isHeldBack(hold, t + c.seconds - 1));
        EXPECT_FALSE(isHeldBack(hold, t + c.seconds));
    }
}

} // namespace
} // namespace bvgeo
