// The per-position decision, without storage: containment and the trigger plan,
// by the standard rule (BM_DecisionStandard) and by the robust rules
// (BM_DecisionRobust), over the same walk through the same zone. Each iteration is
// what the engine's job does for one accepted position before it writes anything:
// the fences that contain the fix, the stays as the job copies them, the plan, and
// the stays updated as the plan says. Synthetic and seeded (SyntheticZone.hpp): a
// walk of 1.4 m/s, a fix a second with an error of 5 m that drifts as a receiver's
// does (correlated over half a minute), accuracy 5 to 15 m.
//
// Args: fence count, largest radius. 1,000 fences up to 2 km: a city's districts;
// 100,000 up to 200 m: every shop of a region. Counters: fences containing the
// average fix, triggers per 1,000 fixes, and (robust) the bytes the rules keep per
// fence they remember.
#include "SyntheticZone.hpp"

#include "fence/FenceIndex.hpp"
#include "trigger/RobustTriggerPlanner.hpp"
#include "trigger/TriggerRules.hpp"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <vector>

namespace {

using namespace bvgeo;

constexpr std::int64_t kLingerTime = 300, kMaxLingerTime = 7200;
constexpr std::int64_t kStart = 1'500'000'000;
constexpr std::size_t kWalkLength = 1 << 15;

std::shared_ptr<const FenceIndex> zone(std::size_t count, double maxRadius) {
    static std::mutex mutex;
    static std::map<std::pair<std::size_t, double>, std::shared_ptr<const FenceIndex>> built;
    std::lock_guard lock(mutex);
    auto& index = built[{count, maxRadius}];
    if (!index) {
        FenceList fences;
        for (auto& fence : bench::syntheticFences(count, maxRadius))
            fences.push_back(std::make_shared<Fence>(std::move(fence)));
        index = std::make_shared<const FenceIndex>(std::move(fences));
    }
    return index;
}

// A walker crossing the zone, turning now and then; the fixes stray from the path
// by a slowly drifting error.
std::vector<Location> walk() {
    std::mt19937_64 random(4242);
    constexpr double kErrorMetres = 5.0, kCorrelation = 0.97; // about 30 s
    std::normal_distribution<double> step(0.0, kErrorMetres * std::sqrt(1.0 - kCorrelation * kCorrelation));
    double errorNorth = 0.0, errorEast = 0.0;
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    const double metresPerDegree = 111'320.0, metresPerDegreeEast = metresPerDegree * std::cos(48.85 * M_PI / 180);
    double north = 0.1 * metresPerDegree, east = 0.1 * metresPerDegreeEast, heading = 0.0;
    std::vector<Location> fixes;
    for (std::size_t i = 0; i < kWalkLength; ++i) {
        if (unit(random) < 0.01) heading = 2 * M_PI * unit(random);
        north += 1.4 * std::cos(heading);
        east += 1.4 * std::sin(heading);
        // Turned back at the zone's edges, so every fix has the zone's fences around it.
        const double height = bench::kZoneDegrees * metresPerDegree, width = bench::kZoneDegrees * metresPerDegreeEast;
        if (north < 100 || north > height - 100 || east < 100 || east > width - 100) {
            heading += M_PI;
            north = std::clamp(north, 100.0, height - 100);
            east = std::clamp(east, 100.0, width - 100);
        }
        errorNorth = kCorrelation * errorNorth + step(random);
        errorEast = kCorrelation * errorEast + step(random);
        Location fix{};
        fix.latitude = bench::kZoneSouth + (north + errorNorth) / metresPerDegree;
        fix.longitude = bench::kZoneWest + (east + errorEast) / metresPerDegreeEast;
        fix.timestamp = static_cast<double>(kStart + static_cast<std::int64_t>(i));
        fix.horizontalAccuracy = 5.0 + 10.0 * unit(random);
        fix.fixMode = FixMode::ThreeD;
        fixes.push_back(fix);
    }
    return fixes;
}

// The stays as the engine keeps them, changed as a plan says.
void apply(const std::vector<TriggerStep>& steps, const FenceList& fences, std::vector<ActiveStay>& stays,
           std::int64_t now, std::size_t& triggers) {
    std::vector<std::size_t> exits;
    for (const auto& step : steps) {
        ++triggers;
        switch (step.type) {
        case TriggerType::Enter: stays.push_back({fences[step.index]->id, now, now}); break;
        case TriggerType::Linger:
            for (auto& stay : stays)
                if (stay.fenceId == fences[step.index]->id) stay.lastTriggerAt = now;
            break;
        case TriggerType::Exit: exits.push_back(step.index); break;
        }
    }
    for (auto it = exits.rbegin(); it != exits.rend(); ++it) stays.erase(stays.begin() + static_cast<long>(*it));
}

template <bool Robust>
void decide(benchmark::State& state) {
    const auto index = zone(static_cast<std::size_t>(state.range(0)), static_cast<double>(state.range(1)));
    const std::vector<Location> fixes = walk();
    TriggerFilterOptions options;
    options.robustTriggers = true;
    RobustTriggerPlanner planner;
    std::vector<ActiveStay> stays;
    std::size_t next = 0, inside = 0, triggers = 0, samples = 0, remembered = 0, rememberedBytes = 0;
    for (auto _ : state) {
        const Location& fix = fixes[next];
        const std::int64_t now = kStart + static_cast<std::int64_t>(next);
        const FenceList fences = index->insideFences(fix.latitude, fix.longitude);
        // What the engine's job copies before it decides, in either mode.
        std::vector<std::string> insideIds;
        insideIds.reserve(fences.size());
        for (const auto& fence : fences) insideIds.push_back(fence->id);
        std::vector<ActiveStay> snapshot = stays;
        if constexpr (Robust) {
            const FilteredFix filtered{fix, index}; // what the job carries along
            const auto plan = planner.plan(fences, filtered, snapshot, now, kLingerTime, kMaxLingerTime, options);
            apply(plan.steps, plan.fences.empty() ? fences : plan.fences, stays, now, triggers);
            if (next % 256 == 0) { // a sample, so that measuring costs next to nothing
                ++samples;
                remembered += planner.rememberedFences();
                rememberedBytes += planner.rememberedBytes();
            }
        } else {
            const auto steps = planTriggers(insideIds, snapshot, now, kLingerTime, kMaxLingerTime);
            apply(steps, fences, stays, now, triggers);
        }
        inside += fences.size();
        if (++next == fixes.size()) {
            // Round again from a clean slate, so the clock never goes back.
            next = 0;
            stays.clear();
            planner.forget();
        }
    }
    const auto iterations = static_cast<double>(state.iterations());
    state.SetItemsProcessed(state.iterations());
    state.counters["inside_per_fix"] = benchmark::Counter(static_cast<double>(inside) / iterations);
    state.counters["triggers_per_1000"] = benchmark::Counter(1000.0 * static_cast<double>(triggers) / iterations);
    if (Robust && remembered > 0) {
        state.counters["remembered_fences"] =
            benchmark::Counter(static_cast<double>(remembered) / static_cast<double>(samples));
        state.counters["bytes_per_remembered_fence"] =
            benchmark::Counter(static_cast<double>(rememberedBytes) / static_cast<double>(remembered));
    }
}

void BM_DecisionStandard(benchmark::State& state) { decide<false>(state); }
void BM_DecisionRobust(benchmark::State& state) { decide<true>(state); }

BENCHMARK(BM_DecisionStandard)->Args({1000, 2000})->Args({100000, 200})->Unit(benchmark::kNanosecond);
BENCHMARK(BM_DecisionRobust)->Args({1000, 2000})->Args({100000, 200})->Unit(benchmark::kNanosecond);

} // namespace
