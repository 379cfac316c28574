#include "debug/MailReport.hpp"

#include "request/CurlTransport.hpp"

#include <curl/curl.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <string_view>

namespace bvgeo {

namespace {

// Both limits of RFC 5322 / 2045: no line of ours is longer than 78 characters
// (without its CRLF), and base64 text is cut at 76.
constexpr std::size_t kMaxLine = 78;
constexpr std::size_t kBase64Line = 76;

// Bytes of text per encoded-word: 42 bytes are 56 base64 characters, so even the
// first word after "Subject: " stays within the line limit.
constexpr std::size_t kEncodedWordBytes = 42;

bool endsWith(std::string_view text, std::string_view suffix) {
    return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

std::string base64(std::string_view data) {
    static constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    out.reserve((data.size() + 2) / 3 * 4);
    std::size_t i = 0;
    for (; i + 3 <= data.size(); i += 3) {
        const auto n = std::uint32_t(std::uint8_t(data[i])) << 16 | std::uint32_t(std::uint8_t(data[i + 1])) << 8 |
                       std::uint32_t(std::uint8_t(data[i + 2]));
        out += kAlphabet[n >> 18 & 63];
        out += kAlphabet[n >> 12 & 63];
        out += kAlphabet[n >> 6 & 63];
        out += kAlphabet[n & 63];
    }
    if (const auto rest = data.size() - i; rest > 0) {
        auto n = std::uint32_t(std::uint8_t(data[i])) << 16;
        if (rest == 2) n |= std::uint32_t(std::uint8_t(data[i + 1])) << 8;
        out += kAlphabet[n >> 18 & 63];
        out += kAlphabet[n >> 12 & 63];
        out += rest == 2 ? kAlphabet[n >> 6 & 63] : '=';
        out += '=';
    }
    return out;
}

// Base64 in lines of 76 joined by CRLF, without a CRLF after the last one: the CRLF
// in front of the next boundary closes it.
std::string base64Lines(std::string_view data) {
    const auto flat = base64(data);
    std::string out;
    out.reserve(flat.size() + flat.size() / kBase64Line * 2);
    for (std::size_t at = 0; at < flat.size(); at += kBase64Line) {
        if (at > 0) out += "\r\n";
        out.append(flat, at, kBase64Line);
    }
    return out;
}

std::uint64_t fnv1a(std::string_view text) {
    std::uint64_t hash = 0xcbf29ce484222325ULL;
    for (unsigned char c : text) {
        hash ^= c;
        hash *= 0x100000001b3ULL;
    }
    return hash;
}

std::string hex64(std::uint64_t value) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string out(16, '0');
    for (int i = 15; i >= 0; --i, value >>= 4) out[std::size_t(i)] = kDigits[value & 15];
    return out;
}

// A header holds one logical line: each run of CR and LF becomes one blank, so a
// caller's text can never start a header of its own.
std::string oneLine(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r' || text[i] == '\n') {
            while (i + 1 < text.size() && (text[i + 1] == '\r' || text[i + 1] == '\n')) ++i;
            out += ' ';
        } else {
            out += text[i];
        }
    }
    return out;
}

// Addresses carry no control characters at all; whatever a caller put there is
// dropped rather than turned into something that looks like a different address.
std::string cleanAddress(std::string_view address) {
    std::string out;
    for (char c : address)
        if (std::uint8_t(c) >= 0x20 && c != 0x7f) out += c;
    const auto first = out.find_first_not_of(' ');
    if (first == std::string::npos) return {};
    return out.substr(first, out.find_last_not_of(' ') - first + 1);
}

bool isPlainHeaderText(std::string_view text) {
    for (char c : text)
        if (std::uint8_t(c) < 0x20 || std::uint8_t(c) >= 0x7f) return false;
    return text.find("=?") == std::string_view::npos;
}

// "Subject: value", folded into RFC 2047 encoded-words when the value is not plain
// printable ASCII, could be mistaken for an encoded-word, or is too long for a line.
std::string subjectHeader(std::string_view subject) {
    const std::string value = oneLine(subject);
    const std::string_view name = "Subject: ";
    if (isPlainHeaderText(value) && name.size() + value.size() <= kMaxLine)
        return std::string(name) + value + "\r\n";

    std::string out(name);
    std::size_t at = 0;
    bool first = true;
    do {
        std::size_t cut = std::min(value.size(), at + kEncodedWordBytes);
        // Never split a UTF-8 sequence between two words, unless the text is not
        // UTF-8 at all and there is nothing else to cut at.
        auto isContinuation = [&](std::size_t i) { return i < value.size() && (std::uint8_t(value[i]) & 0xC0) == 0x80; };
        std::size_t back = cut;
        while (back > at && isContinuation(back)) --back;
        if (back > at) cut = back;
        if (!first) out += "\r\n ";
        out += "=?UTF-8?B?" + base64(std::string_view(value).substr(at, cut - at)) + "?=";
        first = false;
        at = cut;
    } while (at < value.size());
    return out + "\r\n";
}

// "To: a, b, c" folded after a comma when the next address would not fit.
std::string addressListHeader(std::string_view name, const std::vector<std::string>& addresses) {
    std::string out(name);
    out += ':';
    std::size_t lineLength = out.size();
    bool first = true;
    for (const auto& raw : addresses) {
        const auto address = cleanAddress(raw);
        if (address.empty()) continue;
        if (!first) {
            out += ',';
            ++lineLength;
            if (lineLength + 1 + address.size() > kMaxLine) {
                out += "\r\n";
                lineLength = 0;
            }
        }
        out += ' ';
        out += address;
        lineLength += 1 + address.size();
        first = false;
    }
    return out + "\r\n";
}

bool isAttrChar(char c) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
    return std::string_view("!#$&+-.^_`|~").find(c) != std::string_view::npos;
}

// One header parameter as folded lines, each starting with a blank, to be joined
// with ";\r\n". Plain names go in quotes; names with non-ASCII bytes, quotes,
// backslashes, control characters or more length than a line takes use RFC 2231's
// UTF-8 percent form, cut into numbered pieces when long.
std::vector<std::string> parameterLines(std::string_view name, std::string_view value) {
    const bool quotable = std::all_of(value.begin(), value.end(), [](char c) {
        return std::uint8_t(c) >= 0x20 && std::uint8_t(c) < 0x7f && c != '"' && c != '\\';
    });
    // Room for the ';' that may follow.
    const std::size_t room = kMaxLine - 1;
    if (quotable && 1 + name.size() + 3 + value.size() <= room)
        return {" " + std::string(name) + "=\"" + std::string(value) + "\""};

    std::vector<std::string> encoded{"UTF-8''"}; // pieces of the value, never splitting a %XX
    for (char c : value) {
        if (isAttrChar(c)) {
            encoded.emplace_back(1, c);
        } else {
            static constexpr char kDigits[] = "0123456789ABCDEF";
            encoded.push_back({'%', kDigits[std::uint8_t(c) >> 4], kDigits[std::uint8_t(c) & 15]});
        }
    }
    std::string whole;
    for (const auto& piece : encoded) whole += piece;
    if (1 + name.size() + 2 + whole.size() <= room) return {" " + std::string(name) + "*=" + whole};

    auto pieceHead = [&](std::size_t index) { return " " + std::string(name) + "*" + std::to_string(index) + "*="; };
    std::vector<std::string> lines;
    std::string line = pieceHead(0);
    for (const auto& piece : encoded) {
        if (line.size() + piece.size() > room) {
            lines.push_back(std::move(line));
            line = pieceHead(lines.size());
        }
        line += piece;
    }
    lines.push_back(std::move(line));
    return lines;
}

std::string joinParameters(std::string_view head, const std::vector<std::string>& lines) {
    std::string out(head);
    for (const auto& line : lines) out += ";\r\n" + line;
    return out + "\r\n";
}

// type "/" subtype, both RFC 2045 tokens; anything else is sent as plain bytes.
std::string safeContentType(std::string_view type) {
    auto isTokenChar = [](char c) {
        return std::uint8_t(c) > 0x20 && std::uint8_t(c) < 0x7f &&
               std::string_view("()<>@,;:\\\"/[]?=").find(c) == std::string_view::npos;
    };
    const auto slash = type.find('/');
    const bool valid = slash != std::string_view::npos && slash > 0 && slash + 1 < type.size() &&
                       std::all_of(type.begin(), type.begin() + std::ptrdiff_t(slash), isTokenChar) &&
                       std::all_of(type.begin() + std::ptrdiff_t(slash) + 1, type.end(), isTokenChar) &&
                       type.size() <= 60;
    return valid ? std::string(type) : std::string("application/octet-stream");
}

std::string attachmentPart(const MailAttachment& attachment) {
    std::string out = joinParameters("Content-Type: " + safeContentType(attachment.contentType),
                                     parameterLines("name", attachment.fileName));
    out += joinParameters("Content-Disposition: attachment", parameterLines("filename", attachment.fileName));
    out += "Content-Transfer-Encoding: base64\r\n\r\n";
    return out + base64Lines(attachment.data);
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

// The address inside "<...>" when there is one ("Name <a@b>"), the whole text
// otherwise: SMTP's envelope takes only the address.
std::string envelopeAddress(std::string_view address) {
    const auto open = address.rfind('<');
    const auto close = address.rfind('>');
    if (open != std::string_view::npos && close != std::string_view::npos && open < close)
        address = address.substr(open + 1, close - open - 1);
    while (!address.empty() && address.front() == ' ') address.remove_prefix(1);
    while (!address.empty() && address.back() == ' ') address.remove_suffix(1);
    return std::string(address);
}

bool fitsOneCommand(std::string_view text) {
    return text.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

struct Upload {
    const std::string* message = nullptr;
    std::size_t offset = 0;
};

std::size_t readUpload(char* buffer, std::size_t size, std::size_t count, void* context) {
    auto* upload = static_cast<Upload*>(context);
    const auto n = std::min(size * count, upload->message->size() - upload->offset);
    std::memcpy(buffer, upload->message->data() + upload->offset, n);
    upload->offset += n;
    return n;
}

std::optional<std::string> sendWithCurl(const MailServerSettings& settings, const std::string& message) {
    if (settings.url.empty()) return "SMTP: no mail server is configured";
    if (!fitsOneCommand(settings.url) || !fitsOneCommand(settings.username) || !fitsOneCommand(settings.password))
        return "SMTP: the server settings hold a line break";
    const auto from = envelopeAddress(settings.from);
    if (from.empty()) return "SMTP: no sender address";
    if (!fitsOneCommand(from)) return "SMTP: the sender address holds a line break";
    std::vector<std::string> recipients;
    for (const auto& to : settings.to) {
        auto address = envelopeAddress(to);
        if (address.empty()) continue;
        // libcurl writes these into MAIL and RCPT commands as they are; a line break
        // would let an address append commands of its own.
        if (!fitsOneCommand(address)) return "SMTP: a recipient address holds a line break";
        recipients.push_back(std::move(address));
    }
    if (recipients.empty()) return "SMTP: no recipient";

    ensureCurlReady();
    CURL* easy = curl_easy_init();
    if (!easy) return "SMTP: cannot start a transfer";
    curl_slist* rcpt = nullptr;
    for (const auto& address : recipients) {
        auto* grown = curl_slist_append(rcpt, address.c_str());
        if (!grown) {
            curl_slist_free_all(rcpt);
            curl_easy_cleanup(easy);
            return "SMTP: out of memory";
        }
        rcpt = grown;
    }

    char errorBuffer[CURL_ERROR_SIZE] = {};
    Upload upload{&message, 0};
    const long timeout = settings.timeoutSeconds > 0 ? settings.timeoutSeconds : 30;

    CURLcode code = curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, errorBuffer);
    auto set = [&](CURLoption option, auto value) {
        if (code == CURLE_OK) code = curl_easy_setopt(easy, option, value);
    };
    set(CURLOPT_URL, settings.url.c_str());
    // Nothing but mail: a URL that names another scheme must not upload the report elsewhere.
#if LIBCURL_VERSION_NUM >= 0x075500
    set(CURLOPT_PROTOCOLS_STR, "smtp,smtps");
#else
    set(CURLOPT_PROTOCOLS, long(CURLPROTO_SMTP | CURLPROTO_SMTPS));
#endif
    set(CURLOPT_USE_SSL, long(CURLUSESSL_TRY));
    set(CURLOPT_MAIL_FROM, from.c_str());
    set(CURLOPT_MAIL_RCPT, rcpt);
    // The message goes out as it is: libcurl doubles leading dots and adds the final
    // "." line itself, so the text must not be dot-stuffed here as well.
    set(CURLOPT_UPLOAD, 1L);
    set(CURLOPT_READFUNCTION, &readUpload);
    set(CURLOPT_READDATA, &upload);
    set(CURLOPT_INFILESIZE_LARGE, curl_off_t(message.size()));
    if (!settings.username.empty()) {
        set(CURLOPT_USERNAME, settings.username.c_str());
        set(CURLOPT_PASSWORD, settings.password.c_str());
    }
    set(CURLOPT_CONNECTTIMEOUT, timeout);
    set(CURLOPT_TIMEOUT, timeout);
    // Timeouts without SIGALRM: this runs on whatever thread the caller has.
    set(CURLOPT_NOSIGNAL, 1L);
    if (code == CURLE_OK) code = curl_easy_perform(easy);

    curl_slist_free_all(rcpt);
    curl_easy_cleanup(easy);
    if (code == CURLE_OK) return std::nullopt;
    std::string error = std::string("SMTP: ") + curl_easy_strerror(code);
    if (errorBuffer[0] != '\0' && std::strcmp(errorBuffer, curl_easy_strerror(code)) != 0)
        error += std::string(" (") + errorBuffer + ")";
    return error;
}

} // namespace

std::string rfc5322Date(std::int64_t unixSeconds) {
    static constexpr const char* kDays[] = {"Thu", "Fri", "Sat", "Sun", "Mon", "Tue", "Wed"};
    static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                              "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    std::int64_t days = unixSeconds / 86400;
    std::int64_t secondOfDay = unixSeconds % 86400;
    if (secondOfDay < 0) {
        secondOfDay += 86400;
        --days;
    }
    const auto weekday = ((days % 7) + 7) % 7; // 1970-01-01 was a Thursday

    // Days to a proleptic Gregorian date, counting in 400-year eras from 0000-03-01
    // so the leap day falls at the end of each counted year.
    const std::int64_t z = days + 719468;
    const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const std::int64_t dayOfEra = z - era * 146097;
    const std::int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const std::int64_t shiftedMonth = (5 * dayOfYear + 2) / 153;
    const std::int64_t day = dayOfYear - (153 * shiftedMonth + 2) / 5 + 1;
    const std::int64_t month = shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9;
    const std::int64_t year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);

    char text[64];
    std::snprintf(text, sizeof text, "%s, %02d %s %04lld %02d:%02d:%02d +0000", kDays[weekday], int(day),
                  kMonths[month - 1], static_cast<long long>(year), int(secondOfDay / 3600),
                  int(secondOfDay / 60 % 60), int(secondOfDay % 60));
    return text;
}

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

std::string mimeMessage(const MailReport& report, const std::string& from, const std::vector<std::string>& to,
                        std::int64_t unixSeconds, const std::string& boundarySeed) {
    try {
        // The text goes as base64 like the attachments: it is the one encoding that
        // brings back its bare line feeds and the blanks around them byte for byte.
        std::vector<std::string> parts;
        parts.push_back("Content-Type: text/plain; charset=utf-8\r\n"
                        "Content-Transfer-Encoding: base64\r\n\r\n" +
                        base64Lines(report.body));
        for (const auto& attachment : report.attachments) parts.push_back(attachmentPart(attachment));

        // "=_" never occurs in base64, so the first candidate nearly always holds; the
        // search covers headers with file names a caller chose.
        std::string boundary;
        for (unsigned attempt = 0;; ++attempt) {
            boundary = "=_bvgeo_" + hex64(fnv1a("boundary\n" + boundarySeed + "\n" + std::to_string(attempt)));
            const bool clashes = std::any_of(parts.begin(), parts.end(), [&](const std::string& part) {
                return part.find(boundary) != std::string::npos;
            });
            if (!clashes) break;
        }

        std::string out;
        out += "Date: " + rfc5322Date(unixSeconds) + "\r\n";
        out += "From: " + cleanAddress(from) + "\r\n";
        out += addressListHeader("To", to);
        out += subjectHeader(report.subject);
        out += "Message-ID: <" + hex64(fnv1a("message-id\n" + boundarySeed)) +
               hex64(fnv1a("message-id\n" + boundarySeed + "\n" + std::to_string(unixSeconds))) + "@bvgeo.local>\r\n";
        out += "MIME-Version: 1.0\r\n";
        out += "Content-Type: multipart/mixed;\r\n boundary=\"" + boundary + "\"\r\n";
        out += "\r\nThis is a multi-part message in MIME format.\r\n";
        for (const auto& part : parts) out += "--" + boundary + "\r\n" + part + "\r\n";
        out += "--" + boundary + "--\r\n";
        return out;
    } catch (const std::exception&) {
        return {};
    }
}

std::optional<std::string> sendMail(const MailServerSettings& settings, const std::string& message) {
    try {
        return sendWithCurl(settings, message);
    } catch (const std::exception& error) {
        return std::string("SMTP: ") + error.what();
    }
}

} // namespace bvgeo
