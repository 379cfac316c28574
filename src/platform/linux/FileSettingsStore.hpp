// FileSettingsStore: settings kept in memory and written as one JSON object to a
// file, replaced atomically on synchronize(), so the file is always the old or the
// new whole. The file is read once, at construction; one that does not hold a JSON
// object is moved aside to "<name>.corrupt-<yyyyMMdd-HHmmss>.json" (local time) with
// a console warning, and the settings start empty (as they do, with a warning, when
// the file cannot be read). A failed write
// is warned about once until a write succeeds again. Thread-safe. The file system
// and console must stay usable for the store's lifetime.
#pragma once

#include <bvgeo/platform/Console.hpp>
#include <bvgeo/platform/FileSystem.hpp>
#include <bvgeo/platform/SettingsStore.hpp>

#include <nlohmann/json.hpp>

#include <memory>
#include <mutex>

namespace bvgeo {

class FileSettingsStore final : public SettingsStore {
public:
    FileSettingsStore(std::string path, std::shared_ptr<FileSystem> files, std::shared_ptr<Console> console);

    std::optional<std::string> string(std::string_view key) const override;
    std::optional<std::int64_t> integer(std::string_view key) const override;
    void setString(std::string_view key, std::string value) override;
    void setInteger(std::string_view key, std::int64_t value) override;
    void remove(std::string_view key) override;
    bool synchronize() override;

    const std::string& path() const { return path_; }

private:
    // With writeMutex_ held; `warning` receives a line to tell once it is let go.
    bool write(std::string& warning);

    const std::string path_;
    std::shared_ptr<FileSystem> files_;
    std::shared_ptr<Console> console_;

    mutable std::mutex mutex_;
    nlohmann::json values_ = nlohmann::json::object();
    // Held across a whole synchronize() so that writes land in the order their
    // snapshots were taken and the file ends with the newest one.
    std::mutex writeMutex_;
    std::string reportedWriteError_; // under writeMutex_
};

} // namespace bvgeo
