#include "Stays.hpp"

#include <ctime>
#include <map>

namespace bvgeo::cli {
namespace {

constexpr std::int64_t kTwoMinutes = 120;

std::string utcText(std::int64_t seconds) {
    const auto time = static_cast<std::time_t>(seconds);
    std::tm parts{};
    gmtime_r(&time, &parts);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%SZ", &parts);
    return text;
}

std::string durationText(std::int64_t seconds) {
    char text[48];
    if (seconds >= 3600)
        std::snprintf(text, sizeof text, "%lld h %02lld min %02lld s", static_cast<long long>(seconds / 3600),
                      static_cast<long long>(seconds / 60 % 60), static_cast<long long>(seconds % 60));
    else
        std::snprintf(text, sizeof text, "%lld min %02lld s", static_cast<long long>(seconds / 60),
                      static_cast<long long>(seconds % 60));
    return text;
}

} // namespace

void StayRecorder::add(const BVTrigger& trigger) {
    // The open stay of this fence, if any: the newest one without an exit.
    Stay* open = nullptr;
    for (auto it = stays_.rbegin(); it != stays_.rend(); ++it) {
        if (it->fenceId != trigger.fenceId) continue;
        if (!it->exit) open = &*it;
        break;
    }
    switch (trigger.event) {
    case TriggerType::Enter:
        if (!open) stays_.push_back({trigger.fenceId, trigger.fenceName, trigger.timestamp, std::nullopt});
        break;
    case TriggerType::Exit:
        if (open) open->exit = trigger.timestamp;
        else stays_.push_back({trigger.fenceId, trigger.fenceName, std::nullopt, trigger.timestamp});
        break;
    case TriggerType::Linger: break;
    }
}

StayCounts countStays(const std::vector<Stay>& stays) {
    StayCounts counts;
    counts.stays = stays.size();
    std::map<std::string, std::int64_t> lastExit;
    for (const Stay& stay : stays) {
        if (stay.enter && stay.exit && *stay.exit - *stay.enter < kTwoMinutes) ++counts.shorterThanTwoMinutes;
        if (const auto before = lastExit.find(stay.fenceId);
            before != lastExit.end() && stay.enter && *stay.enter - before->second < kTwoMinutes)
            ++counts.reentriesWithinTwoMinutes;
        if (stay.exit) lastExit[stay.fenceId] = *stay.exit;
    }
    return counts;
}

std::string stayTextLine(const Stay& stay, std::int64_t end) {
    std::string line = stay.fenceName + " (" + stay.fenceId + ")  " +
                       (stay.enter ? utcText(*stay.enter) : std::string("before the track")) + "  " +
                       (stay.exit ? utcText(*stay.exit) : std::string("still inside"));
    if (stay.enter) line += "  " + durationText((stay.exit ? *stay.exit : end) - *stay.enter);
    return line;
}

std::string stayCountsLine(const StayCounts& counts) {
    return "stays:    " + std::to_string(counts.stays) + ", " + std::to_string(counts.shorterThanTwoMinutes) +
           " shorter than 2 minutes, " + std::to_string(counts.reentriesWithinTwoMinutes) +
           " re-entries within 2 minutes of an exit";
}

nlohmann::ordered_json staysJson(const std::vector<Stay>& stays, std::int64_t end) {
    const StayCounts counts = countStays(stays);
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const Stay& stay : stays) {
        nlohmann::ordered_json item{{"fenceId", stay.fenceId}, {"fenceName", stay.fenceName},
                                    {"enter", nullptr},        {"exit", nullptr},
                                    {"seconds", nullptr}};
        if (stay.enter) item["enter"] = *stay.enter;
        if (stay.exit) item["exit"] = *stay.exit;
        if (stay.enter) item["seconds"] = (stay.exit ? *stay.exit : end) - *stay.enter;
        list.push_back(std::move(item));
    }
    return {{"count", counts.stays},
            {"shorterThan2Minutes", counts.shorterThanTwoMinutes},
            {"reentriesWithin2Minutes", counts.reentriesWithinTwoMinutes},
            {"list", std::move(list)}};
}

} // namespace bvgeo::cli
