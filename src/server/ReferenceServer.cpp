#include "server/ReferenceServer.hpp"

#include "platform/TextTrim.hpp"

#include <nlohmann/json.hpp>

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <random>

namespace bvgeo {

namespace {

using nlohmann::json;

constexpr std::string_view kApiPrefix = "/api/v1/app/";
constexpr std::array<std::string_view, 7> kWeekdays = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::array<std::string_view, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr std::array<std::string_view, 3> kEvents = {"enter", "linger", "exit"};
constexpr std::array<std::string_view, 4> kTriggerMembers = {"deviceId", "event", "timestamp", "fenceId"};

// What a static object store answers for a key it will not hand out, missing or
// not: the library has to cope with exactly this non-JSON body.
constexpr std::string_view kAccessDenied =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<Error><Code>AccessDenied</Code><Message>Access Denied</Message></Error>";

// Paths and error texts may carry any bytes: jsonResponse never throws on bad
// UTF-8, which would turn a 400 into a 500.
ServerResponse jsonError(int status, const std::string& message) { return jsonResponse(status, {{"error", message}}); }

ServerResponse accessDenied() {
    ServerResponse response;
    response.status = 403;
    response.contentType = "application/xml";
    response.body = std::string(kAccessDenied);
    return response;
}

ServerResponse unavailable() {
    ServerResponse response;
    response.status = 503;
    return response;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    while (true) {
        auto at = text.find(separator);
        parts.push_back(text.substr(0, at));
        if (at == std::string_view::npos) return parts;
        text.remove_prefix(at + 1);
    }
}

// Object keys are plain file names: nothing that a shell, a URL or the file system
// would read as anything but letters.
bool isKeyCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '_' ||
           c == '-';
}

bool isUppercaseUuid(std::string_view text) {
    if (text.size() != 36) return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        if (dash ? c != '-' : !((c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'))) return false;
    }
    return true;
}

bool isMember(std::string_view name) {
    return std::find(kTriggerMembers.begin(), kTriggerMembers.end(), name) != kTriggerMembers.end();
}

// Every fault in a trigger body, so one 400 tells the sender all it got wrong.
std::vector<std::string> triggerBodyProblems(const json& body) {
    std::vector<std::string> problems;
    for (auto name : kTriggerMembers) {
        auto found = body.find(std::string(name));
        if (found == body.end()) {
            problems.push_back("missing member \"" + std::string(name) + "\"");
            continue;
        }
        if (name == "timestamp") {
            if (!found->is_number_integer())
                problems.push_back("member \"timestamp\" must be an integer");
            else if (found->is_number_unsigned() &&
                     found->get<std::uint64_t>() > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
                problems.push_back("member \"timestamp\" is out of range");
            continue;
        }
        if (!found->is_string()) {
            problems.push_back("member \"" + std::string(name) + "\" must be a string");
            continue;
        }
        const auto& text = found->get_ref<const std::string&>();
        if (name == "deviceId" && !isUppercaseUuid(text))
            problems.push_back("member \"deviceId\" must be a 36-character upper-case UUID");
        if (name == "event" && std::find(kEvents.begin(), kEvents.end(), text) == kEvents.end())
            problems.push_back("member \"event\" must be one of enter, linger, exit");
        if (name == "fenceId" && text.empty()) problems.push_back("member \"fenceId\" is empty");
    }
    for (const auto& item : body.items())
        if (!isMember(item.key())) problems.push_back("unexpected member \"" + item.key() + "\"");
    return problems;
}

std::string joined(const std::vector<std::string>& parts) {
    std::string out;
    for (const auto& part : parts) out += (out.empty() ? "" : "; ") + part;
    return out;
}

bool readFile(const std::string& path, std::string& contents) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    contents.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return !in.bad();
}

std::function<double()> defaultRandom() {
    auto engine = std::make_shared<std::mt19937_64>(std::random_device{}());
    return [engine] { return std::uniform_real_distribution<double>(0.0, 1.0)(*engine); };
}

std::int64_t systemNow() {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

} // namespace

ReferenceServer::ReferenceServer(ReferenceServerOptions options) : options_(std::move(options)) {
    if (std::isnan(options_.failRate)) options_.failRate = 0.0;
    options_.failRate = std::clamp(options_.failRate, 0.0, 1.0);
    options_.delayMilliseconds = std::max(0, options_.delayMilliseconds);
    if (!options_.random) options_.random = defaultRandom();
    if (!options_.now) options_.now = systemNow;
    ready_ = store_.open(options_.triggerDatabasePath);
    if (!ready_) error_ = store_.lastError();
}

ServerResponse ReferenceServer::handle(const ServerRequest& request) {
    try {
        std::string_view path = request.path;
        if (path.starts_with(kApiPrefix)) {
            auto segments = split(path.substr(kApiPrefix.size()), '/');
            if (segments.size() == 2 && !segments[0].empty()) {
                std::string appId(segments[0]);
                if (segments[1] == "trigger" && request.method == "POST") {
                    if (drawFailure()) return unavailable();
                    return storeTrigger(appId, request);
                }
                if (segments[1] == "triggers" && request.method == "GET") return listTriggers(appId);
            }
        } else if (request.method == "GET" && path.starts_with('/')) {
            if (drawFailure()) return unavailable();
            return serveZoneFile(request);
        }
        return jsonError(404, "no route for " + request.method + " " + request.path);
    } catch (const std::exception& error) {
        return jsonError(500, std::string("internal error: ") + error.what());
    }
}

ServerResponse ReferenceServer::serveZoneFile(const ServerRequest& request) {
    std::string_view key = std::string_view(request.path).substr(1);
    if (key.find("..") != std::string_view::npos) return accessDenied();
    for (char c : key)
        if (c != '/' && !isKeyCharacter(c)) return accessDenied();
    auto segments = split(key, '/');
    for (auto segment : segments)
        if (segment.starts_with('.')) return accessDenied(); // ".", hidden files
    if (segments.size() < 2 || segments[1] != "zones")
        return jsonError(404, "no route for " + request.method + " " + request.path);
    // Under zones/ only plain file names exist; any other key is simply not there.
    if (segments.size() != 3 || segments[0].empty() || segments[2].empty()) return accessDenied();

    std::string file = options_.rootDirectory + "/" + std::string(key);
    struct stat status {};
    if (::stat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return accessDenied();
    // Stamped before the read: if the file is replaced in between, the client holds
    // an older date than its bytes and simply downloads them once more next time.
    std::string lastModified = httpDate(status.st_mtime);

    if (auto since = request.header("If-Modified-Since")) {
        auto sinceTime = parseHttpDate(trim(*since, kSpacesAndTabs));
        if (trim(*since, kSpacesAndTabs) == lastModified || (sinceTime && *sinceTime >= status.st_mtime)) {
            ServerResponse response;
            response.status = 304;
            response.headers.emplace_back("Last-Modified", lastModified);
            return response;
        }
    }

    ServerResponse response;
    if (!readFile(file, response.body)) return accessDenied();
    response.status = 200;
    response.contentType = "application/json";
    response.headers.emplace_back("Last-Modified", lastModified);
    return response;
}

ServerResponse ReferenceServer::storeTrigger(const std::string& appId, const ServerRequest& request) {
    auto sdkVersion = queryParameter(request.query, "sdk_ver");
    if (!sdkVersion || sdkVersion->empty()) return jsonError(400, "query parameter sdk_ver is missing");
    auto contentType = request.header("Content-Type").value_or("");
    auto mediaType = trim(std::string_view(contentType).substr(0, contentType.find(';')), kSpacesAndTabs);
    if (!equalsIgnoringCase(mediaType, "application/json"))
        return jsonError(400, "Content-Type must be application/json, not \"" + contentType + "\"");

    auto body = json::parse(request.body, nullptr, /*allow_exceptions=*/false);
    if (body.is_discarded()) return jsonError(400, "body is not JSON");
    if (!body.is_object()) return jsonError(400, "body must be a JSON object");
    auto problems = triggerBodyProblems(body);
    if (!problems.empty()) return jsonError(400, joined(problems));

    if (!ready_) return jsonError(500, "trigger store unavailable: " + error_);
    StoredTrigger trigger;
    trigger.appId = appId;
    trigger.deviceId = body["deviceId"].get<std::string>();
    trigger.event = body["event"].get<std::string>();
    trigger.timestamp = body["timestamp"].get<std::int64_t>();
    trigger.fenceId = body["fenceId"].get<std::string>();
    trigger.sdkVersion = *sdkVersion;
    trigger.receivedAt = currentTime();
    trigger.idempotencyKey = std::string(trim(request.header("Idempotency-Key").value_or(""), kSpacesAndTabs));
    auto outcome = store_.insert(trigger);
    if (!outcome) return jsonError(500, store_.lastError());
    if (outcome->duplicate) {
        ServerResponse response = jsonResponse(200, json::object());
        response.body = R"({"ok":true,"duplicate":true})"; // in this order, which json would sort
        return response;
    }
    return jsonResponse(200, {{"status", "ok"}, {"id", outcome->id}});
}

ServerResponse ReferenceServer::listTriggers(const std::string& appId) {
    if (!ready_) return jsonError(500, "trigger store unavailable: " + error_);
    auto rows = store_.triggersForApp(appId);
    if (!rows) return jsonError(500, store_.lastError());
    json list = json::array();
    for (const auto& row : *rows) {
        json item{{"deviceId", row.deviceId},   {"event", row.event},           {"timestamp", row.timestamp},
                  {"fenceId", row.fenceId},     {"sdkVersion", row.sdkVersion}, {"receivedAt", row.receivedAt}};
        if (!row.idempotencyKey.empty()) {
            item["idempotencyKey"] = row.idempotencyKey;
            item["duplicates"] = row.duplicates;
        }
        list.push_back(std::move(item));
    }
    return jsonResponse(200, {{"triggers", std::move(list)}});
}

bool ReferenceServer::drawFailure() {
    if (options_.failRate <= 0.0) return false;
    if (options_.failRate >= 1.0) return true;
    std::lock_guard lock(sourcesMutex_);
    return options_.random() < options_.failRate;
}

std::int64_t ReferenceServer::currentTime() {
    std::lock_guard lock(sourcesMutex_);
    return options_.now();
}

std::string ReferenceServer::httpDate(std::int64_t secondsSince1970) {
    std::time_t time = static_cast<std::time_t>(secondsSince1970);
    std::tm fields{};
    if (!gmtime_r(&time, &fields)) return {};
    // By hand rather than strftime: %a and %b follow the process locale, and HTTP
    // dates are always English.
    char text[64];
    std::snprintf(text, sizeof text, "%s, %02d %s %04d %02d:%02d:%02d GMT",
                  std::string(kWeekdays[static_cast<std::size_t>(fields.tm_wday)]).c_str(), fields.tm_mday,
                  std::string(kMonths[static_cast<std::size_t>(fields.tm_mon)]).c_str(), fields.tm_year + 1900,
                  fields.tm_hour, fields.tm_min, fields.tm_sec);
    return text;
}

std::optional<std::int64_t> ReferenceServer::parseHttpDate(std::string_view text) {
    // "Sun, 06 Nov 1994 08:49:37 GMT": fixed width, so fields sit at fixed offsets.
    if (text.size() != 29) return std::nullopt;
    auto number = [&](std::size_t at, std::size_t width) -> std::optional<int> {
        int value = 0;
        for (std::size_t i = at; i < at + width; ++i) {
            if (text[i] < '0' || text[i] > '9') return std::nullopt;
            value = value * 10 + (text[i] - '0');
        }
        return value;
    };
    auto month = std::find(kMonths.begin(), kMonths.end(), text.substr(8, 3));
    auto day = number(5, 2), year = number(12, 4), hour = number(17, 2), minute = number(20, 2),
         second = number(23, 2);
    if (month == kMonths.end() || !day || !year || !hour || !minute || !second) return std::nullopt;
    std::tm fields{};
    fields.tm_mday = *day;
    fields.tm_mon = static_cast<int>(month - kMonths.begin());
    fields.tm_year = *year - 1900;
    fields.tm_hour = *hour;
    fields.tm_min = *minute;
    fields.tm_sec = *second;
    std::int64_t seconds = timegm(&fields);
    // timegm normalises out-of-range fields (31 Feb, hour 25) and ignores the
    // weekday; writing the result back catches both, and every separator with them.
    if (httpDate(seconds) != text) return std::nullopt;
    return seconds;
}

} // namespace bvgeo
