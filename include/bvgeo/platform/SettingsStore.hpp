// SettingsStore: a small persistent key-value store for the few values that must
// outlive the process (cache keys, device identifier). Thread-safe.
#pragma once

#include <bvgeo/Export.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace bvgeo {

class BVGEO_API SettingsStore {
public:
    virtual ~SettingsStore() = default;

    // Absent when the key is missing or holds a value of the other type.
    virtual std::optional<std::string> string(std::string_view key) const = 0;
    virtual std::optional<std::int64_t> integer(std::string_view key) const = 0;

    virtual void setString(std::string_view key, std::string value) = 0;
    virtual void setInteger(std::string_view key, std::int64_t value) = 0;
    virtual void remove(std::string_view key) = 0;

    // Writes the values out to durable storage. False when that failed; the values
    // stay readable in memory either way.
    virtual bool synchronize() = 0;
};

} // namespace bvgeo
