#include <bvgeo/platform/Reachability.hpp>

#include <array>
#include <cstddef>

namespace bvgeo {

namespace {
constexpr std::array<std::string_view, 3> kTypeTexts = {"WWAN", "WiFi", "NotConnected"};
} // namespace

std::string_view rawValue(BVReachabilityType type) {
    auto index = static_cast<std::size_t>(type);
    return index < kTypeTexts.size() ? kTypeTexts[index] : std::string_view();
}

std::optional<BVReachabilityType> reachabilityTypeFromRaw(std::string_view text) {
    for (std::size_t i = 0; i < kTypeTexts.size(); ++i)
        if (kTypeTexts[i] == text) return static_cast<BVReachabilityType>(i);
    return std::nullopt;
}

} // namespace bvgeo
