#include "debug/MailReport.hpp"
#include "debug/MimeMessage.hpp"
#include "debug/SmtpSender.hpp"

#include "support/FaultyServer.hpp"
#include "support/SmtpSink.hpp"

#include <bvgeo/testing/TestPlatform.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>

namespace bvgeo::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

std::string decodeBase64(std::string_view text) {
    static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    std::uint32_t bits = 0;
    int count = 0;
    for (char c : text) {
        const auto value = alphabet.find(c);
        if (value == std::string::npos) continue; // line breaks and padding
        bits = bits << 6 | std::uint32_t(value);
        if ((count += 6) >= 8) out += char(bits >> (count -= 8) & 0xFF);
    }
    return out;
}

std::string decodePercent(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out += text[i];
        } else {
            out += char(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16));
            i += 2;
        }
    }
    return out;
}

// A header block read the way a mail reader does: folded lines joined, names as keys.
struct Entity {
    std::map<std::string, std::string> headers;
    std::vector<std::string> headerLines;
    std::string body;

    explicit Entity(const std::string& text) {
        const auto end = text.find("\r\n\r\n");
        std::string block = text.substr(0, end + 2);
        body = text.substr(end + 4);
        for (std::size_t at = 0; at < block.size();) {
            const auto next = block.find("\r\n", at);
            headerLines.push_back(block.substr(at, next - at));
            at = next + 2;
        }
        std::string last;
        for (const auto& line : headerLines) {
            if (line.starts_with(' ')) {
                headers[last] += line;
            } else {
                last = line.substr(0, line.find(':'));
                headers[last] = line.substr(line.find(':') + 2);
            }
        }
    }

    // A parameter in quotes, in RFC 2231 form, or in numbered RFC 2231 pieces.
    std::string parameter(const std::string& header, const std::string& name) const {
        const auto& value = headers.at(header);
        auto read = [&](const std::string& key) -> std::optional<std::string> {
            const auto at = value.find(" " + key);
            if (at == std::string::npos) return std::nullopt;
            const auto start = at + 1 + key.size();
            return value.substr(start, value.find(';', start) - start);
        };
        if (auto quoted = read(name + "=\"")) return quoted->substr(0, quoted->find('"'));
        std::string encoded = read(name + "*=").value_or("");
        for (int i = 0; auto piece = read(name + "*" + std::to_string(i) + "*="); ++i) encoded += *piece;
        EXPECT_THAT(encoded, StartsWith("UTF-8''"));
        return decodePercent(encoded.substr(7));
    }
};

std::vector<Entity> partsOf(const Entity& message) {
    const auto& type = message.headers.at("Content-Type");
    const auto boundary = "\r\n--" + type.substr(type.find("boundary=\"") + 10, type.rfind('"') - type.find("boundary=\"") - 10);
    std::vector<Entity> parts;
    const std::string body = "\r\n" + message.body;
    for (auto at = body.find(boundary); at != std::string::npos;) {
        const auto start = at + boundary.size();
        if (body.compare(start, 2, "--") == 0) break;
        at = body.find(boundary, start);
        parts.emplace_back(body.substr(start + 2, at - start - 2));
    }
    return parts;
}

TEST(MailReport, CarriesTheDeviceFieldsAndEverySqliteFileUnderItsRelativePath) {
    TestPlatform sim;
    const fs::path documents = sim.documentsDirectory();
    const std::string database("SQLite format 3\0\xFF\r\n.\r\n", 22);
    auto write = [&](const fs::path& relative, const std::string& data) {
        fs::create_directories((documents / relative).parent_path());
        std::ofstream(documents / relative, std::ios::binary) << data;
    };
    write("BVGDatabase.sqlite", database);
    write("archive/01-02-2026 10:00.sqlite", "old");
    write("notes.txt", "not a database");
    write("x.sqlite-wal", "journal");
    fs::create_directories(documents / "folder.sqlite");
    fs::create_directory_symlink(documents, documents / "loop"); // would repeat every file if followed

    const auto report = makeMailReport({"id-1", "Pixel", "Model X", "14", "2.3.1"}, sim.documentsDirectory());
    EXPECT_EQ(report.subject, "BVG SDK Tests - 2.3.1");
    EXPECT_EQ(report.body, "ID: id-1 \n Name: Pixel \n Model: Model X \n OS Version: 14 \n App Version: 2.3.1");
    ASSERT_EQ(report.attachments.size(), 2u);
    EXPECT_EQ(report.attachments[0].fileName, "BVGDatabase.sqlite");
    EXPECT_EQ(report.attachments[0].data, database);
    EXPECT_EQ(report.attachments[1].fileName, "archive/01-02-2026 10:00.sqlite");
    EXPECT_EQ(report.attachments[1].data, "old");
    for (const auto& attachment : report.attachments) EXPECT_EQ(attachment.contentType, "application/x-sqlite3");

    EXPECT_EQ(makeMailReport({}, sim.documentsDirectory() + "/").attachments.size(), 2u);
    EXPECT_TRUE(makeMailReport({}, sim.documentsDirectory() + "/missing").attachments.empty());
}

TEST(MailReport, MessageBringsBackEveryByteOfTextAndAttachments) {
    std::string binary;
    for (int i = 0; i < 256; ++i) binary += char(i);
    binary += "\r\n.\r\n" + std::string(1000, '.');
    const std::string longName = "archive/" + std::string(90, 'n') + ".sqlite";
    MailReport report = makeMailReport({"id", "Name", "Model", "OS", "1.0"}, "");
    report.attachments = {{"BVGDatabase.sqlite", "application/x-sqlite3", binary},
                          {"empty.sqlite", "application/x-sqlite3", ""},
                          {"caf\xC3\xA9 \"q\\\".sqlite", "application/x-sqlite3", "e"},
                          {longName, "application/x-sqlite3", "l"}};

    const auto text = mimeMessage(report, "app@example.com", {"a@example.com", "b@example.com"}, 1700000000, "seed");
    EXPECT_EQ(text, mimeMessage(report, "app@example.com", {"a@example.com", "b@example.com"}, 1700000000, "seed"));
    EXPECT_NE(text, mimeMessage(report, "app@example.com", {"a@example.com", "b@example.com"}, 1700000000, "other"));
    for (std::size_t at = 0, end; at < text.size(); at = end + 2) {
        end = text.find("\r\n", at);
        ASSERT_NE(end, std::string::npos) << "message ends in CRLF";
        const auto line = text.substr(at, end - at);
        EXPECT_LE(line.size(), 78u) << line;
        EXPECT_EQ(line.find_first_of("\r\n"), std::string::npos) << "bare CR or LF in: " << line;
    }

    const Entity message(text);
    EXPECT_EQ(message.headers.at("Date"), "Tue, 14 Nov 2023 22:13:20 +0000");
    EXPECT_EQ(message.headers.at("From"), "app@example.com");
    EXPECT_EQ(message.headers.at("To"), "a@example.com, b@example.com");
    EXPECT_EQ(message.headers.at("Subject"), "BVG SDK Tests - 1.0");
    EXPECT_THAT(message.headers.at("Message-ID"), ::testing::MatchesRegex("<[0-9a-f]+@bvgeo\\.local>"));
    EXPECT_EQ(message.headers.at("MIME-Version"), "1.0");

    const auto parts = partsOf(message);
    ASSERT_EQ(parts.size(), 5u);
    EXPECT_EQ(parts[0].headers.at("Content-Type"), "text/plain; charset=utf-8");
    EXPECT_EQ(decodeBase64(parts[0].body), report.body);
    for (std::size_t i = 0; i < report.attachments.size(); ++i) {
        const auto& part = parts[i + 1];
        const auto& attachment = report.attachments[i];
        EXPECT_THAT(part.headers.at("Content-Type"), StartsWith("application/x-sqlite3;"));
        EXPECT_THAT(part.headers.at("Content-Disposition"), StartsWith("attachment;"));
        EXPECT_EQ(part.headers.at("Content-Transfer-Encoding"), "base64");
        EXPECT_EQ(part.parameter("Content-Disposition", "filename"), attachment.fileName);
        EXPECT_EQ(part.parameter("Content-Type", "name"), attachment.fileName);
        EXPECT_EQ(decodeBase64(part.body), attachment.data) << attachment.fileName;
    }

    // A part that happens to hold the boundary makes the message pick another one.
    auto boundaryOf = [](const Entity& entity) {
        const auto& type = entity.headers.at("Content-Type");
        return type.substr(type.find('"') + 1, type.rfind('"') - type.find('"') - 1);
    };
    const auto taken = boundaryOf(message);
    report.attachments[0].fileName = taken + ".sqlite";
    const auto clashingText = mimeMessage(report, "app@example.com", {"a@example.com"}, 0, "seed");
    const Entity clashingMessage(clashingText);
    const auto fresh = boundaryOf(clashingMessage);
    EXPECT_NE(fresh, taken);
    int uses = 0;
    for (auto at = clashingText.find(fresh); at != std::string::npos; at = clashingText.find(fresh, at + 1)) ++uses;
    EXPECT_EQ(uses, 1 + 5 + 1) << "header, one delimiter per part, closing delimiter";
    const auto clashing = partsOf(clashingMessage);
    ASSERT_EQ(clashing.size(), 5u);
    EXPECT_EQ(clashing[1].parameter("Content-Disposition", "filename"), taken + ".sqlite");
    EXPECT_EQ(decodeBase64(clashing[1].body), binary);
}

TEST(MailReport, InputsCannotAddHeaderLinesAndNonAsciiSubjectsAreEncoded) {
    MailReport report = makeMailReport({"id", "Name", "Model", "OS", "1.0\nX-Injected: yes"}, "");
    const auto known = std::vector<std::string>{"Date:", "From:", "To:", "Subject:", "Message-ID:", "MIME-Version:",
                                                "Content-Type:"};
    auto expectOnlyKnownHeaders = [&](const Entity& message) {
        for (const auto& line : message.headerLines)
            EXPECT_TRUE(line.starts_with(' ') || std::any_of(known.begin(), known.end(), [&](const auto& name) {
                            return line.starts_with(name);
                        })) << line;
    };

    const Entity injected(mimeMessage(report, "app@example.com\r\nBcc: evil@example.com",
                                      {"a@example.com\nBcc: evil@example.com"}, 0, "s"));
    expectOnlyKnownHeaders(injected);
    EXPECT_EQ(injected.headers.at("Subject"), "BVG SDK Tests - 1.0 X-Injected: yes");
    EXPECT_EQ(injected.headers.at("Date"), "Thu, 01 Jan 1970 00:00:00 +0000");

    report.subject = "Gr\xC3\xBC\xC3\x9F" "e " + std::string(60, 'x') + " \xE2\x82\xAC";
    const Entity encoded(mimeMessage(report, "app@example.com", {"a@example.com"}, 951782400, "s"));
    expectOnlyKnownHeaders(encoded);
    EXPECT_EQ(encoded.headers.at("Date"), "Tue, 29 Feb 2000 00:00:00 +0000");
    std::string subject;
    for (std::size_t at = 0; (at = encoded.headers.at("Subject").find("=?UTF-8?B?", at)) != std::string::npos;) {
        const auto end = encoded.headers.at("Subject").find("?=", at + 10);
        subject += decodeBase64(encoded.headers.at("Subject").substr(at + 10, end - at - 10));
        at = end;
    }
    EXPECT_EQ(subject, report.subject);
}

TEST(MailReport, SendMailHandsTheMessageOverUnchanged) {
    SmtpSink sink;
    const auto message = mimeMessage(makeMailReport({"id", "n", "m", "s", "1.0"}, ""), "app@example.com",
                                     {"a@example.com", "b@example.com"}, 1700000000, "seed");
    EXPECT_EQ(sendMail({sink.url(), "Tester <app@example.com>", {"a@example.com", "b@example.com"}, "", "", 10}, message),
              std::nullopt);
    const auto& session = sink.finish();
    EXPECT_EQ(session.mailFrom, "app@example.com");
    EXPECT_THAT(session.recipients, ElementsAre("a@example.com", "b@example.com"));
    EXPECT_EQ(session.data, message);
    EXPECT_TRUE(session.quit);

    // Leading dots are doubled once on the wire, by libcurl alone.
    SmtpSink dots;
    const std::string dotted = "Subject: dots\r\n\r\n.one\r\n.\r\n..two\r\nend\r\n";
    EXPECT_EQ(sendMail({dots.url(), "app@example.com", {"a@example.com"}, "", "", 10}, dotted), std::nullopt);
    EXPECT_EQ(dots.finish().data, dotted);
    EXPECT_EQ(dots.finish().rawData, "Subject: dots\r\n\r\n..one\r\n..\r\n...two\r\nend\r\n");
}

TEST(MailReport, SendMailExplainsFailuresWithoutHanging) {
    SmtpSink silent(true);
    EXPECT_THAT(sendMail({silent.url(), "a@example.com", {"b@example.com"}, "", "", 1}, "x\r\n").value_or(""),
                HasSubstr("Timeout"));
    const FaultyServer closed(FaultyServer::Mode::Refuse);
    const auto refused = sendMail({"smtp://127.0.0.1:" + std::to_string(closed.port()), "a@example.com",
                                   {"b@example.com"}, "", "", 5}, "x\r\n");
    ASSERT_TRUE(refused.has_value());
    EXPECT_THAT(*refused, StartsWith("SMTP: "));
    EXPECT_THAT(*refused, HasSubstr("onnect"));

    EXPECT_THAT(sendMail({"smtp://127.0.0.1:1", "a@example.com", {}, "", "", 5}, "x").value_or(""),
                HasSubstr("no recipient"));
    EXPECT_THAT(sendMail({"smtp://127.0.0.1:1", "a@example.com", {"b@example.com>\r\nDATA"}, "", "", 5}, "x").value_or(""),
                HasSubstr("line break"));
    EXPECT_THAT(sendMail({"http://127.0.0.1:1", "a@example.com", {"b@example.com"}, "", "", 5}, "x").value_or(""),
                StartsWith("SMTP: "));
}

} // namespace
} // namespace bvgeo::testing
