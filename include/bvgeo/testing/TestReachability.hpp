// TestReachability: a network whose state the test sets; nothing is read from the
// machine and nothing is sent. Starts connected over WiFi, so that what the library
// logs does not depend on the machine the tests run on. The connectivity check
// answers true exactly while the type is not NotConnected. Thread-safe.
#pragma once

#include <bvgeo/Export.hpp>
#include <bvgeo/platform/Reachability.hpp>

#include <atomic>

namespace bvgeo::testing {

class BVGEO_API TestReachability final : public Reachability {
public:
    explicit TestReachability(BVReachabilityType type = BVReachabilityType::WiFi) : type_(type) {}

    BVReachabilityType isConnectedToNetworkOfType() override { return type_.load(); }
    bool isConnectedToNetwork() override { return type_.load() != BVReachabilityType::NotConnected; }

    void setType(BVReachabilityType type) { type_.store(type); }
    // WiFi when reachable, NotConnected when not.
    void setReachable(bool reachable) {
        setType(reachable ? BVReachabilityType::WiFi : BVReachabilityType::NotConnected);
    }

private:
    std::atomic<BVReachabilityType> type_;
};

} // namespace bvgeo::testing
