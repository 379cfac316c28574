// The program as a user runs it: exit statuses, and the demo's story end to end.
#include "Cli.hpp"
#include "Commands.hpp"

#include "platform/SharedInstance.hpp"
#include "support/TempDir.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <sstream>

namespace bvgeo::cli {
namespace {

namespace fs = std::filesystem;

int runWords(std::vector<std::string> words) {
    words.insert(words.begin(), "bvgeo");
    std::vector<char*> argv;
    for (auto& word : words) argv.push_back(word.data());
    return run(static_cast<int>(argv.size()), argv.data());
}

TEST(CliTest, BadTracksAndOptionsExitWithStatusTwo) {
    const testing::TempDir temp("bvgeo-cli");
    const fs::path& dir = temp.path();
    temp.write("notes.txt", "just some words\nnothing like a track\n");
    temp.write("cut.gpx", "<?xml version=\"1.0\"?>\n<gpx version=\"1.1\"><trk><trkseg>\n<trkpt lat=\"51");

    EXPECT_EQ(runWords({"replay", (dir / "missing.gpx").string()}), 2);
    EXPECT_EQ(runWords({"replay", dir.string()}), 2);                  // a directory
    EXPECT_EQ(runWords({"replay", (dir / "notes.txt").string()}), 2);  // unknown format
    EXPECT_EQ(runWords({"replay", (dir / "cut.gpx").string()}), 2);    // truncated
    EXPECT_EQ(runWords({"replay", "t.gpx", "--env", "7"}), 2); // each refusal: ReplayOptionsTest
    EXPECT_EQ(runWords({"frobnicate"}), 2);
    EXPECT_EQ(runWords({"zones", "build", (dir / "missing.csv").string(), "--out", dir.string(), "--app-id", "a"}), 2);
    EXPECT_EQ(runWords({"logs", "--data-dir", (dir / "nothing-here").string()}), 1);
    EXPECT_EQ(runWords({"--version"}), 0);
    EXPECT_EQ(runWords({"replay", "--help"}), 0);
}

TEST(CliTest, DemoTellsAStoryWithEnterLingerAndExitAndEveryReportArrives) {
    const testing::TempDir dir("bvgeo-demo");
    std::ostringstream out;
    ASSERT_EQ(runDemoCommand({"--data-dir", dir.path().string(), "--json"}, out), 0);
    resetAllSharedInstances();

    std::istringstream lines(out.str());
    std::string line, last;
    std::size_t triggers = 0;
    while (std::getline(lines, line)) {
        last = line;
        ++triggers;
    }
    const auto summary = nlohmann::json::parse(last);
    ASSERT_TRUE(summary["summary"].get<bool>());
    EXPECT_EQ(summary["fixes"]["read"], 7745) << "the recorded Kent run, read whole";
    EXPECT_EQ(summary["fixes"]["skipped"], 0);
    EXPECT_GE(summary["triggers"]["enter"].get<int>(), 1);
    EXPECT_GE(summary["triggers"]["linger"].get<int>(), 1);
    EXPECT_GE(summary["triggers"]["exit"].get<int>(), 1);
    EXPECT_EQ(summary["requests"]["sent"].get<std::size_t>(), triggers - 1);
    EXPECT_EQ(summary["requests"]["queued"], 0);
}

} // namespace
} // namespace bvgeo::cli
