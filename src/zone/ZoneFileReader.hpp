// ZoneFileReader: turns a zone file into fences while it is being decoded, one
// JSON event at a time, so that a zone of 100,000 fences never exists as a JSON
// document in memory: only the fence being read and the fences kept so far do.
//
// It keeps exactly the fences that decoding the whole body and handing each element
// of its "fences" array to Fence::fenceFromJson would keep, with the same fields: a
// key given twice counts with its last value, a "fences" that is not an array gives
// no fences, an element that is not an object or whose location is not a point (or
// whose coordinates are not two numbers) is skipped. What the reader collected from
// a body that turns out not to be a JSON object, or not to decode at all, means
// nothing; the caller decides that from the decoder.
//
// With polygon fences on, it also reads a fence's "geometry" member (GeoJSON Polygon
// or MultiPolygon) as it arrives; a geometry that is bad, or reaches beyond the
// fence's circle, leaves the fence a circle, and takeFences() logs one line for
// each such fence kept. With them off, "geometry" is skipped like any other key and
// nothing of it is kept.
//
// One thread feeds it; it is not reusable across bodies.
#pragma once

#include "models/Fence.hpp"
#include "models/FenceListBuilder.hpp"
#include "models/GeometryReader.hpp"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace bvgeo {

class ZoneFileReader final : public nlohmann::json_sax<nlohmann::json> {
public:
    using json = nlohmann::json;

    explicit ZoneFileReader(bool polygonFences = false) : polygonFences_(polygonFences) {}

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

    // The fences kept, in file order; the reader is spent afterwards.
    std::vector<std::shared_ptr<Fence>> takeFences();

    // The line logged for a polygon fence that stays a circle.
    static std::string geometryNotUsedText(const std::string& fenceId, const std::string& problem);

private:
    // Where the decoder stands: which container it is in, as far as fences go.
    enum class Place : std::uint8_t { Top, Fences, Fence, Location, Coordinates, ContentIds, Geometry, Ignored };
    // The key whose value comes next, among those that matter at that place.
    enum class Field : std::uint8_t { Other, Fences, Id, Name, Location, Radius, ContentIds, Type, Coordinates, Geometry };

    struct Number {
        bool present = false;
        double value = 0.0;
    };
    // A value that is not a container, as far as the rules look at it.
    struct Scalar {
        const std::string* text = nullptr;
        Number number;
        bool isNull = false;
    };

    void scalar(const Scalar& value);
    // A container opens where a value was due; returns what it will be.
    Place opening(bool isObject);
    void fenceFieldIsNot(Field field);
    void resetLocation();
    void closeFence();
    void resetGeometry();
    void closeGeometryContainer();

    std::vector<Place> places_;
    Field pending_ = Field::Other;
    // The fences of the last "fences" array met so far.
    FenceListBuilder kept_;

    // The element being read.
    Fence fence_;
    bool locationIsObject_ = false;   // its last "location" is an object
    bool locationRejects_ = false;    // its location's last "type" is text other than "Point"
    bool coordinatesPresent_ = false; // its location's last "coordinates" is an array
    bool coordinatesBad_ = false;     // ... with fewer than two elements, or a non-number in the first two
    std::size_t coordinateCount_ = 0;
    double coordinates_[2] = {0.0, 0.0};

    // Polygon fences.
    bool polygonFences_ = false;
    std::unique_ptr<GeometryReader> geometry_; // while the element's "geometry" object is read
    FenceGeometryResult geometryResult_;       // its last "geometry", once read
    bool geometryGiven_ = false;               // its last "geometry" is not null
    // (index among the kept fences, fence id, problem) of fences left circles.
    struct Fallback {
        std::size_t index;
        std::string id, problem;
    };
    std::vector<Fallback> fallbacks_;
};

} // namespace bvgeo
