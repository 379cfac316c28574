// HTTPError: why a request ended in its failure callback. The domain tells whether
// the exchange itself failed (no usable HTTP answer) or the answer could not be
// read as a JSON object; the code is the libcurl result or the JSON library's error
// id; the description is the human-readable text that also went to the console.
#pragma once

#include <string>
#include <string_view>

namespace bvgeo {

inline constexpr std::string_view kHTTPTransportErrorDomain = "bvgeo.http.transport";
inline constexpr std::string_view kHTTPDecodingErrorDomain = "bvgeo.http.decoding";

// Decoding-domain code for a well-formed JSON answer whose top level is not an object.
inline constexpr int kHTTPErrorNotAnObject = 1000;
// Decoding-domain code for an answer nested too deeply to decode safely.
inline constexpr int kHTTPErrorTooDeep = 1001;

struct HTTPError {
    std::string domain;
    int code = 0;
    std::string description;

    bool operator==(const HTTPError&) const = default;
};

} // namespace bvgeo
