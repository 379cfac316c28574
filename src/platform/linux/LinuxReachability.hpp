// LinuxReachability: reachability read from the machine. The connection type comes
// from the kernel's routing tables (cheap, no traffic), read at most once per
// `maxAge` of real time; the connectivity check sends one HEAD request to a
// well-known public site and blocks the calling thread until it is answered or 10
// seconds passed. Thread-safe.
#pragma once

#include <bvgeo/platform/Reachability.hpp>
#include "platform/RecentValue.hpp"
#include "platform/linux/RouteTable.hpp"

#include <chrono>
#include <string>
#include <string_view>

namespace bvgeo {

struct LinuxReachabilityOptions {
    std::string probeURL = "https://www.debian.org/";
    std::string ipv4RouteFile = "/proc/net/route";
    std::string ipv6RouteFile = "/proc/net/ipv6_route";
    // The type only goes into log lines, for which a second-old answer is as good;
    // without the cache the tables were read twice per position.
    std::chrono::steady_clock::duration maxAge = std::chrono::seconds(1);
    // Stands in for the steady clock that ages the reading (tests); empty is the real one.
    RecentValue<BVReachabilityType>::SteadyNow steadyNow = {};
};

class LinuxReachability final : public Reachability {
public:
    static constexpr double kProbeTimeout = 10.0; // seconds

    explicit LinuxReachability(LinuxReachabilityOptions options = {});

    // From the routing tables; NotConnected when there is no default route or the
    // tables cannot be read.
    BVReachabilityType isConnectedToNetworkOfType() override;

    // True exactly when the probe URL answered a HEAD request with status 200
    // (redirects are not followed).
    bool isConnectedToNetwork() override;

    // The decision itself, from the flag word.
    static BVReachabilityType typeFromFlags(const RouteFlags& flags);

    const LinuxReachabilityOptions& options() const { return options_; }

private:
    const LinuxReachabilityOptions options_;
    RecentValue<BVReachabilityType> type_;
};

} // namespace bvgeo
