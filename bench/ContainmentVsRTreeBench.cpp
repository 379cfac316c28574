// FenceIndex against what a user would build instead: a SQLite R*Tree over the
// fences' bounding boxes, and the exact rule (isLocationInsideFence) for every box
// that holds the position. Same fences, same positions, and the same answers: every
// position's answer is compared before anything is timed, and a difference stops
// the benchmark with a message. Fences as in ContainmentBench: centres uniform in a
// 0.2-degree zone, radii uniform from 20 m up to the second argument.
#include "SyntheticZone.hpp"

#include "fence/FenceIndex.hpp"
#include "models/FenceListBuilder.hpp"

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <numbers>
#include <random>
#include <string>
#include <vector>

namespace {

using bvgeo::Fence;
using bvgeo::FenceIndex;
using bvgeo::FenceList;
using bvgeo::bench::Position;
using bvgeo::bench::randomPosition;

constexpr std::size_t kPositions = 4096;

// The R*Tree way: boxes that surely hold each circle (a degree of latitude is at
// least 110,574 m, one of longitude at least 111,319 m times the cosine), and the
// exact rule for each box found. SQLite keeps box corners as 32-bit floats rounded
// outwards, so the boxes stay sure.
class RTreeContainment {
public:
    explicit RTreeContainment(const FenceList& fences) : fences_(fences) {
        sqlite3_open(":memory:", &db_);
        sqlite3_exec(db_, "CREATE VIRTUAL TABLE box USING rtree(id, south, north, west, east)", nullptr, nullptr,
                     nullptr);
        sqlite3_exec(db_, "BEGIN", nullptr, nullptr, nullptr);
        sqlite3_stmt* insert = nullptr;
        sqlite3_prepare_v2(db_, "INSERT INTO box VALUES (?, ?, ?, ?, ?)", -1, &insert, nullptr);
        for (std::size_t i = 0; i < fences.size(); ++i) {
            const Fence& fence = *fences[i];
            const double reach = fence.radius + 1e-6;
            const double latitudeHalf = reach / 110574.0 * 1.001;
            const double poleward = std::abs(fence.latitude) + latitudeHalf;
            const double longitudeHalf = reach / (111319.0 * std::cos(poleward * std::numbers::pi / 180.0)) * 1.001;
            sqlite3_bind_int64(insert, 1, static_cast<sqlite3_int64>(i));
            sqlite3_bind_double(insert, 2, fence.latitude - latitudeHalf);
            sqlite3_bind_double(insert, 3, fence.latitude + latitudeHalf);
            sqlite3_bind_double(insert, 4, fence.longitude - longitudeHalf);
            sqlite3_bind_double(insert, 5, fence.longitude + longitudeHalf);
            sqlite3_step(insert);
            sqlite3_reset(insert);
        }
        sqlite3_finalize(insert);
        sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr);
        sqlite3_prepare_v2(db_, "SELECT id FROM box WHERE south <= ?1 AND north >= ?1 AND west <= ?2 AND east >= ?2",
                           -1, &query_, nullptr);
    }
    ~RTreeContainment() {
        sqlite3_finalize(query_);
        sqlite3_close(db_);
    }
    RTreeContainment(const RTreeContainment&) = delete;
    RTreeContainment& operator=(const RTreeContainment&) = delete;

    // The fences that contain the position, in list order, as FenceIndex gives them.
    FenceList insideFences(double latitude, double longitude) {
        hits_.clear();
        sqlite3_bind_double(query_, 1, latitude);
        sqlite3_bind_double(query_, 2, longitude);
        while (sqlite3_step(query_) == SQLITE_ROW) {
            const auto index = static_cast<std::size_t>(sqlite3_column_int64(query_, 0));
            if (bvgeo::isLocationInsideFence(latitude, longitude, *fences_[index])) hits_.push_back(index);
        }
        sqlite3_reset(query_);
        std::sort(hits_.begin(), hits_.end());
        FenceList inside;
        inside.reserve(hits_.size());
        for (std::size_t index : hits_) inside.push_back(fences_[index]);
        return inside;
    }

private:
    const FenceList& fences_;
    sqlite3* db_ = nullptr;
    sqlite3_stmt* query_ = nullptr;
    std::vector<std::size_t> hits_;
};

struct Setup {
    FenceList fences;
    std::unique_ptr<FenceIndex> index;
    std::unique_ptr<RTreeContainment> rtree;
    std::vector<Position> positions;
    std::string mismatch; // empty when both agree on every position
};

// Built and checked once per size, so repetitions time queries only.
Setup& setup(std::size_t count, double maxRadius) {
    static std::mutex mutex;
    static std::map<std::pair<std::size_t, double>, std::unique_ptr<Setup>> built;
    std::lock_guard lock(mutex);
    auto& slot = built[{count, maxRadius}];
    if (slot) return *slot;
    slot = std::make_unique<Setup>();
    Setup& s = *slot;

    bvgeo::FenceListBuilder list; // as the library holds a zone's fences
    for (auto& fence : bvgeo::bench::syntheticFences(count, maxRadius)) list.add(std::move(fence));
    s.fences = list.finish();
    s.index = std::make_unique<FenceIndex>(s.fences);
    s.rtree = std::make_unique<RTreeContainment>(s.fences);
    std::mt19937_64 walk(99);
    s.positions.resize(kPositions);
    for (auto& position : s.positions) position = randomPosition(walk);
    // Half of the positions right at a rim, where a sloppy shortcut would differ.
    std::uniform_real_distribution<double> angle(0.0, 2.0 * std::numbers::pi);
    for (std::size_t i = 0; i < kPositions; i += 2) {
        const Fence& fence = *s.fences[(i * 7919) % count];
        const double a = angle(walk);
        const double metres = fence.radius * (1.0 + (i % 4 == 0 ? 1e-9 : -1e-9));
        s.positions[i] = {fence.latitude + metres * std::cos(a) / 111'200.0,
                          fence.longitude + metres * std::sin(a) / (111'200.0 * std::cos(fence.latitude * std::numbers::pi / 180.0))};
    }
    for (const Position& p : s.positions) {
        const FenceList byIndex = s.index->insideFences(p.latitude, p.longitude);
        const FenceList byRTree = s.rtree->insideFences(p.latitude, p.longitude);
        if (byIndex != byRTree) {
            char text[200];
            std::snprintf(text, sizeof text, "answers differ at %.9f, %.9f: FenceIndex %zu fences, R*Tree %zu",
                          p.latitude, p.longitude, byIndex.size(), byRTree.size());
            s.mismatch = text;
            std::fprintf(stderr, "ContainmentVsRTree: %s\n", text);
            break;
        }
    }
    return s;
}

template <class Query>
void timeQueries(benchmark::State& state, Setup& s, Query query) {
    if (!s.mismatch.empty()) {
        state.SkipWithError(s.mismatch.c_str());
        return;
    }
    std::size_t next = 0, found = 0;
    for (auto _ : state) {
        const Position& position = s.positions[next];
        FenceList inside = query(position);
        found += inside.size();
        benchmark::DoNotOptimize(inside.data());
        next = (next + 1) % s.positions.size();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
    state.counters["fences_per_position"] =
        benchmark::Counter(static_cast<double>(found) / static_cast<double>(state.iterations()));
}

void BM_ContainmentFenceIndex(benchmark::State& state) {
    Setup& s = setup(static_cast<std::size_t>(state.range(0)), static_cast<double>(state.range(1)));
    timeQueries(state, s, [&](const Position& p) { return s.index->insideFences(p.latitude, p.longitude); });
}

void BM_ContainmentRTree(benchmark::State& state) {
    Setup& s = setup(static_cast<std::size_t>(state.range(0)), static_cast<double>(state.range(1)));
    timeQueries(state, s, [&](const Position& p) { return s.rtree->insideFences(p.latitude, p.longitude); });
}

#define CONTAINMENT_SIZES(bench)                                                                                       \
    BENCHMARK(bench)->Args({1000, 200})->Args({1000, 2000})->Args({100000, 200})->Args({100000, 2000})->Unit(          \
        benchmark::kMicrosecond)
CONTAINMENT_SIZES(BM_ContainmentFenceIndex);
CONTAINMENT_SIZES(BM_ContainmentRTree);

} // namespace
