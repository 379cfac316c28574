// Sending a finished mail message over SMTP with libcurl. Blocks the caller's
// thread for the exchange; may be called from any thread; does not throw.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace bvgeo {

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

// Sends `message` (as mimeMessage makes it, not dot-stuffed: libcurl does that on
// the wire) and waits for the server's verdict. std::nullopt when the server took
// it, otherwise a text for the user beginning with "SMTP: ".
std::optional<std::string> sendMail(const MailServerSettings& settings, const std::string& message);

} // namespace bvgeo
