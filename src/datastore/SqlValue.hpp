// A value bound to a statement parameter: NULL, integer, real or text.
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace bvgeo {

using SqlValue = std::variant<std::nullptr_t, std::int64_t, double, std::string>;
using SqlValues = std::vector<SqlValue>;

// One statement and the values for its parameters.
struct SqlStatement {
    std::string sql;
    SqlValues args;
};

} // namespace bvgeo
