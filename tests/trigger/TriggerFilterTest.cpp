#include "trigger/TriggerFilter.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <optional>

namespace bvgeo {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

TEST(TriggerFilter, FixesAreJudgedByAccuracyModeAndSpeedAndUnknownIsNeverTakenForPerfect) {
    const TriggerFilterOptions options; // 100 m, 100 m/s, 5 m per HDOP, no 2D
    struct Case {
        double accuracy, hdop;
        FixMode mode;
        int satellites;
        std::optional<double> fromLast;
        std::int64_t since;
        int inRow;
        std::optional<double> counted;
        FixRejection expected;
    };
    const Case cases[] = {
        {5, -1, FixMode::ThreeD, 8, std::nullopt, 0, 0, 5.0, FixRejection::None},
        {kNaN, -1, FixMode::Unknown, -1, std::nullopt, 0, 0, std::nullopt, FixRejection::None},
        {0, -1, FixMode::Unknown, -1, std::nullopt, 0, 0, std::nullopt, FixRejection::None},   // 0 m: unknown
        {-3, 2, FixMode::Unknown, -1, std::nullopt, 0, 0, 10.0, FixRejection::None},           // HDOP x 5 m
        {1e9, -1, FixMode::ThreeD, 8, std::nullopt, 0, 0, 1e9, FixRejection::Accuracy},
        {kInf, -1, FixMode::ThreeD, 8, std::nullopt, 0, 0, kInf, FixRejection::Accuracy},
        {-1, 99.9, FixMode::ThreeD, 8, std::nullopt, 0, 0, 499.5, FixRejection::Accuracy},     // "no idea"
        {5, -1, FixMode::TwoD, 8, std::nullopt, 0, 0, 5.0, FixRejection::TwoDimensional},
        {5, -1, FixMode::Unknown, 3, std::nullopt, 0, 0, 5.0, FixRejection::TwoDimensional},  // 3 satellites
        {5, -1, FixMode::NoFix, 8, std::nullopt, 0, 0, 5.0, FixRejection::NoFix},
        {5, -1, FixMode::ThreeD, 8, 1.0e6, 60, 0, 5.0, FixRejection::Speed},                   // 1,000 km in a minute
        {5, -1, FixMode::ThreeD, 8, 1.0e6, 60, 2, 5.0, FixRejection::None},                    // the third: believed
        {5, -1, FixMode::ThreeD, 8, 1.0e6, 10'000, 0, 5.0, FixRejection::None},                // time made it possible
        {5, -1, FixMode::ThreeD, 8, 90.0, 0, 0, 5.0, FixRejection::None},                      // same second: 1 s
        {5, -1, FixMode::ThreeD, 8, 150.0, -5, 0, 5.0, FixRejection::Speed},                   // clock went back
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << "accuracy " << c.accuracy << " hdop " << c.hdop << " mode "
                                          << static_cast<int>(c.mode) << " from last " << c.fromLast.value_or(-1));
        const auto counted = knownAccuracy(c.accuracy, c.hdop, options);
        EXPECT_EQ(counted, c.counted);
        EXPECT_EQ(judgeFix(counted, c.mode, c.satellites, c.fromLast, c.since, c.inRow, options), c.expected);
    }
    TriggerFilterOptions twoD;
    twoD.useTwoDimensionalFixes = true;
    EXPECT_EQ(judgeFix(5.0, FixMode::TwoD, 3, std::nullopt, 0, 0, twoD), FixRejection::None);
}

TEST(TriggerFilter, MarginsCountTheCappedAccuracyAndAssumeOneWhenUnknown) {
    const TriggerFilterOptions options; // buffer 30, cap 50, assumed 10
    EXPECT_EQ(marginsFor(std::nullopt, options), (FenceMargins{5, 30}));
    EXPECT_EQ(marginsFor(8.0, options), (FenceMargins{4, 30}));
    EXPECT_EQ(marginsFor(40.0, options), (FenceMargins{20, 40}));
    EXPECT_EQ(marginsFor(1e9, options), (FenceMargins{25, 50})) << "a wild accuracy cannot hold an exit for ever";
    // A 50 m fence stays enterable at a phone's indoor accuracy (65 m).
    EXPECT_LT(marginsFor(65.0, options).enterDepth, 50.0);
}

TEST(TriggerFilter, EachFixReadsAFenceAsStayingChangingOrHeldByAMargin) {
    const FenceMargins margins{5, 40};
    const double buffer = 30;
    using R = FenceReading;
    struct Case {
        bool active;
        double rimDistance;
        R expected;
    };
    const Case cases[] = {
        {true, -1, R::Stays},         {true, 0, R::HeldByBuffer},   {true, 29.9, R::HeldByBuffer},
        {true, 35, R::HeldByAccuracy}, {true, 40, R::Changes},        {true, kInf, R::Changes},
        {false, 0, R::Stays},          {false, kInf, R::Stays},       {false, -4.9, R::HeldByAccuracy},
        {false, -5, R::Changes},       {false, -500, R::Changes},     {false, kNaN, R::Stays},
    };
    for (const Case& c : cases)
        EXPECT_EQ(readFence(c.active, c.rimDistance, margins, buffer), c.expected)
            << (c.active ? "active" : "inactive") << " at " << c.rimDistance << " m";
}

TEST(TriggerFilter, AChangeNeedsFixesInARowATimeSpanAndTheDwell) {
    TriggerFilterOptions options; // 3 fixes over 10 s, dwell 120 s
    const std::int64_t t0 = 1'500'000'000;
    FenceFilterState state;
    EXPECT_FALSE(confirmChange(state, true, t0, FenceFilterState::kNever, options));
    EXPECT_FALSE(confirmChange(state, true, t0 + 2, FenceFilterState::kNever, options));
    EXPECT_FALSE(confirmChange(state, true, t0 + 9, FenceFilterState::kNever, options)) << "3 fixes, 9 s";
    EXPECT_TRUE(confirmChange(state, true, t0 + 10, FenceFilterState::kNever, options));
    EXPECT_FALSE(state.waiting());

    // A fix back on the old side starts the count over.
    EXPECT_FALSE(confirmChange(state, true, t0 + 200, t0, options));
    EXPECT_FALSE(confirmChange(state, false, t0 + 201, t0, options));
    EXPECT_FALSE(state.waiting());
    EXPECT_FALSE(confirmChange(state, true, t0 + 202, t0, options));
    EXPECT_FALSE(confirmChange(state, true, t0 + 205, t0, options));
    EXPECT_TRUE(confirmChange(state, true, t0 + 212, t0, options));

    // Within the dwell the change waits, however many fixes agree.
    for (std::int64_t t = t0 + 20; t < t0 + 120; t += 5) EXPECT_FALSE(confirmChange(state, true, t, t0 + 10, options));
    EXPECT_TRUE(confirmChange(state, true, t0 + 130, t0 + 10, options));
}

} // namespace
} // namespace bvgeo
