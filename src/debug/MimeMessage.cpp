#include "debug/MimeMessage.hpp"

#include <algorithm>
#include <cstdio>
#include <exception>
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

} // namespace bvgeo
