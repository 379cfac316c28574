#include "request/ResolveHold.hpp"

#include <algorithm>

namespace bvgeo {

ResolveHold holdAfterFailure(const std::optional<ResolveHold>& previous, double now) {
    const double seconds = previous ? std::min(previous->seconds * 2, kLongestResolveHold) : kFirstResolveHold;
    return {now + seconds, seconds};
}

bool isHeldBack(const ResolveHold& hold, double now) { return now < hold.until; }

} // namespace bvgeo
