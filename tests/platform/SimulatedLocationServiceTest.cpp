#include <bvgeo/platform/virtualtime/SimulatedLocationService.hpp>

#include <GeographicLib/Geodesic.hpp>
#include <gtest/gtest.h>

#include <functional>

namespace bvgeo {
namespace {

// A fix `metres` due north of `from`.
Location north(const Location& from, double metres) {
    Location to{0, 0, from.timestamp + 1};
    GeographicLib::Geodesic::WGS84().Direct(from.latitude, from.longitude, 0.0, metres, to.latitude, to.longitude);
    return to;
}

struct Recorder : LocationManagerDelegate {
    void locationManagerDidUpdateLocations(LocationManager& manager, const std::vector<Location>& batch) override {
        batches.push_back(batch);
        if (onDelivery) onDelivery(manager);
    }
    std::vector<std::vector<Location>> batches;
    std::function<void(LocationManager&)> onDelivery;
};

TEST(SimulatedLocationService, DistanceFilterHoldsBackNearFixesPerManager) {
    SimulatedLocationService service;
    auto filtered = service.makeLocationManager();
    auto unfiltered = service.makeLocationManager();
    Recorder a, b;
    filtered->setDelegate(&a);
    filtered->setDistanceFilter(100.0);
    filtered->startUpdatingLocation();
    unfiltered->setDelegate(&b);
    unfiltered->setDistanceFilter(kDistanceFilterNone);
    unfiltered->startUpdatingLocation();

    const Location start{-23.5, -46.625, 1'500'000'000};
    const Location near = north(start, 60), far = north(start, 150), farNear = north(far, 99);
    EXPECT_EQ(service.push(start), 2) << "the first fix always passes";
    EXPECT_EQ(service.push(near), 1);
    EXPECT_EQ(service.push(far), 2) << "measured from the last fix delivered, not the last pushed";
    EXPECT_EQ(service.push(farNear), 1);

    ASSERT_EQ(a.batches.size(), 2u);
    EXPECT_EQ(a.batches[1].size(), 1u);
    EXPECT_EQ(a.batches[1][0].latitude, far.latitude);
    EXPECT_EQ(a.batches[1][0].timestamp, far.timestamp);
    EXPECT_EQ(b.batches.size(), 4u);
    EXPECT_EQ(service.managerStates()[0].batchesDelivered, 2);
    EXPECT_EQ(service.managerStates()[1].batchesDelivered, 4);
}

TEST(SimulatedLocationService, SignificantChangesNeedFiveHundredMetresFromTheLastOne) {
    SimulatedLocationService service;
    auto significant = service.makeLocationManager();
    auto both = service.makeLocationManager();
    Recorder s, b;
    significant->setDelegate(&s);
    significant->startMonitoringSignificantLocationChanges();
    both->setDelegate(&b);
    both->setDistanceFilter(1000.0);
    both->startUpdatingLocation();
    both->startMonitoringSignificantLocationChanges();

    const Location first{51.0, 0.7, 1'500'000'000};
    const Location short1 = north(first, 400), second = north(first, 600), short2 = north(second, 499);
    service.push(first);
    EXPECT_EQ(s.batches.size(), 1u) << "the first fix counts";
    EXPECT_EQ(b.batches.size(), 1u) << "one batch even when both kinds of delivery want the fix";
    service.push(short1);
    EXPECT_EQ(s.batches.size(), 1u);
    service.push(second);
    EXPECT_EQ(s.batches.size(), 2u);
    EXPECT_EQ(b.batches.size(), 2u) << "significant change passes although the filter would not";
    EXPECT_EQ(service.push(short2), 0) << "499 m from the last significant change, not from the first";
}

TEST(SimulatedLocationService, AFixOfOneKindReachesOnlyThatKindOfDelivery) {
    SimulatedLocationService service;
    auto standard = service.makeLocationManager();
    auto significant = service.makeLocationManager();
    Recorder st, si;
    standard->setDelegate(&st);
    standard->setDistanceFilter(100.0);
    standard->startUpdatingLocation();
    significant->setDelegate(&si);
    significant->startMonitoringSignificantLocationChanges();

    const Location first{51.0, 0.7, 1'500'000'000, 8.0};
    EXPECT_EQ(service.push(first, SimulatedDelivery::Standard), 1);
    EXPECT_EQ(st.batches.size(), 1u);
    EXPECT_EQ(st.batches[0][0].horizontalAccuracy, 8.0) << "the fix arrives as pushed";
    EXPECT_EQ(service.push(north(first, 50), SimulatedDelivery::Standard), 0) << "the distance filter still holds";
    // The host's source judged the move significant: no 500 m rule, no standard delivery.
    EXPECT_EQ(service.push(north(first, 20), SimulatedDelivery::SignificantChange), 1);
    EXPECT_EQ(service.push(north(first, 40), SimulatedDelivery::SignificantChange), 1);
    EXPECT_EQ(si.batches.size(), 2u);
    EXPECT_EQ(st.batches.size(), 1u);
}

TEST(SimulatedLocationService, DeliversOnlyToRunningManagersWithADelegate) {
    SimulatedLocationService service;
    auto m = service.makeLocationManager();
    Recorder r;
    m->setDelegate(&r);
    EXPECT_EQ(service.push(1.0, 2.0, 100), 0) << "not started";
    m->startUpdatingLocation();
    m->setDelegate(nullptr);
    EXPECT_EQ(service.push(1.0, 2.0, 101), 0) << "no delegate";
    m->setDelegate(&r);
    EXPECT_EQ(service.push(1.0, 2.0, 102), 1);
    m->stopUpdatingLocation();
    EXPECT_EQ(service.push(5.0, 5.0, 103), 0) << "stopped";
    EXPECT_EQ(r.batches.size(), 1u);
    EXPECT_EQ(service.managerStates().at(0).batchesDelivered, 1);

    m.reset();
    EXPECT_TRUE(service.managerStates().empty());
}

TEST(SimulatedLocationService, DelegateMayRetuneStopOrDestroyManagersDuringDelivery) {
    SimulatedLocationService service;
    std::unique_ptr<LocationManager> first = service.makeLocationManager(), second = service.makeLocationManager(),
                                     third = service.makeLocationManager();
    Recorder r1, r2, r3;
    for (auto [m, r] : {std::pair{&first, &r1}, {&second, &r2}, {&third, &r3}}) {
        (*m)->setDelegate(r);
        (*m)->startUpdatingLocation();
    }
    r1.onDelivery = [&](LocationManager& own) {
        own.allowDeferredLocationUpdates(kLocationDistanceMax, 30.0);
        own.stopUpdatingLocation();
        second->stopUpdatingLocation(); // decided before its turn: gets nothing
    };
    r3.onDelivery = [&](LocationManager&) { third.reset(); };

    EXPECT_EQ(service.push(10.0, 10.0, 1), 2);
    EXPECT_EQ(r1.batches.size(), 1u);
    EXPECT_TRUE(r2.batches.empty());
    EXPECT_EQ(r3.batches.size(), 1u);
    EXPECT_EQ(third, nullptr);

    auto states = service.managerStates();
    ASSERT_EQ(states.size(), 2u);
    EXPECT_EQ(states[0].deferredRequests, 1);
    EXPECT_FALSE(states[0].updatingLocation);
    EXPECT_EQ(service.push(11.0, 10.0, 2), 0);
}

} // namespace
} // namespace bvgeo
