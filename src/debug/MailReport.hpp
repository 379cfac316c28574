// The debug console's "Send to Email" report: the device fields and the databases
// it carries. MimeMessage turns it into a message, SmtpSender sends that.
//
// makeMailReport reads files on the caller's thread and may be called from any
// thread. It does not throw.
#pragma once

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

} // namespace bvgeo
