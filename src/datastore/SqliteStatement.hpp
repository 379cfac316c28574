// Small helpers for code that drives a sqlite3 handle of its own (the outbox, the
// reference server's trigger store): binding and reading text, and resetting a
// cached statement whatever happened in its last use.
#pragma once

#include <sqlite3.h>

#include <string>

namespace bvgeo::sqlite {

inline bool bindText(sqlite3_stmt* statement, int index, const std::string& text) {
    return sqlite3_bind_text(statement, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT) ==
           SQLITE_OK;
}

inline std::string columnText(sqlite3_stmt* statement, int index) {
    auto text = sqlite3_column_text(statement, index);
    if (!text) return {};
    return std::string(reinterpret_cast<const char*>(text),
                       static_cast<std::size_t>(sqlite3_column_bytes(statement, index)));
}

// Leaves a statement ready for its next use when it goes out of scope.
class StatementReset {
public:
    explicit StatementReset(sqlite3_stmt* statement) : statement_(statement) {}
    ~StatementReset() {
        sqlite3_reset(statement_);
        sqlite3_clear_bindings(statement_);
    }
    StatementReset(const StatementReset&) = delete;
    StatementReset& operator=(const StatementReset&) = delete;

private:
    sqlite3_stmt* statement_;
};

} // namespace bvgeo::sqlite
