#include "support/LibraryTest.hpp"
#include "support/StoredLogs.hpp"

#include "datastore/BV1Database.hpp"
#include "models/Log.hpp"

#include <gmock/gmock.h>

namespace bvgeo::testing {
namespace {

using ::testing::ElementsAre;
using LogTest = LibraryTest;

bool save(std::string message, LogCategory category, std::int64_t timestamp) {
    Log row;
    row.message = std::move(message);
    row.category = category;
    row.timestamp = timestamp;
    return Log::save(row);
}

TEST_F(LogTest, CategoryFilterReturnsMatchingRowsVerbatimOldestFirst) {
    const std::string hostile = "O'Brien's fence'); DROP TABLE log; -- \"quoted\" ?";
    ASSERT_TRUE(save("first zone", LogCategory::ZONE, 10));
    ASSERT_TRUE(save("from the host", LogCategory::CLIENT, 20));
    ASSERT_TRUE(save(hostile, LogCategory::NONE, 30));
    ASSERT_TRUE(save("second zone", LogCategory::ZONE, 40));

    EXPECT_THAT(storedMessages(LogCategory::NONE), ElementsAre("first zone", "from the host", hostile, "second zone"));
    EXPECT_THAT(storedMessages(LogCategory::ZONE), ElementsAre("first zone", "second zone"));
    EXPECT_TRUE(storedMessages(LogCategory::FENCE).empty());

    auto all = Log::getLogsFromDatabase();
    EXPECT_EQ(all[1]->category, LogCategory::CLIENT);
    EXPECT_EQ(all[2]->category, LogCategory::NONE);
    EXPECT_EQ(all[3]->timestamp, 40);
    EXPECT_EQ(all[3]->id, "4");
}

TEST_F(LogTest, ForeignCategoryAndNullMessageReadBackAsNone) {
    ASSERT_TRUE(BV1Database::executeUpdate("INSERT INTO log (message, category, timestamp) VALUES (?, ?, ?)",
                                           {nullptr, std::string("zone"), std::int64_t{5'000'000'000}}));
    auto rows = Log::getLogsFromDatabase();
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0]->message, "");
    EXPECT_EQ(rows[0]->category, LogCategory::NONE);
    EXPECT_EQ(rows[0]->timestamp, 5'000'000'000);
    EXPECT_TRUE(Log::getLogsFromDatabase(LogCategory::ZONE).empty());
}

} // namespace
} // namespace bvgeo::testing
