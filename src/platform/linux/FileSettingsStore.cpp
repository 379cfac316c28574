#include "platform/linux/FileSettingsStore.hpp"

#include <bvgeo/platform/DateFormatter.hpp>

#include <ctime>
#include <limits>

namespace bvgeo {

namespace {

std::string parentOf(const std::string& path) {
    auto slash = path.find_last_of('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

// The settings store is made with the platform, before its clock is installed: the
// name of a file moved aside takes the system's local time.
std::string localTimeStamp() {
    const std::time_t now = std::time(nullptr);
    std::tm fields{};
    localtime_r(&now, &fields);
    return formatDatePattern(fields, 0, "yyyyMMdd-HHmmss");
}

} // namespace

FileSettingsStore::FileSettingsStore(std::string path, std::shared_ptr<FileSystem> files,
                                     std::shared_ptr<Console> console)
    : path_(std::move(path)), files_(std::move(files)), console_(std::move(console)) {
    if (!files_->fileExists(path_)) return;
    std::string contents;
    if (auto read = files_->readFile(path_, contents); !read) {
        // Not necessarily damaged (a passing I/O error, a directory in the way): left alone.
        console_->warn("Settings file not read: " + read.error);
        return;
    }
    auto parsed = nlohmann::json::parse(contents, nullptr, /*allow_exceptions=*/false);
    if (parsed.is_object()) {
        values_ = std::move(parsed);
        return;
    }
    // Damaged: kept for a look, out of the way of the next write; the settings start empty.
    std::string error;
    if (auto movedTo = moveFileAside(*files_, path_, localTimeStamp(), {}, &error))
        console_->warn("Settings file " + path_ + " does not hold a JSON object: moved to " + *movedTo +
                       "; the settings start empty");
    else
        console_->warn("Settings file " + path_ + " does not hold a JSON object and could not be moved aside (" +
                       error + "); the settings start empty");
}

std::optional<std::string> FileSettingsStore::string(std::string_view key) const {
    std::lock_guard lock(mutex_);
    auto it = values_.find(key);
    if (it == values_.end() || !it->is_string()) return std::nullopt;
    return it->get<std::string>();
}

std::optional<std::int64_t> FileSettingsStore::integer(std::string_view key) const {
    std::lock_guard lock(mutex_);
    auto it = values_.find(key);
    if (it == values_.end()) return std::nullopt;
    if (it->is_number_unsigned()) {
        auto value = it->get<std::uint64_t>();
        if (value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) return std::nullopt;
        return static_cast<std::int64_t>(value);
    }
    if (it->is_number_integer()) return it->get<std::int64_t>();
    return std::nullopt;
}

void FileSettingsStore::setString(std::string_view key, std::string value) {
    std::lock_guard lock(mutex_);
    values_[std::string(key)] = std::move(value);
}

void FileSettingsStore::setInteger(std::string_view key, std::int64_t value) {
    std::lock_guard lock(mutex_);
    values_[std::string(key)] = value;
}

void FileSettingsStore::remove(std::string_view key) {
    std::lock_guard lock(mutex_);
    if (auto it = values_.find(key); it != values_.end()) values_.erase(it);
}

bool FileSettingsStore::synchronize() {
    std::string warning; // told after the lock is let go: the console may be a host's
    bool ok = false;
    {
        std::lock_guard writing(writeMutex_);
        ok = write(warning);
    }
    if (!warning.empty()) console_->warn(warning);
    return ok;
}

bool FileSettingsStore::write(std::string& warning) {
    std::string text;
    {
        std::lock_guard lock(mutex_);
        // Replacing invalid UTF-8 keeps dump() from throwing on a stray byte in a value.
        text = values_.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
    }
    text += '\n';
    if (auto parent = parentOf(path_); !parent.empty()) files_->createDirectories(parent);
    auto written = files_->writeFileAtomically(path_, text);
    if (written) {
        reportedWriteError_.clear();
    } else if (written.error != reportedWriteError_) {
        // Once per kind of failure: a full disk would otherwise warn at every position.
        reportedWriteError_ = written.error;
        warning = "Settings file not written: " + written.error;
    }
    return written.ok;
}

} // namespace bvgeo
