#include "Args.hpp"

#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace bvgeo::cli {

Args::Args(const std::vector<std::string>& words, const std::vector<OptionDecl>& declared) {
    auto find = [&](const std::string& name) -> const OptionDecl* {
        for (const auto& option : declared)
            if (option.name == name) return &option;
        return nullptr;
    };
    bool onlyPositionals = false;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (onlyPositionals || word.size() < 3 || word.rfind("--", 0) != 0) {
            if (word == "--") {
                onlyPositionals = true;
                continue;
            }
            if (!onlyPositionals && word.size() > 1 && word[0] == '-' && word != "-")
                throw UsageError("unknown option " + word);
            positionals_.push_back(word);
            continue;
        }
        std::string name = word.substr(2);
        std::optional<std::string> inlineValue;
        if (auto equals = name.find('='); equals != std::string::npos) {
            inlineValue = name.substr(equals + 1);
            name.resize(equals);
        }
        const OptionDecl* option = find(name);
        if (!option) throw UsageError("unknown option --" + name);
        if (!option->takesValue) {
            if (inlineValue) throw UsageError("option --" + name + " takes no value");
            flags_.insert(name);
            continue;
        }
        if (inlineValue) {
            values_[name] = *inlineValue;
        } else if (i + 1 < words.size()) {
            values_[name] = words[++i];
        } else {
            throw UsageError("option --" + name + " needs a value");
        }
        repeated_[name].push_back(values_[name]);
    }
}

std::optional<std::string> Args::value(const std::string& name) const {
    auto found = values_.find(name);
    if (found == values_.end()) return std::nullopt;
    return found->second;
}

std::string Args::value(const std::string& name, const std::string& fallback) const {
    return value(name).value_or(fallback);
}

std::vector<std::string> Args::values(const std::string& name) const {
    auto found = repeated_.find(name);
    return found == repeated_.end() ? std::vector<std::string>{} : found->second;
}

std::optional<double> Args::number(const std::string& name) const {
    auto text = value(name);
    if (!text) return std::nullopt;
    return parseNumber(*text, "--" + name);
}

std::optional<std::int64_t> Args::integer(const std::string& name) const {
    auto text = value(name);
    if (!text) return std::nullopt;
    return parseInteger(*text, "--" + name);
}

double parseNumber(const std::string& text, const std::string& what) {
    char* end = nullptr;
    errno = 0;
    const double value = std::strtod(text.c_str(), &end);
    if (text.empty() || end != text.c_str() + text.size() || errno == ERANGE || !std::isfinite(value))
        throw UsageError(what + ": '" + text + "' is not a number");
    return value;
}

std::int64_t parseInteger(const std::string& text, const std::string& what) {
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || end != text.c_str() + text.size() || errno == ERANGE)
        throw UsageError(what + ": '" + text + "' is not a whole number");
    return value;
}

} // namespace bvgeo::cli
