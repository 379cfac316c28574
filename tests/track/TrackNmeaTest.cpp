#include "track/TrackReader.hpp"

#include "support/Nmea.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>

namespace bvgeo {
namespace {

constexpr double k20230601 = 1685577600; // 2023-06-01T00:00:00Z
constexpr double kDay = 86400;

// One line of a log, so cases can be written as plain text.
std::string nmea(const std::string& body) { return testing::nmeaSentence(body) + "\r\n"; }

TrackReadOptions onDate(const char* date) {
    TrackReadOptions options;
    options.date = date;
    return options;
}

TEST(TrackReadNmea, OneFixPerInstantFromRmcGgaAndGllOfAnyTalker) {
    const std::string log = nmea("GNGGA,095559.00,6005.0710,N,02332.3460,E,1,08,0.9,5.0,M,17.0,M,,") +
                            nmea("GNRMC,095559.00,A,6005.0710,N,02332.3460,E,5.8,224.4,010623,,,A") +
                            nmea("GPGLL,6005.0710,N,02332.3460,E,095559.00,A,A") +
                            nmea("GLGGA,095600.50,3352.1234,S,07015.5000,W,2,08,0.9,5.0,M,17.0,M,,") +
                            nmea("IIDBT,034.25,f,010.44,M,005.64,F") + nmea("GPGSV,,,,,,,,,,,,,,,,,,") +
                            "!AIVDM,1,1,,A,13aEOK?P00PD2wVMdLDRhgvL289?,0*26\r\n";
    const auto result = readTrack(log, "sail.nmea");
    ASSERT_TRUE(result.ok) << result.error;
    EXPECT_EQ(result.format, TrackFormat::Nmea);
    ASSERT_EQ(result.fixes.size(), 2u);
    EXPECT_DOUBLE_EQ(result.fixes[0].latitude, 60 + 5.071 / 60);
    EXPECT_DOUBLE_EQ(result.fixes[0].longitude, 23 + 32.346 / 60);
    EXPECT_DOUBLE_EQ(result.fixes[0].timestamp, k20230601 + 9 * 3600 + 55 * 60 + 59)
        << "the GGA before the first RMC takes the RMC's date";
    EXPECT_EQ(result.fixes[0].line, 1u) << "the first sentence of an instant is kept";
    EXPECT_DOUBLE_EQ(result.fixes[1].latitude, -(33 + 52.1234 / 60));
    EXPECT_DOUBLE_EQ(result.fixes[1].longitude, -(70 + 15.5 / 60));
    EXPECT_DOUBLE_EQ(result.fixes[1].timestamp, k20230601 + 9 * 3600 + 56 * 60 + 0.5);
    EXPECT_TRUE(result.warnings.empty()) << "merged instants and unknown sentences are not worth a warning";
}

TEST(TrackReadNmea, SkipsAndCountsBadChecksumsVoidFixesAndBadFields) {
    const std::string log =
        "$GPGLL,6005.071,N,02332.346,E,095559,A,D*43\r\n"        // as a real receiver wrote it
        "$GPGLL,6005.068,N,02332.341,E,095601,A,D*00\r\n"        // wrong checksum
        "$GPGLL,6005.068,N,02332.341,E,095601,A,D*4\r\n"         // cut checksum
        "$GPGLL,6005.066,N,02332.336,E,095603,A,D\r\n" +         // no checksum: accepted
        nmea("GPGLL,6005.066,N,02332.336,E,095604,V,N") +        // receiver: data not valid
        nmea("GPGGA,095605,6005.066,N,02332.336,E,0,00,,,M,,M,,") + // quality 0
        nmea("GPRMC,095606,V,6005.066,N,02332.336,E,,,010623,,") +
        nmea("GPGLL,6005.066,X,02332.336,E,095607,A,A") +        // no such hemisphere
        nmea("GPGLL,6075.000,N,02332.336,E,095608,A,A") +        // 75 minutes
        nmea("GPGLL,,,,,095609,A,A") +
        nmea("GPGLL,6005.066,N,02332.336,E,,A,A") +              // no time
        nmea("GPGLL,6005.066,N,02332.336,E,256100,A,A") +        // hour 25
        nmea("GPGLL,6005.066,N,02332.336,E,095602,A,A") +        // goes back
        nmea("GPGLL,6005.066,N,02332.336,E,095610,A,A");
    const auto result = readTrack(log, "sail.nmea", onDate("2023-06-01"));
    ASSERT_TRUE(result.ok) << result.error;
    ASSERT_EQ(result.fixes.size(), 3u);
    EXPECT_EQ(result.fixes[0].line, 1u);
    EXPECT_EQ(result.fixes[1].line, 4u);
    EXPECT_EQ(result.fixes[2].line, 14u);
    EXPECT_EQ(result.skippedBadChecksum, 2u);
    EXPECT_EQ(result.skippedNoFix, 3u);
    EXPECT_EQ(result.skippedBadCoordinates, 3u);
    EXPECT_EQ(result.skippedNoTime, 1u);
    EXPECT_EQ(result.skippedBadTime, 1u);
    EXPECT_EQ(result.skippedOutOfOrder, 1u);
    EXPECT_EQ(result.warnings.size(), 6u);
    EXPECT_NE(std::find(result.warnings.begin(), result.warnings.end(),
                        "sail.nmea: 2 sentences with a wrong checksum skipped (first on line 2)"),
              result.warnings.end());
}

TEST(TrackReadNmea, DateFollowsTheOptionThenTheLogAndRollsOverAtMidnight) {
    const std::string log = nmea("GPZDA,235958,,,,00,") +      // empty date fields: no date
                            nmea("GPGLL,6000.000,N,02300.000,E,235958,A,A") +
                            nmea("GPGLL,6000.000,N,02300.000,E,000001,A,A") + // past midnight
                            nmea("GPZDA,120000,15,01,2024,00,00") +
                            nmea("GPGLL,6000.000,N,02300.000,E,120000,A,A") +
                            nmea("GPRMC,120001,A,6000.000,N,02300.000,E,,,311299,,") + // back to 1999
                            nmea("GPGLL,6000.000,N,02300.000,E,120002,A,A");
    const auto result = readTrack(log, "sail.nmea", onDate("2023-06-01"));
    ASSERT_TRUE(result.ok) << result.error;
    ASSERT_EQ(result.fixes.size(), 3u) << "the 1999 fixes come before 2024 and are out of order";
    EXPECT_DOUBLE_EQ(result.fixes[0].timestamp, k20230601 + kDay - 2);
    EXPECT_DOUBLE_EQ(result.fixes[1].timestamp, k20230601 + kDay + 1);
    EXPECT_DOUBLE_EQ(result.fixes[2].timestamp, 1705320000); // 2024-01-15T12:00:00Z
    EXPECT_EQ(result.skippedOutOfOrder, 2u);

    const std::string dated = nmea("GPRMC,120001,A,6000.000,N,02300.000,E,,,311299,,");
    const auto nineties = readTrack(dated, "old.nmea");
    ASSERT_TRUE(nineties.ok) << nineties.error;
    EXPECT_DOUBLE_EQ(nineties.fixes[0].timestamp, 946641601); // 1999-12-31T12:00:01Z
}

TEST(TrackReadNmea, PositionsBeforeTheFirstDateAreDatedBackFromIt) {
    const std::string log = nmea("GPGGA,235959,6000.000,N,02300.000,E,1,08,0.9,5.0,M,17.0,M,,") +
                            nmea("GPGGA,000000,6000.000,N,02300.000,E,1,08,0.9,5.0,M,17.0,M,,") +
                            nmea("GPRMC,000001,A,6000.000,N,02300.000,E,,,020623,,");
    const auto result = readTrack(log, "night.nmea");
    ASSERT_TRUE(result.ok) << result.error;
    ASSERT_EQ(result.fixes.size(), 3u);
    EXPECT_DOUBLE_EQ(result.fixes[0].timestamp, k20230601 + kDay - 1);
    EXPECT_DOUBLE_EQ(result.fixes[1].timestamp, k20230601 + kDay);
    EXPECT_DOUBLE_EQ(result.fixes[2].timestamp, k20230601 + kDay + 1);
}

TEST(TrackReadNmea, UndatedLogNeedsTheDateFromTheUser) {
    const std::string log = nmea("GPZDA,095559,,,,00,") + nmea("GPGLL,6005.071,N,02332.346,E,095559,A,D");
    const auto undated = readTrack(log, "sail.nmea");
    EXPECT_FALSE(undated.ok);
    EXPECT_TRUE(undated.fixes.empty());
    EXPECT_NE(undated.error.find("sail.nmea: "), std::string::npos) << undated.error;
    EXPECT_NE(undated.error.find("--date YYYY-MM-DD"), std::string::npos) << undated.error;

    const auto badDate = readTrack(log, "sail.nmea", onDate("2023-13-01"));
    EXPECT_FALSE(badDate.ok);
    EXPECT_NE(badDate.error.find("2023-13-01"), std::string::npos) << badDate.error;
}

} // namespace
} // namespace bvgeo
