#include "platform/SharedInstance.hpp"

#include <vector>

namespace bvgeo {

namespace {

struct Registry {
    std::mutex mutex;
    std::vector<std::function<void()>> resets;
};

// Never destroyed, so a slot filled during static teardown still finds it.
Registry& registry() {
    static auto* r = new Registry;
    return *r;
}

} // namespace

void detail::registerSharedReset(std::function<void()> reset) {
    auto& r = registry();
    std::lock_guard lock(r.mutex);
    r.resets.push_back(std::move(reset));
}

void resetAllSharedInstances() {
    std::vector<std::function<void()>> resets;
    {
        auto& r = registry();
        std::lock_guard lock(r.mutex);
        resets.swap(r.resets);
    }
    // Outside the lock: tearing down one instance may touch (and refill) another slot.
    // Newest first, because later instances were built on top of earlier ones.
    for (auto it = resets.rbegin(); it != resets.rend(); ++it) (*it)();
}

} // namespace bvgeo
