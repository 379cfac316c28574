// The debug console's report as one standalone MIME message: the same text is sent
// over SMTP or saved as an .eml file. Pure functions; any thread; nothing throws.
#pragma once

#include "debug/MailReport.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace bvgeo {

// One complete message with CRLF line ends: Date (UTC, from `unixSeconds`), From,
// To, Subject, Message-ID, then a multipart/mixed body holding the text and one part
// per attachment, all base64 so every byte comes back exactly. `boundarySeed` makes
// the Message-ID and the boundary; the same inputs give the same text. CR and LF in
// the inputs never reach a header line as line breaks.
std::string mimeMessage(const MailReport& report, const std::string& from, const std::vector<std::string>& to,
                        std::int64_t unixSeconds, const std::string& boundarySeed);

// "Tue, 14 Nov 2023 22:13:20 +0000" for 1700000000.
std::string rfc5322Date(std::int64_t unixSeconds);

} // namespace bvgeo
