// What each track format says of a fix's quality reaches the fix, and what it
// cannot say stays unknown.
#include "track/TrackReader.hpp"

#include "support/Nmea.hpp"

#include <gtest/gtest.h>

#include <string>

namespace bvgeo {
namespace {

constexpr double k20260202T193737Z = 1770061057;

TEST(TrackQuality, CsvTakesTheUsualTimeHeadersAndQualityColumnsAndSkipsNoFixRows) {
    // As gpsd-based loggers write it: the header says timestamp_utc, times carry
    // fractions and zones, rows may repeat, and quality columns may hold garbage.
    const char* csv = "timestamp_utc,hostname,lat,lon,speed_mps,mode,sats_used,hdop,accuracy\n"
                      "2026-02-02T19:37:37.000Z,east,60.37,25.24,0.5,3,6,1.4,\n"
                      "2026-02-02T21:37:38.250+02:00,east,60.37,25.24,fast,2,3,99.9,0\n"
                      "2026-02-02T19:37:39Z,east,60.37,25.24,,1,0,,\n"
                      "2026-02-02T19:37:40Z,east,60.37,25.24,-1,3d,x,nan,7.5\n";
    const auto result = readTrack(csv, "east.csv");
    ASSERT_TRUE(result.ok) << result.error;
    ASSERT_EQ(result.fixes.size(), 3u);
    const auto& first = result.fixes[0].quality;
    EXPECT_DOUBLE_EQ(result.fixes[0].timestamp, k20260202T193737Z);
    EXPECT_EQ(first.mode, FixMode::ThreeD);
    EXPECT_EQ(first.satellites, 6);
    EXPECT_DOUBLE_EQ(first.hdop, 1.4);
    EXPECT_DOUBLE_EQ(first.speed, 0.5);
    EXPECT_LT(first.accuracy, 0.0) << "an empty field says nothing";
    const auto& second = result.fixes[1].quality;
    EXPECT_DOUBLE_EQ(result.fixes[1].timestamp, k20260202T193737Z + 1.25);
    EXPECT_EQ(second.mode, FixMode::TwoD);
    EXPECT_DOUBLE_EQ(second.hdop, 99.9) << "a receiver's 'no idea' is kept for the rules to judge";
    EXPECT_LT(second.speed, 0.0);
    EXPECT_LT(second.accuracy, 0.0) << "zero metres is no accuracy anyone has";
    const auto& fourth = result.fixes[2].quality;
    EXPECT_DOUBLE_EQ(fourth.accuracy, 7.5);
    EXPECT_EQ(fourth.mode, FixMode::ThreeD);
    EXPECT_LT(fourth.speed, 0.0);
    EXPECT_LT(fourth.hdop, 0.0);
    EXPECT_EQ(fourth.satellites, -1);
    EXPECT_EQ(result.skippedNoFix, 1u);

    for (const char* header : {"time", "timestamp", "time_utc", "datetime"}) {
        const auto plain = readTrack(std::string(header) + ",lat,lon\n2026-02-02 19:37:37,1,2\n", "plain.csv");
        ASSERT_TRUE(plain.ok) << header << ": " << plain.error;
        EXPECT_EQ(plain.fixes[0].quality.mode, FixMode::Unknown);
        EXPECT_LT(plain.fixes[0].quality.accuracy, 0.0);
    }
}

TEST(TrackQuality, NmeaGathersOneInstantsQualityFromItsSentences) {
    const auto line = [](const std::string& body) { return testing::nmeaSentence(body) + "\r\n"; };
    const std::string log =
        line("GPRMC,085411.00,A,5222.3215,N,00454.5778,E,1.0,251.34,030414,,,A") +
        line("GPGGA,085411.00,5222.3215,N,00454.5778,E,1,04,2.95,16.0,M,47.0,M,,") +
        line("GPGSA,A,2,16,23,13,,,,,,,,,,3.11,2.95,0.99") +
        line("GPGST,085412.00,2.0,3.0,2.0,45.0,3.0,4.0,5.0") + // ahead of its instant's position
        line("GPRMC,085412.00,A,5222.3198,N,00454.5784,E,,251.34,030414,,,A") +
        line("GPGGA,085412.00,5222.3198,N,00454.5784,E,1,09,0.0,16.0,M,47.0,M,,") +
        line("GPGGA,085413.00,5222.3198,N,00454.5784,E,1,09,1.1,16.0,M,47.0,M,,") +
        line("GPGST,085413.00,2.0,3.0,2.0,45.0,,4.0,5.0");
    const auto result = readTrack(log, "boat.nmea");
    ASSERT_TRUE(result.ok) << result.error;
    ASSERT_EQ(result.fixes.size(), 3u);
    const auto& first = result.fixes[0].quality;
    EXPECT_NEAR(first.speed, 1852.0 / 3600.0, 1e-12) << "RMC's knots";
    EXPECT_DOUBLE_EQ(first.hdop, 2.95);
    EXPECT_EQ(first.satellites, 4);
    EXPECT_EQ(first.mode, FixMode::TwoD) << "GSA has no time: it speaks for its cycle's fix";
    EXPECT_LT(first.accuracy, 0.0);
    const auto& second = result.fixes[1].quality;
    EXPECT_DOUBLE_EQ(second.accuracy, 5.0) << "GST: the latitude and longitude errors combined";
    EXPECT_LT(second.speed, 0.0);
    EXPECT_LT(second.hdop, 0.0) << "an HDOP of 0 says nothing";
    EXPECT_EQ(second.satellites, 9);
    EXPECT_EQ(second.mode, FixMode::Unknown) << "no GSA spoke for this instant";
    EXPECT_LT(result.fixes[2].quality.accuracy, 0.0) << "a GST missing an error says nothing";
}

TEST(TrackQuality, GpxReadsDopFixSatellitesSpeedAndAccuracyExtensions) {
    const char* gpx = R"(<?xml version="1.0"?>
<gpx version="1.1" xmlns="http://www.topografix.com/GPX/1/1" xmlns:x="urn:example">
 <trk><trkseg>
  <trkpt lat="51.0" lon="0.1"><time>2014-05-10T07:20:55Z</time><fix>2d</fix><sat>5</sat><hdop>3.5</hdop></trkpt>
  <trkpt lat="51.0" lon="0.1"><time>2014-05-10T07:20:56Z</time><fix>none</fix></trkpt>
  <trkpt lat="51.0" lon="0.1"><time>2014-05-10T07:20:57Z</time><pdop>4.0</pdop>
   <extensions><x:TrackPointExtension><x:speed>2.5</x:speed><x:accuracy>12</x:accuracy></x:TrackPointExtension></extensions>
  </trkpt>
 </trkseg></trk>
</gpx>)";
    const auto result = readTrack(gpx, "walk.gpx");
    ASSERT_TRUE(result.ok) << result.error;
    ASSERT_EQ(result.fixes.size(), 2u);
    EXPECT_EQ(result.skippedNoFix, 1u);
    const auto& first = result.fixes[0].quality;
    EXPECT_EQ(first.mode, FixMode::TwoD);
    EXPECT_EQ(first.satellites, 5);
    EXPECT_DOUBLE_EQ(first.hdop, 3.5);
    const auto& second = result.fixes[1].quality;
    EXPECT_DOUBLE_EQ(second.hdop, 4.0) << "PDOP stands in for a missing HDOP";
    EXPECT_DOUBLE_EQ(second.speed, 2.5);
    EXPECT_DOUBLE_EQ(second.accuracy, 12.0);
}

} // namespace
} // namespace bvgeo
