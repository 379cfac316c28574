#include "network/BVReachability.hpp"

#include <bvgeo/platform/Platform.hpp>

namespace bvgeo {

BVReachabilityType BVReachability::isConnectedToNetworkOfType() {
    return platform().reachability->isConnectedToNetworkOfType();
}

bool BVReachability::isConnectedToNetwork() { return platform().reachability->isConnectedToNetwork(); }

} // namespace bvgeo
