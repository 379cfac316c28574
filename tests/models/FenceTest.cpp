#include "support/LibraryTest.hpp"

#include "datastore/BV1Database.hpp"
#include "models/Fence.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace bvgeo::testing {
namespace {

using ::testing::ElementsAre;
using nlohmann::json;

class FenceTest : public LibraryTest {};

std::shared_ptr<Fence> make(const std::string& id) {
    return std::make_shared<Fence>(id, id, 1.0, 1.0, 10.0, std::vector<std::string>{}, true);
}

TEST_F(FenceTest, ZoneFileObjectsBecomeFencesOrAreRejected) {
    auto fence = Fence::fenceFromJson(json::parse(R"({"_id":"f1","name":"Shop","radius":100,
        "location":{"type":"Point","coordinates":[-46.6,-23.5]},"content_ids":["a",7,"b"],"extra":1})"));
    ASSERT_TRUE(fence);
    EXPECT_EQ(fence->id, "f1");
    EXPECT_EQ(fence->name, "Shop");
    EXPECT_EQ(fence->latitude, -23.5);
    EXPECT_EQ(fence->longitude, -46.6);
    EXPECT_EQ(fence->radius, 100.0);
    EXPECT_THAT(fence->content_ids, ElementsAre("a", "b"));
    EXPECT_TRUE(fence->current_zone);

    auto bare = Fence::fenceFromJson(json::parse(R"({"_id":5,"name":"n","radius":"100","location":{"coordinates":[1,2]}})"));
    ASSERT_TRUE(bare) << "a location without a type counts as a point";
    EXPECT_EQ(bare->id, "");
    EXPECT_EQ(bare->radius, 0.0) << "a radius given as text is ignored";
    EXPECT_EQ(bare->latitude, 2.0);

    auto nowhere = Fence::fenceFromJson(json::parse(R"({"_id":"x"})"));
    ASSERT_TRUE(nowhere);
    EXPECT_EQ(nowhere->latitude, 0.0);
    EXPECT_EQ(nowhere->longitude, 0.0);

    EXPECT_FALSE(Fence::fenceFromJson(json::parse(R"({"location":{"type":"Polygon","coordinates":[1,2]}})")));
    EXPECT_FALSE(Fence::fenceFromJson(json::parse(R"({"location":{"coordinates":[1]}})")));
    EXPECT_FALSE(Fence::fenceFromJson(json::parse(R"({"location":{"coordinates":["1","2"]}})")));
    EXPECT_FALSE(Fence::fenceFromJson(json::parse(R"([1,2])")));
}

TEST_F(FenceTest, StoredFencesReadBackAsTheyWereIncludingQuotes) {
    std::vector<std::shared_ptr<Fence>> fences = {
        std::make_shared<Fence>("f'1", "O'Brien's", -23.5, -46.6, 100.0, std::vector<std::string>{"a", "b"}, true),
        std::make_shared<Fence>("f2", "Plain", 51.0, 0.7, 25.5, std::vector<std::string>{}, true),
        std::make_shared<Fence>("f3", "Comma", 1.0, 2.0, 3.0, std::vector<std::string>{"x, y"}, true),
    };
    ASSERT_TRUE(Fence::saveFenceList(fences, false));
    auto read = Fence::getFences();
    ASSERT_EQ(read.size(), 3u);
    EXPECT_EQ(read[0]->id, "f'1");
    EXPECT_EQ(read[0]->name, "O'Brien's");
    EXPECT_EQ(read[0]->latitude, -23.5);
    EXPECT_THAT(read[0]->content_ids, ElementsAre("a", "b"));
    EXPECT_THAT(read[1]->content_ids, ElementsAre("")) << "no identifiers read back as one empty one";
    EXPECT_THAT(read[2]->content_ids, ElementsAre("x", "y")) << "an identifier holding \", \" splits in two";

    // The coordinates sit in TEXT columns as the number's own text.
    std::vector<std::string> texts;
    BV1Database().getDatabase().executeQuery("SELECT latitude, longitude FROM fence ORDER BY rowid", {},
                                             [&](const DatabaseRow& row) {
                                                 texts.push_back(row.stringForColumn("latitude"));
                                                 texts.push_back(row.stringForColumn("longitude"));
                                             });
    EXPECT_THAT(texts, ElementsAre("-23.5", "-46.6", "51", "0.7", "1", "2"));
}

TEST_F(FenceTest, KeptEarlierZonesStayMarkedNotCurrentOtherwiseTheTableIsEmptied) {
    ASSERT_TRUE(Fence::saveFenceList({make("a"), make("b")}, true));
    ASSERT_TRUE(Fence::saveFenceList({make("b"), make("c")}, true));
    auto ids = [](const std::vector<std::shared_ptr<Fence>>& list) {
        std::vector<std::string> out;
        for (const auto& f : list) out.push_back(f->id + (f->current_zone ? "+" : "-"));
        return out;
    };
    EXPECT_THAT(ids(Fence::getFences(true)), ElementsAre("b+", "c+"));
    EXPECT_THAT(ids(Fence::getFences(false)), ElementsAre("a-", "b+", "c+"));

    ASSERT_TRUE(Fence::saveFenceList({}, false));
    EXPECT_TRUE(Fence::getFences(false).empty()) << "without keeping, the table is emptied";
}

TEST_F(FenceTest, AZoneFileIsStoredWholeOrNotAtAll) {
    ASSERT_TRUE(Fence::saveFenceList({make("old")}, true));
    ASSERT_TRUE(BV1Database::executeStatements(
        "CREATE TRIGGER refuse BEFORE INSERT ON fence WHEN NEW.id = 'bad' BEGIN SELECT RAISE(ABORT, 'no'); END;"));
    // Keeping earlier zones: the clearing is an UPDATE, whose undoing shows in current_zone.
    EXPECT_FALSE(Fence::saveFenceList({make("a"), make("bad"), make("c")}, true));
    auto left = Fence::getFences(false);
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(left[0]->id, "old");
    EXPECT_TRUE(left[0]->current_zone) << "the clearing was undone too";
}

TEST_F(FenceTest, ALargeListIsStoredInOrderWithTheLaterOfTwoEqualIdsKept) {
    // 300 rows: two full statements of many rows and a remainder of single ones.
    std::vector<std::shared_ptr<Fence>> fences;
    for (int i = 0; i < 300; ++i) {
        const std::string id = i == 200 ? "f5" : i == 299 ? "f130" : "f" + std::to_string(i);
        fences.push_back(std::make_shared<Fence>(id, "n" + std::to_string(i), i * 0.25, -i * 0.5, i + 1.0,
                                                 std::vector<std::string>{"c" + std::to_string(i)}, true));
    }
    fences.insert(fences.begin() + 7, nullptr);
    ASSERT_TRUE(Fence::saveFenceList(fences, false));
    auto read = Fence::getFences();
    ASSERT_EQ(read.size(), 298u);
    std::vector<std::string> names;
    for (const auto& f : read) names.push_back(f->name);
    EXPECT_EQ(names[4], "n4");
    EXPECT_EQ(names[5], "n6") << "f5 was replaced by the later n200, which moved to its place in the order";
    EXPECT_THAT(std::vector<std::string>(names.end() - 2, names.end()), ElementsAre("n298", "n299"));
    auto f5 = std::find_if(read.begin(), read.end(), [](const auto& f) { return f->id == "f5"; });
    ASSERT_NE(f5, read.end());
    EXPECT_EQ((*f5)->name, "n200");
    EXPECT_EQ((*f5)->latitude, 50.0);
    EXPECT_EQ((*f5)->longitude, -100.0);
    EXPECT_THAT((*f5)->content_ids, ElementsAre("c200"));
    EXPECT_EQ(std::count_if(read.begin(), read.end(), [](const auto& f) { return f->id == "f130"; }), 1);

    // A fence read back lives as long as any fence of its list is held.
    std::shared_ptr<Fence> last = read.back();
    read.clear();
    EXPECT_EQ(last->id, "f130");
    EXPECT_EQ(last->name, "n299");
}

TEST(FenceSerialization, JoinsAndSplitsOnCommaBlank) {
    EXPECT_EQ(Fence::serializeArray({"a", "b"}), "a, b");
    EXPECT_EQ(Fence::serializeArray({"", "a"}), "a");
    EXPECT_EQ(Fence::serializeArray({"a", ""}), "a, ");
    EXPECT_THAT(Fence::deserializeArray("a, b"), ElementsAre("a", "b"));
    EXPECT_THAT(Fence::deserializeArray(""), ElementsAre(""));
    EXPECT_THAT(Fence::deserializeArray("a, "), ElementsAre("a", ""));
}

} // namespace
} // namespace bvgeo::testing
