#include "debug/MailReport.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <filesystem>
#include <optional>
#include <string_view>

namespace bvgeo {

namespace {

bool endsWith(std::string_view text, std::string_view suffix) {
    return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

std::optional<std::string> readWholeFile(const std::filesystem::path& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    std::string data;
    char buffer[64 * 1024];
    for (;;) {
        const auto got = ::read(fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) {
            ::close(fd);
            return std::nullopt;
        }
        if (got == 0) break;
        data.append(buffer, std::size_t(got));
    }
    ::close(fd);
    return data;
}

} // namespace

MailReport makeMailReport(const DeviceReportFields& fields, const std::string& documentsDirectory) {
    MailReport report;
    try {
        report.subject = "BVG SDK Tests - " + fields.appVersion;
        report.body = "ID: " + fields.deviceId + " \n Name: " + fields.deviceName + " \n Model: " + fields.model +
                      " \n OS Version: " + fields.systemVersion + " \n App Version: " + fields.appVersion;

        namespace fs = std::filesystem;
        std::string rootText = documentsDirectory;
        while (rootText.size() > 1 && rootText.back() == '/') rootText.pop_back();
        const fs::path root(rootText);
        std::error_code error;
        fs::recursive_directory_iterator entry(root, fs::directory_options::skip_permission_denied, error);
        for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
            std::error_code typeError;
            if (!entry->is_regular_file(typeError)) continue;
            auto relative = entry->path().lexically_relative(root).generic_string();
            if (!endsWith(relative, "sqlite")) continue;
            auto data = readWholeFile(entry->path());
            if (!data) continue;
            report.attachments.push_back({std::move(relative), "application/x-sqlite3", std::move(*data)});
        }
        std::sort(report.attachments.begin(), report.attachments.end(),
                  [](const MailAttachment& a, const MailAttachment& b) { return a.fileName < b.fileName; });
    } catch (const std::exception&) {
        // Out of memory on a huge database: the report goes without what did not fit.
    }
    return report;
}

} // namespace bvgeo
