#include "platform/linux/StaticApplication.hpp"

namespace bvgeo {

StaticApplication::StaticApplication(ApplicationState state, std::optional<std::vector<std::string>> backgroundModes,
                                     std::string shortVersion, std::string name)
    : state_(state), backgroundModes_(std::move(backgroundModes)), shortVersion_(std::move(shortVersion)),
      name_(std::move(name)) {}

ApplicationState StaticApplication::applicationState() const {
    std::lock_guard lock(mutex_);
    return state_;
}

void StaticApplication::setApplicationState(ApplicationState state) {
    std::lock_guard lock(mutex_);
    state_ = state;
}

// The rest never changes after construction and needs no lock.
std::optional<std::vector<std::string>> StaticApplication::backgroundModes() const { return backgroundModes_; }
std::string StaticApplication::shortVersion() const { return shortVersion_; }
std::string StaticApplication::name() const { return name_; }

} // namespace bvgeo
