// Walks a text one line at a time, counting lines from 1, for the line-based track
// formats. Views into the caller's buffer, which must outlive the cursor. Accepts
// "\n" and "\r\n" endings. Single-threaded, like any iterator.
#pragma once

#include <cstddef>
#include <string_view>

namespace bvgeo {

class LineCursor {
public:
    explicit LineCursor(std::string_view text) : mRest(text) {}

    // The next line without its line end; false once the text is used up.
    bool next(std::string_view& line) {
        if (mRest.empty()) return false;
        const auto end = mRest.find('\n');
        line = mRest.substr(0, end);
        mRest.remove_prefix(end == std::string_view::npos ? mRest.size() : end + 1);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        ++mLineNumber;
        return true;
    }

    // 1-based number of the line `next` returned last.
    std::size_t lineNumber() const { return mLineNumber; }

private:
    std::string_view mRest;
    std::size_t mLineNumber = 0;
};

} // namespace bvgeo
