// Reads NMEA 0183 logs: positions from RMC, GGA and GLL of any talker, dates from
// RMC and ZDA, and the fix's quality where the log gives it: speed (RMC), HDOP and
// satellites used (GGA), 2D/3D mode and HDOP (GSA), error estimates (GST). Most sentences carry only a time of day, so the reader keeps a
// running date: the log's own RMC/ZDA dates when it has them, `options.date`
// before that, and the next day whenever the time of day falls back by more than
// twelve hours (a log running past midnight). Positions seen before the log's
// first date, with no date given, wait for it; a log that never dates itself and
// got no date fails. Sentences of one instant make one fix. Checksums are checked
// on the sentences read; the others are passed over unread. Runs on the caller's
// thread.
#pragma once

#include "track/TrackFixCollector.hpp"

#include <string_view>

namespace bvgeo {

void readNmea(std::string_view content, const TrackReadOptions& options, TrackFixCollector& fixes);

} // namespace bvgeo
