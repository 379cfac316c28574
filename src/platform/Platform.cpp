#include <bvgeo/platform/Platform.hpp>
#include <bvgeo/platform/LinuxPlatform.hpp>

#include <atomic>
#include <memory>
#include <mutex>

namespace bvgeo {

namespace {

struct Installed {
    std::mutex mutex;
    std::unique_ptr<Platform> current;
    std::atomic<const Platform*> pointer{nullptr};
};

// Never destroyed: threads of the installed bundle may still read it while the
// process's static objects are being torn down.
Installed& installed() {
    static auto* state = new Installed;
    return *state;
}

bool complete(const Platform& p) {
    return p.clock && p.mainQueue && p.dispatchQueues && p.settings && p.files && p.uuids && p.console &&
           p.dateFormatter && p.application && p.device && p.locationService && p.reachability;
}

} // namespace

bool installPlatform(Platform bundle) {
    if (!complete(bundle)) return false;
    auto fresh = std::make_unique<Platform>(std::move(bundle));
    std::unique_ptr<Platform> previous;
    auto& state = installed();
    {
        std::lock_guard lock(state.mutex);
        previous = std::move(state.current);
        state.current = std::move(fresh);
        state.pointer.store(state.current.get(), std::memory_order_release);
    }
    // The previous bundle goes outside the lock: its main-queue thread may take a
    // moment to finish and join.
    return true;
}

const Platform& platform() {
    auto& state = installed();
    if (const Platform* p = state.pointer.load(std::memory_order_acquire)) return *p;
    std::lock_guard lock(state.mutex);
    if (!state.current) {
        state.current = std::make_unique<Platform>(makeLinuxPlatform());
        state.pointer.store(state.current.get(), std::memory_order_release);
    }
    return *state.current;
}

} // namespace bvgeo
