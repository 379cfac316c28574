#include "track/TrackReader.hpp"

#include "support/TempDir.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace bvgeo {
namespace {

constexpr const char* kGpx = "<?xml version=\"1.0\"?>\n<!-- exported -->\n<gpx version=\"1.1\"><trk><trkseg>\n"
                             "<trkpt lat=\"1\" lon=\"2\"><time>2014-05-10T07:20:55Z</time></trkpt>\n"
                             "</trkseg></trk></gpx>\n";

TEST(TrackReadFiles, GoesByContentNotByName) {
    EXPECT_EQ(detectTrackFormat(kGpx), TrackFormat::Gpx);
    EXPECT_EQ(detectTrackFormat("\xEF\xBB\xBF<gpx:gpx xmlns:gpx=\"x\"/>"), TrackFormat::Gpx);
    EXPECT_EQ(detectTrackFormat("<?xml version=\"1.0\"?><kml><Placemark/></kml>"), std::nullopt);
    EXPECT_EQ(detectTrackFormat("<gpxdata/>"), std::nullopt);
    EXPECT_EQ(detectTrackFormat("\n$GPGLL,6005.071,N,02332.346,E,095559,A,D*43\n"), TrackFormat::Nmea);
    EXPECT_EQ(detectTrackFormat("32.346,E,095559,A,D*43\r\n!AIVDM,1,1,,A,13aE,0*26\r\n"), TrackFormat::Nmea)
        << "a log cut mid-sentence at its start";
    EXPECT_EQ(detectTrackFormat("\nLatitude,Longitude,Time\n51,0,1399706455\n"), TrackFormat::Csv);
    EXPECT_EQ(detectTrackFormat("name,lat\nx,1\n"), TrackFormat::Csv) << "to say which column is missing";
    EXPECT_EQ(detectTrackFormat("a,b,c\n1,2,3\n"), std::nullopt);
    EXPECT_EQ(detectTrackFormat(""), std::nullopt);

    const auto gpxNamedCsv = readTrack(kGpx, "track.csv");
    ASSERT_TRUE(gpxNamedCsv.ok) << gpxNamedCsv.error;
    EXPECT_EQ(gpxNamedCsv.format, TrackFormat::Gpx);
    EXPECT_EQ(gpxNamedCsv.fixes.size(), 1u);

    const auto unknown = readTrack("hello world\n", "notes.gpx");
    EXPECT_FALSE(unknown.ok);
    EXPECT_EQ(unknown.error.rfind("notes.gpx: not a track file", 0), 0u) << unknown.error;
}

TEST(TrackReadFiles, FileProblemsFailNamingThePath) {
    const testing::TempDir dir("bvgeo-track");
    const auto good = readTrackFile(dir.write("run.data", kGpx));
    ASSERT_TRUE(good.ok) << good.error;
    EXPECT_EQ(good.fixes.size(), 1u);

    const std::string missing = (dir / "nothing-here.gpx").string();
    const auto absent = readTrackFile(missing);
    EXPECT_FALSE(absent.ok);
    EXPECT_EQ(absent.error, missing + ": cannot open: No such file or directory");

    const auto directory = readTrackFile(dir.path().string());
    EXPECT_FALSE(directory.ok);
    EXPECT_EQ(directory.error, dir.path().string() + ": is a directory, not a track file");

    const auto empty = readTrackFile(dir.write("empty.gpx", ""));
    EXPECT_FALSE(empty.ok);
    EXPECT_NE(empty.error.find("empty.gpx: not a track file"), std::string::npos) << empty.error;
}

// The recorded NMEA log in examples/data read as a whole (the recorded GPX run is
// read whole by every Kent replay: ReplayTest, CliTest's demo).
TEST(TrackReadFiles, RecordedTracksReadInFull) {
    const std::filesystem::path finland = std::filesystem::path(BVGEO_TEST_EXAMPLES_DIR) / "gulf-of-finland-sail.nmea";
    ASSERT_TRUE(std::filesystem::exists(finland)) << finland;
    const auto undated = readTrackFile(finland.string());
    EXPECT_FALSE(undated.ok);
    EXPECT_NE(undated.error.find("--date"), std::string::npos) << undated.error;

    TrackReadOptions options;
    options.date = "2023-06-01";
    const auto sail = readTrackFile(finland.string(), options);
    ASSERT_TRUE(sail.ok) << sail.error;
    EXPECT_EQ(sail.format, TrackFormat::Nmea);
    ASSERT_EQ(sail.fixes.size(), 7250u);
    EXPECT_DOUBLE_EQ(sail.fixes.front().timestamp, 1685613359); // 2023-06-01T09:55:59Z
    EXPECT_DOUBLE_EQ(sail.fixes.front().latitude, 60 + 5.071 / 60);
    EXPECT_DOUBLE_EQ(sail.fixes.back().timestamp, 1685613359 + (14 - 9) * 3600 + (3 - 55) * 60 + (24 - 59));
    EXPECT_DOUBLE_EQ(sail.fixes.back().longitude, 23 + 23.941 / 60);
    EXPECT_TRUE(sail.warnings.empty());
}

} // namespace
} // namespace bvgeo
