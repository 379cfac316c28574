// CsvRecordReader: splits comma-separated text into records of fields, for the CSV
// track reader and the zone builder's place lists. Quoting as RFC 4180 has it (""
// for a quote inside a quoted field), with the usual leniencies: spaces and tabs
// around an unquoted field are dropped, a quote inside an unquoted field is taken
// literally. Views the caller's text, which must outlive the reader. Single-threaded,
// like any iterator.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace bvgeo {

class CsvRecordReader {
public:
    struct Dialect {
        // A quoted field may hold line breaks, so a record may span lines, and lines
        // end at CR, LF or CRLF. Otherwise each line (ending at LF or CRLF; a lone CR
        // is text) is one record, and a quote still open at its end spoils it.
        bool multiLine = true;
        // Text between a closing quote and the separator is kept, minus spaces and
        // tabs; otherwise it spoils the record.
        bool keepTextAfterQuote = true;
    };

    struct Record {
        std::vector<std::string> fields;
        std::vector<bool> quoted; // per field: whether it was written in quotes
        std::size_t line = 0;     // the line the record starts on, from 1
    };

    enum class Status {
        Record,
        // A quote never closed (multi-line: the text ends inside it), or text after a
        // closing quote the dialect refuses. A single-line dialect goes on with the
        // next line; a multi-line one has reached the end.
        Malformed,
        End,
    };

    CsvRecordReader(std::string_view text, Dialect dialect) : text_(text), dialect_(dialect) {}

    // The next record; empty lines are skipped. `record` is reused to spare
    // allocations; on Malformed its fields mean nothing but its line does.
    Status next(Record& record);

private:
    bool atLineEnd() const;
    bool atFieldEnd() const { return pos_ >= text_.size() || text_[pos_] == ',' || atLineEnd(); }
    // False when the field is malformed.
    bool readField(std::string& field, bool& quoted);
    void skipLineEnd();

    std::string_view text_;
    Dialect dialect_;
    std::size_t pos_ = 0;
    std::size_t line_ = 1;
};

} // namespace bvgeo
