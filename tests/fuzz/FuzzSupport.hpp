// What the fuzz targets share: reading typed values out of the input bytes, a
// console that drops every line, and the library installed on the testing bundle
// with that console, so a long campaign keeps its memory flat.
#pragma once

#include <bvgeo/platform/Console.hpp>
#include <bvgeo/testing/TestPlatform.hpp>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

namespace bvgeo::fuzz {

// Takes values from the front of the input; once it runs dry every value is zero
// or empty, so any input makes a whole call.
class FuzzBytes {
public:
    FuzzBytes(const std::uint8_t* data, std::size_t size) : rest_(reinterpret_cast<const char*>(data), size) {}

    template <class T>
    T value() {
        T out{};
        const std::size_t n = std::min(sizeof(T), rest_.size());
        std::memcpy(&out, rest_.data(), n);
        rest_.remove_prefix(n);
        return out;
    }
    bool flag() { return value<std::uint8_t>() & 1; }
    // Up to `max` bytes, the length taken from the input first.
    std::string text(std::size_t max = 64) {
        const std::size_t n = std::min<std::size_t>(value<std::uint8_t>() % (max + 1), rest_.size());
        std::string out(rest_.substr(0, n));
        rest_.remove_prefix(n);
        return out;
    }
    std::string_view remaining() const { return rest_; }

private:
    std::string_view rest_;
};

class QuietConsole final : public Console {
public:
    void log(std::string_view) override {}
    void print(std::string_view) override {}
};

// The testing bundle with a quiet console, installed once and kept for the run;
// the log table keeps its newest rows only.
testing::TestPlatform& quietLibrary();

} // namespace bvgeo::fuzz
