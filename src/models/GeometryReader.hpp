// GeometryReader: reads one GeoJSON geometry (a Polygon or a MultiPolygon) from the
// events of a JSON decoder, keeping only the coordinates as flat numbers: a zone
// file's geometry is read while the body is decoded, and a geometry that turns out
// bad stops being kept the moment it does, so what it holds never exceeds what was
// received (nor FenceGeometry::kMaxPositions positions).
//
// Feed it the events of exactly one JSON value (starting with that value's own
// start_object), then call finish(). One thread; one geometry per reader.
#pragma once

#include "models/FenceGeometry.hpp"

#include <cstdint>
#include <string>
#include <string_view>

namespace bvgeo {

class GeometryReader {
public:
    void startObject();
    void endObject();
    void startArray();
    void endArray();
    void key(const std::string& name);
    void number(double value);
    // A string (text) or another scalar (null: text is null).
    void scalar(const std::string* text);

    // True once the value that was started has been closed.
    bool closed() const { return started_ && depth_ == 0; }

    // The geometry, checked and indexed, or why there is none.
    FenceGeometryResult finish();
    // Just the rings as read (type, nesting and position count checked, nothing
    // else), for whoever checks them otherwise; empty text when they were read.
    std::string finishRings(PolygonRings& rings);

private:
    void fail(std::string problem);

    enum class Pending : std::uint8_t { Other, Type, Coordinates };

    bool started_ = false;
    int depth_ = 0;           // containers open, the geometry object included
    Pending pending_ = Pending::Other;
    int coordinatesDepth_ = 0; // depth_ of the "coordinates" array, 0 when not inside it
    int level_ = 0;            // arrays open inside "coordinates", itself counted
    int numberLevel_ = 0;      // level at which numbers sit: 3 (Polygon) or 4 (MultiPolygon)
    int numbersInPosition_ = 0;
    bool typeSeen_ = false;
    bool coordinatesSeen_ = false;
    std::string type_;
    std::string problem_;
    PolygonRings rings_;
};

// The geometry of a whole JSON text ("{"type":"Polygon","coordinates":[...]}"):
// bytes in, a geometry or a problem out. What the zone reader does for the
// "geometry" member of a fence, callable on its own.
FenceGeometryResult readFenceGeometry(std::string_view json);
// The rings of such a text without the checks of FenceGeometry::make; why not, or empty.
std::string readPolygonRings(std::string_view json, PolygonRings& rings);

} // namespace bvgeo
