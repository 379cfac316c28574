// Command-line arguments of one subcommand: `--name value`, `--name=value` and
// bare flags, checked against the options the subcommand declares. Anything wrong
// is a UsageError, which the program turns into exit status 2 and one line on
// standard error.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace bvgeo::cli {

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct OptionDecl {
    std::string name; // without the dashes
    bool takesValue = true;
};

class Args {
public:
    // Throws UsageError for an option not in `declared`, or one missing its value.
    Args(const std::vector<std::string>& words, const std::vector<OptionDecl>& declared);

    const std::vector<std::string>& positionals() const { return positionals_; }
    bool has(const std::string& name) const { return flags_.count(name) || values_.count(name); }
    std::optional<std::string> value(const std::string& name) const;
    std::string value(const std::string& name, const std::string& fallback) const;
    // Every value an option given more than once took, in order (value() is the last).
    std::vector<std::string> values(const std::string& name) const;
    // Throw UsageError naming the option when the text is not a number of that kind.
    std::optional<double> number(const std::string& name) const;
    std::optional<std::int64_t> integer(const std::string& name) const;

private:
    std::vector<std::string> positionals_;
    std::map<std::string, std::string> values_;
    std::map<std::string, std::vector<std::string>> repeated_;
    std::set<std::string> flags_;
};

// The number in `text`, or UsageError naming `what` when there is none or trailing text.
double parseNumber(const std::string& text, const std::string& what);
std::int64_t parseInteger(const std::string& text, const std::string& what);

} // namespace bvgeo::cli
