#include "track/CsvRecordReader.hpp"

#include "platform/TextTrim.hpp"

namespace bvgeo {

CsvRecordReader::Status CsvRecordReader::next(Record& record) {
    record.fields.clear();
    record.quoted.clear();
    while (pos_ < text_.size() && atLineEnd()) skipLineEnd();
    if (pos_ >= text_.size()) return Status::End;
    record.line = line_;
    for (;;) {
        std::string& field = record.fields.emplace_back();
        bool quoted = false;
        if (!readField(field, quoted)) {
            // The rest of a spoilt line goes with it (in multi-line text, nothing is left).
            while (pos_ < text_.size() && !atLineEnd()) ++pos_;
            if (pos_ < text_.size()) skipLineEnd();
            return Status::Malformed;
        }
        record.quoted.push_back(quoted);
        if (pos_ < text_.size() && text_[pos_] == ',') {
            ++pos_;
            continue;
        }
        skipLineEnd();
        return Status::Record;
    }
}

bool CsvRecordReader::atLineEnd() const {
    if (text_[pos_] == '\n') return true;
    if (text_[pos_] != '\r') return false;
    return dialect_.multiLine || (pos_ + 1 < text_.size() && text_[pos_ + 1] == '\n');
}

bool CsvRecordReader::readField(std::string& field, bool& quoted) {
    const std::size_t start = pos_;
    while (pos_ < text_.size() && (text_[pos_] == ' ' || text_[pos_] == '\t')) ++pos_;
    quoted = pos_ < text_.size() && text_[pos_] == '"';
    if (!quoted) {
        pos_ = start;
        while (!atFieldEnd()) ++pos_;
        field = trim(text_.substr(start, pos_ - start), kSpacesAndTabs);
        return true;
    }
    ++pos_;
    for (;;) {
        if (pos_ >= text_.size() || (!dialect_.multiLine && atLineEnd())) return false;
        const char c = text_[pos_++];
        if (c == '"') {
            if (pos_ >= text_.size() || text_[pos_] != '"') break;
            ++pos_; // a doubled quote stands for one
        } else if (c == '\n') {
            ++line_;
        }
        field += c;
    }
    for (; !atFieldEnd(); ++pos_) {
        if (text_[pos_] == ' ' || text_[pos_] == '\t') continue;
        if (!dialect_.keepTextAfterQuote) return false;
        field += text_[pos_];
    }
    return true;
}

void CsvRecordReader::skipLineEnd() {
    if (pos_ < text_.size() && text_[pos_] == '\r') ++pos_;
    if (pos_ < text_.size() && text_[pos_] == '\n') ++pos_;
    ++line_;
}

} // namespace bvgeo
