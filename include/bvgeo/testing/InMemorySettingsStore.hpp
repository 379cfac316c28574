// InMemorySettingsStore: settings that live as long as the object. synchronize()
// counts its calls and succeeds unless told to fail.
#pragma once

#include <bvgeo/Export.hpp>
#include <bvgeo/platform/SettingsStore.hpp>

#include <map>
#include <mutex>
#include <variant>

namespace bvgeo::testing {

class BVGEO_API InMemorySettingsStore final : public SettingsStore {
public:
    std::optional<std::string> string(std::string_view key) const override;
    std::optional<std::int64_t> integer(std::string_view key) const override;
    void setString(std::string_view key, std::string value) override;
    void setInteger(std::string_view key, std::int64_t value) override;
    void remove(std::string_view key) override;
    bool synchronize() override;

    int synchronizeCalls() const;
    bool contains(std::string_view key) const;

private:
    mutable std::mutex mutex_;
    std::map<std::string, std::variant<std::string, std::int64_t>, std::less<>> values_;
    int synchronizeCalls_ = 0;
};

} // namespace bvgeo::testing
