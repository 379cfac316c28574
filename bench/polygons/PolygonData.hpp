// The polygon files the exactness check and the benchmark against GEOS read: GeoJSON
// FeatureCollections and GBFS geofencing_zones.json, their Polygon and MultiPolygon
// features as our geometries and as GEOS geometries built from the same positions.
#pragma once

#include "models/GeometryReader.hpp"

#include <geos_c.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace bvgeo::bench {

struct PolygonFeature {
    std::size_t index = 0; // in the file
    nlohmann::json geometry;
    std::shared_ptr<const FenceGeometry> ours; // null when our reader refused it
    std::string problem;
};

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + path);
    std::ostringstream buffer;
    buffer << in.rdbuf();
    return buffer.str();
}

inline std::vector<PolygonFeature> loadPolygonFeatures(const std::string& path) {
    const auto document = nlohmann::json::parse(readFile(path));
    const nlohmann::json* collection = &document;
    if (document.contains("data") && document["data"].contains("geofencing_zones"))
        collection = &document["data"]["geofencing_zones"];
    std::vector<PolygonFeature> features;
    std::size_t index = 0;
    for (const auto& feature : (*collection)["features"]) {
        const std::size_t at = index++;
        if (!feature.contains("geometry") || !feature["geometry"].is_object()) continue;
        const auto& geometry = feature["geometry"];
        const std::string type = geometry.value("type", "");
        if (type != "Polygon" && type != "MultiPolygon") continue;
        PolygonFeature out;
        out.index = at;
        out.geometry = geometry;
        auto read = readFenceGeometry(geometry.dump());
        out.ours = read.geometry;
        out.problem = read.problem;
        features.push_back(std::move(out));
    }
    return features;
}

// GEOS geometries of one context, freed with it.
class Geos {
public:
    Geos() : context_(GEOS_init_r()) {}
    ~Geos() {
        for (auto* prepared : prepared_) GEOSPreparedGeom_destroy_r(context_, prepared);
        for (auto* geometry : owned_) GEOSGeom_destroy_r(context_, geometry);
        GEOS_finish_r(context_);
    }
    Geos(const Geos&) = delete;
    Geos& operator=(const Geos&) = delete;

    GEOSContextHandle_t context() const { return context_; }

    GEOSGeometry* ring(const nlohmann::json& positions) {
        auto* sequence = GEOSCoordSeq_create_r(context_, static_cast<unsigned>(positions.size()), 2);
        for (unsigned i = 0; i < positions.size(); ++i)
            GEOSCoordSeq_setXY_r(context_, sequence, i, positions[i][0].get<double>(), positions[i][1].get<double>());
        return GEOSGeom_createLinearRing_r(context_, sequence);
    }
    GEOSGeometry* polygon(const nlohmann::json& rings) {
        GEOSGeometry* shell = ring(rings[0]);
        std::vector<GEOSGeometry*> holes;
        for (std::size_t r = 1; r < rings.size(); ++r) holes.push_back(ring(rings[r]));
        return GEOSGeom_createPolygon_r(context_, shell, holes.data(), static_cast<unsigned>(holes.size()));
    }
    // The feature's geometry as GEOS reads it (owned by this object).
    GEOSGeometry* geometry(const nlohmann::json& geometry) {
        GEOSGeometry* made;
        if (geometry["type"] == "Polygon") {
            made = polygon(geometry["coordinates"]);
        } else {
            std::vector<GEOSGeometry*> parts;
            for (const auto& rings : geometry["coordinates"]) parts.push_back(polygon(rings));
            made = GEOSGeom_createCollection_r(context_, GEOS_MULTIPOLYGON, parts.data(), static_cast<unsigned>(parts.size()));
        }
        owned_.push_back(made);
        return made;
    }
    const GEOSPreparedGeometry* prepare(const GEOSGeometry* geometry) {
        const auto* prepared = GEOSPrepare_r(context_, geometry);
        prepared_.push_back(prepared);
        return prepared;
    }
    GEOSGeometry* point(double x, double y) {
        auto* made = GEOSGeom_createPointFromXY_r(context_, x, y);
        owned_.push_back(made);
        return made;
    }

private:
    GEOSContextHandle_t context_;
    std::vector<GEOSGeometry*> owned_;
    std::vector<const GEOSPreparedGeometry*> prepared_;
};

} // namespace bvgeo::bench
