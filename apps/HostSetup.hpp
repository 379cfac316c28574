// HostSetup: what replay and live tracking share as a host of the library: reading
// the environment, trigger mode and tuning options, preparing the documents
// directory, and the start-up sequence (base URLs, configure, setParameters,
// delegate, start). Parsers throw UsageError; the rest returns a problem text.
#pragma once

#include "Replay.hpp"

#include <bvgeo/BVGeoTracker.hpp>

#include <memory>
#include <optional>
#include <string>

namespace bvgeo::cli {

// "production", "staging", "qa", "development" or 0 to 3.
int parseEnvironment(const std::string& text);
// "both", "local", "remote" or 0 to 2.
int parseTriggerMode(const std::string& text);
// Metres, or "best", "ten-meters", "hundred-meters".
double parseAccuracy(const std::string& text);
// Metres, or "none".
double parseDistanceFilter(const std::string& text);

// Creates the directory when missing; a problem text when it cannot be written.
std::optional<std::string> prepareDataDirectory(const std::string& directory);

// One trigger as the programs print it: a JSON object (event, fenceId, fenceName,
// timestamp, locationEvent, deviceId) or a readable line with the UTC time.
std::string triggerJsonLine(const BVTrigger& trigger);
std::string triggerTextLine(const BVTrigger& trigger);

// Base URLs, configure, optional setParameters, delegate. A problem text when the
// library refused the configuration.
std::optional<std::string> configureHost(const ReplayOptions& options, std::shared_ptr<BVGeoTrackerDelegate> delegate);
// configureHost, then start.
std::optional<std::string> startHost(const ReplayOptions& options, std::shared_ptr<BVGeoTrackerDelegate> delegate);

} // namespace bvgeo::cli
