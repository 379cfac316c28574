// TriggerFilterOptions: the robust trigger rules a host may switch on, and their
// tunables. With robustTriggers off (the default) nothing here is read and the
// library decides enter and exit exactly as its standard rule does. A plain value
// inside ExtendedOptions; safe to copy between threads.
//
// With robustTriggers on, each fence is decided from how far the fix lies from its
// rim and how good the fix is:
//  - a fence is left only when the fix lies at least exitBufferMetres beyond the rim
//    and its error circle (its accuracy, at most accuracyCapMetres) clears the fence;
//  - a fence is entered only when the fix lies inside by at least half its accuracy
//    (again capped), so most of its error circle is inside;
//  - an enter or an exit needs confirmFixes fixes in a row on the new side, spanning
//    confirmSeconds, and comes no sooner than minimumDwellSeconds after the fence's
//    last change; the trigger comes with the confirming fix;
//  - a fix worse than maxAccuracyMetres, one implying more than maxSpeed from the
//    last fix used, and (unless useTwoDimensionalFixes) a 2D fix change no fence.
// A fix without an accuracy in metres counts HDOP x hdopMetres, or, with neither,
// assumedAccuracyMetres: unknown is never taken for perfect.
#pragma once

#include <bvgeo/Export.hpp>

#include <cstdint>

namespace bvgeo {

struct BVGEO_API TriggerFilterOptions {
    bool robustTriggers = false;

    double exitBufferMetres = 30.0;
    double accuracyCapMetres = 50.0;
    double maxAccuracyMetres = 100.0;
    double assumedAccuracyMetres = 10.0;
    double hdopMetres = 5.0;
    double maxSpeed = 100.0; // metres per second
    int confirmFixes = 3;
    std::int64_t confirmSeconds = 10;
    std::int64_t minimumDwellSeconds = 120;
    bool useTwoDimensionalFixes = false;

    bool operator==(const TriggerFilterOptions&) const = default;
};

} // namespace bvgeo
