// What every libcurl transfer of the library shares: the process-wide set-up, the
// URL check, and the options that keep a transfer to verified HTTP(S). The HTTP
// transport and the reachability probe both build their easy handles on these, so
// neither can drift to a laxer TLS setting than the other. Any thread.
#pragma once

#include <string>

namespace bvgeo {

// libcurl's process-wide set-up, done once; safe to call from any thread.
void ensureCurlReady();

// True for an absolute http or https URL with a host, as libcurl parses it.
bool isValidHTTPURL(const std::string& url);
// The host part of a URL isValidHTTPURL accepts (lower-cased by libcurl); "" otherwise.
std::string hostOfHTTPURL(const std::string& url);

// http and https only, redirects not followed, the peer's certificate and host name
// verified, and no signals (transfers run on threads of their own). `easy` is a
// libcurl easy handle (a CURL*, and libcurl declares CURL as void), so that this
// header does not bring curl.h to everyone who includes it.
void setSecureHTTPOptions(void* easy);

} // namespace bvgeo
