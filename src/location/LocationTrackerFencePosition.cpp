#include "location/LocationTrackerFencePosition.hpp"

#include <array>

namespace bvgeo {

namespace {
constexpr std::array<std::string_view, 4> kPositionTexts = {"Unknown", "Inside", "InsideForTooLong", "Outside"};
} // namespace

std::string_view rawValue(LocationTrackerFencePosition position) {
    return kPositionTexts[static_cast<std::size_t>(position)];
}

std::optional<LocationTrackerFencePosition> locationTrackerFencePositionFromRaw(std::string_view text) {
    for (std::size_t i = 0; i < kPositionTexts.size(); ++i)
        if (kPositionTexts[i] == text) return static_cast<LocationTrackerFencePosition>(i);
    return std::nullopt;
}

} // namespace bvgeo
