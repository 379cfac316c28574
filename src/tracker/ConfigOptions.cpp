#include <bvgeo/ConfigOptions.hpp>

#include <array>

namespace bvgeo {

namespace {
constexpr std::array<std::string_view, 3> kTriggerTypeTexts = {"enter", "exit", "linger"};
constexpr std::array<std::string_view, 3> kLocationEventTexts = {"unknown", "regular", "significantchanges"};
} // namespace

std::optional<BVEnvironment> environmentFromRaw(int raw) {
    if (raw < 0 || raw > 3) return std::nullopt;
    return static_cast<BVEnvironment>(raw);
}

std::optional<TriggerMode> triggerModeFromRaw(int raw) {
    if (raw < 0 || raw > 2) return std::nullopt;
    return static_cast<TriggerMode>(raw);
}

std::string_view rawValue(TriggerType type) { return kTriggerTypeTexts[static_cast<std::size_t>(type)]; }

std::optional<TriggerType> triggerTypeFromRaw(std::string_view raw) {
    for (std::size_t i = 0; i < kTriggerTypeTexts.size(); ++i)
        if (kTriggerTypeTexts[i] == raw) return static_cast<TriggerType>(i);
    return std::nullopt;
}

std::string_view rawValue(TriggerLocationEventType type) {
    return kLocationEventTexts[static_cast<std::size_t>(type)];
}

std::optional<TriggerLocationEventType> triggerLocationEventTypeFromRaw(std::string_view raw) {
    for (std::size_t i = 0; i < kLocationEventTexts.size(); ++i)
        if (kLocationEventTexts[i] == raw) return static_cast<TriggerLocationEventType>(i);
    return std::nullopt;
}

} // namespace bvgeo
