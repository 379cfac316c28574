#include "track/CsvRecordReader.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace bvgeo {
namespace {

using ::testing::ElementsAre;
using Status = CsvRecordReader::Status;

constexpr CsvRecordReader::Dialect kMultiLine{.multiLine = true, .keepTextAfterQuote = true};
constexpr CsvRecordReader::Dialect kOneLine{.multiLine = false, .keepTextAfterQuote = false};

TEST(CsvRecordReader, QuotedFieldsKeepCommasQuotesAndLineBreaksWhereTheDialectAllows) {
    const char* text = " a , \"b, \"\"c\"\"\" ,d\r\n"
                       "\n"
                       "\"two\nlines\",\"x\" y\r"
                       "last";
    CsvRecordReader multi(text, kMultiLine);
    CsvRecordReader::Record record;
    ASSERT_EQ(multi.next(record), Status::Record);
    EXPECT_THAT(record.fields, ElementsAre("a", "b, \"c\"", "d"));
    EXPECT_THAT(record.quoted, ElementsAre(false, true, false));
    EXPECT_EQ(record.line, 1u);
    ASSERT_EQ(multi.next(record), Status::Record);
    EXPECT_THAT(record.fields, ElementsAre("two\nlines", "xy"));
    EXPECT_EQ(record.line, 3u);
    ASSERT_EQ(multi.next(record), Status::Record) << "a lone CR ends a line";
    EXPECT_THAT(record.fields, ElementsAre("last"));
    EXPECT_EQ(record.line, 5u);
    EXPECT_EQ(multi.next(record), Status::End);

    // One record per line: the open quote and the text after a quote spoil their own
    // line only, and a lone CR is text.
    CsvRecordReader single(text, kOneLine);
    ASSERT_EQ(single.next(record), Status::Record);
    EXPECT_THAT(record.fields, ElementsAre("a", "b, \"c\"", "d"));
    EXPECT_EQ(single.next(record), Status::Malformed);
    EXPECT_EQ(record.line, 3u);
    EXPECT_EQ(single.next(record), Status::Malformed);
    EXPECT_EQ(record.line, 4u);
    EXPECT_EQ(single.next(record), Status::End);

    CsvRecordReader open("id,\"never closed\n1,2\n", kMultiLine);
    EXPECT_EQ(open.next(record), Status::Malformed);
    EXPECT_EQ(open.next(record), Status::End);
}

} // namespace
} // namespace bvgeo
