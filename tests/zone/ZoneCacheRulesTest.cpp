// The zone cache's rules from tables of cases, and its file format against damage.
#include "zone/ZoneCacheRecord.hpp"
#include "zone/ZoneCacheRules.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace bvgeo {
namespace {

using ::testing::ElementsAre;

TEST(ZoneCacheRules, CopyAgeFollowsTheExpiryRulePerZone) {
    struct Case {
        std::int64_t now, storedAt;
        bool preloaded;
        CopyAge age;
    } cases[] = {
        {1000, 1000, false, CopyAge::Fresh},       {4600, 1000, false, CopyAge::Fresh}, // exactly cacheExpiration
        {4601, 1000, false, CopyAge::Expired},     {999, 1000, false, CopyAge::FromTheFuture},
        {1000, 1000, true, CopyAge::Preloaded},    {1000, 0, true, CopyAge::Preloaded},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.now) + " " + std::to_string(c.storedAt));
        EXPECT_EQ(cachedCopyAge(c.now, c.storedAt, 3600, c.preloaded), c.age);
    }
    // The stored cache time a copy leaves: its own, unless it has no usable one.
    EXPECT_EQ(adoptedCacheTime(5000, 1000, false), 1000);
    EXPECT_EQ(adoptedCacheTime(5000, 6000, false), 0);
    EXPECT_EQ(adoptedCacheTime(5000, 1000, true), 0);
    // A later answer replaces a copy; an earlier one only a copy that has no real time.
    EXPECT_TRUE(replacesCopy(5000, 1000, false, 2000));
    EXPECT_FALSE(replacesCopy(5000, 2000, false, 1000));
    EXPECT_TRUE(replacesCopy(5000, 2000, true, 1000));
    EXPECT_TRUE(replacesCopy(5000, 9000, false, 4000));
}

TEST(ZoneCacheRules, OnlyNoAnswerAndServerErrorsFallBackToAStaleCopy) {
    for (long status : {0L, 500L, 502L, 503L, 504L, 599L}) EXPECT_TRUE(answersWithStaleCopy(status)) << status;
    for (long status : {200L, 304L, 401L, 403L, 404L, 600L}) EXPECT_FALSE(answersWithStaleCopy(status)) << status;
}

TEST(ZoneCacheRules, PrefetchIsAskedOncePerPeriodAndSkippedOnALowBattery) {
    EXPECT_TRUE(isPrefetchDue(1000, std::nullopt, 3600));
    EXPECT_FALSE(isPrefetchDue(4600, 1000, 3600));
    EXPECT_TRUE(isPrefetchDue(4601, 1000, 3600));
    EXPECT_TRUE(isPrefetchDue(999, 1000, 3600)) << "an attempt after now no longer counts";
    EXPECT_FALSE(isPrefetchDue(1060, 1000, 0)) << "at most once a minute";
    EXPECT_TRUE(isPrefetchDue(1061, 1000, 0));

    EXPECT_TRUE(isBatteryLow(BatteryState::Unplugged, 0.19f));
    EXPECT_FALSE(isBatteryLow(BatteryState::Unplugged, 0.2f));
    EXPECT_FALSE(isBatteryLow(BatteryState::Charging, 0.05f));
    EXPECT_FALSE(isBatteryLow(BatteryState::Unknown, -1.0f));
}

std::vector<std::string> neighbours(double latitude, double longitude, double interval, double distance) {
    std::vector<std::string> out;
    for (const auto& cell : neighboursWithin(latitude, longitude, interval, distance))
        out.push_back(std::string(cell.side) + " " + neighbourZoneName(latitude, longitude, interval, cell));
    return out;
}

TEST(ZoneCacheRules, NeighboursAreTheCellsWhoseEdgeOrCornerIsWithinTheDistance) {
    // Cell [51.3, 51.4) x [0.7, 0.8) of the 0.1 degree grid; 0.001 degree of latitude is 111 m.
    EXPECT_TRUE(neighbours(51.35, 0.75, 0.1, 1000).empty()) << "the middle of a cell";
    EXPECT_TRUE(neighbours(51.399, 0.75, 0.1, 0).empty()) << "no distance, no prefetch";
    EXPECT_THAT(neighbours(51.399, 0.75, 0.1, 500), ElementsAre("north edge zone_51450_750.json"));
    EXPECT_THAT(neighbours(51.399, 0.799, 0.1, 500),
                ElementsAre("east edge zone_51350_850.json", "north edge zone_51450_750.json",
                            "north-east corner zone_51450_850.json"));
    // South of the equator and west of Greenwich the grid runs on without a seam.
    EXPECT_THAT(neighbours(-0.001, -0.05, 0.1, 500), ElementsAre("north edge zone_50_-50.json"));
    EXPECT_THAT(neighbours(0.05, -0.001, 0.1, 500), ElementsAre("east edge zone_50_50.json"));
    // Across the antimeridian, and never beyond a pole.
    EXPECT_THAT(neighbours(10.05, 179.999, 0.1, 500), ElementsAre("east edge zone_10050_-179950.json"));
    for (const auto& cell : neighbours(89.999, 10.05, 0.1, 500))
        EXPECT_THAT(cell, ::testing::Not(::testing::HasSubstr("north")));
}

TEST(ZoneCacheRules, ZoneFileNamesMustNameACellOfTheGrid) {
    EXPECT_TRUE(isZoneFileNameOfGrid("zone_51375_725.json", 0.05));
    EXPECT_TRUE(isZoneFileNameOfGrid("zone_-23500_-46700.json", 0.2));
    EXPECT_FALSE(isZoneFileNameOfGrid("zone_51300_700.json", 0.05)) << "a name of the 0.2 degree grid";
    for (const char* name : {"zone_51375.json", "zone_a_b.json", "zone_1_2.json.tmp-x1", "notes.txt", "zone__1.json"}) {
        EXPECT_FALSE(looksLikeZoneFileName(name)) << name;
        EXPECT_FALSE(isZoneFileNameOfGrid(name, 0.05)) << name;
    }
    EXPECT_EQ(httpDate(784111777), "Sun, 06 Nov 1994 08:49:37 GMT");
}

TEST(ZoneCacheRecord, ReadsBackWhatWasWrittenAndRefusesAnythingDamaged) {
    const std::string body = R"({"fences":[{"_id":"f1","name":"Hall","location":{"type":"Point","coordinates":[0.73,51.34]},"radius":100}]})";
    const std::string text = encodeZoneCacheRecord({"zone_51300_700.json", "LM", 1000, false, false, body});
    std::string problem;
    auto record = decodeZoneCacheRecord(text, problem);
    ASSERT_TRUE(record) << problem;
    EXPECT_EQ(record->body, body);
    EXPECT_EQ(record->lastModified, "LM");
    EXPECT_EQ(record->storedAt, 1000);
    auto fences = fencesOfZoneFileBody(record->body, problem);
    ASSERT_TRUE(fences);
    ASSERT_EQ(fences->size(), 1u);
    EXPECT_EQ((*fences)[0]->name, "Hall");

    std::string flipped = text;
    flipped[flipped.size() - 5] ^= 0x20;
    for (const auto& [damaged, why] :
         std::vector<std::pair<std::string, std::string>>{{text.substr(0, text.size() - 3), "its body is"},
                                                          {flipped, "checksum"},
                                                          {"{\"zone\":1}\n{}", "first line"},
                                                          {"no line end", "no body line"}}) {
        EXPECT_FALSE(decodeZoneCacheRecord(damaged, problem));
        EXPECT_THAT(problem, ::testing::HasSubstr(why));
    }
    EXPECT_FALSE(fencesOfZoneFileBody("[1,2]", problem));
    EXPECT_FALSE(fencesOfZoneFileBody("{\"fences\":[", problem));
}

} // namespace
} // namespace bvgeo
