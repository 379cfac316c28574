// The C API's debug console: start, stop, and where it listens. It lives with the
// console rather than with the rest of the C API, which sits above the console's
// layer and knows it only as a ConsoleHandle.

#include "capi/CApiCall.hpp"
#include "capi/Session.hpp"
#include "capi/Utf8.hpp"

#include <bvgeo/DebugConsole.hpp>

#include <cmath>
#include <memory>

using namespace bvgeo::capi;

namespace {

class DebugConsoleHandle final : public ConsoleHandle {
public:
    explicit DebugConsoleHandle(std::unique_ptr<bvgeo::DebugConsole> console) : console_(std::move(console)) {}
    bool running() const override { return console_->running(); }
    std::string url() const override { return console_->url(); }
    void stop() override { console_->stop(); }

private:
    std::unique_ptr<bvgeo::DebugConsole> console_;
};

} // namespace

extern "C" {

void bvgeo_console_options_init(bvgeo_console_options* options) {
    if (!options) return;
    const bvgeo::DebugConsoleOptions defaults;
    *options = bvgeo_console_options{};
    options->version = BVGEO_CONSOLE_OPTIONS_VERSION;
    options->port = defaults.port;
    options->action_timeout_seconds = defaults.actionTimeoutSeconds;
}

bvgeo_status bvgeo_console_start(bvgeo_tracker* tracker, const bvgeo_console_options* options) {
    CAPI_BEGIN
    SESSION(tracker);
    bvgeo_console_options defaults;
    bvgeo_console_options_init(&defaults);
    const bvgeo_console_options& o = options ? *options : defaults;
    CHECK_VERSION("options", o.version, BVGEO_CONSOLE_OPTIONS_VERSION, bvgeo_console_options_init);
    if (o.port < 0 || o.port > 65535)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, "options->port " + std::to_string(o.port) + " is outside 0..65535");
    if (o.tile_url_template && !bvgeo::capi::isValidUtf8(o.tile_url_template))
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, "options->tile_url_template is not valid UTF-8");
    if (!std::isfinite(o.action_timeout_seconds) || o.action_timeout_seconds <= 0)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT,
                    "options->action_timeout_seconds " + number(o.action_timeout_seconds) + " is not > 0");
    bvgeo::DebugConsoleOptions console;
    console.port = o.port;
    if (o.tile_url_template) console.tileUrlTemplate = o.tile_url_template;
    console.actionTimeoutSeconds = o.action_timeout_seconds;
    bool alreadyRunning = false;
    auto start = [&console](std::string& error) -> std::unique_ptr<ConsoleHandle> {
        auto made = std::make_unique<bvgeo::DebugConsole>(console);
        if (made->start()) return std::make_unique<DebugConsoleHandle>(std::move(made));
        error = made->error();
        return nullptr;
    };
    if (auto problem = session->startConsole(start, alreadyRunning))
        return FAIL(alreadyRunning ? BVGEO_ERR_STATE : BVGEO_ERR_IO, *problem);
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_console_stop(bvgeo_tracker* tracker) {
    CAPI_BEGIN
    SESSION(tracker);
    session->stopConsole();
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_console_url(bvgeo_tracker* tracker, char** url) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_NOT_NULL(url);
    RETURN_TEXT(url, session->consoleUrl());
    CAPI_END
}

} // extern "C"
