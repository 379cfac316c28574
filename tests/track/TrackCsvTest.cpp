#include "track/TrackReader.hpp"

#include <gtest/gtest.h>

namespace bvgeo {
namespace {

constexpr double k20140510T072055Z = 1399706455;

TEST(TrackReadCsv, ReadsNamedColumnsInAnyOrderWithQuotesAndEitherTimeForm) {
    const char* csv = "speed,\"Longitude\",LAT,\"note\",Timestamp\r\n"
                      "3.5,0.731330,51.376730,\"start, at the gate\",2014-05-10T07:20:55Z\r\n"
                      "\r\n"
                      "3.6,\" 0.731334 \",51.376757,\"she said \"\"go\"\"\",1399706456.5\r\n"
                      "3.7,-0.5,-51.5,,2014-05-10 09:20:57+02:00\r\n";
    const auto result = readTrack(csv, "run.csv");
    ASSERT_TRUE(result.ok) << result.error;
    EXPECT_EQ(result.format, TrackFormat::Csv);
    ASSERT_EQ(result.fixes.size(), 3u);
    EXPECT_DOUBLE_EQ(result.fixes[0].latitude, 51.376730);
    EXPECT_DOUBLE_EQ(result.fixes[0].longitude, 0.731330);
    EXPECT_DOUBLE_EQ(result.fixes[0].timestamp, k20140510T072055Z);
    EXPECT_EQ(result.fixes[1].line, 4u);
    EXPECT_DOUBLE_EQ(result.fixes[1].longitude, 0.731334);
    EXPECT_DOUBLE_EQ(result.fixes[1].timestamp, k20140510T072055Z + 1.5);
    EXPECT_DOUBLE_EQ(result.fixes[2].latitude, -51.5);
    EXPECT_DOUBLE_EQ(result.fixes[2].timestamp, k20140510T072055Z + 2);
    EXPECT_TRUE(result.warnings.empty());
}

TEST(TrackReadCsv, SkipsAndCountsRowsThatCannotPlay) {
    const char* csv = "time,lat,lng\n"
                      "1399706455,51.1,0.1\n"
                      "1399706456,51.1\n"              // a field short
                      "1399706456,51.1,0.1,extra\n"    // a field too many
                      "1399706456,fifty-one,0.1\n"
                      "1399706456,\"51.1,0.1\n"        // open quote
                      "1399706456,nan,0.1\n"
                      ",51.1,0.1\n"
                      "soon,51.1,0.1\n"
                      "-5,51.1,0.1\n"
                      "1399706455,51.1,0.1\n"
                      "1399706457,51.2,0.2\n";
    const auto result = readTrack(csv, "run.csv");
    ASSERT_TRUE(result.ok) << result.error;
    ASSERT_EQ(result.fixes.size(), 2u);
    EXPECT_EQ(result.fixes[1].line, 12u);
    EXPECT_EQ(result.skippedBadCoordinates, 5u);
    EXPECT_EQ(result.skippedNoTime, 1u);
    EXPECT_EQ(result.skippedBadTime, 2u);
    EXPECT_EQ(result.skippedOutOfOrder, 1u);
    ASSERT_EQ(result.warnings.size(), 4u);
    EXPECT_EQ(result.warnings[0], "run.csv: 1 fix without a time skipped (first on line 8)");
}

TEST(TrackReadCsv, MissingColumnsFailNamingThem) {
    const auto noLongitude = readTrack("time,latitude,altitude\n1399706455,51.1,3\n", "run.csv");
    EXPECT_FALSE(noLongitude.ok);
    EXPECT_EQ(noLongitude.error, "run.csv:1: the header has no column lon (or lng, longitude)");

    const auto onlyTime = readTrack("\n\ntimestamp,x,y\n1399706455,51.1,3\n", "xy.csv");
    EXPECT_FALSE(onlyTime.ok);
    EXPECT_EQ(onlyTime.error, "xy.csv:3: the header has no column lat (or latitude), lon (or lng, longitude)");

    const auto headerOnly = readTrack("time,lat,lon\n", "empty.csv");
    EXPECT_FALSE(headerOnly.ok);
    EXPECT_NE(headerOnly.error.find("no usable fixes"), std::string::npos) << headerOnly.error;
}

} // namespace
} // namespace bvgeo
