#include "track/TrackReader.hpp"

#include <gtest/gtest.h>

namespace bvgeo {
namespace {

constexpr double k20140510T072055Z = 1399706455;

TEST(TrackReadGpx, ReadsTrackPointsOfBothVersionsWithTimesAndLines) {
    const char* gpx11 = R"(<?xml version="1.0" encoding="UTF-8"?>
<gpx version="1.1" creator="test" xmlns="http://www.topografix.com/GPX/1/1">
  <trk><name>run</name><trkseg>
    <trkpt lon="0.731330" lat="51.376730">
      <ele>8</ele>
      <time>2014-05-10T07:20:55.000Z</time>
    </trkpt>
    <trkpt lat="51.376757" lon="0.731334"><time>2014-05-10T07:20:56.250Z</time></trkpt>
    <trkpt lat="-33.5" lon="-70.25"><time>2014-05-10T09:20:57+02:00</time>
      <extensions><time>1999-01-01T00:00:00Z</time></extensions></trkpt>
  </trkseg></trk>
</gpx>
)";
    const auto result = readTrack(gpx11, "run.gpx");
    ASSERT_TRUE(result.ok) << result.error;
    EXPECT_EQ(result.format, TrackFormat::Gpx);
    ASSERT_EQ(result.fixes.size(), 3u);
    EXPECT_DOUBLE_EQ(result.fixes[0].latitude, 51.376730);
    EXPECT_DOUBLE_EQ(result.fixes[0].longitude, 0.731330);
    EXPECT_DOUBLE_EQ(result.fixes[0].timestamp, k20140510T072055Z);
    EXPECT_EQ(result.fixes[0].line, 4u);
    EXPECT_DOUBLE_EQ(result.fixes[1].timestamp, k20140510T072055Z + 1.25);
    EXPECT_EQ(result.fixes[1].line, 8u);
    EXPECT_DOUBLE_EQ(result.fixes[2].latitude, -33.5);
    EXPECT_DOUBLE_EQ(result.fixes[2].timestamp, k20140510T072055Z + 2) << "offset +02:00 taken off";
    EXPECT_TRUE(result.warnings.empty());

    const char* gpx10 = R"(<gpx:gpx xmlns:gpx="http://www.topografix.com/GPX/1/0" version="1.0">
<gpx:trk><gpx:trkseg>
<gpx:trkpt lat="10" lon="20"><gpx:time>2014-05-10T07:20:55Z</gpx:time></gpx:trkpt>
</gpx:trkseg></gpx:trk></gpx:gpx>)";
    const auto old = readTrack(gpx10, "old.gpx");
    ASSERT_TRUE(old.ok) << old.error;
    ASSERT_EQ(old.fixes.size(), 1u);
    EXPECT_DOUBLE_EQ(old.fixes[0].timestamp, k20140510T072055Z);
}

TEST(TrackReadGpx, SkipsAndCountsPointsThatCannotPlay) {
    const char* gpx = R"(<gpx version="1.1">
<trk><trkseg>
<trkpt lat="1" lon="1"><time>2014-05-10T07:20:55Z</time></trkpt>
<trkpt lat="1" lon="1"></trkpt>
<trkpt lat="1" lon="1"><time>  </time></trkpt>
<trkpt lat="95" lon="1"><time>2014-05-10T07:21:00Z</time></trkpt>
<trkpt lat="1" lon="181"><time>2014-05-10T07:21:00Z</time></trkpt>
<trkpt lat="north" lon="1"><time>2014-05-10T07:21:00Z</time></trkpt>
<trkpt lon="1"><time>2014-05-10T07:21:00Z</time></trkpt>
<trkpt lat="1" lon="1"><time>yesterday</time></trkpt>
<trkpt lat="1" lon="1"><time>2014-02-30T07:21:00Z</time></trkpt>
<trkpt lat="1" lon="1"><time>1969-12-31T23:59:59Z</time></trkpt>
<trkpt lat="1" lon="1"><time>2014-05-12T07:21:00Z</time></trkpt>
<trkpt lat="1" lon="1"><time>2014-05-10T07:20:55Z</time></trkpt>
<trkpt lat="1" lon="1"><time>2014-05-10T07:20:50Z</time></trkpt>
<trkpt lat="2" lon="2"><time>2014-05-10T07:20:56Z</time></trkpt>
</trkseg></trk></gpx>)";
    TrackReadOptions options;
    options.now = k20140510T072055Z; // 12 May is more than a day ahead
    const auto result = readTrack(gpx, "bad.gpx", options);
    ASSERT_TRUE(result.ok) << result.error;
    ASSERT_EQ(result.fixes.size(), 2u);
    EXPECT_EQ(result.fixes[1].line, 16u);
    EXPECT_EQ(result.skippedNoTime, 2u);
    EXPECT_EQ(result.skippedBadCoordinates, 4u);
    EXPECT_EQ(result.skippedBadTime, 4u);
    EXPECT_EQ(result.skippedOutOfOrder, 2u) << "a repeated time is out of order outside NMEA";
    EXPECT_EQ(result.skippedBadChecksum, 0u);
    ASSERT_EQ(result.warnings.size(), 4u);
    EXPECT_EQ(result.warnings[0], "bad.gpx: 2 fixes without a time skipped (first on line 4)");
    EXPECT_EQ(result.warnings[1], "bad.gpx: 2 fixes not later than the fix before skipped (first on line 14)");
}

TEST(TrackReadGpx, BrokenXmlFailsWithTheLineInsteadOfPlayingHalf) {
    const char* truncated = "<gpx version=\"1.1\">\n<trk><trkseg>\n"
                            "<trkpt lat=\"1\" lon=\"1\"><time>2014-05-10T07:20:55Z</time></trkpt>\n"
                            "<trkpt lat=\"1\" lon=\"1\"><time>2014-05-10T07:2";
    const auto cut = readTrack(truncated, "cut.gpx");
    EXPECT_FALSE(cut.ok);
    EXPECT_TRUE(cut.fixes.empty());
    EXPECT_EQ(cut.error.rfind("cut.gpx:4: malformed GPX: ", 0), 0u) << cut.error;

    const auto mismatched = readTrack("<gpx>\n<trk>\n</trkseg>\n</gpx>", "tags.gpx");
    EXPECT_FALSE(mismatched.ok);
    EXPECT_EQ(mismatched.error, "tags.gpx:3: malformed GPX: mismatched tag");

    const auto empty = readTrack("<gpx version=\"1.1\"><trk/></gpx>", "empty.gpx");
    EXPECT_FALSE(empty.ok);
    EXPECT_NE(empty.error.find("empty.gpx: no usable fixes"), std::string::npos) << empty.error;
}

TEST(TrackReadGpx, RoutePointsAndWaypointsPlayOnlyWithoutATrack) {
    const char* withTrack = R"(<gpx>
<wpt lat="5" lon="5"><time>2014-05-10T06:00:00Z</time></wpt>
<trk><trkseg><trkpt lat="1" lon="1"><time>2014-05-10T07:20:55Z</time></trkpt></trkseg></trk>
</gpx>)";
    const auto track = readTrack(withTrack, "t.gpx");
    ASSERT_TRUE(track.ok) << track.error;
    ASSERT_EQ(track.fixes.size(), 1u);
    EXPECT_DOUBLE_EQ(track.fixes[0].latitude, 1);

    const char* routeOnly = R"(<gpx>
<rte><rtept lat="3" lon="3"/>
<rtept lat="4" lon="4"><time>2014-05-10T07:20:55Z</time></rtept></rte>
</gpx>)";
    const auto route = readTrack(routeOnly, "r.gpx");
    ASSERT_TRUE(route.ok) << route.error;
    ASSERT_EQ(route.fixes.size(), 1u);
    EXPECT_DOUBLE_EQ(route.fixes[0].latitude, 4);
    EXPECT_TRUE(route.warnings.empty()) << "untimed route points are plans, not skipped fixes";
}

} // namespace
} // namespace bvgeo
