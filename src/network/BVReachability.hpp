// BVReachability: whether and how the device can reach the network. The connection
// type comes from the kernel's routing tables (cheap, no traffic); the connectivity
// check sends one HEAD request to a well-known public site and blocks the calling
// thread until it is answered or 10 seconds passed, so keep it off the main queue.
//
// Static and thread-safe. The connection type is read from the tables at most once
// per second of real time. The table paths, the probe URL and the clock that ages
// the type can be replaced, which is for tests; production code leaves the defaults.
#pragma once

#include "network/RouteTable.hpp"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace bvgeo {

enum class BVReachabilityType : int { WWAN = 0, WiFi, NotConnected };

std::string_view rawValue(BVReachabilityType type);
std::optional<BVReachabilityType> reachabilityTypeFromRaw(std::string_view text);

class BVReachability {
public:
    static constexpr std::string_view kProbeURL = "https://www.debian.org/";
    static constexpr std::string_view kIPv4RouteFile = "/proc/net/route";
    static constexpr std::string_view kIPv6RouteFile = "/proc/net/ipv6_route";
    static constexpr double kProbeTimeout = 10.0;

    // From the routing tables (a reading up to a second old); NotConnected when there
    // is no default route or the tables cannot be read.
    static BVReachabilityType isConnectedToNetworkOfType();

    // True exactly when the probe URL answered a HEAD request with status 200
    // (redirects are not followed). Blocks.
    static bool isConnectedToNetwork();

    // The decision itself, from the flag word.
    static BVReachabilityType typeFromFlags(const RouteFlags& flags);

    // Empty text restores the default.
    static void setProbeURL(std::string url);
    static std::string probeURL();
    // Also forgets the last reading.
    static void setRouteFiles(std::string ipv4Path, std::string ipv6Path);
    // Stands in for the steady clock that ages the reading; empty restores it.
    static void setSteadyClock(std::function<std::chrono::steady_clock::time_point()> now);
};

} // namespace bvgeo
