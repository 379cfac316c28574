// The debug console's "Send to Email" report: gathering the device report and the
// databases it carries, turning it into one standalone MIME message (the same text
// is sent over SMTP or saved as an .eml file), and sending that text with libcurl.
//
// Pure functions apart from the file reads in makeMailReport and the network in
// sendMail; every one runs on the caller's thread and may be called from any thread.
// None of them throws.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace bvgeo {

struct MailAttachment {
    std::string fileName;    // shown to the reader; may hold '/' for files from subfolders
    std::string contentType; // a MIME type such as "application/x-sqlite3"
    std::string data;        // raw bytes
};

struct MailReport {
    std::string subject;
    std::string body; // plain text, UTF-8
    std::vector<MailAttachment> attachments;
};

struct MailServerSettings {
    // "smtp://host:port" (upgraded with STARTTLS when the server offers it, plain
    // otherwise) or "smtps://host:port" (TLS from the first byte).
    std::string url;
    std::string from;            // envelope and header sender; "Name <a@b>" is allowed
    std::vector<std::string> to; // at least one recipient
    std::string username;        // empty: no login
    std::string password;
    long timeoutSeconds = 30; // whole exchange, connection included; <= 0 means 30
};

struct DeviceReportFields {
    std::string deviceId;
    std::string deviceName;
    std::string model;
    std::string systemVersion;
    std::string appVersion;
};

// Subject "BVG SDK Tests - <appVersion>", a body listing the fields, and every
// readable regular file below `documentsDirectory` whose relative path ends in
// "sqlite", attached as application/x-sqlite3 under that relative path ('/'
// separators), sorted by it. Directory symlinks are not followed; unreadable files
// and folders are left out without a word.
MailReport makeMailReport(const DeviceReportFields& fields, const std::string& documentsDirectory);

// One complete message with CRLF line ends: Date (UTC, from `unixSeconds`), From,
// To, Subject, Message-ID, then a multipart/mixed body holding the text and one part
// per attachment, all base64 so every byte comes back exactly. `boundarySeed` makes
// the Message-ID and the boundary; the same inputs give the same text. CR and LF in
// the inputs never reach a header line as line breaks.
std::string mimeMessage(const MailReport& report, const std::string& from, const std::vector<std::string>& to,
                        std::int64_t unixSeconds, const std::string& boundarySeed);

// "Tue, 14 Nov 2023 22:13:20 +0000" for 1700000000.
std::string rfc5322Date(std::int64_t unixSeconds);

// Sends `message` (as mimeMessage makes it, not dot-stuffed: libcurl does that on
// the wire) and waits for the server's verdict. std::nullopt when the server took
// it, otherwise a text for the user beginning with "SMTP: ".
std::optional<std::string> sendMail(const MailServerSettings& settings, const std::string& message);

} // namespace bvgeo
