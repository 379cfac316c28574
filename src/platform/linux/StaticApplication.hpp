// StaticApplication: application facts fixed when the host starts the library, with
// the state changeable as the host moves between foreground and background. The
// state sits behind a mutex and the rest never changes, so any thread may use it.
#pragma once

#include <bvgeo/platform/Application.hpp>

#include <mutex>

namespace bvgeo {

class StaticApplication final : public Application {
public:
    explicit StaticApplication(ApplicationState state = ApplicationState::Active,
                               std::optional<std::vector<std::string>> backgroundModes =
                                   std::vector<std::string>{"location"},
                               std::string shortVersion = "1.0", std::string name = "bvgeo-host");

    ApplicationState applicationState() const override;
    std::optional<std::vector<std::string>> backgroundModes() const override;
    std::string shortVersion() const override;
    std::string name() const override;

    void setApplicationState(ApplicationState state);

private:
    mutable std::mutex mutex_;
    ApplicationState state_;
    const std::optional<std::vector<std::string>> backgroundModes_;
    const std::string shortVersion_;
    const std::string name_;
};

} // namespace bvgeo
