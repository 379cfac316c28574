#include <bvgeo/testing/InMemorySettingsStore.hpp>

namespace bvgeo::testing {

std::optional<std::string> InMemorySettingsStore::string(std::string_view key) const {
    std::lock_guard lock(mutex_);
    auto it = values_.find(key);
    if (it == values_.end()) return std::nullopt;
    if (const auto* text = std::get_if<std::string>(&it->second)) return *text;
    return std::nullopt;
}

std::optional<std::int64_t> InMemorySettingsStore::integer(std::string_view key) const {
    std::lock_guard lock(mutex_);
    auto it = values_.find(key);
    if (it == values_.end()) return std::nullopt;
    if (const auto* number = std::get_if<std::int64_t>(&it->second)) return *number;
    return std::nullopt;
}

void InMemorySettingsStore::setString(std::string_view key, std::string value) {
    std::lock_guard lock(mutex_);
    values_.insert_or_assign(std::string(key), std::move(value));
}

void InMemorySettingsStore::setInteger(std::string_view key, std::int64_t value) {
    std::lock_guard lock(mutex_);
    values_.insert_or_assign(std::string(key), value);
}

void InMemorySettingsStore::remove(std::string_view key) {
    std::lock_guard lock(mutex_);
    if (auto it = values_.find(key); it != values_.end()) values_.erase(it);
}

bool InMemorySettingsStore::synchronize() {
    std::lock_guard lock(mutex_);
    ++synchronizeCalls_;
    return true;
}

int InMemorySettingsStore::synchronizeCalls() const {
    std::lock_guard lock(mutex_);
    return synchronizeCalls_;
}

bool InMemorySettingsStore::contains(std::string_view key) const {
    std::lock_guard lock(mutex_);
    return values_.find(key) != values_.end();
}

} // namespace bvgeo::testing
