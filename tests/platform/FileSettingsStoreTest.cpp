#include <bvgeo/platform/linux/FileSettingsStore.hpp>
#include <bvgeo/platform/linux/PosixFileSystem.hpp>
#include <bvgeo/platform/testing/TestPlatform.hpp>

#include <gtest/gtest.h>

#include <filesystem>

namespace bvgeo::testing {
namespace {

class FileSettingsStoreTest : public ::testing::Test {
protected:
    std::unique_ptr<FileSettingsStore> open() {
        return std::make_unique<FileSettingsStore>(path, files, console);
    }
    std::vector<std::string> directoryEntries() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(sim.documentsDirectory()))
            names.push_back(entry.path().filename().string());
        return names;
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
    EXPECT_EQ(directoryEntries(), std::vector<std::string>{"bvgeo-settings.json"}) << "no temporary file left";

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

TEST_F(FileSettingsStoreTest, UnreadableFileIsIgnoredWithAConsoleLineAndReplacedOnSynchronize) {
    for (const char* contents : {"{not json", "[1, 2]"}) {
        console->clear();
        ASSERT_TRUE(files->writeFileAtomically(path, contents));
        auto store = open();
        EXPECT_EQ(store->string("anything"), std::nullopt);
        ASSERT_EQ(console->logLines().size(), 1u) << contents;
        EXPECT_NE(console->logLines()[0].find(path), std::string::npos);

        store->setString("key", "value");
        ASSERT_TRUE(store->synchronize());
        EXPECT_EQ(open()->string("key"), "value");
    }
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
    EXPECT_EQ(directoryEntries(), std::vector<std::string>{"bvgeo-settings.json"}) << "temporary file cleaned up";
}

} // namespace
} // namespace bvgeo::testing
