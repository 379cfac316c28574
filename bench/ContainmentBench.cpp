// Containment alone: the time insideFences takes per position for one zone's fences,
// and the time and memory the index takes to build. Synthetic and seeded: centres
// uniform in a 0.2-degree zone, radii uniform from 20 m to the second argument
// (2 km: a dense worst case where 100,000 fences put ~1,200 around every point;
// 200 m: shop-sized fences, ~15 around every point).
#include "SyntheticZone.hpp"

#include "fence/FenceIndex.hpp"

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace {

using bvgeo::Fence;
using bvgeo::FenceIndex;
using bvgeo::FenceList;
using bvgeo::bench::Position;
using bvgeo::bench::randomPosition;

FenceList zoneFences(std::size_t count, double maxRadius) {
    FenceList fences;
    fences.reserve(count);
    for (auto& fence : bvgeo::bench::syntheticFences(count, maxRadius))
        fences.push_back(std::make_shared<Fence>(std::move(fence)));
    return fences;
}

// Built once per size and kept, so repetitions time queries only.
const FenceIndex& zoneIndex(std::size_t count, double maxRadius) {
    static std::mutex mutex;
    static std::map<std::pair<std::size_t, double>, std::unique_ptr<FenceIndex>> built;
    std::lock_guard lock(mutex);
    auto& index = built[{count, maxRadius}];
    if (!index) index = std::make_unique<FenceIndex>(zoneFences(count, maxRadius));
    return *index;
}

void BM_ContainmentQuery(benchmark::State& state) {
    const FenceIndex& index =
        zoneIndex(static_cast<std::size_t>(state.range(0)), static_cast<double>(state.range(1)));
    std::mt19937_64 random(99);
    std::vector<Position> positions(4096);
    for (auto& position : positions) position = randomPosition(random);

    std::size_t next = 0, found = 0;
    for (auto _ : state) {
        const Position& position = positions[next];
        FenceList inside = index.insideFences(position.latitude, position.longitude);
        found += inside.size();
        benchmark::DoNotOptimize(inside.data());
        next = (next + 1) % positions.size();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
    state.counters["fences_per_position"] =
        benchmark::Counter(static_cast<double>(found) / static_cast<double>(state.iterations()));
}
BENCHMARK(BM_ContainmentQuery)
    ->Args({1000, 2000})
    ->Args({100000, 2000})
    ->Args({100000, 200})
    ->Unit(benchmark::kMicrosecond);

void BM_ContainmentBuild(benchmark::State& state) {
    const FenceList fences = zoneFences(static_cast<std::size_t>(state.range(0)), 2000.0);

    // What the index holds beyond the list it was given: measured once, outside the timing.
    FenceList copy = fences;
    const std::size_t before = mallinfo2().uordblks;
    std::optional<FenceIndex> measured(std::in_place, std::move(copy));
    const std::size_t indexBytes = mallinfo2().uordblks - before;
    measured.reset();

    for (auto _ : state) {
        state.PauseTiming();
        FenceList list = fences;
        state.ResumeTiming();
        FenceIndex index(std::move(list));
        benchmark::DoNotOptimize(&index);
        state.PauseTiming();
        { FenceIndex discarded(std::move(index)); }
        state.ResumeTiming();
    }
    state.counters["index_bytes"] = benchmark::Counter(static_cast<double>(indexBytes));
    state.counters["bytes_per_fence"] =
        benchmark::Counter(static_cast<double>(indexBytes) / static_cast<double>(fences.size()));
}
BENCHMARK(BM_ContainmentBuild)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond);

} // namespace
