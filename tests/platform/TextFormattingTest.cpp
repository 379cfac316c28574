#include "platform/NumberText.hpp"

#include <bvgeo/platform/DateFormatter.hpp>
#include <bvgeo/testing/FixedOffsetDateFormatter.hpp>

#include <gtest/gtest.h>

#include <ctime>
#include <limits>

namespace bvgeo::testing {
namespace {

TEST(DoubleText, WritesShortestRoundTripTextWithWholeNumberAndExponentRules) {
    const struct {
        double value;
        const char* text;
    } cases[] = {
        {-23.5, "-23.5"},
        {-46.625, "-46.625"},
        {0.0, "0.0"},
        {-0.0, "-0.0"},
        {51.0, "51.0"},
        {1e-05, "1e-05"},
        {1.5e-07, "1.5e-07"},
        {0.0001, "0.0001"},
        {123.456789012345, "123.456789012345"},
        {0.1, "0.1"},
        {9007199254740991.0, "9007199254740991.0"}, // 2^53 - 1: still fixed
        {9007199254740992.0, "9.007199254740992e+15"},
        {1e16, "1e+16"},
        {-1e300, "-1e+300"},
        {std::numeric_limits<double>::quiet_NaN(), "nan"},
        {std::numeric_limits<double>::infinity(), "inf"},
        {-std::numeric_limits<double>::infinity(), "-inf"},
    };
    for (const auto& c : cases) EXPECT_EQ(doubleText(c.value), c.text) << c.text;
}

std::tm sampleTime() {
    std::tm t{};
    t.tm_year = 2017 - 1900;
    t.tm_mon = 6; // July
    t.tm_mday = 4;
    t.tm_hour = 9;
    t.tm_min = 5;
    t.tm_sec = 3;
    return t;
}

TEST(DatePattern, ExpandsFieldLettersAndCopiesQuotedText) {
    const auto t = sampleTime();
    EXPECT_EQ(formatDatePattern(t, 7, "yyyy-MM-dd HH:mm:ss.SSS"), "2017-07-04 09:05:03.007");
    EXPECT_EQ(formatDatePattern(t, 250, "dd/MM/yy"), "04/07/17");
    EXPECT_EQ(formatDatePattern(t, 0, "yyyy-MM-dd'T'HH:mm:ss"), "2017-07-04T09:05:03");
    EXPECT_EQ(formatDatePattern(t, 0, "'at' HH 'o''clock'"), "at 09 o'clock");
    EXPECT_EQ(formatDatePattern(t, 0, "HH''mm"), "09'05");
    EXPECT_EQ(formatDatePattern(t, 0, "'yyyy MM' yyyy"), "yyyy MM 2017");
    EXPECT_EQ(formatDatePattern(t, 0, "y M d"), "y M d") << "single letters are not fields";
    EXPECT_EQ(formatDatePattern(t, 0, "'unterminated HH"), "unterminated HH");
}

TEST(DatePattern, FixedOffsetFormatterAppliesItsZoneAndRoundsToMilliseconds) {
    // 1,500,000,000 is 2017-07-14 02:40:00 UTC.
    EXPECT_EQ(FixedOffsetDateFormatter(0).format(1'500'000'000.25, "yyyy-MM-dd HH:mm:ss.SSS"),
              "2017-07-14 02:40:00.250");
    EXPECT_EQ(FixedOffsetDateFormatter(-3 * 3600).format(1'500'000'000, "dd HH:mm"), "13 23:40");
    EXPECT_EQ(FixedOffsetDateFormatter(0).format(1'500'000'000.9996, "ss.SSS"), "01.000");
}

} // namespace
} // namespace bvgeo::testing
