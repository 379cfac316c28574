// CompactJsonText: rebuilds, from the events of decoding one JSON text, the text
// that decoding it into a document and dumping that compactly would give
// (dump(-1, ' ', false, replace)): object members sorted by key, a key given twice
// kept once with its last value, numbers in the library's own forms. Only the text
// itself is kept, never a document, so it costs about the size of that text.
//
// One thread feeds it; it is not reusable.
#pragma once

#include <nlohmann/json.hpp>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace bvgeo {

class CompactJsonText final : public nlohmann::json_sax<nlohmann::json> {
public:
    using json = nlohmann::json;

    bool null() override;
    bool boolean(bool value) override;
    bool number_integer(json::number_integer_t value) override;
    bool number_unsigned(json::number_unsigned_t value) override;
    bool number_float(json::number_float_t value, const json::string_t& text) override;
    bool string(json::string_t& value) override;
    bool binary(json::binary_t& value) override;
    bool start_object(std::size_t elements) override;
    bool key(json::string_t& value) override;
    bool end_object() override;
    bool start_array(std::size_t elements) override;
    bool end_array() override;
    bool parse_error(std::size_t position, const std::string& lastToken, const nlohmann::detail::exception& error) override;

    // The whole text, once the top-level value is complete; empty text before.
    std::string take() { return std::move(text_); }

private:
    struct Container {
        bool isObject = false;
        std::string text; // an array's text so far, from its "["
        std::vector<std::pair<std::string, std::string>> members; // an object's keys and value texts
    };

    void open(bool isObject);
    // A finished value's text goes to the container it belongs to.
    void place(std::string text);

    std::vector<Container> open_; // the first depth_ are open
    std::size_t depth_ = 0;
    std::vector<std::size_t> order_, kept_;
    std::string text_;
    json number_; // formats floats exactly as the document's dump does
};

} // namespace bvgeo
