// Application: what the host application tells the library about itself (state,
// background modes, version). The host supplies the values; defaults describe a
// foreground process that may track location in the background.
#pragma once

#include <bvgeo/Export.hpp>

#include <optional>
#include <string>
#include <vector>

namespace bvgeo {

enum class ApplicationState : int { Active = 0, Inactive = 1, Background = 2 };

class BVGEO_API Application {
public:
    virtual ~Application() = default;

    virtual ApplicationState applicationState() const = 0;

    // The bundle's "UIBackgroundModes" entry; absent when the host declares none.
    virtual std::optional<std::vector<std::string>> backgroundModes() const = 0;

    virtual std::string shortVersion() const = 0;
    virtual std::string name() const = 0;
};

} // namespace bvgeo
