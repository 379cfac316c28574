#include "track/TrackReader.hpp"

#include "track/CsvReader.hpp"
#include "track/GpxReader.hpp"
#include "track/LineCursor.hpp"
#include "track/NmeaReader.hpp"
#include "track/TrackFixCollector.hpp"
#include "track/TrackText.hpp"

#include <cerrno>
#include <exception>
#include <system_error>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace bvgeo {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::string_view withoutByteOrderMark(std::string_view content) {
    if (content.substr(0, kByteOrderMark.size()) == kByteOrderMark) content.remove_prefix(kByteOrderMark.size());
    return content;
}

std::size_t skipPast(std::string_view text, std::size_t from, std::string_view end) {
    const auto found = text.find(end, from);
    return found == std::string_view::npos ? text.size() : found + end.size();
}

bool isNameEnd(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '>' || c == '/'; }

// Whether the first element after the prolog (declaration, comments, doctype,
// processing instructions) is <gpx>, with or without a namespace prefix.
bool hasGpxRoot(std::string_view text) {
    std::size_t pos = 0;
    while (true) {
        while (pos < text.size() && (text[pos] == ' ' || text[pos] == '\t' || text[pos] == '\r' || text[pos] == '\n'))
            ++pos;
        const std::string_view rest = text.substr(pos);
        if (rest.empty() || rest[0] != '<') return false;
        if (rest.starts_with("<?")) pos = skipPast(text, pos, "?>");
        else if (rest.starts_with("<!--")) pos = skipPast(text, pos, "-->");
        else if (rest.starts_with("<!")) pos = skipPast(text, pos, ">");
        else break;
    }
    std::size_t end = pos + 1;
    while (end < text.size() && !isNameEnd(text[end])) ++end;
    std::string_view name = text.substr(pos + 1, end - pos - 1);
    if (const auto colon = name.find(':'); colon != std::string_view::npos) name.remove_prefix(colon + 1);
    return name == "gpx" && end < text.size();
}

// "$GPGLL," or "!AIVDM,": a start character, an address of letters and digits, a comma.
bool looksLikeSentence(std::string_view line) {
    if (line.size() < 5 || (line[0] != '$' && line[0] != '!')) return false;
    std::size_t pos = 1;
    while (pos < line.size() && ((line[pos] >= 'A' && line[pos] <= 'Z') || (line[pos] >= '0' && line[pos] <= '9')))
        ++pos;
    return pos >= 4 && pos < line.size() && line[pos] == ',';
}

// std::strerror may share one buffer between threads; the category does not.
std::string errorText(int code) { return std::generic_category().message(code); }

TrackReadResult failure(std::string error) {
    TrackReadResult result;
    result.error = std::move(error);
    return result;
}

TrackReadResult readDetected(std::string_view content, std::string_view name, const TrackReadOptions& options) {
    content = withoutByteOrderMark(content);
    const auto format = detectTrackFormat(content);
    if (!format) {
        return failure(std::string(name) +
                       ": not a track file this reader knows: expected GPX (XML with a <gpx> root), NMEA 0183 "
                       "sentences, or CSV with a header naming time, lat and lon columns");
    }
    TrackFixCollector fixes(name, *format, options, *format == TrackFormat::Nmea);
    switch (*format) {
    case TrackFormat::Gpx: readGpx(content, fixes); break;
    case TrackFormat::Nmea: readNmea(content, options, fixes); break;
    case TrackFormat::Csv: readCsv(content, fixes); break;
    }
    return fixes.finish();
}

} // namespace

std::optional<TrackFormat> detectTrackFormat(std::string_view content) {
    content = withoutByteOrderMark(content);
    const auto firstVisible = content.find_first_not_of(" \t\r\n");
    if (firstVisible != std::string_view::npos && content[firstVisible] == '<') {
        return hasGpxRoot(content) ? std::optional(TrackFormat::Gpx) : std::nullopt;
    }

    LineCursor lines(content);
    std::string_view line;
    bool first = true;
    // A log may begin with half a sentence, cut where logging started; look a little further.
    for (int looked = 0; looked < 20 && lines.next(line);) {
        line = trim(line);
        if (line.empty()) continue;
        if (first && isCsvTrackHeader(line)) return TrackFormat::Csv;
        first = false;
        if (looksLikeSentence(line)) return TrackFormat::Nmea;
        ++looked;
    }
    return std::nullopt;
}

const char* trackFormatName(TrackFormat format) {
    switch (format) {
    case TrackFormat::Gpx: return "GPX";
    case TrackFormat::Nmea: return "NMEA";
    case TrackFormat::Csv: return "CSV";
    }
    return "unknown";
}

TrackReadResult readTrack(std::string_view content, std::string_view name, const TrackReadOptions& options) {
    try {
        return readDetected(content, name, options);
    } catch (const std::exception& error) {
        return failure(std::string(name) + ": " + error.what());
    } catch (...) {
        return failure(std::string(name) + ": unexpected failure");
    }
}

TrackReadResult readTrackFile(const std::string& path, const TrackReadOptions& options) {
    try {
        const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) return failure(path + ": cannot open: " + errorText(errno));
        struct FdCloser {
            int fd;
            ~FdCloser() { ::close(fd); }
        } closer{fd};

        struct stat info{};
        if (::fstat(fd, &info) != 0) return failure(path + ": cannot read: " + errorText(errno));
        if (S_ISDIR(info.st_mode)) return failure(path + ": is a directory, not a track file");

        std::string content;
        if (S_ISREG(info.st_mode)) content.reserve(static_cast<std::size_t>(info.st_size));
        char buffer[1 << 16];
        while (true) {
            const ssize_t got = ::read(fd, buffer, sizeof buffer);
            if (got == 0) break;
            if (got < 0) {
                if (errno == EINTR) continue;
                return failure(path + ": cannot read: " + errorText(errno));
            }
            content.append(buffer, static_cast<std::size_t>(got));
        }
        return readTrack(content, path, options);
    } catch (const std::exception& error) {
        return failure(path + ": " + error.what());
    } catch (...) {
        return failure(path + ": unexpected failure");
    }
}

} // namespace bvgeo
