#include "request/CompactJsonText.hpp"

#include <algorithm>
#include <numeric>

namespace bvgeo {

namespace {

// The escaping of nlohmann's serializer without ensure_ascii. Decoded text is
// always valid UTF-8, so every other byte goes through as it is.
void appendQuoted(std::string& out, const std::string& text) {
    static constexpr char kHex[] = "0123456789abcdef";
    out += '"';
    for (const char c : text) {
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\b': out += "\\b"; break;
        case '\f': out += "\\f"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                out += "\\u00";
                out += kHex[(static_cast<unsigned char>(c) >> 4) & 0xF];
                out += kHex[static_cast<unsigned char>(c) & 0xF];
            } else {
                out += c;
            }
        }
    }
    out += '"';
}

} // namespace

bool CompactJsonText::null() {
    place("null");
    return true;
}

bool CompactJsonText::boolean(bool value) {
    place(value ? "true" : "false");
    return true;
}

bool CompactJsonText::number_integer(json::number_integer_t value) {
    place(std::to_string(value));
    return true;
}

bool CompactJsonText::number_unsigned(json::number_unsigned_t value) {
    place(std::to_string(value));
    return true;
}

bool CompactJsonText::number_float(json::number_float_t value, const json::string_t&) {
    number_ = value;
    place(number_.dump());
    return true;
}

bool CompactJsonText::string(json::string_t& value) {
    std::string text;
    text.reserve(value.size() + 2);
    appendQuoted(text, value);
    place(std::move(text));
    return true;
}

bool CompactJsonText::binary(json::binary_t&) { return true; } // never produced by JSON text

bool CompactJsonText::start_object(std::size_t) {
    open(true);
    return true;
}

bool CompactJsonText::start_array(std::size_t) {
    open(false);
    return true;
}

bool CompactJsonText::key(json::string_t& value) {
    if (depth_ > 0) open_[depth_ - 1].members.emplace_back(value, std::string());
    return true;
}

bool CompactJsonText::end_object() {
    if (depth_ == 0) return true;
    auto& members = open_[depth_ - 1].members;
    // The document keeps its members ordered by key, and of a repeated key the last value.
    auto& order = order_;
    order.resize(members.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return members[a].first < members[b].first; });
    auto& kept = kept_;
    kept.clear();
    for (std::size_t i = 0; i < order.size(); ++i)
        if (i + 1 == order.size() || members[order[i]].first != members[order[i + 1]].first) kept.push_back(order[i]);

    std::string text;
    if (kept.empty()) {
        text = "{}";
    } else {
        // The first value's text becomes the buffer: a large one (a zone's whole fence
        // list) is then not copied once more.
        std::string head = "{";
        appendQuoted(head, members[kept[0]].first);
        head += ':';
        text = std::move(members[kept[0]].second);
        text.insert(0, head);
        for (std::size_t i = 1; i < kept.size(); ++i) {
            text += ',';
            appendQuoted(text, members[kept[i]].first);
            text += ':';
            text += members[kept[i]].second;
        }
        text += '}';
    }
    members.clear();
    --depth_;
    place(std::move(text));
    return true;
}

bool CompactJsonText::end_array() {
    if (depth_ == 0) return true;
    std::string text = std::move(open_[depth_ - 1].text);
    text += ']';
    --depth_;
    place(std::move(text));
    return true;
}

bool CompactJsonText::parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) {
    return false;
}

// Containers are kept for reuse once closed: a fence list opens the same few levels
// a hundred thousand times.
void CompactJsonText::open(bool isObject) {
    if (depth_ == open_.size()) open_.emplace_back();
    Container& container = open_[depth_++];
    container.isObject = isObject;
    container.members.clear();
    container.text.clear();
    if (!isObject) container.text = "[";
}

void CompactJsonText::place(std::string text) {
    if (depth_ == 0) {
        text_ = std::move(text);
        return;
    }
    Container& container = open_[depth_ - 1];
    if (container.isObject) {
        if (!container.members.empty()) container.members.back().second = std::move(text);
    } else {
        if (container.text.size() > 1) container.text += ',';
        container.text += text;
    }
}

} // namespace bvgeo
