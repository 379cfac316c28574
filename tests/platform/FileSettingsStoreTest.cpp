#include "platform/linux/FileSettingsStore.hpp"
#include "platform/linux/PosixFileSystem.hpp"
#include "support/FaultyFiles.hpp"
#include "support/TempDir.hpp"
#include <bvgeo/testing/ForwardingPlatform.hpp>
#include <bvgeo/testing/TestPlatform.hpp>

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <filesystem>

namespace bvgeo::testing {
namespace {

class FileSettingsStoreTest : public ::testing::Test {
protected:
    std::unique_ptr<FileSettingsStore> open() {
        return std::make_unique<FileSettingsStore>(path, files, console);
    }
    TestPlatform sim;
    std::shared_ptr<PosixFileSystem> files = std::make_shared<PosixFileSystem>(sim.documentsDirectory());
    std::shared_ptr<RecordingConsole> console = std::make_shared<RecordingConsole>();
    std::string path = sim.documentsDirectory() + "/bvgeo-settings.json";
};

TEST_F(FileSettingsStoreTest, ValuesSurviveIntoTheNextInstanceWithTheirTypes) {
    {
        auto store = open();
        store->setString("bv1GeoDeviceId", "O'Brien \"quoted\" ünïcode");
        store->setInteger("bv1GeoLastCacheTime", 1'500'000'000'123);
        store->setInteger("negative", -7);
        store->setString("gone", "soon");
        store->remove("gone");
        store->remove("never-there");
        ASSERT_TRUE(store->synchronize());
    }
    EXPECT_EQ(filesIn(sim.documentsDirectory()), std::vector<std::string>{"bvgeo-settings.json"}) << "no temporary file left";

    auto store = open();
    EXPECT_EQ(store->string("bv1GeoDeviceId"), "O'Brien \"quoted\" ünïcode");
    EXPECT_EQ(store->integer("bv1GeoLastCacheTime"), 1'500'000'000'123);
    EXPECT_EQ(store->integer("negative"), -7);
    EXPECT_EQ(store->integer("bv1GeoDeviceId"), std::nullopt) << "a string is not an integer";
    EXPECT_EQ(store->string("bv1GeoLastCacheTime"), std::nullopt) << "an integer is not a string";
    EXPECT_EQ(store->string("gone"), std::nullopt);
    EXPECT_TRUE(console->logLines().empty());

    // Unsynchronized changes stay in memory only.
    store->setInteger("bv1GeoLastCacheTime", 1);
    EXPECT_EQ(store->integer("bv1GeoLastCacheTime"), 1);
    EXPECT_EQ(open()->integer("bv1GeoLastCacheTime"), 1'500'000'000'123);
}

TEST_F(FileSettingsStoreTest, DamagedFileIsMovedAsideAndTheSettingsStartEmpty) {
    int round = 0;
    for (const char* contents : {"{not json", "[1, 2]"}) {
        ++round;
        console->clear();
        ASSERT_TRUE(files->writeFileAtomically(path, contents));
        auto store = open();
        EXPECT_EQ(store->string("anything"), std::nullopt);
        ASSERT_EQ(console->logLines().size(), 1u) << contents;
        const auto line = console->logLines()[0];
        EXPECT_NE(line.find(path + " does not hold a JSON object: moved to " + sim.documentsDirectory() +
                            "/bvgeo-settings.corrupt-"),
                  std::string::npos)
            << line;
        EXPECT_FALSE(files->fileExists(path));
        const auto movedTo = line.substr(line.find("moved to ") + 9, line.find(';') - line.find("moved to ") - 9);
        std::string kept;
        ASSERT_TRUE(files->readFile(movedTo, kept)) << movedTo;
        EXPECT_EQ(kept, contents);

        store->setString("key", "value");
        ASSERT_TRUE(store->synchronize());
        EXPECT_EQ(open()->string("key"), "value");
    }
    EXPECT_EQ(filesIn(sim.documentsDirectory()).size(), 3u) << "the settings and both damaged files";
}

TEST_F(FileSettingsStoreTest, FailingWritesWarnOnceLeaveTheFileWholeAndRecover) {
    auto disk = std::make_shared<FaultyFiles>(files);
    FileSettingsStore store(path, disk, console);
    store.setString("bv1GeoLastZoneFile", "zone_1_2.json");
    ASSERT_TRUE(store.synchronize());

    disk->refuseWrites = true;
    for (int i = 0; i < 5; ++i) {
        store.setInteger("bv1GeoLastCacheTime", i);
        EXPECT_FALSE(store.synchronize());
    }
    EXPECT_EQ(console->logLines(),
              std::vector<std::string>{"Settings file not written: Cannot write \"" + path +
                                       "\": No space left on device"});
    std::string text;
    ASSERT_TRUE(files->readFile(path, text));
    EXPECT_EQ(nlohmann::json::parse(text), (nlohmann::json{{"bv1GeoLastZoneFile", "zone_1_2.json"}}))
        << "the last good file, whole";

    disk->refuseWrites = false;
    EXPECT_TRUE(store.synchronize());
    EXPECT_EQ(open()->integer("bv1GeoLastCacheTime"), 4);
    disk->refuseWrites = true;
    EXPECT_FALSE(store.synchronize());
    EXPECT_EQ(console->logLines().size(), 2u) << "a new run of failures is told again";
}

TEST_F(FileSettingsStoreTest, SynchronizeReportsAFailedWrite) {
    // The settings path is taken by a directory, so the rename over it fails.
    ASSERT_TRUE(files->createDirectories(path + "/occupied"));
    auto store = open();
    console->clear();
    store->setString("key", "value");
    EXPECT_FALSE(store->synchronize());
    EXPECT_EQ(store->string("key"), "value") << "still readable in memory";
    EXPECT_EQ(console->logLines().size(), 1u);
    EXPECT_EQ(filesIn(sim.documentsDirectory()), std::vector<std::string>{"bvgeo-settings.json"}) << "temporary file cleaned up";
}

} // namespace
} // namespace bvgeo::testing
