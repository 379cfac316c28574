// The C API as a C host meets it: bad input answered with a code and a log line,
// calls in the wrong order, and triggers arriving on the main queue in each of its
// three modes, against a zone/trigger server on loopback.
#include "support/FaultyServer.hpp"
#include "support/LoopbackServer.hpp"
#include "support/TempDir.hpp"

#include "capi/FixTime.hpp"
#include "capi/Utf8.hpp"

#include <bvgeo/bvgeo.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <limits>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using ::testing::HasSubstr;

constexpr double kT0 = 1'400'000'000;
constexpr double kLat = 51.5, kLon = 0.1; // the fence: "Quay", 200 m around this point
constexpr double kMetresPerDegreeLon = 69'300.0;

const char* const kZoneFile =
    R"({"fences":[{"_id":"quay-1","name":"Quay","location":{"type":"Point","coordinates":[0.1,51.5]},"radius":200,"content_ids":[]}]})";

// What the host saw: console lines and triggers, from whichever thread.
struct HostLog {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> lines;
    std::vector<std::string> triggers; // "event fenceId fenceName locationEvent"
    std::vector<std::thread::id> callbackThreads;

    bool hasLine(const std::string& part) {
        std::lock_guard lock(mutex);
        for (const auto& line : lines)
            if (line.find(part) != std::string::npos) return true;
        return false;
    }
    bool waitForTriggers(std::size_t count, double seconds) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::duration<double>(seconds), [&] { return triggers.size() >= count; });
    }
    std::vector<std::string> events() {
        std::lock_guard lock(mutex);
        std::vector<std::string> out;
        for (const auto& t : triggers) out.push_back(t.substr(0, t.find(' ')));
        return out;
    }
};

void recordLine(const char* line, void* user) {
    auto* log = static_cast<HostLog*>(user);
    std::lock_guard lock(log->mutex);
    log->lines.emplace_back(line);
}

void recordTrigger(bvgeo_tracker*, const bvgeo_trigger* t, void* user) {
    auto* log = static_cast<HostLog*>(user);
    {
        std::lock_guard lock(log->mutex);
        log->triggers.push_back(std::string(t->event) + " " + t->fence_id + " " + t->fence_name + " " +
                                t->location_event);
        log->callbackThreads.push_back(std::this_thread::get_id());
    }
    log->changed.notify_all();
}

class CApiTest : public ::testing::Test {
protected:
    void SetUp() override {
        server_ = std::make_unique<bvgeo::testing::LoopbackServer>(
            [](const httplib::Request& request, httplib::Response& response) {
                response.status = 200;
                response.set_content(request.path.rfind("/assets/", 0) == 0 ? kZoneFile : "{}", "application/json");
            });
    }
    void TearDown() override {
        EXPECT_EQ(bvgeo_close(tracker_), BVGEO_OK);
        tracker_ = nullptr;
        server_.reset();
    }

    bvgeo_tracker* open(int mode) {
        bvgeo_open_options options;
        bvgeo_open_options_init(&options);
        const std::string dir = dir_.path().string();
        options.documents_directory = dir.c_str();
        options.main_queue = mode;
        options.start_time = kT0;
        options.console = recordLine;
        options.console_user_data = &log_;
        EXPECT_EQ(bvgeo_open(&options, &tracker_), BVGEO_OK) << bvgeo_last_error();
        return tracker_;
    }

    // Base URLs at the loopback server, configure, linger pacing, callback, start.
    void startHost(std::int64_t lingerTime) {
        const std::string api = server_->url("/api/v1/app/"), assets = server_->url("/assets/");
        ASSERT_EQ(bvgeo_set_environment_urls(tracker_, BVGEO_ENVIRONMENT_DEVELOPMENT, api.c_str(), assets.c_str()),
                  BVGEO_OK);
        ASSERT_EQ(bvgeo_configure(tracker_, "capi", BVGEO_TRIGGER_MODE_BOTH, BVGEO_ENVIRONMENT_DEVELOPMENT), BVGEO_OK);
        bvgeo_parameters parameters;
        bvgeo_parameters_init(&parameters);
        parameters.distance_filter = BVGEO_DISTANCE_FILTER_NONE;
        parameters.linger_time = lingerTime;
        ASSERT_EQ(bvgeo_set_parameters(tracker_, &parameters), BVGEO_OK);
        ASSERT_EQ(bvgeo_set_trigger_callback(tracker_, recordTrigger, &log_), BVGEO_OK);
        ASSERT_EQ(bvgeo_start(tracker_), BVGEO_OK);
    }

    // A fix `east` metres east of the fence centre.
    bvgeo_status push(double east, double time, int kind = BVGEO_FIX_AUTOMATIC) {
        return bvgeo_push_location(tracker_, kLat, kLon + east / kMetresPerDegreeLon, 5.0, time, kind, nullptr);
    }

    // The status, the thread's last error naming `part`, and a log line naming it too.
    void expectRefused(bvgeo_status status, bvgeo_status expected, const std::string& part) {
        EXPECT_EQ(status, expected) << part;
        EXPECT_THAT(bvgeo_last_error(), HasSubstr(part));
        EXPECT_TRUE(log_.hasLine(part)) << "no log line names: " << part;
    }

    const bvgeo::testing::TempDir dir_{"bvgeo-capi"};
    std::unique_ptr<bvgeo::testing::LoopbackServer> server_;
    HostLog log_;
    bvgeo_tracker* tracker_ = nullptr;
};

TEST_F(CApiTest, BadInputIsAnErrorCodeAndALogLineAndChangesNothing) {
    open(BVGEO_MAIN_QUEUE_VIRTUAL_TIME);
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    const auto invalid = BVGEO_ERR_INVALID_ARGUMENT;
    char* text = nullptr;
    int flag = 0;
    size_t count = 0;
    bvgeo_trigger* triggers = nullptr;

    // NULL handles and NULL out-pointers.
    EXPECT_EQ(bvgeo_start(nullptr), invalid);
    EXPECT_EQ(bvgeo_get_device_id(nullptr, &text), invalid);
    expectRefused(bvgeo_get_device_id(tracker_, nullptr), invalid, "device_id is NULL");
    expectRefused(bvgeo_list_triggers(tracker_, nullptr, &count), invalid, "triggers is NULL");
    expectRefused(bvgeo_list_triggers(tracker_, &triggers, nullptr), invalid, "count is NULL");
    expectRefused(bvgeo_set_parameters(tracker_, nullptr), invalid, "p is NULL");
    expectRefused(bvgeo_open(nullptr, nullptr), invalid, "tracker is NULL");
    expectRefused(bvgeo_reset(tracker_, nullptr), invalid, "name is NULL");
    expectRefused(bvgeo_log(tracker_, nullptr), invalid, "message is NULL");

    // Text that is not UTF-8 (a stray continuation byte, an overlong '/', a surrogate).
    expectRefused(bvgeo_configure(tracker_, "app\x80", 0, 0), invalid, "app_id is not valid UTF-8");
    expectRefused(bvgeo_log(tracker_, "\xC0\xAF"), invalid, "message is not valid UTF-8");
    expectRefused(bvgeo_reset(tracker_, "\xED\xA0\x80"), invalid, "name is not valid UTF-8");
    expectRefused(bvgeo_set_environment_urls(tracker_, 0, "http://x/\xFF", nullptr), invalid,
                  "api_base is not valid UTF-8");

    // Enumerations out of range: configure goes through the facade, which refuses and
    // logs in its own words; the others are refused before anything happens.
    EXPECT_EQ(bvgeo_configure(tracker_, "app", 3, 0), invalid);
    EXPECT_THAT(bvgeo_last_error(), HasSubstr("trigger_mode 3"));
    EXPECT_TRUE(log_.hasLine("Invalid triggerMode 3!"));
    EXPECT_EQ(bvgeo_configure(tracker_, "app", 0, 4), invalid);
    EXPECT_TRUE(log_.hasLine("Invalid environment 4!"));
    EXPECT_EQ(bvgeo_configure(tracker_, "", 0, 0), invalid);
    EXPECT_TRUE(log_.hasLine("Missing parameter appId!"));
    ASSERT_EQ(bvgeo_is_configured(tracker_, &flag), BVGEO_OK);
    EXPECT_EQ(flag, 0);
    expectRefused(bvgeo_set_environment_urls(tracker_, -1, "a", "b"), invalid, "environment -1");
    expectRefused(bvgeo_get_environment_urls(tracker_, 4, &text, nullptr), invalid, "environment 4");
    expectRefused(bvgeo_push_location(tracker_, kLat, kLon, 5, kT0, 3, nullptr), invalid, "kind 3");

    // Parameters out of range leave the configuration as it was.
    bvgeo_parameters before, p;
    ASSERT_EQ(bvgeo_get_parameters(tracker_, &before), BVGEO_OK);
    const std::pair<void (*)(bvgeo_parameters&), const char*> badParameters[] = {
        {[](bvgeo_parameters& q) { q.zone_interval = 0; }, "zone_interval 0"},
        {[](bvgeo_parameters& q) { q.accuracy = std::numeric_limits<double>::quiet_NaN(); }, "accuracy nan"},
        {[](bvgeo_parameters& q) { q.linger_time = -5; }, "linger_time -5"},
        {[](bvgeo_parameters& q) { q.request_retry_interval = std::numeric_limits<double>::infinity(); },
         "request_retry_interval inf"},
        {[](bvgeo_parameters& q) { q.version = 7; }, "parameters->version 7"}};
    for (const auto& [spoil, named] : badParameters) {
        bvgeo_parameters_init(&p);
        spoil(p);
        expectRefused(bvgeo_set_parameters(tracker_, &p), invalid, named);
    }
    bvgeo_parameters after;
    ASSERT_EQ(bvgeo_get_parameters(tracker_, &after), BVGEO_OK);
    EXPECT_EQ(after.zone_interval, before.zone_interval);
    EXPECT_EQ(after.linger_time, before.linger_time);
    EXPECT_EQ(after.accuracy, before.accuracy);

    bvgeo_extended_options extended;
    bvgeo_extended_options_init(&extended);
    extended.durable_delivery = 2;
    expectRefused(bvgeo_set_extended_options(tracker_, &extended), invalid, "durable_delivery 2");
    bvgeo_extended_options_init(&extended);
    extended.outbox_max_age_seconds = -1;
    expectRefused(bvgeo_set_extended_options(tracker_, &extended), invalid, "outbox_max_age_seconds -1");

    // Positions out of range.
    expectRefused(bvgeo_push_location(tracker_, 90.5, 0, 5, kT0, 0, nullptr), invalid, "latitude 90.5");
    expectRefused(bvgeo_push_location(tracker_, 0, nan, 5, kT0, 0, nullptr), invalid, "longitude nan");
    expectRefused(bvgeo_push_location(tracker_, 0, 0, nan, kT0, 0, nullptr), invalid, "accuracy nan");
    expectRefused(bvgeo_push_location(tracker_, 0, 0, 5, -3, 0, nullptr), invalid, "time -3");

    // The console's options.
    bvgeo_console_options console;
    bvgeo_console_options_init(&console);
    console.port = 70000;
    expectRefused(bvgeo_console_start(tracker_, &console), invalid, "port 70000");
    bvgeo_console_options_init(&console);
    console.tile_url_template = "https://t/\xF5{z}";
    expectRefused(bvgeo_console_start(tracker_, &console), invalid, "tile_url_template is not valid UTF-8");

    // After all that the tracker works as if nothing had happened.
    EXPECT_EQ(bvgeo_configure(tracker_, "app", BVGEO_TRIGGER_MODE_LOCAL_ONLY, BVGEO_ENVIRONMENT_QA), BVGEO_OK);
    EXPECT_STREQ(bvgeo_last_error(), "");
    ASSERT_EQ(bvgeo_get_app_id(tracker_, &text), BVGEO_OK);
    EXPECT_STREQ(text, "app");
    bvgeo_free(text);
    EXPECT_EQ(bvgeo_reset(tracker_, "a/b"), BVGEO_ERR_RESET_NAME_INVALID);
    EXPECT_EQ(bvgeo_reset(tracker_, ""), BVGEO_ERR_RESET_NAME_MANDATORY);
}

TEST_F(CApiTest, CallsInTheWrongOrderBehaveAsTheFacadeAndAreRefusedOtherwise) {
    // Before open: every call on a handle that is not open is refused.
    auto* stale = reinterpret_cast<bvgeo_tracker*>(&log_);
    EXPECT_EQ(bvgeo_start(stale), BVGEO_ERR_STATE);

    open(BVGEO_MAIN_QUEUE_OWN_THREAD);
    // start before configure: the facade's line, nothing starts, and the code says so.
    EXPECT_EQ(bvgeo_start(tracker_), BVGEO_ERR_NOT_CONFIGURED);
    EXPECT_TRUE(log_.hasLine("BVGeoTracker is not configured! Please configure before calling start()"));
    int received = -1;
    EXPECT_EQ(bvgeo_push_location(tracker_, kLat, kLon, 5, kT0, BVGEO_FIX_AUTOMATIC, &received), BVGEO_OK);
    EXPECT_EQ(received, 0) << "no tracker runs, so no manager takes the fix";
    EXPECT_EQ(bvgeo_stop(tracker_), BVGEO_OK);

    // One tracker per process.
    bvgeo_tracker* second = nullptr;
    expectRefused(bvgeo_open(nullptr, &second), BVGEO_ERR_STATE, "already open");
    EXPECT_EQ(second, nullptr);

    // Functions of other main-queue modes.
    double now = 0;
    expectRefused(bvgeo_virtual_now(tracker_, &now), BVGEO_ERR_STATE, "only in virtual-time mode");
    expectRefused(bvgeo_virtual_advance_to(tracker_, kT0), BVGEO_ERR_STATE, "only in virtual-time mode");
    expectRefused(bvgeo_main_queue_run(tracker_), BVGEO_ERR_STATE, "only in host main-queue mode");
    expectRefused(bvgeo_main_queue_run_pending(tracker_, nullptr), BVGEO_ERR_STATE, "serves the main queue itself");

    // Closed: the handle is refused, and a new open starts from a clean state.
    ASSERT_EQ(bvgeo_configure(tracker_, "first", 0, 0), BVGEO_OK);
    ASSERT_EQ(bvgeo_close(tracker_), BVGEO_OK);
    EXPECT_EQ(bvgeo_close(nullptr), BVGEO_OK);
    EXPECT_EQ(bvgeo_configure(tracker_, "again", 0, 0), BVGEO_ERR_STATE);
    tracker_ = nullptr;
    open(BVGEO_MAIN_QUEUE_VIRTUAL_TIME);
    int configured = 1;
    ASSERT_EQ(bvgeo_is_configured(tracker_, &configured), BVGEO_OK);
    EXPECT_EQ(configured, 0);
}

TEST_F(CApiTest, VirtualTimeDeliversEnterLingerExitOnTheDrivingThreadAndReportsThem) {
    open(BVGEO_MAIN_QUEUE_VIRTUAL_TIME);
    startHost(300);
    for (auto [east, seconds] : {std::pair{-800.0, 0.0}, {-100.0, 60.0}, {0.0, 200.0}, {50.0, 400.0}, {500.0, 460.0}})
        ASSERT_EQ(push(east, kT0 + seconds), BVGEO_OK) << bvgeo_last_error();
    EXPECT_EQ(log_.events(), (std::vector<std::string>{"enter", "linger", "exit"}));
    {
        std::lock_guard lock(log_.mutex);
        for (const auto& t : log_.triggers) EXPECT_THAT(t, HasSubstr("quay-1 Quay "));
        for (auto id : log_.callbackThreads) EXPECT_EQ(id, std::this_thread::get_id());
    }
    // The reports leave on the request queue's timer, a second of virtual time later.
    size_t pending = 0;
    ASSERT_EQ(bvgeo_pending_reports(tracker_, &pending), BVGEO_OK);
    EXPECT_GT(pending, 0u);
    int hasTimer = 0;
    double due = 0;
    ASSERT_EQ(bvgeo_virtual_next_timer(tracker_, &hasTimer, &due), BVGEO_OK);
    ASSERT_EQ(hasTimer, 1);
    ASSERT_EQ(bvgeo_virtual_advance_to(tracker_, due + 60), BVGEO_OK);
    ASSERT_EQ(bvgeo_pending_reports(tracker_, &pending), BVGEO_OK);
    EXPECT_EQ(pending, 0u);
    int posts = 0;
    for (const auto& request : server_->requests()) posts += request.method == "POST";
    EXPECT_EQ(posts, 3);
    double now = 0;
    ASSERT_EQ(bvgeo_virtual_now(tracker_, &now), BVGEO_OK);
    EXPECT_EQ(now, due + 60);
}

// A callback that tries to pump or close from inside is refused; reading is fine.
struct Reentry {
    bvgeo_status settle = BVGEO_OK, close = BVGEO_OK, push = BVGEO_OK, list = BVGEO_ERR_INTERNAL;
    int calls = 0;
};

void reenter(bvgeo_tracker* tracker, const bvgeo_trigger*, void* user) {
    auto* r = static_cast<Reentry*>(user);
    ++r->calls;
    r->settle = bvgeo_virtual_settle(tracker);
    r->close = bvgeo_close(tracker);
    r->push = bvgeo_push_location(tracker, kLat, kLon, 5, 0, BVGEO_FIX_AUTOMATIC, nullptr);
    bvgeo_trigger* list = nullptr;
    size_t count = 0;
    r->list = bvgeo_list_triggers(tracker, &list, &count);
    bvgeo_free_triggers(list, count);
}

TEST_F(CApiTest, CallbackMayReadButNotPumpOrClose) {
    open(BVGEO_MAIN_QUEUE_VIRTUAL_TIME);
    startHost(300);
    Reentry reentry;
    ASSERT_EQ(bvgeo_set_trigger_callback(tracker_, reenter, &reentry), BVGEO_OK);
    ASSERT_EQ(push(0, kT0), BVGEO_OK);
    ASSERT_EQ(reentry.calls, 1);
    EXPECT_EQ(reentry.settle, BVGEO_ERR_STATE);
    EXPECT_EQ(reentry.close, BVGEO_ERR_STATE);
    EXPECT_EQ(reentry.push, BVGEO_ERR_STATE);
    EXPECT_EQ(reentry.list, BVGEO_OK);
}

TEST_F(CApiTest, OwnThreadMainQueueCallsBackOnTheLibrarysThread) {
    open(BVGEO_MAIN_QUEUE_OWN_THREAD);
    // Real time: with no linger pacing every later fix inside is a linger. Standard
    // updates only, so no fix reaches the trackers twice; each step waits for its
    // trigger, since the first one waits for the zone download.
    startHost(0);
    const double now = static_cast<double>(std::time(nullptr));
    ASSERT_EQ(push(0, now, BVGEO_FIX_STANDARD), BVGEO_OK);
    ASSERT_TRUE(log_.waitForTriggers(1, 30)) << "enter";
    ASSERT_EQ(push(20, now + 1, BVGEO_FIX_STANDARD), BVGEO_OK);
    ASSERT_TRUE(log_.waitForTriggers(2, 30)) << "linger";
    ASSERT_EQ(push(800, now + 2, BVGEO_FIX_STANDARD), BVGEO_OK);
    ASSERT_TRUE(log_.waitForTriggers(3, 30)) << "exit";
    EXPECT_EQ(log_.events(), (std::vector<std::string>{"enter", "linger", "exit"}));
    std::lock_guard lock(log_.mutex);
    for (auto id : log_.callbackThreads) EXPECT_NE(id, std::this_thread::get_id());
}

TEST_F(CApiTest, HostServedMainQueueCallsBackOnTheHostsThread) {
    open(BVGEO_MAIN_QUEUE_HOST);
    startHost(0);
    const double now = static_cast<double>(std::time(nullptr));
    ASSERT_EQ(push(0, now, BVGEO_FIX_STANDARD), BVGEO_OK);
    // A host loop of its own: pump until the enter arrives, which waits for the zone
    // download on another thread.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (log_.events().empty() && std::chrono::steady_clock::now() < deadline) {
        ASSERT_EQ(bvgeo_main_queue_run_pending(tracker_, nullptr), BVGEO_OK);
        std::this_thread::yield();
    }
    ASSERT_EQ(log_.events(), std::vector<std::string>{"enter"});
    {
        std::lock_guard lock(log_.mutex);
        EXPECT_EQ(log_.callbackThreads.front(), std::this_thread::get_id());
    }

    // Or a thread given to it, until stopped.
    std::thread::id runner;
    bvgeo_status ran = BVGEO_ERR_INTERNAL;
    std::thread host([&] {
        runner = std::this_thread::get_id();
        ran = bvgeo_main_queue_run(tracker_);
    });
    ASSERT_EQ(push(800, now + 1, BVGEO_FIX_STANDARD), BVGEO_OK);
    ASSERT_TRUE(log_.waitForTriggers(2, 30)) << "exit";
    ASSERT_EQ(bvgeo_main_queue_stop(tracker_), BVGEO_OK);
    host.join();
    EXPECT_EQ(ran, BVGEO_OK);
    std::lock_guard lock(log_.mutex);
    EXPECT_EQ(log_.callbackThreads.back(), runner);
}

// Every option reaches the facade and comes back; a host built against version 1
// of the struct knows nothing past fence_listing_limit: nothing there is read or
// written, and what it sets is the whole record, the fields it does not know at
// their defaults.
TEST_F(CApiTest, OptionsRoundTripAndVersionOneStructsAreReadAndWrittenOnlyToTheirEnd) {
    open(BVGEO_MAIN_QUEUE_VIRTUAL_TIME);
    bvgeo_extended_options set;
    bvgeo_extended_options_init(&set);
    set.durable_delivery = 1;
    set.outbox_max_reports = 5;
    set.outbox_max_age_seconds = 60;
    set.max_log_rows = 100;
    set.max_location_rows = 200;
    set.fence_listing_limit = 3;
    set.zone_cache = 4;
    set.prefetch_distance = 250;
    set.robust_triggers = 1;
    set.polygon_fences = 1;
    ASSERT_EQ(bvgeo_set_extended_options(tracker_, &set), BVGEO_OK) << bvgeo_last_error();
    bvgeo_extended_options got;
    bvgeo_extended_options_init(&got);
    ASSERT_EQ(bvgeo_get_extended_options(tracker_, &got), BVGEO_OK);
    EXPECT_EQ(got.durable_delivery, 1);
    EXPECT_EQ(got.outbox_max_reports, 5u);
    EXPECT_EQ(got.outbox_max_age_seconds, 60);
    EXPECT_EQ(got.max_log_rows, 100u);
    EXPECT_EQ(got.max_location_rows, 200u);
    EXPECT_EQ(got.fence_listing_limit, 3u);
    EXPECT_EQ(got.zone_cache, 4u);
    EXPECT_EQ(got.prefetch_distance, 250.0);
    EXPECT_EQ(got.robust_triggers, 1);
    EXPECT_EQ(got.polygon_fences, 1);
    set.polygon_fences = 2;
    expectRefused(bvgeo_set_extended_options(tracker_, &set), BVGEO_ERR_INVALID_ARGUMENT, "polygon_fences 2");

    bvgeo_extended_options old;
    std::memset(&old, 0xAB, sizeof old);
    bvgeo_extended_options_init(&old);
    old.version = 1;
    old.fence_listing_limit = 4;
    old.zone_cache = 99; // past the end of a version-1 struct
    old.robust_triggers = 99;
    old.polygon_fences = 99;
    ASSERT_EQ(bvgeo_set_extended_options(tracker_, &old), BVGEO_OK) << bvgeo_last_error();
    std::memset(&got, 0xAB, sizeof got);
    got.version = 1;
    ASSERT_EQ(bvgeo_get_extended_options(tracker_, &got), BVGEO_OK);
    EXPECT_EQ(got.fence_listing_limit, 4u);
    EXPECT_EQ(got.zone_cache, 0xABABABABABABABABu) << "nothing written past a version-1 struct";
    EXPECT_EQ(got.robust_triggers, static_cast<int>(0xABABABAB));
    EXPECT_EQ(got.polygon_fences, static_cast<int>(0xABABABAB));
    got.version = BVGEO_EXTENDED_OPTIONS_VERSION;
    ASSERT_EQ(bvgeo_get_extended_options(tracker_, &got), BVGEO_OK);
    EXPECT_EQ(got.zone_cache, 0u);
    EXPECT_EQ(got.robust_triggers, 0);
    EXPECT_EQ(got.polygon_fences, 0);

    bvgeo_parameters p;
    bvgeo_parameters_init(&p);
    p.accuracy = BVGEO_ACCURACY_BEST;
    p.cache_expiration = 60;
    p.max_linger_time = 900;
    ASSERT_EQ(bvgeo_set_parameters(tracker_, &p), BVGEO_OK);
    bvgeo_parameters back;
    ASSERT_EQ(bvgeo_get_parameters(tracker_, &back), BVGEO_OK);
    EXPECT_EQ(back.accuracy, BVGEO_ACCURACY_BEST);
    EXPECT_EQ(back.cache_expiration, 60);
    EXPECT_EQ(back.max_linger_time, 900);

    char *api = nullptr, *assets = nullptr;
    ASSERT_EQ(bvgeo_set_environment_urls(tracker_, BVGEO_ENVIRONMENT_QA, "http://h/api/v1/app/", nullptr), BVGEO_OK);
    ASSERT_EQ(bvgeo_get_environment_urls(tracker_, BVGEO_ENVIRONMENT_QA, &api, &assets), BVGEO_OK);
    EXPECT_STREQ(api, "http://h/api/v1/app/");
    EXPECT_THAT(assets, ::testing::StartsWith("https://")) << "NULL kept the assets base";
    bvgeo_free(api);
    bvgeo_free(assets);

    ASSERT_EQ(bvgeo_console_start(tracker_, nullptr), BVGEO_OK) << bvgeo_last_error();
    char* url = nullptr;
    ASSERT_EQ(bvgeo_console_url(tracker_, &url), BVGEO_OK);
    EXPECT_THAT(url, ::testing::StartsWith("http://127.0.0.1:"));
    bvgeo_free(url);
    EXPECT_EQ(bvgeo_console_start(tracker_, nullptr), BVGEO_ERR_STATE);
    ASSERT_EQ(bvgeo_console_stop(tracker_), BVGEO_OK);
    ASSERT_EQ(bvgeo_console_url(tracker_, &url), BVGEO_OK);
    EXPECT_STREQ(url, "");
    bvgeo_free(url);
}

TEST_F(CApiTest, CloseSendsWhatIsOwedAndTellsWhatIsLost) {
    open(BVGEO_MAIN_QUEUE_VIRTUAL_TIME);
    startHost(300);
    ASSERT_EQ(push(0, kT0), BVGEO_OK);
    size_t owed = 99, kept = 99;
    ASSERT_EQ(bvgeo_pending_reports(tracker_, &owed), BVGEO_OK);
    ASSERT_EQ(owed, 1u) << "the enter's report waits for the queue's timer";
    ASSERT_EQ(bvgeo_close_within(tracker_, 30, &owed, &kept), BVGEO_OK) << bvgeo_last_error();
    tracker_ = nullptr;
    EXPECT_EQ(owed, 0u);
    int posts = 0;
    for (const auto& request : server_->requests()) posts += request.method == "POST";
    EXPECT_EQ(posts, 1) << "sent at close, once";

    // A trigger API that refuses connections: reports are lost, and close says so,
    // unless durable delivery keeps them.
    for (int durable : {0, 1}) {
        bvgeo::testing::FaultyServer refusing(bvgeo::testing::FaultyServer::Mode::Refuse);
        open(BVGEO_MAIN_QUEUE_VIRTUAL_TIME);
        bvgeo_extended_options extended;
        bvgeo_extended_options_init(&extended);
        extended.durable_delivery = durable;
        ASSERT_EQ(bvgeo_set_extended_options(tracker_, &extended), BVGEO_OK);
        startHost(300);
        const std::string api = refusing.url("/api/v1/app/"), assets = server_->url("/assets/");
        ASSERT_EQ(bvgeo_set_environment_urls(tracker_, BVGEO_ENVIRONMENT_DEVELOPMENT, api.c_str(), assets.c_str()),
                  BVGEO_OK);
        ASSERT_EQ(bvgeo_configure(tracker_, "capi", BVGEO_TRIGGER_MODE_BOTH, BVGEO_ENVIRONMENT_DEVELOPMENT), BVGEO_OK);
        ASSERT_EQ(push(800, kT0 + 1000 * (durable + 1)), BVGEO_OK); // the stay of the run before ends
        ASSERT_EQ(push(0, kT0 + 1000 * (durable + 1) + 60), BVGEO_OK);
        ASSERT_EQ(bvgeo_settle(tracker_, 30), BVGEO_OK);
        const auto status = bvgeo_close_within(tracker_, 0, &owed, &kept);
        tracker_ = nullptr;
        EXPECT_GE(owed, 1u) << durable;
        EXPECT_EQ(kept, durable ? owed : 0u);
        EXPECT_EQ(status, durable ? BVGEO_OK : BVGEO_ERR_REPORTS_DROPPED);
    }
}

TEST(CApiFixTime, SecondsSince1970OrNowAndNeverBehindTheVirtualClock) {
    using bvgeo::capi::timeProblem;
    using bvgeo::capi::virtualFixProblem;
    for (double good : {0.0, 1.0, kT0, 99'999'999'999.0}) EXPECT_FALSE(timeProblem("time", good)) << good;
    EXPECT_THAT(*timeProblem("time", -3), HasSubstr("time -3 is not a time"));
    EXPECT_THAT(*timeProblem("time", std::nan("")), HasSubstr("is not a time"));
    EXPECT_THAT(*timeProblem("time", kT0 * 1000), HasSubstr("time 1400000000000 looks like milliseconds"));
    EXPECT_FALSE(virtualFixProblem(kT0 - 500, kT0, false)) << "the first fix starts the clock";
    EXPECT_FALSE(virtualFixProblem(kT0, kT0, true));
    EXPECT_FALSE(virtualFixProblem(0, kT0, true)) << "0 is the clock's now";
    EXPECT_THAT(*virtualFixProblem(kT0 - 1, kT0, true), HasSubstr("before the virtual clock"));
}

// A preloaded zone answers while the zone server fails.
TEST_F(CApiTest, PreloadedZonesAnswerWhileTheZoneServerFails) {
    open(BVGEO_MAIN_QUEUE_VIRTUAL_TIME);
    bvgeo_extended_options options;
    bvgeo_extended_options_init(&options);
    options.zone_cache = 4;
    options.prefetch_distance = -1;
    expectRefused(bvgeo_set_extended_options(tracker_, &options), BVGEO_ERR_INVALID_ARGUMENT, "prefetch_distance -1");
    options.prefetch_distance = 250;
    size_t loaded = 0, skipped = 0;
    const auto zones = dir_.path() / "shipped" / "capi" / "zones";
    std::filesystem::create_directories(zones);
    dir_.write("shipped/capi/zones/zone_51500_100.json", kZoneFile);
    const std::string shipped = (dir_.path() / "shipped").string();
    EXPECT_EQ(bvgeo_preload_zones(tracker_, shipped.c_str(), &loaded, &skipped), BVGEO_ERR_NOT_CONFIGURED);

    server_ = std::make_unique<bvgeo::testing::LoopbackServer>(
        [](const httplib::Request& request, httplib::Response& response) {
            if (request.path.rfind("/assets/", 0) == 0) response.status = 500; // and no JSON body
            else response.set_content("{}", "application/json");
        });
    startHost(300);
    EXPECT_EQ(bvgeo_preload_zones(tracker_, shipped.c_str(), &loaded, &skipped), BVGEO_ERR_STATE);
    ASSERT_EQ(bvgeo_set_extended_options(tracker_, &options), BVGEO_OK);
    expectRefused(bvgeo_preload_zones(tracker_, dir_.path().string().c_str(), &loaded, &skipped), BVGEO_ERR_IO,
                  "no zone files of app id 'capi'");
    ASSERT_EQ(bvgeo_preload_zones(tracker_, shipped.c_str(), &loaded, &skipped), BVGEO_OK) << bvgeo_last_error();
    EXPECT_EQ(loaded, 1u);
    EXPECT_EQ(skipped, 0u);

    ASSERT_EQ(push(0, kT0 + 1), BVGEO_OK);
    std::lock_guard lock(log_.mutex);
    EXPECT_THAT(log_.triggers, ::testing::ElementsAre("enter quay-1 Quay regular"));
}

// Robust triggers from C: their options and fixes with their quality.
TEST_F(CApiTest, RobustTriggerOptionsAndFixQualityReachTheLibrary) {
    open(BVGEO_MAIN_QUEUE_VIRTUAL_TIME);
    bvgeo_extended_options set;
    bvgeo_extended_options_init(&set);
    set.robust_triggers = 1;
    set.confirm_fixes = 2;
    set.confirm_seconds = 5;
    ASSERT_EQ(bvgeo_set_extended_options(tracker_, &set), BVGEO_OK) << bvgeo_last_error();

    set.exit_buffer_metres = std::nan("");
    expectRefused(bvgeo_set_extended_options(tracker_, &set), BVGEO_ERR_INVALID_ARGUMENT, "exit_buffer_metres");
    set.exit_buffer_metres = 30;
    set.confirm_fixes = 0;
    expectRefused(bvgeo_set_extended_options(tracker_, &set), BVGEO_ERR_INVALID_ARGUMENT, "confirm_fixes");
    set.confirm_fixes = 2;
    ASSERT_EQ(bvgeo_set_extended_options(tracker_, &set), BVGEO_OK);

    startHost(300);
    const auto fix = [&](double east, double seconds, int mode) {
        bvgeo_fix f;
        bvgeo_fix_init(&f);
        f.latitude = kLat;
        f.longitude = kLon + east / kMetresPerDegreeLon;
        f.time = kT0 + seconds;
        f.accuracy = 5;
        f.hdop = std::nan("");
        f.mode = mode;
        return bvgeo_push_fix(tracker_, &f, BVGEO_FIX_AUTOMATIC, nullptr);
    };
    ASSERT_EQ(fix(0, 0, BVGEO_FIX_MODE_3D), BVGEO_OK) << bvgeo_last_error();
    ASSERT_EQ(fix(10, 10, BVGEO_FIX_MODE_3D), BVGEO_OK);
    ASSERT_EQ(fix(500, 200, BVGEO_FIX_MODE_2D), BVGEO_OK);
    ASSERT_EQ(fix(510, 210, BVGEO_FIX_MODE_2D), BVGEO_OK);
    EXPECT_EQ(log_.events(), (std::vector<std::string>{"enter"})) << "2D fixes change no fence";
    ASSERT_EQ(fix(520, 220, BVGEO_FIX_MODE_3D), BVGEO_OK);
    ASSERT_EQ(fix(530, 230, BVGEO_FIX_MODE_3D), BVGEO_OK);
    EXPECT_EQ(log_.events(), (std::vector<std::string>{"enter", "exit"}));
    expectRefused(fix(0, 240, 7), BVGEO_ERR_INVALID_ARGUMENT, "fix->mode");
    expectRefused(bvgeo_push_fix(tracker_, nullptr, BVGEO_FIX_AUTOMATIC, nullptr), BVGEO_ERR_INVALID_ARGUMENT, "fix");
}

TEST(CApiUtf8, AcceptsWellFormedTextAndRefusesEveryIllFormedKind) {
    using bvgeo::capi::isValidUtf8;
    for (const char* good : {"", "plain", "Ekenäs", "€", "\xF0\x9F\x97\xBA", "\xEF\xBF\xBF", "\xF4\x8F\xBF\xBF"})
        EXPECT_TRUE(isValidUtf8(good)) << good;
    for (const char* bad : {"\x80", "\xC0\xAF", "\xC1\xBF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80",
                            "\xF5\x80\x80\x80", "\xFF", "\xC3", "\xE2\x82", "abc\xE2\x82", "\xE2\x28\xA1"})
        EXPECT_FALSE(isValidUtf8(bad)) << ::testing::PrintToString(std::string(bad));
}

} // namespace
