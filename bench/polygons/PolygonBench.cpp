// Polygon containment against GEOS prepared geometries, on the same polygons and
// the same positions, after checking that both give the same answers:
//   Contains/<file>/ours   the fence index over the file's polygon fences
//   Contains/<file>/geos   an STRtree of GEOS prepared geometries
// and Build/<file>: checking and indexing every geometry of the file, then the
// fence index over them (the counter bytes_per_vertex is what the geometries hold).
//
//   bvgeo_polygon_bench FILE... [--benchmark_* flags]
#include "PolygonData.hpp"

#include "fence/FenceIndex.hpp"

#include <benchmark/benchmark.h>

#include <filesystem>
#include <iostream>
#include <random>
#include <set>

using namespace bvgeo;
using namespace bvgeo::bench;

namespace {

struct Workload {
    std::vector<PolygonFeature> features;
    std::vector<PolygonRings> rings; // of the features our reader took, for Build
    std::vector<std::pair<double, double>> positions; // latitude, longitude
};

constexpr std::size_t kPositions = 1 << 14;

std::shared_ptr<Workload> load(const std::string& path) {
    auto work = std::make_shared<Workload>();
    work->features = loadPolygonFeatures(path);
    double west = 180, east = -180, south = 90, north = -90;
    for (const auto& feature : work->features) {
        if (!feature.ours) continue;
        PolygonRings rings;
        readPolygonRings(feature.geometry.dump(), rings);
        work->rings.push_back(std::move(rings));
        west = std::min(west, feature.ours->west());
        east = std::max(east, feature.ours->east());
        south = std::min(south, feature.ours->south());
        north = std::max(north, feature.ours->north());
    }
    std::mt19937_64 random(11);
    std::uniform_real_distribution<double> latitude(south, north), longitude(west, east);
    for (std::size_t i = 0; i < kPositions; ++i) work->positions.emplace_back(latitude(random), longitude(random));
    return work;
}

FenceList fencesOf(const std::vector<PolygonFeature>& features) {
    FenceList fences;
    for (std::size_t i = 0; i < features.size(); ++i) {
        if (!features[i].ours) continue;
        auto fence = std::make_shared<Fence>();
        fence->id = std::to_string(i);
        fence->geometry = features[i].ours;
        fences.push_back(fence);
    }
    return fences;
}

// GEOS: an STRtree of prepared geometries; a query counts the containing features.
struct GeosSide {
    explicit GeosSide(const Workload& work) {
        tree = GEOSSTRtree_create_r(geos.context(), 10);
        for (std::size_t i = 0; i < work.features.size(); ++i) {
            if (!work.features[i].ours) continue;
            GEOSGeometry* geometry = geos.geometry(work.features[i].geometry);
            entries.push_back({i, geos.prepare(geometry)});
        }
        for (auto& entry : entries) {
            envelopes.push_back(GEOSEnvelope_r(geos.context(), geos.geometry(work.features[entry.feature].geometry)));
            GEOSSTRtree_insert_r(geos.context(), tree, envelopes.back(), &entry);
        }
        for (const auto& [latitude, longitude] : work.positions) points.push_back(geos.point(longitude, latitude));
    }
    ~GeosSide() {
        GEOSSTRtree_destroy_r(geos.context(), tree);
        for (auto* envelope : envelopes) GEOSGeom_destroy_r(geos.context(), envelope);
    }
    std::set<std::size_t> inside(std::size_t position) {
        Query query{this, points[position], {}};
        GEOSSTRtree_query_r(geos.context(), tree, points[position], &GeosSide::visit, &query);
        return std::move(query.found);
    }
    struct Entry {
        std::size_t feature;
        const GEOSPreparedGeometry* prepared;
    };
    struct Query {
        GeosSide* self;
        GEOSGeometry* point;
        std::set<std::size_t> found;
    };
    static void visit(void* item, void* data) {
        auto& query = *static_cast<Query*>(data);
        auto& entry = *static_cast<Entry*>(item);
        if (GEOSPreparedContains_r(query.self->geos.context(), entry.prepared, query.point) == 1)
            query.found.insert(entry.feature);
    }
    Geos geos;
    GEOSSTRtree* tree;
    std::vector<Entry> entries;
    std::vector<GEOSGeometry*> envelopes;
    std::vector<GEOSGeometry*> points;
};

void registerFile(const std::string& path) {
    const auto work = load(path);
    const std::string name = std::filesystem::path(path).stem().string();
    auto index = std::make_shared<FenceIndex>(fencesOf(work->features));
    auto geos = std::make_shared<GeosSide>(*work);
    // Same answers first, or no timing at all.
    std::size_t hits = 0;
    for (std::size_t i = 0; i < work->positions.size(); ++i) {
        std::set<std::size_t> ours;
        for (const auto& fence : index->insideFences(work->positions[i].first, work->positions[i].second))
            ours.insert(std::stoul(fence->id));
        if (ours != geos->inside(i)) {
            std::cerr << name << ": answers differ at position " << i << '\n';
            std::exit(1);
        }
        hits += ours.size();
    }
    benchmark::RegisterBenchmark(("Contains/" + name + "/ours").c_str(), [work, index, hits](benchmark::State& state) {
        std::size_t i = 0;
        for (auto _ : state) {
            const auto& [latitude, longitude] = work->positions[i++ & (kPositions - 1)];
            benchmark::DoNotOptimize(index->insideFences(latitude, longitude));
        }
        state.counters["hits_per_position"] = static_cast<double>(hits) / kPositions;
    });
    benchmark::RegisterBenchmark(("Contains/" + name + "/geos").c_str(), [work, geos](benchmark::State& state) {
        std::size_t i = 0;
        for (auto _ : state) {
            int found = 0;
            GeosSide::Query query{geos.get(), geos->points[i++ & (kPositions - 1)], {}};
            std::pair<GeosSide::Query*, int*> data{&query, &found};
            GEOSSTRtree_query_r(
                geos->geos.context(), geos->tree, query.point,
                [](void* item, void* data) {
                    auto& q = *static_cast<std::pair<GeosSide::Query*, int*>*>(data);
                    auto& entry = *static_cast<GeosSide::Entry*>(item);
                    if (GEOSPreparedContains_r(q.first->self->geos.context(), entry.prepared, q.first->point) == 1)
                        ++*q.second;
                },
                &data);
            benchmark::DoNotOptimize(found);
        }
    });
    benchmark::RegisterBenchmark(("Build/" + name).c_str(), [work](benchmark::State& state) {
        std::size_t bytes = 0, positions = 0;
        for (auto _ : state) {
            FenceList fences;
            bytes = positions = 0;
            for (const auto& rings : work->rings) {
                auto made = FenceGeometry::make(rings);
                auto fence = std::make_shared<Fence>();
                fence->geometry = made.geometry;
                bytes += made.geometry->memoryBytes();
                positions += made.geometry->positionCount();
                fences.push_back(std::move(fence));
            }
            FenceIndex index(std::move(fences));
            benchmark::DoNotOptimize(index);
        }
        state.counters["bytes_per_vertex"] = static_cast<double>(bytes) / static_cast<double>(positions);
        state.counters["vertices"] = static_cast<double>(positions);
    })->Unit(benchmark::kMillisecond);
}

} // namespace

int main(int argc, char** argv) {
    std::vector<char*> flags{argv[0]};
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        if (std::string(argv[i]).rfind("--", 0) == 0) flags.push_back(argv[i]);
        else files.push_back(argv[i]);
    }
    if (files.empty()) {
        std::cerr << "usage: bvgeo_polygon_bench FILE... [--benchmark_* flags]\n";
        return 2;
    }
    for (const auto& file : files) registerFile(file);
    int count = static_cast<int>(flags.size());
    benchmark::Initialize(&count, flags.data());
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
