#include "platform/linux/PosixFileSystem.hpp"

#include <bvgeo/testing/TestPlatform.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace bvgeo::testing {
namespace {

using ::testing::HasSubstr;

class PosixFileSystemTest : public ::testing::Test {
protected:
    std::string file(const std::string& name) const { return appendPathComponent(sim.documentsDirectory(), name); }
    std::string contentsOf(const std::string& path) const {
        std::string text;
        EXPECT_TRUE(files.readFile(path, text)) << path;
        return text;
    }

    TestPlatform sim;
    PosixFileSystem files{sim.documentsDirectory()};
};

TEST_F(PosixFileSystemTest, MoveNeverReplacesAndExplainsWhatFailed) {
    ASSERT_TRUE(files.writeFileAtomically(file("a.sqlite"), "A"));
    ASSERT_TRUE(files.writeFileAtomically(file("b.sqlite"), "B"));

    auto refused = files.moveItem(file("a.sqlite"), file("b.sqlite"));
    EXPECT_FALSE(refused);
    EXPECT_THAT(refused.error, HasSubstr(file("b.sqlite")));
    EXPECT_THAT(refused.error, HasSubstr("exists"));
    EXPECT_EQ(contentsOf(file("a.sqlite")), "A");
    EXPECT_EQ(contentsOf(file("b.sqlite")), "B");

    auto missing = files.moveItem(file("missing"), file("c.sqlite"));
    EXPECT_FALSE(missing);
    EXPECT_THAT(missing.error, HasSubstr(file("missing")));
    EXPECT_THAT(missing.error, HasSubstr("No such file or directory"));

    EXPECT_TRUE(files.moveItem(file("a.sqlite"), file("c.sqlite")));
    EXPECT_FALSE(files.fileExists(file("a.sqlite")));
    EXPECT_EQ(contentsOf(file("c.sqlite")), "A");
}

TEST_F(PosixFileSystemTest, DirectoriesAndFilesAreCreatedReplacedAndRemoved) {
    EXPECT_EQ(files.documentsDirectory(), sim.documentsDirectory());
    const auto nested = file("one/two/three");
    EXPECT_TRUE(files.createDirectories(nested));
    EXPECT_TRUE(files.createDirectories(nested)) << "existing is fine";

    const auto path = appendPathComponent(nested, "data.txt");
    ASSERT_TRUE(files.writeFileAtomically(path, "first"));
    ASSERT_TRUE(files.writeFileAtomically(path, std::string("second\0binary", 13)));
    EXPECT_EQ(contentsOf(path), std::string("second\0binary", 13));

    std::string untouched = "keep";
    auto unreadable = files.readFile(file("nope"), untouched);
    EXPECT_FALSE(unreadable);
    EXPECT_THAT(unreadable.error, HasSubstr(file("nope")));
    EXPECT_EQ(untouched, "keep");

    EXPECT_TRUE(files.removeItem(file("one")));
    EXPECT_FALSE(files.fileExists(path));
    EXPECT_FALSE(files.fileExists(file("one")));
    EXPECT_FALSE(files.removeItem(file("one"))) << "removing what is not there fails";
}

TEST(AppendPathComponent, JoinsWithExactlyOneSeparator) {
    EXPECT_EQ(appendPathComponent("/data", "db.sqlite"), "/data/db.sqlite");
    EXPECT_EQ(appendPathComponent("/data/", "db.sqlite"), "/data/db.sqlite");
    EXPECT_EQ(appendPathComponent("/data//", "/db.sqlite"), "/data/db.sqlite");
    EXPECT_EQ(appendPathComponent("/", "db.sqlite"), "/db.sqlite");
    EXPECT_EQ(appendPathComponent("relative", "a/b"), "relative/a/b");
    EXPECT_EQ(appendPathComponent("", "db.sqlite"), "db.sqlite");
}

} // namespace
} // namespace bvgeo::testing
