#include "platform/linux/RouteTable.hpp"

#include <charconv>
#include <vector>

namespace bvgeo {

namespace {

std::vector<std::string_view> fields(std::string_view line) {
    std::vector<std::string_view> out;
    std::size_t at = 0;
    while (at < line.size()) {
        while (at < line.size() && (line[at] == ' ' || line[at] == '\t' || line[at] == '\r')) ++at;
        std::size_t end = at;
        while (end < line.size() && line[end] != ' ' && line[end] != '\t' && line[end] != '\r') ++end;
        if (end > at) out.push_back(line.substr(at, end - at));
        at = end;
    }
    return out;
}

template <class Visit>
void forEachLine(std::string_view text, Visit visit) {
    while (!text.empty()) {
        auto end = text.find('\n');
        visit(fields(text.substr(0, end)));
        if (end == std::string_view::npos) break;
        text.remove_prefix(end + 1);
    }
}

std::optional<std::uint64_t> number(std::string_view text, int base) {
    std::uint64_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

bool allZeros(std::string_view text) { return !text.empty() && text.find_first_not_of('0') == std::string_view::npos; }

void keepLowest(std::optional<DefaultRoute>& best, std::string_view iface, std::uint64_t metric) {
    if (!best || metric < best->metric) best = DefaultRoute{std::string(iface), metric};
}

} // namespace

std::optional<DefaultRoute> defaultIPv4Route(std::string_view table) {
    // Iface Destination Gateway Flags RefCnt Use Metric Mask MTU Window IRTT
    std::optional<DefaultRoute> best;
    forEachLine(table, [&](const std::vector<std::string_view>& f) {
        if (f.size() < 8 || f[0] == "Iface" || f[0] == "lo") return;
        if (f[1] != "00000000" || f[7] != "00000000") return;
        keepLowest(best, f[0], number(f[6], 10).value_or(UINT64_MAX));
    });
    return best;
}

std::optional<DefaultRoute> defaultIPv6Route(std::string_view table) {
    // destination prefix-length source source-prefix next-hop metric refcnt use flags iface
    std::optional<DefaultRoute> best;
    forEachLine(table, [&](const std::vector<std::string_view>& f) {
        if (f.size() < 10 || f[9] == "lo") return;
        if (f[0].size() != 32 || !allZeros(f[0]) || f[1] != "00") return;
        keepLowest(best, f[9], number(f[5], 16).value_or(UINT64_MAX));
    });
    return best;
}

bool isCellularInterface(std::string_view name) {
    for (std::string_view prefix : {"wwan", "wwp", "rmnet", "ppp"})
        if (name.starts_with(prefix)) return true;
    return false;
}

RouteFlags routeFlags(std::string_view procNetRoute, std::string_view procNetIPv6Route) {
    auto route = defaultIPv4Route(procNetRoute);
    if (!route) route = defaultIPv6Route(procNetIPv6Route);
    if (!route) return {};
    return RouteFlags{true, isCellularInterface(route->interfaceName)};
}

} // namespace bvgeo
