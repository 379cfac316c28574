// The streaming zone file reader against the reading it replaced: the whole body
// decoded as one document, then Fence::fenceFromJson for each element of its
// "fences" array. Both must decode the same bodies and, for a body that is a JSON
// object, keep the same fences with the same fields, in the same order; the text
// the client prints of a streamed answer must be the document's compact dump.
#include "models/Fence.hpp"
#include "request/CompactJsonText.hpp"
#include "zone/ZoneFileReader.hpp"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

using nlohmann::json;

// Bit for bit: a reader that drops a sign or a last digit differs here.
std::string describe(const bvgeo::Fence& f) {
    auto bits = [](double value) {
        std::uint64_t out;
        std::memcpy(&out, &value, sizeof out);
        return std::to_string(out);
    };
    std::string text = f.id + '\x1f' + f.name + '\x1f' + bits(f.latitude) + '\x1f' + bits(f.longitude) + '\x1f' +
                       bits(f.radius) + '\x1f' + (f.current_zone ? "1" : "0");
    for (const auto& id : f.content_ids) text += '\x1f' + id;
    return text;
}

// The client refuses deeper answers before decoding them (dumping one would recurse
// that deep); the comparison of texts does the same.
bool shallow(const std::string& text) {
    int depth = 0;
    bool inString = false, escaped = false;
    for (char c : text) {
        if (inString) {
            if (escaped) escaped = false;
            else if (c == '\\') escaped = true;
            else if (c == '"') inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > 512) return false;
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return true;
}

[[noreturn]] void differ(const char* what) {
    std::fprintf(stderr, "zone_file_differential: %s\n", what);
    __builtin_trap();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string body(reinterpret_cast<const char*>(data), size);

    const json document = json::parse(body, nullptr, /*allow_exceptions=*/false);
    bvgeo::ZoneFileReader reader;
    const bool streamed = json::sax_parse(body, &reader);
    if (streamed == document.is_discarded()) differ("one reading decodes the body, the other does not");
    if (!document.is_object()) return 0; // not a zone file; what the reader kept means nothing

    std::vector<std::string> whole;
    if (auto list = document.find("fences"); list != document.end() && list->is_array())
        for (const auto& element : *list)
            if (auto fence = bvgeo::Fence::fenceFromJson(element)) whole.push_back(describe(*fence));
    std::vector<std::string> stream;
    for (const auto& fence : reader.takeFences()) stream.push_back(describe(*fence));
    if (whole != stream) differ("the readings keep different fences");

    if (shallow(body)) {
        bvgeo::CompactJsonText text;
        json::sax_parse(body, &text);
        if (text.take() != document.dump(-1, ' ', false, json::error_handler_t::replace))
            differ("the printed text is not the document's");
    }
    return 0;
}
