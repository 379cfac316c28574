// ExtendedOptions: what a host may ask of the library beyond the tracker's
// configuration. Every default keeps the library's standard behaviour, so a host
// that never sets this record sees no difference. Set it with
// BVGeoTracker::setExtendedOptions before start(); a plain value, safe to copy
// between threads.
#pragma once

#include <bvgeo/Export.hpp>
#include <bvgeo/TriggerFilterOptions.hpp>

#include <cstddef>
#include <cstdint>

namespace bvgeo {

struct BVGEO_API ExtendedOptions {
    // Delivery. With durableDelivery on, a trigger report is written to
    // "BVGOutbox.sqlite" beside the database before it is queued, removed when the
    // server accepts it, and sent again (with its original idempotency key) after
    // a relaunch. The outbox keeps at most outboxMaxReports reports, none older
    // than outboxMaxAgeSeconds; what falls out is logged.
    bool durableDelivery = false;
    std::size_t outboxMaxReports = 10'000;
    std::int64_t outboxMaxAgeSeconds = 7 * 24 * 3600;

    // Storage growth; 0 means no limit. The oldest log and location rows beyond
    // maxLogRows / maxLocationRows are deleted as new ones are added, and a
    // "Fences from ...: " line names at most fenceListingLimit fences.
    std::size_t maxLogRows = 0;
    std::size_t maxLocationRows = 0;
    std::size_t fenceListingLimit = 0;

    // Robust triggers: enter and exit decided with hysteresis, the fix's accuracy,
    // confirmation and outlier rejection (TriggerFilterOptions.hpp). Off by default.
    TriggerFilterOptions triggerFilter;

    bool operator==(const ExtendedOptions&) const = default;
};

} // namespace bvgeo
