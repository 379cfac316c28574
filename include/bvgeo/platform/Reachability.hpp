// Reachability: whether and how the device can reach the network. The connection
// type is cheap (no traffic) and is only written into log lines, so an answer a
// moment old is as good as a fresh one; the connectivity check talks to the network
// and blocks the calling thread until it has an answer, so keep it off the main
// queue. Thread-safe.
#pragma once

#include <bvgeo/Export.hpp>

#include <optional>
#include <string_view>

namespace bvgeo {

enum class BVReachabilityType : int { WWAN = 0, WiFi, NotConnected };

BVGEO_API std::string_view rawValue(BVReachabilityType type);
BVGEO_API std::optional<BVReachabilityType> reachabilityTypeFromRaw(std::string_view text);

class BVGEO_API Reachability {
public:
    virtual ~Reachability() = default;

    // How the device would reach the network now; NotConnected when it has no way out.
    virtual BVReachabilityType isConnectedToNetworkOfType() = 0;

    // True when the network actually answered. Blocks.
    virtual bool isConnectedToNetwork() = 0;
};

} // namespace bvgeo
