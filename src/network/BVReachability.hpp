// BVReachability: whether and how the device can reach the network, as the
// installed platform's reachability facility answers. The connection type is cheap
// and may be a moment old; the connectivity check blocks the calling thread until
// the network answered, so keep it off the main queue. Static and thread-safe.
#pragma once

#include <bvgeo/platform/Reachability.hpp>

namespace bvgeo {

class BVReachability {
public:
    // NotConnected when the device has no way out.
    static BVReachabilityType isConnectedToNetworkOfType();

    // True when the network actually answered. Blocks.
    static bool isConnectedToNetwork();
};

} // namespace bvgeo
