#include "models/GeometryReader.hpp"

#include <nlohmann/json.hpp>

namespace bvgeo {

void GeometryReader::fail(std::string problem) {
    if (!problem_.empty()) return;
    problem_ = std::move(problem);
    rings_ = {}; // nothing more is kept
}

void GeometryReader::startObject() {
    if (!started_) {
        started_ = true;
        depth_ = 1;
        return;
    }
    ++depth_;
    if (coordinatesDepth_ > 0) fail("has coordinates holding something other than numbers");
    if (depth_ == 2 && pending_ == Pending::Type) {
        typeSeen_ = true;
        type_.clear();
    }
    pending_ = Pending::Other;
}

void GeometryReader::endObject() { --depth_; }

void GeometryReader::startArray() {
    if (!started_) {
        started_ = true;
        fail("is not a JSON object");
    }
    ++depth_;
    if (coordinatesDepth_ > 0) {
        ++level_;
        numbersInPosition_ = 0;
        if (level_ > 4) fail("has coordinates nested deeper than a MultiPolygon's");
        else if (numberLevel_ != 0 && level_ > numberLevel_) fail("has coordinates nested unevenly");
    } else if (depth_ == 2 && pending_ == Pending::Coordinates) {
        coordinatesSeen_ = true;
        coordinatesDepth_ = depth_;
        level_ = 1;
        numberLevel_ = 0;
        if (problem_.empty()) rings_ = {};
    } else if (depth_ == 2 && pending_ == Pending::Type) {
        typeSeen_ = true;
        type_.clear();
    }
    pending_ = Pending::Other;
}

void GeometryReader::endArray() {
    --depth_;
    if (coordinatesDepth_ == 0) return;
    if (numberLevel_ == 0) {
        fail(level_ == 1 ? "has no coordinates" : "has an empty ring or polygon");
    } else if (problem_.empty()) {
        if (level_ == numberLevel_) {
            if (numbersInPosition_ < 2) fail("has a position with fewer than two numbers");
        } else if (level_ == numberLevel_ - 1) {
            rings_.ringEnds.push_back(static_cast<std::uint32_t>(rings_.xy.size() / 2));
        } else if (level_ == numberLevel_ - 2) {
            rings_.polygonEnds.push_back(static_cast<std::uint32_t>(rings_.ringEnds.size()));
        }
    }
    if (--level_ == 0) coordinatesDepth_ = 0;
}

void GeometryReader::key(const std::string& name) {
    if (depth_ != 1) return;
    pending_ = name == "type" ? Pending::Type : name == "coordinates" ? Pending::Coordinates : Pending::Other;
}

void GeometryReader::number(double value) {
    if (coordinatesDepth_ == 0) {
        if (depth_ == 1 && pending_ == Pending::Type) {
            typeSeen_ = true;
            type_.clear();
        }
        pending_ = Pending::Other;
        return;
    }
    if (numberLevel_ == 0) {
        numberLevel_ = level_;
        if (level_ < 3) fail("has coordinates nested as neither a Polygon's nor a MultiPolygon's");
    } else if (level_ != numberLevel_) {
        fail("has coordinates nested unevenly");
    }
    if (!problem_.empty()) return;
    if (++numbersInPosition_ > 2) return; // an altitude, or more
    if (numbersInPosition_ == 2 && rings_.xy.size() / 2 >= FenceGeometry::kMaxPositions) {
        fail("has more than " + std::to_string(FenceGeometry::kMaxPositions) + " positions");
        return;
    }
    rings_.xy.push_back(value);
}

void GeometryReader::scalar(const std::string* text) {
    if (coordinatesDepth_ > 0) {
        fail("has coordinates holding something other than numbers");
        return;
    }
    if (depth_ == 1 && pending_ == Pending::Type) {
        typeSeen_ = true;
        type_ = text ? *text : std::string();
    }
    pending_ = Pending::Other;
}

FenceGeometryResult GeometryReader::finish() {
    FenceGeometryResult result;
    PolygonRings rings;
    result.problem = finishRings(rings);
    if (!result.problem.empty()) return result;
    return FenceGeometry::make(std::move(rings));
}

std::string GeometryReader::finishRings(PolygonRings& rings) {
    // A wrong type says more than whatever its coordinates then looked like.
    if (typeSeen_ && !type_.empty() && type_ != "Polygon" && type_ != "MultiPolygon") {
        problem_.clear();
        fail("is a " + type_ + ", not a Polygon or MultiPolygon");
    }
    if (problem_.empty()) {
        if (!typeSeen_) fail("has no type");
        else if (type_.empty()) fail("has a type that is not text");
        else if (type_ != "Polygon" && type_ != "MultiPolygon") fail("is a " + type_ + ", not a Polygon or MultiPolygon");
        else if (!coordinatesSeen_) fail("has no coordinates");
        else if (numberLevel_ != (type_ == "Polygon" ? 3 : 4)) fail("has coordinates that do not match its type " + type_);
    }
    if (!problem_.empty()) return problem_;
    rings_.multi = type_ == "MultiPolygon";
    rings = std::move(rings_);
    rings_ = {};
    return {};
}

namespace {

// Hands the decoder's events of one whole text to a GeometryReader.
class GeometrySax final : public nlohmann::json_sax<nlohmann::json> {
public:
    using json = nlohmann::json;
    explicit GeometrySax(GeometryReader& reader) : reader_(reader) {}
    bool null() override { return reader_.scalar(nullptr), true; }
    bool boolean(bool) override { return reader_.scalar(nullptr), true; }
    bool number_integer(json::number_integer_t value) override { return reader_.number(static_cast<double>(value)), true; }
    bool number_unsigned(json::number_unsigned_t value) override { return reader_.number(static_cast<double>(value)), true; }
    bool number_float(json::number_float_t value, const json::string_t&) override { return reader_.number(value), true; }
    bool string(json::string_t& value) override { return reader_.scalar(&value), true; }
    bool binary(json::binary_t&) override { return reader_.scalar(nullptr), true; }
    bool start_object(std::size_t) override { return reader_.startObject(), true; }
    bool key(json::string_t& value) override { return reader_.key(value), true; }
    bool end_object() override { return reader_.endObject(), true; }
    bool start_array(std::size_t) override { return reader_.startArray(), true; }
    bool end_array() override { return reader_.endArray(), true; }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override { return false; }

private:
    GeometryReader& reader_;
};

} // namespace

namespace {

std::string readInto(std::string_view text, GeometryReader& reader) {
    GeometrySax sax(reader);
    bool parsed = false;
    try {
        parsed = nlohmann::json::sax_parse(text.begin(), text.end(), &sax);
    } catch (const std::exception&) {
        parsed = false;
    }
    if (!parsed) return "is not valid JSON";
    if (!reader.closed()) return "is not a JSON object";
    return {};
}

} // namespace

FenceGeometryResult readFenceGeometry(std::string_view text) {
    GeometryReader reader;
    FenceGeometryResult result;
    result.problem = readInto(text, reader);
    if (!result.problem.empty()) return result;
    return reader.finish();
}

std::string readPolygonRings(std::string_view text, PolygonRings& rings) {
    GeometryReader reader;
    if (auto problem = readInto(text, reader); !problem.empty()) return problem;
    return reader.finishRings(rings);
}

} // namespace bvgeo
