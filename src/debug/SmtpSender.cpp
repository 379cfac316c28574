#include "debug/SmtpSender.hpp"

#include "request/CurlTransport.hpp"

#include <curl/curl.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <string_view>

namespace bvgeo {

namespace {

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

std::optional<std::string> sendMail(const MailServerSettings& settings, const std::string& message) {
    try {
        return sendWithCurl(settings, message);
    } catch (const std::exception& error) {
        return std::string("SMTP: ") + error.what();
    }
}

} // namespace bvgeo
