#include "zone/ZoneCacheRecord.hpp"

#include "zone/ZoneFileReader.hpp"

#include <nlohmann/json.hpp>

#include <cstdio>

namespace bvgeo {

namespace {

std::string checksum(std::string_view bytes) {
    std::uint64_t hash = 0xcbf29ce484222325ull;
    for (unsigned char byte : bytes) {
        hash ^= byte;
        hash *= 0x100000001b3ull;
    }
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
    return text;
}

} // namespace

std::string encodeZoneCacheRecord(const ZoneCacheRecord& record) {
    nlohmann::ordered_json header{{"zone", record.zone},
                                  {"lastModified", record.lastModified},
                                  {"storedAt", record.storedAt},
                                  {"preloaded", record.preloaded},
                                  {"noFences", record.noFences},
                                  {"length", record.body.size()},
                                  {"checksum", checksum(record.body)}};
    std::string text = header.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    text.reserve(text.size() + 1 + record.body.size());
    text += '\n';
    text += record.body;
    return text;
}

namespace {

struct Header {
    ZoneCacheRecord record;
    std::uint64_t length = 0;
    std::string checksum;
};

std::optional<Header> parseHeader(std::string_view line, std::string& problem) {
    try {
        const auto json = nlohmann::json::parse(line);
        Header header;
        header.record.zone = json.at("zone").get<std::string>();
        header.record.lastModified = json.at("lastModified").get<std::string>();
        header.record.storedAt = json.at("storedAt").get<std::int64_t>();
        header.record.preloaded = json.at("preloaded").get<bool>();
        header.record.noFences = json.at("noFences").get<bool>();
        header.length = json.at("length").get<std::uint64_t>();
        header.checksum = json.at("checksum").get<std::string>();
        return header;
    } catch (const std::exception&) {
        problem = "its first line is not a cache record";
        return std::nullopt;
    }
}

} // namespace

std::optional<ZoneCacheRecord> decodeZoneCacheHeader(std::string_view line, std::string& problem) {
    auto header = parseHeader(line, problem);
    if (!header) return std::nullopt;
    return std::move(header->record);
}

std::optional<ZoneCacheRecord> decodeZoneCacheRecord(std::string_view text, std::string& problem) {
    const auto lineEnd = text.find('\n');
    if (lineEnd == std::string_view::npos) {
        problem = "it has no body line";
        return std::nullopt;
    }
    auto header = parseHeader(text.substr(0, lineEnd), problem);
    if (!header) return std::nullopt;
    const std::string_view body = text.substr(lineEnd + 1);
    if (header->length != body.size()) {
        problem = "its body is " + std::to_string(body.size()) + " bytes, not " + std::to_string(header->length);
        return std::nullopt;
    }
    if (header->checksum != checksum(body)) {
        problem = "its body does not match its checksum";
        return std::nullopt;
    }
    header->record.body.assign(body);
    return std::move(header->record);
}

std::optional<FenceList> fencesOfZoneFileBody(const std::string& body, std::string& problem, bool polygonFences) {
    const auto first = body.find_first_not_of(" \t\r\n");
    if (first == std::string::npos || body[first] != '{') {
        problem = "not a JSON object";
        return std::nullopt;
    }
    ZoneFileReader reader(polygonFences);
    try {
        if (!nlohmann::json::sax_parse(body, &reader)) {
            problem = "not valid JSON";
            return std::nullopt;
        }
    } catch (const std::exception& e) {
        problem = std::string("not valid JSON (") + e.what() + ")";
        return std::nullopt;
    }
    return reader.takeFences();
}

} // namespace bvgeo
