#include "capi/CApiCall.hpp"

#include "capi/Utf8.hpp"
#include "logger/Logger.hpp"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace bvgeo::capi {

std::atomic<bvgeo_tracker*> openTracker{nullptr};
std::mutex lifecycleMutex;

namespace {
thread_local std::string lastError;
} // namespace

const std::string& lastErrorText() { return lastError; }

bvgeo_status succeed() {
    lastError.clear();
    return BVGEO_OK;
}

bvgeo_status fail(const char* function, int line, bvgeo_status status, const std::string& message) {
    lastError = std::string(function) + ": " + message;
    if (openTracker.load(std::memory_order_acquire)) {
        try {
            Logger::log(message, LogCategory::GENERAL, function, line);
            return status;
        } catch (...) {
            // fall through to stderr
        }
    }
    std::fprintf(stderr, "bvgeo: %s\n", lastError.c_str());
    return status;
}

bvgeo_status failLogged(const char* function, bvgeo_status status, const std::string& message) {
    lastError = std::string(function) + ": " + message;
    return status;
}

const char* textProblem(const char* value) {
    if (!value) return "is NULL";
    if (!isValidUtf8(value)) return "is not valid UTF-8";
    return nullptr;
}

Session* sessionOf(bvgeo_tracker* tracker) {
    if (!tracker || tracker != openTracker.load(std::memory_order_acquire)) return nullptr;
    return tracker->session.get();
}

char* duplicate(const std::string& text) {
    char* copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy) std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

std::string number(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

std::string outOfRange(const char* owner, const char* field, const std::string& value, const char* rule) {
    return std::string(owner) + "->" + field + " " + value + " is out of range (" + rule + ")";
}

bvgeo_status giveText(const char* function, int line, char** out, const std::string& text) {
    *out = duplicate(text);
    if (!*out) return fail(function, line, BVGEO_ERR_INTERNAL, "out of memory");
    return succeed();
}

} // namespace bvgeo::capi
