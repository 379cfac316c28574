// Reading the kernel's routing tables (/proc/net/route and /proc/net/ipv6_route) for
// the one question reachability asks: is there a default route, and over which
// interface. Pure functions of the files' texts; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace bvgeo {

struct DefaultRoute {
    std::string interfaceName;
    std::uint64_t metric = 0;
};

// What the routing tables say about the way out, as a flag word would.
struct RouteFlags {
    bool reachable = false; // some default route exists
    bool isWWAN = false;    // the preferred one leaves through a cellular modem
};

// The default route (destination and mask 0) with the lowest metric, if any.
std::optional<DefaultRoute> defaultIPv4Route(std::string_view procNetRoute);
// The default route (destination ::/0) with the lowest metric, if any; the kernel's
// "unreachable" entries on the loopback interface do not count.
std::optional<DefaultRoute> defaultIPv6Route(std::string_view procNetIPv6Route);

// Modem interfaces by their kernel naming: wwan*, wwp* (USB modems), rmnet* (Qualcomm
// basebands), ppp* (dial-up bearers).
bool isCellularInterface(std::string_view name);

// IPv4 is preferred when both families have a default route.
RouteFlags routeFlags(std::string_view procNetRoute, std::string_view procNetIPv6Route);

} // namespace bvgeo
