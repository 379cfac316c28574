#include "DeadSpots.hpp"

#include "Args.hpp"

#include "track/TrackTime.hpp"

#include <bvgeo/platform/Platform.hpp>

#include <algorithm>
#include <fstream>

namespace bvgeo::cli {

namespace {

double parseTime(const std::string& text, const std::string& what) {
    if (auto time = parseIsoDateTime(text)) return *time;
    try {
        return parseNumber(text, what);
    } catch (const UsageError&) {
        throw UsageError(what + ": '" + text + "' is neither an ISO 8601 time nor seconds since 1970");
    }
}

class DeadSpotReachability final : public Reachability {
public:
    explicit DeadSpotReachability(std::shared_ptr<const DeadSpots> spots) : spots_(std::move(spots)) {}
    BVReachabilityType isConnectedToNetworkOfType() override {
        return spots_->contains(platform().clock->currentTime()) ? BVReachabilityType::NotConnected
                                                                 : BVReachabilityType::WiFi;
    }
    bool isConnectedToNetwork() override {
        return isConnectedToNetworkOfType() != BVReachabilityType::NotConnected;
    }

private:
    std::shared_ptr<const DeadSpots> spots_;
};

} // namespace

TimeRange parseTimeRange(const std::string& text, const std::string& what) {
    const auto comma = text.find(',');
    if (comma == std::string::npos || text.find(',', comma + 1) != std::string::npos)
        throw UsageError(what + ": expected FROM,TO, got '" + text + "'");
    TimeRange range{parseTime(text.substr(0, comma), what), parseTime(text.substr(comma + 1), what)};
    if (range.to < range.from) throw UsageError(what + ": '" + text + "' ends before it starts");
    return range;
}

std::vector<TimeRange> readTimeRanges(const std::string& path) {
    std::ifstream in(path);
    if (!in) throw UsageError("--offline-file: cannot read " + path);
    std::vector<TimeRange> ranges;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        const auto first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos || line[first] == '#') continue;
        const auto last = line.find_last_not_of(" \t\r");
        ranges.push_back(parseTimeRange(line.substr(first, last - first + 1), path + ":" + std::to_string(number)));
    }
    return ranges;
}

DeadSpots::DeadSpots(std::vector<TimeRange> ranges) {
    std::sort(ranges.begin(), ranges.end(), [](const TimeRange& a, const TimeRange& b) { return a.from < b.from; });
    for (const auto& range : ranges) {
        if (!ranges_.empty() && range.from <= ranges_.back().to) ranges_.back().to = std::max(ranges_.back().to, range.to);
        else ranges_.push_back(range);
    }
}

bool DeadSpots::contains(double time) const {
    auto after = std::upper_bound(ranges_.begin(), ranges_.end(), time,
                                  [](double t, const TimeRange& range) { return t < range.from; });
    return after != ranges_.begin() && time <= std::prev(after)->to;
}

std::shared_ptr<Reachability> DeadSpots::reachability(std::shared_ptr<const DeadSpots> spots) {
    return std::make_shared<DeadSpotReachability>(std::move(spots));
}

} // namespace bvgeo::cli
