#include "support/FaultyFiles.hpp"
#include "support/LibraryTest.hpp"

#include "models/FenceFetch.hpp"

#include "platform/linux/FileSettingsStore.hpp"
#include "platform/linux/PosixFileSystem.hpp"

namespace bvgeo::testing {
namespace {

class FenceFetchTest : public LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        Platform bundle = sim().bundle();
        files = std::make_shared<FaultyFiles>(bundle.files);
        bundle.settings = std::make_shared<FileSettingsStore>(path(), files, sim().console);
        installPlatform(bundle);
    }
    std::string path() { return sim().documentsDirectory() + "/bvgeo-settings.json"; }
    // What a relaunch reads from the file.
    std::optional<std::string> stored(std::string_view key) {
        return FileSettingsStore(path(), std::make_shared<PosixFileSystem>(sim().documentsDirectory()), sim().console)
            .string(key);
    }
    int writesDuring(const std::function<void()>& work) {
        const int before = files->writes;
        work();
        return files->writes - before;
    }

    std::shared_ptr<FaultyFiles> files;
};

TEST_F(FenceFetchTest, TheSettingsFileIsRewrittenOnlyWhenAValueChanges) {
    EXPECT_EQ(writesDuring([] { FenceFetch::setZoneLastModified(""); }), 1) << "an absent key is not an empty one";
    EXPECT_EQ(writesDuring([] { FenceFetch::setZoneLastModified(""); }), 0);
    EXPECT_EQ(writesDuring([] {
                  for (int position = 0; position < 100; ++position) {
                      FenceFetch::setLastZoneFile("zone_51300_700.json");
                      FenceFetch::setLastCacheTime(1'500'000'000);
                  }
              }),
              2) << "a hundred confirmations of one zone write it once";
    EXPECT_EQ(writesDuring([] { FenceFetch::setLastZoneFile("zone_51500_700.json"); }), 1);
    EXPECT_EQ(writesDuring([] { FenceFetch::setLastCacheTime(1'500'003'601); }), 1);
    EXPECT_EQ(stored(FenceFetch::kLastZoneFileKey), "zone_51500_700.json");

    // A write the disk refused is made again by the next one, even of the same value.
    files->refuseWrites = true;
    EXPECT_EQ(writesDuring([] { FenceFetch::setLastZoneFile("zone_51700_700.json"); }), 1);
    files->refuseWrites = false;
    EXPECT_EQ(stored(FenceFetch::kLastZoneFileKey), "zone_51500_700.json");
    EXPECT_EQ(writesDuring([] { FenceFetch::setLastZoneFile("zone_51700_700.json"); }), 1);
    EXPECT_EQ(stored(FenceFetch::kLastZoneFileKey), "zone_51700_700.json");
    EXPECT_EQ(writesDuring([] { FenceFetch::setLastZoneFile("zone_51700_700.json"); }), 0);

    EXPECT_EQ(writesDuring([] { FenceFetch::reset(); }), 1);
    EXPECT_EQ(stored(FenceFetch::kLastZoneFileKey), std::nullopt);
    EXPECT_EQ(writesDuring([] { FenceFetch::setLastCacheTime(0); }), 1) << "0 stored differs from nothing stored";
}

} // namespace
} // namespace bvgeo::testing
